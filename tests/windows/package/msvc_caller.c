/* A C program built for the MSVC ABI against the archive's import
 * libraries, with no header but include/vorn_instable.h and no MSVC
 * runtime (printf comes from msvcrt.dll). Through vorn.lib: the plain
 * family, results exact in floating point. Through libblas.lib and
 * liblapack.lib, as a program written for the reference calls them: a
 * row-major CBLAS product, a bad leading dimension (its report at CBLAS's
 * position 9 is the run's expected output) and DPOTRF. */
#include "vorn_instable.h"

int printf(const char* format, ...);
__declspec(dllimport) void __stdcall ExitProcess(unsigned code);
void cblas_dgemm(int order, int transa, int transb, int m, int n, int k, double alpha, const double* a,
                 int lda, const double* b, int ldb, double beta, double* c, int ldc);
void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info, unsigned long long uplo_len);
int _fltused = 0;
int entry(void);

static unsigned failed = 0;

static void check(int ok, const char* what) {
  if (!ok) printf("FAIL: %s\n", what), ++failed;
}

int entry(void) {
  const int n = 3, one = 1, two = 2;
  const double alpha = 1, beta = 0;
  /* A = [1 2 3; 4 5 6], B = [1 0; 0 1; 1 1]: A B = [4 5; 10 11]. */
  const double a_cols[6] = {1, 4, 2, 5, 3, 6}, b_cols[6] = {1, 0, 1, 0, 1, 1};
  const double a_rows[6] = {1, 2, 3, 4, 5, 6}, b_rows[6] = {1, 0, 0, 1, 1, 1};
  double c[4] = {0, 0, 0, 0}, r[4] = {0, 0, 0, 0}, zx[2] = {1, 2}, zy[2] = {3, 4}, z[2] = {0, 0};
  double s1[9] = {4, 12, -16, 12, 37, -43, -16, -43, 98}, s2[9] = {4, 12, -16, 12, 37, -43, -16, -43, 98};
  int i1 = -1, i2 = -1;
  VORN_instable_DGEMM("N", "N", &two, &two, &n, &alpha, a_cols, &two, b_cols, &n, &beta, c, &two);
  check(c[0] == 4 && c[1] == 10 && c[2] == 5 && c[3] == 11, "DGEMM: thirteen arguments");
  VORN_instable_zdotc(z, &one, zx, &one, zy, &one);
  check(z[0] == 11 && z[1] == -2, "ZDOTC's result through its first argument");
  cblas_dgemm(101, 111, 111, 2, 2, 3, 1, a_rows, 3, b_rows, 2, 0, r, 2);
  check(r[0] == 4 && r[1] == 5 && r[2] == 10 && r[3] == 11, "row-major cblas_dgemm");
  cblas_dgemm(101, 111, 111, 2, 2, 3, 1, a_rows, 2, b_rows, 2, 0, c, 2);
  check(c[0] == 4, "cblas_dgemm with a bad LDA left C alone");
  VORN_instable_dpotrf_("U", &n, s1, &n, &i1);
  dpotrf_("U", &n, s2, &n, &i2, 1);
  /* The Cholesky factor of this matrix has the diagonal 2, 1, 3. */
  check(i1 == 0 && i2 == 0 && s1[0] == 2 && s1[4] == 1 && s1[8] == 3 && s2[0] == 2 && s2[8] == 3, "DPOTRF");
  printf("msvc caller: %s\n", failed ? "failed" : "passed");
  ExitProcess(failed);
  return 0;
}
