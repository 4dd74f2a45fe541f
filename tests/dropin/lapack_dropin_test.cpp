// The companion liblapack.so.3 seen as a gfortran-built program sees it:
// this executable links it (and libblas.so.3) by their standard names. The
// oracle is the reference LAPACK and BLAS in a link-map namespace of their
// own, so that nothing in it can reach the companion libraries.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <barrier>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

extern "C" {
// Routines of the set: forwarded to the layer.
void dgetrf_(const int*, const int*, double*, const int*, int*, int*);
void dpotrf_(const char*, const int*, double*, const int*, int*, std::size_t);
std::complex<double> zladiv_(const std::complex<double>*, const std::complex<double>*);
double dlamch_(const char*, std::size_t);
int ilaenv_(const int*, const char*, const char*, const int*, const int*, const int*, const int*, std::size_t,
            std::size_t);
void chla_transtype_(char*, std::size_t, const int*);
int lsame_(const char*, const char*, std::size_t, std::size_t);
// Routines outside the set: straight into the reference library.
void dgeqrt_(const int*, const int*, const int*, double*, const int*, double*, const int*, double*, int*);
void dgetrf2_(const int*, const int*, double*, const int*, int*, int*);
float sroundup_lwork_(const int*);
void dlartgp_(const double*, const double*, double*, double*, double*);
int __la_xisnan_MOD_disnan(const double*);
// The layer's own entry, for ILAENV's answer.
int VORN_instable_ilaenv_(const int*, const char*, const char*, const int*, const int*, const int*, const int*, int,
                          int);
}

namespace {
int seen_name_length = -1, seen_opts_length = -1;
// What this program's XERBLA heard, on the thread that heard it.
thread_local std::string heard_name;
thread_local int heard_position = 0, heard_count = 0;
}

// The program's own XERBLA, as numpy's or R's: the companions deliver
// argument errors here instead of printing them.
extern "C" __attribute__((visibility("default"))) void xerbla_(const char* name, const int* info, std::size_t length) {
  heard_name.assign(name, length);
  while (!heard_name.empty() && heard_name.back() == ' ') heard_name.pop_back();
  heard_position = *info;
  ++heard_count;
}

// Takes the place of the layer's entry that the companion library calls
// (this executable's definitions come first), to see the lengths arrive.
extern "C" __attribute__((visibility("default"))) int VORN_instable_ilaenv(const int* ispec, const char* name,
                                                                          const char* opts, const int* n1,
                                                                          const int* n2, const int* n3, const int* n4,
                                                                          int name_len, int opts_len) {
  seen_name_length = name_len;
  seen_opts_length = opts_len;
  using Entry = int (*)(const int*, const char*, const char*, const int*, const int*, const int*, const int*, int, int);
  static const auto next = reinterpret_cast<Entry>(dlsym(RTLD_NEXT, "VORN_instable_ilaenv"));
  return next(ispec, name, opts, n1, n2, n3, n4, name_len, opts_len);
}

namespace {

class Reference {
 public:
  Reference() {
    blas_ = dlmopen(LM_ID_NEWLM, VORN_REFERENCE_BLAS, RTLD_NOW | RTLD_LOCAL);
    if (blas_ == nullptr) return;
    Lmid_t space{};
    dlinfo(blas_, RTLD_DI_LMID, &space);
    lapack_ = dlmopen(space, VORN_REFERENCE_LAPACK, RTLD_NOW | RTLD_LOCAL);
  }
  template <class F>
  F fn(const char* name) const {
    void* address = lapack_ != nullptr ? dlsym(lapack_, name) : nullptr;
    if (address == nullptr) ADD_FAILURE() << "reference " << name << " missing";
    return reinterpret_cast<F>(address);
  }
  bool loaded() const { return lapack_ != nullptr; }

