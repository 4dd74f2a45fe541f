// Time per call of representative routines through the layer (plain and
// typed entries), directly through MKL's internal entries, through OpenBLAS
// and through the reference BLAS/LAPACK, plus the service calls the layer
// is obliged to make. One benchmark per routine and size runs all of these
// in rounds, one block of calls each per round. Run by bench/run.sh; also usable on its own
// with the usual Google Benchmark options (one repetition is what the
// report expects), plus --vorn_tsv=<file> to keep the per-implementation
// results in a tab-separated file for the report.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "mkl_services.h"
#include "workloads.h"

namespace {

// CPU time of the calling thread: every implementation runs on that thread
// alone (one MKL and one OpenBLAS thread), and time spent preempted by
// other work on the machine does not count. The threaded rows take
// wall-clock time instead.
clockid_t clock_in_use = CLOCK_THREAD_CPUTIME_ID;
double thread_ns() {
  timespec t{};
  clock_gettime(clock_in_use, &t);
  return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_nsec);
}

// Each block lasts about this long: long enough that reading the clock is
// negligible, short enough that many blocks escape disturbance.
constexpr double kBlockNs = 50e3;

struct Lane {
  bench::Impl impl;
  std::size_t block = 1;  // calls per block
  std::vector<double> rounds;  // ns per call in each round; NaN when skipped
  double spent = 0;  // ns
  // OpenBLAS and the reference are there for comparison only; the slow
  // reference must not eat the blocks of the lanes the overhead comes from.
  bool side() const { return impl == bench::Impl::openblas || impl == bench::Impl::reference; }
};

double time_block(bench::Workload& w, bench::Impl impl, std::size_t calls) {
  w.prepare(calls);
  const double t0 = thread_ns();
  for (std::size_t i = 0; i < calls; ++i) w.call(impl);
  return thread_ns() - t0;
}

// Calls per block for about kBlockNs, within what the pool allows.
std::size_t calibrate(bench::Workload& w, bench::Impl impl) {
  const std::size_t cap = w.run_length();
  w.prepare(1);
  w.call(impl);  // first call of the process: lazy binding, dispatch set-up
  std::size_t calls = 1;
  double ns = time_block(w, impl, calls);
  while (ns < kBlockNs / 8 && calls * 4 <= cap) {
    calls *= 4;
    ns = time_block(w, impl, calls);
  }
  const double wanted = std::ceil(kBlockNs / std::max(ns / calls, 0.1));
  return std::clamp<std::size_t>(static_cast<std::size_t>(wanted), 1, cap);
}

