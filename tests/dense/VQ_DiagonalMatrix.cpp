// Tests of the diagonal matrix: index rule (Ref ignores the column), type marks of copies, the
// identity-based Inverse layout, capped reciprocals, m'Dm against a reference, D*m with skipped
// rows, free operators.
#include <gtest/gtest.h>

#include <vector>

#include "dense/VQ_Dense.h"
#include "support/DenseSupport.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;
using V = std::vector<double>;

namespace {
VQ_DiagonalMatrix Diag(V d) { return VQ_DiagonalMatrix(static_cast<int>(d.size()), d.data()); }
}  // namespace

TEST(DiagonalInverse, IdentityWithReciprocalsDownTheFirstColumnAndCappedReciprocals) {
  VQ_Matrix inv = Diag({2, 4}).Inverse();
  EXPECT_EQ(inv.MatrixType(), MC::MATRIX);
  EXPECT_EQ(Full(inv), (V{0.5, 0.25, 0.0, 1.0}));
  EXPECT_EQ(Full(Diag({4, 5, 1e-21}).Inverse()), (V{0.25, 0.2, 1e20, 0, 1, 0, 0, 0, 1}));

  VQ_DiagonalMatrix d = Diag({1e-21, -4, 1e-20}), capped = d.InverseDiag();
  EXPECT_EQ(capped.MatrixType(), MC::DIAGONAL_MATRIX);
  // 1e-20 sits exactly at the bound: a true reciprocal.
  EXPECT_EQ(Full(capped), (V{1e20, 0, 0, 0, -0.25, 0, 0, 0, 1.0 / 1e-20}));
  EXPECT_EQ(d.CountNonZeroDiagonalTerms(1e-20), 1);
}

class DiagonalMtSM : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(DiagonalMtSM, MatchesReference) {
  const auto [n, q] = GetParam();
  VQ_DiagonalMatrix d = Diag(RandomValues(n, 1, -2.0, 2.0));
  VQ_Matrix m = RandomMatrix(n, q, 2);
  VQ_SymMatrix s(3, 9.0);
  d.MtSM(m, s);
  ASSERT_EQ(s.NumRows(), q);
  const V mf = Full(m);
  const V ref = RefProduct(RefTranspose(mf, n, q), q, n, RefProduct(Full(d), n, n, mf, q), q);
  EXPECT_LT(MaxAbsDiff(Full(s), ref), 1e-13 * n);
}

INSTANTIATE_TEST_SUITE_P(Sizes, DiagonalMtSM,
                         testing::Values(std::make_pair(1, 1), std::make_pair(4, 3),
                                         std::make_pair(200, 40)));

TEST(DiagonalProducts, WithGeneralMatricesAndVectors) {
  const V dv = {2, -1, 3};
  VQ_DiagonalMatrix d = Diag(dv);
  VQ_Matrix m = RandomMatrix(3, 4, 3);
  VQ_Matrix dm = d * m, md = m.T() * d;  // row scaling, column scaling
  for (int i = 1; i <= 3; ++i)
    for (int j = 1; j <= 4; ++j) {
      EXPECT_EQ(dm.Value(i, j), dv[i - 1] * m.Value(i, j));
      EXPECT_EQ(md.Value(j, i), m.Value(i, j) * dv[i - 1]);
    }
  VQ_ColVector x(V{1, 1, 2});
  EXPECT_EQ(Full(d * x), (V{2, -1, 6}));
  EXPECT_EQ(Full(x.T() * d), (V{2, -1, 6}));
}
