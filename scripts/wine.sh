#!/usr/bin/env bash
# Runs a command with a persistent wineserver for the Windows build in the
# folder $1, so that each Windows program starts in milliseconds rather than
# seconds; the server is stopped when the command ends.
#
#   scripts/wine.sh build/windows-x64 ctest --preset windows-x64
#
# The prefix is booted first, with its standard streams on /dev/null: the
# first Windows program of a server starts Wine's own services (services.exe,
# explorer.exe, ...), which live as long as the server and keep the standard
# streams they were given. Were they the pipes of a test program, CTest and
# the test discovery would wait on those pipes until their time-out.
set -uo pipefail
build=$(cd "$1" && pwd)
shift
export WINEPREFIX="$build/wine" WINEDEBUG=-all
mkdir -p "$WINEPREFIX"
# A new prefix is made by a server of its own, waited for to the end: were
# the persistent server started beside the first wineboot, two servers could
# hold the new registry, and the one that saves last could leave the user's
# environment without TEMP and TMP.
if [[ ! -f "$WINEPREFIX/system.reg" ]]; then
  /usr/lib/wine/wine64 wineboot >/dev/null 2>&1 </dev/null
  /usr/lib/wine/wineserver -w
fi
/usr/lib/wine/wineserver -p >/dev/null 2>&1 </dev/null &
/usr/lib/wine/wine64 wineboot >/dev/null 2>&1 </dev/null
"$@"
status=$?
/usr/lib/wine/wineserver -k >/dev/null 2>&1 || true
wait 2>/dev/null
exit $status
