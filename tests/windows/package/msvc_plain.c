/* A C caller built for the MSVC ABI against lib/vorn.lib, with no header
 * but include/vorn_instable.h and no MSVC runtime (printf comes from
 * msvcrt.dll). Each call's result is known exactly in floating point. */
#include "vorn_instable.h"

int printf(const char* format, ...);
__declspec(dllimport) void __stdcall ExitProcess(unsigned code);
int _fltused = 0;
int entry(void);

static int failed = 0;

static void check(int ok, const char* what) {
  if (!ok) {
    printf("FAIL: %s\n", what);
    ++failed;
  }
}

int entry(void) {
  const int n = 3, one = 1;
  double x[3] = {1, 2, 3}, y[3] = {4, 5, 6};
  /* 2x3 times 3x2, column-major: thirteen arguments, nine on the stack. */
  double a[6] = {1, 4, 2, 5, 3, 6}, b[6] = {1, 0, 1, 0, 1, 1}, c[4] = {0, 0, 0, 0};
  const int m = 2, k = 3;
  const double alpha = 1, beta = 0;
  double spd[9] = {4, 12, -16, 12, 37, -43, -16, -43, 98};
  int info = -1;
  /* conj(1+2i) * (3+4i) = 11 - 2i */
  double zx[2] = {1, 2}, zy[2] = {3, 4}, z[2] = {0, 0};
  check(VORN_instable_ddot(&n, x, &one, y, &one) == 32, "DDOT");
  VORN_instable_DGEMM("N", "N", &m, &m, &k, &alpha, a, &m, b, &k, &beta, c, &m);
  check(c[0] == 4 && c[1] == 10 && c[2] == 5 && c[3] == 11, "DGEMM");
  VORN_instable_dpotrf_("U", &n, spd, &n, &info);
  check(info == 0 && spd[0] == 2 && spd[4] == 1 && spd[8] == 3, "DPOTRF");
  VORN_instable_zdotc(z, &one, zx, &one, zy, &one);
  check(z[0] == 11 && z[1] == -2, "ZDOTC's result through its first argument");
  printf("msvc plain: %s\n", failed ? "failed" : "passed");
  ExitProcess((unsigned)failed);
  return failed;
}
