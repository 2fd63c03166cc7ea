// VQ_SparseSolverDirect and VQ_DirectSparseSolver: solutions through the shared harness (in core
// and out of core, one and many right-hand sides, in place and separate), and what they leave in
// the registry: pivot counts, the pivoting warning (singular matrices are the singular-model
// table's), the kept parameters and diagonals, and the out-of-core retry with its core size.

#include <string>
#include <vector>

#include "api/internal/DirectSolverSettings.h"
#include "core/GlobalState.h"
#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

namespace vi = vqmath::internal;
using vqtest::Csr;

using vqtest::LastMessage;

class DirectSolution : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int& p : vi::settings().sparseParams) p = 0;
    VQ_InitializeLibrary();
    VQ_ResetOverrideListSparseSolverParam();
    Reset();
    VQ_SetWorkingDir(dir_.Path().c_str());
  }
  void TearDown() override {
    Reset();
    VQ_SetWorkingDir("");
  }
  static void Reset() {
    VQ_SetSolverType(0);
    VQ_SetSolverMatrixType(-2);
    VQ_Set_INTEL_MKL_OOC_Max_Core_Size(2000);
    vi::settings().sparseParamsSetByHost = false;
    vi::directSolverSettings() = vi::DirectSolverSettings();
  }
  vqtest::ScratchDir dir_;
};

// ---- the harness over both entry points -------------------------------------------------------

struct EntryConfig {
  std::string name;
  bool settingsEntry;  // VQ_SparseSolverDirect (else VQ_DirectSparseSolver)
  int solverType;
  int callingThread;
};

class EntryPointSolver : public vqtest::SolverUnderTest {
 public:
  EntryPointSolver(const EntryConfig& c, const std::string& dir) : c_(c), dir_(dir) {}
  int Factor(const Csr& k) override {
    k_ = k;
    return 0;  // every call of these entry points factors anew
  }
  int Solve(int nrhs, double* b, double* x) override {
    if (c_.settingsEntry) {
      VQ_SetSolverType(c_.solverType);
      vi::directSolverSettings().decompositionInCallingThread = c_.callingThread != 0;
      return VQ_SparseSolverDirect(k_.n, nrhs, VQTEST_CSR(k_), b, 0, x);
    }
    int params[64];
    return VQ_DirectSparseSolver(k_.n, nrhs, VQTEST_CSR(k_), b, c_.solverType, -2, params, 0,
                                 dir_.c_str(), c_.callingThread, 1, x, 0, nullptr, nullptr, 0, 0);
  }

 private:
  EntryConfig c_;
  std::string dir_;
  Csr k_;
};

class DirectSolutionPaths : public DirectSolution, public ::testing::WithParamInterface<EntryConfig> {};

TEST_P(DirectSolutionPaths, GeneratedSolidWithDenseReference) {
  EntryPointSolver s(GetParam(), dir_.Path());
  vqtest::RunSolverChecks(s, vqtest::SolidStiffness(700));
  EXPECT_EQ(0, VQ_GetLastErrorID());
  EXPECT_EQ(0, VQ_GetNumberOfNegativeEigenvalues());
}

INSTANTIATE_TEST_SUITE_P(
    EntryPoints, DirectSolutionPaths,
    ::testing::Values(EntryConfig{"SettingsInCore", true, 0, 0},
                      EntryConfig{"SettingsOutOfCore", true, 2, 0},
                      EntryConfig{"SettingsCallingThread", true, 0, 1},
                      EntryConfig{"ArgumentsInCore", false, 0, 1},
                      EntryConfig{"ArgumentsOutOfCoreWhenNeeded", false, 1, 0},
                      EntryConfig{"ArgumentsOutOfCore", false, 2, 0}),
    [](const ::testing::TestParamInfo<EntryConfig>& info) { return info.param.name; });

// ---- registry, warnings, failures -----------------------------------------------------------

