// The level 2 and 3 argument checks, compared with the reference BLAS's own
// checks on the same calls: thousands of random argument tuples per
// routine, each sent to both; the layer must report exactly what the
// reference reports (position; name blank-padded), or nothing, and must
// reach the computational library exactly when it reports nothing.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <map>
#include <optional>
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

// Entries of the computational library watched from here: each records
// that the layer reached it and forwards the call.
namespace {
template <class... A>
void forward(void* next, const char* entry, const void* caller, A... args) {
  observe::note_entry(entry, caller);
  reinterpret_cast<void (*)(A...)>(next)(args...);
}
}  // namespace

extern "C" {
void mkl_blas_dgemv(const char* t, const I* m, const I* n, const double* al, const double* a, const I* lda,
                    const double* x, const I* incx, const double* be, double* y, const I* incy, int lt) {
  static void* const next = observe::next("mkl_blas_dgemv");
  forward(next, "mkl_blas_dgemv", __builtin_return_address(0), t, m, n, al, a, lda, x, incx, be, y, incy, lt);
}
void mkl_blas_dgbmv(const char* t, const I* m, const I* n, const I* kl, const I* ku, const double* al,
                    const double* a, const I* lda, const double* x, const I* incx, const double* be, double* y,
                    const I* incy, int lt) {
  static void* const next = observe::next("mkl_blas_dgbmv");
  forward(next, "mkl_blas_dgbmv", __builtin_return_address(0), t, m, n, kl, ku, al, a, lda, x, incx, be, y, incy, lt);
}
void mkl_blas_dtbmv(const char* u, const char* t, const char* d, const I* n, const I* k, const double* a,
                    const I* lda, double* x, const I* incx, int lu, int lt, int ld) {
  static void* const next = observe::next("mkl_blas_dtbmv");
  forward(next, "mkl_blas_dtbmv", __builtin_return_address(0), u, t, d, n, k, a, lda, x, incx, lu, lt, ld);
}
void mkl_blas_dger(const I* m, const I* n, const double* al, const double* x, const I* incx, const double* y,
                   const I* incy, double* a, const I* lda) {
  static void* const next = observe::next("mkl_blas_dger");
  forward(next, "mkl_blas_dger", __builtin_return_address(0), m, n, al, x, incx, y, incy, a, lda);
}
void mkl_blas_dgemm(const char* ta, const char* tb, const I* m, const I* n, const I* k, const double* al,
                    const double* a, const I* lda, const double* b, const I* ldb, const double* be, double* c,
                    const I* ldc) {
  static void* const next = observe::next("mkl_blas_dgemm");
  forward(next, "mkl_blas_dgemm", __builtin_return_address(0), ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc);
}
void mkl_blas_dzgemm(const char* ta, const char* tb, const I* m, const I* n, const I* k, const double* al,
                     const double* a, const I* lda, const double* b, const I* ldb, const double* be, double* c,
                     const I* ldc) {
  static void* const next = observe::next("mkl_blas_dzgemm");
  forward(next, "mkl_blas_dzgemm", __builtin_return_address(0), ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc);
}
void mkl_blas_cgemm3m(const char* ta, const char* tb, const I* m, const I* n, const I* k, const float* al,
                      const float* a, const I* lda, const float* b, const I* ldb, const float* be, float* c,
                      const I* ldc) {
  static void* const next = observe::next("mkl_blas_cgemm3m");
  forward(next, "mkl_blas_cgemm3m", __builtin_return_address(0), ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc);
}
void mkl_blas_dsymm(const char* s, const char* u, const I* m, const I* n, const double* al, const double* a,
                    const I* lda, const double* b, const I* ldb, const double* be, double* c, const I* ldc) {
  static void* const next = observe::next("mkl_blas_dsymm");
  forward(next, "mkl_blas_dsymm", __builtin_return_address(0), s, u, m, n, al, a, lda, b, ldb, be, c, ldc);
}
void mkl_blas_cherk(const char* u, const char* t, const I* n, const I* k, const float* al, const float* a,
                    const I* lda, const float* be, float* c, const I* ldc) {
  static void* const next = observe::next("mkl_blas_cherk");
  forward(next, "mkl_blas_cherk", __builtin_return_address(0), u, t, n, k, al, a, lda, be, c, ldc);
}
void mkl_blas_zsyr2k(const char* u, const char* t, const I* n, const I* k, const double* al, const double* a,
                     const I* lda, const double* b, const I* ldb, const double* be, double* c, const I* ldc) {
  static void* const next = observe::next("mkl_blas_zsyr2k");
  forward(next, "mkl_blas_zsyr2k", __builtin_return_address(0), u, t, n, k, al, a, lda, b, ldb, be, c, ldc);
}
void mkl_blas_dtrsm(const char* s, const char* u, const char* t, const char* d, const I* m, const I* n,
                    const double* al, const double* a, const I* lda, double* b, const I* ldb) {
  static void* const next = observe::next("mkl_blas_dtrsm");
  forward(next, "mkl_blas_dtrsm", __builtin_return_address(0), s, u, t, d, m, n, al, a, lda, b, ldb);
}
}  // extern "C"

