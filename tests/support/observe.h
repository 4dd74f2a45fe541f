// Observes the library from outside: the test executable defines the
// computational library's report, allocation and hook entries, so the
// library's calls land here first and are forwarded to MKL afterwards.
#pragma once
#include <cstddef>
#include <string>
#include <vector>

namespace observe {

struct Report {
  std::string name;
  long long position;  // read as the 64-bit cell the layer passes
  int length;
  bool from_layer;  // made by the library itself, not by MKL through the hook
};

enum class Kind { Allocate, Deallocate, SetXerbla, SetProgress, Entry };

struct Event {
  Kind kind;
  std::size_t bytes = 0;
  int alignment = 0;
  const void* pointer = nullptr;  // block, handler, or null
  std::string entry;              // for Entry: the library entry's name
};

// Reports seen since the last reset().
const std::vector<Report>& reports();
// Calls made by the library (not by MKL internally) since the last reset().
const std::vector<Event>& events();
void reset();

// The next `skip` allocations by the library succeed, the one after fails.
// A negative value switches failure injection off.
void fail_allocation_after(int skip);

// Every block the library allocated and has not released.
std::size_t outstanding_blocks();

// While one exists, each scratch block the library obtains ends right
// before an inaccessible page (8-byte aligned, so that one element too far
// faults), and the page before it is inaccessible too; a released block
// stays inaccessible. Setting
// VORN_TEST_GUARD_PAGES=1 in the environment keeps it on for the whole run.
struct GuardPages {
  GuardPages();
  ~GuardPages();
  GuardPages(const GuardPages&) = delete;
  GuardPages& operator=(const GuardPages&) = delete;
};

// Records that a library entry was reached (used by entry interposers).
void note_entry(const char* name, const void* return_address);

// Whether a code address lies in the library under test.
bool in_layer(const void* address);

// Resolves the next definition of `name` after the test executable.
void* next(const char* name);

}  // namespace observe
