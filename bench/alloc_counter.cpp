// Preloaded into the overhead driver for its counting run: counts the
// scratch allocations and releases that the layer (and only the layer)
// makes through MKL's allocator. Kept out of the callgrind run so that the
// instruction counts stay those of the unobserved layer.
#include <dlfcn.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace {

std::atomic<long long> allocations{0};
std::atomic<long long> releases{0};

void* next(const char* name) {
  void* f = dlsym(RTLD_NEXT, name);
  if (f == nullptr) {
    std::fprintf(stderr, "alloc_counter: no %s after the preloaded library\n", name);
    std::abort();
  }
  return f;
}

bool from_layer(const void* return_address) {
  static const void* layer = [] {
    Dl_info info{};
    void* probe = dlsym(RTLD_DEFAULT, "VORN_instable_daxpy");
    return probe != nullptr && dladdr(probe, &info) != 0 ? info.dli_fbase : nullptr;
  }();
  Dl_info info{};
  return layer != nullptr && dladdr(return_address, &info) != 0 && info.dli_fbase == layer;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void* mkl_serv_allocate(std::size_t bytes, int alignment) {
  static auto real = reinterpret_cast<void* (*)(std::size_t, int)>(next("mkl_serv_allocate"));
  if (from_layer(__builtin_return_address(0))) allocations.fetch_add(1, std::memory_order_relaxed);
  return real(bytes, alignment);
}

__attribute__((visibility("default"))) void mkl_serv_deallocate(void* p) {
  static auto real = reinterpret_cast<void (*)(void*)>(next("mkl_serv_deallocate"));
  if (from_layer(__builtin_return_address(0))) releases.fetch_add(1, std::memory_order_relaxed);
  real(p);
}

__attribute__((visibility("default"))) void vorn_bench_allocation_counts(long long* a, long long* r) {
  *a = allocations.load();
  *r = releases.load();
}

}  // extern "C"
