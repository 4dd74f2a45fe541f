// Entry points of the level 2 checkers: each takes exactly the argument
// list of the computational library's entry and applies its shape's rule
// (blas/level2_rules.h). Complex data arrive as pairs of their real
// component, so one parameter list per shape serves both real and complex
// precisions. The trailing character lengths are not consulted.
// Included by the generated interface functions, which inline them.
#pragma once
#include "blas/level2_rules.h"

namespace vorn::blas {

#define VORN_GEMV(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* trans, const i64* m, const i64* n, const R*, const R*, const i64* lda, \
                    const R*, const i64* incx, const R*, R*, const i64* incy, int) {                 \
    return rules::gemv(name, trans, *m, *n, *lda, *incx, *incy);                                     \
  }
VORN_GEMV(sgemv, float, "SGEMV ")
VORN_GEMV(dgemv, double, "DGEMV ")
VORN_GEMV(cgemv, float, "CGEMV ")
VORN_GEMV(zgemv, double, "ZGEMV ")

#define VORN_GBMV(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* trans, const i64* m, const i64* n, const i64* kl, const i64* ku, \
                    const R*, const R*, const i64* lda, const R*, const i64* incx, const R*, R*,     \
                    const i64* incy, int) {                                                          \
    return rules::gbmv(name, trans, *m, *n, *kl, *ku, *lda, *incx, *incy);                           \
  }
VORN_GBMV(sgbmv, float, "SGBMV ")
VORN_GBMV(dgbmv, double, "DGBMV ")
VORN_GBMV(cgbmv, float, "CGBMV ")
VORN_GBMV(zgbmv, double, "ZGBMV ")

#define VORN_SYMV(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* uplo, const i64* n, const R*, const R*, const i64* lda, const R*, \
                    const i64* incx, const R*, R*, const i64* incy, int) {                           \
    return rules::symv(name, uplo, *n, *lda, *incx, *incy);                                          \
  }
VORN_SYMV(ssymv, float, "SSYMV ")
VORN_SYMV(dsymv, double, "DSYMV ")
VORN_SYMV(chemv, float, "CHEMV ")
VORN_SYMV(zhemv, double, "ZHEMV ")

#define VORN_SBMV(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* uplo, const i64* n, const i64* k, const R*, const R*,         \
                    const i64* lda, const R*, const i64* incx, const R*, R*, const i64* incy, int) { \
    return rules::sbmv(name, uplo, *n, *k, *lda, *incx, *incy);                                      \
  }
VORN_SBMV(ssbmv, float, "SSBMV ")
VORN_SBMV(dsbmv, double, "DSBMV ")
VORN_SBMV(chbmv, float, "CHBMV ")
VORN_SBMV(zhbmv, double, "ZHBMV ")

#define VORN_SPMV(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* uplo, const i64* n, const R*, const R*, const R*, const i64* incx, \
                    const R*, R*, const i64* incy, int) {                                            \
    return rules::spmv(name, uplo, *n, *incx, *incy);                                                \
  }
VORN_SPMV(sspmv, float, "SSPMV ")
VORN_SPMV(dspmv, double, "DSPMV ")
VORN_SPMV(chpmv, float, "CHPMV ")
VORN_SPMV(zhpmv, double, "ZHPMV ")

#define VORN_TRMV(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* uplo, const char* trans, const char* diag, const i64* n, const R*, \
                    const i64* lda, R*, const i64* incx, int, int, int) {                            \
    return rules::trmv(name, uplo, trans, diag, *n, *lda, *incx);                                    \
  }
VORN_TRMV(strmv, float, "STRMV ")
VORN_TRMV(dtrmv, double, "DTRMV ")
VORN_TRMV(ctrmv, float, "CTRMV ")
VORN_TRMV(ztrmv, double, "ZTRMV ")
VORN_TRMV(strsv, float, "STRSV ")
VORN_TRMV(dtrsv, double, "DTRSV ")
VORN_TRMV(ctrsv, float, "CTRSV ")
VORN_TRMV(ztrsv, double, "ZTRSV ")

#define VORN_TBMV(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* uplo, const char* trans, const char* diag, const i64* n,      \
                    const i64* k, const R*, const i64* lda, R*, const i64* incx, int, int, int) {    \
    return rules::tbmv(name, uplo, trans, diag, *n, *k, *lda, *incx);                                \
  }
