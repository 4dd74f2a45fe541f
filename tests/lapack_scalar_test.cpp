// LAPACK routines without integer or logical arrays, through the layer
// against the reference LAPACK on the same problems; the layer's argument
// pre-checks against the reference's own reports; the hooks around every
// call.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <complex>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/observe.h"
#include "support/reference.h"
#include "vorn_instable.h"

namespace {

// ------------------------------------------------------ entry interposers
//
// The MKL entries of the routines whose pre-checks are tested below. Each
// records that the layer reached it and forwards to MKL, unless a test asks
// it to swallow the call (a call MKL must not see because it would overrun
// a buffer). They are weak so that another suite may define the same entry.

std::atomic<bool> g_swallow{false};
std::atomic<int> g_own_hits{0};

bool stop_here(const char* entry, const void* from) {
  observe::note_entry(entry, from);
  if (!observe::in_layer(from)) return false;
  ++g_own_hits;
  return g_swallow.load();
}

}  // namespace

#define VORN_P5 void *a1, void *a2, void *a3, void *a4, void *a5
#define VORN_A5 a1, a2, a3, a4, a5
#define VORN_P8 VORN_P5, void *a6, void *a7, void *a8
#define VORN_A8 VORN_A5, a6, a7, a8
#define VORN_P9 VORN_P8, void *a9
#define VORN_A9 VORN_A8, a9
#define VORN_P10 VORN_P9, void *a10
#define VORN_A10 VORN_A9, a10
#define VORN_P11 VORN_P10, void *a11
#define VORN_A11 VORN_A10, a11
#define VORN_P13 VORN_P11, void *a12, void *a13
#define VORN_A13 VORN_A11, a12, a13
#define VORN_P14 VORN_P13, void *a14
#define VORN_A14 VORN_A13, a14
#define VORN_P15 VORN_P14, void *a15
#define VORN_A15 VORN_A14, a15

