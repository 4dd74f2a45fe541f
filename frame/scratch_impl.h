// Template bodies of frame/scratch.h.
#pragma once
#include "frame/mkl_services.h"
#include "frame/report.h"

namespace vorn {

template <std::size_t Capacity>
i64* ScratchSet<Capacity>::obtain_bytes(std::size_t bytes) {
  void* p = mkl_serv_allocate(bytes, kScratchAlignment);
  if (p != nullptr) held_[count_++] = p;
  return static_cast<i64*>(p);
}

template <std::size_t Capacity>
void ScratchSet<Capacity>::release() {
  for (std::size_t i = 0; i < count_; ++i) mkl_serv_deallocate(held_[i]);
  count_ = 0;
}

template <std::size_t Capacity>
void scratch_failure(ScratchSet<Capacity>& set, std::string_view name, i32* info) {
  set.release();
  report(name, kScratchFailurePosition);
  if (info != nullptr) *info = kScratchFailureInfo;
}

}  // namespace vorn
