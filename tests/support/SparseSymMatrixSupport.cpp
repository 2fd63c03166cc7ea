#include "SparseSymMatrixSupport.h"

#include <random>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"

namespace vqtest {

Csr CsrOf(const VQ_SparseSymMatrix& a) {
  Csr c;
  c.n = a.NumRows();
  const int nnz = a.GetNumberOfNonZeros();
  const int* r = a.GetRowVectorPointer();
  const int* k = a.GetColumnVectorPointer();
  const double* v = a.GetValuePointer();
  if (r) c.rowPointers.assign(r, r + c.n + 1);
  if (k) c.columnIndices.assign(k, k + nnz);
  if (v) c.values.assign(v, v + nnz);
  return c;
}

std::vector<double> DenseOf(const VQ_SparseSymMatrix& a) { return Dense(CsrOf(a)); }

VQ_SparseSymMatrix FromArrays(int n, std::vector<int> rowPointers, std::vector<int> columnIndices,
                              std::vector<double> values) {
  return VQ_SparseSymMatrix(n, values.data(), rowPointers.data(), columnIndices.data());
}

VQ_SparseSymMatrix FromDense(int n, std::vector<double> dense) {
  VQ_Matrix m(n, n, dense.data());
  return VQ_SparseSymMatrix(&m);
}

VQ_SparseSymMatrix RandomSparse(int n, double density, std::uint32_t seed) {
  return FromDense(n, RandomSymmetricDense(n, density, seed));
}

VQ_SparseSymMatrix DiagonalSparse(std::vector<double> d) {
  VQ_DiagonalMatrix m(static_cast<int>(d.size()), d.data());
  return VQ_SparseSymMatrix(&m);
}

::testing::AssertionResult IsEmpty(const VQ_SparseSymMatrix& a) {
  if (a.NumRows() == 0 && a.NumCols() == 0 && a.GetNumberOfNonZeros() == 0 && a.Value(1, 1) == 0.0)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "order " << a.NumRows() << " x " << a.NumCols() << ", " << a.GetNumberOfNonZeros()
         << " stored, (1,1) = " << a.Value(1, 1);
}

void ExpectNear(const std::vector<double>& got, const std::vector<double>& want, double tol) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t k = 0; k < got.size(); ++k) EXPECT_NEAR(got[k], want[k], tol) << "position " << k;
}

std::string LayoutProblem(const VQ_SparseSymMatrix& a) {
  return a.NumRows() == 0 ? "" : vqmath::models::CheckLayout(CsrOf(a));
}

std::vector<double> RandomSymmetricDense(int n, double density, std::uint32_t seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> val(-1.0, 1.0);
  std::uniform_real_distribution<double> coin(0.0, 1.0);
  std::vector<double> d(static_cast<size_t>(n) * n, 0.0);
  auto nonzero = [&] {
    double v = 0.0;
    while (v == 0.0) v = val(gen);
    return v;
  };
  for (int j = 0; j < n; ++j) {
    d[static_cast<size_t>(j) * n + j] = 4.0 + nonzero();
    for (int i = 0; i < j; ++i)
      if (coin(gen) < density) {
        const double v = nonzero();
        d[static_cast<size_t>(j) * n + i] = v;
        d[static_cast<size_t>(i) * n + j] = v;
      }
  }
  return d;
}

std::vector<double> RandomBlock(int n, int m, std::uint32_t seed) {
  return RandomValues(static_cast<size_t>(n) * m, seed);
}

}  // namespace vqtest
