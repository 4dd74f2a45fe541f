// Builds results/RESULTS.md and the plot data from one run of bench/run.sh:
// the timings of vorn_bench (--vorn_tsv), the callgrind dumps of the
// overhead driver and the driver's allocation counts.
//
//   vorn_bench_report --timings <tsv> --callgrind <dir> --allocations <tsv>
//                     [--profile <tsv>] [--services <tsv>] --calls <K> --out <dir>
//                     [--note <text>]...
//
// --services gives, per phase, the instructions spent inside the service
// calls the layer must make (mkl_serv_lsame, the hook setters, the scratch
// allocator), so that the layer's own instructions can be told apart. The
// targets are also written one per line to <out>/targets.txt.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "workloads.h"

namespace fs = std::filesystem;

namespace {

using Key = std::tuple<std::string, std::string, int>;  // routine, impl, size

struct Timing {
  double median = NAN;  // ns per call, median over the rounds
  double over = NAN;    // median of the paired differences to direct
  double ratio = NAN;   // median of the paired direct/this ratios
  double frame = NAN;   // median of the paired differences beyond direct and mandated
};

struct Inputs {
  std::map<Key, Timing> times;
  std::map<std::pair<std::string, std::string>, std::string> skipped;  // routine, impl -> why
  std::map<Key, double> instructions;  // per call
  std::map<Key, std::pair<double, double>> allocations;  // allocations, releases per call
  std::vector<std::vector<std::string>> profile;  // routine, function, object, Ir per call
  std::map<Key, double> services;  // Ir per call inside the required service calls
};

std::vector<std::string> split(const std::string& line, char sep) {
  std::vector<std::string> parts;
  std::stringstream s(line);
  std::string p;
  while (std::getline(s, p, sep)) parts.push_back(p);
  return parts;
}

// Lines of vorn_bench --vorn_tsv: routine, impl, size, repetition, rounds,
// calls per block, median and fastest ns per call, paired overhead, ratio
// and frame; or routine, impl, -, -, "skip", reason.
bool read_timings(const fs::path& path, Inputs& in) {
  std::ifstream f(path);
  if (!f) return false;
  std::string line;
  while (std::getline(f, line)) {
    const auto p = split(line, '\t');
    if (p.size() >= 6 && p[4] == "skip") {
      in.skipped[{p[0], p[1]}] = p[5];
      continue;
    }
    if (p.size() != 11) continue;
    in.times[{p[0], p[1], std::stoi(p[2])}] = {std::stod(p[6]), std::stod(p[8]), std::stod(p[9]), std::stod(p[10])};
  }
  return true;
}

bool read_allocations(const fs::path& path, Inputs& in) {
  std::ifstream f(path);
  if (!f) return false;
  std::string line;
  while (std::getline(f, line)) {
    const auto p = split(line, '\t');
    if (p.size() != 6) continue;
    const double calls = std::stod(p[3]);
    in.allocations[{p[0], p[1], std::stoi(p[2])}] = {std::stod(p[4]) / calls, std::stod(p[5]) / calls};
  }
  return true;
}

bool read_profile(const fs::path& path, Inputs& in) {
  std::ifstream f(path);
  if (!f) return false;
  std::string line;
  while (std::getline(f, line)) {
    auto p = split(line, '\t');
    if (p.size() == 4) in.profile.push_back(std::move(p));
  }
  return true;
}

// Lines: routine, impl, size, Ir per call inside the required service calls.
bool read_services(const fs::path& path, Inputs& in) {
  std::ifstream f(path);
  if (!f) return false;
  std::string line;
  while (std::getline(f, line)) {
    const auto p = split(line, '\t');
    if (p.size() == 4) in.services[{p[0], p[1], std::stoi(p[2])}] = std::stod(p[3]);
  }
  return true;
}

// Every dump the driver requested carries "desc: Trigger: Client Request:
// <routine> <impl> <size>" and "summary: <Ir>".
bool read_callgrind(const fs::path& dir, double calls, Inputs& in) {
  if (!fs::is_directory(dir)) return false;
  const std::string trigger = "desc: Trigger: Client Request: ";
  for (const auto& entry : fs::directory_iterator(dir)) {
    std::ifstream f(entry.path());
    std::string line, label;
    std::optional<double> summary;
    while (std::getline(f, line)) {
      if (line.rfind(trigger, 0) == 0) label = line.substr(trigger.size());
      if (line.rfind("summary: ", 0) == 0) summary = std::stod(line.substr(9));
    }
    if (label.empty() || !summary) continue;
    const auto p = split(label, ' ');
    if (p.size() != 3) continue;
    in.instructions[{p[0], p[1], std::stoi(p[2])}] = *summary / calls;
  }
  return true;
}

std::string fixed(double v, int digits) {
  if (!std::isfinite(v)) return "";
  char b[64];
  std::snprintf(b, sizeof b, "%.*f", digits, v);
  return b;
}

// Three significant figures, without exponent for the sizes we see.
std::string ns(double v) {
  if (!std::isfinite(v)) return "";
  const int digits = v >= 100 ? 0 : v >= 10 ? 1 : 2;
  return fixed(v, digits);
}

class Report {
 public:
  explicit Report(const Inputs& in) : in_(in) {}
  const Inputs& inputs() const { return in_; }

