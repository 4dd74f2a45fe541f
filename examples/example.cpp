// A caller of the library that uses nothing but its exported names: a
// level-1 routine, a Cholesky factorisation, the LAPACK version of the
// computational library, and one deliberately bad call whose report the
// computational library's XERBLA prints.
#include <cstdio>

#include "vorn_instable.h"

int main() {
  const int n = 4, inc = 1;
  double x[] = {1.0, -2.0, 3.0, -4.0};
  std::printf("DASUM of (1, -2, 3, -4) = %g\n", VORN_instable_dasum(&n, x, &inc));

  // A symmetric positive definite 3x3 matrix, factorised as U**T * U.
  const int order = 3, lda = 3;
  double a[] = {4, 12, -16, 12, 37, -43, -16, -43, 98};
  int info = -99;
  VORN_instable_dpotrf_("U", &order, a, &lda, &info);
  std::printf("DPOTRF: INFO = %d, diagonal of U = %g %g %g\n", info, a[0], a[4], a[8]);

  int major = 0, minor = 0, patch = 0;
  VORN_instable_ilaver(&major, &minor, &patch);
  std::printf("ILAVER: the computational library implements LAPACK %d.%d.%d\n", major, minor, patch);

  // LDA smaller than N: the layer rejects it before MKL is called and
  // reports position 4 through XERBLA.
  const int bad_lda = 1;
  VORN_instable_DPOTRF("L", &order, a, &bad_lda, &info);
  std::printf("DPOTRF with LDA = 1: INFO = %d\n", info);
  return info == -4 ? 0 : 1;
}
