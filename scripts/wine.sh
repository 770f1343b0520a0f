#!/usr/bin/env bash
# Runs a command with a persistent wineserver for the Windows build in the
# folder $1, so that each Windows program starts in milliseconds rather than
# seconds; the server is stopped when the command ends.
#
#   scripts/wine.sh build/windows-x64 ctest --preset windows-x64
set -uo pipefail
build=$(cd "$1" && pwd)
shift
export WINEPREFIX="$build/wine" WINEDEBUG=-all
mkdir -p "$WINEPREFIX"
/usr/lib/wine/wineserver -p >/dev/null 2>&1 </dev/null &
"$@"
status=$?
/usr/lib/wine/wineserver -k >/dev/null 2>&1 || true
wait 2>/dev/null
exit $status
