/* The stand-in's own check, run under wine by build.sh: a few entries called
   as the layer calls them (64-bit integers, lengths as int, complex results
   through a leading address), against hand-worked values, plus the
   counters, the allocation refusal and the report log. */
#include <complex.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "standin.h"

typedef int64_t i64;
static const i64 SENTINEL = 0x7777777777777777LL;

void mkl_blas_dgemm(const char*, const char*, const i64*, const i64*, const i64*, const double*, const double*,
                    const i64*, const double*, const i64*, const double*, double*, const i64*);
void mkl_lapack_dgetrf(const i64*, const i64*, double*, const i64*, i64*, i64*, int);
void mkl_blas_zdotc(double _Complex*, const i64*, const double _Complex*, const i64*, const double _Complex*,
                    const i64*);
void mkl_blas_cdotu(float _Complex*, const i64*, const float _Complex*, const i64*, const float _Complex*,
                    const i64*);
void mkl_lapack_zladiv(double _Complex*, const double _Complex*, const double _Complex*);
void mkl_lapack_cladiv(float _Complex*, const float _Complex*, const float _Complex*);
/* ILAENV's lengths through 64-bit slots with junk above the int the layer passes. */
i64 ilaenv_slots(const i64*, const char*, const char*, const i64*, const i64*, const i64*, const i64*, long long,
                 long long) __asm__("mkl_lapack_ilaenv");
i64 mkl_lapack_ilaenv(const i64*, const char*, const char*, const i64*, const i64*, const i64*, const i64*, int, int);
i64 mkl_lapack_lsamen(const i64*, const char*, const char*, i64, i64);
void mkl_lapack_chla_transtype(char*, int, const i64*);
void mkl_lapack_dsyevd(const char*, const char*, const i64*, double*, const i64*, double*, double*, const i64*,
                       i64*, const i64*, i64*, int, int);
void mkl_lapack_xerbla_array(const char*, const i64*, const i64*, int);
double mkl_blas_ddoti(const i64*, const double*, const i64*, const double*);
void mkl_blas_zdotci(double _Complex*, const i64*, const double _Complex*, const i64*, const double _Complex*);
i64 mkl_blas_idamin(const i64*, const double*, const i64*);
void mkl_blas_scgemm(const char*, const char*, const i64*, const i64*, const i64*, const float _Complex*,
                     const float*, const i64*, const float _Complex*, const i64*, const float _Complex*,
                     float _Complex*, const i64*);
void mkl_spblas_lp64_mkl_dcsrmultcsr(const char*, const int*, const int*, const int*, const int*, const int*,
                                     double*, int*, int*, double*, int*, int*, double*, int*, int*, const int*,
                                     int*);
void* mkl_serv_set_xerbla_interface(void (*)(const char*, const void*, long long));
void* mkl_serv_allocate(size_t, int);
void mkl_serv_deallocate(void*);
void* mkl_serv_malloc(size_t, int);
void mkl_serv_free(void*);
void mkl_serv_default_xerbla(const char*, const void*, long long);

