// LAPACK routines with pivot and permutation arrays through the layer,
// against the reference LAPACK; the conversion of the arrays observed from
// outside (allocations, what reaches MKL, what comes back); and a sweep over
// every routine with integer or logical arrays that makes each scratch
// allocation fail in turn.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <complex>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/observe.h"
#include "support/fixtures.h"
#include "support/reference.h"
#include "vorn_instable.h"

using i64 = long long;
using zd = std::complex<double>;

// ------------------------------------------------------------ interposers

namespace {

using namespace fixtures;
std::atomic<bool> g_overflowing_pivot{false};
std::atomic<int> g_getrf_entries{0};
}  // namespace

// Reaching MKL's DGETRF is recorded; on request the first pivot comes back
// as 2^32 + 5, which no 32-bit caller can hold.
extern "C" void mkl_lapack_dgetrf(const i64* m, const i64* n, double* a, const i64* lda, i64* ipiv, i64* info) {
  observe::note_entry("mkl_lapack_dgetrf", __builtin_return_address(0));
  if (observe::in_layer(__builtin_return_address(0))) ++g_getrf_entries;
  using F = void (*)(const i64*, const i64*, double*, const i64*, i64*, i64*);
  static const auto real = reinterpret_cast<F>(observe::next("mkl_lapack_dgetrf"));
  real(m, n, a, lda, ipiv, info);
  if (g_overflowing_pivot && std::min(*m, *n) > 0) ipiv[0] = (i64{1} << 32) + 5;
}

namespace {

// ------------------------------------------------------------ helpers

class Lapack : public ::testing::Test {
 protected:
  void SetUp() override {
    observe::reset();
    reference::reset();
    g_overflowing_pivot = false;
    g_getrf_entries = 0;
  }
  void TearDown() override { EXPECT_EQ(observe::outstanding_blocks(), 0u); }
};

constexpr int kSentinel = 0x5A5A5A5A;

// ------------------------------------------------------------ ?GETRF and friends

using ref_getrf = void (*)(const int*, const int*, double*, const int*, int*, int*);
using ref_getrs = void (*)(const char*, const int*, const int*, const double*, const int*, const int*, double*,
                           const int*, int*, size_t);

TEST_F(Lapack, DgetrfAndDgetrsMatchTheReference) {
  for (auto [m, n] : {std::pair{7, 7}, {9, 5}, {4, 8}}) {
    observe::reset();
    auto a = random_matrix(m, n, 11), ar = a;
    std::vector<int> ipiv(std::min(m, n) + 2, kSentinel), ipiv_ref(ipiv.size(), kSentinel);
    int lda = m, info = 99, info_ref = 99;
    VORN_instable_dgetrf_(&m, &n, a.data(), &lda, ipiv.data(), &info);
    reference::fn<ref_getrf>("dgetrf_")(&m, &n, ar.data(), &lda, ipiv_ref.data(), &info_ref);
    EXPECT_EQ(info, info_ref);
    EXPECT_EQ(ipiv, ipiv_ref) << m << "x" << n;  // including the untouched tail
    EXPECT_LT(max_diff(a, ar), 1e-12);
    ASSERT_EQ(allocation_sizes(), std::vector<size_t>{std::min(m, n) * 8u});
    EXPECT_EQ(of_kind(observe::Kind::Allocate)[0].alignment, 128);
    if (m != n) continue;
    auto b = random_matrix(n, 3, 12), br = b;
    int nrhs = 3, ldb = n;
    VORN_instable_DGETRS("N", &n, &nrhs, a.data(), &lda, ipiv.data(), b.data(), &ldb, &info);
    reference::fn<ref_getrs>("dgetrs_")("N", &n, &nrhs, ar.data(), &lda, ipiv_ref.data(), br.data(), &ldb,
                                        &info_ref, 1);
    EXPECT_EQ(info, 0);
    EXPECT_LT(max_diff(b, br), 1e-10);
  }
}

TEST_F(Lapack, DgetrfWithBadLdaCopiesUnsetPivotsBack) {
  // A DGETRS call leaves a scratch block filled with its pivots behind; the
  // allocator hands the same block to the rejected DGETRF, whose copy-back
  // then shows those values: the unset scratch contents reach the caller.
  int n = 6, one = 1, lda = 6, info = 0;
  auto a = random_matrix(n, n, 3);
  std::vector<int> filled = {2, 3, 4, 5, 6, 6};
  auto b = random_matrix(n, 1, 4);
  VORN_instable_dgetrs_("N", &n, &one, a.data(), &lda, filled.data(), b.data(), &lda, &info);
  const void* previous = of_kind(observe::Kind::Allocate).at(0).pointer;
  observe::reset();

  int m = 6, bad_lda = 4;
  std::vector<int> ipiv(8, kSentinel);
  VORN_instable_dgetrf(&m, &n, a.data(), &bad_lda, ipiv.data(), &info);
  EXPECT_EQ(info, -4);
  ASSERT_EQ(observe::reports().size(), 1u);
  EXPECT_EQ(observe::reports()[0].name, "DGETRF");
  EXPECT_EQ(observe::reports()[0].position, 4);
  EXPECT_EQ(observe::reports()[0].length, 6);
  EXPECT_EQ(g_getrf_entries, 0);
  for (int i = 6; i < 8; ++i) EXPECT_EQ(ipiv[i], kSentinel) << "beyond min(M, N): " << i;
  if (of_kind(observe::Kind::Allocate).at(0).pointer == previous) {
    // The allocator may keep its own bookkeeping in the first word.
    for (int i = 1; i < 6; ++i) EXPECT_EQ(ipiv[i], filled[i]) << i;
  } else {
    std::printf("[ note     ] the allocator did not reuse the block\n");
  }
}

TEST_F(Lapack, DgetrfRejectsNegativeMWithoutTouchingPivots) {
  int m = -3, n = 4, lda = 1, info = 0;
  double a[4] = {};
  std::vector<int> ipiv(4, kSentinel);
  VORN_instable_DGETRF_(&m, &n, a, &lda, ipiv.data(), &info);
  EXPECT_EQ(info, -1);
  ASSERT_EQ(observe::reports().size(), 1u);
  EXPECT_EQ(observe::reports()[0].position, 1);
  EXPECT_TRUE(observe::reports()[0].from_layer);
  EXPECT_EQ(g_getrf_entries, 0);
  EXPECT_EQ(ipiv, std::vector<int>(4, kSentinel));
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{8});

