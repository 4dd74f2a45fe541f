// The level 2 and 3 argument checks, compared with the reference BLAS's own
// checks on the same calls: thousands of random argument tuples per
// routine, each sent to both; the layer must report exactly what the
// reference reports (position; name blank-padded), or nothing. The
// standard routines' numerics are the netlib programs' (netlib_x?blat2/3
// through the companions); the extensions' are held against ?GEMM here.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
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
using I = long long;

// One entry of the computational library per level, watched: a refused
// call must not reach it, an accepted one must.
namespace {
template <class... A>
void forward(const char* entry, const void* caller, A... args) {
  observe::note_entry(entry, caller);
  reinterpret_cast<void (*)(A...)>(observe::next(entry))(args...);
}
}  // namespace

extern "C" {
void mkl_blas_dgemv(const char* t, const I* m, const I* n, const double* al, const double* a, const I* lda,
                    const double* x, const I* incx, const double* be, double* y, const I* incy, int lt) {
  forward("mkl_blas_dgemv", __builtin_return_address(0), t, m, n, al, a, lda, x, incx, be, y, incy, lt);
}
void mkl_blas_dgemm(const char* ta, const char* tb, const I* m, const I* n, const I* k, const double* al,
                    const double* a, const I* lda, const double* b, const I* ldb, const double* be, double* c,
                    const I* ldc) {
  forward("mkl_blas_dgemm", __builtin_return_address(0), ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc);
}
}  // extern "C"

namespace {

// The name as reported: blank-padded to six characters; the extensions
// with longer or six-letter names carry one trailing blank.
std::string reported_name(const std::string& name) {
  if (name == "SCGEMM" || name == "DZGEMM" || name == "CGEMM3M" || name == "ZGEMM3M") return name + " ";
  return name + std::string(name.size() < 6 ? 6 - name.size() : 0, ' ');
}

// The position the layer must report, given the reference's. Where the
// reference cannot speak for a routine, the rule is applied here.
long long expected_position(const Routine& r, const Tuple& t, long long reference_position) {
  // A real A has no conjugate: SCGEMM and DZGEMM refuse 'C', which ?GEMM takes.
  if (r.real_a() && std::toupper(static_cast<unsigned char>(t.letter(Role::TransA))) == 'C') return 1;
  // ?GBMV: the reference tests LDA against KL+KU in 32-bit arithmetic;
  // when the sum passes 2**31-1 it wraps negative and any LDA gets through
  // position 8. The layer compares the 64-bit sum.
  if (r.has(Role::KL) && (reference_position == 0 || reference_position > 8)) {
    const long long bands = static_cast<long long>(t.integer(Role::KL)) + t.integer(Role::KU);
    if (t.integer(Role::KL) >= 0 && t.integer(Role::KU) >= 0 && bands > INT_MAX) return 8;
  }
  return reference_position;
}

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : rng_(seed) {}

  int pick(int lo, int hi) { return lo + static_cast<int>(rng_() % static_cast<std::uint64_t>(hi - lo + 1)); }
  char accepted(Role r) {
    const std::string valid = blas_shapes::valid_letters(r);
    return valid[pick(0, static_cast<int>(valid.size()) - 1)];
  }

  // Mostly a letter the option takes, in either case; otherwise any
  // option's letter or an unusual character (blank, NUL, high bit set).
  char letter(Role r) {
    static const std::string pool = std::string("XxAaBbRr /0*?") + '\0' + '\xce' + '\xee' + "NTCULDRntculdr";
    if (pick(0, 9) >= 7) return pool[pick(0, static_cast<int>(pool.size()) - 1)];
    const char c = accepted(r);
    return pick(0, 1) ? c : static_cast<char>(std::tolower(c));
  }

  Tuple next(const Routine& routine) {
    Tuple t;
    for (Role r : routine.roles) {
      if (blas_shapes::is_letter(r)) t.letter(r) = letter(r);
      else if (r == Role::Lda || r == Role::Ldb || r == Role::Ldc) t.integer(r) = pick(-1, 8);
      else if (r == Role::IncX || r == Role::IncY) t.integer(r) = pick(-3, 3);
      else if (blas_shapes::is_integer(r)) t.integer(r) = pick(-2, 6);
    }
    return t;
  }

