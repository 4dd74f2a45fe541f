// The aligned allocator: the computational library's own aligned blocks,
// with a null result turned into the library's exception.
#include <sstream>

#include "frame/lp64.h"
#include "frame/mkl_services.h"
#include "vorn/vorn.hpp"

// The bodies have C names so that the entries with this platform's C++
// decorations (the MSVC ones on Windows) all reach the same code.
extern "C" VORN_HIDDEN void* vorn_if_aligned_alloc(int alignment, unsigned long long size) {
  if (size == 0) return nullptr;
  // The alignment goes on untested: whatever the computational library does
  // with it is what the caller asked for.
  void* p = mkl_serv_malloc(static_cast<std::size_t>(size), alignment);
  if (p != nullptr) return p;
  std::ostringstream text(std::ios_base::out);
  text << "MKL_AlignedAlloc!";
  throw ARDU::OutOfAlignedMemory(text.str());
}

extern "C" VORN_HIDDEN void vorn_if_aligned_free(void* p) { mkl_serv_free(p); }

void* VORN_MKL_AlignedAlloc(int alignment, unsigned long long size) { return vorn_if_aligned_alloc(alignment, size); }
void VORN_MKL_AlignedFree(void* p) { vorn_if_aligned_free(p); }
