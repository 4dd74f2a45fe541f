// The argument rules of the level 3 BLAS, one per operation shape. The
// accepted transposition letters differ between precisions and are passed
// in. The rows of A (and B) follow from the raw option letters before any
// check runs, as in the reference routines; the option checks reuse those
// comparisons, which are with each set's first letter.
#pragma once
#include "blas/check_support.h"

namespace vorn::blas::rules {

// The option checks below skip the comparison with each set's first letter,
// which sized the matrix: 'N' for the transposition sets, 'L' for SIDE.
static_assert(kTrans[0] == 'N' && kNoConjugate[0] == 'N' && kConjugateOnly[0] == 'N' && kSide[0] == 'L');

// ?GEMM, ?GEMM3M, SCGEMM, DZGEMM
VORN_INLINE int gemm(const char* name, std::string_view transa_letters, const char* transa,
                     const char* transb, Cell m, Cell n, Cell k, Cell lda, Cell ldb, Cell ldc) {
  const bool nota = is(transa, "N"), notb = is(transb, "N");
  const i64 nrowa = nota ? m : k;
  const i64 nrowb = notb ? k : n;
  return Checks(name).option(transa, nota, transa_letters, 1).option(transb, notb, kTrans, 2)
      .not_negative(m, 3).not_negative(n, 4).not_negative(k, 5)
      .covers(lda, nrowa, 8).covers(ldb, nrowb, 10).covers(ldc, m, 13).verdict();
}

// ?SYMM, ?HEMM
VORN_INLINE int symm(const char* name, const char* side, const char* uplo, Cell m, Cell n, Cell lda,
                     Cell ldb, Cell ldc) {
  const bool left = is(side, "L");
  const i64 nrowa = left ? m : n;
  return Checks(name).option(side, left, kSide, 1).option(uplo, kUplo, 2)
      .not_negative(m, 3).not_negative(n, 4)
      .covers(lda, nrowa, 7).covers(ldb, m, 9).covers(ldc, m, 12).verdict();
}

// ?SYRK, ?HERK
VORN_INLINE int syrk(const char* name, std::string_view trans_letters, const char* uplo,
                     const char* trans, Cell n, Cell k, Cell lda, Cell ldc) {
  const bool notrans = is(trans, "N");
  const i64 nrowa = notrans ? n : k;
  return Checks(name).option(uplo, kUplo, 1).option(trans, notrans, trans_letters, 2)
      .not_negative(n, 3).not_negative(k, 4).covers(lda, nrowa, 7).covers(ldc, n, 10).verdict();
}

// ?SYR2K, ?HER2K
VORN_INLINE int syr2k(const char* name, std::string_view trans_letters, const char* uplo,
                      const char* trans, Cell n, Cell k, Cell lda, Cell ldb, Cell ldc) {
  const bool notrans = is(trans, "N");
  const i64 nrowa = notrans ? n : k;
  return Checks(name).option(uplo, kUplo, 1).option(trans, notrans, trans_letters, 2)
      .not_negative(n, 3).not_negative(k, 4)
      .covers(lda, nrowa, 7).covers(ldb, nrowa, 9).covers(ldc, n, 12).verdict();
}

// ?TRMM, ?TRSM
VORN_INLINE int trmm(const char* name, const char* side, const char* uplo, const char* transa,
                     const char* diag, Cell m, Cell n, Cell lda, Cell ldb) {
  const bool left = is(side, "L");
  const i64 nrowa = left ? m : n;
  return Checks(name).option(side, left, kSide, 1).option(uplo, kUplo, 2).option(transa, kTrans, 3)
      .option(diag, kDiag, 4).not_negative(m, 5).not_negative(n, 6)
      .covers(lda, nrowa, 9).covers(ldb, m, 11).verdict();
}

}  // namespace vorn::blas::rules
