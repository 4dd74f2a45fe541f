// Divide-and-conquer routines of precision Z (sizes in lapack/divide_conquer.h).
#include "lapack/divide_conquer.h"
#include "library_entries.h"

using vorn::i64;
using vorn::widen;

extern "C" VORN_HIDDEN void vorn_if_zgelsd(const int* m, const int* n, const int* nrhs, double* a, const int* lda, double* b,
                                         const int* ldb, double* s, const double* rcond, int* rank, double* work,
                                         const int* lwork, double* rwork, int* iwork, int* info) {
  const i64 m64 = widen(m), n64 = widen(n), nrhs64 = widen(nrhs), lda64 = widen(lda), ldb64 = widen(ldb);
  const i64 lwork64 = widen(lwork);
  vorn::lapack::gelsd("ZGELSD", "ZGELSD", m64 < n64 ? m64 : n64, rank, iwork, info,
                      [&](i64* rank64, i64* iwork64, i64* info64) {
                        mkl_lapack_zgelsd(&m64, &n64, &nrhs64, a, &lda64, b, &ldb64, s, rcond, rank64, work, &lwork64,
                                          rwork, iwork64, info64);
                      });
}

extern "C" VORN_HIDDEN void vorn_if_zlalsd(const char* uplo, const int* smlsiz, const int* n, const int* nrhs, double* d,
                                         double* e, double* b, const int* ldb, const double* rcond, int* rank, double* work,
                                         double* rwork, int* /*iwork*/, int* info) {
  const i64 smlsiz64 = widen(smlsiz), n64 = widen(n), nrhs64 = widen(nrhs), ldb64 = widen(ldb);
  vorn::lapack::lalsd("ZLALSD", "ZLALSD", n64, rank, info, [&](i64* rank64, i64* iwork64, i64* info64) {
    mkl_lapack_zlalsd(uplo, &smlsiz64, &n64, &nrhs64, d, e, b, &ldb64, rcond, rank64, work, rwork, iwork64, info64,
                      vorn::kCharLength);
  });
}
