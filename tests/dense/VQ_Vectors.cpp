// Tests of the column and row vectors and the free operators between vectors and matrices:
// norms, dot and cross products (with the element-count comparison), column copies, the
// matrix-vector and vector-matrix products against references, scaling thresholds.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dense/VQ_Dense.h"
#include "support/DenseSupport.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;
using V = std::vector<double>;

TEST(ColVector, ConstructionAccessNormDotNormalize) {
  VQ_ColVector e(V{}), v(V{3, 4});
  EXPECT_EQ(e.GetSize(), 0);
  EXPECT_EQ(e.Norm(), 0.0);
  EXPECT_EQ(e.MatrixType(), MC::COLUMN_VECTOR);
  EXPECT_EQ(v.NumRows(), 2);
  EXPECT_EQ(v.NumCols(), 1);
  EXPECT_EQ(v[2], 4.0);
  EXPECT_DOUBLE_EQ(v.Norm(), 5.0);
  EXPECT_EQ(VQ_ColVector(3, 2.0).Norm(), std::sqrt(12.0));
  EXPECT_DOUBLE_EQ(v.Dot(VQ_ColVector(V{1, 2})), 11.0);
  VQ_ColVector c(v);
  EXPECT_EQ(c.MatrixType(), MC::COLUMN_VECTOR);
  c = VQ_ColVector(5);
  EXPECT_EQ(c.GetSize(), 5);
  v.Normalize();
  EXPECT_DOUBLE_EQ(v[1], 0.6);
  EXPECT_DOUBLE_EQ(v.Norm(), 1.0);
  v[1] = 6.0;
  EXPECT_EQ(v.Value(1, 1), 6.0);
  EXPECT_EQ(Full(VQ_ColVector(V{-2, 3}).Squared()), (V{4, 9}));
}

class MatrixVector : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(MatrixVector, ProductsMatchReference) {
  const auto [m, n] = GetParam();
  VQ_Matrix a = RandomMatrix(m, n, 2);
  V xv = RandomValues(n, 3), rv = RandomValues(m, 4);
  VQ_ColVector y = a * VQ_ColVector(n, xv.data());
  EXPECT_EQ(y.NumRows(), m);
  EXPECT_LT(MaxAbsDiff(Full(y), RefProduct(Full(a), m, n, xv, 1)), 1e-13 * n);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OK);
  VQ_RowVector z = VQ_ColVector(m, rv.data()).T() * a;
  EXPECT_EQ(z.NumCols(), n);
  EXPECT_EQ(z.MatrixType(), MC::ROW_VECTOR);
  EXPECT_LT(MaxAbsDiff(Full(z), RefProduct(rv, 1, m, Full(a), n)), 1e-13 * m);
}

INSTANTIATE_TEST_SUITE_P(Sizes, MatrixVector,
                         testing::Values(std::make_pair(1, 1), std::make_pair(4, 3),
                                         std::make_pair(150, 90)));

TEST(RowVector, AccessOperatorsAndDotWithColumn) {
  VQ_RowVector r(3, 2.0), two(2);
  EXPECT_EQ(r.NumRows(), 1);
  EXPECT_EQ(r.NumCols(), 3);
  EXPECT_EQ(r.MatrixType(), MC::ROW_VECTOR);
  r[2] = 5.0;
  const VQ_RowVector& cr = r;
  EXPECT_EQ(cr[2], 5.0);
  EXPECT_EQ(r.Value(1, 2), 5.0);
  VQ_ColVector t = r.T();
  EXPECT_EQ(Full(t), (V{2, 5, 2}));
  EXPECT_EQ(t.MatrixType(), MC::COLUMN_VECTOR);
  EXPECT_EQ(Full(r + r), (V{4, 10, 4}));
  EXPECT_EQ(Full(r - r), (V{0, 0, 0}));
  EXPECT_EQ(Full(-r), (V{-2, -5, -2}));
  EXPECT_EQ(Full(0.5 * r), (V{1, 2.5, 1}));
  EXPECT_EQ(Full(r / 2.0), (V{1, 2.5, 1}));
  EXPECT_EQ((r / 1e-17).MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);

  two[1] = 1.0;
  two[2] = 2.0;
  VQ_ColVector three(V{10, 20, 30});
  EXPECT_EQ(two * three, 50.0);                   // two products: no size check
  EXPECT_EQ(VQ_RowVector(4, 1.0) * three, 60.0);  // never beyond the column's storage
}
