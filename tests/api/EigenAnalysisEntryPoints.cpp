// The eigenvalue analysis entry points driven from plain arrays, checked against dense LAPACK on
// real structural matrices and generated solids, plus the registry rules of the family.
#include <algorithm>
#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/EigenHarness.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

using vqtest::LastMessage;

struct Result {
  int code = 0, found = 0;
  std::vector<double> values, shapes;
};

// Tolerance 1e-12 on the relative eigenvalue change: vectors then carry about six more digits
// than with the default 1e-6 (their error goes with the square root of the eigenvalue change).
Result Subspace(const Csr& k, const std::vector<double>& mass, int nev, double shift = 0.0,
                int allowRigid = 0, double tolerance = 1e-12) {
  Result r;
  r.values.assign(nev, -1.0);
  r.shapes.assign(static_cast<size_t>(k.n) * nev, 0.0);
  r.code = VQ_EigenvalueAnalysis_SubSpaceSolver(k.n, nev, VQTEST_CSR(k), mass.data(), 0, -2, "", 0,
                                                0.0, allowRigid, &r.found, r.values.data(), 1,
                                                r.shapes.data(), shift, 0, nev, tolerance);
  return r;
}

class EigenEntryPoints : public ::testing::Test {
 protected:
  void SetUp() override {
    VQ_SetSolverType(0);
    VQ_InitializeLibrary();
    VQ_Set_INTEL_MKL_NumberOfThreads(2);
  }
};

// The entry point as a method of the eigen harness on the real matrices with a lumped mass. The
// acceptance test is on the eigenvalue's relative change, which goes with the square of the
// vector's error: at 1e-12 the vectors carry about six digits.
TEST_F(EigenEntryPoints, SubspaceLumpedMassMatchesDenseLapack) {
  VQTEST_REQUIRE_DATA();
  for (const char* pair : {"05", "06", "20"}) {
    vqtest::EigenProblem e;
    ASSERT_TRUE(vqtest::RealProblem(pair, e));
    ASSERT_TRUE(e.diagonal());
    vqtest::EigenCheckOptions o;
    o.residualTolerance = 1e-5;
    vqtest::RunEigenChecks(
        [](const vqtest::EigenProblem& p, int nev) {
          const Result r = Subspace(p.k, p.lumped, nev);
          return vqtest::EigenOutcome{r.code, std::vector<double>(r.values.begin(), r.values.begin() + r.found),
                                      r.shapes};
        },
        e, 8, o);
  }
}

TEST_F(EigenEntryPoints, RigidBodyModelGetsAutomaticNegativeShiftWarning) {
  const int n = 30, nev = 5;
  Csr k = vqtest::SpringChain(n, true);
  std::vector<double> mass(n, 1.0);
  Result r = Subspace(k, mass, nev, 0.0, /*allowRigid=*/1);
  ASSERT_EQ(r.code, 0) << LastMessage();
  EXPECT_EQ(VQ_GetLastWarningID(), -24);
  EXPECT_EQ(vqtest::LastWarning().message,
            "Negative shifting applied automatically to find correct Eigenvalues. (Subspace Iteration)\t");
  ASSERT_EQ(r.found, nev);
  EXPECT_LT(std::fabs(r.values[0]), 1e-9);
  for (int q = 1; q < nev; ++q)
    EXPECT_LT(vqtest::RelDiff(r.values[q], vqtest::SpringChainEigenvalue(n, q + 1, true)), 1e-8) << q;
}

