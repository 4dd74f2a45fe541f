// The least an LP64 front on MKL's 64-bit entries executes per call: widen
// the integers, make the service calls the layer is obliged to make (the
// two hooks for LAPACK, one scratch array per integer array), call the
// entry, narrow what comes back. No letter is compared and no argument
// checked, so these are a measuring stick for the layer's frames and never
// a way to call a routine with arguments that may be wrong. Built like the
// layer (position-independent, calls through the GOT, -O2).
#include "forward.h"
#include "mkl_entries.h"
#include "mkl_services.h"

#include <algorithm>
#include <cstdint>

namespace {
using i64 = std::int64_t;
}

namespace bench::forward {
namespace {

i64* scratch(i64 elements) {
  return static_cast<i64*>(mkl_serv_allocate(static_cast<std::size_t>(std::max<i64>(elements, 1)) * sizeof(i64), 128));
}

}  // namespace

void dgemv(const char* trans, const int* m, const int* n, const double* alpha, const double* a, const int* lda,
           const double* x, const int* incx, const double* beta, double* y, const int* incy) {
  const i64 m64 = *m, n64 = *n, lda64 = *lda, incx64 = *incx, incy64 = *incy;
  mkl_blas_dgemv(trans, &m64, &n64, alpha, a, &lda64, x, &incx64, beta, y, &incy64, 1);
}

void dgemm(const char* transa, const char* transb, const int* m, const int* n, const int* k, const double* alpha,
           const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
           const int* ldc) {
  const i64 m64 = *m, n64 = *n, k64 = *k, lda64 = *lda, ldb64 = *ldb, ldc64 = *ldc;
  mkl_blas_dgemm(transa, transb, &m64, &n64, &k64, alpha, a, &lda64, b, &ldb64, beta, c, &ldc64);
}

void zgemm(const char* transa, const char* transb, const int* m, const int* n, const int* k, const double* alpha,
           const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
           const int* ldc) {
  const i64 m64 = *m, n64 = *n, k64 = *k, lda64 = *lda, ldb64 = *ldb, ldc64 = *ldc;
  mkl_blas_zgemm(transa, transb, &m64, &n64, &k64, alpha, a, &lda64, b, &ldb64, beta, c, &ldc64);
}

void dtrsm(const char* side, const char* uplo, const char* transa, const char* diag, const int* m, const int* n,
           const double* alpha, const double* a, const int* lda, double* b, const int* ldb) {
  const i64 m64 = *m, n64 = *n, lda64 = *lda, ldb64 = *ldb;
  mkl_blas_dtrsm(side, uplo, transa, diag, &m64, &n64, alpha, a, &lda64, b, &ldb64);
}

void dpotrf(const char* uplo, const int* n, double* a, const int* lda, int* info) {
  const i64 n64 = *n, lda64 = *lda;
  i64 info64 = 0;
  install_default_hooks();
  mkl_lapack_dpotrf(uplo, &n64, a, &lda64, &info64, 1);
  *info = static_cast<int>(info64);
}

void dgeqrf(const int* m, const int* n, double* a, const int* lda, double* tau, double* work, const int* lwork,
            int* info) {
  const i64 m64 = *m, n64 = *n, lda64 = *lda, lwork64 = *lwork;
  i64 info64 = 0;
  install_default_hooks();
  mkl_lapack_dgeqrf(&m64, &n64, a, &lda64, tau, work, &lwork64, &info64);
  *info = static_cast<int>(info64);
}

void dgetrf(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info) {
  const i64 m64 = *m, n64 = *n, lda64 = *lda, pivots = std::min(m64, n64);
  i64 info64 = 0;
  i64* ipiv64 = scratch(pivots);
  install_default_hooks();
  mkl_lapack_dgetrf(&m64, &n64, a, &lda64, ipiv64, &info64);
  for (i64 i = 0; i < pivots; ++i) ipiv[i] = static_cast<int>(ipiv64[i]);
  mkl_serv_deallocate(ipiv64);
  *info = static_cast<int>(info64);
}

void dgetrs(const char* trans, const int* n, const int* nrhs, const double* a, const int* lda, const int* ipiv,
            double* b, const int* ldb, int* info) {
  const i64 n64 = *n, nrhs64 = *nrhs, lda64 = *lda, ldb64 = *ldb;
  i64 info64 = 0;
  i64* ipiv64 = scratch(n64);
  for (i64 i = 0; i < n64; ++i) ipiv64[i] = ipiv[i];
  install_default_hooks();
  mkl_lapack_dgetrs(trans, &n64, &nrhs64, a, &lda64, ipiv64, b, &ldb64, &info64, 1);
  mkl_serv_deallocate(ipiv64);
  *info = static_cast<int>(info64);
}

}  // namespace bench::forward
