#include "frame/scratch.h"

namespace vorn {

void copy_in(i64* dst, const i32* src, i64 length) {
  const i64 n = length > 1 ? length : 1;
  for (i64 i = 0; i < n; ++i) dst[i] = src[i];
}

void copy_exactly(i64* dst, const i32* src, i64 length) {
  for (i64 i = 0; i < length; ++i) dst[i] = src[i];
}

void copy_back(i32* dst, const i64* src, i64 length) {
  for (i64 i = 0; i < length; ++i) narrow(dst + i, src[i]);
}

}  // namespace vorn
