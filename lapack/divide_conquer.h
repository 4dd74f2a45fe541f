// The divide-and-conquer routines whose integer arrays are sized from the
// depth of the subproblem tree (?GELSD, ?LALSD, ?BDSDC, ?LASDA) or from
// N ln N (?LAEDA). Each precision's file supplies the library call; the
// sizing, conversions and failure paths are shared here.
#pragma once
#include <cmath>
#include <cstdint>
#include <string_view>

#include "lapack/array_frame.h"

namespace vorn::lapack {

// IWORK of ?GELSD and ?LALSD: LAPACK asks for (3 NLVL + 11) P; the layer's
// depth can be one short of LAPACK's, so three more elements per row.
inline i64 least_squares_iwork(const char* name, i64 p) {
  const int smlsiz = leaf_size(name);
  const i64 nlvl = doubling_depth(static_cast<double>(p) / static_cast<double>(smlsiz + 1));
  return (3 * nlvl + 14) * p;
}

// ?GELSD and ?LALSD: one IWORK sized from ILAENV's leaf size, taken also
// for a workspace query. Only ?GELSD hands IWORK(1) back (the minimal LIWORK
// of a query), between RANK and INFO. Call(rank64, iwork64, info64).
template <class Call>
void least_squares(std::string_view name, const char* lname, i64 p, int* rank, int* iwork_first, int* info,
                   Call call) {
  ScratchSet<1> scratch;
  i64* const iwork64 = scratch.obtain(least_squares_iwork(lname, p));
  if (iwork64 == nullptr) {
    scratch_failure(scratch, name, info);
    return;
  }
  i64 rank64 = 0, info64 = 0;
  install_hooks();
  call(&rank64, iwork64, &info64);
  narrow(rank, rank64);
  if (iwork_first != nullptr) narrow(iwork_first, iwork64[0]);
  narrow(info, info64);
}

template <class Call>
void gelsd(std::string_view name, const char* lname, i64 minmn, int* rank, int* iwork, int* info, Call call) {
  least_squares(name, lname, minmn, rank, iwork, info, call);
}

// ?LALSD sizes from ILAENV's leaf size, not from its own SMLSIZ argument.
template <class Call>
void lalsd(std::string_view name, const char* lname, i64 n, int* rank, int* info, Call call) {
  least_squares(name, lname, n, rank, nullptr, info, call);
}

// ?BDSDC: IQ only in compact form (COMPQ = 'P'), then IWORK of 8N.
// Call(iq64 or null, iwork64, info64).
template <class Call>
void bdsdc(std::string_view name, const char* lname, const char* compq, i64 n, int* iq, int* info, Call call) {
  const bool compact = option(compq, 'P');
  ScratchSet<2> scratch;
  i64 iq_length = 0;
  i64* iq64 = nullptr;
  if (compact) {
    const int smlsiz = leaf_size(lname);
    const i64 nlvl = doubling_depth(static_cast<double>(n) / static_cast<double>(smlsiz + 1));
    iq_length = 3 * n * (nlvl + 1);
    iq64 = scratch.obtain(iq_length);
    if (iq64 == nullptr) {
      scratch_failure(scratch, name, info);
      return;
    }
  }
  i64* const iwork64 = scratch.obtain(8 * n);
  if (iwork64 == nullptr) {
    scratch_failure(scratch, name, info);
    return;
  }
  i64 info64 = 0;
  install_hooks();
  call(iq64, iwork64, &info64);
  narrow(info, info64);
  if (compact) copy_back(iq, iq64, iq_length);
}

// Byte count handed to the allocator for ?LASDA's GIVPTR and IWORK: formed
// as a 32-bit quantity.
inline std::size_t bytes_modulo_2_32(i64 elements) {
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(elements > 1 ? elements : 1) * sizeof(i64));
}

struct LasdaArrays {
  int* k;
  int* givptr;
  int* givcol;
  int* perm;
};

