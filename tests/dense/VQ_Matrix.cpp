// Tests of the general dense matrix: storage and lifecycle (allocation failure, shallow storage),
// element access, column members, norms, products against extended-precision references,
// Gauss-Jordan inverse against LAPACK, modified Gram-Schmidt against LAPACK QR, operators and the
// deliberate quirks callers rely on.
#include <gtest/gtest.h>
#include <mkl.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "support/DenseSupport.h"
#include "dense/VQ_Dense.h"
#include "sparse/VQ_SparseSymMatrix.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;

namespace {
const char kNoMemoryLine[] = ">>>>>>> Cannot Allocate Memory !..... <<<<<< \n\n";
const double kInf = std::numeric_limits<double>::infinity();
}  // namespace

// ---- storage and lifecycle -----------------------------------------------------------------------

TEST(MatrixStorage, ConstructorsFillAndMark) {
  VQ_Matrix empty;
  EXPECT_EQ(empty.NumRows(), 0);
  EXPECT_EQ(empty.GetDataPointer(), nullptr);
  EXPECT_EQ(empty.MatrixType(), MC::MATRIX);

  VQ_Matrix zero(0, 0);
  EXPECT_EQ(zero.GetSizeAllocated(), 0);
  EXPECT_EQ(zero.Norm(), 0.0);

  VQ_Matrix z(3, 2);
  for (int k = 0; k < 6; ++k) EXPECT_EQ(z.GetDataPointer()[k], 0.0);
  VQ_Matrix v(2, 2, 7.5);
  EXPECT_EQ(v.Value(2, 1), 7.5);
  double vals[] = {1, 2, 3, 4, 5, 6};
  VQ_Matrix m(2, 3, vals);
  EXPECT_EQ(m.Value(1, 2), 3.0);  // column-major
  EXPECT_EQ(m.Value(2, 3), 6.0);
  EXPECT_EQ(m.MatrixStatus(), MC::STATUS_OK);
  EXPECT_EQ(m.GetSizeAllocated(), 6);
}

TEST(MatrixStorage, ElementPositionIsColumnMajorOneBased) {
  VQ_Matrix m(3, 4);
  m(2, 3) = 5.0;
  EXPECT_EQ(m.GetDataPointer()[7], 5.0);
  EXPECT_EQ(m.Value(2, 3), 5.0);
  EXPECT_EQ(static_cast<double>(m(2, 3)), 5.0);
  m(1, 1) = m(2, 3);  // proxy to proxy
  EXPECT_EQ(m.GetDataPointer()[0], 5.0);
  m(1, 1) += 1.0;
  EXPECT_EQ(m.Value(1, 1), 6.0);
}

TEST(MatrixStorage, ProxyWritesIntoPackedStorageOfSymmetricKind) {
  VQ_SymMatrix s(3, 0.0);
  VQ_Matrix& base = s;
  base(3, 1) = 4.0;  // lands on packed position 3, shared by (1,3)
  EXPECT_EQ(s.GetDataPointer()[3], 4.0);
  EXPECT_EQ(base.Value(1, 3), 4.0);
}

TEST(MatrixStorage, AllocationFailureIsDeterministicAndRecoverable) {
  testing::internal::CaptureStdout();
  VQ_Matrix huge(100000, 100000);  // 1e10 elements: does not fit the 32-bit size
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, kNoMemoryLine);
  EXPECT_EQ(huge.MatrixStatus(), MC::STATUS_NO_MEMORY);
  EXPECT_EQ(huge.NumRows(), 0);
  EXPECT_EQ(huge.NumCols(), 0);
  EXPECT_EQ(huge.GetSizeAllocated(), 0);
  EXPECT_EQ(huge.GetDataPointer(), nullptr);

  huge.Redimension(2, 3, 1.5);
  EXPECT_EQ(huge.MatrixStatus(), MC::STATUS_OK);
  EXPECT_EQ(huge.Value(2, 3), 1.5);

  testing::internal::CaptureStdout();
  huge.Redimension(-1, 4, 0.0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), kNoMemoryLine);
  EXPECT_EQ(huge.MatrixStatus(), MC::STATUS_NO_MEMORY);
  EXPECT_EQ(huge.NumCols(), 0);
}

