// The service and enquiry routines: error reports, character comparison,
// timers, tuning enquiries, code translators, machine parameters, NaN tests.
// Oracles: the reference LAPACK where it exports the routine, MKL's own
// ILP64 entry called directly otherwise, and IEEE facts for the old
// machine-parameter routines, which the reference library does not export.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "support/observe.h"
#include "support/reference.h"
#include "vorn_instable.h"

using i64 = long long;

extern "C" {
i64 mkl_lapack_ilaver(i64* major, i64* minor, i64* patch);
void mkl_lapack_dlamc1(i64* beta, i64* t, i64* rnd, i64* ieee1);
void mkl_lapack_slamc1(i64* beta, i64* t, i64* rnd, i64* ieee1);
}

namespace {

// What the layer handed to MKL's ILAENV and IPARMQ, read in the entries.
struct EnquirySeen {
  i64 ispec = 0, n[4] = {0, 0, 0, 0};
  int name_length = -1, opts_length = -1;
  int hits = 0;
};
EnquirySeen g_ilaenv, g_iparmq;

using IlaenvEntry = i64 (*)(const i64*, const char*, const char*, const i64*, const i64*, const i64*, const i64*, int,
                            int);

// MKL's own answer, bypassing the interposers below.
i64 mkl_ilaenv(i64 ispec, const char* name, const char* opts, i64 n1, i64 n2, i64 n3, i64 n4, int lname,
               int lopts) {
  static const auto real = reinterpret_cast<IlaenvEntry>(observe::next("mkl_lapack_ilaenv"));
  return real(&ispec, name, opts, &n1, &n2, &n3, &n4, lname, lopts);
}
i64 mkl_iparmq(i64 ispec, const char* name, const char* opts, i64 n, i64 ilo, i64 ihi, i64 lwork, int lname,
               int lopts) {
  static const auto real = reinterpret_cast<IlaenvEntry>(observe::next("mkl_lapack_iparmq"));
  return real(&ispec, name, opts, &n, &ilo, &ihi, &lwork, lname, lopts);
}

}  // namespace

// Weak, so that another suite may interpose the same entries.
extern "C" __attribute__((weak)) i64 mkl_lapack_ilaenv(const i64* ispec, const char* name, const char* opts,
                                                       const i64* n1, const i64* n2, const i64* n3, const i64* n4,
                                                       int lname, int lopts) {
  if (observe::in_layer(__builtin_return_address(0)))
    g_ilaenv = {*ispec, {*n1, *n2, *n3, *n4}, lname, lopts, g_ilaenv.hits + 1};
  observe::note_entry("mkl_lapack_ilaenv", __builtin_return_address(0));
  return mkl_ilaenv(*ispec, name, opts, *n1, *n2, *n3, *n4, lname, lopts);
}

extern "C" __attribute__((weak)) i64 mkl_lapack_iparmq(const i64* ispec, const char* name, const char* opts,
                                                       const i64* n, const i64* ilo, const i64* ihi, const i64* lwork,
                                                       int lname, int lopts) {
  if (observe::in_layer(__builtin_return_address(0)))
    g_iparmq = {*ispec, {*n, *ilo, *ihi, *lwork}, lname, lopts, g_iparmq.hits + 1};
  observe::note_entry("mkl_lapack_iparmq", __builtin_return_address(0));
  return mkl_iparmq(*ispec, name, opts, *n, *ilo, *ihi, *lwork, lname, lopts);
}

