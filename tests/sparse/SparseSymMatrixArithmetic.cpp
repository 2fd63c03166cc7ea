// Arithmetic on sparse symmetric matrices: scaling, same-pattern sums, subset and diagonal sums,
// the pattern merge of TwoSparseMatrixOperation and the free sum operators. Every result is
// checked against the same operation carried out on full dense matrices, and merged patterns
// against the union of the operand patterns.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "sparse/SparseOperators.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/SparseSymMatrixSupport.h"

using vqtest::CsrOf;
using vqtest::DenseOf;
using vqtest::LayoutProblem;

namespace {

VQ_SparseSymMatrix FromDense(int n, const std::vector<double>& d) {
  VQ_Matrix m(n, n, const_cast<double*>(d.data()));
  return VQ_SparseSymMatrix(&m);
}

VQ_SparseSymMatrix Diagonal(const std::vector<double>& d) {
  VQ_DiagonalMatrix m(static_cast<int>(d.size()), const_cast<double*>(d.data()));
  return VQ_SparseSymMatrix(&m);
}

void ExpectDenseNear(const std::vector<double>& got, const std::vector<double>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t k = 0; k < got.size(); ++k) EXPECT_NEAR(got[k], want[k], 1e-14) << "position " << k;
}

TEST(SparseSymMatrixScaling, MultiplyAndDivide) {
  VQ_SparseSymMatrix a = FromDense(8, vqtest::RandomSymmetricDense(8, 0.4, 1));
  const std::vector<double> ref = DenseOf(a);
  a *= 3.0;
  a /= 2.0;
  std::vector<double> want = ref;
  for (double& v : want) v = v * 3.0 / 2.0;
  ExpectDenseNear(DenseOf(a), want);
  EXPECT_EQ(a.MatrixStatus(), 0);
}

TEST(SparseSymMatrixScaling, DivisionBelowMachineEpsilonLeavesTheMatrixAndSetsMinus7) {
  VQ_SparseSymMatrix a = FromDense(5, vqtest::RandomSymmetricDense(5, 0.4, 2));
  const vqtest::Csr before = CsrOf(a);
  a /= 1e-17;
  EXPECT_EQ(a.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_DIVISION_BY_ZERO);
  EXPECT_EQ(CsrOf(a).values, before.values);
  // The free operator returns the shallow copy unscaled and sets no status.
  VQ_SparseSymMatrix b = FromDense(5, vqtest::RandomSymmetricDense(5, 0.4, 2));
  VQ_SparseSymMatrix c = b / 0.0;
  EXPECT_EQ(c.MatrixStatus(), 0);
  EXPECT_EQ(CsrOf(c).values, before.values);
  VQ_SparseSymMatrix h = b / 2.0;  // halves b as well (shared arrays)
  EXPECT_EQ(b.Value(1, 1), before.values[0] / 2.0);
  VQ_SparseSymMatrix t = 2.0 * b;
  EXPECT_EQ(b.Value(1, 1), before.values[0]);
}

TEST(SparseSymMatrixScaling, UnaryPlusSharesUnaryMinusNegatesTheOperand) {
  VQ_SparseSymMatrix a = FromDense(4, vqtest::RandomSymmetricDense(4, 0.5, 3));
  const std::vector<double> ref = DenseOf(a);
  VQ_SparseSymMatrix p = +a;
  EXPECT_EQ(p.GetValuePointer(), a.GetValuePointer());
  VQ_SparseSymMatrix m = -a;
  std::vector<double> neg = ref;
  for (double& v : neg) v = -v;
  EXPECT_EQ(DenseOf(m), neg);
  EXPECT_EQ(DenseOf(a), neg);
}

// ---- same-pattern sums -------------------------------------------------------------------------

TEST(SparseSymMatrixSum, SamePatternAddsValueByValue) {
  const std::vector<double> da = vqtest::RandomSymmetricDense(10, 0.3, 4);
  VQ_SparseSymMatrix a = FromDense(10, da);
  VQ_SparseSymMatrix b;
  b.SetEqualTo(&a);
  b *= 0.25;
  a += b;
  std::vector<double> want = da;
  for (double& v : want) v *= 1.25;
  ExpectDenseNear(DenseOf(a), want);
  a -= b;
  ExpectDenseNear(DenseOf(a), da);
}

