// ?LASWP: the pivots of rows K1..K2, INCX apart in IPIV, are the only
// elements converted; the scratch array spans |INCX| x K2 elements.
#pragma once
#include <string_view>

#include "lapack/array_frame.h"

namespace vorn::lapack {

template <class Call>
void laswp(std::string_view name, const int* n, const int* lda, const int* k1, const int* k2, const int* ipiv,
           const int* incx, Call call) {
  const i64 n64 = widen(n), lda64 = widen(lda), k1_64 = widen(k1), k2_64 = widen(k2), incx64 = widen(incx);
  const i64 step = abs_of(incx64);
  const i64 length = step * k2_64;
  ScratchSet<1> scratch;
  i64* const ipiv64 = scratch.obtain(length);
  if (ipiv64 == nullptr) {
    scratch_failure(scratch, name, nullptr);
    return;
  }
  // Row I's pivot sits at IPIV(K1 + (I - K1) |INCX|) whatever the sign of
  // INCX; the sign only decides the direction of travel, and INCX = 0 swaps
  // nothing.
  const double direction = static_cast<double>(incx64);
  if (direction > 0.0) {
    for (i64 row = k1_64; row <= k2_64; ++row) {
      const i64 at = (k1_64 - 1) + (row - k1_64) * step;
      if (at >= 0 && at < length) ipiv64[at] = ipiv[at];
    }
  } else if (direction < 0.0) {
    for (i64 row = k2_64; row >= k1_64; --row) {
      const i64 at = (k1_64 - 1) + (row - k1_64) * step;
      if (at >= 0 && at < length) ipiv64[at] = ipiv[at];
    }
  }
  install_hooks();
  call(&n64, &lda64, &k1_64, &k2_64, ipiv64, &incx64);
}

}  // namespace vorn::lapack
