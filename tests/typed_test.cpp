// The typed family VORN_stable_<NAME> against the plain one: for every typed
// entry this build provides, one valid call is made through the plain and
// the typed name on identical aligned copies of the same arguments. Results, every argument
// buffer, reports and the frame's events must agree, except that an
// argument the typed entry takes by value stays the caller's. Bad calls and
// refused scratch arrays must be reported alike.
#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/exports.h"
#include "support/observe.h"
#include "vorn/vorn.hpp"
#include "vorn_instable.h"

static_assert(sizeof(Kessnar::AlignedPtr<double>) == sizeof(double*));
static_assert(std::is_trivially_copyable_v<Kessnar::AlignedPtr<const float>>);

namespace {

// ---------------------------------------------------------------- arguments

enum class Elem { Char, Int, Float, Double, Fn };

template <class P>
constexpr Elem elem_of() {
  using T = std::remove_cv_t<std::remove_pointer_t<P>>;
  if constexpr (std::is_same_v<T, char>) return Elem::Char;
  if constexpr (std::is_same_v<T, int>) return Elem::Int;
  if constexpr (std::is_same_v<T, float>) return Elem::Float;
  if constexpr (std::is_same_v<T, double>) return Elem::Double;
  return Elem::Fn;
}

// Calls f with a value of the element's type.
template <class F>
auto with_type(Elem e, F f) {
  switch (e) {
    case Elem::Char: return f(char{});
    case Elem::Int: return f(int{});
    case Elem::Float: return f(float{});
    default: return f(double{});
  }
}

// One argument's memory, from the library's own aligned allocator so that
// the plain and the typed call see the same alignment (the computational
// library may take alignment-dependent paths); a callback is its address.
class Slot {
 public:
  Slot(Elem e, const std::vector<double>& values)
      : Slot(values.size() * with_type(e, [](auto t) { return sizeof t; }), nullptr) {
    for (std::size_t i = 0; i < values.size(); ++i)
      with_type(e, [&](auto t) { static_cast<decltype(t)*>(block_)[i] = static_cast<decltype(t)>(values[i]); });
  }
  explicit Slot(void* fn) : fn_(fn) {}
  Slot(const Slot& o) : Slot(o.bytes_, o.fn_) {
    if (block_ != nullptr) std::memcpy(block_, o.block_, bytes_);
  }
  Slot& operator=(const Slot&) = delete;
  ~Slot() {
    if (block_ != nullptr) VORN_MKL_AlignedFree(block_);
  }
  void* ptr() const { return fn_ != nullptr ? fn_ : block_; }
  bool operator==(const Slot& o) const {
    return fn_ == o.fn_ && bytes_ == o.bytes_ && (bytes_ == 0 || std::memcmp(block_, o.block_, bytes_) == 0);
  }

 private:
  Slot(std::size_t bytes, void* fn)
      : bytes_(bytes),
        fn_(fn),
        block_(fn != nullptr ? nullptr : VORN_MKL_AlignedAlloc(64, std::max<std::size_t>(bytes, 1))) {}
  std::size_t bytes_ = 0;
  void* fn_ = nullptr;
  void* block_ = nullptr;
};

using Call = std::vector<Slot>;

// Selection callbacks, LOGICAL functions of the caller's kind.
int select_positive_real(const double* wr, const double*) { return *wr > 0 ? 1 : 0; }
int select_positive_real_z(const double* w) { return w[0] > 0 ? 1 : 0; }

// Matrices in column order: n x n, scalar units per element `comps`.
std::vector<double> matrix(const std::string& kind, int n, std::mt19937& gen) {
  const bool cplx = kind[0] == 'z' || kind == "hpd";
  const int comps = cplx ? 2 : 1;
  std::uniform_real_distribution<double> u(-1, 1);
  std::vector<double> a(static_cast<std::size_t>(n * n * comps));
  auto at = [&](int i, int j, int c) -> double& { return a[(static_cast<std::size_t>(j) * n + i) * comps + c]; };
  const std::string base = cplx && kind[0] == 'z' ? kind.substr(1) : kind;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i)
      for (int c = 0; c < comps; ++c) {
        double v = u(gen);
        if ((base == "tri" && i > j) || (base == "hess" && i > j + 1) || base == "id") v = 0;
        at(i, j, c) = v;
      }
  for (int i = 0; i < n; ++i) {
    if (base == "dd" || base == "spd" || base == "hpd") at(i, i, 0) += n + 1;
    if (base == "tri") at(i, i, 0) = i + 2;  // distinct, well-separated eigenvalues
    if (base == "tri" && cplx) at(i, i, 1) = 0;
    if (base == "id") at(i, i, 0) = 1;
  }
  if (base == "spd" || base == "hpd")
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < j; ++i) {
        at(j, i, 0) = at(i, j, 0);
        if (cplx) at(j, i, 1) = -at(i, j, 1);
      }
  if (base == "hpd")
    for (int i = 0; i < n; ++i) at(i, i, 1) = 0;
  return a;
}

