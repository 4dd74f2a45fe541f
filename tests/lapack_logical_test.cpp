// Logical arrays (SELECT, BWORK) and selection callbacks: taken only when the
// routine references them, option letters in either case, copied back only
// where the routine may change them; results against the reference LAPACK.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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
std::atomic<int> g_selections{0};

// A caller's LOGICAL FUNCTION in the LP64 manner: 32-bit result.
extern "C" int negative_real(const double* wr, const double* /*wi*/) {
  ++g_selections;
  return *wr < 0.0 ? 1 : 0;
}
extern "C" int negative_real_z(const zd* w) {
  ++g_selections;
  return w->real() < 0.0 ? 1 : 0;
}

bool untouched(const std::vector<int>& v) {
  return std::all_of(v.begin(), v.end(), [](int x) { return x == kSentinel; });
}

class Logical : public ::testing::Test {
 protected:
  void SetUp() override {
    observe::reset();
    reference::reset();
    g_selections = 0;
  }
  void TearDown() override { EXPECT_EQ(observe::outstanding_blocks(), 0u); }
};

using select2 = int (*)(const double*, const double*);
using ref_gees = void (*)(const char*, const char*, select2, const int*, double*, const int*, int*, double*,
                          double*, double*, const int*, double*, const int*, int*, int*, size_t, size_t);

// Real Schur form of a random matrix with the reference, for the routines
// that start from one.
struct Schur {
  int n;
  std::vector<double> t, q, wr, wi;
};
Schur schur_form(int n, unsigned seed) {
  Schur s{n, random_matrix(n, n, seed), std::vector<double>(n * n), std::vector<double>(n), std::vector<double>(n)};
  int sdim = 0, lwork = 10 * n, info = 0;
  std::vector<double> work(lwork);
  std::vector<int> bwork(n);
  reference::fn<ref_gees>("dgees_")("V", "N", nullptr, &n, s.t.data(), &n, &sdim, s.wr.data(), s.wi.data(),
                                    s.q.data(), &n, work.data(), &lwork, bwork.data(), &info, 1, 1);
  return s;
}

// ------------------------------------------------------------ BWORK

TEST_F(Logical, DgeesSortsThroughTheCallersCallback) {
  int n = 9, lwork = 90, sdim = -1, sdim_ref = -1, info = 0, info_ref = 0;
  for (const char* sort : {"S", "s"}) {
    SCOPED_TRACE(sort);
    observe::reset();
    auto a = random_matrix(n, n, 1), ar = a;
    std::vector<double> wr(n), wi(n), wrr(n), wir(n), vs(n * n), vsr(n * n), work(lwork);
    std::vector<int> bwork(n + 1, kSentinel), bwork_ref(n + 1, kSentinel);
    g_selections = 0;
    VORN_instable_dgees("V", sort, reinterpret_cast<void*>(&negative_real), &n, a.data(), &n, &sdim, wr.data(),
                        wi.data(), vs.data(), &n, work.data(), &lwork, bwork.data(), &info);
    EXPECT_GT(g_selections, 0) << "the callback was handed on";
    reference::fn<ref_gees>("dgees_")("V", sort, &negative_real, &n, ar.data(), &n, &sdim_ref, wrr.data(),
                                      wir.data(), vsr.data(), &n, work.data(), &lwork, bwork_ref.data(), &info_ref,
                                      1, 1);
    EXPECT_EQ(info, info_ref);
    EXPECT_EQ(sdim, sdim_ref);
    EXPECT_GT(sdim, 0);
    for (int i = 0; i < sdim; ++i) EXPECT_LT(wr[i], 0.0);
    EXPECT_LT(max_diff(wr, wrr), 1e-10);
    EXPECT_EQ(allocation_sizes(), std::vector<size_t>{n * 8u});
    EXPECT_EQ(std::count(bwork.begin(), bwork.begin() + n, kSentinel), 0) << "N elements come back";
    EXPECT_EQ(bwork[n], kSentinel);
  }
}

