// ?LASWP of precision D (conversion in lapack/row_interchanges.h).
#include "lapack/row_interchanges.h"
#include "library_entries.h"

extern "C" VORN_HIDDEN void vorn_if_dlaswp(const int* n, double* a, const int* lda, const int* k1, const int* k2,
                                         const int* ipiv, const int* incx) {
  vorn::lapack::laswp("DLASWP", n, lda, k1, k2, ipiv, incx,
                      [a](const vorn::i64* n64, const vorn::i64* lda64, const vorn::i64* k1_64, const vorn::i64* k2_64,
                          const vorn::i64* ipiv64, const vorn::i64* incx64) {
                        mkl_lapack_dlaswp(n64, a, lda64, k1_64, k2_64, ipiv64, incx64);
                      });
}
