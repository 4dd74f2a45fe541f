#!/usr/bin/env bash
# Cross-builds vorn.dll for 64-bit Windows (mingw-w64, clang and lld) into
# build/windows, without its tests. Extra arguments go to CMake's
# configure step (the tests: -DVORN_TESTS=ON -DVORN_ELF_LIBRARY=...).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${VORN_BUILD_DIR:-$here/build}/windows
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$here/cmake/mingw-w64-x86_64.cmake" -DVORN_TESTS=OFF "$@"
cmake --build "$build" -j"$(nproc)"
echo "built $build/vorn.dll"