// Parses one call description: a token per argument, read by the argument's
// element type. Scalars are literals; arrays are `r:N` (random in [-1, 1]),
// `z:N` (zeros), `v:a,b,...`, or an n x n matrix `dd:n` (diagonally
// dominant), `spd:n`, `tri:n` (upper triangular, diagonal 2, 3, ...),
// `hess:n`, `id:n`, their complex forms with a leading z, and `hpd:n`;
// `fn:d`/`fn:z` name a selection callback. Counts are in scalar units.
// `replace` puts one token in place of the description's own.
Call parse(const std::string& description, const std::vector<Elem>& elems,
           std::pair<int, const char*> replace = {-1, nullptr}) {
  std::istringstream in(description);
  std::vector<std::string> tokens;
  for (std::string t; in >> t;) tokens.push_back(t);
  if (replace.first >= 0 && replace.first < static_cast<int>(tokens.size())) tokens[replace.first] = replace.second;
  Call call;
  if (tokens.size() != elems.size()) return call;
  call.reserve(tokens.size());
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    const std::string& t = tokens[i];
    std::mt19937 gen(static_cast<unsigned>(7919 * i + 17));
    const auto colon = t.find(':');
    if (elems[i] == Elem::Fn) {
      call.emplace_back(t == "fn:z" ? reinterpret_cast<void*>(&select_positive_real_z)
                                    : reinterpret_cast<void*>(&select_positive_real));
      continue;
    }
    if (elems[i] == Elem::Char) {
      call.emplace_back(Elem::Char, std::vector<double>{static_cast<double>(t[0])});
      continue;
    }
    if (colon == std::string::npos) {
      call.emplace_back(elems[i], std::vector<double>{std::strtod(t.c_str(), nullptr)});
      continue;
    }
    const std::string kind = t.substr(0, colon), arg = t.substr(colon + 1);
    std::vector<double> values;
    if (kind == "v") {
      std::istringstream list(arg);
      for (std::string x; std::getline(list, x, ',');) values.push_back(std::strtod(x.c_str(), nullptr));
    } else if (kind == "r" || kind == "z") {
      std::uniform_real_distribution<double> u(-1, 1);
      values.resize(std::stoul(arg));
      for (auto& v : values) v = kind == "r" ? u(gen) : 0.0;
    } else {
      values = matrix(kind, std::stoi(arg), gen);
    }
    call.emplace_back(elems[i], values);
  }
  return call;
}

// ---------------------------------------------------------------- entries

// The typed argument made from a slot the way a caller would pass it.
template <class P>
P typed_arg(const Slot& s) {
  if constexpr (std::is_reference_v<P>) {
    return *static_cast<std::remove_reference_t<P>*>(s.ptr());
  } else if constexpr (requires { P::ptr; }) {  // Kessnar::AlignedPtr
    return P{static_cast<decltype(P::ptr)>(s.ptr())};
  } else if constexpr (std::is_pointer_v<P>) {
    return static_cast<P>(s.ptr());
  } else {
    return *static_cast<const P*>(s.ptr());
  }
}