TEST_F(Logical, DgeesTakesNoBworkWithoutSortingOrOnAQuery) {
  int n = 5, lwork = 50, sdim = 0, info = 0;
  auto a = random_matrix(n, n, 2);
  std::vector<double> wr(n), wi(n), vs(n * n), work(lwork);
  std::vector<int> bwork(n, kSentinel);
  VORN_instable_DGEES("V", "N", reinterpret_cast<void*>(&negative_real), &n, a.data(), &n, &sdim, wr.data(),
                      wi.data(), vs.data(), &n, work.data(), &lwork, bwork.data(), &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(g_selections, 0);
  lwork = -1;
  VORN_instable_dgees_("V", "s", reinterpret_cast<void*>(&negative_real), &n, a.data(), &n, &sdim, wr.data(),
                       wi.data(), vs.data(), &n, work.data(), &lwork, bwork.data(), &info);
  EXPECT_EQ(info, 0);
  EXPECT_GE(work[0], 3.0 * n);
  EXPECT_TRUE(allocation_sizes().empty());
  EXPECT_TRUE(untouched(bwork));
}

using select1z = int (*)(const zd*);
using ref_zgees = void (*)(const char*, const char*, select1z, const int*, zd*, const int*, int*, zd*, zd*,
                           const int*, zd*, const int*, double*, int*, int*, size_t, size_t);

TEST_F(Logical, ZgeesSortsLikeTheReference) {
  int n = 7, lwork = 70, sdim = 0, sdim_ref = 0, info = 0, info_ref = 0;
  auto re = random_matrix(2 * n, n, 3);
  std::vector<zd> a(n * n), w(n), wr(n), vs(n * n), work(lwork);
  std::memcpy(a.data(), re.data(), sizeof(zd) * a.size());
  auto ar = a;
  std::vector<double> rwork(n);
  std::vector<int> bwork(n), bwork_ref(n);
  VORN_instable_zgees("V", "S", reinterpret_cast<void*>(&negative_real_z), &n, reinterpret_cast<double*>(a.data()),
                      &n, &sdim, reinterpret_cast<double*>(w.data()), reinterpret_cast<double*>(vs.data()), &n,
                      reinterpret_cast<double*>(work.data()), &lwork, rwork.data(), bwork.data(), &info);
  reference::fn<ref_zgees>("zgees_")("V", "S", &negative_real_z, &n, ar.data(), &n, &sdim_ref, wr.data(), vs.data(),
                                     &n, work.data(), &lwork, rwork.data(), bwork_ref.data(), &info_ref, 1, 1);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(sdim, sdim_ref);
  for (int i = 0; i < n; ++i) EXPECT_LT(std::abs(w[i] - wr[i]), 1e-10);
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{n * 8u});
}

using ref_ggevx = void (*)(const char*, const char*, const char*, const char*, const int*, double*, const int*,
                           double*, const int*, double*, double*, double*, double*, const int*, double*, const int*,
                           int*, int*, double*, double*, double*, double*, double*, double*, double*, const int*,
                           int*, int*, int*, size_t, size_t, size_t, size_t);

TEST_F(Logical, DggevxTakesIworkAndBworkBySense) {
  int n = 5, lwork = 1000;
  struct Case {
    const char* sense;
    std::vector<size_t> sizes;
  };
  const size_t iwork_bytes = (n + 6) * 8u, bwork_bytes = n * 8u;
  for (const Case& c : {Case{"N", {iwork_bytes}}, Case{"E", {bwork_bytes}}, Case{"b", {iwork_bytes, bwork_bytes}},
                        Case{"V", {iwork_bytes, bwork_bytes}}}) {
    SCOPED_TRACE(c.sense);
    observe::reset();
    auto a = random_matrix(n, n, 4), b = random_matrix(n, n, 5), ar = a, br = b;
    std::vector<double> alphar(n), alphai(n), beta(n), vl(n * n), vr(n * n), lscale(n), rscale(n), rconde(n),
        rcondv(n), work(lwork);
    auto alphar_r = alphar, alphai_r = alphai, beta_r = beta, rconde_r = rconde, rcondv_r = rcondv;
    std::vector<int> iwork(n + 6, kSentinel), bwork(n + 1, kSentinel), iwork_r(n + 6), bwork_r(n + 1);
    int ilo = 0, ihi = 0, info = 0, info_ref = 0;
    double abnrm = 0, bbnrm = 0;
    VORN_instable_dggevx("B", "V", "V", c.sense, &n, a.data(), &n, b.data(), &n, alphar.data(), alphai.data(),
                         beta.data(), vl.data(), &n, vr.data(), &n, &ilo, &ihi, lscale.data(), rscale.data(), &abnrm,
                         &bbnrm, rconde.data(), rcondv.data(), work.data(), &lwork, iwork.data(), bwork.data(),
                         &info);
    reference::fn<ref_ggevx>("dggevx_")("B", "V", "V", c.sense, &n, ar.data(), &n, br.data(), &n, alphar_r.data(),
                                        alphai_r.data(), beta_r.data(), vl.data(), &n, vr.data(), &n, &ilo, &ihi,
                                        lscale.data(), rscale.data(), &abnrm, &bbnrm, rconde_r.data(),
                                        rcondv_r.data(), work.data(), &lwork, iwork_r.data(), bwork_r.data(),
                                        &info_ref, 1, 1, 1, 1);
    EXPECT_EQ(info, info_ref);
    EXPECT_EQ(allocation_sizes(), c.sizes);
    EXPECT_TRUE(untouched(iwork));
    EXPECT_EQ(bwork[n], kSentinel);
    if (c.sizes.back() == bwork_bytes) {
      EXPECT_EQ(std::count(bwork.begin(), bwork.begin() + n, kSentinel), 0);
    } else {
      EXPECT_TRUE(untouched(bwork));
    }
    if (c.sense[0] == 'E' || c.sense[0] == 'b') EXPECT_LT(max_diff(rconde, rconde_r), 1e-8);
  }
}

