// Integer workspaces and index outputs of the eigen- and singular-value
// routines: the lengths the layer obtains, what a workspace query hands the
// library, which elements come back, against the reference LAPACK.
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

using i64 = long long;
using zd = std::complex<double>;

namespace {

using namespace fixtures;
std::atomic<i64> g_seen_lwork{0}, g_seen_liwork{0};
std::vector<i64> g_isgn_in, g_isgn_out, g_isave_in, g_isave_out;
i64 g_kase_in = 0;
}  // namespace

// What MKL's DSYEVD is handed for its two workspace lengths.
extern "C" void mkl_lapack_dsyevd(const char* jobz, const char* uplo, const i64* n, double* a, const i64* lda,
                                  double* w, double* work, const i64* lwork, i64* iwork, const i64* liwork, i64* info,
                                  int l1, int l2) {
  observe::note_entry("mkl_lapack_dsyevd", __builtin_return_address(0));
  g_seen_lwork = *lwork;
  g_seen_liwork = *liwork;
  using F = void (*)(const char*, const char*, const i64*, double*, const i64*, double*, double*, const i64*, i64*,
                     const i64*, i64*, int, int);
  static const auto real = reinterpret_cast<F>(observe::next("mkl_lapack_dsyevd"));
  real(jobz, uplo, n, a, lda, w, work, lwork, iwork, liwork, info, l1, l2);
}

// DLACN2's sign vector and saved state as MKL receives and leaves them.
extern "C" void mkl_lapack_dlacn2(const i64* n, double* v, double* x, i64* isgn, double* est, i64* kase,
                                  i64* isave) {
  observe::note_entry("mkl_lapack_dlacn2", __builtin_return_address(0));
  g_isgn_in.assign(isgn, isgn + *n);
  g_isave_in.assign(isave, isave + 3);
  g_kase_in = *kase;
  using F = void (*)(const i64*, double*, double*, i64*, double*, i64*, i64*);
  static const auto real = reinterpret_cast<F>(observe::next("mkl_lapack_dlacn2"));
  real(n, v, x, isgn, est, kase, isave);
  g_isgn_out.assign(isgn, isgn + *n);
  g_isave_out.assign(isave, isave + 3);
}

