// Tests of the packed symmetric matrix: index rule, type marks of copies, congruence products
// against extended-precision references, inverse, operators (order-1 unary minus, epsilon division
// threshold), products with vectors and construction from a sparse matrix.
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <vector>

#include "support/DenseSupport.h"
#include "dense/VQ_Dense.h"
#include "sparse/VQ_SparseSymMatrix.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;

TEST(SymStorage, PackedIndexPositions) {
  VQ_SymMatrix s(3, 0.0);
  EXPECT_EQ(s.GetSizeAllocated(), 6);
  EXPECT_EQ(&s.Ref(3, 1), s.GetDataPointer() + 3);
  EXPECT_EQ(&s.Ref(1, 3), s.GetDataPointer() + 3);
  EXPECT_EQ(&s.Ref(2, 2), s.GetDataPointer() + 2);
  EXPECT_EQ(&s.Ref(3, 3), s.GetDataPointer() + 5);
  EXPECT_EQ(&s.Ref_(1, 2), s.GetDataPointer() + 1);
  s(2, 3) = 8.0;
  EXPECT_EQ(s.Value(3, 2), 8.0);
  EXPECT_EQ(s.Value_(2, 3), 8.0);
  EXPECT_EQ(s.GetDataPointer()[4], 8.0);
}

TEST(SymStorage, ConstructorsAndRedimension) {
  double d[] = {1, 2, 3};
  VQ_SymMatrix s(3, d);
  EXPECT_EQ(Full(s), (std::vector<double>{1, 0, 0, 0, 2, 0, 0, 0, 3}));
  EXPECT_EQ(s.MatrixType(), MC::SYM_MATRIX);
  VQ_SymMatrix e;
  EXPECT_EQ(e.MatrixType(), MC::SYM_MATRIX);
  EXPECT_EQ(e.NumRows(), 0);
  e.Redimension(4, 99, 2.5);  // second size ignored
  EXPECT_EQ(e.NumRows(), 4);
  EXPECT_EQ(e.NumCols(), 4);
  EXPECT_EQ(e.GetSizeAllocated(), 10);
  EXPECT_EQ(e.Value(4, 1), 2.5);
  e.SetValue(-1.0);
  EXPECT_EQ(e.Value(2, 3), -1.0);
  e.SetIdentityMatrix(2);  // virtual Redimension keeps the packed kind
  EXPECT_EQ(e.GetSizeAllocated(), 3);
  EXPECT_EQ(Full(e), (std::vector<double>{1, 0, 0, 1}));
}

TEST(SymStorage, AllocationFailure) {
  testing::internal::CaptureStdout();
  VQ_SymMatrix s(70000, 0.0);  // 2.45e9 packed values: beyond the 32-bit size
  EXPECT_EQ(testing::internal::GetCapturedStdout(), ">>>>>>> Cannot Allocate Memory !..... <<<<<< \n\n");
  EXPECT_EQ(s.MatrixStatus(), MC::STATUS_NO_MEMORY);
  EXPECT_EQ(s.NumRows(), 0);
  EXPECT_EQ(s.GetSizeAllocated(), 0);
  s.Redimension(3, 3, 0.0);
  EXPECT_EQ(s.MatrixStatus(), MC::STATUS_OK);
}

TEST(SymStorage, CopiesReportMatrixAssignmentKeepsType) {
  VQ_SymMatrix s = RandomSym(4, 1);
  VQ_SymMatrix c(s);
  EXPECT_EQ(c.MatrixType(), MC::MATRIX);
  EXPECT_EQ(Full(c), Full(s));
  EXPECT_EQ(s.T().MatrixType(), MC::MATRIX);
  EXPECT_EQ((+s).MatrixType(), MC::MATRIX);
  VQ_SymMatrix target(2, 0.0);
  target = s;
  EXPECT_EQ(target.MatrixType(), MC::SYM_MATRIX);
  EXPECT_EQ(Full(target), Full(s));
  target = target;
  EXPECT_EQ(Full(target), Full(s));
}

TEST(SymStorage, CopyUpperDiagonalIgnoresLowerTriangle) {
  double v[] = {1, 100, 100, 2, 3, 100, 4, 5, 6};  // upper: (1,2)=2 (1,3)=4 (2,3)=5
  VQ_Matrix m(3, 3, v);
  VQ_SymMatrix s;
  s.CopyUpperDiagonal(m);
  EXPECT_EQ(Full(s), (std::vector<double>{1, 2, 4, 2, 3, 5, 4, 5, 6}));
  VQ_SymMatrix untouched(2, 7.0);
  untouched.CopyUpperDiagonal(VQ_Matrix(2, 3));
  EXPECT_EQ(untouched.Value(1, 2), 7.0);
}

