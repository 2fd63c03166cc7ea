// Tests of the packed symmetric matrix: index rule, type marks of copies, congruence products
// against extended-precision references, inverse, operators (order-1 unary minus, epsilon division
// threshold), products with vectors and construction from a sparse matrix.
#include <gtest/gtest.h>

#include <vector>

#include "dense/VQ_Dense.h"
#include "support/DenseSupport.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;
using V = std::vector<double>;

// ---- congruence products
// -------------------------------------------------------------------------

class SymCongruence : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(SymCongruence, TtKTAndTKTtMatchReferences) {
  const auto [n, m] = GetParam();
  VQ_SymMatrix k = RandomSym(n, 2), r(1, 5.0), r2;
  VQ_Matrix t = RandomMatrix(n, m, 3), u = RandomMatrix(m, n, 5);
  k.Tt_K_T(t, r);
  k.T_K_Tt(u, r2);
  ASSERT_EQ(r.NumRows(), m);
  ASSERT_EQ(r2.NumRows(), m);
  EXPECT_EQ(r.MatrixType(), MC::SYM_MATRIX);
  const V tf = Full(t), uf = Full(u), kf = Full(k);
  EXPECT_LT(
      MaxAbsDiff(Full(r), RefProduct(RefTranspose(tf, n, m), m, n, RefProduct(kf, n, n, tf, m), m)),
      1e-12 * n * n);
  EXPECT_LT(MaxAbsDiff(Full(r2),
                       RefProduct(uf, m, n, RefProduct(kf, n, n, RefTranspose(uf, m, n), m), m)),
            1e-12 * n * n);
  // A diagonal K goes through the inherited product.
  V d = RandomValues(n, 6, 1.0, 2.0);
  VQ_DiagonalMatrix dk(n, d.data());
  dk.Tt_K_T(t, r);
  EXPECT_LT(MaxAbsDiff(Full(r), RefProduct(RefTranspose(tf, n, m), m, n,
                                           RefProduct(Full(dk), n, n, tf, m), m)),
            1e-12 * n);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SymCongruence,
                         testing::Values(std::make_pair(1, 1), std::make_pair(3, 2),
                                         std::make_pair(6, 9), std::make_pair(120, 30)));

TEST(SymCongruenceEdge, HandComputedAndWrittenOverTheMatrixItself) {
  VQ_SymMatrix k = SymUpper(2, {2, 1, 3}), r;
  VQ_Matrix t = Mat(2, 2, {1, 0, 1, 1});  // t = [[1,1],[0,1]]
  k.Tt_K_T(t, r);
  EXPECT_EQ(Full(r), (V{2, 3, 3, 7}));
  k.T_K_Tt(t, r);
  EXPECT_EQ(Full(r), (V{7, 4, 4, 3}));

  VQ_SymMatrix big = RandomSym(5, 13), expected;
  VQ_Matrix t5 = RandomMatrix(5, 5, 14);
  big.Tt_K_T(t5, expected);
  big.Tt_K_T(t5, big);
  EXPECT_LT(MaxAbsDiff(Full(big), Full(expected)), 1e-300);
}

// ---- inverse and operators
// -------------------------------------------------------------------------

TEST(SymOperators, InverseGivesIdentity) {
  const int n = 25;
  VQ_SymMatrix s = RandomSym(n, 8);
  VQ_Matrix inv = s.Inverse();
  EXPECT_EQ(inv.MatrixType(), MC::MATRIX);
  EXPECT_LT(MaxAbsDiff(RefProduct(Full(s), n, n, Full(inv), n), Identity(n)), 1e-13);
}

TEST(SymOperators, VectorProducts) {
  const int n = 70;
  VQ_SymMatrix s = RandomSym(n, 11);
  V xv = RandomValues(n, 12);
  VQ_ColVector x(n, xv.data());
  VQ_ColVector y = s * x;
  EXPECT_EQ(y.MatrixType(), MC::COLUMN_VECTOR);
  EXPECT_LT(MaxAbsDiff(Full(y), RefProduct(Full(s), n, n, xv, 1)), 1e-12);
  EXPECT_LT(MaxAbsDiff(Full(x.T() * s), RefProduct(xv, 1, n, Full(s), n)), 1e-12);
}