TEST(MatrixStorage, FailedAllocationIsNotHiddenByCopying) {
  testing::internal::CaptureStdout();
  VQ_Matrix huge(70000, 70000);
  VQ_Matrix copy(huge);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(copy.MatrixStatus(), MC::STATUS_NO_MEMORY);
  EXPECT_EQ(copy.NumRows(), 0);
}

TEST(MatrixStorage, ShallowStorageIsNeverFreedAndCopiesInheritTheMark) {
  std::vector<double> buffer = {1, 2, 3, 4};
  {
    VQ_Matrix m;
    m.CopyShallow(2, 2, buffer.data());
    EXPECT_TRUE(DenseFields::Shallow(m));
    EXPECT_EQ(m.GetDataPointer(), buffer.data());
    m(1, 2) = 30.0;  // writes through to the caller's buffer
    EXPECT_EQ(buffer[2], 30.0);

    VQ_Matrix copy(m);
    EXPECT_TRUE(DenseFields::Shallow(copy));  // the mark is inherited...
    EXPECT_NE(copy.GetDataPointer(), buffer.data());  // ...but the storage is the copy's own
    copy(1, 1) = -1.0;
    EXPECT_EQ(buffer[0], 1.0);

    VQ_Matrix assigned;
    assigned = m;
    EXPECT_TRUE(DenseFields::Shallow(assigned));

    // ReleaseMemory leaves the borrowed buffer alone; a later reallocation keeps the mark.
    m.ReleaseMemory();
    EXPECT_EQ(m.GetDataPointer(), nullptr);
    EXPECT_TRUE(DenseFields::Shallow(m));
    m.Redimension(3, 3, 2.0);
    EXPECT_TRUE(DenseFields::Shallow(m));
    EXPECT_EQ(m.Value(3, 3), 2.0);
  }
  // All objects are gone; the buffer is intact and still ours to use (a sanitizer build reports a
  // free of it or a leak of the copies' storage).
  EXPECT_EQ(buffer[1], 2.0);
  EXPECT_EQ(buffer[3], 4.0);
}

