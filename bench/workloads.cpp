#include "workloads.h"

#include "forward.h"
#include "mkl_entries.h"
#include "mkl_services.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>

// The typed family is declared here from its published signatures rather
// than taken from a header, so the benchmarks build before that family
// exists. Weak references resolve to null while the layer lacks an entry;
// the compiler supplies the decorated names. Both placements of the entries
// (global scope, namespace VORN) are tried.
namespace Kessnar {
template <class T>
struct AlignedPtr {
  T* p;
};
}  // namespace Kessnar

#define VORN_BENCH_TYPED(ret, name, ...)                         \
  ret name(__VA_ARGS__) __attribute__((weak));                    \
  namespace VORN {                                                \
  ret name(__VA_ARGS__) __attribute__((weak));                    \
  }
using Kessnar::AlignedPtr;
VORN_BENCH_TYPED(int, VORN_stable_IDAMAX, const int&, AlignedPtr<const double>, const int&)
VORN_BENCH_TYPED(void, VORN_stable_DGEMV, const char&, const int&, const int&, const double&, AlignedPtr<const double>,
                 const int&, AlignedPtr<const double>, const int&, const double&, AlignedPtr<double>, const int&)
VORN_BENCH_TYPED(void, VORN_stable_DGEMM, const char&, const char&, const int&, const int&, const int&, const double&,
                 AlignedPtr<const double>, const int&, AlignedPtr<const double>, const int&, const double&,
                 AlignedPtr<double>, const int&)
VORN_BENCH_TYPED(void, VORN_stable_DTRSM, const char&, const char&, const char&, const char&, const int&, const int&,
                 const double&, AlignedPtr<const double>, const int&, AlignedPtr<double>, const int&)
VORN_BENCH_TYPED(void, VORN_stable_ZGEMM, const char&, const char&, const int&, const int&, const int&, const double*,
                 AlignedPtr<const double>, const int&, AlignedPtr<const double>, const int&, const double*,
                 AlignedPtr<double>, const int&)
VORN_BENCH_TYPED(void, VORN_stable_DPOTRF, char, int, AlignedPtr<double>, int, int&)
VORN_BENCH_TYPED(void, VORN_stable_DGEQRF, int, int, AlignedPtr<double>, int, AlignedPtr<double>, AlignedPtr<double>,
                 int, int&)
VORN_BENCH_TYPED(void, VORN_stable_DGETRF, int, int, AlignedPtr<double>, int, AlignedPtr<int>, int&)
VORN_BENCH_TYPED(void, VORN_stable_DGETRS, char, int, int, AlignedPtr<double>, int, AlignedPtr<int>, AlignedPtr<double>,
                 int, int&)
#undef VORN_BENCH_TYPED

