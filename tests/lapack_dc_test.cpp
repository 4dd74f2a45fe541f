// Divide-and-conquer routines whose integer arrays are sized from the depth
// of the subproblem tree or from N ln N: the sizes the allocator sees, what
// comes back, and the results against the reference LAPACK.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <vector>

#include "support/observe.h"
#include "support/fixtures.h"
#include "support/reference.h"
#include "vorn_instable.h"

using zd = std::complex<double>;

namespace {

using namespace fixtures;

constexpr int kSentinel = 0x5A5A5A5A;

// The computational library's leaf size, asked the way LAPACK asks it.
int leaf_size(const char* name) {
  int ispec = 9, zero = 0;
  return VORN_instable_ilaenv(&ispec, name, " ", &zero, &zero, &zero, &zero, 6, 1);
}

class DivideConquer : public ::testing::Test {
 protected:
  void SetUp() override {
    observe::reset();
    reference::reset();
  }
  void TearDown() override { EXPECT_EQ(observe::outstanding_blocks(), 0u); }
};

// ------------------------------------------------------------ ?GELSD

using ref_gelsd = void (*)(const int*, const int*, const int*, double*, const int*, double*, const int*, double*,
                           const double*, int*, double*, const int*, int*, int*);

TEST_F(DivideConquer, DgelsdSizesIworkFromTheTreeDepth) {
  const int leaf = leaf_size("DGELSD") + 1;
  ASSERT_GT(leaf, 1);
  // min(M, N) / (SMLSIZ + 1) against the depth the layer must reach.
  struct Case {
    int minmn, nlvl;
  };
  for (Case c : {Case{2 * leaf, 1}, Case{2 * leaf + 1, 2}, Case{4 * leaf, 2}, Case{8 * leaf, 3}, Case{leaf / 2, 1},
                 Case{0, 1}}) {
    SCOPED_TRACE(c.minmn);
    observe::reset();
    int m = c.minmn + 3, n = c.minmn, nrhs = 1, lwork = -1, rank = -5, info = 0;
    double rcond = -1, work = 0, a = 0, b = 0, s = 0;
    std::vector<int> iwork(3, kSentinel);
    VORN_instable_dgelsd(&m, &n, &nrhs, &a, &m, &b, &m, &s, &rcond, &rank, &work, &lwork, iwork.data(), &info);
    EXPECT_EQ(info, 0);
    const size_t expected = std::max<size_t>(1, (3u * c.nlvl + 14) * c.minmn) * 8;
    EXPECT_EQ(allocation_sizes(), std::vector<size_t>{expected});
    EXPECT_NE(iwork[0], kSentinel) << "the minimal LIWORK arrives in IWORK(1)";
    EXPECT_EQ(iwork[1], kSentinel);
    EXPECT_EQ(rank, 0) << "RANK is written back from a fresh cell";
  }
}

TEST_F(DivideConquer, DgelsdMatchesTheReference) {
  int m = 70, n = 60, nrhs = 3, lda = 70, ldb = 70, rank = 0, rank_ref = 0, info = 0, info_ref = 0;
  auto a = random_matrix(m, n, 1);
  for (int i = 0; i < m; ++i) a[i + 59 * m] = a[i] + a[i + m];  // rank deficient
  auto ar = a, b = random_matrix(ldb, nrhs, 2), br = b;
  std::vector<double> s(n), sr(n);
  double rcond = 1e-10;
  int lwork = 100000;
  std::vector<double> work(lwork);
  std::vector<int> iwork(20000, kSentinel), iwork_ref(20000);
  VORN_instable_DGELSD(&m, &n, &nrhs, a.data(), &lda, b.data(), &ldb, s.data(), &rcond, &rank, work.data(), &lwork,
                       iwork.data(), &info);
  reference::fn<ref_gelsd>("dgelsd_")(&m, &n, &nrhs, ar.data(), &lda, br.data(), &ldb, sr.data(), &rcond, &rank_ref,
                                      work.data(), &lwork, iwork_ref.data(), &info_ref);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(rank, 59);
  EXPECT_EQ(rank, rank_ref);
  EXPECT_LT(max_diff(s.data(), sr.data(), n), 1e-10);
  for (int j = 0; j < nrhs; ++j) EXPECT_LT(max_diff(&b[j * ldb], &br[j * ldb], n), 1e-8);
  EXPECT_TRUE(std::all_of(iwork.begin() + 1, iwork.end(), [](int x) { return x == kSentinel; }));
}

using ref_zgelsd = void (*)(const int*, const int*, const int*, zd*, const int*, zd*, const int*, double*,
                            const double*, int*, zd*, const int*, double*, int*, int*);

TEST_F(DivideConquer, ZgelsdMatchesTheReference) {
  int m = 40, n = 30, nrhs = 2, rank = 0, rank_ref = 0, info = 0, info_ref = 0, lwork = 20000;
  auto re = random_matrix(2 * m, n, 3), rb = random_matrix(2 * m, nrhs, 4);
  std::vector<zd> a(m * n), b(m * nrhs), work(lwork);
  std::memcpy(a.data(), re.data(), sizeof(zd) * a.size());
  std::memcpy(b.data(), rb.data(), sizeof(zd) * b.size());
  auto ar = a, br = b;
  std::vector<double> s(n), sr(n), rwork(40000);
  std::vector<int> iwork(10000), iwork_ref(10000);
  double rcond = -1;
  VORN_instable_zgelsd(&m, &n, &nrhs, reinterpret_cast<double*>(a.data()), &m, reinterpret_cast<double*>(b.data()),
                       &m, s.data(), &rcond, &rank, reinterpret_cast<double*>(work.data()), &lwork, rwork.data(),
                       iwork.data(), &info);
  reference::fn<ref_zgelsd>("zgelsd_")(&m, &n, &nrhs, ar.data(), &m, br.data(), &m, sr.data(), &rcond, &rank_ref,
                                       work.data(), &lwork, rwork.data(), iwork_ref.data(), &info_ref);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(rank, rank_ref);
  EXPECT_LT(max_diff(s.data(), sr.data(), n), 1e-10);
  for (int i = 0; i < n; ++i) EXPECT_LT(std::abs(b[i] - br[i]), 1e-8);
  const int leaf = leaf_size("ZGELSD") + 1;
  const int nlvl = n / static_cast<double>(leaf) > 2.0 ? 2 : 1;  // n / leaf stays below 4 here
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{(3u * nlvl + 14) * n * 8});
}

