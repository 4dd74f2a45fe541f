// Level 1 and sparse level 1 through the layer, each call held against an
// oracle on an identical copy of its data: the reference BLAS (LAPACK for
// CROT and ZROT), OpenBLAS for I?AMIN, which the reference lacks, and a
// dense computation for the sparse routines, which no reference library
// has. Every buffer is compared, the guard elements around each vector
// too, so a wrong length, stride or direction shows; the caller's integers
// must come back unchanged. The standard routines' wider numerics are the
// netlib programs' (netlib_x?blat1 through the companions).
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "blas_shapes.h"
#include "support/observe.h"
#include "support/reference.h"

namespace {

using blas_shapes::Word;

// A family of routines taking the same arguments, one letter each:
//   n, z  length, sparse count       i, j  increments of x and y
//   I     incx, which MKL walks by its magnitude where the reference
//         returns at once: the reference is given |incx|
//   x, y  vectors (y dense for the sparse routines), v  sparse values,
//   k     their 1-based positions in y, a  a scalar, p  ROTM's parameters.
// The result: '-' none, 'r' real of the data's precision, 'd' double,
// 'i' an index, 'h' complex, which the layer writes through a hidden first
// argument and the reference returns. Names carry their data type (s d c z).
struct Family {
  char result;
  const char* args;
  const char* names;
};

const Family kLevel1[] = {
    {'r', "n x I", "SASUM:s DASUM:d SCASUM:c DZASUM:z"},
    {'r', "n x i", "SNRM2:s DNRM2:d SCNRM2:c DZNRM2:z"},
    {'i', "n x i", "ISAMAX:s IDAMAX:d ICAMAX:c IZAMAX:z ISAMIN:s IDAMIN:d ICAMIN:c IZAMIN:z"},
    {'-', "n a x I", "SSCAL:s DSCAL:d CSCAL:c ZSCAL:z CSSCAL:c ZDSCAL:z"},
    {'-', "n x i y j", "SCOPY:s DCOPY:d CCOPY:c ZCOPY:z SSWAP:s DSWAP:d CSWAP:c ZSWAP:z"},
    {'r', "n x i y j", "SDOT:s DDOT:d"},
    {'d', "n x i y j", "DSDOT:s"},
    {'r', "n a x i y j", "SDSDOT:s"},
    {'h', "n x i y j", "CDOTC:c CDOTU:c ZDOTC:z ZDOTU:z"},
    {'-', "n a x i y j", "SAXPY:s DAXPY:d CAXPY:c ZAXPY:z"},
    {'-', "n x i y j a a", "SROT:s DROT:d CSROT:c ZDROT:z CROT:c ZROT:z"},
    {'-', "n x i y j p", "SROTM:s DROTM:d"},
    {'-', "a a a a", "SROTG:s DROTG:d CROTG:c ZROTG:z"},
    {'-', "a a a a p", "SROTMG:s DROTMG:d"},
    {'r', "a", "DCABS1:z"},
};

const Family kSparse[] = {
    {'-', "z a v k y", "SAXPYI:s DAXPYI:d CAXPYI:c ZAXPYI:z"},
    {'r', "z v k y", "SDOTI:s DDOTI:d"},
    {'h', "z v k y", "CDOTCI:c CDOTUI:c ZDOTCI:z ZDOTUI:z"},
    {'-', "z y v k", "SGTHR:s DGTHR:d CGTHR:c ZGTHR:z SGTHRZ:s DGTHRZ:d CGTHRZ:c ZGTHRZ:z"},
    {'-', "z v k y a a", "SROTI:s DROTI:d"},
    {'-', "z v k y", "SSCTR:s DSCTR:d CSCTR:c ZSCTR:z"},
};

struct Routine {
  std::string name, args;
  char type, result;
  bool complex() const { return type == 'c' || type == 'z'; }
  std::string lower() const { return blas_shapes::lower(name); }
};

template <std::size_t N>
std::vector<Routine> routines(const Family (&families)[N]) {
  std::vector<Routine> out;
  for (const Family& f : families) {
    std::string args = f.args;
    args.erase(std::remove(args.begin(), args.end(), ' '), args.end());
    std::istringstream names(f.names);
    for (std::string entry; names >> entry;)
      out.push_back({entry.substr(0, entry.size() - 2), args, entry.back(), f.result});
  }
  return out;
}

constexpr int kDense = 20;  // length of the sparse routines' y

// One call's arguments, each its own buffer; integers as the caller's int.
template <class R>
struct Call {
  std::string args;
  std::vector<std::vector<R>> reals;
  std::vector<std::vector<int>> ints;
  std::vector<R> hidden = {R(42), R(43), R(123)};  // complex result, then a guard
  double value = 0;                                // the function's result