namespace bench {
namespace {

using i64 = std::int64_t;

// ---------------------------------------------------------------------------
// Libraries beside the layer. Each goes into a link-map namespace of its own:
// OpenBLAS and the reference both carry the soname libblas.so.3, and the
// reference LAPACK must bind to the reference BLAS, not to whichever
// libblas.so.3 was loaded first.

struct Foreign {
  void* blas = nullptr;
  void* lapack = nullptr;
  std::string error;
  std::string note;
};

bool same_file(const char* a, const char* b) {
  char ra[PATH_MAX], rb[PATH_MAX];
  return realpath(a, ra) != nullptr && realpath(b, rb) != nullptr && std::strcmp(ra, rb) == 0;
}

Foreign load_foreign(const char* label, const char* blas_path, const char* lapack_path) {
  Foreign f;
  f.blas = dlmopen(LM_ID_NEWLM, blas_path, RTLD_NOW | RTLD_LOCAL);
  if (f.blas == nullptr) {
    f.error = std::string(label) + ": " + dlerror();
    return f;
  }
  Lmid_t space{};
  dlinfo(f.blas, RTLD_DI_LMID, &space);
  f.lapack = dlmopen(space, lapack_path, RTLD_NOW | RTLD_LOCAL);
  if (f.lapack == nullptr) {
    f.error = std::string(label) + ": " + dlerror();
    return f;
  }
  // The namespace must hold exactly one libblas.so.3, the one asked for.
  link_map* m = nullptr;
  dlinfo(f.lapack, RTLD_DI_LINKMAP, &m);
  while (m != nullptr && m->l_prev != nullptr) m = m->l_prev;
  int blas_objects = 0;
  bool right_one = false;
  for (; m != nullptr; m = m->l_next) {
    const std::string_view path = m->l_name;
    const std::string_view base = path.substr(path.rfind('/') + 1);
    if (base.starts_with("libblas.so")) {
      ++blas_objects;
      right_one = same_file(m->l_name, blas_path);
    }
  }
  if (blas_objects != 1 || !right_one) {
    f.error = std::string(label) + ": its LAPACK did not bind to " + blas_path;
    return f;
  }
  f.note = std::string(label) + ": " + blas_path + " + " + lapack_path + " (own link-map namespace; LAPACK bound to that BLAS)";
  return f;
}

const Foreign& openblas() {
  static const Foreign f = [] {
    setenv("OPENBLAS_NUM_THREADS", "1", 0);
    return load_foreign("OpenBLAS", "/usr/lib/x86_64-linux-gnu/openblas-pthread/libblas.so.3",
                        "/usr/lib/x86_64-linux-gnu/openblas-pthread/liblapack.so.3");
  }();
  return f;
}

const Foreign& reference() {
  static const Foreign f = load_foreign("reference", VORN_REFERENCE_BLAS, VORN_REFERENCE_LAPACK);
  return f;
}

void* foreign_symbol(const Foreign& lib, const char* name) {
  if (!lib.error.empty()) return nullptr;
  void* f = dlsym(lib.blas, name);
  return f != nullptr ? f : dlsym(lib.lapack, name);
}

template <class F>
void* address(F* f) {
  return reinterpret_cast<void*>(f);
}

// ---------------------------------------------------------------------------
// Entry resolution shared by all routines.

struct Names {
  const char* layer;    // VORN_instable_ spelling
  const char* direct;   // MKL's internal entry
  const char* foreign;  // gfortran name in OpenBLAS and the reference; null if they lack the routine
  void* typed;          // weak reference value; null when absent
  bool has_typed;       // whether the typed family has this routine at all
  bool hooks = false;   // LAPACK: the layer installs the two hooks
  long scratch = -1;    // elements of the layer's one scratch array; -1: none
};

class Resolved : public Workload {
 public:
  explicit Resolved(const Names& n)
      : foreign_(n.foreign), has_typed_(n.has_typed), has_foreign_(n.foreign != nullptr), hooks_(n.hooks),
        scratch_bytes_(n.scratch < 0 ? 0 : std::max<long>(n.scratch, 1) * sizeof(i64)) {
    fn_[index(Impl::layer)] = dlsym(RTLD_DEFAULT, n.layer);
    fn_[index(Impl::direct)] = dlsym(RTLD_DEFAULT, n.direct);
    fn_[index(Impl::typed)] = n.typed;
  }

  bool applicable(Impl impl) const override {
    if (impl == Impl::typed) return has_typed_;
    if (impl == Impl::mandated) return hooks_ || scratch_bytes_ > 0;
    if (impl == Impl::forward) return fn_[index(impl)] != nullptr;
    if (impl == Impl::openblas || impl == Impl::reference) return has_foreign_;
    return true;
  }

  const char* unavailable(Impl impl) const override {
    if (!applicable(impl)) return "the routine has no such entry";
    // The other libraries are loaded on first use only: the callgrind
    // driver never needs them.
    if (impl == Impl::openblas && fn_[index(impl)] == nullptr) fn_[index(impl)] = foreign_symbol(openblas(), foreign_);
    if (impl == Impl::reference && fn_[index(impl)] == nullptr) fn_[index(impl)] = foreign_symbol(reference(), foreign_);
    if (impl == Impl::mandated || fn_[index(impl)] != nullptr) return nullptr;
    switch (impl) {
      case Impl::layer: return "not exported by this build of the layer";
      case Impl::typed: return "typed entry not exported by this build of the layer";
      case Impl::direct: return "MKL entry not found";
      case Impl::openblas: return openblas().error.empty() ? "not in OpenBLAS" : openblas().error.c_str();
      case Impl::reference: return reference().error.empty() ? "not in the reference" : reference().error.c_str();
      case Impl::mandated:
      case Impl::forward: break;
    }
    return "unknown";
  }

 protected:
  // The same service calls, in the same order, as the layer's frame.
  void mandated() override {
    void* scratch = scratch_bytes_ > 0 ? mkl_serv_allocate(scratch_bytes_, 128) : nullptr;
    if (hooks_) install_default_hooks();
    if (scratch != nullptr) mkl_serv_deallocate(scratch);
  }

  template <class F>
  void forwards_to(F* f) {
    fn_[index(Impl::forward)] = address(f);
  }

