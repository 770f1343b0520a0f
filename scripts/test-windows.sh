#!/usr/bin/env bash
# Builds both Windows targets (x64 and x86) and runs the x64 suite under
# wine64 through CTest. The 32-bit build is built and linked only: no 32-bit
# Wine can be installed here. Tests that cannot run under Wine or on Windows
# skip with their reason, and the list is printed at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-$(nproc)}
args=("$@")
for target in x64 x86; do
  echo "== Windows $target: configure and build"
  cmake --preset "windows-$target" "${args[@]}" >/dev/null
  # Test discovery runs the x64 programs under Wine while building.
  scripts/wine.sh "build/windows-$target" cmake --build --preset "windows-$target" -j "$jobs"
done
echo "== Windows x64: the suite under wine64"
out=$(mktemp)
trap 'rm -f "$out"' EXIT
status=0
scripts/wine.sh build/windows-x64 ctest --preset windows-x64 -j "$jobs" --timeout 300 |
  tee "$out" || status=$?
[[ ${PIPESTATUS[0]:-0} -eq 0 ]] || status=1
# CTest keeps each test's output in LastTest.log, where GoogleTest printed
# "<file>:<line>: Skipped", the reason, then the test's name.
echo "== tests skipped on Windows or under Wine, and why"
awk '/: Skipped$/ { getline reason; next_reason = reason; next }
     /^\[  SKIPPED \] / && next_reason != "" { printf "  %-60s %s\n", $4, next_reason; next_reason = "" }' \
  build/windows-x64/Testing/Temporary/LastTest.log | sort -u
# CTest's own summary closes the run.
echo "== CTest's summary"
sed -n '/tests passed, /,$p' "$out"
exit $status
