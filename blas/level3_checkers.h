// Entry points of the level 3 checkers: each takes exactly the argument
// list of the computational library's entry (no character lengths at this
// level) and applies its shape's rule (blas/level3_rules.h) with the
// letters its precision accepts.
// Included by the generated interface functions, which inline them.
#pragma once
#include "blas/level3_rules.h"

namespace vorn::blas {

#define VORN_GEMM(lower, R, name, transa_letters)                                                    \
  VORN_INLINE int check_##lower(const char* transa, const char* transb, const i64* m, const i64* n,       \
                    const i64* k, const R*, const R*, const i64* lda, const R*, const i64* ldb,      \
                    const R*, R*, const i64* ldc) {                                                  \
    return rules::gemm(name, transa_letters, transa, transb, *m, *n, *k, *lda, *ldb, *ldc);          \
  }
VORN_GEMM(sgemm, float, "SGEMM ", kTrans)
VORN_GEMM(dgemm, double, "DGEMM ", kTrans)
VORN_GEMM(cgemm, float, "CGEMM ", kTrans)
VORN_GEMM(zgemm, double, "ZGEMM ", kTrans)
VORN_GEMM(cgemm3m, float, "CGEMM3M ", kTrans)
VORN_GEMM(zgemm3m, double, "ZGEMM3M ", kTrans)
// A real A has no conjugate.
VORN_GEMM(scgemm, float, "SCGEMM ", kNoConjugate)
VORN_GEMM(dzgemm, double, "DZGEMM ", kNoConjugate)

#define VORN_SYMM(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* side, const char* uplo, const i64* m, const i64* n, const R*, \
                    const R*, const i64* lda, const R*, const i64* ldb, const R*, R*,                \
                    const i64* ldc) {                                                                \
    return rules::symm(name, side, uplo, *m, *n, *lda, *ldb, *ldc);                                  \
  }
VORN_SYMM(ssymm, float, "SSYMM ")
VORN_SYMM(dsymm, double, "DSYMM ")
VORN_SYMM(csymm, float, "CSYMM ")
VORN_SYMM(zsymm, double, "ZSYMM ")
VORN_SYMM(chemm, float, "CHEMM ")
VORN_SYMM(zhemm, double, "ZHEMM ")

#define VORN_SYRK(lower, R, name, trans_letters)                                                     \
  VORN_INLINE int check_##lower(const char* uplo, const char* trans, const i64* n, const i64* k, const R*, \
                    const R*, const i64* lda, const R*, R*, const i64* ldc) {                        \
    return rules::syrk(name, trans_letters, uplo, trans, *n, *k, *lda, *ldc);                        \
  }
VORN_SYRK(ssyrk, float, "SSYRK ", kTrans)
VORN_SYRK(dsyrk, double, "DSYRK ", kTrans)
VORN_SYRK(csyrk, float, "CSYRK ", kNoConjugate)
VORN_SYRK(zsyrk, double, "ZSYRK ", kNoConjugate)
VORN_SYRK(cherk, float, "CHERK ", kConjugateOnly)
VORN_SYRK(zherk, double, "ZHERK ", kConjugateOnly)

#define VORN_SYR2K(lower, R, name, trans_letters)                                                    \
  VORN_INLINE int check_##lower(const char* uplo, const char* trans, const i64* n, const i64* k, const R*, \
                    const R*, const i64* lda, const R*, const i64* ldb, const R*, R*,                \
                    const i64* ldc) {                                                                \
    return rules::syr2k(name, trans_letters, uplo, trans, *n, *k, *lda, *ldb, *ldc);                 \
  }
VORN_SYR2K(ssyr2k, float, "SSYR2K", kTrans)
VORN_SYR2K(dsyr2k, double, "DSYR2K", kTrans)
VORN_SYR2K(csyr2k, float, "CSYR2K", kNoConjugate)
VORN_SYR2K(zsyr2k, double, "ZSYR2K", kNoConjugate)
VORN_SYR2K(cher2k, float, "CHER2K", kConjugateOnly)
VORN_SYR2K(zher2k, double, "ZHER2K", kConjugateOnly)

#define VORN_TRMM(lower, R, name)                                                                    \
  VORN_INLINE int check_##lower(const char* side, const char* uplo, const char* transa, const char* diag, \
                    const i64* m, const i64* n, const R*, const R*, const i64* lda, R*,              \
                    const i64* ldb) {                                                                \
    return rules::trmm(name, side, uplo, transa, diag, *m, *n, *lda, *ldb);                          \
  }
VORN_TRMM(strmm, float, "STRMM ")
VORN_TRMM(dtrmm, double, "DTRMM ")
VORN_TRMM(ctrmm, float, "CTRMM ")
VORN_TRMM(ztrmm, double, "ZTRMM ")
VORN_TRMM(strsm, float, "STRSM ")
VORN_TRMM(dtrsm, double, "DTRSM ")
VORN_TRMM(ctrsm, float, "CTRSM ")
VORN_TRMM(ztrsm, double, "ZTRSM ")

#undef VORN_GEMM
#undef VORN_SYMM
#undef VORN_SYR2K
#undef VORN_SYRK
#undef VORN_TRMM

}  // namespace vorn::blas
