#!/usr/bin/env bash
# Builds the library and runs every test suite: a release build, then the
# same suites under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${VORN_BUILD_DIR:-$here/build}
jobs=$(nproc)

run_suite() {
  local dir=$1; shift
  cmake -S "$here" -B "$dir" -G Ninja "$@"
  cmake --build "$dir" -j"$jobs"
  ctest --test-dir "$dir" --output-on-failure -j"$jobs"
}

run_suite "$build/release" -DCMAKE_BUILD_TYPE=Release
# MKL's own allocations are not ours to police; leak checking stays on for
# the layer through its tests' own accounting.
ASAN_OPTIONS=detect_leaks=0:detect_odr_violation=0 UBSAN_OPTIONS=print_stacktrace=1 \
  run_suite "$build/asan" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_SANITIZE=ON
