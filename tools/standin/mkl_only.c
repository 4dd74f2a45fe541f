/* Routines MKL has and the reference BLAS/LAPACK lacks, written from MKL's
   published descriptions: sparse level 1 (64-bit one-based index arrays),
   I?AMIN, SCGEMM/DZGEMM (real A, complex B and C), the CSR product with
   32-bit integers, and the band reductions that are not emulated. */
#include <complex.h>
#include <ctype.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef int64_t i64;

void xerbla_(const char* srname, const i64* info, size_t length);

/* ---- sparse level 1: y(indx(i)) with indx one-based ---- */

#define SPARSE(T, p)                                                                                     \
  void standin_##p##axpyi(const i64* nz, const T* a, const T* x, const i64* indx, T* y) {              \
    for (i64 i = 0; i < *nz; i++) y[indx[i] - 1] += *a * x[i];                                          \
  }                                                                                                      \
  void standin_##p##gthr(const i64* nz, const T* y, T* x, const i64* indx) {                            \
    for (i64 i = 0; i < *nz; i++) x[i] = y[indx[i] - 1];                                                \
  }                                                                                                      \
  void standin_##p##gthrz(const i64* nz, T* y, T* x, const i64* indx) {                                 \
    for (i64 i = 0; i < *nz; i++) {                                                                      \
      x[i] = y[indx[i] - 1];                                                                             \
      y[indx[i] - 1] = 0;                                                                                \
    }                                                                                                    \
  }                                                                                                      \
  void standin_##p##sctr(const i64* nz, const T* x, const i64* indx, T* y) {                            \
    for (i64 i = 0; i < *nz; i++) y[indx[i] - 1] = x[i];                                                \
  }
SPARSE(float, s)
SPARSE(double, d)
SPARSE(float _Complex, c)
SPARSE(double _Complex, z)

#define REAL_SPARSE(T, p)                                                                                \
  T standin_##p##doti(const i64* nz, const T* x, const i64* indx, const T* y) {                        \
    T sum = 0;                                                                                           \
    for (i64 i = 0; i < *nz; i++) sum += x[i] * y[indx[i] - 1];                                         \
    return sum;                                                                                          \
  }                                                                                                      \
  void standin_##p##roti(const i64* nz, T* x, const i64* indx, T* y, const T* c, const T* s) {         \
    for (i64 i = 0; i < *nz; i++) {                                                                      \
      T xi = x[i], yi = y[indx[i] - 1];                                                                  \
      x[i] = *c * xi + *s * yi;                                                                          \
      y[indx[i] - 1] = *c * yi - *s * xi;                                                                \
    }                                                                                                    \
  }
REAL_SPARSE(float, s)
REAL_SPARSE(double, d)

#define COMPLEX_DOT(T, p, suffix, conjugate)                                                            \
  void standin_##p##dot##suffix##i(T* result, const i64* nz, const T* x, const i64* indx, const T* y) {  \
    T sum = 0;                                                                                           \
    for (i64 i = 0; i < *nz; i++) sum += conjugate(x[i]) * y[indx[i] - 1];                             \
    *result = sum;                                                                                       \
  }
#define AS_IS(v) (v)
COMPLEX_DOT(float _Complex, c, c, conjf)
COMPLEX_DOT(float _Complex, c, u, AS_IS)
COMPLEX_DOT(double _Complex, z, c, conj)
COMPLEX_DOT(double _Complex, z, u, AS_IS)

/* ---- I?AMIN: first index of the least |x| (|re|+|im| for complex, as I?AMAX) ---- */

#define AMIN(T, p, magnitude)                                                                            \
  i64 standin_i##p##amin(const i64* n, const T* x, const i64* incx) {                                   \
    if (*n < 1 || *incx <= 0) return 0;                                                                  \
    i64 best = 1;                                                                                        \
    double least = magnitude(x[0]);                                                                      \
    for (i64 i = 1; i < *n; i++) {                                                                       \
      double v = magnitude(x[i * *incx]);                                                                \
      if (v < least) least = v, best = i + 1;                                                            \
    }                                                                                                    \
    return best;                                                                                         \
  }
#define REAL_MAGNITUDE(v) fabs((double)(v))
#define COMPLEX_MAGNITUDE(v) (fabs((double)crealf(v)) + fabs((double)cimagf(v)))
#define ZCOMPLEX_MAGNITUDE(v) (fabs(creal(v)) + fabs(cimag(v)))
AMIN(float, s, REAL_MAGNITUDE)
AMIN(double, d, REAL_MAGNITUDE)
AMIN(float _Complex, c, COMPLEX_MAGNITUDE)
AMIN(double _Complex, z, ZCOMPLEX_MAGNITUDE)

/* ---- SCGEMM/DZGEMM: checked as ?GEMM checks, then A widened to complex and
   handed to the reference ?GEMM. ---- */

static int letter(const char* c, char l) { return toupper((unsigned char)*c) == l; }

