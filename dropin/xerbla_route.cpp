// Argument errors reach the program's own XERBLA, as with the reference
// libraries. Programs built against them (numpy, R, Octave, the netlib test
// programs) define xerbla_ to turn a bad argument into an error of their
// own. The layer reports its own findings and the computational library's
// through the computational library's default handler, which libvorn calls
// through its global offset table; each companion points that one slot at
// the route below when it is loaded.
//
// The route hands a report
//  - to cblas_xerbla, translated, while a CBLAS entry is in its call on
//    this thread (cblas_support.cpp);
//  - otherwise to xerbla_ as this library's own calls of it would bind:
//    through its lookup scope, where a definition of the program's (or of
//    a module that loaded us privately, as Python extensions do) comes
//    before the companions'. The reference library's calls bind the same
//    way;
//  - to the default handler when that xerbla_ is a companion's (it would
//    come straight back here), or when the report comes back while being
//    delivered. A delivery can also end without returning: R's XERBLA
//    jumps out (longjmp) to its error handler. So "while being delivered"
//    means a report made deeper on the stack than the delivery's frame.
// Both companions carry the route: the second one loaded finds the first
// in the slot and goes on to it for what it does not take itself.
#include <dlfcn.h>
#include <link.h>

#include <cstddef>
#include <cstring>
#include <functional>

#include "dropin/export.h"
#include "dropin/relocation.h"

extern "C" {
// Our own definition, unless the program has one: taken through the global
// offset table like any preemptible name.
__attribute__((visibility("default"))) void xerbla_(const char* name, const int* info, std::size_t length);
// Defined in libblas.so.3 only.
VORN_DROPIN_HIDDEN bool vorn_cblas_take_report(int fortran_position) __attribute__((weak));
}

namespace {

using Handler = void (*)(const char*, const void*, int);
using ProgramXerbla = void (*)(const char*, const int*, std::size_t);

constexpr char kHandlerName[] = "mkl_serv_default_xerbla";

Handler original = nullptr;  // what libvorn was bound to
Handler next = nullptr;      // the other companion's route, when it came first
// The route's frame while it delivers on this thread, or null.
thread_local const void* delivering = nullptr;

bool same_object(const void* a, const void* b) {
  Dl_info ia{}, ib{};
  return dladdr(a, &ia) != 0 && dladdr(b, &ib) != 0 && ia.dli_fbase == ib.dli_fbase;
}

void route(const char* name, const void* position, int length) {
  // The layer's cells are 64-bit, XERBLA's own 32-bit; positions are small
  // and the low half comes first.
  int info = 0;
  std::memcpy(&info, position, sizeof info);
  if (vorn_cblas_take_report != nullptr && vorn_cblas_take_report(info)) return;
  if (next != nullptr) {
    next(name, position, length);
    return;
  }
  const ProgramXerbla program = &xerbla_;
  const void* frame = __builtin_frame_address(0);
  // The stack grows down: a report from within the delivery is deeper.
  const bool within = delivering != nullptr && std::less<const void*>()(frame, delivering);
  if (within || same_object(reinterpret_cast<const void*>(program), reinterpret_cast<const void*>(&route))) {
    original(name, position, length);
    return;
  }
  delivering = frame;
  program(name, &info, static_cast<std::size_t>(length));
  delivering = nullptr;
}

__attribute__((constructor)) void install() {
  void* layer = dlopen("libvorn.so.1", RTLD_NOW | RTLD_NOLOAD);
  link_map* map = nullptr;
  if (layer == nullptr || dlinfo(layer, RTLD_DI_LINKMAP, &map) != 0) return;
  // What the slot holds when no companion came first: the first definition
  // in libvorn's lookup scope (the global scope, then libvorn's own group).
  void* bound = dlsym(RTLD_DEFAULT, kHandlerName);
  if (bound == nullptr) bound = dlsym(layer, kHandlerName);
  if (bound == nullptr) return;
  void* held = vorn_repoint(map, kHandlerName, reinterpret_cast<void*>(&route));
  original = reinterpret_cast<Handler>(bound);
  // Anything else there than the bound handler is the other companion's
  // route, unless it still points into libvorn (a lazily bound slot).
  if (held != nullptr && held != bound && !same_object(held, dlsym(layer, "VORN_instable_xerbla"))) {
    next = reinterpret_cast<Handler>(held);
  }
  // libvorn stays loaded while we are (it is our dependency).
  dlclose(layer);
}

}  // namespace