  template <class F>
  F* fn(Impl impl) const {
    return reinterpret_cast<F*>(fn_[index(impl)]);
  }

 private:
  static int index(Impl impl) { return static_cast<int>(impl); }
  mutable void* fn_[std::size(kAllImpls)] = {};
  const char* foreign_;
  bool has_typed_;
  bool has_foreign_;
  bool hooks_;
  std::size_t scratch_bytes_;
};

template <class Global, class InVorn>
void* typed_entry(Global* g, InVorn* v) {
  return g != nullptr ? address(g) : address(v);
}

// Deterministic data with no special values (no zeros, no repeats that a
// library could short-cut).
double value(std::size_t i) { return 0.25 + static_cast<double>((i * 2654435761u) % 1000u) / 1000.0; }

std::vector<double> vector_of(std::size_t count, std::size_t seed) {
  std::vector<double> v(std::max<std::size_t>(count, 1));
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = value(i + seed);
  return v;
}

// Symmetric and strictly diagonally dominant: positive definite, and an LU
// factorisation without growth.
std::vector<double> dominant(int n) {
  const std::size_t ld = std::max(n, 1);
  std::vector<double> a(ld * ld);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) a[i + j * ld] = i == j ? 2.0 * n : value(std::min(i, j) * 131 + std::max(i, j)) - 0.6;
  return a;
}

// ---------------------------------------------------------------------------
// Level 1.

class Daxpy final : public Resolved {
  using Plain = void(const int*, const double*, const double*, const int*, double*, const int*);
  using Wide = decltype(mkl_blas_daxpy);

 public:
  explicit Daxpy(int n)
      : Resolved({"VORN_instable_daxpy", "mkl_blas_daxpy", "daxpy_", nullptr, false}),
        n_(n), n64_(n), x_(vector_of(n, 1)), y_(vector_of(n, 2)) {}
  void invoke(Impl impl) override {
    // y grows by x/2 per call: bounded for any realistic iteration count.
    if (impl == Impl::direct)
      fn<Wide>(impl)(&n64_, &alpha_, x_.data(), &one64_, y_.data(), &one64_);
    else
      fn<Plain>(impl)(&n_, &alpha_, x_.data(), &one_, y_.data(), &one_);
  }

 private:
  int n_, one_ = 1;
  i64 n64_, one64_ = 1;
  double alpha_ = 0.5;
  std::vector<double> x_, y_;
};

class Ddot final : public Resolved {
  using Plain = double(const int*, const double*, const int*, const double*, const int*);
  using Wide = decltype(mkl_blas_ddot);

 public:
  explicit Ddot(int n)
      : Resolved({"VORN_instable_ddot", "mkl_blas_ddot", "ddot_", nullptr, false}),
        n_(n), n64_(n), x_(vector_of(n, 1)), y_(vector_of(n, 2)) {}
  void invoke(Impl impl) override {
    double r = impl == Impl::direct ? fn<Wide>(impl)(&n64_, x_.data(), &one64_, y_.data(), &one64_)
                                    : fn<Plain>(impl)(&n_, x_.data(), &one_, y_.data(), &one_);
    asm volatile("" : : "x"(r));
  }

 private:
  int n_, one_ = 1;
  i64 n64_, one64_ = 1;
  std::vector<double> x_, y_;
};

class Idamax final : public Resolved {
  using Plain = int(const int*, const double*, const int*);
  using Wide = decltype(mkl_blas_idamax);

 public:
  explicit Idamax(int n)
      : Resolved({"VORN_instable_idamax", "mkl_blas_idamax", "idamax_",
                  typed_entry(&::VORN_stable_IDAMAX, &VORN::VORN_stable_IDAMAX), true}),
        n_(n), n64_(n), x_(vector_of(n, 3)) {}
  void invoke(Impl impl) override {
    i64 r = 0;
    if (impl == Impl::direct)
      r = fn<Wide>(impl)(&n64_, x_.data(), &one64_);
    else if (impl == Impl::typed)
      r = fn<decltype(::VORN_stable_IDAMAX)>(impl)(n_, {x_.data()}, one_);
    else
      r = fn<Plain>(impl)(&n_, x_.data(), &one_);
    asm volatile("" : : "r"(r));
  }

