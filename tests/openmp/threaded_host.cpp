// A host program with an OpenMP runtime of its own ahead of the BLAS (GNU
// libgomp, LLVM libomp) or none, calling MKL through the companion
// libraries and through the layer's entries with the thread count it was
// started with. Every result must match the one-thread result, which the
// program computes again in a child started with MKL_NUM_THREADS=1.
#include <dlfcn.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vorn_instable.h"

extern "C" {
void dgemm_(const char*, const char*, const int*, const int*, const int*, const double*, const double*, const int*,
            const double*, const int*, const double*, double*, const int*, std::size_t, std::size_t);
void dgetrf_(const int*, const int*, double*, const int*, int*, int*);
}

namespace {

const int n = 400;  // large enough for MKL to split each routine across two threads

std::vector<double> matrix(std::uint64_t s) {
  std::vector<double> a(n * n);
  for (double& x : a) {
    s = s * 6364136223846793005ULL + 1442695040888963407ULL;
    x = static_cast<double>(s >> 11) / 9007199254740992.0 - 0.5;
  }
  return a;
}

// Each returns everything the routine wrote, flattened to doubles.
std::vector<double> gemm(bool layer) {
  auto a = matrix(1), b = matrix(2);
  std::vector<double> c(n * n, 7.0);
  const double one = 1, zero = 0;
  if (layer) VORN_instable_dgemm("N", "T", &n, &n, &n, &one, a.data(), &n, b.data(), &n, &zero, c.data(), &n);
  else dgemm_("N", "T", &n, &n, &n, &one, a.data(), &n, b.data(), &n, &zero, c.data(), &n, 1, 1);
  return c;
}

std::vector<double> getrf(bool layer) {
  auto a = matrix(3);
  std::vector<int> ipiv(n);
  int info = -1;
  (layer ? VORN_instable_dgetrf : dgetrf_)(&n, &n, a.data(), &n, ipiv.data(), &info);
  a.insert(a.end(), ipiv.begin(), ipiv.end());
  a.push_back(info);
  return a;
}

struct Row {
  const char* routine;
  std::vector<double> (*run)(bool);
  bool layer;
};
const Row rows[] = {{"DGEMM", gemm, false}, {"DGEMM", gemm, true}, {"DGETRF", getrf, false}, {"DGETRF", getrf, true}};

int threads_in_process() {
  FILE* f = std::fopen("/proc/self/status", "r");
  char line[256];
  int count = 0;
  while (f && std::fgets(line, sizeof line, f))
    if (std::sscanf(line, "Threads: %d", &count) == 1) break;
  if (f) std::fclose(f);
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::vector<double>> got;
  for (const Row& r : rows) got.push_back(r.run(r.layer));
  if (argc > 1 && std::strcmp(argv[1], "--one-thread") == 0) {
    for (const auto& v : got) std::fwrite(v.data(), sizeof(double), v.size(), stdout);
    return 0;
  }

  int failures = 0;
  const char* threads = std::getenv("MKL_NUM_THREADS");
  if (threads == nullptr || std::atoi(threads) < 2) {
    std::printf("FAIL: MKL_NUM_THREADS must ask for two or more threads\n");
    return 1;
  }
  if (threads_in_process() < 2) {
    std::printf("FAIL: MKL ran every routine on the calling thread alone\n");
    ++failures;
  }
  // The runtime that serves MKL's OpenMP entries must be the host's own.
  Dl_info where{};
  void* entry = dlsym(RTLD_DEFAULT, "omp_get_thread_num");
  const char* served = entry && dladdr(entry, &where) ? where.dli_fname : "nothing";
  std::printf("omp_get_thread_num from %s\n", served);
  if (std::strstr(served, VORN_HOST_OPENMP) == nullptr) {
    std::printf("FAIL: this host's runtime is not %s\n", VORN_HOST_OPENMP);
    ++failures;
  }

  char self[4096] = {};
  if (realpath("/proc/self/exe", self) == nullptr) return 1;
  setenv("MKL_NUM_THREADS", "1", 1);
  FILE* child = popen(("'" + std::string(self) + "' --one-thread").c_str(), "r");
  for (std::size_t k = 0; k < got.size(); ++k) {
    std::vector<double> one(got[k].size());
    const bool complete = child && std::fread(one.data(), sizeof(double), one.size(), child) == one.size();
    double worst = complete ? 0.0 : INFINITY;
    for (std::size_t i = 0; complete && i < one.size(); ++i) {
      const double d = std::fabs(got[k][i] - one[i]);
      if (!(d <= worst)) worst = std::isnan(d) ? INFINITY : d;
    }
    const bool ok = worst <= 1e-9;
    std::printf("%s %s %s: largest difference from one thread %.3g\n", ok ? "ok  " : "FAIL", rows[k].routine,
                rows[k].layer ? "through the layer" : "through the companion", worst);
    failures += !ok;
  }
  if (!child || pclose(child) != 0) {
    std::printf("FAIL: the one-thread run did not finish\n");
    ++failures;
  }
  return failures == 0 ? 0 : 1;
}