  std::vector<Word> words() const {
    std::vector<Word> w;
    for (std::size_t a = 0; a < args.size(); ++a)
      w.push_back(ints[a].empty() ? reinterpret_cast<Word>(reals[a].data()) : reinterpret_cast<Word>(ints[a].data()));
    return w;
  }
  int arg(char letter, int nth = 0) const {
    for (std::size_t a = 0; a < args.size(); ++a)
      if (args[a] == letter && nth-- == 0) return static_cast<int>(a);
    return -1;
  }
};

// The data of a call with length n (or sparse count nz) and increments.
template <class R>
Call<R> make_call(const Routine& r, int n, int incx, int incy, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<R> value(R(-1), R(1));
  const std::size_t comps = r.complex() ? 2 : 1, used = std::max(n, 0);
  auto span = [&](int inc) { return comps * (1 + (std::max(n, 1) - 1) * std::abs(inc) + 2); };
  Call<R> c{r.args};
  for (char a : r.args) {
    std::vector<int> ints;
    std::size_t reals = 0;
    switch (a) {
      case 'n': case 'z': ints = {n}; break;
      case 'i': case 'I': ints = {incx}; break;
      case 'j': ints = {incy}; break;
      case 'x': reals = span(incx); break;
      case 'y': reals = r.args[0] == 'z' ? comps * kDense : span(incy); break;
      case 'v': reals = comps * (used + 1); break;
      case 'a': reals = 3; break;
      case 'p': reals = 6; break;
      case 'k':
        for (int i = 1; i <= kDense; ++i) ints.push_back(i);
        std::shuffle(ints.begin(), ints.end(), rng);
        ints.resize(used);
        ints.push_back(kDense + 100);  // past the count: never an index
        break;
    }
    std::vector<R> data(reals);
    for (R& x : data) x = value(rng);
    if (a == 'p') data[0] = R(static_cast<int>(seed % 4) - 2);  // each flag of the modified rotation
    c.reals.push_back(std::move(data));
    c.ints.push_back(std::move(ints));
  }
  return c;
}

// Calls f with the call's arguments; `hidden` says how a complex result
// comes back: through the first argument (the layer) or as the value.
template <class R>
void invoke(void* f, char result, Call<R>& c, bool hidden) {
  auto w = c.words();
  switch (result) {
    case 'r': c.value = blas_shapes::call<R>(f, w); break;
    case 'd': c.value = blas_shapes::call<double>(f, w); break;
    case 'i': c.value = blas_shapes::call<int>(f, w); break;
    case 'h':
      if (!hidden) {
        const auto z = blas_shapes::call<std::complex<R>>(f, w);
        c.hidden[0] = z.real(), c.hidden[1] = z.imag();
        break;
      }
      w.insert(w.begin(), reinterpret_cast<Word>(c.hidden.data()));
      [[fallthrough]];
    default: blas_shapes::call(f, w);
  }
}

template <class R>
void expect_same(const Call<R>& got, const Call<R>& want, const std::string& where) {
  const R unit = std::is_same_v<R, float> ? R(2e-5) : R(1e-13);
  auto near = [&](double g, double w) { return std::abs(g - w) <= unit * (1 + std::abs(w)); };
  EXPECT_TRUE(near(got.value, want.value)) << where << ": result " << got.value << ", want " << want.value;
  for (std::size_t a = 0; a < got.args.size(); ++a) {
    EXPECT_EQ(got.ints[a], want.ints[a]) << where << ": integer argument " << a + 1;
    for (std::size_t e = 0; e < got.reals[a].size(); ++e)
      EXPECT_TRUE(near(got.reals[a][e], want.reals[a][e]))
          << where << ": argument " << a + 1 << " element " << e << " " << got.reals[a][e] << ", want "
          << want.reals[a][e];
  }
  for (int e = 0; e < 3; ++e) EXPECT_TRUE(near(got.hidden[e], want.hidden[e])) << where << ": result part " << e;
}

// The reference's entry, or OpenBLAS's for I?AMIN; null where the netlib
// programs are the only oracle (?ROTMG writes the entries of H its flag
// leaves unused as it likes).
void* oracle(const Routine& r) {
  if (r.name.find("ROTMG") != std::string::npos) return nullptr;
  if (r.name.find("AMIN") != std::string::npos) {
    static void* openblas = [] {
      setenv("OPENBLAS_NUM_THREADS", "1", 0);
      return dlopen("/usr/lib/x86_64-linux-gnu/openblas-pthread/libopenblas.so.0", RTLD_NOW | RTLD_LOCAL);
    }();
    void* f = openblas != nullptr ? dlsym(openblas, (r.lower() + "_").c_str()) : nullptr;
    if (f == nullptr) ADD_FAILURE() << "OpenBLAS's " << r.lower() << "_ not found";
    return f;
  }
  return reference::symbol((r.lower() + "_").c_str());
}

template <class R>
void level1(const Routine& r) {
  void* const ref = oracle(r);
  const bool sized = r.args.find('n') != std::string::npos;
  unsigned seed = 1;
  for (int n : {-1, 0, 5})
    for (int incx : {1, -2, 3})
      for (int incy : {1, -1, 2}) {
        const Call<R> input = make_call<R>(r, n, incx, incy, ++seed);
        Call<R> want = input;
        if (ref != nullptr) {
          const int at = want.arg('I');
          if (at >= 0) want.ints[at][0] = std::abs(incx);
          invoke(ref, r.result, want, false);
          if (at >= 0) want.ints[at][0] = incx;
        }
        for (const std::string& spelling : {r.lower(), r.name}) {
          Call<R> got = input;
          observe::reset();
          invoke(blas_shapes::layer_entry(spelling), r.result, got, true);
          const std::string where = spelling + " n=" + std::to_string(n) + " incx=" + std::to_string(incx) +
                                    " incy=" + std::to_string(incy);
          // Level 1 neither installs the handlers nor obtains scratch memory.
          EXPECT_TRUE(observe::events().empty()) << where << ": " << observe::events().size() << " service calls";
          if (ref != nullptr) expect_same(got, want, where);
        }
        if (!sized) return;
      }
}

TEST(Level1, MatchTheOracleAndTouchNothingElse) {
  for (const Routine& r : routines(kLevel1)) {
    if (r.type == 's' || r.type == 'c') level1<float>(r);
    else level1<double>(r);
  }
}

// --------------------------------------------------------- sparse level 1

using Z = std::complex<double>;

// The operation on a dense y, from the routine's definition.
template <class R>
void dense(const Routine& r, Call<R>& c) {
  const std::string op = r.name.substr(1);
  const bool cplx = r.complex();
  auto get = [&](int a, int i) { auto& v = c.reals[a]; return cplx ? Z(v[2 * i], v[2 * i + 1]) : Z(v[i]); };
  auto put = [&](int a, int i, Z z) {
    auto& v = c.reals[a];
    v[cplx ? 2 * i : i] = static_cast<R>(z.real());
    if (cplx) v[2 * i + 1] = static_cast<R>(z.imag());
  };
  const int x = c.arg('v'), y = c.arg('y'), s1 = c.arg('a'), s2 = c.arg('a', 1);
  const Z alpha = s1 < 0 ? Z() : get(s1, 0);
  Z sum = 0;
  for (int i = 0; i < c.ints[0][0]; ++i) {
    const int j = c.ints[c.arg('k')][i] - 1;
    const Z xi = get(x, i), yj = get(y, j);
    if (op == "AXPYI") put(y, j, alpha * xi + yj);
    if (op == "DOTI" || op == "DOTUI") sum += xi * yj;
    if (op == "DOTCI") sum += std::conj(xi) * yj;
    if (op.rfind("GTHR", 0) == 0) put(x, i, yj);
    if (op == "GTHRZ") put(y, j, 0);
    if (op == "SCTR") put(y, j, xi);
    if (op == "ROTI") {
      const R cs = c.reals[s1][0], sn = c.reals[s2][0];
      put(x, i, Z(cs) * xi + Z(sn) * yj);
      put(y, j, Z(cs) * yj - Z(sn) * xi);
    }
  }
  if (r.result == 'r') c.value = sum.real();
  if (r.result == 'h') c.hidden[0] = static_cast<R>(sum.real()), c.hidden[1] = static_cast<R>(sum.imag());
}

// The index vector travels as one 64-bit scratch array of max(nz, 1)
// elements, released before the return.
template <class R>
void sparse(const Routine& r) {
  unsigned seed = 100;
  for (int nz : {-5, 0, 1, 6, kDense}) {
    const Call<R> input = make_call<R>(r, nz, 0, 0, ++seed);
    Call<R> want = input, got = input;
    dense(r, want);
    observe::reset();
    invoke(blas_shapes::layer_entry(r.lower()), r.result, got, true);
    const std::string where = r.name + " nz=" + std::to_string(nz);
    expect_same(got, want, where);
    std::vector<observe::Event> blocks;
    for (const auto& e : observe::events())
      if (e.kind == observe::Kind::Allocate || e.kind == observe::Kind::Deallocate) blocks.push_back(e);
    ASSERT_EQ(blocks.size(), 2u) << where;
    const std::size_t bytes = static_cast<std::size_t>(std::max(nz, 1)) * 8;
    EXPECT_TRUE(blocks[0].kind == observe::Kind::Allocate && blocks[0].alignment == 128 &&
                blocks[0].bytes == bytes && blocks[1].pointer == blocks[0].pointer)
        << where << ": " << blocks[0].bytes << " bytes";
    EXPECT_TRUE(observe::outstanding_blocks() == 0 && observe::reports().empty()) << where;
  }
  // Refused scratch memory: reported under the routine's own name, and
  // nothing of the caller's written.
  Call<R> got = make_call<R>(r, 6, 0, 0, 7);
  const Call<R> want = got;
  observe::reset();
  observe::fail_allocation_after(0);
  invoke(blas_shapes::layer_entry(r.lower()), r.result, got, true);
  observe::fail_allocation_after(-1);
  expect_same(got, want, r.name + " without memory");
  ASSERT_EQ(observe::reports().size(), 1u) << r.name;
  const auto& report = observe::reports()[0];
  EXPECT_TRUE(report.from_layer && report.name == r.name && report.position == 1089) << r.name;
  EXPECT_EQ(report.length, static_cast<int>(r.name.size())) << r.name;
  EXPECT_EQ(observe::outstanding_blocks(), 0u) << r.name;
}

TEST(SparseLevel1, MatchTheDenseOperationThroughOneScratchArray) {
  for (const Routine& r : routines(kSparse)) {
    if (r.type == 's' || r.type == 'c') sparse<float>(r);
    else sparse<double>(r);
  }
}

}  // namespace
