// The service and enquiry routines: error reports, character comparison,
// timers, tuning enquiries, code translators, machine parameters, NaN tests.
// Oracles: the reference LAPACK where it exports the routine, MKL's own
// ILP64 entry called directly otherwise, and IEEE facts for the old
// machine-parameter routines, which the reference library does not export.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "support/observe.h"
#include "support/reference.h"
#include "vorn_instable.h"

using i64 = long long;

extern "C" i64 mkl_lapack_ilaver(i64* major, i64* minor, i64* patch);

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
i64 mkl_enquiry(const char* entry, i64 ispec, const char* name, const char* opts, i64 n1, i64 n2, i64 n3, i64 n4,
                int lname, int lopts) {
  return reinterpret_cast<IlaenvEntry>(observe::next(entry))(&ispec, name, opts, &n1, &n2, &n3, &n4, lname, lopts);
}

i64 seen(EnquirySeen& s, const char* entry, const i64* ispec, const char* name, const char* opts, const i64* n1,
         const i64* n2, const i64* n3, const i64* n4, int lname, int lopts, const void* caller) {
  if (observe::in_layer(caller)) s = {*ispec, {*n1, *n2, *n3, *n4}, lname, lopts, s.hits + 1};
  observe::note_entry(entry, caller);
  return mkl_enquiry(entry, *ispec, name, opts, *n1, *n2, *n3, *n4, lname, lopts);
}

// While set, MKL's default progress handler answers this instead of asking
// MKL, so that the layer's installed handler is seen to pass it on.
i64 g_progress_answer = -1;
int g_progress_calls = 0;

}  // namespace

// Weak, so that another suite may interpose the same entries.
extern "C" __attribute__((weak)) i64 mkl_lapack_ilaenv(const i64* ispec, const char* name, const char* opts,
                                                       const i64* n1, const i64* n2, const i64* n3, const i64* n4,
                                                       int lname, int lopts) {
  return seen(g_ilaenv, "mkl_lapack_ilaenv", ispec, name, opts, n1, n2, n3, n4, lname, lopts,
              __builtin_return_address(0));
}

extern "C" __attribute__((weak)) i64 mkl_lapack_iparmq(const i64* ispec, const char* name, const char* opts,
                                                       const i64* n, const i64* ilo, const i64* ihi, const i64* lwork,
                                                       int lname, int lopts) {
  return seen(g_iparmq, "mkl_lapack_iparmq", ispec, name, opts, n, ilo, ihi, lwork, lname, lopts,
              __builtin_return_address(0));
}

extern "C" i64 mkl_lapack_lsamen(const i64* n, const char* ca, const char* cb, int lca, int lcb) {
  observe::note_entry("mkl_lapack_lsamen", __builtin_return_address(0));
  using F = i64 (*)(const i64*, const char*, const char*, int, int);
  static const auto real = reinterpret_cast<F>(observe::next("mkl_lapack_lsamen"));
  return real(n, ca, cb, lca, lcb);
}

