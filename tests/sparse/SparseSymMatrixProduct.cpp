// Sparse times dense: A * X with the stored upper triangle acting as the full symmetric matrix.
// Checked against the dense BLAS product of the full matrix, and bit for bit against the
// entry-by-entry definition (each entry's row found by scanning all row pointers), whose
// summation order the fast kernel has to keep.

#include <gtest/gtest.h>
#include <mkl.h>

#include <cmath>
#include <vector>

#include "dense/VQ_ColVector.h"
#include "dense/VQ_Matrix.h"
#include "sparse/SparseOperators.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/SparseSymMatrixSupport.h"

namespace {

// The definition: for every stored position k, its row r is found among all row pointer pairs.
std::vector<double> DefinitionProduct(const vqtest::Csr& a, const std::vector<double>& x, int m) {
  const int n = a.n;
  std::vector<double> p(static_cast<size_t>(n) * m, 0.0);
  for (int k = 0; k < a.nnz(); ++k) {
    int r = -1;
    for (int q = 0; q < n; ++q)
      if (a.rowPointers[q] <= k + 1 && k + 1 < a.rowPointers[q + 1]) r = q;
    const int c = a.columnIndices[k] - 1;
    const double v = a.values[k];
    for (int j = 0; j < m; ++j) {
      if (c == r) {
        p[static_cast<size_t>(j) * n + r] += v * x[static_cast<size_t>(j) * n + r];
      } else {
        p[static_cast<size_t>(j) * n + r] += v * x[static_cast<size_t>(j) * n + c];
        p[static_cast<size_t>(j) * n + c] += v * x[static_cast<size_t>(j) * n + r];
      }
    }
  }
  return p;
}

std::vector<double> BlasProduct(int n, const std::vector<double>& full,
                                const std::vector<double>& x, int m) {
  std::vector<double> p(static_cast<size_t>(n) * m, 0.0);
  cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, m, n, 1.0, full.data(), n, x.data(), n,
              0.0, p.data(), n);
  return p;
}

class Product : public testing::TestWithParam<std::tuple<int, int, double>> {};

TEST_P(Product, AgreesWithBlasAndMatchesTheDefinitionExactly) {
  const int n = std::get<0>(GetParam());
  const int m = std::get<1>(GetParam());
  const std::vector<double> full = vqtest::RandomSymmetricDense(n, std::get<2>(GetParam()), n + m);
  VQ_Matrix dense(n, n, const_cast<double*>(full.data()));
  VQ_SparseSymMatrix a(&dense);
  const std::vector<double> x = vqtest::RandomBlock(n, m, 7 * n + m);
  VQ_Matrix X(n, m, const_cast<double*>(x.data()));
  VQ_Matrix P = a * X;
  ASSERT_EQ(P.NumRows(), n);
  ASSERT_EQ(P.NumCols(), m);
  EXPECT_EQ(P.MatrixStatus(), 0);
  const std::vector<double> got(P.GetDataPointer(),
                                P.GetDataPointer() + static_cast<size_t>(n) * m);
  const std::vector<double> blas = BlasProduct(n, full, x, m);
  for (size_t k = 0; k < got.size(); ++k)
    EXPECT_NEAR(got[k], blas[k], 1e-12 * (1.0 + std::fabs(blas[k])));
  const std::vector<double> def = DefinitionProduct(vqtest::CsrOf(a), x, m);
  for (size_t k = 0; k < got.size(); ++k) ASSERT_EQ(got[k], def[k]) << "position " << k;
}

INSTANTIATE_TEST_SUITE_P(Shapes, Product,
                         testing::Values(std::make_tuple(1, 1, 0.0), std::make_tuple(7, 1, 0.5),
                                         std::make_tuple(50, 2, 0.1), std::make_tuple(50, 3, 0.2),
                                         std::make_tuple(64, 8, 0.1),
                                         std::make_tuple(120, 30, 0.05),
                                         std::make_tuple(90, 41, 0.1)));

TEST(SparseSymMatrixProduct, DiagonalOnlyScalesRows) {
  std::vector<double> d{2.0, -1.0, 0.5};
  VQ_DiagonalMatrix dm(3, d.data());
  VQ_SparseSymMatrix a(&dm);
  const std::vector<double> x = vqtest::RandomBlock(3, 4, 3);
  VQ_Matrix X(3, 4, const_cast<double*>(x.data()));
  VQ_Matrix P = a * X;
  for (int j = 1; j <= 4; ++j)
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(P.Value(i, j), d[i - 1] * X.Value(i, j));
}