TEST(SymStorage, FromSparseMatrix) {
  double values[] = {4, 1, 5, 2, 6};
  int rowptr[] = {1, 3, 5, 6};
  int colidx[] = {1, 2, 2, 3, 3};
  VQ_SparseSymMatrix sp(3, values, rowptr, colidx);
  VQ_SymMatrix s(&sp);
  EXPECT_EQ(s.MatrixType(), MC::SYM_MATRIX);
  EXPECT_EQ(Full(s), (std::vector<double>{4, 1, 0, 1, 5, 2, 0, 2, 6}));
  VQ_DiagonalMatrix d;
  d.CopyDiagonalTerms(&sp);
  EXPECT_EQ(Full(d), (std::vector<double>{4, 0, 0, 0, 5, 0, 0, 0, 6}));
}

// ---- congruence products -------------------------------------------------------------------------

class SymCongruence : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(SymCongruence, TtKTMatchesReference) {
  const auto [n, m] = GetParam();
  VQ_SymMatrix k = RandomSym(n, 2);
  VQ_Matrix t = RandomMatrix(n, m, 3);
  VQ_SymMatrix r(1, 5.0);
  k.Tt_K_T(t, r);
  ASSERT_EQ(r.NumRows(), m);
  const std::vector<double> tf = Full(t);
  const std::vector<double> ref = RefProduct(RefTranspose(tf, n, m), m, n, RefProduct(Full(k), n, n, tf, m), m);
  EXPECT_LT(MaxAbsDiff(Full(r), ref), 1e-12 * n * n);
  EXPECT_EQ(r.MatrixType(), MC::SYM_MATRIX);
}

TEST_P(SymCongruence, TKTtMatchesReference) {
  const auto [n, m] = GetParam();
  VQ_SymMatrix k = RandomSym(n, 4);
  VQ_Matrix t = RandomMatrix(m, n, 5);
  VQ_SymMatrix r;
  k.T_K_Tt(t, r);
  ASSERT_EQ(r.NumRows(), m);
  const std::vector<double> tf = Full(t);
  const std::vector<double> ref = RefProduct(tf, m, n, RefProduct(Full(k), n, n, RefTranspose(tf, m, n), m), m);
  EXPECT_LT(MaxAbsDiff(Full(r), ref), 1e-12 * n * n);
}

TEST_P(SymCongruence, DiagonalKThroughTheInheritedProduct) {
  const auto [n, m] = GetParam();
  std::vector<double> d = RandomValues(n, 6, 1.0, 2.0);
  VQ_DiagonalMatrix k(n, d.data());
  VQ_Matrix t = RandomMatrix(n, m, 7);
  VQ_SymMatrix r;
  k.Tt_K_T(t, r);
  const std::vector<double> tf = Full(t);
  const std::vector<double> ref = RefProduct(RefTranspose(tf, n, m), m, n, RefProduct(Full(k), n, n, tf, m), m);
  EXPECT_LT(MaxAbsDiff(Full(r), ref), 1e-12 * n);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SymCongruence,
                         testing::Values(std::make_pair(1, 1), std::make_pair(3, 2), std::make_pair(6, 9),
                                         std::make_pair(120, 30)));

TEST(SymCongruenceEdge, HandComputed) {
  VQ_SymMatrix k(2, 0.0);
  k(1, 1) = 2;
  k(1, 2) = 1;
  k(2, 2) = 3;
  double tv[] = {1, 0, 1, 1};  // t = [[1,1],[0,1]]
  VQ_Matrix t(2, 2, tv);
  VQ_SymMatrix r;
  k.Tt_K_T(t, r);
  // t'Kt = [[2, 3], [3, 7]]
  EXPECT_EQ(r.Value(1, 1), 2.0);
  EXPECT_EQ(r.Value(1, 2), 3.0);
  EXPECT_EQ(r.Value(2, 2), 7.0);
  k.T_K_Tt(t, r);
  // tKt' = [[7, 4], [4, 3]]
  EXPECT_EQ(r.Value(1, 1), 7.0);
  EXPECT_EQ(r.Value(2, 1), 4.0);
  EXPECT_EQ(r.Value(2, 2), 3.0);
}

