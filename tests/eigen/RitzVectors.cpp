// Load-dependent Ritz vectors: M-orthonormality, estimates bounding the true eigenvalues from
// above and converging as the count grows, effective mass reaching 1, the generation variants
// and options, and the failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "dense/VQ_ColVector.h"
#include "eigen/VQ_LDRitzVectors.h"
#include "support/EigenHarness.h"

namespace {

using vqtest::Csr;
using Ritz = std::unique_ptr<VQ_LDRitzVectors>;

// A load pattern that reaches every mode.
std::vector<double> GenericLoad(int n) {
  std::vector<double> f(n);
  for (int i = 0; i < n; ++i) f[i] = 1.0 + 0.5 * std::sin(0.7 * i) + 0.25 * std::cos(1.9 * i);
  return f;
}

// A small clamped solid with a lumped mass (rectangular: no repeated eigenvalues) and its dense
// reference spectrum.
struct Problem {
  vqtest::EigenProblem e = vqtest::SolidProblem(5, 3, 2, false);
  Csr m = vqtest::DiagonalCsr(e.lumped);
  std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
};

Problem& Shared() {
  static Problem p;
  return p;
}

class RitzVectors : public ::testing::Test {
 protected:
  Csr& k_ = Shared().e.k;
  const Csr& m_ = Shared().m;
  std::vector<double>& mass_ = Shared().e.lumped;
  const int n_ = k_.n;
  VQ_ColVector load_{GenericLoad(k_.n)};

