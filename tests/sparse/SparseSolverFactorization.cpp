// What a factorisation of VQ_SparseSolver reports: inertia (checked against eigenvalues known in
// closed form and against dense LAPACK), singular and indefinite matrices with the instability
// equation, the pivoting warning, the diagonals of K and of the factor, and the failure paths of
// the solve (before a factorisation, out of memory).
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include <mkl_lapacke.h>

#include "sparse/VQ_SparseSolver.h"
#include "sparse/internal/PardisoWorkspace.h"
#include "sparse/internal/PivotOrder.h"
#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

// Fixed-free chain of n unit springs with unit masses: K = tridiag(-1, 2, -1) with K(n, n) = 1.
// Its eigenvalues are 4 sin^2((2k - 1) pi / (2 (2n + 1))), k = 1..n.
Csr SpringChain(int n) {
  Csr k;
  k.n = n;
  k.rowPointers.push_back(1);
  for (int i = 1; i <= n; ++i) {
    k.columnIndices.push_back(i);
    k.values.push_back(i == n ? 1.0 : 2.0);
    if (i < n) {
      k.columnIndices.push_back(i + 1);
      k.values.push_back(-1.0);
    }
    k.rowPointers.push_back(static_cast<int>(k.values.size()) + 1);
  }
  return k;
}

double ChainEigenvalue(int n, int k) {
  const double s = std::sin((2.0 * k - 1.0) * M_PI / (2.0 * (2.0 * n + 1.0)));
  return 4.0 * s * s;
}

// K with equation j decoupled and without stiffness (a degree of freedom nothing holds).
Csr WithoutStiffnessAt(Csr k, int j) {
  for (int i = 1; i <= k.n; ++i)
    for (int p = k.rowPointers[i - 1] - 1; p < k.rowPointers[i] - 1; ++p)
      if (i == j || k.columnIndices[p] == j) k.values[p] = 0.0;
  return k;
}

struct Factored {
  Csr k;
  std::unique_ptr<VQ_SparseSolver> solver;
  int status = 0;
};

std::unique_ptr<Factored> Factor(const Csr& k, int mtype, bool stop = false) {
  std::unique_ptr<Factored> f(new Factored());
  f->k = k;
  f->solver.reset(new VQ_SparseSolver(0, mtype, false, ""));
  f->solver->Set_StopIfNotPosDefinite(stop);
  f->solver->Set_Matrix(f->k.n, f->k.values.data(), f->k.rowPointers.data(), f->k.columnIndices.data());
  f->status = f->solver->Decomposition(false, true);
  return f;
}

int RegistryCode(const VQ_SparseSolver& s, std::string* message = nullptr) {
  std::string m;
  int code = 12345;
  s.GetSolverErrorInfo(m, code);
  if (message) *message = m;
  return code;
}

class SparseSolverFactorization : public ::testing::Test {
 protected:
  void SetUp() override {
    VQ_InitializeLibrary();
    VQ_ResetOverrideListSparseSolverParam();
  }
};

TEST_F(SparseSolverFactorization, PositiveDefiniteModelHasOnlyPositivePivots) {
  const Csr k = vqtest::SolidStiffness(3000);
  for (int mtype : {-2, 2}) {
    SCOPED_TRACE(mtype);
    auto f = Factor(k, mtype);
    ASSERT_EQ(0, f->status);
    EXPECT_EQ(0, f->solver->Get_NumberOfNegativeEigenvalues());
    EXPECT_EQ(k.n, f->solver->Get_NumberOfPositiveEigenvalues());
    std::string warning;
    int code = 7;
    f->solver->GetSolverWarningInfo(warning, code);
    EXPECT_EQ(0, code);
    EXPECT_EQ("", warning);
  }
}

