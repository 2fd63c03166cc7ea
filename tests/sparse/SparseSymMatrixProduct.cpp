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

using namespace vqtest;
using V = std::vector<double>;

namespace {

// The definition: for every stored position k, its row r is found among all row pointer pairs.
V DefinitionProduct(const Csr& a, const V& x, int m) {
  const int n = a.n;
  V p(static_cast<size_t>(n) * m, 0.0);
  for (int k = 0; k < a.Nnz(); ++k) {
    int r = -1;
    for (int q = 0; q < n; ++q)
      if (a.rowPointers[q] <= k + 1 && k + 1 < a.rowPointers[q + 1]) r = q;
    const int c = a.columnIndices[k] - 1;
    const double v = a.values[k];
    for (size_t j = 0; j < static_cast<size_t>(m); ++j) {
      p[j * n + r] += v * x[j * n + c];
      if (c != r) p[j * n + c] += v * x[j * n + r];
    }
  }
  return p;
}

V BlasProduct(int n, const V& full, const V& x, int m) {
  V p(static_cast<size_t>(n) * m, 0.0);
  cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, m, n, 1.0, full.data(), n, x.data(), n,
              0.0, p.data(), n);
  return p;
}

// Entries of a rows x cols result.
V Entries(const VQ_Matrix& p) {
  return V(p.GetDataPointer(), p.GetDataPointer() + static_cast<size_t>(p.NumRows()) * p.NumCols());
}

class Product : public testing::TestWithParam<std::tuple<int, int, double>> {};

TEST_P(Product, AgreesWithBlasAndMatchesTheDefinitionExactly) {
  const auto [n, m, density] = GetParam();
  const V full = RandomSymmetricDense(n, density, n + m);
  VQ_SparseSymMatrix a = FromDense(n, full);
  V x = RandomBlock(n, m, 7 * n + m);
  VQ_Matrix P = a * VQ_Matrix(n, m, x.data());
  ASSERT_EQ(P.NumRows(), n);
  ASSERT_EQ(P.NumCols(), m);
  EXPECT_EQ(P.MatrixStatus(), 0);
  const V got = Entries(P), blas = BlasProduct(n, full, x, m),
          def = DefinitionProduct(CsrOf(a), x, m);
  for (size_t k = 0; k < got.size(); ++k)
    EXPECT_NEAR(got[k], blas[k], 1e-12 * (1.0 + std::fabs(blas[k])));
  for (size_t k = 0; k < got.size(); ++k) ASSERT_EQ(got[k], def[k]) << "position " << k;
}

INSTANTIATE_TEST_SUITE_P(Shapes, Product,
                         testing::Values(std::make_tuple(1, 1, 0.0), std::make_tuple(7, 1, 0.5),
                                         std::make_tuple(50, 2, 0.1), std::make_tuple(50, 3, 0.2),
                                         std::make_tuple(64, 8, 0.1),
                                         std::make_tuple(120, 30, 0.05),
                                         std::make_tuple(90, 41, 0.1)));

TEST(SparseSymMatrixProduct, ColumnVectorAndPackedSymmetricOperands) {
  const int n = 30;
  const V full = RandomSymmetricDense(n, 0.2, 5);
  VQ_SparseSymMatrix a = FromDense(n, full);
  V x = RandomBlock(n, 1, 6);
  VQ_ColVector y = a * VQ_ColVector(n, x.data());
  EXPECT_EQ(y.MatrixType(), MATLIBDLLCOMMONS::COLUMN_VECTOR);
  ExpectNear(Entries(y), BlasProduct(n, full, x, 1), 1e-12);
  // A packed symmetric operand is read through its values.
  const V xs = RandomSymmetricDense(n, 1.0, 9);
  VQ_SymMatrix X(n, 0.0);
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= j; ++i) X.Ref(i, j) = xs[(j - 1) * n + (i - 1)];
  VQ_Matrix P = a * static_cast<const VQ_Matrix&>(X);
  ExpectNear(Entries(P), BlasProduct(n, full, xs, n), 1e-12);
}

}  // namespace
