// Argument checks the layer makes itself, before the computational library
// is called, for the routines that have one. Each examined argument comes
// with its 1-based position in the routine's argument list. A check that
// fails sets INFO to minus that position, reports it under the routine's
// name and returns non-zero; when all pass INFO is 0 and the result is 0.
#pragma once
#include <string_view>

#include "frame/lp64.h"

namespace vorn::checks {

struct Int {
  i64 value;
  i64 position;
};
struct Char {
  const char* value;
  i64 position;
};

int geqrf(std::string_view name, i64* info, Int m, Int n, Int lda, Int lwork);
int gelqf(std::string_view name, i64* info, Int m, Int n, Int lda, Int lwork);
int gebrd(std::string_view name, i64* info, Int m, Int n, Int lda, Int lwork);
int gehrd(std::string_view name, i64* info, Int n, Int ilo, Int ihi, Int lda, Int lwork);
int getrf(std::string_view name, i64* info, Int m, Int n, Int lda);
int potrf(std::string_view name, i64* info, Char uplo, Int n, Int lda);
int orghr(std::string_view name, i64* info, Int n, Int ilo, Int ihi, Int lda, Int lwork);
int orgqr(std::string_view name, i64* info, Int m, Int n, Int k, Int lda, Int lwork);
int ormqr_real(std::string_view name, i64* info, Char side, Char trans, Int m, Int n, Int k, Int lda,
               Int ldc, Int lwork);
int ormqr_complex(std::string_view name, i64* info, Char side, Char trans, Int m, Int n, Int k,
                  Int lda, Int ldc, Int lwork);
int geev(std::string_view name, i64* info, Char jobvl, Char jobvr, Int n, Int lda, Int ldvl,
         Int ldvr);
int gesvd(std::string_view name, i64* info, Char jobu, Char jobvt, Int m, Int n, Int lda, Int ldu,
          Int ldvt);
int sytrd(std::string_view name, i64* info, Char uplo, Int n, Int lda, Int lwork);
int sygst(std::string_view name, i64* info, Int itype, Char uplo, Int n, Int lda, Int ldb);
int syevd(std::string_view name, i64* info, Char jobz, Char uplo, Int n, Int lda, Int lwork,
          Int liwork);
int heevd(std::string_view name, i64* info, Char jobz, Char uplo, Int n, Int lda, Int lwork,
          Int lrwork, Int liwork);
int hegvd_without_workspace(std::string_view name, i64* info, Int itype, Char jobz, Char uplo,
                            Int n, Int lda, Int ldb);
int hegvd(std::string_view name, i64* info, Int itype, Char jobz, Char uplo, Int n, Int lda,
          Int ldb, Int lwork, Int lrwork, Int liwork);

}  // namespace vorn::checks
