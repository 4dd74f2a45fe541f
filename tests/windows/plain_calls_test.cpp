// vorn.dll under wine, through its plain names, against the reference-backed
// stand-in of the computational library. Every result is held against the
// same computation made directly on the stand-in's 64-bit entries, so any
// difference is the bridge's under the Windows ABI: a widening through a
// 32-bit long, a lost copy-back, a mis-passed fifth-or-later argument. The
// stand-in's log shows the frame's own behaviour: scratch arrays, hooks,
// reports. What does not depend on the platform is the Linux tests'.
#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "library_entries.h"
#include "standin.h"
#include "vorn_instable.h"

using vorn::i64;

extern "C" i64 mkl_lapack_ilaenv(const i64* ispec, const char* name, const char* opts, const i64* n1, const i64* n2,
                                 const i64* n3, const i64* n4, int lname, int lopts);

namespace {

int failures = 0;

void check(bool ok, const std::string& what) {
  if (!ok) {
    ++failures;
    std::printf("  FAIL: %s\n", what.c_str());
  }
}

std::vector<double> numbers(std::size_t n, unsigned seed) {
  std::vector<double> v(n);
  for (auto& x : v) {
    seed = seed * 1664525u + 1013904223u;
    x = static_cast<double>(seed >> 8) / 16777216.0 - 0.5;
  }
  return v;
}

// Exact equality, element by element: int against i64 or double against double.
template <class A, class B>
bool same(const std::vector<A>& a, const std::vector<B>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](A x, B y) { return x == y; });
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return s;
}

std::vector<standin_event> events() {
  std::vector<standin_event> out(standin_event_count());
  for (int i = 0; i < static_cast<int>(out.size()); ++i) standin_event_get(i, &out[i]);
  return out;
}

int count(const std::vector<standin_event>& log, int kind) {
  int n = 0;
  for (const auto& e : log) n += e.kind == kind;
  return n;
}

const standin_event* first(const std::vector<standin_event>& log, int kind) {
  for (const auto& e : log)
    if (e.kind == kind) return &e;
  return nullptr;
}

// One call of a routine through the layer, able to run more than once.
struct Call {
  const char* name;  // upper-case name in reports
  std::function<void()> run;
  int* info;  // null for a routine without INFO
};

// --- Results: the layer against the stand-in's own entries ----------------
// (The BLAS and DGETRF/DGETRS are the netlib programs' to check: see
// windows_lp64_programs.)

void lapack_arrays() {
  const int n = 9, lda = 10;
  const i64 n64 = n, lda64 = lda;
  int info = 7;
  i64 info64 = 7;

  // The integer workspace's query: LIWORK's answer comes back in IWORK(1).
  auto s = numbers(lda * n, 13);
  double wq1 = 0, wq2 = 0;
  int iq1 = 0, minus1 = -1;
  i64 iq2 = 0, minus1_64 = -1;
  std::vector<double> w1(n), w2(n);
  VORN_instable_DSYEVD_("V", "U", &n, s.data(), &lda, w1.data(), &wq1, &minus1, &iq1, &minus1, &info);
  mkl_lapack_dsyevd("V", "U", &n64, s.data(), &lda64, w2.data(), &wq2, &minus1_64, &iq2, &minus1_64, &info64, 1, 1);
  check(wq1 == wq2 && iq1 == iq2 && iq1 > 1 && info == 0, "DSYEVD's workspace query");

  // Outputs in three integer arrays and two integer scalars.
  std::vector<double> d = numbers(n, 14), e = numbers(n, 15), w(n), work4(4 * n);
  const double vl = 0, vu = 0, tol = 0;
  const int il = 2, iu = 6;
  const i64 il64 = 2, iu64 = 6;
  int m = -1, nsplit = -1;
  i64 m64 = -1, nsplit64 = -1;
  std::vector<int> iblock(n, -9), isplit(n, -9), iw3(3 * n);
  std::vector<i64> iblock64(n, -9), isplit64(n, -9), iw3_64(3 * n);
  std::vector<double> wv(n);
  VORN_instable_dstebz("I", "B", &n, &vl, &vu, &il, &iu, &tol, d.data(), e.data(), &m, &nsplit, w.data(),
                       iblock.data(), isplit.data(), work4.data(), iw3.data(), &info);
  mkl_lapack_dstebz("I", "B", &n64, &vl, &vu, &il64, &iu64, &tol, d.data(), e.data(), &m64, &nsplit64, wv.data(),
                    iblock64.data(), isplit64.data(), work4.data(), iw3_64.data(), &info64, 1, 1);
  check(m == m64 && nsplit == nsplit64 && same(w, wv), "DSTEBZ's counts and eigenvalues");
  iblock.resize(m), iblock64.resize(m), isplit.resize(nsplit), isplit64.resize(nsplit);
  check(same(iblock, iblock64) && same(isplit, isplit64), "DSTEBZ's IBLOCK and ISPLIT");
}

