#!/usr/bin/env bash
# Runs the tvbase tool on the examples in examples/ and shows what each part
# of the library does. Argument: the build folder.
set -uo pipefail
build=${1:-build/default}
cd "$(dirname "$0")/.."
export PATH="$PWD/$build/tools/tvbase:$PWD/$build/tools/logtune:$PWD/$build/examples/traced_app:$PATH"

# Prints the command as one would type it, then runs it. With INPUT set, the
# command reads that file on standard input.
show() {
  local shown=() word
  for word in "$@"; do
    if [[ "$word" =~ ^[A-Za-z0-9_./=:+-]+$ ]]; then shown+=("$word"); else shown+=("'${word//\'/\'\\\'\'}'"); fi
  done
  local status
  if [[ -n "${INPUT:-}" ]]; then
    printf '\n$ %s < %s\n' "${shown[*]}" "$INPUT"
    "$@" < "$INPUT"
  else
    printf '\n$ %s\n' "${shown[*]}"
    "$@"
  fi
  status=$?
  [[ $status -eq 0 ]] || printf '(exit status %d)\n' "$status"
}
section() { printf '\n=== %s\n' "$1"; }

section "URL encoding"
show tvbase urlencode "a b&c=d/e?f ~x"
INPUT=examples/text/query.txt show tvbase urlencode -
INPUT=examples/text/query.txt show tvbase urlencode --code-page 28591 -
show tvbase urlencode --code-page 1252 "price: 5 €"
show tvbase urlencode --code-page 28591 "price: 5 €"

section "UTF-8 shape check"
show tvbase utf8check examples/text/valid-utf8.txt
show tvbase utf8check examples/text/broken-utf8.txt

section "CSS processor"
show tvbase css examples/css/theme.css
show tvbase css --images-before examples/css/theme.css
show tvbase css --images examples/css/theme.css
show tvbase css examples/css/broken.css

section "Version numbers"
show tvbase version parse 12.40_ 12.41b 1.23a 12.40A 123.40_
show tvbase version format 0x0C040102 0x0C040000 0xFFFFFFFF
show tvbase version format --type minor 0x0C040102
show tvbase version format --no-underscore 0x0C040000
show tvbase version compare --type sub 12.40a 12.40b
show tvbase version compare 12.40a 12.40b
show tvbase version compare --type major 12.40_ 11.99z

section "Directory walk"
show tvbase walk --depth-first --sort examples/system/tree
show tvbase walk --breadth-first --sort --report-folders examples/system/tree
show tvbase walk --no-descend --sort examples/system/tree
show tvbase walk examples/system/no-such-folder

section "Icon loading"
show tvbase icon examples/system/app.ico --size 16 --size 24 --size 48 --size 64
show tvbase icon "examples/system/app.dll; 1" --size 16 --size 32 --size 48
show tvbase icon "examples/system/app.dll;main" --size 32
show tvbase icon "examples/system/app.dll;7" --size 16
show tvbase icon "examples/system/app.ico;1" --size 16

section "HTML checking scanner"
show tvbase html --events examples/html/page.html
show tvbase html --strict examples/html/page.html
show tvbase html examples/html/unclosed.html
show tvbase html --strict examples/html/unclosed.html
show tvbase html --strict examples/html/broken-quote.html

