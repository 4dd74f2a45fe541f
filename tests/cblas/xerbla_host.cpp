// A host program's own XERBLA, as numpy, R and Octave define one. Built
// twice: as a program that defines xerbla_ itself, and as a module that
// defines it and is opened privately (RTLD_LOCAL) by xerbla_loader.cpp, as
// Python opens its extensions. Each call below has one bad argument; the
// program prints every report its xerbla_ receives and every INFO, and
// where its libblas.so.3 and liblapack.so.3 came from. Run against the
// reference libraries and through the companions, the reports must match.
#include <algorithm>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <set>
#include <string>

#define EXPORT extern "C" __attribute__((visibility("default")))

extern "C" {
void dgemm_(const char*, const char*, const int*, const int*, const int*, const double*, const double*, const int*,
            const double*, const int*, const double*, double*, const int*, std::size_t, std::size_t);
void zhemv_(const char*, const int*, const double*, const double*, const int*, const double*, const int*,
            const double*, double*, const int*, std::size_t);
void dgetrf_(const int*, const int*, double*, const int*, int*, int*);
void dgesv_(const int*, const int*, double*, const int*, int*, double*, const int*, int*);
void dsyev_(const char*, const char*, const int*, double*, const int*, double*, double*, const int*, int*,
            std::size_t, std::size_t);
void dgeqrt_(const int*, const int*, const int*, double*, const int*, double*, const int*, double*, int*);
}

namespace {
// Armed, the next report leaves by longjmp, as R's XERBLA leaves through
// its error handler; the reports after it must still arrive.
std::jmp_buf escape;
bool jump = false;
}  // namespace

EXPORT void xerbla_(const char* name, const int* info, std::size_t length) {
  std::string s(name, length);
  while (!s.empty() && s.back() == ' ') s.pop_back();
  std::printf("xerbla_ %s %d\n", s.c_str(), *info);
  if (jump) {
    jump = false;
    std::longjmp(escape, 1);
  }
}

namespace {

void mapped() {
  // Where the loader found the two libraries.
  std::ifstream maps("/proc/self/maps");
  std::set<std::string> seen;
  for (std::string line; std::getline(maps, line);) {
    const std::string path = line.substr(std::min(line.find('/'), line.size()));
    if ((path.find("/libblas.so") != std::string::npos || path.find("/liblapack.so") != std::string::npos) &&
        seen.insert(path).second)
      std::printf("mapped %s\n", path.c_str());
  }
}

}  // namespace

EXPORT void run() {
  double a[64] = {}, b[64] = {}, w[64] = {}, work[256] = {};
  const double one = 1, z[2] = {1, 0};
  int ipiv[8] = {}, info = 0;
  const int m = -1, two = 2, lda1 = 1, lwork = 256, zero = 0;
  // Found by the layer's own checks: level 3 and level 2 BLAS, DGETRF.
  if (setjmp(escape) == 0) {
    jump = true;
    dgemm_("N", "N", &m, &two, &two, &one, a, &two, b, &two, &one, w, &two, 1, 1);
    std::printf("no jump\n");
  }
  dgemm_("N", "N", &two, &two, &two, &one, a, &lda1, b, &two, &one, w, &two, 1, 1);
  zhemv_("U", &two, z, a, &two, b, &zero, z, w, &two, 1);
  dgetrf_(&m, &two, a, &two, ipiv, &info);
  std::printf("dgetrf info %d\n", info);
  // Found by the computational library.
  dgesv_(&two, &two, a, &lda1, ipiv, b, &two, &info);
  std::printf("dgesv info %d\n", info);
  dsyev_("N", "X", &two, a, &two, w, work, &lwork, &info, 1, 1);
  std::printf("dsyev info %d\n", info);
  // Outside the routine set: the reference routine behind the companion.
  dgeqrt_(&two, &two, &two, a, &lda1, b, &two, work, &info);
  std::printf("dgeqrt info %d\n", info);
  mapped();
}

#ifndef XERBLA_MODULE
int main() {
  run();
  return 0;
}
#endif
