// Option letters as the computational library compares them: one letter,
// either case, through its lsame (each comparison is one required call).
// The letter is read from the letter set itself, which lives in read-only
// data, rather than from a copy on the stack.
#pragma once
#include <string_view>

#include "frame/lp64.h"
#include "frame/mkl_services.h"

namespace vorn {

VORN_INLINE bool is(const char* option, const char* letter) { return mkl_serv_lsame(option, letter, 1, 1) != 0; }
VORN_INLINE bool is(const char* option, char letter) { return mkl_serv_lsame(option, &letter, 1, 1) != 0; }

VORN_INLINE bool one_of(const char* option, std::string_view letters) {
#pragma GCC unroll 4
  for (const char& letter : letters) {
    if (is(option, &letter)) return true;
  }
  return false;
}

}  // namespace vorn