void cgemm_(const char*, const char*, const i64*, const i64*, const i64*, const float _Complex*,
            const float _Complex*, const i64*, const float _Complex*, const i64*, const float _Complex*,
            float _Complex*, const i64*, size_t, size_t);
void zgemm_(const char*, const char*, const i64*, const i64*, const i64*, const double _Complex*,
            const double _Complex*, const i64*, const double _Complex*, const i64*, const double _Complex*,
            double _Complex*, const i64*, size_t, size_t);

#define MIXED_GEMM(R, C, name, NAME, gemm)                                                               \
  void standin_##name(const char* ta, const char* tb, const i64* m, const i64* n, const i64* k,         \
                      const C* alpha, const R* a, const i64* lda, const C* b, const i64* ldb,          \
                      const C* beta, C* c, const i64* ldc) {                                             \
    const int nota = letter(ta, 'N'), notb = letter(tb, 'N');                                            \
    const i64 nrowa = nota ? *m : *k, ncola = nota ? *k : *m, nrowb = notb ? *k : *n;                    \
    i64 info = 0;                                                                                        \
    if (!nota && !letter(ta, 'C') && !letter(ta, 'T')) info = 1;                                        \
    else if (!notb && !letter(tb, 'C') && !letter(tb, 'T')) info = 2;                                   \
    else if (*m < 0) info = 3;                                                                           \
    else if (*n < 0) info = 4;                                                                           \
    else if (*k < 0) info = 5;                                                                           \
    else if (*lda < (nrowa > 1 ? nrowa : 1)) info = 8;                                                   \
    else if (*ldb < (nrowb > 1 ? nrowb : 1)) info = 10;                                                  \
    else if (*ldc < (*m > 1 ? *m : 1)) info = 13;                                                        \
    if (info != 0) {                                                                                     \
      xerbla_(NAME, &info, sizeof NAME - 1);                                                             \
      return;                                                                                            \
    }                                                                                                    \
    /* Only read A when ?GEMM would. */                                                                  \
    C dummy = 0;                                                                                         \
    C* wide = &dummy;                                                                                    \
    i64 ldw = nrowa > 1 ? nrowa : 1;                                                                     \
    if (*m > 0 && *n > 0 && *k > 0 && *alpha != 0) {                                                     \
      wide = calloc((size_t)(nrowa * ncola), sizeof(C));                                                \
      if (wide == NULL) abort();                                                                         \
      for (i64 j = 0; j < ncola; j++)                                                                    \
        for (i64 i = 0; i < nrowa; i++) wide[i + j * nrowa] = a[i + j * *lda];                          \
    }                                                                                                    \
    gemm(nota ? "N" : "T", tb, m, n, k, alpha, wide, &ldw, b, ldb, beta, c, ldc, 1, 1);                 \
    if (wide != &dummy) free(wide);                                                                      \
  }
MIXED_GEMM(float, float _Complex, scgemm, "SCGEMM", cgemm_)
MIXED_GEMM(double, double _Complex, dzgemm, "DZGEMM", zgemm_)

/* ---- routines that are not provided: a clear message, then abort ---- */

void standin_not_provided(const char* routine, const char* why) {
  fprintf(stderr, "mkl_intel_thread stand-in: %s is not provided (%s)\n", routine, why);
  fflush(stderr);
  abort();
}

#define NOT_PROVIDED(name, NAME) \
  void standin_##name(void) { standin_not_provided(NAME, "MKL-only band reduction"); }
NOT_PROVIDED(ssyrdb, "SSYRDB")
NOT_PROVIDED(dsyrdb, "DSYRDB")
NOT_PROVIDED(cherdb, "CHERDB")
NOT_PROVIDED(zherdb, "ZHERDB")

/* ---- C := op(A)*B for one-based CSR matrices, 32-bit integers ----
   Values are handled as `width` doubles (1 real, 2 complex). */

static void sort_rows(int rows, const int* ia, int* ja, double* v, int width) {
  for (int r = 0; r < rows; r++)
    for (int p = ia[r]; p < ia[r + 1] - 1; p++) /* insertion sort, positions one-based */
      for (int q = p; q >= ia[r] && ja[q - 1] > ja[q]; q--) {
        int t = ja[q - 1];
        ja[q - 1] = ja[q], ja[q] = t;
        for (int w = 0; w < width; w++) {
          double x = v[(q - 1) * width + w];
          v[(q - 1) * width + w] = v[q * width + w], v[q * width + w] = x;
        }
      }
}

static int by_column(const void* a, const void* b) { return *(const int*)a - *(const int*)b; }

