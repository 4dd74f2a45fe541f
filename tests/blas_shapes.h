// The level 2 and 3 BLAS routines described by the roles of their
// arguments, so that one driver calls any of them with the same arguments
// in the layer (VORN_instable_<lower>, level 2 with int character lengths
// after the listed arguments) and in the reference BLAS (gfortran
// convention: size_t lengths). Every listed argument is an address, so a
// call is a sequence of machine words.
#pragma once
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/reference.h"

namespace blas_shapes {

enum class Role {
  // option letters
  Trans, TransA, TransB, Uplo, Diag, Side,
  // integers
  M, N, K, KL, KU, Lda, Ldb, Ldc, IncX, IncY,
  // scalars and arrays
  Alpha, Beta, A, AP, B, C, X, Y
};
inline constexpr int kLetterRoles = 6;
inline constexpr int kIntegerRoles = 10;

inline bool is_letter(Role r) { return static_cast<int>(r) < kLetterRoles; }
inline bool is_integer(Role r) { return !is_letter(r) && static_cast<int>(r) < kLetterRoles + kIntegerRoles; }
// Option letters and integers are what the argument checks examine.
inline bool is_checked(Role r) { return static_cast<int>(r) < kLetterRoles + kIntegerRoles; }

inline Role role_named(const std::string& token) {
  static const char* const names[] = {"trans", "transa", "transb", "uplo", "diag", "side", "m", "n",
                                      "k", "kl", "ku", "lda", "ldb", "ldc", "incx", "incy",
                                      "alpha", "beta", "a", "ap", "b", "c", "x", "y"};
  for (std::size_t i = 0; i < std::size(names); ++i)
    if (token == names[i]) return static_cast<Role>(i);
  std::fprintf(stderr, "blas_shapes: unknown role %s\n", token.c_str());
  std::abort();
}

inline std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// Letters each option accepts somewhere (the precision may narrow them).
inline std::string valid_letters(Role r) {
  static const char* const letters[kLetterRoles] = {"NTC", "NTC", "NTC", "UL", "UN", "LR"};
  return letters[static_cast<int>(r)];
}

struct Routine {
  std::string name;  // upper case, e.g. "DGEMV"
  std::vector<Role> roles;
  int level;

  std::string lower() const { return blas_shapes::lower(name); }
  bool has(Role r) const { return std::find(roles.begin(), roles.end(), r) != roles.end(); }
  // A real A with complex B and C.
  bool real_a() const { return name == "SCGEMM" || name == "DZGEMM"; }
  bool single() const { return name[0] == 'S' || name[0] == 'C'; }
  // The reference routine that checks and computes the same call: the
  // extensions without a reference counterpart use ?GEMM.
  std::string reference_name() const {
    if (name == "SCGEMM" || name == "CGEMM3M") return "CGEMM";
    if (name == "DZGEMM" || name == "ZGEMM3M") return "ZGEMM";
    return name;
  }
};

// Test names and messages show the routine's name.
inline void PrintTo(const Routine& r, std::ostream* os) { *os << r.name; }

inline std::vector<Routine> all_routines() {
  struct Family {
    int level;
    const char* roles;
    const char* names;
  };
  static const Family families[] = {
      {2, "trans m n alpha a lda x incx beta y incy", "SGEMV DGEMV CGEMV ZGEMV"},
      {2, "trans m n kl ku alpha a lda x incx beta y incy", "SGBMV DGBMV CGBMV ZGBMV"},
      {2, "uplo n alpha a lda x incx beta y incy", "SSYMV DSYMV CHEMV ZHEMV"},
      {2, "uplo n k alpha a lda x incx beta y incy", "SSBMV DSBMV CHBMV ZHBMV"},
      {2, "uplo n alpha ap x incx beta y incy", "SSPMV DSPMV CHPMV ZHPMV"},
      {2, "uplo trans diag n a lda x incx", "STRMV DTRMV CTRMV ZTRMV STRSV DTRSV CTRSV ZTRSV"},
      {2, "uplo trans diag n k a lda x incx", "STBMV DTBMV CTBMV ZTBMV STBSV DTBSV CTBSV ZTBSV"},
      {2, "uplo trans diag n ap x incx", "STPMV DTPMV CTPMV ZTPMV STPSV DTPSV CTPSV ZTPSV"},
      {2, "m n alpha x incx y incy a lda", "SGER DGER CGERU CGERC ZGERU ZGERC"},
      {2, "uplo n alpha x incx a lda", "SSYR DSYR CHER ZHER"},
      {2, "uplo n alpha x incx y incy a lda", "SSYR2 DSYR2 CHER2 ZHER2"},
      {2, "uplo n alpha x incx ap", "SSPR DSPR CHPR ZHPR"},
      {2, "uplo n alpha x incx y incy ap", "SSPR2 DSPR2 CHPR2 ZHPR2"},
      {3, "transa transb m n k alpha a lda b ldb beta c ldc",
       "SGEMM DGEMM CGEMM ZGEMM CGEMM3M ZGEMM3M SCGEMM DZGEMM"},
      {3, "side uplo m n alpha a lda b ldb beta c ldc", "SSYMM DSYMM CSYMM ZSYMM CHEMM ZHEMM"},
      {3, "uplo trans n k alpha a lda beta c ldc", "SSYRK DSYRK CSYRK ZSYRK CHERK ZHERK"},
      {3, "uplo trans n k alpha a lda b ldb beta c ldc", "SSYR2K DSYR2K CSYR2K ZSYR2K CHER2K ZHER2K"},
      {3, "side uplo transa diag m n alpha a lda b ldb",
       "STRMM DTRMM CTRMM ZTRMM STRSM DTRSM CTRSM ZTRSM"},
  };
  std::vector<Routine> out;
  for (const Family& f : families) {
    std::vector<Role> roles;
    std::istringstream rs(f.roles);
    for (std::string t; rs >> t;) roles.push_back(role_named(t));
    std::istringstream ns(f.names);
    for (std::string n; ns >> n;) out.push_back({n, roles, f.level});
  }
  return out;
}

// Option letters and integer values of one call.
struct Tuple {
  std::array<char, kLetterRoles> letters{};
  std::array<int, kIntegerRoles> integers{};

