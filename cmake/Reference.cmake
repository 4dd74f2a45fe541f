# The reference BLAS and LAPACK (Debian's libblas3, liblapack3): the tests'
# and benchmarks' oracle, and the names the companion liblapack.so.3 takes.
# The netlib test programs (libblas-test, liblapack-test) sit beside them.
set(VORN_REFERENCE_BLAS /usr/lib/x86_64-linux-gnu/blas/libblas.so.3 CACHE FILEPATH
    "reference BLAS library")
set(VORN_REFERENCE_LAPACK_NAMES /usr/lib/x86_64-linux-gnu/lapack/liblapack.so.3 CACHE FILEPATH
    "reference LAPACK library whose names liblapack exports")
get_filename_component(VORN_REFERENCE_BLAS_DIR ${VORN_REFERENCE_BLAS} DIRECTORY)
get_filename_component(VORN_REFERENCE_LAPACK_DIR ${VORN_REFERENCE_LAPACK_NAMES} DIRECTORY)
