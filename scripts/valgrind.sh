#!/usr/bin/env bash
# Runs test programs of a build under valgrind memcheck: no leak and no
# invalid access may be reported. Arguments: the build folder, then the test
# program names (e.g. tvbase_trace_test).
set -uo pipefail
build=$1
shift
status=0
for name in "$@"; do
  program=$(find "$build" -type f -name "$name" -perm -u+x | head -1)
  if [[ -z "$program" ]]; then
    echo "valgrind.sh: no program $name in $build" >&2
    status=1
    continue
  fi
  printf '\n=== %s under memcheck\n' "$name"
  valgrind --quiet --error-exitcode=99 --leak-check=full --show-leak-kinds=definite,indirect \
    --errors-for-leak-kinds=definite,indirect --suppressions="$(dirname "$0")/valgrind.supp" "$program" --gtest_brief=1 || status=1
done
exit $status
