// Settings of VQ_SparseSolver: the PARDISO parameters it starts from (its defaults, the host's
// global array, the override list, the record of the last parameter list), the parameters copied
// back after a factorisation, the error table and its translation, the environment operations,
// the out-of-core path and the verbose reports.
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "core/GlobalState.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/internal/PardisoErrors.h"
#include "sparse/internal/PardisoReports.h"
#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

namespace vi = vqmath::internal;

class SparseSolverSettings : public ::testing::Test {
 protected:
  void SetUp() override {
    // Entries that initialisation leaves alone start from zero in every test.
    for (int& p : vi::settings().sparseParams) p = 0;
    VQ_InitializeLibrary();
    VQ_ResetOverrideListSparseSolverParam();
    vi::settings().sparseParamsSetByHost = false;
  }
  void TearDown() override {
    VQ_ResetOverrideListSparseSolverParam();
    vi::settings().sparseParamsSetByHost = false;
    VQ_Initialize_INTEL_MKL_SparseSolverParams();
  }
};

std::vector<int> Params(const VQ_SparseSolver& s) {
  std::vector<int> p;
  s.SaveSolverInfo(p);
  return p;
}

TEST_F(SparseSolverSettings, DefaultsWithoutTheGlobalArray) {
  VQ_SparseSolver s(0, -2, false, "");
  std::vector<int> expected(64, 0);
  expected[0] = 1;    // supplied values
  expected[1] = 2;    // nested dissection
  expected[5] = 1;    // in place (no result array)
  expected[7] = 2;    // refinement steps
  expected[9] = 8;    // pivot perturbation 1e-8
  expected[17] = -1;  // report factor non-zeros
  expected[18] = -1;  // report MFlop
  expected[20] = 1;   // Bunch-Kaufman pivoting
  EXPECT_EQ(expected, Params(s));

  // Out of core, separate result, matrix checker, another ordering, diagonal request.
  std::vector<double> x(3);
  VQ_SparseSolver t(0, nullptr, nullptr, nullptr, 1, nullptr, 2, -2, 0, "", x.data());
  t.Set_CheckSparseRepresentation(5);
  t.Set_Fill_InReducingOrdering_Type(3);
  t.SetDiagElementsInfo(true, x.data(), x.data());
  t.InitializeSolver();
  expected[1] = 3;
  expected[4] = 2;
  expected[5] = 0;
  expected[24] = 1;
  expected[26] = 1;
  expected[55] = 1;
  expected[59] = 2;
  EXPECT_EQ(expected, Params(t));
}

TEST_F(SparseSolverSettings, GlobalArrayOverridesAndLastParameterList) {
  std::vector<int> global(64);
  for (int i = 0; i < 64; ++i) global[i] = 100 + i;
  VQ_SetGlobalSparseSolverParams(global.data());
  VQ_OverrideDefaultSparseSolverParam(9, 13);
  VQ_OverrideDefaultSparseSolverParam(2, 7);
  VQ_OverrideDefaultSparseSolverParam(9, 6);  // the later pair wins

  VQ_SparseSolver s(0, -2, false, "");
  std::vector<int> expected = global;
  expected[9] = 6;
  expected[2] = 7;
  EXPECT_EQ(expected, Params(s));
  EXPECT_EQ(6, s.Get_iParm(9));
  EXPECT_EQ(0, s.Get_iParm(64));
  EXPECT_EQ(0, s.Get_iParm(-1));

  std::vector<int> last(64, -5);
  VQ_ParamsListSparseSolver(64, last.data());
  EXPECT_EQ(expected, last);

  // The defaults apply again once the host's array is no longer in use; overrides still do.
  vi::settings().sparseParamsSetByHost = false;
  VQ_SparseSolver t(0, -2, false, "");
  EXPECT_EQ(6, t.Get_iParm(9));
  EXPECT_EQ(7, t.Get_iParm(2));
  EXPECT_EQ(1, t.Get_iParm(0));
}

TEST_F(SparseSolverSettings, FactorisationCopiesParametersBackWhenTheHostSetThem) {
  VQ_Initialize_INTEL_MKL_SparseSolverParams();
  VQ_SetGlobalSparseSolverParam(1, 2);  // marks the array as the host's
  vqtest::Csr k = vqtest::SolidStiffness(900);
  VQ_SparseSolver s(0, -2, false, "");
  s.Set_Matrix(k.n, k.values.data(), k.rowPointers.data(), k.columnIndices.data());
  ASSERT_EQ(0, s.Decomposition(true, true));
  // PARDISO's report entries come back through the global array.
  EXPECT_GT(VQ_GetGlobalSparseSolverParam(17), k.nnz());
  EXPECT_GT(VQ_GetGlobalSparseSolverParam(18), 0);
  EXPECT_EQ(k.n, VQ_GetGlobalSparseSolverParam(21));
  std::vector<int> global(64);
  VQ_GetGlobalSparseSolverParams(global.data());
  EXPECT_EQ(Params(s), global);
}