// The result's bytes, none for a subroutine.
template <class R, class F>
std::vector<unsigned char> invoke(F&& f) {
  if constexpr (std::is_void_v<R>) {
    f();
    return {};
  } else {
    const R r = f();
    std::vector<unsigned char> bytes(sizeof r);
    std::memcpy(bytes.data(), &r, sizeof r);
    return bytes;
  }
}

struct Entry {
  std::string name;
  std::vector<Elem> elems;     // from the plain prototype
  std::vector<bool> by_value;  // typed parameter taken by value
  std::function<std::vector<unsigned char>(Call&)> plain, typed;
};

template <class RP, class... PP, class RT, class... PT>
Entry make_entry(const char* name, RP (*plain)(PP...), RT (*typed)(PT...)) {
  static_assert(std::is_same_v<RP, RT> && sizeof...(PP) == sizeof...(PT));
  Entry e{name, {elem_of<PP>()...}, {std::is_arithmetic_v<PT>...}, {}, {}};
  using Index = std::index_sequence_for<PP...>;
  e.plain = [plain](Call& c) {
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
      return invoke<RP>([&] { return plain(static_cast<PP>(c[I].ptr())...); });
    }(Index{});
  };
  e.typed = [typed](Call& c) {
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
      return invoke<RT>([&] { return typed(typed_arg<PT>(c[I])...); });
    }(Index{});
  };
  return e;
}

