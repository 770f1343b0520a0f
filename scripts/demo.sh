#!/usr/bin/env bash
# Runs the tvbase tool on the examples in examples/ and shows what each part
# of the library does. Argument: the build folder.
set -uo pipefail
build=${1:-build/default}
tvbase="$build/tools/tvbase/tvbase"
cd "$(dirname "$0")/.."

show() {
  printf '\n$ %s\n' "$*"
  "$@"
  local status=$?
  [[ $status -eq 0 ]] || printf '(exit status %d)\n' "$status"
}
section() { printf '\n=== %s\n' "$1"; }

section "URL encoding"
show "$tvbase" urlencode "a b&c=d/e?f ~x"
show "$tvbase" urlencode - < examples/text/query.txt
show "$tvbase" urlencode --code-page 28591 - < examples/text/query.txt
show "$tvbase" urlencode --code-page 1252 "price: 5 €"
show "$tvbase" urlencode --code-page 28591 "price: 5 €"

section "UTF-8 shape check"
show "$tvbase" utf8check examples/text/valid-utf8.txt
show "$tvbase" utf8check examples/text/broken-utf8.txt

section "JSON document model"
show cat examples/json/order.json
show "$tvbase" json examples/json/order.json
show "$tvbase" json --escape surrogates examples/json/order.json
show "$tvbase" json --escape non-ascii examples/json/order.json
show "$tvbase" json examples/json/broken.json
show "$tvbase" json examples/json/latin1.json
