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
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern "C" {
// Routines of the set: forwarded to the layer.
void dgetrf_(const int*, const int*, double*, const int*, int*, int*);
void dpotrf_(const char*, const int*, double*, const int*, int*, std::size_t);
std::complex<double> zladiv_(const std::complex<double>*, const std::complex<double>*);
int ilaenv_(const int*, const char*, const char*, const int*, const int*, const int*, const int*, std::size_t,
            std::size_t);
void chla_transtype_(char*, std::size_t, const int*);
void dtrmv_(const char*, const char*, const char*, const int*, const double*, const int*, double*, const int*,
            std::size_t, std::size_t, std::size_t);
double dasum_(const int*, const double*, const int*);
void zdscal_(const int*, const double*, double*, const int*);
// Outside the set, or departures: straight into the reference library.
void dgetrf2_(const int*, const int*, double*, const int*, int*, int*);
float sroundup_lwork_(const int*);
void dtrevc_(const char*, const char*, int*, const int*, const double*, const int*, double*, const int*, double*,
             const int*, const int*, int*, double*, int*, std::size_t, std::size_t);
// The layer's own entry, for ILAENV's answer.
int VORN_instable_ilaenv_(const int*, const char*, const char*, const int*, const int*, const int*, const int*, int,
                          int);
}

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace {
// The option lengths the last stand-in below was handed.
std::vector<int> seen_lengths;
int layer_trevc_calls = 0;
// What this program's XERBLA heard, on the thread that heard it.
thread_local std::string heard_name;
thread_local int heard_position = 0, heard_count = 0;
}

// The program's own XERBLA, as numpy's or R's: the companions deliver
// argument errors here instead of printing them.
EXPORT void xerbla_(const char* name, const int* info, std::size_t length) {
  heard_name.assign(name, length);
  while (!heard_name.empty() && heard_name.back() == ' ') heard_name.pop_back();
  heard_position = *info;
  ++heard_count;
}