section "Call tracing"
cfg="$build/examples/traced_app/TvLog.cfg"
logs=$(mktemp -d)
show logtune save "$cfg" --folder "$logs/" --programs traced_app --users "*" --filter0 --filter1
show logtune show "$cfg"
show traced_app
for log in "$logs"/*.log; do
  [[ -e "$log" ]] || continue
  printf '\n$ cat %q  (lines end in CR LF)\n' "$log"
  tr -d '\r' < "$log"
done
rm -f "$cfg"
printf '\nWithout TvLog.cfg (and with the shared record not set) the same program writes no log:\n'
show traced_app

printf '\nThe record shared by your processes lives while one of them holds it; with no\n'
printf 'program running, logtune is the only one, and the record goes with it:\n'
shared_logs=$(mktemp -d)
shared_fields=(--folder "$shared_logs/" --programs traced_app --users "*" --filter0)
show logtune set "${shared_fields[@]}"
show logtune show
printf '\n$ logtune set --folder %s/ --programs traced_app --users "*" --filter0 --hold &\n' \
  "$shared_logs"
logtune set "${shared_fields[@]}" --hold &
holder=$!
for _ in $(seq 50); do
  logtune show 2>/dev/null | grep -q '^shared record: set' && break
  sleep 0.1
done
sleep 0.2
show logtune show
show traced_app
show ls "$shared_logs"
show logtune clear
printf '\n$ kill -INT %s\n' "$holder"
kill -INT "$holder"
wait "$holder"
rm -rf "$shared_logs"

section "Reading a trace"
views="$build/demo"
mkdir -p "$views"
for log in "$logs"/*.log; do
  [[ -e "$log" ]] || continue
  show tvbase trace summary "$log"
  show tvbase trace timeline "$log" -o "$views/traced_app.timeline.json"
  show tvbase trace flame "$log" -o "$views/traced_app.flame.svg"
  show tvbase trace flame --widths calls "$log" -o "$views/traced_app.flame-calls.svg"
  printf '\nThe timeline opens in a trace viewer (ui.perfetto.dev, or about:tracing in a\n'
  printf 'Chromium browser); the flame graphs in any browser, numbers on hovering:\n'
  printf '  %s\n' "$PWD/$views/traced_app.timeline.json" "$PWD/$views/traced_app.flame.svg" \
    "$PWD/$views/traced_app.flame-calls.svg"
  printf "'make demo-pictures' renders the flame graphs to PNG.\n"
done
rm -rf "$logs"

section "Multipart form builder"
body=$(mktemp)
show tvbase form --field user=zoe --field "note=two words" \
  --file "doc=examples/form/note.txt;type=text/plain" --file picture=examples/form/tiny.png -o "$body"
printf '\n$ cat -v BODY   # CR shown as ^M, other control bytes as ^X\n'
cat -v "$body"
printf '\n'
rm -f "$body"

section "JSON document model"
show cat examples/json/order.json
show tvbase json examples/json/order.json
show tvbase json --escape surrogates examples/json/order.json
show tvbase json --escape non-ascii examples/json/order.json
show tvbase json examples/json/broken.json
show tvbase json examples/json/latin1.json

section "Hostile input"
scratch=$(mktemp -d)
printf '\n# a million nested arrays: the reader stops at 512 levels\n'
head -c 1000000 /dev/zero | tr '\0' '[' > "$scratch/deep.json"
show tvbase json "$scratch/deep.json"
printf '\n# a million nested elements: the open-tag list lives on the heap\n'
yes '<div>' | head -n 1000000 | tr -d '\n' > "$scratch/deep.html"
show tvbase html "$scratch/deep.html"
show tvbase html --strict "$scratch/deep.html"
printf '\n# forty variables, each twice the one before: 8 TiB if expanded\n'
{
  printf ':root{--v0:abcdefgh;'
  for i in $(seq 1 40); do printf -- '--v%d:var(--v%d)var(--v%d);' "$i" $((i - 1)) $((i - 1)); done
  printf '}p{q:var(--v40)}'
} > "$scratch/bomb.css"
show tvbase css "$scratch/bomb.css"
rm -rf "$scratch"

# The same library built for Windows, run under wine64, when the Makefile
# built it (the MinGW-w64 toolchain and wine64 are there).
windows=${2:-}
if [[ -n "$windows" && -x /usr/lib/wine/wine64 && -f "$windows/tools/tvbase/tvbase.exe" ]]; then
  # The programs find tvbase.dll in the build folder through WINEPATH.
  export WINEPREFIX="$PWD/$windows/wine" WINEDEBUG=-all WINEPATH="Z:$PWD/$windows"
  if [[ ! -f "$WINEPREFIX/system.reg" ]]; then  # see scripts/wine.sh
    /usr/lib/wine/wine64 wineboot >/dev/null 2>&1 </dev/null
    /usr/lib/wine/wineserver -w
  fi
  /usr/lib/wine/wineserver -p >/dev/null 2>&1 </dev/null &
  /usr/lib/wine/wine64 wineboot >/dev/null 2>&1 </dev/null
  wine() { /usr/lib/wine/wine64 "$@"; }
  win_tvbase() { wine "$windows/tools/tvbase/tvbase.exe" "$@"; }
  win_logtune() { wine "$windows/tools/logtune/logtune.exe" "$@"; }
  section "On Windows: tvbase.exe under wine64 (16-bit wchar_t, the Win32 calls)"
  printf '\n# URL encoding through WideCharToMultiByte, for any code page the system has\n'
  show win_tvbase urlencode --code-page 1252 "price: 5 €"
  show win_tvbase urlencode --code-page 932 "東京 tower"
  show win_tvbase urlencode --code-page 65001 "東京 tower"
  printf '\n# the walk: FindFirstFileW on "<folder>\\\\*.*", backslashes throughout\n'
  show win_tvbase walk --depth-first --sort examples/system/tree
  printf '\n# icons through LoadImageA, from a file and from a module opened as data\n'
  show win_tvbase icon examples/system/app.ico --size 16 --size 48
  show win_tvbase icon "examples/system/app.dll; 1" --size 32
  printf '\n# the call trace: TvLog.cfg beside traced_app.exe, the log made by CreateFileA\n'
  cfg="$windows/examples/traced_app/TvLog.cfg"
  logs=$(mktemp -d)
  show win_logtune save "$cfg" --folder "Z:$logs/" --programs traced_app.exe --users "*" --filter0
  show wine "$windows/examples/traced_app/traced_app.exe"
  for log in "$logs"/*.log; do
    [[ -e "$log" ]] || continue
    printf '\n$ cat LOG  (lines end in CR LF)\n'
    tr -d '\r' < "$log"
  done
  rm -f "$cfg"
  rm -rf "$logs"
  /usr/lib/wine/wineserver -k >/dev/null 2>&1 || true
fi
