#!/usr/bin/env bash
# Installs what building the library and its example needs on Debian
# bookworm; with --tests, also everything the tests and benchmarks need (the
# hosts, the reference libraries and their test programs, the Windows
# toolchain, the stand-in and its programs). Idempotent: safe to run again,
# with or without --tests, in either order.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
tests=0
case "${1:-}" in
  --tests) tests=1 ;;
  "") ;;
  *) echo "usage: $0 [--tests]" >&2; exit 2 ;;
esac

src=/etc/apt/sources.list.d/debian.sources
changed=0
# MKL lives in non-free; the reference LAPACK sources, which only the tests
# need, come from deb-src.
if [ -f "$src" ]; then
  if ! grep -q 'non-free' "$src"; then
    sed -i 's/^Components: main.*/Components: main contrib non-free non-free-firmware/' "$src"
    changed=1
  fi
  if [ "$tests" = 1 ] && ! grep -q '^Types:.*deb-src' "$src"; then
    sed -i 's/^Types: deb$/Types: deb deb-src/' "$src"
    changed=1
  fi
elif [ -f /etc/apt/sources.list ]; then
  if ! grep -q 'non-free' /etc/apt/sources.list; then
    sed -i -E 's/^(deb(-src)? .* main)$/\1 contrib non-free non-free-firmware/' /etc/apt/sources.list
    changed=1
  fi
  if [ "$tests" = 1 ] && ! grep -q '^deb-src' /etc/apt/sources.list; then
    sed -n 's/^deb /deb-src /p' /etc/apt/sources.list >> /etc/apt/sources.list
    changed=1
  fi
fi

# The library and its example.
pkgs=(build-essential g++ cmake ninja-build python3 binutils libmkl-core libmkl-gnu-thread libgomp1)
# The tests, the benchmarks and the Windows build. Real consumers of
# libblas.so.3/liblapack.so.3 for the closure test: scipy, ARPACK, SuperLU,
# CHOLMOD, UMFPACK, ScaLAPACK, R, Octave.
test_pkgs=(
  gfortran pkg-config dpkg-dev libomp5-14
  libgtest-dev libgmock-dev libbenchmark-dev
  libblas3 liblapack3 libblas-dev liblapack-dev liblapacke-dev
  libblas-test liblapack-test libopenblas0-pthread
  python3-numpy python3-scipy python3-pytest python3-hypothesis
  libarpack2 libsuperlu5 libcholmod3 libumfpack5
  valgrind gnuplot-nox ccache
  g++-mingw-w64-x86-64 gfortran-mingw-w64-x86-64 clang lld llvm wine64 wine wine64-tools libmkl-sequential
  r-base-core octave openmpi-bin libscalapack-openmpi2.2 scalapack-mpi-test
)
[ "$tests" = 1 ] && pkgs+=("${test_pkgs[@]}")
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
stamp=/var/lib/apt/lists/.vorn-updated
if [ "$changed" = 1 ] || [ ${#missing[@]} -gt 0 ] || [ ! -f "$stamp" ]; then
  apt-get update -q
  touch "$stamp"
fi
if [ ${#missing[@]} -gt 0 ]; then
  # MKL's licence prompt is a debconf note; accept it non-interactively.
  echo 'libmkl-rt libmkl-rt/use-as-default-blas-lapack boolean false' | debconf-set-selections || true
  apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

if [ "$tests" = 0 ]; then
  echo "setup: done (the tests' set: $0 --tests)"
  exit 0
fi

# Reference LAPACK 3.11 sources, read by the catalogue checks and the stand-in.
refsrc=/opt/vorn/lapack-src
if [ ! -d "$refsrc/SRC" ]; then
  mkdir -p /opt/vorn && tmp=$(mktemp -d)
  (cd "$tmp" && apt-get source -q --download-only lapack >/dev/null && \
   tar -xf lapack_*.orig.tar.* && rm -rf "$refsrc" && mv lapack-*/ "$refsrc")
  rm -rf "$tmp"
fi
# The Windows tests' stand-in for MKL and their LP64 reference test programs
# (each skipped while its installed build is up to date).
bash "$(dirname "$0")/standin/build.sh"
bash "$(dirname "$0")/standin/build_programs.sh"
echo "setup: done"
