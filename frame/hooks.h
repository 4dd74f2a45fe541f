// The error and progress handlers the layer installs before every LAPACK
// call, so the computational library always reports through the defaults.
#pragma once
#include "frame/lp64.h"
#include "frame/mkl_services.h"

extern "C" {
// XERBLA's lower spelling; it is also the handler the layer installs and
// calls for its own reports.
VORN_HIDDEN void vorn_if_xerbla(const char* name, const void* position, int length);
VORN_HIDDEN void vorn_if_XERBLA(const char* name, const void* position, int length);
VORN_HIDDEN long long vorn_progress_handler(void* thread, void* step, void* stage, long long length);
}

namespace vorn {
inline void install_hooks() {
  mkl_serv_set_xerbla_interface(&vorn_if_xerbla);
  mkl_serv_set_progress_interface(&vorn_progress_handler);
}
}  // namespace vorn
