// Finds the routines of the companion LAPACK library that lie outside the
// routine set in the reference LAPACK library. On Linux the library is
// opened privately (RTLD_LOCAL), so its names never shadow anyone's; its own
// calls to other LAPACK routines still resolve through the global scope,
// that is, to this library's names and through them to the layer. Its
// calls of xerbla_ go where this library's own would (xerbla_route.cpp):
// to the program's XERBLA also when the program reached us from a module
// opened privately, else to the layer's. A Windows
// DLL binds its own calls itself; its BLAS calls come to the companion
// libblas.dll.
#include <cstdio>
#include <cstdlib>

#include "dropin/reference_table.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>

#include <cstddef>

#include "dropin/relocation.h"

extern "C" __attribute__((visibility("default"))) void xerbla_(const char* name, const int* info, std::size_t length);
#endif

namespace {

#ifndef VORN_REFERENCE_LAPACK
#error "VORN_REFERENCE_LAPACK must name the reference LAPACK library"
#endif

[[noreturn]] void give_up(const char* what, const char* detail) {
  std::fprintf(stderr, "companion LAPACK library (vorn): %s: %s\n", what, detail != nullptr ? detail : "");
  std::abort();
}

// The platform's loader: open privately, look up, tell the owning module.
#if defined(_WIN32)
void* open_library(const char* path) { return reinterpret_cast<void*>(LoadLibraryA(path)); }
void* find(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}
const char* loader_error() { return "LoadLibrary failed"; }
void* module_of(const void* address) {
  HMODULE module = nullptr;
  const DWORD flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  return GetModuleHandleExA(flags, static_cast<LPCSTR>(address), &module) ? module : nullptr;
}
#else
void* open_library(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }
void* find(void* library, const char* name) { return dlsym(library, name); }
const char* loader_error() { return dlerror(); }
void* module_of(const void* address) {
  Dl_info info{};
  return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}
#endif

// VORN_REFERENCE_LAPACK in the environment overrides the path chosen at
// build time.
void* reference_library() {
  static void* const handle = [] {
    const char* path = std::getenv("VORN_REFERENCE_LAPACK");
    if (path == nullptr || *path == '\0') path = VORN_REFERENCE_LAPACK;
    void* h = open_library(path);
    if (h == nullptr) give_up("cannot open the reference LAPACK library", loader_error());
#if !defined(_WIN32)
    link_map* map = nullptr;
    if (dlinfo(h, RTLD_DI_LINKMAP, &map) == 0) vorn_repoint(map, "xerbla_", reinterpret_cast<void*>(&xerbla_));
#endif
    return h;
  }();
  return handle;
}

// Pointing the override at this very library would make every stub jump to
// itself.
bool lies_in_this_library(void* address) {
  void* mine = module_of(reinterpret_cast<const void*>(&vorn_reference_resolve));
  return mine != nullptr && mine == module_of(address);
}

}  // namespace

extern "C" void* vorn_reference_resolve(unsigned index) {
  if (index >= vorn_reference_count) give_up("no such stub", nullptr);
  const char* name = vorn_reference_names[index];
  void* address = find(reference_library(), name);
  if (address == nullptr) give_up(name, "not found in the reference LAPACK library");
  if (lies_in_this_library(address)) give_up(name, "the reference LAPACK library is this library");
  __atomic_store_n(&vorn_reference_slots[index], address, __ATOMIC_RELEASE);
  return address;
}
