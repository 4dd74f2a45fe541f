#!/usr/bin/env bash
# Cross-builds vorn.dll for 64-bit Windows (mingw-w64, clang and lld) into
# build/windows, without its tests, and packs the archive
# vorn-<version>-win64.zip there. Extra arguments go to CMake's configure
# step (the tests: -DVORN_TESTS=ON -DVORN_ELF_LIBRARY=...).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${VORN_BUILD_DIR:-$here/build}/windows
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$here/cmake/mingw-w64-x86_64.cmake" -DVORN_TESTS=OFF "$@"
cmake --build "$build" -j"$(nproc)"
cmake --build "$build" --target package
echo "built $build/vorn.dll and" "$build"/vorn-*-win64.zip
