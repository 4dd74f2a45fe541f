// Divide-and-conquer routines whose integer arrays are sized from the depth
// of the subproblem tree or from N ln N: the sizes the allocator sees, what
// comes back, and the results against the reference LAPACK.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
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
  // 4 ln 4 = 5.545 elements: 44 bytes, six copied. 8 ln 4 = 11.09: 88
  // bytes with twelve copied, the last past the block. QPTR N + 2.
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

// ------------------------------------------------------------ kernels under their reference callers

// The reference LAPACK reaches its kernels through the global scope, where
// the definitions below come first. While a kernel is routed, its reference
// caller's calls go through the layer; otherwise to the reference's own.
// Fortran passes everything by address (hidden lengths last), so one
// forwarder of enough address-sized words serves every kernel.
using Word = void*;
using Kernel = void (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word,
                        Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

namespace {
struct Route {
  Kernel layer, reference;
  int calls = 0;
};
std::string g_routed;
std::map<std::string, Route> g_routes;

Route& route(const std::string& name) {
  auto it = g_routes.find(name);
  if (it == g_routes.end()) {
    const std::string layer = "VORN_instable_" + name, ref = name + "_";
    it = g_routes.emplace(name, Route{reinterpret_cast<Kernel>(dlsym(RTLD_DEFAULT, layer.c_str())),
                                      reinterpret_cast<Kernel>(reference::symbol(ref.c_str()))}).first;
    if (it->second.layer == nullptr) std::abort();
  }
  return it->second;
}
}  // namespace

#define VORN_ROUTE(f)                                                                                               \
  extern "C" void f##_(Word a, Word b, Word c, Word d, Word e, Word f_, Word g, Word h, Word i, Word j, Word k,      \
                       Word l, Word m, Word n, Word o, Word p, Word q, Word r, Word s, Word t, Word u, Word v,       \
                       Word w, Word x, Word y, Word z, Word aa, Word ab) {                                          \
    Route& rt = route(#f);                                                                                          \
    const bool routed = g_routed == #f;                                                                             \
    rt.calls += routed;                                                                                             \
    (routed ? rt.layer : rt.reference)(a, b, c, d, e, f_, g, h, i, j, k, l, m, n, o, p, q, r, s, t, u, v, w, x, y, \
                                       z, aa, ab);                                                                  \
  }
VORN_ROUTE(slaed7) VORN_ROUTE(dlaed7) VORN_ROUTE(claed7) VORN_ROUTE(zlaed7)
VORN_ROUTE(slaed8) VORN_ROUTE(dlaed8) VORN_ROUTE(claed8) VORN_ROUTE(zlaed8)
VORN_ROUTE(slaeda) VORN_ROUTE(dlaeda) VORN_ROUTE(slaed9) VORN_ROUTE(dlaed9)
VORN_ROUTE(dlaed0) VORN_ROUTE(dlaed1) VORN_ROUTE(dlaed2) VORN_ROUTE(dlaed3) VORN_ROUTE(dlaed4)
VORN_ROUTE(dlaed5) VORN_ROUTE(dlaed6)
VORN_ROUTE(dlasd0) VORN_ROUTE(dlasd1) VORN_ROUTE(dlasd2) VORN_ROUTE(dlasd3) VORN_ROUTE(dlasd4)
VORN_ROUTE(dlasd5) VORN_ROUTE(dlasd6) VORN_ROUTE(dlasd7) VORN_ROUTE(dlasd8) VORN_ROUTE(dlasda) VORN_ROUTE(dlasdt)
VORN_ROUTE(dlals0) VORN_ROUTE(dlalsa)
VORN_ROUTE(dlarrb) VORN_ROUTE(dlarrd) VORN_ROUTE(dlarre) VORN_ROUTE(dlarrv) VORN_ROUTE(zlarrv) VORN_ROUTE(dlaebz)
#undef VORN_ROUTE

namespace {

struct Outputs {
  int info = 0;
  std::vector<double> values;   // compared as they are
  std::vector<double> vectors;  // compared in magnitude: a vector's sign is free
};

template <class T>
std::vector<T> identity(int n) {
  std::vector<T> q(static_cast<size_t>(n) * n);
  for (int i = 0; i < n; ++i) q[i + static_cast<size_t>(i) * n] = T(1);
  return q;
}

template <class R>
std::vector<R> randoms(int n, unsigned seed) {
  auto v = random_matrix(n, 1, seed);
  return {v.begin(), v.end()};
}

int lg(int n) {
  int k = 0;
  while ((1 << k) < n) ++k;
  return k;
}

template <class V>
std::vector<double> magnitudes(const V& v) {
  std::vector<double> out;
  for (const auto& x : v) out.push_back(std::abs(x));
  return out;
}

template <class V>
std::vector<double> as_double(const V& v) {
  return {v.begin(), v.end()};
}

// ?LAED0 over a random tridiagonal matrix, Q the identity (QSIZ = N): the
// eigenvalues, and the eigenvectors unless ICOMPQ = 0.
template <class R>
Outputs laed0(int icompq, int n) {
  const char* name = sizeof(R) == 4 ? "slaed0_" : "dlaed0_";
  auto d = randoms<R>(n, 21), e = randoms<R>(n, 22), q = identity<R>(n), qstore = q;
  std::vector<R> work(1 + 4 * n + 2 * n * lg(n) + 3 * n * n);
  std::vector<int> iwork(6 + 6 * n + 5 * n * lg(n));
  int info = 0;
  using F = void (*)(const int*, const int*, const int*, R*, R*, R*, const int*, R*, const int*, R*, int*, int*);
  reference::fn<F>(name)(&icompq, &n, &n, d.data(), e.data(), q.data(), &n, qstore.data(), &n, work.data(),
                         iwork.data(), &info);
  return {info, as_double(d), icompq == 0 ? std::vector<double>{} : magnitudes(q)};
}

// ?LAED0 of the complex precisions (CLAED0, ZLAED0).
template <class R>
Outputs claed0(int n) {
  using C = std::complex<R>;
  const char* name = sizeof(R) == 4 ? "claed0_" : "zlaed0_";
  auto d = randoms<R>(n, 23), e = randoms<R>(n, 24);
  auto q = identity<C>(n), qstore = q;
  std::vector<R> rwork(1 + 4 * n + 2 * n * lg(n) + 3 * n * n);
  std::vector<int> iwork(6 + 6 * n + 5 * n * lg(n));
  int info = 0;
  using F = void (*)(const int*, const int*, R*, R*, C*, const int*, C*, const int*, R*, int*, int*);
  reference::fn<F>(name)(&n, &n, d.data(), e.data(), q.data(), &n, qstore.data(), &n, rwork.data(), iwork.data(),
                         &info);
  return {info, as_double(d), magnitudes(q)};
}

Outputs dstedc(int n) {
  auto d = randoms<double>(n, 25), e = randoms<double>(n, 26);
  std::vector<double> z(static_cast<size_t>(n) * n), work(1 + 4 * n + n * n);
  std::vector<int> iwork(3 + 5 * n);
  int lwork = static_cast<int>(work.size()), liwork = static_cast<int>(iwork.size()), info = 0;
  using F = void (*)(const char*, const int*, double*, double*, double*, const int*, double*, const int*, int*,
                     const int*, int*, size_t);
  reference::fn<F>("dstedc_")("I", &n, d.data(), e.data(), z.data(), &n, work.data(), &lwork, iwork.data(), &liwork,
                              &info, 1);
  return {info, d, magnitudes(z)};
}

// ?LAED4 (the secular equation for one root) for every root of a small
// problem: with N = 2 it hands the work to ?LAED5, otherwise to ?LAED6.
Outputs dlaed4(int n) {
  std::vector<double> d(n), z = randoms<double>(n, 27), delta(n);
  for (int i = 0; i < n; ++i) d[i] = i + 0.25 * z[i];
  double rho = 0.7, norm = 0;
  for (double x : z) norm += x * x;
  for (double& x : z) x /= std::sqrt(norm);
  Outputs out;
  using F = void (*)(const int*, const int*, const double*, const double*, double*, const double*, double*, int*);
  for (int i = 1; i <= n; ++i) {
    double lambda = 0;
    reference::fn<F>("dlaed4_")(&n, &i, d.data(), z.data(), delta.data(), &rho, &lambda, &out.info);
    out.values.push_back(lambda);
  }
  return out;
}

Outputs dlasd4(int n) {
  std::vector<double> d(n), z = randoms<double>(n, 28), delta(n), work(n);
  for (int i = 0; i < n; ++i) d[i] = i + 1 + 0.25 * z[i];
  double rho = 0.7, norm = 0;
  for (double x : z) norm += x * x;
  for (double& x : z) x /= std::sqrt(norm);
  Outputs out;
  using F = void (*)(const int*, const int*, const double*, const double*, double*, const double*, double*, double*,
                     int*);
  for (int i = 1; i <= n; ++i) {
    double sigma = 0;
    reference::fn<F>("dlasd4_")(&n, &i, d.data(), z.data(), delta.data(), &rho, &sigma, work.data(), &out.info);
    out.values.push_back(sigma);
  }
  return out;
}

// ?BDSDC on a random bidiagonal matrix: singular values, and the singular
// vectors with COMPQ = 'I' or the compact form's integer part IQ (tree
// sizes, permutations, rotations) with COMPQ = 'P'. Its Q part holds
// entries LAPACK leaves undefined.
Outputs dbdsdc(const char* compq, int n) {
  auto d = randoms<double>(n, 29), e = randoms<double>(n, 30);
  std::vector<double> u(static_cast<size_t>(n) * n), vt(u.size()), q(static_cast<size_t>(n) * 100),
      work(3 * n * n + 4 * n + 64 * n);
  std::vector<int> iq(static_cast<size_t>(n) * 40), iwork(8 * n);
  int info = 0;
  reference::fn<ref_bdsdc>("dbdsdc_")("U", compq, &n, d.data(), e.data(), u.data(), &n, vt.data(), &n, q.data(),
                                      iq.data(), work.data(), iwork.data(), &info, 1, 1);
  return {info, d, compq[0] == 'I' ? magnitudes(u) : as_double(iq)};
}

Outputs dgelsd(int n) {
  int m = n + 10, nrhs = 3, rank = 0, info = 0, lwork = 200000;
  auto a = random_matrix(m, n, 31), b = random_matrix(m, nrhs, 32);
  std::vector<double> s(n), work(lwork);
  std::vector<int> iwork(200000);
  double rcond = -1;
  reference::fn<ref_gelsd>("dgelsd_")(&m, &n, &nrhs, a.data(), &m, b.data(), &m, s.data(), &rcond, &rank,
                                      work.data(), &lwork, iwork.data(), &info);
  std::vector<double> x;
  for (int j = 0; j < nrhs; ++j) x.insert(x.end(), &b[j * m], &b[j * m] + n);
  s.insert(s.end(), x.begin(), x.end());
  return {info, s, {}};
}

// ?STEMR for all eigenpairs ('A') or a range by index ('I', which takes the
// bisection path through ?LARRD).
template <class Z>
Outputs stemr(const char* range, int n) {
  auto d = randoms<double>(n, 33), e = randoms<double>(n, 34);
  int il = 3, iu = n - 5, m = 0, nzc = n, info = 0, lwork = 18 * n, liwork = 10 * n, tryrac = 1;
  double vl = 0, vu = 0;
  std::vector<double> w(n), work(lwork);
  std::vector<Z> z(static_cast<size_t>(n) * n);
  std::vector<int> isuppz(2 * n), iwork(liwork);
  using F = void (*)(const char*, const char*, const int*, double*, double*, const double*, const double*,
                     const int*, const int*, int*, double*, Z*, const int*, const int*, int*, int*, double*,
                     const int*, int*, const int*, int*, size_t, size_t);
  reference::fn<F>(sizeof(Z) == 8 ? "dstemr_" : "zstemr_")("V", range, &n, d.data(), e.data(), &vl, &vu, &il, &iu,
                                                          &m, w.data(), z.data(), &n, &nzc, isuppz.data(), &tryrac,
                                                          work.data(), &lwork, iwork.data(), &liwork, &info, 1, 1);
  w.resize(m);
  z.resize(static_cast<size_t>(m) * n);
  return {info, w, magnitudes(z)};
}

Outputs dstebz(int n) {
  auto d = randoms<double>(n, 35), e = randoms<double>(n, 36);
  int il = 1, iu = n, m = 0, nsplit = 0, info = 0;
  double vl = 0, vu = 0, abstol = 0;
  std::vector<double> w(n), work(4 * n);
  std::vector<int> iblock(n), isplit(n), iwork(3 * n);
  using F = void (*)(const char*, const char*, const int*, const double*, const double*, const int*, const int*,
                     const double*, const double*, const double*, int*, int*, double*, int*, int*, double*, int*,
                     int*, size_t, size_t);
  reference::fn<F>("dstebz_")("A", "E", &n, &vl, &vu, &il, &iu, &abstol, d.data(), e.data(), &m, &nsplit, w.data(),
                              iblock.data(), isplit.data(), work.data(), iwork.data(), &info, 1, 1);
  w.resize(m);
  return {info, w, as_double(iblock)};
}

struct Driven {
  const char* kernel;  // routed through the layer
  const char* caller;  // for the trace only
  std::function<Outputs()> run;
  double tolerance;
};

class KernelUnderReferenceCaller : public DivideConquer, public ::testing::WithParamInterface<Driven> {};

TEST_P(KernelUnderReferenceCaller, GivesTheReferenceResultsWithinItsScratchArrays) {
  const Driven& c = GetParam();
  SCOPED_TRACE(c.caller);
  g_routed.clear();
  const Outputs expected = c.run();
  route(c.kernel).calls = 0;
  {
    observe::GuardPages guard;
    g_routed = c.kernel;
    const Outputs got = c.run();
    g_routed.clear();
    EXPECT_GT(route(c.kernel).calls, 0) << "the caller never reached the kernel";
    EXPECT_EQ(got.info, expected.info);
    ASSERT_EQ(got.values.size(), expected.values.size());
    ASSERT_EQ(got.vectors.size(), expected.vectors.size());
    double scale = 1;
    for (double x : expected.values) scale = std::max(scale, std::abs(x));
    EXPECT_LT(max_diff(got.values, expected.values), c.tolerance * scale);
    EXPECT_LT(max_diff(got.vectors, expected.vectors), 100 * c.tolerance);
  }
  EXPECT_EQ(observe::reports().size(), 0u);
}

constexpr double kD = 1e-10, kS = 2e-3;

INSTANTIATE_TEST_SUITE_P(
    Kernels, KernelUnderReferenceCaller,
    ::testing::Values(
        Driven{"dlaed7", "DLAED0 vectors N=200", [] { return laed0<double>(1, 200); }, kD},
        Driven{"dlaed7", "DLAED0 values N=301", [] { return laed0<double>(0, 301); }, kD},
        Driven{"slaed7", "SLAED0 vectors N=130", [] { return laed0<float>(1, 130); }, kS},
        Driven{"claed7", "CLAED0 N=130", [] { return claed0<float>(130); }, kS},
        Driven{"zlaed7", "ZLAED0 N=200", [] { return claed0<double>(200); }, kD},
        Driven{"dlaed8", "DLAED0 vectors N=200", [] { return laed0<double>(1, 200); }, kD},
        Driven{"slaed8", "SLAED0 vectors N=130", [] { return laed0<float>(1, 130); }, kS},
        Driven{"claed8", "CLAED0 N=130", [] { return claed0<float>(130); }, kS},
        Driven{"zlaed8", "ZLAED0 N=200", [] { return claed0<double>(200); }, kD},
        // ?LAEDA's arrays are sized by the subproblem's N ln N while ?LAED7
        // hands it whole-tree arrays; from five merge levels on (N = 420) the
        // library reads past them, as those sizes are set. Each N here keeps
        // every subproblem's N ln N and 2N ln N at least an eighth past a
        // whole number, where the specified copy stays within its block.
        Driven{"dlaeda", "DLAED0 vectors N=224", [] { return laed0<double>(1, 224); }, kD},
        Driven{"slaeda", "SLAED0 vectors N=64", [] { return laed0<float>(1, 64); }, kS},
        Driven{"dlaed9", "DLAED0 values N=200", [] { return laed0<double>(0, 200); }, kD},
        Driven{"slaed9", "CLAED0 N=130", [] { return claed0<float>(130); }, kS},
        Driven{"dlaed1", "DLAED0 ICOMPQ=2 N=200", [] { return laed0<double>(2, 200); }, kD},
        Driven{"dlaed2", "DLAED0 ICOMPQ=2 N=200", [] { return laed0<double>(2, 200); }, kD},
        Driven{"dlaed3", "DLAED0 ICOMPQ=2 N=200", [] { return laed0<double>(2, 200); }, kD},
        Driven{"dlaed0", "DSTEDC N=200", [] { return dstedc(200); }, kD},
        Driven{"dlaed4", "DLAED0 ICOMPQ=2 N=200", [] { return laed0<double>(2, 200); }, kD},
        Driven{"dlaed5", "DLAED4 N=2", [] { return dlaed4(2); }, kD},
        Driven{"dlaed6", "DBDSDC 'I' N=150", [] { return dbdsdc("I", 150); }, kD},
        Driven{"dlasd0", "DBDSDC 'I' N=150", [] { return dbdsdc("I", 150); }, kD},
        Driven{"dlasd1", "DBDSDC 'I' N=150", [] { return dbdsdc("I", 150); }, kD},
        Driven{"dlasd2", "DBDSDC 'I' N=150", [] { return dbdsdc("I", 150); }, kD},
        Driven{"dlasd3", "DBDSDC 'I' N=150", [] { return dbdsdc("I", 150); }, kD},
        Driven{"dlasd4", "DBDSDC 'I' N=150", [] { return dbdsdc("I", 150); }, kD},
        Driven{"dlasd5", "DLASD4 N=2", [] { return dlasd4(2); }, kD},
        Driven{"dlasdt", "DBDSDC 'I' N=150", [] { return dbdsdc("I", 150); }, kD},
        Driven{"dlasda", "DBDSDC 'P' N=150", [] { return dbdsdc("P", 150); }, kD},
        Driven{"dlasd6", "DBDSDC 'P' N=150", [] { return dbdsdc("P", 150); }, kD},
        Driven{"dlasd7", "DBDSDC 'P' N=150", [] { return dbdsdc("P", 150); }, kD},
        Driven{"dlasd8", "DBDSDC 'P' N=150", [] { return dbdsdc("P", 150); }, kD},
        Driven{"dlalsa", "DGELSD N=150", [] { return dgelsd(150); }, 1e-8},
        Driven{"dlals0", "DGELSD N=150", [] { return dgelsd(150); }, 1e-8},
        Driven{"dlarre", "DSTEMR 'A' N=120", [] { return stemr<double>("A", 120); }, kD},
        Driven{"dlarrv", "DSTEMR 'A' N=120", [] { return stemr<double>("A", 120); }, kD},
        Driven{"zlarrv", "ZSTEMR 'A' N=120", [] { return stemr<zd>("A", 120); }, kD},
        Driven{"dlarrd", "DSTEMR 'I' N=120", [] { return stemr<double>("I", 120); }, kD},
        Driven{"dlarrb", "DSTEMR 'I' N=120", [] { return stemr<double>("I", 120); }, kD},
        Driven{"dlaebz", "DSTEBZ N=120", [] { return dstebz(120); }, kD}),
    [](const ::testing::TestParamInfo<Driven>& info) {
      return std::string(info.param.kernel) + "_" + std::to_string(info.index);
    });

}  // namespace
