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

section "Call tracing"
logtune="$build/tools/logtune/logtune"
app="$build/examples/traced_app/traced_app"
cfg="$(dirname "$app")/TvLog.cfg"
logs=$(mktemp -d)
show "$logtune" save "$cfg" --folder "$logs/" --programs "traced_app" --users "*" \
  --filter0 --filter1
show "$logtune" show "$cfg"
show "$app"
for log in "$logs"/*.log; do
  [[ -e "$log" ]] || continue
  printf '\n$ cat "%s"  (lines end in CR LF)\n' "$log"
  tr -d '\r' < "$log"
done
rm -f "$cfg"
rm -rf "$logs"
printf '\nWithout TvLog.cfg (and with the shared record not set) the same program writes no log:\n'
show "$app"

section "Multipart form builder"
body=$(mktemp)
show tvbase form --field user=zoe --field "note=two words" \
  --file "doc=examples/form/note.txt;type=text/plain" --file picture=examples/form/tiny.png -o "$body"
printf '\n$ cat -v BODY   # CR shown as ^M, other control bytes as ^X\n'
cat -v "$body"
printf '\n'
rm -f "$body"
