#include "frame/hooks.h"

// Both XERBLA spellings end in the default handler; the lower one goes
// through the upper one, as a chain of tail jumps (kept out of line so
// that the chain stays one).
extern "C" [[gnu::noinline]] void vorn_if_XERBLA(const char* name, const void* position, int length) {
  mkl_serv_default_xerbla(name, position, length);
}

extern "C" void vorn_if_xerbla(const char* name, const void* position, int length) {
  vorn_if_XERBLA(name, position, length);
}

extern "C" long long vorn_progress_handler(void* thread, void* step, void* stage, long long length) {
  return mkl_serv_default_progress(thread, step, stage, length);
}
