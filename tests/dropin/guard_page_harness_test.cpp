// Every LAPACK routine with an integer or logical array that the companion
// liblapack.so.3 forwards to the layer (all but the departures it sends to
// the reference implementation), called by its standard name as a gfortran
// program calls it, with each integer and logical array at its documented
// minimum size (the catalogue's DIM over the call's scalars) ending on an
// inaccessible page. INFO and the integer and logical results are held
// against the reference LAPACK in a link-map namespace of its own (the
// floating results are the LAPACK test programs' to judge). Each routine
// runs in a child process, so a read or write past an array is reported by
// name rather than ending the run.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Arg {
  std::string name, kind, intent, dim;
  bool integer_array() const { return kind == "i[]" || kind == "l[]"; }
  bool integer_scalar() const { return kind == "i" || kind == "l"; }
  bool character() const { return kind == "ch" || kind == "str"; }
  bool written() const { return intent != "in"; }
};
struct Routine {
  std::string name, group, result;
  std::vector<Arg> args;
  std::string lower() const {
    std::string s = name;
    for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s + "_";
  }
  std::string family() const { return name.substr(1); }
};

std::vector<Routine> array_routines() {
  std::ifstream in(VORN_CATALOGUE);
  std::vector<Routine> out;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    Routine r;
    fields >> r.name >> r.group >> r.result;
    bool arrays = false;
    for (std::string tok; fields >> tok && tok[0] != '@';) {
      Arg a;
      std::istringstream parts(tok);
      std::getline(parts, a.name, ':');
      std::getline(parts, a.kind, ':');
      std::getline(parts, a.intent, ':');
      std::getline(parts, a.dim);
      arrays |= a.integer_array();
      r.args.push_back(a);
    }
    if (arrays && r.group[0] == 'L') out.push_back(r);
  }
  return out;
}

std::set<std::string> departures() {
  std::ifstream in(VORN_DROPIN_DEPARTURES);
  std::set<std::string> out;
  for (std::string name; in >> name;) out.insert(name);
  return out;
}

// ------------------------------------------------------------ the call's scalars

constexpr int kN = 5;
constexpr int kSplit = 2;  // where the merge steps split: N1, NL

// Generic values by argument name; anything unnamed is 1.
const std::map<std::string, int> kValues = {
    {"N", kN},     {"M", kN},      {"P", kN},      {"K", 3},      {"NRHS", 2},   {"KL", 1},     {"KU", 1},
    {"KD", 1},     {"KA", 1},      {"KB", 1},      {"ILO", 1},    {"IHI", kN},   {"IL", 1},     {"IU", kN},
    {"LWORK", 4000}, {"LRWORK", 4000}, {"LIWORK", 400}, {"K1", 1}, {"K2", kN},  {"MM", kN},    {"NCVT", kN},
    {"NRU", kN},   {"NCC", kN},    {"SQRE", 0},    {"NL", kSplit},     {"NR", 2},     {"SMLSIZ", 2}, {"ICOMPQ", 1},
    {"N1", kSplit},     {"N2", 3},      {"DTRD1", 1},   {"DTRD2", 1},  {"MMAX", kN},  {"MINP", 1},   {"NITMAX", 10},
    {"NBMIN", 2},  {"NB", 2},      {"J1", 1},      {"IFST", 1},   {"ILST", kN},  {"KNT", 1},
    {"QSIZ", kN},  {"NZC", kN},
};

// Per-routine values where a routine needs them for a meaningful call.
const std::map<std::string, std::map<std::string, int>> kRoutineValues = {
    {"LAEBZ", {{"IJOB", 1}, {"MOUT", 0}}},
    {"LARRB", {{"IFIRST", 1}, {"ILAST", kN}, {"OFFSET", 0}, {"TWIST", kN}}},
    {"LARRJ", {{"IFIRST", 1}, {"ILAST", kN}, {"OFFSET", 0}}},
    {"HSEIN", {{"MM", 2 * kN}}},  // a complex pair takes two columns
    {"LALSA", {{"SMLSIZ", 3}}},
    {"LALSD", {{"SMLSIZ", 3}}},
    {"LASD0", {{"SMLSIZ", 3}}},
};

