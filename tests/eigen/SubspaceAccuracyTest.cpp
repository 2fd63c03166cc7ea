// Subspace iteration against dense LAPACK on generated solids and the real structural matrices:
// the lowest p eigenvalues to 1e-8 relative, residuals ||K phi - lambda M phi|| / ||K phi|| <=
// 1e-6, M-orthonormal vectors; diagonal and sparse (consistent) masses, with and without a starting
// shift, out of core, and with the eigenvalue limit.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "dense/VQ_Matrix.h"
#include "eigen/VQ_SubspaceEigenSparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/EigenSupport.h"

namespace {

using vqtest::EigenProblem;
using vqtest::SubspaceOptions;
using vqtest::SubspaceRun;

void ExpectLowestModes(const EigenProblem& e, const SubspaceRun& r, int p) {
  const std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
  ASSERT_EQ(0, r.constructionStatus) << e.name;
  ASSERT_EQ(0, r.status) << e.name;
  ASSERT_EQ(p, r.found) << e.name;
  EXPECT_EQ(0, r.warning) << e.name << ": " << r.warningMessage;
  for (int i = 0; i < p; ++i)
    EXPECT_LT(vqtest::RelDiff(r.values[i], reference[i]), 1e-8)
        << e.name << " mode " << i + 1 << ": " << r.values[i] << " vs " << reference[i];
  const vqtest::Csr m = e.MassCsr();
  EXPECT_LE(vqtest::EigenResidual(e.k, m, p, r.values.data(), r.vectors.data()), 1e-6) << e.name;
  EXPECT_LE(vqtest::MOrthonormalityError(m, p, r.vectors.data()), 1e-6) << e.name;
}

// ---- generated solids ---------------------------------------------------------------------------

struct SolidCase {
  const char* name;
  int nx, ny, nz;
  bool consistent;
  int p;
  double shift;
  int oocMode;
};

class SubspaceOnSolids : public ::testing::TestWithParam<SolidCase> {};

TEST_P(SubspaceOnSolids, LowestModesMatchLapack) {
  const SolidCase c = GetParam();
  const EigenProblem e = vqtest::SolidProblem(c.nx, c.ny, c.nz, c.consistent);
  SubspaceOptions o;
  o.shift = c.shift;
  o.oocMode = c.oocMode;
  ExpectLowestModes(e, vqtest::RunSubspace(e, c.p, o), c.p);
}

INSTANTIATE_TEST_SUITE_P(
    Generated, SubspaceOnSolids,
    ::testing::Values(SolidCase{"LumpedFewModes", 6, 2, 2, false, 4, 0.0, 0},
                      SolidCase{"LumpedManyModes", 8, 2, 2, false, 20, 0.0, 0},
                      SolidCase{"ConsistentMass", 6, 2, 2, true, 6, 0.0, 0},
                      SolidCase{"LumpedNegativeStartShift", 6, 2, 2, false, 6, -1000.0, 0},
                      SolidCase{"ConsistentNegativeStartShift", 6, 2, 2, true, 5, -1000.0, 0},
                      SolidCase{"OutOfCore", 6, 2, 2, false, 6, 0.0, 2}),
    [](const ::testing::TestParamInfo<SolidCase>& info) { return std::string(info.param.name); });

// The first pass runs at the given shift. Above the lowest mode the projected stiffness is
// indefinite, the reduced Jacobi solution fails at once, and nothing has been found: -21 (the
// entry points then retry with a small negative shift).
TEST(SubspaceShift, StartShiftAboveTheLowestModeFailsWithoutResults) {
  const EigenProblem e = vqtest::SolidProblem(6, 2, 2, false);
  const std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
  SubspaceOptions o;
  o.shift = 0.5 * (reference[1] + reference[2]);
  const SubspaceRun r = vqtest::RunSubspace(e, 3, o);
  EXPECT_EQ(-21, r.status);
  EXPECT_EQ(0, r.found);
}

// ---- other mass forms
// ------------------------------------------------------------------------------

// A dense (general) mass matrix: products and shifts use the full matrix.
TEST(SubspaceMassForms, DenseConsistentMassWithShift) {
  const EigenProblem e = vqtest::SolidProblem(3, 2, 2, true);
  vqtest::Csr k = e.k;
  const std::vector<double> dense = vqtest::Dense(e.mass);
  VQ_SparseSymMatrix K(k.n, k.values.data(), k.rowPointers.data(), k.columnIndices.data());
  VQ_Matrix M(k.n, k.n, const_cast<double*>(dense.data()));
  vqtest::ScratchDir dir;
  VQ_SubspaceEigenSparseSolver solver(&K, &M, 0, -2, 5, dir.Path().c_str(), false, 0.0);
  solver.SetConvergenceTolerance(1e-12);
  ASSERT_EQ(0, solver.SolveSystemIncrementally(5, -2000.0, 0));
  SubspaceRun r;
  r.found = solver.GetNumFoundEigen();
  for (int i = 1; i <= r.found; ++i) r.values.push_back(solver.GetEigenValue(i));
  const VQ_Matrix* v = solver.GetAllEigenVectors();
  r.vectors.assign(v->GetDataPointer(), v->GetDataPointer() + static_cast<size_t>(k.n) * r.found);
  ExpectLowestModes(e, r, 5);
}

// ---- eigenvalue limit ---------------------------------------------------------------------------

TEST(SubspaceLimit, StopsAfterTheFirstValueAboveTheLimit) {
  const EigenProblem e = vqtest::SolidProblem(6, 2, 2, false);
  const std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
  SubspaceOptions o;
  o.limitActive = true;
  o.limit = 0.5 * (reference[2] + reference[3]);  // between modes 3 and 4
  const SubspaceRun r = vqtest::RunSubspace(e, 10, o);
  EXPECT_EQ(0, r.status);
  ASSERT_EQ(4, r.found);  // the fourth, above the limit, stays stored
  for (int i = 0; i < 4; ++i) EXPECT_LT(vqtest::RelDiff(r.values[i], reference[i]), 1e-8);
  EXPECT_GT(r.values[3], o.limit);
}

TEST(SubspaceLimit, KnownSpectrumStopsAtSixty) {
  // Eigenvalues 10, 30, 60, 100, ... with the limit at 50: 10, 30 and 60 are stored.
  const EigenProblem e =
      vqtest::DiagonalProblem({100, 10, 150, 60, 30, 210, 280, 360}, std::vector<double>(8, 1.0));
  SubspaceOptions o;
  o.limitActive = true;
  o.limit = 50.0;
  const SubspaceRun r = vqtest::RunSubspace(e, 6, o);
  EXPECT_EQ(0, r.status);
  ASSERT_EQ(3, r.found);
  EXPECT_NEAR(10.0, r.values[0], 1e-10);
  EXPECT_NEAR(30.0, r.values[1], 1e-10);
  EXPECT_NEAR(60.0, r.values[2], 1e-10);
}

// ---- real structural matrices
// ---------------------------------------------------------------------

struct RealCase {
  const char* number;
  int p;
  double shift;
};

class SubspaceOnRealMatrices : public ::testing::TestWithParam<RealCase> {};

TEST_P(SubspaceOnRealMatrices, LowestModesMatchLapack) {
  VQTEST_REQUIRE_DATA();
  const RealCase c = GetParam();
  EigenProblem e;
  ASSERT_TRUE(vqtest::RealProblem(c.number, e));
  SubspaceOptions o;
  o.shift = c.shift;
  ExpectLowestModes(e, vqtest::RunSubspace(e, c.p, o), c.p);
}

INSTANTIATE_TEST_SUITE_P(HarwellBoeing, SubspaceOnRealMatrices,
                         ::testing::Values(RealCase{"01", 6, 0.0}, RealCase{"02", 8, 0.0},
                                           RealCase{"05", 10, 0.0}, RealCase{"06", 12, 0.0},
                                           RealCase{"07", 8, 0.0}, RealCase{"20", 6, 0.0},
                                           RealCase{"22", 8, 0.0}, RealCase{"06", 6, -1.0},
                                           RealCase{"07", 6, -1.0}),
                         [](const ::testing::TestParamInfo<RealCase>& info) {
                           return std::string("bcsstk") + info.param.number +
                                  (info.param.shift != 0.0 ? "_shifted" : "");
                         });

}  // namespace
