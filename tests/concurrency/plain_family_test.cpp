// Many threads calling the plain family at once: each call has its own
// scratch arrays, hooks are installed per call, and nothing is shared
// between calls. Every thread's results must equal the same calls made one
// at a time. Built with ThreadSanitizer in CI as well.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <barrier>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "vorn_instable.h"

using i64 = long long;

namespace {
// While set, each call reaching MKL's DGETRS waits here until the other
// thread's call has reached it too.
std::barrier<>* g_both_inside = nullptr;
std::atomic<int> g_foreign_values{0};
thread_local i64 t_own_n = 0;
}  // namespace

// The executable's DGETRS entry comes first: it sees the 64-bit cells the
// layer hands MKL while another call is inside MKL as well.
extern "C" void mkl_lapack_dgetrs(const char* trans, const i64* n, const i64* nrhs, const double* a, const i64* lda,
                                  const i64* ipiv, double* b, const i64* ldb, i64* info, int ltrans) {
  if (g_both_inside != nullptr) {
    g_both_inside->arrive_and_wait();
    if (*n != t_own_n || *lda != t_own_n || *ldb != t_own_n) ++g_foreign_values;
  }
  using F = void (*)(const char*, const i64*, const i64*, const double*, const i64*, const i64*, double*, const i64*,
                     i64*, int);
  static const auto real = reinterpret_cast<F>(dlsym(RTLD_NEXT, "mkl_lapack_dgetrs"));
  real(trans, n, nrhs, a, lda, ipiv, b, ldb, info, ltrans);
}

namespace {

constexpr int kThreads = 6;
constexpr int kRounds = 4;

std::vector<double> random_values(std::size_t count, unsigned seed) {
  std::mt19937 engine(seed);
  std::uniform_real_distribution<double> value(-1, 1);
  std::vector<double> v(count);
  for (auto& x : v) x = value(engine);
  return v;
}

// One call's inputs and everything it writes, flattened for comparison.
struct Outcome {
  std::vector<double> reals;
  std::vector<int> integers;
  bool operator==(const Outcome&) const = default;
};

using Case = std::function<Outcome(unsigned seed)>;

Outcome getrf(unsigned seed) {
  const int m = 9, n = 7, lda = 10;
  Outcome o{random_values(lda * n, seed), std::vector<int>(n + 1, -5)};
  VORN_instable_dgetrf_(&m, &n, o.reals.data(), &lda, o.integers.data(), &o.integers[n]);
  return o;
}

Outcome syevd(unsigned seed) {
  const int n = 12, lwork = 1 + 6 * n + 2 * n * n, liwork = 3 + 5 * n;
  auto a = random_values(n * n, seed);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < j; ++i) a[i + j * n] = a[j + i * n];
  std::vector<double> w(n), work(lwork);
  std::vector<int> iwork(liwork, -5), info(1, -5);
  VORN_instable_dsyevd_("V", "U", &n, a.data(), &n, w.data(), work.data(), &lwork, iwork.data(), &liwork, info.data());
  a.insert(a.end(), w.begin(), w.end());
  return {a, info};
}

Outcome gelsd(unsigned seed) {
  const int m = 10, n = 6, nrhs = 2, lwork = 2000, liwork = 400;
  const double rcond = -1;
  auto a = random_values(m * n, seed), b = random_values(m * nrhs, seed + 1);
  std::vector<double> s(n), work(lwork);
  std::vector<int> iwork(liwork, -5), rank_info(2, -5);
  VORN_instable_dgelsd_(&m, &n, &nrhs, a.data(), &m, b.data(), &m, s.data(), &rcond, &rank_info[0], work.data(),
                        &lwork, iwork.data(), &rank_info[1]);
  b.insert(b.end(), s.begin(), s.end());
  return {b, rank_info};
}

Outcome laswp(unsigned seed) {
  const int n = 5, lda = 8, k1 = 1, k2 = 6, incx = -1;
  Outcome o{random_values(lda * n, seed), {}};
  std::vector<int> ipiv{3, 5, 3, 8, 6, 7};
  VORN_instable_dlaswp_(&n, o.reals.data(), &lda, &k1, &k2, ipiv.data(), &incx);
  return o;
}

const std::vector<std::pair<std::string, Case>>& cases() {
  static const std::vector<std::pair<std::string, Case>> all{
      {"DGETRF", getrf}, {"DSYEVD", syevd}, {"DGELSD", gelsd}, {"DLASWP", laswp}};
  return all;
}

TEST(PlainFamilyConcurrency, ThreadsGetWhatOneCallAtATimeGets) {
  // Seeds per (thread, round, case); the expected outcomes first, serially.
  auto seed = [](int thread, int round, std::size_t which) {
    return static_cast<unsigned>(1000 * thread + 100 * round + which);
  };
  std::vector<std::vector<std::vector<Outcome>>> expected(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    for (int r = 0; r < kRounds; ++r) {
      expected[t].emplace_back();
      for (std::size_t c = 0; c < cases().size(); ++c) expected[t][r].push_back(cases()[c].second(seed(t, r, c)));
    }
  }
  std::vector<std::vector<std::string>> mismatches(kThreads);
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int r = 0; r < kRounds; ++r) {
        // Each thread walks the cases from a different start, so that
        // different routines overlap.
        for (std::size_t i = 0; i < cases().size(); ++i) {
          const std::size_t c = (i + t) % cases().size();
          if (!(cases()[c].second(seed(t, r, c)) == expected[t][r][c])) {
            mismatches[t].push_back(cases()[c].first + " round " + std::to_string(r));
          }
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_TRUE(mismatches[t].empty()) << "thread " << t << ": " << mismatches[t][0];
}

// Two calls inside MKL at once each find their own sizes behind the
// pointers: the 64-bit cells belong to the call, not to the routine.
TEST(PlainFamilyConcurrency, CallsInsideMklAtOnceKeepTheirOwnCells) {
  std::barrier both(2);
  g_both_inside = &both;
  std::vector<std::thread> threads;
  for (int n : {3, 5})
    threads.emplace_back([n] {
      t_own_n = n;
      std::vector<double> a(n * n, 0.0), b(n, 1.0);
      for (int i = 0; i < n; ++i) a[i + i * n] = 2.0;
      std::vector<int> ipiv(n);
      for (int i = 0; i < n; ++i) ipiv[i] = i + 1;
      const int nrhs = 1;
      int info = -5;
      VORN_instable_dgetrs("N", &n, &nrhs, a.data(), &n, ipiv.data(), b.data(), &n, &info);
      EXPECT_EQ(info, 0);
      EXPECT_EQ(b, std::vector<double>(n, 0.5));
    });
  for (auto& th : threads) th.join();
  g_both_inside = nullptr;
  EXPECT_EQ(g_foreign_values, 0);
}

}  // namespace