// Integer inputs where the generic ones make no meaningful call, by family
// and argument, element (row, column). The merge steps take two
// subproblems, each sorted by its own part of INDXQ/IDXQ, numbered within
// the subproblem; ?LALS0 and ?LALSA (two columns a tree level) one
// rotation a node between two distinct rows, at most three secular roots.
using Fill = int (*)(long row, long column);
constexpr Fill kSubproblemOrder = [](long row, long) -> int {
  return row < kSplit ? row + 1 : row == kSplit ? 1 : row - kSplit;  // ?LASD1/?LASD2: upper, middle row, lower
};
const std::map<std::string, Fill> kSecular = {
    {"GIVCOL", [](long row, long column) -> int { return row + 1 + column % 2; }},
    {"GIVPTR", [](long, long) { return 1; }},
    {"K", [](long, long) { return 3; }}};
const std::map<std::string, std::map<std::string, Fill>> kRoutineInputs = {
    {"LALS0", kSecular},
    {"LALSA", kSecular},
    {"LAED2", {{"INDXQ", [](long row, long) -> int { return row < kSplit ? row + 1 : row - kSplit + 1; }}}},
    {"LASD1", {{"IDXQ", kSubproblemOrder}}},
    {"LASD2", {{"IDXQ", kSubproblemOrder}}},
};
// Floating inputs, from an element's place, its random value x and which
// half of a complex element it is: ?LARRB's bisection needs intervals
// W +- WERR that hold the eigenvalues of a nearly diagonal matrix with
// diagonal 1..N; generalized eigenvectors need the triangular pair of a QZ
// step; a norm is not negative.
struct Element {
  long row, column;
  double x;
  bool imaginary;
};
using RealFill = double (*)(const Element&);
constexpr RealFill kUpper = [](const Element& e) { return e.row > e.column ? 0 : e.x; };
constexpr RealFill kUpperRealDiagonal = [](const Element& e) {
  return e.row > e.column || (e.imaginary && e.row == e.column) ? 0 : e.x;
};
const std::map<std::string, RealFill> kAnyRealInputs = {{"ANORM", [](const Element&) { return 1.0; }}};
const std::map<std::string, std::map<std::string, RealFill>> kRealInputs = {
    {"LARRB",
     {{"D", [](const Element& e) { return e.row + 1.0; }}, {"LLD", [](const Element&) { return 1e-4; }},
      {"W", [](const Element& e) { return e.row + 1.01; }}, {"WERR", [](const Element&) { return 0.1; }},
      {"WGAP", [](const Element&) { return 0.8; }}, {"RTOL1", [](const Element&) { return 1e-5; }},
      {"RTOL2", [](const Element&) { return 1e-5; }}, {"PIVMIN", [](const Element&) { return 1e-30; }},
      {"SPDIAM", [](const Element&) { return 5.0; }}}},
    {"TGEVC", {{"S", kUpper}, {"P", kUpperRealDiagonal}}},
};

// Options by argument name; anything unnamed is 'N'.
const std::map<std::string, char> kOptions = {
    {"UPLO", 'U'}, {"JOBZ", 'V'}, {"RANGE", 'A'}, {"COMPZ", 'I'}, {"COMPQ", 'I'}, {"JOBU", 'A'}, {"JOBVT", 'A'},
    {"JOBVL", 'V'}, {"JOBVR", 'V'}, {"SIDE", 'L'}, {"HOWMNY", 'S'}, {"NORM", '1'}, {"EIGSRC", 'N'},
    {"INITV", 'N'}, {"ORDER", 'E'}, {"JOB", 'B'}, {"EQUED", 'N'}, {"VECT", 'Q'},
};
// Per-routine options, keyed by family (routine name without its precision).
const std::map<std::string, std::map<std::string, char>> kRoutineOptions = {
    {"TREVC", {{"SIDE", 'B'}}}, {"TGEVC", {{"SIDE", 'B'}}}, {"HSEIN", {{"SIDE", 'B'}, {"EIGSRC", 'N'}}},
    {"TRSNA", {{"JOB", 'B'}}},  {"TGSNA", {{"JOB", 'B'}}},  {"TRSEN", {{"JOB", 'B'}, {"COMPQ", 'V'}}},
    {"GEBAL", {{"JOB", 'B'}}},  {"BDSDC", {{"COMPQ", 'P'}}},  {"GESDD", {{"JOBZ", 'A'}}},
    {"GGSVD", {{"JOBU", 'U'}, {"JOBV", 'V'}, {"JOBQ", 'Q'}}}, {"GGSVP", {{"JOBU", 'U'}, {"JOBV", 'V'}, {"JOBQ", 'Q'}}},
    {"GEJSV", {{"JOBA", 'C'}, {"JOBU", 'U'}, {"JOBV", 'V'}, {"JOBR", 'N'}, {"JOBT", 'N'}, {"JOBP", 'N'}}},
    {"GGBAL", {{"JOB", 'B'}}},  {"STEBZ", {{"RANGE", 'A'}}},
};

