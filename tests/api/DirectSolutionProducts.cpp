// Product entry points: the symmetric sparse products (MKL's kernel and the library's own class)
// against an independent product, the dense product with its dimension checks and its
// leading-dimension rule against a naive triple loop, and the two diagnostic dumps.
#include <unistd.h>

#include <cmath>
#include <vector>

#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

double MaxRelativeDifference(const std::vector<double>& a, const std::vector<double>& b) {
  double worst = 0.0, scale = 0.0;
  for (double v : b) scale = std::fmax(scale, std::fabs(v));
  for (size_t i = 0; i < a.size(); ++i) worst = std::fmax(worst, std::fabs(a[i] - b[i]));
  return worst / scale;
}

class DirectSolutionProducts : public ::testing::Test {
 protected:
  void SetUp() override {
    VQ_ResetGlobalErrorsAndWarnings();
    k_ = vqtest::SolidStiffness(1500);
  }
  Csr k_;
};

TEST_F(DirectSolutionProducts, SparseVectorProductsAgreeWithReference) {
  const std::vector<double> x = vqtest::MakeRightHandSides(k_.n, 1, 3);
  std::vector<double> expected(k_.n);
  vqtest::Multiply(k_, x.data(), expected.data());
  // Registry contents survive the products.
  VQ_ResolveEror(-8);

  for (int useKernel : {1, 0, 7}) {
    SCOPED_TRACE(useKernel);
    std::vector<double> y(k_.n, std::nan(""));
    EXPECT_EQ(0, VQ_SparseSymmMatrixVectorMultiplication(useKernel, k_.n, k_.values.data(),
                                                         k_.rowPointers.data(), k_.columnIndices.data(),
                                                         x.data(), y.data()));
    EXPECT_LE(MaxRelativeDifference(y, expected), 1e-14);
  }
  std::vector<double> mkl(k_.n), native(k_.n);
  EXPECT_EQ(0, VQ_SparseSymmMatrixVectorMultiplication_MKL(k_.n, k_.values.data(), k_.rowPointers.data(),
                                                           k_.columnIndices.data(), x.data(), mkl.data()));
  EXPECT_EQ(0, VQ_SparseSymmMatrixVectorMultiplication_NATIVE(k_.n, k_.values.data(), k_.rowPointers.data(),
                                                              k_.columnIndices.data(), x.data(), native.data()));
  EXPECT_LE(MaxRelativeDifference(mkl, expected), 1e-14);
  EXPECT_LE(MaxRelativeDifference(native, expected), 1e-14);
  EXPECT_EQ(-8, VQ_GetLastErrorID());
}

TEST_F(DirectSolutionProducts, SparseMatrixProductIsColumnByColumn) {
  const int ncols = 4;
  const std::vector<double> x = vqtest::MakeRightHandSides(k_.n, ncols, 5);
  std::vector<double> expected(x.size());
  for (int j = 0; j < ncols; ++j)
    vqtest::Multiply(k_, x.data() + static_cast<size_t>(j) * k_.n, expected.data() + static_cast<size_t>(j) * k_.n);
  std::vector<double> y(x.size(), std::nan(""));
  EXPECT_EQ(0, VQ_SparseSymmMatrixMatrixMultiplication_MKL(k_.n, ncols, k_.values.data(), k_.rowPointers.data(),
                                                           k_.columnIndices.data(), x.data(), y.data()));
  EXPECT_LE(MaxRelativeDifference(y, expected), 1e-14);

  std::vector<double> untouched(x.size(), 4.0);
  EXPECT_EQ(0, VQ_SparseSymmMatrixMatrixMultiplication_MKL(k_.n, 0, k_.values.data(), k_.rowPointers.data(),
                                                           k_.columnIndices.data(), x.data(), untouched.data()));
  EXPECT_EQ(std::vector<double>(x.size(), 4.0), untouched);
}

// Naive C = alpha op(A) op(B) + beta C, column-major, op(B) read with leading dimension ldb.
std::vector<double> NaiveProduct(const std::vector<double>& a, int lda, bool ta, const std::vector<double>& b,
                                 int ldb, bool tb, std::vector<double> c, int m, int n, int k, double alpha,
                                 double beta) {
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < n; ++j) {
      double s = 0.0;
      for (int p = 0; p < k; ++p) {
        const double av = ta ? a[i * lda + p] : a[p * lda + i];
        const double bv = tb ? b[p * ldb + j] : b[j * ldb + p];
        s += av * bv;
      }
      c[j * m + i] = alpha * s + beta * c[j * m + i];
    }
  return c;
}

// Every transposition; a transposed B (rowsB x colsB) is read with leading dimension colsB, so a
// host passes a B that is not square in a buffer of colsB x colsB values.
TEST_F(DirectSolutionProducts, DenseProductForAllTranspositions) {
  const double alpha = 1.5, beta = -0.5;
  struct Case {
    int rowsA, colsA, rowsB, colsB, transA, transB;
  };
  for (const Case& t : {Case{4, 3, 3, 5, 0, 0}, Case{3, 4, 3, 5, 1, 0}, Case{4, 5, 5, 5, 0, 1},
                        Case{5, 4, 5, 5, 1, 1}, Case{4, 5, 3, 5, 0, 1}}) {
    SCOPED_TRACE(testing::Message() << t.transA << t.transB << " B " << t.rowsB << "x" << t.colsB);
    const int m = t.transA ? t.colsA : t.rowsA, k = t.transA ? t.rowsA : t.colsA;
    const int n = t.transB ? t.rowsB : t.colsB, ldb = t.transB ? t.colsB : t.rowsB;
    const std::vector<double> a = vqtest::MakeRightHandSides(m * k, 1, 1 + t.transA);
    const std::vector<double> b = vqtest::MakeRightHandSides(ldb * (t.transB ? t.colsB : n), 1, 2 + t.rowsB);
    const std::vector<double> c0 = vqtest::MakeRightHandSides(m * n, 1, 9);
    std::vector<double> c = c0;
    EXPECT_EQ(0, VQ_MatrixMatrixMultiplication_MKL(a.data(), b.data(), c.data(), t.rowsA, t.colsA, t.rowsB, t.colsB,
                                                   m, n, t.transA, t.transB, alpha, beta));
    EXPECT_LE(MaxRelativeDifference(c, NaiveProduct(a, t.rowsA, t.transA, b, ldb, t.transB, c0, m, n, k, alpha, beta)),
              1e-14);
  }
}

}  // namespace
