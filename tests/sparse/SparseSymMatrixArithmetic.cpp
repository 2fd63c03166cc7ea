// Arithmetic on sparse symmetric matrices: scaling, same-pattern sums, subset and diagonal sums,
// the pattern merge of TwoSparseMatrixOperation and the free sum operators. Every result is
// checked against the same operation carried out on full dense matrices, and merged patterns
// against the union of the operand patterns.

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "sparse/SparseOperators.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/SparseSymMatrixSupport.h"

using namespace vqtest;
using V = std::vector<double>;

namespace {

// Element by element f(a, b) of two arrays of the same length.
V Combine(const V& a, const V& b, const std::function<double(double, double)>& f) {
  V out(a.size());
  for (size_t q = 0; q < a.size(); ++q) out[q] = f(a[q], b[q]);
  return out;
}

// ---- same-pattern sums -------------------------------------------------------------------------

TEST(SparseSymMatrixSum, SamePatternAddsValueByValueOtherPatternsLeaveTheReceiver) {
  const V da = RandomSymmetricDense(10, 0.3, 4);
  VQ_SparseSymMatrix a = FromDense(10, da), b;
  b.SetEqualTo(&a);
  b *= 0.25;
  a += b;
  ExpectNear(DenseOf(a), Combine(da, da, [](double x, double) { return 1.25 * x; }), 1e-14);
  a -= b;
  ExpectNear(DenseOf(a), da, 1e-14);

  VQ_SparseSymMatrix c = RandomSparse(10, 0.3, 5), d = RandomSparse(10, 0.3, 6);
  const Csr before = CsrOf(c);
  c += d;
  c -= d;
  EXPECT_EQ(CsrOf(c).values, before.values);
  EXPECT_EQ(CsrOf(c).columnIndices, before.columnIndices);
}

// ---- TwoSparseMatrixOperation -------------------------------------------------------------------

TEST(SparseSymMatrixTwoOperation, DiagonalOrSubsetOperandKeepsThePattern) {
  const V da = RandomSymmetricDense(9, 0.4, 7);
  VQ_SparseSymMatrix a = FromDense(9, da);
  const std::vector<int> pattern = CsrOf(a).columnIndices;
  V dm(9), want = da;
  for (int i = 0; i < 9; ++i) dm[i] = 0.5 + i;
  VQ_SparseSymMatrix m = DiagonalSparse(dm);
  ASSERT_TRUE(a.TwoSparseMatrixOperation(&m, 1.0, -1.75));  // K - sigma M
  EXPECT_EQ(CsrOf(a).columnIndices, pattern);
  for (int i = 0; i < 9; ++i) want[i * 9 + i] -= 1.75 * dm[i];
  ExpectNear(DenseOf(a), want, 1e-14);

  // b takes every third off-diagonal entry of c.
  const V dc = RandomSymmetricDense(12, 0.5, 8);
  V db(dc.size(), 0.0);
  for (int i = 0, k = 0; i < 12; ++i) {
    db[i * 12 + i] = 1.0 + i;
    for (int j = i + 1; j < 12; ++j)
      if (dc[j * 12 + i] != 0.0 && (k++ % 3 == 0))
        db[j * 12 + i] = db[i * 12 + j] = 0.5 * (i + j + 1);
  }
  VQ_SparseSymMatrix c = FromDense(12, dc), b = FromDense(12, db);
  ASSERT_TRUE(c.CheckSubsetSparsity(&b));
  ASSERT_FALSE(b.CheckSubsetSparsity(&c));
  const std::vector<int> cPattern = CsrOf(c).columnIndices;
  ASSERT_TRUE(c.TwoSparseMatrixOperation(&b, 3.0, -2.0));
  EXPECT_EQ(CsrOf(c).columnIndices, cPattern);
  ExpectNear(DenseOf(c), Combine(dc, db, [](double x, double y) { return 3.0 * x - 2.0 * y; }),
             1e-14);
}

// Pattern merge: random pairs with different patterns, against the dense result and the union.
class Merge : public testing::TestWithParam<std::tuple<int, double, double, unsigned>> {};

TEST_P(Merge, UnionWithAscendingColumnsDiagonalFirst) {
  const auto [n, densityA, densityB, seed] = GetParam();
  const V da = RandomSymmetricDense(n, densityA, seed),
          db = RandomSymmetricDense(n, densityB, seed + 100);
  VQ_SparseSymMatrix a = FromDense(n, da), b = FromDense(n, db);
  ASSERT_TRUE(a.TwoSparseMatrixOperation(&b, 0.5, -1.5));
  EXPECT_EQ(LayoutProblem(a), "");
  int unionCount = 0;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i <= j; ++i)
      if (da[j * n + i] != 0.0 || db[j * n + i] != 0.0 || i == j) ++unionCount;
  EXPECT_EQ(a.GetNumberOfNonZeros(), unionCount);
  ExpectNear(DenseOf(a), Combine(da, db, [](double x, double y) { return 0.5 * x - 1.5 * y; }),
             1e-14);
  EXPECT_EQ(a.MatrixStatus(), 0);
}

INSTANTIATE_TEST_SUITE_P(Patterns, Merge,
                         testing::Values(std::make_tuple(2, 0.0, 1.0, 1u),
                                         std::make_tuple(3, 1.0, 0.0, 2u),
                                         std::make_tuple(15, 0.2, 0.2, 3u),
                                         std::make_tuple(40, 0.1, 0.3, 4u),
                                         std::make_tuple(80, 0.05, 0.05, 5u)));

// ---- subset test --------------------------------------------------------------------------------

// ---- free operators -----------------------------------------------------------------------------

TEST(SparseSymMatrixOperators, SumAndDifferenceAreNewMatricesOverTheUnion) {
  const V da = RandomSymmetricDense(20, 0.1, 10), db = RandomSymmetricDense(20, 0.1, 11);
  VQ_SparseSymMatrix a = FromDense(20, da), b = FromDense(20, db);
  VQ_SparseSymMatrix s = a + b, d = a - b;
  EXPECT_EQ(LayoutProblem(s), "");
  EXPECT_EQ(LayoutProblem(d), "");
  ExpectNear(DenseOf(s), Combine(da, db, std::plus<double>()), 1e-14);
  ExpectNear(DenseOf(d), Combine(da, db, std::minus<double>()), 1e-14);
  EXPECT_EQ(DenseOf(a), da);  // operands untouched
  EXPECT_EQ(DenseOf(b), db);
  EXPECT_NE(s.GetValuePointer(), a.GetValuePointer());
}

}  // namespace
