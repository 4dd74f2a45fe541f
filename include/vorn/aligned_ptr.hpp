// The array type of the typed entry family, and the export attribute of the
// library's C++ interface.
#pragma once

// The library is built with hidden visibility; its C++ interface, the
// exception classes included, is marked for export so that a caller's catch
// clause and the library's throw agree on the type. The Windows DLL exports
// its C++ entries under MSVC decorations from entries of their own, and
// nothing else.
#if defined(__GNUC__) && !defined(_WIN32)
#define VORN_API __attribute__((visibility("default")))
#else
#define VORN_API
#endif

namespace Kessnar {

// A pointer the caller promises is aligned (typically a block from
// VORN_MKL_AlignedAlloc). Passed by value in one argument slot; the library
// reads the pointer and nothing else, and neither tests nor uses the
// alignment. Complex arrays are arrays of their real component.
//   double* a = ...; VORN_stable_DPOTRF('U', n, Kessnar::AlignedPtr<double>{a}, n, info);
template <class T>
struct VORN_API AlignedPtr {
  T* ptr;
};

}  // namespace Kessnar