namespace {

constexpr int kSentinel = 0x5A5A5A5A;

bool untouched(const std::vector<int>& v, size_t from = 0) {
  return std::all_of(v.begin() + static_cast<long>(from), v.end(), [](int x) { return x == kSentinel; });
}

class Workspace : public ::testing::Test {
 protected:
  void SetUp() override {
    observe::reset();
    reference::reset();
  }
  void TearDown() override { EXPECT_EQ(observe::outstanding_blocks(), 0u); }
};

// ------------------------------------------------------------ length queries

using ref_syevd = void (*)(const char*, const char*, const int*, double*, const int*, double*, double*, const int*,
                           int*, const int*, int*, size_t, size_t);

TEST_F(Workspace, DsyevdGivesBackOnlyIwork1) {
  int n = 12, lwork = 1 + 6 * 12 + 2 * 144, liwork = 3 + 5 * 12, info = 0, info_ref = 0;
  auto a = symmetric_matrix(n, 1), ar = a;
  std::vector<double> w(n), wr(n), work(lwork);
  std::vector<int> iwork(liwork, kSentinel), iwork_ref(liwork);
  VORN_instable_dsyevd("V", "U", &n, a.data(), &n, w.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
  reference::fn<ref_syevd>("dsyevd_")("V", "U", &n, ar.data(), &n, wr.data(), work.data(), &lwork,
                                      iwork_ref.data(), &liwork, &info_ref, 1, 1);
  EXPECT_EQ(info, info_ref);
  EXPECT_LT(max_diff(w, wr), 1e-12);
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{static_cast<size_t>(liwork) * 8});
  EXPECT_NE(iwork[0], kSentinel);
  EXPECT_TRUE(untouched(iwork, 1));
}

TEST_F(Workspace, DsyevdMixedQueryBecomesAFullQuery) {
  int n = 10, lwork = -1, liwork = 100, info = 0;
  auto a = symmetric_matrix(n, 2);
  std::vector<double> w(n), work(1);
  std::vector<int> iwork(100, kSentinel);
  VORN_instable_DSYEVD("V", "L", &n, a.data(), &n, w.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(g_seen_lwork, -1);
  EXPECT_EQ(g_seen_liwork, -1);
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{8});
  EXPECT_GE(iwork[0], 3 + 5 * n);  // the optimal LIWORK
  EXPECT_TRUE(untouched(iwork, 1));
}

TEST_F(Workspace, DsyevdPrecheckStillWritesInfoAndIwork1) {
  int n = 4, lwork = 100, liwork = 0, info = 0;
  auto a = symmetric_matrix(n, 3);
  std::vector<double> w(n), work(100);
  std::vector<int> iwork(4, kSentinel);
  g_seen_liwork = 12345;
  VORN_instable_dsyevd_("V", "U", &n, a.data(), &n, w.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
  EXPECT_EQ(info, -10);
  ASSERT_EQ(observe::reports().size(), 1u);
  EXPECT_EQ(observe::reports()[0].name, "DSYEVD");
  EXPECT_EQ(observe::reports()[0].position, 10);
  EXPECT_EQ(g_seen_liwork, 12345) << "the library was called";
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{8});
  EXPECT_TRUE(untouched(iwork, 1));
}

using ref_stevd = void (*)(const char*, const int*, double*, double*, double*, const int*, double*, const int*, int*,
                           const int*, int*, size_t);

TEST_F(Workspace, DstevdWithZeroLiworkIsReportedByTheLibrary) {
  int n = 5, ldz = 1, lwork = 10, liwork = 0, info = 0, info_ref = 0;
  std::vector<double> d(n, 2.0), e(n, 1.0), z(1), work(10);
  std::vector<int> iwork(2, kSentinel);
  auto dr = d, er = e;
  VORN_instable_dstevd("N", &n, d.data(), e.data(), z.data(), &ldz, work.data(), &lwork, iwork.data(), &liwork,
                       &info);
  reference::fn<ref_stevd>("dstevd_")("N", &n, dr.data(), er.data(), z.data(), &ldz, work.data(), &lwork,
                                      iwork.data(), &liwork, &info_ref, 1);
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{8});
  EXPECT_EQ(info, info_ref);
  ASSERT_EQ(observe::reports().size(), 1u);
  ASSERT_EQ(reference::reports().size(), 1u);
  EXPECT_EQ(observe::reports()[0].name, reference::reports()[0].name);
  EXPECT_EQ(observe::reports()[0].position, reference::reports()[0].position);
}

using ref_heevd = void (*)(const char*, const char*, const int*, zd*, const int*, double*, zd*, const int*, double*,
                           const int*, int*, const int*, int*, size_t, size_t);

TEST_F(Workspace, ZheevdMatchesAndItsPrecheckGuardsLrwork) {
  int n = 6, lda = 6, lwork = 48, lrwork = 1 + 5 * 6 + 2 * 36, liwork = 3 + 5 * 6, info = 0, info_ref = 0;
  auto re = random_matrix(2 * n, n, 4);
  std::vector<zd> a(n * n);
  std::memcpy(a.data(), re.data(), sizeof(zd) * a.size());
  for (int j = 0; j < n; ++j) {
    a[j + j * n] = a[j + j * n].real();
    for (int i = 0; i < j; ++i) a[i + j * n] = std::conj(a[j + i * n]);
  }
  auto ar = a;
  std::vector<zd> work(lwork);
  std::vector<double> w(n), wr(n), rwork(lrwork);
  std::vector<int> iwork(liwork, kSentinel), iwork_ref(liwork);
  VORN_instable_ZHEEVD("V", "U", &n, reinterpret_cast<double*>(a.data()), &lda, w.data(),
                       reinterpret_cast<double*>(work.data()), &lwork, rwork.data(), &lrwork, iwork.data(), &liwork,
                       &info);
  reference::fn<ref_heevd>("zheevd_")("V", "U", &n, ar.data(), &lda, wr.data(), work.data(), &lwork, rwork.data(),
                                      &lrwork, iwork_ref.data(), &liwork, &info_ref, 1, 1);
  EXPECT_EQ(info, info_ref);
  EXPECT_LT(max_diff(w, wr), 1e-12);
  EXPECT_TRUE(untouched(iwork, 1));

  int short_lrwork = 5;
  observe::reset();
  VORN_instable_zheevd("V", "U", &n, reinterpret_cast<double*>(a.data()), &lda, w.data(),
                       reinterpret_cast<double*>(work.data()), &lwork, rwork.data(), &short_lrwork, iwork.data(),
                       &liwork, &info);
  EXPECT_EQ(info, -10);
  ASSERT_EQ(observe::reports().size(), 1u);
  EXPECT_EQ(observe::reports()[0].name, "ZHEEVD");
  EXPECT_EQ(observe::reports()[0].position, 10);
}

