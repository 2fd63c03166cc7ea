// System-matrix and system-vector handles: element assembly against the model generator's own
// stiffness, the reserved pattern, solutions through the shared harness (single, several
// right-hand sides on one factorisation, the kept solver of VQ_SysMatrixSolveAdvanced, Resolve),
// products, keyed parameters, vector operations and the empty solution-procedure family.
#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/GlobalState.h"
#include "api/internal/SystemHandles.h"
#include "models/CsrMatrix.h"
#include "models/SolidModel.h"
#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

namespace vi = vqmath::internal;
using vqtest::Csr;

std::string LastMessage() {
  char* m = VQ_GetLastErrorMessage();
  std::string s = m ? m : "";
  std::free(m);
  return s;
}

// The compressed rows a handle holds, closing its pattern first.
Csr Rows(VQ_SysMatrixHandle h) {
  Csr c;
  double* values = nullptr;
  int* rp = nullptr;
  int* ci = nullptr;
  if (!vi::SystemMatrixArrays(h, c.n, values, rp, ci)) return Csr();
  c.rowPointers.assign(rp, rp + c.n + 1);
  c.columnIndices.assign(ci, ci + rp[c.n] - 1);
  c.values.assign(values, values + rp[c.n] - 1);
  return c;
}

// A handle holding K, assembled entry by entry as two-node "elements" (off-diagonal entries) and
// diagonal contributions.
VQ_SysMatrixHandle AssembleFromCsr(const Csr& k) {
  VQ_SysMatrixHandle h = VQ_SysMatrixBegin();
  VQ_SysMatrixDef(h, 0, k.n);
  for (int i = 1; i <= k.n; ++i)
    for (int p = k.rowPointers[i - 1]; p < k.rowPointers[i] - 1; ++p) {
      const int dofs[2] = {i, k.columnIndices[p]};
      VQ_SysMatrixPreAssem(h, 2, dofs);
    }
  for (int i = 1; i <= k.n; ++i) {
    for (int p = k.rowPointers[i - 1]; p < k.rowPointers[i] - 1; ++p) {
      const int dofs[2] = {i, k.columnIndices[p]};
      const double packed[3] = {0.0, k.values[p], 0.0};  // local (1,1), (1,2), (2,2)
      VQ_SysMatrixAssem(h, 2, dofs, packed);
    }
    const double d = k.values[k.rowPointers[i - 1] - 1];
    VQ_SysMatrixAssemDiag(h, 1, &i, &d);
  }
  return h;
}

VQ_SysVectorHandle VectorOf(const double* v, int n) {
  VQ_SysVectorHandle h = VQ_SysVectorCreate(n, 0.0);
  std::vector<int> dofs(n);
  for (int i = 0; i < n; ++i) dofs[i] = i + 1;
  VQ_SysVectorScatter(h, n, dofs.data(), v);
  return h;
}

void CopyOut(VQ_SysVectorHandle h, double* out, int n) {
  std::vector<int> dofs(n);
  for (int i = 0; i < n; ++i) dofs[i] = i + 1;
  VQ_SysVectorGather(h, n, dofs.data(), out);
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

// ---- assembly -----------------------------------------------------------------------------

TEST_F(SystemHandles, ElementAssemblyReproducesTheModelStiffness) {
  vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(900));
  const vqmath::models::CsrMatrix& k = model.Stiffness();
  VQ_SysMatrixHandle h = VQ_SysMatrixBegin();
  VQ_SysMatrixDef(h, 0, k.n);
  int n = 0;
  EXPECT_EQ(k.n, VQ_SysMatrixInq(h, 0, &n));
  EXPECT_EQ(k.n, n);
  for (int e = 0; e < model.NumElements(); ++e) {
    int dofs[24];
    model.ElementEquations(e, dofs);
    VQ_SysMatrixPreAssem(h, 24, dofs);
  }
  for (int e = 0; e < model.NumElements(); ++e) {
    int dofs[24];
    model.ElementEquations(e, dofs);  // 0 for the clamped face: skipped
    const std::vector<double> ke = model.ElementStiffness(e);
    const std::vector<double> packed = vqmath::models::PackUpperByColumns(ke.data(), 24);
    VQ_SysMatrixAssem(h, 24, dofs, packed.data());
  }
  const Csr assembled = Rows(h);
  ASSERT_EQ(k.rowPointers, assembled.rowPointers);
  ASSERT_EQ(k.columnIndices, assembled.columnIndices);
  double worst = 0.0, scale = 0.0;
  for (size_t p = 0; p < k.values.size(); ++p) {
    worst = std::fmax(worst, std::fabs(k.values[p] - assembled.values[p]));
    scale = std::fmax(scale, std::fabs(k.values[p]));
  }
  EXPECT_LE(worst, 1e-12 * scale);
  VQ_SysMatrixEnd(h);
}