  char& letter(Role r) { return letters[static_cast<int>(r)]; }
  int& integer(Role r) { return integers[static_cast<int>(r) - kLetterRoles]; }
  char letter(Role r) const { return letters[static_cast<int>(r)]; }
  int integer(Role r) const { return integers[static_cast<int>(r) - kLetterRoles]; }

  // Letters by their codes (they may be unprintable), integers, "." for the rest.
  std::string describe(const Routine& routine) const {
    std::string s = routine.name + "(";
    for (Role r : routine.roles)
      s += is_letter(r)    ? std::to_string(static_cast<unsigned char>(letter(r))) + "c "
           : is_integer(r) ? std::to_string(integer(r)) + " "
                           : ". ";
    return s + ")";
  }
};

// The arrays of one call: each argument starts `offset` words into its own
// buffer of `words` doubles (complex data use pairs, single precision half
// a word per component).
class Buffers {
 public:
  Buffers(std::size_t words, std::size_t offset) : offset_(offset) {
    for (auto& v : storage_) v.assign(words, 0.0);
  }
  std::vector<double>& of(Role r) { return storage_[slot(r)]; }
  const std::vector<double>& of(Role r) const { return storage_[slot(r)]; }
  void* start(Role r) {
    if (r == Role::Alpha) return alpha;
    if (r == Role::Beta) return beta;
    return of(r).data() + offset_;
  }

  double alpha[2] = {0, 0};
  double beta[2] = {0, 0};

 private:
  // A and AP share the first buffer; B, C, X, Y follow in their order.
  static int slot(Role r) { return std::max(0, static_cast<int>(r) - static_cast<int>(Role::AP)); }
  std::size_t offset_;
  std::array<std::vector<double>, 5> storage_;
};

using Word = std::uintptr_t;

// The words of a call: the listed arguments' addresses, then one length of
// 1 per option letter where `lengths` asks for them.
inline std::vector<Word> words(const Routine& r, Tuple& t, Buffers& b, bool lengths) {
  std::vector<Word> w;
  int letters = 0;
  for (Role role : r.roles) {
    letters += is_letter(role);
    w.push_back(is_letter(role)    ? reinterpret_cast<Word>(&t.letter(role))
                : is_integer(role) ? reinterpret_cast<Word>(&t.integer(role))
                                   : reinterpret_cast<Word>(b.start(role)));
  }
  if (lengths) w.insert(w.end(), letters, Word{1});
  return w;
}

namespace detail {
template <class Ret, std::size_t... I>
Ret call_words(void* f, const Word* w, std::index_sequence<I...>) {
  return reinterpret_cast<Ret (*)(decltype(I, Word{})...)>(f)(w[I]...);
}
template <class Ret, std::size_t... N>
constexpr auto call_table(std::index_sequence<N...>) {
  return std::array<Ret (*)(void*, const Word*), sizeof...(N)>{
      [](void* f, const Word* w) { return call_words<Ret>(f, w, std::make_index_sequence<N>{}); }...};
}
}  // namespace detail

// Calls a routine with exactly these words as its arguments.
template <class Ret = void>
Ret call(void* f, const std::vector<Word>& w) {
  static constexpr auto table = detail::call_table<Ret>(std::make_index_sequence<20>{});
  if (w.size() >= table.size()) std::abort();
  return table[w.size()](f, w.data());
}

// The layer's entry of that spelling (e.g. "dgemv" or "DGEMV").
inline void* layer_entry(const std::string& spelling) {
  void* f = dlsym(RTLD_DEFAULT, ("VORN_instable_" + spelling).c_str());
  if (f == nullptr) std::fprintf(stderr, "blas_shapes: no VORN_instable_%s\n", spelling.c_str()), std::abort();
  return f;
}

inline void* reference_entry(const Routine& r) { return reference::symbol((lower(r.reference_name()) + "_").c_str()); }

// The layer's level 2 entries read the caller's character lengths; the
// level 3 ones take none. The reference always takes them.
inline void call_layer(const Routine& r, Tuple& t, Buffers& b) {
  call(layer_entry(r.lower()), words(r, t, b, r.level == 2));
}
inline void call_reference(const Routine& r, Tuple& t, Buffers& b) { call(reference_entry(r), words(r, t, b, true)); }

}  // namespace blas_shapes
