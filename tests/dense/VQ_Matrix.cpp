// Tests of the general dense matrix: storage and lifecycle (allocation failure, shallow storage),
// element access, column members, norms, products against extended-precision references,
// Gauss-Jordan inverse against LAPACK, modified Gram-Schmidt against LAPACK QR, operators and the
// deliberate quirks callers rely on.
#include <gtest/gtest.h>
#include <mkl.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "dense/VQ_Dense.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/DenseSupport.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;
using V = std::vector<double>;

namespace {
const char kNoMemoryLine[] = ">>>>>>> Cannot Allocate Memory !..... <<<<<< \n\n";
const double kInf = std::numeric_limits<double>::infinity();

bool AllFinite(const VQ_Matrix& m) {
  for (double x : Full(m))
    if (!std::isfinite(x)) return false;
  return true;
}
}  // namespace

// ---- storage and lifecycle
// -----------------------------------------------------------------------

TEST(MatrixStorage, ConstructorsFillAndMark) {
  VQ_Matrix empty, zero(0, 0);
  EXPECT_TRUE(HasNoStorage(empty));
  EXPECT_TRUE(HasNoStorage(zero));
  EXPECT_EQ(empty.MatrixType(), MC::MATRIX);
  EXPECT_EQ(zero.Norm(), 0.0);
  EXPECT_EQ(Full(VQ_Matrix(3, 2)), V(6, 0.0));
  EXPECT_EQ(Full(VQ_Matrix(2, 2, 7.5)), V(4, 7.5));
  VQ_Matrix m = Mat(2, 3, {1, 2, 3, 4, 5, 6});
  EXPECT_EQ(m.Value(1, 2), 3.0);  // column-major
  EXPECT_EQ(m.Value(2, 3), 6.0);
  EXPECT_EQ(m.MatrixStatus(), MC::STATUS_OK);
  EXPECT_EQ(m.GetSizeAllocated(), 6);
}

TEST(MatrixStorage, ElementPositionIsColumnMajorOneBasedAlsoInPackedStorage) {
  VQ_Matrix m(3, 4);
  m(2, 3) = 5.0;
  EXPECT_EQ(m.GetDataPointer()[7], 5.0);
  EXPECT_EQ(static_cast<double>(m(2, 3)), 5.0);
  m(1, 1) = m(2, 3);  // proxy to proxy
  m(1, 1) += 1.0;
  EXPECT_EQ(m.GetDataPointer()[0], 6.0);
  VQ_SymMatrix s(3, 0.0);
  VQ_Matrix& base = s;
  base(3, 1) = 4.0;  // lands on packed position 3, shared by (1,3)
  EXPECT_EQ(s.GetDataPointer()[3], 4.0);
  EXPECT_EQ(base.Value(1, 3), 4.0);
}

TEST(MatrixStorage, AllocationFailureIsDeterministicRecoverableAndNotHiddenByCopying) {
  VQ_Matrix* huge = nullptr;
  // 1e10 elements: does not fit the 32-bit size.
  EXPECT_EQ(Stdout([&] { huge = new VQ_Matrix(100000, 100000); }), kNoMemoryLine);
  EXPECT_EQ(huge->MatrixStatus(), MC::STATUS_NO_MEMORY);
  EXPECT_TRUE(HasNoStorage(*huge));
  VQ_Matrix copy(*huge);
  EXPECT_EQ(copy.MatrixStatus(), MC::STATUS_NO_MEMORY);
  EXPECT_TRUE(HasNoStorage(copy));

  huge->Redimension(2, 3, 1.5);
  EXPECT_EQ(huge->MatrixStatus(), MC::STATUS_OK);
  EXPECT_EQ(huge->Value(2, 3), 1.5);
  EXPECT_EQ(Stdout([&] { huge->Redimension(-1, 4, 0.0); }), kNoMemoryLine);
  EXPECT_EQ(huge->MatrixStatus(), MC::STATUS_NO_MEMORY);
  EXPECT_TRUE(HasNoStorage(*huge));
  delete huge;
}