// ------------------------------------------------------------ ISUPPZ, IFAIL

using ref_syevr = void (*)(const char*, const char*, const char*, const int*, double*, const int*, const double*,
                           const double*, const int*, const int*, const double*, int*, double*, double*, const int*,
                           int*, double*, const int*, int*, const int*, int*, size_t, size_t, size_t);

TEST_F(Workspace, DsyevrTakesIsuppzOnlyForEveryEigenvector) {
  const int n = 8;
  struct Case {
    const char* jobz;
    const char* range;
    int il, iu;
    bool isuppz;
  };
  for (Case c : {Case{"V", "A", 0, 0, true}, Case{"v", "I", 1, n, true}, Case{"V", "I", 2, 5, false},
                 Case{"V", "V", 0, 0, false}, Case{"N", "A", 0, 0, false}}) {
    SCOPED_TRACE(std::string(c.jobz) + c.range + std::to_string(c.il));
    observe::reset();
    auto a = symmetric_matrix(n, 5), ar = a;
    int nn = n, lwork = 26 * n, liwork = 10 * n, m = -7, m_ref = -7, info = 0, info_ref = 0;
    double vl = -0.5, vu = 0.5, abstol = 0;
    std::vector<double> w(n), wr(n), z(n * n), zr(n * n), work(lwork);
    std::vector<int> isuppz(2 * n + 2, kSentinel), isuppz_ref(2 * n + 2, kSentinel), iwork(liwork, kSentinel),
        iwork_ref(liwork);
    VORN_instable_dsyevr(c.jobz, c.range, "U", &nn, a.data(), &nn, &vl, &vu, &c.il, &c.iu, &abstol, &m, w.data(),
                         z.data(), &nn, isuppz.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
    reference::fn<ref_syevr>("dsyevr_")(c.jobz, c.range, "U", &nn, ar.data(), &nn, &vl, &vu, &c.il, &c.iu, &abstol,
                                        &m_ref, wr.data(), zr.data(), &nn, isuppz_ref.data(), work.data(), &lwork,
                                        iwork_ref.data(), &liwork, &info_ref, 1, 1, 1);
    EXPECT_EQ(info, info_ref);
    ASSERT_EQ(m, m_ref);
    EXPECT_LT(max_diff(w.data(), wr.data(), m), 1e-12);
    EXPECT_EQ(allocation_sizes().size(), c.isuppz ? 2u : 1u);
    if (c.isuppz) {
      EXPECT_EQ(allocation_sizes()[0], 2u * n * 8);
      EXPECT_TRUE(std::equal(isuppz.begin(), isuppz.begin() + 2 * m, isuppz_ref.begin()));
      EXPECT_TRUE(untouched(isuppz, 2 * m));
    } else {
      EXPECT_TRUE(untouched(isuppz));
    }
    EXPECT_TRUE(untouched(iwork, 1));
  }
}

using ref_syevx = void (*)(const char*, const char*, const char*, const int*, double*, const int*, const double*,
                           const double*, const int*, const int*, const double*, int*, double*, double*, const int*,
                           double*, const int*, int*, int*, int*, size_t, size_t, size_t);

TEST_F(Workspace, DsyevxWritesIfailOnlyWithEigenvectors) {
  const int n = 7;
  for (const char* jobz : {"N", "V", "v"}) {
    SCOPED_TRACE(jobz);
    observe::reset();
    auto a = symmetric_matrix(n, 6), ar = a;
    int nn = n, il = 2, iu = 4, m = 0, m_ref = 0, info = 0, info_ref = 0, lwork = 8 * n;
    double vl = 0, vu = 0, abstol = 0;
    std::vector<double> w(n), wr(n), z(n * n), zr(n * n), work(lwork);
    std::vector<int> iwork(5 * n, kSentinel), iwork_ref(5 * n), ifail(n + 1, kSentinel), ifail_ref(n + 1, kSentinel);
    VORN_instable_DSYEVX_(jobz, "I", "L", &nn, a.data(), &nn, &vl, &vu, &il, &iu, &abstol, &m, w.data(), z.data(),
                          &nn, work.data(), &lwork, iwork.data(), ifail.data(), &info);
    reference::fn<ref_syevx>("dsyevx_")(jobz, "I", "L", &nn, ar.data(), &nn, &vl, &vu, &il, &iu, &abstol, &m_ref,
                                        wr.data(), zr.data(), &nn, work.data(), &lwork, iwork_ref.data(),
                                        ifail_ref.data(), &info_ref, 1, 1, 1);
    EXPECT_EQ(info, info_ref);
    EXPECT_EQ(m, 3);
    EXPECT_EQ(m, m_ref);
    EXPECT_LT(max_diff(w.data(), wr.data(), m), 1e-12);
    EXPECT_TRUE(untouched(iwork));
    const bool vectors = jobz[0] != 'N';
    const std::vector<size_t> expected =
        vectors ? std::vector<size_t>{5u * n * 8, n * 8u} : std::vector<size_t>{5u * n * 8};
    EXPECT_EQ(allocation_sizes(), expected);
    if (vectors) {
      // N elements come back, of which the library set the first M.
      EXPECT_TRUE(std::equal(ifail.begin(), ifail.begin() + m, ifail_ref.begin()));
      EXPECT_EQ(std::count(ifail.begin(), ifail.begin() + n, kSentinel), 0);
      EXPECT_EQ(ifail[n], kSentinel);
    } else {
      EXPECT_TRUE(untouched(ifail));
    }
  }
  int nn = n, il = 1, iu = 2, m = 0, info = 0, lwork = -1;
  double vl = 0, vu = 0, abstol = 0, a[49] = {}, w[7], z[49], work[1];
  std::vector<int> iwork(5 * n, kSentinel), ifail(n, kSentinel);
  observe::reset();
  VORN_instable_dsyevx("V", "I", "U", &nn, a, &nn, &vl, &vu, &il, &iu, &abstol, &m, w, z, &nn, work, &lwork,
                       iwork.data(), ifail.data(), &info);
  EXPECT_EQ(info, 0);
  EXPECT_GE(work[0], 8.0 * n);
  EXPECT_TRUE(allocation_sizes().empty());
  EXPECT_TRUE(untouched(ifail));
}

// ------------------------------------------------------------ fixed formulas

using ref_gesdd = void (*)(const char*, const int*, const int*, double*, const int*, double*, double*, const int*,
                           double*, const int*, double*, const int*, int*, int*, size_t);

TEST_F(Workspace, DgesddSkipsIworkOnQueryAndMatches) {
  int m = 9, n = 6, lwork = -1, info = 0, info_ref = 0;
  auto a = random_matrix(m, n, 7), ar = a;
  std::vector<double> s(n), sr(n), u(m * m), vt(n * n), work(1);
  std::vector<int> iwork(8 * n, kSentinel), iwork_ref(8 * n);
  VORN_instable_dgesdd("A", &m, &n, a.data(), &m, s.data(), u.data(), &m, vt.data(), &n, work.data(), &lwork,
                       iwork.data(), &info);
  EXPECT_EQ(info, 0);
  EXPECT_TRUE(allocation_sizes().empty());
  lwork = static_cast<int>(work[0]);
  work.resize(lwork);
  VORN_instable_dgesdd("A", &m, &n, a.data(), &m, s.data(), u.data(), &m, vt.data(), &n, work.data(), &lwork,
                       iwork.data(), &info);
  reference::fn<ref_gesdd>("dgesdd_")("A", &m, &n, ar.data(), &m, sr.data(), u.data(), &m, vt.data(), &n,
                                      work.data(), &lwork, iwork_ref.data(), &info_ref, 1);
  EXPECT_EQ(info, info_ref);
  EXPECT_LT(max_diff(s, sr), 1e-12);
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{8u * n * 8});
  EXPECT_TRUE(untouched(iwork));
}

