// Eigen-solver base machinery: the rigid-body check and M-weighted Gram-Schmidt.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "eigen/VQ_EigenSolver.h"
#include "eigen/VQ_SubspaceEigenSparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/EigenSupport.h"

namespace {

// The rigid-body check factors K alone: a regular K passes, a free body or an indefinite K
// (diag(1, 3, 5, 7) - 2 I: one negative pivot) fails with -3 and an equation.
TEST(EigenSolverRigidBody, OnlyARegularStiffnessPasses) {
  vqtest::EigenProblem indefinite = vqtest::DiagonalProblem({1.0, 3.0, 5.0, 7.0}, {1.0, 1.0, 1.0, 1.0});
  for (double& v : indefinite.k.values) v -= 2.0;
  const struct {
    vqtest::EigenProblem e;
    int matrixType;
    bool passes;
  } cases[] = {{vqtest::SolidProblem(4, 2, 2, false), 2, true},
               {vqtest::SolidProblem(4, 2, 2, false, /*clamped=*/false), -2, false},
               {indefinite, -2, false}};
  vqtest::ScratchDir dir;
  for (const auto& c : cases) {
    vqtest::ObjectPair pair(c.e);
    VQ_SubspaceEigenSparseSolver eigen(&pair.K, pair.M(), 0, c.matrixType, 2, dir.Path().c_str(),
                                       false, 0.0);
    EXPECT_EQ(c.passes, eigen.CheckForRigidBodyModes(""));
    EXPECT_EQ(c.passes ? 0 : -3, eigen.GetStatus());
    const int dof = eigen.Get_DOFNumForInstability();
    EXPECT_TRUE(c.passes ? dof == -1 : dof >= 1 && dof <= pair.e.k.n) << dof;
  }
}

// ---- numerical helpers
// ----------------------------------------------------------------------------

class GramSchmidt : public ::testing::TestWithParam<bool> {};

TEST_P(GramSchmidt, ColumnsBecomeMOrthonormal) {
  const bool sparseMass = GetParam();
  const vqtest::EigenProblem e = vqtest::SolidProblem(3, 2, 2, sparseMass);
  const vqtest::Csr m = e.MassCsr();
  const int n = m.n, count = 5;
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  VQ_Matrix X(n, count + 1);
  for (int j = 1; j <= count + 1; ++j)
    for (int i = 1; i <= n; ++i) X.Ref(i, j) = u(rng);
  std::vector<double> last(X.GetDataPointer() + static_cast<size_t>(n) * count,
                           X.GetDataPointer() + static_cast<size_t>(n) * (count + 1));

  VQ_EigenSolver solver;
  if (sparseMass) {
    vqtest::Csr mm = m;
    VQ_SparseSymMatrix M(n, mm.values.data(), mm.rowPointers.data(), mm.columnIndices.data());
    solver.Gram_Schmidt_Orthogonalization(X, M, count);
  } else {
    std::vector<double> d = e.lumped;
    VQ_DiagonalMatrix M(n, d.data());
    solver.Gram_Schmidt_Orthogonalization(X, M, count);
  }
  EXPECT_LT(vqtest::MOrthonormalityError(m, count, X.GetDataPointer()), 1e-12);
  // Columns past `count` are not touched.
  for (int i = 0; i < n; ++i)
    EXPECT_EQ(last[i], X.GetDataPointer()[static_cast<size_t>(n) * count + i]);
}

INSTANTIATE_TEST_SUITE_P(Masses, GramSchmidt, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& i) {
                           return i.param ? "SparseMass" : "DiagonalMass";
                         });

}  // namespace
