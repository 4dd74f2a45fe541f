// Opens the module built from xerbla_host.cpp privately, as Python opens
// an extension, and runs its calls. This program defines no xerbla_.
#include <dlfcn.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  void* module = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  reinterpret_cast<void (*)()>(dlsym(module, "run"))();
  return 0;
}