  Ritz Make(bool limit = false, double limitValue = 0.0) {
    return Ritz(new VQ_LDRitzVectors(n_, VQTEST_CSR(k_), mass_.data(), 0, -2, limit, limitValue));
  }
  // count vectors of the generic load (or *load, as pattern (kind 0) or force (kind 1)).
  int Solve(VQ_LDRitzVectors& r, int count, bool lanczos = false, VQ_ColVector* load = nullptr,
            int kind = 0) {
    if (!load && kind == 0) load = &load_;
    return lanczos ? r.SolveLWYD(count, "", nullptr, load, kind)
                   : r.SolveWYD(count, "", nullptr, load, kind);
  }
  static std::vector<double> Estimates(VQ_LDRitzVectors& r) {
    VQ_ColVector& e = r.GetEstEigVals();
    return std::vector<double>(e.GetDataPointer(), e.GetDataPointer() + e.NumRows());
  }
  static std::vector<double> Vectors(VQ_LDRitzVectors& r) {
    VQ_Matrix* v = r.GetVectorsPtr();
    return std::vector<double>(
        v->GetDataPointer(),
        v->GetDataPointer() + static_cast<size_t>(v->NumRows()) * v->NumCols());
  }
  // Φᵀ·K·Φ (q × q, column-major) of the first q vectors.
  std::vector<double> ProjectedK(const std::vector<double>& phi, int q) {
    std::vector<double> kp(n_), p(static_cast<size_t>(q) * q, 0.0);
    for (int a = 0; a < q; ++a) {
      vqtest::Multiply(k_, &phi[static_cast<size_t>(a) * n_], kp.data());
      for (int b = 0; b < q; ++b)
        for (int i = 0; i < n_; ++i) p[a * q + b] += phi[static_cast<size_t>(b) * n_ + i] * kp[i];
    }
    return p;
  }
};

TEST_F(RitzVectors, VectorsAreMOrthonormalAndKOrthogonal) {
  Ritz r = Make();
  for (bool lanczos : {false, true}) {
    ASSERT_EQ(Solve(*r, 12, lanczos), 0) << r->GetErrorMessage();
    ASSERT_EQ(r->GetVectorsPtr()->NumCols(), 12);
    const std::vector<double> phi = Vectors(*r), est = Estimates(*r);
    EXPECT_LT(vqtest::MOrthonormalityError(m_, 12, phi.data()), 1e-10);
    const std::vector<double> p = ProjectedK(phi, 12);  // φᵢᵀ·K·φⱼ = λᵢ·δᵢⱼ
    for (int a = 0; a < 12; ++a)
      for (int b = 0; b < 12; ++b)
        EXPECT_NEAR(p[a * 12 + b], a == b ? est[a] : 0.0, 1e-9 * est[11]) << a << "," << b;
    EXPECT_TRUE(std::is_sorted(est.begin(), est.end()));
  }
}

TEST_F(RitzVectors, EstimatesApproachTheLowestEigenvaluesFromAbove) {
  Ritz r = Make();
  const std::vector<double>& lambda = Shared().reference;
  std::vector<double> previous;
  for (int count : {3, 6, 12, 24, 48}) {
    ASSERT_EQ(Solve(*r, count), 0) << r->GetErrorMessage();
    const std::vector<double> est = Estimates(*r);
    ASSERT_EQ(est.size(), static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)  // Ritz values bound the eigenvalue of the same index
      EXPECT_GE(est[i], lambda[i] * (1 - 1e-10)) << "count " << count << ", estimate " << i;
    for (size_t i = 0; i < previous.size() && i < 3; ++i)  // and come down as the space grows
      EXPECT_LE(est[i], previous[i] * (1 + 1e-12)) << "count " << count << ", estimate " << i;
    previous = est;
  }
  // The lowest five have converged: against dsygv and the Sturm count, through the eigen harness.
  vqtest::EigenCheckOptions o;
  o.valueTolerance = 1e-8, o.expectVectors = false;
  const vqtest::EigenMethod converged = [&](const vqtest::EigenProblem&, int c) {
    return vqtest::EigenOutcome{0, std::vector<double>(previous.begin(), previous.begin() + c), {}};
  };
  vqtest::RunEigenChecks(converged, Shared().e, 5, o);
  // Converged pairs have small residuals.
  VQ_ColVector e1 = r->GetErrNorm1();
  for (int i = 1; i <= 5; ++i) EXPECT_LT(e1[i], 1e-6) << i;
}

TEST_F(RitzVectors, EffectiveMassRatioReachesOneAtTheMassDegreesOfFreedom) {
  Ritz r = Make();
  ASSERT_EQ(Solve(*r, 8), 0);
  VQ_ColVector few = r->GetMeffRatios();
  EXPECT_LT(few[8], 0.9999);
  for (int i = 2; i <= 8; ++i) EXPECT_GE(few[i], few[i - 1]);

  // As many as there are mass degrees of freedom (all of them here).
  ASSERT_EQ(Solve(*r, n_ + 10), 0) << r->GetErrorMessage();
  const int q = r->GetVectorsPtr()->NumCols();
  EXPECT_LE(q, n_);
  VQ_ColVector all = r->GetMeffRatios();
  EXPECT_NEAR(all[q], 1.0, 1e-9);
  VQ_ColVector e2 = r->GetErrNorm2();
  EXPECT_LT(e2[q], 1e-8);  // the load is represented completely
  EXPECT_GT(e2[1], e2[q]);
  // Against an independent computation: Γ₁²/(fᵀMf) of the first vector.
  const std::vector<double> phi = Vectors(*r);
  double gamma = 0, total = 0;
  for (int i = 0; i < n_; ++i) {
    gamma += phi[i] * mass_[i] * load_[i + 1];
    total += load_[i + 1] * mass_[i] * load_[i + 1];
  }
  EXPECT_NEAR(all[1], gamma * gamma / total, 1e-12);
}

// ---- failures and mappings ----------------------------------------------------------------------

TEST(RitzFailures, NoMassOrASingularStiffnessFail) {
  Csr k3 = vqtest::DiagonalCsr({2.0, 3.0, 4.0}), k = vqtest::DiagonalCsr({2.0, 3.0, 0.0, 4.0});
  std::vector<double> none = {1e-9, 0.0, -1e-9}, m(4, 1.0);
  VQ_LDRitzVectors massless(3, VQTEST_CSR(k3), none.data(), 0, -2, false, 0.0);
  EXPECT_EQ(massless.SolveWYD(2, "", nullptr, nullptr, 0), -40);
  EXPECT_EQ(massless.GetStatus(), -40);
  EXPECT_EQ(massless.GetErrorMessage(), "Failed to Find Ritz Vectors");
  EXPECT_EQ(massless.SolveLWYD(0, "", nullptr, nullptr, 0), -40);
  // Equation 3 has no stiffness; as positive definite the factorisation meets the zero pivot.
  VQ_LDRitzVectors singular(4, VQTEST_CSR(k), m.data(), 0, 2, false, 0.0);
  EXPECT_EQ(singular.SolveWYD(2, "", nullptr, nullptr, 0), -3);
  EXPECT_EQ(singular.GetErrorMessage(), "Instability Detected (ill-conditioned matrices)");
  EXPECT_EQ(singular.Get_DOFNumForInstability(), 3);
}

}  // namespace
