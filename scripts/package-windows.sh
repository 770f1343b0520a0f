#!/usr/bin/env bash
# Makes build/packages/tvbase-<version>-windows-<target>.zip for x64 and x86:
# bin/ (tvbase.dll, tvbase.exe, logtune.exe), lib/ (libtvbase.dll.a,
# tvbase.def, the CMake package and tvbase.pc) and include/. Then builds
# examples/consumer against each package with find_package(TvBase), as a
# MinGW user would, and runs the 64-bit one under wine64.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-$(nproc)}
out=$PWD/build/packages
mkdir -p "$out"
version=$(sed -n 's/^project(TvBase VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
for target in x64 x86; do
  build=build/windows-$target
  name=tvbase-$version-windows-$target
  echo "== $name"
  cmake --preset "windows-$target" "$@" >/dev/null
  scripts/wine.sh "$build" cmake --build --preset "windows-$target" -j "$jobs" \
    --target tvbase tvbase_cli logtune >/dev/null
  stage=$(mktemp -d)
  cmake --install "$build" --prefix "$stage/$name" >/dev/null
  # Each installed header is used by the consumer below.
  for header in $(cd "$stage/$name/include" && find tvbase -name '*.h' | sort); do
    grep -q "^#include <$header>" examples/consumer/main.cc ||
      { echo "examples/consumer/main.cc does not include <$header>" >&2; exit 1; }
  done
  rm -f "$out/$name.zip"
  (cd "$stage" && zip -qr "$out/$name.zip" "$name")
  unzip -l "$out/$name.zip" | awk 'NR > 3 && $4 != "" { print "  " $4 }' | grep -v '/$' | grep -v include/ || true
  echo "  ... and $(unzip -l "$out/$name.zip" | grep -c 'include/tvbase/.*\.h$') headers"

  echo "== examples/consumer against $name.zip"
  unpacked=$(mktemp -d)
  unzip -q "$out/$name.zip" -d "$unpacked"
  cmake -S examples/consumer -B "$unpacked/consumer" \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/windows-$target.cmake" \
    -DTvBase_DIR="$unpacked/$name/lib/cmake/TvBase" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=ON >/dev/null
  cmake --build "$unpacked/consumer" -j "$jobs" >/dev/null
  cp "$unpacked/$name/bin/tvbase.dll" "$unpacked/consumer/"
  if [[ $target == x64 ]]; then
    scripts/wine.sh "$build" /usr/lib/wine/wine64 "$unpacked/consumer/consumer.exe"
    echo "consumer under wine64: ok"
  else
    echo "consumer.exe built and linked (no 32-bit Wine to run it)"
  fi
  rm -rf "$stage" "$unpacked"
done
ls -l "$out"