// An argument's value by routine, by family, for any routine, else `otherwise`.
template <class T>
T lookup(const Routine& r, const std::map<std::string, std::map<std::string, T>>& specific,
         const std::map<std::string, T>& any, const std::string& name, T otherwise) {
  for (const auto& key : {r.name, r.family()}) {
    const auto it = specific.find(key);
    if (it != specific.end() && it->second.count(name)) return it->second.at(name);
  }
  const auto it = any.find(name);
  return it == any.end() ? otherwise : it->second;
}

int scalar_value(const Routine& r, const std::string& name) {
  return name.rfind("LD", 0) == 0 ? kN : lookup(r, kRoutineValues, kValues, name, 1);
}
char option(const Routine& r, const std::string& name) { return lookup(r, kRoutineOptions, kOptions, name, 'N'); }

// ------------------------------------------------------------ the documented size

// Arrays whose \param line gives no dimension the catalogue can read: the
// size stated in the routine's text; and one the reference reads further.
const std::map<std::string, std::string> kDocumentedInText = {
    {"LAED0:IWORK", "6+6*N+5*N*LG(N)"}, {"LAED7:PRMPTR", "N*LG(N)"}, {"LAED7:PERM", "N*LG(N)"},
    {"LAED7:GIVPTR", "N*LG(N)"},        {"LAED7:GIVCOL", "2*N*LG(N)"},
    // The reference's own deflation loop reads INDX(N+1) before it tests
    // for the end; its caller ?LAED1 passes a longer workspace.
    {"LAED2:INDX", "N+1"},
};

class Expression {
 public:
  Expression(const std::string& text, const std::map<std::string, long>& env) : s_(text), env_(env) {}
  // The element count; a multi-dimensional DIM is the product.
  long count() {
    long total = sum();
    while (peek() == ',') {
      ++p_;
      total *= sum();
    }
    if (p_ != s_.size()) throw std::runtime_error("cannot read " + s_);
    return total;
  }

 private:
  char peek() const { return p_ < s_.size() ? s_[p_] : '\0'; }
  long sum() {
    long v = term();
    while (peek() == '+' || peek() == '-') v = s_[p_++] == '+' ? v + term() : v - term();
    return v;
  }
  long term() {
    long v = unary();
    while (peek() == '*' || peek() == '/') v = s_[p_++] == '*' ? v * unary() : v / unary();
    return v;
  }
  long unary() {
    if (peek() == '-') {
      ++p_;
      return -unary();
    }
    return primary();
  }
  long primary() {
    if (peek() == '(') {
      ++p_;
      const long v = sum();
      ++p_;
      return v;
    }
    if (std::isdigit(static_cast<unsigned char>(peek()))) {
      long v = 0;
      while (std::isdigit(static_cast<unsigned char>(peek()))) v = v * 10 + (s_[p_++] - '0');
      return v;
    }
    std::string name;
    while (std::isalnum(static_cast<unsigned char>(peek())) || peek() == '_') name += s_[p_++];
    if (peek() == '(' && (name == "MAX" || name == "MIN" || name == "ABS" || name == "LG")) {
      ++p_;
      std::vector<long> args{sum()};
      while (peek() == ',') {
        ++p_;
        args.push_back(sum());
      }
      ++p_;
      if (name == "MAX") return *std::max_element(args.begin(), args.end());
      if (name == "MIN") return *std::min_element(args.begin(), args.end());
      if (name == "ABS") return std::labs(args[0]);
      long k = 0;
      while ((1L << k) < args[0]) ++k;
      return k;
    }
    const auto it = env_.find(name);
    if (it == env_.end()) throw std::runtime_error("no value for " + name + " in " + s_);
    return it->second;
  }
  std::string s_;
  const std::map<std::string, long>& env_;
  std::size_t p_ = 0;
};

// ------------------------------------------------------------ guarded arrays

// `count` ints ending exactly where an inaccessible page begins.
struct Guarded {
  int* data = nullptr;
  char* guard = nullptr;
  std::string name;
};

