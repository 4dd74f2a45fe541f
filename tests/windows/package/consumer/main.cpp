// A mingw-w64 caller linked through find_package(vorn), that is through
// lib/vorn.lib. The DLL exports its C++ entries under MSVC decorations,
// so this caller binds those names (quoted for the assembler) to
// declarations of its own; the exception types come from the header.
#include <cstdio>
#include <cstring>

#include "vorn/vorn.hpp"
#include "vorn_instable.h"

void* msvc_alloc(int alignment, unsigned long long size) __asm__("\"?VORN_MKL_AlignedAlloc@@YAPEAXH_K@Z\"");
void msvc_free(void* p) __asm__("\"?VORN_MKL_AlignedFree@@YAXPEAX@Z\"");
void msvc_dpotrf(char uplo, int n, Kessnar::AlignedPtr<double> a, int lda, int& info)
    __asm__("\"?VORN_stable_DPOTRF@@YAXDHU?$AlignedPtr@N@Kessnar@@HAEAH@Z\"");

int main() {
  int failed = 0;
  auto check = [&](bool ok, const char* what) {
    if (!ok) std::printf("FAIL: %s\n", what), ++failed;
  };
  const int n = 3;
  double plain[n * n] = {4, 12, -16, 12, 37, -43, -16, -43, 98};
  auto* typed = static_cast<double*>(msvc_alloc(64, sizeof plain));
  check(typed != nullptr && reinterpret_cast<unsigned long long>(typed) % 64 == 0, "an aligned block");
  std::memcpy(typed, plain, sizeof plain);
  int typed_info = -1, plain_info = -1;
  msvc_dpotrf('U', n, Kessnar::AlignedPtr<double>{typed}, n, typed_info);
  VORN_instable_dpotrf_("U", &n, plain, &n, &plain_info);
  // The Cholesky factor of this matrix has the diagonal 2, 1, 3.
  check(typed_info == 0 && plain_info == 0 && plain[0] == 2 && plain[4] == 1 && plain[8] == 3, "DPOTRF");
  check(std::memcmp(typed, plain, sizeof plain) == 0, "typed and plain DPOTRF agree");
  msvc_free(typed);
  bool caught = false;
  try {
    msvc_alloc(64, 1ull << 62);
  } catch (const ARDU::OutOfAlignedMemory& e) {
    caught = e.typeName == "ARDU::OutOfAlignedMemory";
  }
  check(caught, "a refused allocation throws ARDU::OutOfAlignedMemory");
  std::printf("consumer: %s\n", failed == 0 ? "passed" : "failed");
  return failed;
}