using ref_stebz = void (*)(const char*, const char*, const int*, const double*, const double*, const int*,
                           const int*, const double*, const double*, const double*, int*, int*, double*, int*, int*,
                           double*, int*, int*, size_t, size_t);
using ref_stein = void (*)(const int*, const double*, const double*, const int*, const double*, const int*,
                           const int*, double*, const int*, double*, int*, int*, int*);

TEST_F(Workspace, DstebzAndDsteinMatchTheReference) {
  int n = 10, il = 1, iu = 0, m = 0, m_ref = 0, nsplit = 0, nsplit_ref = 0, info = 0, info_ref = 0;
  std::vector<double> d = random_matrix(n, 1, 8), e = random_matrix(n, 1, 9);
  e[4] = 0.0;  // two blocks
  double vl = -10, vu = 10, abstol = 0;
  std::vector<double> w(n), wr(n), work(4 * n);
  std::vector<int> iblock(n + 1, kSentinel), isplit(n + 1, kSentinel), iblock_ref(n + 1, kSentinel),
      isplit_ref(n + 1, kSentinel), iwork(3 * n);
  VORN_instable_dstebz("V", "B", &n, &vl, &vu, &il, &iu, &abstol, d.data(), e.data(), &m, &nsplit, w.data(),
                       iblock.data(), isplit.data(), work.data(), iwork.data(), &info);
  reference::fn<ref_stebz>("dstebz_")("V", "B", &n, &vl, &vu, &il, &iu, &abstol, d.data(), e.data(), &m_ref,
                                      &nsplit_ref, wr.data(), iblock_ref.data(), isplit_ref.data(), work.data(),
                                      iwork.data(), &info_ref, 1, 1);
  ASSERT_EQ(info, info_ref);
  ASSERT_EQ(m, n);
  EXPECT_EQ(m, m_ref);
  EXPECT_EQ(nsplit, 2);
  EXPECT_EQ(nsplit, nsplit_ref);
  EXPECT_LT(max_diff(w, wr), 1e-12);
  EXPECT_EQ(iblock, iblock_ref);
  // N elements come back, of which the library set the first NSPLIT.
  EXPECT_TRUE(std::equal(isplit.begin(), isplit.begin() + nsplit, isplit_ref.begin()));
  EXPECT_EQ(std::count(isplit.begin(), isplit.begin() + n, kSentinel), 0);
  EXPECT_EQ(isplit[n], kSentinel);
  EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{n * 8u, n * 8u, 3u * n * 8}));

  observe::reset();
  std::vector<double> z(n * m), zr(n * m), work5(5 * n);
  std::vector<int> ifail(m + 1, kSentinel), ifail_ref(m + 1, kSentinel), iwork_n(n, kSentinel);
  VORN_instable_DSTEIN(&n, d.data(), e.data(), &m, w.data(), iblock.data(), isplit.data(), z.data(), &n,
                       work5.data(), iwork_n.data(), ifail.data(), &info);
  reference::fn<ref_stein>("dstein_")(&n, d.data(), e.data(), &m, wr.data(), iblock_ref.data(), isplit_ref.data(),
                                      zr.data(), &n, work5.data(), iwork.data(), ifail_ref.data(), &info_ref);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(ifail, ifail_ref);
  for (int j = 0; j < m; ++j) {  // eigenvectors up to sign
    const double sign = z[j * n] * zr[j * n] < 0 ? -1.0 : 1.0;
    for (int i = 0; i < n; ++i) EXPECT_NEAR(z[i + j * n], sign * zr[i + j * n], 1e-9);
  }
  EXPECT_TRUE(untouched(iwork_n));
  EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{n * 8u, n * 8u, n * 8u, m * 8u}));
}

