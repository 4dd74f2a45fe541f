// Calls each benchmarked routine K times through the layer (plain and typed
// entries), K times directly through MKL's internal entry, and K times makes
// only the service calls the layer must make for it, at the quick-return
// size and a small size. Meant for callgrind with --collect-atstart=no:
// collection is switched on around each single call, and the counts of each
// phase are dumped under the label "<routine> <impl> <size>". Outside
// valgrind the client requests do nothing.
//
// With libvorn_alloc_counter.so preloaded, the driver also writes how many
// scratch allocations and releases the layer made in each phase.
//
//   vorn_overhead_driver [--calls=K] [--allocations=<file>]
#include <dlfcn.h>
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "workloads.h"

namespace {

using Counts = void(long long* allocations, long long* releases);

struct Phase {
  long long allocations = 0, releases = 0;
};

Phase run_phase(bench::Workload& w, bench::Impl impl, int calls, Counts* counts) {
  // Warm-up outside the counted region: lazy binding, dispatch set-up.
  for (int i = 0; i < 3; ++i) {
    if (w.exhausted()) w.refill();
    w.call(impl);
  }
  Phase before, after;
  if (counts != nullptr) counts(&before.allocations, &before.releases);
  for (int i = 0; i < calls; ++i) {
    if (w.exhausted()) w.refill();
    CALLGRIND_TOGGLE_COLLECT;
    w.call(impl);
    CALLGRIND_TOGGLE_COLLECT;
  }
  if (counts != nullptr) counts(&after.allocations, &after.releases);
  return {after.allocations - before.allocations, after.releases - before.releases};
}

}  // namespace

int main(int argc, char** argv) {
  setenv("MKL_NUM_THREADS", "1", 0);
  int calls = 1000;
  const char* allocations_path = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--calls=", 8) == 0)
      calls = std::atoi(argv[i] + 8);
    else if (std::strncmp(argv[i], "--allocations=", 14) == 0)
      allocations_path = argv[i] + 14;
    else {
      std::fprintf(stderr, "usage: %s [--calls=K] [--allocations=<file>]\n", argv[0]);
      return 2;
    }
  }
  if (calls <= 0) return 2;

  auto* counts = reinterpret_cast<Counts*>(dlsym(RTLD_DEFAULT, "vorn_bench_allocation_counts"));
  if (allocations_path != nullptr && counts == nullptr) {
    std::fprintf(stderr, "overhead_driver: --allocations needs libvorn_alloc_counter.so preloaded\n");
    return 2;
  }
  std::FILE* out = allocations_path != nullptr ? std::fopen(allocations_path, "w") : nullptr;
  if (allocations_path != nullptr && out == nullptr) {
    std::perror(allocations_path);
    return 1;
  }

  CALLGRIND_ZERO_STATS;
  for (const bench::Routine& r : bench::routines()) {
    for (int n : r.counted_sizes) {
      for (bench::Impl impl :
           {bench::Impl::layer, bench::Impl::typed, bench::Impl::direct, bench::Impl::mandated, bench::Impl::forward}) {
        auto w = r.make(n);
        if (!w->applicable(impl)) continue;
        if (const char* why = w->unavailable(impl)) {
          std::printf("%-20s %-6s %6d  skipped: %s\n", r.name.c_str(), bench::impl_name(impl), n, why);
          continue;
        }
        const Phase p = run_phase(*w, impl, calls, counts);
        const std::string label = r.name + " " + bench::impl_name(impl) + " " + std::to_string(n);
        CALLGRIND_DUMP_STATS_AT(label.c_str());
        std::printf("%-20s %-6s %6d  %d calls", r.name.c_str(), bench::impl_name(impl), n, calls);
        if (counts != nullptr) std::printf(", %lld allocations, %lld releases", p.allocations, p.releases);
        std::printf("\n");
        if (out != nullptr)
          std::fprintf(out, "%s\t%s\t%d\t%d\t%lld\t%lld\n", r.name.c_str(), bench::impl_name(impl), n, calls,
                       p.allocations, p.releases);
      }
    }
  }
  if (out != nullptr) std::fclose(out);
  return 0;
}
