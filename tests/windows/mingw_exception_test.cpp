// A mingw-built C++ caller and the allocator's exception across the DLL
// boundary. The DLL exports the allocator under its MSVC decoration only,
// so this caller looks it up by that decoration.
#include <windows.h>

#include <cstdio>
#include <exception>
#include <string>

#include "vorn/vorn.hpp"

int main() {
  using Alloc = void* (*)(int alignment, unsigned long long size);
  const auto msvc_aligned_alloc = reinterpret_cast<Alloc>(
      GetProcAddress(LoadLibraryA("vorn.dll"), "?VORN_MKL_AlignedAlloc@@YAPEAXH_K@Z"));
  if (msvc_aligned_alloc == nullptr) {
    std::printf("vorn.dll does not export the decorated allocator\n");
    return 1;
  }
  int passed = 0, failed = 0;
  auto check = [&](bool ok, const char* what) {
    (ok ? passed : failed)++;
    if (!ok) std::printf("  FAIL: %s\n", what);
  };
  check(msvc_aligned_alloc(64, 0) == nullptr, "size 0 gives null");
  try {
    msvc_aligned_alloc(64, 1ull << 62);
    check(false, "a refused allocation returned");
  } catch (const ARDU::OutOfAlignedMemory& e) {
    check(e.message == "MKL_AlignedAlloc!" && e.typeName == "ARDU::OutOfAlignedMemory" && e.detail.empty(),
          "ARDU::OutOfAlignedMemory with its three fields");
  }
  bool by_base = false, by_standard = false;
  try {
    try {
      msvc_aligned_alloc(64, 1ull << 62);
    } catch (const std::exception&) {
      by_standard = true;
    }
  } catch (const VORN::Exception& e) {
    by_base = e.typeName == "ARDU::OutOfAlignedMemory";
  }
  check(by_base && !by_standard, "caught as VORN::Exception, not as std::exception");
  std::printf("%d passed, %d failed\n", passed, failed);
  return failed == 0 ? 0 : 1;
}
