// MKL's 64-bit-integer entries of the benchmarked routines: called
// directly by the bare forwards, and by dlsym as the direct rows.
#pragma once
#include <cstdint>

extern "C" {
void mkl_blas_daxpy(const std::int64_t*, const double*, const double*, const std::int64_t*, double*,
                    const std::int64_t*);
double mkl_blas_ddot(const std::int64_t*, const double*, const std::int64_t*, const double*, const std::int64_t*);
std::int64_t mkl_blas_idamax(const std::int64_t*, const double*, const std::int64_t*);
double mkl_blas_ddoti(const std::int64_t*, const double*, const std::int64_t*, const double*);
void mkl_blas_dgemv(const char*, const std::int64_t*, const std::int64_t*, const double*, const double*,
                    const std::int64_t*, const double*, const std::int64_t*, const double*, double*,
                    const std::int64_t*, int);
void mkl_blas_dgemm(const char*, const char*, const std::int64_t*, const std::int64_t*, const std::int64_t*,
                    const double*, const double*, const std::int64_t*, const double*, const std::int64_t*,
                    const double*, double*, const std::int64_t*);
void mkl_blas_zgemm(const char*, const char*, const std::int64_t*, const std::int64_t*, const std::int64_t*,
                    const double*, const double*, const std::int64_t*, const double*, const std::int64_t*,
                    const double*, double*, const std::int64_t*);
void mkl_blas_dtrsm(const char*, const char*, const char*, const char*, const std::int64_t*, const std::int64_t*,
                    const double*, const double*, const std::int64_t*, double*, const std::int64_t*);
void mkl_lapack_dpotrf(const char*, const std::int64_t*, double*, const std::int64_t*, std::int64_t*, int);
void mkl_lapack_dgeqrf(const std::int64_t*, const std::int64_t*, double*, const std::int64_t*, double*, double*,
                       const std::int64_t*, std::int64_t*);
void mkl_lapack_dgetrf(const std::int64_t*, const std::int64_t*, double*, const std::int64_t*, std::int64_t*,
                       std::int64_t*);
void mkl_lapack_dgetrs(const char*, const std::int64_t*, const std::int64_t*, const double*, const std::int64_t*,
                       const std::int64_t*, double*, const std::int64_t*, std::int64_t*, int);
}
