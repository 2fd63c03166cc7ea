// Dense eigen entry points (LAPACK and Jacobi, sparse/diagonal/dense inputs): results against an
// independent dense reference, the layouts of each variant, the -30 rule (Jacobi failures too),
// input validation, and what is written into the caller's arrays.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "support/EigenSupport.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

std::string LastMessage() {
  char* m = VQ_GetLastErrorMessage();
  std::string s = m ? m : "";
  std::free(m);
  return s;
}

// A small solid (n = 81) with its lumped and consistent masses.
struct Small {
  Small()
      : lumped(vqtest::SolidProblem(3, 2, 1, false)),
        consistent(vqtest::SolidProblem(3, 2, 1, true)) {}
  vqtest::EigenProblem lumped, consistent;
};

void ExpectEigenpairs(const Csr& k, const Csr& m, const std::vector<double>& values,
                      const std::vector<double>& vectors, double valueTolerance) {
  std::vector<double> reference = vqtest::DenseEigenvalues(k, m);
  ASSERT_EQ(reference.size(), values.size());
  for (size_t i = 0; i < values.size(); ++i)
    EXPECT_LT(vqtest::RelDiff(values[i], reference[i]), valueTolerance) << "mode " << i + 1;
  if (!vectors.empty()) {
    EXPECT_LT(vqtest::EigenResidual(k, m, k.n, values.data(), vectors.data()), 1e-6);
    EXPECT_LT(vqtest::MOrthonormalityError(m, k.n, vectors.data()), 1e-6);
  }
}

// ---- results of each variant
// ----------------------------------------------------------------------

TEST(DenseEigenResults, LapackWithDiagonalMass) {
  Small s;
  Csr k = s.lumped.k;
  std::vector<double> m = s.lumped.lumped, values(k.n), vectors(static_cast<size_t>(k.n) * k.n);
  ASSERT_EQ(
      0, VQ_EigenvalueAnalysis_LAPACK(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                      k.values.data(), m.data(), 1, values.data(), vectors.data()));
  EXPECT_EQ(0, VQ_GetLastErrorID());
  ExpectEigenpairs(k, s.lumped.MassCsr(), values, vectors, 1e-12);
}

TEST(DenseEigenResults, LapackWithSparseMassAndNoVectors) {
  Small s;
  Csr k = s.consistent.k, m = s.consistent.mass;
  std::vector<double> values(k.n), vectors(static_cast<size_t>(k.n) * k.n, 9.0);
  ASSERT_EQ(0, VQ_EigenvalueAnalysis_LAPACK2(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                             k.values.data(), m.rowPointers.data(),
                                             m.columnIndices.data(), m.values.data(), 0,
                                             values.data(), vectors.data()));
  ExpectEigenpairs(k, m, values, {}, 1e-12);
  for (double v : vectors) ASSERT_EQ(9.0, v);  // no vectors asked, none written
}

TEST(DenseEigenResults, JacobiWithDiagonalAndSparseMass) {
  Small s;
  {
    Csr k = s.lumped.k;
    std::vector<double> m = s.lumped.lumped, values(k.n), vectors(static_cast<size_t>(k.n) * k.n);
    ASSERT_EQ(
        0, VQ_EigenvalueAnalysis_JACOBI(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                        k.values.data(), m.data(), values.data(), vectors.data()));
    ExpectEigenpairs(k, s.lumped.MassCsr(), values, vectors, 1e-10);
  }
  {
    Csr k = s.consistent.k, m = s.consistent.mass;
    std::vector<double> values(k.n), vectors(static_cast<size_t>(k.n) * k.n);
    ASSERT_EQ(0, VQ_EigenvalueAnalysis_JACOBI2(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                               k.values.data(), m.rowPointers.data(),
                                               m.columnIndices.data(), m.values.data(),
                                               values.data(), vectors.data()));
    ExpectEigenpairs(k, m, values, vectors, 1e-10);
  }
}