TEST_F(DirectSolution, IndefiniteShiftSolvesWithPivotingWarningAndCounts) {
  const Csr k = vqtest::SolidStiffness(700);
  const std::vector<double> m = vqtest::SolidLumpedMass(700);
  const std::vector<double> lambda = vqtest::DenseEigenvalues(k, vqtest::DiagonalCsr(m));
  const int below = 9;
  const Csr shifted = vqtest::ShiftedByDiagonal(k, m, 0.5 * (lambda[below - 1] + lambda[below]));
  const std::vector<double> f = vqtest::MakeRightHandSides(k.n, 2);
  std::vector<double> b = f, x(f.size());
  ASSERT_EQ(0, VQ_SparseSolverDirect(k.n, 2, VQTEST_CSR(shifted), b.data(), 0, x.data()));
  EXPECT_EQ(below, VQ_GetNumberOfNegativeEigenvalues());
  EXPECT_EQ(k.n - below, VQ_GetNumberOfPositiveEigenvalues());
  EXPECT_EQ(-85, VQ_GetLastWarningID());
  EXPECT_EQ("Pivoting Applied for Small or Zero Pivots. Solution Successfully Completed.", vqtest::LastWarning().message);
  EXPECT_EQ(0, VQ_GetLastErrorID());
  EXPECT_LE(vqtest::RelativeResidual(shifted, x.data(), f.data(), 2), 1e-9);

  // Stop if not positive definite (key 1003): the same matrix fails with its equation.
  vi::directSolverSettings().stopIfNotPosDefinite = true;
  std::vector<double> untouched(f.size(), 3.0);
  b = f;
  EXPECT_EQ(-3, VQ_SparseSolverDirect(k.n, 2, VQTEST_CSR(shifted), b.data(), 0, untouched.data()));
  EXPECT_EQ(-3, VQ_GetLastErrorID());
  EXPECT_EQ("Zero Pivot, Numerical Factoriztion or Iterative Refinement Problem in Sparse Solver",
            LastMessage());
  EXPECT_GE(VQ_GetInstabilityDOF(), 1);
  EXPECT_LE(VQ_GetInstabilityDOF(), k.n);
  EXPECT_EQ(below, VQ_GetNumberOfNegativeEigenvalues());
  EXPECT_EQ(f, b);
  EXPECT_EQ(std::vector<double>(f.size(), 3.0), untouched);
}

TEST_F(DirectSolution, KeptParametersDiagonalsAndHostParameterArray) {
  const Csr k = vqtest::SolidStiffness(700);
  vi::directSolverSettings().collectDiagonals = true;
  VQ_SetGlobalSparseSolverParam(1, 2);  // the host's array is in use from now on
  std::vector<double> b = vqtest::MakeRightHandSides(k.n, 1);
  ASSERT_EQ(0, VQ_SparseSolverDirect(k.n, 1, VQTEST_CSR(k), b.data(), 1, nullptr));
  const vi::DirectSolverSettings& d = vi::directSolverSettings();
  EXPECT_EQ(vqtest::Diagonal(k), d.matrixDiagonal);
  ASSERT_EQ(static_cast<size_t>(k.n), d.factorDiagonal.size());
  for (int i = 0; i < k.n; ++i) {
    EXPECT_GT(d.factorDiagonal[i], 0.0);
    EXPECT_LE(d.factorDiagonal[i], d.matrixDiagonal[i] * (1 + 1e-12));
  }
  EXPECT_GT(d.keptParams[17], k.Nnz());  // non-zeros of the factor
  EXPECT_EQ(k.n, d.keptParams[21]);      // positive pivots
  EXPECT_EQ(d.keptParams[17], VQ_GetGlobalSparseSolverParam(17));

  // VQ_DirectSparseSolver fills the caller's arrays instead.
  std::vector<double> d1(k.n, -1.0), d2(k.n, -1.0);
  int params[64] = {};
  b = vqtest::MakeRightHandSides(k.n, 1);
  ASSERT_EQ(0, VQ_DirectSparseSolver(k.n, 1, VQTEST_CSR(k), b.data(), 0, -2, params, 0, "", 0, 1,
                                     nullptr, 1, d1.data(), d2.data(), 0, 0));
  EXPECT_EQ(vqtest::Diagonal(k), d1);
  EXPECT_EQ(d.factorDiagonal, d2);
  EXPECT_EQ(d.keptParams[17], params[17]);
}

}  // namespace