namespace {

bool hooks_installed() {
  const auto& ev = observe::events();
  return ev.size() >= 2 && ev[0].kind == observe::Kind::SetXerbla && ev[1].kind == observe::Kind::SetProgress;
}
bool no_hooks() {
  for (const auto& e : observe::events())
    if (e.kind == observe::Kind::SetXerbla || e.kind == observe::Kind::SetProgress) return false;
  return true;
}

class Service : public ::testing::Test {
 protected:
  void SetUp() override {
    observe::reset();
    reference::reset();
  }
};

// ------------------------------------------------------------- XERBLA

// The caller's position travels as given; a 64-bit cell with a small value
// reads the same whether the handler takes 32 or 64 bits behind it.
struct Reported {
  std::string name;
  long long position;
  int length;
};
Reported report_of(void (*xerbla)(const char*, const int*, int), const char* name, int length, long long position) {
  observe::reset();
  const long long cell = position;
  xerbla(name, reinterpret_cast<const int*>(&cell), length);
  EXPECT_TRUE(no_hooks()) << "XERBLA installed a hook";
  const auto& r = observe::reports();
  if (r.size() != 1) {
    ADD_FAILURE() << "expected one report, got " << r.size();
    return {};
  }
  return {r[0].name, r[0].position, static_cast<int>(r[0].length)};
}

TEST_F(Service, XerblaSpellingsReportAlike) {
  const struct {
    const char* name;
    int length;
    long long position;
  } cases[] = {{"DGEMM ", 6, 3}, {"ZHEEVD", 6, 12}, {"CGEMM3M ", 8, 1}, {"DGEQRF", 6, 1089}, {"X", 1, 7}};
  for (const auto& c : cases) {
    const auto upper = report_of(&VORN_instable_XERBLA, c.name, c.length, c.position);
    const auto lower = report_of(&VORN_instable_xerbla, c.name, c.length, c.position);
    EXPECT_EQ(upper.name, std::string(c.name, c.length));
    EXPECT_EQ(upper.position, c.position);
    EXPECT_EQ(upper.length, c.length);
    EXPECT_EQ(lower.name, upper.name);
    EXPECT_EQ(lower.position, upper.position);
    EXPECT_EQ(lower.length, upper.length);
  }
}

TEST_F(Service, InstalledHandlerIsTheLayersXerbla) {
  // Any LAPACK call installs the handler; take it from the event and call it.
  const double got = VORN_instable_dlamch("E");
  EXPECT_GT(got, 0.0);
  const auto events = observe::events();
  ASSERT_TRUE(hooks_installed());
  const void* handler = events[0].pointer;
  ASSERT_TRUE(observe::in_layer(handler)) << "the installed error handler is not the layer's";
  using Handler = void (*)(const char*, const void*, long long);
  observe::reset();
  const long long position = 9;
  reinterpret_cast<Handler>(const_cast<void*>(handler))("ZTESTR", &position, 6);
  const auto via_handler = observe::reports();
  ASSERT_EQ(via_handler.size(), 1u);
  EXPECT_EQ(via_handler[0].name, "ZTESTR");
  EXPECT_EQ(via_handler[0].position, 9);
  EXPECT_EQ(via_handler[0].length, 6);
  // The same report as XERBLA called directly.
  const auto direct = report_of(&VORN_instable_xerbla, "ZTESTR", 6, 9);
  EXPECT_EQ(direct.name, via_handler[0].name);
  EXPECT_EQ(direct.position, via_handler[0].position);
}

// ----------------------------------------------------- LSAME, LSAMEN

TEST_F(Service, LsameIgnoresCaseLikeTheReference) {
  using Ref = int (*)(const char*, const char*, std::size_t, std::size_t);
  const auto ref = reference::fn<Ref>("lsame_");
  const std::string chars = "AaBbNnTtCcUuLlZz0 *";
  for (char a : chars)
    for (char b : chars) {
      const bool want = ref(&a, &b, 1, 1) != 0;
      EXPECT_EQ(VORN_instable_lsame(&a, &b) != 0, want) << a << " " << b;
      EXPECT_EQ(VORN_instable_LSAME(&a, &b) != 0, want) << a << " " << b;
    }
  EXPECT_NE(VORN_instable_lsame("q", "Q"), 0);
  EXPECT_EQ(VORN_instable_lsame("q", "R"), 0);
  EXPECT_TRUE(no_hooks()) << "LSAME installed a hook";
}

TEST_F(Service, LsamenHonoursCountAndLengthsLikeTheReference) {
  using Ref = int (*)(const int*, const char*, const char*, std::size_t, std::size_t);
  const auto ref = reference::fn<Ref>("lsamen_");
  const struct {
    int n;
    const char *ca, *cb;
    int lca, lcb;
  } cases[] = {{3, "ABCD", "abcx", 4, 4}, {4, "ABCD", "abcx", 4, 4}, {3, "ABCD", "abcx", 2, 4},
               {3, "ABCD", "abcx", 4, 2}, {0, "ABCD", "WXYZ", 4, 4}, {2, "gE", "Ge", 2, 2},
               {6, "DGEQRF", "dgeqrf", 6, 6}, {6, "DGEQRF", "dgeqrf", 6, 5}, {1, "A", "B", 1, 1}};
  for (const auto& c : cases) {
    const bool want = ref(&c.n, c.ca, c.cb, static_cast<std::size_t>(c.lca), static_cast<std::size_t>(c.lcb)) != 0;
    observe::reset();
    EXPECT_EQ(VORN_instable_lsamen(&c.n, c.ca, c.cb, c.lca, c.lcb) != 0, want)
        << c.n << " " << c.ca << "/" << c.lca << " " << c.cb << "/" << c.lcb;
    EXPECT_TRUE(hooks_installed()) << "LSAMEN";
    EXPECT_EQ(VORN_instable_LSAMEN_(&c.n, c.ca, c.cb, c.lca, c.lcb) != 0, want);
  }
}

// ------------------------------------------------------------- timers

TEST_F(Service, TimersAreMonotoneAndInstallNoHooks) {
  float s_prev = VORN_instable_SECOND();
  double d_prev = VORN_instable_dsecnd();
  const auto start = std::chrono::steady_clock::now();
  volatile double sink = 0;
  while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(60)) {
    for (int i = 0; i < 1000; ++i) sink = sink + std::sqrt(static_cast<double>(i));
    const float s = VORN_instable_second();
    const double d = VORN_instable_DSECND();
    EXPECT_GE(s, s_prev);
    EXPECT_GE(d, d_prev);
    s_prev = s;
    d_prev = d;
  }
  EXPECT_GE(VORN_instable_SECOND_(), s_prev);
  EXPECT_TRUE(no_hooks()) << "a timer installed a hook";
  EXPECT_TRUE(observe::events().empty());
}

