// Bare LP64 forwards to MKL's 64-bit entries, the yardstick for the
// layer's frames (bench/forward.cpp).
#pragma once

namespace bench::forward {

void dgemv(const char* trans, const int* m, const int* n, const double* alpha, const double* a, const int* lda,
           const double* x, const int* incx, const double* beta, double* y, const int* incy);
void dgemm(const char* transa, const char* transb, const int* m, const int* n, const int* k, const double* alpha,
           const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
           const int* ldc);
void zgemm(const char* transa, const char* transb, const int* m, const int* n, const int* k, const double* alpha,
           const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
           const int* ldc);
void dtrsm(const char* side, const char* uplo, const char* transa, const char* diag, const int* m, const int* n,
           const double* alpha, const double* a, const int* lda, double* b, const int* ldb);
void dpotrf(const char* uplo, const int* n, double* a, const int* lda, int* info);
void dgeqrf(const int* m, const int* n, double* a, const int* lda, double* tau, double* work, const int* lwork,
            int* info);
void dgetrf(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info);
void dgetrs(const char* trans, const int* n, const int* nrhs, const double* a, const int* lda, const int* ipiv,
            double* b, const int* ldb, int* info);

}  // namespace bench::forward
