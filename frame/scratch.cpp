#include "frame/scratch.h"

#include "frame/report.h"

namespace vorn {

// Built with -O3 (see CMakeLists.txt): these loops run at memory speed only
// when vectorised.
void widen_many(i64* dst, const i32* src, i64 count) {
  for (i64 i = 0; i < count; ++i) dst[i] = src[i];
}

void narrow_many(i32* dst, const i64* src, i64 count) {
  for (i64 i = 0; i < count; ++i) narrow(dst + i, src[i]);
}

void report_scratch_failure(std::string_view name, i32* info) {
  report(name, kScratchFailurePosition);
  if (info != nullptr) *info = kScratchFailureInfo;
}

}  // namespace vorn
