// Tests of the diagonal matrix: index rule (Ref ignores the column), type marks of copies, the
// identity-based Inverse layout, capped reciprocals, m'Dm against a reference, D*m with skipped
// rows, free operators.
#include <gtest/gtest.h>

#include <vector>

#include "support/DenseSupport.h"
#include "dense/VQ_Dense.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;

TEST(DiagonalStorage, RefIgnoresColumnValueDoesNot) {
  VQ_DiagonalMatrix d(3, 0.0);
  d(2, 5) = 7.0;
  EXPECT_EQ(d.GetDataPointer()[1], 7.0);
  EXPECT_EQ(d.Value(2, 5), 0.0);
  EXPECT_EQ(d.Value(2, 2), 7.0);
  EXPECT_EQ(d.Value_(2, 1), 0.0);
  EXPECT_EQ(&d.Ref_(3, 1), d.GetDataPointer() + 2);
  EXPECT_EQ(d.GetSizeAllocated(), 3);
  d.Redimension(5, 0, 1.5);
  EXPECT_EQ(d.NumCols(), 5);
  EXPECT_EQ(d.GetSizeAllocated(), 5);
  EXPECT_EQ(d.Value(5, 5), 1.5);
}

TEST(DiagonalStorage, TypeMarksOfCopies) {
  double v[] = {1, 2};
  VQ_DiagonalMatrix d(2, v);
  EXPECT_EQ(d.MatrixType(), MC::DIAGONAL_MATRIX);
  VQ_DiagonalMatrix c(d);
  EXPECT_EQ(c.MatrixType(), MC::SYM_MATRIX);
  EXPECT_EQ(Full(c), Full(d));
  EXPECT_EQ(d.T().MatrixType(), MC::SYM_MATRIX);
  VQ_DiagonalMatrix a;
  a = d;
  EXPECT_EQ(a.MatrixType(), MC::DIAGONAL_MATRIX);
  EXPECT_EQ(a.Value(2, 2), 2.0);
  EXPECT_EQ((d * 2.0).MatrixType(), MC::SYM_MATRIX);
  EXPECT_EQ((d * d).MatrixType(), MC::DIAGONAL_MATRIX);
}

TEST(DiagonalInverse, IdentityWithReciprocalsDownTheFirstColumn) {
  double v[] = {2, 4};
  VQ_Matrix inv = VQ_DiagonalMatrix(2, v).Inverse();
  EXPECT_EQ(inv.MatrixType(), MC::MATRIX);
  EXPECT_EQ(Full(inv), (std::vector<double>{0.5, 0.25, 0.0, 1.0}));
  double w[] = {4, 5, 1e-21};
  EXPECT_EQ(Full(VQ_DiagonalMatrix(3, w).Inverse()), (std::vector<double>{0.25, 0.2, 1e20, 0, 1, 0, 0, 0, 1}));
}

TEST(DiagonalInverse, InverseDiagCapsTinyValues) {
  double v[] = {1e-21, -4, 1e-20};
  VQ_DiagonalMatrix inv = VQ_DiagonalMatrix(3, v).InverseDiag();
  EXPECT_EQ(inv.MatrixType(), MC::DIAGONAL_MATRIX);
  EXPECT_EQ(inv.Value(1, 1), 1e20);
  EXPECT_EQ(inv.Value(2, 2), -0.25);
  EXPECT_EQ(inv.Value(3, 3), 1.0 / 1e-20);  // exactly at the bound: a true reciprocal
  EXPECT_EQ(VQ_DiagonalMatrix(3, v).CountNonZeroDiagonalTerms(1e-20), 1);
}

class DiagonalMtSM : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(DiagonalMtSM, MatchesReference) {
  const auto [n, q] = GetParam();
  std::vector<double> dv = RandomValues(n, 1, -2.0, 2.0);
  VQ_DiagonalMatrix d(n, dv.data());
  VQ_Matrix m = RandomMatrix(n, q, 2);
  VQ_SymMatrix s(3, 9.0);
  d.MtSM(m, s);
  ASSERT_EQ(s.NumRows(), q);
  const std::vector<double> mf = Full(m);
  const std::vector<double> ref = RefProduct(RefTranspose(mf, n, q), q, n, RefProduct(Full(d), n, n, mf, q), q);
  EXPECT_LT(MaxAbsDiff(Full(s), ref), 1e-13 * n);
}

INSTANTIATE_TEST_SUITE_P(Sizes, DiagonalMtSM,
                         testing::Values(std::make_pair(1, 1), std::make_pair(4, 3), std::make_pair(200, 40)));

TEST(DiagonalProducts, MultiplyWithMatrixSkipsTinyRows) {
  double dv[] = {0, 3};
  VQ_DiagonalMatrix d(2, dv);
  double mv[] = {1, 2, 3, 4};  // m = [[1,3],[2,4]]
  VQ_Matrix m(2, 2, mv), r(2, 2, -5.0);
  d.MultiplyWithMatrix(m, r);
  EXPECT_EQ(Full(r), (std::vector<double>{-5, 6, -5, 12}));
}

TEST(DiagonalProducts, FreeOperators) {
  double av[] = {1, 2, 3};
  double bv[] = {4, 5, 6};
  VQ_DiagonalMatrix a(3, av), b(3, bv);
  EXPECT_EQ(Full(a + b), Full(VQ_DiagonalMatrix(3, std::vector<double>{5, 7, 9}.data())));
  EXPECT_EQ((a - b).Value(3, 3), -3.0);
  EXPECT_EQ((a * b).Value(2, 2), 10.0);
  EXPECT_EQ((2.0 * a).Value(3, 3), 6.0);
  VQ_DiagonalMatrix q = a / 1e-17;
  EXPECT_EQ(q.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  VQ_DiagonalMatrix small(2, 1.0);
  VQ_DiagonalMatrix mixed = a * small;  // orders differ: zeros of the left order, no status
  EXPECT_EQ(mixed.NumRows(), 3);
  EXPECT_EQ(Full(mixed), std::vector<double>(9, 0.0));
  EXPECT_EQ(mixed.MatrixStatus(), MC::STATUS_OK);
  VQ_DiagonalMatrix partial = a + small;  // over the right operand's order
  EXPECT_EQ(partial.Value(2, 2), 3.0);
  EXPECT_EQ(partial.Value(3, 3), 3.0);

  VQ_DiagonalMatrix neg = -a;
  EXPECT_EQ(neg.NumRows(), 1);
  EXPECT_EQ(neg.Value(1, 1), -1.0);
  EXPECT_EQ(neg.MatrixType(), MC::DIAGONAL_MATRIX);
  EXPECT_EQ((+a).MatrixType(), MC::SYM_MATRIX);
}

TEST(DiagonalProducts, WithGeneralMatricesAndVectors) {
  double dv[] = {2, -1, 3};
  VQ_DiagonalMatrix d(3, dv);
  VQ_Matrix m = RandomMatrix(3, 4, 3);
  VQ_Matrix dm = d * m;  // row scaling
  VQ_Matrix md = m.T() * d;  // column scaling
  for (int i = 1; i <= 3; ++i)
    for (int j = 1; j <= 4; ++j) {
      EXPECT_EQ(dm.Value(i, j), dv[i - 1] * m.Value(i, j));
      EXPECT_EQ(md.Value(j, i), m.Value(i, j) * dv[i - 1]);
    }
  double xv[] = {1, 1, 2};
  VQ_ColVector x(3, xv);
  EXPECT_EQ(Full(d * x), (std::vector<double>{2, -1, 6}));
  EXPECT_EQ(Full(x.T() * d), (std::vector<double>{2, -1, 6}));
}
