#!/usr/bin/env bash
# Builds the library and runs every test suite: a release build, then the
# same suites under AddressSanitizer and UndefinedBehaviorSanitizer, then
# the concurrency tests under ThreadSanitizer, then the Windows DLL and its
# tests under wine.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${VORN_BUILD_DIR:-$here/build}
jobs=$(nproc)
# Everything the tests need beyond the library's own build (skipped when
# already there).
bash "$here/tools/setup.sh" --tests

run_suite() {
  local dir=$1; shift
  # Tests on explicitly: the example's configuration may have cached them off.
  cmake -S "$here" -B "$dir" -G Ninja -DVORN_TESTS=ON "$@"
  cmake --build "$dir" -j"$jobs"
  ctest --test-dir "$dir" --output-on-failure -j"$jobs" --no-tests=error
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
  ctest --test-dir "$build/tsan" --output-on-failure -R "Concurrency|FirstCalls|ReportsFromManyThreads" --no-tests=error

# The Windows DLL from the same sources, held against the release build.
VORN_BUILD_DIR=$build bash "$here/tools/build_windows.sh" -DVORN_TESTS=ON -DVORN_ELF_LIBRARY="$build/release/libvorn.so"
ctest --test-dir "$build/windows" --output-on-failure -j"$jobs" --no-tests=error