  // Accepted letters, integers 1 but one size 0, and one or two integers
  // where the reference's 32-bit arithmetic could wrap. With alpha = 0 and
  // beta = 1 an accepted call has nothing to do on either side.
  Tuple extreme(const Routine& routine) {
    static const int values[] = {INT_MAX, INT_MIN, 1 << 30, -(1 << 30)};
    Tuple t;
    const Role pinned = routine.has(Role::M) && pick(0, 1) ? Role::M : Role::N;
    std::vector<Role> varied;
    for (Role r : routine.roles) {
      if (blas_shapes::is_letter(r)) t.letter(r) = accepted(r);
      if (!blas_shapes::is_integer(r)) continue;
      t.integer(r) = r == pinned ? 0 : 1;
      if (r != pinned) varied.push_back(r);
    }
    for (int i = pick(1, 2); i > 0; --i)
      t.integer(varied[pick(0, static_cast<int>(varied.size()) - 1)]) = values[pick(0, 3)];
    return t;
  }

 private:
  std::mt19937_64 rng_;
};

// Large enough, on both sides of each argument's start, that even a call
// with negative leading dimensions or increments would stay inside.
Buffers check_buffers(const Routine& r) {
  Buffers b(16384, 8192);
  const float one_single = 1;
  if (r.single()) std::memcpy(b.beta, &one_single, sizeof one_single);
  else b.beta[0] = 1;
  return b;
}

// Sends one tuple to both; false (with a failure recorded) on disagreement.
bool agrees(const Routine& r, Tuple t, Buffers& layer_buffers, Buffers& reference_buffers, long long& expected) {
  reference::reset();
  blas_shapes::call_reference(r, t, reference_buffers);
  const auto& heard = reference::reports();
  EXPECT_TRUE(heard.empty() || (heard.size() == 1 && heard[0].name == r.reference_name())) << t.describe(r);
  expected = expected_position(r, t, heard.empty() ? 0 : heard[0].position);

  observe::reset();
  blas_shapes::call_layer(r, t, layer_buffers);
  std::vector<observe::Report> reports;
  for (const auto& rep : observe::reports())
    if (rep.from_layer) reports.push_back(rep);
  bool reached = false;
  for (const auto& e : observe::events()) reached = reached || e.entry == "mkl_blas_" + r.lower();
  const long long position = reports.empty() ? 0 : reports[0].position;
  const std::string name = reports.empty() ? "" : reports[0].name;
  bool ok = reports.size() <= 1 && position == expected;
  if (!reports.empty()) ok = ok && name == reported_name(r.name) && reports[0].length == int(name.size());
  if (r.name == "DGEMV" || r.name == "DGEMM") ok = ok && reached == (expected == 0);
  if (!ok) {
    ADD_FAILURE() << t.describe(r) << ": reference (or rule) " << expected << ", layer " << reports.size()
                  << " report(s), first " << position << " '" << name << "', reached " << reached;
  }
  return ok;
}

class Checkers : public ::testing::TestWithParam<Routine> {};

// Random tuples, a third of them with extreme integers, each sent to both.
TEST_P(Checkers, ReportWhatTheReferenceReports) {
  const Routine& r = GetParam();
  std::uint64_t seed = 0x5eed;
  for (const char c : r.name) seed = seed * 131 + static_cast<unsigned char>(c);
  Generator gen(seed);
  Buffers layer_buffers = check_buffers(r);
  Buffers reference_buffers = check_buffers(r);
  std::set<long long> positions_seen;
  int valid = 0;
  int mismatches = 0;
  for (int i = 0; i < 4500 && mismatches < 10; ++i) {
    long long expected = 0;
    if (!agrees(r, i % 3 == 2 ? gen.extreme(r) : gen.next(r), layer_buffers, reference_buffers, expected))
      ++mismatches;
    valid += expected == 0;
    positions_seen.insert(expected);
  }
  // Every checked argument was found wrong at least once, and calls passed.
  std::set<long long> checked;
  for (std::size_t i = 0; i < r.roles.size(); ++i)
    if (blas_shapes::is_checked(r.roles[i])) checked.insert(static_cast<long long>(i + 1));
  positions_seen.erase(0);
  EXPECT_EQ(positions_seen, checked) << r.name;
  EXPECT_GT(valid, 50) << r.name;
}

