// The sparse CSR products: the layer's argument check (order, report and
// untouched INFO) observed through XERBLA and through an interposed
// computational-library entry, and real products against a dense oracle.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <complex>
#include <random>
#include <string>
#include <vector>

#include "support/observe.h"
#include "vorn/vorn.hpp"

namespace {

using Product = void (*)(char*, int*, int*, int*, int*, int*, double*, int*, int*, double*, int*, int*, double*,
                         int*, int*, int*, int*);

// What the interposed entries saw; unless `forward`, they return without MKL.
struct EntryLog {
  bool forward = true;
  std::vector<std::array<void*, 17>> calls;
};
EntryLog& entry_log() {
  static EntryLog l;
  return l;
}

// The layer hands the call on as a tail call, so the return address is the
// test's own; nothing but the layer calls these entries here.
void interposed(const char* name, char* trans, int* request, int* sort, int* m, int* n, int* k,
                double* a, int* ja, int* ia, double* b, int* jb, int* ib, double* c, int* jc, int* ic, int* nnzmax,
                int* info) {
  entry_log().calls.push_back({trans, request, sort, m, n, k, a, ja, ia, b, jb, ib, c, jc, ic, nnzmax, info});
  if (!entry_log().forward) return;
  const auto real = reinterpret_cast<Product>(observe::next(name));
  real(trans, request, sort, m, n, k, a, ja, ia, b, jb, ib, c, jc, ic, nnzmax, info);
}

}  // namespace

#define VORN_INTERPOSE(entry)                                                                                      \
  extern "C" void entry(char* trans, int* request, int* sort, int* m, int* n, int* k, double* a, int* ja, int* ia, \
                        double* b, int* jb, int* ib, double* c, int* jc, int* ic, int* nnzmax, int* info) {        \
    interposed(#entry, trans, request, sort, m, n, k, a, ja, ia, b, jb, ib, c, jc, ic, nnzmax, info);            \
  }
VORN_INTERPOSE(mkl_spblas_lp64_mkl_dcsrmultcsr)
VORN_INTERPOSE(mkl_spblas_lp64_mkl_zcsrmultcsr)

namespace {

struct Precision {
  Product product;
  const char* report_name;
  int comps;  // doubles per value
};
const Precision kPrecisions[] = {
    {&VORN_instable_dcsrmultcsr, "MKL_DCSRMULTCSR", 1},
    {&VORN_instable_zcsrmultcsr, "MKL_ZCSRMULTCSR", 2},
};

class CsrProduct : public ::testing::Test {
 protected:
  void SetUp() override { observe::reset(); }
  void TearDown() override { entry_log() = {}; }
};

// A sparse matrix in 1-based CSR form with values of `comps` doubles each.
struct Csr {
  int rows = 0, cols = 0;
  std::vector<double> values;
  std::vector<int> columns, row_start;
};

Csr random_csr(int rows, int cols, int comps, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> value(-2, 2);
  std::bernoulli_distribution present(0.45);
  Csr m{rows, cols, {}, {}, {1}};
  for (int i = 0; i < rows; ++i) {
    for (int j = 0; j < cols; ++j) {
      if (!present(gen)) continue;
      for (int c = 0; c < comps; ++c) m.values.push_back(value(gen));
      m.columns.push_back(j + 1);
    }
    m.row_start.push_back(static_cast<int>(m.columns.size()) + 1);
  }
  return m;
}

using Dense = std::vector<std::complex<double>>;  // row-major

Dense dense(const Csr& m, int comps) {
  Dense d(static_cast<std::size_t>(m.rows * m.cols));
  for (int i = 0; i < m.rows; ++i)
    for (int p = m.row_start[i] - 1; p < m.row_start[i + 1] - 1; ++p)
      d[i * m.cols + m.columns[p] - 1] +=
          std::complex<double>(m.values[p * comps], comps == 2 ? m.values[p * comps + 1] : 0.0);
  return d;
}

// op(A) * B computed densely: the oracle.
Dense dense_product(const Csr& a, const Csr& b, char trans, int comps) {
  const Dense da = dense(a, comps), db = dense(b, comps);
  const bool t = trans != 'N';
  const int rows = t ? a.cols : a.rows, inner = t ? a.rows : a.cols;
  Dense c(static_cast<std::size_t>(rows * b.cols));
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < b.cols; ++j)
      for (int l = 0; l < inner; ++l) {
        std::complex<double> x = t ? da[l * a.cols + i] : da[i * a.cols + l];
        if (trans == 'C') x = std::conj(x);
        c[i * b.cols + j] += x * db[l * b.cols + j];
      }
  return c;
}

void expect_equal(const Dense& got, const Dense& want, const std::string& where) {
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < got.size(); ++i)
    EXPECT_NEAR(std::abs(got[i] - want[i]), 0.0, 1e-12 * (1 + std::abs(want[i]))) << where << " element " << i;
}