TEST_F(Service, TimersAdvanceOverBusyWork) {
  const double d0 = VORN_instable_dsecnd();
  const float s0 = VORN_instable_second();
  const auto start = std::chrono::steady_clock::now();
  volatile double sink = 0;
  while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(120))
    for (int i = 0; i < 1000; ++i) sink = sink + std::sqrt(static_cast<double>(i));
  EXPECT_GT(VORN_instable_dsecnd(), d0);
  EXPECT_GT(VORN_instable_second(), s0);
}

// ------------------------------------------------- ILAENV, IPARMQ, ILAVER

TEST_F(Service, IlaenvHandsOnTheCallersLengths) {
  const int one = 1, n = 1000, minus = -1;
  g_ilaenv = {};
  const int got = VORN_instable_ilaenv(&one, "DGETRF", " ", &n, &n, &minus, &minus, 6, 1);
  EXPECT_TRUE(hooks_installed());
  EXPECT_EQ(got, mkl_ilaenv(1, "DGETRF", " ", 1000, 1000, -1, -1, 6, 1));
  if (g_ilaenv.hits == 0) GTEST_SKIP() << "mkl_lapack_ilaenv is interposed elsewhere";
  EXPECT_EQ(g_ilaenv.name_length, 6);
  EXPECT_EQ(g_ilaenv.opts_length, 1);
  EXPECT_EQ(g_ilaenv.ispec, 1);
  EXPECT_EQ(g_ilaenv.n[0], 1000);
  EXPECT_EQ(g_ilaenv.n[2], -1) << "N3 not sign-extended";
  EXPECT_EQ(g_ilaenv.n[3], -1) << "N4 not sign-extended";

  // A caller that passes a wrong length gets MKL's answer for that length.
  const int wrong = VORN_instable_ILAENV_(&one, "DGETRF", " ", &n, &n, &minus, &minus, 3, 0);
  EXPECT_EQ(g_ilaenv.name_length, 3);
  EXPECT_EQ(g_ilaenv.opts_length, 0);
  EXPECT_EQ(wrong, mkl_ilaenv(1, "DGETRF", " ", 1000, 1000, -1, -1, 3, 0));
}

