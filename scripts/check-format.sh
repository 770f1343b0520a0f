#!/usr/bin/env bash
# Checks the C++ files against .clang-format without changing them.
#
#   scripts/check-format.sh           every tracked .h and .cc file
#   scripts/check-format.sh REV       the files changed since REV (e.g. origin/main)
set -euo pipefail
cd "$(dirname "$0")/.."
command -v clang-format >/dev/null || scripts/setup.sh format
if [[ $# -gt 0 ]]; then
  mapfile -t files < <(git diff --name-only --diff-filter=d "$1" -- '*.h' '*.cc')
else
  mapfile -t files < <(git ls-files -- '*.h' '*.cc')
fi
[[ ${#files[@]} -eq 0 ]] && { echo "check-format: no C++ files to check"; exit 0; }
if ! clang-format --dry-run -Werror "${files[@]}"; then
  echo "check-format: run 'clang-format -i' on the files above" >&2
  exit 1
fi
echo "check-format: ${#files[@]} files follow .clang-format"