#define VORN_INTERPOSE(entry, PARAMS, ARGS)                                     \
  extern "C" __attribute__((weak)) void entry PARAMS {                          \
    if (stop_here(#entry, __builtin_return_address(0))) return;                 \
    using F = void(*) PARAMS;                                                   \
    static const auto real = reinterpret_cast<F>(observe::next(#entry));       \
    real ARGS;                                                                  \
  }
#define VORN_INTERPOSE_4(stem, PARAMS, ARGS)            \
  VORN_INTERPOSE(mkl_lapack_s##stem, PARAMS, ARGS)      \
  VORN_INTERPOSE(mkl_lapack_d##stem, PARAMS, ARGS)      \
  VORN_INTERPOSE(mkl_lapack_c##stem, PARAMS, ARGS)      \
  VORN_INTERPOSE(mkl_lapack_z##stem, PARAMS, ARGS)

VORN_INTERPOSE(mkl_lapack_sgeqrf, (VORN_P8), (VORN_A8))
VORN_INTERPOSE(mkl_lapack_cgeqrf, (VORN_P8), (VORN_A8))
VORN_INTERPOSE(mkl_lapack_zgeqrf, (VORN_P8), (VORN_A8))
VORN_INTERPOSE_4(gelqf, (VORN_P8), (VORN_A8))
VORN_INTERPOSE_4(gebrd, (VORN_P11), (VORN_A11))
VORN_INTERPOSE_4(gehrd, (VORN_P9), (VORN_A9))
VORN_INTERPOSE(mkl_lapack_sorghr, (VORN_P9), (VORN_A9))
VORN_INTERPOSE(mkl_lapack_dorghr, (VORN_P9), (VORN_A9))
VORN_INTERPOSE(mkl_lapack_sorgqr, (VORN_P9), (VORN_A9))
VORN_INTERPOSE(mkl_lapack_dorgqr, (VORN_P9), (VORN_A9))
VORN_INTERPOSE(mkl_lapack_cungqr, (VORN_P9), (VORN_A9))
VORN_INTERPOSE(mkl_lapack_zungqr, (VORN_P9), (VORN_A9))
VORN_INTERPOSE(mkl_lapack_sormqr, (VORN_P13, int l1, int l2), (VORN_A13, l1, l2))
VORN_INTERPOSE(mkl_lapack_dormqr, (VORN_P13, int l1, int l2), (VORN_A13, l1, l2))
VORN_INTERPOSE(mkl_lapack_cunmqr, (VORN_P13, int l1, int l2), (VORN_A13, l1, l2))
VORN_INTERPOSE(mkl_lapack_zunmqr, (VORN_P13, int l1, int l2), (VORN_A13, l1, l2))
VORN_INTERPOSE(mkl_lapack_sormql, (VORN_P13, int l1, int l2), (VORN_A13, l1, l2))
VORN_INTERPOSE(mkl_lapack_dormql, (VORN_P13, int l1, int l2), (VORN_A13, l1, l2))
VORN_INTERPOSE(mkl_lapack_cunmql, (VORN_P13, int l1, int l2), (VORN_A13, l1, l2))
VORN_INTERPOSE(mkl_lapack_zunmql, (VORN_P13, int l1, int l2), (VORN_A13, l1, l2))
VORN_INTERPOSE_4(potrf, (VORN_P5, int l1), (VORN_A5, l1))
VORN_INTERPOSE(mkl_lapack_ssytrd, (VORN_P10, int l1), (VORN_A10, l1))
VORN_INTERPOSE(mkl_lapack_dsytrd, (VORN_P10, int l1), (VORN_A10, l1))
VORN_INTERPOSE(mkl_lapack_chetrd, (VORN_P10, int l1), (VORN_A10, l1))
VORN_INTERPOSE(mkl_lapack_zhetrd, (VORN_P10, int l1), (VORN_A10, l1))
VORN_INTERPOSE(mkl_lapack_ssygst, (VORN_P8, int l1), (VORN_A8, l1))
VORN_INTERPOSE(mkl_lapack_dsygst, (VORN_P8, int l1), (VORN_A8, l1))
VORN_INTERPOSE(mkl_lapack_chegst, (VORN_P8, int l1), (VORN_A8, l1))
VORN_INTERPOSE(mkl_lapack_zhegst, (VORN_P8, int l1), (VORN_A8, l1))
VORN_INTERPOSE_4(geev, (VORN_P14, int l1, int l2), (VORN_A14, l1, l2))
VORN_INTERPOSE(mkl_lapack_sgesvd, (VORN_P14, int l1, int l2), (VORN_A14, l1, l2))
VORN_INTERPOSE(mkl_lapack_dgesvd, (VORN_P14, int l1, int l2), (VORN_A14, l1, l2))
VORN_INTERPOSE(mkl_lapack_cgesvd, (VORN_P15, int l1, int l2), (VORN_A15, l1, l2))
VORN_INTERPOSE(mkl_lapack_zgesvd, (VORN_P15, int l1, int l2), (VORN_A15, l1, l2))

namespace {
// DGEQRF's entry also keeps the 64-bit values it received.
struct Seen {
  long long m = 0, n = 0, lwork = 0;
  int hits = 0;
} g_dgeqrf_seen;
}  // namespace

extern "C" __attribute__((weak)) void mkl_lapack_dgeqrf(const long long* m, const long long* n, double* a,
                                                        const long long* lda, double* tau, double* work,
                                                        const long long* lwork, long long* info) {
  if (observe::in_layer(__builtin_return_address(0))) g_dgeqrf_seen = {*m, *n, *lwork, g_dgeqrf_seen.hits + 1};
  if (stop_here("mkl_lapack_dgeqrf", __builtin_return_address(0))) return;
  using F = void (*)(const long long*, const long long*, double*, const long long*, double*, double*,
                     const long long*, long long*);
  static const auto real = reinterpret_cast<F>(observe::next("mkl_lapack_dgeqrf"));
  real(m, n, a, lda, tau, work, lwork, info);
}

namespace {

template <class F>
F exported(const std::string& name) {
  void* f = dlsym(RTLD_DEFAULT, ("VORN_instable_" + name).c_str());
  if (f == nullptr) ADD_FAILURE() << "VORN_instable_" << name << " is not exported";
  return reinterpret_cast<F>(f);
}

template <class R>
R tol() {
  return std::is_same_v<R, float> ? R(2e-4) : R(1e-11);
}

template <class R>
bool near(R got, R want, double scale = 1) {
  return std::abs(got - want) <= tol<R>() * (scale + std::abs(want));
}

// Every LAPACK call through the layer: the error handler, then the progress
// handler, both the layer's own, installed once each before anything else.
void expect_lapack_frame(const std::string& where) {
  const auto& ev = observe::events();
  ASSERT_GE(ev.size(), 2u) << where << ": hooks not installed";
  EXPECT_EQ(ev[0].kind, observe::Kind::SetXerbla) << where;
  EXPECT_EQ(ev[1].kind, observe::Kind::SetProgress) << where;
  EXPECT_TRUE(observe::in_layer(ev[0].pointer)) << where << ": foreign error handler";
  EXPECT_TRUE(observe::in_layer(ev[1].pointer)) << where << ": foreign progress handler";
  for (std::size_t i = 2; i < ev.size(); ++i)
    EXPECT_EQ(ev[i].kind, observe::Kind::Entry) << where << ": unexpected event " << i;
  EXPECT_TRUE(observe::reports().empty()) << where << ": unexpected report";
}

// -------------------------------------------------------- scalar routines

TEST(LapackScalars, Lapy2MatchesReference) {
  const auto dref = reference::fn<double (*)(const double*, const double*)>("dlapy2_");
  const auto sref = reference::fn<float (*)(const float*, const float*)>("slapy2_");
  const double dv[][2] = {{3, 4}, {-1e300, 1e300}, {0, -2}, {1e-310, 1e-310}};
  const float sv[][2] = {{3, 4}, {-1e30f, 1e30f}, {0, -2}, {1e-40f, 1e-40f}};
  for (int i = 0; i < 4; ++i) {
    observe::reset();
    EXPECT_TRUE(near(VORN_instable_dlapy2(&dv[i][0], &dv[i][1]), dref(&dv[i][0], &dv[i][1]))) << i;
    expect_lapack_frame("dlapy2");
    EXPECT_TRUE(near(VORN_instable_SLAPY2_(&sv[i][0], &sv[i][1]), sref(&sv[i][0], &sv[i][1]))) << i;
  }
}

// The complex divisions return their value through the hidden first argument.
template <class R>
void check_complex_division(void (*layer)(R*, const R*, const R*), const char* ref_name) {
  using Ref = std::complex<R> (*)(const std::complex<R>*, const std::complex<R>*);
  const std::complex<R> cases[][2] = {{{1, 2}, {3, -4}}, {{R(1e-20), 5}, {R(1e20), R(1e-20)}}, {{-7, 0}, {0, R(0.5)}}};
  for (const auto& c : cases) {
    R result[3] = {R(NAN), R(NAN), R(42)};
    observe::reset();
    layer(result, reinterpret_cast<const R*>(&c[0]), reinterpret_cast<const R*>(&c[1]));
    expect_lapack_frame(ref_name);
    const auto want = reference::fn<Ref>(ref_name)(&c[0], &c[1]);
    EXPECT_TRUE(near(result[0], want.real())) << ref_name << " re";
    EXPECT_TRUE(near(result[1], want.imag())) << ref_name << " im";
    EXPECT_EQ(result[2], R(42)) << ref_name << " wrote past its result";
  }
}

TEST(LapackScalars, ComplexDivisionWritesHiddenResult) {
  check_complex_division<double>(&VORN_instable_zladiv, "zladiv_");
  check_complex_division<float>(&VORN_instable_CLADIV, "cladiv_");
  const double a = 1, b = 2, c = 3, d = -4;
  double p = 0, q = 0, pr = 0, qr = 0;
  VORN_instable_DLADIV_(&a, &b, &c, &d, &p, &q);
  reference::fn<void (*)(const double*, const double*, const double*, const double*, double*, double*)>("dladiv_")(
      &a, &b, &c, &d, &pr, &qr);
  EXPECT_TRUE(near(p, pr));
  EXPECT_TRUE(near(q, qr));
}

// ------------------------------------------------ hooks and MKL entries

TEST(LapackHooks, InstalledInOrderBeforeTheEntryIsReached) {
  // Through each spelling, the layer's two handlers precede the MKL entry.
  const int n = 3, lda = 3;
  using Potrf = void (*)(const char*, const int*, double*, const int*, int*);
  for (const char* spelling : {"zpotrf", "zpotrf_", "ZPOTRF", "ZPOTRF_"}) {
    double a[18] = {4, 0, 1, 0, 0, 0, 1, 0, 5, 0, 1, 0, 0, 0, 1, 0, 6, 0};
    int info = 99;
    observe::reset();
    exported<Potrf>(spelling)("L", &n, a, &lda, &info);
    EXPECT_EQ(info, 0);
    const auto& ev = observe::events();
    ASSERT_EQ(ev.size(), 3u) << spelling;
    EXPECT_EQ(ev[0].kind, observe::Kind::SetXerbla) << spelling;
    EXPECT_EQ(ev[1].kind, observe::Kind::SetProgress) << spelling;
    EXPECT_EQ(ev[2].kind, observe::Kind::Entry) << spelling;
    EXPECT_EQ(ev[2].entry, "mkl_lapack_zpotrf") << spelling;
  }
  const int m = 4, k = 3, lwork = 64;
  std::vector<double> a(m * k, 1.0), tau(k), work(lwork);
  int info = 99;
  observe::reset();
  VORN_instable_DGEQRF(&m, &k, a.data(), &m, tau.data(), work.data(), &lwork, &info);
  const auto& ev = observe::events();
  ASSERT_EQ(ev.size(), 3u);
  EXPECT_EQ(ev[0].kind, observe::Kind::SetXerbla);
  EXPECT_EQ(ev[1].kind, observe::Kind::SetProgress);
  EXPECT_EQ(ev[2].entry, "mkl_lapack_dgeqrf");
}

// DLARTV and DLASD4 go to MKL's mkl_lapack_ps_ entries, without the hooks.
TEST(LapackHooks, PsEntriesGoWithoutHooks) {
  const int n = 4, inc = 1;
  std::vector<double> x = {1, 2, 3, 4}, y = {-1, 0.5, 2, -3}, c = {0.6, 0.8, 1, 0}, s = {0.8, -0.6, 0, 1};
  auto xr = x, yr = y;
  observe::reset();
  VORN_instable_dlartv(&n, x.data(), &inc, y.data(), &inc, c.data(), s.data(), &inc);
  EXPECT_TRUE(observe::events().empty()) << "DLARTV installed hooks";
  reference::fn<void (*)(const int*, double*, const int*, double*, const int*, const double*, const double*,
                         const int*)>("dlartv_")(&n, xr.data(), &inc, yr.data(), &inc, c.data(), s.data(), &inc);
  for (int i = 0; i < n; ++i) {
    EXPECT_TRUE(near(x[i], xr[i])) << "x" << i;
    EXPECT_TRUE(near(y[i], yr[i])) << "y" << i;
  }

  using Lasd4 = void (*)(const int*, const int*, const double*, const double*, double*, const double*, double*,
                         double*, int*);
  const std::vector<double> d = {0.5, 1.0, 2.0, 3.5}, z = {0.3, 0.4, 0.5, 0.6};
  const double rho = 0.75;
  for (int i = 1; i <= n; ++i) {
    std::vector<double> delta(n), work(n), delta_r(n), work_r(n);
    double sigma = 0, sigma_r = 0;
    int info = 99, info_r = 99;
    observe::reset();
    VORN_instable_DLASD4(&n, &i, d.data(), z.data(), delta.data(), &rho, &sigma, work.data(), &info);
    EXPECT_TRUE(observe::events().empty()) << "DLASD4 installed hooks";
    reference::fn<Lasd4>("dlasd4_")(&n, &i, d.data(), z.data(), delta_r.data(), &rho, &sigma_r, work_r.data(), &info_r);
    EXPECT_EQ(info, info_r);
    EXPECT_TRUE(near(sigma, sigma_r)) << "sigma " << i;
    for (int j = 0; j < n; ++j) EXPECT_TRUE(near(delta[j], delta_r[j], 4)) << "delta " << i << "," << j;
  }
}

// A negative 32-bit value reaches MKL as the same negative 64-bit value.
TEST(LapackWidening, NegativeValuesReachMklSignExtended) {
  // DGEQRF with LWORK = -1 passes the layer whatever N is and reaches MKL
  // with the query value in its 64-bit cell.
  for (int n : {0, 5, 100}) {
    const int m = 3, lda = 3, lwork = -1;
    std::vector<double> a(3 * 100, 0.0), tau(100);
    double work[2] = {-1, -1};
    int info = 99;
    g_dgeqrf_seen = {};
    observe::reset();
    VORN_instable_dgeqrf_(&m, &n, a.data(), &lda, tau.data(), work, &lwork, &info);
    EXPECT_EQ(info, 0) << "n=" << n;
    EXPECT_TRUE(observe::reports().empty()) << "n=" << n;
    EXPECT_GE(work[0], 1.0) << "optimal LWORK not returned, n=" << n;
    if (g_dgeqrf_seen.hits == 0) {
      ADD_FAILURE() << "mkl_lapack_dgeqrf is interposed elsewhere; its 64-bit cells could not be read";
      continue;
    }
    EXPECT_EQ(g_dgeqrf_seen.lwork, -1LL) << "n=" << n;
    EXPECT_EQ(g_dgeqrf_seen.n, static_cast<long long>(n));
    EXPECT_EQ(g_dgeqrf_seen.m, 3LL);
  }
  // ZLACGV walks a negative increment backwards; a zero-extended one would
  // send MKL four billion elements away.
  for (int incx : {-1, -2}) {
    const int n = 4;
    std::vector<double> x(2 * (1 + (n - 1) * 2)), xr;
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = 0.25 * static_cast<double>(i) - 1;
    xr = x;
    VORN_instable_zlacgv(&n, x.data(), &incx);
    reference::fn<void (*)(const int*, double*, const int*)>("zlacgv_")(&n, xr.data(), &incx);
    EXPECT_EQ(x, xr) << "incx " << incx;
  }
}

// ------------------------------------------------------- argument pre-checks
//
// Each routine is described by its argument list (name:kind, kind i integer,
// c character, d floating-point array, o INFO) and a valid baseline. Every
// case changes some arguments; the reference LAPACK's report is the oracle
// for the layer's. The layer's own calls that the reference rejects are
// swallowed by the entry interposers, so a check the layer missed shows up
// as a reached entry rather than as MKL running past a buffer.

using Word = std::uintptr_t;
using Call20 = void (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word,
                        Word, Word, Word, Word);

// Every argument of these routines is a pointer, and the reference's hidden
// lengths are register-wide, so one call shape serves them all.
void invoke(void* f, std::vector<Word> a) {
  a.resize(20, 0);
  reinterpret_cast<Call20>(f)(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11], a[12], a[13],
                              a[14], a[15], a[16], a[17], a[18], a[19]);
}

struct Setting {
  const char* arg;
  int value;  // an integer, or a character's code
};

struct Family {
  const char* real_stem;     // null: no real member
  const char* complex_stem;  // null: no complex member
  const char* real_args;
  const char* complex_args;  // null: as real_args
  std::vector<Setting> baseline;
  std::vector<std::vector<Setting>> cases;  // besides the baseline
};

struct Argument {
  std::string name;
  char kind;
};

std::vector<Argument> parse(const char* list) {
  std::vector<Argument> out;
  std::string s(list);
  std::size_t at = 0;
  while (at < s.size()) {
    const std::size_t end = std::min(s.find(' ', at), s.size());
    const std::string tok = s.substr(at, end - at);
    out.push_back({tok.substr(0, tok.find(':')), tok.back()});
    at = end + 1;
  }
  return out;
}

// One prepared call: cells for integers, characters and INFO, and a
// generous zeroed buffer per floating array (every kind but i, c and o).
struct Prepared {
  std::vector<Argument> args;
  std::vector<int> ints;
  std::vector<char> chars;
  std::vector<std::vector<double>> data;
  int info = 12345;

  Prepared(const std::vector<Argument>& list, const std::vector<Setting>& baseline,
           const std::vector<Setting>& changes)
      : args(list), ints(list.size(), 0), chars(list.size(), ' '), data(list.size()) {
    for (const auto* set : {&baseline, &changes})
      for (const auto& s : *set) {
        const auto it = std::find_if(args.begin(), args.end(), [&](const Argument& a) { return a.name == s.arg; });
        if (it == args.end()) {
          ADD_FAILURE() << "no argument " << s.arg;
          continue;
        }
        const auto i = static_cast<std::size_t>(it - args.begin());
        if (it->kind == 'c')
          chars[i] = static_cast<char>(s.value);
        else
          ints[i] = s.value;
      }
    for (std::size_t i = 0; i < args.size(); ++i)
      if (!is_cell(args[i].kind)) data[i].assign(4096, 0.0);
  }

  static bool is_cell(char kind) { return kind == 'i' || kind == 'c' || kind == 'o'; }

  int value(const std::string& name) const {
    for (std::size_t i = 0; i < args.size(); ++i)
      if (args[i].name == name) return ints[i];
    ADD_FAILURE() << "no argument " << name;
    return 0;
  }

  std::vector<Word> words(bool with_lengths) {
    std::vector<Word> w;
    int characters = 0;
    for (std::size_t i = 0; i < args.size(); ++i) {
      switch (args[i].kind) {
        case 'i': w.push_back(reinterpret_cast<Word>(&ints[i])); break;
        case 'c': w.push_back(reinterpret_cast<Word>(&chars[i])); ++characters; break;
        case 'o': w.push_back(reinterpret_cast<Word>(&info)); break;
        default: w.push_back(reinterpret_cast<Word>(data[i].data())); break;
      }
    }
    if (with_lengths)
      for (int i = 0; i < characters; ++i) w.push_back(1);
    return w;
  }
};

std::string describe(const std::vector<Setting>& changes) {
  std::string s;
  for (const auto& c : changes) {
    s += std::string(" ") + c.arg + "=";
    s += (c.value >= 'A' && c.value <= 'z') ? std::string(1, static_cast<char>(c.value)) : std::to_string(c.value);
  }
  return s.empty() ? " (baseline)" : s;
}

std::string upper(std::string s) {
  for (auto& ch : s) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
  return s;
}

struct Outcome {
  int position;  // 0: no report
  int info;
};

// The reference's verdict on a call; exactly one report or none.
Outcome reference_outcome(const std::string& name, const std::vector<Argument>& args, const std::vector<Setting>& base,
                          const std::vector<Setting>& changes) {
  Prepared p(args, base, changes);
  reference::reset();
  invoke(reference::symbol((name + "_").c_str()), p.words(true));
  const auto& r = reference::reports();
  EXPECT_LE(r.size(), 1u) << name << describe(changes);
  if (r.empty()) return {0, p.info};
  EXPECT_EQ(r[0].name, upper(name)) << describe(changes);
  return {r[0].position, p.info};
}

// Runs the layer's spelling on the call and checks it against `expected`:
// a report of the position with the routine's own name and the MKL entry
// untouched, or no report and the entry reached behind the hooks.
void expect_layer(const std::string& spelling, const std::string& name, const std::vector<Argument>& args,
                  const std::vector<Setting>& base, const std::vector<Setting>& changes, int expected) {
  const std::string where = spelling + describe(changes);
  Prepared p(args, base, changes);
  observe::reset();
  g_swallow = expected != 0;
  invoke(reinterpret_cast<void*>(exported<void (*)()>(spelling)), p.words(false));
  g_swallow = false;
  const auto& reports = observe::reports();
  const auto& events = observe::events();
  const auto entries = std::count_if(events.begin(), events.end(), [](const observe::Event& e) {
    return e.kind == observe::Kind::Entry;
  });
  if (expected != 0) {
    ASSERT_EQ(reports.size(), 1u) << where;
    EXPECT_TRUE(reports[0].from_layer) << where;
    EXPECT_EQ(reports[0].name, upper(name)) << where;
    EXPECT_EQ(reports[0].position, expected) << where;
    EXPECT_EQ(reports[0].length, static_cast<long long>(name.size())) << where;
    EXPECT_EQ(p.info, -expected) << where;
    EXPECT_TRUE(events.empty()) << where << ": hooks installed or MKL reached after a rejected argument";
  } else {
    EXPECT_TRUE(reports.empty()) << where << ": reported position " << (reports.empty() ? 0 : reports[0].position);
    EXPECT_GE(p.info, 0) << where;
    ASSERT_EQ(events.size(), 3u) << where;
    EXPECT_EQ(events[0].kind, observe::Kind::SetXerbla) << where;
    EXPECT_EQ(events[1].kind, observe::Kind::SetProgress) << where;
    EXPECT_EQ(entries, 1) << where;
    EXPECT_EQ(events[2].entry, "mkl_lapack_" + name) << where;
  }
}

const char* const kGeqrfArgs = "M:i N:i A:d LDA:i TAU:d WORK:d LWORK:i INFO:o";
const char* const kGehrdArgs = "N:i ILO:i IHI:i A:d LDA:i TAU:d WORK:d LWORK:i INFO:o";
const char* const kOrmqrArgs = "SIDE:c TRANS:c M:i N:i K:i A:d LDA:i TAU:d C:d LDC:i WORK:d LWORK:i INFO:o";

std::vector<Family> families() {
  const std::vector<std::vector<Setting>> orm_cases = {
      {{"SIDE", 'X'}}, {{"TRANS", 'X'}}, {{"TRANS", 'C'}}, {{"TRANS", 'T'}}, {{"SIDE", 'l'}}, {{"TRANS", 't'}},
      {{"TRANS", 'c'}}, {{"SIDE", 'r'}, {"LDA", 4}}, {{"M", -1}}, {{"N", -1}}, {{"K", -1}}, {{"K", 6}},
      {{"SIDE", 'R'}, {"K", 5}}, {{"LDA", 4}}, {{"SIDE", 'R'}, {"LDA", 3}}, {{"LDC", 4}}, {{"LWORK", 3}},
      {{"SIDE", 'R'}, {"LDA", 4}, {"LWORK", 4}}, {{"LWORK", -1}}, {{"LWORK", -2}}, {{"SIDE", 'X'}, {"M", -1}},
      {{"M", -1}, {"LDC", 0}}, {{"K", 6}, {"LWORK", 0}}};
  const std::vector<Setting> orm_base = {{"SIDE", 'L'}, {"TRANS", 'N'}, {"M", 5}, {"N", 4}, {"K", 3},
                                         {"LDA", 5},    {"LDC", 5},     {"LWORK", 64}};
  const std::vector<std::vector<Setting>> gehrd_cases = {
      {{"N", -1}}, {{"ILO", 0}}, {{"ILO", 6}}, {{"ILO", 2}, {"IHI", 1}}, {{"ILO", 3}, {"IHI", 2}}, {{"IHI", 6}},
      {{"LDA", 4}}, {{"LWORK", 4}}, {{"LWORK", 3}}, {{"LWORK", -1}}, {{"N", 0}, {"IHI", 0}},
      {{"N", 0}, {"ILO", 2}, {"IHI", 0}}, {{"N", -1}, {"LDA", 0}}, {{"ILO", 0}, {"LWORK", 0}},
      {{"ILO", 2}, {"IHI", 4}, {"LWORK", 1}}, {{"ILO", 2}, {"LWORK", 3}}};
  const std::vector<Setting> gehrd_base = {{"N", 5}, {"ILO", 1}, {"IHI", 5}, {"LDA", 5}, {"LWORK", 64}};
  return {
      {"geqrf", "geqrf", kGeqrfArgs, nullptr,
       {{"M", 6}, {"N", 4}, {"LDA", 6}, {"LWORK", 64}},
       {{{"M", -1}}, {{"N", -1}}, {{"LDA", 5}}, {{"LDA", 0}}, {{"M", 0}, {"LDA", 0}}, {{"M", 0}, {"LDA", 1}},
        {{"LWORK", 3}}, {{"LWORK", 0}}, {{"LWORK", -2}}, {{"LWORK", -1}}, {{"N", 0}, {"LWORK", 0}},
        {{"N", 0}, {"LWORK", 1}}, {{"M", -1}, {"LDA", 0}}, {{"N", -1}, {"LWORK", 0}}, {{"LDA", 1}, {"LWORK", 0}},
        {{"M", INT_MIN}}, {{"LDA", INT_MIN}}}},
      {"gelqf", "gelqf", kGeqrfArgs, nullptr,
       {{"M", 4}, {"N", 6}, {"LDA", 4}, {"LWORK", 64}},
       {{{"M", -1}}, {{"N", -1}}, {{"LDA", 3}}, {{"LWORK", 3}}, {{"LWORK", 0}}, {{"LWORK", -2}}, {{"M", -1}, {"N", -1}},
        {{"LDA", 0}, {"LWORK", 0}}, {{"LWORK", -1}}, {{"M", 0}, {"LDA", 1}, {"LWORK", 1}}, {{"N", 0}}}},
      {"gebrd", "gebrd", "M:i N:i A:d LDA:i D:d E:d TAUQ:d TAUP:d WORK:d LWORK:i INFO:o", nullptr,
       {{"M", 6}, {"N", 4}, {"LDA", 6}, {"LWORK", 64}},
       {{{"M", -1}}, {{"N", -1}}, {{"LDA", 5}}, {{"LWORK", 5}}, {{"M", 3}, {"LDA", 3}, {"LWORK", 3}},
        {{"M", 3}, {"LDA", 3}, {"LWORK", 4}}, {{"LWORK", -1}}, {{"N", -2}, {"LDA", 0}}, {{"LDA", 5}, {"LWORK", 0}}}},
      {"gehrd", "gehrd", kGehrdArgs, nullptr, gehrd_base, gehrd_cases},
      {"orghr", nullptr, kGehrdArgs, nullptr, gehrd_base, gehrd_cases},
      {"orgqr", "ungqr", "M:i N:i K:i A:d LDA:i TAU:d WORK:d LWORK:i INFO:o", nullptr,
       {{"M", 6}, {"N", 4}, {"K", 3}, {"LDA", 6}, {"LWORK", 64}},
       {{{"M", -1}}, {{"N", -1}}, {{"N", 7}}, {{"K", -1}}, {{"K", 5}}, {{"LDA", 5}}, {{"LWORK", 3}}, {{"LWORK", -1}},
        {{"M", -1}, {"N", 7}}, {{"N", 7}, {"K", 9}}, {{"K", 0}}, {{"LDA", 5}, {"LWORK", 0}}}},
      {"ormqr", "unmqr", kOrmqrArgs, nullptr, orm_base, orm_cases},
      {"ormql", "unmql", kOrmqrArgs, nullptr, orm_base, orm_cases},
      {"potrf", "potrf", "UPLO:c N:i A:d LDA:i INFO:o", nullptr,
       {{"UPLO", 'U'}, {"N", 4}, {"LDA", 4}},
       {{{"UPLO", 'X'}}, {{"UPLO", 'u'}}, {{"UPLO", 'l'}}, {{"UPLO", 'L'}}, {{"N", -1}}, {{"LDA", 3}},
        {{"N", 0}, {"LDA", 1}}, {{"N", 0}, {"LDA", 0}}, {{"UPLO", 'X'}, {"N", -1}}, {{"N", -1}, {"LDA", 0}}}},
      {"sytrd", "hetrd", "UPLO:c N:i A:d LDA:i D:d E:d TAU:d WORK:d LWORK:i INFO:o", nullptr,
       {{"UPLO", 'L'}, {"N", 4}, {"LDA", 4}, {"LWORK", 64}},
       {{{"UPLO", 'X'}}, {{"UPLO", 'u'}}, {{"N", -1}}, {{"LDA", 3}}, {{"LWORK", 0}}, {{"LWORK", -1}}, {{"LWORK", 1}},
        {{"N", -1}, {"LWORK", 0}}, {{"UPLO", 'X'}, {"LDA", 0}}}},
      {"sygst", "hegst", "ITYPE:i UPLO:c N:i A:d LDA:i B:d LDB:i INFO:o", nullptr,
       {{"ITYPE", 1}, {"UPLO", 'U'}, {"N", 4}, {"LDA", 4}, {"LDB", 4}},
       {{{"ITYPE", 0}}, {{"ITYPE", 4}}, {{"ITYPE", 2}}, {{"ITYPE", 3}}, {{"UPLO", 'X'}}, {{"UPLO", 'l'}}, {{"N", -1}},
        {{"LDA", 3}}, {{"LDB", 3}}, {{"ITYPE", 0}, {"UPLO", 'X'}}, {{"LDA", 3}, {"LDB", 3}}}},
      {"geev", "geev", "JOBVL:c JOBVR:c N:i A:d LDA:i WR:d WI:d VL:d LDVL:i VR:d LDVR:i WORK:d LWORK:i INFO:o",
       "JOBVL:c JOBVR:c N:i A:d LDA:i W:d VL:d LDVL:i VR:d LDVR:i WORK:d LWORK:i RWORK:d INFO:o",
       {{"JOBVL", 'N'}, {"JOBVR", 'V'}, {"N", 4}, {"LDA", 4}, {"LDVL", 1}, {"LDVR", 4}, {"LWORK", 64}},
       {{{"JOBVL", 'X'}}, {{"JOBVR", 'X'}}, {{"JOBVL", 'v'}, {"LDVL", 4}}, {{"JOBVR", 'n'}}, {{"N", -1}}, {{"LDA", 3}},
        {{"LDVL", 0}}, {{"JOBVL", 'V'}}, {{"LDVR", 0}}, {{"LDVR", 3}}, {{"JOBVR", 'N'}, {"LDVR", 1}},
        {{"JOBVL", 'X'}, {"N", -1}}, {{"N", -1}, {"LDA", 0}}, {{"LWORK", -1}}}},
      {"gesvd", "gesvd", "JOBU:c JOBVT:c M:i N:i A:d LDA:i S:d U:d LDU:i VT:d LDVT:i WORK:d LWORK:i INFO:o",
       "JOBU:c JOBVT:c M:i N:i A:d LDA:i S:d U:d LDU:i VT:d LDVT:i WORK:d LWORK:i RWORK:d INFO:o",
       {{"JOBU", 'S'}, {"JOBVT", 'S'}, {"M", 6}, {"N", 4}, {"LDA", 6}, {"LDU", 6}, {"LDVT", 4}, {"LWORK", 256}},
       {{{"JOBU", 'X'}}, {{"JOBVT", 'X'}}, {{"JOBU", 'O'}, {"JOBVT", 'O'}}, {{"JOBU", 'o'}},
        {{"JOBU", 'n'}, {"JOBVT", 'a'}}, {{"M", -1}}, {{"N", -1}}, {{"LDA", 5}}, {{"LDU", 0}}, {{"LDU", 5}},
        {{"JOBU", 'A'}, {"LDU", 5}}, {{"JOBU", 'N'}, {"LDU", 1}}, {{"LDVT", 0}}, {{"LDVT", 3}},
        {{"JOBVT", 'A'}, {"LDVT", 3}}, {{"JOBVT", 'N'}, {"LDVT", 1}}, {{"M", 3}, {"LDVT", 3}}, {{"M", 3}, {"LDVT", 2}},
        {{"M", -1}, {"LDA", 0}}, {{"LWORK", -1}}}},
  };
}

template <class Each>
void for_each_member(const Family& f, Each each) {
  for (char letter : {'s', 'd', 'c', 'z'}) {
    const bool complex = letter == 'c' || letter == 'z';
    const char* stem = complex ? f.complex_stem : f.real_stem;
    if (stem == nullptr) continue;
    const char* list = complex && f.complex_args != nullptr ? f.complex_args : f.real_args;
    each(std::string(1, letter) + stem, parse(list));
  }
}

TEST(LapackPrechecks, ReportLikeTheReference) {
  int rejected = 0, accepted = 0;
  for (const auto& f : families())
    for_each_member(f, [&](const std::string& name, const std::vector<Argument>& args) {
      // The baseline is valid for both.
      ASSERT_EQ(reference_outcome(name, args, f.baseline, {}).position, 0) << name << " baseline";
      expect_layer(name, name, args, f.baseline, {}, 0);
      for (const auto& changes : f.cases) {
        const Outcome want = reference_outcome(name, args, f.baseline, changes);
        if (want.position != 0) {
          EXPECT_EQ(want.info, -want.position) << name << describe(changes);
        }
        (want.position != 0 ? rejected : accepted)++;
        // Every spelling reports under the routine's own upper-case name.
        expect_layer(name, name, args, f.baseline, changes, want.position);
        expect_layer(upper(name) + "_", name, args, f.baseline, changes, want.position);
      }
    });
  // The table exercises both verdicts.
  EXPECT_GT(rejected, 200);
  EXPECT_GT(accepted, 50);
}

// Where the layer deliberately differs from reference LAPACK 3.11.

TEST(LapackPrechecks, QrWorkspaceBoundIsMaxOneNWhateverM) {
  // Reference 3.11 accepts any positive LWORK when M = 0; the layer keeps
  // the bound max(1, N), so M = 0, N = 4, LWORK = 1 is rejected at 7.
  const auto args = parse(kGeqrfArgs);
  const std::vector<Setting> base = {{"M", 6}, {"N", 4}, {"LDA", 6}, {"LWORK", 64}};
  const std::vector<Setting> changes = {{"M", 0}, {"LDA", 1}, {"LWORK", 1}};
  for (const char* name : {"sgeqrf", "dgeqrf", "cgeqrf", "zgeqrf"}) {
    EXPECT_EQ(reference_outcome(name, args, base, changes).position, 0) << name;
    expect_layer(name, name, args, base, changes, 7);
  }
  // N = 0 with LWORK = 0 fails in both: the bound is max(1, N) = 1.
  expect_layer("dgeqrf", "dgeqrf", args, base, {{"N", 0}, {"LWORK", 0}}, 7);
  // A query passes whatever N is; it lifts the workspace test only.
  expect_layer("dgeqrf", "dgeqrf", args, base, {{"N", 1000}, {"LWORK", -1}}, 0);
  expect_layer("dgeqrf", "dgeqrf", args, base, {{"N", 1000}, {"LWORK", -1}, {"LDA", 5}}, 4);
}

TEST(LapackPrechecks, EigenAndSingularValueDriversLeaveWorkspaceToMkl) {
  // The reference rejects a short LWORK of ?GEEV and ?GESVD; the layer makes
  // no workspace test and hands the call on. The interposed entry swallows
  // it, so MKL never runs with the short workspace.
  {
    // Only safe when the entries here are the ones in use.
    const int n = 1, lda = 1, lwork = 64;
    double a[2] = {1, 0}, s[2], work[512];
    int info = 99;
    const int one = 1;
    g_own_hits = 0;
    VORN_instable_dgesvd("N", "N", &n, &n, a, &lda, s, work, &one, work, &one, work + 8, &lwork, &info);
    VORN_instable_zgeev("N", "N", &n, a, &lda, s, work, &one, work, &one, work + 8, &lwork, work + 300, &info);
    if (g_own_hits != 2) GTEST_SKIP() << "the ?GEEV/?GESVD entries are interposed elsewhere";
  }
  for (const auto& f : families()) {
    if (std::string(f.real_stem) != "geev" && std::string(f.real_stem) != "gesvd") continue;
    for_each_member(f, [&](const std::string& name, const std::vector<Argument>& args) {
      const std::vector<Setting> changes = {{"LWORK", 1}};
      const bool complex = name[0] == 'c' || name[0] == 'z';
      const int reference_position = f.real_stem == std::string("geev") && complex ? 12 : 13;
      EXPECT_EQ(reference_outcome(name, args, f.baseline, changes).position, reference_position) << name;
      Prepared p(args, f.baseline, changes);
      observe::reset();
      g_swallow = true;
      invoke(reinterpret_cast<void*>(exported<void (*)()>(name)), p.words(false));
      g_swallow = false;
      EXPECT_TRUE(observe::reports().empty()) << name;
      EXPECT_EQ(p.info, 0) << name;
      const auto& ev = observe::events();
      ASSERT_EQ(ev.size(), 3u) << name;
      EXPECT_EQ(ev[2].entry, "mkl_lapack_" + name);
    });
  }
}

// ------------------------------------------------ results against the reference
//
// LAPACK routines without integer arrays, each call described like the
// pre-checks' above, with the floating arrays' kinds saying how they are
// compared: d element by element, m in magnitude (the signs of reflectors
// are the implementation's), s as a sorted set of magnitudes (the order of
// eigenvalues), w not at all (workspace, or intermediate results). Both
// calls start from the same pseudo-random contents, A (N by N, leading
// dimension LDA) made Hermitian and diagonally dominant where asked. The
// layer's call installs its hooks and reports nothing; every compared
// array, INFO, the function's value and every integer and character
// argument come back as the reference leaves them.

enum class Fill { Random, Definite, NotDefinite, Singular };

// A family's members called with its baseline and each of its cases.
struct OracleCall : Family {
  Fill a = Fill::Random;
  bool function = false;  // a real function's value
};

template <class R>
void fill(Prepared& p, bool complex, Fill how) {
  std::mt19937 gen(2024);
  std::uniform_real_distribution<R> d(R(-1), R(1));
  for (std::size_t i = 0; i < p.args.size(); ++i) {
    if (p.data[i].empty()) continue;
    R* x = reinterpret_cast<R*>(p.data[i].data());
    for (std::size_t k = 0; k < p.data[i].size() * sizeof(double) / sizeof(R); ++k) x[k] = d(gen);
    if (p.args[i].name != "A" || how == Fill::Random) continue;
    const int n = p.value("N"), lda = p.value("LDA"), w = complex ? 2 : 1;
    auto at = [&](int r, int c) { return x + w * (r + static_cast<std::ptrdiff_t>(c) * lda); };
    for (int c = 0; c < n; ++c) {
      for (int r = c + 1; r < n; ++r) {
        at(c, r)[0] = at(r, c)[0];
        if (complex) at(c, r)[1] = -at(r, c)[1];
      }
      at(c, c)[0] = R(2 * n);
      if (complex) at(c, c)[1] = 0;
    }
    if (how == Fill::NotDefinite) at(2, 2)[0] = R(-10);
    if (how == Fill::Singular) at(3, 3)[0] = 0;
  }
}

template <class R>
void expect_same_results(const Prepared& got, const Prepared& want, const std::string& where) {
  EXPECT_EQ(got.info, want.info) << where << ": INFO";
  EXPECT_EQ(got.ints, want.ints) << where << ": integer arguments";
  EXPECT_EQ(got.chars, want.chars) << where << ": character arguments";
  for (std::size_t i = 0; i < got.args.size(); ++i) {
    const char kind = got.args[i].kind;
    if (got.data[i].empty() || kind == 'w') continue;
    const std::size_t count = got.data[i].size() * sizeof(double) / sizeof(R);
    const R* g = reinterpret_cast<const R*>(got.data[i].data());
    const R* r = reinterpret_cast<const R*>(want.data[i].data());
    std::vector<R> a(g, g + count), b(r, r + count);
    if (kind != 'd')
      for (auto* v : {&a, &b})
        for (auto& x : *v) x = std::abs(x);
    if (kind == 's') {
      std::sort(a.begin(), a.end());
      std::sort(b.begin(), b.end());
    }
    std::size_t differ = 0;
    for (std::size_t k = 0; k < count; ++k)
      if (!near(a[k], b[k], 4) && differ++ == 0)
        ADD_FAILURE() << where << ": " << got.args[i].name << "[" << k << "] " << a[k] << ", reference " << b[k];
    EXPECT_EQ(differ, 0u) << where << ": " << got.args[i].name;
  }
}

template <class R>
void expect_like_reference(const OracleCall& c, const std::string& name, const std::vector<Argument>& args,
                           const std::vector<Setting>& changes, bool complex) {
  const std::string where = name + describe(changes);
  Prepared layer(args, c.baseline, changes), oracle(args, c.baseline, changes);
  fill<R>(layer, complex, c.a);
  fill<R>(oracle, complex, c.a);
  using Function = R (*)(Word, Word, Word, Word, Word, Word, Word, Word);
  auto run = [&](void* f, Prepared& p, bool lengths) {
    if (!c.function) return invoke(f, p.words(lengths)), R(0);
    auto w = p.words(lengths);
    w.resize(8, 0);
    return reinterpret_cast<Function>(f)(w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
  };
  observe::reset();
  reference::reset();
  const R got = run(reinterpret_cast<void*>(exported<void (*)()>(name)), layer, false);
  expect_lapack_frame(where);
  const R want = run(reference::symbol((name + "_").c_str()), oracle, true);
  EXPECT_TRUE(reference::reports().empty()) << where << ": the reference rejected the call";
  EXPECT_TRUE(near(got, want, 4)) << where << ": value " << got << ", reference " << want;
  expect_same_results<R>(layer, oracle, where);
}

std::vector<OracleCall> oracle_calls() {
  std::vector<std::vector<Setting>> triangular, norms, symmetric_norms;
  for (char uplo : {'U', 'L'})
    for (char trans : {'N', 'T', 'C'})
      for (char diag : {'N', 'U'}) triangular.push_back({{"UPLO", uplo}, {"TRANS", trans}, {"DIAG", diag}});
  for (char norm : {'M', '1', 'O', 'I', 'F', 'E', 'm', 'i', 'f'}) {
    norms.push_back({{"NORM", norm}});
    for (char uplo : {'U', 'L'}) symmetric_norms.push_back({{"NORM", norm}, {"UPLO", uplo}});
  }
  const std::vector<std::vector<Setting>> query = {{{"LWORK", -1}}};
  const std::vector<std::vector<Setting>> parts = {{{"UPLO", 'L'}}, {{"UPLO", 'A'}}, {{"UPLO", 'u'}}, {{"UPLO", 'l'}}};
  const char* const qr = "M:i N:i A:d LDA:i TAU:d WORK:w LWORK:i INFO:o";
  const char* const gels = "TRANS:c M:i N:i NRHS:i A:w LDA:i B:d LDB:i WORK:w LWORK:i INFO:o";
  const std::vector<Setting> gels_base = {{"TRANS", 'N'}, {"M", 7}, {"N", 4}, {"NRHS", 2}, {"LDA", 8}, {"LDB", 9},
                                          {"LWORK", 64}};
  return {
      {"geqrf", "geqrf", qr, nullptr, {{"M", 7}, {"N", 5}, {"LDA", 9}, {"LWORK", 64}}, query},
      {"gelqf", "gelqf", qr, nullptr, {{"M", 5}, {"N", 8}, {"LDA", 6}, {"LWORK", 64}}, query},
      {"orgqr", "ungqr", "M:i N:i K:i A:d LDA:i TAU:d WORK:w LWORK:i INFO:o", nullptr,
       {{"M", 7}, {"N", 5}, {"K", 5}, {"LDA", 9}, {"LWORK", 64}}, {{{"K", 3}}, {{"LWORK", -1}}}},
      {"potrf", "potrf", "UPLO:c N:i A:d LDA:i INFO:o", nullptr, {{"UPLO", 'U'}, {"N", 6}, {"LDA", 8}},
       {{{"UPLO", 'L'}}, {{"UPLO", 'u'}}, {{"UPLO", 'l'}}}, Fill::Definite},
      // Past the failing minor A holds the implementation's partial results.
      {"potrf", "potrf", "UPLO:c N:i A:w LDA:i INFO:o", nullptr, {{"UPLO", 'U'}, {"N", 6}, {"LDA", 8}},
       {{{"UPLO", 'L'}}}, Fill::NotDefinite},
      {"potrs", "potrs", "UPLO:c N:i NRHS:i A:d LDA:i B:d LDB:i INFO:o", nullptr,
       {{"UPLO", 'U'}, {"N", 5}, {"NRHS", 3}, {"LDA", 7}, {"LDB", 6}}, {{{"UPLO", 'l'}}}, Fill::Definite},
      {"trtrs", "trtrs", "UPLO:c TRANS:c DIAG:c N:i NRHS:i A:d LDA:i B:d LDB:i INFO:o", nullptr,
       {{"UPLO", 'U'}, {"TRANS", 'N'}, {"DIAG", 'N'}, {"N", 6}, {"NRHS", 2}, {"LDA", 7}, {"LDB", 8}}, triangular,
       Fill::Definite},
      {"trtrs", "trtrs", "UPLO:c TRANS:c DIAG:c N:i NRHS:i A:d LDA:i B:d LDB:i INFO:o", nullptr,
       {{"UPLO", 'U'}, {"TRANS", 'N'}, {"DIAG", 'N'}, {"N", 6}, {"NRHS", 2}, {"LDA", 7}, {"LDB", 8}}, {},
       Fill::Singular},
      {"gebrd", "gebrd", "M:i N:i A:m LDA:i D:m E:m TAUQ:w TAUP:w WORK:w LWORK:i INFO:o", nullptr,
       {{"M", 7}, {"N", 5}, {"LDA", 8}, {"LWORK", 64}}, query},
      {"bdsqr", nullptr, "UPLO:c N:i NCVT:i NRU:i NCC:i D:d E:w VT:w LDVT:i U:w LDU:i C:w LDC:i WORK:w INFO:o",
       nullptr, {{"UPLO", 'U'}, {"N", 5}, {"LDVT", 1}, {"LDU", 1}, {"LDC", 1}}, {{{"UPLO", 'L'}}}},
      {"gesvd", "gesvd", "JOBU:c JOBVT:c M:i N:i A:w LDA:i S:d U:w LDU:i VT:w LDVT:i WORK:w LWORK:i INFO:o",
       "JOBU:c JOBVT:c M:i N:i A:w LDA:i S:d U:w LDU:i VT:w LDVT:i WORK:w LWORK:i RWORK:w INFO:o",
       {{"JOBU", 'N'}, {"JOBVT", 'N'}, {"M", 7}, {"N", 5}, {"LDA", 8}, {"LDU", 1}, {"LDVT", 1}, {"LWORK", 64}},
       {{{"M", 4}, {"N", 6}, {"LDA", 5}}, {{"LWORK", -1}}}},
      {"gehrd", "gehrd", "N:i ILO:i IHI:i A:m LDA:i TAU:w WORK:w LWORK:i INFO:o", nullptr,
       {{"N", 6}, {"ILO", 1}, {"IHI", 6}, {"LDA", 7}, {"LWORK", 64}}, {{{"ILO", 2}, {"IHI", 5}}, {{"LWORK", -1}}}},
      {"sytrd", "hetrd", "UPLO:c N:i A:w LDA:i D:d E:m TAU:w WORK:w LWORK:i INFO:o", nullptr,
       {{"UPLO", 'U'}, {"N", 6}, {"LDA", 6}, {"LWORK", 128}}, {{{"UPLO", 'L'}}}, Fill::Definite},
      {"geev", "geev", "JOBVL:c JOBVR:c N:i A:w LDA:i WR:s WI:s VL:w LDVL:i VR:w LDVR:i WORK:w LWORK:i INFO:o",
       "JOBVL:c JOBVR:c N:i A:w LDA:i W:s VL:w LDVL:i VR:w LDVR:i WORK:w LWORK:i RWORK:w INFO:o",
       {{"JOBVL", 'N'}, {"JOBVR", 'N'}, {"N", 6}, {"LDA", 7}, {"LDVL", 1}, {"LDVR", 1}, {"LWORK", 64}}, query},
      {"lange", "lange", "NORM:c M:i N:i A:d LDA:i WORK:w", nullptr, {{"NORM", 'M'}, {"M", 5}, {"N", 4}, {"LDA", 6}},
       norms, Fill::Random, true},
      {"lansy", "lansy", "NORM:c UPLO:c N:i A:d LDA:i WORK:w", nullptr,
       {{"NORM", 'M'}, {"UPLO", 'U'}, {"N", 4}, {"LDA", 6}}, symmetric_norms, Fill::Random, true},
      {"larfg", "larfg", "N:i ALPHA:d X:d INCX:i TAU:d", nullptr, {{"N", 5}, {"INCX", 1}}, {{{"INCX", 2}}}},
      {"lacpy", "lacpy", "UPLO:c M:i N:i A:d LDA:i B:d LDB:i", nullptr,
       {{"UPLO", 'U'}, {"M", 5}, {"N", 4}, {"LDA", 7}, {"LDB", 6}}, parts},
      {"laset", "laset", "UPLO:c M:i N:i ALPHA:d BETA:d A:d LDA:i", nullptr,
       {{"UPLO", 'U'}, {"M", 5}, {"N", 4}, {"LDA", 6}}, parts},
      {"gels", nullptr, gels, nullptr, gels_base, {{{"TRANS", 'T'}}, {{"LWORK", -1}}}},
      {nullptr, "gels", gels, nullptr, gels_base, {{{"TRANS", 'C'}}, {{"LWORK", -1}}}},
  };
}

TEST(LapackOracle, ResultsMatchTheReference) {
  int calls = 0;
  for (const auto& c : oracle_calls())
    for_each_member(c, [&](const std::string& name, const std::vector<Argument>& args) {
      const bool complex = name[0] == 'c' || name[0] == 'z';
      auto cases = c.cases;
      cases.insert(cases.begin(), std::vector<Setting>{});
      for (const auto& changes : cases) {
        if (name[0] == 's' || name[0] == 'c')
          expect_like_reference<float>(c, name, args, changes, complex);
        else
          expect_like_reference<double>(c, name, args, changes, complex);
        ++calls;
      }
    });
  EXPECT_GT(calls, 250);
}

}  // namespace