std::vector<Entry> provided_entries() {
  std::vector<Entry> all;
#define VORN_TYPED_ENTRY(UP, low) \
  all.push_back(make_entry(#UP, &VORN_instable_##low, &VORN_stable_##UP));
  VORN_STABLE_ENTRIES(VORN_TYPED_ENTRY)
#undef VORN_TYPED_ENTRY
  return all;
}

// ------------------------------------------------------------ descriptions

struct BadArgument {
  int slot;  // 0-based
  const char* token;
};
struct Description {
  const char* call;
  std::vector<BadArgument> bad = {};  // calls the layer itself rejects
};

// One valid call per routine of the family, with every workspace generous.
// Calls the layer rejects before the computational library come from its
// BLAS argument checkers and LAPACK pre-checks.
const std::map<std::string, Description>& descriptions() {
  static const std::map<std::string, Description> d = {
      {"DASUM", {"5 r:9 2"}},
      {"DNRM2", {"5 r:9 2"}},
      {"IDAMAX", {"5 r:9 -2"}},
      {"CGEMM", {"N T 3 4 5 v:1.5,-0.5 r:30 3 r:40 4 v:0.5,0.25 r:24 3", {{0, "X"}, {7, "2"}}}},
      {"DCOPY", {"5 r:9 2 r:5 -1"}},
      {"DGEMM", {"T N 3 4 5 1.5 r:15 5 r:20 5 -0.5 r:12 3", {{2, "-1"}, {12, "2"}}}},
      {"DGEMV", {"T 4 3 0.5 r:12 4 r:7 2 2.0 r:3 1", {{5, "2"}, {7, "0"}}}},
      {"DROT", {"5 r:5 1 r:9 -2 0.6 0.8"}},
      {"DSCAL", {"5 -1.5 r:9 2"}},
      {"DSPMV", {"L 4 1.5 r:10 r:4 1 0.5 r:7 -2", {{1, "-1"}, {8, "0"}}}},
      {"DSWAP", {"5 r:5 1 r:5 1"}},
      {"DTRMV", {"U T N 4 r:20 5 r:4 1", {{0, "X"}, {2, "Q"}}}},
      {"DTRSM", {"L U N N 4 3 2.0 dd:4 4 r:12 4", {{0, "X"}, {10, "3"}}}},
      {"DZGEMM", {"N N 3 4 5 v:1,2 r:15 3 r:40 5 v:0.5,0 r:24 3", {{1, "X"}, {3, "-1"}}}},
      {"SGEMM", {"N N 3 4 5 1.5 r:15 3 r:20 5 0.5 r:12 3", {{4, "-1"}, {7, "2"}}}},
      {"ZGEMM", {"C N 3 4 5 v:1,-1 r:30 5 r:40 5 v:0,1 r:24 3", {{0, "X"}, {9, "4"}}}},
      {"ZSPMV", {"U 4 v:1,0.5 r:20 r:8 1 v:0.5,-1 r:8 1"}},
      {"ZTRMV", {"L C U 4 r:32 4 r:14 -2", {{3, "-1"}, {7, "0"}}}},
      {"ZTRSM", {"R L C N 3 4 v:1,1 zdd:4 4 r:24 3", {{3, "X"}, {8, "3"}}}},
      {"DLAMCH", {"E"}},
      {"DLANHS", {"I 4 r:16 4 z:4"}},
      {"DLAPY2", {"3 4"}},
      {"DGBTRF", {"5 5 1 2 r:25 5 z:5 -99"}},
      {"DGBTRS", {"N 5 1 2 2 r:25 5 v:1,2,3,4,5 r:10 5 -99"}},
      {"DGEBAK", {"B R 4 1 4 v:1,2,0.5,1 3 r:12 4 -99"}},
      {"DGEBAL", {"B 4 r:16 4 -99 -99 z:4 -99"}},
      {"DGECON", {"1 4 dd:4 4 3.5 -1 z:16 z:4 -99"}},
      {"DGEEQU", {"4 3 r:12 4 z:4 z:3 -1 -1 -1 -99"}},
      {"DGEES", {"V S fn:d 4 r:16 4 -99 z:4 z:4 z:16 4 z:200 200 z:4 -99"}},
      {"DGEEV", {"V V 4 r:16 4 z:4 z:4 z:16 4 z:16 4 z:200 200 -99", {{0, "X"}, {10, "2"}}}},
      {"DGEEVX", {"B V V B 4 r:16 4 z:4 z:4 z:16 4 z:16 4 -99 -99 z:4 -1 z:4 z:4 z:400 400 z:6 -99"}},
      {"DGEHRD", {"4 1 4 r:16 4 z:3 z:200 200 -99", {{1, "0"}, {7, "1"}}}},
      {"DGELS", {"N 5 3 2 r:15 5 r:10 5 z:200 200 -99"}},
      {"DGELSS", {"5 3 2 r:15 5 r:10 5 z:3 0.01 -99 z:200 200 -99"}},
      {"DGELSY", {"5 3 2 r:15 5 r:10 5 z:3 0.01 -99 z:200 200 -99"}},
      {"DGEQP3", {"5 3 r:15 5 z:3 z:3 z:200 200 -99"}},
      {"DGEQRF", {"5 3 r:15 5 z:3 z:200 200 -99", {{0, "-1"}, {3, "4"}, {6, "1"}}}},
      {"DGESVD", {"A A 4 3 r:12 4 z:3 z:16 4 z:9 3 z:200 200 -99", {{1, "X"}, {8, "3"}}}},
      {"DGETRF", {"4 4 r:16 4 z:4 -99", {{0, "-1"}, {3, "3"}}}},
      {"DGETRI", {"4 dd:4 4 v:1,2,3,4 z:200 200 -99"}},
      {"DGETRS", {"N 4 2 dd:4 4 v:2,2,3,4 r:8 4 -99"}},
      {"DGGEVX",
       {"B V V B 4 r:16 4 r:16 4 z:4 z:4 z:4 z:16 4 z:16 4 -99 -99 z:4 z:4 -1 -1 z:4 z:4 z:400 400 z:10 z:4 -99"}},
      {"DGGLSE", {"5 3 2 r:15 5 r:6 2 r:5 r:2 z:3 z:200 200 -99"}},
      {"DHSEIN", {"R N N v:1,1,1,1 4 tri:4 4 v:2,3,4,5 z:4 z:16 4 z:16 4 4 -99 z:24 z:4 z:4 -99"}},
      {"DHSEQR", {"S I 4 1 4 hess:4 4 z:4 z:4 z:16 4 z:200 200 -99"}},
      {"DLABAD", {"1e-300 1e300"}},
      {"DLACPY", {"U 4 3 r:12 4 z:15 5"}},
      {"DLAG2", {"r:4 2 tri:2 2 2.2250738585072014e-308 -1 -1 -1 -1 -1"}},
      {"DLARF", {"L 4 3 r:7 2 1.5 r:12 4 z:3"}},
      {"DLARFX", {"R 3 4 r:4 1.2 r:12 3 z:3"}},
      {"DLARNV", {"2 v:1,2,3,5 6 z:6"}},
      {"DLARTG", {"3 4 -1 -1 -1"}},
      {"DLASCL", {"G 0 0 2 3 4 3 r:12 4 -99"}},
      {"DLASET", {"L 4 3 0.5 2 r:12 4"}},
      {"DLASV2", {"1 2 3 -1 -1 -1 -1 -1 -1"}},
      {"DORGHR", {"4 1 4 r:16 4 r:3 z:200 200 -99", {{0, "-1"}, {2, "5"}}}},
      {"DORGQR", {"5 3 3 r:15 5 r:3 z:200 200 -99", {{2, "4"}, {7, "1"}}}},
      {"DORMHR", {"L N 4 3 1 4 r:16 4 r:3 r:12 4 z:200 200 -99"}},
      {"DORMQR", {"R T 3 4 2 r:8 4 r:2 r:12 3 z:200 200 -99", {{0, "X"}, {1, "C"}, {11, "2"}}}},
      {"DPBTRF", {"U 4 1 v:0,4,0.5,4,-0.3,4,0.8,4 2 -99"}},
      {"DPBTRS", {"U 4 1 2 v:0,2,0.5,2,-0.3,2,0.8,2 2 r:8 4 -99"}},
      {"DPOTRF", {"U 4 spd:4 4 -99", {{0, "X"}, {3, "3"}}}},
      {"DPOTRS", {"L 4 2 dd:4 4 r:8 4 -99"}},
      {"DPTTRF", {"4 v:4,4,4,4 r:3 -99"}},
      {"DPTTRS", {"4 2 v:4,3,2,5 r:3 r:8 4 -99"}},
      {"DRSCL", {"5 2.5 r:9 2"}},
      {"DSBEVX", {"V A U 4 1 v:0,4,0.5,4,-0.3,4,0.8,4 2 z:16 4 0 0 0 0 0 -99 z:4 z:16 4 z:28 z:20 z:4 -99"}},
      {"DSPCON", {"U 4 r:10 v:1,2,3,4 1.5 -1 z:8 z:4 -99"}},
      {"DSPEV", {"V U 4 r:10 z:4 z:16 4 z:12 -99"}},
      {"DSPTRF", {"L 4 r:10 z:4 -99"}},
      {"DSPTRI", {"U 4 r:10 v:1,2,3,4 z:4 -99"}},
      {"DSPTRS", {"U 4 2 r:10 v:1,2,3,4 r:8 4 -99"}},
      {"DSYEV", {"V L 4 r:16 4 z:4 z:200 200 -99"}},
      {"DSYGV", {"1 V U 4 r:16 4 spd:4 4 z:4 z:200 200 -99"}},
      {"DTPTRS", {"U N N 4 2 r:10 r:8 4 -99"}},
      {"DTREVC", {"B A v:0,0,0,0 4 tri:4 4 z:16 4 z:16 4 4 -99 z:12 -99"}},
      // A 2 x 2 block in rows 1-2 moved to the end from its second row: the
      // routine moves IFST to 1 and ILST to 3.
      {"DTREXC",
       {"V 4 v:1,-3,0,0,2,1,0,0,0.5,-0.7,4,0,0.3,0.9,-1.1,-2 4 id:4 4 2 4 z:4 -99"}},
      {"DTRSEN", {"B V v:0,0,1,1 4 tri:4 4 id:4 4 z:4 z:4 -99 -1 -1 z:200 200 z:200 200 -99"}},
      {"DTRSYL", {"N N 1 3 2 tri:3 3 tri:2 2 r:6 3 -7 -99"}},
      {"DTRTRS", {"U T N 4 2 dd:4 4 r:8 4 -99"}},
      {"ZGEBAK", {"B L 4 1 4 v:1,2,0.5,1 3 r:24 4 -99"}},
      {"ZGEBAL", {"B 4 r:32 4 -99 -99 z:4 -99"}},
      {"ZGECON", {"I 4 zdd:4 4 3.5 -1 z:16 z:8 -99"}},
      {"ZGEEQU", {"4 3 r:24 4 z:4 z:3 -1 -1 -1 -99"}},
      {"ZGEES", {"V S fn:z 4 r:32 4 -99 z:8 z:32 4 z:400 200 z:4 z:4 -99"}},
      {"ZGEEV", {"V V 4 r:32 4 z:8 z:32 4 z:32 4 z:400 200 z:8 -99", {{1, "X"}, {7, "2"}, {9, "2"}}}},
      {"ZGEEVX", {"B V V B 4 r:32 4 z:8 z:32 4 z:32 4 -99 -99 z:4 -1 z:4 z:4 z:800 400 z:8 -99"}},
      {"ZGEHRD", {"4 1 4 r:32 4 z:6 z:400 200 -99", {{2, "5"}, {4, "3"}}}},
      {"ZGELS", {"C 5 3 2 r:30 5 r:20 5 z:400 200 -99"}},
      {"ZGELSS", {"5 3 2 r:30 5 r:20 5 z:3 0.01 -99 z:400 200 z:15 -99"}},
      {"ZGELSY", {"5 3 2 r:30 5 r:20 5 z:3 0.01 -99 z:400 200 z:6 -99"}},
      {"ZGEQP3", {"5 3 r:30 5 z:3 z:6 z:400 200 z:6 -99"}},
      {"ZGEQRF", {"5 3 r:30 5 z:6 z:400 200 -99", {{1, "-1"}, {6, "2"}}}},
      {"ZGESVD", {"S S 4 3 r:24 4 z:3 z:24 4 z:18 3 z:400 200 z:15 -99", {{0, "X"}, {10, "2"}}}},
      {"ZGETRF", {"4 4 r:32 4 z:4 -99", {{1, "-1"}}}},
      {"ZGETRI", {"4 zdd:4 4 v:1,2,3,4 z:400 200 -99"}},
      {"ZGETRS", {"C 4 2 zdd:4 4 v:3,2,3,4 r:16 4 -99"}},
      {"ZGGEVX",
       {"B V V B 4 r:32 4 r:32 4 z:8 z:8 z:32 4 z:32 4 -99 -99 z:4 z:4 -1 -1 z:4 z:4 z:800 400 z:24 z:6 z:4 -99"}},
      {"ZGGLSE", {"5 3 2 r:30 5 r:12 2 r:10 r:4 z:6 z:400 200 -99"}},
      {"ZHEEV", {"V U 4 r:32 4 z:4 z:400 200 z:10 -99"}},
      {"ZHSEIN", {"R N N v:1,1,1,1 4 ztri:4 4 v:2,0,3,0,4,0,5,0 z:32 4 z:32 4 4 -99 z:32 z:4 z:4 z:4 -99"}},
      {"ZHSEQR", {"S I 4 1 4 zhess:4 4 z:8 z:32 4 z:400 200 -99"}},
      {"ZPOTRF", {"L 4 hpd:4 4 -99", {{1, "-1"}}}},
      {"ZPOTRS", {"U 4 2 zdd:4 4 r:16 4 -99"}},
      {"ZSPCON", {"L 4 r:20 v:1,2,3,4 1.5 -1 z:16 -99"}},
      {"ZSPTRF", {"U 4 r:20 z:4 -99"}},
      {"ZSPTRI", {"L 4 r:20 v:1,2,3,4 z:8 -99"}},
      {"ZSPTRS", {"U 4 2 r:20 v:1,2,3,4 r:16 4 -99"}},
      {"ZTPTRS", {"L C N 4 2 r:20 r:16 4 -99"}},
      {"ZTREVC", {"R A v:0,0,0,0 4 ztri:4 4 z:32 4 z:32 4 4 -99 z:16 z:4 -99"}},
      {"ZTREXC", {"V 4 ztri:4 4 zid:4 4 1 4 -99"}},
      {"ZTRSEN", {"B V v:0,1,0,1 4 ztri:4 4 zid:4 4 z:8 -99 -1 -1 z:400 200 -99"}},
      {"ZTRSYL", {"C N 1 3 2 ztri:3 3 ztri:2 2 r:12 3 -7 -99"}},
      {"ZTRTRS", {"L N U 4 2 zdd:4 4 r:16 4 -99"}},
      {"ZUNGHR", {"4 1 4 r:32 4 r:6 z:400 200 -99"}},
      {"ZUNGQR", {"5 3 3 r:30 5 r:6 z:400 200 -99", {{1, "6"}, {4, "4"}}}},
      {"ZUNMHR", {"R C 3 4 1 4 r:32 4 r:6 r:24 3 z:400 200 -99"}},
      {"ZUNMQR", {"L C 4 3 2 r:16 4 r:4 r:24 4 z:400 200 -99", {{1, "T"}, {9, "3"}}}},
  };
  return d;
}

// ------------------------------------------------------------- comparison

struct Outcome {
  Call args;
  std::vector<unsigned char> result;
  std::vector<std::string> reports, events;
  std::size_t outstanding;
};

Outcome run(const std::function<std::vector<unsigned char>(Call&)>& f, const Call& initial, int failing_allocation) {
  Outcome o{initial, {}, {}, {}, 0};
  observe::reset();
  observe::fail_allocation_after(failing_allocation);
  o.result = f(o.args);
  for (const auto& r : observe::reports())
    o.reports.push_back(r.name + " " + std::to_string(r.position) + " " + std::to_string(r.length) +
                        (r.from_layer ? " layer" : " mkl"));
  for (const auto& e : observe::events())
    o.events.push_back(std::to_string(static_cast<int>(e.kind)) + ":" + std::to_string(e.bytes) + ":" +
                       std::to_string(e.alignment) + ":" + e.entry);
  o.outstanding = observe::outstanding_blocks();
  observe::reset();
  return o;
}

// The typed call must leave every argument as the plain one did, except
// by-value ones, which stay as the caller had them.
void expect_alike(const Entry& e, const Call& initial, const Outcome& plain, const Outcome& typed) {
  EXPECT_EQ(plain.result, typed.result) << "result";
  EXPECT_EQ(plain.reports, typed.reports);
  EXPECT_EQ(plain.events, typed.events) << "the frame's calls differ";
  EXPECT_EQ(typed.outstanding, 0u);
  for (std::size_t i = 0; i < initial.size(); ++i)
    EXPECT_TRUE(typed.args[i] == (e.by_value[i] ? initial[i] : plain.args[i]))
        << "argument " << i + 1 << (e.by_value[i] ? " (by value)" : "");
}

TEST(TypedEntries, TypedCallsComputeAndReportWhatThePlainOnesDo) {
  const auto entries = provided_entries();
  ASSERT_FALSE(entries.empty());
  for (const Entry& e : entries) {
    SCOPED_TRACE(e.name);
    const Call initial = parse(descriptions().at(e.name).call, e.elems);
    ASSERT_EQ(initial.size(), e.elems.size()) << "a token per argument";
    const Outcome plain = run(e.plain, initial, -1);
    const Outcome typed = run(e.typed, initial, -1);
    EXPECT_TRUE(plain.reports.empty()) << plain.reports[0];
    expect_alike(e, initial, plain, typed);

    // The first scratch array refused: where the routine has one, both
    // report 1089 and release what they hold.
    const Outcome plain_refused = run(e.plain, initial, 0);
    const Outcome typed_refused = run(e.typed, initial, 0);
    expect_alike(e, initial, plain_refused, typed_refused);
  }
}

TEST(TypedEntries, BadArgumentsAreReportedAsByThePlainRoutine) {
  std::size_t checked = 0;
  for (const Entry& e : provided_entries()) {
    for (const BadArgument& bad : descriptions().at(e.name).bad) {
      SCOPED_TRACE(e.name + " argument " + std::to_string(bad.slot + 1) + " = " + bad.token);
      const Call initial = parse(descriptions().at(e.name).call, e.elems, {bad.slot, bad.token});
      ASSERT_EQ(initial.size(), e.elems.size()) << "a token per argument";
      const Outcome plain = run(e.plain, initial, -1);
      // Only a call the layer itself refuses is safe to make: the
      // computational library checks nothing.
      ASSERT_EQ(plain.reports.size(), 1u);
      EXPECT_TRUE(plain.reports[0].ends_with(" layer")) << plain.reports[0];
      const Outcome typed = run(e.typed, initial, -1);
      expect_alike(e, initial, plain, typed);
      ++checked;
    }
  }
  EXPECT_GT(checked, 0u);
}

// ----------------------------------------------------------------- exports

std::string demangle(const std::string& name) {
  int status = 0;
  char* d = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status);
  std::string s = status == 0 && d != nullptr ? d : name;
  std::free(d);
  return s;
}

TEST(TypedExports, DecoratedNamesAreThoseOfTheDeclaredSignatures) {
  const std::set<std::string> exported = exports::dynamic(VORN_LIBRARY_PATH);
  for (const char* n : {"_Z21VORN_MKL_AlignedAllociy", "_Z20VORN_MKL_AlignedFreePv",
                        "_Z25VORN_instable_dcsrmultcsrPcPiS0_S0_S0_S0_PdS0_S0_S1_S0_S0_S1_S0_S0_S0_S0_",
                        "_Z25VORN_instable_zcsrmultcsrPcPiS0_S0_S0_S0_PdS0_S0_S1_S0_S0_S1_S0_S0_S0_S0_",
                        "_ZTIN4VORN9ExceptionE", "_ZTIN4VORN11SystemErrorE", "_ZTIN4VORN16OutOfMemoryErrorE",
                        "_ZTIN4ARDU18OutOfAlignedMemoryE"}) {
    EXPECT_TRUE(exported.count(n)) << n;
  }
  std::set<std::string> demangled;
  for (const auto& n : exported) demangled.insert(demangle(n));
  if (exported.count("VORN_instable_dtrsyl")) {
    EXPECT_TRUE(demangled.count("VORN_stable_DTRSYL(char, char, int, int, int, Kessnar::AlignedPtr<double>, int, "
                                "Kessnar::AlignedPtr<double>, int, Kessnar::AlignedPtr<double>, int, double, int&)"));
  }
  if (exported.count("VORN_instable_dgemm")) {
    EXPECT_TRUE(demangled.count(
        "VORN_stable_DGEMM(char const&, char const&, int const&, int const&, int const&, double const&, "
        "Kessnar::AlignedPtr<double const>, int const&, Kessnar::AlignedPtr<double const>, int const&, "
        "double const&, Kessnar::AlignedPtr<double>, int const&)"));
  }
  if (exported.count("VORN_instable_dgglse")) {
    EXPECT_TRUE(demangled.count("VORN_stable_DGGLSE(int, int, int, double*, int, double*, int, double*, double*, "
                                "double*, double*, int, int&)"));
  }
}

}  // namespace