TEST(SparseSymMatrixSum, DifferentPatternLeavesTheReceiverExactlyAsItWas) {
  VQ_SparseSymMatrix a = FromDense(10, vqtest::RandomSymmetricDense(10, 0.3, 5));
  VQ_SparseSymMatrix b = FromDense(10, vqtest::RandomSymmetricDense(10, 0.3, 6));
  const vqtest::Csr before = CsrOf(a);
  a += b;
  a -= b;
  const vqtest::Csr after = CsrOf(a);
  EXPECT_EQ(after.values, before.values);
  EXPECT_EQ(after.columnIndices, before.columnIndices);
}

TEST(SparseSymMatrixSum, AddSparseMatrixWithAndWithoutPatternCheck) {
  VQ_SparseSymMatrix a = Diagonal({1, 2, 3});
  VQ_SparseSymMatrix b = FromDense(3, {1, 1, 0, 1, 1, 0, 0, 0, 1});  // (1,2) present
  EXPECT_FALSE(a.AddSparseMatrix(&b, 2.0, true));
  EXPECT_EQ(a.Value(1, 1), 1.0);
  // Unchecked: positions are combined as they stand, over the shorter array.
  EXPECT_TRUE(a.AddSparseMatrix(&b, 2.0, false));
  EXPECT_EQ(CsrOf(a).values, (std::vector<double>{3, 4, 5}));
  VQ_SparseSymMatrix c = Diagonal({1, 1, 1});
  EXPECT_TRUE(a.AddSparseMatrix(&c, -1.0, true));
  EXPECT_EQ(CsrOf(a).values, (std::vector<double>{2, 3, 4}));
}

// ---- TwoSparseMatrixOperation -------------------------------------------------------------------

TEST(SparseSymMatrixTwoOperation, SizeTestComesBeforeTheScaling) {
  VQ_SparseSymMatrix a = Diagonal({1, 2, 3});
  VQ_SparseSymMatrix b = Diagonal({1, 2});
  EXPECT_FALSE(a.TwoSparseMatrixOperation(&b, 2.0, 1.0));
  EXPECT_EQ(CsrOf(a).values, (std::vector<double>{1, 2, 3}));
}

TEST(SparseSymMatrixTwoOperation, FailedLookupLeavesTheReceiverScaled) {
  // A made from arrays whose row 2 lacks its diagonal: the diagonal update cannot find (2, 2).
  std::vector<int> r{1, 3, 4, 5};
  std::vector<int> c{1, 2, 3, 3};
  std::vector<double> v{1, 5, 7, 3};
  VQ_SparseSymMatrix a(3, v.data(), r.data(), c.data());
  VQ_SparseSymMatrix b = Diagonal({1, 1, 1});
  EXPECT_FALSE(a.TwoSparseMatrixOperation(&b, 2.0, 1.0));
  const std::vector<double> got = CsrOf(a).values;
  EXPECT_EQ(got[1], 10.0);  // scaled by 2
  EXPECT_EQ(got[2], 14.0);
  EXPECT_EQ(got[3], 6.0);  // (3, 3) never reached
  EXPECT_EQ(got[0], 3.0);  // (1, 1) scaled and updated before the failure
}

TEST(SparseSymMatrixTwoOperation, DiagonalOperandUpdatesOnlyTheDiagonal) {
  const std::vector<double> da = vqtest::RandomSymmetricDense(9, 0.4, 7);
  VQ_SparseSymMatrix a = FromDense(9, da);
  const std::vector<int> pattern = CsrOf(a).columnIndices;
  std::vector<double> dm(9);
  for (int i = 0; i < 9; ++i) dm[i] = 0.5 + i;
  VQ_SparseSymMatrix m = Diagonal(dm);
  const double sigma = 1.75;
  ASSERT_TRUE(a.TwoSparseMatrixOperation(&m, 1.0, -sigma));  // K - sigma M
  EXPECT_EQ(CsrOf(a).columnIndices, pattern);
  std::vector<double> want = da;
  for (int i = 0; i < 9; ++i) want[i * 9 + i] -= sigma * dm[i];
  ExpectDenseNear(DenseOf(a), want);
}

