/* A C caller built for the MSVC ABI against lib/libblas.lib and
 * lib/liblapack.lib: the standard names, as a program written for the
 * reference libraries calls them. A row-major CBLAS product, a bad leading
 * dimension (its report, CBLAS's position 9, is the run's expected output)
 * and a LAPACK routine through liblapack.dll. */
int printf(const char* format, ...);
__declspec(dllimport) void __stdcall ExitProcess(unsigned code);
void cblas_dgemm(int order, int transa, int transb, int m, int n, int k, double alpha, const double* a,
                 int lda, const double* b, int ldb, double beta, double* c, int ldc);
void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info, unsigned long long uplo_len);
int _fltused = 0;
int entry(void);

enum { RowMajor = 101, NoTrans = 111 };

int entry(void) {
  /* Row-major 2x3 times 3x2. */
  const double a[6] = {1, 2, 3, 4, 5, 6}, b[6] = {1, 0, 0, 1, 1, 1};
  double c[4] = {0, 0, 0, 0}, spd[9] = {4, 12, -16, 12, 37, -43, -16, -43, 98};
  const int n = 3;
  int info = -1, failed = 0;
  cblas_dgemm(RowMajor, NoTrans, NoTrans, 2, 2, 3, 1, a, 3, b, 2, 0, c, 2);
  if (c[0] != 4 || c[1] != 5 || c[2] != 10 || c[3] != 11) printf("FAIL: row-major DGEMM\n"), ++failed;
  c[0] = -1;
  cblas_dgemm(RowMajor, NoTrans, NoTrans, 2, 2, 3, 1, a, 2, b, 2, 0, c, 2);
  if (c[0] != -1) printf("FAIL: DGEMM with a bad LDA wrote its result\n"), ++failed;
  dpotrf_("U", &n, spd, &n, &info, 1);
  if (info != 0 || spd[0] != 2 || spd[4] != 1 || spd[8] != 3) printf("FAIL: DPOTRF\n"), ++failed;
  printf("msvc cblas: %s\n", failed ? "failed" : "passed");
  ExitProcess((unsigned)failed);
  return failed;
}
