// MKL's code path: the library lets MKL run the kernels the processor supports, the environment
// switch brings back MKL's generic kernels, and the answers agree either way.

#include "VqsolveRunner.h"

using namespace vqsolve_test;

namespace {

const char kGenericPath[] = "Intel(R) Architecture processors";
const char kGenericEnvironment[] = "VQMATH_MKL_FAST_PATH=0";

std::string CodePathLine(const RunResult& r) {
  const size_t at = r.out.find("MKL code path: ");
  if (at == std::string::npos) return std::string();
  return r.out.substr(at + 15, r.out.find('\n', at) - at - 15);
}

TEST(VqsolveMklCodePath, SwitchSelectsGenericOrProcessorKernels) {
  VQSOLVE_REQUIRE();
  const RunResult fast = RunVqsolve({"--version"});
  const RunResult generic = RunVqsolve({"--version"}, kGenericEnvironment);
  ASSERT_EQ(fast.exitCode, 0);
  ASSERT_EQ(generic.exitCode, 0);
  EXPECT_EQ(CodePathLine(generic), kGenericPath);
  EXPECT_FALSE(CodePathLine(fast).empty()) << fast.out;
  // Every processor with AVX2 qualifies for one of MKL's vector code paths.
  if (__builtin_cpu_supports("avx2")) {
    EXPECT_NE(CodePathLine(fast), kGenericPath);
  }
}

TEST(VqsolveMklCodePath, AnswersAgreeOnBothCodePaths) {
  VQSOLVE_REQUIRE();
  const std::string folder = TempFolder();
  std::vector<double> solutions[2], eigenvalues[2];
  for (int path = 0; path < 2; ++path) {
    const std::string environment = path == 0 ? "" : kGenericEnvironment, x = folder + "x.mtx";
    const RunResult s =
        RunVqsolve({"static", "--model", "solid:800", "-o", x, "--quiet"}, environment);
    ASSERT_EQ(s.exitCode, 0) << s.err;
    int rows = 0, cols = 0;
    solutions[path] = ReadArray(x, rows, cols);
    eigenvalues[path] =
        RunJson({"modes", "--model", "solid:800", "-n", "6", "--method", "lanczos"}, 0,
                environment)["eigenvalues"]
            .Numbers();
  }
  ASSERT_FALSE(solutions[0].empty());
  EXPECT_LE(vqtest::RelativeDifference(solutions[1], solutions[0]), 1e-10);
  ASSERT_EQ(eigenvalues[0].size(), 6u);
  EXPECT_LE(vqtest::RelativeDifference(eigenvalues[1], eigenvalues[0]), 1e-10);
}

}  // namespace
