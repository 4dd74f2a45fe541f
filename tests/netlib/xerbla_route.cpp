// Preloaded into the netlib BLAS test programs only. The layer reports
// argument errors through the computational library's default handler; the
// test programs expect their own XERBLA to be called instead, with the
// routine's name and a 32-bit position. This library takes the handler's
// place and passes each report on to the program's XERBLA, or, when the
// program has none, on to the computational library's handler (calling the
// companion library's xerbla_ would come straight back here).
#include <dlfcn.h>
#include <link.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace {

using ProgramXerbla = void (*)(const char*, const int*, std::size_t);
using Handler = void (*)(const char*, const void*, int);

// The program's own xerbla_, or null when the first definition in the
// global scope belongs to a shared library.
ProgramXerbla program_xerbla() {
  static const ProgramXerbla found = [] {
    void* symbol = dlsym(RTLD_DEFAULT, "xerbla_");
    link_map* owner = nullptr;
    Dl_info info{};
    if (symbol == nullptr || dladdr1(symbol, &info, reinterpret_cast<void**>(&owner), RTLD_DL_LINKMAP) == 0) {
      return ProgramXerbla{nullptr};
    }
    link_map* program = nullptr;
    if (dlinfo(dlopen(nullptr, RTLD_NOW), RTLD_DI_LINKMAP, &program) != 0) return ProgramXerbla{nullptr};
    return owner == program ? reinterpret_cast<ProgramXerbla>(symbol) : ProgramXerbla{nullptr};
  }();
  return found;
}

Handler library_handler() {
  static const Handler next = [] {
    auto h = reinterpret_cast<Handler>(dlsym(RTLD_NEXT, "mkl_serv_default_xerbla"));
    if (h == nullptr) {
      std::fprintf(stderr, "xerbla_route: no mkl_serv_default_xerbla after this library\n");
      std::abort();
    }
    return h;
  }();
  return next;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void mkl_serv_default_xerbla(const char* name, const void* position,
                                                                               int length) {
  const ProgramXerbla program = program_xerbla();
  if (program == nullptr) {
    library_handler()(name, position, length);
    return;
  }
  // The layer's reports carry a 64-bit position cell.
  const int info = static_cast<int>(*static_cast<const long long*>(position));
  program(name, &info, static_cast<std::size_t>(length));
}