  m = 0;
  VORN_instable_dgetrf(&m, &n, a, &lda, ipiv.data(), &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(ipiv, std::vector<int>(4, kSentinel));
}

TEST_F(Lapack, PivotsAreNarrowedToTheirLow32Bits) {
  int n = 3, info = 0;
  auto a = random_matrix(n, n, 5);
  std::vector<int> ipiv(3, kSentinel);
  g_overflowing_pivot = true;
  VORN_instable_dgetrf(&n, &n, a.data(), &n, ipiv.data(), &info);
  EXPECT_EQ(g_getrf_entries, 1);
  EXPECT_EQ(ipiv[0], 5);
}

TEST_F(Lapack, DgetrsWithNZeroReadsOnePivotAndWritesNothing) {
  int n = 0, nrhs = 1, lda = 1, info = 5;
  double a = 0, b = 0;
  int ipiv = kSentinel;
  VORN_instable_dgetrs("N", &n, &nrhs, &a, &lda, &ipiv, &b, &lda, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(ipiv, kSentinel);
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{8});
}

using ref_gesv = void (*)(const int*, const int*, double*, const int*, int*, double*, const int*, int*);
using ref_zgesv = void (*)(const int*, const int*, zd*, const int*, int*, zd*, const int*, int*);

TEST_F(Lapack, GesvMatchesTheReferenceInRealAndComplex) {
  int n = 8, nrhs = 2, info = 0, info_ref = 0;
  auto a = random_matrix(n, n, 21), ar = a, b = random_matrix(n, nrhs, 22), br = b;
  std::vector<int> ipiv(n), ipiv_ref(n);
  VORN_instable_DGESV(&n, &nrhs, a.data(), &n, ipiv.data(), b.data(), &n, &info);
  reference::fn<ref_gesv>("dgesv_")(&n, &nrhs, ar.data(), &n, ipiv_ref.data(), br.data(), &n, &info_ref);
  EXPECT_EQ(ipiv, ipiv_ref);
  EXPECT_LT(max_diff(b, br), 1e-10);

  auto re = random_matrix(2 * n, n, 23), rb = random_matrix(2 * n, nrhs, 24);
  std::vector<zd> za(n * n), zb(n * nrhs);
  std::memcpy(za.data(), re.data(), sizeof(zd) * za.size());
  std::memcpy(zb.data(), rb.data(), sizeof(zd) * zb.size());
  auto zar = za, zbr = zb;
  VORN_instable_zgesv_(&n, &nrhs, reinterpret_cast<double*>(za.data()), &n, ipiv.data(),
                       reinterpret_cast<double*>(zb.data()), &n, &info);
  reference::fn<ref_zgesv>("zgesv_")(&n, &nrhs, zar.data(), &n, ipiv_ref.data(), zbr.data(), &n, &info_ref);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(ipiv, ipiv_ref);
  for (size_t i = 0; i < zb.size(); ++i) EXPECT_LT(std::abs(zb[i] - zbr[i]), 1e-10);
}

// ------------------------------------------------------------ FACT

using ref_gesvx = void (*)(const char*, const char*, const int*, const int*, double*, const int*, double*,
                           const int*, int*, char*, double*, double*, double*, const int*, double*, const int*,
                           double*, double*, double*, double*, int*, int*, size_t, size_t, size_t);

TEST_F(Lapack, DgesvxConvertsPivotsAccordingToFact) {
  const int n = 6, nrhs = 2;
  for (const char* fact : {"N", "E", "e", "F", "f"}) {
    SCOPED_TRACE(fact);
    auto a = random_matrix(n, n, 31), b = random_matrix(n, nrhs, 32);
    std::vector<double> af(n * n), x(n * nrhs), r(n), c(n), ferr(nrhs), berr(nrhs), work(4 * n);
    auto ar = a, afr = af, br = b, xr = x, rr = r, cr = c, ferrr = ferr, berrr = berr, workr = work;
    std::vector<int> ipiv(n, kSentinel), ipiv_ref(n, kSentinel), iwork(n, kSentinel), iwork_ref(n);
    int info = 0, info_ref = 0, lda = n;
    const bool factored = fact[0] == 'F' || fact[0] == 'f';
    if (factored) {  // the caller supplies the factorisation
      af = a;
      int nn = n;
      reference::fn<ref_getrf>("dgetrf_")(&nn, &nn, af.data(), &lda, ipiv.data(), &info);
      afr = af;
      ipiv_ref = ipiv;
    }
    const auto supplied = ipiv;
    char equed = 'N', equed_ref = 'N';
    double rcond = 0, rcond_ref = 0;
    int nn = n, nr = nrhs;
    VORN_instable_dgesvx(fact, "N", &nn, &nr, a.data(), &lda, af.data(), &lda, ipiv.data(), &equed, r.data(),
                         c.data(), b.data(), &lda, x.data(), &lda, &rcond, ferr.data(), berr.data(), work.data(),
                         iwork.data(), &info);
    reference::fn<ref_gesvx>("dgesvx_")(fact, "N", &nn, &nr, ar.data(), &lda, afr.data(), &lda, ipiv_ref.data(),
                                        &equed_ref, rr.data(), cr.data(), br.data(), &lda, xr.data(), &lda,
                                        &rcond_ref, ferrr.data(), berrr.data(), workr.data(), iwork_ref.data(),
                                        &info_ref, 1, 1, 1);
    EXPECT_EQ(info, info_ref);
    EXPECT_LT(max_diff(x, xr), 1e-10);
    EXPECT_EQ(ipiv, factored ? supplied : ipiv_ref);
    EXPECT_EQ(iwork, std::vector<int>(n, kSentinel)) << "IWORK is workspace";
    EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{n * 8u, n * 8u}));
    observe::reset();
  }
}

