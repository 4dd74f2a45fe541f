// Uses the installed library the way a caller would: both headers, aligned
// blocks from the allocator, a typed and a plain call of one routine, and
// the allocator's exception caught by the library's own types.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>

#include "vorn/vorn.hpp"
#include "vorn_instable.h"

namespace {

int failures = 0;

void expect(bool ok, const char* what) {
  if (!ok) {
    std::printf("FAILED: %s\n", what);
    ++failures;
  }
}

}  // namespace

int main() {
  constexpr int n = 3;
  const double spd[n * n] = {4, 12, -16, 12, 37, -43, -16, -43, 98};
  auto* typed = static_cast<double*>(VORN_MKL_AlignedAlloc(64, sizeof spd));
  auto* plain = static_cast<double*>(VORN_MKL_AlignedAlloc(64, sizeof spd));
  expect(typed != nullptr && reinterpret_cast<std::uintptr_t>(typed) % 64 == 0, "a 64-byte aligned block");
  std::memcpy(typed, spd, sizeof spd);
  std::memcpy(plain, spd, sizeof spd);

  // The Cholesky factor of this matrix has the diagonal 2, 1, 3.
  int typed_info = -99, plain_info = -99;
  VORN_stable_DPOTRF('U', n, Kessnar::AlignedPtr<double>{typed}, n, typed_info);
  const int lda = n;
  VORN_instable_dpotrf_("U", &n, plain, &lda, &plain_info);
  expect(typed_info == 0 && plain_info == 0, "DPOTRF succeeds");
  expect(std::memcmp(typed, plain, sizeof spd) == 0, "typed and plain DPOTRF agree");
  expect(std::fabs(typed[0] - 2) < 1e-12 && std::fabs(typed[4] - 1) < 1e-12 && std::fabs(typed[8] - 3) < 1e-12,
         "the factor's diagonal is 2, 1, 3");

  const int inc = 1;
  const double sum = VORN_stable_DASUM(n, Kessnar::AlignedPtr<const double>{spd}, inc);
  expect(sum == 32.0, "DASUM of the first column is 32");
  VORN_MKL_AlignedFree(typed);
  VORN_MKL_AlignedFree(plain);

  // No machine has a pebibyte to give: the allocator refuses.
  bool caught = false;
  try {
    VORN_MKL_AlignedAlloc(64, 1ull << 50);
  } catch (const std::exception&) {
    expect(false, "the library's exception is no std::exception");
  } catch (const ARDU::OutOfAlignedMemory& e) {
    caught = true;
    expect(e.message == "MKL_AlignedAlloc!", "message");
    expect(e.typeName == "ARDU::OutOfAlignedMemory", "typeName");
    expect(e.detail.empty(), "detail");
  }
  expect(caught, "a refused allocation throws ARDU::OutOfAlignedMemory");

  std::printf("%s\n", failures == 0 ? "consumer: all checks passed" : "consumer: checks failed");
  return failures == 0 ? 0 : 1;
}
