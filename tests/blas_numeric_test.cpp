// Numerical results of the level 2 and 3 routines against the reference
// BLAS on the same data: random calls (options in both cases, small sizes,
// leading dimensions with slack, negative increments), those the reference
// accepts sent to the layer too, and every array compared afterwards,
// including what lies around the arguments. ?GEMM3M is compared with
// ?GEMM, SCGEMM and DZGEMM with ?GEMM on A promoted to complex.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include "blas_shapes.h"
#include "support/observe.h"
#include "support/reference.h"

using blas_shapes::Buffers;
using blas_shapes::Role;
using blas_shapes::Routine;
using blas_shapes::Tuple;

namespace {

constexpr std::size_t kWords = 320;
constexpr std::size_t kOffset = 32;  // words before each argument, watched for stray writes
constexpr int kAttempts = 400;

const Role kArrays[] = {Role::A, Role::B, Role::C, Role::X, Role::Y};

class Sampler {
 public:
  explicit Sampler(std::uint64_t seed) : rng_(seed) {}
  int pick(int lo, int hi) { return lo + static_cast<int>(rng_() % static_cast<std::uint64_t>(hi - lo + 1)); }
  double value() { return std::uniform_real_distribution<double>(-1.0, 1.0)(rng_); }

  Tuple next(const Routine& r) {
    Tuple t;
    for (Role role : r.roles) {
      if (blas_shapes::is_letter(role)) {
        // A real A has no conjugate; the reference ?GEMM would take 'C'.
        const std::string letters = r.real_a() && role == Role::TransA ? "NT" : blas_shapes::valid_letters(role);
        const char c = letters[pick(0, static_cast<int>(letters.size()) - 1)];
        t.letter(role) = pick(0, 3) == 0 ? static_cast<char>(std::tolower(c)) : c;
      } else if (role == Role::K || role == Role::KL || role == Role::KU) {
        t.integer(role) = pick(0, 3);
      } else if (role == Role::Lda || role == Role::Ldb || role == Role::Ldc) {
        t.integer(role) = pick(1, 9);
      } else if (role == Role::IncX || role == Role::IncY) {
        t.integer(role) = pick(1, 3) * (pick(0, 1) ? 1 : -1);
      } else if (blas_shapes::is_integer(role)) {
        t.integer(role) = pick(0, 5);
      }
    }
    return t;
  }

  // Scalars: mostly random, sometimes the values the routines treat apart.
  template <class R>
  void scalars(Buffers& b) {
    for (double* storage : {b.alpha, b.beta}) {
      R* s = reinterpret_cast<R*>(storage);
      const int kind = pick(0, 5);
      s[0] = static_cast<R>(kind == 0 ? 0.0 : kind == 1 ? 1.0 : value());
      s[1] = static_cast<R>(kind <= 1 ? 0.0 : value());
    }
  }

 private:
  std::mt19937_64 rng_;
};

template <class R>
R* view(Buffers& b, Role r) {
  return reinterpret_cast<R*>(b.of(r).data());
}

template <class R>
std::size_t reals() {
  return kWords * sizeof(double) / sizeof(R);
}

template <class R>
void fill(Buffers& b, Sampler& s) {
  for (Role r : kArrays) {
    R* p = view<R>(b, r);
    for (std::size_t i = 0; i < reals<R>(); ++i) p[i] = static_cast<R>(s.value());
  }
}

char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }

// Element indices (from the argument's start) of the diagonal of `matrix`
// as the routine stores it: full, band or packed.
std::vector<std::size_t> diagonal(const Routine& r, const Tuple& t, Role matrix) {
  std::vector<std::size_t> out;
  const bool upper_stored = r.has(Role::Uplo) && upper(t.letter(Role::Uplo)) == 'U';
  if (matrix == Role::AP) {
    const std::size_t n = t.integer(Role::N);
    for (std::size_t j = 0; j < n; ++j) out.push_back(upper_stored ? j * (j + 1) / 2 + j : j * n - j * (j - 1) / 2);
    return out;
  }
  if (matrix == Role::C) {
    const std::size_t step = t.integer(Role::Ldc) + 1;
    for (int j = 0; j < t.integer(Role::N); ++j) out.push_back(j * step);
    return out;
  }
  int order = t.integer(Role::N);
  if (r.has(Role::Side) && upper(t.letter(Role::Side)) == 'L') order = t.integer(Role::M);
  const std::size_t lda = t.integer(Role::Lda);
  const bool band = r.level == 2 && r.has(Role::K);
  for (int j = 0; j < order; ++j) {
    const std::size_t row = band ? (upper_stored ? t.integer(Role::K) : 0) : j;
    out.push_back(row + j * lda);
  }
  return out;
}

// Triangular solves get a dominant diagonal; Hermitian matrices a real one.
template <class R>
void shape_data(const Routine& r, const Tuple& t, Buffers& b) {
  const int width = r.complex_data() ? 2 : 1;
  if (r.solve()) {
    const Role m = r.has(Role::AP) ? Role::AP : Role::A;
    R* p = view<R>(b, m) + b.offset() * sizeof(double) / sizeof(R);
    for (std::size_t d : diagonal(r, t, m)) p[d * width] = static_cast<R>(p[d * width] >= 0 ? 8 : -8) + p[d * width];
  }
  if (r.hermitian()) {
    const bool rank_k = r.has(Role::K) && r.level == 3;
    const Role m = rank_k ? Role::C : r.has(Role::AP) ? Role::AP : Role::A;
    R* p = view<R>(b, m) + b.offset() * sizeof(double) / sizeof(R);
    for (std::size_t d : diagonal(r, t, m)) p[d * 2 + 1] = 0;
  }
}

