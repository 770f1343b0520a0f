#!/usr/bin/env bash
# Renders the flame graphs of examples/traced_app to PNG with a headless
# Chromium, so that they can be looked at without a browser.
# Argument: the build folder. Writes <build>/demo/traced_app.flame*.png.
set -euo pipefail
build=${1:-build/default}
cd "$(dirname "$0")/.."
command -v chromium >/dev/null || { echo "demo-pictures: chromium is missing (scripts/setup.sh pictures)" >&2; exit 1; }
views="$build/demo"
mkdir -p "$views"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The program traces itself when a TvLog.cfg beside it says so.
app="$scratch/traced_app"
cp "$build/examples/traced_app/traced_app" "$app"
"$build/tools/logtune/logtune" save "$scratch/TvLog.cfg" --folder "$scratch/" --programs traced_app \
  --users "*" --filter0 --filter1 >/dev/null
"$app" >/dev/null
logs=("$scratch"/traced_app.*.log)
[[ -e "${logs[0]}" ]] || { echo "demo-pictures: traced_app wrote no log" >&2; exit 1; }

for widths in auto calls; do
  name=traced_app.flame$([[ $widths == calls ]] && echo -calls || true)
  "$build/tools/tvbase/tvbase" trace flame --widths "$widths" "${logs[@]}" -o "$views/$name.svg" >/dev/null
  # The picture's own size, from the <svg> element.
  width=$(sed -n 's/^<svg[^>]* width="\([0-9.]*\)".*/\1/p' "$views/$name.svg" | head -n 1)
  height=$(sed -n 's/^<svg[^>]* height="\([0-9.]*\)".*/\1/p' "$views/$name.svg" | head -n 1)
  profile=$(mktemp -d "$scratch/profile.XXXXXX")
  # The window is made taller than the picture: headless Chromium's page is
  # shorter than its window, and would cut the picture's foot off.
  chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync \
    --hide-scrollbars --user-data-dir="$profile" --screenshot="$PWD/$views/$name.png" \
    --window-size="${width%.*},$((${height%.*} + 120))" "file://$PWD/$views/$name.svg" \
    >/dev/null 2>&1
  [[ -s "$views/$name.png" ]] || { echo "demo-pictures: chromium made no picture of $name.svg" >&2; exit 1; }
  echo "wrote $PWD/$views/$name.png"
done
