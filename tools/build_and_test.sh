#!/usr/bin/env bash
# Builds the library and runs every test suite: a release build, then the
# same suites under AddressSanitizer and UndefinedBehaviorSanitizer, then
# the concurrency tests under ThreadSanitizer.
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
# The concurrency tests once more under ThreadSanitizer (only their targets
# are built). See the suppressions file for what is left out and why.
cmake -S "$here" -B "$build/tsan" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_TSAN=ON
cmake --build "$build/tsan" -j"$jobs" --target vorn_concurrency_tests vorn_dropin_tests
TSAN_OPTIONS="suppressions=$here/tests/concurrency/tsan.supp halt_on_error=1" \
  ctest --test-dir "$build/tsan" --output-on-failure -R "Concurrency|FirstCalls" --no-tests=error