 private:
  int n_, one_ = 1;
  i64 n64_, one64_ = 1;
  std::vector<double> x_;
};

// ---------------------------------------------------------------------------
// Level 2 and 3: square problems, beta = 1/2 so the output stays bounded.

class Dgemv final : public Resolved {
  using Plain = void(const char*, const int*, const int*, const double*, const double*, const int*, const double*,
                     const int*, const double*, double*, const int*);
  using Wide = decltype(mkl_blas_dgemv);
  using Fortran = void(const char*, const int*, const int*, const double*, const double*, const int*, const double*,
                       const int*, const double*, double*, const int*, std::size_t);

 public:
  explicit Dgemv(int n)
      : Resolved({"VORN_instable_dgemv", "mkl_blas_dgemv", "dgemv_",
                  typed_entry(&::VORN_stable_DGEMV, &VORN::VORN_stable_DGEMV), true}),
        n_(n), ld_(std::max(n, 1)), n64_(n), ld64_(ld_),
        a_(vector_of(std::size_t(ld_) * n, 1)), x_(vector_of(n, 2)), y_(vector_of(n, 3)) {
    forwards_to(&forward::dgemv);
  }
  void invoke(Impl impl) override {
    switch (impl) {
      case Impl::layer:
      case Impl::forward:
        fn<Plain>(impl)("N", &n_, &n_, &alpha_, a_.data(), &ld_, x_.data(), &one_, &beta_, y_.data(), &one_);
        break;
      case Impl::typed:
        fn<decltype(::VORN_stable_DGEMV)>(impl)('N', n_, n_, alpha_, {a_.data()}, ld_, {x_.data()}, one_, beta_,
                                                {y_.data()}, one_);
        break;
      case Impl::direct:
        fn<Wide>(impl)("N", &n64_, &n64_, &alpha_, a_.data(), &ld64_, x_.data(), &one64_, &beta_, y_.data(), &one64_,
                       1);
        break;
      default:
        fn<Fortran>(impl)("N", &n_, &n_, &alpha_, a_.data(), &ld_, x_.data(), &one_, &beta_, y_.data(), &one_, 1);
    }
  }

 private:
  int n_, ld_, one_ = 1;
  i64 n64_, ld64_, one64_ = 1;
  double alpha_ = 1.0, beta_ = 0.5;
  std::vector<double> a_, x_, y_;
};

// DGEMM, and ZGEMM on complex matrices as interleaved pairs; alpha = 1,
// beta = 1/2.
template <bool Complex>
class Gemm final : public Resolved {
  using Plain = void(const char*, const char*, const int*, const int*, const int*, const double*, const double*,
                     const int*, const double*, const int*, const double*, double*, const int*);
  using Wide = decltype(mkl_blas_dgemm);  // ZGEMM's is the same
  using Fortran = void(const char*, const char*, const int*, const int*, const int*, const double*, const double*,
                       const int*, const double*, const int*, const double*, double*, const int*, std::size_t,
                       std::size_t);
  static constexpr std::size_t kParts = Complex ? 2 : 1;

 public:
  explicit Gemm(int n)
      : Resolved({Complex ? "VORN_instable_zgemm" : "VORN_instable_dgemm", Complex ? "mkl_blas_zgemm" : "mkl_blas_dgemm",
                  Complex ? "zgemm_" : "dgemm_",
                  Complex ? typed_entry(&::VORN_stable_ZGEMM, &VORN::VORN_stable_ZGEMM)
                          : typed_entry(&::VORN_stable_DGEMM, &VORN::VORN_stable_DGEMM),
                  true}),
        n_(n), ld_(std::max(n, 1)), n64_(n), ld64_(ld_), a_(vector_of(kParts * ld_ * n, 1)),
        b_(vector_of(kParts * ld_ * n, 2)), c_(vector_of(kParts * ld_ * n, 3)) {
    // Entries in [-1/2, 1/2) keep C = AB + C/2 bounded (halved again for
    // complex products).
    for (auto* v : {&a_, &b_})
      for (double& e : *v) e = (e - 0.75) / static_cast<double>(kParts);
    forwards_to(Complex ? &forward::zgemm : &forward::dgemm);
  }
  void invoke(Impl impl) override {
    switch (impl) {
      case Impl::layer:
      case Impl::forward:
        fn<Plain>(impl)("N", "N", &n_, &n_, &n_, alpha_, a_.data(), &ld_, b_.data(), &ld_, beta_, c_.data(), &ld_);
        break;
      case Impl::typed:
        if constexpr (Complex)
          fn<decltype(::VORN_stable_ZGEMM)>(impl)('N', 'N', n_, n_, n_, alpha_, {a_.data()}, ld_, {b_.data()}, ld_,
                                                  beta_, {c_.data()}, ld_);
        else
          fn<decltype(::VORN_stable_DGEMM)>(impl)('N', 'N', n_, n_, n_, *alpha_, {a_.data()}, ld_, {b_.data()}, ld_,
                                                  *beta_, {c_.data()}, ld_);
        break;
      case Impl::direct:
        fn<Wide>(impl)("N", "N", &n64_, &n64_, &n64_, alpha_, a_.data(), &ld64_, b_.data(), &ld64_, beta_, c_.data(),
                       &ld64_);
        break;
      default:
        fn<Fortran>(impl)("N", "N", &n_, &n_, &n_, alpha_, a_.data(), &ld_, b_.data(), &ld_, beta_, c_.data(), &ld_,
                          1, 1);
    }
  }

