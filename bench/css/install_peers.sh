#!/usr/bin/env bash
# Installs the npm packages that css_bench measures against into
# build/css-peers, outside the sources. Needs node and npm.
set -euo pipefail
cd "$(dirname "$0")/../.."
command -v npm >/dev/null || { echo "install_peers.sh: npm is not installed" >&2; exit 1; }
mkdir -p build/css-peers
npm install --prefix build/css-peers --no-audit --no-fund \
  lightningcss postcss postcss-custom-properties postcss-calc
