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
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
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

struct Relro {
  std::uintptr_t base;
  std::uintptr_t begin = 0, end = 0;
};

int find_relro(dl_phdr_info* info, std::size_t, void* data) {
  auto* relro = static_cast<Relro*>(data);
  if (info->dlpi_addr != relro->base) return 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type == PT_GNU_RELRO) {
      relro->begin = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
      relro->end = relro->begin + info->dlpi_phdr[i].p_memsz;
    }
  }
  return 1;
}

}  // namespace

void* vorn_repoint(const link_map* map, const char* symbol, void* target) {
  const std::uintptr_t base = map->l_addr;
  // The loader relocates most address entries of .dynamic in place.
  auto address = [base](ElfW(Addr) v) { return v < base ? v + base : v; };
  const ElfW(Sym)* symbols = nullptr;
  const char* strings = nullptr;
  const ElfW(Rela)* tables[2] = {nullptr, nullptr};
  std::size_t sizes[2] = {0, 0};
  for (const ElfW(Dyn)* d = map->l_ld; d->d_tag != DT_NULL; ++d) {
    switch (d->d_tag) {
      case DT_SYMTAB: symbols = reinterpret_cast<const ElfW(Sym)*>(address(d->d_un.d_ptr)); break;
      case DT_STRTAB: strings = reinterpret_cast<const char*>(address(d->d_un.d_ptr)); break;
      case DT_RELA: tables[0] = reinterpret_cast<const ElfW(Rela)*>(address(d->d_un.d_ptr)); break;
      case DT_RELASZ: sizes[0] = d->d_un.d_val; break;
      case DT_JMPREL: tables[1] = reinterpret_cast<const ElfW(Rela)*>(address(d->d_un.d_ptr)); break;
      case DT_PLTRELSZ: sizes[1] = d->d_un.d_val; break;
      default: break;
    }
  }
  if (symbols == nullptr || strings == nullptr) return nullptr;
  Relro relro{base};
  dl_iterate_phdr(&find_relro, &relro);
  const std::uintptr_t page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  void* first = nullptr;
  for (int t = 0; t < 2; ++t) {
    for (std::size_t i = 0; tables[t] != nullptr && i < sizes[t] / sizeof(ElfW(Rela)); ++i) {
      const ElfW(Rela)& r = tables[t][i];
      const auto type = ELF64_R_TYPE(r.r_info);
      if (type != R_X86_64_GLOB_DAT && type != R_X86_64_JUMP_SLOT && type != R_X86_64_64) continue;
      if (std::strcmp(strings + symbols[ELF64_R_SYM(r.r_info)].st_name, symbol) != 0) continue;
      auto** slot = reinterpret_cast<void**>(base + r.r_offset);
      auto* start = reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(slot) & ~(page - 1));
      if (mprotect(start, page, PROT_READ | PROT_WRITE) != 0) continue;
      if (first == nullptr) first = *slot;
      __atomic_store_n(slot, target, __ATOMIC_RELEASE);
      const auto at = reinterpret_cast<std::uintptr_t>(slot);
      if (at >= relro.begin && at < relro.end) mprotect(start, page, PROT_READ);
    }
  }
  return first;
}

namespace {

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
