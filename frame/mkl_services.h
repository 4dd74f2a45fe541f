// The computational library's service entries that the frame relies on.
// Declared here once; every other file includes this header.
#pragma once
#include <cstddef>
#include <cstdint>

extern "C" {
// XERBLA's name length is a 32-bit integer passed by value, as LP64
// callers pass it; the progress handler's arguments are register-wide.
using vorn_xerbla_fn = void (*)(const char*, const void*, int);
using vorn_progress_fn = long long (*)(void*, void*, void*, long long);

void mkl_serv_set_xerbla_interface(vorn_xerbla_fn handler);
void mkl_serv_set_progress_interface(vorn_progress_fn handler);
void mkl_serv_default_xerbla(const char* name, const void* position, int length);
long long mkl_serv_default_progress(void* thread, void* step, void* stage, long long length);
void* mkl_serv_allocate(std::size_t bytes, int alignment);
void mkl_serv_deallocate(void* p);
void* mkl_serv_malloc(std::size_t bytes, int alignment);
void mkl_serv_free(void* p);
int mkl_serv_lsame(const char* a, const char* b, int la, int lb);
float mkl_serv_second();
double mkl_serv_dsecnd();
}