TEST_F(SystemHandles, PreAssemblyReservesThePairsOfAnElement) {
  VQ_SysMatrixHandle h = VQ_SysMatrixBegin();
  VQ_SysMatrixDef(h, 0, 4);
  const int dofs[3] = {3, 0, 1};
  VQ_SysMatrixPreAssem(h, 3, dofs);
  // An element on (2, 4): its diagonal entries are in the closed pattern (every equation gets
  // one), its coupling (2, 4) is not reserved and is skipped without notice.
  const int other[2] = {2, 4};
  const double packed[3] = {1.0, 2.0, 3.0};
  VQ_SysMatrixAssem(h, 2, other, packed);
  Csr c = Rows(h);
  EXPECT_EQ((std::vector<int>{1, 3, 4, 5, 6}), c.rowPointers);
  EXPECT_EQ((std::vector<int>{1, 3, 2, 3, 4}), c.columnIndices);
  EXPECT_EQ((std::vector<double>{0.0, 0.0, 1.0, 0.0, 3.0}), c.values);

  // With dofs (3, 1) the packed entry 2 (local (1, 2)) lands at global (1, 3).
  const int pair[2] = {3, 1};
  const double element[3] = {10.0, 20.0, 30.0};
  VQ_SysMatrixAssem(h, 2, pair, element);
  c = Rows(h);
  EXPECT_EQ((std::vector<double>{30.0, 20.0, 1.0, 10.0, 3.0}), c.values);

  // More pre-assembly later reopens the pattern and keeps what was assembled.
  VQ_SysMatrixPreAssem(h, 2, other);
  VQ_SysMatrixAssem(h, 2, other, packed);
  c = Rows(h);
  EXPECT_EQ((std::vector<int>{1, 3, 5, 6, 7}), c.rowPointers);
  EXPECT_EQ((std::vector<int>{1, 3, 2, 4, 3, 4}), c.columnIndices);
  EXPECT_EQ((std::vector<double>{30.0, 20.0, 2.0, 2.0, 10.0, 6.0}), c.values);

  const int diagonal[2] = {4, 0};
  const double extra[2] = {0.5, 99.0};
  VQ_SysMatrixAssemDiag(h, 2, diagonal, extra);
  EXPECT_EQ(6.5, Rows(h).values.back());
  VQ_SysMatrixEnd(h);
}

TEST_F(SystemHandles, ValuesSumsCloneColumnAndDiagonal) {
  const Csr k = vqtest::SolidStiffness(300);
  VQ_SysMatrixHandle h = AssembleFromCsr(k);
  VQ_SysMatrixHandle c = VQ_SysMatrixClone(h);
  ASSERT_NE(nullptr, c);
  EXPECT_EQ(k.values, Rows(c).values);
  VQ_SysMatrixSum(c, -2.0, h);  // c = -K
  for (size_t p = 0; p < k.values.size(); ++p) EXPECT_EQ(-k.values[p], Rows(c).values[p]);
  VQ_SysMatrixInit(c, 1.5);
  EXPECT_EQ(std::vector<double>(k.values.size(), 1.5), Rows(c).values);
  EXPECT_EQ(k.values, Rows(h).values);

  VQ_SysVectorHandle v = VQ_SysVectorBegin();
  ASSERT_EQ(0, VQ_SysMatrixColumn(h, 7, v));
  std::vector<double> column(k.n), dense = vqtest::Dense(k);
  CopyOut(v, column.data(), k.n);
  for (int i = 0; i < k.n; ++i) EXPECT_EQ(dense[static_cast<size_t>(6) * k.n + i], column[i]);
  EXPECT_EQ(-64, VQ_SysMatrixColumn(h, k.n + 1, v));
  EXPECT_EQ(-64, VQ_SysMatrixColumn(h, 0, v));
  ASSERT_EQ(0, VQ_SysMatrixDiag(h, v));
  std::vector<double> diagonal(k.n);
  CopyOut(v, diagonal.data(), k.n);
  EXPECT_EQ(vqtest::Diagonal(k), diagonal);
  VQ_SysVectorEnd(v);
  VQ_SysMatrixEnd(c);
  VQ_SysMatrixEnd(h);
  VQ_SysMatrixEnd(nullptr);
  EXPECT_EQ(nullptr, VQ_SysMatrixClone(nullptr));
}

