// Finds the routines of liblapack.so.3 that lie outside the routine set in
// the reference LAPACK library. The library is opened privately
// (RTLD_LOCAL), so its names never shadow anyone's; its own calls to other
// LAPACK routines still resolve through the global scope, that is, to this
// library's names and through them to the layer.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "dropin/reference_table.h"

namespace {

#ifndef VORN_REFERENCE_LAPACK
#error "VORN_REFERENCE_LAPACK must name the reference LAPACK library"
#endif

[[noreturn]] void give_up(const char* what, const char* detail) {
  std::fprintf(stderr, "liblapack.so.3 (vorn): %s: %s\n", what, detail != nullptr ? detail : "");
  std::abort();
}

// VORN_REFERENCE_LAPACK in the environment overrides the path chosen at
// build time.
void* reference_library() {
  static void* const handle = [] {
    const char* path = std::getenv("VORN_REFERENCE_LAPACK");
    if (path == nullptr || *path == '\0') path = VORN_REFERENCE_LAPACK;
    void* h = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (h == nullptr) give_up("cannot open the reference LAPACK library", dlerror());
    return h;
  }();
  return handle;
}

// Pointing the override at this very library would make every stub jump to
// itself.
bool lies_in_this_library(void* address) {
  Dl_info mine{}, theirs{};
  return dladdr(reinterpret_cast<void*>(&vorn_reference_resolve), &mine) != 0 &&
         dladdr(address, &theirs) != 0 && mine.dli_fbase == theirs.dli_fbase;
}

}  // namespace

extern "C" void* vorn_reference_resolve(unsigned index) {
  if (index >= vorn_reference_count) give_up("no such stub", nullptr);
  const char* name = vorn_reference_names[index];
  void* address = dlsym(reference_library(), name);
  if (address == nullptr) give_up(name, "not found in the reference LAPACK library");
  if (lies_in_this_library(address)) give_up(name, "the reference LAPACK library is this library");
  __atomic_store_n(&vorn_reference_slots[index], address, __ATOMIC_RELEASE);
  return address;
}