 private:
  int n_, ld_;
  i64 n64_, ld64_;
  double alpha_[2] = {1.0, 0.0}, beta_[2] = {0.5, 0.0};
  std::vector<double> a_, b_, c_;
};

// Triangular solve with a dominant lower triangle, B from the pool: the
// solve overwrites it.
class Dtrsm final : public Resolved {
  using Plain = void(const char*, const char*, const char*, const char*, const int*, const int*, const double*,
                     const double*, const int*, double*, const int*);
  using Wide = decltype(mkl_blas_dtrsm);
  using Fortran = void(const char*, const char*, const char*, const char*, const int*, const int*, const double*,
                       const double*, const int*, double*, const int*, std::size_t, std::size_t, std::size_t,
                       std::size_t);

 public:
  explicit Dtrsm(int n)
      : Resolved({"VORN_instable_dtrsm", "mkl_blas_dtrsm", "dtrsm_",
                  typed_entry(&::VORN_stable_DTRSM, &VORN::VORN_stable_DTRSM), true}),
        n_(n), ld_(std::max(n, 1)), n64_(n), ld64_(ld_), a_(n > 0 ? dominant(n) : std::vector<double>(1)) {
    use_pool(n > 0 ? vector_of(std::size_t(ld_) * n, 4) : std::vector<double>{});
    forwards_to(&forward::dtrsm);
  }
  void invoke(Impl impl) override {
    double* b = fresh();
    switch (impl) {
      case Impl::layer:
      case Impl::forward: fn<Plain>(impl)("L", "L", "N", "N", &n_, &n_, &alpha_, a_.data(), &ld_, b, &ld_); break;
      case Impl::typed:
        fn<decltype(::VORN_stable_DTRSM)>(impl)('L', 'L', 'N', 'N', n_, n_, alpha_, {a_.data()}, ld_, {b}, ld_);
        break;
      case Impl::direct:
        fn<Wide>(impl)("L", "L", "N", "N", &n64_, &n64_, &alpha_, a_.data(), &ld64_, b, &ld64_);
        break;
      default: fn<Fortran>(impl)("L", "L", "N", "N", &n_, &n_, &alpha_, a_.data(), &ld_, b, &ld_, 1, 1, 1, 1);
    }
  }

 private:
  int n_, ld_;
  i64 n64_, ld64_;
  double alpha_ = 1.0;
  std::vector<double> a_;
};


// ---------------------------------------------------------------------------
// LAPACK, scalar arguments only. The factorisations overwrite A, so every
// call takes a fresh copy from the pool.

class Dpotrf final : public Resolved {
  using Plain = void(const char*, const int*, double*, const int*, int*);
  using Wide = decltype(mkl_lapack_dpotrf);
  using Fortran = void(const char*, const int*, double*, const int*, int*, std::size_t);

 public:
  explicit Dpotrf(int n)
      : Resolved({"VORN_instable_dpotrf_", "mkl_lapack_dpotrf", "dpotrf_",
                  typed_entry(&::VORN_stable_DPOTRF, &VORN::VORN_stable_DPOTRF), true, true}),
        n_(n), ld_(std::max(n, 1)), n64_(n), ld64_(ld_) {
    use_pool(n > 0 ? dominant(n) : std::vector<double>{});
    forwards_to(&forward::dpotrf);
  }
  void invoke(Impl impl) override {
    double* a = fresh();
    switch (impl) {
      case Impl::layer:
      case Impl::forward: fn<Plain>(impl)("L", &n_, a, &ld_, &info_); break;
      case Impl::typed: fn<decltype(::VORN_stable_DPOTRF)>(impl)('L', n_, {a}, ld_, info_); break;
      case Impl::direct: fn<Wide>(impl)("L", &n64_, a, &ld64_, &info64_, 1); break;
      default: fn<Fortran>(impl)("L", &n_, a, &ld_, &info_, 1);
    }
  }