TEST(MatrixStorage, ShallowStorageIsNeverFreedAndCopiesInheritTheMark) {
  V buffer = {1, 2, 3, 4};
  {
    VQ_Matrix m;
    m.CopyShallow(2, 2, buffer.data());
    EXPECT_TRUE(DenseFields::Shallow(m));
    EXPECT_EQ(m.GetDataPointer(), buffer.data());
    m(1, 2) = 30.0;  // writes through to the caller's buffer
    EXPECT_EQ(buffer[2], 30.0);

    VQ_Matrix copy(m), assigned;
    assigned = m;
    EXPECT_TRUE(DenseFields::Shallow(copy));  // the mark is inherited...
    EXPECT_TRUE(DenseFields::Shallow(assigned));
    EXPECT_NE(copy.GetDataPointer(), buffer.data());  // ...but the storage is the copy's own
    copy(1, 1) = -1.0;
    EXPECT_EQ(buffer[0], 1.0);

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
  EXPECT_EQ(buffer, (V{1, 2, 30, 4}));
}

TEST(MatrixStorage, CopyTakesOverTypeAndStatus) {
  VQ_Matrix m(2, 2, 1.0);
  m /= 0.0;
  ASSERT_EQ(m.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  EXPECT_EQ(VQ_Matrix(m).MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  EXPECT_EQ(VQ_Matrix(VQ_ColVector(3, 1.0)).MatrixType(), MC::COLUMN_VECTOR);  // keeps the kind
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
  for (int unknown : {0, 7}) {
    DenseFields::SetType(m, unknown);
    EXPECT_EQ(m.GetMatrixType(), "UNDETERMINED");
  }
}

TEST(MatrixStorage, WholeMatrixMembers) {
  VQ_Matrix m;
  m.SetIdentityMatrix(3);
  EXPECT_EQ(Full(m), Identity(3));
  double d[] = {2, 3};
  m.CopyToDiag(2, d);
  EXPECT_EQ(Full(m), (V{2, 0, 0, 3}));
  V src = {1, 2, 3, 4, 5, 6}, out(6);
  m.CopyFromMatrixForm(3, 2, src.data());
  EXPECT_EQ(m.Value(3, 2), 6.0);
  m.Copy(out.data());
  EXPECT_EQ(out, src);
  m.SetValue(-1.0);
  EXPECT_EQ(Full(m), V(6, -1.0));

  VQ_Matrix a(2, 2, 1.0), b(2, 2, 4.0);
  a.Add(b);
  EXPECT_EQ(a.Value(1, 2), 5.0);
  a.Subtract(b);
  a.Subtract(b);
  EXPECT_EQ(a.Value(2, 2), -3.0);
  VQ_Matrix small(1, 3, 9.0);
  a.SetEqualTo(&small);  // copies min(size) raw: 3 values
  EXPECT_EQ(Full(a), (V{9, 9, 9, -3}));
  a.SetEqualTo(static_cast<VQ_Matrix*>(nullptr));
  EXPECT_TRUE(a.ConfirmEQ(2, 2));
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OK);
  EXPECT_FALSE(a.ConfirmEQ(2, 3));
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
}

TEST(MatrixStorage, SetEqualToSymmetricAndSparseGivesFullForm) {
  VQ_Matrix m, f;
  m.SetEqualTo(SymUpper(3, {1, 0, 0, 2, 3, 4}));
  EXPECT_EQ(Full(m), (V{1, 0, 2, 0, 0, 3, 2, 3, 4}));
  // Upper rows 1-based, diagonal first: [[4,1,0],[1,5,2],[0,2,6]].
  double values[] = {4, 1, 5, 2, 6};
  int rowptr[] = {1, 3, 5, 6}, colidx[] = {1, 2, 2, 3, 3};
  f.SetEqualTo(VQ_SparseSymMatrix(3, values, rowptr, colidx));
  EXPECT_EQ(Full(f), (V{4, 1, 0, 1, 5, 2, 0, 2, 6}));
  EXPECT_EQ(f.MatrixType(), MC::MATRIX);
}

TEST(MatrixStorage, PrintMessage2AppendsTheNumber) {
  char text[64] = "Equation ";
  EXPECT_EQ(Stdout([&] {
              VQ_Matrix::PrintMessage2(text, -42);
              VQ_Matrix::PrintMessage("done");
            }),
            "Equation -42\ndone\n");
  EXPECT_STREQ(text, "Equation -42");
}

// ---- columns
// ---------------------------------------------------------------------------------------

TEST(MatrixColumns, InsertExtractReadWithChecks) {
  VQ_Matrix m(3, 2), src(3, 4, 5.0), dst(3, 3);
  VQ_ColVector v(V{1, 2, 3}), wrong(2), out(3), r;
  // Out-of-range columns and mismatched sizes change nothing.
  EXPECT_EQ(m.InsertVector(v, 3), -1);
  EXPECT_EQ(m.InsertVector(v, 0), -1);
  EXPECT_EQ(m.InsertVector(wrong, 1), -1);
  EXPECT_EQ(m.InsertVector(src, 5, 1), -1);
  EXPECT_EQ(Full(m), V(6, 0.0));
  EXPECT_EQ(m.InsertVector(v, 2), 0);
  EXPECT_EQ(m.InsertVector(src, 4, 1), 0);
  EXPECT_EQ(Full(m), (V{5, 5, 5, 1, 2, 3}));

  EXPECT_EQ(m.ExtractVector(out, 2), 0);
  EXPECT_EQ(Full(out), (V{1, 2, 3}));
  EXPECT_EQ(m.ExtractVector(dst, 3, 2), 0);
  EXPECT_EQ(m.ExtractVector(dst, 4, 2), -1);
  EXPECT_EQ(Full(dst), (V{0, 0, 0, 0, 0, 0, 1, 2, 3}));
  double raw[3];
  EXPECT_EQ(m.ExtractVector(3, raw, 2), 0);
  EXPECT_EQ(raw[1], 2.0);
  EXPECT_EQ(m.ExtractVector(2, raw, 2), -1);
  EXPECT_EQ(m.ReadVector(r, 2), 0);
  EXPECT_EQ(Full(r), (V{1, 2, 3}));  // redimensioned to 3 x 1
  EXPECT_EQ(m.ReadVector(r, 3), -1);

  m.ApplyScaleToColumn(10.0, 2);
  m.ApplyScaleToColumn(10.0, 9);  // out of range: nothing
  EXPECT_EQ(Full(m), (V{5, 5, 5, 10, 20, 30}));
}

TEST(MatrixColumns, CopyColumnsAndSubMatrices) {
  VQ_Matrix m = RandomMatrix(4, 4, 11), first, a(3, 3), b(1, 1), e(3, 1);
  const V f = Full(m);
  m.CopyColumnsToGivenMatrix(&first, 2);
  EXPECT_EQ(Full(first), V(f.begin(), f.begin() + 8));
  EXPECT_TRUE(m.ObtainSubMatrices(a, b, e, 1));
  EXPECT_EQ(Full(a), (V{f[0], f[1], f[2], f[4], f[5], f[6], f[8], f[9], f[10]}));
  EXPECT_EQ(Full(e), (V{f[12], f[13], f[14]}));
  EXPECT_EQ(b.Value(1, 1), f[15]);
  EXPECT_FALSE(m.ObtainSubMatrices(a, b, e, 4));
}

// ---- norms and diagonal queries
// --------------------------------------------------------------------

TEST(MatrixNorms, FrobeniusTheLastColumnRuleAndDiagonalQueries) {
  VQ_Matrix m = Mat(2, 2, {3, 4, 0, 0}), n = Mat(2, 2, {0, 0, 3, 4});
  EXPECT_DOUBLE_EQ(m.Norm(), 5.0);
  EXPECT_EQ(m.Norm(1), 0.0);  // the last column's norm, whatever j
  EXPECT_EQ(m.Norm(3), 0.0);  // out of range
  EXPECT_EQ(m.Norm(0), 0.0);
  EXPECT_DOUBLE_EQ(n.Norm(1), 5.0);
  EXPECT_DOUBLE_EQ(n.Norm(2), 5.0);

  VQ_Matrix d = Mat(2, 2, {1e-3, 9, 9, -2});
  EXPECT_EQ(d.NumberOfNonZeroDiagonalTerms(1e-3), 1);  // strictly greater
  EXPECT_EQ(d.NumberOfNonZeroDiagonalTerms(1e-4), 2);
  double diag[2];
  EXPECT_TRUE(d.GetListOfDiagonalTerms(diag));
  EXPECT_EQ(diag[1], -2.0);
  EXPECT_FALSE(VQ_Matrix(2, 3).GetListOfDiagonalTerms(diag));
}

// ---- products
// ----------------------------------------------------------------------------------------

struct ProductSize {
  int m, k, n;
};

class MatrixProduct : public testing::TestWithParam<ProductSize> {};

TEST_P(MatrixProduct, GeneralAndSymmetricFactorsMatchExtendedPrecision) {
  const auto [m, k, n] = GetParam();
  VQ_Matrix a = RandomMatrix(m, k, 1), b = RandomMatrix(k, n, 2), p(m, n), q(m, n);
  const V ref = RefProduct(Full(a), m, k, Full(b), n);
  a.PostMultiply(b, p);
  b.PreMultiply(a, q);  // q = a*b
  for (const V& got : {Full(p), Full(q), Full(a * b)}) EXPECT_LT(MaxAbsDiff(got, ref), 1e-14 * k);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OK);
  EXPECT_EQ((a * b).MatrixType(), MC::MATRIX);

  VQ_SymMatrix s = RandomSym(k, 3);
  VQ_Matrix c = RandomMatrix(k, n, 5), as(m, k), sc(k, n);
  a.PostMultiply(s, as);
  c.PreMultiply(s, sc);
  EXPECT_LT(MaxAbsDiff(Full(as), RefProduct(Full(a), m, k, Full(s), k)), 1e-13 * k);
  EXPECT_LT(MaxAbsDiff(Full(sc), RefProduct(Full(s), k, k, Full(c), n)), 1e-13 * k);
  EXPECT_LT(MaxAbsDiff(Full(a * s), Full(as)), 1e-300);
  EXPECT_LT(MaxAbsDiff(Full(s * c), Full(sc)), 1e-300);
}

TEST_P(MatrixProduct, SymmetricProductTreatsFactorsUnderEpsilonAsZero) {
  // A(1,1) = 1e-17 and S(1,1) = 1e17: their term (1.0) must not appear; S(1,2) = 1e-17 and a huge
  // A(2,1) likewise. Checked in the loop path and in the BLAS path (larger sizes).
  const auto [m, k, n] = GetParam();
  (void)n;
  VQ_SymMatrix s = RandomSym(k, 6);
  VQ_Matrix a = RandomMatrix(m, k, 7), p(m, k);
  a(1, 1) = 1e-17;
  s(1, 1) = 1e17;
  if (k >= 2) s(1, 2) = 1e-17;
  if (m >= 2) a(2, 1) = 1e30;
  V af = Full(a), sf = Full(s);
  for (V* f : {&af, &sf})
    for (double& x : *f)
      if (std::fabs(x) <= 2.220446049250313e-16) x = 0.0;
  a.PostMultiply(s, p);
  const V ref = RefProduct(af, m, k, sf, k), got = Full(p);
  for (size_t q = 0; q < ref.size(); ++q)
    EXPECT_NEAR(got[q], ref[q], 1e-12 * (1.0 + std::fabs(ref[q]))) << q;
  // Without the rule P(1,1) would hold 1.0 more.
  EXPECT_NEAR(p.Value(1, 1), ref[0], 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Sizes, MatrixProduct,
                         testing::Values(ProductSize{1, 1, 1}, ProductSize{3, 4, 5},
                                         ProductSize{17, 13, 11}, ProductSize{64, 80, 48},
                                         ProductSize{150, 70, 90}));

TEST(MatrixProductEdge, SymmetricProductSkipsInfinityPairedWithTinyFactor) {
  // Large enough for the BLAS path: a kept infinity must not meet a zeroed factor (0*inf = NaN).
  const int n = 40;
  VQ_SymMatrix s = RandomSym(n, 8);
  VQ_Matrix a = RandomMatrix(n, n, 9), p(n, n);
  for (int k = 1; k <= n; ++k) s(3, k) = 0.0;  // row/column 3 of S is zero
  a(2, 3) = kInf;                              // meets only zeros of S: every term skipped
  a.PostMultiply(s, p);
  for (int j = 1; j <= n; ++j) EXPECT_TRUE(std::isfinite(p.Value(2, j))) << j;
}

TEST(MatrixProductEdge, InnerMismatchMarksReceiverAndStillWrites) {
  // A = [[1,3,5],[2,4,6]], B = [[1,100],[10,1000]].
  VQ_Matrix a = Mat(2, 3, {1, 2, 3, 4, 5, 6}), b = Mat(2, 2, {1, 10, 100, 1000}), p(2, 2, -7.0);
  a.PostMultiply(b, p);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
  // Three terms per entry; column j of B is read as three consecutive stored values, so column 1
  // reads (1, 10, 100) and column 2 reads (100, 1000) and then runs out of storage.
  EXPECT_EQ(Full(p), (V{1 + 30 + 500, 2 + 40 + 600, 100 + 3000, 200 + 4000}));
}

TEST(MatrixProductEdge, DiagonalOnEitherSideComputesAD) {
  VQ_Matrix a = RandomMatrix(3, 3, 12), post(3, 3), pre(3, 3);
  double d[] = {2, -3, 0.5};
  VQ_DiagonalMatrix dm(3, d);
  a.PostMultiply(dm, post);
  a.PreMultiply(dm, pre);  // deliberately A*D as well
  for (int j = 1; j <= 3; ++j)
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(post.Value(i, j), a.Value(i, j) * d[j - 1]);
  EXPECT_EQ(Full(pre), Full(post));
  EXPECT_EQ(Full(a * dm), Full(post));
}

TEST(MatrixProductEdge, DiagonalProductKeepsTheSumsNonFiniteBehaviour) {
  // The generic sum multiplies every A(i,k) by D(k,j), zeros included: an infinity elsewhere in
  // row i turns P(i,j) into NaN, while rows without one are exact.
  VQ_Matrix a = Mat(2, 2, {1, 2, kInf, 4}), p(2, 2);  // A = [[1, inf],[2, 4]]
  double d[] = {3, 5};
  a.PostMultiply(VQ_DiagonalMatrix(2, d), p);
  EXPECT_TRUE(std::isnan(p.Value(1, 1)));
  EXPECT_EQ(p.Value(1, 2), kInf);
  EXPECT_EQ(p.Value(2, 1), 6.0);
  EXPECT_EQ(p.Value(2, 2), 20.0);
  a.PostMultiply(VQ_DiagonalMatrix(3, 1.0), p);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
}

TEST(MatrixProductEdge, ProductWrittenOverItsOwnOperand) {
  for (int n : {3, 60}) {  // loop path and BLAS path
    VQ_Matrix a = RandomMatrix(n, n, 61), b = RandomMatrix(n, n, 62), a2(a), a3(a), b2(b);
    VQ_SymMatrix s = RandomSym(n, 63);
    const V ref = RefProduct(Full(a), n, n, Full(b), n);
    a2.PostMultiply(b, a2);  // P is A
    a.PostMultiply(b2, b2);  // P is B
    a3.PostMultiply(s, a3);
    EXPECT_LT(MaxAbsDiff(Full(a2), ref), 1e-13 * n) << n;
    EXPECT_LT(MaxAbsDiff(Full(b2), ref), 1e-13 * n) << n;
    EXPECT_LT(MaxAbsDiff(Full(a3), RefProduct(Full(a), n, n, Full(s), n)), 1e-12 * n) << n;
  }
}

// ---- inverse
// -----------------------------------------------------------------------------------------

class MatrixInverse : public testing::TestWithParam<int> {};

TEST_P(MatrixInverse, MatchesLapackAndGivesIdentity) {
  const int n = GetParam();
  V av = DiagonallyDominant(n, 21 + n), lu = av;
  VQ_Matrix inv = VQ_Matrix(n, n, av.data()).Inverse();
  ASSERT_EQ(inv.NumRows(), n);
  EXPECT_EQ(inv.MatrixType(), MC::MATRIX);
  std::vector<int> ipiv(n);
  ASSERT_EQ(LAPACKE_dgetrf(LAPACK_COL_MAJOR, n, n, lu.data(), n, ipiv.data()), 0);
  ASSERT_EQ(LAPACKE_dgetri(LAPACK_COL_MAJOR, n, lu.data(), n, ipiv.data()), 0);
  EXPECT_LT(MaxAbsDiff(Full(inv), lu), 1e-13);
  EXPECT_LT(MaxAbsDiff(RefProduct(av, n, n, Full(inv), n), Identity(n)), 1e-12);
}

INSTANTIATE_TEST_SUITE_P(Orders, MatrixInverse, testing::Values(1, 2, 5, 33, 95, 96, 120, 250));

TEST(MatrixInverseEdge, HandComputedNoPivotingAndSymmetricReceiver) {
  VQ_Matrix inv = Mat(2, 2, {4, 2, 7, 6}).Inverse();  // [[4,7],[2,6]], det 10
  EXPECT_LT(MaxAbsDiff(Full(inv), (V{0.6, -0.2, -0.7, 0.4})), 1e-15);

  // A zero first pivot is not detected: non-finite values, also on the blocked path of larger
  // orders, where they spread over the whole result.
  EXPECT_FALSE(AllFinite(Mat(2, 2, {0, 1, 1, 0}).Inverse()));
  const int n = 150;
  V big = DiagonallyDominant(n, 77);
  big[0] = 0.0;
  for (double x : Full(VQ_Matrix(n, n, big.data()).Inverse())) ASSERT_FALSE(std::isfinite(x));

  VQ_Matrix rect(2, 3, 1.0);
  rect.Inverse();
  EXPECT_EQ(rect.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);

  // A symmetric receiver is inverted in full form.
  VQ_SymMatrix s = RandomSym(6, 31);
  EXPECT_LT(MaxAbsDiff(Full(s.Inverse()), Full(VQ_Matrix(6, 6, Full(s).data()).Inverse())), 1e-15);
  EXPECT_EQ(s.MatrixStatus(), MC::STATUS_OK);
}

// ---- Gram-Schmidt
// ------------------------------------------------------------------------------------

class MatrixGramSchmidt : public testing::TestWithParam<std::pair<int, int>> {};

TEST_P(MatrixGramSchmidt, OrthonormalAndSameAsQrUpToSigns) {
  const auto [n, m] = GetParam();
  VQ_Matrix q = RandomMatrix(n, m, 41);
  V qr = Full(q), tau(m);
  EXPECT_TRUE(q.ObtainOrthogonalizedForm(true));
  ASSERT_EQ(LAPACKE_dgeqrf(LAPACK_COL_MAJOR, n, m, qr.data(), n, tau.data()), 0);
  ASSERT_EQ(LAPACKE_dorgqr(LAPACK_COL_MAJOR, n, m, m, qr.data(), n, tau.data()), 0);
  for (int j = 1; j <= m; ++j) {
    const double* ref = &qr[static_cast<size_t>(j - 1) * n];
    double dot = 0.0;
    for (int i = 1; i <= n; ++i) dot += q.Value(i, j) * ref[i - 1];
    for (int i = 1; i <= n; ++i)
      EXPECT_NEAR(q.Value(i, j), (dot >= 0 ? 1.0 : -1.0) * ref[i - 1], 1e-10);
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, MatrixGramSchmidt,
                         testing::Values(std::make_pair(5, 3), std::make_pair(40, 40),
                                         std::make_pair(300, 25)));

TEST(MatrixGramSchmidtEdge, DependentColumnsFailTheCheckAndOneColumnIsNotChecked) {
  const V dependent = {1, 1, 0, 2, 2, 0};  // second column = 2 * first
  EXPECT_FALSE(Mat(3, 2, dependent).ObtainOrthogonalizedForm(true));
  EXPECT_TRUE(Mat(3, 2, dependent).ObtainOrthogonalizedForm(false));
  VQ_Matrix one(3, 1, 0.0);  // normalising a zero column gives NaN, but one column is never checked
  EXPECT_TRUE(one.ObtainOrthogonalizedForm(true));
  EXPECT_TRUE(std::isnan(one.Value(1, 1)));
}

// ---- derived matrices and operators
// ------------------------------------------------------------------

TEST(MatrixOperators, TransposeSquaredNegation) {
  VQ_Matrix a = RandomMatrix(37, 45, 51);
  const V f = Full(a);
  EXPECT_EQ(Full(a.T()), RefTranspose(f, 37, 45));
  V sq = f, neg = f;
  for (size_t k = 0; k < f.size(); ++k) {
    sq[k] = f[k] * f[k];
    neg[k] = -f[k];
  }
  EXPECT_EQ(Full(a.Squared()), sq);
  EXPECT_EQ(Full(-a), neg);
  EXPECT_EQ(Full(+a), f);
  VQ_SymMatrix s = RandomSym(4, 52);
  EXPECT_EQ(Full(static_cast<const VQ_Matrix&>(s).T()), Full(s));  // generic path through Value
}

TEST(MatrixOperators, AccumulateMismatchMarksAndRuns) {
  VQ_Matrix a(2, 2, 1.0);
  a += VQ_Matrix(2, 2, 2.0);
  EXPECT_EQ(a.Value(2, 2), 3.0);
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OK);
  a -= VQ_Matrix(2, 1, 10.0);  // runs over the operand's sizes: column 1 only
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIMENSION_MISMATCH);
  EXPECT_EQ(Full(a), (V{-7, -7, 3, 3}));
  EXPECT_EQ(Full(VQ_Matrix(2, 2, 1.0) + VQ_Matrix(2, 2, 5.0)), V(4, 6.0));
  EXPECT_EQ(Full(VQ_Matrix(2, 2, 1.0) - VQ_Matrix(2, 2, 5.0)), V(4, -4.0));
}

TEST(MatrixOperators, ScalingAndDivisionThreshold) {
  VQ_Matrix a(2, 3, 2.0);
  EXPECT_EQ(Full(a * 3.0), V(6, 6.0));
  EXPECT_EQ(Full(3.0 * a), V(6, 6.0));
  VQ_Matrix q = a / 1e-17;  // above the smallest normal double: no status
  EXPECT_EQ(q.MatrixStatus(), MC::STATUS_OK);
  EXPECT_DOUBLE_EQ(q.Value(1, 1), 2e17);
  EXPECT_EQ((a / 1e-310).MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);  // subnormal divisor
  a /= 0.0;
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  for (double x : Full(a)) EXPECT_TRUE(std::isinf(x));
}