TEST(SparseSymMatrixTwoOperation, SubsetOperandKeepsThePattern) {
  const std::vector<double> da = vqtest::RandomSymmetricDense(12, 0.5, 8);
  std::vector<double> db(da.size(), 0.0);
  for (int i = 0; i < 12; ++i) db[i * 12 + i] = 1.0 + i;
  // b takes every third off-diagonal entry of a
  int k = 0;
  for (int j = 0; j < 12; ++j)
    for (int i = 0; i < j; ++i)
      if (da[j * 12 + i] != 0.0 && (k++ % 3 == 0))
        db[j * 12 + i] = db[i * 12 + j] = 0.5 * (i + j + 1);
  VQ_SparseSymMatrix a = FromDense(12, da);
  VQ_SparseSymMatrix b = FromDense(12, db);
  ASSERT_TRUE(a.CheckSubsetSparsity(&b));
  ASSERT_FALSE(b.CheckSubsetSparsity(&a));
  const std::vector<int> pattern = CsrOf(a).columnIndices;
  ASSERT_TRUE(a.TwoSparseMatrixOperation(&b, 3.0, -2.0));
  EXPECT_EQ(CsrOf(a).columnIndices, pattern);
  std::vector<double> want(da.size());
  for (size_t q = 0; q < da.size(); ++q) want[q] = 3.0 * da[q] - 2.0 * db[q];
  ExpectDenseNear(DenseOf(a), want);
}

// Pattern merge: random pairs with different patterns, against the dense result and the union.
class Merge : public testing::TestWithParam<std::tuple<int, double, double, unsigned>> {};

TEST_P(Merge, UnionWithAscendingColumnsDiagonalFirst) {
  const int n = std::get<0>(GetParam());
  const unsigned seed = std::get<3>(GetParam());
  const std::vector<double> da = vqtest::RandomSymmetricDense(n, std::get<1>(GetParam()), seed);
  const std::vector<double> db =
      vqtest::RandomSymmetricDense(n, std::get<2>(GetParam()), seed + 100);
  VQ_SparseSymMatrix a = FromDense(n, da);
  VQ_SparseSymMatrix b = FromDense(n, db);
  const double alpha = 0.5, beta = -1.5;
  ASSERT_TRUE(a.TwoSparseMatrixOperation(&b, alpha, beta));
  EXPECT_EQ(LayoutProblem(a), "");
  int unionCount = 0;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i <= j; ++i)
      if (da[j * n + i] != 0.0 || db[j * n + i] != 0.0 || i == j) ++unionCount;
  EXPECT_EQ(a.GetNumberOfNonZeros(), unionCount);
  std::vector<double> want(da.size());
  for (size_t q = 0; q < da.size(); ++q) want[q] = alpha * da[q] + beta * db[q];
  ExpectDenseNear(DenseOf(a), want);
  EXPECT_EQ(a.MatrixStatus(), 0);
}

INSTANTIATE_TEST_SUITE_P(Patterns, Merge,
                         testing::Values(std::make_tuple(2, 0.0, 1.0, 1u),
                                         std::make_tuple(3, 1.0, 0.0, 2u),
                                         std::make_tuple(15, 0.2, 0.2, 3u),
                                         std::make_tuple(40, 0.1, 0.3, 4u),
                                         std::make_tuple(80, 0.05, 0.05, 5u)));

TEST(SparseSymMatrixTwoOperation, MergeWhenTheReceiverHasAnEmptyRowRange) {
  // Order 1 hand-made with no stored entry: the merge must still find room for B's diagonal.
  std::vector<int> r{1, 1};
  VQ_SparseSymMatrix a(1, nullptr, r.data(), nullptr);
  ASSERT_EQ(a.NumRows(), 1);
  std::vector<int> rb{1, 2};
  std::vector<int> cb{1};
  std::vector<double> vb{2.0};
  VQ_SparseSymMatrix b(1, vb.data(), rb.data(), cb.data());
  // B is diagonal-only, and A lacks the diagonal: that case fails without touching the pattern.
  EXPECT_FALSE(a.TwoSparseMatrixOperation(&b, 1.0, 1.0));
}

