// Service routines that take caller-supplied character lengths or pass
// straight through; the rest of the service set is generated.
#include "frame/hooks.h"
#include "frame/lp64.h"

using vorn::i64;

extern "C" {
i64 mkl_lapack_lsamen(const i64* n, const char* ca, const char* cb, i64 lca, i64 lcb);
i64 mkl_lapack_ilaenv(const i64* ispec, const char* name, const char* opts, const i64* n1, const i64* n2,
                      const i64* n3, const i64* n4, int lname, int lopts);
i64 mkl_lapack_iparmq(const i64* ispec, const char* name, const char* opts, const i64* n, const i64* ilo,
                      const i64* ihi, const i64* lwork, int lname, int lopts);
i64 mkl_lapack_ilaprec(const char* prec, int length);
i64 mkl_lapack_ilatrans(const char* trans, int length);
i64 mkl_lapack_ilauplo(const char* uplo, int length);
i64 mkl_lapack_iladiag(const char* diag, int length);
void mkl_lapack_chla_transtype(char* result, int length, const i64* trans);
void mkl_lapack_xerbla_array(const char* srname, const i64* srname_len, const i64* info, int length);

VORN_HIDDEN int vorn_if_lsame(const char* ca, const char* cb, int lca, int lcb) {
  return mkl_serv_lsame(ca, cb, lca, lcb);
}

VORN_HIDDEN int vorn_if_lsamen(const int* n, const char* ca, const char* cb, int lca, int lcb) {
  const i64 n64 = vorn::widen(n);
  vorn::install_hooks();
  return vorn::narrowed(mkl_lapack_lsamen(&n64, ca, cb, lca, lcb));
}

// The timers go without the hooks.
VORN_HIDDEN float vorn_if_second() { return mkl_serv_second(); }
VORN_HIDDEN double vorn_if_dsecnd() { return mkl_serv_dsecnd(); }

VORN_HIDDEN int vorn_if_ilaenv(const int* ispec, const char* name, const char* opts, const int* n1,
                               const int* n2, const int* n3, const int* n4, int lname, int lopts) {
  const i64 ispec64 = vorn::widen(ispec), n1_64 = vorn::widen(n1), n2_64 = vorn::widen(n2);
  const i64 n3_64 = vorn::widen(n3), n4_64 = vorn::widen(n4);
  vorn::install_hooks();
  return vorn::narrowed(mkl_lapack_ilaenv(&ispec64, name, opts, &n1_64, &n2_64, &n3_64, &n4_64, lname, lopts));
}

VORN_HIDDEN int vorn_if_iparmq(const int* ispec, const char* name, const char* opts, const int* n,
                               const int* ilo, const int* ihi, const int* lwork, int lname, int lopts) {
  const i64 ispec64 = vorn::widen(ispec), n64 = vorn::widen(n), ilo64 = vorn::widen(ilo);
  const i64 ihi64 = vorn::widen(ihi), lwork64 = vorn::widen(lwork);
  vorn::install_hooks();
  return vorn::narrowed(mkl_lapack_iparmq(&ispec64, name, opts, &n64, &ilo64, &ihi64, &lwork64, lname, lopts));
}

// ILAPREC, ILATRANS, ILAUPLO, ILADIAG: one character and the caller's length.
extern "C++" {
template <i64 (*Entry)(const char*, int)>
int character_code(const char* letter, int length) {
  vorn::install_hooks();
  return vorn::narrowed(Entry(letter, length));
}
}

VORN_HIDDEN int vorn_if_ilaprec(const char* prec, int length) { return character_code<mkl_lapack_ilaprec>(prec, length); }
VORN_HIDDEN int vorn_if_ilatrans(const char* trans, int length) { return character_code<mkl_lapack_ilatrans>(trans, length); }
VORN_HIDDEN int vorn_if_ilauplo(const char* uplo, int length) { return character_code<mkl_lapack_ilauplo>(uplo, length); }
VORN_HIDDEN int vorn_if_iladiag(const char* diag, int length) { return character_code<mkl_lapack_iladiag>(diag, length); }

// A character-valued function: the caller passes the result buffer and its
// length ahead of TRANS.
VORN_HIDDEN void vorn_if_chla_transtype(char* result, int length, const int* trans) {
  const i64 trans64 = vorn::widen(trans);
  vorn::install_hooks();
  mkl_lapack_chla_transtype(result, length, &trans64);
}

VORN_HIDDEN void vorn_if_xerbla_array(const char* srname, const int* srname_len, const int* info, int length) {
  const i64 len64 = vorn::widen(srname_len), info64 = vorn::widen(info);
  vorn::install_hooks();
  mkl_lapack_xerbla_array(srname, &len64, &info64, length);
}
}
