#!/usr/bin/env bash
# Builds the LP64 reference test programs for the Windows tests into
# $VORN_PROGRAMS_PREFIX (default /opt/vorn/lp64-tests), linked against
# import libraries of libblas.dll and liblapack.dll made from the names they
# use, plus reference libblas.dll/liblapack.dll to run them against; runs
# them once that way and keeps the summary. Skipped while up to date.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
lapack=${VORN_LAPACK_SRC:-/opt/vorn/lapack-src}
prefix=${VORN_PROGRAMS_PREFIX:-/opt/vorn/lp64-tests}
work=${VORN_PROGRAMS_BUILD:-/var/tmp/vorn-lp64-tests-build}
jobs=${VORN_STANDIN_JOBS:-2}
export WINEPREFIX=${WINEPREFIX:-/tmp/wineprefix-standin} WINEDEBUG=${WINEDEBUG:--all}

inputs=$( (cd "$here" && sha256sum build_programs.sh programs.py generate.py program_xerbla.c run_programs.sh
           find "$lapack/SRC" "$lapack/BLAS" "$lapack/INSTALL" "$lapack/TESTING/LIN" "$lapack/TESTING/EIG" "$lapack/TESTING/MATGEN" \
             -type f -printf '%P %s\n' | sort
           x86_64-w64-mingw32-gfortran --version | head -1) | sha256sum | cut -d' ' -f1)
if [ -f "$prefix/.stamp" ] && [ "$(cat "$prefix/.stamp")" = "$inputs" ]; then
  echo "lp64-tests: up to date in $prefix"
  exit 0
fi

start=$SECONDS
mkdir -p "$work"
python3 "$here/programs.py" objects --lapack "$lapack" --out "$work"
ninja -C "$work" -f objects.ninja -j"$jobs" > "$work/objects.log" 2>&1 || { tail -40 "$work/objects.log"; exit 1; }
python3 "$here/programs.py" link --lapack "$lapack" --out "$work"
ninja -C "$work" -f link.ninja -j"$jobs" > "$work/link.log" 2>&1 || { tail -40 "$work/link.log"; exit 1; }
built=$((SECONDS - start))

rm -rf "$prefix" && mkdir -p "$prefix/bin" "$prefix/implib" "$prefix/reference"
install -m 755 "$work"/bin/*.exe "$prefix/bin/"
install -m 644 "$lapack"/BLAS/TESTING/*.in "$lapack"/TESTING/*.in "$prefix/bin/"
install -m 644 "$work"/implib/lib*.def "$work"/implib/lib*.dll.a "$prefix/implib/"
install -m 644 "$work"/reference/lib*.dll "$prefix/reference/"
install -m 755 "$here/run_programs.sh" "$prefix/"

start=$SECONDS
status=0
"$prefix/run_programs.sh" "$prefix/reference" "$work/reference-run" "$prefix" \
  | tee "$prefix/reference-results.txt" || status=$?
echo "built in ${built} s, reference run $((SECONDS - start)) s" | tee -a "$prefix/reference-results.txt"
[ "$status" -eq 0 ] || { echo "lp64-tests: the reference run failed"; exit 1; }
echo "$inputs" > "$prefix/.stamp"
