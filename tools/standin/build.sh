#!/usr/bin/env bash
# Builds the test stand-in for the computational library, mkl_intel_thread.dll
# (reference BLAS/LAPACK 3.11 with 64-bit integers, counting entry stubs,
# the mkl_serv_ services and a recording interface), checks it under wine and
# installs it into $VORN_STANDIN_PREFIX (default /opt/vorn/standin).
# Skips everything when the installed build came from the same inputs.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
repo=$(cd "$here/../.." && pwd)
lapack=${VORN_LAPACK_SRC:-/opt/vorn/lapack-src}
prefix=${VORN_STANDIN_PREFIX:-/opt/vorn/standin}
work=${VORN_STANDIN_BUILD:-/var/tmp/vorn-standin-build}
export WINEPREFIX=${WINEPREFIX:-/tmp/wineprefix-standin} WINEDEBUG=${WINEDEBUG:--all}
jobs=${VORN_STANDIN_JOBS:-2}

# Everything the result depends on: these sources, the catalogue and the
# entries the layer calls (not the rest of its generator, which changes far
# more often), the reference sources and the compilers.
entries=$(python3 - "$repo" <<'PY'
import sys
sys.path.insert(0, sys.argv[1] + "/tools/codegen")
import catalogue, interfaces
routines = catalogue.load(sys.argv[1] + "/catalogue/routines.cat")
print("\n".join(sorted(interfaces.library_entry(r) for r in routines)))
PY
)
inputs=$( (cd "$here" && sha256sum build.sh generate.py ./*.c ./*.h README.md
           cd "$repo" && sha256sum catalogue/routines.cat
           echo "$entries"
           find "$lapack/SRC" "$lapack/BLAS/SRC" "$lapack/INSTALL" -type f -printf '%P %s\n' | sort
           x86_64-w64-mingw32-gfortran --version | head -1
           x86_64-w64-mingw32-gcc --version | head -1) | sha256sum | cut -d' ' -f1)
if [ -f "$prefix/.stamp" ] && [ "$(cat "$prefix/.stamp")" = "$inputs" ]; then
  echo "standin: up to date in $prefix"
  exit 0
fi

start=$SECONDS
python3 "$here/generate.py" --lapack "$lapack" --out "$work"
ninja -C "$work" -j"$jobs" > "$work/ninja.log" 2>&1 || { tail -40 "$work/ninja.log"; exit 1; }
x86_64-w64-mingw32-gcc -O2 -std=gnu11 -Wall -Wextra -I"$here" "$here/standin_check.c" \
  -L"$work" -lmkl_intel_thread_standin -o "$work/standin_check.exe"
# The exe finds the DLL in its own directory.
(cd "$work" && wine standin_check.exe)

mkdir -p "$prefix"
rm -f "$prefix/.stamp"
install -m 644 "$work/mkl_intel_thread.dll" "$work/libmkl_intel_thread_standin.a" "$work/exports.def" \
  "$here/standin.h" "$here/README.md" "$prefix/"
echo "$inputs" > "$prefix/.stamp"
echo "standin: built and checked in $((SECONDS - start)) s, installed in $prefix"