// Stand-ins for the layer's entries that the companion libraries call (this
// executable's definitions come first), to see what arrives.
template <class F>
F next_entry(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

EXPORT int VORN_instable_ilaenv(const int* ispec, const char* name, const char* opts, const int* n1, const int* n2,
                                const int* n3, const int* n4, int name_len, int opts_len) {
  seen_lengths = {name_len, opts_len};
  static const auto next = next_entry<decltype(&VORN_instable_ilaenv)>("VORN_instable_ilaenv");
  return next(ispec, name, opts, n1, n2, n3, n4, name_len, opts_len);
}

EXPORT void VORN_instable_dtrmv(const char* uplo, const char* trans, const char* diag, const int* n, const double* a,
                                const int* lda, double* x, const int* incx, int uplo_len, int trans_len,
                                int diag_len) {
  seen_lengths = {uplo_len, trans_len, diag_len};
  static const auto next = next_entry<decltype(&VORN_instable_dtrmv)>("VORN_instable_dtrmv");
  next(uplo, trans, diag, n, a, lda, x, incx, uplo_len, trans_len, diag_len);
}

// DTREVC is a departure (the layer would copy back SELECT, which the
// reference rewrites for a complex pair): by its standard name it runs the
// reference and never reaches this entry.
EXPORT void VORN_instable_dtrevc(const char*, const char*, int*, const int*, const double*, const int*, double*,
                                 const int*, double*, const int*, const int*, int*, double*, int*) {
  ++layer_trevc_calls;
}

namespace {

// The reference LAPACK, with the reference BLAS loaded ahead of it into the
// same namespace so that it finds that BLAS.
void* reference_lapack() {
  static void* const lapack = [] {
    void* blas = dlmopen(LM_ID_NEWLM, VORN_REFERENCE_BLAS, RTLD_NOW | RTLD_LOCAL);
    Lmid_t space{};
    if (blas == nullptr || dlinfo(blas, RTLD_DI_LMID, &space) != 0) return static_cast<void*>(nullptr);
    return dlmopen(space, VORN_REFERENCE_LAPACK, RTLD_NOW | RTLD_LOCAL);
  }();
  return lapack;
}

template <class F>
F reference(const char* name) {
  void* address = reference_lapack() != nullptr ? dlsym(reference_lapack(), name) : nullptr;
  if (address == nullptr) throw std::runtime_error(std::string("no reference ") + name);
  return reinterpret_cast<F>(address);
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

TEST(LapackDropin, RoutinesOfTheSetGoThroughTheLayerWithTheirLengths) {
  // DGETRF through the layer against the reference on a diagonally
  // dominant matrix: the same pivots, the same factors to rounding.
  const int m = 7, n = 5, lda = 9;
  auto a = random_matrix(lda, n, 1, 4.0), b = a;
  std::vector<int> ipiv(n, -7), ipiv_ref(n, -7);
  int info = -9, info_ref = -9;
  dgetrf_(&m, &n, a.data(), &lda, ipiv.data(), &info);
  reference<decltype(&dgetrf_)>("dgetrf_")(&m, &n, b.data(), &lda, ipiv_ref.data(), &info_ref);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(ipiv, ipiv_ref);
  expect_near(a, b, 1e-13);

  // A COMPLEX*16 function returns its value in registers.
  const std::complex<double> x(3, -4), y(1, 2);
  EXPECT_NEAR(std::abs(zladiv_(&x, &y) - reference<decltype(&zladiv_)>("zladiv_")(&x, &y)), 0, 1e-15);

  // A CHARACTER*1 function writes through its hidden result buffer.
  for (const auto& [code, letter] : {std::pair{111, 'N'}, {112, 'T'}, {113, 'C'}}) {
    char result = '?';
    chla_transtype_(&result, 1, &code);
    EXPECT_EQ(result, letter) << code;
  }
}

TEST(LapackDropin, OptionLengthsReachTheLayerAsTheCallerPassedThem) {
  // Hand-written ILAENV: the lengths arrive as size_t, leave as int.
  const int ispec = 1, big = 1000, none = -1;
  EXPECT_EQ(ilaenv_(&ispec, "DGEQRF", "UN", &big, &big, &none, &none, 6, 2),
            VORN_instable_ilaenv_(&ispec, "DGEQRF", "UN", &big, &big, &none, &none, 6, 2));
  EXPECT_EQ(seen_lengths, (std::vector<int>{6, 2}));

  // A level 2 BLAS forwarder, options spelled out as a Fortran program may.
  const int n = 3, lda = 4, inc = 1;
  const auto a = random_matrix(lda, n, 5);
  auto x = random_matrix(n, 1, 6), x_ref = x;
  dtrmv_("Upper", "No transpose", "Non-unit", &n, a.data(), &lda, x.data(), &inc, 5, 12, 8);
  EXPECT_EQ(seen_lengths, (std::vector<int>{5, 12, 8}));
  reference<decltype(&dtrmv_)>("dtrmv_")("Upper", "No transpose", "Non-unit", &n, a.data(), &lda, x_ref.data(),
                                              &inc, 5, 12, 8);
  expect_near(x, x_ref, 1e-14);
}

TEST(LapackDropin, FirstCallsFromManyThreadsResolveOnce) {
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
    reference<decltype(&dgetrf_)>("dgetrf2_")(&n, &n, want.data(), &n, ipiv.data(), &info);
    EXPECT_EQ(infos[t], info) << "thread " << t;
    expect_near(results[t], want, 1e-12);
  }
}

TEST(LapackDropin, ReportsFromManyThreadsReachTheProgramsXerblaOnTheirThread) {
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

TEST(LapackDropinDeathTest, AWrongReferenceLibraryIsNamed) {
  // The reference library is opened on the first call of a routine outside
  // the set: each case in a fresh process (threadsafe death tests re-execute
  // the program).
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::pair<const char*, const char*> cases[] = {
      {"/nonexistent/liblapack.so.3", "cannot open the reference LAPACK library: /nonexistent/liblapack.so.3"},
      {VORN_DROPIN_LAPACK, "sroundup_lwork_: the reference LAPACK library is this library"}};
  for (const auto& [library, message] : cases) {
    EXPECT_DEATH(
        {
          setenv("VORN_REFERENCE_LAPACK", library, 1);
          const int lwork = 5;
          sroundup_lwork_(&lwork);
        },
        message);
  }
}

TEST(LapackDropin, BlasAsumAndScalReturnAtOnceForIncrementsBelowOne) {
  // The computational library would walk |INCX| (or stay on the first
  // element) where the reference returns at once.
  const int n = 3;
  const double two = 2;
  const std::vector<double> x = {1.5, -2, 3, 4, -5, 6};
  for (const int inc : {0, -1}) {
    EXPECT_EQ(dasum_(&n, x.data(), &inc), reference<decltype(&dasum_)>("dasum_")(&n, x.data(), &inc)) << inc;
    auto y = x, y_ref = x;
    zdscal_(&n, &two, y.data(), &inc);
    reference<decltype(&zdscal_)>("zdscal_")(&n, &two, y_ref.data(), &inc);
    EXPECT_EQ(y, y_ref) << inc;
  }
}

TEST(LapackDropin, DeparturesRunTheReferenceNotTheLayer) {
  // DTREVC's right eigenvectors of an upper triangular T, as the reference
  // computes them, without the layer's entry.
  const int n = 6;
  auto t = random_matrix(n, n, 10, 2.0);
  for (int j = 0; j < n; ++j)
    for (int i = j + 1; i < n; ++i) t[i + j * n] = 0;
  std::vector<int> select(n, 1);
  std::vector<double> vr(n * n), vr_ref(n * n), work(3 * n);
  int m = 0, m_ref = 0, info = -9, info_ref = -9;
  dtrevc_("R", "S", select.data(), &n, t.data(), &n, nullptr, &n, vr.data(), &n, &n, &m, work.data(), &info, 1, 1);
  reference<decltype(&dtrevc_)>("dtrevc_")("R", "S", select.data(), &n, t.data(), &n, nullptr, &n,
                                                vr_ref.data(), &n, &n, &m_ref, work.data(), &info_ref, 1, 1);
  EXPECT_EQ(layer_trevc_calls, 0);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(m, m_ref);
  expect_near(vr, vr_ref, 1e-12);
}

}  // namespace
