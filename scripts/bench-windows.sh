#!/usr/bin/env bash
# The benchmarks of bench/portable for the Linux build (build/default) and
# the Windows x64 build under wine64 (build/windows-x64), in one run, side by
# side. Wine's figures are Wine's: the Win32 calls it translates cost what
# Wine makes them cost, not what Windows would.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-$(nproc)}
data=${TVBASE_BENCH_DATA:-$PWD/../shared/bench-data}
[[ -d $data ]] || data=/work/shared/bench-data
corpus=$PWD/build/default/bench-portable-corpus-1M.css
echo "== build: Linux (build/default) and Windows x64 (build/windows-x64)"
cmake --preset default "$@" >/dev/null
cmake --build --preset default -j "$jobs" --target portable_bench >/dev/null
cmake --preset windows-x64 "$@" >/dev/null
scripts/wine.sh build/windows-x64 cmake --build --preset windows-x64 -j "$jobs" \
  --target portable_bench >/dev/null
[[ -f $corpus ]] || python3 "$data/make_css_corpus.py" --size 1M -o "$corpus"
linux=$(mktemp)
windows=$(mktemp)
trap 'rm -f "$linux" "$windows"' EXIT
echo "== Linux"
build/default/bench/portable/portable_bench "$data" "$corpus" | tee "$linux"
echo "== Windows x64 under wine64"
scripts/wine.sh build/windows-x64 /usr/lib/wine/wine64 \
  build/windows-x64/bench/portable/portable_bench.exe "$data" "$corpus" | tr -d '\r' | tee "$windows"
echo "== side by side (mean per call; wchar_t: 32-bit on Linux, 16-bit on Windows)"
printf '%-52s %12s %22s\n' benchmark Linux "Windows (wine64)"
join -t $'\t' <(awk -F'\t' '{ print NR "\t" $0 }' "$linux") \
  <(awk -F'\t' '{ print NR "\t" $0 }' "$windows") |
  awk -F'\t' '{ printf "%-52s %9.3f %-2s %19.3f %-2s\n", $2, $3, $4, $6, $7 }'