static void csr_product(int width, const char* trans, const int* request, const int* sort, const int* m,
                        const int* n, const int* k, double* a, int* ja, int* ia, double* b, int* jb, int* ib,
                        double* c, int* jc, int* ic, const int* nnzmax, int* info) {
  const int s = *sort;
  *info = 0;
  if (s == 1 || s == 3 || s == 4 || s == 6) sort_rows(*m, ia, ja, a, width);
  if (s == 2 || s == 3 || s == 5 || s == 6) sort_rows(letter(trans, 'N') ? *n : *m, ib, jb, b, width);
  const int sorted_c = !(s >= 4 && s <= 7);

  /* op(A) as CSR with zero-based rows: A itself, or its (conjugate) transpose. */
  int rows = *m;
  const int* pr = ia;
  const int* pc = ja;
  const double* pv = a;
  int *tr = NULL, *tc = NULL;
  double* tv = NULL;
  const int conjugate = width == 2 && letter(trans, 'C');
  if (!letter(trans, 'N')) {
    const int nnz = ia[*m] - 1;
    rows = *n;
    tr = calloc((size_t)rows + 1, sizeof *tr);
    tc = malloc(sizeof *tc * (size_t)(nnz > 0 ? nnz : 1));
    tv = malloc(sizeof *tv * (size_t)width * (size_t)(nnz > 0 ? nnz : 1));
    if (!tr || !tc || !tv) abort();
    int* cursor = malloc(sizeof *cursor * (size_t)(rows > 0 ? rows : 1));
    if (!cursor) abort();
    for (int p = 0; p < nnz; p++) tr[ja[p]]++; /* ja one-based: counts land one row later */
    for (int r = 0; r < rows; r++) tr[r + 1] += tr[r];
    for (int r = 0; r < rows; r++) cursor[r] = tr[r];
    for (int r = 0; r < *m; r++)
      for (int p = ia[r] - 1; p < ia[r + 1] - 1; p++) {
        const int q = cursor[ja[p] - 1]++;
        tc[q] = r + 1;
        tv[q * width] = a[p * width];
        if (width == 2) tv[q * 2 + 1] = conjugate ? -a[p * 2 + 1] : a[p * 2 + 1];
      }
    free(cursor);
    for (int r = 0; r <= rows; r++) tr[r] += 1;
    pr = tr, pc = tc, pv = tv;
  }

  /* Gustavson: a dense accumulator over C's k columns. */
  const int cols = *k;
  double* acc = calloc((size_t)(cols > 0 ? cols : 1) * (size_t)width, sizeof *acc);
  int* mark = malloc(sizeof *mark * (size_t)(cols > 0 ? cols : 1));
  int* list = malloc(sizeof *list * (size_t)(cols > 0 ? cols : 1));
  if (!acc || !mark || !list) abort();
  for (int j = 0; j < cols; j++) mark[j] = -1;

  int pos = 0; /* zero-based next free slot of c/jc */
  if (*request != 2) ic[0] = 1;
  for (int r = 0; r < rows; r++) {
    int count = 0;
    for (int p = pr[r] - 1; p < pr[r + 1] - 1; p++) {
      const int inner = pc[p] - 1;
      const double* av = &pv[p * width];
      for (int q = ib[inner] - 1; q < ib[inner + 1] - 1; q++) {
        const int col = jb[q] - 1;
        const double* bv = &b[q * width];
        if (mark[col] != r) mark[col] = r, list[count++] = col, memset(&acc[col * width], 0, sizeof(double) * width);
        if (width == 1) {
          acc[col] += av[0] * bv[0];
        } else {
          acc[col * 2] += av[0] * bv[0] - av[1] * bv[1];
          acc[col * 2 + 1] += av[0] * bv[1] + av[1] * bv[0];
        }
      }
    }
    if (*request == 1) {
      ic[r + 1] = ic[r] + count;
      continue;
    }
    if (*request == 2) pos = ic[r] - 1;
    if (*request == 0 && pos + count > *nnzmax) {
      *info = r + 1;
      break;
    }
    if (sorted_c) qsort(list, (size_t)count, sizeof *list, by_column);
    for (int t = 0; t < count; t++, pos++) {
      jc[pos] = list[t] + 1;
      memcpy(&c[pos * width], &acc[list[t] * width], sizeof(double) * width);
    }
    if (*request == 0) ic[r + 1] = pos + 1;
  }
  free(acc), free(mark), free(list), free(tr), free(tc), free(tv);
}

void standin_dcsrmultcsr(const char* trans, const int* request, const int* sort, const int* m, const int* n,
                         const int* k, double* a, int* ja, int* ia, double* b, int* jb, int* ib, double* c,
                         int* jc, int* ic, const int* nnzmax, int* info) {
  csr_product(1, trans, request, sort, m, n, k, a, ja, ia, b, jb, ib, c, jc, ic, nnzmax, info);
}

void standin_zcsrmultcsr(const char* trans, const int* request, const int* sort, const int* m, const int* n,
                         const int* k, double* a, int* ja, int* ia, double* b, int* jb, int* ib, double* c,
                         int* jc, int* ic, const int* nnzmax, int* info) {
  csr_product(2, trans, request, sort, m, n, k, a, ja, ia, b, jb, ib, c, jc, ic, nnzmax, info);
}