TEST_F(EigenEntryPoints, DispatcherRunsEachMethodOnALumpedMass) {
  vqmath::models::SolidModel model({6, 3, 2});
  Csr k = vqtest::FromModel(model.Stiffness());
  const std::vector<double>& mass = model.LumpedMass();
  std::vector<double> ref = vqtest::DenseEigenvalues(k, vqtest::DiagonalCsr(mass));
  const int nev = 4;
  for (int type : {0, 2, 1}) {
    std::vector<double> values(nev), shapes(static_cast<size_t>(k.n) * nev);
    int found = 0;
    int code = VQ_EigenvalueAnalysis(type, k.n, nev, VQTEST_CSR(k), mass.data(), 0, -2, "", 0, 0.0,
                                     0, &found, values.data(), 1, shapes.data(), 0.0, 0.0,
                                     0.5 * (ref[3] + ref[4]), nullptr);
    ASSERT_EQ(code, 0) << "type " << type << ": " << LastMessage();
    ASSERT_EQ(found, nev) << type;
    std::sort(values.begin(), values.end());
    // Ritz vectors from a load of ones are estimates from above; the others are exact.
    for (int q = 0; q < nev; ++q) {
      if (type == 1)
        EXPECT_GE(values[q], ref[q] * (1.0 - 1e-10)) << q;
      else
        EXPECT_LT(vqtest::RelDiff(values[q], ref[q]), 1e-8) << type;
    }
  }
}

TEST_F(EigenEntryPoints, FeastPartialResultsAreCopiedAndAnsweredWithOne) {
  // K = diag(1, 60 values in (2.1, 2.45), 10 values near 4), M = I. Searched in four sub-intervals
  // of [0.5, 4.5]: the first holds only 1; the second holds 60, more than the subspace may grow
  // to for two requested values (3 doubled four times: 48), so it fails after one was collected.
  std::vector<double> d = {1.0};
  for (int q = 0; q < 60; ++q) d.push_back(2.1 + 0.005 * q);
  for (int q = 0; q < 10; ++q) d.push_back(4.0 + 0.01 * q);
  Csr k = vqtest::DiagonalCsr(d), m = vqtest::DiagonalCsr(std::vector<double>(d.size(), 1.0));
  double values[2] = {-1.0, -1.0};
  int found = -1;
  int code = VQ_EigenvalueAnalysis_ExtendedSolver(k.n, 2, VQTEST_CSR(k), VQTEST_CSR(m), 0, -2, "",
                                                  0.5, 4.5, &found, values, 0, nullptr);
  EXPECT_EQ(code, 1);
  EXPECT_EQ(VQ_GetLastErrorID(), -22);
  EXPECT_EQ(LastMessage(), "Partial Results for Eigenvalue Analysis Found");
  ASSERT_EQ(found, 1);
  EXPECT_NEAR(values[0], 1.0, 1e-10);
  EXPECT_EQ(values[1], 0.0);
}

TEST_F(EigenEntryPoints, RitzVectorsSpanTheLowestModesOfALoadedSolid) {
  vqmath::models::SolidModel model({8, 2, 2});
  Csr k = vqtest::FromModel(model.Stiffness());
  const std::vector<double>& mass = model.LumpedMass();
  Csr m = vqtest::DiagonalCsr(mass);
  std::vector<double> ref = vqtest::DenseEigenvalues(k, m);
  std::vector<double> load = model.EndFaceLoad(0.0, 1.0, 1.0);
  for (int type : {0, 1}) {
    VQ_SetRitzVectorSolutionType(type);
    const int nev = 12;
    std::vector<double> values(nev), shapes(static_cast<size_t>(k.n) * nev);
    int found = 0;
    int code = VQ_EigenvalueAnalysis_RitzVectorSolver(k.n, nev, VQTEST_CSR(k), mass.data(), 0, -2,
                                                      "", 0, 0.0, 1, load.data(), 1, &found,
                                                      values.data(), 1, shapes.data());
    ASSERT_EQ(code, 0) << LastMessage();
    ASSERT_GT(found, 0);
    EXPECT_LT(vqtest::MOrthonormalityError(m, found, shapes.data()), 1e-8);
    // Ritz values bound the true eigenvalues from above, index by index, and the lowest one is
    // close: the load excites the first bending modes.
    for (int q = 0; q < found; ++q) EXPECT_GE(values[q], ref[q] * (1.0 - 1e-10)) << q;
    EXPECT_LT(vqtest::RelDiff(values[0], ref[0]), 1e-3);
  }
  VQ_SetRitzVectorSolutionType(1);
}

}  // namespace
