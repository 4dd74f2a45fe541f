// Argument checks the layer makes itself, before the computational library
// is called, for the routines that have one. Each examined argument comes
// with its 1-based position in the routine's argument list. A check that
// fails sets INFO to minus that position, reports it under the routine's
// name and returns non-zero; when all pass INFO is 0 and the result is 0.
//
// Defined here so that each interface function inlines its own check: the
// passing path then costs a few compares and the option letters' lsame
// calls, with no call frame of its own.
#pragma once
#include <algorithm>
#include <string_view>

#include "frame/lp64.h"
#include "frame/option_letters.h"
#include "frame/report.h"

namespace vorn::checks {

// An integer argument is read by reference from the interface function's
// 64-bit cell where its check uses it: after an option letter's lsame call
// it is reloaded from there rather than held in a saved register.
struct Int {
  const i64& value;
  i64 position;
};
struct Char {
  const char* value;
  i64 position;
};

constexpr i64 kQuery = -1;

// Walks the checks in order; the first failure is reported and sticks.
// INFO's cell starts at zero in every frame that checks (the generator
// insists), so passing leaves it alone: storing the zero again would cost
// a store per call, the cell's address being taken.
class Checker {
 public:
  [[gnu::always_inline]] Checker(const char* name, i64* info) : name_(name), info_(info) {}

  // Failing is the rare path: hinted so, the passing path stays a straight
  // line of compares instead of selects that carry each position along.
  [[gnu::always_inline]] Checker& fail_if(bool bad, i64 position) {
    if (failed_ == 0 && __builtin_expect(bad, false)) failed_ = position;
    return *this;
  }
  [[gnu::always_inline]] int done() {
    if (failed_ == 0) return 0;
    *info_ = -failed_;
    report(name_, failed_);
    return 1;
  }