TEST_F(SparseSolverFactorization, ShiftedChainCountsEigenvaluesBelowTheShift) {
  const int n = 200;
  const Csr k = SpringChain(n);
  const std::vector<double> unitMass(n, 1.0);
  for (int below : {1, 2, 17, 100, 199}) {
    SCOPED_TRACE(below);
    const double sigma = 0.5 * (ChainEigenvalue(n, below) + ChainEigenvalue(n, below + 1));
    auto f = Factor(vqtest::ShiftedByDiagonal(k, unitMass, sigma), -2);
    ASSERT_EQ(0, f->status);
    EXPECT_EQ(below, f->solver->Get_NumberOfNegativeEigenvalues());
    EXPECT_EQ(n - below, f->solver->Get_NumberOfPositiveEigenvalues());
  }
}

TEST_F(SparseSolverFactorization, ShiftedSolidCountsEigenvaluesOfDenseReference) {
  const Csr k = vqtest::SolidStiffness(700);
  const std::vector<double> m = vqtest::SolidLumpedMass(700);
  const std::vector<double> lambda = vqtest::DenseEigenvalues(k, vqtest::DiagonalCsr(m));
  ASSERT_GT(lambda.size(), 40u);
  for (int below : {3, 12, 40}) {
    SCOPED_TRACE(below);
    const double sigma = 0.5 * (lambda[below - 1] + lambda[below]);
    auto f = Factor(vqtest::ShiftedByDiagonal(k, m, sigma), -2);
    ASSERT_EQ(0, f->status);
    EXPECT_EQ(below, f->solver->Get_NumberOfNegativeEigenvalues());
    EXPECT_EQ(k.n - below, f->solver->Get_NumberOfPositiveEigenvalues());
  }
}

TEST_F(SparseSolverFactorization, ShiftedRealStructureCountsEigenvaluesOfDenseReference) {
  VQTEST_REQUIRE_DATA();
  Csr k, m;
  ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile("bcsstk06.mtx"), k));
  ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile("bcsstm06.mtx"), m));
  const std::vector<double> lambda = vqtest::DenseEigenvalues(k, m);
  const std::vector<double> mass = vqtest::Diagonal(m);
  for (int below : {1, 5, 30}) {
    SCOPED_TRACE(below);
    const double sigma = 0.5 * (lambda[below - 1] + lambda[below]);
    auto f = Factor(vqtest::ShiftedByDiagonal(k, mass, sigma), -2);
    ASSERT_EQ(0, f->status);
    EXPECT_EQ(below, f->solver->Get_NumberOfNegativeEigenvalues());
  }
}

TEST_F(SparseSolverFactorization, SingularModelReportsInstabilityEquation) {
  const Csr k = vqtest::SolidStiffness(900);
  const int j = 37;
  auto f = Factor(WithoutStiffnessAt(k, j), 2);
  EXPECT_EQ(-1, f->status);
  EXPECT_EQ(-1, f->solver->GetLastErrorCode());
  EXPECT_EQ(0, f->solver->Get_PardisoError());  // found before PARDISO factors
  EXPECT_EQ(j, f->solver->Get_DOFNumForInstability());
  std::string message;
  EXPECT_EQ(-3, RegistryCode(*f->solver, &message));
  EXPECT_EQ("Instability Detected (Ill-conditioned or Singular Matrix Found)", message);
  // Nothing to solve with after a failed factorisation.
  std::vector<double> b(k.n, 1.0), x(k.n, 0.0);
  f->solver->Set_LoadVector(0, 1, b.data());
  f->solver->Set_ResultVector(x.data());
  EXPECT_EQ(-7, f->solver->Solve());
  EXPECT_EQ(std::vector<double>(k.n, 0.0), x);
}

