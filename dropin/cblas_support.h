// What the generated CBLAS entries of libblas.so.3 share: the option
// values, their Fortran letters, the per-call record that turns a report of
// the Fortran routine into one of the CBLAS routine, and the conjugated
// vectors that row-major storage of Hermitian and conjugate-transposed
// operands needs.
#pragma once
#include <complex>
#include <cstddef>
#include <new>

#include "dropin/export.h"

extern "C" {
// The handler a program may define; ours prints the report.
VORN_DROPIN_EXPORT void cblas_xerbla(int p, const char* rout, const char* form, ...);
// The reference library's flag for handlers that translate row-major
// positions themselves. Positions reach cblas_xerbla already translated,
// so every level 2 and 3 entry holds it at zero.
extern VORN_DROPIN_EXPORT int RowMajorStrg;
}

namespace vorn_cblas {

enum : int {
  kRowMajor = 101, kColMajor = 102,
  kNoTrans = 111, kTrans = 112, kConjTrans = 113,
  kUpper = 121, kLower = 122,
  kNonUnit = 131, kUnit = 132,
  kLeft = 141, kRight = 142,
};

// Each returns false for a value outside the option's set. `flip` is the
// row-major reading: the stored matrix is the transpose of the one meant.
inline bool to_uplo(int v, bool flip, char& c) {
  if (v != kUpper && v != kLower) return false;
  c = ((v == kUpper) != flip) ? 'U' : 'L';
  return true;
}
inline bool to_side(int v, bool flip, char& c) {
  if (v != kLeft && v != kRight) return false;
  c = ((v == kLeft) != flip) ? 'L' : 'R';
  return true;
}
inline bool to_diag(int v, char& c) {
  if (v != kNonUnit && v != kUnit) return false;
  c = v == kUnit ? 'U' : 'N';
  return true;
}
// The operation as written: column-major, and GEMM/TRMM/TRSM in either order.
inline bool to_trans(int v, char& c) {
  if (v < kNoTrans || v > kConjTrans) return false;
  c = "NTC"[v - kNoTrans];
  return true;
}
// Rank-k updates in row-major order: the other side of the product.
// `none` is the letter that stands for the transposed operand ('T' for the
// symmetric, 'C' for the Hermitian updates).
inline bool to_trans_rank(int v, char none, char& c) {
  if (v < kNoTrans || v > kConjTrans) return false;
  c = v == kNoTrans ? none : 'N';
  return true;
}
// Matrix-vector operations in row-major order. A conjugate transpose of the
// stored matrix is the plain product with conjugated operands.
inline bool to_trans_vector(int v, char& c, bool& conjugate) {
  if (v < kNoTrans || v > kConjTrans) return false;
  c = v == kNoTrans ? 'T' : 'N';
  conjugate = v == kConjTrans;
  return true;
}

// Holds RowMajorStrg at zero for the call (a program's handler written for
// the reference library may translate positions when it is set; some set it
// themselves before a row-major call).
struct Call {
  Call() {
    if (__atomic_load_n(&RowMajorStrg, __ATOMIC_RELAXED) != 0) __atomic_store_n(&RowMajorStrg, 0, __ATOMIC_RELAXED);
  }
};

// Reports an option outside its set, as the CBLAS routine itself finds it.
void refuse(int position, const char* routine, const char* form, int value);

// While alive, a report of the Fortran routine on this thread goes to
// cblas_xerbla with `routine` and CBLAS's position: positions[p] for the
// Fortran position p (positions[0] unused).
class Reports {
 public:
  Reports(const char* routine, const unsigned char* positions, int count);
  ~Reports();
  Reports(const Reports&) = delete;
  Reports& operator=(const Reports&) = delete;

  const char* const routine;
  const unsigned char* const positions;
  const int count;

 private:
  const Reports* previous_;
};

// A conjugated copy of the caller's vector of n elements (stride inc), laid
// out so that a stride of +1 or -1 reads the elements in the same order.
// Inactive, or with nothing to copy (n < 1) or an invalid stride, it hands
// on the caller's own vector and stride, so the routine sees and reports
// the arguments as given.
template <class R>
class Conjugated {
 public:
  Conjugated(bool active, const void* x, int n, int inc)
      : data_(static_cast<const R*>(x)), inc_(inc) {
    if (!active || n < 1 || inc == 0) return;
    copy_ = new (std::nothrow) std::complex<R>[static_cast<std::size_t>(n)];
    if (copy_ == nullptr) {
      failed_ = true;
      return;
    }
    const auto* from = static_cast<const std::complex<R>*>(x);
    const std::size_t step = static_cast<std::size_t>(inc < 0 ? -static_cast<long>(inc) : inc);
    for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) copy_[i] = std::conj(from[i * step]);
    data_ = reinterpret_cast<const R*>(copy_);
    inc_ = inc < 0 ? -1 : 1;
  }
  ~Conjugated() { delete[] copy_; }
  Conjugated(const Conjugated&) = delete;
  Conjugated& operator=(const Conjugated&) = delete;
  // True when a copy was wanted and could not be had.
  bool failed() const { return failed_; }
  const R* data() const { return data_; }
  const int* inc() const { return &inc_; }

 private:
  std::complex<R>* copy_ = nullptr;
  bool failed_ = false;
  const R* data_;
  int inc_;
};

// Conjugates the caller's vector in place for the call and back after it;
// conjugation is exact, so the caller gets back what it passed when the
// routine refuses its arguments.
template <class R>
class ConjugatedInPlace {
 public:
  ConjugatedInPlace(bool active, void* x, int n, int inc)
      : x_(static_cast<std::complex<R>*>(x)), n_(active && inc != 0 && n > 0 ? n : 0),
        step_(static_cast<std::size_t>(inc < 0 ? -static_cast<long>(inc) : inc)) {
    flip();
  }
  ~ConjugatedInPlace() { flip(); }
  ConjugatedInPlace(const ConjugatedInPlace&) = delete;
  ConjugatedInPlace& operator=(const ConjugatedInPlace&) = delete;

 private:
  void flip() {
    for (std::size_t i = 0; i < static_cast<std::size_t>(n_); ++i) x_[i * step_] = std::conj(x_[i * step_]);
  }
  std::complex<R>* x_;
  int n_;
  std::size_t step_;
};

// A complex scalar, conjugated when asked.
template <class R>
std::complex<R> scalar(const void* p, bool conjugate) {
  const std::complex<R> v = *static_cast<const std::complex<R>*>(p);
  return conjugate ? std::conj(v) : v;
}

// A conjugated copy could not be allocated: reported like the layer's own
// scratch arrays that cannot be had.
void out_of_memory(const char* routine);

}  // namespace vorn_cblas
