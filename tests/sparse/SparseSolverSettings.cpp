// Settings of VQ_SparseSolver: the PARDISO parameters it starts from (its defaults, the host's
// global array, the override list, the record of the last parameter list), the parameters copied
// back after a factorisation, the error table and its translation, the environment operations,
// the out-of-core path and the verbose reports.
#include <vector>

#include "core/GlobalState.h"
#include "sparse/VQ_SparseSolver.h"
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

}  // namespace
