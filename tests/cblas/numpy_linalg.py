"""numpy through the companion libraries: imports numpy with them first on
LD_LIBRARY_PATH, checks from /proc/self/maps that its libblas.so.3 and
liblapack.so.3 are the companions (Debian's numpy links both by SONAME),
then runs numpy's own linalg test suite in the same process.

  LD_LIBRARY_PATH=<dropin> python3 numpy_linalg.py <dropin>
"""
import os
import sys


def mapped(prefix: str) -> set[str]:
    with open("/proc/self/maps") as maps:
        paths = {line.split()[-1] for line in maps if "/" in line}
    return {p for p in paths if os.path.basename(p).startswith(prefix)}


def main() -> int:
    dropin = os.path.realpath(sys.argv[1])
    import numpy  # noqa: F401  (fails with an undefined cblas_* name without CBLAS)
    import numpy.linalg  # noqa: F401
    blas, lapack = mapped("libblas.so"), mapped("liblapack.so")
    ours = {os.path.join(dropin, "libblas.so.3"), os.path.join(dropin, "liblapack.so.3")}
    # The reference liblapack.so.3 may be there too, opened privately by the
    # companion for the routines outside the set; no other BLAS may be.
    if not ours <= (blas | lapack) or len(blas) != 1 or mapped("libopenblas"):
        print(f"not the companions: {sorted(blas | lapack | mapped('libopenblas'))}")
        return 1
    print(f"numpy {numpy.__version__} through {sorted(ours)}")
    import pytest
    return pytest.main(["-q", "-p", "no:cacheprovider", "-o", "addopts=", "--pyargs", "numpy.linalg"])


if __name__ == "__main__":
    sys.exit(main())
