// The sparse CSR products: the computational library offers them with
// 32-bit integers already, so the layer only checks the arguments it names
// and forwards the call as it is, without hooks.
#include "frame/lp64.h"
#include "frame/mkl_services.h"
#include "frame/report.h"
#include "vorn/vorn.hpp"

extern "C" {
void mkl_spblas_lp64_mkl_dcsrmultcsr(char* trans, int* request, int* sort, int* m, int* n, int* k, double* a,
                                     int* ja, int* ia, double* b, int* jb, int* ib, double* c, int* jc, int* ic,
                                     int* nnzmax, int* info);
void mkl_spblas_lp64_mkl_zcsrmultcsr(char* trans, int* request, int* sort, int* m, int* n, int* k, double* a,
                                     int* ja, int* ia, double* b, int* jb, int* ib, double* c, int* jc, int* ic,
                                     int* nnzmax, int* info);
}

namespace {

bool same_letter(const char* a, char b) { return mkl_serv_lsame(a, &b, 1, 1) != 0; }

// The number of the first bad argument, 0 if none. SORT is the computational
// library's to judge, and NNZMAX matters only when C is filled in one stage.
int bad_argument(const char* trans, const int* request, const int* m, const int* n, const int* k,
                 const int* nnzmax) {
  if (!same_letter(trans, 'N') && !same_letter(trans, 'T') && !same_letter(trans, 'C')) return 1;
  if (static_cast<unsigned>(*request) > 2) return 2;
  if (*m < 0) return 4;
  if (*n < 0) return 5;
  if (*k < 0) return 6;
  if (*request == 0 && *nnzmax < 0) return 16;
  return 0;
}

}  // namespace

extern "C" VORN_HIDDEN void vorn_if_dcsrmultcsr(char* trans, int* request, int* sort, int* m, int* n, int* k,
                                                double* a, int* ja, int* ia, double* b, int* jb, int* ib, double* c,
                                                int* jc, int* ic, int* nnzmax, int* info) {
  if (const int code = bad_argument(trans, request, m, n, k, nnzmax); code != 0) {
    vorn::report("MKL_DCSRMULTCSR", code);
    return;
  }
  mkl_spblas_lp64_mkl_dcsrmultcsr(trans, request, sort, m, n, k, a, ja, ia, b, jb, ib, c, jc, ic, nnzmax, info);
}

extern "C" VORN_HIDDEN void vorn_if_zcsrmultcsr(char* trans, int* request, int* sort, int* m, int* n, int* k,
                                                double* a, int* ja, int* ia, double* b, int* jb, int* ib, double* c,
                                                int* jc, int* ic, int* nnzmax, int* info) {
  if (const int code = bad_argument(trans, request, m, n, k, nnzmax); code != 0) {
    vorn::report("MKL_ZCSRMULTCSR", code);
    return;
  }
  mkl_spblas_lp64_mkl_zcsrmultcsr(trans, request, sort, m, n, k, a, ja, ia, b, jb, ib, c, jc, ic, nnzmax, info);
}

// The exported C++ names; see typed/aligned_memory.cpp.
void VORN_instable_dcsrmultcsr(char* trans, int* request, int* sort, int* m, int* n, int* k, double* a, int* ja,
                               int* ia, double* b, int* jb, int* ib, double* c, int* jc, int* ic, int* nnzmax,
                               int* info) {
  vorn_if_dcsrmultcsr(trans, request, sort, m, n, k, a, ja, ia, b, jb, ib, c, jc, ic, nnzmax, info);
}

void VORN_instable_zcsrmultcsr(char* trans, int* request, int* sort, int* m, int* n, int* k, double* a, int* ja,
                               int* ia, double* b, int* jb, int* ib, double* c, int* jc, int* ic, int* nnzmax,
                               int* info) {
  vorn_if_zcsrmultcsr(trans, request, sort, m, n, k, a, ja, ia, b, jb, ib, c, jc, ic, nnzmax, info);
}
