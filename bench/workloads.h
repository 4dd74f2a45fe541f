// The routines the benchmarks time and the callgrind driver counts, each
// callable five ways on the same data: through the layer's plain entry, its
// typed entry, MKL's internal 64-bit entry called directly with pre-widened
// arguments, OpenBLAS, and the reference BLAS/LAPACK.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// `mandated` is not a way of calling the routine: it makes the service
// calls the layer must make for one call of it (the two hooks for LAPACK,
// one allocation and release per scratch array, of the same size), so that
// the layer's own cost beyond them can be separated. `forward` is a bare
// LP64 front on the same MKL entry (bench/forward.h): the least any bridge
// executes, for the routines the frame-cost targets name.
enum class Impl { layer, typed, direct, mandated, forward, openblas, reference };
inline constexpr Impl kAllImpls[] = {Impl::layer,   Impl::typed,    Impl::direct,   Impl::mandated,
                                     Impl::forward, Impl::openblas, Impl::reference};
const char* impl_name(Impl impl);

// Copies of the arrays a routine overwrites, one per call, so that every
// timed call starts from the same data. Refilling happens outside the timed
// region; a pool of several copies amortises the pause over many calls.
class Pool {
 public:
  void assign(std::vector<double> master);
  bool exhausted() const { return next_ == slots_; }
  std::size_t remaining() const { return slots_ - next_; }
  void refill();
  double* take() { return copies_.data() + master_.size() * next_++; }
  std::size_t slots() const { return slots_; }

 private:
  std::vector<double> master_;
  std::vector<double> copies_;
  std::size_t slots_ = 0;
  std::size_t next_ = 0;
};

class Workload {
 public:
  virtual ~Workload() = default;
  // False when the routine has no such entry at all (no typed entry for
  // DAXPY, no sparse BLAS in OpenBLAS); such pairs are not measured.
  virtual bool applicable(Impl impl) const = 0;
  // Null when `impl` can be called; otherwise the reason it cannot. Must be
  // asked before the first call() of that implementation.
  virtual const char* unavailable(Impl impl) const = 0;
  // One call of the routine. Routines that overwrite their input take a
  // fresh copy from the pool; call refill() first when exhausted().
  void call(Impl impl) {
    if (impl == Impl::mandated)
      mandated();
    else
      invoke(impl);
  }
  bool exhausted() const { return in_place_ && pool_.exhausted(); }
  void refill() { pool_.refill(); }
  // Calls that can follow one another without a refill.
  std::size_t run_length() const { return in_place_ ? pool_.slots() : SIZE_MAX; }
  // Makes room for `calls` consecutive calls.
  void prepare(std::size_t calls) {
    if (in_place_ && pool_.remaining() < calls) pool_.refill();
  }

 protected:
  virtual void invoke(Impl impl) = 0;
  // The service calls the layer is obliged to make for this call.
  virtual void mandated() {}

  void use_pool(std::vector<double> master) {
    in_place_ = true;
    pool_.assign(std::move(master));
  }
  double* fresh() { return pool_.take(); }

 private:
  bool in_place_ = false;
  Pool pool_;
};

enum class Family { level1, level23, lapack, scratch, mandated };
const char* family_name(Family family);

struct Routine {
  std::string name;
  Family family;
  // LAPACK routines: the layer installs the two hooks on every call.
  bool hooks;
  // Scratch arrays the layer is allowed to obtain per call.
  int scratch_arrays;
  std::vector<int> sizes;          // timed
  std::vector<int> counted_sizes;  // instruction counts
  double (*flops)(double n);
  std::unique_ptr<Workload> (*make)(int n);
};

// The benchmarked routines, then the mandated service calls timed alone.
const std::vector<Routine>& routines();

// Rows timed with MKL on several threads, named "<routine>@<threads>" in the
// timings: the layer, its typed entry and the direct call only, in
// wall-clock time, since the work leaves the calling thread.
struct ThreadedRow {
  const char* routine;
  int n;
  int threads;
};
inline constexpr ThreadedRow kThreadedRows[] = {{"DGEMM", 1000, 2}, {"DGETRF", 1000, 2}};
inline std::string threaded_name(const ThreadedRow& t) { return std::string(t.routine) + "@" + std::to_string(t.threads); }

// One line per library loaded beside the layer, saying where it came from.
std::vector<std::string> library_notes();

}  // namespace bench