Guarded guarded(std::size_t count, const std::string& name) {
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t body = (count * sizeof(int) + page - 1) / page * page;
  Guarded g;
  void* base = mmap(nullptr, body + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  g.guard = static_cast<char*>(base) + body;
  mprotect(g.guard, page, PROT_NONE);
  g.data = reinterpret_cast<int*>(g.guard) - count;
  g.name = name;
  return g;
}

// Where the child is, for the fault handler.
std::vector<Guarded>* g_guards = nullptr;
const char* g_side = "";
int g_report = -1;

void say(const std::string& line) {
  const std::string text = line + "\n";
  [[maybe_unused]] const auto n = write(g_report, text.data(), text.size());
}

void on_fault(int, siginfo_t* info, void*) {
  char line[160];
  const char* at = "an address outside the guarded arrays";
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  if (g_guards != nullptr)
    for (const auto& g : *g_guards)
      if (static_cast<char*>(info->si_addr) >= g.guard && static_cast<char*>(info->si_addr) < g.guard + page)
        at = g.name.c_str();
  const int n = std::snprintf(line, sizeof line, "FAULT %s past %s (%p)\n", g_side, at, info->si_addr);
  [[maybe_unused]] const auto w = write(g_report, line, static_cast<std::size_t>(n));
  _exit(3);
}

// ------------------------------------------------------------ one call

using Generic = void (*)(...);

constexpr std::size_t kFloats = 1 << 14;

struct Call {
  std::vector<std::vector<double>> reals;  // floating arrays and scalars, as raw storage
  std::vector<int> scalars;
  std::vector<char> letters;
  std::vector<Guarded> arrays;
  std::vector<void*> p;
};

bool is_float(const Arg& a) { return a.kind[0] == 's' || a.kind[0] == 'c'; }
bool is_complex(const Arg& a) { return a.kind[0] == 'c' || a.kind[0] == 'z'; }
bool is_floating(const Arg& a) {
  const std::string base = a.kind.substr(0, a.kind.find('['));
  return base == "s" || base == "d" || base == "c" || base == "z";
}

std::map<std::string, long> environment(const Routine& r) {
  std::map<std::string, long> env;
  for (const auto& a : r.args)
    if (a.integer_scalar()) env[a.name] = scalar_value(r, a.name);
  // Sizes the documentation names without their being arguments: the
  // merged problem of the divide-and-conquer steps, the tree depth
  // INT(LOG2(N/(SMLSIZ+1)))+1 (SMLSIZ 25 where ILAENV supplies it), the
  // integer workspace of ?GELSD's documented formula.
  if (!env.count("N") && env.count("NL")) env["N"] = env["NL"] + env["NR"] + 1;
  const long n = env.count("N") ? env["N"] : kN;
  const long leaf = env.count("SMLSIZ") ? env["SMLSIZ"] : 25;
  const long depth = std::max(0L, static_cast<long>(std::log2(static_cast<double>(n) / (leaf + 1)))) + 1;
  if (!env.count("NLVL")) env["NLVL"] = depth;
  if (!env.count("LIWORK")) env["LIWORK"] = 3 * n * depth + 11 * n;
  // ?BDSDC's IQ: N*(11 + 2*SMLSIZ + 8*INT(LOG2(N/(SMLSIZ+1)))) in its text.
  if (r.family() == "BDSDC")
    env["LDIQ"] = n * (11 + 2 * leaf + 8 * static_cast<long>(std::log2(static_cast<double>(n) / (leaf + 1))));
  return env;
}

long documented_size(const Routine& r, const Arg& a, const std::map<std::string, long>& env) {
  std::string dim = a.dim;
  const auto text = kDocumentedInText.find(r.family() + ":" + a.name);
  if (text != kDocumentedInText.end()) dim = text->second;
  return std::max(0L, Expression(dim, env).count());
}

// Rows of a column-major array: its leading dimension, else all of it.
long rows_of(const Arg& a, const std::map<std::string, long>& env, long whole) {
  const auto comma = a.dim.find(',');
  return comma == std::string::npos ? whole : env.at(a.dim.substr(0, comma));
}

// The inputs, the same for both sides: random values, a dominant diagonal
// in the square arrays named by a leading dimension, index arrays holding
// 1, 2, ... (identity permutations, 1-by-1 pivots), selections alternating.
Call prepare(const Routine& r) {
  Call c;
  const auto env = environment(r);
  std::mt19937 engine(static_cast<unsigned>(std::hash<std::string>{}(r.name)));
  std::uniform_real_distribution<double> value(-1, 1);
  c.reals.resize(r.args.size());
  c.scalars.assign(r.args.size(), 0);
  c.letters.assign(r.args.size(), 'N');
  c.p.assign(48, nullptr);
  for (std::size_t i = 0; i < r.args.size(); ++i) {
    const Arg& a = r.args[i];
    if (a.integer_scalar()) {
      c.scalars[i] = a.intent == "out" ? -77 : scalar_value(r, a.name);
      c.p[i] = &c.scalars[i];
    } else if (a.character()) {
      c.letters[i] = option(r, a.name);
      c.p[i] = &c.letters[i];
    } else if (a.integer_array()) {
      const long size = documented_size(r, a, env);
      Guarded g = guarded(static_cast<std::size_t>(size), a.name);
      for (long j = 0; j < size; ++j)
        g.data[j] = a.intent == "out" ? -77 : a.kind == "l[]" ? (j % 2 == 0) : static_cast<int>(j % kN) + 1;
      if (const Fill fill = lookup<Fill>(r, kRoutineInputs, {}, a.name, nullptr)) {
        const long rows = rows_of(a, env, size);
        for (long j = 0; j < size; ++j) g.data[j] = fill(j % rows, j / rows);
      }
      c.arrays.push_back(g);
      c.p[i] = g.data;
    } else if (is_floating(a)) {
      auto& v = c.reals[i];
      v.resize(kFloats);
      for (auto& x : v) x = value(engine);
      if (is_float(a)) {
        auto* f = reinterpret_cast<float*>(v.data());
        for (std::size_t j = 0; j < kFloats; ++j) f[j] = static_cast<float>(v[j]);
      }
      const auto comma = a.dim.find(',');
      if (a.kind.back() == ']' && comma != std::string::npos && a.dim.rfind("LD", 0) == 0) {
        const long ld = env.count(a.dim.substr(0, comma)) ? env.at(a.dim.substr(0, comma)) : kN;
        for (long d = 0; d < kN; ++d) {
          const std::size_t at = static_cast<std::size_t>((d + d * ld) * (is_complex(a) ? 2 : 1));
          if (is_float(a))
            reinterpret_cast<float*>(v.data())[at] += 6.0f;
          else
            v[at] += 6.0;
        }
      }
      if (const RealFill fill = lookup<RealFill>(r, kRealInputs, kAnyRealInputs, a.name, nullptr)) {
        const long count = a.kind.back() == ']' ? Expression(a.dim, env).count() : 1;
        const long rows = rows_of(a, env, count), halves = is_complex(a) ? 2 : 1;
        auto* f = reinterpret_cast<float*>(v.data());
        for (long k = 0; k < count * halves; ++k) {
          const Element e{k / halves % rows, k / halves / rows, is_float(a) ? f[k] : v[k], k % halves == 1};
          if (is_float(a))
            f[k] = static_cast<float>(fill(e));
          else
            v[k] = fill(e);
        }
      }
      c.p[i] = v.data();
    }
  }
  std::size_t next = r.args.size();
  for (const auto& a : r.args)
    if (a.character()) c.p[next++] = reinterpret_cast<void*>(std::size_t{1});
  return c;
}

void invoke(Generic f, const Call& c) {
  const auto& p = c.p;
  f(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8], p[9], p[10], p[11], p[12], p[13], p[14], p[15], p[16],
    p[17], p[18], p[19], p[20], p[21], p[22], p[23], p[24], p[25], p[26], p[27], p[28], p[29], p[30], p[31], p[32],
    p[33], p[34], p[35], p[36], p[37], p[38], p[39], p[40], p[41], p[42], p[43], p[44], p[45], p[46], p[47]);
}

