#!/usr/bin/env bash
# Runs every fuzz target of a build for a set time, each on a working copy of
# its seed corpus (fuzz/corpus/<name>) and with its dictionary if it has one.
# Arguments: the build folder and the seconds per target.
set -uo pipefail
build=${1:-build/fuzz}
seconds=${2:-60}
cd "$(dirname "$0")/.."
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
failed=()
for program in $(find "$build/fuzz" -maxdepth 1 -type f -name '*_fuzz' -perm -u+x | sort); do
  name=$(basename "$program" _fuzz)
  work="$build/fuzz-corpus/$name"
  mkdir -p "$work" "$build/fuzz-crashes"
  [[ -d fuzz/corpus/$name ]] && cp -n fuzz/corpus/$name/* "$work"/ 2>/dev/null
  options=(-max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$build/fuzz-crashes/$name-")
  [[ -f fuzz/$name.dict ]] && options+=(-dict="fuzz/$name.dict")
  printf '\n=== %s (%s s)\n' "$name" "$seconds"
  if ! "$program" "${options[@]}" "$work" 2> "$build/fuzz-$name.log"; then
    failed+=("$name")
    tail -40 "$build/fuzz-$name.log"
  fi
  grep -E '^stat::number_of_executed_units|^#[0-9]+.*DONE' "$build/fuzz-$name.log" | tail -2
done
if [[ ${#failed[@]} -gt 0 ]]; then
  echo "fuzz: failures in ${failed[*]}; inputs are in $build/fuzz-crashes" >&2
  exit 1
fi