// ------------------------------------------------------------ queries

using ref_sytrf = void (*)(const char*, const int*, double*, const int*, int*, double*, const int*, int*, size_t);
using ref_sytrs = void (*)(const char*, const int*, const int*, const double*, const int*, const int*, double*,
                           const int*, int*, size_t);

TEST_F(Lapack, DsytrfQueryLeavesPivotsAloneButOtherNegativesConvert) {
  int n = 10, lda = 10, lwork = -1, info = 0;
  auto a = symmetric_matrix(n, 41);
  std::vector<int> ipiv(n, kSentinel);
  double work[4] = {};
  VORN_instable_dsytrf("U", &n, a.data(), &lda, ipiv.data(), work, &lwork, &info);
  EXPECT_EQ(info, 0);
  EXPECT_GE(work[0], 1.0);
  EXPECT_EQ(ipiv, std::vector<int>(n, kSentinel));
  EXPECT_TRUE(of_kind(observe::Kind::Allocate).empty());

  lwork = -2;
  int info_ref = 0;
  VORN_instable_dsytrf("U", &n, a.data(), &lda, ipiv.data(), work, &lwork, &info);
  auto ar = a;
  std::vector<int> ipiv_ref(n);
  reference::fn<ref_sytrf>("dsytrf_")("U", &n, ar.data(), &lda, ipiv_ref.data(), work, &lwork, &info_ref, 1);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(allocation_sizes(), std::vector<size_t>{n * 8u});
  ASSERT_EQ(reference::reports().size(), 1u);
  ASSERT_FALSE(observe::reports().empty());
  EXPECT_EQ(observe::reports().back().name, reference::reports()[0].name);
  EXPECT_EQ(observe::reports().back().position, reference::reports()[0].position);
}

