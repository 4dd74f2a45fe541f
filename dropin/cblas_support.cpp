#include "dropin/cblas_support.h"

#include <cstring>

#include "frame/report.h"
#include "vorn_instable.h"

extern "C" {
VORN_DROPIN_EXPORT int RowMajorStrg = 0;
// The reference library's marker of calls made from C; exported for the
// programs that name it, never set here.
VORN_DROPIN_EXPORT int CBLAS_CallFromC = 0;

VORN_DROPIN_EXPORT float cblas_scabs1(const void* c) {
  // |Re c| + |Im c| is SCASUM of a one-element vector (see scabs1.cpp).
  const int one = 1;
  float element[2];
  std::memcpy(element, c, sizeof element);
  return VORN_instable_scasum(&one, element, &one);
}

VORN_DROPIN_EXPORT void scabs1sub_(const float* z, float* value) { *value = cblas_scabs1(z); }
}

namespace vorn_cblas {
namespace {

thread_local const Reports* current = nullptr;

}  // namespace

Reports::Reports(const char* routine_name, const unsigned char* fortran_to_cblas, int arguments)
    : routine(routine_name), positions(fortran_to_cblas), count(arguments), previous_(current) {
  current = this;
}

Reports::~Reports() { current = previous_; }

void refuse(int position, const char* routine, const char* form, int value) {
  cblas_xerbla(position, routine, form, value);
}

void out_of_memory(const char* routine) { cblas_xerbla(static_cast<int>(vorn::kScratchFailurePosition), routine, ""); }

}  // namespace vorn_cblas

// Called by the report route (xerbla_route.cpp) for every report: takes it
// when a CBLAS entry is in its call on this thread, and hands it to
// cblas_xerbla with the CBLAS routine's name and position.
extern "C" VORN_DROPIN_HIDDEN bool vorn_cblas_take_report(int fortran_position) {
  const vorn_cblas::Reports* record = vorn_cblas::current;
  if (record == nullptr) return false;
  const int p = fortran_position >= 1 && fortran_position <= record->count ? record->positions[fortran_position]
                                                                           : fortran_position;
  // Taken off for the handler's call: what it calls is not ours to translate.
  vorn_cblas::current = nullptr;
  cblas_xerbla(p, record->routine, "");
  vorn_cblas::current = record;
  return true;
}
