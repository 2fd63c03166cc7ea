// Subspace iteration against dense LAPACK on generated solids and the real structural matrices:
// the lowest p eigenvalues to 1e-8 relative, residuals ||K phi - lambda M phi|| / ||K phi|| <=
// 1e-6, M-orthonormal vectors; diagonal and sparse (consistent) masses, with and without a starting
// shift, out of core, and with the eigenvalue limit.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dense/VQ_Matrix.h"
#include "eigen/VQ_SubspaceEigenSparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/EigenHarness.h"

namespace {

using vqtest::EigenProblem;
using vqtest::SubspaceOptions;
using vqtest::SubspaceRun;

// The subspace solver as a method of the eigen harness; a warning counts as a failure.
vqtest::EigenMethod Subspace(const SubspaceOptions& o = {}) {
  return [o](const EigenProblem& e, int p) {
    const SubspaceRun r = vqtest::RunSubspace(e, p, o);
    return vqtest::EigenOutcome{r.constructionStatus ? r.constructionStatus : r.status ? r.status : r.warning,
                                r.values, r.vectors};
  };
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
  o.shift = c.shift, o.oocMode = c.oocMode;
  vqtest::RunEigenChecks(Subspace(o), e, c.p);
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
  const vqtest::EigenMethod method = [&](const EigenProblem&, int p) {
    VQ_SubspaceEigenSparseSolver solver(&K, &M, 0, -2, p, dir.Path().c_str(), false, 0.0);
    solver.SetConvergenceTolerance(1e-12);
    vqtest::EigenOutcome out;
    out.status = solver.SolveSystemIncrementally(p, -2000.0, 0);
    for (int i = 1; i <= solver.GetNumFoundEigen(); ++i) out.values.push_back(solver.GetEigenValue(i));
    const VQ_Matrix* v = solver.GetAllEigenVectors();
    out.vectors.assign(v->GetDataPointer(), v->GetDataPointer() + static_cast<size_t>(k.n) * out.values.size());
    return out;
  };
  vqtest::RunEigenChecks(method, e, 5);
}

// ---- eigenvalue limit ---------------------------------------------------------------------------

// The search stops after the first value above the limit, which stays stored: a solid with the
// limit between modes 3 and 4, and eigenvalues 10, 30, 60, 100, ... with the limit at 50.
TEST(SubspaceLimit, StopsAfterTheFirstValueAboveTheLimit) {
  const EigenProblem solid = vqtest::SolidProblem(6, 2, 2, false);
  const EigenProblem known =
      vqtest::DiagonalProblem({100, 10, 150, 60, 30, 210, 280, 360}, std::vector<double>(8, 1.0));
  for (const EigenProblem* e : {&solid, &known}) {
    const std::vector<double> reference = vqtest::ReferenceEigenvalues(*e);
    SubspaceOptions o;
    o.limitActive = true;
    o.limit = e == &known ? 50.0 : 0.5 * (reference[2] + reference[3]);
    const int stored = e == &known ? 3 : 4;
    const SubspaceRun r = vqtest::RunSubspace(*e, e == &known ? 6 : 10, o);
    EXPECT_EQ(0, r.status);
    ASSERT_EQ(stored, r.found);
    for (int i = 0; i < stored; ++i)
      EXPECT_LT(vqtest::RelDiff(r.values[i], reference[i]), e == &known ? 1e-11 : 1e-8);
    EXPECT_GT(r.values[stored - 1], o.limit);
  }
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
  vqtest::RunEigenChecks(Subspace(o), e, c.p);
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
