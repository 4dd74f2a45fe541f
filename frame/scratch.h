// Scratch arrays: 64-bit copies of the caller's integer and logical arrays,
// held for one call. The set releases them in the order they were obtained,
// on every path, which plain RAII (reverse order) would not do.
#pragma once
#include <array>
#include <cstddef>
#include <string_view>

#include "frame/lp64.h"

namespace vorn {

inline constexpr int kScratchAlignment = 128;

// Bytes requested for n elements: at least one element.
inline std::size_t scratch_bytes(i64 n) { return static_cast<std::size_t>(n > 1 ? n : 1) * sizeof(i64); }

template <std::size_t Capacity>
class ScratchSet {
 public:
  ScratchSet() = default;
  ScratchSet(const ScratchSet&) = delete;
  ScratchSet& operator=(const ScratchSet&) = delete;
  ~ScratchSet() { release(); }

  // Returns null when the allocator refuses; the caller then takes the
  // failure path (release, then report).
  i64* obtain(i64 count) { return obtain_bytes(scratch_bytes(count)); }
  i64* obtain_bytes(std::size_t bytes);

  void release();

 private:
  // Only the first count_ entries are ever read, so the rest stay unset.
  std::array<void*, Capacity> held_;
  std::size_t count_ = 0;
};

// A single array has no order to keep: one pointer, released when set, so
// the frame holds it in a register rather than as an indexed array.
template <>
class ScratchSet<1> {
 public:
  ScratchSet() = default;
  ScratchSet(const ScratchSet&) = delete;
  ScratchSet& operator=(const ScratchSet&) = delete;
  ~ScratchSet() { release(); }

  i64* obtain(i64 count) { return obtain_bytes(scratch_bytes(count)); }
  i64* obtain_bytes(std::size_t bytes);

  void release();

 private:
  void* held_ = nullptr;
};

// Reports `name` with 1089 and stores -1023 in INFO when the routine has
// one. Cold and out of line.
[[gnu::cold, gnu::noinline]] void report_scratch_failure(std::string_view name, i32* info);

// Releases what the set holds, then reports. In line, so that the set never
// has its address taken and its few members stay in registers.
template <std::size_t Capacity>
[[gnu::always_inline]] inline void scratch_failure(ScratchSet<Capacity>& set, std::string_view name, i32* info) {
  set.release();
  report_scratch_failure(name, info);
}

// The copies, vectorised (scratch.cpp). A few elements are widened in line,
// where a call and the vector loop's set-up would cost more than the copy.
void widen_many(i64* dst, const i32* src, i64 count);
void narrow_many(i32* dst, const i64* src, i64 count);
inline constexpr i64 kShortArray = 4;

inline void widen_all(i64* dst, const i32* src, i64 count) {
  if (count > kShortArray) return widen_many(dst, src, count);
  for (i64 i = 0; i < count; ++i) dst[i] = src[i];
}

// Copy-in runs at least once (a zero-length array still has its first
// element read); copy-back runs only for a positive length.
inline void copy_in(i64* dst, const i32* src, i64 length) { widen_all(dst, src, length > 1 ? length : 1); }
inline void copy_back(i32* dst, const i64* src, i64 length) {
  if (length > kShortArray) return narrow_many(dst, src, length);
  for (i64 i = 0; i < length; ++i) narrow(dst + i, src[i]);
}
// Sparse BLAS index vectors: exactly `length` elements, none when length <= 0.
inline void copy_exactly(i64* dst, const i32* src, i64 length) { widen_all(dst, src, length); }

}  // namespace vorn

#include "frame/scratch_impl.h"
