// Tests of the general dense matrix: storage and lifecycle (allocation failure, shallow storage),
// element access, column members, norms, products against extended-precision references,
// Gauss-Jordan inverse against LAPACK, modified Gram-Schmidt against LAPACK QR, operators and the
// deliberate quirks callers rely on.
#include <gtest/gtest.h>
#include <mkl.h>

#include <vector>

#include "dense/VQ_Dense.h"
#include "support/DenseSupport.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;
using V = std::vector<double>;

// ---- storage and lifecycle
// -----------------------------------------------------------------------

// ---- columns
// ---------------------------------------------------------------------------------------

// ---- norms and diagonal queries
// --------------------------------------------------------------------

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

// ---- derived matrices and operators
// ------------------------------------------------------------------

