// Tests of the column and row vectors and the free operators between vectors and matrices:
// norms, dot and cross products (with the element-count comparison), column copies, the
// matrix-vector and vector-matrix products against references, scaling thresholds.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/DenseSupport.h"
#include "dense/VQ_Dense.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;

TEST(ColVector, ConstructionAndAccess) {
  VQ_ColVector e(std::vector<double>{});
  EXPECT_EQ(e.GetSize(), 0);
  EXPECT_EQ(e.Norm(), 0.0);
  EXPECT_EQ(e.MatrixType(), MC::COLUMN_VECTOR);
  VQ_ColVector v(std::vector<double>{3, 4});
  EXPECT_EQ(v.NumRows(), 2);
  EXPECT_EQ(v.NumCols(), 1);
  EXPECT_EQ(v[2], 4.0);
  v[1] = 6.0;
  EXPECT_EQ(v.Value(1, 1), 6.0);
  EXPECT_EQ(VQ_ColVector(3, 2.0).Norm(), std::sqrt(12.0));
  VQ_ColVector c(v);
  EXPECT_EQ(c.MatrixType(), MC::COLUMN_VECTOR);
  c = VQ_ColVector(5);
  EXPECT_EQ(c.GetSize(), 5);
}

TEST(ColVector, NormDotNormalizeSquared) {
  VQ_ColVector v(std::vector<double>{3, 4});
  EXPECT_DOUBLE_EQ(v.Norm(), 5.0);
  EXPECT_DOUBLE_EQ(v.Dot(VQ_ColVector(std::vector<double>{1, 2})), 11.0);
  v.Normalize();
  EXPECT_DOUBLE_EQ(v[1], 0.6);
  EXPECT_DOUBLE_EQ(v.Norm(), 1.0);
  EXPECT_EQ(Full(VQ_ColVector(std::vector<double>{-2, 3}).Squared()), (std::vector<double>{4, 9}));
}

TEST(ColVector, CrossComparesElementCounts) {
  VQ_ColVector a(std::vector<double>{1, 0, 0, 9, 9}), b(std::vector<double>{0, 1, 0, 7, 7});
  testing::internal::CaptureStdout();
  VQ_ColVector c = a.Cross(b);  // 5 x 1 each: first three elements, no complaint
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(Full(c), (std::vector<double>{0, 0, 1}));
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OK);

  VQ_ColVector x(std::vector<double>{1, 2, 3}), y(std::vector<double>{4, 5, 6});
  EXPECT_EQ(Full(x.Cross(y)), (std::vector<double>{-3, 6, -3}));

  VQ_ColVector z(std::vector<double>{1, 2, 3, 4});
  testing::internal::CaptureStdout();
  VQ_ColVector bad = x.Cross(z);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), " This vector is not 3x1, Cross product is not performed !..... \n");
  EXPECT_EQ(Full(bad), (std::vector<double>{0, 0, 0}));
  EXPECT_EQ(x.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
}

TEST(ColVector, ColumnCopiesAndCopyTo) {
  VQ_Matrix m = RandomMatrix(3, 4, 1);
  VQ_ColVector v(3);
  v.SetEqualTo(m, 4);
  EXPECT_EQ(v[2], m.Value(2, 4));
  VQ_ColVector keep(3, 5.0);
  keep.SetEqualTo(m, 5);  // out of range: nothing
  keep.SetEqualTo(VQ_Matrix(2, 2), 1);  // row mismatch: nothing
  EXPECT_EQ(keep[1], 5.0);
  double dv[] = {7, 8, 9};
  keep.SetEqualTo(VQ_DiagonalMatrix(3, dv));
  EXPECT_EQ(Full(keep), (std::vector<double>{7, 8, 9}));
  double out[2] = {0, 0};
  keep.CopyTo(out, 2);
  EXPECT_EQ(out[1], 8.0);
}

