// The reference BLAS and LAPACK (Debian's libblas3/liblapack3), loaded by
// path so that whatever the alternatives point libblas.so.3 at does not
// matter. They are the oracles for results and for argument-error reports.
#pragma once
#include <string>
#include <vector>

namespace reference {

// Address of a reference routine, e.g. "dgeqrf_"; aborts if it is missing.
void* symbol(const char* name);

template <class F>
F fn(const char* name) {
  return reinterpret_cast<F>(symbol(name));
}

struct Report {
  std::string name;  // trailing blanks removed
  int position;
};

// Reports the reference routines made through their XERBLA since reset().
const std::vector<Report>& reports();
void reset();

}  // namespace reference
