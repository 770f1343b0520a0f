#!/usr/bin/env bash
# Checks bench/data against its SOURCES.md: every file that a table row names
# has the size and SHA-256 given there, and every file in the folder has a
# row. A row is `| NAME | BYTES | SHA-256 | ... |`.
set -euo pipefail
cd "$(dirname "$0")/../bench/data"

rows=$(sed -nE 's/^\| *([^ |]+) *\| *([0-9,]+) *\| *([0-9a-f]{64}) *\|.*/\1 \2 \3/p' SOURCES.md)
[[ -n "$rows" ]] || { echo "check-bench-data.sh: no file rows in SOURCES.md" >&2; exit 1; }

status=0
listed=()
while read -r name bytes sha; do
  listed+=("$name")
  if [[ ! -f "$name" ]]; then
    echo "bench/data/$name: missing" >&2
    status=1
    continue
  fi
  size=$(stat -c %s "$name")
  if [[ "$size" != "${bytes//,/}" ]]; then
    echo "bench/data/$name: $size bytes, SOURCES.md says $bytes" >&2
    status=1
  fi
  if ! echo "$sha  $name" | sha256sum --check --quiet --strict; then
    status=1
  fi
done <<<"$rows"

for file in *; do
  [[ "$file" == SOURCES.md ]] && continue
  if [[ ! " ${listed[*]} " == *" $file "* ]]; then
    echo "bench/data/$file: not listed in SOURCES.md" >&2
    status=1
  fi
done

[[ $status -eq 0 ]] && echo "bench/data: ${#listed[@]} files match SOURCES.md"
exit $status