TEST_F(Service, IlaenvAnswersLikeMkl) {
  const char* names[] = {"DGEQRF", "ZGEQRF", "DSYTRD", "DPOTRF", "SGEHRD", "DORMQR", "XXXXXX"};
  const int n = 500, minus = -1;
  for (const char* name : names)
    for (int ispec : {1, 2, 3, 4, 6, 10, 11}) {
      observe::reset();
      const int got = VORN_instable_ILAENV(&ispec, name, "LN", &n, &n, &n, &minus, 6, 2);
      EXPECT_EQ(got, mkl_ilaenv(ispec, name, "LN", n, n, n, -1, 6, 2)) << name << " ispec " << ispec;
      EXPECT_TRUE(hooks_installed());
    }
}

TEST_F(Service, IparmqAnswersLikeMklAndHandsOnLengths) {
  const int n = 800, ilo = 1, ihi = 800, lwork = 100000;
  g_iparmq = {};
  for (int ispec : {12, 13, 14, 15, 16}) {
    observe::reset();
    const int got = VORN_instable_iparmq(&ispec, "DHSEQR", "SV", &n, &ilo, &ihi, &lwork, 6, 2);
    EXPECT_EQ(got, mkl_iparmq(ispec, "DHSEQR", "SV", n, ilo, ihi, lwork, 6, 2)) << "ispec " << ispec;
    EXPECT_TRUE(hooks_installed());
  }
  if (g_iparmq.hits == 0) GTEST_SKIP() << "mkl_lapack_iparmq is interposed elsewhere";
  EXPECT_EQ(g_iparmq.name_length, 6);
  EXPECT_EQ(g_iparmq.opts_length, 2);
  EXPECT_EQ(g_iparmq.n[3], 100000);
}

TEST_F(Service, IlaverReportsLapackThree) {
  int major = -9, minor = -9, patch = -9;
  VORN_instable_ilaver(&major, &minor, &patch);
  EXPECT_TRUE(hooks_installed());
  EXPECT_EQ(major, 3);
  EXPECT_GE(minor, 0);
  EXPECT_GE(patch, 0);
  i64 m = 0, n = 0, p = 0;
  mkl_lapack_ilaver(&m, &n, &p);
  EXPECT_EQ(major, m);
  EXPECT_EQ(minor, n);
  EXPECT_EQ(patch, p);
}

// ----------------------------------------------- IEEECK and translators

TEST_F(Service, IeeeckMatchesReference) {
  using Ref = int (*)(const int*, const float*, const float*);
  const auto ref = reference::fn<Ref>("ieeeck_");
  const float zero = 0, one = 1;
  for (int ispec : {0, 1}) {
    observe::reset();
    const int got = VORN_instable_ieeeck(&ispec, &zero, &one);
    EXPECT_TRUE(hooks_installed());
    EXPECT_EQ(got, ref(&ispec, &zero, &one)) << "ispec " << ispec;
    EXPECT_EQ(got, 1) << "IEEE arithmetic on this machine";
  }
}

