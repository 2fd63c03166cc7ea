// Eigen-solver base machinery: factorisation helpers and their status mapping, the rigid-body
// check, the out-of-core core-size rule, Rayleigh quotient, M-weighted Gram-Schmidt, work-file
// names, MatrixMarket dumps and the verbose log with its exact lines.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "dense/VQ_ColVector.h"
#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_SymMatrix.h"
#include "eigen/VQ_EigenSolver.h"
#include "eigen/VQ_SubspaceEigenSparseSolver.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/EigenSupport.h"
#include "vqmath.h"

namespace {

bool Exists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

std::string ReadAll(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// K and M of a problem as objects owned by the test.
struct Pair {
  explicit Pair(const vqtest::EigenProblem& e)
      : k(e.k),
        m(e.MassCsr()),
        K(k.n, k.values.data(), k.rowPointers.data(), k.columnIndices.data()),
        M(m.n, m.values.data(), m.rowPointers.data(), m.columnIndices.data()) {}
  vqtest::Csr k, m;
  VQ_SparseSymMatrix K;
  VQ_SparseSymMatrix M;
};

// ---- factorisation
// --------------------------------------------------------------------------------

// Out of core with a core size of 1 MB PARDISO runs short of memory; the factorisation is
// repeated once with the size its report asks for, and that size is published. In core there is
// no retry.
TEST(EigenSolverFactorisation, OutOfCoreRetryEnlargesTheCoreSize) {
  const int saved = VQ_Get_INTEL_MKL_OOC_Max_Core_Size();
  const vqtest::EigenProblem e = vqtest::SolidProblem(20, 4, 4, false);
  Pair pair(e);
  vqtest::ScratchDir dir;

  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(1);
  VQ_SubspaceEigenSparseSolver inCore(&pair.K, &pair.M, 0, -2, 3, dir.Path().c_str(), false, 0.0);
  VQ_SparseSolver* solver = nullptr;
  ASSERT_EQ(0, inCore.CreateSolverAndDecompose("", &solver, false, nullptr));
  EXPECT_EQ(1, VQ_Get_INTEL_MKL_OOC_Max_Core_Size());
  delete solver;
  solver = nullptr;

  VQ_SubspaceEigenSparseSolver outOfCore(&pair.K, &pair.M, 2, -2, 3, dir.Path().c_str(), false,
                                         0.0);
  ASSERT_EQ(0, outOfCore.CreateSolverAndDecompose("", &solver, false, nullptr));
  const int size = VQ_Get_INTEL_MKL_OOC_Max_Core_Size();
  EXPECT_GT(size, 1);
  // At least the permanent memory PARDISO reported needing (kilobytes against megabytes).
  EXPECT_GE(1000LL * size, solver->Get_iParm(15));
  EXPECT_EQ(std::to_string(size), std::getenv("MKL_PARDISO_OOC_MAX_CORE_SIZE"));
  delete solver;

  // A whole run under the small core size: the rigid-body check and the passes retry as well.
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(1);
  vqtest::SubspaceOptions o;
  o.oocMode = 2;
  o.tolerance = 1e-10;
  const vqtest::SubspaceRun r = vqtest::RunSubspace(e, 3, o);
  EXPECT_EQ(0, r.status);
  ASSERT_EQ(3, r.found);
  const std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
  for (int i = 0; i < 3; ++i) EXPECT_LT(vqtest::RelDiff(r.values[i], reference[i]), 1e-8);
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(saved);
}

TEST(EigenSolverRigidBody, RegularStiffnessPasses) {
  Pair pair(vqtest::SolidProblem(4, 2, 2, false));
  vqtest::ScratchDir dir;
  VQ_SubspaceEigenSparseSolver eigen(&pair.K, &pair.M, 0, 2, 3, dir.Path().c_str(), false, 0.0);
  EXPECT_TRUE(eigen.CheckForRigidBodyModes(""));
  EXPECT_EQ(0, eigen.GetStatus());
  EXPECT_EQ(-1, eigen.Get_DOFNumForInstability());
}

TEST(EigenSolverRigidBody, SingularStiffnessFails) {
  Pair pair(vqtest::SolidProblem(4, 2, 2, false, /*clamped=*/false));
  vqtest::ScratchDir dir;
  VQ_SubspaceEigenSparseSolver eigen(&pair.K, &pair.M, 0, -2, 3, dir.Path().c_str(), false, 0.0);
  EXPECT_FALSE(eigen.CheckForRigidBodyModes(""));
  EXPECT_EQ(-3, eigen.GetStatus());
  EXPECT_GE(eigen.Get_DOFNumForInstability(), 1);
  EXPECT_LE(eigen.Get_DOFNumForInstability(), pair.k.n);
}

TEST(EigenSolverRigidBody, IndefiniteStiffnessFails) {
  // K - 2*M with M = I and K = diag(1, 3, 5, 7): one negative pivot.
  vqtest::EigenProblem e = vqtest::DiagonalProblem({1.0, 3.0, 5.0, 7.0}, {1.0, 1.0, 1.0, 1.0});
  for (double& v : e.k.values) v -= 2.0;
  Pair pair(e);
  vqtest::ScratchDir dir;
  VQ_SubspaceEigenSparseSolver eigen(&pair.K, &pair.M, 0, -2, 2, dir.Path().c_str(), false, 0.0);
  EXPECT_FALSE(eigen.CheckForRigidBodyModes(""));
  EXPECT_EQ(-3, eigen.GetStatus());
  EXPECT_GE(eigen.Get_DOFNumForInstability(), 1);
}

TEST(EigenSolverRigidBody, PivotRatioNamesTheDependentEquation) {
  const double a[4] = {4.0, 2.0, 8.0, 1.0};
  const double regular[4] = {4.0, 1.0, 1e-6, 0.5};
  EXPECT_EQ(0, VQ_EigenSolver::SingularPivotEquation(4, a, regular));
  const double singular[4] = {4.0, 1.0, 8e-14, 2e-15};
  EXPECT_EQ(4, VQ_EigenSolver::SingularPivotEquation(4, a, singular));
  const double negative[4] = {4.0, -1.0, 1.0, 1.0};
  EXPECT_EQ(2, VQ_EigenSolver::SingularPivotEquation(4, a, negative));
}

// ---- numerical helpers
// ----------------------------------------------------------------------------

TEST(EigenSolverHelpers, RayleighQuotient) {
  vqtest::Csr k = vqtest::CsrFromDense(3, {2.0, -1.0, 0.0, -1.0, 2.0, -1.0, 0.0, -1.0, 2.0});
  VQ_SparseSymMatrix K(3, k.values.data(), k.rowPointers.data(), k.columnIndices.data());
  VQ_EigenSolver solver;
  VQ_ColVector x(3, 1.0);
  EXPECT_NEAR(2.0 / 3.0, solver.CalculateRayleighQuotient(x, &K), 1e-15);  // x'Kx = 2
  VQ_ColVector y(3);
  y[1] = 1.0;
  y[2] = -2.0;
  y[3] = 1.0;
  EXPECT_NEAR(10.0 / 3.0, solver.CalculateRayleighQuotient(y, &K), 1e-14);  // 20/6
}

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

// ---- files
// ----------------------------------------------------------------------------------------

TEST(EigenSolverFiles, PrintMatricesWritesMassAndStiffness) {
  std::vector<double> m = {2.0, 0.0, 3.0};
  vqtest::Csr k = vqtest::CsrFromDense(3, {4.0, 1.0, 0.0, 1.0, 5.0, 0.0, 0.0, 0.0, 6.0});
  VQ_SparseSymMatrix K(3, k.values.data(), k.rowPointers.data(), k.columnIndices.data());
  VQ_DiagonalMatrix M(3, m.data());
  vqtest::ScratchDir dir;
  VQ_SubspaceEigenSparseSolver solver(&K, &M, 0, -2, 1, dir.Path().c_str(), false, 0.0);
  solver.PrintMatrices(dir.Path().c_str());
  const std::string mass = ReadAll(dir.Path() + "MASSMatrix.mtx");
  EXPECT_EQ(0u, mass.find("%%MatrixMarket matrix coordinate real symmetric \n3 \t 3 \t 3 \n"));
  EXPECT_NE(std::string::npos, mass.find("2 \t 2 \t 0.000000000000000000 \n"));  // zeros kept
  const std::string stiffness = ReadAll(dir.Path() + "STIFFNESSMatrix.mtx");
  EXPECT_EQ(0u, stiffness.find("%%MatrixMarket matrix coordinate real symmetric"));
  EXPECT_NE(std::string::npos, stiffness.find("1 \t 2 \t 1.000000000000000000 \n"));
  // A folder that does not exist is skipped silently.
  solver.PrintMatrices((dir.Path() + "missing/").c_str());
  EXPECT_FALSE(Exists(dir.Path() + "missing/MASSMatrix.mtx"));
}

// ---- verbose log
// ----------------------------------------------------------------------------------

TEST(EigenSolverVerbose, ModeTwoAppendsToTheLogFileAndRemoveDeletesIt) {
  vqtest::ScratchDir dir;
  VQ_EigenSolver solver(10, 2, 0, -2, dir.Path().c_str());
  EXPECT_EQ(dir.Path() + "/verbose.txt", solver.VerboseFilePath());
  solver.SetVerboseMode(2);
  solver.ProcessVerboseInfo4("First : ", 1);
  solver.ProcessVerboseInfo4("Second : ", 2);
  VQ_SymMatrix s(2, 1.0);
  solver.ProcessVerboseInfo5(s);
  const std::string log = ReadAll(solver.VerboseFilePath());
  EXPECT_EQ(0u, log.find("First : 1 \nSecond : 2 \n"));
  EXPECT_NE(std::string::npos, log.find("1.0000000000000000"));  // the matrix's own text
  solver.RemoveVerboseFile();
  EXPECT_FALSE(Exists(solver.VerboseFilePath()));
}

}  // namespace
