// LAPACK routines with integer and logical arrays, each row of the table one
// call sequence run on the reference LAPACK and then through the layer: what
// comes back, what the layer leaves as the caller had it, the scratch arrays
// it obtains (their sizes say which arrays it took and for how long), the
// reports, and what MKL is handed where the layer decides it. The kernels
// run so under their reference callers. Then a sweep that makes every
// scratch allocation of every such routine fail in turn.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <complex>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/observe.h"
#include "support/reference.h"
#include "vorn_instable.h"

using i64 = long long;
using zd = std::complex<double>;
using Word = void*;

namespace {
constexpr int kSentinel = 0x5A5A5A5A;
double* const kNone = nullptr;
// Set by a row for the layer's call only: sees the arguments of a spied MKL
// entry (below) before and after the real one runs.
std::function<void(Word*)> g_before, g_after;
int g_selections = 0;
}  // namespace

// MKL entries whose arguments a row inspects. Each also records that it was
// reached, so that the hooks can be seen to precede it. Fortran passes
// everything by address (hidden lengths last): one forwarder fits all.
#define VORN_SPY(entry)                                                                                       \
  extern "C" void entry(Word a, Word b, Word c, Word d, Word e, Word f, Word g, Word h, Word i, Word j, Word k, \
                        Word l, Word m, Word n, Word o, Word p, Word q, Word r, Word s, Word t, Word u, Word v,  \
                        Word w, Word x, Word y) {                                                              \
    observe::note_entry(#entry, __builtin_return_address(0));                                                 \
    const bool layer = observe::in_layer(__builtin_return_address(0));                                        \
    Word args[] = {a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p, q, r, s, t, u, v, w, x, y};                \
    if (layer && g_before) g_before(args);                                                                    \
    using F = void (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, \
                       Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);                            \
    static const auto real = reinterpret_cast<F>(observe::next(#entry));                                      \
    real(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p, q, r, s, t, u, v, w, x, y);                          \
    if (layer && g_after) g_after(args);                                                                      \
  }
VORN_SPY(mkl_lapack_dgetrf) VORN_SPY(mkl_lapack_dgetrs) VORN_SPY(mkl_lapack_dgesvx) VORN_SPY(mkl_lapack_dlaswp)
VORN_SPY(mkl_lapack_dsyevd) VORN_SPY(mkl_lapack_dlacn2)
#undef VORN_SPY

namespace {

std::vector<double> random_matrix(int rows, int cols, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<double> a(static_cast<std::size_t>(rows) * cols);
  for (auto& x : a) x = u(gen);
  return a;
}

std::vector<double> symmetric_matrix(int n, unsigned seed) {
  auto a = random_matrix(n, n, seed);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < j; ++i) a[i + j * n] = a[j + i * n];
  return a;
}

double max_diff(const std::vector<double>& a, const std::vector<double>& b) {
  double d = 0;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) d = std::max(d, std::abs(a[i] - b[i]));
  return d;
}

// The library's own calls of one kind since the last observe::reset().
std::vector<observe::Event> of_kind(observe::Kind k) {
  std::vector<observe::Event> out;
  for (const auto& e : observe::events())
    if (e.kind == k) out.push_back(e);
  return out;
}

std::vector<std::size_t> allocation_sizes() {
  std::vector<std::size_t> out;
  for (const auto& e : of_kind(observe::Kind::Allocate)) out.push_back(e.bytes);
  return out;
}

// One side of a row: the reference routine or the layer's plain entry, by
// lower-case name. Six hidden lengths follow the arguments: the reference
// reads those of its character arguments, the layer none.
struct Side {
  bool reference;
  template <class... A>
  void operator()(const std::string& name, A... a) const {
    using F = void (*)(A..., size_t, size_t, size_t, size_t, size_t, size_t);
    void* f = reference ? reference::symbol((name + "_").c_str())
                        : dlsym(RTLD_DEFAULT, ("VORN_instable_" + name).c_str());
    ASSERT_NE(f, nullptr) << name;
    reinterpret_cast<F>(f)(a..., 1, 1, 1, 1, 1, 1);
  }
  bool layer() const { return !reference; }
};

struct Out {
  std::vector<int> ints;      // held against the reference exactly
  std::vector<double> reals;  // to the row's relative tolerance
  std::vector<int> kept;      // the layer leaves these as the caller set them
  std::vector<int> set;       // the layer writes these (what, the reference does not fix)
  template <class T>
  static std::vector<T> part(const std::vector<T>& v, size_t from = 0, size_t to = SIZE_MAX) {
    return {v.begin() + from, v.begin() + std::min(to, v.size())};
  }
  template <class T>
  Out& put(std::vector<T>& out, const std::vector<T>& v) {
    out.insert(out.end(), v.begin(), v.end());
    return *this;
  }
  Out& i(const std::vector<int>& v, size_t from = 0, size_t to = SIZE_MAX) { return put(ints, part(v, from, to)); }
  Out& i(int v) { return put(ints, {v}); }
  Out& r(const std::vector<double>& v, size_t count = SIZE_MAX) { return put(reals, part(v, 0, count)); }
  Out& r(std::initializer_list<double> v) { return put(reals, std::vector<double>(v)); }
  Out& r(const std::vector<zd>& v) {
    const auto* x = reinterpret_cast<const double*>(v.data());
    return put(reals, std::vector<double>(x, x + 2 * v.size()));
  }
  Out& keep(const std::vector<int>& v, size_t from = 0) { return put(kept, part(v, from)); }
  Out& wrote(const std::vector<int>& v, size_t from, size_t to) { return put(set, part(v, from, to)); }
};

const std::vector<size_t> kUnsized{SIZE_MAX};  // the row checks the sizes itself

struct Row {
  std::string name;
  std::function<Out(const Side&)> run;
  std::vector<size_t> sizes;  // the layer's scratch requests in bytes, in order
  double tolerance = 1e-9;
};

void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }

std::vector<int> ints(size_t n, int fill = kSentinel) { return std::vector<int>(n, fill); }

std::vector<zd> complex_matrix(int rows, int cols, unsigned seed) {
  auto re = random_matrix(2 * rows, cols, seed);
  std::vector<zd> z(static_cast<size_t>(rows) * cols);
  std::memcpy(z.data(), re.data(), sizeof(zd) * z.size());
  return z;
}

extern "C" int negative_real(const double* wr, const double*) { return ++g_selections, *wr < 0.0; }

// Real Schur form (T, Q, eigenvalues) of a random matrix, by the reference.
struct Schur {
  std::vector<double> t, q, wr, wi;
};
Schur schur_form(int n, unsigned seed) {
  Schur s{random_matrix(n, n, seed), std::vector<double>(n * n), std::vector<double>(n), std::vector<double>(n)};
  int sdim = 0, lwork = 10 * n, info = 0;
  std::vector<double> work(lwork);
  std::vector<int> bwork(n);
  Side{true}("dgees", "V", "N", &negative_real, &n, s.t.data(), &n, &sdim, s.wr.data(), s.wi.data(), s.q.data(), &n,
             work.data(), &lwork, bwork.data(), &info);
  return s;
}

int leaf_size(const char* name) {
  int ispec = 9, zero = 0;
  return VORN_instable_ilaenv(&ispec, name, " ", &zero, &zero, &zero, &zero, static_cast<int>(strlen(name)), 1);
}

// Tree depth as the layer's divide-and-conquer frames count it.
int depth(int n, const char* name) {
  const int leaf = leaf_size(name) + 1;
  int nlvl = 1;
  while (n / static_cast<double>(leaf) > static_cast<double>(1 << nlvl)) ++nlvl;
  return nlvl;
}

// ?GETRF (and ?GETRS when square). MKL's pivots come back with 2^32 added:
// the layer keeps their low 32 bits. A bad LDA still has MKL's scratch
// pivots copied back, so only the part past MIN(M,N) is compared then.
Row getrf(int m, int n, int lda) {
  const int k = std::min(m, n);
  std::vector<size_t> sizes{std::max(k, 1) * 8u};
  if (m == n && lda >= m) sizes.push_back(n * 8u);
  return {"getrf_" + (m < 0 ? "minus" + std::to_string(-m) : std::to_string(m)) + "x" + std::to_string(n) +
              "_lda" + std::to_string(lda),
          [=](const Side& s) {
            if (s.layer())
              g_after = [](Word* a) {
                for (i64 j = 0; j < std::min(*static_cast<i64*>(a[0]), *static_cast<i64*>(a[1])); ++j)
                  static_cast<i64*>(a[4])[j] += i64{1} << 32;
              };
            auto a = random_matrix(std::max(lda, 1), std::max(n, 1), 11);
            auto ipiv = ints(std::max(k, 0) + 2);
            int info = 99, nrhs = 3;
            s("dgetrf", &m, &n, a.data(), &lda, ipiv.data(), &info);
            g_after = nullptr;
            Out o;
            o.i(info).i(ipiv, lda < m ? k : 0).r(a);
            if (m != n || info != 0) return o;
            auto b = random_matrix(n, nrhs, 12);
            s("dgetrs", "N", &n, &nrhs, a.data(), &lda, ipiv.data(), b.data(), &lda, &info);
            return o.i(info).r(b);
          },
          sizes};
}

// ?GESVX: the caller's pivots are read only when it supplies the factors
// (FACT = 'F') and written only when the routine makes them.
Row gesvx(const char* fact) {
  return {std::string("gesvx_") + fact, [=](const Side& s) {
            int n = 6, nrhs = 2, info = 0;
            auto a = random_matrix(n, n, 31), b = random_matrix(n, nrhs, 32), af = a;
            std::vector<double> x(n * nrhs), r(n), c(n), ferr(nrhs), berr(nrhs), work(4 * n);
            auto ipiv = ints(n), iwork = ints(n);
            const bool supplied = *fact == 'F' || *fact == 'f';
            if (supplied) Side{true}("dgetrf", &n, &n, af.data(), &n, ipiv.data(), &info);
            const auto given = ipiv;
            observe::GuardPages fresh;  // zeroed scratch: only a copy-in shows the caller's pivots
            if (s.layer())
              g_before = [&](Word* w) {
                const i64* p = static_cast<i64*>(w[8]);
                for (int j = 0; j < n; ++j) EXPECT_EQ(p[j], supplied ? given[j] : 0) << "pivot " << j;
              };
            char equed = 'N';
            double rcond = 0;
            s("dgesvx", fact, "N", &n, &nrhs, a.data(), &n, af.data(), &n, ipiv.data(), &equed, r.data(), c.data(),
              b.data(), &n, x.data(), &n, &rcond, ferr.data(), berr.data(), work.data(), iwork.data(), &info);
            g_before = nullptr;
            return Out().i(info).i(ipiv).r(x).r({rcond}).keep(iwork);
          },
          {48, 48}};
}

Row laswp(int k1, int k2, int incx) {
  const int span = std::abs(incx) * k2;
  return {"laswp_" + std::to_string(k1) + "_" + std::to_string(k2) + (incx < 0 ? "_m" : "_") +
              std::to_string(std::abs(incx)),
          [=](const Side& s) {
            int n = 4, lda = 6, a1 = k1, a2 = k2, inc = incx;
            auto a = random_matrix(lda, n, 71);
            std::vector<int> ipiv(span);
            for (int i = 0; i < span; ++i) ipiv[i] = 1 + (i * 5 + 3) % 6;
            s("dlaswp", &n, a.data(), &lda, &a1, &a2, ipiv.data(), &inc);
            return Out().r(a).i(ipiv);
          },
          {span * 8u}};
}

// ------------------------------------------------ kernels under their reference callers
//
// The divide-and-conquer and bisection kernels' integer arrays are sized from
// the subproblem tree, which only a real caller builds. The reference LAPACK
// reaches its kernels through the global scope, where the forwarders below
// come first: on a row's layer side the routed kernel's calls go through the
// layer, otherwise to the reference's own. Fortran passes everything by
// address (hidden lengths last), so one forwarder of enough address-sized
// words serves every kernel.

using Kernel = void (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word,
                        Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

struct Route {
  Kernel layer, reference;
  int calls = 0;
};
std::string g_routed;

Route& route(const std::string& name) {
  static std::map<std::string, Route> routes;
  auto it = routes.find(name);
  if (it == routes.end()) {
    const std::string layer = "VORN_instable_" + name, ref = name + "_";
    it = routes.emplace(name, Route{reinterpret_cast<Kernel>(dlsym(RTLD_DEFAULT, layer.c_str())),
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
VORN_ROUTE(dlaed1) VORN_ROUTE(dlaed2) VORN_ROUTE(dlaed3) VORN_ROUTE(dlaed4) VORN_ROUTE(dlaed6)
VORN_ROUTE(dlasd0) VORN_ROUTE(dlasd1) VORN_ROUTE(dlasd2) VORN_ROUTE(dlasd3) VORN_ROUTE(dlasd4)
VORN_ROUTE(dlasd6) VORN_ROUTE(dlasd7) VORN_ROUTE(dlasd8) VORN_ROUTE(dlasda) VORN_ROUTE(dlasdt)
VORN_ROUTE(dlarrb) VORN_ROUTE(dlarrd) VORN_ROUTE(dlarre) VORN_ROUTE(dlarrv) VORN_ROUTE(zlarrv)
#undef VORN_ROUTE

namespace {

template <class V>
std::vector<double> magnitudes(const V& v) {
  std::vector<double> out;
  for (const auto& x : v) out.push_back(std::abs(x));
  return out;
}

// ?LAED0 over a random tridiagonal matrix, Q the identity: the eigenvalues,
// and the eigenvectors (in magnitude: a vector's sign is free) unless
// ICOMPQ = 0. R is the real type, T Q's type (complex for CLAED0/ZLAED0,
// which have no ICOMPQ).
template <class R, class T = R>
Out laed0(int icompq, int n) {
  constexpr bool complex = !std::is_same_v<R, T>;
  const auto d0 = random_matrix(n, 1, 21), e0 = random_matrix(n, 1, 22);
  std::vector<R> d(d0.begin(), d0.end()), e(e0.begin(), e0.end());
  std::vector<T> q(static_cast<size_t>(n) * n);
  for (int i = 0; i < n; ++i) q[i + static_cast<size_t>(i) * n] = T(1);
  auto qstore = q;
  const int lg = static_cast<int>(std::ceil(std::log2(n)));
  std::vector<R> work(1 + 4 * n + 2 * n * lg + 3 * n * n);
  std::vector<int> iwork(6 + 6 * n + 5 * n * lg);
  int info = 0;
  const std::string name = std::string(1, "sdcz"[(sizeof(R) == 8) + 2 * complex]) + "laed0";
  if constexpr (complex)
    Side{true}(name, &n, &n, d.data(), e.data(), q.data(), &n, qstore.data(), &n, work.data(), iwork.data(), &info);
  else
    Side{true}(name, &icompq, &n, &n, d.data(), e.data(), q.data(), &n, qstore.data(), &n, work.data(), iwork.data(),
               &info);
  return Out().i(info).r(std::vector<double>(d.begin(), d.end()))
      .r(icompq == 0 ? std::vector<double>{} : magnitudes(q));
}

// DBDSDC on a random bidiagonal matrix: singular values, and the singular
// vectors with COMPQ = 'I' or the compact form's integer part IQ with 'P'
// (its Q part holds entries LAPACK leaves undefined).
Out dbdsdc(const char* compq, int n) {
  auto d = random_matrix(n, 1, 29), e = random_matrix(n, 1, 30);
  std::vector<double> u(static_cast<size_t>(n) * n), vt(u.size()), q(static_cast<size_t>(n) * 100),
      work(3 * n * n + 4 * n + 64 * n);
  std::vector<int> iq(static_cast<size_t>(n) * 40), iwork(8 * n);
  int info = 0;
  Side{true}("dbdsdc", "U", compq, &n, d.data(), e.data(), u.data(), &n, vt.data(), &n, q.data(), iq.data(),
             work.data(), iwork.data(), &info);
  Out o;
  o.i(info).r(d);
  return *compq == 'I' ? o.r(magnitudes(u)) : o.i(iq);
}

// ?STEMR for all eigenpairs ('A') or a range by index ('I', which takes the
// bisection path through DLARRD).
template <class Z>
Out stemr(const char* range, int n) {
  auto d = random_matrix(n, 1, 33), e = random_matrix(n, 1, 34);
  int il = 3, iu = n - 5, m = 0, nzc = n, info = 0, lwork = 18 * n, liwork = 10 * n, tryrac = 1;
  double vl = 0, vu = 0;
  std::vector<double> w(n), work(lwork);
  std::vector<Z> z(static_cast<size_t>(n) * n);
  std::vector<int> isuppz(2 * n), iwork(liwork);
  Side{true}(sizeof(Z) == 8 ? "dstemr" : "zstemr", "V", range, &n, d.data(), e.data(), &vl, &vu, &il, &iu, &m,
             w.data(), z.data(), &n, &nzc, isuppz.data(), &tryrac, work.data(), &lwork, iwork.data(), &liwork, &info);
  z.resize(static_cast<size_t>(m) * n);
  return Out().i(info).r(w, m).r(magnitudes(z));
}

// A row per kernel and caller: the caller's results, the kernel its
// reference's or the layer's with every scratch array between inaccessible
// pages, must be the same.
std::vector<Row> kernel_rows() {
  struct Caller {
    const char* kernels;
    const char* name;
    std::function<Out()> run;
    double tolerance;
  };
  constexpr double kD = 1e-10, kS = 1e-4;
  const std::vector<Caller> callers = {
      {"dlaed7 dlaed8", "dlaed0_200", [] { return laed0<double>(1, 200); }, kD},
      {"dlaed7 dlaed9", "dlaed0_values_301", [] { return laed0<double>(0, 301); }, kD},
      {"slaed7 slaed8", "slaed0_130", [] { return laed0<float>(1, 130); }, kS},
      {"claed7 claed8 slaed9", "claed0_130", [] { return laed0<float, std::complex<float>>(1, 130); }, kS},
      {"zlaed7 zlaed8", "zlaed0_200", [] { return laed0<double, zd>(1, 200); }, kD},
      // ?LAEDA's arrays are sized by the subproblem's N ln N while ?LAED7
      // hands it whole-tree arrays; from five merge levels on (N = 420) the
      // library reads past them, as those sizes are set. Each N here keeps
      // every subproblem's N ln N and 2N ln N at least an eighth past a
      // whole number, where the copy stays within its block.
      {"dlaeda", "dlaed0_224", [] { return laed0<double>(1, 224); }, kD},
      {"slaeda", "slaed0_64", [] { return laed0<float>(1, 64); }, kS},
      {"dlaed1 dlaed2 dlaed3 dlaed4", "dlaed0_icompq2_200", [] { return laed0<double>(2, 200); }, kD},
      {"dlaed6 dlasd0 dlasd1 dlasd2 dlasd3 dlasd4 dlasdt", "dbdsdc_I_150", [] { return dbdsdc("I", 150); }, kD},
      {"dlasda dlasd6 dlasd7 dlasd8", "dbdsdc_P_150", [] { return dbdsdc("P", 150); }, kD},
      {"dlarre dlarrv", "dstemr_A_120", [] { return stemr<double>("A", 120); }, kD},
      {"zlarrv", "zstemr_A_120", [] { return stemr<zd>("A", 120); }, kD},
      {"dlarrd dlarrb", "dstemr_I_120", [] { return stemr<double>("I", 120); }, kD}};
  std::vector<Row> out;
  for (const Caller& c : callers) {
    std::istringstream kernels(c.kernels);
    for (std::string k; kernels >> k;)
      out.push_back({k + "_under_" + c.name,
                     [k, run = c.run](const Side& s) {
                       observe::GuardPages guard;
                       route(k).calls = 0;
                       g_routed = s.layer() ? k : "";
                       const Out o = run();
                       g_routed.clear();
                       if (s.layer()) EXPECT_GT(route(k).calls, 0) << "the caller never reached the kernel";
                       return o;
                     },
                     kUnsized, c.tolerance});
  }
  return out;
}

std::vector<Row> rows() {
  const int gelsd_levels = depth(30, "ZGELSD");
  const size_t iq_length = 3u * 60 * (depth(60, "DBDSDC") + 1);
  std::vector<Row> t = {
      getrf(9, 5, 9), getrf(4, 8, 4), getrf(7, 7, 7),
      getrf(6, 6, 4),   // bad LDA: reported by the layer, MKL not reached
      getrf(-3, 4, 1),  // bad M: nothing comes back
      // An empty input array still has its first element read and handed on.
      {"getrs_empty",
       [](const Side& s) {
         int n = 0, nrhs = 1, one = 1, info = 5, seen = -1;
         double a = 0, b = 0;
         std::vector<int> ipiv{424242};
         observe::GuardPages fresh;
         if (s.layer()) g_before = [&](Word* w) { seen = static_cast<int>(*static_cast<i64*>(w[5])); };
         s("dgetrs", "N", &n, &nrhs, &a, &one, ipiv.data(), &b, &one, &info);
         g_before = nullptr;
         if (s.layer()) EXPECT_EQ(seen, 424242);
         return Out().i(info).i(ipiv);
       },
       {8}},
      gesvx("N"), gesvx("E"), gesvx("f"),
      // A workspace query neither obtains nor converts the pivots; 2x2
      // pivots come back negative.
      {"sytrf_sytrs",
       [](const Side& s) {
         int n = 9, nrhs = 2, info = 0, lwork = -1;
         auto a = symmetric_matrix(n, 43), b = random_matrix(n, nrhs, 44);
         std::vector<double> work(64 * 9);
         auto ipiv = ints(n);
         s("dsytrf", "L", &n, a.data(), &n, ipiv.data(), work.data(), &lwork, &info);
         if (s.layer()) EXPECT_GE(work[0], 1.0);
         Out o;
         o.i(info).keep(ipiv);
         lwork = static_cast<int>(work.size());
         s("dsytrf", "L", &n, a.data(), &n, ipiv.data(), work.data(), &lwork, &info);
         EXPECT_LT(*std::min_element(ipiv.begin(), ipiv.end()), 0);
         s("dsytrs", "L", &n, &nrhs, a.data(), &n, ipiv.data(), b.data(), &n, &info);
         return o.i(info).i(ipiv).r(b);
       },
       {72, 72}},
      laswp(1, 5, -1), laswp(2, 5, 2), laswp(2, 4, -3), laswp(1, 6, 1),
      // ?GETC2 goes to an entry without the hooks, ?GESC2 with them.
      {"getc2_gesc2",
       [](const Side& s) {
         int n = 5, info = 0;
         auto a = random_matrix(n, n, 81), rhs = random_matrix(n, 1, 82);
         auto ipiv = ints(n), jpiv = ints(n);
         double scale = 0;
         s("dgetc2", &n, a.data(), &n, ipiv.data(), jpiv.data(), &info);
         s("dgesc2", &n, a.data(), &n, rhs.data(), ipiv.data(), jpiv.data(), &scale);
         if (s.layer()) EXPECT_EQ(of_kind(observe::Kind::SetXerbla).size(), 1u);
         return Out().i(info).i(ipiv).i(jpiv).r(a).r(rhs).r({scale});
       },
       {40, 40, 40, 40}},
      // One length of -1 makes both a query; only IWORK(1), the minimal
      // LIWORK, comes back.
      {"syevd",
       [](const Side& s) {
         int n = 12, lwork = -1, liwork = 3 + 5 * 12, info = 0;
         auto a = symmetric_matrix(n, 1);
         std::vector<double> w(n), work(1 + 6 * 12 + 2 * 144);
         auto iwork = ints(liwork);
         i64 seen[2] = {};
         if (s.layer())
           g_before = [&](Word* v) { seen[0] = *static_cast<i64*>(v[7]), seen[1] = *static_cast<i64*>(v[9]); };
         s("dsyevd", "V", "U", &n, a.data(), &n, w.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
         g_before = nullptr;
         if (s.layer()) EXPECT_TRUE(seen[0] == -1 && seen[1] == -1) << seen[0] << " " << seen[1];
         Out o;
         o.i(info).i(iwork[0] >= liwork).wrote(iwork, 0, 1).keep(iwork, 1);
         lwork = static_cast<int>(work.size()), iwork = ints(liwork);
         s("dsyevd", "V", "U", &n, a.data(), &n, w.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
         return o.i(info).r(w).wrote(iwork, 0, 1).keep(iwork, 1);
       },
       {8, 63 * 8}},
      // ?STEMR takes ISUPPZ for any range and gives back 2M of it.
      {"stemr_by_index",
       [](const Side& s) {
         int n = 12, il = 3, iu = 7, m = 0, nzc = n, info = 0, lwork = 18 * n, liwork = 10 * n, tryrac = 1;
         auto d = random_matrix(n, 1, 33), e = random_matrix(n, 1, 34);
         double vl = 0, vu = 0;
         std::vector<double> w(n), z(n * n), work(lwork);
         auto isuppz = ints(2 * n + 2), iwork = ints(liwork);
         s("dstemr", "V", "I", &n, d.data(), e.data(), &vl, &vu, &il, &iu, &m, w.data(), z.data(), &n, &nzc,
           isuppz.data(), &tryrac, work.data(), &lwork, iwork.data(), &liwork, &info);
         return Out().i(info).i(m).r(w, m).i(isuppz, 0, 2 * m).keep(isuppz, 2 * m);
       },
       {24 * 8, 120 * 8}},
      // ?STEBZ gives IBLOCK and ISPLIT back over N; ?STEIN takes them whole.
      {"stebz_stein",
       [](const Side& s) {
         int n = 10, il = 1, iu = 0, m = 0, nsplit = 0, info = 0;
         auto d = random_matrix(n, 1, 8), e = random_matrix(n, 1, 9);
         e[4] = 0.0;  // two blocks
         double vl = -10, vu = 10, abstol = 0;
         std::vector<double> w(n), work(5 * n);
         auto iblock = ints(n + 1), isplit = ints(n + 1), iwork = ints(3 * n);
         s("dstebz", "V", "B", &n, &vl, &vu, &il, &iu, &abstol, d.data(), e.data(), &m, &nsplit, w.data(),
           iblock.data(), isplit.data(), work.data(), iwork.data(), &info);
         Out o;
         o.i(info).i(m).i(nsplit).r(w).i(iblock).i(isplit, 0, nsplit).wrote(isplit, nsplit, n).keep(isplit, n);
         std::vector<double> z(n * m);
         auto ifail = ints(m + 1);
         s("dstein", &n, d.data(), e.data(), &m, w.data(), iblock.data(), isplit.data(), z.data(), &n, work.data(),
           iwork.data(), ifail.data(), &info);
         for (double& x : z) x = std::abs(x);  // a vector's sign is free
         return o.i(info).i(ifail).r(z);
       },
       {80, 80, 240, 80, 80, 80, 80}},
      // ?LACN2's reverse communication to convergence. ISGN never reaches
      // MKL from the caller, and comes back each time as MKL left it.
      {"lacn2_norm_estimate",
       [](const Side& s) {
         int n = 6, kase = 0, calls = 0;
         auto a = random_matrix(n, n, 10);
         std::vector<double> v(n), x(n);
         std::vector<int> isgn(n, 0), isave(3, 0);
         std::vector<i64> left;
         double est = 0;
         observe::GuardPages fresh;  // zeroed scratch: only a copy-in shows the caller's signs
         if (s.layer()) {
           g_before = [&](Word* w) {
             EXPECT_EQ(std::count(static_cast<i64*>(w[3]), static_cast<i64*>(w[3]) + n, 7), 0);
           };
           g_after = [&](Word* w) { left.assign(static_cast<i64*>(w[3]), static_cast<i64*>(w[3]) + n); };
         }
         do {
           if (s.layer()) std::fill(isgn.begin(), isgn.end(), 7);
           s("dlacn2", &n, v.data(), x.data(), isgn.data(), &est, &kase, isave.data());
           if (s.layer()) EXPECT_EQ(std::vector<int>(left.begin(), left.end()), isgn);
           std::vector<double> y(n, 0.0);
           for (int i = 0; i < n; ++i)
             for (int j = 0; j < n; ++j) y[i] += (kase == 1 ? a[i + j * n] : a[j + i * n]) * x[j];
           x = y;
         } while (kase != 0 && ++calls < 20);
         if (s.layer()) EXPECT_EQ(allocation_sizes().size(), 2u * (calls + 1));
         return Out().i(calls).i(isave).r({est});
       },
       kUnsized},
      // ?GEES takes BWORK (N elements back) only when sorting, never on a
      // query, and hands the selection on.
      {"gees",
       [](const Side& s) {
         int n = 9, sdim = -1, info = 0;
         std::vector<double> wr(n), wi(n), vs(n * n), work(10 * n);
         auto bwork = ints(n + 1);
         Out o;
         for (const char* sort : {"N", "s", "S"}) {
           auto a = random_matrix(n, n, 1);
           int lwork = *sort == 's' ? -1 : 10 * n;
           g_selections = 0;
           s("dgees", "V", sort, &negative_real, &n, a.data(), &n, &sdim, wr.data(), wi.data(), vs.data(), &n,
             work.data(), &lwork, bwork.data(), &info);
           if (*sort == 'N') EXPECT_EQ(g_selections, 0);
           if (*sort != 'S') o.i(info).keep(bwork);
         }
         EXPECT_GT(g_selections, 0) << "the callback was handed on";
         return o.i(info).i(sdim).r(wr).wrote(bwork, 0, n).keep(bwork, n);
       },
       {72}},
      // DTREVC settles a complex pair selected by its second eigenvalue in
      // SELECT, which comes back.
      {"trevc_pair",
       [](const Side& s) {
         int n = 8, mm = 8, m = 0, info = 0, pair = -1;
         Schur t;
         for (unsigned seed = 10; pair < 0; ++seed) {
           t = schur_form(n, seed);
           for (int j = 0; j + 1 < n && pair < 0; ++j)
             if (t.wi[j] != 0.0) pair = j;
         }
         std::vector<int> select(n, 0);
         select[pair + 1] = 1;
         std::vector<double> vr(n * n), work(3 * n);
         s("dtrevc", "R", "s", select.data(), &n, t.t.data(), &n, kNone, &n, vr.data(), &n, &mm, &m, work.data(),
           &info);
         return Out().i(info).i(m).i(select).r(vr);
       },
       {64}},
      // ?TRSEN reads SELECT and gives back only IWORK(1).
      {"trsen",
       [](const Side& s) {
         int n = 8, m = 0, info = 0, lwork = n * n, liwork = n * n;
         Schur t = schur_form(n, 40);
         std::vector<int> select(n);
         for (int j = 0; j < n; ++j) select[j] = t.wr[j] > 0.0;
         double sc = 0, sep = 0;
         std::vector<double> work(lwork);
         auto iwork = ints(liwork);
         s("dtrsen", "B", "V", select.data(), &n, t.t.data(), &n, t.q.data(), &n, t.wr.data(), t.wi.data(), &m, &sc,
           &sep, work.data(), &lwork, iwork.data(), &liwork, &info);
         return Out().i(info).i(m).i(select).r(t.wr).r({sc, sep}).wrote(iwork, 0, 1).keep(iwork, 1);
       },
       {64, 512}, 1e-8},
      // ?GELSD's IWORK from the layer's tree depth, (3 NLVL + 14) min(M, N).
      {"zgelsd",
       [](const Side& s) {
         int m = 40, n = 30, nrhs = 2, rank = 0, info = 0, lwork = 20000;
         auto a = complex_matrix(m, n, 3), b = complex_matrix(m, nrhs, 4);
         std::vector<zd> work(lwork);
         std::vector<double> sv(n), rwork(40000);
         auto iwork = ints(10000);
         double rcond = -1;
         s("zgelsd", &m, &n, &nrhs, a.data(), &m, b.data(), &m, sv.data(), &rcond, &rank, work.data(), &lwork,
           rwork.data(), iwork.data(), &info);
         b.resize(n);
         return Out().i(info).i(rank).r(sv).r(b).keep(iwork, 1);
       },
       {(3u * gelsd_levels + 14) * 30 * 8}, 1e-8},
      // ?BDSDC takes IQ only in compact form, given back over 3N(NLVL+1).
      {"bdsdc",
       [=](const Side& s) {
         int n = 60, info = 0;
         Out o;
         for (const char* compq : {"I", "p"}) {
           auto d = random_matrix(n, 1, 5), e = random_matrix(n, 1, 6);
           std::vector<double> u(n * n), vt(n * n), q(n * n * 4), work(3 * n * n + 4 * n);
           auto iq = ints(iq_length + 8), iwork = ints(8 * n);
           s("dbdsdc", "U", compq, &n, d.data(), e.data(), u.data(), &n, vt.data(), &n, q.data(), iq.data(),
             work.data(), iwork.data(), &info);
           o.i(info).r(d).keep(iwork).keep(iq, *compq == 'p' ? iq_length : 0);
           if (s.layer() && *compq == 'p')
             EXPECT_GT(std::count_if(iq.begin(), iq.end(), [](int x) { return x != kSentinel; }), n);
         }
         return o;
       },
       {60 * 8 * 8, iq_length * 8, 60 * 8 * 8}, 1e-12},
  };
  const auto kernels = kernel_rows();
  t.insert(t.end(), kernels.begin(), kernels.end());
  return t;
}

class LapackArrays : public ::testing::TestWithParam<Row> {
 protected:
  void SetUp() override { observe::reset(), reference::reset(); }
  void TearDown() override {
    g_before = g_after = nullptr;
    EXPECT_EQ(observe::outstanding_blocks(), 0u);
  }
};

TEST_P(LapackArrays, MatchTheReference) {
  const Row& row = GetParam();
  const Out want = row.run(Side{true});
  const auto want_reports = reference::reports();
  observe::reset();
  const Out got = row.run(Side{false});
  EXPECT_EQ(got.ints, want.ints);
  ASSERT_EQ(got.reals.size(), want.reals.size());
  double scale = 1;
  for (double x : want.reals) scale = std::max(scale, std::abs(x));
  EXPECT_LT(max_diff(got.reals, want.reals), row.tolerance * scale);
  EXPECT_EQ(got.kept, std::vector<int>(got.kept.size(), kSentinel)) << "the layer wrote what it should leave";
  EXPECT_EQ(std::count(got.set.begin(), got.set.end(), kSentinel), 0) << "the layer left what it should write";
  if (row.sizes != kUnsized) EXPECT_EQ(allocation_sizes(), row.sizes);
  for (const auto& e : of_kind(observe::Kind::Allocate)) EXPECT_EQ(e.alignment, 128);
  const auto& reports = observe::reports();
  ASSERT_EQ(reports.size(), want_reports.size());
  for (size_t i = 0; i < reports.size(); ++i) {
    EXPECT_EQ(reports[i].name, want_reports[i].name);
    EXPECT_EQ(reports[i].position, want_reports[i].position);
    if (reports[i].from_layer) EXPECT_EQ(reports[i].length, static_cast<int>(reports[i].name.size()));
  }
  // The hooks are installed, in order, before each spied entry is reached.
  const auto& ev = observe::events();
  for (size_t i = 0; i < ev.size(); ++i)
    if (ev[i].kind == observe::Kind::Entry)
      EXPECT_TRUE(i >= 2 && ev[i - 2].kind == observe::Kind::SetXerbla && ev[i - 1].kind == observe::Kind::SetProgress)
          << ev[i].entry;
}

INSTANTIATE_TEST_SUITE_P(Rows, LapackArrays, ::testing::ValuesIn(rows()),
                         [](const ::testing::TestParamInfo<Row>& info) { return info.param.name; });

// ------------------------------------------------------------ fault sweep

struct CatalogueArg {
  std::string name, kind, intent;
  bool array() const { return kind == "i[]" || kind == "l[]"; }
  bool scalar() const { return kind == "i" || kind == "l"; }
};

// The catalogue's LAPACK routines with integer or logical arrays.
std::map<std::string, std::vector<CatalogueArg>> routines_with_arrays() {
  std::string path = VORN_ROUTINE_GROUPS;
  std::ifstream in(path.substr(0, path.rfind('/') + 1) + "routines.cat");
  std::map<std::string, std::vector<CatalogueArg>> out;
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::string name, group, result, tok;
    fields >> name >> group >> result;
    if (name.empty() || name[0] == '#' || group[0] != 'L') continue;
    std::vector<CatalogueArg> args;
    while (fields >> tok && tok[0] != '@') {
      std::istringstream parts(tok);
      CatalogueArg& a = args.emplace_back();
      std::getline(parts, a.name, ':');
      std::getline(parts, a.kind, ':');
      std::getline(parts, a.intent, ':');
    }
    if (std::any_of(args.begin(), args.end(), [](const CatalogueArg& a) { return a.array(); })) out[name] = args;
  }
  return out;
}

// Options and values that make every conditional array of its routine be
// taken; ?LAED7's tree pointers hold a first position, 1.
template <class T>
T setting(const std::map<std::string, T>& table, const std::string& arg, T otherwise) {
  const auto it = table.find(arg);
  return it == table.end() ? otherwise : it->second;
}
const std::map<std::string, char> kOptions = {
    {"JOBZ", 'V'}, {"RANGE", 'A'}, {"SORT", 'S'},  {"HOWMNY", 'S'}, {"SIDE", 'B'}, {"SENSE", 'B'},
    {"COMPQ", 'P'}, {"FACT", 'F'}, {"UPLO", 'U'}, {"JOBVS", 'V'},  {"JOBVSL", 'V'}, {"JOBVSR", 'V'}};
const std::map<std::string, int> kValues = {{"ICOMPQ", 1}, {"IJOB", 3}, {"SQRE", 0}, {"CURPBM", 0}, {"KL", 0},
                                            {"KU", 0},     {"KD", 0},   {"KA", 0},   {"KB", 0}};
int fill_for(const std::string& array) {
  return array == "QPTR" || array == "PRMPTR" || array == "GIVPTR" ? 1 : kSentinel;
}

extern "C" int never_selected(const void*, const void*, const void*) { return 0; }

using Generic = void (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word,
                         Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word,
                         Word, Word, Word, Word, Word, Word, Word, Word, Word, Word);

TEST(LapackSweep, EveryScratchAllocationOfEveryArrayRoutineFailsCleanly) {
  const auto routines = routines_with_arrays();
  ASSERT_EQ(routines.size(), 532u);
  size_t points = 0;
  for (const auto& [name, args] : routines) {
    SCOPED_TRACE(name);
    auto call = reinterpret_cast<Generic>(dlsym(RTLD_DEFAULT, ("VORN_instable_" + name).c_str()));
    ASSERT_NE(call, nullptr);
    ASSERT_LE(args.size(), 40u);
    const auto arrays = std::count_if(args.begin(), args.end(), [](auto& a) { return a.array(); });
    for (int k = 0; k < arrays; ++k) {
      std::vector<std::vector<int>> cells(args.size());
      std::vector<std::vector<double>> reals(args.size());
      std::vector<char> chars(args.size());
      Word p[40] = {};
      for (size_t i = 0; i < args.size(); ++i) {
        const auto& a = args[i];
        if (a.scalar())
          cells[i] = {a.intent == "out" ? kSentinel : a.kind == "l" ? 0 : setting(kValues, a.name, 1)};
        else if (a.array())
          cells[i].assign(64, fill_for(a.name));
        else if (a.kind == "ch" || a.kind == "str")
          chars[i] = setting(kOptions, a.name, 'N'), p[i] = &chars[i];
        else if (a.kind == "fn")
          p[i] = reinterpret_cast<Word>(&never_selected);
        else
          reals[i].assign(256, 0.0), p[i] = reals[i].data();
        if (!cells[i].empty()) p[i] = cells[i].data();
      }
      observe::reset();
      observe::fail_allocation_after(k);
      call(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8], p[9], p[10], p[11], p[12], p[13], p[14], p[15],
           p[16], p[17], p[18], p[19], p[20], p[21], p[22], p[23], p[24], p[25], p[26], p[27], p[28], p[29], p[30],
           p[31], p[32], p[33], p[34], p[35], p[36], p[37], p[38], p[39]);
      observe::fail_allocation_after(-1);
      ++points;
      // The arrays before the failure are obtained and released in order,
      // the failure reported, and nothing (hooks, entry) follows it.
      const auto allocated = of_kind(observe::Kind::Allocate), released = of_kind(observe::Kind::Deallocate);
      ASSERT_EQ(allocated.size(), static_cast<size_t>(k + 1)) << "failure point " << k;
      EXPECT_EQ(allocated.back().pointer, nullptr);
      ASSERT_EQ(released.size(), static_cast<size_t>(k));
      for (int j = 0; j < k; ++j) EXPECT_EQ(released[j].pointer, allocated[j].pointer) << "release order";
      ASSERT_EQ(observe::reports().size(), 1u);
      EXPECT_EQ(observe::reports()[0].name, name);
      EXPECT_EQ(observe::reports()[0].position, 1089);
      EXPECT_EQ(observe::reports()[0].length, static_cast<int>(name.size()));
      EXPECT_EQ(observe::events().back().kind, k == 0 ? observe::Kind::Allocate : observe::Kind::Deallocate);
      EXPECT_EQ(observe::outstanding_blocks(), 0u);
      for (size_t i = 0; i < args.size(); ++i) {
        const auto& a = args[i];
        if (a.name == "INFO")
          EXPECT_EQ(cells[i][0], -1023);
        else if (a.array() || (a.scalar() && a.intent == "out"))
          EXPECT_EQ(cells[i], std::vector<int>(cells[i].size(), a.array() ? fill_for(a.name) : kSentinel))
              << a.name << " written";
      }
    }
  }
  std::printf("[ arrays   ] %zu failure points in %zu routines\n", points, routines.size());
}

}  // namespace
