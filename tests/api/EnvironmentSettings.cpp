// Environment variables are how MKL learns thread counts and out-of-core limits: their exact
// names and texts are the contract, so read them back with getenv.
#include <cstdlib>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "vqmath.h"

namespace {

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "<unset>";
}

TEST(EnvironmentSettings, ThreadCountIsPublishedAndRemembered) {
  EXPECT_EQ(VQ_Set_INTEL_MKL_NumberOfThreads(3), 0);
  EXPECT_EQ(Env("MKL_NUM_THREADS"), "3");
  EXPECT_EQ(VQ_Get_INTEL_MKL_NumberOfThreads(), 3);
  // Using all processors changes the environment but not the remembered count.
  EXPECT_EQ(VQ_Set_INTEL_MKL_UseMaxNumberOfThreads(), 0);
  EXPECT_EQ(Env("MKL_NUM_THREADS"), std::to_string(sysconf(_SC_NPROCESSORS_ONLN)));
  EXPECT_EQ(VQ_Get_INTEL_MKL_NumberOfThreads(), 3);
  // Initialisation republishes the remembered count.
  VQ_InitializeLibrary();
  EXPECT_EQ(Env("MKL_NUM_THREADS"), "3");
  VQ_Set_INTEL_MKL_NumberOfThreads(-2);
  EXPECT_EQ(Env("MKL_NUM_THREADS"), "-2");
  VQ_Set_INTEL_MKL_NumberOfThreads(2);
}

TEST(EnvironmentSettings, OutOfCoreSizesAndInitialisation) {
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(1234);
  VQ_Set_INTEL_MKL_OOC_MAX_SWAP_SIZE(55);
  EXPECT_EQ(Env("MKL_PARDISO_OOC_MAX_CORE_SIZE"), "1234");
  EXPECT_EQ(Env("MKL_PARDISO_OOC_MAX_SWAP_SIZE"), "55");
  EXPECT_EQ(VQ_Get_INTEL_MKL_OOC_Max_Core_Size(), 1234);
  EXPECT_EQ(VQ_Get_INTEL_MKL_OOC_Max_Swap_Size(), 55);
  setenv("MKL_PARDISO_OOC_MAX_CORE_SIZE", "1", 1);
  VQ_Set_INTEL_MKL_OOC_KEEP_FILE(0);
  EXPECT_EQ(VQ_InitializeLibrary(), 0);
  EXPECT_EQ(Env("MKL_PARDISO_OOC_MAX_CORE_SIZE"), "1234");
  EXPECT_EQ(Env("MKL_PARDISO_OOC_MAX_SWAP_SIZE"), "55");
  EXPECT_EQ(Env("MKL_PARDISO_OOC_KEEP_FILE"), "1");
  VQ_Set_INTEL_MKL_OOC_Max_Core_Size(2000);
  VQ_Set_INTEL_MKL_OOC_MAX_SWAP_SIZE(0);
}

TEST(WorkingDirectory, OocPathIsDirectoryGlueGuidAndSuffix) {
  EXPECT_EQ(VQ_SetWorkingDir("/tmp/vqwork/"), 0);
  char* dir = VQ_GetWorkingDir();
  EXPECT_STREQ(dir, "/tmp/vqwork/");
  std::free(dir);
  std::string path = Env("MKL_PARDISO_OOC_PATH");
  ASSERT_EQ(path.size(), std::string("/tmp/vqwork/").size() + 36 + 9) << path;
  EXPECT_EQ(path.rfind("/tmp/vqwork/", 0), 0u);
  std::string guid = path.substr(12, 36);
  for (int k : {8, 13, 18, 23}) EXPECT_EQ(guid[k], '_');
  EXPECT_EQ(guid[14], '4');  // version-4 UUID
  EXPECT_EQ(guid.find('-'), std::string::npos);
  EXPECT_EQ(path.substr(48), "_ooc_file");
  // A fresh GUID every time.
  VQ_SetWorkingDir("/tmp/vqwork/");
  EXPECT_NE(Env("MKL_PARDISO_OOC_PATH"), path);
}

}  // namespace