// ?LASDA: K always; GIVPTR, GIVCOL and PERM with ICOMPQ = 1, the latter two
// sized by the tree depth; IWORK of 7N. All outputs, none read.
// Call(k64, givptr64, givcol64, perm64, iwork64, info64).
template <class Call>
void lasda(std::string_view name, const char* lname, i64 icompq, i64 n, i64 ldgcol, LasdaArrays out, int* info,
           Call call) {
  ScratchSet<5> scratch;
  i64* const k64 = scratch.obtain(n);
  if (k64 == nullptr) {
    scratch_failure(scratch, name, info);
    return;
  }
  const bool factored = icompq == 1;
  i64 *givptr64 = nullptr, *givcol64 = nullptr, *perm64 = nullptr;
  i64 levels = 0;
  if (factored) {
    givptr64 = scratch.obtain_bytes(bytes_modulo_2_32(n));
    if (givptr64 == nullptr) {
      scratch_failure(scratch, name, info);
      return;
    }
    const int leaf = leaf_size(lname) + 1;
    levels = doubling_depth(static_cast<double>(n) / static_cast<double>(leaf)) + 1;
    givcol64 = scratch.obtain(ldgcol * 2 * levels);
    if (givcol64 == nullptr) {
      scratch_failure(scratch, name, info);
      return;
    }
    perm64 = scratch.obtain(ldgcol * levels);
    if (perm64 == nullptr) {
      scratch_failure(scratch, name, info);
      return;
    }
  }
  i64* const iwork64 = scratch.obtain_bytes(bytes_modulo_2_32(7 * n));
  if (iwork64 == nullptr) {
    scratch_failure(scratch, name, info);
    return;
  }
  i64 info64 = 0;
  install_hooks();
  call(k64, givptr64, givcol64, perm64, iwork64, &info64);
  narrow(info, info64);
  copy_back(out.k, k64, n);
  if (factored) {
    copy_back(out.givptr, givptr64, n);
    copy_back(out.givcol, givcol64, ldgcol * 2 * levels);
    copy_back(out.perm, perm64, ldgcol * levels);
  }
}

struct LaedaArrays {
  const int* prmptr;
  const int* perm;
  const int* givptr;
  const int* givcol;
  const int* qptr;
};

// One of ?LAEDA's tree arrays: `count` bytes' worth of elements by the
// truncated byte count, converted while i < count.
inline i64* laeda_array(ScratchSet<5>& scratch, double count, const int* caller) {
  const auto bytes = static_cast<std::uint32_t>(static_cast<std::int64_t>(count * 8.0));
  i64* const p = scratch.obtain_bytes(bytes);
  if (p != nullptr) {
    for (i64 i = 0; static_cast<double>(i) < count; ++i) p[i] = caller[i];
  }
  return p;
}

// ?LAEDA sizes PRMPTR, PERM and GIVPTR by N ln N and GIVCOL by 2N ln N
// (natural logarithm where LAPACK documents lg), all inputs; QPTR by N + 2.
// Call(prmptr64, perm64, givptr64, givcol64, qptr64, info64).
template <class Call>
void laeda(std::string_view name, i64 n, LaedaArrays in, int* info, Call call) {
  const double nd = static_cast<double>(n);
  const double l = std::fmax(1.0, nd * std::log(nd));
  const double l2 = std::fmax(1.0, 2.0 * nd * std::log(nd));
  ScratchSet<5> scratch;
  i64* const prmptr64 = laeda_array(scratch, l, in.prmptr);
  if (prmptr64 == nullptr) {
    scratch_failure(scratch, name, info);
    return;
  }
  i64* const perm64 = laeda_array(scratch, l, in.perm);
  if (perm64 == nullptr) {
    scratch_failure(scratch, name, info);
    return;
  }
  i64* const givptr64 = laeda_array(scratch, l, in.givptr);
  if (givptr64 == nullptr) {
    scratch_failure(scratch, name, info);
    return;
  }
  i64* const givcol64 = laeda_array(scratch, l2, in.givcol);
  if (givcol64 == nullptr) {
    scratch_failure(scratch, name, info);
    return;
  }
  i64* const qptr64 = scratch.obtain(n + 2);
  if (qptr64 == nullptr) {
    scratch_failure(scratch, name, info);
    return;
  }
  copy_in(qptr64, in.qptr, n + 2);
  i64 info64 = 0;
  install_hooks();
  call(prmptr64, perm64, givptr64, givcol64, qptr64, &info64);
  narrow(info, info64);
}

}  // namespace vorn::lapack