TEST_F(SparseSolverFactorization, IndefiniteWithStopReportsInstabilityFromPositiveDefiniteRetry) {
  // Diagonal 2 everywhere except -1 at equation 3, coupled to its neighbours.
  Csr k = SpringChain(8);
  for (double& v : k.values) v = v > 0 ? 4.0 : -1.0;
  k.values[k.rowPointers[2] - 1] = -1.0;
  auto f = Factor(k, -2, true);
  EXPECT_EQ(-1, f->status);
  EXPECT_GT(f->solver->Get_NumberOfNegativeEigenvalues(), 0);
  EXPECT_EQ(3, f->solver->Get_DOFNumForInstability());
  EXPECT_EQ(-3, RegistryCode(*f->solver));

  auto g = Factor(k, -2, false);
  EXPECT_EQ(0, g->status);
  EXPECT_EQ(1, g->solver->Get_NumberOfNegativeEigenvalues());
  std::string warning;
  int code = 0;
  g->solver->GetSolverWarningInfo(warning, code);
  EXPECT_EQ(-1, code);
  EXPECT_EQ("Pivoting Applied for Small or Zero Pivots. Solution Successfully Completed.", warning);
  // The indefinite factorisation still solves.
  std::vector<double> b = vqtest::MakeRightHandSides(k.n, 1), x(k.n);
  g->solver->Set_LoadVector(0, 1, b.data());
  g->solver->Set_ResultVector(x.data());
  ASSERT_EQ(0, g->solver->Solve());
  EXPECT_LE(vqtest::RelativeResidual(k, x.data(), b.data(), 1), 1e-12);
}

TEST_F(SparseSolverFactorization, DiagonalsComeBackInEquationOrder) {
  const Csr k = vqtest::SolidStiffness(600);
  std::vector<double> da(k.n, -1.0), df(k.n, -1.0);
  Csr kk = k;
  VQ_SparseSolver s(0, -2, false, "");
  s.SetDiagElementsInfo(true, da.data(), df.data());
  EXPECT_EQ(2, s.Get_iParm(4));
  EXPECT_EQ(1, s.Get_iParm(55));
  s.Set_Matrix(kk.n, kk.values.data(), kk.rowPointers.data(), kk.columnIndices.data());
  ASSERT_EQ(0, s.Decomposition(true, true));
  EXPECT_EQ(vqtest::Diagonal(k), da);
  // The factor's diagonal multiplies to det K: compare log det with a dense Cholesky.
  std::vector<double> l = vqtest::Dense(k);
  ASSERT_EQ(0, LAPACKE_dpotrf(LAPACK_COL_MAJOR, 'U', k.n, l.data(), k.n));
  double logDet = 0.0;
  for (int j = 0; j < k.n; ++j) logDet += 2.0 * std::log(l[static_cast<size_t>(j) * k.n + j]);
  double logFactor = 0.0;
  for (double v : df) {
    ASSERT_GT(v, 0.0);
    logFactor += std::log(v);
  }
  EXPECT_NEAR(logDet, logFactor, 1e-9 * std::fabs(logDet));
  // In equation order each pivot of an SPD matrix is its diagonal entry minus a non-negative
  // amount, so it cannot exceed the diagonal entry of the same equation.
  for (int i = 0; i < k.n; ++i) EXPECT_LE(df[i], da[i] * (1.0 + 1e-12)) << "equation " << i + 1;
}

