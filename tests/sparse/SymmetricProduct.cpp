// The symmetric product of the eigen solvers and the product entry points: Y = A·X on blocks,
// checked against a long-double product of the full symmetric matrix expanded from its upper
// triangle; the diagonal form and its massless rows.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "sparse/internal/SymmetricProduct.h"

using vqmath::internal::SymmetricProduct;
using V = std::vector<double>;

namespace {

// Upper triangle of a 5 x 5 symmetric matrix, 1-based rows, diagonal first.
const int kN = 5;
const std::vector<int> kRows = {1, 4, 6, 8, 10, 11};
const std::vector<int> kCols = {1, 2, 5, 2, 3, 3, 4, 4, 5, 5};
const V kValues = {4.0, -1.0, 0.5, 3.0, -2.0, 5.0, 1.25, 2.0, -0.75, 6.0};

// Long-double reference: the full matrix expanded from the stored triangle.
V Reference(const V& x, int columns) {
  std::vector<long double> full(kN * kN, 0.0L);
  for (int i = 0; i < kN; ++i)
    for (int k = kRows[i] - 1; k < kRows[i + 1] - 1; ++k) {
      const int j = kCols[k] - 1;
      full[i * kN + j] = full[j * kN + i] = kValues[k];
    }
  V y(static_cast<size_t>(kN) * columns);
  for (int c = 0; c < columns; ++c)
    for (int i = 0; i < kN; ++i) {
      long double s = 0.0L;
      for (int j = 0; j < kN; ++j) s += full[i * kN + j] * x[c * kN + j];
      y[c * kN + i] = static_cast<double>(s);
    }
  return y;
}

}  // namespace

TEST(SymmetricProduct, SparseBlockAndSingleColumnsMatchTheFullMatrix) {
  for (int hint : {0, 16}) {
    SymmetricProduct a;
    a.SetSparse(kN, kRows.data(), kCols.data(), kValues.data(), hint);
    ASSERT_TRUE(a.Ok());
    EXPECT_FALSE(a.IsDiagonal());
    const int columns = 3;
    V x(kN * columns);
    for (size_t i = 0; i < x.size(); ++i) x[i] = std::sin(1.0 + i);
    V block(x.size()), single(kN);
    ASSERT_EQ(a.Apply(x.data(), block.data(), columns), 0);
    const V ref = Reference(x, columns);
    for (size_t i = 0; i < x.size(); ++i) EXPECT_NEAR(block[i], ref[i], 1e-14) << i;
    ASSERT_EQ(a.Apply(x.data() + kN, single.data()), 0);
    for (int i = 0; i < kN; ++i) EXPECT_NEAR(single[i], ref[kN + i], 1e-14) << i;
  }
}

TEST(SymmetricProduct, DiagonalFormZeroesMasslessRowsOnly) {
  const V d = {2.0, 0.0, 1e-17, -3.0};
  const V x = {1.0, 5.0, 1e20, 2.0, 4.0, 6.0, 8.0, 10.0};
  SymmetricProduct m;
  m.SetDiagonal(4, d.data());
  ASSERT_TRUE(m.IsDiagonal());
  V y(8, -1.0);
  ASSERT_EQ(m.Apply(x.data(), y.data(), 2), 0);
  EXPECT_EQ(y, (V{2.0, 0.0, 0.0, -6.0, 8.0, 0.0, 0.0, -30.0}));
}

TEST(SymmetricProduct, DiagonalOnlyPatternIsScaledUnlessTheKernelIsAsked) {
  const std::vector<int> rows = {1, 2, 3}, cols = {1, 2};
  const V values = {1e-17, 3.0};
  const V x = {1e20, 2.0};
  V y(2);
  SymmetricProduct scaled, kernel;
  scaled.SetSparse(2, rows.data(), cols.data(), values.data(), 0);
  kernel.SetSparse(2, rows.data(), cols.data(), values.data(), 0,
                   SymmetricProduct::DiagonalOnly::kKernel);
  EXPECT_TRUE(scaled.IsDiagonal());
  EXPECT_FALSE(kernel.IsDiagonal());
  ASSERT_EQ(scaled.Apply(x.data(), y.data()), 0);
  EXPECT_EQ(y, (V{0.0, 6.0}));
  ASSERT_EQ(kernel.Apply(x.data(), y.data()), 0);  // the exact product of the kernel
  EXPECT_DOUBLE_EQ(y[0], 1e3);
  EXPECT_DOUBLE_EQ(y[1], 6.0);
}