// SELECT callbacks are handed on unchanged: the stand-in calls this one.
int select_positive(const double* re, const double*) { return *re > 0 ? 1 : 0; }

void lapack_logical() {
  const int n = 8, lda = 8, lwork = 64;
  const i64 n64 = n, lda64 = lda, lwork64 = lwork;
  auto a = numbers(lda * n, 21);
  auto a1 = a, a2 = a;
  std::vector<double> wr1(n), wi1(n), wr2(n), wi2(n), vs1(lda * n), vs2(lda * n), work(lwork);
  std::vector<int> bwork(n);
  std::vector<i64> bwork64(n);
  int sdim = -1, info = -1;
  i64 sdim64 = -1, info64 = -1;
  void* select = reinterpret_cast<void*>(&select_positive);
  VORN_instable_DGEES("V", "S", select, &n, a1.data(), &lda, &sdim, wr1.data(), wi1.data(), vs1.data(), &lda,
                      work.data(), &lwork, bwork.data(), &info);
  mkl_lapack_dgees("V", "S", select, &n64, a2.data(), &lda64, &sdim64, wr2.data(), wi2.data(), vs2.data(), &lda64,
                   work.data(), &lwork64, bwork64.data(), &info64, 1, 1);
  check(info == 0 && sdim == sdim64 && sdim > 0 && same(a1, a2) && same(wr1, wr2) && same(vs1, vs2),
        "DGEES with a SELECT callback and BWORK");
}

// Two threads sort the same matrix with different SELECTs at once: each call
// must be called back with its own.
int select_all(const double*, const double*) { return 1; }

int sorted_count(int (*select)(const double*, const double*)) {
  const int n = 8, lda = 8, lwork = 64;
  auto a = numbers(lda * n, 21);
  std::vector<double> wr(n), wi(n), vs(lda * n), work(lwork);
  std::vector<int> bwork(n);
  int sdim = -1, info = -1;
  VORN_instable_DGEES("V", "S", reinterpret_cast<void*>(select), &n, a.data(), &lda, &sdim, wr.data(), wi.data(),
                      vs.data(), &lda, work.data(), &lwork, bwork.data(), &info);
  return info == 0 ? sdim : -1;
}

struct SortingJob {
  int (*select)(const double*, const double*);
  int expected, wrong;
};
volatile LONG sorters_ready = 0;

// Both threads start sorting together: a thread starts in milliseconds
// under wine, longer than many calls take.
DWORD WINAPI sort_repeatedly(void* job) {
  auto* j = static_cast<SortingJob*>(job);
  InterlockedIncrement(&sorters_ready);
  while (sorters_ready < 2) YieldProcessor();
  for (int round = 0; round < 1000; ++round) j->wrong += sorted_count(j->select) != j->expected;
  return 0;
}

void select_from_two_threads() {
  SortingJob jobs[2] = {{select_positive, sorted_count(select_positive), 0}, {select_all, sorted_count(select_all), 0}};
  check(jobs[0].expected > 0 && jobs[0].expected < 8 && jobs[1].expected == 8, "DGEES sorts each way");
  HANDLE threads[2];
  for (int i = 0; i < 2; ++i) threads[i] = CreateThread(nullptr, 0, sort_repeatedly, &jobs[i], 0, nullptr);
  WaitForMultipleObjects(2, threads, TRUE, INFINITE);
  for (HANDLE t : threads) CloseHandle(t);
  check(jobs[0].wrong == 0 && jobs[1].wrong == 0,
        "each thread's DGEES called its own SELECT: " + std::to_string(jobs[0].wrong + jobs[1].wrong) +
            " of 2000 sorted the other way");
}

