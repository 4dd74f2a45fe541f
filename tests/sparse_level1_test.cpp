// Sparse level 1 (?AXPYI ?DOTI ?DOTCI ?DOTUI ?GTHR ?GTHRZ ?ROTI ?SCTR).
// No reference library has them, so results are compared with a direct
// dense computation. The index vector travels as a 64-bit scratch copy:
// its size, its contents as the computational library sees them, and the
// failure path when it cannot be obtained are observed from outside.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <complex>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "support/observe.h"
#include "vorn_instable.h"

namespace {

// The computational library's DGTHR, watched; in capture mode it records
// what it was given instead of running (the indices may be out of range).
bool capture_dgthr = false;
std::vector<long long> captured;

}  // namespace

extern "C" void mkl_blas_dgthr(const long long* nz, const double* y, double* x, const long long* indx) {
  observe::note_entry("mkl_blas_dgthr", __builtin_return_address(0));
  if (capture_dgthr) {
    captured.assign(indx, indx + *nz);
    captured.insert(captured.begin(), *nz);
    return;
  }
  using Fn = void (*)(const long long*, const double*, double*, const long long*);
  static const auto next = reinterpret_cast<Fn>(observe::next("mkl_blas_dgthr"));
  next(nz, y, x, indx);
}

namespace {

enum class Op { Axpyi, Doti, Dotci, Dotui, Gthr, Gthrz, Roti, Sctr };

constexpr int kDense = 20;  // length of y

template <class R>
struct State {
  int nz = 0;
  std::vector<int> indx;
  std::vector<R> x, y;  // complex data interleaved
  R a[2] = {0, 0};
  R c = 0, s = 0;
  R result[2] = {0, 0};
};

template <class R>
struct Case {
  std::string name;
  Op op;
  bool complex;
  void (*call)(State<R>&);
};

#define VORN_CASE(NAME, OP, CPLX, ...) \
  Case<R> { NAME, Op::OP, CPLX, [](State<R>& st) { __VA_ARGS__; } }

template <class R>
std::vector<Case<R>> cases();

template <>
std::vector<Case<float>> cases<float>() {
  using R = float;
  return {
      VORN_CASE("SAXPYI", Axpyi, false, VORN_instable_saxpyi(&st.nz, st.a, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("SDOTI", Doti, false,
                st.result[0] = VORN_instable_sdoti(&st.nz, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("SGTHR", Gthr, false, VORN_instable_sgthr(&st.nz, st.y.data(), st.x.data(), st.indx.data())),
      VORN_CASE("SGTHRZ", Gthrz, false, VORN_instable_sgthrz(&st.nz, st.y.data(), st.x.data(), st.indx.data())),
      VORN_CASE("SROTI", Roti, false,
                VORN_instable_sroti(&st.nz, st.x.data(), st.indx.data(), st.y.data(), &st.c, &st.s)),
      VORN_CASE("SSCTR", Sctr, false, VORN_instable_ssctr(&st.nz, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("CAXPYI", Axpyi, true, VORN_instable_caxpyi(&st.nz, st.a, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("CDOTCI", Dotci, true,
                VORN_instable_cdotci(st.result, &st.nz, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("CDOTUI", Dotui, true,
                VORN_instable_cdotui(st.result, &st.nz, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("CGTHR", Gthr, true, VORN_instable_cgthr(&st.nz, st.y.data(), st.x.data(), st.indx.data())),
      VORN_CASE("CGTHRZ", Gthrz, true, VORN_instable_cgthrz(&st.nz, st.y.data(), st.x.data(), st.indx.data())),
      VORN_CASE("CSCTR", Sctr, true, VORN_instable_csctr(&st.nz, st.x.data(), st.indx.data(), st.y.data())),
  };
}

template <>
std::vector<Case<double>> cases<double>() {
  using R = double;
  return {
      VORN_CASE("DAXPYI", Axpyi, false, VORN_instable_daxpyi(&st.nz, st.a, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("DDOTI", Doti, false,
                st.result[0] = VORN_instable_ddoti(&st.nz, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("DGTHR", Gthr, false, VORN_instable_dgthr(&st.nz, st.y.data(), st.x.data(), st.indx.data())),
      VORN_CASE("DGTHRZ", Gthrz, false, VORN_instable_dgthrz(&st.nz, st.y.data(), st.x.data(), st.indx.data())),
      VORN_CASE("DROTI", Roti, false,
                VORN_instable_droti(&st.nz, st.x.data(), st.indx.data(), st.y.data(), &st.c, &st.s)),
      VORN_CASE("DSCTR", Sctr, false, VORN_instable_dsctr(&st.nz, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("ZAXPYI", Axpyi, true, VORN_instable_zaxpyi(&st.nz, st.a, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("ZDOTCI", Dotci, true,
                VORN_instable_zdotci(st.result, &st.nz, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("ZDOTUI", Dotui, true,
                VORN_instable_zdotui(st.result, &st.nz, st.x.data(), st.indx.data(), st.y.data())),
      VORN_CASE("ZGTHR", Gthr, true, VORN_instable_zgthr(&st.nz, st.y.data(), st.x.data(), st.indx.data())),
      VORN_CASE("ZGTHRZ", Gthrz, true, VORN_instable_zgthrz(&st.nz, st.y.data(), st.x.data(), st.indx.data())),
      VORN_CASE("ZSCTR", Sctr, true, VORN_instable_zsctr(&st.nz, st.x.data(), st.indx.data(), st.y.data())),
  };
}

using Z = std::complex<double>;

template <class R>
Z get(const std::vector<R>& v, int i, bool cplx) {
  return cplx ? Z(v[2 * i], v[2 * i + 1]) : Z(v[i], 0);
}
template <class R>
void put(std::vector<R>& v, int i, bool cplx, Z value) {
  if (cplx) {
    v[2 * i] = static_cast<R>(value.real());
    v[2 * i + 1] = static_cast<R>(value.imag());
  } else {
    v[i] = static_cast<R>(value.real());
  }
}

// The operation itself, on a dense y with 1-based indices.
template <class R>
void dense(Op op, bool cplx, State<R>& st) {
  const Z a(st.a[0], cplx ? st.a[1] : 0);
  Z sum = 0;
  for (int i = 0; i < st.nz; ++i) {
    const int j = st.indx[i] - 1;
    const Z xi = get(st.x, i, cplx), yj = get(st.y, j, cplx);
    switch (op) {
      case Op::Axpyi: put(st.y, j, cplx, a * xi + yj); break;
      case Op::Doti: case Op::Dotui: sum += xi * yj; break;
      case Op::Dotci: sum += std::conj(xi) * yj; break;
      case Op::Gthr: put(st.x, i, cplx, yj); break;
      case Op::Gthrz: put(st.x, i, cplx, yj); put(st.y, j, cplx, 0); break;
      case Op::Roti:
        put(st.x, i, cplx, Z(st.c) * xi + Z(st.s) * yj);
        put(st.y, j, cplx, Z(st.c) * yj - Z(st.s) * xi);
        break;
      case Op::Sctr: put(st.y, j, cplx, xi); break;
    }
  }
  if (op == Op::Doti || op == Op::Dotci || op == Op::Dotui) {
    st.result[0] = static_cast<R>(sum.real());
    st.result[1] = cplx && op != Op::Doti ? static_cast<R>(sum.imag()) : 0;
  }
}

template <class R>
State<R> random_state(int nz, std::mt19937& rng) {
  std::uniform_real_distribution<double> u(-1, 1);
  State<R> st;
  st.nz = nz;
  std::vector<int> positions(kDense);
  for (int i = 0; i < kDense; ++i) positions[i] = i + 1;
  std::shuffle(positions.begin(), positions.end(), rng);
  const int used = nz > 0 ? nz : 0;
  st.indx.assign(positions.begin(), positions.begin() + used);
  st.indx.push_back(kDense + 100);  // past the end: must never be read as an index
  st.x.resize(2 * (used + 1));
  st.y.resize(2 * kDense);
  for (R& v : st.x) v = static_cast<R>(u(rng));
  for (R& v : st.y) v = static_cast<R>(u(rng));
  st.a[0] = static_cast<R>(u(rng));
  st.a[1] = static_cast<R>(u(rng));
  st.c = static_cast<R>(u(rng));
  st.s = static_cast<R>(u(rng));
  st.result[0] = 42;
  st.result[1] = 43;
  return st;
}

template <class R>
void expect_near(const std::vector<R>& got, const std::vector<R>& want, const std::string& what) {
  ASSERT_EQ(got.size(), want.size());
  const double tol = 16 * std::numeric_limits<R>::epsilon();
  for (std::size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << what << " element " << i;
}

template <class R>
void results() {
  std::mt19937 rng(20240611);
  for (const Case<R>& c : cases<R>()) {
    for (int nz : {1, 6, kDense}) {
      State<R> st = random_state<R>(nz, rng);
      State<R> want = st;
      dense(c.op, c.complex, want);
      observe::reset();
      c.call(st);
      const std::string what = c.name + " nz=" + std::to_string(nz);
      expect_near(st.x, want.x, what + " x");
      expect_near(st.y, want.y, what + " y");
      if (c.op == Op::Doti || c.op == Op::Dotci || c.op == Op::Dotui) {
        expect_near(std::vector<R>(st.result, st.result + (c.complex ? 2 : 1)),
                    std::vector<R>(want.result, want.result + (c.complex ? 2 : 1)), what + " result");
      }
      // One scratch array of nz 64-bit elements, released.
      int allocations = 0;
      for (const auto& e : observe::events()) {
        if (e.kind != observe::Kind::Allocate) continue;
        ++allocations;
        EXPECT_EQ(e.bytes, static_cast<std::size_t>(nz) * 8) << what;
        EXPECT_EQ(e.alignment, 128) << what;
      }
      EXPECT_EQ(allocations, 1) << what;
      EXPECT_EQ(observe::outstanding_blocks(), 0u) << what;
      EXPECT_TRUE(observe::reports().empty()) << what;
    }
  }
}

TEST(SparseLevel1, MatchDenseComputationSingle) { results<float>(); }
TEST(SparseLevel1, MatchDenseComputationDouble) { results<double>(); }

template <class R>
void non_positive_counts() {
  std::mt19937 rng(7);
  for (const Case<R>& c : cases<R>()) {
    for (int nz : {0, -5}) {
      State<R> st = random_state<R>(nz, rng);
      const State<R> before = st;
      observe::reset();
      c.call(st);
      const std::string what = c.name + " nz=" + std::to_string(nz);
      // Still one scratch array, of one element.
      const auto& ev = observe::events();
      std::vector<observe::Event> blocks;
      for (const auto& e : ev) {
        if (e.kind == observe::Kind::Allocate || e.kind == observe::Kind::Deallocate) blocks.push_back(e);
      }
      ASSERT_EQ(blocks.size(), 2u) << what;
      EXPECT_EQ(blocks[0].kind, observe::Kind::Allocate) << what;
      EXPECT_EQ(blocks[0].bytes, 8u) << what;
      EXPECT_EQ(blocks[0].alignment, 128) << what;
      EXPECT_EQ(blocks[1].kind, observe::Kind::Deallocate) << what;
      EXPECT_EQ(blocks[1].pointer, blocks[0].pointer) << what;
      EXPECT_EQ(st.x, before.x) << what;
      EXPECT_EQ(st.y, before.y) << what;
      if (c.op == Op::Doti) EXPECT_EQ(st.result[0], 0) << what;
      if (c.op == Op::Dotci || c.op == Op::Dotui) {
        EXPECT_EQ(st.result[0], 0) << what;
        EXPECT_EQ(st.result[1], 0) << what;
      }
      EXPECT_TRUE(observe::reports().empty()) << what;
    }
  }
}

TEST(SparseLevel1, NonPositiveCountStillAllocatesOneElementSingle) { non_positive_counts<float>(); }
TEST(SparseLevel1, NonPositiveCountStillAllocatesOneElementDouble) { non_positive_counts<double>(); }

TEST(SparseLevel1, IndicesReachTheLibraryWidened) {
  std::vector<int> indx = {-1, 7, INT_MIN, INT_MAX, 99};
  std::vector<double> x(5, 0.0), y(4, 0.0);
  const int nz = 4;
  capture_dgthr = true;
  captured.clear();
  observe::reset();
  VORN_instable_dgthr(&nz, y.data(), x.data(), indx.data());
  capture_dgthr = false;
  // The count first, then exactly nz indices, sign-extended.
  const std::vector<long long> want = {4, -1, 7, static_cast<long long>(INT_MIN), static_cast<long long>(INT_MAX)};
  EXPECT_EQ(captured, want);
  EXPECT_EQ(observe::outstanding_blocks(), 0u);
}

template <class R>
void allocation_failure() {
  std::mt19937 rng(11);
  for (const Case<R>& c : cases<R>()) {
    State<R> st = random_state<R>(6, rng);
    const State<R> before = st;
    observe::reset();
    observe::fail_allocation_after(0);
    c.call(st);
    observe::fail_allocation_after(-1);
    const std::string what = c.name;
    ASSERT_EQ(observe::reports().size(), 1u) << what;
    const auto& rep = observe::reports()[0];
    EXPECT_TRUE(rep.from_layer) << what;
    EXPECT_EQ(rep.name, c.name) << what;  // not padded
    EXPECT_EQ(rep.length, static_cast<long long>(c.name.size())) << what;
    EXPECT_EQ(rep.position, 1089) << what;
    EXPECT_EQ(st.x, before.x) << what;
    EXPECT_EQ(st.y, before.y) << what;
    if (c.op == Op::Doti) {
      EXPECT_EQ(st.result[0], 0) << what;
    } else {
      EXPECT_EQ(st.result[0], before.result[0]) << what;
      EXPECT_EQ(st.result[1], before.result[1]) << what;
    }
    EXPECT_EQ(observe::outstanding_blocks(), 0u) << what;
    for (const auto& e : observe::events()) EXPECT_NE(e.kind, observe::Kind::Entry) << what;
  }
}

TEST(SparseLevel1, AllocationFailureSingle) { allocation_failure<float>(); }
TEST(SparseLevel1, AllocationFailureDouble) { allocation_failure<double>(); }

}  // namespace