 private:
  int n_, ld_, info_ = 0;
  i64 n64_, ld64_, info64_ = 0;
};

class Dgeqrf final : public Resolved {
  using Plain = void(const int*, const int*, double*, const int*, double*, double*, const int*, int*);
  using Wide = decltype(mkl_lapack_dgeqrf);

 public:
  explicit Dgeqrf(int n)
      : Resolved({"VORN_instable_dgeqrf_", "mkl_lapack_dgeqrf", "dgeqrf_",
                  typed_entry(&::VORN_stable_DGEQRF, &VORN::VORN_stable_DGEQRF), true, true}),
        n_(n), ld_(std::max(n, 1)), lwork_(std::max(1, 64 * n)), n64_(n), ld64_(ld_), lwork64_(lwork_),
        tau_(std::max(n, 1)), work_(lwork_) {
    use_pool(n > 0 ? vector_of(std::size_t(ld_) * n, 5) : std::vector<double>{});
    forwards_to(&forward::dgeqrf);
  }
  void invoke(Impl impl) override {
    double* a = fresh();
    switch (impl) {
      case Impl::typed:
        fn<decltype(::VORN_stable_DGEQRF)>(impl)(n_, n_, {a}, ld_, {tau_.data()}, {work_.data()}, lwork_, info_);
        break;
      case Impl::direct:
        fn<Wide>(impl)(&n64_, &n64_, a, &ld64_, tau_.data(), work_.data(), &lwork64_, &info64_);
        break;
      default: fn<Plain>(impl)(&n_, &n_, a, &ld_, tau_.data(), work_.data(), &lwork_, &info_);
    }
  }

 private:
  int n_, ld_, lwork_, info_ = 0;
  i64 n64_, ld64_, lwork64_, info64_ = 0;
  std::vector<double> tau_, work_;
};

// ---------------------------------------------------------------------------
// Routines whose integer arrays go through scratch arrays in the layer. The
// direct call gets its 64-bit array ready-made, as a 64-bit caller would.

class Ddoti final : public Resolved {
  using Plain = double(const int*, const double*, const int*, const double*);
  using Wide = decltype(mkl_blas_ddoti);

 public:
  explicit Ddoti(int n)
      : Resolved({"VORN_instable_ddoti", "mkl_blas_ddoti", nullptr, nullptr, false, false, n}),
        nz_(n), nz64_(n), x_(vector_of(n, 1)), y_(vector_of(2 * std::size_t(n) + 1, 2)),
        indx_(std::max(n, 1)), indx64_(std::max(n, 1)) {
    for (int i = 0; i < n; ++i) indx64_[i] = indx_[i] = 2 * i + 1;
  }
  void invoke(Impl impl) override {
    double r = impl == Impl::direct ? fn<Wide>(impl)(&nz64_, x_.data(), indx64_.data(), y_.data())
                                    : fn<Plain>(impl)(&nz_, x_.data(), indx_.data(), y_.data());
    asm volatile("" : : "x"(r));
  }

 private:
  int nz_;
  i64 nz64_;
  std::vector<double> x_, y_;
  std::vector<int> indx_;
  std::vector<i64> indx64_;
};

class Dgetrf final : public Resolved {
  using Plain = void(const int*, const int*, double*, const int*, int*, int*);
  using Wide = decltype(mkl_lapack_dgetrf);

 public:
  explicit Dgetrf(int n)
      : Resolved({"VORN_instable_dgetrf_", "mkl_lapack_dgetrf", "dgetrf_",
                  typed_entry(&::VORN_stable_DGETRF, &VORN::VORN_stable_DGETRF), true, true, n}),
        n_(n), ld_(std::max(n, 1)), n64_(n), ld64_(ld_), ipiv_(ld_), ipiv64_(ld_) {
    use_pool(n > 0 ? dominant(n) : std::vector<double>{});
    forwards_to(&forward::dgetrf);
  }
  void invoke(Impl impl) override {
    double* a = fresh();
    switch (impl) {
      case Impl::typed:
        fn<decltype(::VORN_stable_DGETRF)>(impl)(n_, n_, {a}, ld_, {ipiv_.data()}, info_);
        break;
      case Impl::direct: fn<Wide>(impl)(&n64_, &n64_, a, &ld64_, ipiv64_.data(), &info64_); break;
      default: fn<Plain>(impl)(&n_, &n_, a, &ld_, ipiv_.data(), &info_);
    }
  }