 private:
  void* blas_ = nullptr;
  void* lapack_ = nullptr;
};

const Reference& reference() {
  static const Reference r;
  return r;
}

std::vector<double> random_matrix(int rows, int cols, unsigned seed, double diagonal = 0) {
  std::mt19937 engine(seed);
  std::uniform_real_distribution<double> value(-1, 1);
  std::vector<double> a(static_cast<std::size_t>(rows) * cols);
  for (auto& x : a) x = value(engine);
  for (int i = 0; i < std::min(rows, cols); ++i) a[i + static_cast<std::size_t>(i) * rows] += diagonal;
  return a;
}

void expect_near(const std::vector<double>& got, const std::vector<double>& want, double tolerance) {
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], tolerance) << "element " << i;
}

class LapackDropin : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!reference().loaded()) GTEST_SKIP() << "reference libraries cannot be loaded in a namespace of their own";
  }
};

using Getrf = void (*)(const int*, const int*, double*, const int*, int*, int*);

TEST_F(LapackDropin, RoutinesOfTheSetGoThroughTheLayerWithTheirLengths) {
  // DGETRF through the layer against the reference on a diagonally
  // dominant matrix: the same pivots, the same factors to rounding.
  const int m = 7, n = 5, lda = 9;
  auto a = random_matrix(lda, n, 1, 4.0), b = a;
  std::vector<int> ipiv(n, -7), ipiv_ref(n, -7);
  int info = -9, info_ref = -9;
  dgetrf_(&m, &n, a.data(), &lda, ipiv.data(), &info);
  reference().fn<Getrf>("dgetrf_")(&m, &n, b.data(), &lda, ipiv_ref.data(), &info_ref);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(ipiv, ipiv_ref);
  expect_near(a, b, 1e-13);

  // A character argument with its hidden length.
  const int k = 4;
  auto spd = random_matrix(k, k, 2, 8.0);
  for (int i = 0; i < k; ++i)
    for (int j = 0; j < i; ++j) spd[j + i * k] = spd[i + j * k];
  auto spd_ref = spd;
  dpotrf_("l", &k, spd.data(), &k, &info, 1);
  using Potrf = void (*)(const char*, const int*, double*, const int*, int*, std::size_t);
  reference().fn<Potrf>("dpotrf_")("l", &k, spd_ref.data(), &k, &info_ref, 1);
  EXPECT_EQ(info, 0);
  expect_near(spd, spd_ref, 1e-13);

  // A COMPLEX*16 function returns its value in registers.
  const std::complex<double> x(3, -4), y(1, 2);
  using Ladiv = std::complex<double> (*)(const std::complex<double>*, const std::complex<double>*);
  const std::complex<double> q = zladiv_(&x, &y), q_ref = reference().fn<Ladiv>("zladiv_")(&x, &y);
  EXPECT_NEAR(q.real(), q_ref.real(), 1e-15);
  EXPECT_NEAR(q.imag(), q_ref.imag(), 1e-15);

  using Lamch = double (*)(const char*, std::size_t);
  EXPECT_EQ(dlamch_("E", 1), reference().fn<Lamch>("dlamch_")("E", 1));
  EXPECT_EQ(lsame_("a", "A", 1, 1), 1);
  EXPECT_EQ(lsame_("a", "B", 1, 1), 0);
}

TEST_F(LapackDropin, HandWrittenServicesTakeTheCallersLengths) {
  const int ispec = 1, big = 1000, none = -1;
  // Lengths arrive as size_t and reach the layer's ILAENV as int.
  EXPECT_EQ(ilaenv_(&ispec, "DGEQRF", "UN", &big, &big, &none, &none, 6, 2),
            VORN_instable_ilaenv_(&ispec, "DGEQRF", "UN", &big, &big, &none, &none, 6, 2));
  EXPECT_EQ(seen_name_length, 6);
  EXPECT_EQ(seen_opts_length, 2);
  // A CHARACTER*1 function writes through its hidden result buffer.
  for (const auto& [code, letter] : {std::pair{111, 'N'}, {112, 'T'}, {113, 'C'}}) {
    char result = '?';
    chla_transtype_(&result, 1, &code);
    EXPECT_EQ(result, letter) << code;
  }
}