// ------------------------------------------------------------ ?BDSDC

using ref_bdsdc = void (*)(const char*, const char*, const int*, double*, double*, double*, const int*, double*,
                           const int*, double*, int*, double*, int*, int*, size_t, size_t);

TEST_F(DivideConquer, DbdsdcTakesIqOnlyInCompactForm) {
  const int n = 60, leaf = leaf_size("DBDSDC") + 1;
  int nlvl = 1;
  while (n / static_cast<double>(leaf) > static_cast<double>(1 << nlvl)) ++nlvl;
  const size_t iq_length = 3u * n * (nlvl + 1);
  for (const char* compq : {"N", "I", "P", "p"}) {
    SCOPED_TRACE(compq);
    observe::reset();
    auto d = random_matrix(n, 1, 5), e = random_matrix(n, 1, 6), dr = d, er = e;
    int nn = n, info = 0, info_ref = 0;
    std::vector<double> u(n * n), vt(n * n), ur(n * n), vtr(n * n), q(n * n * 4), qr(n * n * 4),
        work(3 * n * n + 4 * n);
    std::vector<int> iq(iq_length + 8, kSentinel), iqr(iq_length + 8, kSentinel), iwork(8 * n, kSentinel),
        iworkr(8 * n);
    VORN_instable_dbdsdc("U", compq, &nn, d.data(), e.data(), u.data(), &nn, vt.data(), &nn, q.data(), iq.data(),
                         work.data(), iwork.data(), &info);
    reference::fn<ref_bdsdc>("dbdsdc_")("U", compq, &nn, dr.data(), er.data(), ur.data(), &nn, vtr.data(), &nn,
                                        qr.data(), iqr.data(), work.data(), iworkr.data(), &info_ref, 1, 1);
    EXPECT_EQ(info, info_ref);
    EXPECT_LT(max_diff(d.data(), dr.data(), n), 1e-12);
    EXPECT_TRUE(std::all_of(iwork.begin(), iwork.end(), [](int x) { return x == kSentinel; }));
    const bool compact = compq[0] == 'P' || compq[0] == 'p';
    const std::vector<size_t> expected =
        compact ? std::vector<size_t>{iq_length * 8, 8u * n * 8} : std::vector<size_t>{8u * n * 8};
    EXPECT_EQ(allocation_sizes(), expected);
    const auto written = std::count_if(iq.begin(), iq.end(), [](int x) { return x != kSentinel; });
    if (compact) {
      EXPECT_EQ(iq[iq_length], kSentinel);
      EXPECT_GT(written, n);
    } else {
      EXPECT_EQ(written, 0);
    }
    if (compq[0] == 'I') {  // U diag(D) VT, whichever signs were chosen
      for (int j = 0; j < n; j += 7)
        for (int i = 0; i < n; i += 5) {
          double x = 0, xr = 0;
          for (int k = 0; k < n; ++k) {
            x += u[i + k * n] * d[k] * vt[k + j * n];
            xr += ur[i + k * n] * dr[k] * vtr[k + j * n];
          }
          EXPECT_NEAR(x, xr, 1e-10);
        }
    }
  }
}

