// Out of core: the direct-solution entry points and the eigen solvers' factorisation.
//
// Under pressure: a structural model whose factor does not fit into the in-core
// budget (MKL_PARDISO_OOC_MAX_CORE_SIZE, set through VQ_Set_INTEL_MKL_OOC_Max_Core_Size) is
// solved with solver type 1 (out of core when needed) and 2 (always out of core) and must give
// the in-core solution. The budget is derived from PARDISO's own memory figures of the in-core
// run: above the minimum the out-of-core mode needs, below what the in-core factorisation takes.
// That the factor really went to disk is shown by keeping PARDISO's scratch files once
// (MKL_PARDISO_OOC_KEEP_FILE "0"); otherwise they are gone after every call. A working directory
// where no file can be created gives PARDISO's out-of-core file error as code and message.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/EigenSupport.h"
#include "support/ReliabilitySupport.h"
#include "support/SolverHarness.h"
#include "eigen/VQ_SubspaceEigenSparseSolver.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "vqmath.h"

namespace {

const char kOocFileError[] = "Problems with Opening OOC Temporary Files in Sparse Solver";

class OutOfCorePressure : public testing::Test {
 protected:
  // The model, built once for the suite: its stiffness and an end-face load.
  struct Model {
    vqtest::Csr k;
    std::vector<double> load;
  };
  static const Model& Shared() {
    static const Model m = [] {
      const vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(12000));
      return Model{vqtest::FromModel(model.Stiffness()), model.EndFaceLoad(0.0, 2e3, -5e3)};
    }();
    return m;
  }
  void SetUp() override {
    dir_ = scratch_.Path();
    ASSERT_FALSE(dir_.empty());
    char* wd = VQ_GetWorkingDir();
    previousWorkingDir_ = wd ? wd : "";
    std::free(wd);
    previousCoreSize_ = VQ_Get_INTEL_MKL_OOC_Max_Core_Size();
    VQ_SetWorkingDir(dir_.c_str());
    VQ_Set_INTEL_MKL_OOC_KEEP_FILE(1);
    VQ_SetParameterB(1006, 0);
    // One math-library thread: the out-of-core factorisation waits on its files, and OpenMP threads
    // spinning meanwhile on a shared machine make it several times slower without testing more.
    previousThreads_ = VQ_mkl_get_max_threads();
    VQ_mkl_set_num_threads(1);
  }
  void TearDown() override {
    VQ_mkl_set_num_threads(previousThreads_);
    VQ_Set_INTEL_MKL_OOC_KEEP_FILE(1);
    VQ_Set_INTEL_MKL_OOC_Max_Core_Size(previousCoreSize_);
    VQ_SetSolverType(0);
    VQ_SetWorkingDir(previousWorkingDir_.c_str());
  }

  // Solution by VQ_DirectSparseSolver with the given solver type; PARDISO's parameters in params.
  int Solve(int solverType, const std::string& workingDirectory, std::vector<double>& x,
            int* params) {
    std::vector<double> rhs = *load_;
    x.assign(rhs.size(), 0.0);
    return VQ_DirectSparseSolver(k_->n, 1, VQTEST_CSR(*k_), rhs.data(), solverType, -2, params, 0,
                                 workingDirectory.c_str(), 1, 0, x.data(), 0, nullptr, nullptr, 0,
                                 0);
  }

  const vqtest::Csr* k_ = &Shared().k;
  const std::vector<double>* load_ = &Shared().load;
  vqtest::ScratchDir scratch_;
  std::string dir_;
  std::string previousWorkingDir_;
  int previousCoreSize_ = 2000;
  int previousThreads_ = 1;
};

TEST_F(OutOfCorePressure, FactorAboveTheCoreBudgetGivesTheInCoreSolution) {
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(2000);
  int params[64] = {};
  std::vector<double> inCore;
  ASSERT_EQ(Solve(0, dir_, inCore, params), 0);
  ASSERT_LT(vqtest::RelativeResidual(*k_, inCore.data(), load_->data(), 1), 1e-9);

  // PARDISO's figures in kilobytes: permanent memory (15), in-core factorisation and solution
  // (16), minimum in-core memory of the out-of-core mode (62).
  const int inCoreMb = (params[15] + params[16]) / 1000;
  const int budgetMb = (params[15] + params[62]) / 1000 + 2;
  std::printf("[ budget   ] n = %d, in core %d MB, out-of-core budget %d MB\n", k_->n, inCoreMb,
              budgetMb);
  ASSERT_LT(budgetMb, inCoreMb) << "the model is too small to put its factor under pressure";
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(budgetMb);

  for (int solverType : {1, 2}) {
    SCOPED_TRACE("solver type " + std::to_string(solverType));
    // Once with the scratch files kept: proof that the factor went to disk.
    VQ_Set_INTEL_MKL_OOC_KEEP_FILE(0);
    std::vector<double> x;
    ASSERT_EQ(Solve(solverType, dir_, x, params), 0) << vqtest::LastError().message;
    EXPECT_LT(vqtest::RelativeDifference(x, inCore), 1e-10);
    const std::vector<std::string> kept = vqtest::ListDirectory(dir_);
    bool factorFile = false;
    for (const std::string& name : kept) factorFile |= name.find("_ooc_file") != std::string::npos;
    EXPECT_TRUE(factorFile) << "no out-of-core scratch file was written";
    for (const std::string& name : kept) std::remove((dir_ + name).c_str());

    // And as a host runs it: nothing left behind.
    VQ_Set_INTEL_MKL_OOC_KEEP_FILE(1);
    ASSERT_EQ(Solve(solverType, dir_, x, params), 0) << vqtest::LastError().message;
    EXPECT_LT(vqtest::RelativeDifference(x, inCore), 1e-10);
    EXPECT_EQ(vqtest::ListDirectory(dir_), std::vector<std::string>());
  }

  // The process-wide path: VQ_SparseSolverDirect with the solver type and working directory set.
  VQ_SetSolverType(2);
  std::vector<double> rhs = *load_;
  ASSERT_EQ(VQ_SparseSolverDirect(k_->n, 1, VQTEST_CSR(*k_), rhs.data(), 0, nullptr), 0);
  EXPECT_LT(vqtest::RelativeDifference(rhs, inCore), 1e-10);
  EXPECT_EQ(vqtest::ListDirectory(dir_), std::vector<std::string>());
}