TEST_F(LapackDropin, RoutinesOutsideTheSetReachTheReferenceWithEveryArgument) {
  // Nine arguments: three arrive on the stack.
  const int m = 8, n = 6, nb = 2, lda = 10, ldt = 3;
  auto a = random_matrix(lda, n, 3), a_ref = a;
  std::vector<double> t(ldt * n, -1), t_ref = t, work(nb * n), work_ref = work;
  int info = -9, info_ref = -9;
  dgeqrt_(&m, &n, &nb, a.data(), &lda, t.data(), &ldt, work.data(), &info);
  using Geqrt = void (*)(const int*, const int*, const int*, double*, const int*, double*, const int*, double*, int*);
  reference().fn<Geqrt>("dgeqrt_")(&m, &n, &nb, a_ref.data(), &lda, t_ref.data(), &ldt, work_ref.data(), &info_ref);
  EXPECT_EQ(info, 0);
  expect_near(a, a_ref, 1e-13);
  // Rows below NB are untouched by both.
  expect_near(t, t_ref, 1e-13);

  // A REAL function: the value comes back in a vector register.
  using Roundup = float (*)(const int*);
  for (const int lwork : {0, 1, 16777217, 2147483647}) {
    EXPECT_EQ(sroundup_lwork_(&lwork), reference().fn<Roundup>("sroundup_lwork_")(&lwork)) << lwork;
  }

  const double f = 3, g = -4;
  double cs, sn, r, cs_ref, sn_ref, r_ref;
  dlartgp_(&f, &g, &cs, &sn, &r);
  using Lartgp = void (*)(const double*, const double*, double*, double*, double*);
  reference().fn<Lartgp>("dlartgp_")(&f, &g, &cs_ref, &sn_ref, &r_ref);
  EXPECT_EQ(cs, cs_ref);
  EXPECT_EQ(sn, sn_ref);
  EXPECT_EQ(r, r_ref);

  // A Fortran module procedure of the reference library.
  const double nan = std::numeric_limits<double>::quiet_NaN(), one = 1;
  EXPECT_NE(__la_xisnan_MOD_disnan(&nan), 0);
  EXPECT_EQ(__la_xisnan_MOD_disnan(&one), 0);
}

TEST_F(LapackDropin, FirstCallsFromManyThreadsResolveOnce) {
  // DGETRF2 is called nowhere else: every thread meets its empty slot.
  constexpr int kThreads = 8;
  const int n = 12;
  std::barrier start(kThreads);
  std::vector<std::vector<double>> results(kThreads);
  std::vector<int> infos(kThreads, -9);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      results[t] = random_matrix(n, n, 100 + t, 3.0);
      std::vector<int> ipiv(n);
      start.arrive_and_wait();
      dgetrf2_(&n, &n, results[t].data(), &n, ipiv.data(), &infos[t]);
    });
  }
  for (auto& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) {
    auto want = random_matrix(n, n, 100 + t, 3.0);
    std::vector<int> ipiv(n);
    int info = -9;
    reference().fn<Getrf>("dgetrf2_")(&n, &n, want.data(), &n, ipiv.data(), &info);
    EXPECT_EQ(infos[t], info) << "thread " << t;
    expect_near(results[t], want, 1e-12);
  }
}

TEST_F(LapackDropin, ReportsFromManyThreadsReachTheProgramsXerblaOnTheirThread) {
  // Half the threads make DGETRF's fourth argument wrong, half DPOTRF's
  // first, between good calls: each report must arrive once, on the thread
  // that made the error, and a good call must stay silent.
  constexpr int kThreads = 8, kRounds = 20;
  std::barrier start(kThreads);
  std::vector<std::string> wrong(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const int n = 6, bad_lda = 2;
      const bool lu = t % 2 == 0;
      const char* want_name = lu ? "DGETRF" : "DPOTRF";
      const int want_position = lu ? 4 : 1;
      start.arrive_and_wait();
      for (int round = 0; round < kRounds; ++round) {
        auto a = random_matrix(n, n, 10 * t + round, 8.0);
        std::vector<int> ipiv(n);
        int info = 0;
        const int before = heard_count;
        lu ? dgetrf_(&n, &n, a.data(), &n, ipiv.data(), &info) : dpotrf_("L", &n, a.data(), &n, &info, 1);
        if (heard_count != before || info != 0) wrong[t] = "a good call was reported";
        lu ? dgetrf_(&n, &n, a.data(), &bad_lda, ipiv.data(), &info) : dpotrf_("X", &n, a.data(), &n, &info, 1);
        if (heard_count != before + 1 || heard_name != want_name || heard_position != want_position ||
            info != -want_position)
          wrong[t] = "round " + std::to_string(round) + ": heard " + std::to_string(heard_count - before) +
                     " report(s), last " + heard_name + " " + std::to_string(heard_position) + ", INFO " +
                     std::to_string(info);
      }
    });
  }
  for (auto& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(wrong[t], "") << "thread " << t;
}

