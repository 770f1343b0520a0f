#!/usr/bin/env bash
# Installs the npm packages that css_bench and html_bench measure against into
# build/bench-peers, outside the sources, at the versions the benchmark
# figures were taken with. Needs node and npm; without them the peer rows
# are skipped with a message.
set -euo pipefail
cd "$(dirname "$0")/../.."
command -v npm >/dev/null || { echo "install.sh: npm is not installed" >&2; exit 1; }
mkdir -p build/bench-peers
npm install --prefix build/bench-peers --no-audit --no-fund --no-save \
  lightningcss@1.33.0 postcss@8.5.33 postcss-custom-properties@15.0.4 postcss-calc@10.1.1 \
  htmlparser2@12.0.0