TEST_F(SystemHandles, ProductsWithHandlesAndArrays) {
  const Csr k = vqtest::SolidStiffness(600);
  VQ_SysMatrixHandle h = AssembleFromCsr(k);
  const std::vector<double> x = vqtest::MakeRightHandSides(k.n, 1);
  std::vector<double> expected(k.n);
  vqtest::Multiply(k, x.data(), expected.data());
  VQ_SysVectorHandle xv = VectorOf(x.data(), k.n);
  for (int method : {0, 1}) {
    VQ_SysVectorHandle y = VQ_SysVectorBegin();  // one entry: sized by the product
    VQ_SysMatrixProd(h, xv, y, method);
    std::vector<double> got(k.n), arrays(k.n);
    ASSERT_EQ(k.n, VQ_SysVectorInq(y, nullptr));
    CopyOut(y, got.data(), k.n);
    VQ_SysMatrixProd2(h, x.data(), arrays.data(), method);
    for (int i = 0; i < k.n; ++i) {
      EXPECT_NEAR(expected[i], got[i], 1e-12 * std::fabs(expected[i]) + 1e-3);
      EXPECT_EQ(got[i], arrays[i]);
    }
    VQ_SysVectorEnd(y);
  }
  VQ_SysVectorEnd(xv);
  VQ_SysMatrixEnd(h);
}

// ---- solutions through the harness ----------------------------------------------------------