// The reference library is opened on the first call of a routine outside
// the set; these run in a fresh process each (threadsafe death tests
// re-execute the program).
class LapackDropinDeathTest : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(LapackDropinDeathTest, AMissingReferenceLibraryIsNamed) {
  EXPECT_DEATH(
      {
        setenv("VORN_REFERENCE_LAPACK", "/nonexistent/liblapack.so.3", 1);
        const int lwork = 5;
        sroundup_lwork_(&lwork);
      },
      "cannot open the reference LAPACK library: /nonexistent/liblapack.so.3");
}

TEST_F(LapackDropinDeathTest, TheCompanionLibraryIsNotItsOwnReference) {
  EXPECT_DEATH(
      {
        setenv("VORN_REFERENCE_LAPACK", VORN_DROPIN_LAPACK, 1);
        const int lwork = 5;
        sroundup_lwork_(&lwork);
      },
      "sroundup_lwork_: the reference LAPACK library is this library");
}

}  // namespace

// ------------------------------------------------------------ libblas.so.3

extern "C" {
double dasum_(const int*, const double*, const int*);
void zdscal_(const int*, const double*, double*, const int*);
void dtrmv_(const char*, const char*, const char*, const int*, const double*, const int*, double*, const int*,
            std::size_t, std::size_t, std::size_t);
}

namespace {
std::vector<int> seen_trmv_lengths;
}

// The layer's level 2 entries take their option lengths (as ILAENV above).
extern "C" __attribute__((visibility("default"))) void VORN_instable_dtrmv(const char* uplo, const char* trans,
                                                                          const char* diag, const int* n,
                                                                          const double* a, const int* lda,
                                                                          double* x, const int* incx, int uplo_len,
                                                                          int trans_len, int diag_len) {
  seen_trmv_lengths = {uplo_len, trans_len, diag_len};
  using Entry = void (*)(const char*, const char*, const char*, const int*, const double*, const int*, double*,
                         const int*, int, int, int);
  static const auto next = reinterpret_cast<Entry>(dlsym(RTLD_NEXT, "VORN_instable_dtrmv"));
  next(uplo, trans, diag, n, a, lda, x, incx, uplo_len, trans_len, diag_len);
}

// ------------------------------------------------------------ departures

// DTREVC is a departure (the layer copies SELECT back after the call): by
// its standard name it runs the reference implementation, and the layer's
// entry, which this executable's definition would catch, is never reached.
using Dtrevc = void (*)(const char*, const char*, int*, const int*, const double*, const int*, double*, const int*,
                        double*, const int*, const int*, int*, double*, int*, std::size_t, std::size_t);
extern "C" void dtrevc_(const char*, const char*, int*, const int*, const double*, const int*, double*, const int*,
                        double*, const int*, const int*, int*, double*, int*, std::size_t, std::size_t);
namespace {
int layer_trevc_calls = 0;
}
extern "C" __attribute__((visibility("default"))) void VORN_instable_dtrevc(
    const char* side, const char* howmny, int* select, const int* n, const double* t, const int* ldt, double* vl,
    const int* ldvl, double* vr, const int* ldvr, const int* mm, int* m, double* work, int* info) {
  ++layer_trevc_calls;
  using Entry = void (*)(const char*, const char*, int*, const int*, const double*, const int*, double*, const int*,
                         double*, const int*, const int*, int*, double*, int*);
  static const auto next = reinterpret_cast<Entry>(dlsym(RTLD_NEXT, "VORN_instable_dtrevc"));
  next(side, howmny, select, n, t, ldt, vl, ldvl, vr, ldvr, mm, m, work, info);
}