VORN_TBMV(stbmv, float, "STBMV ")
VORN_TBMV(dtbmv, double, "DTBMV ")
VORN_TBMV(ctbmv, float, "CTBMV ")
VORN_TBMV(ztbmv, double, "ZTBMV ")
VORN_TBMV(stbsv, float, "STBSV ")
VORN_TBMV(dtbsv, double, "DTBSV ")
VORN_TBMV(ctbsv, float, "CTBSV ")
VORN_TBMV(ztbsv, double, "ZTBSV ")

#define VORN_TPMV(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* uplo, const char* trans, const char* diag, const i64* n, const R*, \
                    R*, const i64* incx, int, int, int) {                                            \
    return rules::tpmv(name, uplo, trans, diag, *n, *incx);                                          \
  }
VORN_TPMV(stpmv, float, "STPMV ")
VORN_TPMV(dtpmv, double, "DTPMV ")
VORN_TPMV(ctpmv, float, "CTPMV ")
VORN_TPMV(ztpmv, double, "ZTPMV ")
VORN_TPMV(stpsv, float, "STPSV ")
VORN_TPMV(dtpsv, double, "DTPSV ")
VORN_TPMV(ctpsv, float, "CTPSV ")
VORN_TPMV(ztpsv, double, "ZTPSV ")

#define VORN_GER(lower, R, name)                                                                     \
  VORN_INLINE int check_##lower(const i64* m, const i64* n, const R*, const R*, const i64* incx, const R*, \
                    const i64* incy, R*, const i64* lda) {                                           \
    return rules::ger(name, *m, *n, *incx, *incy, *lda);                                             \
  }
VORN_GER(sger, float, "SGER  ")
VORN_GER(dger, double, "DGER  ")
VORN_GER(cgeru, float, "CGERU ")
VORN_GER(cgerc, float, "CGERC ")
VORN_GER(zgeru, double, "ZGERU ")
VORN_GER(zgerc, double, "ZGERC ")

#define VORN_SYR(lower, R, name)                                                                     \
  VORN_INLINE int check_##lower(const char* uplo, const i64* n, const R*, const R*, const i64* incx, R*,  \
                    const i64* lda, int) {                                                           \
    return rules::syr(name, uplo, *n, *incx, *lda);                                                  \
  }
VORN_SYR(ssyr, float, "SSYR  ")
VORN_SYR(dsyr, double, "DSYR  ")
VORN_SYR(cher, float, "CHER  ")
VORN_SYR(zher, double, "ZHER  ")

#define VORN_SYR2(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* uplo, const i64* n, const R*, const R*, const i64* incx, const R*, \
                    const i64* incy, R*, const i64* lda, int) {                                      \
    return rules::syr2(name, uplo, *n, *incx, *incy, *lda);                                          \
  }
VORN_SYR2(ssyr2, float, "SSYR2 ")
VORN_SYR2(dsyr2, double, "DSYR2 ")
VORN_SYR2(cher2, float, "CHER2 ")
VORN_SYR2(zher2, double, "ZHER2 ")

#define VORN_SPR(lower, R, name)                                                                     \
  VORN_INLINE int check_##lower(const char* uplo, const i64* n, const R*, const R*, const i64* incx, R*, int) { \
    return rules::spr(name, uplo, *n, *incx);                                                        \
  }
VORN_SPR(sspr, float, "SSPR  ")
VORN_SPR(dspr, double, "DSPR  ")
VORN_SPR(chpr, float, "CHPR  ")
VORN_SPR(zhpr, double, "ZHPR  ")

#define VORN_SPR2(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* uplo, const i64* n, const R*, const R*, const i64* incx, const R*, \
                    const i64* incy, R*, int) {                                                      \
    return rules::spr2(name, uplo, *n, *incx, *incy);                                                \
  }
VORN_SPR2(sspr2, float, "SSPR2 ")
VORN_SPR2(dspr2, double, "DSPR2 ")
VORN_SPR2(chpr2, float, "CHPR2 ")
VORN_SPR2(zhpr2, double, "ZHPR2 ")

#undef VORN_GBMV
#undef VORN_GEMV
#undef VORN_GER
#undef VORN_SBMV
#undef VORN_SPMV
#undef VORN_SPR
#undef VORN_SPR2
#undef VORN_SYMV
#undef VORN_SYR
#undef VORN_SYR2
#undef VORN_TBMV
#undef VORN_TPMV
#undef VORN_TRMV

}  // namespace vorn::blas