TEST_F(Service, CodeTranslatorsMatchReference) {
  using Fn = int (*)(const char*, int);
  using Ref = int (*)(const char*, std::size_t);
  const struct {
    Fn lower, upper;
    const char* ref;
    const char* letters;
  } table[] = {{&VORN_instable_ilaprec, &VORN_instable_ILAPREC_, "ilaprec_", "SDIXEsdix?"},
               {&VORN_instable_ilatrans, &VORN_instable_ILATRANS, "ilatrans_", "NTCntcX"},
               {&VORN_instable_ilauplo, &VORN_instable_ILAUPLO_, "ilauplo_", "ULulX"},
               {&VORN_instable_iladiag, &VORN_instable_ILADIAG, "iladiag_", "NUnuX"}};
  for (const auto& t : table)
    for (const char* c = t.letters; *c != '\0'; ++c) {
      const int want = reference::fn<Ref>(t.ref)(c, 1);
      observe::reset();
      EXPECT_EQ(t.lower(c, 1), want) << t.ref << " " << *c;
      EXPECT_TRUE(hooks_installed());
      EXPECT_EQ(t.upper(c, 1), want) << t.ref << " " << *c;
    }
}

TEST_F(Service, ChlaTranstypeWritesTheCallersBuffer) {
  using Ref = void (*)(char*, std::size_t, const int*);
  const auto ref = reference::fn<Ref>("chla_transtype_");
  for (int code : {111, 112, 113, 0, 114, -111}) {
    char want[2] = {'?', '#'};
    ref(want, 1, &code);
    char got[2] = {'?', '#'};
    observe::reset();
    VORN_instable_chla_transtype(got, 1, &code);
    EXPECT_TRUE(hooks_installed());
    EXPECT_EQ(got[0], want[0]) << "code " << code;
    EXPECT_EQ(got[1], '#') << "wrote past the one-character result";
    char upper[2] = {'?', '#'};
    VORN_instable_CHLA_TRANSTYPE_(upper, 1, &code);
    EXPECT_EQ(upper[0], want[0]);
  }
}

TEST_F(Service, XerblaArrayReportsTheAssembledName) {
  using Ref = void (*)(const char*, const int*, const int*, std::size_t);
  const auto ref = reference::fn<Ref>("xerbla_array_");
  const char array[] = {'D', 'G', 'E', 'M', 'M', 'X', 'Y', 'Z'};
  for (int length : {5, 8, 3}) {
    const int info = 4;
    reference::reset();
    ref(array, &length, &info, 1);
    ASSERT_EQ(reference::reports().size(), 1u);
    const auto want = reference::reports()[0];
    observe::reset();
    VORN_instable_xerbla_array(array, &length, &info, 1);
    EXPECT_TRUE(hooks_installed());
    const auto& got = observe::reports();
    ASSERT_EQ(got.size(), 1u) << "length " << length;
    // MKL hands on a 32-character name of which only the first SRNAME_LEN
    // characters are set (the reference blank-fills the rest), so the
    // assembled name is that prefix.
    ASSERT_GE(got[0].name.size(), want.name.size()) << "length " << length;
    EXPECT_EQ(got[0].name.substr(0, want.name.size()), want.name) << "length " << length;
    EXPECT_EQ(got[0].position, want.position) << "length " << length;
  }
}

// ------------------------------------------- machine parameters, NaNs

TEST_F(Service, MachineConstantsMatchReference) {
  const auto dref = reference::fn<double (*)(const char*, std::size_t)>("dlamch_");
  const auto sref = reference::fn<float (*)(const char*, std::size_t)>("slamch_");
  for (const char* c = "ESBPNRMULOesbpnrmulo"; *c != '\0'; ++c) {
    observe::reset();
    EXPECT_EQ(VORN_instable_dlamch(c), dref(c, 1)) << "DLAMCH " << *c;
    EXPECT_TRUE(hooks_installed());
    EXPECT_EQ(VORN_instable_SLAMCH_(c), sref(c, 1)) << "SLAMCH " << *c;
  }
}

