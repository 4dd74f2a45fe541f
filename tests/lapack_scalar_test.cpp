// LAPACK routines without integer or logical arrays, each call run through
// the reference LAPACK and then through the layer. Where the reference
// rejects an argument, the layer must report the same position under the
// routine's name before installing its hooks or reaching MKL; where it
// accepts, the layer must install its hooks and give back the reference's
// results. Then the few places where the layer departs from the reference
// on purpose.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/observe.h"
#include "support/reference.h"

namespace {

void* exported(const std::string& name) {
  void* f = dlsym(RTLD_DEFAULT, ("VORN_instable_" + name).c_str());
  if (f == nullptr) ADD_FAILURE() << "VORN_instable_" << name << " is not exported";
  return f;
}

template <class R>
bool near(R got, R want, double scale = 1) {
  const R tol = std::is_same_v<R, float> ? R(2e-4) : R(1e-11);
  return std::abs(got - want) <= tol * (scale + std::abs(want));
}

// The error handler, then the progress handler, both the layer's own,
// installed once each before anything else.
void expect_hooks(const std::string& where) {
  const auto& ev = observe::events();
  ASSERT_GE(ev.size(), 2u) << where << ": hooks not installed";
  EXPECT_EQ(ev[0].kind, observe::Kind::SetXerbla) << where;
  EXPECT_EQ(ev[1].kind, observe::Kind::SetProgress) << where;
  EXPECT_TRUE(observe::in_layer(ev[0].pointer) && observe::in_layer(ev[1].pointer)) << where << ": foreign handler";
  for (std::size_t i = 2; i < ev.size(); ++i) EXPECT_EQ(ev[i].kind, observe::Kind::Entry) << where << ": event " << i;
}

// Each routine is described by its argument list (name:kind, kind i integer,
// c character, o INFO, any other letter a floating-point array, whose kind
// says how results are compared: d element by element, m in magnitude (the
// signs of reflectors are the implementation's), s as a sorted set of
// magnitudes (the order of eigenvalues), w not at all (workspace, or
// intermediate results)) and a valid baseline. Every case changes some
// arguments. Both calls start from the same pseudo-random contents, A (N by
// N, leading dimension LDA) made Hermitian and diagonally dominant where
// asked.

using Word = std::uintptr_t;
using Call20 = void (*)(Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word, Word,
                        Word, Word, Word, Word);

struct Setting {
  const char* arg;
  int value;  // an integer, or a character's code
};

enum class Fill { Random, Definite, NotDefinite, Singular };

struct Family {
  const char* real_stem;     // null: no real member
  const char* complex_stem;  // null: no complex member
  const char* real_args;
  const char* complex_args;  // null: as real_args
  std::vector<Setting> baseline;
  std::vector<std::vector<Setting>> cases;  // besides the baseline
  Fill a = Fill::Random;
  bool function = false;  // a real function's value
  bool hooks = true;      // false: an mkl_lapack_ps_ entry, called without them
};

struct Argument {
  std::string name;
  char kind;
};

std::vector<Argument> parse(const char* list) {
  std::vector<Argument> out;
  std::string s(list);
  for (std::size_t at = 0; at < s.size();) {
    const std::size_t end = std::min(s.find(' ', at), s.size());
    const std::string tok = s.substr(at, end - at);
    out.push_back({tok.substr(0, tok.find(':')), tok.back()});
    at = end + 1;
  }
  return out;
}

// One prepared call: cells for integers, characters and INFO, and a
// generous buffer per floating array.
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
        const std::size_t i = index(s.arg);
        if (i == args.size()) continue;
        if (args[i].kind == 'c')
          chars[i] = static_cast<char>(s.value);
        else
          ints[i] = s.value;
      }
    for (std::size_t i = 0; i < args.size(); ++i)
      if (!is_cell(args[i].kind)) data[i].assign(4096, 0.0);
  }

  static bool is_cell(char kind) { return kind == 'i' || kind == 'c' || kind == 'o'; }

  std::size_t index(const std::string& name) const {
    for (std::size_t i = 0; i < args.size(); ++i)
      if (args[i].name == name) return i;
    ADD_FAILURE() << "no argument " << name;
    return args.size();
  }

  // Every argument is a pointer; the reference's hidden character lengths
  // follow, register-wide, so one call shape serves every routine.
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
    if (with_lengths) w.insert(w.end(), characters, 1);
    w.resize(20, 0);
    return w;
  }

  // Calls f; a function's value, or 0.
  template <class R>
  R call(void* f, bool function, bool with_lengths) {
    const auto a = words(with_lengths);
    if (function) {
      using F = R (*)(Word, Word, Word, Word, Word, Word, Word, Word);
      return reinterpret_cast<F>(f)(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]);
    }
    reinterpret_cast<Call20>(f)(a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11], a[12],
                                a[13], a[14], a[15], a[16], a[17], a[18], a[19]);
    return R(0);
  }

  template <class R>
  void fill(bool complex, Fill how) {
    std::mt19937 gen(2024);
    std::uniform_real_distribution<R> d(R(-1), R(1));
    for (std::size_t i = 0; i < args.size(); ++i) {
      if (data[i].empty()) continue;
      R* x = reinterpret_cast<R*>(data[i].data());
      for (std::size_t k = 0; k < data[i].size() * sizeof(double) / sizeof(R); ++k) x[k] = d(gen);
      if (args[i].name != "A" || how == Fill::Random) continue;
      const int n = ints[index("N")], lda = ints[index("LDA")], w = complex ? 2 : 1;
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

// The layer's spelling rejects the call: one report of the position, with
// the routine's own name and length, INFO set, and no hooks, no MKL.
void expect_rejected(const std::string& spelling, const std::string& name, const std::vector<Argument>& args,
                     const std::vector<Setting>& base, const std::vector<Setting>& changes, int position) {
  const std::string where = spelling + describe(changes);
  Prepared p(args, base, changes);
  observe::reset();
  p.call<double>(exported(spelling), false, false);
  const auto& reports = observe::reports();
  ASSERT_EQ(reports.size(), 1u) << where;
  EXPECT_TRUE(reports[0].from_layer) << where;
  EXPECT_EQ(reports[0].name, upper(name)) << where;
  EXPECT_EQ(reports[0].position, position) << where;
  EXPECT_EQ(reports[0].length, static_cast<long long>(name.size())) << where;
  EXPECT_EQ(p.info, -position) << where;
  EXPECT_TRUE(observe::events().empty()) << where << ": hooks installed or MKL reached after a rejected argument";
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

// One call of a member; returns the position the reference reported, 0
// when it accepted the call.
template <class R>
int expect_like_reference(const Family& f, const std::string& name, const std::vector<Argument>& args,
                          const std::vector<Setting>& changes) {
  const std::string where = name + describe(changes);
  const bool complex = name[0] == 'c' || name[0] == 'z';
  Prepared layer(args, f.baseline, changes), oracle(args, f.baseline, changes);
  layer.fill<R>(complex, f.a);
  oracle.fill<R>(complex, f.a);
  reference::reset();
  const R want = oracle.call<R>(reference::symbol((name + "_").c_str()), f.function, true);
  const auto verdict = reference::reports();
  EXPECT_LE(verdict.size(), 1u) << where;
  if (!verdict.empty()) {
    EXPECT_EQ(verdict[0].name, upper(name)) << where;
    EXPECT_EQ(oracle.info, -verdict[0].position) << where;
    for (const auto& spelling : {name, upper(name) + "_"})
      expect_rejected(spelling, name, args, f.baseline, changes, verdict[0].position);
    return verdict[0].position;
  }
  observe::reset();
  const R got = layer.call<R>(exported(name), f.function, false);
  if (f.hooks)
    expect_hooks(where);
  else
    EXPECT_TRUE(observe::events().empty()) << where << ": hooks installed";
  EXPECT_TRUE(observe::reports().empty()) << where << ": reported " << observe::reports()[0].position;
  EXPECT_TRUE(near(got, want, 4)) << where << ": value " << got << ", reference " << want;
  expect_same_results<R>(layer, oracle, where);
  return 0;
}

std::vector<Family> families() {
  const char* const qr = "M:i N:i A:d LDA:i TAU:d WORK:w LWORK:i INFO:o";
  const char* const hessenberg = "N:i ILO:i IHI:i A:m LDA:i TAU:w WORK:w LWORK:i INFO:o";
  const char* const orm = "SIDE:c TRANS:c M:i N:i K:i A:d LDA:i TAU:d C:d LDC:i WORK:w LWORK:i INFO:o";
  const char* const trtrs = "UPLO:c TRANS:c DIAG:c N:i NRHS:i A:d LDA:i B:d LDB:i INFO:o";
  const char* const gels = "TRANS:c M:i N:i NRHS:i A:w LDA:i B:d LDB:i WORK:w LWORK:i INFO:o";
  const std::vector<std::vector<Setting>> orm_cases = {
      {{"SIDE", 'X'}}, {{"TRANS", 'X'}}, {{"TRANS", 'C'}}, {{"TRANS", 'T'}}, {{"SIDE", 'l'}}, {{"TRANS", 't'}},
      {{"TRANS", 'c'}}, {{"SIDE", 'r'}, {"LDA", 4}}, {{"M", -1}}, {{"N", -1}}, {{"K", -1}}, {{"K", 6}},
      {{"SIDE", 'R'}, {"K", 5}}, {{"LDA", 4}}, {{"SIDE", 'R'}, {"LDA", 3}}, {{"LDC", 4}}, {{"LWORK", 3}},
      {{"SIDE", 'R'}, {"LDA", 4}, {"LWORK", 4}}, {{"LWORK", -1}}, {{"LWORK", -2}}, {{"SIDE", 'X'}, {"M", -1}},
      {{"M", -1}, {"LDC", 0}}, {{"K", 6}, {"LWORK", 0}}, {{"LDA", 7}, {"LDC", 6}}};
  const std::vector<Setting> orm_base = {{"SIDE", 'L'}, {"TRANS", 'N'}, {"M", 5}, {"N", 4}, {"K", 3},
                                         {"LDA", 5},    {"LDC", 5},     {"LWORK", 64}};
  const std::vector<std::vector<Setting>> hessenberg_cases = {
      {{"N", -1}}, {{"ILO", 0}}, {{"ILO", 6}}, {{"ILO", 2}, {"IHI", 1}}, {{"ILO", 3}, {"IHI", 2}}, {{"IHI", 6}},
      {{"LDA", 4}}, {{"LWORK", 4}}, {{"LWORK", 3}}, {{"LWORK", -1}}, {{"N", 0}, {"IHI", 0}},
      {{"N", 0}, {"ILO", 2}, {"IHI", 0}}, {{"N", -1}, {"LDA", 0}}, {{"ILO", 0}, {"LWORK", 0}},
      {{"ILO", 2}, {"IHI", 4}, {"LWORK", 1}}, {{"ILO", 2}, {"LWORK", 3}}, {{"ILO", 2}, {"IHI", 4}, {"LDA", 7}}};
  const std::vector<Setting> hessenberg_base = {{"N", 5}, {"ILO", 1}, {"IHI", 5}, {"LDA", 5}, {"LWORK", 64}};
  std::vector<std::vector<Setting>> triangular, norms, symmetric_norms;
  for (char uplo : {'U', 'L'})
    for (char trans : {'N', 'T', 'C'})
      for (char diag : {'N', 'U'}) triangular.push_back({{"UPLO", uplo}, {"TRANS", trans}, {"DIAG", diag}});
  for (char norm : {'M', '1', 'O', 'I', 'F', 'E', 'm', 'i', 'f'}) {
    norms.push_back({{"NORM", norm}});
    for (char uplo : {'U', 'L'}) symmetric_norms.push_back({{"NORM", norm}, {"UPLO", uplo}});
  }
  const std::vector<std::vector<Setting>> parts = {{{"UPLO", 'L'}}, {{"UPLO", 'A'}}, {{"UPLO", 'u'}}, {{"UPLO", 'l'}}};
  const std::vector<Setting> gels_base = {{"TRANS", 'N'}, {"M", 7}, {"N", 4}, {"NRHS", 2}, {"LDA", 8}, {"LDB", 9},
                                          {"LWORK", 64}};
  return {
      {"geqrf", "geqrf", qr, nullptr, {{"M", 6}, {"N", 4}, {"LDA", 6}, {"LWORK", 64}},
       {{{"M", -1}}, {{"N", -1}}, {{"LDA", 5}}, {{"LDA", 0}}, {{"M", 0}, {"LDA", 0}}, {{"M", 0}, {"LDA", 1}},
        {{"LWORK", 3}}, {{"LWORK", 0}}, {{"LWORK", -2}}, {{"LWORK", -1}}, {{"N", 0}, {"LWORK", 0}},
        {{"N", 0}, {"LWORK", 1}}, {{"M", -1}, {"LDA", 0}}, {{"N", -1}, {"LWORK", 0}}, {{"LDA", 1}, {"LWORK", 0}},
        {{"M", INT_MIN}}, {{"LDA", INT_MIN}}, {{"M", 7}, {"N", 5}, {"LDA", 9}},
        // A query passes whatever N is; it lifts the workspace test only.
        {{"N", 1000}, {"LWORK", -1}}, {{"N", 1000}, {"LWORK", -1}, {"LDA", 5}}}},
      {"gelqf", "gelqf", qr, nullptr, {{"M", 4}, {"N", 6}, {"LDA", 4}, {"LWORK", 64}},
       {{{"M", -1}}, {{"N", -1}}, {{"LDA", 3}}, {{"LWORK", 3}}, {{"LWORK", 0}}, {{"LWORK", -2}}, {{"M", -1}, {"N", -1}},
        {{"LDA", 0}, {"LWORK", 0}}, {{"LWORK", -1}}, {{"M", 0}, {"LDA", 1}, {"LWORK", 1}}, {{"N", 0}},
        {{"M", 5}, {"N", 8}, {"LDA", 6}}}},
      {"gebrd", "gebrd", "M:i N:i A:m LDA:i D:m E:m TAUQ:w TAUP:w WORK:w LWORK:i INFO:o", nullptr,
       {{"M", 6}, {"N", 4}, {"LDA", 6}, {"LWORK", 64}},
       {{{"M", -1}}, {{"N", -1}}, {{"LDA", 5}}, {{"LWORK", 5}}, {{"M", 3}, {"LDA", 3}, {"LWORK", 3}},
        {{"M", 3}, {"LDA", 3}, {"LWORK", 4}}, {{"LWORK", -1}}, {{"N", -2}, {"LDA", 0}}, {{"LDA", 5}, {"LWORK", 0}},
        {{"M", 7}, {"N", 5}, {"LDA", 8}}}},
      {"gehrd", "gehrd", hessenberg, nullptr, hessenberg_base, hessenberg_cases},
      {"orghr", nullptr, "N:i ILO:i IHI:i A:d LDA:i TAU:d WORK:w LWORK:i INFO:o", nullptr, hessenberg_base,
       hessenberg_cases},
      {"orgqr", "ungqr", "M:i N:i K:i A:d LDA:i TAU:d WORK:w LWORK:i INFO:o", nullptr,
       {{"M", 6}, {"N", 4}, {"K", 3}, {"LDA", 6}, {"LWORK", 64}},
       {{{"M", -1}}, {{"N", -1}}, {{"N", 7}}, {{"K", -1}}, {{"K", 5}}, {{"LDA", 5}}, {{"LWORK", 3}}, {{"LWORK", -1}},
        {{"M", -1}, {"N", 7}}, {{"N", 7}, {"K", 9}}, {{"K", 0}}, {{"LDA", 5}, {"LWORK", 0}}, {{"LDA", 9}, {"K", 4}}}},
      {"ormqr", "unmqr", orm, nullptr, orm_base, orm_cases},
      {"ormql", "unmql", orm, nullptr, orm_base, orm_cases},
      {"potrf", "potrf", "UPLO:c N:i A:d LDA:i INFO:o", nullptr, {{"UPLO", 'U'}, {"N", 4}, {"LDA", 4}},
       {{{"UPLO", 'X'}}, {{"UPLO", 'u'}}, {{"UPLO", 'l'}}, {{"UPLO", 'L'}}, {{"N", -1}}, {{"LDA", 3}},
        {{"N", 0}, {"LDA", 1}}, {{"N", 0}, {"LDA", 0}}, {{"UPLO", 'X'}, {"N", -1}}, {{"N", -1}, {"LDA", 0}},
        {{"N", 6}, {"LDA", 8}}},
       Fill::Definite},
      // Past the failing minor A holds the implementation's partial results.
      {"potrf", "potrf", "UPLO:c N:i A:w LDA:i INFO:o", nullptr, {{"UPLO", 'U'}, {"N", 6}, {"LDA", 8}},
       {{{"UPLO", 'L'}}}, Fill::NotDefinite},
      {"sytrd", "hetrd", "UPLO:c N:i A:w LDA:i D:d E:m TAU:w WORK:w LWORK:i INFO:o", nullptr,
       {{"UPLO", 'L'}, {"N", 4}, {"LDA", 4}, {"LWORK", 64}},
       {{{"UPLO", 'X'}}, {{"UPLO", 'u'}}, {{"N", -1}}, {{"LDA", 3}}, {{"LWORK", 0}}, {{"LWORK", -1}}, {{"LWORK", 1}},
        {{"N", -1}, {"LWORK", 0}}, {{"UPLO", 'X'}, {"LDA", 0}}, {{"N", 6}, {"LDA", 7}}},
       Fill::Definite},
      // B is no factor: the transformed A is not compared.
      {"sygst", "hegst", "ITYPE:i UPLO:c N:i A:w LDA:i B:d LDB:i INFO:o", nullptr,
       {{"ITYPE", 1}, {"UPLO", 'U'}, {"N", 4}, {"LDA", 4}, {"LDB", 4}},
       {{{"ITYPE", 0}}, {{"ITYPE", 4}}, {{"ITYPE", 2}}, {{"ITYPE", 3}}, {{"UPLO", 'X'}}, {{"UPLO", 'l'}}, {{"N", -1}},
        {{"LDA", 3}}, {{"LDB", 3}}, {{"ITYPE", 0}, {"UPLO", 'X'}}, {{"LDA", 3}, {"LDB", 3}}}},
      {"geev", "geev", "JOBVL:c JOBVR:c N:i A:w LDA:i WR:s WI:s VL:w LDVL:i VR:w LDVR:i WORK:w LWORK:i INFO:o",
       "JOBVL:c JOBVR:c N:i A:w LDA:i W:s VL:w LDVL:i VR:w LDVR:i WORK:w LWORK:i RWORK:w INFO:o",
       {{"JOBVL", 'N'}, {"JOBVR", 'V'}, {"N", 4}, {"LDA", 4}, {"LDVL", 1}, {"LDVR", 4}, {"LWORK", 64}},
       {{{"JOBVL", 'X'}}, {{"JOBVR", 'X'}}, {{"JOBVL", 'v'}, {"LDVL", 4}}, {{"JOBVR", 'n'}}, {{"N", -1}}, {{"LDA", 3}},
        {{"LDVL", 0}}, {{"JOBVL", 'V'}}, {{"LDVR", 0}}, {{"LDVR", 3}}, {{"JOBVR", 'N'}, {"LDVR", 1}},
        {{"JOBVL", 'X'}, {"N", -1}}, {{"N", -1}, {"LDA", 0}}, {{"LWORK", -1}}, {{"N", 6}, {"LDA", 7}, {"LDVR", 6}}}},
      {"gesvd", "gesvd", "JOBU:c JOBVT:c M:i N:i A:w LDA:i S:d U:w LDU:i VT:w LDVT:i WORK:w LWORK:i INFO:o",
       "JOBU:c JOBVT:c M:i N:i A:w LDA:i S:d U:w LDU:i VT:w LDVT:i WORK:w LWORK:i RWORK:w INFO:o",
       {{"JOBU", 'S'}, {"JOBVT", 'S'}, {"M", 6}, {"N", 4}, {"LDA", 6}, {"LDU", 6}, {"LDVT", 4}, {"LWORK", 256}},
       {{{"JOBU", 'X'}}, {{"JOBVT", 'X'}}, {{"JOBU", 'O'}, {"JOBVT", 'O'}}, {{"JOBU", 'o'}},
        {{"JOBU", 'n'}, {"JOBVT", 'a'}}, {{"M", -1}}, {{"N", -1}}, {{"LDA", 5}}, {{"LDU", 0}}, {{"LDU", 5}},
        {{"JOBU", 'A'}, {"LDU", 5}}, {{"JOBU", 'N'}, {"LDU", 1}}, {{"LDVT", 0}}, {{"LDVT", 3}},
        {{"JOBVT", 'A'}, {"LDVT", 3}}, {{"JOBVT", 'N'}, {"LDVT", 1}}, {{"M", 3}, {"LDVT", 3}}, {{"M", 3}, {"LDVT", 2}},
        {{"M", -1}, {"LDA", 0}}, {{"LWORK", -1}}, {{"M", 4}, {"N", 6}, {"LDA", 5}, {"LDVT", 6}}}},
      {"potrs", "potrs", "UPLO:c N:i NRHS:i A:d LDA:i B:d LDB:i INFO:o", nullptr,
       {{"UPLO", 'U'}, {"N", 5}, {"NRHS", 3}, {"LDA", 7}, {"LDB", 6}}, {{{"UPLO", 'l'}}}, Fill::Definite},
      {"trtrs", "trtrs", trtrs, nullptr,
       {{"UPLO", 'U'}, {"TRANS", 'N'}, {"DIAG", 'N'}, {"N", 6}, {"NRHS", 2}, {"LDA", 7}, {"LDB", 8}}, triangular,
       Fill::Definite},
      {"trtrs", "trtrs", trtrs, nullptr,
       {{"UPLO", 'U'}, {"TRANS", 'N'}, {"DIAG", 'N'}, {"N", 6}, {"NRHS", 2}, {"LDA", 7}, {"LDB", 8}}, {},
       Fill::Singular},
      {"bdsqr", nullptr, "UPLO:c N:i NCVT:i NRU:i NCC:i D:d E:w VT:w LDVT:i U:w LDU:i C:w LDC:i WORK:w INFO:o",
       nullptr, {{"UPLO", 'U'}, {"N", 5}, {"LDVT", 1}, {"LDU", 1}, {"LDC", 1}}, {{{"UPLO", 'L'}}}},
      {"lange", "lange", "NORM:c M:i N:i A:d LDA:i WORK:w", nullptr, {{"NORM", 'M'}, {"M", 5}, {"N", 4}, {"LDA", 6}},
       norms, Fill::Random, true},
      {"lansy", "lansy", "NORM:c UPLO:c N:i A:d LDA:i WORK:w", nullptr,
       {{"NORM", 'M'}, {"UPLO", 'U'}, {"N", 4}, {"LDA", 6}}, symmetric_norms, Fill::Random, true},
      {"lapy2", nullptr, "X:d Y:d", nullptr, {}, {}, Fill::Random, true},
      {"larfg", "larfg", "N:i ALPHA:d X:d INCX:i TAU:d", nullptr, {{"N", 5}, {"INCX", 1}}, {{{"INCX", 2}}}},
      {"lartv", "lartv", "N:i X:d INCX:i Y:d INCY:i C:d S:d INCC:i", nullptr,
       {{"N", 4}, {"INCX", 1}, {"INCY", 1}, {"INCC", 1}}, {{{"INCX", 2}, {"INCY", 3}, {"INCC", 2}}}, Fill::Random,
       false, false},
      {"lacpy", "lacpy", "UPLO:c M:i N:i A:d LDA:i B:d LDB:i", nullptr,
       {{"UPLO", 'U'}, {"M", 5}, {"N", 4}, {"LDA", 7}, {"LDB", 6}}, parts},
      {"laset", "laset", "UPLO:c M:i N:i ALPHA:d BETA:d A:d LDA:i", nullptr,
       {{"UPLO", 'U'}, {"M", 5}, {"N", 4}, {"LDA", 6}}, parts},
      {"gels", nullptr, gels, nullptr, gels_base, {{{"TRANS", 'T'}}, {{"LWORK", -1}}}},
      {nullptr, "gels", gels, nullptr, gels_base, {{{"TRANS", 'C'}}, {{"LWORK", -1}}}},
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

TEST(LapackOracle, ReportsAndResultsMatchTheReference) {
  int rejected = 0, accepted = 0;
  for (const auto& f : families())
    for_each_member(f, [&](const std::string& name, const std::vector<Argument>& args) {
      auto cases = f.cases;
      cases.insert(cases.begin(), std::vector<Setting>{});
      for (const auto& changes : cases) {
        const bool single = name[0] == 's' || name[0] == 'c';
        const int position = single ? expect_like_reference<float>(f, name, args, changes)
                                    : expect_like_reference<double>(f, name, args, changes);
        (position != 0 ? rejected : accepted)++;
      }
    });
  // The table exercises both verdicts.
  EXPECT_GT(rejected, 500);
  EXPECT_GT(accepted, 500);
}

// Where the layer departs from reference LAPACK 3.11 on purpose: ?GEQRF
// keeps the bound max(1, N) on LWORK when M = 0 (the reference accepts any
// positive LWORK then), and ?GEEV and ?GESVD make no workspace test of
// their own, leaving a short LWORK to MKL.
TEST(LapackPrechecks, DepartFromTheReferenceWhereMeant) {
  struct Departure {
    std::string stem;
    std::vector<Setting> changes;
    int position;  // the layer's; 0: handed on
  };
  const std::vector<Departure> departures = {
      {"geqrf", {{"M", 0}, {"LDA", 1}, {"LWORK", 1}}, 7}, {"geev", {{"LWORK", 1}}, 0}, {"gesvd", {{"LWORK", 1}}, 0}};
  int checked = 0;
  for (const auto& d : departures)
    for (const auto& f : families()) {
      if (f.real_stem == nullptr || d.stem != f.real_stem) continue;
      for_each_member(f, [&](const std::string& name, const std::vector<Argument>& args) {
        Prepared p(args, f.baseline, d.changes);
        reference::reset();
        p.call<double>(reference::symbol((name + "_").c_str()), false, true);
        EXPECT_EQ(reference::reports().empty(), d.position != 0) << name << ": the reference agrees";
        ++checked;
        if (d.position != 0) return expect_rejected(name, name, args, f.baseline, d.changes, d.position);
        Prepared q(args, f.baseline, d.changes);
        observe::reset();
        q.call<double>(exported(name), false, false);
        expect_hooks(name);
        // MKL may still reject it, through the layer's hook.
        for (const auto& r : observe::reports()) EXPECT_FALSE(r.from_layer) << name << ": reported " << r.position;
      });
    }
  EXPECT_EQ(checked, 12);
}

}  // namespace