TEST(SparseSymMatrixTwoOperation, MergedResultDoesNotDisturbEarlierSharers) {
  VQ_SparseSymMatrix a = Diagonal({1, 2});
  VQ_SparseSymMatrix shared(a);
  VQ_SparseSymMatrix b = FromDense(2, {0, 1, 1, 0});  // (1,2)=1, zero diagonal kept
  ASSERT_TRUE(a.TwoSparseMatrixOperation(&b, 1.0, 1.0));
  EXPECT_EQ(a.Value(1, 2), 1.0);
  EXPECT_EQ(shared.GetNumberOfNonZeros(), 2);
  EXPECT_EQ(shared.Value(2, 2), 2.0);
}

// ---- subset test --------------------------------------------------------------------------------

TEST(SparseSymMatrixSubset, LowerTriangleEntriesOfTheOperandAreLookedUpTransposed) {
  VQ_SparseSymMatrix a = FromDense(3, {1, 0, 1, 0, 1, 0, 1, 0, 1});  // (1,3)
  // B from hand-made arrays that store (3, 1) in row 3 instead of (1, 3).
  std::vector<int> r{1, 2, 3, 5};
  std::vector<int> c{1, 2, 3, 1};
  std::vector<double> v{1, 1, 1, 1};
  VQ_SparseSymMatrix b(3, v.data(), r.data(), c.data());
  EXPECT_TRUE(a.CheckSubsetSparsity(&b));
  c[3] = 2;  // (3, 2): not stored in A
  VQ_SparseSymMatrix b2(3, v.data(), r.data(), c.data());
  EXPECT_FALSE(a.CheckSubsetSparsity(&b2));
  VQ_SparseSymMatrix big = Diagonal({1, 1, 1, 1});
  EXPECT_FALSE(a.CheckSubsetSparsity(&big));  // rows beyond A's order
}

// ---- free operators -----------------------------------------------------------------------------

TEST(SparseSymMatrixOperators, PlusDiagonalChangesOnlyTheDiagonalAndTheOperand) {
  const std::vector<double> da = vqtest::RandomSymmetricDense(6, 0.5, 9);
  VQ_SparseSymMatrix a = FromDense(6, da);
  std::vector<double> d{1, 2, 3, 4, 5, 6};
  VQ_DiagonalMatrix dm(6, d.data());
  VQ_SparseSymMatrix s = a + dm;
  std::vector<double> want = da;
  for (int i = 0; i < 6; ++i) want[i * 6 + i] += d[i];
  EXPECT_EQ(DenseOf(s), want);
  EXPECT_EQ(DenseOf(a), want);  // shallow copy: A's own diagonal changed as well
  VQ_SparseSymMatrix t = dm + a;
  for (int i = 0; i < 6; ++i) want[i * 6 + i] += d[i];
  EXPECT_EQ(DenseOf(a), want);
  VQ_DiagonalMatrix wrong(5, 1.0);
  VQ_SparseSymMatrix u = a + wrong;  // other order: unchanged copy
  EXPECT_EQ(DenseOf(u), want);
}

TEST(SparseSymMatrixOperators, SumAndDifferenceAreNewMatricesOverTheUnion) {
  const std::vector<double> da = vqtest::RandomSymmetricDense(20, 0.1, 10);
  const std::vector<double> db = vqtest::RandomSymmetricDense(20, 0.1, 11);
  VQ_SparseSymMatrix a = FromDense(20, da);
  VQ_SparseSymMatrix b = FromDense(20, db);
  VQ_SparseSymMatrix s = a + b;
  VQ_SparseSymMatrix d = a - b;
  EXPECT_EQ(LayoutProblem(s), "");
  EXPECT_EQ(LayoutProblem(d), "");
  std::vector<double> ws(da.size()), wd(da.size());
  for (size_t q = 0; q < da.size(); ++q) {
    ws[q] = da[q] + db[q];
    wd[q] = da[q] - db[q];
  }
  ExpectDenseNear(DenseOf(s), ws);
  ExpectDenseNear(DenseOf(d), wd);
  EXPECT_EQ(DenseOf(a), da);  // operands untouched
  EXPECT_EQ(DenseOf(b), db);
  EXPECT_NE(s.GetValuePointer(), a.GetValuePointer());
}

}  // namespace