 private:
  const char* name_;
  i64* info_;
  i64 failed_ = 0;
};

VORN_INLINE i64 max1(i64 a) { return std::max<i64>(1, a); }
VORN_INLINE bool short_work(Int lwork, i64 minimum) { return lwork.value < minimum && lwork.value != kQuery; }

// M, N and LDA of a general matrix, the first checks of several routines.
VORN_INLINE Checker& general_matrix(Checker& c, Int m, Int n, Int lda) {
  return c.fail_if(m.value < 0, m.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(lda.value < max1(m.value), lda.position);
}

VORN_INLINE int geqrf(const char* name, i64* info, Int m, Int n, Int lda, Int lwork) {
  Checker c(name, info);
  return general_matrix(c, m, n, lda).fail_if(short_work(lwork, max1(n.value)), lwork.position).done();
}

VORN_INLINE int gelqf(const char* name, i64* info, Int m, Int n, Int lda, Int lwork) {
  Checker c(name, info);
  return general_matrix(c, m, n, lda).fail_if(short_work(lwork, max1(m.value)), lwork.position).done();
}

VORN_INLINE int gebrd(const char* name, i64* info, Int m, Int n, Int lda, Int lwork) {
  Checker c(name, info);
  return general_matrix(c, m, n, lda)
      .fail_if(short_work(lwork, std::max({i64{1}, m.value, n.value})), lwork.position)
      .done();
}

VORN_INLINE Checker& hessenberg_range(Checker& c, Int n, Int ilo, Int ihi, Int lda) {
  return c.fail_if(n.value < 0, n.position)
      .fail_if(ilo.value < 1 || ilo.value > max1(n.value), ilo.position)
      .fail_if(ihi.value < std::min(ilo.value, n.value) || ihi.value > n.value, ihi.position)
      .fail_if(lda.value < max1(n.value), lda.position);
}

VORN_INLINE int gehrd(const char* name, i64* info, Int n, Int ilo, Int ihi, Int lda, Int lwork) {
  Checker c(name, info);
  return hessenberg_range(c, n, ilo, ihi, lda).fail_if(short_work(lwork, max1(n.value)), lwork.position).done();
}

VORN_INLINE int orghr(const char* name, i64* info, Int n, Int ilo, Int ihi, Int lda, Int lwork) {
  Checker c(name, info);
  return hessenberg_range(c, n, ilo, ihi, lda)
      .fail_if(short_work(lwork, max1(ihi.value - ilo.value)), lwork.position)
      .done();
}

VORN_INLINE int getrf(const char* name, i64* info, Int m, Int n, Int lda) {
  Checker c(name, info);
  return general_matrix(c, m, n, lda).done();
}

VORN_INLINE int potrf(const char* name, i64* info, Char uplo, Int n, Int lda) {
  return Checker(name, info)
      .fail_if(!one_of(uplo.value, "UL"), uplo.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(lda.value < max1(n.value), lda.position)
      .done();
}

VORN_INLINE int orgqr(const char* name, i64* info, Int m, Int n, Int k, Int lda, Int lwork) {
  return Checker(name, info)
      .fail_if(m.value < 0, m.position)
      .fail_if(n.value < 0 || n.value > m.value, n.position)
      .fail_if(k.value < 0 || k.value > n.value, k.position)
      .fail_if(lda.value < max1(m.value), lda.position)
      .fail_if(short_work(lwork, max1(n.value)), lwork.position)
      .done();
}

VORN_INLINE int apply_q(const char* name, i64* info, Char side, Char trans, char transpose, Int m,
                        Int n, Int k, Int lda, Int ldc, Int lwork) {
  const char letters[] = {'N', transpose};
  const bool left = is(side.value, 'L');
  const i64 nq = left ? m.value : n.value;
  const i64 nw = left ? n.value : m.value;
  return Checker(name, info)
      .fail_if(!left && !is(side.value, 'R'), side.position)
      .fail_if(!one_of(trans.value, {letters, 2}), trans.position)
      .fail_if(m.value < 0, m.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(k.value < 0 || k.value > nq, k.position)
      .fail_if(lda.value < max1(nq), lda.position)
      .fail_if(ldc.value < max1(m.value), ldc.position)
      .fail_if(short_work(lwork, max1(nw)), lwork.position)
      .done();
}

VORN_INLINE int ormqr_real(const char* name, i64* info, Char side, Char trans, Int m, Int n, Int k, Int lda,
                           Int ldc, Int lwork) {
  return apply_q(name, info, side, trans, 'T', m, n, k, lda, ldc, lwork);
}

VORN_INLINE int ormqr_complex(const char* name, i64* info, Char side, Char trans, Int m, Int n, Int k,
                              Int lda, Int ldc, Int lwork) {
  return apply_q(name, info, side, trans, 'C', m, n, k, lda, ldc, lwork);
}

VORN_INLINE int geev(const char* name, i64* info, Char jobvl, Char jobvr, Int n, Int lda, Int ldvl,
                     Int ldvr) {
  // No workspace test: a short LWORK is left to the computational library.
  const bool left = is(jobvl.value, 'V');
  const bool right = is(jobvr.value, 'V');
  return Checker(name, info)
      .fail_if(!left && !is(jobvl.value, 'N'), jobvl.position)
      .fail_if(!right && !is(jobvr.value, 'N'), jobvr.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(lda.value < max1(n.value), lda.position)
      .fail_if(ldvl.value < 1 || (left && ldvl.value < n.value), ldvl.position)
      .fail_if(ldvr.value < 1 || (right && ldvr.value < n.value), ldvr.position)
      .done();
}

VORN_INLINE int gesvd(const char* name, i64* info, Char jobu, Char jobvt, Int m, Int n, Int lda, Int ldu,
                      Int ldvt) {
  // No workspace test, as in geev.
  const bool u_full = one_of(jobu.value, "AS");
  const bool u_ok = u_full || one_of(jobu.value, "ON");
  const bool vt_ok = one_of(jobvt.value, "ASON");
  const bool both_overwrite = is(jobu.value, 'O') && is(jobvt.value, 'O');
  const i64 ldvt_minimum = is(jobvt.value, 'A') ? n.value : is(jobvt.value, 'S') ? std::min(m.value, n.value) : 1;
  return Checker(name, info)
      .fail_if(!u_ok, jobu.position)
      .fail_if(!vt_ok || both_overwrite, jobvt.position)
      .fail_if(m.value < 0, m.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(lda.value < max1(m.value), lda.position)
      .fail_if(ldu.value < 1 || (u_full && ldu.value < m.value), ldu.position)
      .fail_if(ldvt.value < 1 || ldvt.value < ldvt_minimum, ldvt.position)
      .done();
}

VORN_INLINE int sytrd(const char* name, i64* info, Char uplo, Int n, Int lda, Int lwork) {
  return Checker(name, info)
      .fail_if(!one_of(uplo.value, "UL"), uplo.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(lda.value < max1(n.value), lda.position)
      .fail_if(short_work(lwork, 1), lwork.position)
      .done();
}

VORN_INLINE int sygst(const char* name, i64* info, Int itype, Char uplo, Int n, Int lda, Int ldb) {
  return Checker(name, info)
      .fail_if(itype.value < 1 || itype.value > 3, itype.position)
      .fail_if(!one_of(uplo.value, "UL"), uplo.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(lda.value < max1(n.value), lda.position)
      .fail_if(ldb.value < max1(n.value), ldb.position)
      .done();
}

struct Minima {
  i64 work, rwork, iwork;
};

// Minimal workspaces of the symmetric/Hermitian divide-and-conquer drivers.
VORN_INLINE Minima real_evd_minima(bool vectors, i64 n) {
  if (n < 2) return {1, 0, 1};
  return vectors ? Minima{1 + 6 * n + 2 * n * n, 0, 3 + 5 * n} : Minima{2 * n + 1, 0, 1};
}
VORN_INLINE Minima complex_evd_minima(bool vectors, i64 n) {
  if (n < 2) return {1, 1, 1};
  return vectors ? Minima{n * n + 2 * n, 1 + 5 * n + 2 * n * n, 3 + 5 * n} : Minima{n + 1, n, 1};
}

VORN_INLINE int syevd(const char* name, i64* info, Char jobz, Char uplo, Int n, Int lda, Int lwork,
                      Int liwork) {
  const bool vectors = is(jobz.value, 'V');
  const Minima min = real_evd_minima(vectors, n.value);
  const bool query = lwork.value == kQuery || liwork.value == kQuery;
  return Checker(name, info)
      .fail_if(!vectors && !is(jobz.value, 'N'), jobz.position)
      .fail_if(!one_of(uplo.value, "UL"), uplo.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(lda.value < max1(n.value), lda.position)
      .fail_if(!query && lwork.value < min.work, lwork.position)
      .fail_if(!query && liwork.value < min.iwork, liwork.position)
      .done();
}

VORN_INLINE Checker& complex_evd_workspace(Checker& c, bool vectors, Int n, Int lwork, Int lrwork, Int liwork) {
  // A query in any one of the three suspends all three tests.
  const Minima min = complex_evd_minima(vectors, n.value);
  const bool query = lwork.value == kQuery || lrwork.value == kQuery || liwork.value == kQuery;
  return c.fail_if(!query && lwork.value < min.work, lwork.position)
      .fail_if(!query && lrwork.value < min.rwork, lrwork.position)
      .fail_if(!query && liwork.value < min.iwork, liwork.position);
}

VORN_INLINE int heevd(const char* name, i64* info, Char jobz, Char uplo, Int n, Int lda, Int lwork,
                      Int lrwork, Int liwork) {
  const bool vectors = is(jobz.value, 'V');
  Checker c(name, info);
  c.fail_if(!vectors && !is(jobz.value, 'N'), jobz.position)
      .fail_if(!one_of(uplo.value, "UL"), uplo.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(lda.value < max1(n.value), lda.position);
  return complex_evd_workspace(c, vectors, n, lwork, lrwork, liwork).done();
}

VORN_INLINE Checker& generalized_head(Checker& c, Int itype, Char jobz, Char uplo, Int n, Int lda, Int ldb) {
  return c.fail_if(itype.value < 1 || itype.value > 3, itype.position)
      .fail_if(!one_of(jobz.value, "VN"), jobz.position)
      .fail_if(!one_of(uplo.value, "UL"), uplo.position)
      .fail_if(n.value < 0, n.position)
      .fail_if(lda.value < max1(n.value), lda.position)
      .fail_if(ldb.value < max1(n.value), ldb.position);
}

VORN_INLINE int hegvd_without_workspace(const char* name, i64* info, Int itype, Char jobz, Char uplo,
                                        Int n, Int lda, Int ldb) {
  Checker c(name, info);
  return generalized_head(c, itype, jobz, uplo, n, lda, ldb).done();
}

VORN_INLINE int hegvd(const char* name, i64* info, Int itype, Char jobz, Char uplo, Int n, Int lda,
                      Int ldb, Int lwork, Int lrwork, Int liwork) {
  Checker c(name, info);
  generalized_head(c, itype, jobz, uplo, n, lda, ldb);
  return complex_evd_workspace(c, is(jobz.value, 'V'), n, lwork, lrwork, liwork).done();
}

}  // namespace vorn::checks