// SCGEMM and DZGEMM: the reference's A is the layer's real A as complex.
template <class R>
void promote_a(const Buffers& from, Buffers& to) {
  const R* src = reinterpret_cast<const R*>(from.of(Role::A).data()) + from.offset() * sizeof(double) / sizeof(R);
  R* dst = reinterpret_cast<R*>(to.of(Role::A).data()) + to.offset() * sizeof(double) / sizeof(R);
  const std::size_t count = (reals<R>() - from.offset() * sizeof(double) / sizeof(R)) / 2;
  for (std::size_t i = 0; i < count; ++i) {
    dst[2 * i] = src[i];
    dst[2 * i + 1] = 0;
  }
}

// Largest difference in units of the tolerance: 16 rounding units of the
// largest magnitude in the reference's array (at least 1).
template <class R>
double excess(const Buffers& layer, const Buffers& ref, Role r) {
  const R* l = reinterpret_cast<const R*>(layer.of(r).data());
  const R* f = reinterpret_cast<const R*>(ref.of(r).data());
  double scale = 1;
  for (std::size_t i = 0; i < reals<R>(); ++i) scale = std::max(scale, std::abs(static_cast<double>(f[i])));
  const double tolerance = 16 * std::numeric_limits<R>::epsilon() * scale;
  double worst = 0;
  for (std::size_t i = 0; i < reals<R>(); ++i) {
    const double d = std::abs(static_cast<double>(l[i]) - static_cast<double>(f[i]));
    if (!(d <= tolerance)) return std::numeric_limits<double>::infinity();
    worst = std::max(worst, d / tolerance);
  }
  return worst;
}

struct Coverage {
  int compared = 0;
  std::set<std::pair<int, char>> letters;  // (role, letter as accepted)
  bool negative_increment = false;
};

template <class R>
void compare(const Routine& r) {
  std::uint64_t seed = 0x6e756d;
  for (const char c : r.name) seed = seed * 131 + static_cast<unsigned char>(c);
  Sampler s(seed);
  Coverage cov;
  double worst = 0;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Tuple t = s.next(r);
    Buffers layer(kWords, kOffset);
    fill<R>(layer, s);
    s.scalars<R>(layer);
    shape_data<R>(r, t, layer);
    Buffers ref = layer;
    if (r.real_a()) promote_a<R>(layer, ref);
    const Buffers input = layer;

    reference::reset();
    blas_shapes::call_reference(r, t, ref);
    if (!reference::reports().empty()) continue;  // not a valid call

    observe::reset();
    blas_shapes::call_layer(r, t, layer);
    for (const auto& rep : observe::reports()) {
      ADD_FAILURE() << t.describe(r) << ": the layer reported " << rep.position;
    }
    for (Role a : kArrays) {
      const Buffers& expected = (a == Role::A && r.real_a()) ? input : ref;
      const double e = excess<R>(layer, expected, a);
      worst = std::max(worst, e);
      if (e > 1) {
        ADD_FAILURE() << t.describe(r) << ": array " << static_cast<int>(a) - static_cast<int>(Role::A)
                      << " differs from the reference";
        return;
      }
    }
    ++cov.compared;
    for (Role role : r.roles) {
      if (blas_shapes::is_letter(role)) cov.letters.insert({static_cast<int>(role), t.letter(role)});
      if ((role == Role::IncX || role == Role::IncY) && t.integer(role) < 0) cov.negative_increment = true;
    }
  }
  EXPECT_GE(cov.compared, 60) << r.name;
  // Both cases of the letters and each option's alternatives took part.
  for (Role role : r.roles) {
    if (!blas_shapes::is_letter(role)) continue;
    std::set<char> folded;
    bool lower_seen = false;
    for (const auto& [which, c] : cov.letters) {
      if (which != static_cast<int>(role)) continue;
      folded.insert(upper(c));
      lower_seen = lower_seen || std::islower(static_cast<unsigned char>(c));
    }
    EXPECT_GE(folded.size(), 2u) << r.name;
    EXPECT_TRUE(lower_seen) << r.name;
  }
  if (r.has(Role::IncX)) EXPECT_TRUE(cov.negative_increment) << r.name;
  ::testing::Test::RecordProperty("worst_error_in_tolerances", std::to_string(worst));
}

class Numeric : public ::testing::TestWithParam<Routine> {};

TEST_P(Numeric, MatchesTheReference) {
  const Routine& r = GetParam();
  if (r.single()) {
    compare<float>(r);
  } else {
    compare<double>(r);
  }
}

INSTANTIATE_TEST_SUITE_P(Level2And3, Numeric, ::testing::ValuesIn(blas_shapes::all_routines()),
                         [](const auto& info) { return info.param.name; });

}  // namespace