  const Timing* timing(const std::string& r, const char* impl, int n) const {
    auto it = in_.times.find({r, impl, n});
    return it == in_.times.end() ? nullptr : &it->second;
  }
  double time(const std::string& r, const char* impl, int n) const {
    const Timing* t = timing(r, impl, n);
    return t != nullptr ? t->median : NAN;
  }
  double over(const std::string& r, const char* impl, int n) const {
    const Timing* t = timing(r, impl, n);
    return t != nullptr ? t->over : NAN;
  }
  double ratio(const std::string& r, const char* impl, int n) const {
    const Timing* t = timing(r, impl, n);
    return t != nullptr ? t->ratio : NAN;
  }
  double frame(const std::string& r, const char* impl, int n) const {
    const Timing* t = timing(r, impl, n);
    return t != nullptr ? t->frame : NAN;
  }
  double ir(const std::string& r, const char* impl, int n) const {
    auto it = in_.instructions.find({r, impl, n});
    return it == in_.instructions.end() ? NAN : it->second;
  }
  // The layer's own instructions per call: its overhead over the direct
  // call, less what the service calls it must make cost beyond those the
  // direct call makes itself (MKL compares letters too).
  double own_ir(const std::string& r, const char* impl, int n) const {
    auto s = in_.services.find({r, impl, n}), d = in_.services.find({r, "direct", n});
    if (s == in_.services.end() || d == in_.services.end()) return NAN;
    return ir(r, impl, n) - ir(r, "direct", n) - (s->second - d->second);
  }
  // The same, subtracting the mandated phase's whole count instead of the
  // service calls' own instructions (lsame calls are not in that phase).
  double beyond_mandated_ir(const std::string& r, const char* impl, int n) const {
    const double phase = ir(r, "mandated", n);
    auto s = in_.services.find({r, impl, n}), d = in_.services.find({r, "direct", n}),
         m = in_.services.find({r, "mandated", n});
    if (!std::isfinite(phase) || s == in_.services.end() || d == in_.services.end() || m == in_.services.end())
      return NAN;
    return ir(r, impl, n) - ir(r, "direct", n) - phase - (s->second - d->second - m->second);
  }
  std::optional<std::pair<double, double>> allocs(const std::string& r, const char* impl, int n) const {
    auto it = in_.allocations.find({r, impl, n});
    if (it == in_.allocations.end()) return std::nullopt;
    return it->second;
  }