// ------------------------------------------------------------ what may differ

// Written arrays that carry a result. An IWORK without LIWORK is workspace
// (but ?GEJSV's IWORK(1:3) hold results); the MRRR drivers' IWORK(1) is the
// library's own optimal LIWORK.
bool compared(const Routine& r, const Arg& a) {
  static const std::set<std::string> own_length = {"HEEVR", "SYEVR", "STEGR", "STEVR"};
  if (!a.written() || a.name != "IWORK" || r.family() == "GEJSV") return a.written();
  return a.dim.find("LIWORK") != std::string::npos && own_length.count(r.family()) == 0;
}

// Child: both calls, then the comparison, reported line by line.
void run_child(const Routine& r, Generic companion, Generic reference) {
  Call mine = prepare(r), theirs = prepare(r);
  std::vector<Guarded> all = mine.arrays;
  all.insert(all.end(), theirs.arrays.begin(), theirs.arrays.end());
  g_guards = &all;
  struct sigaction sa {};
  sa.sa_sigaction = on_fault;
  sa.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &sa, nullptr);
  sigaction(SIGBUS, &sa, nullptr);
  g_side = "companion";
  invoke(companion, mine);
  g_side = "reference";
  invoke(reference, theirs);
  g_guards = nullptr;
  for (std::size_t i = 0; i < r.args.size(); ++i)
    if (r.args[i].name == "INFO") {
      const int a = mine.scalars[i], b = theirs.scalars[i];
      if (a != b) say("DIFF INFO = " + std::to_string(a) + ", reference " + std::to_string(b));
      if (a == b && a < 0) {  // the inputs make no meaningful call
        say("argument error " + std::to_string(-a) + " on both sides");
        return;
      }
    }
  std::size_t k = 0;
  for (std::size_t i = 0; i < r.args.size(); ++i) {
    const Arg& a = r.args[i];
    if (a.integer_array()) {
      const Guarded& g = mine.arrays[k];
      const Guarded& h = theirs.arrays[k++];
      if (!compared(r, a)) continue;
      long size = (reinterpret_cast<int*>(g.guard) - g.data);
      if (a.name == "IWORK") size = std::min(size, 3L);  // ?GEJSV's results; the rest is workspace
      for (long j = 0; j < size; ++j)
        if (g.data[j] != h.data[j]) {
          say("DIFF " + a.name + "(" + std::to_string(j + 1) + ") = " + std::to_string(g.data[j]) + ", reference " +
              std::to_string(h.data[j]));
          break;
        }
    } else if (a.integer_scalar() && a.written() && mine.scalars[i] != theirs.scalars[i]) {
      say("DIFF " + a.name + " = " + std::to_string(mine.scalars[i]) + ", reference " +
          std::to_string(theirs.scalars[i]));
    }
  }
}

