#include "lapack/array_frame.h"

extern "C" VORN_HIDDEN int vorn_if_ilaenv(const int* ispec, const char* name, const char* opts, const int* n1,
                                          const int* n2, const int* n3, const int* n4, int lname, int lopts);

namespace vorn::lapack {

i64 lapack_depth(i64 n, i64 smlsiz) {
  // Counted in doubles like the reference; the cap only keeps a nonsensical
  // SMLSIZ from looping.
  const double x = static_cast<double>(n) / static_cast<double>(smlsiz + 1);
  i64 k = 1;
  while (k < 64 && x >= static_cast<double>(i64{1} << (k < 62 ? k : 62))) ++k;
  return k;
}

i64 doubling_depth(double x) {
  int k = 1;
  if (x > 2.0) {
    do {
      ++k;
    } while (k < 31 && x > static_cast<double>(1 << k));
  }
  return k;
}

i64 merge_node(i64 tlvls, i64 curlvl, i64 curpbm) {
  // Fortran's 2**k is 0 for negative k; the cap keeps the shifts defined.
  const i64 levels = std::clamp<i64>(tlvls, 0, 40);
  i64 node = 1 + (i64{1} << levels);
  for (i64 i = 1; i < curlvl && i <= levels; ++i) node += i64{1} << (levels - i);
  return node + curpbm;
}

i64 tree_extent(const i64* pointers, i64 tlvls, i64 curlvl, i64 curpbm, i64 n) {
  const i64 node = merge_node(tlvls, curlvl, curpbm);
  if (node < 1) return n;
  i64 extent = (curlvl == tlvls ? 1 : pointers[node - 1]) + n - 1;
  for (i64 j = 0; j < node; ++j) extent = std::max(extent, pointers[j] - 1);
  return extent;
}

int leaf_size(const char* name) {
  const int ispec = 9, zero = 0;
  return vorn_if_ilaenv(&ispec, name, " ", &zero, &zero, &zero, &zero, 6, 1);
}

}  // namespace vorn::lapack