INSTANTIATE_TEST_SUITE_P(Level2And3, Checkers, ::testing::ValuesIn(blas_shapes::all_routines()),
                         [](const auto& info) { return info.param.name; });

// ?GEMM3M, SCGEMM and DZGEMM, which the netlib programs do not call, hold
// against the reference ?GEMM on the same data (A promoted to complex for
// the real-A pair): small random calls, leading dimensions with slack, the
// whole of every buffer compared, what lies around the arguments included.
template <class R>
void gemm_against_reference(const Routine& r) {
  Generator gen(r.name.size() * 977 + r.name[0]);
  std::mt19937 rng(7);
  std::uniform_real_distribution<R> value(R(-1), R(1));
  auto randomize = [&](void* data, std::size_t reals) {
    for (std::size_t i = 0; i < reals; ++i) static_cast<R*>(data)[i] = value(rng);
  };
  constexpr std::size_t kReals = 320 * sizeof(double) / sizeof(R);
  for (int attempt = 0; attempt < 200; ++attempt) {
    Tuple t;
    t.letter(Role::TransA) = r.real_a() ? "NTnt"[gen.pick(0, 3)] : "NTCntc"[gen.pick(0, 5)];
    t.letter(Role::TransB) = "NTCntc"[gen.pick(0, 5)];
    for (Role size : {Role::M, Role::N, Role::K}) t.integer(size) = gen.pick(0, 5);
    auto rows = [&](Role trans, Role plain, Role other) {
      return std::max(1, t.integer(std::toupper(t.letter(trans)) == 'N' ? plain : other)) + gen.pick(0, 2);
    };
    t.integer(Role::Lda) = rows(Role::TransA, Role::M, Role::K);
    t.integer(Role::Ldb) = rows(Role::TransB, Role::K, Role::N);
    t.integer(Role::Ldc) = std::max(t.integer(Role::M), 1) + gen.pick(0, 2);
    Buffers layer(320, 32);
    for (Role a : {Role::A, Role::B, Role::C}) randomize(layer.of(a).data(), kReals);
    randomize(layer.alpha, 2);
    randomize(layer.beta, 2);
    Buffers ref = layer;
    if (r.real_a()) {
      const R* real = static_cast<const R*>(layer.start(Role::A));
      R* promoted = static_cast<R*>(ref.start(Role::A));
      for (int i = 0; i < t.integer(Role::Lda) * 5; ++i) promoted[2 * i] = real[i], promoted[2 * i + 1] = 0;
    }
    const Buffers input = layer;
    blas_shapes::call_reference(r, t, ref);
    observe::reset();
    blas_shapes::call_layer(r, t, layer);
    const std::string where = t.describe(r);
    EXPECT_TRUE(observe::reports().empty()) << where;
    EXPECT_EQ(layer.of(Role::A), input.of(Role::A)) << where;
    EXPECT_EQ(layer.of(Role::B), input.of(Role::B)) << where;
    const R* got = reinterpret_cast<const R*>(layer.of(Role::C).data());
    const R* want = reinterpret_cast<const R*>(ref.of(Role::C).data());
    R scale = 1;
    for (std::size_t i = 0; i < kReals; ++i) scale = std::max(scale, std::abs(want[i]));
    for (std::size_t i = 0; i < kReals; ++i)
      ASSERT_LE(std::abs(got[i] - want[i]), 16 * std::numeric_limits<R>::epsilon() * scale) << where << " C " << i;
  }
}

TEST(GemmExtensions, ComputeWhatTheReferenceGemmComputes) {
  for (const Routine& r : blas_shapes::all_routines()) {
    if (r.name.find("GEMM3M") == std::string::npos && !r.real_a()) continue;
    if (r.single()) gemm_against_reference<float>(r);
    else gemm_against_reference<double>(r);
  }
}

}  // namespace