TEST_F(Lapack, DsytrfAndDsytrsMatchTheReference) {
  int n = 9, lda = 9, nrhs = 2, info = 0, info_ref = 0, lwork = 64 * 9;
  auto a = symmetric_matrix(n, 43), ar = a, b = random_matrix(n, nrhs, 44), br = b;
  std::vector<int> ipiv(n), ipiv_ref(n);
  std::vector<double> work(lwork);
  VORN_instable_DSYTRF("L", &n, a.data(), &lda, ipiv.data(), work.data(), &lwork, &info);
  reference::fn<ref_sytrf>("dsytrf_")("L", &n, ar.data(), &lda, ipiv_ref.data(), work.data(), &lwork, &info_ref, 1);
  ASSERT_EQ(info, info_ref);
  VORN_instable_DSYTRS("L", &n, &nrhs, a.data(), &lda, ipiv.data(), b.data(), &lda, &info);
  reference::fn<ref_sytrs>("dsytrs_")("L", &n, &nrhs, ar.data(), &lda, ipiv_ref.data(), br.data(), &lda, &info_ref, 1);
  EXPECT_EQ(info, 0);
  EXPECT_LT(max_diff(b, br), 1e-9);
}

using ref_geqp3 = void (*)(const int*, const int*, double*, const int*, int*, double*, double*, const int*, int*);

TEST_F(Lapack, Dgeqp3KeepsFixedColumnsAndSkipsPivotsOnQuery) {
  int m = 8, n = 6, lda = 8, info = 0, info_ref = 0, lwork = -1;
  auto a = random_matrix(m, n, 51), ar = a;
  std::vector<int> jpvt = {0, 1, 0, 0, 1, 0}, jpvt_ref = jpvt;
  std::vector<double> tau(n), taur(n), work(400);
  VORN_instable_dgeqp3(&m, &n, a.data(), &lda, jpvt.data(), tau.data(), work.data(), &lwork, &info);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(jpvt, jpvt_ref);
  EXPECT_TRUE(of_kind(observe::Kind::Allocate).empty());

  lwork = 400;
  VORN_instable_dgeqp3(&m, &n, a.data(), &lda, jpvt.data(), tau.data(), work.data(), &lwork, &info);
  reference::fn<ref_geqp3>("dgeqp3_")(&m, &n, ar.data(), &lda, jpvt_ref.data(), taur.data(), work.data(), &lwork,
                                      &info_ref);
  EXPECT_EQ(info, info_ref);
  EXPECT_EQ(jpvt, jpvt_ref);
  EXPECT_EQ(jpvt[0], 2);  // the fixed columns lead
  EXPECT_EQ(jpvt[1], 5);
  EXPECT_LT(max_diff(tau, taur), 1e-10);
}