 private:
  const Inputs& in_;
};

const char* kEntries[] = {"layer", "typed"};

std::string entry_title(const std::string& routine, const char* entry) {
  return routine + (std::string(entry) == "typed" ? " (typed)" : "");
}

// Instructions the layer may spend of its own per call, by family.
double own_ir_limit(const bench::Routine& r) {
  switch (r.family) {
    case bench::Family::level1: return 15;
    case bench::Family::level23: return r.name.ends_with("MV") ? 45 : 60;
    case bench::Family::lapack: return 45;
    // DGETRF, DGETRS; the sparse index vectors are judged at large N.
    case bench::Family::scratch: return r.hooks ? 50 : NAN;
    case bench::Family::mandated: break;
  }
  return NAN;
}

void write_markdown(const fs::path& out, const Report& rep, const std::vector<std::string>& notes, double calls) {
  std::ofstream md(out / "RESULTS.md");
  md << "# Cost of the bridge: one run of bench/run.sh\n\n";
  for (const auto& n : notes) md << "- " << n << "\n";
  md << "- ns: CPU time of the calling thread per call, median over rounds; in each round every way of calling"
        " the routine at that size runs one block of calls (about 50 µs), in an order rotating from round to round.\n";
  md << "- direct: MKL's internal 64-bit entry called with pre-widened arguments (mkl_lapack_ with one trailing"
        " length 1 per character argument) and without the hooks: the hooks and scratch arrays count as the"
        " layer's overhead.\n";
  md << "- overhead, ratio: medians over the rounds of layer − direct and of direct / layer taken within each"
        " round (ratio is the layer's throughput relative to a direct call).\n";
  md << "- Ir: instructions per call from callgrind (" << static_cast<long long>(calls)
     << " calls per phase, collection switched on around each call only).\n";
  md << "- layer allocs/call: scratch allocations the layer made, counted by interposing mkl_serv_allocate.\n";
  md << "- Rows `(typed)` call `VORN_stable_<ROUTINE>` instead of `VORN_instable_`.\n\n";

  md << "## Per routine\n\n";
  md << "| routine | size | layer ns | direct ns | overhead ns | ratio | OpenBLAS ns | reference ns | Ir layer | Ir direct"
        " | Ir overhead | layer allocs/call |\n";
  md << "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n";
  for (const auto& r : bench::routines()) {
    if (r.family == bench::Family::mandated) continue;
    for (const char* entry : kEntries) {
      for (int n : r.sizes) {
        const double layer = rep.time(r.name, entry, n);
        if (!std::isfinite(layer)) continue;
        const double direct = rep.time(r.name, "direct", n);
        const double il = rep.ir(r.name, entry, n), id = rep.ir(r.name, "direct", n);
        const auto a = rep.allocs(r.name, entry, n);
        auto other = [&](const char* impl) {
          const double t = rep.time(r.name, impl, n);
          return std::isfinite(t) ? ns(t) : std::string("—");
        };
        md << "| " << entry_title(r.name, entry) << " | " << n << " | " << ns(layer) << " | " << ns(direct) << " | "
           << fixed(rep.over(r.name, entry, n), 2) << " | " << fixed(rep.ratio(r.name, entry, n), 3) << " | " << other("openblas") << " | "
           << other("reference") << " | " << fixed(il, 1) << " | " << fixed(id, 1) << " | " << fixed(il - id, 1)
           << " | " << (a ? fixed(a->first, 2) : std::string()) << " |\n";
      }
    }
  }
  md << "\n## MKL on several threads\n\nWall-clock time per call, median over rounds; only the layer, the typed entry"
        " and the direct call.\n\n";
  md << "| routine | size | threads | layer ms | direct ms | overhead µs | ratio | GFLOP/s |\n";
  md << "|---|---:|---:|---:|---:|---:|---:|---:|\n";
  for (const bench::ThreadedRow& t : bench::kThreadedRows)
    for (const auto& r : bench::routines())
      for (const char* entry : kEntries) {
        const std::string name = bench::threaded_name(t);
        const double layer = rep.time(name, entry, t.n);
        if (r.name != t.routine || !std::isfinite(layer)) continue;
        md << "| " << entry_title(r.name, entry) << " | " << t.n << " | " << t.threads << " | " << fixed(layer * 1e-6, 2)
           << " | " << fixed(rep.time(name, "direct", t.n) * 1e-6, 2) << " | " << fixed(rep.over(name, entry, t.n) * 1e-3, 1)
           << " | " << fixed(rep.ratio(name, entry, t.n), 3) << " | " << fixed(r.flops(t.n) / layer, 1) << " |\n";
      }
  md << "\nNot measured in this run:\n\n";
  if (rep.inputs().skipped.empty()) md << "- nothing\n";
  for (const auto& [who, why] : rep.inputs().skipped) md << "- " << who.first << " " << who.second << ": " << why << "\n";

  md << "\n## Mandated service calls alone\n\n";
  md << "| calls | ns | Ir |\n|---|---:|---:|\n";
  md << "| mkl_serv_allocate(8, 128) + mkl_serv_deallocate | " << ns(rep.time("allocate+deallocate", "direct", 8))
     << " | " << fixed(rep.ir("allocate+deallocate", "direct", 8), 1) << " |\n";
  md << "| mkl_serv_set_xerbla_interface + mkl_serv_set_progress_interface | " << ns(rep.time("hooks", "direct", 0))
     << " | " << fixed(rep.ir("hooks", "direct", 0), 1) << " |\n";
  for (const auto& r : bench::routines())
    for (int n : r.counted_sizes) {
      const double t = rep.time(r.name, "mandated", n);
      if (std::isfinite(t))
        md << "| those of " << r.name << ", size " << n << " (in its rounds) | " << ns(t) << " | "
           << fixed(rep.ir(r.name, "mandated", n), 1) << " |\n";
    }

  md << "\n## Targets\n\n";
  md << "Overheads at the quick-return size and at the small counted size. \"frame\" is the overhead minus the"
        " service calls the layer must make for that call (the two hooks for LAPACK, one allocation and release per"
        " scratch array), timed in the same rounds. Large sizes: ratio at the largest size.\n\n";
  md << "| target | routine | size | measured | Ir | verdict |\n|---|---|---:|---|---:|---|\n";
  int shortfalls = 0;
  auto verdict = [&](bool ok) {
    if (!ok) ++shortfalls;
    return ok ? "met" : "**short**";
  };
  for (const auto& r : bench::routines()) {
    if (r.family == bench::Family::mandated) continue;
    for (const char* entry : kEntries) {
      const std::string who = entry_title(r.name, entry);
      if (!std::isfinite(rep.time(r.name, entry, r.sizes.front()))) continue;
      for (int n : r.counted_sizes) {
        const double over = rep.over(r.name, entry, n);
        const double over_ir = rep.ir(r.name, entry, n) - rep.ir(r.name, "direct", n);
        if (!std::isfinite(over)) continue;
        if (r.family == bench::Family::level1 || r.family == bench::Family::level23) {
          const double limit = r.family == bench::Family::level1 ? 2 : 5;
          md << "| " << (r.family == bench::Family::level1 ? "level-1" : "level-2/3") << " overhead ≤ " << limit
             << " ns | " << who << " | " << n << " | " << fixed(over, 2) << " ns | " << fixed(over_ir, 1) << " | "
             << verdict(over <= limit) << " |\n";
        } else {
          const double mt = rep.time(r.name, "mandated", n), mi = rep.ir(r.name, "mandated", n);
          const double frame = rep.frame(r.name, entry, n);
          md << "| frame beyond mandated calls ≤ 5 ns | " << who << " | " << n << " | " << fixed(frame, 2)
             << " ns (overhead " << fixed(over, 2) << ", mandated " << fixed(mt, 2) << ") | " << fixed(over_ir - mi, 1)
             << " | " << verdict(frame <= 5) << " |\n";
        }
      }
      const int big = r.sizes.back();
      const double ratio = rep.ratio(r.name, entry, big);
      if (std::isfinite(ratio))
        md << "| large sizes ≥ 0.99 of direct | " << who << " | " << big << " | " << fixed(ratio, 3) << " |  | "
           << verdict(ratio >= 0.99) << " |\n";
      for (int n : r.counted_sizes) {
        const auto a = rep.allocs(r.name, entry, n);
        if (!a) continue;
        const bool ok = a->first <= r.scratch_arrays && a->first == a->second;
        md << "| allocations ≤ " << r.scratch_arrays << " scratch array(s), all released | " << who << " | " << n
           << " | " << fixed(a->first, 2) << " allocated, " << fixed(a->second, 2) << " released |  | "
           << verdict(ok) << " |\n";
      }
    }
  }
  md << "\n" << shortfalls << " target row(s) short in this run.\n";

  md << "\n## The layer's own instructions\n\n";
  md << "Instructions per call beyond the direct call, less those executed inside the service calls the layer must"
        " make (mkl_serv_lsame for each letter comparison, the two hook setters, one mkl_serv_allocate/deallocate"
        " pair per scratch array, each counted with its callees, less those the direct call makes itself), by"
        " callgrind; they do not depend on the machine's load. The verdict is on this count. \"Beyond the"
        " mandated phase\" subtracts instead the whole instruction count of the mandated phase (the service calls"
        " made from a plain function, with the driver's own dispatch of about 40 instructions), as the routines'"
        " frames were first counted. \"Bare forward\" is the same count for bench/forward.cpp's LP64 front on the"
        " same entry, which widens, makes the service calls and forwards but compares no letter and checks"
        " nothing: the least any bridge executes; what the layer spends beyond it is its letters and checks.\n\n";
  md << "| target | routine | size | Ir overhead | Ir in service calls | layer's own Ir | beyond the mandated phase"
        " | bare forward's own Ir | verdict |\n|---|---|---:|---:|---:|---:|---:|---:|---|\n";
  std::ofstream lines(out / "targets.txt");
  int own_short = 0;
  for (const auto& r : bench::routines()) {
    const double limit = own_ir_limit(r);
    if (!std::isfinite(limit)) continue;
    for (const char* entry : kEntries)
      for (int n : r.counted_sizes) {
        const double own = rep.own_ir(r.name, entry, n);
        if (!std::isfinite(own)) continue;
        const double over = rep.ir(r.name, entry, n) - rep.ir(r.name, "direct", n);
        const double phase = rep.beyond_mandated_ir(r.name, entry, n);
        const double bare = rep.own_ir(r.name, "forward", n);
        const bool ok = own <= limit + 0.05;
        own_short += !ok;
        const std::string who = entry_title(r.name, entry);
        md << "| own Ir ≤ " << limit << " | " << who << " | " << n << " | " << fixed(over, 1) << " | "
           << fixed(over - own, 1) << " | " << fixed(own, 1) << " | " << fixed(phase, 1) << " | "
           << fixed(bare, 1) << " | " << (ok ? "met" : "**short**") << " |\n";
        char line[200];
        std::snprintf(line, sizeof line, "%-6s own Ir <= %-3.0f %-16s N=%-4d %6.1f Ir", ok ? "met" : "short", limit,
                      who.c_str(), n, own);
        lines << line;
        if (std::isfinite(phase)) lines << " (beyond the mandated phase: " << fixed(phase, 1) << ")";
        if (std::isfinite(bare))
          lines << " [bare forward " << fixed(bare, 1) << "; the layer beyond it " << fixed(own - bare, 1) << "]";
        lines << "\n";
      }
  }
  for (const auto& r : bench::routines()) {
    if (r.family != bench::Family::scratch || r.hooks) continue;
    const int big = r.sizes.back();
    const double ratio = rep.ratio(r.name, "layer", big), floor = rep.time("copy-floor", "direct", big);
    const double over = rep.over(r.name, "layer", big), mandated = rep.time(r.name, "mandated", big);
    if (!std::isfinite(ratio)) continue;
    md << "\n" << r.name << " at N = " << big << ": " << fixed(ratio, 3) << " of direct throughput; overhead "
       << ns(over) << " ns, of which the scratch allocation and release " << ns(mandated)
       << " ns; the C library's copy of as many 8-byte elements (memory speed, twice the bytes read) takes "
       << ns(floor) << " ns.\n";
    char line[200];
    std::snprintf(line, sizeof line, "%-6s %s N=%d: %.3f of direct (overhead %.0f ns, allocation %.0f ns, memcpy of 8N bytes %.0f ns)",
                  over <= floor * 1.1 + mandated ? "met" : "short", r.name.c_str(), big, ratio, over, mandated, floor);
    lines << line << "\n";
  }
  md << "\n" << own_short << " own-instruction target row(s) short in this run.\n";

  if (!rep.inputs().profile.empty()) {
    md << "\n## Where the layer's instructions go (size 0, exclusive Ir per call)\n\n";
    md << "Everything the call executes between the caller and its return, the MKL entry included.\n\n";
    md << "| routine | function | object | Ir |\n|---|---|---|---:|\n";
    for (const auto& p : rep.inputs().profile)
      md << "| " << p[0] << " | `" << p[1] << "` | " << p[2] << " | " << p[3] << " |\n";
  }
  md << "\n![overhead and throughput against size](bridge.svg)\n";
}

// One block per routine for gnuplot (plain entries; the typed ones differ
// by a few instructions and are in the tables), titled in its first line:
// bridge.dat with size (N = 0 drawn at 0.5 on the logarithmic axis),
// overhead ns and direct/layer ratio; bridge_gflops.dat with size and
// GFLOP/s through the layer, for sizes that do work.
void write_plot_data(const fs::path& out, const Report& rep) {
  std::ofstream dat(out / "bridge.dat"), flops(out / "bridge_gflops.dat");
  for (const auto& r : bench::routines()) {
    if (r.family == bench::Family::mandated) continue;
    for (const char* entry : {"layer"}) {
      std::ostringstream a, b;
      for (int n : r.sizes) {
        const double layer = rep.time(r.name, entry, n), over = rep.over(r.name, entry, n);
        if (!std::isfinite(layer) || !std::isfinite(over)) continue;
        a << (n == 0 ? 0.5 : n) << ' ' << over << ' ' << rep.ratio(r.name, entry, n) << '\n';
        if (r.flops(n) > 0) b << n << ' ' << r.flops(n) / layer << '\n';
      }
      const std::string title = "\"" + entry_title(r.name, entry) + "\"";
      if (!a.str().empty()) dat << title << " overhead ratio\n" << a.str() << "\n\n";
      if (!b.str().empty()) flops << title << " gflops\n" << b.str() << "\n\n";
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  fs::path timings, callgrind, allocations, profile, services, out;
  double calls = 0;
  std::vector<std::string> notes;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string opt = argv[i];
    if (opt == "--timings") timings = argv[i + 1];
    else if (opt == "--callgrind") callgrind = argv[i + 1];
    else if (opt == "--allocations") allocations = argv[i + 1];
    else if (opt == "--profile") profile = argv[i + 1];
    else if (opt == "--services") services = argv[i + 1];
    else if (opt == "--calls") calls = std::stod(argv[i + 1]);
    else if (opt == "--out") out = argv[i + 1];
    else if (opt == "--note") notes.push_back(argv[i + 1]);
    else {
      std::fprintf(stderr, "unknown option %s\n", opt.c_str());
      return 2;
    }
  }
  if (timings.empty() || callgrind.empty() || allocations.empty() || out.empty() || calls <= 0) {
    std::fprintf(stderr,
                 "usage: %s --timings <tsv> --callgrind <dir> --allocations <tsv> [--profile <tsv>] [--services <tsv>] --calls <K> --out <dir>"
                 " [--note <text>]...\n",
                 argv[0]);
    return 2;
  }
  Inputs in;
  if (!read_timings(timings, in)) return std::fprintf(stderr, "cannot read %s\n", timings.c_str()), 1;
  if (!read_callgrind(callgrind, calls, in)) return std::fprintf(stderr, "cannot read %s\n", callgrind.c_str()), 1;
  if (!read_allocations(allocations, in)) return std::fprintf(stderr, "cannot read %s\n", allocations.c_str()), 1;
  if (!profile.empty() && !read_profile(profile, in)) return std::fprintf(stderr, "cannot read %s\n", profile.c_str()), 1;
  if (!services.empty() && !read_services(services, in)) return std::fprintf(stderr, "cannot read %s\n", services.c_str()), 1;
  fs::create_directories(out);
  const Report rep(in);
  write_markdown(out, rep, notes, calls);
  write_plot_data(out, rep);
  return 0;
}
