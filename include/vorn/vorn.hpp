// The library's C++ interface: the aligned allocator and its exceptions, the
// sparse CSR products and the typed entry family VORN_stable_<NAME>. The
// plain family is declared in the C header vorn_instable.h.
#pragma once
#include <string>
#include <utility>

#include "vorn/aligned_ptr.hpp"

namespace VORN {

// The library's exception family. No virtual functions and no relation to
// std::exception: a catcher reads the fields.
class VORN_API Exception {
 public:
  Exception(std::string message, std::string typeName, std::string detail)
      : message(std::move(message)), typeName(std::move(typeName)), detail(std::move(detail)) {}

  std::string message;   // what went wrong
  std::string typeName;  // qualified name of the most-derived class
  std::string detail;    // empty in everything the library throws
};

class VORN_API SystemError : public Exception {
 public:
  using Exception::Exception;
};

class VORN_API OutOfMemoryError : public SystemError {
 public:
  using SystemError::SystemError;
};

}  // namespace VORN

namespace ARDU {

// Thrown by VORN_MKL_AlignedAlloc when no block could be obtained.
class VORN_API OutOfAlignedMemory : public VORN::OutOfMemoryError {
 public:
  explicit OutOfAlignedMemory(std::string message)
      : OutOfMemoryError(std::move(message), "ARDU::OutOfAlignedMemory", std::string()) {}
};

}  // namespace ARDU

// A block of `size` bytes aligned to `alignment` bytes from the computational
// library's allocator; null for a size of 0. The alignment is handed on as it
// is. Throws ARDU::OutOfAlignedMemory when the allocator refuses.
VORN_API void* VORN_MKL_AlignedAlloc(int alignment, unsigned long long size);
// Releases a block from VORN_MKL_AlignedAlloc.
VORN_API void VORN_MKL_AlignedFree(void* p);

// C = op(A) * B for CSR matrices with 1-based indices and 32-bit integers,
// in the computational library's mkl_?csrmultcsr convention (REQUEST 0: the
// whole product into C of capacity NNZMAX; 1: the row pointers IC only; 2:
// JC and C after stage 1). Bad arguments are reported through XERBLA as
// MKL_DCSRMULTCSR / MKL_ZCSRMULTCSR, with INFO left untouched. Complex
// values are (real, imaginary) pairs.
VORN_API void VORN_instable_dcsrmultcsr(char* trans, int* request, int* sort, int* m, int* n, int* k,
                                        double* a, int* ja, int* ia, double* b, int* jb, int* ib,
                                        double* c, int* jc, int* ic, int* nnzmax, int* info);
VORN_API void VORN_instable_zcsrmultcsr(char* trans, int* request, int* sort, int* m, int* n, int* k,
                                        double* a, int* ja, int* ia, double* b, int* jb, int* ib,
                                        double* c, int* jc, int* ic, int* nnzmax, int* info);

#include "vorn/vorn_stable.hpp"