TEST_F(Workspace, Dlacn2HandsOnIsaveAndKaseButNeverTheCallersSigns) {
  const int n = 6;
  auto a = random_matrix(n, n, 10);
  double norm1 = 0;
  for (int j = 0; j < n; ++j) {
    double col = 0;
    for (int i = 0; i < n; ++i) col += std::abs(a[i + j * n]);
    norm1 = std::max(norm1, col);
  }
  int nn = n, kase = 0, calls = 0;
  std::vector<double> v(n), x(n);
  std::vector<int> isgn(n), isave(3, 0);
  double est = 0;
  do {
    std::fill(isgn.begin(), isgn.end(), 7);  // must not reach MKL
    const std::vector<i64> isave_before(isave.begin(), isave.end());
    const i64 kase_before = kase;
    VORN_instable_dlacn2(&nn, v.data(), x.data(), isgn.data(), &est, &kase, isave.data());
    ++calls;
    ASSERT_EQ(g_isgn_in.size(), static_cast<size_t>(n));
    EXPECT_TRUE(std::none_of(g_isgn_in.begin(), g_isgn_in.end(), [](i64 s) { return s == 7; }));
    EXPECT_EQ(std::vector<int>(g_isgn_out.begin(), g_isgn_out.end()), isgn) << "ISGN comes back";
    EXPECT_EQ(g_isave_in, isave_before);
    EXPECT_EQ(std::vector<int>(g_isave_out.begin(), g_isave_out.end()), isave);
    EXPECT_EQ(g_kase_in, kase_before);
    if (kase == 0) break;
    std::vector<double> y(n, 0.0);
    for (int i = 0; i < n; ++i)
      for (int j = 0; j < n; ++j) y[i] += (kase == 1 ? a[i + j * n] : a[j + i * n]) * x[j];
    x = y;
  } while (calls < 20);
  EXPECT_EQ(kase, 0);
  EXPECT_GT(calls, 2);
  EXPECT_LE(est, norm1 * (1 + 1e-12));
  EXPECT_GE(est, norm1 / 3);
  EXPECT_EQ(allocation_sizes().size(), 2u * calls);
}

