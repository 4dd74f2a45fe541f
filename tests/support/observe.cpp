#include "observe.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>

namespace observe {
namespace {

std::recursive_mutex& lock() {
  static std::recursive_mutex m;
  return m;
}
std::vector<Report>& report_log() {
  static std::vector<Report> v;
  return v;
}
std::vector<Event>& event_log() {
  static std::vector<Event> v;
  return v;
}
std::set<const void*>& live() {
  static std::set<const void*> s;
  return s;
}
int failure_countdown = -1;

std::atomic<int> guard_users{std::getenv("VORN_TEST_GUARD_PAGES") != nullptr ? 1 : 0};
// Guarded block -> its whole mapping (base, length).
std::map<const void*, std::pair<void*, std::size_t>>& guarded() {
  static std::map<const void*, std::pair<void*, std::size_t>> m;
  return m;
}

void* guarded_allocate(std::size_t bytes) {
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t used = (std::max<std::size_t>(bytes, 1) + 7) / 8 * 8;
  const std::size_t inner = (used + page - 1) / page * page;
  const std::size_t length = inner + 2 * page;
  void* base = mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (base == MAP_FAILED) return nullptr;
  char* first = static_cast<char*>(base) + page;
  mprotect(first, inner, PROT_READ | PROT_WRITE);
  void* block = first + inner - used;
  guarded()[block] = {base, length};
  return block;
}

const void* layer_base() {
  static const void* base = [] {
    Dl_info info{};
    void* probe = dlsym(RTLD_DEFAULT, "VORN_instable_dasum");
    if (probe == nullptr || dladdr(probe, &info) == 0) return static_cast<const void*>(nullptr);
    return static_cast<const void*>(info.dli_fbase);
  }();
  return base;
}

void record(Event e) {
  std::lock_guard g(lock());
  event_log().push_back(std::move(e));
}

}  // namespace

bool in_layer(const void* address) {
  Dl_info info{};
  return address != nullptr && dladdr(address, &info) != 0 && info.dli_fbase == layer_base();
}

void* next(const char* name) {
  void* f = dlsym(RTLD_NEXT, name);
  if (f == nullptr) {
    std::fprintf(stderr, "observe: no definition of %s after the test executable\n", name);
    std::abort();
  }
  return f;
}

const std::vector<Report>& reports() { return report_log(); }
const std::vector<Event>& events() { return event_log(); }

void reset() {
  std::lock_guard g(lock());
  report_log().clear();
  event_log().clear();
  failure_countdown = -1;
}

void fail_allocation_after(int skip) { failure_countdown = skip; }

GuardPages::GuardPages() { ++guard_users; }
GuardPages::~GuardPages() { --guard_users; }

std::size_t outstanding_blocks() {
  std::lock_guard g(lock());
  return live().size();
}

void note_entry(const char* name, const void* return_address) {
  if (in_layer(return_address)) record({Kind::Entry, 0, 0, nullptr, name});
}

}  // namespace observe

using observe::Event;
using observe::Kind;

extern "C" {

void mkl_serv_default_xerbla(const char* name, const void* position, int length) {
  const bool layer = observe::in_layer(__builtin_return_address(0));
  // The layer passes a 64-bit cell; MKL's own callers may pass 32 bits.
  long long pos = layer ? *static_cast<const long long*>(position) : *static_cast<const int*>(position);
  std::lock_guard g(observe::lock());
  observe::report_log().push_back({std::string(name, length > 0 && length < 64 ? length : 0), pos, length, layer});
}

void* mkl_serv_allocate(std::size_t bytes, int alignment) {
  static auto real = reinterpret_cast<void* (*)(std::size_t, int)>(observe::next("mkl_serv_allocate"));
  if (!observe::in_layer(__builtin_return_address(0))) return real(bytes, alignment);
  void* p = nullptr;
  {
    std::lock_guard g(observe::lock());
    const bool fail = observe::failure_countdown == 0;
    if (observe::failure_countdown >= 0) --observe::failure_countdown;
    if (!fail) {
      p = observe::guard_users > 0 ? observe::guarded_allocate(bytes) : real(bytes, alignment);
      observe::live().insert(p);
    }
  }
  observe::record({Kind::Allocate, bytes, alignment, p, {}});
  return p;
}

void mkl_serv_deallocate(void* p) {
  static auto real = reinterpret_cast<void (*)(void*)>(observe::next("mkl_serv_deallocate"));
  if (observe::in_layer(__builtin_return_address(0))) {
    std::pair<void*, std::size_t> mapping{};
    {
      std::lock_guard g(observe::lock());
      observe::live().erase(p);
      if (auto it = observe::guarded().find(p); it != observe::guarded().end()) {
        mapping = it->second;
        observe::guarded().erase(it);
      }
    }
    observe::record({Kind::Deallocate, 0, 0, p, {}});
    if (mapping.first != nullptr) {
      // Kept inaccessible rather than unmapped: a use after release faults,
      // and no later block reuses the address.
      madvise(mapping.first, mapping.second, MADV_DONTNEED);
      mprotect(mapping.first, mapping.second, PROT_NONE);
      return;
    }
  }
  real(p);
}

void mkl_serv_set_xerbla_interface(void* handler) {
  static auto real = reinterpret_cast<void (*)(void*)>(observe::next("mkl_serv_set_xerbla_interface"));
  if (observe::in_layer(__builtin_return_address(0))) observe::record({Kind::SetXerbla, 0, 0, handler, {}});
  real(handler);
}

void mkl_serv_set_progress_interface(void* handler) {
  static auto real = reinterpret_cast<void (*)(void*)>(observe::next("mkl_serv_set_progress_interface"));
  if (observe::in_layer(__builtin_return_address(0))) observe::record({Kind::SetProgress, 0, 0, handler, {}});
  real(handler);
}

}  // extern "C"