TEST_F(SparseSolverSettings, HostArrayWithOddValuesInUnusedEntriesStillSolves) {
  // Regression: a host array carrying arbitrary numbers in the entries that initialisation does not
  // write (iparm[55] = 155 among them) made PARDISO crash in the factorisation.
  VQ_Initialize_INTEL_MKL_SparseSolverParams();
  for (int i : {6, 21, 22, 23, 25, 28, 29, 31, 32, 33, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47,
                48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 60, 61, 62, 63})
    VQ_SetGlobalSparseSolverParam(i, 100 + i);
  vqtest::Csr k = vqtest::SolidStiffness(900);
  std::vector<double> f = vqtest::MakeRightHandSides(k.n, 2), b = f;
  VQ_SparseSolver s(0, -2, false, "");
  s.Set_Matrix(k.n, k.values.data(), k.rowPointers.data(), k.columnIndices.data());
  s.Set_LoadVector(0, 2, b.data());
  ASSERT_EQ(0, s.Decomposition(false, true));
  ASSERT_EQ(0, s.Solve());
  EXPECT_LE(vqtest::RelativeResidual(k, b.data(), f.data(), 2), 1e-10);
  EXPECT_EQ(0, s.Get_iParm(55));
}

TEST_F(SparseSolverSettings, ErrorTableKeepsEveryPardisoNumberApart) {
  struct Row {
    int pardiso;
    const char* message;
    int status;
    int code;
  };
  const Row rows[] = {
      {-1, "Input Inconsistancy in Sparse Solver", -6, -83},
      {-2, "Not Enough Memory in Sparse Solver", -4, -81},
      {-3, "Reordering Problem in Sparse Solver", -6, -83},
      {-4, "Zero Pivot, Numerical Factoriztion or Iterative Refinement Problem in Sparse Solver", -1, -3},
      {-5, "Unclassified (internal) Error in Sparse Solver", -6, -83},
      {-6, "Preordering Failed in Sparse Solver", -6, -83},
      {-7, "Diagonal matrix is singular", -6, -83},
      {-8, "32-bit Integer Overflow Problem in Sparse Solver", -6, -83},
      {-9, "Not Enough Memory for OOC in Sparse Solver", -5, -82},
      {-10, "Problems with Opening OOC Temporary Files in Sparse Solver", -6, -83},
      {-11, "Read/Write Problems with the OOC Data File in Sparse Solver", -6, -83},
      {-12, "Negative Eigens Found", -8, -85},
      {-13, "Unclassified Error", -6, -83},
      {5, "Unclassified Error", -6, -83},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.pardiso);
    EXPECT_EQ(std::string(r.message), vi::PardisoErrorMessage(r.pardiso));
    EXPECT_EQ(r.status, vi::PardisoErrorStatus(r.pardiso));
    EXPECT_EQ(r.code, vi::TranslateSolverStatus(r.status, 999));
  }
  EXPECT_EQ(0, vi::TranslateSolverStatus(0, 999));
  EXPECT_EQ(-80, vi::TranslateSolverStatus(-2, 999));
  EXPECT_EQ(-2, vi::TranslateSolverStatus(-3, 999));
  EXPECT_EQ(-84, vi::TranslateSolverStatus(-7, 999));
  EXPECT_EQ(999, vi::TranslateSolverStatus(-9, 999));  // outside the table: left as it was
}

TEST_F(SparseSolverSettings, EnvironmentOperationsWriteTheirVariables) {
  auto env = [](const char* name) {
    const char* v = std::getenv(name);
    return std::string(v ? v : "<unset>");
  };
  EXPECT_EQ(0, VQ_SparseSolver::Set_INTEL_MKL_OOC_Max_Core_Size(-12));
  EXPECT_EQ("-12", env("MKL_PARDISO_OOC_MAX_CORE_SIZE"));
  VQ_SparseSolver::Set_INTEL_MKL_OOC_KEEP_FILE(2);
  EXPECT_EQ("0", env("MKL_PARDISO_OOC_KEEP_FILE"));
  VQ_SparseSolver::Set_INTEL_MKL_OOC_KEEP_FILE(1);
  EXPECT_EQ("1", env("MKL_PARDISO_OOC_KEEP_FILE"));
  VQ_SparseSolver::Set_INTEL_MKL_KMP_AFFINITY(2);
  EXPECT_EQ("enabled", env("KMP_AFFINITY"));
  VQ_SparseSolver::Set_INTEL_MKL_KMP_AFFINITY(0);
  EXPECT_EQ("disabled", env("KMP_AFFINITY"));
  VQ_SparseSolver::Set_INTEL_MKL_OMP_NumberOfThreads(3);
  EXPECT_EQ("3", env("OMP_NUM_THREADS"));
  VQ_SparseSolver::Set_INTEL_MKL_UseMaxNumberOfThreads();
  EXPECT_EQ(std::to_string(vi::ProcessorCount()), env("MKL_NUM_THREADS"));
  VQ_SparseSolver::Set_INTEL_MKL_NumberOfThreads(2);
  EXPECT_EQ("2", env("MKL_NUM_THREADS"));

  VQ_SparseSolver s(0, -2, false, "/tmp/work");
  const std::string before = env("MKL_PARDISO_OOC_PATH");
  s.Set_UseDefault_INTELSolverSettings();
  EXPECT_EQ("2000", env("MKL_PARDISO_OOC_MAX_CORE_SIZE"));
  EXPECT_EQ("1", env("MKL_PARDISO_OOC_KEEP_FILE"));
  EXPECT_EQ("1", env("MKL_NUM_THREADS"));
  EXPECT_NE(before, env("MKL_PARDISO_OOC_PATH"));
  EXPECT_EQ(s.Get_OutOfCorePath(), env("MKL_PARDISO_OOC_PATH"));
  setenv("OMP_NUM_THREADS", "2", 1);
  setenv("MKL_NUM_THREADS", "2", 1);
}