// ---- inverse and operators -------------------------------------------------------------------------

TEST(SymOperators, InverseGivesIdentity) {
  const int n = 25;
  VQ_SymMatrix s = RandomSym(n, 8);
  VQ_Matrix inv = s.Inverse();
  EXPECT_EQ(inv.MatrixType(), MC::MATRIX);
  std::vector<double> id(n * n, 0.0);
  for (int k = 0; k < n; ++k) id[k * n + k] = 1.0;
  EXPECT_LT(MaxAbsDiff(RefProduct(Full(s), n, n, Full(inv), n), id), 1e-13);
}

TEST(SymOperators, UnaryMinusYieldsOrderOne) {
  VQ_SymMatrix s = RandomSym(5, 9);
  VQ_SymMatrix neg = -s;
  EXPECT_EQ(neg.NumRows(), 1);
  EXPECT_EQ(neg.GetSizeAllocated(), 1);
  EXPECT_EQ(neg.Value(1, 1), -s.Value(1, 1));
  VQ_SymMatrix empty;
  VQ_SymMatrix negEmpty = -empty;
  EXPECT_EQ(negEmpty.NumRows(), 1);
  EXPECT_EQ(negEmpty.Value(1, 1), 0.0);  // the order of the operand
}

TEST(SymOperators, ScalingDivisionAndSums) {
  VQ_SymMatrix s = RandomSym(3, 10);
  const std::vector<double> f = Full(s);
  VQ_SymMatrix twice = s * 2.0;
  EXPECT_EQ(twice.MatrixType(), MC::MATRIX);  // built on the copy constructor
  EXPECT_EQ(twice.Value(3, 1), 2.0 * f[2]);
  EXPECT_EQ((2.0 * s).Value(2, 2), 2.0 * f[4]);
  VQ_SymMatrix q = s / 1e-17;  // under machine epsilon
  EXPECT_EQ(q.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  VQ_SymMatrix ok = s / 1e-15;
  EXPECT_EQ(ok.MatrixStatus(), MC::STATUS_OK);
  VQ_SymMatrix sum = s + s;
  EXPECT_EQ(Full(sum), Full(twice));
  VQ_SymMatrix zero = s - s;
  for (double x : Full(zero)) EXPECT_EQ(x, 0.0);
  VQ_SymMatrix acc = s;
  acc += VQ_SymMatrix(2, 1.0);  // over the smaller operand's packed positions only
  EXPECT_EQ(acc.Value(1, 2), f[3] + 1.0);
  EXPECT_EQ(acc.Value(3, 3), f[8]);
  acc *= 0.0;
  EXPECT_EQ(acc.Value(2, 3), 0.0);
}

TEST(SymOperators, VectorProducts) {
  const int n = 70;
  VQ_SymMatrix s = RandomSym(n, 11);
  std::vector<double> xv = RandomValues(n, 12);
  VQ_ColVector x(n, xv.data());
  VQ_ColVector y = s * x;
  EXPECT_EQ(y.MatrixType(), MC::COLUMN_VECTOR);
  EXPECT_LT(MaxAbsDiff(Full(y), RefProduct(Full(s), n, n, xv, 1)), 1e-12);
  VQ_RowVector r = x.T() * s;
  EXPECT_LT(MaxAbsDiff(Full(r), RefProduct(xv, 1, n, Full(s), n)), 1e-12);
}

TEST(SymOperators, PrintToStream) {
  VQ_SymMatrix s(2, 0.0);
  s(1, 1) = 1.0;
  s(1, 2) = 0.5;
  s(2, 2) = -2.0;
  std::ostringstream os;
  s.print(&os);
  EXPECT_EQ(os.str(),
            "1.0000000000000000 0.5000000000000000\n"
            "0.5000000000000000 -2.0000000000000000\n");
  s.print(static_cast<std::ostream*>(nullptr));
}

TEST(SymCongruenceEdge, ResultMayBeTheMatrixItself) {
  VQ_SymMatrix k = RandomSym(5, 13);
  VQ_Matrix t = RandomMatrix(5, 5, 14);
  VQ_SymMatrix expected;
  k.Tt_K_T(t, expected);
  k.Tt_K_T(t, k);
  EXPECT_LT(MaxAbsDiff(Full(k), Full(expected)), 1e-300);
}