using ref_getri = void (*)(const int*, double*, const int*, const int*, double*, const int*, int*);

TEST_F(Lapack, DgetriQueryObtainsNothingAndTheInverseMatches) {
  int n = 5, info = 0, info_ref = 0, lwork = -1;
  auto a = random_matrix(n, n, 61), ar = a;
  std::vector<int> ipiv(n), ipiv_ref(n);
  reference::fn<ref_getrf>("dgetrf_")(&n, &n, a.data(), &n, ipiv.data(), &info);
  ar = a;
  ipiv_ref = ipiv;
  std::vector<double> work(64);
  observe::reset();
  VORN_instable_dgetri(&n, a.data(), &n, ipiv.data(), work.data(), &lwork, &info);
  EXPECT_TRUE(of_kind(observe::Kind::Allocate).empty());
  lwork = 64;
  VORN_instable_dgetri(&n, a.data(), &n, ipiv.data(), work.data(), &lwork, &info);
  reference::fn<ref_getri>("dgetri_")(&n, ar.data(), &n, ipiv_ref.data(), work.data(), &lwork, &info_ref);
  EXPECT_EQ(info, info_ref);
  EXPECT_LT(max_diff(a, ar), 1e-10);
  EXPECT_EQ(ipiv, ipiv_ref);
}

// ------------------------------------------------------------ ?LASWP, ?GETC2

using ref_laswp = void (*)(const int*, double*, const int*, const int*, const int*, const int*, const int*);

TEST_F(Lapack, DlaswpConvertsTheStridedPivotsForEitherSignOfIncx) {
  struct Case {
    int k1, k2, incx;
  };
  for (Case c : {Case{1, 5, -1}, Case{2, 5, 2}, Case{2, 4, -3}, Case{1, 6, 1}}) {
    SCOPED_TRACE(c.incx);
    int n = 4, lda = 6;
    auto a = random_matrix(lda, n, 71), ar = a;
    const int span = std::abs(c.incx) * c.k2;
    std::vector<int> ipiv(span);
    for (int i = 0; i < span; ++i) ipiv[i] = 1 + (i * 5 + 3) % 6;  // rows 1..6
    VORN_instable_DLASWP(&n, a.data(), &lda, &c.k1, &c.k2, ipiv.data(), &c.incx);
    reference::fn<ref_laswp>("dlaswp_")(&n, ar.data(), &lda, &c.k1, &c.k2, ipiv.data(), &c.incx);
    EXPECT_EQ(a, ar);
    EXPECT_EQ(allocation_sizes(), std::vector<size_t>{span * 8u});
    EXPECT_TRUE(observe::reports().empty());
    observe::reset();
  }
}

using ref_getc2 = void (*)(const int*, double*, const int*, int*, int*, int*);
using ref_gesc2 = void (*)(const int*, const double*, const int*, double*, const int*, const int*, double*);

