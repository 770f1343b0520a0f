#!/usr/bin/env bash
# Runs every benchmark program of a build and prints their tables.
# Argument: the build folder; BENCH_FILTER narrows the benchmarks run.
set -euo pipefail
build=${1:-build/bench}
cd "$(dirname "$0")/.."
status=0
for program in $(find "$build/bench" -type f -name '*_bench' -perm -u+x | sort); do
  printf '\n=== %s\n' "$(basename "$program")"
  "$program" --benchmark_filter="${BENCH_FILTER:-.}" --benchmark_counters_tabular=true || status=1
done
exit $status
