// What the interface functions of the LAPACK routines with integer or
// logical arrays use beyond the common frame: option tests, the arithmetic
// of the documented array dimensions, and the tree depths of the
// divide-and-conquer routines.
#pragma once
#include <algorithm>
#include <initializer_list>

#include "frame/hooks.h"
#include "frame/lp64.h"
#include "frame/scratch.h"

namespace vorn::lapack {

// Option letters fold lower case onto upper case by clearing bit 5, as the
// computational library does.
inline bool option(const char* c, char letter) {
  return (static_cast<unsigned char>(*c) & 0xDFu) == static_cast<unsigned char>(letter);
}

inline i64 max_of(std::initializer_list<i64> v) { return std::max(v); }
inline i64 min_of(std::initializer_list<i64> v) { return std::min(v); }
inline i64 abs_of(i64 v) { return v < 0 ? -v : v; }
inline i64 power(i64 base, i64 exponent) {
  i64 p = 1;
  for (i64 i = 0; i < exponent; ++i) p *= base;
  return p;
}

// lg n of the divide-and-conquer eigensolvers: the smallest k with 2^k >= n.
inline i64 ceil_log2(i64 n) {
  i64 k = 0;
  while (k < 62 && (i64{1} << k) < n) ++k;
  return k;
}

// LAPACK's tree depth INT(LOG2(N / (SMLSIZ + 1))) + 1, at least 1, for
// sizing arrays documented with NLVL.
i64 lapack_depth(i64 n, i64 smlsiz);

// Position (1-based) of the node ?LAED7 merges in the whole-tree pointer
// arrays of ?LAED0: past the 2^TLVLS + 1 leaf entries and the nodes of the
// levels below CURLVL, then CURPBM, as ?LAED7 computes it.
i64 merge_node(i64 tlvls, i64 curlvl, i64 curpbm);

// How far ?LAED7 indexes PERM (or the columns of GIVCOL) through their
// pointer array: up to the largest pointer up to this node's (?LAEDA reads
// the entries of the earlier nodes, up to where this node's begin), and N
// entries past this node's own pointer, which ?LAED8 writes (the top level
// restarts it at 1). `pointers` holds at least merge_node(...) elements.
i64 tree_extent(const i64* pointers, i64 tlvls, i64 curlvl, i64 curpbm, i64 n);

// The layer's own depth for a ratio x = P / (SMLSIZ + 1): 1 for x <= 2,
// else the smallest k with x <= 2^k. At exact powers of two this is one
// less than LAPACK's INT(LOG2(x)) + 1; the sizes built on it carry a margin.
i64 doubling_depth(double x);

// SMLSIZ as LAPACK obtains it: ILAENV(9, name, " ", 0, 0, 0, 0) through the
// layer's own LP64 ILAENV. `name` is the six-letter routine name.
int leaf_size(const char* name);

}  // namespace vorn::lapack