TEST(MatrixStorage, CopyTakesOverTypeAndStatus) {
  VQ_Matrix m(2, 2, 1.0);
  m /= 0.0;
  ASSERT_EQ(m.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  VQ_Matrix c(m);
  EXPECT_EQ(c.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  VQ_ColVector v(3, 1.0);
  VQ_Matrix cv(v);  // the general copy keeps the vector's kind
  EXPECT_EQ(cv.MatrixType(), MC::COLUMN_VECTOR);
  VQ_Matrix self(2, 2, 3.0);
  self = self;
  EXPECT_EQ(self.Value(2, 2), 3.0);
}

TEST(MatrixStorage, TypeTexts) {
  VQ_Matrix m(1, 1);
  EXPECT_EQ(m.GetMatrixType(), "MATRIX");
  EXPECT_EQ(VQ_SymMatrix(2, 0.0).GetMatrixType(), "SYM_MATRIX");
  EXPECT_EQ(VQ_DiagonalMatrix(2, 0.0).GetMatrixType(), "DIAGONAL_MATRIX");
  EXPECT_EQ(VQ_RowVector(2).GetMatrixType(), "ROW_VECTOR");
  EXPECT_EQ(VQ_ColVector(2).GetMatrixType(), "COLUMN_VECTOR");
  EXPECT_EQ(VQ_SparseSymMatrix(2).GetMatrixType(), "SYM_SPARSE_MATRIX");
  DenseFields::SetType(m, 0);
  EXPECT_EQ(m.GetMatrixType(), "UNDETERMINED");
  DenseFields::SetType(m, 7);
  EXPECT_EQ(m.GetMatrixType(), "UNDETERMINED");
}

TEST(MatrixStorage, WholeMatrixMembers) {
  VQ_Matrix m;
  m.SetIdentityMatrix(3);
  EXPECT_EQ(Full(m), (std::vector<double>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
  double d[] = {2, 3};
  m.CopyToDiag(2, d);
  EXPECT_EQ(Full(m), (std::vector<double>{2, 0, 0, 3}));
  double src[] = {1, 2, 3, 4, 5, 6};
  m.CopyFromMatrixForm(3, 2, src);
  EXPECT_EQ(m.Value(3, 2), 6.0);
  double out[6] = {};
  m.Copy(out);
  EXPECT_EQ(std::memcmp(out, src, sizeof src), 0);
  m.SetValue(-1.0);
  EXPECT_EQ(m.Value(2, 1), -1.0);

  VQ_Matrix a(2, 2, 1.0), b(2, 2, 4.0);
  a.Add(b);
  EXPECT_EQ(a.Value(1, 2), 5.0);
  a.Subtract(b);
  a.Subtract(b);
  EXPECT_EQ(a.Value(2, 2), -3.0);
  VQ_Matrix small(1, 3, 9.0);
  a.SetEqualTo(&small);  // copies min(size) raw: 3 values
  EXPECT_EQ(Full(a), (std::vector<double>{9, 9, 9, -3}));
  a.SetEqualTo(static_cast<VQ_Matrix*>(nullptr));
  EXPECT_TRUE(a.ConfirmEQ(2, 2));
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OK);
  EXPECT_FALSE(a.ConfirmEQ(2, 3));
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
}

TEST(MatrixStorage, SetEqualToSymmetricAndSparseGivesFullForm) {
  VQ_SymMatrix s(3, 0.0);
  s(1, 1) = 1;
  s(1, 3) = 2;
  s(2, 3) = 3;
  s(3, 3) = 4;
  VQ_Matrix m;
  m.SetEqualTo(s);
  EXPECT_EQ(Full(m), (std::vector<double>{1, 0, 2, 0, 0, 3, 2, 3, 4}));

  // Upper rows 1-based, diagonal first: [[4,1,0],[1,5,2],[0,2,6]].
  double values[] = {4, 1, 5, 2, 6};
  int rowptr[] = {1, 3, 5, 6};
  int colidx[] = {1, 2, 2, 3, 3};
  VQ_SparseSymMatrix sp(3, values, rowptr, colidx);
  VQ_Matrix f;
  f.SetEqualTo(sp);
  EXPECT_EQ(Full(f), (std::vector<double>{4, 1, 0, 1, 5, 2, 0, 2, 6}));
  EXPECT_EQ(f.MatrixType(), MC::MATRIX);
}

TEST(MatrixStorage, PrintMessage2AppendsTheNumber) {
  char text[64] = "Equation ";
  testing::internal::CaptureStdout();
  VQ_Matrix::PrintMessage2(text, -42);
  VQ_Matrix::PrintMessage("done");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Equation -42\ndone\n");
  EXPECT_STREQ(text, "Equation -42");
}

// ---- columns ---------------------------------------------------------------------------------------

TEST(MatrixColumns, InsertExtractReadWithChecks) {
  VQ_Matrix m(3, 2);
  double c[] = {1, 2, 3};
  VQ_ColVector v(3, c);
  EXPECT_EQ(m.InsertVector(v, 2), 0);
  EXPECT_EQ(m.Value(3, 2), 3.0);
  EXPECT_EQ(m.InsertVector(v, 3), -1);
  EXPECT_EQ(m.InsertVector(v, 0), -1);
  VQ_ColVector wrong(2);
  EXPECT_EQ(m.InsertVector(wrong, 1), -1);
  EXPECT_EQ(m.Value(1, 1), 0.0);  // nothing changed

  VQ_Matrix src(3, 4, 5.0);
  EXPECT_EQ(m.InsertVector(src, 4, 1), 0);
  EXPECT_EQ(m.Value(2, 1), 5.0);
  EXPECT_EQ(m.InsertVector(src, 5, 1), -1);

  VQ_ColVector out(3);
  EXPECT_EQ(m.ExtractVector(out, 2), 0);
  EXPECT_EQ(out[2], 2.0);
  VQ_Matrix dst(3, 3);
  EXPECT_EQ(m.ExtractVector(dst, 3, 2), 0);
  EXPECT_EQ(dst.Value(1, 3), 1.0);
  EXPECT_EQ(m.ExtractVector(dst, 4, 2), -1);
  double raw[3];
  EXPECT_EQ(m.ExtractVector(3, raw, 2), 0);
  EXPECT_EQ(raw[1], 2.0);
  EXPECT_EQ(m.ExtractVector(2, raw, 2), -1);

  VQ_ColVector r;
  EXPECT_EQ(m.ReadVector(r, 2), 0);
  EXPECT_EQ(r.NumRows(), 3);
  EXPECT_EQ(r[3], 3.0);
  EXPECT_EQ(m.ReadVector(r, 3), -1);

  m.ApplyScaleToColumn(10.0, 2);
  EXPECT_EQ(m.Value(3, 2), 30.0);
  m.ApplyScaleToColumn(10.0, 9);  // out of range: nothing
  EXPECT_EQ(m.Value(3, 1), 5.0);
}

TEST(MatrixColumns, CopyColumnsAndSubMatrices) {
  VQ_Matrix m = RandomMatrix(4, 4, 11);
  VQ_Matrix first;
  m.CopyColumnsToGivenMatrix(&first, 2);
  ASSERT_EQ(first.NumCols(), 2);
  for (int i = 1; i <= 4; ++i) EXPECT_EQ(first.Value(i, 2), m.Value(i, 2));

  VQ_Matrix a(3, 3), b(1, 1), e(3, 1);
  EXPECT_TRUE(m.ObtainSubMatrices(a, b, e, 1));
  EXPECT_EQ(a.Value(3, 2), m.Value(3, 2));
  EXPECT_EQ(e.Value(2, 1), m.Value(2, 4));
  EXPECT_EQ(b.Value(1, 1), m.Value(4, 4));
  EXPECT_FALSE(m.ObtainSubMatrices(a, b, e, 4));
}

// ---- norms and diagonal queries --------------------------------------------------------------------

TEST(MatrixNorms, FrobeniusAndTheLastColumnRule) {
  double v[] = {3, 4, 0, 0};
  VQ_Matrix m(2, 2, v);
  EXPECT_DOUBLE_EQ(m.Norm(), 5.0);
  EXPECT_EQ(m.Norm(1), 0.0);  // the last column's norm, whatever j
  EXPECT_EQ(m.Norm(3), 0.0);  // out of range
  EXPECT_EQ(m.Norm(0), 0.0);
  double w[] = {0, 0, 3, 4};
  VQ_Matrix n(2, 2, w);
  EXPECT_DOUBLE_EQ(n.Norm(1), 5.0);
  EXPECT_DOUBLE_EQ(n.Norm(2), 5.0);
}

TEST(MatrixNorms, DiagonalQueries) {
  double v[] = {1e-3, 9, 9, -2};
  VQ_Matrix m(2, 2, v);
  EXPECT_EQ(m.NumberOfNonZeroDiagonalTerms(1e-3), 1);  // strictly greater
  EXPECT_EQ(m.NumberOfNonZeroDiagonalTerms(1e-4), 2);
  double d[2];
  EXPECT_TRUE(m.GetListOfDiagonalTerms(d));
  EXPECT_EQ(d[1], -2.0);
  EXPECT_FALSE(VQ_Matrix(2, 3).GetListOfDiagonalTerms(d));
}

// ---- products ----------------------------------------------------------------------------------------

struct ProductSize {
  int m, k, n;
};

class MatrixProduct : public testing::TestWithParam<ProductSize> {};

TEST_P(MatrixProduct, PostAndPreMultiplyMatchExtendedPrecision) {
  const auto [m, k, n] = GetParam();
  VQ_Matrix a = RandomMatrix(m, k, 1), b = RandomMatrix(k, n, 2);
  const std::vector<double> ref = RefProduct(Full(a), m, k, Full(b), n);
  const double tol = 1e-14 * k;
  VQ_Matrix p(m, n);
  a.PostMultiply(b, p);
  EXPECT_LT(MaxAbsDiff(Full(p), ref), tol);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OK);
  VQ_Matrix q(m, n);
  b.PreMultiply(a, q);  // q = a*b
  EXPECT_LT(MaxAbsDiff(Full(q), ref), tol);
  EXPECT_LT(MaxAbsDiff(Full(a * b), ref), tol);
  EXPECT_EQ((a * b).MatrixType(), MC::MATRIX);
}

TEST_P(MatrixProduct, SymmetricFactorBothSides) {
  const auto [m, k, n] = GetParam();
  VQ_SymMatrix s = RandomSym(k, 3);
  VQ_Matrix a = RandomMatrix(m, k, 4), c = RandomMatrix(k, n, 5);
  const double tol = 1e-13 * k;
  VQ_Matrix p(m, k);
  a.PostMultiply(s, p);
  EXPECT_LT(MaxAbsDiff(Full(p), RefProduct(Full(a), m, k, Full(s), k)), tol);
  VQ_Matrix q(k, n);
  c.PreMultiply(s, q);
  EXPECT_LT(MaxAbsDiff(Full(q), RefProduct(Full(s), k, k, Full(c), n)), tol);
  EXPECT_LT(MaxAbsDiff(Full(a * s), Full(p)), 1e-300);
  EXPECT_LT(MaxAbsDiff(Full(s * c), Full(q)), 1e-300);
}

TEST_P(MatrixProduct, SymmetricProductTreatsFactorsUnderEpsilonAsZero) {
  // A(1,1) = 1e-17 and S(1,1) = 1e17: their term (1.0) must not appear; S(1,2) = 1e-17 and a huge
  // A(2,1) likewise. Checked in the loop path and in the BLAS path (larger sizes).
  const auto [m, k, n] = GetParam();
  (void)n;
  VQ_SymMatrix s = RandomSym(k, 6);
  VQ_Matrix a = RandomMatrix(m, k, 7);
  a(1, 1) = 1e-17;
  s(1, 1) = 1e17;
  if (k >= 2) s(1, 2) = 1e-17;
  if (m >= 2) a(2, 1) = 1e30;
  std::vector<double> af = Full(a), sf = Full(s);
  for (double& x : af)
    if (std::fabs(x) <= 2.220446049250313e-16) x = 0.0;
  for (double& x : sf)
    if (std::fabs(x) <= 2.220446049250313e-16) x = 0.0;
  VQ_Matrix p(m, k);
  a.PostMultiply(s, p);
  const std::vector<double> ref = RefProduct(af, m, k, sf, k);
  const std::vector<double> got = Full(p);
  for (size_t q = 0; q < ref.size(); ++q) EXPECT_NEAR(got[q], ref[q], 1e-12 * (1.0 + std::fabs(ref[q]))) << q;
  // Without the rule P(1,1) would hold 1.0 more.
  EXPECT_NEAR(p.Value(1, 1), ref[0], 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Sizes, MatrixProduct,
                         testing::Values(ProductSize{1, 1, 1}, ProductSize{3, 4, 5}, ProductSize{17, 13, 11},
                                         ProductSize{64, 80, 48}, ProductSize{150, 70, 90}));

TEST(MatrixProductEdge, SymmetricProductSkipsInfinityPairedWithTinyFactor) {
  // Large enough for the BLAS path: a kept infinity must not meet a zeroed factor (0*inf = NaN).
  const int n = 40;
  VQ_SymMatrix s = RandomSym(n, 8);
  VQ_Matrix a = RandomMatrix(n, n, 9);
  for (int k = 1; k <= n; ++k) s(3, k) = 0.0;  // row/column 3 of S is zero
  a(2, 3) = kInf;                              // meets only zeros of S: every term skipped
  VQ_Matrix p(n, n);
  a.PostMultiply(s, p);
  for (int j = 1; j <= n; ++j) EXPECT_TRUE(std::isfinite(p.Value(2, j))) << j;
}

TEST(MatrixProductEdge, InnerMismatchMarksReceiverAndStillWrites) {
  double av[] = {1, 2, 3, 4, 5, 6};  // A = [[1,3,5],[2,4,6]]
  double bv[] = {1, 10, 100, 1000};  // B = [[1,100],[10,1000]]
  VQ_Matrix a(2, 3, av), b(2, 2, bv), p(2, 2, -7.0);
  a.PostMultiply(b, p);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
  // Three terms per entry; column j of B is read as three consecutive stored values, so column 1
  // reads (1, 10, 100) and column 2 reads (100, 1000) and then runs out of storage.
  EXPECT_EQ(p.Value(1, 1), 1 * 1 + 3 * 10 + 5 * 100.0);
  EXPECT_EQ(p.Value(2, 1), 2 * 1 + 4 * 10 + 6 * 100.0);
  EXPECT_EQ(p.Value(1, 2), 1 * 100 + 3 * 1000.0);
  EXPECT_EQ(p.Value(2, 2), 2 * 100 + 4 * 1000.0);
}

TEST(MatrixProductEdge, DiagonalOnEitherSideComputesAD) {
  VQ_Matrix a = RandomMatrix(3, 3, 12);
  double d[] = {2, -3, 0.5};
  VQ_DiagonalMatrix dm(3, d);
  VQ_Matrix post(3, 3), pre(3, 3);
  a.PostMultiply(dm, post);
  a.PreMultiply(dm, pre);  // deliberately A*D as well
  for (int j = 1; j <= 3; ++j)
    for (int i = 1; i <= 3; ++i) {
      EXPECT_EQ(post.Value(i, j), a.Value(i, j) * d[j - 1]);
      EXPECT_EQ(pre.Value(i, j), post.Value(i, j));
    }
  EXPECT_EQ(Full(a * dm), Full(post));
}

TEST(MatrixProductEdge, DiagonalProductKeepsTheSumsNonFiniteBehaviour) {
  // The generic sum multiplies every A(i,k) by D(k,j), zeros included: an infinity elsewhere in
  // row i turns P(i,j) into NaN, while rows without one are exact.
  double av[] = {1, 2, kInf, 4};  // A = [[1, inf],[2, 4]]
  VQ_Matrix a(2, 2, av);
  double d[] = {3, 5};
  VQ_DiagonalMatrix dm(2, d);
  VQ_Matrix p(2, 2);
  a.PostMultiply(dm, p);
  EXPECT_TRUE(std::isnan(p.Value(1, 1)));
  EXPECT_EQ(p.Value(1, 2), kInf);
  EXPECT_EQ(p.Value(2, 1), 6.0);
  EXPECT_EQ(p.Value(2, 2), 20.0);
  VQ_DiagonalMatrix d3(3, 1.0);
  a.PostMultiply(d3, p);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
}

// ---- inverse -----------------------------------------------------------------------------------------

class MatrixInverse : public testing::TestWithParam<int> {};

TEST_P(MatrixInverse, MatchesLapackAndGivesIdentity) {
  const int n = GetParam();
  std::vector<double> av = DiagonallyDominant(n, 21 + n);
  VQ_Matrix a(n, n, av.data());
  VQ_Matrix inv = a.Inverse();
  ASSERT_EQ(inv.NumRows(), n);
  EXPECT_EQ(inv.MatrixType(), MC::MATRIX);

  std::vector<double> lu = av;
  std::vector<int> ipiv(n);
  ASSERT_EQ(LAPACKE_dgetrf(LAPACK_COL_MAJOR, n, n, lu.data(), n, ipiv.data()), 0);
  ASSERT_EQ(LAPACKE_dgetri(LAPACK_COL_MAJOR, n, lu.data(), n, ipiv.data()), 0);
  EXPECT_LT(MaxAbsDiff(Full(inv), lu), 1e-13);

  std::vector<double> id(static_cast<size_t>(n) * n, 0.0);
  for (int k = 0; k < n; ++k) id[static_cast<size_t>(k) * n + k] = 1.0;
  EXPECT_LT(MaxAbsDiff(RefProduct(av, n, n, Full(inv), n), id), 1e-12);
}

INSTANTIATE_TEST_SUITE_P(Orders, MatrixInverse, testing::Values(1, 2, 5, 33, 95, 96, 120, 250));

TEST(MatrixInverseEdge, HandComputedAndNoPivoting) {
  double v[] = {4, 2, 7, 6};  // [[4,7],[2,6]], det 10
  VQ_Matrix inv = VQ_Matrix(2, 2, v).Inverse();
  EXPECT_NEAR(inv.Value(1, 1), 0.6, 1e-15);
  EXPECT_NEAR(inv.Value(1, 2), -0.7, 1e-15);
  EXPECT_NEAR(inv.Value(2, 1), -0.2, 1e-15);
  EXPECT_NEAR(inv.Value(2, 2), 0.4, 1e-15);

  double swap[] = {0, 1, 1, 0};
  VQ_Matrix s = VQ_Matrix(2, 2, swap).Inverse();  // zero first pivot, not detected
  bool nonFinite = false;
  for (double x : Full(s)) nonFinite = nonFinite || !std::isfinite(x);
  EXPECT_TRUE(nonFinite);

  // The same on the blocked path of larger orders: a zero first pivot spreads non-finite values.
  const int n = 150;
  std::vector<double> big = DiagonallyDominant(n, 77);
  big[0] = 0.0;
  VQ_Matrix bigInv = VQ_Matrix(n, n, big.data()).Inverse();
  int nonFiniteCount = 0;
  for (double x : Full(bigInv)) nonFiniteCount += std::isfinite(x) ? 0 : 1;
  EXPECT_EQ(nonFiniteCount, n * n);

  VQ_Matrix rect(2, 3, 1.0);
  rect.Inverse();
  EXPECT_EQ(rect.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
}

TEST(MatrixInverseEdge, SymmetricReceiverIsInvertedInFullForm) {
  VQ_SymMatrix s = RandomSym(6, 31);
  VQ_Matrix inv = s.Inverse();
  VQ_Matrix viaGeneral = VQ_Matrix(6, 6, Full(s).data()).Inverse();
  EXPECT_LT(MaxAbsDiff(Full(inv), Full(viaGeneral)), 1e-15);
  EXPECT_EQ(s.MatrixStatus(), MC::STATUS_OK);
}

// ---- Gram-Schmidt ------------------------------------------------------------------------------------

class MatrixGramSchmidt : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(MatrixGramSchmidt, OrthonormalAndSameAsQrUpToSigns) {
  const auto [n, m] = GetParam();
  VQ_Matrix q = RandomMatrix(n, m, 41);
  std::vector<double> qr = Full(q), tau(m);
  EXPECT_TRUE(q.ObtainOrthogonalizedForm(true));
  ASSERT_EQ(LAPACKE_dgeqrf(LAPACK_COL_MAJOR, n, m, qr.data(), n, tau.data()), 0);
  ASSERT_EQ(LAPACKE_dorgqr(LAPACK_COL_MAJOR, n, m, m, qr.data(), n, tau.data()), 0);
  for (int j = 1; j <= m; ++j) {
    double dot = 0.0;
    for (int i = 1; i <= n; ++i) dot += q.Value(i, j) * qr[static_cast<size_t>(j - 1) * n + i - 1];
    const double sign = dot >= 0 ? 1.0 : -1.0;
    for (int i = 1; i <= n; ++i) EXPECT_NEAR(q.Value(i, j), sign * qr[static_cast<size_t>(j - 1) * n + i - 1], 1e-10);
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, MatrixGramSchmidt,
                         testing::Values(std::make_pair(5, 3), std::make_pair(40, 40), std::make_pair(300, 25)));

TEST(MatrixGramSchmidtEdge, DependentColumnsFailTheCheckAndOneColumnIsNotChecked) {
  double v[] = {1, 1, 0, 2, 2, 0};  // second column = 2 * first
  VQ_Matrix dep(3, 2, v);
  EXPECT_FALSE(dep.ObtainOrthogonalizedForm(true));
  VQ_Matrix dep2(3, 2, v);
  EXPECT_TRUE(dep2.ObtainOrthogonalizedForm(false));

  double z[] = {0, 0, 0};
  VQ_Matrix one(3, 1, z);  // normalising a zero column gives NaN, but one column is never checked
  EXPECT_TRUE(one.ObtainOrthogonalizedForm(true));
  EXPECT_TRUE(std::isnan(one.Value(1, 1)));
}

// ---- derived matrices and operators ------------------------------------------------------------------

TEST(MatrixOperators, TransposeSquaredNegation) {
  VQ_Matrix a = RandomMatrix(37, 45, 51);
  VQ_Matrix t = a.T();
  EXPECT_EQ(Full(t), RefTranspose(Full(a), 37, 45));
  VQ_Matrix sq = a.Squared();
  EXPECT_EQ(sq.Value(5, 7), a.Value(5, 7) * a.Value(5, 7));
  VQ_Matrix neg = -a;
  EXPECT_EQ(neg.Value(3, 9), -a.Value(3, 9));
  VQ_Matrix pos = +a;
  EXPECT_EQ(Full(pos), Full(a));
  VQ_SymMatrix s = RandomSym(4, 52);
  VQ_Matrix ts = static_cast<const VQ_Matrix&>(s).T();  // generic path through Value
  EXPECT_EQ(Full(ts), Full(s));
}

TEST(MatrixOperators, AccumulateMismatchMarksAndRuns) {
  VQ_Matrix a(2, 2, 1.0), b(2, 2, 2.0);
  a += b;
  EXPECT_EQ(a.Value(2, 2), 3.0);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OK);
  VQ_Matrix c(2, 1, 10.0);
  a -= c;  // runs over c's sizes: column 1 only
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
  EXPECT_EQ(a.Value(1, 1), -7.0);
  EXPECT_EQ(a.Value(1, 2), 3.0);
  VQ_Matrix sum = VQ_Matrix(2, 2, 1.0) + VQ_Matrix(2, 2, 5.0);
  EXPECT_EQ(sum.Value(1, 2), 6.0);
  VQ_Matrix diff = VQ_Matrix(2, 2, 1.0) - VQ_Matrix(2, 2, 5.0);
  EXPECT_EQ(diff.Value(2, 1), -4.0);
}

TEST(MatrixOperators, ScalingAndDivisionThreshold) {
  VQ_Matrix a(2, 3, 2.0);
  EXPECT_EQ((a * 3.0).Value(2, 3), 6.0);
  EXPECT_EQ((3.0 * a).Value(1, 1), 6.0);
  VQ_Matrix q = a / 1e-17;  // above the smallest normal double: no status
  EXPECT_EQ(q.MatrixStatus(), MC::STATUS_OK);
  EXPECT_DOUBLE_EQ(q.Value(1, 1), 2e17);
  VQ_Matrix tiny = a / 1e-310;  // subnormal divisor
  EXPECT_EQ(tiny.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  a /= 0.0;
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  for (double x : Full(a)) EXPECT_TRUE(std::isinf(x));
}

TEST(MatrixProductEdge, ProductWrittenOverItsOwnOperand) {
  for (int n : {3, 60}) {  // loop path and BLAS path
    VQ_Matrix a = RandomMatrix(n, n, 61), b = RandomMatrix(n, n, 62);
    const std::vector<double> ref = RefProduct(Full(a), n, n, Full(b), n);
    VQ_Matrix a2(a);
    a2.PostMultiply(b, a2);  // P is A
    EXPECT_LT(MaxAbsDiff(Full(a2), ref), 1e-13 * n) << n;
    VQ_Matrix b2(b);
    a.PostMultiply(b2, b2);  // P is B
    EXPECT_LT(MaxAbsDiff(Full(b2), ref), 1e-13 * n) << n;
    VQ_SymMatrix s = RandomSym(n, 63);
    VQ_Matrix a3(a);
    a3.PostMultiply(s, a3);
    EXPECT_LT(MaxAbsDiff(Full(a3), RefProduct(Full(a), n, n, Full(s), n)), 1e-12 * n) << n;
  }
}
