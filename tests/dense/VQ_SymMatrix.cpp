// Tests of the packed symmetric matrix: index rule, type marks of copies, congruence products
// against extended-precision references, inverse, operators (order-1 unary minus, epsilon division
// threshold), products with vectors and construction from a sparse matrix.
#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "dense/VQ_Dense.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/DenseSupport.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;
using V = std::vector<double>;

TEST(SymStorage, ConstructorsRedimensionAndAllocationFailure) {
  double d[] = {1, 2, 3};
  VQ_SymMatrix s(3, d), e;
  EXPECT_EQ(Full(s), (V{1, 0, 0, 0, 2, 0, 0, 0, 3}));
  EXPECT_EQ(s.MatrixType(), MC::SYM_MATRIX);
  EXPECT_EQ(e.MatrixType(), MC::SYM_MATRIX);
  EXPECT_TRUE(HasNoStorage(e));
  e.Redimension(4, 99, 2.5);  // second size ignored
  EXPECT_EQ(e.NumCols(), 4);
  EXPECT_EQ(e.GetSizeAllocated(), 10);
  EXPECT_EQ(Full(e), V(16, 2.5));
  e.SetIdentityMatrix(2);  // virtual Redimension keeps the packed kind
  EXPECT_EQ(e.GetSizeAllocated(), 3);
  EXPECT_EQ(Full(e), Identity(2));

  VQ_SymMatrix* huge = nullptr;  // 2.45e9 packed values: beyond the 32-bit size
  EXPECT_EQ(Stdout([&] { huge = new VQ_SymMatrix(70000, 0.0); }),
            ">>>>>>> Cannot Allocate Memory !..... <<<<<< \n\n");
  EXPECT_EQ(huge->MatrixStatus(), MC::STATUS_NO_MEMORY);
  EXPECT_TRUE(HasNoStorage(*huge));
  huge->Redimension(3, 3, 0.0);
  EXPECT_EQ(huge->MatrixStatus(), MC::STATUS_OK);
  delete huge;
}

TEST(SymStorage, CopyUpperDiagonalIgnoresLowerTriangleAndFromSparse) {
  VQ_SymMatrix s, untouched(2, 7.0);
  s.CopyUpperDiagonal(Mat(3, 3, {1, 100, 100, 2, 3, 100, 4, 5, 6}));  // upper: 2, 4, 5
  EXPECT_EQ(Full(s), (V{1, 2, 4, 2, 3, 5, 4, 5, 6}));
  untouched.CopyUpperDiagonal(VQ_Matrix(2, 3));
  EXPECT_EQ(untouched.Value(1, 2), 7.0);

  double values[] = {4, 1, 5, 2, 6};  // [[4,1,0],[1,5,2],[0,2,6]]
  int rowptr[] = {1, 3, 5, 6}, colidx[] = {1, 2, 2, 3, 3};
  VQ_SparseSymMatrix sp(3, values, rowptr, colidx);
  VQ_SymMatrix fromSparse(&sp);
  EXPECT_EQ(fromSparse.MatrixType(), MC::SYM_MATRIX);
  EXPECT_EQ(Full(fromSparse), (V{4, 1, 0, 1, 5, 2, 0, 2, 6}));
  VQ_DiagonalMatrix d;
  d.CopyDiagonalTerms(&sp);
  EXPECT_EQ(Full(d), (V{4, 0, 0, 0, 5, 0, 0, 0, 6}));
}

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

TEST(SymOperators, ScalingDivisionAndSums) {
  VQ_SymMatrix s = RandomSym(3, 10);
  const V f = Full(s);
  V twiceRef = f;
  for (double& x : twiceRef) x *= 2.0;
  VQ_SymMatrix twice = s * 2.0;
  EXPECT_EQ(twice.MatrixType(), MC::MATRIX);  // built on the copy constructor
  EXPECT_EQ(Full(twice), twiceRef);
  EXPECT_EQ(Full(2.0 * s), twiceRef);
  EXPECT_EQ(Full(s + s), twiceRef);
  EXPECT_EQ(Full(s - s), V(9, 0.0));
  EXPECT_EQ((s / 1e-17).MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);  // under machine epsilon
  EXPECT_EQ((s / 1e-15).MatrixStatus(), MC::STATUS_OK);
  VQ_SymMatrix acc = s;
  acc += VQ_SymMatrix(2, 1.0);  // over the smaller operand's packed positions only
  EXPECT_EQ(acc.Value(1, 2), f[3] + 1.0);
  EXPECT_EQ(acc.Value(3, 3), f[8]);
  acc *= 0.0;
  EXPECT_EQ(Full(acc), V(9, 0.0));
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