double median(std::vector<double> v) {
  std::erase_if(v, [](double x) { return std::isnan(x); });
  if (v.empty()) return NAN;
  std::sort(v.begin(), v.end());
  return v.size() % 2 == 1 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

// Per round, f(lane's block, direct's block[, mandated's block]).
template <class F>
std::vector<double> paired(const Lane& a, const Lane& direct, const Lane* mandated, F f) {
  std::vector<double> out(a.rounds.size());
  for (std::size_t i = 0; i < out.size(); ++i)
    out[i] = f(a.rounds[i], direct.rounds[i], mandated != nullptr ? mandated->rounds[i] : 0.0);
  return out;
}

// All ways of calling one routine at one size, one block each per round,
// in an order that rotates from round to round. Differences and ratios to
// the direct call are taken within each round, where both saw the same
// machine, and summarised by their median over the rounds.
void measure(benchmark::State& state, const bench::Routine* routine, int n, int threads) {
  auto w = routine->make(n);
  std::vector<Lane> lanes;
  const auto threaded = [](bench::Impl i) { return i == bench::Impl::layer || i == bench::Impl::typed || i == bench::Impl::direct; };
  for (bench::Impl impl : bench::kAllImpls)
    if (w->applicable(impl) && w->unavailable(impl) == nullptr && (threads == 1 || threaded(impl)))
      lanes.push_back(Lane{impl, 1, {}, 0});
  // This thread's calls only; 0 returns it to the process-wide count.
  if (threads > 1) mkl_serv_set_num_threads_local(threads);
  clock_in_use = threads > 1 ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID;
  state.counters["mkl_threads"] = mkl_serv_get_max_threads();
  for (Lane& lane : lanes) lane.block = calibrate(*w, lane.impl);

  std::size_t turn = 0;
  for (auto _ : state) {
    double total = 0, least_main = INFINITY;
    for (const Lane& lane : lanes)
      if (!lane.side()) least_main = std::min(least_main, lane.spent);
    for (std::size_t k = 0; k < lanes.size(); ++k) {
      Lane& lane = lanes[(k + turn) % lanes.size()];
      // A comparison lane gets no more time than the least-fed main lane.
      if (lane.side() && lane.spent > least_main) {
        lane.rounds.push_back(NAN);
        continue;
      }
      const double ns = time_block(*w, lane.impl, lane.block);
      lane.rounds.push_back(ns / lane.block);
      lane.spent += ns;
      total += ns;
    }
    ++turn;
    state.SetIterationTime(total * 1e-9);
  }
  if (threads > 1) mkl_serv_set_num_threads_local(0);

  const Lane* direct = nullptr;
  const Lane* mandated = nullptr;
  for (const Lane& lane : lanes) {
    if (lane.impl == bench::Impl::direct) direct = &lane;
    if (lane.impl == bench::Impl::mandated) mandated = &lane;
  }
  for (const Lane& lane : lanes) {
    const std::string name = bench::impl_name(lane.impl);
    const auto measured = std::count_if(lane.rounds.begin(), lane.rounds.end(), [](double x) { return !std::isnan(x); });
    if (measured == 0) continue;
    state.counters[name] = median(lane.rounds);
    state.counters[name + ".min"] = *std::min_element(lane.rounds.begin(), lane.rounds.end(),
                                                      [](double a, double b) { return !std::isnan(a) && (std::isnan(b) || a < b); });
    state.counters[name + ".calls"] = static_cast<double>(lane.block);
    state.counters[name + ".blocks"] = static_cast<double>(measured);
    if (direct == nullptr || &lane == direct || &lane == mandated || lane.side()) continue;
    state.counters[name + ".over"] = median(paired(lane, *direct, nullptr, [](double a, double d, double) { return a - d; }));
    state.counters[name + ".ratio"] = median(paired(lane, *direct, nullptr, [](double a, double d, double) { return d / a; }));
    if (mandated != nullptr)
      state.counters[name + ".frame"] =
          median(paired(lane, *direct, mandated, [](double a, double d, double m) { return a - d - m; }));
  }
}

// The console output as usual, and per implementation one line of routine,
// implementation, size, repetition, rounds measured, calls per block, median
// and fastest ns per call, and the medians of the paired overhead, ratio and
// frame (NaN where they do not apply). Pairs that cannot be measured are
// written up front.
class TsvReporter : public benchmark::ConsoleReporter {
 public:
  explicit TsvReporter(const std::string& path) : out_(path) {}
  bool ok() const { return out_.good(); }
  std::ostream& stream() { return out_; }

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const std::string& name = run.run_name.function_name;
      const std::string routine = name.substr(0, name.find('/'));
      const std::string size = name.substr(name.find('/') + 1);
      auto counter = [&](const std::string& key) {
        const auto it = run.counters.find(key);
        return it == run.counters.end() ? NAN : it->second.value;
      };
      for (bench::Impl impl : bench::kAllImpls) {
        const std::string key = bench::impl_name(impl);
        if (run.counters.find(key) == run.counters.end()) continue;
        out_ << routine << '\t' << key << '\t' << size << '\t' << run.repetition_index;
        for (const char* field : {".blocks", ".calls", "", ".min", ".over", ".ratio", ".frame"})
          out_ << '\t' << counter(key + field);
        out_ << '\n';
      }
    }
    out_.flush();
  }

 private:
  std::ofstream out_;
};

}  // namespace

int main(int argc, char** argv) {
  // Overheads are per-call costs of one thread; threading would only add
  // noise and fork-join costs that belong to neither side.
  setenv("MKL_NUM_THREADS", "1", 0);
  setenv("OPENBLAS_NUM_THREADS", "1", 0);

  std::string tsv;
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--vorn_tsv=", 11) == 0)
      tsv = argv[i] + 11;
    else
      argv[kept++] = argv[i];
  }
  argc = kept;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  benchmark::AddCustomContext("MKL threads", std::to_string(mkl_serv_get_max_threads()));
  int k = 0;
  for (const std::string& note : bench::library_notes()) benchmark::AddCustomContext("library " + std::to_string(++k), note);

  std::unique_ptr<TsvReporter> reporter;
  if (!tsv.empty()) {
    reporter = std::make_unique<TsvReporter>(tsv);
    if (!reporter->ok()) return 1;
  }
  for (const bench::Routine& r : bench::routines()) {
    for (int n : r.sizes) {
      const std::string name = r.name + "/" + std::to_string(n);
      benchmark::RegisterBenchmark(name.c_str(), measure, &r, n, 1)->UseManualTime();
    }
    for (const bench::ThreadedRow& t : bench::kThreadedRows)
      if (r.name == t.routine)
        benchmark::RegisterBenchmark((bench::threaded_name(t) + "/" + std::to_string(t.n)).c_str(), measure, &r, t.n,
                                     t.threads)->UseManualTime();
    // What cannot be measured, and why, goes to the report too.
    const auto probe = r.make(0);
    for (bench::Impl impl : bench::kAllImpls)
      if (probe->applicable(impl))
        if (const char* why = probe->unavailable(impl)) {
          std::fprintf(stderr, "%s %s: %s\n", r.name.c_str(), bench::impl_name(impl), why);
          if (reporter) reporter->stream() << r.name << '\t' << bench::impl_name(impl) << "\t-\t-\tskip\t" << why << '\n';
        }
  }

  if (reporter)
    benchmark::RunSpecifiedBenchmarks(reporter.get());
  else
    benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