// ------------------------------------------------------------ SELECT

using ref_trevc = void (*)(const char*, const char*, int*, const int*, const double*, const int*, double*,
                           const int*, double*, const int*, const int*, int*, double*, int*, size_t, size_t);

TEST_F(Logical, DtrevcReturnsTheSelectionItAdjusted) {
  const int n = 8;
  Schur s;
  int pair = -1;
  for (unsigned seed = 10; pair < 0; ++seed) {
    s = schur_form(n, seed);
    for (int j = 0; j + 1 < n && pair < 0; ++j)
      if (s.wi[j] != 0.0) pair = j;
  }
  std::vector<int> select(n, 0), select_ref(n, 0);
  select[pair + 1] = 1;  // the second of the pair only
  select_ref = select;
  int nn = n, mm = n, m = 0, m_ref = 0, info = 0, info_ref = 0;
  std::vector<double> vr(n * n), vrr(n * n), work(3 * n);
  VORN_instable_dtrevc("R", "s", select.data(), &nn, s.t.data(), &nn, nullptr, &nn, vr.data(), &nn, &mm, &m,
                       work.data(), &info);
  reference::fn<ref_trevc>("dtrevc_")("R", "S", select_ref.data(), &nn, s.t.data(), &nn, nullptr, &nn, vrr.data(),
                                      &nn, &mm, &m_ref, work.data(), &info_ref, 1, 1);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(m, m_ref);
  EXPECT_EQ(select, select_ref) << "the routine's change to the pair comes back";
  EXPECT_EQ(select[pair], 1);
  EXPECT_LT(max_diff(vr, vrr), 1e-10);
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{n * 8u});
}

TEST_F(Logical, TrevcTakesSelectOnlyForHowmnyS) {
  int zero = 0, one = 1, m = 0, info = 0;
  double t = 1.0, v = 0.0, work[3];
  int select = kSentinel;
  VORN_instable_DTREVC("R", "S", &select, &zero, &t, &one, &v, &one, &v, &one, &one, &m, work, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(select, kSentinel);
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{8});
  observe::reset();
  VORN_instable_DTREVC("R", "A", &select, &one, &t, &one, &v, &one, &v, &one, &one, &m, work, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(v, 1.0);
  EXPECT_TRUE(allocation_sizes().empty());
}

using ref_ztrevc = void (*)(const char*, const char*, const int*, const int*, zd*, const int*, zd*, const int*, zd*,
                            const int*, const int*, int*, zd*, double*, int*, size_t, size_t);

TEST_F(Logical, ZtrevcMatchesTheReference) {
  int n = 6, mm = 6, m = 0, m_ref = 0, info = 0, info_ref = 0;
  auto re = random_matrix(2 * n, n, 20);
  std::vector<zd> t(n * n, 0.0);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i <= j; ++i) t[i + j * n] = zd(re[2 * (i + j * n)], re[2 * (i + j * n) + 1]);
  auto tr = t;
  std::vector<int> select = {1, 0, 1, 0, 0, 1}, select_ref = select;
  std::vector<zd> vr(n * n), vrr(n * n), work(2 * n);
  std::vector<double> rwork(n);
  VORN_instable_ztrevc("R", "S", select.data(), &n, reinterpret_cast<double*>(t.data()), &n, nullptr, &n,
                       reinterpret_cast<double*>(vr.data()), &n, &mm, &m, reinterpret_cast<double*>(work.data()),
                       rwork.data(), &info);
  reference::fn<ref_ztrevc>("ztrevc_")("R", "S", select_ref.data(), &n, tr.data(), &n, nullptr, &n, vrr.data(), &n,
                                       &mm, &m_ref, work.data(), rwork.data(), &info_ref, 1, 1);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(m, 3);
  EXPECT_EQ(m, m_ref);
  for (int i = 0; i < n * m; ++i) EXPECT_LT(std::abs(vr[i] - vrr[i]), 1e-10);
  EXPECT_EQ(select, (std::vector<int>{1, 0, 1, 0, 0, 1}));
}

using ref_hsein = void (*)(const char*, const char*, const char*, int*, const int*, const double*, const int*,
                           double*, const double*, double*, const int*, double*, const int*, const int*, int*,
                           double*, int*, int*, int*, size_t, size_t, size_t);
using ref_hseqr = void (*)(const char*, const char*, const int*, const int*, const int*, double*, const int*, double*,
                           double*, double*, const int*, double*, const int*, int*, size_t, size_t);