extern "C" i64 mkl_serv_default_progress(void* thread, void* step, void* stage, i64 length) {
  using F = i64 (*)(void*, void*, void*, i64);
  static const auto real = reinterpret_cast<F>(observe::next("mkl_serv_default_progress"));
  if (g_progress_answer < 0) return real(thread, step, stage, length);
  ++g_progress_calls;
  return g_progress_answer;
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

// The handlers any LAPACK call installs are the layer's, and each hands on
// to MKL's default: the report as XERBLA makes it, the progress answer as
// MKL's default progress handler gives it.
TEST_F(Service, InstalledHandlersPassOnToMklsDefaults) {
  EXPECT_GT(VORN_instable_dlamch("E"), 0.0);
  ASSERT_TRUE(hooks_installed());
  const auto events = observe::events();
  for (const auto& e : {events[0], events[1]}) ASSERT_TRUE(observe::in_layer(e.pointer)) << "a handler not the layer's";

  observe::reset();
  const i64 position = 9;
  reinterpret_cast<void (*)(const char*, const void*, i64)>(const_cast<void*>(events[0].pointer))("ZTESTR", &position,
                                                                                                 6);
  ASSERT_EQ(observe::reports().size(), 1u);
  EXPECT_EQ(observe::reports()[0].name + "/" + std::to_string(observe::reports()[0].position), "ZTESTR/9");

  int thread = 0, step = 3;
  char stage[] = "DGEQRF";
  const auto progress = reinterpret_cast<i64 (*)(void*, void*, void*, i64)>(const_cast<void*>(events[1].pointer));
  for (i64 answer : {0, 1}) {
    g_progress_answer = answer;
    g_progress_calls = 0;
    EXPECT_EQ(progress(&thread, &step, stage, 6), answer);
    EXPECT_EQ(g_progress_calls, 1);
  }
  g_progress_answer = -1;
}

// ----------------------------------------------------- LSAME, LSAMEN

TEST_F(Service, LsameAndLsamenCompareLikeTheReference) {
  const auto lsame = reference::fn<int (*)(const char*, const char*, std::size_t, std::size_t)>("lsame_");
  for (char a : std::string("AaBbNnZz0 *"))
    for (char b : std::string("AaBbNnZz0 *")) {
      const bool want = lsame(&a, &b, 1, 1) != 0;
      EXPECT_EQ(VORN_instable_lsame(&a, &b) != 0, want) << a << " " << b;
      EXPECT_EQ(VORN_instable_LSAME(&a, &b) != 0, want) << a << " " << b;
    }
  EXPECT_TRUE(no_hooks()) << "LSAME installed a hook";

  const auto lsamen = reference::fn<int (*)(const int*, const char*, const char*, std::size_t, std::size_t)>("lsamen_");
  for (auto [n, ca, cb, lca, lcb] :
       {std::tuple{3, "ABCD", "abcx", 4, 4}, {4, "ABCD", "abcx", 4, 4}, {3, "ABCD", "abcx", 2, 4},
        {3, "ABCD", "abcx", 4, 2}, {0, "ABCD", "WXYZ", 4, 4}, {6, "DGEQRF", "dgeqrf", 6, 5}, {1, "A", "B", 1, 1}}) {
    SCOPED_TRACE(std::to_string(n) + " " + ca + "/" + std::to_string(lca) + " " + cb + "/" + std::to_string(lcb));
    const bool want = lsamen(&n, ca, cb, static_cast<std::size_t>(lca), static_cast<std::size_t>(lcb)) != 0;
    observe::reset();
    EXPECT_EQ(VORN_instable_lsamen(&n, ca, cb, lca, lcb) != 0, want);
    const auto& ev = observe::events();
    ASSERT_EQ(ev.size(), 3u);
    EXPECT_TRUE(hooks_installed());
    EXPECT_EQ(ev[2].entry, "mkl_lapack_lsamen") << "the hooks come before the entry";
    EXPECT_EQ(VORN_instable_LSAMEN_(&n, ca, cb, lca, lcb) != 0, want);
  }
}

// ------------------------------------------------------------- timers

TEST_F(Service, TimersAdvanceWithoutHooks) {
  const float s0 = VORN_instable_SECOND();
  const double d0 = VORN_instable_dsecnd();
  volatile double sink = 0;
  for (const auto start = std::chrono::steady_clock::now();
       std::chrono::steady_clock::now() - start < std::chrono::milliseconds(120);)
    sink = sink + 1;
  EXPECT_GT(VORN_instable_second(), s0);
  EXPECT_GT(VORN_instable_DSECND(), d0);
  EXPECT_TRUE(observe::events().empty()) << "a timer installed a hook or allocated";
}

// ------------------------------------------------- ILAENV, IPARMQ, ILAVER

TEST_F(Service, IlaenvHandsOnTheCallersLengths) {
  const int one = 1, n = 1000, minus = -1;
  g_ilaenv = {};
  const int got = VORN_instable_ilaenv(&one, "DGETRF", " ", &n, &n, &minus, &minus, 6, 1);
  EXPECT_TRUE(hooks_installed());
  EXPECT_EQ(got, mkl_enquiry("mkl_lapack_ilaenv", 1, "DGETRF", " ", 1000, 1000, -1, -1, 6, 1));
  if (g_ilaenv.hits == 0) GTEST_SKIP() << "mkl_lapack_ilaenv is interposed elsewhere";
  EXPECT_EQ(g_ilaenv.name_length, 6);
  EXPECT_EQ(g_ilaenv.opts_length, 1);
  EXPECT_EQ(g_ilaenv.n[0], 1000);
  EXPECT_EQ(g_ilaenv.n[2], -1) << "N3 not sign-extended";
  EXPECT_EQ(g_ilaenv.n[3], -1) << "N4 not sign-extended";
  // A caller that passes a wrong length gets MKL's answer for that length.
  const int wrong = VORN_instable_ILAENV_(&one, "DGETRF", " ", &n, &n, &minus, &minus, 3, 0);
  EXPECT_EQ(g_ilaenv.name_length, 3);
  EXPECT_EQ(g_ilaenv.opts_length, 0);
  EXPECT_EQ(wrong, mkl_enquiry("mkl_lapack_ilaenv", 1, "DGETRF", " ", 1000, 1000, -1, -1, 3, 0));
}

TEST_F(Service, IparmqAndIlaverAnswerLikeMkl) {
  const int m = 800, ilo = 1, lwork = 100000;
  g_iparmq = {};
  for (int ispec : {12, 13, 14, 15, 16}) {
    observe::reset();
    EXPECT_EQ(VORN_instable_iparmq(&ispec, "DHSEQR", "SV", &m, &ilo, &m, &lwork, 6, 2),
              mkl_enquiry("mkl_lapack_iparmq", ispec, "DHSEQR", "SV", m, ilo, m, lwork, 6, 2))
        << "ispec " << ispec;
    EXPECT_TRUE(hooks_installed());
  }
  if (g_iparmq.hits > 0) {
    EXPECT_EQ(g_iparmq.name_length * 10 + g_iparmq.opts_length, 62);
    EXPECT_EQ(g_iparmq.n[3], 100000);
  }
  int major = -9, minor = -9, patch = -9;
  i64 want[3] = {};
  observe::reset();
  VORN_instable_ilaver(&major, &minor, &patch);
  EXPECT_TRUE(hooks_installed());
  mkl_lapack_ilaver(&want[0], &want[1], &want[2]);
  EXPECT_EQ(std::vector<i64>({major, minor, patch}), std::vector<i64>(want, want + 3));
  EXPECT_EQ(major, 3);
}

// ------------------------------------ enquiries with a reference routine

// Each group compares the layer with the reference over its inputs, through
// both ends of the spelling set, and checks the hooks came first.
void after_hooks(const char* what, const std::function<void()>& compare) {
  SCOPED_TRACE(what);
  observe::reset();
  compare();
  EXPECT_TRUE(hooks_installed());
}

// The double inputs in single precision, the largest kept finite.
float single(double v) { return static_cast<float>(std::abs(v) > 1e37 ? std::copysign(3e38, v) : v); }

TEST_F(Service, EnquiriesAnswerLikeTheReferenceAfterTheHooks) {
  using Translator = int (*)(const char*, int);
  after_hooks("IEEECK", [] {
    const float zero = 0, one = 1;
    for (int ispec : {0, 1})
      EXPECT_EQ(VORN_instable_ieeeck(&ispec, &zero, &one),
                reference::fn<int (*)(const int*, const float*, const float*)>("ieeeck_")(&ispec, &zero, &one));
  });
  after_hooks("translators", [] {
    for (auto [lower, upper, ref, letters] :
         {std::tuple<Translator, Translator, const char*, const char*>{
              &VORN_instable_ilaprec, &VORN_instable_ILAPREC_, "ilaprec_", "SDIXEsdix?"},
          {&VORN_instable_ilatrans, &VORN_instable_ILATRANS, "ilatrans_", "NTCntcX"},
          {&VORN_instable_ilauplo, &VORN_instable_ILAUPLO_, "ilauplo_", "ULulX"},
          {&VORN_instable_iladiag, &VORN_instable_ILADIAG, "iladiag_", "NUnuX"}})
      for (const char* c = letters; *c != '\0'; ++c) {
        const int want = reference::fn<int (*)(const char*, std::size_t)>(ref)(c, 1);
        EXPECT_EQ(lower(c, 1), want) << ref << " " << *c;
        EXPECT_EQ(upper(c, 1), want) << ref << " " << *c;
      }
  });
  after_hooks("CHLA_TRANSTYPE", [] {
    for (int code : {111, 112, 113, 0, -111}) {
      char want[2] = {'?', '#'}, got[2] = {'?', '#'}, upper[2] = {'?', '#'};
      reference::fn<void (*)(char*, std::size_t, const int*)>("chla_transtype_")(want, 1, &code);
      VORN_instable_chla_transtype(got, 1, &code);
      VORN_instable_CHLA_TRANSTYPE_(upper, 1, &code);
      EXPECT_EQ(std::string(got, 2), std::string(want, 2)) << "code " << code;
      EXPECT_EQ(upper[0], want[0]) << "code " << code;
    }
  });
  after_hooks("LAMCH", [] {
    for (const char* c = "ESBPNRMULOesbpnrmulo"; *c != '\0'; ++c) {
      EXPECT_EQ(VORN_instable_dlamch(c), reference::fn<double (*)(const char*, std::size_t)>("dlamch_")(c, 1)) << *c;
      EXPECT_EQ(VORN_instable_SLAMCH_(c), reference::fn<float (*)(const char*, std::size_t)>("slamch_")(c, 1)) << *c;
    }
  });
  after_hooks("LAMC3", [] {
    for (auto [a, b] : {std::pair{1.0, 1e-17}, {1.0, 2.5}, {-3.0, 3.0}, {1e308, 1e308}}) {
      const float fa = single(a), fb = single(b);
      EXPECT_EQ(VORN_instable_dlamc3(&a, &b),
                reference::fn<double (*)(const double*, const double*)>("dlamc3_")(&a, &b));
      EXPECT_EQ(VORN_instable_SLAMC3(&fa, &fb),
                reference::fn<float (*)(const float*, const float*)>("slamc3_")(&fa, &fb));
    }
  });
  after_hooks("NaN tests", [] {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
    for (double d : {0.0, -inf, inf, nan})
      for (double e : {1.5, inf, nan}) {
        const float f = static_cast<float>(d), g = static_cast<float>(e);
        EXPECT_EQ(VORN_instable_disnan(&d) != 0, std::isnan(d)) << d;
        EXPECT_EQ(VORN_instable_SISNAN(&f) != 0, std::isnan(f)) << f;
        EXPECT_EQ(VORN_instable_dlaisnan(&d, &e) != 0,
                  reference::fn<int (*)(const double*, const double*)>("dlaisnan_")(&d, &e) != 0);
        EXPECT_EQ(VORN_instable_SLAISNAN_(&f, &g) != 0,
                  reference::fn<int (*)(const float*, const float*)>("slaisnan_")(&f, &g) != 0);
      }
  });
  after_hooks("IZMAX1, ICMAX1", [] {
    // |z| and |re| + |im| pick different elements: entry 2 has the
    // larger modulus, entry 4 the larger sum of parts.
    const std::vector<std::complex<double>> z = {{0.1, 0.2},  {3.0, 0.0}, {-0.5, 0.5}, {2.2, 2.2},
                                                 {1.0, -1.0}, {0.0, 0.3}, {-3.2, 0.0}, {0.2, 0.1}};
    const std::vector<std::complex<float>> c(z.begin(), z.end());
    for (int n : {0, 1, 3, 4})
      for (int inc : {1, 2}) {
        EXPECT_EQ(VORN_instable_izmax1(&n, reinterpret_cast<const double*>(z.data()), &inc),
                  reference::fn<int (*)(const int*, const void*, const int*)>("izmax1_")(&n, z.data(), &inc))
            << n << " " << inc;
        EXPECT_EQ(VORN_instable_ICMAX1(&n, reinterpret_cast<const float*>(c.data()), &inc),
                  reference::fn<int (*)(const int*, const void*, const int*)>("icmax1_")(&n, c.data(), &inc))
            << n << " " << inc;
      }
  });
}

TEST_F(Service, XerblaArrayReportsTheAssembledName) {
  const char array[] = {'D', 'G', 'E', 'M', 'M', 'X', 'Y', 'Z'};
  for (int length : {5, 8, 3}) {
    const int info = 4;
    reference::reset();
    reference::fn<void (*)(const char*, const int*, const int*, std::size_t)>("xerbla_array_")(array, &length, &info,
                                                                                               1);
    ASSERT_EQ(reference::reports().size(), 1u);
    const auto want = reference::reports()[0];
    observe::reset();
    VORN_instable_xerbla_array(array, &length, &info, 1);
    EXPECT_TRUE(hooks_installed());
    ASSERT_EQ(observe::reports().size(), 1u) << "length " << length;
    // MKL hands on a 32-character name of which only the first SRNAME_LEN
    // characters are set, so the assembled name is that prefix.
    const auto& got = observe::reports()[0];
    EXPECT_EQ(got.name.substr(0, want.name.size()), want.name) << "length " << length;
    EXPECT_EQ(got.position, want.position) << "length " << length;
  }
}

// ------------------------------------------- old machine parameters

// Some arguments that the standard routines set are inputs of this layer
// and stay as the caller left them (BETA, EMIN); the rest are IEEE facts.
template <class R>
void check_lamc(void (*lamc1)(int*, int*, int*, int*), void (*lamc2)(int*, int*, int*, R*, int*, R*, int*, R*),
                void (*lamc4)(int*, const R*, const int*),
                void (*lamc5)(const int*, const int*, const int*, const int*, int*, R*)) {
  using L = std::numeric_limits<R>;
  int beta = 99, t = -1, rnd = -1, ieee = -1, emin = -99, emax = -1;
  R eps = -1, rmin = -1, rmax = -1;
  observe::reset();
  lamc1(&beta, &t, &rnd, &ieee);
  EXPECT_TRUE(hooks_installed());
  EXPECT_EQ(std::vector<int>({beta, t, rnd, ieee}), std::vector<int>({99, L::digits, 1, 1}));
  t = rnd = -1;
  lamc2(&beta, &t, &rnd, &eps, &emin, &rmin, &emax, &rmax);
  EXPECT_EQ(std::vector<int>({beta, t, rnd, emin, emax}), std::vector<int>({99, L::digits, 1, -99, L::max_exponent}));
  EXPECT_EQ(std::vector<R>({eps, rmin, rmax}), std::vector<R>({L::epsilon() / 2, L::min(), L::max()}));
  const R start = 1;
  const int base = 2;
  lamc4(&emin, &start, &base);
  EXPECT_EQ(emin, -99) << "EMIN is an input of this layer";
  const int radix = L::radix, p = L::digits, e = L::min_exponent, one = 1;
  emax = -1, rmax = -1;
  lamc5(&radix, &p, &e, &one, &emax, &rmax);
  EXPECT_EQ(emax, L::max_exponent);
  EXPECT_EQ(rmax, L::max());
}

TEST_F(Service, OldMachineParametersSetOnlyTheirOutputs) {
  check_lamc<double>(&VORN_instable_dlamc1, &VORN_instable_dlamc2, &VORN_instable_dlamc4, &VORN_instable_dlamc5);
  check_lamc<float>(&VORN_instable_SLAMC1_, &VORN_instable_SLAMC2, &VORN_instable_SLAMC4_, &VORN_instable_SLAMC5);
}

}  // namespace
