// The argument rules of the level 2 BLAS, one per operation shape; the
// symmetric and Hermitian, multiply and solve variants share theirs.
// Positions are those of the routine's own argument list.
#pragma once
#include "blas/check_support.h"

namespace vorn::blas::rules {

VORN_INLINE int gemv(const char* name, const char* trans, Cell m, Cell n, Cell lda, Cell incx, Cell incy) {
  return Checks(name).option(trans, kTrans, 1).not_negative(m, 2).not_negative(n, 3)
      .covers(lda, m, 6).not_zero(incx, 8).not_zero(incy, 11).verdict();
}

VORN_INLINE int gbmv(const char* name, const char* trans, Cell m, Cell n, Cell kl, Cell ku, Cell lda,
                     Cell incx, Cell incy) {
  return Checks(name).option(trans, kTrans, 1).not_negative(m, 2).not_negative(n, 3)
      .not_negative(kl, 4).not_negative(ku, 5).exceeds(lda, kl + ku, 8)
      .not_zero(incx, 10).not_zero(incy, 13).verdict();
}

// ?SYMV, ?HEMV
VORN_INLINE int symv(const char* name, const char* uplo, Cell n, Cell lda, Cell incx, Cell incy) {
  return Checks(name).option(uplo, kUplo, 1).not_negative(n, 2).covers(lda, n, 5)
      .not_zero(incx, 7).not_zero(incy, 10).verdict();
}

// ?SBMV, ?HBMV
VORN_INLINE int sbmv(const char* name, const char* uplo, Cell n, Cell k, Cell lda, Cell incx, Cell incy) {
  return Checks(name).option(uplo, kUplo, 1).not_negative(n, 2).not_negative(k, 3)
      .exceeds(lda, k, 6).not_zero(incx, 8).not_zero(incy, 11).verdict();
}

// ?SPMV, ?HPMV
VORN_INLINE int spmv(const char* name, const char* uplo, Cell n, Cell incx, Cell incy) {
  return Checks(name).option(uplo, kUplo, 1).not_negative(n, 2).not_zero(incx, 6)
      .not_zero(incy, 9).verdict();
}

// ?TRMV, ?TRSV
VORN_INLINE int trmv(const char* name, const char* uplo, const char* trans, const char* diag, Cell n,
                     Cell lda, Cell incx) {
  return Checks(name).option(uplo, kUplo, 1).option(trans, kTrans, 2).option(diag, kDiag, 3)
      .not_negative(n, 4).covers(lda, n, 6).not_zero(incx, 8).verdict();
}

// ?TBMV, ?TBSV
VORN_INLINE int tbmv(const char* name, const char* uplo, const char* trans, const char* diag, Cell n,
                     Cell k, Cell lda, Cell incx) {
  return Checks(name).option(uplo, kUplo, 1).option(trans, kTrans, 2).option(diag, kDiag, 3)
      .not_negative(n, 4).not_negative(k, 5).exceeds(lda, k, 7).not_zero(incx, 9).verdict();
}

// ?TPMV, ?TPSV
VORN_INLINE int tpmv(const char* name, const char* uplo, const char* trans, const char* diag, Cell n,
                     Cell incx) {
  return Checks(name).option(uplo, kUplo, 1).option(trans, kTrans, 2).option(diag, kDiag, 3)
      .not_negative(n, 4).not_zero(incx, 7).verdict();
}

// ?GER, ?GERU, ?GERC
VORN_INLINE int ger(const char* name, Cell m, Cell n, Cell incx, Cell incy, Cell lda) {
  return Checks(name).not_negative(m, 1).not_negative(n, 2).not_zero(incx, 5).not_zero(incy, 7)
      .covers(lda, m, 9).verdict();
}

// ?SYR, ?HER
VORN_INLINE int syr(const char* name, const char* uplo, Cell n, Cell incx, Cell lda) {
  return Checks(name).option(uplo, kUplo, 1).not_negative(n, 2).not_zero(incx, 5)
      .covers(lda, n, 7).verdict();
}

// ?SYR2, ?HER2
VORN_INLINE int syr2(const char* name, const char* uplo, Cell n, Cell incx, Cell incy, Cell lda) {
  return Checks(name).option(uplo, kUplo, 1).not_negative(n, 2).not_zero(incx, 5)
      .not_zero(incy, 7).covers(lda, n, 9).verdict();
}

// ?SPR, ?HPR
VORN_INLINE int spr(const char* name, const char* uplo, Cell n, Cell incx) {
  return Checks(name).option(uplo, kUplo, 1).not_negative(n, 2).not_zero(incx, 5).verdict();
}

// ?SPR2, ?HPR2
VORN_INLINE int spr2(const char* name, const char* uplo, Cell n, Cell incx, Cell incy) {
  return Checks(name).option(uplo, kUplo, 1).not_negative(n, 2).not_zero(incx, 5)
      .not_zero(incy, 7).verdict();
}

}  // namespace vorn::blas::rules
