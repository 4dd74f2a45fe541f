#!/usr/bin/env bash
# Runs the LP64 reference test programs (x?blat1/2/3, and with "all"
# xlintstd) under wine with libblas.dll and liblapack.dll taken from
# DLL_DIR, in RUN_DIR, and prints one line per program: exit status,
# passes, failures, time. Exits non-zero when any program fails or reports
# a failure.
#   run_programs.sh DLL_DIR RUN_DIR [PROGRAMS_DIR] [blas|all]
set -uo pipefail
dlls=$(cd "$1" && pwd)
run=$2
programs=${3:-/opt/vorn/lp64-tests}
which=${4:-all}
export WINEPREFIX=${WINEPREFIX:-/tmp/wineprefix-standin} WINEDEBUG=${WINEDEBUG:--all}
# wine searches PATH (extended by WINEPATH) after the exe's own directory;
# a WINEPATH already set (the computational library's) is searched after.
export WINEPATH="Z:${dlls//\//\\}${WINEPATH:+;$WINEPATH}"
mkdir -p "$run" && cd "$run" || exit 1
bad=0

report() {  # name status passes failures seconds
  printf '%-10s status %-3s passed %-6s failed %-4s %5ss\n' "$@"
  if [ "$2" != 0 ] || [ "$4" != 0 ] || [ "$3" = 0 ]; then bad=1; fi
}

for p in s d c z; do
  start=$SECONDS
  wine "$programs/bin/${p}blat1.exe" > "${p}blat1.out" 2>&1; status=$?
  report "${p}blat1" $status "$(grep -c -- '----- PASS -----' "${p}blat1.out")" \
    "$(grep -c -- 'FAIL' "${p}blat1.out")" $((SECONDS - start))
done
for level in 2 3; do
  for p in s d c z; do
    start=$SECONDS
    # The summary goes to unit 6, i.e. the output.
    out="${p}blat${level}.out"
    wine "$programs/bin/${p}blat${level}.exe" < "$programs/bin/${p}blat${level}.in" > "$out" 2>&1
    status=$?
    if grep -q 'END OF TESTS' "$out"; then
      passed=$(grep -c 'PASSED' "$out"); failed=$(grep -c -E 'FAIL|\*\*\*\*\*' "$out")
    else
      passed=0; failed=unfinished
    fi
    report "${p}blat${level}" $status "$passed" "$failed" $((SECONDS - start))
  done
done
[ "$which" = all ] || exit $bad
start=$SECONDS
wine "$programs/bin/xlintstd.exe" < "$programs/bin/dtest.in" > dtest.out 2>&1; status=$?
if grep -q 'End of tests' dtest.out; then
  # Passes: tests run in the paths that passed the threshold; failures: tests
  # that did not, plus error-exit paths that did not pass.
  passed=$(grep -o '( *[0-9]* tests run)' dtest.out | tr -dc '0-9\n' | awk '{s+=$1} END {print s+0}')
  failed=$(grep -oE '[0-9]+ out of +[0-9]+ tests failed' dtest.out | awk '{s+=$1} END {print s+0}')
  failed=$((failed + $(grep -c -E 'did not pass the tests of the error exits|[*][*][*] ' dtest.out)))
else
  passed=0; failed=unfinished
fi
report xlintstd $status "$passed" "$failed" $((SECONDS - start))
exit $bad
