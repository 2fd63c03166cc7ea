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

INSTANTIATE_TEST_SUITE_P(Sizes, MatrixProduct,
                         testing::Values(ProductSize{1, 1, 1}, ProductSize{3, 4, 5},
                                         ProductSize{17, 13, 11}, ProductSize{64, 80, 48},
                                         ProductSize{150, 70, 90}));

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

INSTANTIATE_TEST_SUITE_P(Orders, MatrixInverse, testing::Values(1, 5, 96, 120));

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
