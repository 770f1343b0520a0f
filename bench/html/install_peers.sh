#!/usr/bin/env bash
# Installs the npm package that html_bench measures against (htmlparser2)
# into build/html-peers, outside the sources. Needs node and npm.
set -euo pipefail
cd "$(dirname "$0")/../.."
command -v npm >/dev/null || { echo "install_peers.sh: npm is not installed" >&2; exit 1; }
mkdir -p build/html-peers
npm install --prefix build/html-peers --no-audit --no-fund htmlparser2
