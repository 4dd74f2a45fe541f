// Template bodies of frame/scratch.h.
#pragma once
#include "frame/mkl_services.h"

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

inline i64* ScratchSet<1>::obtain_bytes(std::size_t bytes) {
  held_ = mkl_serv_allocate(bytes, kScratchAlignment);
  return static_cast<i64*>(held_);
}

inline void ScratchSet<1>::release() {
  if (held_ != nullptr) mkl_serv_deallocate(held_);
  held_ = nullptr;
}

}  // namespace vorn