static int failures;
#define CHECK(cond)                                                     \
  do {                                                                  \
    if (!(cond)) {                                                      \
      printf("FAILED line %d: %s\n", __LINE__, #cond);                  \
      failures++;                                                       \
    }                                                                   \
  } while (0)
#define NEAR(a, b) (fabs((double)(a) - (double)(b)) < 1e-6)

static char handled_name[64];
static i64 handled_position, handled_length;
static void handler(const char* name, const void* position, long long length) {
  memcpy(handled_name, name, length < 63 ? (size_t)length : 63);
  handled_position = *(const i64*)position;
  handled_length = length;
}

static int callback_calls;
static void on_report(const char* name, long long position, long long length, void* context) {
  (void)name, (void)position, (void)length;
  callback_calls += *(int*)context;
}

static standin_event event(int i) {
  standin_event e;
  memset(&e, 0, sizeof e);
  CHECK(standin_event_get(i, &e));
  return e;
}

int main(void) {
  standin_reset();
  const i64 one = 1, two = 2, three = 3;

  /* DGEMM: [1 2; 3 4] * [5 6; 7 8] = [19 22; 43 50], column-major. */
  double a[4] = {1, 3, 2, 4}, b[4] = {5, 7, 6, 8}, c[4] = {0}, alpha = 1, beta = 0;
  mkl_blas_dgemm("N", "N", &two, &two, &two, &alpha, a, &two, b, &two, &beta, c, &two);
  CHECK(c[0] == 19 && c[1] == 43 && c[2] == 22 && c[3] == 50);
  CHECK(standin_entry_calls() == 1 && standin_entry_calls_of("mkl_blas_dgemm") == 1);
  CHECK(standin_entry_calls_of("mkl_blas_sgemm") == 0 && standin_entry_calls_of("no_such_entry") == -1);

  /* DGETRF of [0 1; 2 3]: rows swap, U = [2 3; 0 1], L = I; 64-bit pivots. */
  double lu[4] = {0, 2, 1, 3};
  i64 ipiv[3] = {SENTINEL, SENTINEL, SENTINEL}, info = SENTINEL;
  mkl_lapack_dgetrf(&two, &two, lu, &two, ipiv, &info, 0);
  CHECK(info == 0 && ipiv[0] == 2 && ipiv[1] == 2 && ipiv[2] == SENTINEL);
  CHECK(lu[0] == 2 && lu[1] == 0 && lu[2] == 3 && lu[3] == 1);

  /* ZDOTC: conj(1+2i)(2+i) + conj(3-i)(1+i) = 6+i; the result lands in place. */
  double _Complex zx[2] = {1 + 2 * I, 3 - I}, zy[2] = {2 + I, 1 + I}, zr[3] = {7, 7, 7};
  mkl_blas_zdotc(&zr[1], &two, zx, &one, zy, &one);
  CHECK(zr[1] == 6 + I && zr[0] == 7 && zr[2] == 7);
  /* CDOTU: (1+2i)(2+i) + (3-i)(1+i) = 4+7i. */
  float _Complex cx[2] = {1 + 2 * I, 3 - I}, cy[2] = {2 + I, 1 + I}, cr[3] = {7, 7, 7};
  mkl_blas_cdotu(&cr[1], &two, cx, &one, cy, &one);
  CHECK(cr[1] == 4 + 7 * I && cr[0] == 7 && cr[2] == 7);
  /* (1+2i)/(3+4i) = 0.44+0.08i */
  double _Complex zn = 1 + 2 * I, zd = 3 + 4 * I, zq = 0;
  mkl_lapack_zladiv(&zq, &zn, &zd);
  CHECK(NEAR(creal(zq), 0.44) && NEAR(cimag(zq), 0.08));
  float _Complex cn = 1 + 2 * I, cd = 3 + 4 * I, cq = 0;
  mkl_lapack_cladiv(&cq, &cn, &cd);
  CHECK(NEAR(crealf(cq), 0.44) && NEAR(cimagf(cq), 0.08));

  /* ILAENV: the reference block size of ?GETRF is 64; a name cut to "DGE"
     by its length names no routine and gets 1. */
  const i64 ispec = 1, n = 100, unused = -1;
  const char name[8] = {'D', 'G', 'E', 'T', 'R', 'F', 'Q', 'Q'};
  const long long junk = 0x5a5a5a5a00000000LL;
  CHECK(ilaenv_slots(&ispec, name, " ", &n, &unused, &unused, &unused, junk | 6, junk | 1) == 64);
  CHECK(mkl_lapack_ilaenv(&ispec, name, " ", &n, &unused, &unused, &unused, 3, 1) == 1);
  CHECK(mkl_lapack_lsamen(&two, "ABC", "abd", 3, 3) == 1 && mkl_lapack_lsamen(&three, "ABC", "abd", 3, 3) == 0);
  const i64 trans = 113; /* BLAS_CONJ_TRANS */
  char letter[2] = {'?', '!'};
  mkl_lapack_chla_transtype(letter, 1, &trans);
  CHECK(letter[0] == 'C' && letter[1] == '!');

  /* DSYEVD of [2 1; 1 2]: eigenvalues 1 and 3, vectors (1,-1)/sqrt2, (1,1)/sqrt2. */
  double s[4] = {2, 1, 1, 2}, w[2], work[21];
  i64 iwork[13], lwork = 21, liwork = 13;
  info = SENTINEL;
  mkl_lapack_dsyevd("V", "U", &two, s, &two, w, work, &lwork, iwork, &liwork, &info, 1, 1);
  CHECK(info == 0 && NEAR(w[0], 1) && NEAR(w[1], 3));
  CHECK(NEAR(fabs(s[0]), M_SQRT1_2) && NEAR(s[0], -s[1]) && NEAR(s[2], s[3]) && NEAR(fabs(s[2]), M_SQRT1_2));

  /* MKL-only routines. */
  const double sx[2] = {2, 5}, sy[4] = {1, 10, 100, 1000};
  const i64 indx[2] = {4, 2};
  CHECK(mkl_blas_ddoti(&two, sx, indx, sy) == 2050);
  double _Complex zdi = 0;
  mkl_blas_zdotci(&zdi, &one, zx, &two, zy);
  CHECK(zdi == conj(zx[0]) * zy[1]);
  const double least[3] = {3, -1, 2};
  CHECK(mkl_blas_idamin(&three, least, &one) == 2);
  const float ra[1] = {2};
  const float _Complex cb[1] = {1 + I}, calpha = 1, cbeta = 0;
  float _Complex cc[1] = {9};
  mkl_blas_scgemm("T", "N", &one, &one, &one, &calpha, ra, &one, cb, &one, &cbeta, cc, &one);
  CHECK(cc[0] == 2 + 2 * I);

  /* CSR: [1 0 2; 0 3 0] * [1 0; 0 1; 4 0] = [9 0; 0 3], in two stages. */
  int ia[3] = {1, 3, 4}, ja[3] = {1, 3, 2}, ib[4] = {1, 2, 3, 4}, jb[3] = {1, 2, 1};
  double va[3] = {1, 2, 3}, vb[3] = {1, 1, 4}, vc[3] = {0};
  int ic[4] = {0}, jc[3] = {0}, m = 2, k3 = 3, k2 = 2, request = 1, sort = 7, nnzmax = 0, csr_info = -5;
  mkl_spblas_lp64_mkl_dcsrmultcsr("N", &request, &sort, &m, &k3, &k2, va, ja, ia, vb, jb, ib, vc, jc, ic, &nnzmax,
                                  &csr_info);
  CHECK(csr_info == 0 && ic[0] == 1 && ic[1] == 2 && ic[2] == 3);
  request = 2;
  mkl_spblas_lp64_mkl_dcsrmultcsr("N", &request, &sort, &m, &k3, &k2, va, ja, ia, vb, jb, ib, vc, jc, ic, &nnzmax,
                                  &csr_info);
  CHECK(csr_info == 0 && jc[0] == 1 && jc[1] == 2 && vc[0] == 9 && vc[1] == 3);
  /* A' * I: [1 0; 0 3; 2 0]; with room for one entry it stops at row 2. */
  int ii[3] = {1, 2, 3}, ji[2] = {1, 2};
  double vi[2] = {1, 1};
  request = 0, nnzmax = 3;
  mkl_spblas_lp64_mkl_dcsrmultcsr("T", &request, &sort, &m, &k3, &k2, va, ja, ia, vi, ji, ii, vc, jc, ic, &nnzmax,
                                  &csr_info);
  CHECK(csr_info == 0 && ic[0] == 1 && ic[1] == 2 && ic[2] == 3 && ic[3] == 4);
  CHECK(jc[0] == 1 && jc[1] == 2 && jc[2] == 1 && vc[0] == 1 && vc[1] == 3 && vc[2] == 2);
  nnzmax = 1;
  mkl_spblas_lp64_mkl_dcsrmultcsr("T", &request, &sort, &m, &k3, &k2, va, ja, ia, vi, ji, ii, vc, jc, ic, &nnzmax,
                                  &csr_info);
  CHECK(csr_info == 2);

  /* Allocation: the 2nd from now on fails once; the log and live count follow. */
  standin_reset();
  standin_refuse_allocation(2);
  void* p1 = mkl_serv_allocate(100, 64);
  void* p2 = mkl_serv_allocate(100, 64);
  void* p3 = mkl_serv_malloc(8, 16);
  CHECK(p1 && !p2 && p3 && ((uintptr_t)p1 % 64) == 0);
  CHECK(standin_live_allocations() == 2);
  mkl_serv_deallocate(p1);
  mkl_serv_free(p3);
  CHECK(standin_live_allocations() == 0 && standin_event_count() == 5);
  CHECK(event(0).kind == STANDIN_ALLOCATE && event(0).size == 100 && event(0).pointer == p1);
  CHECK(event(1).kind == STANDIN_REFUSED && event(2).kind == STANDIN_MALLOC);
  CHECK(event(3).kind == STANDIN_DEALLOCATE && event(4).kind == STANDIN_FREE && event(4).pointer == p3);
  CHECK(event(0).caller != NULL);
  standin_refuse_all_allocations(1);
  CHECK(mkl_serv_malloc(8, 8) == NULL && mkl_serv_allocate(8, 8) == NULL);
  standin_refuse_all_allocations(0);

  /* Reports: the reference XERBLA goes to the default handler (which prints)
     until a handler is installed; each carries name, 64-bit position, length. */
  standin_reset();
  int weight = 1;
  standin_set_report_callback(on_report, &weight);
  const i64 bad = -1;
  mkl_lapack_dgetrf(&bad, &two, lu, &two, ipiv, &info, 0);
  CHECK(info == -1 && standin_event_count() == 2);
  standin_event e = event(0);
  CHECK(e.kind == STANDIN_LIBRARY_REPORT && strcmp(e.name, "DGETRF") == 0 && e.position == 1 && e.length == 6);
  CHECK(e.entry_calls == 1);
  e = event(1);
  CHECK(e.kind == STANDIN_DEFAULT_REPORT && strcmp(e.name, "DGETRF") == 0 && e.position == 1 && e.length == 6);
  CHECK(callback_calls == 1);
  standin_set_report_callback(NULL, NULL);

  standin_set_printing(0);
  mkl_serv_set_xerbla_interface(handler);
  mkl_lapack_dgetrf(&two, &two, lu, &one, ipiv, &info, 0);
  CHECK(info == -4 && handled_position == 4 && handled_length == 6 && strcmp(handled_name, "DGETRF") == 0);
  CHECK(event(2).kind == STANDIN_SET_XERBLA && event(2).pointer == (void*)handler && event(2).entry_calls == 1);
  CHECK(event(3).kind == STANDIN_LIBRARY_REPORT && event(3).entry_calls == 2 && standin_event_count() == 4);
  const i64 five = 5;
  mkl_lapack_xerbla_array("DGEMMX", &five, &three, 0);
  CHECK(handled_length == 32 && handled_position == 3 && memcmp(handled_name, "DGEMM   ", 8) == 0);
  mkl_serv_set_xerbla_interface(NULL);
  const i64 seven = 7;
  mkl_serv_default_xerbla("ZGEMM ", &seven, 6);
  e = event(standin_event_count() - 1);
  CHECK(e.kind == STANDIN_DEFAULT_REPORT && e.position == 7 && e.length == 6 && strcmp(e.name, "ZGEMM ") == 0);
  standin_set_printing(1);

  printf("standin_check: %s (%d failure%s)\n", failures ? "FAILED" : "passed", failures, failures == 1 ? "" : "s");
  return failures != 0;
}
