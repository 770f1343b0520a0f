#!/usr/bin/env bash
# Installs the Debian packages that the build needs, skipping those already
# present. Runs as root, or through sudo when that is available.
#
#   scripts/setup.sh            packages for building and testing
#   scripts/setup.sh bench      ... plus the peers that bench/ measures against
#   scripts/setup.sh fuzz       ... plus clang and libFuzzer
#   scripts/setup.sh format     ... plus clang-format
#   scripts/setup.sh pictures   ... plus chromium, which renders the demo's pictures
#   scripts/setup.sh windows    ... plus the MinGW-w64 cross compilers, wine64,
#                               GoogleTest's sources and zip
set -euo pipefail

packages=(cmake make g++ pkg-config libfmt-dev libre2-dev libgtest-dev libgmock-dev
          googletest libbenchmark-dev libxml2-utils)
for extra in "$@"; do
  case "$extra" in
    bench) packages+=(libcurl4-openssl-dev libglib2.0-dev libspdlog-dev nlohmann-json3-dev
                      rapidjson-dev libgumbo-dev python3 findutils)
           # node and npm may come from elsewhere than Debian; only add them when absent.
           command -v npm >/dev/null || packages+=(nodejs npm) ;;
    fuzz) packages+=(clang-14 libclang-rt-14-dev llvm-14) ;;
    valgrind) packages+=(valgrind) ;;
    format) packages+=(clang-format) ;;
    pictures) packages+=(chromium) ;;
    windows) packages+=(g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix wine64 googletest
                        zip unzip python3) ;;
    *) echo "setup.sh: unknown extra '$extra' (bench, fuzz, valgrind, format, pictures," \
            "windows)" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

sudo=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "setup.sh: need root to install: ${missing[*]}" >&2; exit 1; }
  sudo=(sudo)
fi
echo "setup.sh: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
