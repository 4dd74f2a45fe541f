// Data and event helpers shared by the LAPACK suites.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

#include "support/observe.h"

namespace fixtures {

inline std::vector<double> random_matrix(int rows, int cols, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<double> a(static_cast<std::size_t>(rows) * cols);
  for (auto& x : a) x = u(gen);
  return a;
}

inline std::vector<double> symmetric_matrix(int n, unsigned seed) {
  auto a = random_matrix(n, n, seed);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < j; ++i) a[i + j * n] = a[j + i * n];
  return a;
}

inline double max_diff(const std::vector<double>& a, const std::vector<double>& b) {
  double d = 0;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) d = std::max(d, std::abs(a[i] - b[i]));
  return d;
}

// The library's own calls of one kind since the last observe::reset().
inline std::vector<observe::Event> of_kind(observe::Kind k) {
  std::vector<observe::Event> out;
  for (const auto& e : observe::events())
    if (e.kind == k) out.push_back(e);
  return out;
}

inline std::vector<std::size_t> allocation_sizes() {
  std::vector<std::size_t> out;
  for (const auto& e : of_kind(observe::Kind::Allocate)) out.push_back(e.bytes);
  return out;
}

}  // namespace fixtures