// Regression: with diagonal pivoting (iparm[20] = 0, the library's global default) PARDISO
// reorders pivots within a block after the analysis, and mapping through the analysis
// permutation alone put diagonal entries at the wrong equations.
TEST_F(SparseSolverFactorization, DiagonalsFollowPivotExchangesWithinBlocks) {
  // 2x2 SPD blocks [a b; b c]: whichever equation of a block goes first keeps its diagonal entry
  // as pivot, the other gets the Schur complement, so a misplaced entry is recognisable.
  const int blocks = 300;
  std::vector<double> dense(static_cast<size_t>(4) * blocks * blocks, 0.0);
  const int n = 2 * blocks;
  std::vector<double> a(blocks), b(blocks), c(blocks);
  for (int q = 0; q < blocks; ++q) {
    a[q] = 2.0 + (q % 7);
    c[q] = 2.0 + ((q * 5) % 11);
    b[q] = 0.5 * std::sqrt(a[q] * c[q]) * ((q % 3) - 1.0 + 0.5);
    const int i = 2 * q, j = 2 * q + 1;
    dense[static_cast<size_t>(i) * n + i] = a[q];
    dense[static_cast<size_t>(j) * n + j] = c[q];
    dense[static_cast<size_t>(j) * n + i] = b[q];
    dense[static_cast<size_t>(i) * n + j] = b[q];
  }
  Csr k = vqtest::CsrFromDense(n, dense);
  for (int pivoting : {0, 1}) {
    SCOPED_TRACE(pivoting);
    VQ_ResetOverrideListSparseSolverParam();
    VQ_OverrideDefaultSparseSolverParam(20, pivoting);
    std::vector<double> da(n), df(n);
    VQ_SparseSolver s(0, -2, false, "");
    s.SetDiagElementsInfo(true, da.data(), df.data());
    s.Set_Matrix(k.n, k.values.data(), k.rowPointers.data(), k.columnIndices.data());
    ASSERT_EQ(0, s.Decomposition(true, true));
    EXPECT_EQ(vqtest::Diagonal(k), da);
    for (int q = 0; q < blocks; ++q) {
      const double d1 = df[2 * q], d2 = df[2 * q + 1];
      const double schur1 = a[q] - b[q] * b[q] / c[q];  // of equation 1 after equation 2
      const double schur2 = c[q] - b[q] * b[q] / a[q];  // of equation 2 after equation 1
      auto near = [](double x, double y) { return std::fabs(x - y) <= 1e-12 * std::fabs(y); };
      const bool firstFirst = near(d1, a[q]) && near(d2, schur2);
      const bool secondFirst = near(d2, c[q]) && near(d1, schur1);
      if (pivoting == 0) {
        EXPECT_TRUE(firstFirst || secondFirst) << "block " << q << ": " << d1 << " " << d2;
      } else {
        // Where Bunch-Kaufman exchanges the rows of a block PARDISO reports the matrix diagonal
        // in analysis order, so the two pivots of such a block cannot be told apart: only the
        // pair is checked.
        const bool swapped = near(d1, c[q]) && near(d2, schur1);
        EXPECT_TRUE(firstFirst || secondFirst || swapped) << "block " << q << ": " << d1 << " " << d2;
      }
    }
  }
  VQ_ResetOverrideListSparseSolverParam();
}

TEST(PivotOrder, BlockExchangesAreMatchedByTheReportedMatrixDiagonal) {
  const int perm[] = {3, 1, 2, 8, 7, 4, 5, 6};
  const double da[] = {12, 10, 11, 17, 16, 15, 14, 13};  // 6, 5, 4 went first in their block
  const double kd[] = {10, 11, 12, 13, 14, 15, 16, 17};
  std::vector<int> eq;
  ASSERT_TRUE(vqmath::internal::EquationsOfPivots(8, perm, da, kd, eq));
  EXPECT_EQ((std::vector<int>{3, 1, 2, 8, 7, 6, 5, 4}), eq);
  const int notPermutation[] = {3, 1, 2, 8, 7, 4, 5, 5};
  EXPECT_FALSE(vqmath::internal::EquationsOfPivots(8, notPermutation, da, kd, eq));
  const double unknown[] = {12, 10, 11, 17, 16, 99, 14, 13};
  EXPECT_FALSE(vqmath::internal::EquationsOfPivots(8, perm, unknown, kd, eq));
}

TEST_F(SparseSolverFactorization, SolveBeforeDecompositionReturnsMinusSevenAndTouchesNothing) {
  Csr k = SpringChain(10);
  std::vector<double> b(10, 1.0), x(10, 5.0);
  VQ_SparseSolver s(10, k.values.data(), k.rowPointers.data(), k.columnIndices.data(), 1, b.data(),
                    0, -2, 0, "", x.data());
  EXPECT_EQ(-7, s.Solve());
  EXPECT_EQ(-7, s.GetLastErrorCode());
  EXPECT_EQ(std::vector<double>(10, 1.0), b);
  EXPECT_EQ(std::vector<double>(10, 5.0), x);
  std::string message;
  EXPECT_EQ(-84, RegistryCode(s, &message));
  ASSERT_EQ(61u, message.size());
  EXPECT_EQ('\f', message[41]);
}