TEST_F(SparseSolverSettings, OutOfCorePathIsWorkingDirectoryGuidAndSuffix) {
  const std::regex guid("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}_ooc_file");
  VQ_SparseSolver a(0, -2, false, "/tmp/work");
  VQ_SparseSolver b(0, -2, false, "/tmp/work/");
  VQ_SparseSolver c(0, -2, false, "");
  const std::string pa = a.Get_OutOfCorePath(), pb = b.Get_OutOfCorePath(), pc = c.Get_OutOfCorePath();
  ASSERT_EQ("/tmp/work/", pa.substr(0, 10));
  ASSERT_EQ("/tmp/work/", pb.substr(0, 10));
  EXPECT_TRUE(std::regex_match(pa.substr(10), guid)) << pa;
  EXPECT_TRUE(std::regex_match(pb.substr(10), guid)) << pb;
  EXPECT_TRUE(std::regex_match(pc, guid)) << pc;
  EXPECT_NE(pa, pb);
  // Each call makes a new name.
  a.SetWorkingDirectory();
  EXPECT_NE(pa, a.Get_OutOfCorePath());
  EXPECT_EQ(36u, a.GenerateUniqueGUIDString().size());
}

TEST_F(SparseSolverSettings, ReportsAreComposedFromTheReportEntries) {
  int iparm[64] = {};
  iparm[14] = 1400;
  iparm[15] = 1500;
  iparm[16] = 1600;
  iparm[18] = 1800;
  const std::string analysis = vi::ComposeAnalysisReport(iparm, 4, 1000, 3, 2);
  EXPECT_EQ(
      "\nTotal Peak Memory in KBytes that the Solver Needs For Analysis and Symbolic "
      "Factorization= 1400 \n"
      "Permanent Memory Symbolic Factorization = 1500 \n"
      "Memory Requirement (KBytes) for Numerical Factorization and Solution (In-Core: estimated "
      "size; OOC: estimated disk space)= 1600 \n"
      "Total Peak Memory (KBytes) = 3100 \n\n"
      "Number of Operations in MFlop (1.0e6 Operations) = 1800 \n"
      "Max. Number of Threads Detected by MKL = 4 \n"
      "\n\nNumber of Equations: 1000 \n"
      "Number of Load Vectors: 3 \n"
      "Solver Type: 2 \n",
      analysis);
  iparm[60] = 60;
  iparm[61] = 61;
  iparm[62] = 62;
  const std::string ok = vi::ComposeFactorizationReport(iparm, false);
  EXPECT_NE(std::string::npos, ok.find("Analysis and Symbolic Factorization= 60 \n"));
  EXPECT_NE(std::string::npos, ok.find("Factorization and Solution = 62 \n"));
  const std::string finished = "\n\nFinished Phase 22 Succesfully !....... \n";
  EXPECT_EQ(finished, ok.substr(ok.size() - finished.size()));
  const std::string failed = vi::ComposeFactorizationReport(iparm, true);
  const std::string unfinished = "\n\nFailed to Finish Phase 22 !....... \n";
  EXPECT_EQ(unfinished, failed.substr(failed.size() - unfinished.size()));
}

TEST_F(SparseSolverSettings, VerboseSolverStillSolves) {
  vqtest::Csr k = vqtest::SolidStiffness(300);
  std::vector<double> f = vqtest::MakeRightHandSides(k.n, 1), b = f;
  VQ_SparseSolver s(k.n, k.values.data(), k.rowPointers.data(), k.columnIndices.data(), 1, b.data(), 0,
                    -2, 1, "", nullptr);
  s.SetMessageLevelInfo(0);  // reports composed, PARDISO's own printing off
  ASSERT_EQ(0, s.Decomposition(false, true));
  ASSERT_EQ(0, s.Solve());
  EXPECT_LE(vqtest::RelativeResidual(k, b.data(), f.data(), 1), 1e-10);
}

}  // namespace
