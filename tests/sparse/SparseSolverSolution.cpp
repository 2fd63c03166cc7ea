// Solutions of VQ_SparseSolver through the shared solver harness: raw arrays and matrix objects,
// worker thread and calling thread, both matrix types, generated solids and real structures.
#include <memory>
#include <string>

#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

struct ClassConfig {
  std::string name;
  int mtype;
  bool callingThread;
  bool matrixObjects;  // drive the solver with VQ_SparseSymMatrix / VQ_Matrix objects
};

// VQ_SparseSolver on raw arrays: factor once, then point the solver at each new set of loads.
class RawArraySolver : public vqtest::SolverUnderTest {
 public:
  explicit RawArraySolver(const ClassConfig& c) : config_(c) {}
  int Factor(const Csr& k) override {
    k_ = k;
    solver_.reset(new VQ_SparseSolver(0, config_.mtype, false, ""));
    solver_->Set_Matrix(k_.n, k_.values.data(), k_.rowPointers.data(), k_.columnIndices.data());
    return solver_->Decomposition(config_.callingThread, true);
  }
  int Solve(int nrhs, double* b, double* x) override {
    solver_->Set_LoadVector(0, nrhs, b);
    solver_->Set_ResultVector(x);
    return solver_->Solve();
  }

 private:
  ClassConfig config_;
  Csr k_;
  std::unique_ptr<VQ_SparseSolver> solver_;
};

// VQ_SparseSolver on a VQ_SparseSymMatrix with VQ_Matrix loads and results.
class MatrixObjectSolver : public vqtest::SolverUnderTest {
 public:
  explicit MatrixObjectSolver(const ClassConfig& c) : config_(c) {}
  int Factor(const Csr& k) override {
    n_ = k.n;
    k_.reset(new VQ_SparseSymMatrix(k.n, k.values.data(), k.rowPointers.data(), k.columnIndices.data()));
    solver_.reset(new VQ_SparseSolver(k_.get(), nullptr, 0, config_.mtype, false, "", nullptr));
    return solver_->Decomposition(k_.get(), nullptr, nullptr, config_.callingThread, true);
  }
  int Solve(int nrhs, double* b, double* x) override {
    VQ_Matrix loads(n_, nrhs, b);
    VQ_Matrix results(n_, nrhs);
    solver_->Set_LoadVector(&loads);
    if (x)
      solver_->Set_ResultVector(&results);
    else
      solver_->Set_ResultVector(static_cast<double*>(nullptr));
    int status = solver_->Solve();
    const double* from = x ? results.GetDataPointer() : loads.GetDataPointer();
    double* to = x ? x : b;
    for (size_t i = 0; i < static_cast<size_t>(n_) * nrhs; ++i) to[i] = from[i];
    return status;
  }

 private:
  ClassConfig config_;
  int n_ = 0;
  std::unique_ptr<VQ_SparseSymMatrix> k_;
  std::unique_ptr<VQ_SparseSolver> solver_;
};

std::unique_ptr<vqtest::SolverUnderTest> MakeSolver(const ClassConfig& c) {
  if (c.matrixObjects) return std::unique_ptr<vqtest::SolverUnderTest>(new MatrixObjectSolver(c));
  return std::unique_ptr<vqtest::SolverUnderTest>(new RawArraySolver(c));
}

class SparseSolverPaths : public ::testing::TestWithParam<ClassConfig> {
 protected:
  void SetUp() override {
    VQ_InitializeLibrary();
    VQ_ResetOverrideListSparseSolverParam();
  }
};

TEST_P(SparseSolverPaths, GeneratedSolidWithDenseReference) {
  auto solver = MakeSolver(GetParam());
  vqtest::RunSolverChecks(*solver, vqtest::SolidStiffness(800));
}

TEST_P(SparseSolverPaths, RealStructures) {
  VQTEST_REQUIRE_DATA();
  for (const char* name : {"bcsstk02.mtx", "bcsstk06.mtx", "bcsstk20.mtx", "bcsstk22.mtx"}) {
    SCOPED_TRACE(name);
    Csr k;
    std::string error;
    ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile(name), k, &error)) << error;
    vqtest::HarnessOptions options;
    // Some of these stiffness matrices are poorly conditioned (bcsstk20 about 1e12): the
    // backward error stays at rounding level, the distance to the dense solution scales with the
    // condition number.
    options.backwardError = true, options.residualTolerance = 1e-14;
    options.referenceTolerance = 1e-4;
    auto solver = MakeSolver(GetParam());
    vqtest::RunSolverChecks(*solver, k, options);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Classes, SparseSolverPaths,
    ::testing::Values(ClassConfig{"IndefiniteWorkerThread", -2, false, false},
                      ClassConfig{"IndefiniteCallingThread", -2, true, false},
                      ClassConfig{"PositiveDefiniteWorkerThread", 2, false, false},
                      ClassConfig{"MatrixObjects", -2, false, true},
                      ClassConfig{"MatrixObjectsPositiveDefinite", 2, true, true}),
    [](const ::testing::TestParamInfo<ClassConfig>& info) { return info.param.name; });

}  // namespace
