// Subspace iteration: what a caller sees of its rules (requests lowered to the mass degrees of
// freedom, no-mass detection, K handed back unshifted), passes with the Sturm sequence check, and
// the rigid-body check.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "eigen/VQ_SubspaceEigenSparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/EigenSupport.h"

namespace {

using vqtest::EigenProblem;
using vqtest::SubspaceOptions;
using vqtest::SubspaceRun;

// A diagonal pair held in objects the test owns (K sparse, M diagonal).
vqtest::ObjectPair DiagonalPair(const std::vector<double>& k, const std::vector<double>& m) {
  return vqtest::ObjectPair(vqtest::DiagonalProblem(k, m), false);
}

std::vector<double> Range(int n, double first, double step) {
  std::vector<double> v(n);
  for (int i = 0; i < n; ++i) v[i] = first + step * i;
  return v;
}

// ---- trial-vector counts ------------------------------------------------------------------------

TEST(SubspaceTrialVectorCount, LimitedByMassDegreesOfFreedomAndOrder) {
  std::vector<double> m(50, 0.0);
  for (int i = 0; i < 10; ++i) m[5 * i] = 2.0;  // 10 mass terms
  vqtest::ObjectPair pair = DiagonalPair(Range(50, 1.0, 1.0), m);
  vqtest::ScratchDir dir;
  VQ_SubspaceEigenSparseSolver solver(&pair.K, pair.M(), 0, -2, 20, dir.Path().c_str(), false, 0.0);
  EXPECT_EQ(10, solver.GetNumMassDOF());
  EXPECT_EQ(10, solver.GetNumReqEigen());  // lowered to the mass DOFs
  EXPECT_EQ(10, solver.NumberOfTrialVectors(20));

  vqtest::ObjectPair small = DiagonalPair(Range(5, 1.0, 1.0), std::vector<double>(5, 1.0));
  VQ_SubspaceEigenSparseSolver order(&small.K, small.M(), 0, -2, 9, dir.Path().c_str(), false, 0.0);
  EXPECT_EQ(5, order.GetNumReqEigen());  // lowered to n
  EXPECT_EQ(5, order.NumberOfTrialVectors(3));
}

// ---- no mass
// --------------------------------------------------------------------------------------

TEST(SubspaceNoMass, NoTermAboveTheZeroValueGivesMinus20) {
  vqtest::ObjectPair pair = DiagonalPair(Range(6, 1.0, 1.0), {1e-8, 0.0, -1e-9, 5e-9, 1e-8, 0.0});
  vqtest::ScratchDir dir;
  VQ_SubspaceEigenSparseSolver solver(&pair.K, pair.M(), 0, -2, 3, dir.Path().c_str(), false, 0.0);
  EXPECT_EQ(-20, solver.GetStatus());
  EXPECT_EQ(-20, solver.SolveSystemIncrementally(3, 0.0, 0));
  EXPECT_EQ(0, solver.GetNumFoundEigen());

  // One term just above the zero value is enough.
  vqtest::ObjectPair one = DiagonalPair(Range(6, 1.0, 1.0), {1e-8, 0.0, 0.0, 2e-8, 0.0, 0.0});
  VQ_SubspaceEigenSparseSolver some(&one.K, one.M(), 0, -2, 3, dir.Path().c_str(), false, 0.0);
  EXPECT_EQ(0, some.GetStatus());
  EXPECT_EQ(1, some.GetNumReqEigen());
}

// ---- the eigenvalue store
// -------------------------------------------------------------------------

TEST(SubspaceResults, StiffnessIsHandedBackUnshifted) {
  const EigenProblem e = vqtest::SolidProblem(5, 2, 2, true);
  vqtest::Csr k = e.k, m = e.mass;
  VQ_SparseSymMatrix K(k.n, k.values.data(), k.rowPointers.data(), k.columnIndices.data());
  VQ_SparseSymMatrix M(m.n, m.values.data(), m.rowPointers.data(), m.columnIndices.data());
  vqtest::ScratchDir dir;
  VQ_SubspaceEigenSparseSolver solver(&K, &M, 0, -2, 4, dir.Path().c_str(), false, 0.0);
  ASSERT_EQ(0, solver.SolveSystemIncrementally(4, -500.0, 0));
  ASSERT_EQ(k.Nnz(), K.GetNumberOfNonZeros());
  for (int i = 0; i < k.Nnz(); ++i) EXPECT_EQ(k.values[i], K.GetDataPointer()[i]);
}

// ---- passes, shifts and the Sturm sequence check ------------------------------------------------

TEST(SubspacePasses, SlowModeIsFinishedInAShiftedPass) {
  // Modes 1-7 converge fast, mode 8 barely separates from the cluster above it: the first pass
  // runs out of iterations with 7 modes, the second shifts behind mode 7 and finds mode 8.
  std::vector<double> lambda = Range(7, 1.0, 1.0);
  for (double v : Range(24, 8.0, 0.004)) lambda.push_back(v);
  const EigenProblem e = vqtest::RotatedProblem(lambda, 11);
  SubspaceOptions o;
  o.tolerance = 1e-13;
  const SubspaceRun r = vqtest::RunSubspace(e, 8, o);
  EXPECT_EQ(0, r.status);
  EXPECT_EQ(0, r.warning) << r.warningMessage;
  ASSERT_EQ(8, r.found);
  for (int i = 0; i < 8; ++i) EXPECT_NEAR(lambda[i], r.values[i], 1e-8 * lambda[i]);
  EXPECT_LE(vqtest::EigenResidual(e.k, e.MassCsr(), 8, r.values.data(), r.vectors.data()), 1e-6);

  // One pass only: the run ends with the seven modes of the first pass.
  o.maxPasses = 1;
  EXPECT_EQ(7, vqtest::RunSubspace(e, 8, o).found);
}

TEST(SubspacePasses, MissedModeIsReportedBySturmCheck) {
  // Started at 9.9, above the two lowest modes (1 and 2), the first pass finds 10 and then runs
  // out of iterations on the tight cluster at 12. The second pass shifts behind 10 and factorises
  // K - sigma*M with three negative pivots where one mode was found: warning -23, and the run
  // goes on.
  std::vector<double> lambda = {1.0, 2.0, 10.0};
  for (double v : Range(8, 12.0, 0.001)) lambda.push_back(v);
  for (double v : Range(20, 20.0, 1.0)) lambda.push_back(v);
  const EigenProblem e = vqtest::RotatedProblem(lambda, 5);
  SubspaceOptions o;
  o.shift = 9.9, o.tolerance = 1e-6;
  const SubspaceRun r = vqtest::RunSubspace(e, 2, o);
  EXPECT_EQ(-23, r.warning);
  EXPECT_EQ("Eigenvalue missed (Subspace Iteration)", r.warningMessage);
  EXPECT_EQ(0, r.status);
  ASSERT_EQ(2, r.found);
  EXPECT_NEAR(10.0, r.values[0], 1e-6);
  EXPECT_NEAR(12.0, r.values[1], 1e-2);
}

// ---- the rigid-body check
// -------------------------------------------------------------------------

// (A free body without permission fails in the rigid-body check: the eigen base tests and the
// singular-model table of the entry points.)
TEST(SubspaceRigidBody, AllowedRigidBodyModesAreFoundWithANegativeShift) {
  const EigenProblem e = vqtest::SolidProblem(4, 2, 2, false, /*clamped=*/false);
  const std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
  SubspaceOptions o;
  o.allowRigidBodyModes = true, o.shift = -0.01 * reference[6], o.tolerance = 1e-12;
  const SubspaceRun r = vqtest::RunSubspace(e, 8, o);
  EXPECT_EQ(0, r.status);
  ASSERT_EQ(8, r.found);
  for (int i = 0; i < 6; ++i) EXPECT_LT(std::fabs(r.values[i]), 1e-6 * reference[6]) << i;
  EXPECT_LT(vqtest::RelDiff(r.values[6], reference[6]), 1e-8);
  EXPECT_LT(vqtest::RelDiff(r.values[7], reference[7]), 1e-8);
}

}  // namespace
