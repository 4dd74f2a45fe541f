// Reports made by the layer itself: the routine's name, a 64-bit position
// cell and the name's length go to the installed XERBLA handler.
#pragma once
#include <string_view>

#include "frame/lp64.h"

namespace vorn {

// Position reported when a scratch array could not be obtained.
inline constexpr i64 kScratchFailurePosition = 1089;
// INFO stored for the caller in that case.
inline constexpr i32 kScratchFailureInfo = -1023;

// Copies the name into a zero-terminated local buffer first, so that the
// handler never sees the layer's read-only string table. Out of line and
// cold: the checks inline into every interface function, and only the
// failing path should pay for the copy.
[[gnu::cold, gnu::noinline]] void report(std::string_view name, i64 position);

}  // namespace vorn
