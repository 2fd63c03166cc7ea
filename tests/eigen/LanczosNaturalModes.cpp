// Natural modes by the Lanczos (ARPACK) driver, checked against dense LAPACK on generated solids
// and on the real structural matrices, against exactly known spectra, and for the size rules.
#include <gtest/gtest.h>
#include <mkl_lapacke.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "eigen/internal/ArpackDriver.h"
#include "models/SolidModel.h"
#include "support/EigenHarness.h"
#include "support/LanczosSupport.h"
#include "support/ModelsSupport.h"

namespace {

using vqtest::Csr;
using vqtest::LanczosRun;
using Tuning = vqtest::LanczosTuning;

// Natural modes of K·φ = λ·M·φ, M sparse (m) or diagonal (md when m is null).
LanczosRun Natural(const Csr& k, const Csr* m, const std::vector<double>* md, int requested,
                   const Tuning& tune = {}) {
  return vqtest::RunLanczos(k, m, md, requested, &VQ_LanczosEigenSolver::SolveNaturalModes, tune);
}

std::vector<double> Ramp(int n) {
  std::vector<double> v(n);
  std::iota(v.begin(), v.end(), 1.0);
  return v;
}

// ---- exactly known spectra: diagonal pencils
// -----------------------------------------------------

struct DiagonalCase {
  const char* name;
  std::vector<double> kd, md;
  int requested;
  double shift;
  bool withModes;
  std::vector<double> expected;  // the delivered eigenvalues, ascending
  double tolerance;
};

class LanczosDiagonal : public ::testing::TestWithParam<DiagonalCase> {};

// Each delivered mode is the unit vector of its equation, M-normalised: 1/√m there, 0 elsewhere.
TEST_P(LanczosDiagonal, DeliversTheExpectedEigenpairsAscending) {
  const DiagonalCase& c = GetParam();
  const Csr k = vqtest::DiagonalCsr(c.kd);
  const int n = k.n;
  const LanczosRun run = Natural(k, nullptr, &c.md, c.requested, [&](VQ_LanczosProblem& p) {
    p.shift = c.shift;
    if (!c.withModes) p.modeShapes = nullptr;
  });
  ASSERT_TRUE(vqtest::Delivered(run));
  ASSERT_EQ(run.values.size(), c.expected.size());
  for (size_t i = 0; i < c.expected.size(); ++i) {
    EXPECT_NEAR(run.values[i], c.expected[i], c.tolerance) << "mode " << i + 1;
    if (!c.withModes) continue;
    for (int j = 0; j < n; ++j) {
      const bool own = std::fabs(c.kd[j] / c.md[j] - c.expected[i]) < 1e-9;
      EXPECT_NEAR(std::fabs(run.modes[i * n + j]), own ? 1.0 / std::sqrt(c.md[j]) : 0.0, 1e-10)
          << "mode " << i + 1 << ", equation " << j + 1;
    }
  }
}

std::vector<double> Reversed(std::vector<double> v) {
  std::reverse(v.begin(), v.end());
  return v;
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Spectra, LanczosDiagonal,
    ::testing::Values(
        // K = diag(n…1) (reversed, so that sorting is exercised), M = diag(2): λ_i = i / 2.
        DiagonalCase{"RatiosAscending", Reversed(Ramp(60)), std::vector<double>(60, 2.0), 6, 0.0,
                     true, {0.5, 1.0, 1.5, 2.0, 2.5, 3.0}, 1e-12},
        // σ = 20.4: nearest are 20, 21, 19, 22.
        DiagonalCase{"NearestTheShift", Ramp(40), std::vector<double>(40, 1.0), 4, 20.4,
                     true, {19, 20, 21, 22}, 1e-10},
        DiagonalCase{"EigenvaluesOnly", Ramp(30), std::vector<double>(30, 1.0), 3, 0.0,
                     false, {1, 2, 3}, 1e-12},
        // All n of n requested: ARPACK needs ncv > nev, so n − 1 are computed.
        DiagonalCase{"AllOfNGivesNMinusOne", {3, 4, 7, 12, 19, 28, 39, 52},
                     std::vector<double>(8, 1.0), 8, 0.0, true, {3, 4, 7, 12, 19, 28, 39}, 1e-10}),
    [](const ::testing::TestParamInfo<DiagonalCase>& info) {
      return std::string(info.param.name);
    });
// clang-format on

// ---- generated solids and the real structural matrices --------------------------------------

struct ProblemCase {
  const char* name;
  const char* stem;  // "01" → bcsstk01 / bcsstm01; null: a generated solid of nx × ny × nz
  int nx, ny, nz;
  bool consistent;
  int requested;
};

// The lowest eigenvalues of the inverse form M·φ = μ·K·φ (λ = 1/μ) by dense LAPACK: a second
// reference beside the direct form. On badly graded problems (bcsstk20: λmax/λmin ≈ 4e9) the two
// dense formulations already differ by a few 1e-9; that spread is the accuracy to which the
// reference itself is known.
std::vector<double> InverseFormEigenvalues(const Csr& k, const Csr& m, int count) {
  const int n = k.n;
  std::vector<double> a = vqtest::Dense(m), b = vqtest::Dense(k), mu(n);
  if (LAPACKE_dsygv(LAPACK_COL_MAJOR, 1, 'N', 'U', n, a.data(), n, b.data(), n, mu.data()) != 0)
    return {};
  std::vector<double> lambda;
  for (int i = 0; i < count; ++i) lambda.push_back(1.0 / mu[n - 1 - i]);
  return lambda;
}

class LanczosAgainstLapack : public ::testing::TestWithParam<ProblemCase> {};

// A diagonal mass is run both in compressed rows and as its diagonal.
TEST_P(LanczosAgainstLapack, EigenpairsAgreeWithDenseLapack) {
  const ProblemCase c = GetParam();
  Csr k, m;
  if (c.stem) {
    VQTEST_REQUIRE_DATA();
    std::string error;
    ASSERT_TRUE(
        vqtest::ReadMtx(vqtest::DataFile(std::string("bcsstk") + c.stem + ".mtx"), k, &error))
        << error;
    ASSERT_TRUE(
        vqtest::ReadMtx(vqtest::DataFile(std::string("bcsstm") + c.stem + ".mtx"), m, &error))
        << error;
  } else {
    vqmath::models::SolidParameters sp;
    sp.nx = c.nx;
    sp.ny = c.ny;
    sp.nz = c.nz;
    sp.consistentMass = c.consistent;
    const vqmath::models::SolidModel model(sp);
    k = vqtest::FromModel(model.Stiffness());
    m = c.consistent ? vqtest::FromModel(model.ConsistentMass())
                     : vqtest::DiagonalCsr(model.LumpedMass());
  }
  std::vector<double> vectors;
  const std::vector<double> direct = vqtest::DenseEigenvalues(k, m, &vectors);
  const std::vector<double> inverse = InverseFormEigenvalues(k, m, c.requested);
  ASSERT_EQ(inverse.size(), static_cast<size_t>(c.requested));
  // The accuracy to which the dense reference itself is known (graded problems reach no better).
  vqtest::EigenCheckOptions o;
  o.valueTolerance = 1e-9;
  for (int i = 0; i < c.requested && c.stem; ++i)
    o.valueTolerance = std::max(o.valueTolerance, 10.0 * vqtest::RelDiff(inverse[i], direct[i]));
  o.residualTolerance =
      std::max(1e-8, c.stem ? 10.0 * vqtest::EigenResidual(k, m, c.requested, direct.data(), vectors.data()) : 0.0);
  o.orthonormalityTolerance = 1e-9;
  vqtest::EigenProblem e;
  e.name = c.name;
  e.k = k;
  e.mass = m;

  for (const bool asDiagonal : {false, true}) {
    if (asDiagonal && m.Nnz() != m.n) continue;  // a consistent mass has no diagonal form
    SCOPED_TRACE(asDiagonal ? "diagonal mass" : "mass in compressed rows");
    const std::vector<double> d = vqtest::Diagonal(m);
    LanczosRun run;
    vqtest::RunEigenChecks(
        [&](const vqtest::EigenProblem&, int count) {
          run = asDiagonal ? Natural(k, nullptr, &d, count) : Natural(k, &m, nullptr, count);
          return vqtest::EigenOutcome{run.driverStatus ? run.driverStatus : run.result.status, run.values, run.modes};
        },
        e, c.requested, o);
    // One factorisation, and ARPACK served with one solve per operator application.
    EXPECT_EQ(run.result.factorizations, 1);
    EXPECT_GT(run.result.operatorApplications, c.requested);
  }
}

INSTANTIATE_TEST_SUITE_P(Problems, LanczosAgainstLapack,
                         ::testing::Values(ProblemCase{"LumpedBar", nullptr, 8, 2, 2, false, 10},
                                           ProblemCase{"ConsistentBar", nullptr, 6, 2, 2, true, 8},
                                           ProblemCase{"LumpedPlate", nullptr, 6, 6, 1, false, 12},
                                           ProblemCase{"bcsstk01", "01", 0, 0, 0, false, 10},
                                           ProblemCase{"bcsstk02", "02", 0, 0, 0, false, 10},
                                           ProblemCase{"bcsstk05", "05", 0, 0, 0, false, 12},
                                           ProblemCase{"bcsstk06", "06", 0, 0, 0, false, 15},
                                           ProblemCase{"bcsstk07", "07", 0, 0, 0, false, 15},
                                           ProblemCase{"bcsstk20", "20", 0, 0, 0, false, 10},
                                           ProblemCase{"bcsstk22", "22", 0, 0, 0, false, 10}),
                         [](const ::testing::TestParamInfo<ProblemCase>& info) {
                           return std::string(info.param.name);
                         });

// ---- failures --------------------------------------------------------------------------------

TEST(LanczosFailures, SingularStiffnessReportsTheInstabilityEquation) {
  // Equation 3 has no stiffness at all; as positive definite PARDISO meets the zero pivot.
  const Csr k = vqtest::DiagonalCsr({2.0, 3.0, 0.0, 5.0, 7.0, 11.0});
  const std::vector<double> md(6, 1.0);
  const LanczosRun run =
      Natural(k, nullptr, &md, 2, [](VQ_LanczosProblem& p) { p.matrixType = 2; });
  EXPECT_EQ(run.driverStatus, -9);
  EXPECT_EQ(run.result.status, -3);
  EXPECT_EQ(run.result.message, "Instability Detected (ill-conditioned matrices)");
  EXPECT_EQ(run.result.instabilityEquation, 3);
}

TEST(LanczosFailures, IterationLimitDeliversTheConvergedModesAsPartialResults) {
  // Five well separated eigenvalues below a cluster of 400 within 0.4: one restart cycle resolves
  // the five and none of the 35 requested from the cluster, so ARPACK stops at its iteration limit.
  std::vector<double> kd = {1.0, 2.0, 3.0, 4.0, 5.0}, md;
  for (int i = 0; i < 400; ++i) kd.push_back(100.0 + 1e-3 * i);
  md.assign(kd.size(), 1.0);
  const Csr k = vqtest::DiagonalCsr(kd);
  const LanczosRun run = Natural(k, nullptr, &md, 40, [](VQ_LanczosProblem& p) {
    p.maxIterations = 1;
    p.modeShapes = nullptr;
  });
  EXPECT_EQ(run.driverStatus, -11);
  EXPECT_EQ(run.result.status, -22);
  EXPECT_EQ(run.result.message, "Not all required EigenValues were found");
  ASSERT_EQ(run.result.found, 5);
  for (int q = 0; q < 5; ++q) EXPECT_NEAR(run.values[q], q + 1.0, 1e-9);  // ascending, the lowest five
}

}  // namespace