TEST_F(Service, Lamc3AddsLikeTheReference) {
  const auto dref = reference::fn<double (*)(const double*, const double*)>("dlamc3_");
  const auto sref = reference::fn<float (*)(const float*, const float*)>("slamc3_");
  const double d[][2] = {{1, 1e-17}, {1, 2.5}, {-3, 3}, {1e308, 1e308}};
  for (const auto& v : d) {
    observe::reset();
    EXPECT_EQ(VORN_instable_dlamc3(&v[0], &v[1]), dref(&v[0], &v[1]));
    EXPECT_TRUE(hooks_installed());
    const float f[2] = {static_cast<float>(v[0] > 1e37 ? 3e38 : v[0]), static_cast<float>(v[1] > 1e37 ? 3e38 : v[1])};
    EXPECT_EQ(VORN_instable_SLAMC3(&f[0], &f[1]), sref(&f[0], &f[1]));
  }
}

TEST_F(Service, NanTestsMatchReference) {
  const auto disnan = reference::fn<int (*)(const double*)>("disnan_");
  const auto sisnan = reference::fn<int (*)(const float*)>("sisnan_");
  const auto dlaisnan = reference::fn<int (*)(const double*, const double*)>("dlaisnan_");
  const auto slaisnan = reference::fn<int (*)(const float*, const float*)>("slaisnan_");
  const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
  const double values[] = {0.0, 1.5, -inf, inf, nan, -nan};
  for (double d : values) {
    const float f = static_cast<float>(d);
    observe::reset();
    EXPECT_EQ(VORN_instable_disnan(&d) != 0, disnan(&d) != 0) << d;
    EXPECT_TRUE(hooks_installed());
    EXPECT_EQ(VORN_instable_SISNAN(&f) != 0, sisnan(&f) != 0) << f;
    for (double e : values) {
      const float g = static_cast<float>(e);
      EXPECT_EQ(VORN_instable_dlaisnan(&d, &e) != 0, dlaisnan(&d, &e) != 0) << d << " " << e;
      EXPECT_EQ(VORN_instable_SLAISNAN_(&f, &g) != 0, slaisnan(&f, &g) != 0) << f << " " << g;
    }
  }
  EXPECT_NE(VORN_instable_disnan(&nan), 0);
  EXPECT_EQ(VORN_instable_disnan(&inf), 0);
}

TEST_F(Service, ComplexMaxIndexMatchesReference) {
  // |z| and |re| + |im| pick different elements here: entry 2 has the
  // larger modulus, entry 4 the larger sum of parts.
  const std::vector<std::complex<double>> z = {{0.1, 0.2}, {3.0, 0.0}, {-0.5, 0.5}, {2.2, 2.2}, {1.0, -1.0},
                                               {0.0, 0.3}, {-3.2, 0.0}, {0.2, 0.1}};
  std::vector<std::complex<float>> c(z.begin(), z.end());
  const auto iz = reference::fn<int (*)(const int*, const std::complex<double>*, const int*)>("izmax1_");
  const auto ic = reference::fn<int (*)(const int*, const std::complex<float>*, const int*)>("icmax1_");
  for (int n : {0, 1, 3, 4})
    for (int inc : {1, 2}) {
      observe::reset();
      const int got = VORN_instable_izmax1(&n, reinterpret_cast<const double*>(z.data()), &inc);
      EXPECT_TRUE(hooks_installed());
      EXPECT_EQ(got, iz(&n, z.data(), &inc)) << "IZMAX1 n=" << n << " inc=" << inc;
      EXPECT_EQ(VORN_instable_ICMAX1(&n, reinterpret_cast<const float*>(c.data()), &inc), ic(&n, c.data(), &inc))
          << "ICMAX1 n=" << n << " inc=" << inc;
    }
}

// The old machine-parameter routines: some arguments that the standard
// routines set are inputs of this layer and stay as the caller left them.
template <class R>
struct MachineFacts {
  static constexpr int t = std::numeric_limits<R>::digits;
  static constexpr int emin = std::numeric_limits<R>::min_exponent;
  static constexpr int emax = std::numeric_limits<R>::max_exponent;
  static constexpr int beta = std::numeric_limits<R>::radix;
  // Rounding arithmetic: eps is half an ulp of one.
  static R eps() { return std::numeric_limits<R>::epsilon() / 2; }
};

