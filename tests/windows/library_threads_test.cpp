// vorn.dll over the bridge to the real computational library, which runs
// two OpenMP threads of its own (MKL_NUM_THREADS=2, GNU threading layer)
// and reports progress from them too. Only the real library has threads
// and calls the progress handler: the stand-in runs the reference, which
// does neither. Every call must reach the layer's handler, those from the
// library's threads relayed to a Windows thread, none running Windows code
// on a thread wine does not know; the factorization must come out right.
#include <windows.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "library_entries.h"
#include "vorn_instable.h"

int main() {
  using Calls = long long(__cdecl*)(int);
  const auto progress_calls =
      reinterpret_cast<Calls>(GetProcAddress(GetModuleHandleA("mkl_intel_thread.dll"), "standin_progress_calls"));
  if (progress_calls == nullptr) {
    std::printf("FAIL: the computational library is not the bridge\n");
    return 1;
  }
  const int n = 1500;
  std::vector<double> a(static_cast<std::size_t>(n) * n);
  unsigned seed = 7;
  for (double& x : a) {
    seed = seed * 1664525u + 1013904223u;
    x = static_cast<double>(seed >> 8) / 16777216.0 - 0.5;
  }
  std::vector<double> direct = a;
  std::vector<int> ipiv(n);
  int info = -1;
  VORN_instable_dgetrf(&n, &n, a.data(), &n, ipiv.data(), &info);
  const long long caller = progress_calls(0), library = progress_calls(1), stray = progress_calls(2);

  const vorn::i64 n64 = n;
  std::vector<vorn::i64> ipiv64(n);
  vorn::i64 info64 = -1;
  mkl_lapack_dgetrf(&n64, &n64, direct.data(), &n64, ipiv64.data(), &info64);
  int pivots_differ = 0;
  double largest = 0;
  for (int i = 0; i < n; ++i) pivots_differ += ipiv[i] != ipiv64[i];
  for (std::size_t i = 0; i < a.size(); ++i) largest = std::fmax(largest, std::fabs(a[i] - direct[i]));

  int failed = 0;
  auto check = [&](bool ok, const char* what) {
    failed += !ok;
    std::printf("  %s: %s\n", ok ? "ok" : "FAIL", what);
  };
  std::printf("progress calls: %lld on the caller's thread, %lld relayed from the library's own\n", caller,
              library);
  check(info == 0 && info64 == 0 && pivots_differ == 0 && largest < 1e-9,
        "DGETRF on two threads: the layer's pivots and factors are the direct call's");
  check(caller > 0 && library > 0, "both the caller's thread and the library's own report progress");
  check(stray == 0, "the layer's handler never ran on one of the library's threads");
  std::printf("%d passed, %d failed\n", 3 - failed, failed);
  return failed == 0 ? 0 : 1;
}
