// Divide-and-conquer routines of precision D (sizes in lapack/divide_conquer.h).
#include "lapack/divide_conquer.h"
#include "library_entries.h"

using vorn::i64;
using vorn::widen;

extern "C" VORN_HIDDEN void vorn_if_dgelsd(const int* m, const int* n, const int* nrhs, double* a, const int* lda, double* b,
                                         const int* ldb, double* s, const double* rcond, int* rank, double* work,
                                         const int* lwork, int* iwork, int* info) {
  const i64 m64 = widen(m), n64 = widen(n), nrhs64 = widen(nrhs), lda64 = widen(lda), ldb64 = widen(ldb);
  const i64 lwork64 = widen(lwork);
  vorn::lapack::gelsd("DGELSD", "DGELSD", m64 < n64 ? m64 : n64, rank, iwork, info,
                      [&](i64* rank64, i64* iwork64, i64* info64) {
                        mkl_lapack_dgelsd(&m64, &n64, &nrhs64, a, &lda64, b, &ldb64, s, rcond, rank64, work, &lwork64,
                                          iwork64, info64);
                      });
}

extern "C" VORN_HIDDEN void vorn_if_dlalsd(const char* uplo, const int* smlsiz, const int* n, const int* nrhs, double* d,
                                         double* e, double* b, const int* ldb, const double* rcond, int* rank, double* work,
                                         int* /*iwork*/, int* info) {
  const i64 smlsiz64 = widen(smlsiz), n64 = widen(n), nrhs64 = widen(nrhs), ldb64 = widen(ldb);
  vorn::lapack::lalsd("DLALSD", "DLALSD", n64, rank, info, [&](i64* rank64, i64* iwork64, i64* info64) {
    mkl_lapack_dlalsd(uplo, &smlsiz64, &n64, &nrhs64, d, e, b, &ldb64, rcond, rank64, work, iwork64, info64,
                      vorn::kCharLength);
  });
}

extern "C" VORN_HIDDEN void vorn_if_dbdsdc(const char* uplo, const char* compq, const int* n, double* d, double* e, double* u,
                                         const int* ldu, double* vt, const int* ldvt, double* q, int* iq, double* work,
                                         int* /*iwork*/, int* info) {
  const i64 n64 = widen(n), ldu64 = widen(ldu), ldvt64 = widen(ldvt);
  vorn::lapack::bdsdc("DBDSDC", "DBDSDC", compq, n64, iq, info, [&](i64* iq64, i64* iwork64, i64* info64) {
    mkl_lapack_dbdsdc(uplo, compq, &n64, d, e, u, &ldu64, vt, &ldvt64, q, iq64, work, iwork64, info64,
                      vorn::kCharLength, vorn::kCharLength);
  });
}

extern "C" VORN_HIDDEN void vorn_if_dlasda(const int* icompq, const int* smlsiz, const int* n, const int* sqre, double* d,
                                         double* e, double* u, const int* ldu, double* vt, int* k, double* difl, double* difr,
                                         double* z, double* poles, int* givptr, int* givcol, const int* ldgcol, int* perm,
                                         double* givnum, double* c, double* s, double* work, int* /*iwork*/, int* info) {
  const i64 icompq64 = widen(icompq), smlsiz64 = widen(smlsiz), n64 = widen(n), sqre64 = widen(sqre);
  const i64 ldu64 = widen(ldu), ldgcol64 = widen(ldgcol);
  vorn::lapack::lasda("DLASDA", "DLASDA", icompq64, n64, ldgcol64, {k, givptr, givcol, perm}, info,
                      [&](i64* k64, i64* givptr64, i64* givcol64, i64* perm64, i64* iwork64, i64* info64) {
                        mkl_lapack_dlasda(&icompq64, &smlsiz64, &n64, &sqre64, d, e, u, &ldu64, vt, k64, difl, difr, z,
                                          poles, givptr64, givcol64, &ldgcol64, perm64, givnum, c, s, work, iwork64,
                                          info64);
                      });
}

extern "C" VORN_HIDDEN void vorn_if_dlaeda(const int* n, const int* tlvls, const int* curlvl, const int* curpbm,
                                         const int* prmptr, const int* perm, const int* givptr, const int* givcol,
                                         const double* givnum, const double* q, const int* qptr, double* z, double* ztemp,
                                         int* info) {
  const i64 n64 = widen(n), tlvls64 = widen(tlvls), curlvl64 = widen(curlvl), curpbm64 = widen(curpbm);
  vorn::lapack::laeda("DLAEDA", n64, {prmptr, perm, givptr, givcol, qptr}, info,
                      [&](i64* prmptr64, i64* perm64, i64* givptr64, i64* givcol64, i64* qptr64, i64* info64) {
                        mkl_lapack_dlaeda(&n64, &tlvls64, &curlvl64, &curpbm64, prmptr64, perm64, givptr64, givcol64,
                                          givnum, q, qptr64, z, ztemp, info64);
                      });
}
