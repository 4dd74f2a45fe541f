// A caller built for the MSVC ABI (clang, msvc target, lld-link, no MSVC
// runtime: the few C functions it needs come from msvcrt.dll). It includes
// only the library's header-free headers and reaches the typed entries and
// the allocator through their MSVC decorations. Each typed call must give
// what the plain call gives on a copy of the same data.
#include "vorn/vorn_stable.hpp"
#include "vorn_instable.h"

extern "C" {
int printf(const char*, ...);
void* memcpy(void*, const void*, unsigned long long);
int memcmp(const void*, const void*, unsigned long long);
__declspec(dllimport) void __stdcall ExitProcess(unsigned code);
struct ExceptionRecord { unsigned code; };
struct ExceptionPointers { ExceptionRecord* record; void* context; };
__declspec(dllimport) void* __stdcall SetUnhandledExceptionFilter(long(__stdcall* filter)(ExceptionPointers*));
// Named by MSVC-ABI objects that use floating point; no runtime defines it here.
int _fltused = 0;
}
void* VORN_MKL_AlignedAlloc(int alignment, unsigned long long size);
void VORN_MKL_AlignedFree(void* p);

namespace {

int failures = 0;
int cases = 0;

void check(bool ok, const char* what) {
  ++cases;
  if (!ok) {
    ++failures;
    printf("  FAIL: %s\n", what);
  }
}

template <class T>
Kessnar::AlignedPtr<T> at(T* p) { return Kessnar::AlignedPtr<T>{p}; }

void fill(double* x, int n, unsigned seed) {
  for (int i = 0; i < n; ++i) {
    seed = seed * 1664525u + 1013904223u;
    x[i] = static_cast<double>(seed >> 8) / 16777216.0 - 0.5;
  }
}

bool same(const void* a, const void* b, unsigned long long bytes) { return memcmp(a, b, bytes) == 0; }

int select_negative(const double* re, const double*) { return *re < 0; }

void blas_style() {
  double x[12], a[36], b[36], c1[36], c2[36];
  fill(x, 12, 1), fill(a, 36, 2), fill(b, 36, 3), fill(c1, 36, 4);
  memcpy(c2, c1, sizeof c1);
  const int n = 12, one = 1, m = 6;
  check(VORN_stable_DASUM(n, at<const double>(x), one) == VORN_instable_dasum(&n, x, &one), "DASUM's double result");
  const double alpha = 1.5, beta = -0.5;
  VORN_stable_DGEMM('T', 'N', m, m, m, alpha, at<const double>(a), m, at<const double>(b), m, beta, at(c1), m);
  VORN_instable_dgemm("T", "N", &m, &m, &m, &alpha, a, &m, b, &m, &beta, c2, &m);
  check(same(c1, c2, sizeof c1), "DGEMM: thirteen arguments by reference and AlignedPtr");
  const double za[2] = {0.5, -1}, zb[2] = {2, 0.25};
  const int three = 3;
  fill(c1, 36, 5);
  memcpy(c2, c1, sizeof c1);
  VORN_stable_ZGEMM('C', 'N', three, three, three, za, at<const double>(a), three, at<const double>(b), three, zb,
                    at(c1), three);
  VORN_instable_zgemm("C", "N", &three, &three, &three, za, a, &three, b, &three, zb, c2, &three);
  check(same(c1, c2, sizeof c1), "ZGEMM: complex scalars as pointers to their pairs");
}

void lapack_style() {
  const int n = 6;
  double a1[36], a2[36];
  fill(a1, 36, 7);
  memcpy(a2, a1, sizeof a1);
  int p1[6] = {}, p2[6] = {}, info1 = 9, info2 = 9;
  VORN_stable_DGETRF(n, n, at(a1), n, at(p1), info1);
  VORN_instable_dgetrf(&n, &n, a2, &n, p2, &info2);
  check(same(a1, a2, sizeof a1) && same(p1, p2, sizeof p1) && info1 == info2, "DGETRF: by value, pivots, INFO");

  // A callback as void*, BWORK as AlignedPtr<bool>.
  double g1[36], g2[36], wr1[6], wi1[6], wr2[6], wi2[6], vs1[36], vs2[36], w[64];
  fill(g1, 36, 8);
  memcpy(g2, g1, sizeof g1);
  int bwork[6], sdim1 = -1, sdim2 = -2;
  const int lwork = 64;
  void* select = reinterpret_cast<void*>(&select_negative);
  VORN_stable_DGEES('V', 'S', select, n, at(g1), n, sdim1, at(wr1), at(wi1), at(vs1), n, at(w), lwork,
                    at(reinterpret_cast<bool*>(bwork)), info1);
  VORN_instable_dgees("V", "S", select, &n, g2, &n, &sdim2, wr2, wi2, vs2, &n, w, &lwork, bwork, &info2);
  check(sdim1 == sdim2 && same(g1, g2, sizeof g1) && same(vs1, vs2, sizeof vs1), "DGEES: callback and BWORK");

  // Plain pointers, const themselves.
  const int m = 6, nn = 4, p = 2, lw = 64;
  double la1[24], lb1[8], lc1[6], ld1[2], lx1[4], la2[24], lb2[8], lc2[6], ld2[2], lx2[4];
  fill(la1, 24, 9), fill(lb1, 8, 10), fill(lc1, 6, 11), fill(ld1, 2, 12);
  memcpy(la2, la1, sizeof la1), memcpy(lb2, lb1, sizeof lb1), memcpy(lc2, lc1, sizeof lc1), memcpy(ld2, ld1, sizeof ld1);
  VORN_stable_DGGLSE(m, nn, p, la1, m, lb1, p, lc1, ld1, lx1, w, lw, info1);
  VORN_instable_dgglse(&m, &nn, &p, la2, &m, lb2, &p, lc2, ld2, lx2, w, &lw, &info2);
  check(same(lx1, lx2, sizeof lx1) && info1 == 0 && info2 == 0, "DGGLSE: double* const arrays");

  double f = 3, g = 4, cs = 0, sn = 0, r = 0, cs2 = 1, sn2 = 1, r2 = 1;
  VORN_stable_DLARTG(f, g, cs, sn, r);
  VORN_instable_dlartg(&f, &g, &cs2, &sn2, &r2);
  check(r == r2 && cs == cs2 && sn == sn2 && r != 0, "DLARTG: inputs by value, outputs by reference");
}

void allocator() {
  void* p = VORN_MKL_AlignedAlloc(64, 1000);
  check(p != nullptr && (reinterpret_cast<unsigned long long>(p) & 63) == 0, "an aligned block");
  VORN_MKL_AlignedFree(p);
  check(VORN_MKL_AlignedAlloc(64, 0) == nullptr, "size 0 gives null");
}

void finish() {
  printf("%d passed, %d failed\n", cases - failures, failures);
  ExitProcess(failures == 0 ? 0 : 1);
}

// A refused allocation raises the library's C++ exception as GCC's runtime
// throws it. An MSVC-ABI caller cannot catch that by type: it reaches the
// process as the unhandled structured exception 0x20474343, which the
// process's own last-chance filter sees.
long __stdcall last_chance(ExceptionPointers* info) {
  check(info->record->code == 0x20474343u, "a refused allocation surfaces as structured exception 0x20474343");
  finish();
  return 0;
}

}  // namespace

extern "C" void entry() {
  blas_style();
  lapack_style();
  allocator();
  SetUnhandledExceptionFilter(&last_chance);
  VORN_MKL_AlignedAlloc(64, 1ull << 62);
  check(false, "a refused allocation returned");
  finish();
}