TEST_F(Service, Lamc1SetsTRndIeeeAndLeavesBeta) {
  int beta = 99, t = -1, rnd = -1, ieee = -1;
  VORN_instable_dlamc1(&beta, &t, &rnd, &ieee);
  EXPECT_TRUE(hooks_installed());
  EXPECT_EQ(beta, 99) << "BETA is an input of this layer";
  EXPECT_EQ(t, MachineFacts<double>::t);
  EXPECT_EQ(rnd, 1);
  EXPECT_EQ(ieee, 1);
  i64 b64 = 0, t64 = 0, r64 = 0, i64v = 0;
  mkl_lapack_dlamc1(&b64, &t64, &r64, &i64v);
  EXPECT_EQ(t, t64);
  EXPECT_EQ(rnd, r64);
  EXPECT_EQ(ieee, i64v);

  beta = 99, t = rnd = ieee = -1;
  VORN_instable_SLAMC1_(&beta, &t, &rnd, &ieee);
  EXPECT_EQ(beta, 99);
  EXPECT_EQ(t, MachineFacts<float>::t);
  EXPECT_EQ(rnd, 1);
  EXPECT_EQ(ieee, 1);
  mkl_lapack_slamc1(&b64, &t64, &r64, &i64v);
  EXPECT_EQ(t, t64);
}

template <class R>
void check_lamc2(void (*lamc2)(int*, int*, int*, R*, int*, R*, int*, R*)) {
  using F = MachineFacts<R>;
  int beta = 99, t = -1, rnd = -1, emin = -99, emax = -1;
  R eps = -1, rmin = -1, rmax = -1;
  observe::reset();
  lamc2(&beta, &t, &rnd, &eps, &emin, &rmin, &emax, &rmax);
  EXPECT_TRUE(hooks_installed());
  EXPECT_EQ(beta, 99) << "BETA is an input of this layer";
  EXPECT_EQ(emin, -99) << "EMIN is an input of this layer";
  EXPECT_EQ(t, F::t);
  EXPECT_EQ(rnd, 1);
  EXPECT_EQ(emax, F::emax);
  EXPECT_EQ(eps, F::eps());
  EXPECT_EQ(rmin, std::numeric_limits<R>::min());
  EXPECT_EQ(rmax, std::numeric_limits<R>::max());
}

TEST_F(Service, Lamc2SetsTRndEmaxAndLeavesBetaEmin) {
  check_lamc2<double>(&VORN_instable_dlamc2);
  check_lamc2<float>(&VORN_instable_SLAMC2);
}

TEST_F(Service, Lamc4LeavesEmin) {
  int emin = -99;
  const int base = 2;
  const double start = 1;
  VORN_instable_dlamc4(&emin, &start, &base);
  EXPECT_TRUE(hooks_installed());
  EXPECT_EQ(emin, -99) << "EMIN is an input of this layer";
  const float fstart = 1;
  VORN_instable_SLAMC4_(&emin, &fstart, &base);
  EXPECT_EQ(emin, -99);
}

template <class R>
void check_lamc5(void (*lamc5)(const int*, const int*, const int*, const int*, int*, R*)) {
  using F = MachineFacts<R>;
  const int beta = F::beta, p = F::t, emin = F::emin, ieee = 1;
  int emax = -1;
  R rmax = -1;
  observe::reset();
  lamc5(&beta, &p, &emin, &ieee, &emax, &rmax);
  EXPECT_TRUE(hooks_installed());
  EXPECT_EQ(emax, F::emax);
  EXPECT_EQ(rmax, std::numeric_limits<R>::max());
  EXPECT_EQ(beta, F::beta);
  EXPECT_EQ(p, F::t);
  EXPECT_EQ(emin, F::emin);
}

TEST_F(Service, Lamc5SetsEmax) {
  check_lamc5<double>(&VORN_instable_dlamc5);
  check_lamc5<float>(&VORN_instable_SLAMC5);
}

}  // namespace