TEST(GuardPageHarness, EveryForwardedArrayRoutineAtDocumentedSizesMatchesTheReference) {
  void* reference = dlmopen(LM_ID_NEWLM, VORN_REFERENCE_SHIM, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(reference, nullptr) << dlerror();
  void* companion = dlopen(VORN_DROPIN_LAPACK, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(companion, nullptr);
  // The namespace holds the reference library, not the companion.
  Dl_info where{};
  ASSERT_NE(dladdr(dlsym(reference, "dgetrf_"), &where), 0);
  ASSERT_STRNE(where.dli_fname, VORN_DROPIN_LAPACK);

  const auto routed = departures();
  ASSERT_GT(routed.size(), 20u);
  std::size_t routines = 0;
  const char* only = std::getenv("VORN_HARNESS_ONLY");
  for (const auto& r : array_routines()) {
    if (routed.count(r.lower()) || (only != nullptr && r.name != only)) continue;
    void* mine = dlsym(companion, r.lower().c_str());
    if (mine == nullptr) continue;  // not a reference name: the companion does not export it
    void* theirs = dlsym(reference, r.lower().c_str());
    ASSERT_NE(theirs, nullptr) << r.name;
    // A routine the companion forwards must be the companion's own code.
    ASSERT_TRUE(dladdr(mine, &where) != 0 && std::string(where.dli_fname) == VORN_DROPIN_LAPACK) << r.name;
    ASSERT_LE(r.args.size() + 8, 48u);
    SCOPED_TRACE(r.name);
    int pipe_fds[2];
    ASSERT_EQ(pipe(pipe_fds), 0);
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      close(pipe_fds[0]);
      g_report = pipe_fds[1];
      // The library's own reports of argument errors are not the test's output.
      freopen("/dev/null", "w", stderr);
      freopen("/dev/null", "w", stdout);
      alarm(60);  // a call that never returns fails the routine, not the run
      try {
        run_child(r, reinterpret_cast<Generic>(mine), reinterpret_cast<Generic>(theirs));
      } catch (const std::exception& e) {
        say(std::string("ERROR ") + e.what());
      }
      _exit(0);
    }
    close(pipe_fds[1]);
    std::string text;
    char buffer[512];
    for (ssize_t n; (n = read(pipe_fds[0], buffer, sizeof buffer)) > 0;)
      text.append(buffer, static_cast<std::size_t>(n));
    close(pipe_fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    ++routines;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) ADD_FAILURE() << r.name << ": " << line;
    if ((!WIFEXITED(status) || WEXITSTATUS(status) != 0) && text.find("FAULT") == std::string::npos)
      ADD_FAILURE() << r.name << ": child ended with status " << status;
  }
  if (only == nullptr) EXPECT_GT(routines, 400u);
}

}  // namespace