namespace {

const std::set<std::string> kWatched = {"DGEMV", "DGBMV", "DTBMV", "DGER",  "DGEMM", "DZGEMM",
                                        "CGEMM3M", "DSYMM", "CHERK", "ZSYR2K", "DTRSM"};

// The name as reported: blank-padded to six characters; the extensions
// with longer or six-letter names carry one trailing blank.
std::string reported_name(const std::string& name) {
  if (name == "SCGEMM" || name == "DZGEMM" || name == "CGEMM3M" || name == "ZGEMM3M") return name + " ";
  return name + std::string(name.size() < 6 ? 6 - name.size() : 0, ' ');
}

struct Outcome {
  std::vector<observe::Report> reports;
  bool reached = false;
};

Outcome run_layer(const Routine& r, Tuple t, Buffers& b) {
  observe::reset();
  blas_shapes::call_layer(r, t, b);
  Outcome o;
  for (const auto& rep : observe::reports()) {
    if (rep.from_layer) o.reports.push_back(rep);
  }
  for (const auto& e : observe::events()) {
    if (e.kind == observe::Kind::Entry && e.entry == "mkl_blas_" + r.lower()) o.reached = true;
  }
  return o;
}

// The position the reference reports for this call (0: none).
long long run_reference(const Routine& r, Tuple t, Buffers& b) {
  reference::reset();
  blas_shapes::call_reference(r, t, b);
  const auto& reps = reference::reports();
  if (reps.empty()) return 0;
  EXPECT_EQ(reps.size(), 1u);
  EXPECT_EQ(reps[0].name, r.reference_name());
  return reps[0].position;
}

bool letter_is(char c, char upper) { return c == upper || c == upper - 'A' + 'a'; }

// The position the layer must report, given the reference's. Where the
// reference cannot speak for a routine, the rule is applied here.
long long expected_position(const Routine& r, const Tuple& t, long long reference_position) {
  // A real A has no conjugate: SCGEMM and DZGEMM refuse 'C', which ?GEMM takes.
  if (r.real_a() && letter_is(t.letter(Role::TransA), 'C')) return 1;
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

  // Mostly a letter the option takes, in either case; otherwise any
  // option's letter or an unusual character (blank, NUL, high bit set).
  char letter(Role r) {
    static const std::string unusual = std::string("XxAaBbRr /0*?") + '\0' + '\xce' + '\xee';
    if (pick(0, 9) < 7) {
      const std::string valid = blas_shapes::valid_letters(r);
      const char c = valid[pick(0, static_cast<int>(valid.size()) - 1)];
      return pick(0, 1) ? c : static_cast<char>(c - 'A' + 'a');
    }
    const std::string pool = unusual + "NTCULDRntculdr";
    return pool[pick(0, static_cast<int>(pool.size()) - 1)];
  }

  Tuple next(const Routine& routine) {
    Tuple t;
    for (Role r : routine.roles) {
      if (blas_shapes::is_letter(r)) {
        t.letter(r) = letter(r);
      } else if (r == Role::Lda || r == Role::Ldb || r == Role::Ldc) {
        t.integer(r) = pick(-1, 8);
      } else if (r == Role::IncX || r == Role::IncY) {
        t.integer(r) = pick(-3, 3);
      } else if (blas_shapes::is_integer(r)) {
        t.integer(r) = pick(-2, 6);
      }
    }
    return t;
  }

 private:
  std::mt19937_64 rng_;
};

// Large enough, on both sides of each argument's start, that even a call
// with negative leading dimensions or increments would stay inside.
Buffers check_buffers() { return Buffers(16384, 8192); }

constexpr int kTuplesPerRoutine = 3000;

// Sends one tuple to both; false (with a failure recorded) on disagreement.
bool agrees(const Routine& r, const Tuple& t, Buffers& layer_buffers, Buffers& reference_buffers,
            long long& expected) {
  expected = expected_position(r, t, run_reference(r, t, reference_buffers));
  const Outcome got = run_layer(r, t, layer_buffers);
  const long long position = got.reports.empty() ? 0 : got.reports[0].position;
  bool ok = got.reports.size() <= 1 && position == expected;
  if (!got.reports.empty()) {
    ok = ok && got.reports[0].name == reported_name(r.name) &&
         got.reports[0].length == static_cast<long long>(reported_name(r.name).size());
  }
  if (kWatched.count(r.name)) ok = ok && got.reached == (expected == 0);
  if (!ok) {
    ADD_FAILURE() << t.describe(r) << ": reference (or rule) " << expected << ", layer " << got.reports.size()
                  << " report(s), first " << position << " '" << (got.reports.empty() ? "" : got.reports[0].name)
                  << "', reached " << got.reached;
  }
  return ok;
}

class Checkers : public ::testing::TestWithParam<Routine> {};

TEST_P(Checkers, ReportWhatTheReferenceReports) {
  const Routine& r = GetParam();
  std::uint64_t seed = 0x5eed;
  for (const char c : r.name) seed = seed * 131 + static_cast<unsigned char>(c);
  Generator gen(seed);
  Buffers layer_buffers = check_buffers();
  Buffers reference_buffers = check_buffers();
  std::set<long long> positions_seen;
  int valid = 0;
  int mismatches = 0;
  for (int i = 0; i < kTuplesPerRoutine && mismatches < 10; ++i) {
    const Tuple t = gen.next(r);
    long long expected = 0;
    if (!agrees(r, t, layer_buffers, reference_buffers, expected)) ++mismatches;
    if (expected == 0) ++valid;
    positions_seen.insert(expected);
  }
  // Every checked argument was found wrong at least once, and calls passed.
  std::set<long long> checked;
  for (std::size_t i = 0; i < r.roles.size(); ++i) {
    if (blas_shapes::is_checked(r.roles[i])) checked.insert(static_cast<long long>(i + 1));
  }
  positions_seen.erase(0);
  EXPECT_EQ(positions_seen, checked) << r.name;
  EXPECT_GT(valid, 50) << r.name;
}

// Extreme integers, one or two at a time, where the reference's 32-bit
// arithmetic could wrap. One size stays 0 and alpha = 0, beta = 1, so that
// an accepted call has nothing to do on either side.
TEST_P(Checkers, ExtremeIntegersAsTheReference) {
  const Routine& r = GetParam();
  Buffers layer_buffers = check_buffers();
  Buffers reference_buffers = check_buffers();
  for (Buffers* b : {&layer_buffers, &reference_buffers}) {
    const float one_single = 1;
    const double one_double = 1;
    if (r.single()) std::memcpy(b->beta, &one_single, sizeof one_single);
    else std::memcpy(b->beta, &one_double, sizeof one_double);
  }
  const int values[] = {INT_MAX, INT_MIN, 1 << 30, -(1 << 30), 0, 1};
  int mismatches = 0;
  for (Role pinned : {Role::N, Role::M}) {
    if (!r.has(pinned)) continue;
    std::vector<Role> varied;
    for (Role role : r.roles) {
      // N stays small where it is the only size.
      const bool free_n = role != Role::N || r.has(Role::M);
      if (blas_shapes::is_integer(role) && role != pinned && free_n) varied.push_back(role);
    }
    Tuple base;
    for (Role role : r.roles) {
      if (blas_shapes::is_letter(role)) base.letter(role) = blas_shapes::valid_letters(role)[0];
      else if (blas_shapes::is_integer(role)) base.integer(role) = 1;
    }
    base.integer(pinned) = 0;
    for (std::size_t i = 0; i < varied.size(); ++i) {
      for (std::size_t j = i; j < varied.size(); ++j) {
        for (int vi : values) {
          for (int vj : values) {
            if (mismatches >= 10) return;
            if (i == j && vj != vi) continue;
            Tuple t = base;
            t.integer(varied[i]) = vi;
            t.integer(varied[j]) = vj;
            long long expected = 0;
            if (!agrees(r, t, layer_buffers, reference_buffers, expected)) ++mismatches;
          }
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Level2And3, Checkers, ::testing::ValuesIn(blas_shapes::all_routines()),
                         [](const auto& info) { return info.param.name; });

// Hand-picked calls at the edges of the rules.
class Edge : public ::testing::Test {
 protected:
  static Routine routine(const std::string& name) {
    for (const Routine& r : blas_shapes::all_routines()) {
      if (r.name == name) return r;
    }
    std::abort();
  }
  // A valid call: first accepted letters, sizes 2, leading dimensions 8,
  // unit increments.
  static Tuple defaults(const Routine& r) {
    Tuple t;
    for (Role role : r.roles) {
      if (blas_shapes::is_letter(role)) t.letter(role) = blas_shapes::valid_letters(role)[0];
      if (role == Role::Lda || role == Role::Ldb || role == Role::Ldc) t.integer(role) = 8;
      else if (role == Role::IncX || role == Role::IncY) t.integer(role) = 1;
      else if (blas_shapes::is_integer(role)) t.integer(role) = 2;
    }
    return t;
  }
  Outcome run(const std::string& name, const Tuple& t) { return run_layer(routine(name), t, buffers_); }
  // Exactly one report, at `position`, and the computational library left alone.
  void expect_report(const std::string& name, const Tuple& t, long long position) {
    const Outcome o = run(name, t);
    ASSERT_EQ(o.reports.size(), 1u) << t.describe(routine(name));
    EXPECT_EQ(o.reports[0].position, position) << t.describe(routine(name));
    EXPECT_EQ(o.reports[0].name, reported_name(name));
    EXPECT_EQ(o.reports[0].length, static_cast<long long>(reported_name(name).size()));
    EXPECT_FALSE(o.reached);
  }
  void expect_valid(const std::string& name, const Tuple& t) {
    const Outcome o = run(name, t);
    EXPECT_TRUE(o.reports.empty()) << t.describe(routine(name)) << " reported " << o.reports[0].position;
    EXPECT_TRUE(o.reached) << t.describe(routine(name));
  }
  Buffers buffers_ = check_buffers();
};

TEST_F(Edge, Gemv) {
  Tuple t = defaults(routine("DGEMV"));
  t.letter(Role::Trans) = 'n';
  expect_valid("DGEMV", t);
  t.letter(Role::Trans) = 'X';
  expect_report("DGEMV", t, 1);
  t = defaults(routine("DGEMV"));
  t.integer(Role::M) = -1;
  t.integer(Role::Lda) = 0;
  expect_report("DGEMV", t, 2);
  t.integer(Role::M) = 0;
  t.integer(Role::N) = 0;
  t.integer(Role::Lda) = 1;
  expect_valid("DGEMV", t);
}

TEST_F(Edge, BandWidthAgainstLeadingDimension) {
  Tuple t = defaults(routine("DGBMV"));
  t.integer(Role::KL) = 2;
  t.integer(Role::KU) = 1;
  t.integer(Role::Lda) = 3;
  expect_report("DGBMV", t, 8);
  t.integer(Role::Lda) = 4;
  expect_valid("DGBMV", t);
  t = defaults(routine("DTBMV"));
  t.integer(Role::K) = 3;
  t.integer(Role::Lda) = 3;
  expect_report("DTBMV", t, 7);
}

TEST_F(Edge, GerIncrementBeforeLeadingDimension) {
  Tuple t = defaults(routine("DGER"));
  t.integer(Role::M) = 5;
  t.integer(Role::IncY) = 0;
  t.integer(Role::Lda) = 4;
  expect_report("DGER", t, 7);
}

TEST_F(Edge, GemmRowsOfAFollowTransA) {
  Tuple t = defaults(routine("DGEMM"));
  t.letter(Role::TransA) = 'T';
  t.integer(Role::M) = 10;
  t.integer(Role::K) = 3;
  t.integer(Role::Lda) = 3;
  t.integer(Role::Ldb) = 3;
  t.integer(Role::Ldc) = 10;
  expect_valid("DGEMM", t);
  t.letter(Role::TransA) = 'N';
  expect_report("DGEMM", t, 8);
}

TEST_F(Edge, GemmExtensions) {
  Tuple t = defaults(routine("DZGEMM"));
  t.letter(Role::TransA) = 'C';
  expect_report("DZGEMM", t, 1);
  t.letter(Role::TransA) = 'T';
  expect_valid("DZGEMM", t);
  t = defaults(routine("CGEMM3M"));
  t.integer(Role::M) = -1;
  expect_report("CGEMM3M", t, 3);
  t.integer(Role::M) = 2;
  t.letter(Role::TransA) = 'C';
  expect_valid("CGEMM3M", t);
}

TEST_F(Edge, TrsmRightSide) {
  Tuple t = defaults(routine("DTRSM"));
  t.letter(Role::Side) = 'R';
  t.integer(Role::M) = 4;
  t.integer(Role::N) = 2;
  t.integer(Role::Lda) = 2;
  t.integer(Role::Ldb) = 4;
  expect_valid("DTRSM", t);
  t.integer(Role::Ldb) = 3;
  expect_report("DTRSM", t, 11);
}

TEST_F(Edge, RankKTransposeLetters) {
  Tuple t = defaults(routine("CHERK"));
  t.letter(Role::Trans) = 'T';
  expect_report("CHERK", t, 2);
  t.letter(Role::Trans) = 'C';
  expect_valid("CHERK", t);
  t = defaults(routine("CSYRK"));
  t.letter(Role::Trans) = 'C';
  expect_report("CSYRK", t, 2);
  t = defaults(routine("DSYRK"));
  t.letter(Role::Trans) = 'C';
  EXPECT_TRUE(run("DSYRK", t).reports.empty());
}

TEST_F(Edge, FirstFailureOnly) {
  Tuple t = defaults(routine("DSYMM"));
  t.letter(Role::Side) = 'X';
  t.letter(Role::Uplo) = 'X';
  expect_report("DSYMM", t, 1);
}

}  // namespace
