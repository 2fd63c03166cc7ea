#include "SparseSymMatrixSupport.h"

#include <random>
#include <sstream>

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

std::vector<double> DenseOf(const VQ_SparseSymMatrix& a) {
  const int n = a.NumRows();
  std::vector<double> d(static_cast<size_t>(n) * n, 0.0);
  const int* r = a.GetRowVectorPointer();
  const int* k = a.GetColumnVectorPointer();
  const double* v = a.GetValuePointer();
  for (int i = 0; i < n && r; ++i)
    for (int p = r[i] - 1; p < r[i + 1] - 1; ++p) {
      const int j = k[p] - 1;
      d[static_cast<size_t>(j) * n + i] += v[p];
      if (j != i) d[static_cast<size_t>(i) * n + j] += v[p];
    }
  return d;
}

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
  std::ostringstream s;
  const int n = a.NumRows();
  const int nnz = a.GetNumberOfNonZeros();
  const int* r = a.GetRowVectorPointer();
  const int* k = a.GetColumnVectorPointer();
  if (n == 0) return "";
  if (!r || !k) return "arrays missing";
  if (r[0] != 1) return "rowptr[0] != 1";
  if (r[n] != nnz + 1) {
    s << "rowptr[n] = " << r[n] << " but nnz + 1 = " << nnz + 1;
    return s.str();
  }
  for (int i = 1; i <= n; ++i) {
    const int b = r[i - 1] - 1, e = r[i] - 1;
    if (e <= b) {
      s << "row " << i << " empty";
      return s.str();
    }
    if (k[b] != i) {
      s << "row " << i << " does not start with its diagonal (column " << k[b] << ")";
      return s.str();
    }
    for (int p = b + 1; p < e; ++p)
      if (k[p] <= k[p - 1] || k[p] > n) {
        s << "row " << i << " columns not strictly ascending within 1..n at position " << p;
        return s.str();
      }
  }
  return "";
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
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> val(-1.0, 1.0);
  std::vector<double> x(static_cast<size_t>(n) * m);
  for (double& v : x) v = val(gen);
  return x;
}

}  // namespace vqtest