// VQ_SysMatrixSolve for one load, VQ_SysMatrixSolveMult for several.
class HandleSolver : public vqtest::SolverUnderTest {
 public:
  ~HandleSolver() override { VQ_SysMatrixEnd(h_); }
  int Factor(const Csr& k) override {
    n_ = k.n;
    h_ = AssembleFromCsr(k);
    return h_ ? 0 : -1;
  }
  int Solve(int nrhs, double* b, double* x) override {
    std::vector<VQ_SysVectorHandle> rhs(nrhs), sol(nrhs);
    for (int j = 0; j < nrhs; ++j) {
      rhs[j] = VectorOf(b + static_cast<size_t>(j) * n_, n_);
      sol[j] = x ? VQ_SysVectorBegin() : rhs[j];
    }
    int status = (nrhs == 1) ? VQ_SysMatrixSolve(h_, rhs[0], x ? sol[0] : nullptr)
                             : VQ_SysMatrixSolveMult(h_, nrhs, rhs.data(), sol.data());
    for (int j = 0; j < nrhs; ++j) {
      CopyOut(sol[j], (x ? x : b) + static_cast<size_t>(j) * n_, n_);
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

TEST_F(SystemHandles, KeptSolverReusesItsFactorisationAndBuffers) {
  Csr k = vqtest::SolidStiffness(1000);
  const Csr original = k;
  const std::vector<double> f1 = vqtest::MakeRightHandSides(k.n, 2, 1);
  const std::vector<double> f2 = vqtest::MakeRightHandSides(k.n, 2, 2);
  std::vector<double> b = f1, x(f1.size());
  ASSERT_EQ(0, VQ_SysMatrixSolveAdvanced(k.n, k.values.data(), k.rowPointers.data(),
                                         k.columnIndices.data(), 2, b.data(), 0, 0, x.data()));
  EXPECT_EQ(k.n, VQ_GetNumberOfPositiveEigenvalues());
  EXPECT_LE(vqtest::RelativeResidual(original, x.data(), f1.data(), 2), 1e-10);

  // refactor 0: the array arguments are ignored (here: nonsense), the host refilled the buffers of
  // the first call, and the kept factorisation of the original K answers even though the host
  // has since changed K's values.
  for (double& v : k.values) v *= 2.0;
  b = f2;
  std::vector<double> elsewhere(f1.size(), 5.0);
  ASSERT_EQ(0, VQ_SysMatrixSolveAdvanced(-1, nullptr, nullptr, nullptr, 7, elsewhere.data(), 0, 0,
                                         elsewhere.data()));
  EXPECT_EQ(std::vector<double>(f1.size(), 5.0), elsewhere);
  EXPECT_LE(vqtest::RelativeResidual(original, x.data(), f2.data(), 2), 1e-10);

  // refactor 1: new values on the kept pattern.
  b = f1;
  ASSERT_EQ(0, VQ_SysMatrixSolveAdvanced(k.n, k.values.data(), k.rowPointers.data(),
                                         k.columnIndices.data(), 2, b.data(), 1, 1, x.data()));
  EXPECT_LE(vqtest::RelativeResidual(k, x.data(), f1.data(), 2), 1e-10);

  // After the release the next call builds and factors a new solver.
  VQ_ReleaseLibrary();
  EXPECT_EQ(nullptr, vi::settings().keptSolver);
  b = f2;
  ASSERT_EQ(0, VQ_SysMatrixSolveAdvanced(k.n, k.values.data(), k.rowPointers.data(),
                                         k.columnIndices.data(), 2, b.data(), 0, 0, nullptr));
  EXPECT_LE(vqtest::RelativeResidual(k, b.data(), f2.data(), 2), 1e-10);
}

TEST_F(SystemHandles, ResolveKeepsAFactorisationPerHandleUntilTheMatrixChanges) {
  const Csr k = vqtest::SolidStiffness(700);
  VQ_SysMatrixHandle h = AssembleFromCsr(k);
  const std::vector<double> f = vqtest::MakeRightHandSides(k.n, 1);
  VQ_SysVectorHandle b = VectorOf(f.data(), k.n), x = VQ_SysVectorBegin();
  std::vector<double> got(k.n);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(0, VQ_SysMatrixResolve(h, b, x));
    CopyOut(x, got.data(), k.n);
    EXPECT_LE(vqtest::RelativeResidual(k, got.data(), f.data(), 1), 1e-10);
    EXPECT_NE(nullptr, h->resolveSolver);
  }
  // Doubling the matrix drops the kept factorisation; the next Resolve sees the new values.
  VQ_SysMatrixSum(h, 1.0, h);
  EXPECT_EQ(nullptr, h->resolveSolver);
  ASSERT_EQ(0, VQ_SysMatrixResolve(h, b, x));
  CopyOut(x, got.data(), k.n);
  for (double& v : got) v *= 2.0;
  EXPECT_LE(vqtest::RelativeResidual(k, got.data(), f.data(), 1), 1e-10);
  VQ_SysVectorEnd(b);
  VQ_SysVectorEnd(x);
  VQ_SysMatrixEnd(h);
}

TEST_F(SystemHandles, SolvingReportsThroughTheRegistry) {
  const Csr k = vqtest::SolidStiffness(400);
  VQ_SysMatrixHandle h = AssembleFromCsr(k);
  VQ_SysVectorHandle wrong = VQ_SysVectorCreate(k.n + 1, 1.0);
  EXPECT_EQ(-64, VQ_SysMatrixSolve(h, wrong, nullptr));
  EXPECT_EQ(-64, VQ_GetLastErrorID());
  EXPECT_EQ(-64, VQ_SysMatrixSolve(nullptr, wrong, nullptr));
  EXPECT_EQ(-64, VQ_SysMatrixSolveMult(h, 1, &wrong, &wrong));
  VQ_SysVectorEnd(wrong);

  // Count 0: factors, solves nothing, succeeds.
  EXPECT_EQ(0, VQ_SysMatrixSolveMult(h, 0, nullptr, nullptr));
  EXPECT_EQ(k.n, VQ_GetNumberOfPositiveEigenvalues());

  // An equation that no element reaches has no stiffness: singular, with its number.
  VQ_SysMatrixHandle g = VQ_SysMatrixBegin();
  VQ_SysMatrixDef(g, 0, 3);
  const int dofs[2] = {1, 3};
  const double ke[3] = {2.0, -1.0, 2.0};
  VQ_SysMatrixPreAssem(g, 2, dofs);
  VQ_SysMatrixAssem(g, 2, dofs, ke);
  VQ_SetSolverMatrixType(2);
  VQ_SysVectorHandle r = VQ_SysVectorCreate(3, 1.0);
  EXPECT_EQ(-3, VQ_SysMatrixSolve(g, r, nullptr));
  EXPECT_EQ(-3, VQ_GetLastErrorID());
  EXPECT_EQ(2, VQ_GetInstabilityDOF());
  EXPECT_EQ("Zero Pivot, Numerical Factoriztion or Iterative Refinement Problem in Sparse Solver", LastMessage());

  VQ_SysVectorEnd(r);
  VQ_SysMatrixEnd(g);
  VQ_SysMatrixEnd(h);
}

// ---- parameters, vectors, the empty family ---------------------------------------------------

TEST_F(SystemHandles, KeyedParameters) {
  VQ_SetEigenSolverType(0);
  VQ_SysMatrixSetParami(nullptr, 93, 9);
  EXPECT_EQ(1, VQ_GetEigenSolverType());
  VQ_SysMatrixSetParami(nullptr, 93, 10);
  EXPECT_EQ(2, VQ_GetEigenSolverType());
  VQ_SysMatrixSetParami(nullptr, 93, 6);
  EXPECT_EQ(2, VQ_GetEigenSolverType());
  VQ_SysMatrixSetParami(nullptr, 93, 5);
  EXPECT_EQ(0, VQ_GetEigenSolverType());

  VQ_SysMatrixSetParami(nullptr, 23, 3);
  EXPECT_FALSE(vi::settings().sparseParamsSetByHost);
  VQ_SysMatrixSetParami(nullptr, 23, 2);
  EXPECT_EQ(2, VQ_GetGlobalSparseSolverParam(59));
  EXPECT_TRUE(vi::settings().sparseParamsSetByHost);
  VQ_SysMatrixSetParami(nullptr, 18, 321);
  EXPECT_EQ(321, VQ_Get_INTEL_MKL_OOC_Max_Core_Size());
  EXPECT_STREQ("321", std::getenv("MKL_PARDISO_OOC_MAX_CORE_SIZE"));
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(2000);

  VQ_SysMatrixSetParamd(nullptr, 6, 55.5);
  EXPECT_TRUE(vi::settings().subspaceLimitActive);
  EXPECT_EQ(55.5, vi::settings().subspaceLimit);

  VQ_SetGlobalSparseSolverParam(17, 4711);
  VQ_SetGlobalSparseSolverParam(29, 13);
  int value = -1;
  VQ_SysMatrixGetInteger(nullptr, 4, &value);
  EXPECT_EQ(4711, value);
  VQ_SysMatrixGetInteger(nullptr, 7, &value);
  EXPECT_EQ(13, value);
  VQ_SysMatrixGetInteger(nullptr, 15, &value);
  EXPECT_EQ(1, value);
  VQ_SysMatrixGetInteger(nullptr, 99, &value);
  EXPECT_EQ(0, value);
  double d = 1.0;
  VQ_SysMatrixGetDouble(nullptr, 1, &d);
  EXPECT_EQ(0.0, d);
  long long l = 1;
  VQ_SysMatrixGetLong(nullptr, 1, &l);
  EXPECT_EQ(0, l);
  EXPECT_EQ(0, VQ_SysMatrixError());

  struct Call {
    VQ_SysMatrixHandle h;
    void* argument;
    int count;
  } seen{nullptr, nullptr, 0};
  VQ_SysMatrixHandle h = VQ_SysMatrixBegin();
  auto record = [](VQ_SysMatrixHandle m, void* a) {
    Call* c = static_cast<Call*>(a);
    c->h = m;
    c->argument = a;
    ++c->count;
  };
  VQ_SysMatrixSetFunction(h, 1, record, &seen);
  VQ_SysMatrixSetFunction(h, 2, record, &seen);
  EXPECT_EQ(1, seen.count);
  EXPECT_EQ(h, seen.h);
  EXPECT_EQ(&seen, seen.argument);
  VQ_SysMatrixAbort(h);
  VQ_SysMatrixFactor(h);
  VQ_SysMatrixProcess(h);
  VQ_SysMatrixSetOocFile(h, "x");
  VQ_SysMatrixEigenFree(h);
  VQ_SysMatrixEnd(h);
}

TEST_F(SystemHandles, VectorOperations) {
  VQ_SysVectorHandle a = VQ_SysVectorCreate(4, 2.0);
  VQ_SysVectorHandle b = VQ_SysVectorBegin();
  EXPECT_EQ(1, VQ_SysVectorInq(b, nullptr));
  VQ_SysVectorDef(b, 4);
  int n = 0;
  EXPECT_EQ(4, VQ_SysVectorInq(b, &n));
  EXPECT_EQ(4, n);
  const int dofs[3] = {4, 0, 1};
  const double in[3] = {-5.0, 100.0, 3.0};
  VQ_SysVectorScatter(b, 3, dofs, in);  // b = (3, 0, 0, -5)
  VQ_SysVectorAssem(b, 3, dofs, in);    // b = (6, 0, 0, -10)
  double out[3] = {7.0, 7.0, 7.0};
  VQ_SysVectorGather(b, 3, dofs, out);
  EXPECT_EQ(-10.0, out[0]);
  EXPECT_EQ(7.0, out[1]);  // equation 0 skipped
  EXPECT_EQ(6.0, out[2]);
  const int ends[2] = {1, 4};
  VQ_SysVectorGather(b, 2, ends, out);
  EXPECT_EQ(6.0, out[0]);
  EXPECT_EQ(-10.0, out[1]);

  double norm = 0.0;
  VQ_SysVectorNorm(b, 0, &norm);
  EXPECT_DOUBLE_EQ(std::sqrt(136.0), norm);
  VQ_SysVectorLInfNorm(b, 0, &norm);
  EXPECT_EQ(10.0, norm);

  VQ_SysVectorAdd(a, a, 0.5, b);  // a = (5, 2, 2, -3)
  const int all[4] = {1, 2, 3, 4};
  double v[4];
  VQ_SysVectorGather(a, 4, all, v);
  EXPECT_EQ((std::vector<double>{5, 2, 2, -3}), std::vector<double>(v, v + 4));
  VQ_SysVectorCopy(b, a);
  VQ_SysVectorGather(b, 4, all, v);
  EXPECT_EQ((std::vector<double>{5, 2, 2, -3}), std::vector<double>(v, v + 4));
  VQ_SysVectorInit(b, 0.25);
  VQ_SysVectorGather(b, 4, all, v);
  EXPECT_EQ(std::vector<double>(4, 0.25), std::vector<double>(v, v + 4));
  EXPECT_EQ(0, VQ_SysVectorError());
  VQ_SysVectorEnd(a);
  VQ_SysVectorEnd(b);
  VQ_SysVectorEnd(nullptr);
}

TEST_F(SystemHandles, SolutionProceduresAreEmpty) {
  VQ_SolProcHandle p = VQ_SolProcBegin();
  EXPECT_EQ(nullptr, p);
  VQ_SysVectorHandle v = nullptr;
  double d = 3.0;
  VQ_SolProcDef(p, 1);
  VQ_SolProcSetStrategy(p, 2);
  VQ_SolProcInitTimeStep(p, 0.0, 0.1);
  VQ_SolProcSetParamd(p, 1, 2.0);
  VQ_SolProcExecute(p);
  VQ_SolProcGetSysVector(p, 1, &v);
  VQ_SolProcGetDouble(p, 1, &d);
  VQ_SolProcEnd(p);
  EXPECT_EQ(nullptr, v);
  EXPECT_EQ(3.0, d);
}

}  // namespace
