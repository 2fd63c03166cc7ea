// Test helpers for the dense matrix classes (see DenseSupport.h).
#include "support/DenseSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <random>
#include <sstream>

namespace vqtest {

std::vector<double> RandomValues(size_t n, unsigned seed, double lo, double hi) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(lo, hi);
  std::vector<double> v(n);
  for (auto& x : v) x = dist(gen);
  return v;
}

VQ_Matrix RandomMatrix(int rows, int cols, unsigned seed) {
  std::vector<double> v = RandomValues(static_cast<size_t>(rows) * cols, seed);
  return VQ_Matrix(rows, cols, v.data());
}

std::vector<double> DiagonallyDominant(int n, unsigned seed) {
  std::vector<double> a = RandomValues(static_cast<size_t>(n) * n, seed);
  for (int k = 0; k < n; ++k) a[static_cast<size_t>(k) * n + k] += n;
  return a;
}

VQ_SymMatrix RandomSym(int n, unsigned seed) {
  VQ_SymMatrix s(n, 0.0);
  std::vector<double> v = RandomValues(static_cast<size_t>(n) * (n + 1) / 2, seed);
  size_t p = 0;
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= j; ++i) s(i, j) = v[p++] + (i == j ? n : 0.0);
  return s;
}

VQ_Matrix Mat(int rows, int cols, std::vector<double> values) {
  return VQ_Matrix(rows, cols, values.data());
}

VQ_SymMatrix SymUpper(int n, const std::vector<double>& upper) {
  VQ_SymMatrix s(n, 0.0);
  size_t p = 0;
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= j; ++i) s(i, j) = upper[p++];
  return s;
}

std::vector<double> Identity(int n) {
  std::vector<double> id(static_cast<size_t>(n) * n, 0.0);
  for (int k = 0; k < n; ++k) id[static_cast<size_t>(k) * n + k] = 1.0;
  return id;
}

::testing::AssertionResult HasNoStorage(const VQ_Matrix& m) {
  if (m.NumRows() == 0 && m.NumCols() == 0 && m.GetSizeAllocated() == 0 && !m.GetDataPointer())
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << m.NumRows() << " x " << m.NumCols() << ", size " << m.GetSizeAllocated();
}

std::vector<double> Full(const VQ_Matrix& m) {
  const int r = m.NumRows(), c = m.NumCols();
  std::vector<double> f(static_cast<size_t>(r) * c);
  for (int j = 1; j <= c; ++j)
    for (int i = 1; i <= r; ++i) f[static_cast<size_t>(j - 1) * r + (i - 1)] = m.Value(i, j);
  return f;
}

std::vector<double> RefProduct(const std::vector<double>& a, int m, int k,
                               const std::vector<double>& b, int n) {
  std::vector<double> c(static_cast<size_t>(m) * n);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < m; ++i) {
      long double s = 0.0L;
      for (int q = 0; q < k; ++q)
        s += static_cast<long double>(a[static_cast<size_t>(q) * m + i]) *
             b[static_cast<size_t>(j) * k + q];
      c[static_cast<size_t>(j) * m + i] = static_cast<double>(s);
    }
  return c;
}

std::vector<double> RefTranspose(const std::vector<double>& a, int r, int c) {
  std::vector<double> t(a.size());
  for (int j = 0; j < c; ++j)
    for (int i = 0; i < r; ++i)
      t[static_cast<size_t>(i) * c + j] = a[static_cast<size_t>(j) * r + i];
  return t;
}

double MaxAbsDiff(const std::vector<double>& a, const std::vector<double>& b) {
  EXPECT_EQ(a.size(), b.size());
  double d = 0.0;
  for (size_t k = 0; k < std::min(a.size(), b.size()); ++k) d = std::max(d, std::fabs(a[k] - b[k]));
  return d;
}

std::string FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "";
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

std::string ScratchPath(const std::string& name) {
  const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string stem = info ? std::string(info->test_suite_name()) + "_" + info->name() : "dense";
  for (char& ch : stem)
    if (ch == '/') ch = '_';
  return ::testing::TempDir() + "vqtest_" + stem + "_" + name;
}

}  // namespace vqtest
