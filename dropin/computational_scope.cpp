// The computational library loads its processor-specific kernels itself
// (dlopen) and those resolve names of its core and threading libraries
// through the global scope. A program that opens a module privately
// (RTLD_LOCAL, as Python opens its extensions) and reaches the companions
// from there leaves them out of it, and the library stops the process on
// its first computation ("Cannot load libmkl_def.so"). The companions put
// the layer's computational libraries into the global scope when they are
// loaded, and libm, whose functions the kernels call without needing it
// ("undefined symbol: cabs" under LD_BIND_NOW in a program without libm).
// These export only their own names and a few of the C library's, which
// come after the C library's own there; libm's are the standard ones.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstring>

namespace {

__attribute__((constructor)) void computational_libraries_global() {
  void* layer = dlopen("libvorn.so.1", RTLD_NOW | RTLD_NOLOAD);
  link_map* map = nullptr;
  if (layer == nullptr || dlinfo(layer, RTLD_DI_LINKMAP, &map) != 0) return;
  const char* strings = nullptr;
  for (const ElfW(Dyn)* d = map->l_ld; d->d_tag != DT_NULL; ++d) {
    if (d->d_tag == DT_STRTAB) {
      const ElfW(Addr) v = d->d_un.d_ptr;
      strings = reinterpret_cast<const char*>(v < map->l_addr ? v + map->l_addr : v);
    }
  }
  for (const ElfW(Dyn)* d = map->l_ld; strings != nullptr && d->d_tag != DT_NULL; ++d) {
    if (d->d_tag != DT_NEEDED) continue;
    const char* name = strings + d->d_un.d_val;
    if (std::strncmp(name, "libmkl_", 7) != 0 && std::strcmp(name, "libm.so.6") != 0) continue;
    // Already loaded as libvorn's dependency: this only widens its scope.
    if (void* library = dlopen(name, RTLD_NOW | RTLD_NOLOAD | RTLD_GLOBAL)) dlclose(library);
  }
  dlclose(layer);
}

}  // namespace
