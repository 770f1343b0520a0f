#!/usr/bin/env bash
# Runs the tvbase tool on table rows: expected exit status, expected output
# (a fixed string that standard output must contain, "" for no output at
# all, or -), the command line.
# Argument: the tool. Rows come from the files named after it.
# TVBASE_TOOL_RUNNER, when set, is the program that runs the tool (wine64
# for a Windows build). A command that runs for a minute is taken for hung
# and killed (a guard against a hang, not a measure of speed).
set -u
tool=$1
shift
runner=${TVBASE_TOOL_RUNNER:-}
failures=0
check() {
  local status=$1 want=$2
  shift 2
  local out got
  out=$(timeout -k 5 60 ${runner:+"$runner"} "$tool" "$@" 2>/dev/null < /dev/null)
  got=$?
  if [[ $got -eq 124 || $got -eq 137 ]]; then
    echo "FAIL: tvbase $* hung and was killed"
    failures=$((failures + 1))
  elif [[ $got -ne $status ]]; then
    echo "FAIL: tvbase $* exited $got, expected $status"
    failures=$((failures + 1))
  elif [[ -z "$want" && -n "$out" ]]; then
    echo "FAIL: tvbase $* printed '$out', expected nothing"
    failures=$((failures + 1))
  elif [[ "$want" != "-" && "$out" != *"$want"* ]]; then
    echo "FAIL: tvbase $* printed '$out', expected it to contain '$want'"
    failures=$((failures + 1))
  fi
}
for rows in "$@"; do
  # shellcheck source=/dev/null
  source "$rows"
done
echo "$failures failed"
[[ $failures -eq 0 ]]
