// Integer widths at the two sides of the bridge: callers pass 32-bit
// integers and logicals, the computational library takes 64-bit ones.
#pragma once
#include <cstdint>

namespace vorn {

using i32 = std::int32_t;
using i64 = std::int64_t;

// Sign extension of the caller's value into a 64-bit local.
inline i64 widen(const i32* p) { return static_cast<i64>(*p); }

// The caller receives the low 32 bits; there is deliberately no range check.
inline void narrow(i32* p, i64 v) { *p = static_cast<i32>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(v))); }
inline i32 narrowed(i64 v) { return static_cast<i32>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(v))); }

// Length handed to the computational library for each character argument.
inline constexpr int kCharLength = 1;

}  // namespace vorn

// Interface functions are reached only through the export table. A DLL
// exports only what its module definition names, so there is nothing to hide.
#if defined(_WIN32)
#define VORN_HIDDEN
#else
#define VORN_HIDDEN __attribute__((visibility("hidden")))
#endif

// The checks and rules that run on every call: each interface function
// gets its own copy, whatever the compiler's size estimate (several
// interface functions share one rule) would otherwise decide.
#define VORN_INLINE [[gnu::always_inline]] inline