// The argument check: first failure wins, and a failed call reports through
// XERBLA, leaves INFO alone and never reaches the computational library.
struct CheckCase {
  char trans;
  int request, m, n, k, nnzmax;
  int code;  // 0: passes
};
const CheckCase kChecks[] = {
    {'N', 0, 2, 2, 2, 4, 0},   {'n', 0, 2, 2, 2, 4, 0},    {'T', 0, 2, 2, 2, 4, 0},
    {'t', 0, 2, 2, 2, 4, 0},   {'C', 0, 2, 2, 2, 4, 0},    {'c', 0, 2, 2, 2, 4, 0},
    {'X', 0, -1, 2, 2, 4, 1},  {'H', -1, -1, -1, -1, -1, 1}, {' ', 0, 2, 2, 2, 4, 1},
    {'N', -1, 2, 2, 2, 4, 2},  {'N', 3, -1, 2, 2, 4, 2},   {'N', 0x7fffffff, 2, 2, 2, 4, 2},
    {'N', 0, -1, -1, -1, -1, 4}, {'N', 2, -3, 2, 2, 4, 4},  {'T', 0, 2, -1, -1, -1, 5},
    {'C', 1, 2, 2, -1, -1, 6}, {'N', 0, 2, 2, 2, -1, 16},  {'N', 0, 0, 0, 0, -1, 16},
    {'N', 1, 2, 2, 2, -5, 0},  {'N', 2, 2, 2, 2, -5, 0},   {'N', 0, 2, 2, 2, 0, 0},
};

TEST_F(CsrProduct, ArgumentsAreCheckedInOrderAndFailuresReportWithoutTouchingInfo) {
  for (const Precision& p : kPrecisions) {
    for (const CheckCase& c : kChecks) {
      SCOPED_TRACE(std::string(p.report_name) + " case " + std::to_string(&c - kChecks));
      observe::reset();
      entry_log() = {};
      entry_log().forward = false;  // nothing here is a problem MKL should see
      char trans = c.trans;
      int request = c.request, sort = 7, m = c.m, n = c.n, k = c.k, nnzmax = c.nnzmax, info = -777;
      double a[2] = {}, b[2] = {}, cv[2] = {};
      int ja[1] = {1}, ia[3] = {1, 1, 1}, jb[1] = {1}, ib[3] = {1, 1, 1}, jc[1] = {}, ic[3] = {};
      p.product(&trans, &request, &sort, &m, &n, &k, a, ja, ia, b, jb, ib, cv, jc, ic, &nnzmax, &info);

      EXPECT_EQ(info, -777);
      const auto& reports = observe::reports();
      if (c.code == 0) {
        EXPECT_TRUE(reports.empty());
        ASSERT_EQ(entry_log().calls.size(), 1u);
        const std::array<void*, 17> expected = {&trans, &request, &sort, &m, &n, &k, a, ja, ia,
                                                b, jb, ib, cv, jc, ic, &nnzmax, &info};
        EXPECT_EQ(entry_log().calls[0], expected) << "the arguments reach MKL unchanged";
      } else {
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_EQ(reports[0].name, p.report_name);
        EXPECT_EQ(reports[0].position, c.code);
        EXPECT_EQ(reports[0].length, 15);
        EXPECT_TRUE(reports[0].from_layer);
        EXPECT_TRUE(entry_log().calls.empty());
      }
      // No hooks on this path, whichever way it goes.
      for (const auto& e : observe::events()) {
        EXPECT_NE(e.kind, observe::Kind::SetXerbla);
        EXPECT_NE(e.kind, observe::Kind::SetProgress);
      }
    }
  }
}

// In one stage with room for the whole product, and in two: the row
// pointers first (NNZMAX plays no part), then the rest into arrays sized
// from them.
TEST_F(CsrProduct, ProductsMatchTheDenseOne) {
  for (const Precision& p : kPrecisions) {
    for (char trans : {'N', 'T', 'C'}) {
      if (p.comps == 1 && trans == 'C') continue;  // the same as 'T' for real values
      SCOPED_TRACE(std::string(p.report_name) + " trans=" + trans);
      // op(A) is 5 x 4 whichever TRANS.
      Csr a = trans == 'N' ? random_csr(5, 4, p.comps, 11) : random_csr(4, 5, p.comps, 11);
      Csr b = random_csr(4, 6, p.comps, 12);
      const Dense want = dense_product(a, b, trans, p.comps);
      int sort = 7, m = a.rows, n = a.cols, k = b.cols, info = -777;
      auto product = [&](int request, int nnzmax, Csr& c) {
        char t = trans;
        p.product(&t, &request, &sort, &m, &n, &k, a.values.data(), a.columns.data(), a.row_start.data(),
                  b.values.data(), b.columns.data(), b.row_start.data(), c.values.data(), c.columns.data(),
                  c.row_start.data(), &nnzmax, &info);
        ASSERT_EQ(info, 0);
      };
      Csr whole{5, 6, std::vector<double>(static_cast<std::size_t>(30 * p.comps)), std::vector<int>(30),
                std::vector<int>(6)};
      product(0, 30, whole);
      expect_equal(dense(whole, p.comps), want, "one stage");

      Csr staged{5, 6, std::vector<double>(2), std::vector<int>(1), std::vector<int>(6)};
      product(1, -5, staged);
      const int nnz = staged.row_start[5] - 1;
      ASSERT_GE(nnz, 1);
      ASSERT_LE(nnz, 30);
      staged.values.assign(static_cast<std::size_t>(nnz * p.comps), 0.0);
      staged.columns.assign(static_cast<std::size_t>(nnz), 0);
      product(2, -5, staged);
      expect_equal(dense(staged, p.comps), want, "two stages");
      EXPECT_TRUE(observe::reports().empty());
    }
  }
}

}  // namespace