namespace {

TEST_F(LapackDropin, BlasLevel2ForwardersPassTheOptionLengths) {
  // Options spelled out, as a Fortran program may pass them.
  const int n = 3, lda = 4, inc = 1;
  const auto a = random_matrix(lda, n, 5);
  auto x = random_matrix(n, 1, 6), x_ref = x;
  dtrmv_("Upper", "No transpose", "Non-unit", &n, a.data(), &lda, x.data(), &inc, 5, 12, 8);
  EXPECT_EQ(seen_trmv_lengths, (std::vector<int>{5, 12, 8}));
  using Trmv = void (*)(const char*, const char*, const char*, const int*, const double*, const int*, double*,
                        const int*, std::size_t, std::size_t, std::size_t);
  reference().fn<Trmv>("dtrmv_")("Upper", "No transpose", "Non-unit", &n, a.data(), &lda, x_ref.data(), &inc, 5, 12,
                                 8);
  expect_near(x, x_ref, 1e-14);
}

TEST_F(LapackDropin, BlasAsumAndScalReturnAtOnceForIncrementsBelowOne) {
  // The computational library would walk |INCX| (or stay on the first
  // element) where the reference returns at once.
  const int n = 3;
  const double two = 2;
  const std::vector<double> x = {1.5, -2, 3, 4, -5, 6};
  using Asum = double (*)(const int*, const double*, const int*);
  using Scal = void (*)(const int*, const double*, double*, const int*);
  for (const int inc : {0, -1}) {
    EXPECT_EQ(dasum_(&n, x.data(), &inc), reference().fn<Asum>("dasum_")(&n, x.data(), &inc)) << inc;
    auto y = x, y_ref = x;
    zdscal_(&n, &two, y.data(), &inc);
    reference().fn<Scal>("zdscal_")(&n, &two, y_ref.data(), &inc);
    EXPECT_EQ(y, y_ref) << inc;
  }
}

TEST_F(LapackDropin, DeparturesRunTheReferenceNotTheLayer) {
  const int n = 8, lwork = 80;
  using Gees = void (*)(const char*, const char*, void*, const int*, double*, const int*, int*, double*, double*,
                        double*, const int*, double*, const int*, int*, int*, std::size_t, std::size_t);
  std::vector<double> t, q(n * n), wr(n), wi(n), work(lwork);
  std::vector<int> bwork(n);
  int sdim = 0, info = 0, pair = -1;
  for (unsigned seed = 10; pair < 0; ++seed) {  // a Schur form with a complex pair
    t = random_matrix(n, n, seed);
    reference().fn<Gees>("dgees_")("V", "N", nullptr, &n, t.data(), &n, &sdim, wr.data(), wi.data(), q.data(), &n,
                                   work.data(), &lwork, bwork.data(), &info, 1, 1);
    for (int j = 0; j + 1 < n && pair < 0; ++j)
      if (wi[j] != 0.0) pair = j;
  }
  std::vector<int> select(n, 0);
  select[pair + 1] = 1;  // the pair by its second eigenvalue: SELECT is rewritten
  auto select_ref = select;
  std::vector<double> vr(n * n), vr_ref(n * n);
  int m = 0, m_ref = 0, info_ref = 0;
  dtrevc_("R", "S", select.data(), &n, t.data(), &n, nullptr, &n, vr.data(), &n, &n, &m, work.data(), &info, 1, 1);
  reference().fn<Dtrevc>("dtrevc_")("R", "S", select_ref.data(), &n, t.data(), &n, nullptr, &n, vr_ref.data(), &n, &n,
                                    &m_ref, work.data(), &info_ref, 1, 1);
  EXPECT_EQ(layer_trevc_calls, 0);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(m, m_ref);
  EXPECT_EQ(select, select_ref);
  expect_near(vr, vr_ref, 1e-10);
}

}  // namespace
