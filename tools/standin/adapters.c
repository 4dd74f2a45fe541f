/* Where the layer's calling convention and gfortran's differ: the layer
   hands character lengths over as 32-bit int values (gfortran reads size_t)
   and takes complex results through an address passed first (gfortran
   returns COMPLEX in a register and COMPLEX*16 through its own hidden
   pointer). The entry stubs jump here instead of to the Fortran routine. */
#include <complex.h>
#include <stddef.h>
#include <stdint.h>

typedef int64_t i64;

static size_t length_of(int length) { return length > 0 ? (size_t)length : 0; }

i64 ilaenv_(const i64* ispec, const char* name, const char* opts, const i64* n1, const i64* n2, const i64* n3,
            const i64* n4, size_t lname, size_t lopts);
i64 iparmq_(const i64* ispec, const char* name, const char* opts, const i64* n, const i64* ilo, const i64* ihi,
            const i64* lwork, size_t lname, size_t lopts);
void chla_transtype_(char* result, size_t result_length, const i64* trans);

i64 standin_ilaenv(const i64* ispec, const char* name, const char* opts, const i64* n1, const i64* n2,
                   const i64* n3, const i64* n4, int lname, int lopts) {
  return ilaenv_(ispec, name, opts, n1, n2, n3, n4, length_of(lname), length_of(lopts));
}

i64 standin_iparmq(const i64* ispec, const char* name, const char* opts, const i64* n, const i64* ilo,
                   const i64* ihi, const i64* lwork, int lname, int lopts) {
  return iparmq_(ispec, name, opts, n, ilo, ihi, lwork, length_of(lname), length_of(lopts));
}

void standin_chla_transtype(char* result, int length, const i64* trans) {
  chla_transtype_(result, length_of(length), trans);
}

float _Complex cdotc_(const i64* n, const float _Complex* x, const i64* incx, const float _Complex* y,
                      const i64* incy);
float _Complex cdotu_(const i64* n, const float _Complex* x, const i64* incx, const float _Complex* y,
                      const i64* incy);
double _Complex zdotc_(const i64* n, const double _Complex* x, const i64* incx, const double _Complex* y,
                       const i64* incy);
double _Complex zdotu_(const i64* n, const double _Complex* x, const i64* incx, const double _Complex* y,
                       const i64* incy);
float _Complex cladiv_(const float _Complex* x, const float _Complex* y);
double _Complex zladiv_(const double _Complex* x, const double _Complex* y);

#define DOT(T, name)                                                                                    \
  void standin_##name(T _Complex* result, const i64* n, const T _Complex* x, const i64* incx,          \
                      const T _Complex* y, const i64* incy) {                                           \
    *result = name##_(n, x, incx, y, incy);                                                             \
  }
DOT(float, cdotc)
DOT(float, cdotu)
DOT(double, zdotc)
DOT(double, zdotu)

void standin_cladiv(float _Complex* result, const float _Complex* x, const float _Complex* y) {
  *result = cladiv_(x, y);
}
void standin_zladiv(double _Complex* result, const double _Complex* x, const double _Complex* y) {
  *result = zladiv_(x, y);
}
