// Dense eigen entry points (LAPACK and Jacobi, sparse/diagonal/dense inputs): results against an
// independent dense reference, the layouts of each variant, the -30 rule (Jacobi failures too),
// input validation, and what is written into the caller's arrays.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/EigenHarness.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

using vqtest::LastMessage;

// The four sparse-input dense paths as methods of the eigen harness (all n eigenpairs).
vqtest::EigenOutcome Dense(const vqtest::EigenProblem& e, bool jacobi) {
  Csr k = e.k, m = e.MassCsr();
  vqtest::EigenOutcome out;
  out.values.assign(k.n, 0.0);
  out.vectors.assign(static_cast<size_t>(k.n) * k.n, 0.0);
  const int *kr = k.rowPointers.data(), *kc = k.columnIndices.data();
  if (e.diagonal())
    out.status = jacobi ? VQ_EigenvalueAnalysis_JACOBI(k.n, kr, kc, k.values.data(), e.lumped.data(),
                                                       out.values.data(), out.vectors.data())
                        : VQ_EigenvalueAnalysis_LAPACK(k.n, kr, kc, k.values.data(), e.lumped.data(), 1,
                                                       out.values.data(), out.vectors.data());
  else
    out.status = jacobi ? VQ_EigenvalueAnalysis_JACOBI2(k.n, kr, kc, k.values.data(), VQTEST_CSR(m),
                                                        out.values.data(), out.vectors.data())
                        : VQ_EigenvalueAnalysis_LAPACK2(k.n, kr, kc, k.values.data(), VQTEST_CSR(m),
                                                        1, out.values.data(), out.vectors.data());
  EXPECT_EQ(VQ_GetLastErrorID(), out.status);
  return out;
}

TEST(DenseEigenResults, LapackAndJacobiWithDiagonalAndSparseMass) {
  for (bool consistent : {false, true})
    for (bool jacobi : {false, true}) {
      SCOPED_TRACE(std::string(jacobi ? "Jacobi" : "LAPACK") + (consistent ? ", consistent mass" : ", lumped mass"));
      const vqtest::EigenProblem e = vqtest::SolidProblem(3, 2, 1, consistent);  // n = 81
      vqtest::EigenCheckOptions o;
      o.valueTolerance = jacobi ? 1e-10 : 1e-12;
      vqtest::RunEigenChecks([jacobi](const vqtest::EigenProblem& p, int) { return Dense(p, jacobi); }, e, e.k.n, o);
    }
}

TEST(DenseEigenResults, LapackWithoutVectorsWritesNone) {
  const vqtest::EigenProblem e = vqtest::SolidProblem(3, 2, 1, true);
  Csr k = e.k, m = e.mass;
  std::vector<double> values(k.n), vectors(static_cast<size_t>(k.n) * k.n, 9.0);
  ASSERT_EQ(0, VQ_EigenvalueAnalysis_LAPACK2(k.n, VQTEST_CSR(k), VQTEST_CSR(m), 0, values.data(),
                                             vectors.data()));
  const std::vector<double> reference = vqtest::DenseEigenvalues(k, m);
  for (int i = 0; i < k.n; ++i) EXPECT_LT(vqtest::RelDiff(values[i], reference[i]), 1e-12);
  for (double v : vectors) ASSERT_EQ(9.0, v);
}

// ---- failures
// ---------------------------------------------------------------------------------------

// A mass with a zero on the diagonal (M not positive definite): -30 from every variant, Jacobi's
// included; the eigenvalues are cleared on entry and no vector is copied.
TEST(DenseEigenFailures, SingularMassGivesMinus30FromEveryVariant) {
  const int ia[] = {1, 3, 4}, ja[] = {1, 2, 2}, mia[] = {1, 2, 3}, mja[] = {1, 2};
  const double a[] = {2.0, -1.0, 2.0}, d[] = {1.0, 0.0}, ma[] = {1.0, 0.0};
  double kd[] = {2.0, -1.0, -1.0, 2.0}, md[] = {1.0, 0.0, 0.0, 0.0};
  double values[2], vectors[4] = {5.0, 5.0, 5.0, 5.0};
  const std::function<int()> variants[] = {
      [&] { return VQ_EigenvalueAnalysis_JACOBI(2, ia, ja, a, d, values, vectors); },
      [&] { return VQ_EigenvalueAnalysis_JACOBI2(2, ia, ja, a, mia, mja, ma, values, vectors); },
      [&] { return VQ_EigenvalueAnalysis_JACOBI3(2, kd, md, values, vectors); },
      [&] { return VQ_EigenvalueAnalysis_LAPACK(2, ia, ja, a, d, 1, values, vectors); },
      [&] { return VQ_EigenvalueAnalysis_LAPACK3(2, kd, md, 0, values); }};  // overwrites kd: last
  for (const auto& variant : variants) {
    values[0] = values[1] = 7.0;
    EXPECT_EQ(-30, variant());
    EXPECT_EQ(-30, VQ_GetLastErrorID());
    EXPECT_EQ("LAPACK Eigenvalue Solution Failed", LastMessage());
    EXPECT_EQ(0.0, values[0]);
    EXPECT_EQ(0.0, values[1]);
    EXPECT_EQ(5.0, vectors[0]);
  }
}

}  // namespace