// ------------------------------------------------------------ ?LASDA

using ref_lasda = void (*)(const int*, const int*, const int*, const int*, double*, const double*, double*,
                           const int*, double*, int*, double*, double*, double*, double*, int*, int*, const int*,
                           int*, double*, double*, double*, double*, int*, int*);

TEST_F(DivideConquer, DlasdaSizesItsTreeArraysFromTheLibrarysLeafSize) {
  const int n = 60, smlsiz = 9, leaf = leaf_size("DLASDA") + 1;
  int nlvl = 1;
  while (n / static_cast<double>(leaf) > static_cast<double>(1 << nlvl)) ++nlvl;
  const int depth = nlvl + 1;
  for (int icompq : {0, 1}) {
    SCOPED_TRACE(icompq);
    observe::reset();
    int ic = icompq, sm = smlsiz, nn = n, sqre = 0, ldu = n, ldgcol = n, info = 0, info_ref = 0;
    auto d = random_matrix(n, 1, 7), e = random_matrix(n, 1, 8), dr = d, er = e;
    const size_t wide = static_cast<size_t>(n) * 40;
    std::vector<double> u(wide), vt(wide), difl(wide), difr(wide), z(wide), poles(wide), givnum(wide), c(n), s(n),
        work(6 * n + (smlsiz + 1) * (smlsiz + 1));
    std::vector<int> k(n + 1, kSentinel), givptr(n + 1, kSentinel), givcol(n * 2 * depth + 1, kSentinel),
        perm(n * depth + 1, kSentinel), iwork(7 * n, kSentinel);
    VORN_instable_dlasda(&ic, &sm, &nn, &sqre, d.data(), e.data(), u.data(), &ldu, vt.data(), k.data(), difl.data(),
                         difr.data(), z.data(), poles.data(), givptr.data(), givcol.data(), &ldgcol, perm.data(),
                         givnum.data(), c.data(), s.data(), work.data(), iwork.data(), &info);
    auto u2 = u, vt2 = vt, difl2 = difl, difr2 = difr, z2 = z, poles2 = poles, givnum2 = givnum, c2 = c, s2 = s;
    std::vector<int> k2(n), givptr2(n), givcol2(n * 2 * depth + 64), perm2(n * depth + 64), iwork2(7 * n);
    reference::fn<ref_lasda>("dlasda_")(&ic, &sm, &nn, &sqre, dr.data(), er.data(), u2.data(), &ldu, vt2.data(),
                                        k2.data(), difl2.data(), difr2.data(), z2.data(), poles2.data(),
                                        givptr2.data(), givcol2.data(), &ldgcol, perm2.data(), givnum2.data(),
                                        c2.data(), s2.data(), work.data(), iwork2.data(), &info_ref);
    EXPECT_EQ(info, info_ref);
    std::sort(d.begin(), d.end());  // the order of the merged values is not fixed
    std::sort(dr.begin(), dr.end());
    EXPECT_LT(max_diff(d.data(), dr.data(), n), 1e-12);
    EXPECT_TRUE(std::all_of(iwork.begin(), iwork.end(), [](int x) { return x == kSentinel; }));
    EXPECT_EQ(k[n], kSentinel);
    if (icompq == 1) {
      EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{n * 8u, n * 8u, n * 2u * depth * 8, n * 1u * depth * 8,
                                                         7u * n * 8}));
      EXPECT_EQ(givptr[n], kSentinel);
      EXPECT_EQ(givcol[n * 2 * depth], kSentinel);
      EXPECT_EQ(perm[n * depth], kSentinel);
      EXPECT_NE(givcol[n * 2 * depth - 1], kSentinel);
    } else {
      EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{n * 8u, 7u * n * 8}));
      EXPECT_TRUE(std::all_of(givptr.begin(), givptr.end(), [](int x) { return x == kSentinel; }));
      EXPECT_TRUE(std::all_of(perm.begin(), perm.end(), [](int x) { return x == kSentinel; }));
    }
  }
}