TEST_F(Lapack, Dgetc2AndDgesc2GoWithoutHooksAndMatch) {
  int n = 5, info = 0, info_ref = 0;
  auto a = random_matrix(n, n, 81), ar = a;
  std::vector<int> ipiv(n), jpiv(n), ipiv_ref(n), jpiv_ref(n);
  VORN_instable_dgetc2(&n, a.data(), &n, ipiv.data(), jpiv.data(), &info);
  reference::fn<ref_getc2>("dgetc2_")(&n, ar.data(), &n, ipiv_ref.data(), jpiv_ref.data(), &info_ref);
  EXPECT_EQ(ipiv, ipiv_ref);
  EXPECT_EQ(jpiv, jpiv_ref);
  EXPECT_LT(max_diff(a, ar), 1e-12);
  auto rhs = random_matrix(n, 1, 82), rhsr = rhs;
  double scale = 0, scale_ref = 0;
  VORN_instable_DGESC2(&n, a.data(), &n, rhs.data(), ipiv.data(), jpiv.data(), &scale);
  reference::fn<ref_gesc2>("dgesc2_")(&n, ar.data(), &n, rhsr.data(), ipiv_ref.data(), jpiv_ref.data(), &scale_ref);
  EXPECT_LT(max_diff(rhs, rhsr), 1e-10);
  EXPECT_TRUE(of_kind(observe::Kind::SetXerbla).size() == 1) << "DGESC2 installs the hooks, DGETC2 does not";
  EXPECT_EQ(allocation_sizes(), (std::vector<size_t>{40, 40, 40, 40}));
}

// ------------------------------------------------------------ fault sweep

struct CatalogueArg {
  std::string name, kind, intent;
};
struct CatalogueRoutine {
  std::string name, group;
  std::vector<CatalogueArg> args;
};

std::vector<CatalogueRoutine> routines_with_arrays() {
  std::string path = VORN_ROUTINE_GROUPS;
  path = path.substr(0, path.rfind('/') + 1) + "routines.cat";
  std::ifstream in(path);
  std::vector<CatalogueRoutine> out;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    CatalogueRoutine r;
    std::string result, tok;
    fields >> r.name >> r.group >> result;
    bool arrays = false;
    while (fields >> tok) {
      if (tok[0] == '@') break;
      std::istringstream parts(tok);
      CatalogueArg a;
      std::getline(parts, a.name, ':');
      std::getline(parts, a.kind, ':');
      std::getline(parts, a.intent, ':');
      arrays |= a.kind == "i[]" || a.kind == "l[]";
      r.args.push_back(a);
    }
    if (arrays && r.group[0] == 'L') out.push_back(r);
  }
  return out;
}

// Options that make every conditional array of its routine be taken.
char option_for(const std::string& arg) {
  static const std::map<std::string, char> options = {
      {"JOBZ", 'V'}, {"RANGE", 'A'}, {"SORT", 'S'},  {"HOWMNY", 'S'}, {"SIDE", 'B'}, {"SENSE", 'B'},
      {"COMPQ", 'P'}, {"FACT", 'F'}, {"UPLO", 'U'}, {"JOBVS", 'V'},  {"JOBVSL", 'V'}, {"JOBVSR", 'V'}};
  const auto it = options.find(arg);
  return it == options.end() ? 'N' : it->second;
}

int value_for(const std::string& arg) {
  static const std::map<std::string, int> values = {
      {"ICOMPQ", 1}, {"IJOB", 3}, {"SQRE", 0}, {"CURPBM", 0}, {"KL", 0}, {"KU", 0}, {"KD", 0}, {"KA", 0}, {"KB", 0}};
  const auto it = values.find(arg);
  return it == values.end() ? 1 : it->second;
}

// ?LAED7's tree pointers size the arrays they point into: they hold 1, a
// first position, rather than the sentinel.
int fill_for(const std::string& array) {
  return array == "QPTR" || array == "PRMPTR" || array == "GIVPTR" ? 1 : kSentinel;
}

extern "C" int never_selected(const void*, const void*, const void*) { return 0; }

using Generic = void (*)(void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*,
                         void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*,
                         void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*, void*,
                         void*);

