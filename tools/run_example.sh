#!/usr/bin/env bash
# Builds the library and runs the example program, the main job.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${VORN_BUILD_DIR:-$here/build}/release
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVORN_TESTS=OFF
cmake --build "$build" -j"$(nproc)" --target vorn_example
"$build/vorn_example"