// Below the minimum that the out-of-core mode needs, type 2 with the retry allowed raises the
// budget to PARDISO's figure and succeeds; type 1 reports the out-of-core memory error.
TEST_F(OutOfCorePressure, BudgetBelowTheOutOfCoreMinimumIsRetriedOnlyForTypeTwo) {
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(2000);
  int params[64] = {};
  std::vector<double> inCore;
  ASSERT_EQ(Solve(0, dir_, inCore, params), 0);

  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(1);
  std::vector<double> x;
  EXPECT_EQ(Solve(1, dir_, x, params), -82);
  EXPECT_EQ(vqtest::LastError().message, "Not Enough Memory for OOC in Sparse Solver");

  VQ_SetSolverType(2);
  VQ_SetParameterB(1006, 1);
  std::vector<double> rhs = *load_;
  ASSERT_EQ(VQ_SparseSolverDirect(k_->n, 1, VQTEST_CSR(*k_), rhs.data(), 0, nullptr), 0);
  EXPECT_LT(vqtest::RelativeDifference(rhs, inCore), 1e-10);
  EXPECT_GT(VQ_Get_INTEL_MKL_OOC_Max_Core_Size(), 1);
  EXPECT_EQ(vqtest::ListDirectory(dir_), std::vector<std::string>());
}

// A working directory that cannot hold files (a path through a regular file: refused even for
// root): out-of-core runs fail with PARDISO's scratch-file error, in-core runs do not need it.
TEST_F(OutOfCorePressure, UnwritableWorkingDirectoryGivesTheScratchFileError) {
  const std::string blocker = dir_ + "not-a-directory";
  std::FILE* f = std::fopen(blocker.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  const std::string unwritable = blocker + "/";
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(2000);

  int params[64] = {};
  std::vector<double> x;
  ASSERT_EQ(Solve(0, unwritable, x, params), 0);
  int ignored[64] = {};
  EXPECT_EQ(Solve(2, unwritable, x, ignored), -83);
  const vqtest::RegistryError e = vqtest::LastError();
  EXPECT_EQ(e.code, -83);
  EXPECT_EQ(e.message, kOocFileError);

  // Through the process-wide settings, with solver type 1 and a budget the factor exceeds.
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size((params[15] + params[62]) / 1000 + 2);
  VQ_SetWorkingDir(unwritable.c_str());
  VQ_SetSolverType(1);
  std::vector<double> rhs = *load_;
  EXPECT_EQ(VQ_SparseSolverDirect(k_->n, 1, VQTEST_CSR(*k_), rhs.data(), 0, x.data()), -83);
  EXPECT_EQ(vqtest::LastError().message, kOocFileError);
  EXPECT_EQ(rhs, *load_);
  EXPECT_EQ(vqtest::ListDirectory(dir_), std::vector<std::string>{"not-a-directory"});
}

// The eigen solvers' factorisation, out of core with a core size of 1 MB: PARDISO runs short of
// memory, the factorisation is repeated once with the size its report asks for, and that size is
// published. In core there is no retry.
TEST(OutOfCoreEigenFactorisation, OutOfCoreRetryEnlargesTheCoreSize) {
  const int saved = VQ_Get_INTEL_MKL_OOC_Max_Core_Size();
  const vqtest::EigenProblem e = vqtest::SolidProblem(20, 4, 4, false);
  vqtest::ObjectPair pair(e);
  vqtest::ScratchDir dir;

  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(1);
  VQ_SubspaceEigenSparseSolver inCore(&pair.K, pair.M(), 0, -2, 3, dir.Path().c_str(), false, 0.0);
  VQ_SparseSolver* solver = nullptr;
  ASSERT_EQ(0, inCore.CreateSolverAndDecompose("", &solver, false, nullptr));
  EXPECT_EQ(1, VQ_Get_INTEL_MKL_OOC_Max_Core_Size());
  delete solver;
  solver = nullptr;

  VQ_SubspaceEigenSparseSolver outOfCore(&pair.K, pair.M(), 2, -2, 3, dir.Path().c_str(), false,
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
  o.oocMode = 2, o.tolerance = 1e-10;
  const vqtest::SubspaceRun r = vqtest::RunSubspace(e, 3, o);
  EXPECT_EQ(0, r.status);
  ASSERT_EQ(3, r.found);
  const std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
  for (int i = 0; i < 3; ++i) EXPECT_LT(vqtest::RelDiff(r.values[i], reference[i]), 1e-8);
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(saved);
}

}  // namespace
