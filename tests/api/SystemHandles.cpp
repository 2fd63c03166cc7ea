// System-matrix and system-vector handles (their element assembly is the eigen tests' on handles):
// the reserved pattern, solutions through the shared harness (single, several
// right-hand sides on one factorisation, the kept solver of VQ_SysMatrixSolveAdvanced, Resolve),
// products, keyed parameters, vector operations and the empty solution-procedure family.
#include <algorithm>
#include <vector>

#include "api/internal/SystemHandles.h"
#include "core/GlobalState.h"
#include "support/ModelsSupport.h"
#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

namespace vi = vqmath::internal;
using vqtest::Csr;


using vqtest::SysVectorOf;

void CopyOut(VQ_SysVectorHandle h, double* out) {
  const std::vector<double> v = vqtest::SysVectorValues(h);
  std::copy(v.begin(), v.end(), out);
}

class SystemHandles : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int& p : vi::settings().sparseParams) p = 0;
    VQ_SetSolverType(0);
    VQ_SetSolverMatrixType(-2);
    VQ_InitializeLibrary();
    VQ_ResetOverrideListSparseSolverParam();
    vi::settings().sparseParamsSetByHost = false;
    VQ_ReleaseLibrary();
  }
  void TearDown() override {
    VQ_ReleaseLibrary();
    VQ_SetSolverMatrixType(-2);
    vi::settings().sparseParamsSetByHost = false;
  }
};

// ---- solutions through the harness ----------------------------------------------------------

// VQ_SysMatrixSolve for one load, VQ_SysMatrixSolveMult for several.
class HandleSolver : public vqtest::SolverUnderTest {
 public:
  ~HandleSolver() override { VQ_SysMatrixEnd(h_); }
  int Factor(const Csr& k) override {
    n_ = k.n;
    h_ = vqtest::HandleFromCsr(k);
    return h_ ? 0 : -1;
  }
  int Solve(int nrhs, double* b, double* x) override {
    std::vector<VQ_SysVectorHandle> rhs(nrhs), sol(nrhs);
    for (int j = 0; j < nrhs; ++j) {
      rhs[j] = SysVectorOf(b + static_cast<size_t>(j) * n_, n_);
      sol[j] = x ? VQ_SysVectorBegin() : rhs[j];
    }
    int status = (nrhs == 1) ? VQ_SysMatrixSolve(h_, rhs[0], x ? sol[0] : nullptr)
                             : VQ_SysMatrixSolveMult(h_, nrhs, rhs.data(), sol.data());
    for (int j = 0; j < nrhs; ++j) {
      CopyOut(sol[j], (x ? x : b) + static_cast<size_t>(j) * n_);
      if (x) VQ_SysVectorEnd(sol[j]);
      VQ_SysVectorEnd(rhs[j]);
    }
    return status;
  }

 private:
  int n_ = 0;
  VQ_SysMatrixHandle h_ = nullptr;
};

// VQ_SysMatrixSolveAdvanced: factor on the first call, then new buffers with refactor 1.
class AdvancedSolver : public vqtest::SolverUnderTest {
 public:
  int Factor(const Csr& k) override {
    k_ = k;
    VQ_ReleaseLibrary();
    std::vector<double> b(k.n, 0.0);
    return VQ_SysMatrixSolveAdvanced(k_.n, k_.values.data(), k_.rowPointers.data(),
                                     k_.columnIndices.data(), 1, b.data(), 1, 1, nullptr);
  }
  int Solve(int nrhs, double* b, double* x) override {
    return VQ_SysMatrixSolveAdvanced(k_.n, k_.values.data(), k_.rowPointers.data(),
                                     k_.columnIndices.data(), nrhs, b, 0, 1, x);
  }

 private:
  Csr k_;
};

TEST_F(SystemHandles, SolveAndSolveMultThroughTheHarness) {
  HandleSolver s;
  vqtest::RunSolverChecks(s, vqtest::SolidStiffness(800));
}

TEST_F(SystemHandles, SolveAdvancedThroughTheHarness) {
  AdvancedSolver s;
  vqtest::RunSolverChecks(s, vqtest::SolidStiffness(800));
}

TEST_F(SystemHandles, ResolveKeepsAFactorisationPerHandleUntilTheMatrixChanges) {
  const Csr k = vqtest::SolidStiffness(700);
  VQ_SysMatrixHandle h = vqtest::HandleFromCsr(k);
  const std::vector<double> f = vqtest::MakeRightHandSides(k.n, 1);
  VQ_SysVectorHandle b = SysVectorOf(f.data(), k.n), x = VQ_SysVectorBegin();
  std::vector<double> got(k.n);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(0, VQ_SysMatrixResolve(h, b, x));
    CopyOut(x, got.data());
    EXPECT_LE(vqtest::RelativeResidual(k, got.data(), f.data(), 1), 1e-10);
    EXPECT_NE(nullptr, h->resolveSolver);
  }
  // Doubling the matrix drops the kept factorisation; the next Resolve sees the new values.
  VQ_SysMatrixSum(h, 1.0, h);
  EXPECT_EQ(nullptr, h->resolveSolver);
  ASSERT_EQ(0, VQ_SysMatrixResolve(h, b, x));
  CopyOut(x, got.data());
  for (double& v : got) v *= 2.0;
  EXPECT_LE(vqtest::RelativeResidual(k, got.data(), f.data(), 1), 1e-10);
  VQ_SysVectorEnd(b);
  VQ_SysVectorEnd(x);
  VQ_SysMatrixEnd(h);
}

}  // namespace
