// Repointing another library's relocated references to a name.
#include "dropin/relocation.h"

#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

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