// ------------------------------------------------------------ ?LAEDA

using ref_laeda = void (*)(const int*, const int*, const int*, const int*, const int*, const int*, const int*,
                           const int*, const double*, const double*, const int*, double*, double*, int*);

TEST_F(DivideConquer, DlaedaSizesByNaturalLogarithmAndMatches) {
  int n = 4, tlvls = 1, curlvl = 1, curpbm = 0, info = 0, info_ref = 0;
  std::vector<int> prmptr(8, 1), perm(8, 1), givptr(8, 1), givcol(16, 1), qptr = {1, 5, 9, 9, 9, 9};
  std::vector<double> givnum(32), q = random_matrix(16, 1, 9), z(n), zr(n), ztemp(n);
  VORN_instable_dlaeda(&n, &tlvls, &curlvl, &curpbm, prmptr.data(), perm.data(), givptr.data(), givcol.data(),
                       givnum.data(), q.data(), qptr.data(), z.data(), ztemp.data(), &info);
  reference::fn<ref_laeda>("dlaeda_")(&n, &tlvls, &curlvl, &curpbm, prmptr.data(), perm.data(), givptr.data(),
                                      givcol.data(), givnum.data(), q.data(), qptr.data(), zr.data(), ztemp.data(),
                                      &info_ref);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(z, zr);
  EXPECT_EQ(z[2], q[4]);
  // 4 ln 4 = 5.545 elements: 44 bytes; 8 ln 4: 88 bytes; QPTR N + 2.
  EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{44, 44, 44, 88, 48}));
}

TEST_F(DivideConquer, DlaedaOfOneTakesSingleElements) {
  int n = 1, tlvls = 1, curlvl = 1, curpbm = 0, info = 0;
  std::vector<int> arrays(16, 1);
  double dummy[4] = {};
  observe::fail_allocation_after(4);  // stop before the library is called
  VORN_instable_DLAEDA(&n, &tlvls, &curlvl, &curpbm, arrays.data(), arrays.data(), arrays.data(), arrays.data(), dummy,
                       dummy, arrays.data(), dummy, dummy, &info);
  observe::fail_allocation_after(-1);
  EXPECT_EQ(info, -1023);
  EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{8, 8, 8, 8, 24}));
}

}  // namespace
