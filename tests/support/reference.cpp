#include "reference.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace reference {
namespace {

constexpr const char* kBlas = VORN_REFERENCE_BLAS;
constexpr const char* kLapack = VORN_REFERENCE_LAPACK;

void* open(const char* path) {
  void* h = dlopen(path, RTLD_NOW | RTLD_GLOBAL);
  if (h == nullptr) {
    std::fprintf(stderr, "reference: %s\n", dlerror());
    std::abort();
  }
  return h;
}

// The reference BLAS goes first, so that the reference LAPACK's own need
// for libblas.so.3 is met by it rather than by the system's alternative.
void* blas() {
  static void* h = open(kBlas);
  return h;
}
void* lapack() {
  static void* h = (blas(), open(kLapack));
  return h;
}

std::vector<Report>& log() {
  static std::vector<Report> v;
  return v;
}

}  // namespace

void* symbol(const char* name) {
  void* f = dlsym(blas(), name);
  if (f == nullptr) f = dlsym(lapack(), name);
  if (f == nullptr) {
    std::fprintf(stderr, "reference: no %s\n", name);
    std::abort();
  }
  return f;
}

const std::vector<Report>& reports() { return log(); }
void reset() { log().clear(); }

}  // namespace reference

// The reference routines call XERBLA through the global scope, where the
// test executable's definition comes first: it records instead of stopping.
extern "C" void xerbla_(const char* name, const int* info, std::size_t length) {
  std::string n(name, length);
  while (!n.empty() && n.back() == ' ') n.pop_back();
  reference::log().push_back({n, *info});
}