// The name is read over its given length only.
void services() {
  const int one = 1, n = 1000, minus1 = -1;
  const i64 one64 = 1, n64 = 1000, minus1_64 = -1;
  const int nb = VORN_instable_ILAENV(&one, "DGEQRFXYZ", " ", &n, &n, &minus1, &minus1, 6, 1);
  const i64 direct = mkl_lapack_ilaenv(&one64, "DGEQRF", " ", &n64, &n64, &minus1_64, &minus1_64, 6, 1);
  check(nb > 1 && nb == direct, "ILAENV reads NAME over its length: " + std::to_string(nb) + " against " +
                                    std::to_string(direct));
}

// --- The frame, as the stand-in saw it ------------------------------------

void hooks_before_a_lapack_call() {
  const int n = 4, lda = 4;
  std::vector<double> a = numbers(16, 31);
  std::vector<int> ipiv(n);
  int info = 0;

  standin_reset();
  VORN_instable_dgetrf(&n, &n, a.data(), &lda, ipiv.data(), &info);
  auto log = events();
  const standin_event* xerbla = first(log, STANDIN_SET_XERBLA);
  const standin_event* progress = first(log, STANDIN_SET_PROGRESS);
  check(xerbla != nullptr && progress != nullptr && xerbla < progress, "DGETRF installs XERBLA, then progress");
  check(xerbla != nullptr && xerbla->entry_calls == 0 && progress->entry_calls == 0 && standin_entry_calls() == 1,
        "the hooks are installed before the entry is called");
  HMODULE vorn = GetModuleHandleA("vorn.dll");
  MEMORY_BASIC_INFORMATION where{};
  check(xerbla != nullptr && VirtualQuery(xerbla->pointer, &where, sizeof where) != 0 &&
            where.AllocationBase == vorn,
        "the installed XERBLA is the layer's own");
}

void reports() {
  const int n = 4, bad = 0, m = -3;
  std::vector<double> a(16), b(16), c(16);
  int info = 0;
  const double one = 1;
  standin_set_printing(0);

  standin_reset();
  VORN_instable_dgemm("X", "N", &n, &n, &n, &one, a.data(), &n, b.data(), &n, &one, c.data(), &bad);
  auto log = events();
  const standin_event* r = first(log, STANDIN_DEFAULT_REPORT);
  check(r != nullptr && std::string(r->name) == "DGEMM " && r->position == 1 && r->length == 6 &&
            standin_entry_calls() == 0,
        "DGEMM's checker reports TRANSA as \"DGEMM \", 1, 6 and stops");

  // A bad argument found by the computational routine itself reaches the
  // installed handler, which ends in the default report.
  standin_reset();
  std::vector<double> tau(4), work(64);
  const int lwork = 64;
  VORN_instable_dgerqf(&m, &n, a.data(), &n, tau.data(), work.data(), &lwork, &info);
  log = events();
  r = first(log, STANDIN_DEFAULT_REPORT);
  check(info == -1 && r != nullptr && std::string(r->name, 6) == "DGERQF" && r->position == 1 &&
            count(log, STANDIN_LIBRARY_REPORT) == 1,
        "DGERQF's own report reaches the default handler through the layer's");
  standin_set_printing(1);
}