 private:
  int n_, ld_, info_ = 0;
  i64 n64_, ld64_, info64_ = 0;
  std::vector<int> ipiv_;
  std::vector<i64> ipiv64_;
};

class Dgetrs final : public Resolved {
  using Plain = void(const char*, const int*, const int*, const double*, const int*, const int*, double*, const int*,
                     int*);
  using Wide = decltype(mkl_lapack_dgetrs);
  using Fortran = void(const char*, const int*, const int*, const double*, const int*, const int*, double*,
                       const int*, int*, std::size_t);

 public:
  // A dominant matrix read as its own LU factors, no interchanges, one
  // right-hand side; the solve overwrites B, which comes from the pool.
  explicit Dgetrs(int n)
      : Resolved({"VORN_instable_dgetrs_", "mkl_lapack_dgetrs", "dgetrs_",
                  typed_entry(&::VORN_stable_DGETRS, &VORN::VORN_stable_DGETRS), true, true, n}),
        n_(n), ld_(std::max(n, 1)), n64_(n), ld64_(ld_), a_(n > 0 ? dominant(n) : std::vector<double>(1)),
        ipiv_(ld_), ipiv64_(ld_) {
    for (int i = 0; i < ld_; ++i) ipiv64_[i] = ipiv_[i] = i + 1;
    use_pool(n > 0 ? vector_of(n, 7) : std::vector<double>{});
    forwards_to(&forward::dgetrs);
  }
  void invoke(Impl impl) override {
    double* b = fresh();
    switch (impl) {
      case Impl::layer:
      case Impl::forward: fn<Plain>(impl)("N", &n_, &one_, a_.data(), &ld_, ipiv_.data(), b, &ld_, &info_); break;
      case Impl::typed:
        fn<decltype(::VORN_stable_DGETRS)>(impl)('N', n_, one_, {a_.data()}, ld_, {ipiv_.data()}, {b}, ld_, info_);
        break;
      case Impl::direct:
        fn<Wide>(impl)("N", &n64_, &one64_, a_.data(), &ld64_, ipiv64_.data(), b, &ld64_, &info64_, 1);
        break;
      default: fn<Fortran>(impl)("N", &n_, &one_, a_.data(), &ld_, ipiv_.data(), b, &ld_, &info_, 1);
    }
  }

 private:
  int n_, ld_, one_ = 1, info_ = 0;
  i64 n64_, ld64_, one64_ = 1, info64_ = 0;
  std::vector<double> a_;
  std::vector<int> ipiv_;
  std::vector<i64> ipiv64_;
};

// ---------------------------------------------------------------------------
// The service calls the layer must make, timed alone: one scratch array's
// allocation and release (the smallest, as for N = 0), and the two hooks.

class AllocatePair final : public Workload {
 public:
  bool applicable(Impl impl) const override { return impl == Impl::direct; }
  const char* unavailable(Impl impl) const override { return applicable(impl) ? nullptr : "the routine has no such entry"; }
  void invoke(Impl) override { mkl_serv_deallocate(mkl_serv_allocate(8, 128)); }
};

// What memory speed allows for the widening copy of an index vector: the
// C library's copy of the same 8-byte elements (it moves twice the bytes
// the widening reads, so it bounds that copy's time from above).
class CopyFloor final : public Workload {
 public:
  explicit CopyFloor(int n) : from_(std::max(n, 1)), to_(std::max(n, 1)) {}
  bool applicable(Impl impl) const override { return impl == Impl::direct; }
  const char* unavailable(Impl impl) const override { return applicable(impl) ? nullptr : "the routine has no such entry"; }
  void invoke(Impl) override {
    std::memcpy(to_.data(), from_.data(), to_.size() * sizeof(i64));
    asm volatile("" : : "r"(to_.data()) : "memory");
  }

