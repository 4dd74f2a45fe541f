/* The stand-in's mkl_serv_ services over the C runtime, recorded through
   recording.c, and the reference XERBLA replacements. */
#include <ctype.h>
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>

#include "recording.h"

typedef void (*xerbla_fn)(const char*, const void*, long long);
typedef long long (*progress_fn)(void*, void*, void*, long long);

static volatile xerbla_fn installed_xerbla;
static volatile progress_fn installed_progress;

static void* aligned_block(size_t bytes, int alignment) {
  size_t align = 64;
  if (alignment >= 8 && (alignment & (alignment - 1)) == 0) align = (size_t)alignment;
  return _aligned_malloc(bytes ? bytes : 1, align);
}

void* mkl_serv_allocate(size_t bytes, int alignment) {
  return recording_obtain(bytes, alignment, STANDIN_ALLOCATE, __builtin_return_address(0), aligned_block);
}
void mkl_serv_deallocate(void* p) {
  recording_release(p, STANDIN_DEALLOCATE, __builtin_return_address(0), _aligned_free);
}
void* mkl_serv_malloc(size_t bytes, int alignment) {
  return recording_obtain(bytes, alignment, STANDIN_MALLOC, __builtin_return_address(0), aligned_block);
}
void mkl_serv_free(void* p) { recording_release(p, STANDIN_FREE, __builtin_return_address(0), _aligned_free); }

/* ---- handlers ---- */

void* mkl_serv_set_xerbla_interface(xerbla_fn handler) {
  recording_event(STANDIN_SET_XERBLA, __builtin_return_address(0), 0, 0, (void*)handler, NULL, 0, 0);
  return (void*)InterlockedExchangePointer((void* volatile*)&installed_xerbla, (void*)handler);
}

void* mkl_serv_set_progress_interface(progress_fn handler) {
  recording_event(STANDIN_SET_PROGRESS, __builtin_return_address(0), 0, 0, (void*)handler, NULL, 0, 0);
  return (void*)InterlockedExchangePointer((void* volatile*)&installed_progress, (void*)handler);
}

void mkl_serv_default_xerbla(const char* name, const void* position, long long length) {
  if (recording_default_report(name, position, length, __builtin_return_address(0))) {
    int n = length > 0 ? (int)length : 0;
    while (n > 0 && name[n - 1] == ' ') n--;
    printf("Intel MKL ERROR: Parameter %lld was incorrect on entry to %.*s.\n",
           position ? *(const long long*)position : 0, n, name);
    fflush(stdout);
  }
}

long long mkl_serv_default_progress(void* thread, void* step, void* stage, long long length) {
  (void)thread, (void)step, (void)stage, (void)length;
  return 0;
}

/* Reference XERBLA, as gfortran calls it: name, 64-bit INFO, hidden length.
   Goes to the installed handler as MKL's own error path would. */
void xerbla_(const char* srname, const int64_t* info, size_t length) {
  recording_event(STANDIN_LIBRARY_REPORT, __builtin_return_address(0), 0, 0, NULL, srname, *info, (long long)length);
  xerbla_fn handler = installed_xerbla;
  if (handler)
    handler(srname, info, (long long)length);
  else
    mkl_serv_default_xerbla(srname, info, (long long)length);
}

/* Reference XERBLA_ARRAY: the name, blank-padded to 32, goes to XERBLA. */
void xerbla_array_(const char* srname_array, const int64_t* srname_len, const int64_t* info) {
  char name[32];
  memset(name, ' ', sizeof name);
  int64_t n = *srname_len < 32 ? *srname_len : 32;
  if (n > 0) memcpy(name, srname_array, (size_t)n);
  xerbla_(name, info, sizeof name);
}

int mkl_serv_lsame(const char* a, const char* b, int la, int lb) {
  (void)la, (void)lb;
  return toupper((unsigned char)*a) == toupper((unsigned char)*b);
}

double mkl_serv_dsecnd(void) {
  LARGE_INTEGER now, rate;
  QueryPerformanceCounter(&now);
  QueryPerformanceFrequency(&rate);
  return (double)now.QuadPart / (double)rate.QuadPart;
}

float mkl_serv_second(void) { return (float)mkl_serv_dsecnd(); }