// Every scratch allocation of a LAPACK and a BLAS call, refused in turn:
// INFO -1023, the report under the routine's name with 1089, nothing held,
// nothing called.
void scratch_refusal(const std::vector<Call>& calls) {
  standin_set_printing(0);
  for (const Call& call : calls) {
    standin_reset();
    call.run();
    const int points = count(events(), STANDIN_ALLOCATE);
    check(points > 0, std::string(call.name) + " obtains scratch arrays");
    for (int k = 1; k <= points; ++k) {
      standin_reset();
      standin_refuse_allocation(k);
      if (call.info) *call.info = 5;
      call.run();
      auto log = events();
      const standin_event* r = first(log, STANDIN_DEFAULT_REPORT);
      const std::string what = std::string(call.name) + ", allocation " + std::to_string(k) + " refused";
      check(r != nullptr && std::string(r->name) == call.name && r->position == 1089 &&
                r->length == static_cast<long long>(std::strlen(call.name)),
            what + ": report");
      check(!call.info || *call.info == -1023, what + ": INFO");
      check(standin_live_allocations() == 0 && count(log, STANDIN_ALLOCATE) == k - 1, what + ": released");
      // DGELSD asks ILAENV for its tree's leaf size first; after the refusal
      // nothing more may happen.
      const std::string entry = std::string(call.info ? "mkl_lapack_" : "mkl_blas_") + lower(call.name);
      bool hooked_after = false, refused = false;
      for (const auto& e : log) {
        refused = refused || e.kind == STANDIN_REFUSED;
        hooked_after = hooked_after || (refused && e.kind == STANDIN_SET_XERBLA);
      }
      check(standin_entry_calls_of(entry.c_str()) == 0 && !hooked_after, what + ": nothing called");
    }
  }
  standin_set_printing(1);
}

}  // namespace

// Over the bridge only: the stand-in runs the reference, which has no
// threads and reports no progress. The real library on two OpenMP threads of
// its own (the test sets MKL_NUM_THREADS=2) reports progress from them too:
// every call must reach the layer's handler, none may run Windows code on a
// thread wine does not know, and the factors must be the direct call's.
void library_threads() {
  const auto progress_calls = reinterpret_cast<long long(__cdecl*)(int)>(
      GetProcAddress(GetModuleHandleA("mkl_intel_thread.dll"), "standin_progress_calls"));
  if (progress_calls == nullptr) return;
  const int n = 1500;
  const i64 n64 = n;
  auto a = numbers(static_cast<std::size_t>(n) * n, 7), direct = a;
  std::vector<int> ipiv(n);
  std::vector<i64> ipiv64(n);
  int info = -1;
  i64 info64 = -1;
  VORN_instable_dgetrf(&n, &n, a.data(), &n, ipiv.data(), &info);
  const long long caller = progress_calls(0), library = progress_calls(1), stray = progress_calls(2);
  mkl_lapack_dgetrf(&n64, &n64, direct.data(), &n64, ipiv64.data(), &info64);
  double largest = 0;
  for (std::size_t i = 0; i < a.size(); ++i) largest = std::max(largest, std::abs(a[i] - direct[i]));
  check(info == 0 && info64 == 0 && same(ipiv, ipiv64) && largest < 1e-9, "DGETRF on two threads");
  check(caller > 0 && library > 0 && stray == 0,
        "progress: " + std::to_string(caller) + " calls on the caller's thread, " + std::to_string(library) +
            " relayed from the library's, " + std::to_string(stray) + " ran Windows code on the library's");
}

int main() {
  static const int n = 6, lda = 6, nrhs = 1;
  static std::vector<double> a = numbers(36, 41), b = numbers(6, 42), s(6), w(6), work(4096);
  static std::vector<int> iwork(512);
  static int info = 0, rank = 0, nz = 3;
  static const int lwork = 4096;
  static const double rcond = -1;
  static std::vector<int> indx = {1, 3, 5};
  const std::vector<Call> refusal_calls = {
      {"DGELSD", [] { auto c = a; auto x = b; VORN_instable_dgelsd(&n, &n, &nrhs, c.data(), &lda, x.data(), &lda,
                                                                   s.data(), &rcond, &rank, work.data(), &lwork,
                                                                   iwork.data(), &info); }, &info},
      {"DGTHR", [] { VORN_instable_dgthr(&nz, b.data(), w.data(), indx.data()); }, nullptr},
  };
  const std::vector<std::pair<const char*, std::function<void()>>> cases = {
      {"LAPACK integer arrays", lapack_arrays},
      {"LAPACK logical arrays and callbacks", lapack_logical},
      {"SELECT callbacks from two threads", select_from_two_threads},
      {"the library's own threads", library_threads},
      {"services", services},
      {"hooks", hooks_before_a_lapack_call},
      {"reports", reports},
      {"scratch refusal", [&] { scratch_refusal(refusal_calls); }},
  };
  int passed = 0, failed = 0;
  for (const auto& [name, run] : cases) {
    const int before = failures;
    std::printf("%s\n", name);
    run();
    (failures == before ? passed : failed)++;
  }
  std::printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
