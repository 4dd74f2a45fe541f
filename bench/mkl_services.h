// MKL's service entries the benchmarks call themselves: the service calls
// the layer is obliged to make, made alone or by the bare forwards, and
// the thread count of the threaded rows.
#pragma once
#include <cstddef>

extern "C" {
void* mkl_serv_allocate(std::size_t bytes, int alignment);
void mkl_serv_deallocate(void* p);
void mkl_serv_set_xerbla_interface(void (*)(const char*, const void*, int));
void mkl_serv_set_progress_interface(long long (*)(void*, void*, void*, long long));
void mkl_serv_default_xerbla(const char*, const void*, int);
long long mkl_serv_default_progress(void*, void*, void*, long long);
int mkl_serv_get_max_threads();
int mkl_serv_set_num_threads_local(int);
}

namespace bench {
// The two hook setters a LAPACK call through the layer makes, with MKL's
// own handlers: what the layer is obliged to do, at the same cost.
inline void install_default_hooks() {
  mkl_serv_set_xerbla_interface(&mkl_serv_default_xerbla);
  mkl_serv_set_progress_interface(&mkl_serv_default_progress);
}
}  // namespace bench
