// Process-wide settings: accepted and rejected values, initialisation order and the override
// list as every new sparse solver applies it.
#include <vector>

#include <gtest/gtest.h>

#include "vqmath.h"

namespace {

class LibrarySettings : public ::testing::Test {
 protected:
  void SetUp() override {
    VQ_SetSolverType(0);
    VQ_SetSolverMatrixType(-2);
    VQ_SetEigenSolverType(0);
    VQ_ResetOverrideListSparseSolverParam();
    VQ_InitializeLibrary();
  }
};

TEST_F(LibrarySettings, RejectedEnumeratedValuesLeaveStateUnchanged) {
  EXPECT_EQ(VQ_SetSolverType(2), 2);
  EXPECT_EQ(VQ_SetSolverType(3), 3);
  EXPECT_EQ(VQ_GetSolverType(), 2);
  EXPECT_EQ(VQ_SetSolverType(-1), -1);
  EXPECT_EQ(VQ_GetSolverType(), 2);

  EXPECT_EQ(VQ_SetSolverMatrixType(1), 1);
  EXPECT_EQ(VQ_GetSolverMatrixType(), -2);
  VQ_SetSolverMatrixType(2);
  EXPECT_EQ(VQ_GetSolverMatrixType(), 2);

  VQ_SetEigenSolverType(2);
  EXPECT_EQ(VQ_SetEigenSolverType(3), 3);
  EXPECT_EQ(VQ_GetEigenSolverType(), 2);
}

TEST_F(LibrarySettings, InitializationWritesDefaultsAndTakesSolverTypeAtIndex59) {
  int before[64];
  for (int k = 0; k < 64; ++k) VQ_SetGlobalSparseSolverParam(k, 777);
  VQ_SetSolverType(2);
  VQ_InitializeLibrary();
  VQ_GetGlobalSparseSolverParams(before);
  EXPECT_EQ(before[59], 2);
  const int idx[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 24, 26, 27};
  const int val[] = {1, 0, 0, 0, 0, 1, 2, 0, 8, 1, 0, 0, 0, 0, 0, 0, -1, -1, 0, 0, 1, 0, 0};
  for (size_t q = 0; q < sizeof idx / sizeof idx[0]; ++q) EXPECT_EQ(before[idx[q]], val[q]) << idx[q];
  // Entries initialisation does not own keep what they held.
  for (int k : {6, 21, 22, 23, 25, 28, 40, 58, 60, 63}) EXPECT_EQ(before[k], 777) << k;
  // Initialisation leaves the types alone.
  EXPECT_EQ(VQ_GetSolverType(), 2);
}

TEST_F(LibrarySettings, SingleParametersRoundTripAndBulkCopy) {
  EXPECT_EQ(VQ_SetGlobalSparseSolverParam(12, 1), 0);
  EXPECT_EQ(VQ_GetGlobalSparseSolverParam(12), 1);
  std::vector<int> in(64);
  for (int k = 0; k < 64; ++k) in[k] = 1000 + k;
  VQ_SetGlobalSparseSolverParams(in.data());
  std::vector<int> out(64, 0);
  VQ_GetGlobalSparseSolverParams(out.data());
  EXPECT_EQ(in, out);  // (indices outside 0..63: the hostile-settings tests)
}

}  // namespace
