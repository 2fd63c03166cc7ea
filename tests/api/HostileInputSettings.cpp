// Hostile settings: the 64 PARDISO parameters are the host's to set (VQ_SetGlobalSparseSolverParam,
// VQ_SetGlobalSparseSolverParams, VQ_OverrideDefaultSparseSolverParam). Values that make PARDISO
// crash, corrupt its heap, loop forever or read the caller's arrays in another layout are taken
// back by the solver before PARDISO sees them; every case below (each found by fuzzing or
// implied by the array layout) must still give the correct solution of a small model.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "support/ReliabilitySupport.h"
#include "vqmath.h"

namespace {

struct Setting {
  const char* name;
  int index;
  int value;
  bool asOverride;  // through the override list instead of the global array
};

const Setting kSettings[] = {
    {"NegativeIterativeSolveCode", 3, -1, false},  // heap corruption in the solve
    {"HugeIterativeSolveCode", 3, -473637142, true},
    {"UnderflowingStoppingExponent", 3, 3242, false},  // 10^-324 == 0: endless iteration
    {"UnknownPermutationSwitch", 4, 3, false},         // crash in the ordering
    {"PermutationReadFromAnEmptyArray", 4, 1, true},   // no caller can supply one
    {"UnknownOutOfCoreMode", 59, -2, false},           // crash in the factorisation
    {"OutOfCoreModeBeyondTwo", 59, 1000, true},
    {"ThreadCountBeyondAnyMachine", 33, INT_MAX, true},  // endless analysis
    {"SinglePrecision", 27, 1, false},                   // would read the doubles as floats
    {"ZeroBasedIndices", 34, 1, false},                  // would read the rows off by one
    {"SchurComplement", 35, 1, true},
    {"BlockFormat", 36, 3, false},
    {"PartialSolution", 30, 2, false},
    {"UnknownDiagonalAccess", 55, 7, true},
};

class HostileSettings : public testing::TestWithParam<Setting> {
 protected:
  void SetUp() override {
    VQ_Initialize_INTEL_MKL_SparseSolverParams();
    VQ_GetGlobalSparseSolverParams(saved_);
    VQ_ResetOverrideListSparseSolverParam();
    VQ_SetSolverType(0);
    VQ_SetSolverMatrixType(-2);
  }
  void TearDown() override {
    VQ_ResetOverrideListSparseSolverParam();
    VQ_SetGlobalSparseSolverParams(saved_);
  }
  int saved_[64] = {};
};

TEST_P(HostileSettings, SolutionIsStillCorrect) {
  const Setting s = GetParam();
  if (s.asOverride)
    VQ_OverrideDefaultSparseSolverParam(s.index, s.value);
  else
    VQ_SetGlobalSparseSolverParam(s.index, s.value);
  const vqtest::Csr k = vqtest::Tridiagonal(15, 60.0, -1.0);
  for (bool inPlace : {false, true}) {
    SCOPED_TRACE(inPlace ? "in place" : "separate solution");
    std::vector<double> rhs(2 * 15), x(2 * 15, 0.0);
    for (int i = 0; i < 30; ++i) rhs[i] = 1.0 + i % 4;
    const std::vector<double> load = rhs;
    ASSERT_EQ(
        VQ_SparseSolverDirect(15, 2, VQTEST_CSR(k), rhs.data(), 0, inPlace ? nullptr : x.data()), 0)
        << vqtest::LastError().message;
    EXPECT_LT(vqtest::RelativeResidual(k, inPlace ? rhs.data() : x.data(), load.data(), 2), 1e-12);
  }
}

INSTANTIATE_TEST_SUITE_P(PardisoParameters, HostileSettings, testing::ValuesIn(kSettings),
                         [](const testing::TestParamInfo<Setting>& info) {
                           return std::string(info.param.name);
                         });

// Indices outside 0..63 are ignored by every setter and by the override list.
TEST(HostileSettingsIndices, OutOfRangeIndicesChangeNothing) {
  VQ_Initialize_INTEL_MKL_SparseSolverParams();
  int before[64];
  VQ_GetGlobalSparseSolverParams(before);
  VQ_SetGlobalSparseSolverParam(-1, 5);
  VQ_SetGlobalSparseSolverParam(64, 5);
  VQ_SetGlobalSparseSolverParam(INT_MIN, 5);
  EXPECT_EQ(VQ_GetGlobalSparseSolverParam(INT_MAX), 0);
  int after[64];
  VQ_GetGlobalSparseSolverParams(after);
  EXPECT_EQ(std::vector<int>(before, before + 64), std::vector<int>(after, after + 64));
  VQ_OverrideDefaultSparseSolverParam(-7, 1);
  VQ_OverrideDefaultSparseSolverParam(1000, 1);
  const vqtest::Csr k = vqtest::Tridiagonal(4);
  std::vector<double> rhs(4, 1.0), x(4);
  EXPECT_EQ(VQ_SparseSolverDirect(4, 1, VQTEST_CSR(k), rhs.data(), 0, x.data()), 0);
  VQ_ResetOverrideListSparseSolverParam();
}

}  // namespace