TEST_F(SparseSolverFactorization, OutOfMemoryForAllVectorsFallsBackToOneAtATime) {
  const Csr k = vqtest::SolidStiffness(1500);
  const int nrhs = 5;
  Csr kk = k;
  std::vector<double> f = vqtest::MakeRightHandSides(k.n, nrhs);
  std::vector<double> b = f;
  VQ_SparseSolver s(kk.n, nrhs, 0, -2, false, "", true);
  s.Set_Matrix(kk.n, kk.values.data(), kk.rowPointers.data(), kk.columnIndices.data());
  s.Set_LoadVector(0, nrhs, b.data());
  s.Set_ResultVector(static_cast<double*>(nullptr));
  ASSERT_EQ(0, s.Decomposition(false, true));

  // Work arrays for one vector are granted, for all of them not.
  const long long previous = vqmath::internal::SetSolveWorkspaceLimit(k.n);
  const int status = s.Solve();
  vqmath::internal::SetSolveWorkspaceLimit(previous);
  EXPECT_EQ(0, status);
  EXPECT_LE(vqtest::RelativeResidual(k, b.data(), f.data(), nrhs), 1e-10);

  // Not even one vector: the in-core out-of-memory status and message.
  b = f;
  vqmath::internal::SetSolveWorkspaceLimit(k.n - 1);
  const int failed = s.Solve();
  vqmath::internal::SetSolveWorkspaceLimit(previous);
  EXPECT_EQ(-4, failed);
  std::string message;
  EXPECT_EQ(-81, RegistryCode(s, &message));
  EXPECT_EQ("Not Enough Memory in Sparse Solver", message);
  EXPECT_EQ(f, b);
}

TEST_F(SparseSolverFactorization, RefactorWithoutAnalysisOnNewValues) {
  const Csr k = vqtest::SolidStiffness(1200);
  Csr kk = k;
  VQ_SparseSolver s(0, -2, false, "");
  s.Set_Matrix(kk.n, kk.values.data(), kk.rowPointers.data(), kk.columnIndices.data());
  ASSERT_EQ(0, s.Decomposition(false, true));
  for (double& v : kk.values) v *= 3.0;  // same pattern, new values
  ASSERT_EQ(0, s.Decomposition(false, false));
  std::vector<double> f = vqtest::MakeRightHandSides(k.n, 2), x(2 * static_cast<size_t>(k.n));
  std::vector<double> b = f;
  s.Set_LoadVector(0, 2, b.data());
  s.Set_ResultVector(x.data());
  ASSERT_EQ(0, s.Solve());
  EXPECT_LE(vqtest::RelativeResidual(kk, x.data(), f.data(), 2), 1e-10);
}

TEST_F(SparseSolverFactorization, CopyIsConfiguredButFactorsOnItsOwn) {
  const Csr k = vqtest::SolidStiffness(500);
  Csr kk = k;
  VQ_SparseSolver a(0, -2, false, "");
  a.Set_StopIfNotPosDefinite(true);
  a.Set_Matrix(kk.n, kk.values.data(), kk.rowPointers.data(), kk.columnIndices.data());
  ASSERT_EQ(0, a.Decomposition(true, true));
  VQ_SparseSolver b(a);
  EXPECT_FALSE(b.IsFactorised());
  EXPECT_NE(a.Get_OutOfCorePath(), b.Get_OutOfCorePath());
  std::vector<double> f = vqtest::MakeRightHandSides(k.n, 1), x(k.n);
  std::vector<double> rhs = f;
  b.Set_LoadVector(0, 1, rhs.data());
  b.Set_ResultVector(x.data());
  EXPECT_EQ(-7, b.Solve());
  ASSERT_EQ(0, b.Decomposition(false, true));
  ASSERT_EQ(0, b.Solve());
  EXPECT_LE(vqtest::RelativeResidual(k, x.data(), f.data(), 1), 1e-10);
  // Assignment gives up the target's own factorisation; both stay usable and are released once.
  a = b;
  EXPECT_FALSE(a.IsFactorised());
  ASSERT_EQ(0, a.Decomposition(true, true));
}

}  // namespace