TEST(DenseEigenResults, RealMatrixBothSolversAgree) {
  VQTEST_REQUIRE_DATA();
  vqtest::EigenProblem e;
  ASSERT_TRUE(vqtest::RealProblem("02", e));
  Csr k = e.k;
  std::vector<double> m = e.lumped, lapack(k.n), jacobi(k.n);
  ASSERT_EQ(0, VQ_EigenvalueAnalysis_LAPACK(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                            k.values.data(), m.data(), 0, lapack.data(), nullptr));
  ASSERT_EQ(0, VQ_EigenvalueAnalysis_JACOBI(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                            k.values.data(), m.data(), jacobi.data(), nullptr));
  for (int i = 0; i < k.n; ++i) EXPECT_LT(vqtest::RelDiff(jacobi[i], lapack[i]), 1e-10) << i;
}

TEST(DenseEigenResults, OrderOneAndAnUncoupledPair) {
  const int ia[] = {1, 2}, ja[] = {1};
  const double a[] = {8.0}, d[] = {4.0};
  double value = 0.0, vector = 0.0;
  ASSERT_EQ(0, VQ_EigenvalueAnalysis_JACOBI(1, ia, ja, a, d, &value, &vector));
  EXPECT_EQ(2.0, value);
  EXPECT_EQ(0.5, vector);

  const int ia2[] = {1, 2, 3}, ja2[] = {1, 2};
  const double a2[] = {2.0, 1.0}, d2[] = {1.0, 1.0};
  double values[2], vectors[4];
  ASSERT_EQ(0, VQ_EigenvalueAnalysis_JACOBI(2, ia2, ja2, a2, d2, values, vectors));
  EXPECT_EQ(1.0, values[0]);
  EXPECT_EQ(2.0, values[1]);
  EXPECT_EQ(0.0, vectors[0]);
  EXPECT_EQ(1.0, vectors[1]);
  EXPECT_EQ(1.0, vectors[2]);
  EXPECT_EQ(0.0, vectors[3]);
}

// ---- failures
// ---------------------------------------------------------------------------------------

TEST(DenseEigenFailures, ZeroMassMakesJacobiReportTheLapackCode) {
  const int ia[] = {1, 3, 4}, ja[] = {1, 2, 2};
  const double a[] = {2.0, -1.0, 2.0}, d[] = {1.0, 0.0};
  double values[2] = {7.0, 7.0}, vectors[4] = {5.0, 5.0, 5.0, 5.0};
  EXPECT_EQ(-30, VQ_EigenvalueAnalysis_JACOBI(2, ia, ja, a, d, values, vectors));
  EXPECT_EQ(-30, VQ_GetLastErrorID());
  EXPECT_EQ("LAPACK Eigenvalue Solution Failed", LastMessage());
  EXPECT_EQ(0.0, values[0]);  // cleared on entry
  EXPECT_EQ(0.0, values[1]);
  EXPECT_EQ(5.0, vectors[0]);  // nothing copied on failure

  const int mia[] = {1, 2, 3}, mja[] = {1, 2};
  const double ma[] = {1.0, 0.0};
  EXPECT_EQ(-30, VQ_EigenvalueAnalysis_JACOBI2(2, ia, ja, a, mia, mja, ma, values, vectors));
  const double kd[] = {2.0, -1.0, -1.0, 2.0}, md[] = {1.0, 0.0, 0.0, 0.0};
  EXPECT_EQ(-30, VQ_EigenvalueAnalysis_JACOBI3(2, kd, md, values, vectors));
  EXPECT_EQ("LAPACK Eigenvalue Solution Failed", LastMessage());
}

TEST(DenseEigenFailures, LapackFailureOnSingularMass) {
  const int ia[] = {1, 3, 4}, ja[] = {1, 2, 2};
  const double a[] = {2.0, -1.0, 2.0}, d[] = {1.0, 0.0};
  double values[2], vectors[4];
  EXPECT_EQ(-30, VQ_EigenvalueAnalysis_LAPACK(2, ia, ja, a, d, 1, values, vectors));
  EXPECT_EQ("LAPACK Eigenvalue Solution Failed", LastMessage());
  double K[4] = {2.0, -1.0, -1.0, 2.0}, M[4] = {1.0, 0.0, 0.0, -1.0};
  EXPECT_EQ(-30, VQ_EigenvalueAnalysis_LAPACK3(2, K, M, 0, values));
}

}  // namespace