TEST_F(Logical, DhseinConvertsIfailOnlyForItsSide) {
  int n = 7, one = 1, info = 0;
  auto h = random_matrix(n, n, 30);
  for (int j = 0; j < n; ++j)
    for (int i = j + 2; i < n; ++i) h[i + j * n] = 0.0;
  auto hs = h;
  std::vector<double> wr(n), wi(n), z(1), work(n * n + 2 * n);
  int lwork = static_cast<int>(work.size());
  reference::fn<ref_hseqr>("dhseqr_")("E", "N", &n, &one, &n, hs.data(), &n, wr.data(), wi.data(), z.data(), &one,
                                      work.data(), &lwork, &info, 1, 1);
  ASSERT_EQ(info, 0);
  for (const char* side : {"R", "l"}) {
    SCOPED_TRACE(side);
    observe::reset();
    std::vector<int> select(n, 1), select_ref(n, 1);
    select[1] = 0;
    select_ref = select;
    auto wr1 = wr, wr2 = wr;
    int mm = n, m = 0, m_ref = 0, info_ref = 0;
    std::vector<double> v(n * n), vref(n * n), w((n + 2) * n);
    std::vector<int> ifaill(n, kSentinel), ifailr(n, kSentinel), ifaill_ref(n, kSentinel), ifailr_ref(n, kSentinel);
    VORN_instable_dhsein(side, "N", "N", select.data(), &n, h.data(), &n, wr1.data(), wi.data(), v.data(), &n,
                         v.data(), &n, &mm, &m, w.data(), ifaill.data(), ifailr.data(), &info);
    reference::fn<ref_hsein>("dhsein_")(side, "N", "N", select_ref.data(), &n, h.data(), &n, wr2.data(), wi.data(),
                                        vref.data(), &n, vref.data(), &n, &mm, &m_ref, w.data(), ifaill_ref.data(),
                                        ifailr_ref.data(), &info_ref, 1, 1, 1);
    EXPECT_EQ(info, info_ref);
    EXPECT_EQ(m, m_ref);
    EXPECT_EQ(select, select_ref);
    EXPECT_LT(max_diff(v, vref), 1e-9);
    const bool right = side[0] == 'R';
    EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{n * 8u, n * 8u}));
    EXPECT_TRUE(untouched(right ? ifaill : ifailr));
    EXPECT_TRUE(std::equal(ifailr.begin(), ifailr.begin() + m, ifailr_ref.begin()));
    EXPECT_TRUE(std::equal(ifaill.begin(), ifaill.begin() + m, ifaill_ref.begin()));
  }
}

using ref_trsen = void (*)(const char*, const char*, const int*, const int*, double*, const int*, double*,
                           const int*, double*, double*, int*, double*, double*, double*, const int*, int*,
                           const int*, int*, size_t, size_t);

TEST_F(Logical, DtrsenReordersLikeTheReference) {
  const int n = 8;
  Schur s = schur_form(n, 40), r = s;
  std::vector<int> select(n, 0);
  for (int j = 0; j < n; ++j) select[j] = s.wr[j] > 0.0;
  const auto chosen = select;
  int nn = n, m = 0, m_ref = 0, info = 0, info_ref = 0, lwork = n * n, liwork = n * n;
  double sc = 0, sc_ref = 0, sep = 0, sep_ref = 0;
  std::vector<double> work(lwork);
  std::vector<int> iwork(liwork, kSentinel), iwork_ref(liwork), select_ref = select;
  VORN_instable_dtrsen("B", "V", select.data(), &nn, s.t.data(), &nn, s.q.data(), &nn, s.wr.data(), s.wi.data(), &m,
                       &sc, &sep, work.data(), &lwork, iwork.data(), &liwork, &info);
  reference::fn<ref_trsen>("dtrsen_")("B", "V", select_ref.data(), &nn, r.t.data(), &nn, r.q.data(), &nn,
                                      r.wr.data(), r.wi.data(), &m_ref, &sc_ref, &sep_ref, work.data(), &lwork,
                                      iwork_ref.data(), &liwork, &info_ref, 1, 1);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(m, m_ref);
  EXPECT_NEAR(sc, sc_ref, 1e-8 * sc_ref);
  EXPECT_NEAR(sep, sep_ref, 1e-8 * sep_ref);
  EXPECT_LT(max_diff(s.wr, r.wr), 1e-10);
  EXPECT_EQ(select, chosen);
  EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{n * 8u, static_cast<size_t>(liwork) * 8}));
  EXPECT_NE(iwork[0], kSentinel);
  EXPECT_TRUE(std::all_of(iwork.begin() + 1, iwork.end(), [](int x) { return x == kSentinel; }));
}

}  // namespace