using ref_gejsv = void (*)(const char*, const char*, const char*, const char*, const char*, const char*, const int*,
                           const int*, double*, const int*, double*, double*, const int*, double*, const int*,
                           double*, const int*, int*, int*, size_t, size_t, size_t, size_t, size_t, size_t);

TEST_F(Workspace, DgejsvLeavesTheCallersIworkAsItWas) {
  int m = 8, n = 5, info = 0, info_ref = 0, lwork = 2 * 8 + 5 * 100;
  auto a = random_matrix(m, n, 11), ar = a;
  std::vector<double> sva(n), svar(n), u(m * n), v(n * n), work(lwork), workr(lwork);
  std::vector<int> iwork(m + 3 * n, kSentinel), iwork_ref(m + 3 * n);
  VORN_instable_dgejsv("C", "U", "V", "N", "N", "N", &m, &n, a.data(), &m, sva.data(), u.data(), &m, v.data(), &n,
                       work.data(), &lwork, iwork.data(), &info);
  reference::fn<ref_gejsv>("dgejsv_")("C", "U", "V", "N", "N", "N", &m, &n, ar.data(), &m, svar.data(), u.data(), &m,
                                      v.data(), &n, workr.data(), &lwork, iwork_ref.data(), &info_ref, 1, 1, 1, 1, 1,
                                      1);
  EXPECT_EQ(info, info_ref);
  for (int i = 0; i < n; ++i) EXPECT_NEAR(sva[i] * work[1] / work[0], svar[i] * workr[1] / workr[0], 1e-10);
  EXPECT_TRUE(untouched(iwork));
  EXPECT_EQ(iwork_ref[0], n) << "the reference reports the rank in IWORK(1)";
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{(m + 3u * n) * 8});
}

}  // namespace
