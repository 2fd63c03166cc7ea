// Building a sparse symmetric matrix: entry-by-entry assembly (summation, the diagonal rule, the
// key arithmetic), and the builders from arrays, dense and diagonal matrices. Results are checked
// against layouts written out by hand and against dense accumulation of the same entries.

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "sparse/internal/SharedArray.h"
#include "support/SparseSymMatrixSupport.h"

using vqtest::CaptureStdout;
using vqtest::CsrOf;
using vqtest::LayoutProblem;

namespace {

const char kInvalidCreation[] = ">>>>>>> Invalid Sparse Matrix Creation !..... <<<<<< \n";
const char kNoMemory[] = ">>>>>>> Cannot Allocate Memory !..... <<<<<< \n";

TEST(SparseSymMatrixAssembly, TransposedEntryIsSummedIntoTheUpperOne) {
  VQ_SparseSymMatrix a(2);
  a.BeginMatrix();
  EXPECT_TRUE(a.Add(1, 1, 1.0));
  EXPECT_TRUE(a.Add(2, 2, 2.0));
  EXPECT_TRUE(a.Add(2, 1, 5.0));
  EXPECT_FALSE(a.Add(1, 2, 3.0));  // summed into the entry made by (2, 1)
  ASSERT_TRUE(a.EndMatrix());
  const vqtest::Csr c = CsrOf(a);
  EXPECT_EQ(c.rowPointers, (std::vector<int>{1, 3, 4}));
  EXPECT_EQ(c.columnIndices, (std::vector<int>{1, 2, 2}));
  EXPECT_EQ(c.values, (std::vector<double>{1.0, 8.0, 2.0}));
  EXPECT_EQ(a.MatrixStatus(), 0);
  EXPECT_EQ(a.MatrixType(), MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX);
}

TEST(SparseSymMatrixAssembly, MissingLastDiagonalFailsWithStatus66AndMessage) {
  VQ_SparseSymMatrix a(3);
  a.BeginMatrix();
  a.Add(1, 1, 1.0);
  a.Add(2, 2, 1.0);
  a.Add(1, 3, 1.0);
  bool ok = true;
  const std::string out = CaptureStdout([&] { ok = a.EndMatrix(); });
  EXPECT_FALSE(ok);
  EXPECT_EQ(out, kInvalidCreation);
  EXPECT_EQ(static_cast<int>(a.MatrixStatus()), -66);
  EXPECT_EQ(a.NumRows(), 0);
  EXPECT_EQ(a.NumCols(), 0);
  EXPECT_EQ(a.GetNumberOfNonZeros(), 0);
}

TEST(SparseSymMatrixAssembly, MissingMiddleDiagonalIsNotAbsorbedByThePreviousRow) {
  // Without (2, 2), entry (2, 3) would otherwise be counted into row 1.
  VQ_SparseSymMatrix a(3);
  a.BeginMatrix();
  a.Add(1, 1, 1.0);
  a.Add(2, 3, 1.0);
  a.Add(3, 3, 1.0);
  EXPECT_FALSE(CaptureStdout([&] { EXPECT_FALSE(a.EndMatrix()); }).empty());
  EXPECT_EQ(static_cast<int>(a.MatrixStatus()), -66);
}

TEST(SparseSymMatrixAssembly, IndexBeyondTheOrderIsRejectedNotAliased) {
  // (2, 4) in an order-3 matrix has the key of no valid entry of row 2.
  VQ_SparseSymMatrix a(3);
  a.BeginMatrix();
  for (int i = 1; i <= 3; ++i) a.Add(i, i, 1.0);
  a.Add(2, 4, 1.0);
  CaptureStdout([&] { EXPECT_FALSE(a.EndMatrix()); });
  EXPECT_EQ(static_cast<int>(a.MatrixStatus()), -66);
}

TEST(SparseSymMatrixAssembly, DiagonalOnlyGivesUnitSteps) {
  const int n = 6;
  VQ_SparseSymMatrix a(n);
  a.BeginMatrix();
  for (int i = n; i >= 1; --i) a.Add(i, i, 0.0);  // zeros are enough, any order
  ASSERT_TRUE(a.EndMatrix());
  const vqtest::Csr c = CsrOf(a);
  for (int i = 0; i <= n; ++i) EXPECT_EQ(c.rowPointers[i], i + 1);
  for (int i = 0; i < n; ++i) EXPECT_EQ(c.columnIndices[i], i + 1);
  EXPECT_TRUE(a.IsSparseMatrixDiagonal());
}

TEST(SparseSymMatrixAssembly, OrderOneMatrix) {
  VQ_SparseSymMatrix a(1);
  a.BeginMatrix();
  a.Add(1, 1, 2.0);
  a.Add(1, 1, 3.0);
  ASSERT_TRUE(a.EndMatrix());
  EXPECT_EQ(CsrOf(a).rowPointers, (std::vector<int>{1, 2}));
  EXPECT_EQ(a.Value(1, 1), 5.0);
}

// Random assemblies (both triangles, repeated entries, random order) against dense accumulation.
class RandomAssembly : public testing::TestWithParam<std::tuple<int, double, unsigned>> {};

TEST_P(RandomAssembly, MatchesDenseAccumulationInCanonicalLayout) {
  const int n = std::get<0>(GetParam());
  const double density = std::get<1>(GetParam());
  std::mt19937 gen(std::get<2>(GetParam()));
  std::uniform_int_distribution<int> idx(1, n);
  std::uniform_real_distribution<double> val(-1.0, 1.0);
  std::vector<double> ref(static_cast<size_t>(n) * n, 0.0);
  std::vector<char> present(static_cast<size_t>(n) * n, 0);

  VQ_SparseSymMatrix a(n);
  a.BeginMatrix();
  auto add = [&](int i, int j, double v) {
    const int r = std::min(i, j) - 1, c = std::max(i, j) - 1;
    const bool isNew = !present[static_cast<size_t>(c) * n + r];
    present[static_cast<size_t>(c) * n + r] = 1;
    ref[static_cast<size_t>(c) * n + r] += v;
    if (r != c) ref[static_cast<size_t>(r) * n + c] += v;
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
  const std::vector<double> got = vqtest::DenseOf(a);
  for (size_t k = 0; k < ref.size(); ++k) EXPECT_DOUBLE_EQ(got[k], ref[k]) << "position " << k;
}

INSTANTIATE_TEST_SUITE_P(Sizes, RandomAssembly,
                         testing::Values(std::make_tuple(1, 0.0, 1u), std::make_tuple(2, 0.5, 2u),
                                         std::make_tuple(17, 0.2, 3u),
                                         std::make_tuple(60, 0.05, 4u),
                                         std::make_tuple(150, 0.5, 5u)));

TEST(SparseSymMatrixAssembly, ReassemblyLeavesAnEarlierShallowCopyIntact) {
  VQ_SparseSymMatrix a(2);
  a.BeginMatrix();
  a.Add(1, 1, 1.0);
  a.Add(2, 2, 2.0);
  ASSERT_TRUE(a.EndMatrix());
  VQ_SparseSymMatrix old(a);  // shares the first arrays
  a.BeginMatrix();
  a.Add(1, 1, 5.0);
  a.Add(1, 2, 6.0);
  a.Add(2, 2, 7.0);
  ASSERT_TRUE(a.EndMatrix());
  EXPECT_EQ(a.GetNumberOfNonZeros(), 3);
  EXPECT_EQ(a.Value(1, 2), 6.0);
  EXPECT_EQ(old.GetNumberOfNonZeros(), 2);
  EXPECT_EQ(old.Value(1, 1), 1.0);
  EXPECT_EQ(old.Value(2, 2), 2.0);
}

TEST(SparseSymMatrixAssembly, OutOfMemoryWhileFinishingGivesStatusMinus1) {
  VQ_SparseSymMatrix a(2);
  a.BeginMatrix();
  a.Add(1, 1, 1.0);
  a.Add(2, 2, 1.0);
  vqmath::internal::SetSparseAllocationFailure(1);
  bool ok = true;
  const std::string out = CaptureStdout([&] { ok = a.EndMatrix(); });
  vqmath::internal::SetSparseAllocationFailure(0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(out, kNoMemory);
  EXPECT_EQ(a.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_NO_MEMORY);
  EXPECT_EQ(a.NumRows(), 0);
  // The object is usable again afterwards.
  a.SetBounds(1);
  a.BeginMatrix();
  a.Add(1, 1, 3.0);
  ASSERT_TRUE(a.EndMatrix());
  EXPECT_EQ(a.MatrixStatus(), 0);
}

// ---- builders ----------------------------------------------------------------------------------

TEST(SparseSymMatrixBuild, FromDenseKeepsZeroDiagonalAndDropsTinyEntries) {
  VQ_Matrix d(3, 3);
  d.Ref(1, 1) = 0.0;  // exact zero on the diagonal: still stored
  d.Ref(2, 2) = 2.0;
  d.Ref(3, 3) = 3.0;
  d.Ref(1, 2) = d.Ref(2, 1) = 1e-17;  // below machine epsilon: dropped
  d.Ref(1, 3) = d.Ref(3, 1) = 4.0;
  d.Ref(2, 3) = d.Ref(3, 2) = 3e-16;  // above machine epsilon: kept
  EXPECT_EQ(VQ_SparseSymMatrix().CountNonzeroTerms(&d), 5);
  VQ_SparseSymMatrix a(&d);
  const vqtest::Csr c = CsrOf(a);
  EXPECT_EQ(c.rowPointers, (std::vector<int>{1, 3, 5, 6}));
  EXPECT_EQ(c.columnIndices, (std::vector<int>{1, 3, 2, 3, 3}));
  EXPECT_EQ(c.values, (std::vector<double>{0.0, 4.0, 2.0, 3e-16, 3.0}));
}

TEST(SparseSymMatrixBuild, FromNonSquareDenseFailsWithMismatch) {
  VQ_Matrix d(2, 3);
  VQ_SparseSymMatrix a;
  EXPECT_EQ(a.SetEqualTo(&d), -1);
  EXPECT_EQ(a.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH);
}

TEST(SparseSymMatrixBuild, FromRandomDenseMatchesIndependentConversion) {
  const int n = 40;
  std::vector<double> d = vqtest::RandomSymmetricDense(n, 0.15, 11);
  VQ_Matrix m(n, n, d.data());
  VQ_SparseSymMatrix a(&m);
  EXPECT_EQ(LayoutProblem(a), "");
  const vqtest::Csr ref = vqtest::CsrFromDense(n, d, 2.220446049250313e-16);
  const vqtest::Csr got = CsrOf(a);
  EXPECT_EQ(got.rowPointers, ref.rowPointers);
  EXPECT_EQ(got.columnIndices, ref.columnIndices);
  EXPECT_EQ(got.values, ref.values);
}

TEST(SparseSymMatrixBuild, FromDiagonalMatrix) {
  double dv[4] = {1.0, 0.0, -2.0, 5.0};
  VQ_DiagonalMatrix d(4, dv);
  VQ_SparseSymMatrix a(&d);
  const vqtest::Csr c = CsrOf(a);
  EXPECT_EQ(c.rowPointers, (std::vector<int>{1, 2, 3, 4, 5}));
  EXPECT_EQ(c.columnIndices, (std::vector<int>{1, 2, 3, 4}));
  EXPECT_EQ(c.values, (std::vector<double>{1.0, 0.0, -2.0, 5.0}));
  // The same through the generic dense entry point.
  VQ_SparseSymMatrix b(static_cast<VQ_Matrix*>(&d));
  EXPECT_TRUE(a.CheckSparsity(&b));
}

TEST(SparseSymMatrixBuild, FromArraysCopiesThem) {
  std::vector<int> r{1, 3, 4};
  std::vector<int> c{1, 2, 2};
  std::vector<double> v{4.0, 1.0, 3.0};
  VQ_SparseSymMatrix a(2, v.data(), r.data(), c.data());
  v[0] = 99.0;
  r[1] = 2;
  c[1] = 1;
  EXPECT_EQ(a.Value(1, 1), 4.0);
  EXPECT_EQ(a.Value(2, 1), 1.0);
  EXPECT_EQ(CsrOf(a).rowPointers, (std::vector<int>{1, 3, 4}));
  EXPECT_NE(a.GetValuePointer(), v.data());
}

TEST(SparseSymMatrixBuild, FromNullArraysStaysEmpty) {
  VQ_SparseSymMatrix a(3, nullptr, nullptr, nullptr);
  EXPECT_EQ(a.NumRows(), 0);
  EXPECT_EQ(static_cast<int>(a.MatrixStatus()), -66);
}

TEST(SparseSymMatrixBuild, DeepCopyFromSparseIsIndependent) {
  std::vector<double> d = vqtest::RandomSymmetricDense(12, 0.3, 5);
  VQ_Matrix m(12, 12, d.data());
  VQ_SparseSymMatrix a(&m);
  VQ_SparseSymMatrix b;
  ASSERT_EQ(b.SetEqualTo(&a), 0);
  EXPECT_TRUE(b.CheckSparsity(&a));
  EXPECT_NE(b.GetValuePointer(), a.GetValuePointer());
  b.Set(1, 1, -100.0);
  EXPECT_NE(a.Value(1, 1), -100.0);
}

TEST(SparseSymMatrixBuild, InitializeFillsAndResetsStatus) {
  std::vector<int> r{1, 2, 3, 4};
  std::vector<int> c{1, 2, 3};
  std::vector<double> v{1, 2, 3};
  VQ_SparseSymMatrix b(3, v.data(), r.data(), c.data());
  b /= 0.0;  // status -7
  ASSERT_EQ(b.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_DIVISION_BY_ZERO);
  ASSERT_TRUE(b.Initialize(2.5));
  EXPECT_EQ(b.MatrixStatus(), 0);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(b.GetValuePointer()[k], 2.5);
  for (int k = 0; k <= 3; ++k) EXPECT_EQ(b.GetRowVectorPointer()[k], 0);
}

TEST(SparseSymMatrixBuild, InitializeOutOfMemory) {
  std::vector<int> r{1, 2, 3};
  std::vector<int> c{1, 2};
  std::vector<double> v{1, 2};
  VQ_SparseSymMatrix b(2, v.data(), r.data(), c.data());
  vqmath::internal::SetSparseAllocationFailure(2);  // the row pointer array
  bool ok = true;
  const std::string out = CaptureStdout([&] { ok = b.Initialize(0.0); });
  vqmath::internal::SetSparseAllocationFailure(0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(out, kNoMemory);
  EXPECT_EQ(b.NumRows(), 0);
  EXPECT_EQ(b.GetNumberOfNonZeros(), 0);
  EXPECT_EQ(b.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_NO_MEMORY);
}

}  // namespace
