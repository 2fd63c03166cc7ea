// What a factorisation of VQ_SparseSolver reports: inertia (checked against eigenvalues known in
// closed form; the flat Sturm count holds it to dense LAPACK on the real pairs), singular and
// indefinite matrices with the instability equation, the pivoting warning, the diagonals of K and of the factor, and the failure paths of
// the solve (before a factorisation, out of memory).
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include <mkl_lapacke.h>

#include "sparse/VQ_SparseSolver.h"
#include "sparse/internal/PivotOrder.h"
#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

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

TEST_F(SparseSolverFactorization, ShiftedChainCountsEigenvaluesBelowTheShift) {
  const int n = 200;
  const Csr k = vqtest::SpringChain(n);
  const std::vector<double> unitMass(n, 1.0);
  for (int below : {1, 2, 17, 100, 199}) {
    SCOPED_TRACE(below);
    const double sigma = 0.5 * (vqtest::SpringChainEigenvalue(n, below) + vqtest::SpringChainEigenvalue(n, below + 1));
    auto f = Factor(vqtest::ShiftedByDiagonal(k, unitMass, sigma), -2);
    ASSERT_EQ(0, f->status);
    EXPECT_EQ(below, f->solver->Get_NumberOfNegativeEigenvalues());
    EXPECT_EQ(n - below, f->solver->Get_NumberOfPositiveEigenvalues());
  }
}

TEST_F(SparseSolverFactorization, SingularModelReportsInstabilityEquation) {
  const Csr k = vqtest::SolidStiffness(900);
  const int j = 37;
  auto f = Factor(vqtest::WithoutStiffnessAt(k, j), 2);
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
  Csr k = vqtest::SpringChain(8);
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
  Csr k = vqtest::SpringChain(10);
  std::vector<double> b(10, 1.0), x(10, 5.0);
  VQ_SparseSolver s(10, k.values.data(), k.rowPointers.data(), k.columnIndices.data(), 1, b.data(),
                    0, -2, 0, "", x.data());
  EXPECT_EQ(-7, s.Solve());
  EXPECT_EQ(-7, s.GetLastErrorCode());
  EXPECT_EQ(std::vector<double>(10, 1.0), b);
  EXPECT_EQ(std::vector<double>(10, 5.0), x);
  EXPECT_EQ(-84, RegistryCode(s));  // its text, form feed included, is the registry's test
}

}  // namespace