TEST(SparseSymMatrixProduct, ColumnVectorOperand) {
  const int n = 30;
  const std::vector<double> full = vqtest::RandomSymmetricDense(n, 0.2, 5);
  VQ_Matrix dense(n, n, const_cast<double*>(full.data()));
  VQ_SparseSymMatrix a(&dense);
  const std::vector<double> x = vqtest::RandomBlock(n, 1, 6);
  VQ_ColVector v(n, const_cast<double*>(x.data()));
  VQ_ColVector y = a * v;
  EXPECT_EQ(y.MatrixType(), MATLIBDLLCOMMONS::COLUMN_VECTOR);
  const std::vector<double> blas = BlasProduct(n, full, x, 1);
  for (int i = 0; i < n; ++i) EXPECT_NEAR(y[i + 1], blas[i], 1e-12);
}

TEST(SparseSymMatrixProduct, PackedSymmetricOperandIsReadThroughItsValues) {
  const int n = 9;
  const std::vector<double> full = vqtest::RandomSymmetricDense(n, 0.4, 8);
  VQ_Matrix dense(n, n, const_cast<double*>(full.data()));
  VQ_SparseSymMatrix a(&dense);
  const std::vector<double> xs = vqtest::RandomSymmetricDense(n, 1.0, 9);
  VQ_SymMatrix X(n, 0.0);
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= j; ++i) X.Ref(i, j) = xs[(j - 1) * n + (i - 1)];
  VQ_Matrix P = a * static_cast<const VQ_Matrix&>(X);
  const std::vector<double> blas = BlasProduct(n, full, xs, n);
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= n; ++i) EXPECT_NEAR(P.Value(i, j), blas[(j - 1) * n + (i - 1)], 1e-12);
}

TEST(SparseSymMatrixProduct, ShortOperandGivesZeroResultWithMismatch) {
  VQ_SparseSymMatrix a = vqtest::SparseOf(vqtest::DiagonalCsr({1, 2, 3, 4}));
  VQ_Matrix X(3, 2, 1.0);
  VQ_Matrix P = a * X;
  EXPECT_EQ(P.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH);
  EXPECT_EQ(P.NumRows(), 4);
  for (int k = 0; k < 8; ++k) EXPECT_EQ(P.GetDataPointer()[k], 0.0);
}

TEST(SparseSymMatrixProduct, TallerOperandUsesItsOwnLeadingDimension) {
  VQ_SparseSymMatrix a = vqtest::SparseOf(vqtest::DiagonalCsr({2, 3}));
  double x[] = {1, 2, 99, 3, 4, 99};  // 3 x 2, the third row is not part of the product
  VQ_Matrix X(3, 2, x);
  VQ_Matrix P = a * X;
  EXPECT_EQ(P.NumRows(), 2);
  EXPECT_EQ(P.Value(1, 1), 2.0);
  EXPECT_EQ(P.Value(2, 1), 6.0);
  EXPECT_EQ(P.Value(1, 2), 6.0);
  EXPECT_EQ(P.Value(2, 2), 12.0);
}

TEST(SparseSymMatrixProduct, HandMadeArraysWithBadColumnsDoNotBreakTheKernel) {
  std::vector<int> r{1, 3, 4};
  std::vector<int> c{1, 7, 2};  // column 7 outside the order: skipped
  std::vector<double> v{1.0, 5.0, 2.0};
  VQ_SparseSymMatrix a(2, v.data(), r.data(), c.data());
  VQ_Matrix X(2, 3, 1.0);
  VQ_Matrix P = a * X;
  EXPECT_EQ(P.Value(1, 3), 1.0);
  EXPECT_EQ(P.Value(2, 3), 2.0);
}

TEST(SparseSymMatrixProduct, RealStiffnessMatrixAgainstIndependentProduct) {
  VQTEST_REQUIRE_DATA();
  VQ_SparseSymMatrix k;
  ASSERT_TRUE(k.ReadIn_MTX_Format(vqtest::DataFile("bcsstk06.mtx").c_str(), true));
  vqtest::Csr ref;
  ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile("bcsstk06.mtx"), ref));
  const int n = ref.n, m = 5;
  const std::vector<double> x = vqtest::RandomBlock(n, m, 42);
  VQ_Matrix X(n, m, const_cast<double*>(x.data()));
  VQ_Matrix P = k * X;
  std::vector<double> y(n);
  for (int j = 0; j < m; ++j) {
    vqtest::Multiply(ref, x.data() + static_cast<size_t>(j) * n, y.data());
    double scale = 0.0;
    for (double v : y) scale = std::max(scale, std::fabs(v));
    for (int i = 0; i < n; ++i) EXPECT_NEAR(P.Value(i + 1, j + 1), y[i], 1e-13 * scale);
  }
}

}  // namespace