 private:
  std::vector<i64> from_, to_;
};

class Hooks final : public Workload {
 public:
  bool applicable(Impl impl) const override { return impl == Impl::direct; }
  const char* unavailable(Impl impl) const override { return applicable(impl) ? nullptr : "the routine has no such entry"; }
  void invoke(Impl) override { install_default_hooks(); }
};

template <class W>
std::unique_ptr<Workload> make(int n) {
  if constexpr (std::is_constructible_v<W, int>)
    return std::make_unique<W>(n);
  else
    return std::make_unique<W>();
}

double linear(double n) { return 2 * n; }
double scan(double n) { return n; }
double square(double n) { return 2 * n * n; }
double cube(double n) { return 2 * n * n * n; }
double complex_cube(double n) { return 8 * n * n * n; }
double triangle(double n) { return n * n * n; }
double cholesky(double n) { return n * n * n / 3; }
double qr(double n) { return 4 * n * n * n / 3; }
double lu(double n) { return 2 * n * n * n / 3; }
double nothing(double) { return 0; }

}  // namespace

const char* impl_name(Impl impl) {
  switch (impl) {
    case Impl::layer: return "layer";
    case Impl::typed: return "typed";
    case Impl::direct: return "direct";
    case Impl::openblas: return "openblas";
    case Impl::reference: return "reference";
    case Impl::mandated: return "mandated";
    case Impl::forward: return "forward";
  }
  return "?";
}

const char* family_name(Family family) {
  switch (family) {
    case Family::level1: return "level 1";
    case Family::level23: return "level 2/3 (checker)";
    case Family::lapack: return "LAPACK (scalars)";
    case Family::scratch: return "scratch arrays";
    case Family::mandated: return "mandated service calls";
  }
  return "?";
}

void Pool::assign(std::vector<double> master) {
  master_ = std::move(master);
  // Quick-return calls still get a valid address.
  if (master_.empty()) master_.resize(1);
  // About 256 KiB of copies: many calls per refill at small sizes, one at
  // large sizes, and small enough to stay in the second-level cache.
  const std::size_t bytes = std::max<std::size_t>(master_.size() * sizeof(double), 1);
  slots_ = std::clamp<std::size_t>((256u << 10) / bytes, 1, 4096);
  copies_.resize(master_.size() * slots_);
  next_ = slots_;
}

void Pool::refill() {
  for (std::size_t s = 0; s < slots_; ++s) std::copy(master_.begin(), master_.end(), copies_.begin() + s * master_.size());
  next_ = 0;
}

const std::vector<Routine>& routines() {
  static const std::vector<Routine> table = {
      {"DAXPY", Family::level1, false, 0, {0, 16, 256, 4096, 262144}, {0, 16}, linear, make<Daxpy>},
      {"DDOT", Family::level1, false, 0, {0, 16, 256, 4096, 262144}, {0, 16}, linear, make<Ddot>},
      {"IDAMAX", Family::level1, false, 0, {0, 16, 256, 4096, 262144}, {0, 16}, scan, make<Idamax>},
      {"DGEMV", Family::level23, false, 0, {0, 4, 32, 256, 1024}, {0, 4}, square, make<Dgemv>},
      {"DGEMM", Family::level23, false, 0, {0, 4, 32, 128, 256}, {0, 4}, cube, make<Gemm<false>>},
      {"DTRSM", Family::level23, false, 0, {0, 4, 32, 128, 256}, {0, 4}, triangle, make<Dtrsm>},
      {"ZGEMM", Family::level23, false, 0, {0, 4, 32, 128, 256}, {0, 4}, complex_cube, make<Gemm<true>>},
      {"DPOTRF", Family::lapack, true, 0, {0, 4, 32, 128, 512}, {0, 4}, cholesky, make<Dpotrf>},
      {"DGEQRF", Family::lapack, true, 0, {0, 4, 32, 128, 256}, {0, 4}, qr, make<Dgeqrf>},
      {"DDOTI", Family::scratch, false, 1, {0, 16, 256, 4096, 262144}, {0, 16}, linear, make<Ddoti>},
      {"DGETRF", Family::scratch, true, 1, {0, 4, 32, 128, 512}, {0, 4}, lu, make<Dgetrf>},
      {"DGETRS", Family::scratch, true, 1, {0, 4, 32, 128, 512}, {0, 4}, square, make<Dgetrs>},
      {"allocate+deallocate", Family::mandated, false, 1, {8}, {8}, nothing, make<AllocatePair>},
      {"hooks", Family::mandated, true, 0, {0}, {0}, nothing, make<Hooks>},
      {"copy-floor", Family::mandated, false, 0, {262144}, {}, nothing, make<CopyFloor>},
  };
  return table;
}

std::vector<std::string> library_notes() {
  std::vector<std::string> notes;
  for (const Foreign* f : {&openblas(), &reference()}) notes.push_back(f->error.empty() ? f->note : f->error);
  return notes;
}

}  // namespace bench