TEST(ColVector, OperatorsAndThreshold) {
  VQ_ColVector a(std::vector<double>{1, 2}), b(std::vector<double>{10, 20});
  EXPECT_EQ(Full(a + b), (std::vector<double>{11, 22}));
  EXPECT_EQ(Full(a - b), (std::vector<double>{-9, -18}));
  EXPECT_EQ(Full(-a), (std::vector<double>{-1, -2}));
  EXPECT_EQ(Full(+a), (std::vector<double>{1, 2}));
  EXPECT_EQ(Full(2.0 * a), (std::vector<double>{2, 4}));
  EXPECT_EQ(Full(a * 3.0), (std::vector<double>{3, 6}));
  EXPECT_EQ((a + b).MatrixType(), MC::COLUMN_VECTOR);
  VQ_ColVector q = a / 1e-17;
  EXPECT_EQ(q.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  VQ_ColVector c(a);
  c /= 4.0;
  EXPECT_EQ(c.MatrixStatus(), MC::STATUS_OK);
  EXPECT_EQ(c[2], 0.5);
}

class MatrixVector : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(MatrixVector, ProductsMatchReference) {
  const auto [m, n] = GetParam();
  VQ_Matrix a = RandomMatrix(m, n, 2);
  std::vector<double> xv = RandomValues(n, 3), rv = RandomValues(m, 4);
  VQ_ColVector x(n, xv.data());
  VQ_ColVector y = a * x;
  EXPECT_EQ(y.NumRows(), m);
  EXPECT_LT(MaxAbsDiff(Full(y), RefProduct(Full(a), m, n, xv, 1)), 1e-13 * n);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OK);
  VQ_RowVector r = VQ_ColVector(m, rv.data()).T();
  VQ_RowVector z = r * a;
  EXPECT_EQ(z.NumCols(), n);
  EXPECT_EQ(z.MatrixType(), MC::ROW_VECTOR);
  EXPECT_LT(MaxAbsDiff(Full(z), RefProduct(rv, 1, m, Full(a), n)), 1e-13 * m);
}

INSTANTIATE_TEST_SUITE_P(Sizes, MatrixVector,
                         testing::Values(std::make_pair(1, 1), std::make_pair(4, 3), std::make_pair(150, 90)));

TEST(MatrixVectorEdge, MismatchMarksMatrix) {
  VQ_Matrix a(2, 3, 1.0);
  VQ_ColVector x(std::vector<double>{1, 2});
  VQ_ColVector y = a * x;  // only the two terms v holds are summed
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
  EXPECT_EQ(Full(y), (std::vector<double>{3, 3}));
}

TEST(RowVector, AccessOperatorsAndDotWithColumn) {
  VQ_RowVector r(3, 2.0);
  EXPECT_EQ(r.NumRows(), 1);
  EXPECT_EQ(r.NumCols(), 3);
  EXPECT_EQ(r.MatrixType(), MC::ROW_VECTOR);
  r[2] = 5.0;
  const VQ_RowVector& cr = r;
  EXPECT_EQ(cr[2], 5.0);
  EXPECT_EQ(r.Value(1, 2), 5.0);
  VQ_ColVector t = r.T();
  EXPECT_EQ(Full(t), (std::vector<double>{2, 5, 2}));
  EXPECT_EQ(t.MatrixType(), MC::COLUMN_VECTOR);
  EXPECT_EQ(Full(r + r), (std::vector<double>{4, 10, 4}));
  EXPECT_EQ(Full(r - r), (std::vector<double>{0, 0, 0}));
  EXPECT_EQ(Full(-r), (std::vector<double>{-2, -5, -2}));
  EXPECT_EQ(Full(0.5 * r), (std::vector<double>{1, 2.5, 1}));
  EXPECT_EQ(Full(r / 2.0), (std::vector<double>{1, 2.5, 1}));
  EXPECT_EQ((r / 1e-17).MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);

  VQ_RowVector two(2);
  two[1] = 1.0;
  two[2] = 2.0;
  VQ_ColVector three(std::vector<double>{10, 20, 30});
  EXPECT_EQ(two * three, 50.0);  // two products: no size check
  EXPECT_EQ(VQ_RowVector(4, 1.0) * three, 60.0);  // never beyond the column's storage
}

TEST(RowVector, OuterProductThroughGeneralProduct) {
  VQ_ColVector c(std::vector<double>{1, 2});
  VQ_RowVector r(3, 3.0);
  VQ_Matrix outer = c * r;
  EXPECT_EQ(outer.NumRows(), 2);
  EXPECT_EQ(outer.NumCols(), 3);
  EXPECT_EQ(outer.Value(2, 3), 6.0);
}
