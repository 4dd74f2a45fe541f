// Divide-and-conquer and bisection kernels, whose integer arrays are sized
// from the subproblem tree, run under their reference callers with every
// scratch array between inaccessible pages: the results must be the
// reference's own.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/fixtures.h"
#include "support/observe.h"
#include "support/reference.h"

using zd = std::complex<double>;
using namespace fixtures;

// ------------------------------------------------------------ kernels under their reference callers

// The reference LAPACK reaches its kernels through the global scope, where
// the definitions below come first. While a kernel is routed, its reference
// caller's calls go through the layer; otherwise to the reference's own.
// Fortran passes everything by address (hidden lengths last), so one
// forwarder of enough address-sized words serves every kernel.
using Word = void*;
using Kernel = void (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word,
                        Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

namespace {
struct Route {
  Kernel layer, reference;
  int calls = 0;
};
std::string g_routed;
std::map<std::string, Route> g_routes;

Route& route(const std::string& name) {
  auto it = g_routes.find(name);
  if (it == g_routes.end()) {
    const std::string layer = "VORN_instable_" + name, ref = name + "_";
    it = g_routes.emplace(name, Route{reinterpret_cast<Kernel>(dlsym(RTLD_DEFAULT, layer.c_str())),
                                      reinterpret_cast<Kernel>(reference::symbol(ref.c_str()))}).first;
    if (it->second.layer == nullptr) std::abort();
  }
  return it->second;
}
}  // namespace

#define VORN_ROUTE(f)                                                                                               \
  extern "C" void f##_(Word a, Word b, Word c, Word d, Word e, Word f_, Word g, Word h, Word i, Word j, Word k,      \
                       Word l, Word m, Word n, Word o, Word p, Word q, Word r, Word s, Word t, Word u, Word v,       \
                       Word w, Word x, Word y, Word z, Word aa, Word ab) {                                          \
    Route& rt = route(#f);                                                                                          \
    const bool routed = g_routed == #f;                                                                             \
    rt.calls += routed;                                                                                             \
    (routed ? rt.layer : rt.reference)(a, b, c, d, e, f_, g, h, i, j, k, l, m, n, o, p, q, r, s, t, u, v, w, x, y, \
                                       z, aa, ab);                                                                  \
  }
VORN_ROUTE(slaed7) VORN_ROUTE(dlaed7) VORN_ROUTE(claed7) VORN_ROUTE(zlaed7)
VORN_ROUTE(slaed8) VORN_ROUTE(dlaed8) VORN_ROUTE(claed8) VORN_ROUTE(zlaed8)
VORN_ROUTE(slaeda) VORN_ROUTE(dlaeda) VORN_ROUTE(slaed9) VORN_ROUTE(dlaed9)
VORN_ROUTE(dlaed1) VORN_ROUTE(dlaed2) VORN_ROUTE(dlaed3) VORN_ROUTE(dlaed4)
VORN_ROUTE(dlaed6)
VORN_ROUTE(dlasd0) VORN_ROUTE(dlasd1) VORN_ROUTE(dlasd2) VORN_ROUTE(dlasd3) VORN_ROUTE(dlasd4)
VORN_ROUTE(dlasd6) VORN_ROUTE(dlasd7) VORN_ROUTE(dlasd8) VORN_ROUTE(dlasda) VORN_ROUTE(dlasdt)
VORN_ROUTE(dlarrb) VORN_ROUTE(dlarrd) VORN_ROUTE(dlarre) VORN_ROUTE(dlarrv) VORN_ROUTE(zlarrv)
#undef VORN_ROUTE

namespace {

struct Outputs {
  int info = 0;
  std::vector<double> values;   // compared as they are
  std::vector<double> vectors;  // compared in magnitude: a vector's sign is free
};

template <class T>
std::vector<T> identity(int n) {
  std::vector<T> q(static_cast<size_t>(n) * n);
  for (int i = 0; i < n; ++i) q[i + static_cast<size_t>(i) * n] = T(1);
  return q;
}

template <class R = double>
std::vector<R> randoms(int n, unsigned seed) {
  auto v = random_matrix(n, 1, seed);
  return {v.begin(), v.end()};
}

template <class V>
std::vector<double> magnitudes(const V& v) {
  std::vector<double> out;
  for (const auto& x : v) out.push_back(std::abs(x));
  return out;
}

// A reference routine by name. Two hidden character lengths follow, read
// only by the routines that have character arguments.
template <class... A>
void call(const std::string& name, A... a) {
  reinterpret_cast<void (*)(A..., size_t, size_t)>(reference::symbol(name.c_str()))(a..., 1, 1);
}

int lg(int n) {
  int k = 0;
  while ((1 << k) < n) ++k;
  return k;
}

// ?LAED0 over a random tridiagonal matrix, Q the identity: the eigenvalues,
// and the eigenvectors unless ICOMPQ = 0. R is the real type, T Q's type
// (complex for CLAED0/ZLAED0, which have no ICOMPQ).
template <class R, class T = R>
Outputs laed0(int icompq, int n) {
  constexpr bool complex = !std::is_same_v<R, T>;
  auto d = randoms<R>(n, 21), e = randoms<R>(n, 22);
  auto q = identity<T>(n), qstore = q;
  std::vector<R> work(1 + 4 * n + 2 * n * lg(n) + 3 * n * n);
  std::vector<int> iwork(6 + 6 * n + 5 * n * lg(n));
  int info = 0;
  const std::string name = std::string(1, "sdcz"[(sizeof(R) == 8) + 2 * complex]) + "laed0_";
  if constexpr (complex)
    call(name, &n, &n, d.data(), e.data(), q.data(), &n, qstore.data(), &n, work.data(), iwork.data(), &info);
  else
    call(name, &icompq, &n, &n, d.data(), e.data(), q.data(), &n, qstore.data(), &n, work.data(), iwork.data(),
         &info);
  return {info, {d.begin(), d.end()}, icompq == 0 ? std::vector<double>{} : magnitudes(q)};
}

// ?BDSDC on a random bidiagonal matrix: singular values, and the singular
// vectors with COMPQ = 'I' or the compact form's integer part IQ with 'P'
// (its Q part holds entries LAPACK leaves undefined).
Outputs dbdsdc(const char* compq, int n) {
  auto d = randoms(n, 29), e = randoms(n, 30);
  std::vector<double> u(static_cast<size_t>(n) * n), vt(u.size()), q(static_cast<size_t>(n) * 100),
      work(3 * n * n + 4 * n + 64 * n);
  std::vector<int> iq(static_cast<size_t>(n) * 40), iwork(8 * n);
  int info = 0;
  call("dbdsdc_", "U", compq, &n, d.data(), e.data(), u.data(), &n, vt.data(), &n, q.data(), iq.data(), work.data(),
       iwork.data(), &info);
  return {info, d, compq[0] == 'I' ? magnitudes(u) : std::vector<double>(iq.begin(), iq.end())};
}

// ?STEMR for all eigenpairs ('A') or a range by index ('I', which takes the
// bisection path through ?LARRD).
template <class Z>
Outputs stemr(const char* range, int n) {
  auto d = randoms(n, 33), e = randoms(n, 34);
  int il = 3, iu = n - 5, m = 0, nzc = n, info = 0, lwork = 18 * n, liwork = 10 * n, tryrac = 1;
  double vl = 0, vu = 0;
  std::vector<double> w(n), work(lwork);
  std::vector<Z> z(static_cast<size_t>(n) * n);
  std::vector<int> isuppz(2 * n), iwork(liwork);
  call(sizeof(Z) == 8 ? "dstemr_" : "zstemr_", "V", range, &n, d.data(), e.data(), &vl, &vu, &il, &iu, &m, w.data(),
       z.data(), &n, &nzc, isuppz.data(), &tryrac, work.data(), &lwork, iwork.data(), &liwork, &info);
  w.resize(m);
  z.resize(static_cast<size_t>(m) * n);
  return {info, w, magnitudes(z)};
}

struct Driven {
  std::string kernel;  // routed through the layer
  const char* caller;  // for the trace only
  std::function<Outputs()> run;
  double tolerance;
};

void PrintTo(const Driven& c, std::ostream* os) { *os << c.kernel << " under " << c.caller; }

class KernelUnderReferenceCaller : public ::testing::TestWithParam<Driven> {
 protected:
  void SetUp() override { observe::reset(), reference::reset(); }
  void TearDown() override { EXPECT_EQ(observe::outstanding_blocks(), 0u); }
};

TEST_P(KernelUnderReferenceCaller, GivesTheReferenceResultsWithinItsScratchArrays) {
  const Driven& c = GetParam();
  SCOPED_TRACE(c.caller);
  g_routed.clear();
  const Outputs expected = c.run();
  route(c.kernel).calls = 0;
  {
    observe::GuardPages guard;
    g_routed = c.kernel;
    const Outputs got = c.run();
    g_routed.clear();
    EXPECT_GT(route(c.kernel).calls, 0) << "the caller never reached the kernel";
    EXPECT_EQ(got.info, expected.info);
    ASSERT_EQ(got.values.size(), expected.values.size());
    ASSERT_EQ(got.vectors.size(), expected.vectors.size());
    double scale = 1;
    for (double x : expected.values) scale = std::max(scale, std::abs(x));
    EXPECT_LT(max_diff(got.values, expected.values), c.tolerance * scale);
    EXPECT_LT(max_diff(got.vectors, expected.vectors), 100 * c.tolerance);
  }
  EXPECT_EQ(observe::reports().size(), 0u);
}

constexpr double kD = 1e-10, kS = 2e-3;

// Each caller with the kernels it reaches.
std::vector<Driven> driven() {
  const std::vector<Driven> callers = {
      {"dlaed7 dlaed8", "DLAED0 vectors N=200", [] { return laed0<double>(1, 200); }, kD},
      {"dlaed7 dlaed9", "DLAED0 values N=301", [] { return laed0<double>(0, 301); }, kD},
      {"slaed7 slaed8", "SLAED0 vectors N=130", [] { return laed0<float>(1, 130); }, kS},
      {"claed7 claed8 slaed9", "CLAED0 N=130", [] { return laed0<float, std::complex<float>>(1, 130); }, kS},
      {"zlaed7 zlaed8", "ZLAED0 N=200", [] { return laed0<double, zd>(1, 200); }, kD},
      // ?LAEDA's arrays are sized by the subproblem's N ln N while ?LAED7
      // hands it whole-tree arrays; from five merge levels on (N = 420) the
      // library reads past them, as those sizes are set. Each N here keeps
      // every subproblem's N ln N and 2N ln N at least an eighth past a
      // whole number, where the copy stays within its block.
      {"dlaeda", "DLAED0 vectors N=224", [] { return laed0<double>(1, 224); }, kD},
      {"slaeda", "SLAED0 vectors N=64", [] { return laed0<float>(1, 64); }, kS},
      {"dlaed1 dlaed2 dlaed3 dlaed4", "DLAED0 ICOMPQ=2 N=200", [] { return laed0<double>(2, 200); }, kD},
      {"dlaed6 dlasd0 dlasd1 dlasd2 dlasd3 dlasd4 dlasdt", "DBDSDC 'I' N=150", [] { return dbdsdc("I", 150); }, kD},
      {"dlasda dlasd6 dlasd7 dlasd8", "DBDSDC 'P' N=150", [] { return dbdsdc("P", 150); }, kD},
      {"dlarre dlarrv", "DSTEMR 'A' N=120", [] { return stemr<double>("A", 120); }, kD},
      {"zlarrv", "ZSTEMR 'A' N=120", [] { return stemr<zd>("A", 120); }, kD},
      {"dlarrd dlarrb", "DSTEMR 'I' N=120", [] { return stemr<double>("I", 120); }, kD}};
  std::vector<Driven> out;
  for (const Driven& c : callers) {
    std::istringstream kernels(c.kernel);
    for (std::string k; kernels >> k;) out.push_back({k, c.caller, c.run, c.tolerance});
  }
  return out;
}

INSTANTIATE_TEST_SUITE_P(Kernels, KernelUnderReferenceCaller, ::testing::ValuesIn(driven()),
                         [](const ::testing::TestParamInfo<Driven>& info) {
                           return info.param.kernel + "_" + std::to_string(info.index);
                         });

}  // namespace