TEST_F(Lapack, EveryScratchAllocationOfEveryArrayRoutineFailsCleanly) {
  const auto routines = routines_with_arrays();
  ASSERT_EQ(routines.size(), 532u);
  void* library = dlopen(VORN_LIBRARY_PATH, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(library, nullptr);
  size_t points = 0;
  for (const auto& r : routines) {
    SCOPED_TRACE(r.name);
    std::string symbol = "VORN_instable_" + r.name;
    auto call = reinterpret_cast<Generic>(dlsym(library, symbol.c_str()));
    ASSERT_NE(call, nullptr) << symbol;
    ASSERT_LE(r.args.size(), 40u);
    const int arrays = static_cast<int>(std::count_if(r.args.begin(), r.args.end(), [](auto& a) {
      return a.kind == "i[]" || a.kind == "l[]";
    }));
    for (int k = 0; k < arrays; ++k) {
      std::vector<std::vector<int>> ints(r.args.size());
      std::vector<std::vector<double>> reals(r.args.size());
      std::vector<char> chars(r.args.size());
      void* p[40] = {};
      int info_at = -1;
      for (size_t i = 0; i < r.args.size(); ++i) {
        const auto& a = r.args[i];
        if (a.kind == "i" || a.kind == "l") {
          const bool output = a.intent == "out";
          ints[i] = {output ? kSentinel : (a.kind == "l" ? 0 : value_for(a.name))};
          if (a.name == "INFO") info_at = static_cast<int>(i);
          p[i] = ints[i].data();
        } else if (a.kind == "i[]" || a.kind == "l[]") {
          ints[i].assign(64, fill_for(a.name));
          p[i] = ints[i].data();
        } else if (a.kind == "ch" || a.kind == "str") {
          chars[i] = option_for(a.name);
          p[i] = &chars[i];
        } else if (a.kind == "fn") {
          p[i] = reinterpret_cast<void*>(&never_selected);
        } else {
          reals[i].assign(256, 0.0);
          p[i] = reals[i].data();
        }
      }
      observe::reset();
      observe::fail_allocation_after(k);
      call(p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7], p[8], p[9], p[10], p[11], p[12], p[13], p[14], p[15],
           p[16], p[17], p[18], p[19], p[20], p[21], p[22], p[23], p[24], p[25], p[26], p[27], p[28], p[29], p[30],
           p[31], p[32], p[33], p[34], p[35], p[36], p[37], p[38], p[39]);
      observe::fail_allocation_after(-1);
      ++points;

      const auto allocated = of_kind(observe::Kind::Allocate);
      const auto released = of_kind(observe::Kind::Deallocate);
      ASSERT_EQ(allocated.size(), static_cast<size_t>(k + 1)) << "failure point " << k;
      EXPECT_EQ(allocated.back().pointer, nullptr);
      ASSERT_EQ(released.size(), static_cast<size_t>(k));
      for (int j = 0; j < k; ++j) EXPECT_EQ(released[j].pointer, allocated[j].pointer) << "release order";
      for (const auto& e : allocated) EXPECT_EQ(e.alignment, 128);
      ASSERT_EQ(observe::reports().size(), 1u);
      EXPECT_EQ(observe::reports()[0].name, r.name);
      EXPECT_EQ(observe::reports()[0].position, 1089);
      EXPECT_EQ(observe::reports()[0].length, static_cast<long long>(r.name.size()));
      EXPECT_TRUE(observe::reports()[0].from_layer);
      // Nothing reaches the library after the failure: no hooks, no entry.
      const auto& ev = observe::events();
      const auto last_alloc = std::find_if(ev.rbegin(), ev.rend(), [](auto& e) {
        return e.kind == observe::Kind::Allocate;
      });
      for (auto it = ev.rbegin(); it != last_alloc; ++it) {
        EXPECT_NE(it->kind, observe::Kind::SetXerbla);
        EXPECT_NE(it->kind, observe::Kind::Entry);
      }
      EXPECT_EQ(observe::outstanding_blocks(), 0u);
      for (size_t i = 0; i < r.args.size(); ++i) {
        const auto& a = r.args[i];
        if (static_cast<int>(i) == info_at) {
          EXPECT_EQ(ints[i][0], -1023);
        } else if (a.kind == "i[]" || a.kind == "l[]" || ((a.kind == "i" || a.kind == "l") && a.intent == "out")) {
          const int fill = a.kind == "i[]" || a.kind == "l[]" ? fill_for(a.name) : kSentinel;
          EXPECT_TRUE(std::all_of(ints[i].begin(), ints[i].end(), [&](int v) { return v == fill; }))
              << a.name << " written";
        }
      }
    }
  }
  std::printf("[ arrays   ] %zu failure points in %zu routines\n", points, routines.size());
}

}  // namespace
