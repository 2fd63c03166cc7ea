// Building a sparse symmetric matrix: entry-by-entry assembly (summation, the diagonal rule, the
// key arithmetic), and the builders from arrays, dense and diagonal matrices. Results are checked
// against layouts written out by hand and against dense accumulation of the same entries.

#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "sparse/SharedArray.h"
#include "support/SparseSymMatrixSupport.h"

using namespace vqtest;

namespace {

const char kInvalidCreation[] = ">>>>>>> Invalid Sparse Matrix Creation !..... <<<<<< \n";
const char kNoMemory[] = ">>>>>>> Cannot Allocate Memory !..... <<<<<< \n";

struct Entry {
  int i, j;
  double v;
};

// Assembles the entries into a (order n) and returns EndMatrix's result.
bool Assemble(VQ_SparseSymMatrix& a, const std::vector<Entry>& entries) {
  a.BeginMatrix();
  for (const Entry& e : entries) a.Add(e.i, e.j, e.v);
  return a.EndMatrix();
}

void ExpectLayout(const VQ_SparseSymMatrix& a, const std::vector<int>& rows,
                  const std::vector<int>& columns, const std::vector<double>& values) {
  const Csr c = CsrOf(a);
  EXPECT_EQ(c.rowPointers, rows);
  EXPECT_EQ(c.columnIndices, columns);
  EXPECT_EQ(c.values, values);
}

TEST(SparseSymMatrixAssembly, TransposedEntryIsSummedIntoTheUpperOne) {
  VQ_SparseSymMatrix a(2);
  a.BeginMatrix();
  EXPECT_TRUE(a.Add(1, 1, 1.0));
  EXPECT_TRUE(a.Add(2, 2, 2.0));
  EXPECT_TRUE(a.Add(2, 1, 5.0));
  EXPECT_FALSE(a.Add(1, 2, 3.0));  // summed into the entry made by (2, 1)
  ASSERT_TRUE(a.EndMatrix());
  ExpectLayout(a, {1, 3, 4}, {1, 2, 2}, {1.0, 8.0, 2.0});
  EXPECT_EQ(a.MatrixStatus(), 0);
  EXPECT_EQ(a.MatrixType(), MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX);
}

TEST(SparseSymMatrixAssembly, AMissingDiagonalFailsWithStatus66AndMessage) {
  const std::vector<std::vector<Entry>> cases = {
      {{1, 1, 1}, {2, 2, 1}, {1, 3, 1}},  // the last diagonal missing
      {{1, 1, 1}, {2, 3, 1}, {3, 3, 1}},  // without (2, 2), (2, 3) must not count into row 1
      {{1, 1, 1}, {2, 2, 1}, {3, 3, 1}, {2, 4, 1}}  // (2, 4): the key of no valid entry of row 2
  };
  for (const auto& entries : cases) {
    VQ_SparseSymMatrix a(3);
    bool ok = true;
    EXPECT_EQ(Stdout([&] { ok = Assemble(a, entries); }), kInvalidCreation);
    EXPECT_FALSE(ok);
    EXPECT_EQ(static_cast<int>(a.MatrixStatus()), -66);
    EXPECT_TRUE(IsEmpty(a));
  }
}

TEST(SparseSymMatrixAssembly, DiagonalOnlyAndOrderOne) {
  VQ_SparseSymMatrix a(6), one(1);
  ASSERT_TRUE(Assemble(a, {{6, 6, 0}, {5, 5, 0}, {4, 4, 0}, {3, 3, 0}, {2, 2, 0}, {1, 1, 0}}));
  ExpectLayout(a, {1, 2, 3, 4, 5, 6, 7}, {1, 2, 3, 4, 5, 6}, std::vector<double>(6, 0.0));
  EXPECT_TRUE(a.IsSparseMatrixDiagonal());  // zeros are enough, in any order
  ASSERT_TRUE(Assemble(one, {{1, 1, 2.0}, {1, 1, 3.0}}));
  ExpectLayout(one, {1, 2}, {1}, {5.0});
}

// Random assemblies (both triangles, repeated entries, random order) against dense accumulation.
class RandomAssembly : public testing::TestWithParam<std::tuple<int, double, unsigned>> {};

TEST_P(RandomAssembly, MatchesDenseAccumulationInCanonicalLayout) {
  const auto [n, density, seed] = GetParam();
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> idx(1, n);
  std::uniform_real_distribution<double> val(-1.0, 1.0);
  std::vector<double> ref(static_cast<size_t>(n) * n, 0.0);
  std::vector<char> present(static_cast<size_t>(n) * n, 0);

  VQ_SparseSymMatrix a(n);
  a.BeginMatrix();
  auto add = [&](int i, int j, double v) {
    const size_t r = std::min(i, j) - 1, c = std::max(i, j) - 1;
    const bool isNew = !present[c * n + r];
    present[c * n + r] = 1;
    ref[c * n + r] += v;
    if (r != c) ref[r * n + c] += v;
    EXPECT_EQ(a.Add(i, j, v), isNew) << "(" << i << ", " << j << ")";
  };
  const long long adds = static_cast<long long>(density * n * n) + n;
  for (long long t = 0; t < adds; ++t) add(idx(gen), idx(gen), val(gen));
  for (int i = 1; i <= n; ++i) add(i, i, val(gen));
  ASSERT_TRUE(a.EndMatrix());
  EXPECT_EQ(LayoutProblem(a), "");
  int stored = 0;
  for (char p : present) stored += p;
  EXPECT_EQ(a.GetNumberOfNonZeros(), stored);
  const std::vector<double> got = DenseOf(a);
  for (size_t k = 0; k < ref.size(); ++k) EXPECT_DOUBLE_EQ(got[k], ref[k]) << "position " << k;
}

INSTANTIATE_TEST_SUITE_P(Sizes, RandomAssembly,
                         testing::Values(std::make_tuple(1, 0.0, 1u), std::make_tuple(2, 0.5, 2u),
                                         std::make_tuple(17, 0.2, 3u),
                                         std::make_tuple(60, 0.05, 4u),
                                         std::make_tuple(150, 0.5, 5u)));

TEST(SparseSymMatrixAssembly, ReassemblyLeavesAnEarlierShallowCopyIntact) {
  VQ_SparseSymMatrix a(2);
  ASSERT_TRUE(Assemble(a, {{1, 1, 1.0}, {2, 2, 2.0}}));
  VQ_SparseSymMatrix old(a);  // shares the first arrays
  ASSERT_TRUE(Assemble(a, {{1, 1, 5.0}, {1, 2, 6.0}, {2, 2, 7.0}}));
  ExpectLayout(a, {1, 3, 4}, {1, 2, 2}, {5.0, 6.0, 7.0});
  ExpectLayout(old, {1, 2, 3}, {1, 2}, {1.0, 2.0});
}

TEST(SparseSymMatrixAssembly, OutOfMemoryGivesStatusMinus1AndTheObjectStaysUsable) {
  VQ_SparseSymMatrix a(2);
  bool ok = true;
  vqmath::internal::SetSparseAllocationFailure(1);  // while finishing
  EXPECT_EQ(Stdout([&] { ok = Assemble(a, {{1, 1, 1.0}, {2, 2, 1.0}}); }), kNoMemory);
  vqmath::internal::SetSparseAllocationFailure(0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(a.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_NO_MEMORY);
  EXPECT_TRUE(IsEmpty(a));
  a.SetBounds(1);
  ASSERT_TRUE(Assemble(a, {{1, 1, 3.0}}));
  EXPECT_EQ(a.MatrixStatus(), 0);

  VQ_SparseSymMatrix b = FromArrays(2, {1, 2, 3}, {1, 2}, {1, 2});
  vqmath::internal::SetSparseAllocationFailure(2);  // Initialize: the row pointer array
  EXPECT_EQ(Stdout([&] { ok = b.Initialize(0.0); }), kNoMemory);
  vqmath::internal::SetSparseAllocationFailure(0);
  EXPECT_FALSE(ok);
  EXPECT_TRUE(IsEmpty(b));
  EXPECT_EQ(b.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_NO_MEMORY);
}

// ---- builders ----------------------------------------------------------------------------------

TEST(SparseSymMatrixBuild, FromDenseKeepsZeroDiagonalAndDropsTinyEntries) {
  VQ_Matrix d(3, 3);
  d.Ref(2, 2) = 2.0;  // (1, 1) is an exact zero on the diagonal: still stored
  d.Ref(3, 3) = 3.0;
  d.Ref(1, 2) = d.Ref(2, 1) = 1e-17;  // below machine epsilon: dropped
  d.Ref(1, 3) = d.Ref(3, 1) = 4.0;
  d.Ref(2, 3) = d.Ref(3, 2) = 3e-16;  // above machine epsilon: kept
  EXPECT_EQ(VQ_SparseSymMatrix().CountNonzeroTerms(&d), 5);
  ExpectLayout(VQ_SparseSymMatrix(&d), {1, 3, 5, 6}, {1, 3, 2, 3, 3}, {0.0, 4.0, 2.0, 3e-16, 3.0});
  VQ_Matrix notSquare(2, 3);
  VQ_SparseSymMatrix a;
  EXPECT_EQ(a.SetEqualTo(&notSquare), -1);
  EXPECT_EQ(a.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH);
}

TEST(SparseSymMatrixBuild, FromRandomDenseMatchesIndependentConversion) {
  const std::vector<double> d = RandomSymmetricDense(40, 0.15, 11);
  VQ_SparseSymMatrix a = FromDense(40, d);
  EXPECT_EQ(LayoutProblem(a), "");
  const Csr ref = CsrFromDense(40, d, 2.220446049250313e-16);
  ExpectLayout(a, ref.rowPointers, ref.columnIndices, ref.values);
}

TEST(SparseSymMatrixBuild, FromDiagonalMatrixDirectlyOrAsADenseMatrix) {
  double dv[4] = {1.0, 0.0, -2.0, 5.0};
  VQ_DiagonalMatrix d(4, dv);
  VQ_SparseSymMatrix a(&d), b(static_cast<VQ_Matrix*>(&d));
  ExpectLayout(a, {1, 2, 3, 4, 5}, {1, 2, 3, 4}, {1.0, 0.0, -2.0, 5.0});
  EXPECT_TRUE(a.CheckSparsity(&b));
}

TEST(SparseSymMatrixBuild, FromArraysCopiesThemNullArraysLeaveItEmpty) {
  std::vector<int> r{1, 3, 4}, c{1, 2, 2};
  std::vector<double> v{4.0, 1.0, 3.0};
  VQ_SparseSymMatrix a(2, v.data(), r.data(), c.data());
  v[0] = 99.0;
  r[1] = 2;
  c[1] = 1;
  ExpectLayout(a, {1, 3, 4}, {1, 2, 2}, {4.0, 1.0, 3.0});
  EXPECT_NE(a.GetValuePointer(), v.data());
  VQ_SparseSymMatrix none(3, nullptr, nullptr, nullptr);
  EXPECT_TRUE(IsEmpty(none));
  EXPECT_EQ(static_cast<int>(none.MatrixStatus()), -66);
}

TEST(SparseSymMatrixBuild, DeepCopyFromSparseIsIndependent) {
  VQ_SparseSymMatrix a = RandomSparse(12, 0.3, 5), b;
  ASSERT_EQ(b.SetEqualTo(&a), 0);
  EXPECT_TRUE(b.CheckSparsity(&a));
  EXPECT_NE(b.GetValuePointer(), a.GetValuePointer());
  b.Set(1, 1, -100.0);
  EXPECT_NE(a.Value(1, 1), -100.0);
}

TEST(SparseSymMatrixBuild, InitializeFillsAndResetsStatus) {
  VQ_SparseSymMatrix b = FromArrays(3, {1, 2, 3, 4}, {1, 2, 3}, {1, 2, 3});
  b /= 0.0;  // status -7
  ASSERT_EQ(b.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_DIVISION_BY_ZERO);
  ASSERT_TRUE(b.Initialize(2.5));
  EXPECT_EQ(b.MatrixStatus(), 0);
  ExpectLayout(b, {0, 0, 0, 0}, {0, 0, 0}, {2.5, 2.5, 2.5});  // fresh arrays: indices all 0
}

}  // namespace
