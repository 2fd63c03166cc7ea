// MKL's code path: the library lets MKL run the kernels the processor supports, the environment
// switch brings back MKL's generic kernels, and the answers agree either way.

#include <algorithm>
#include <cmath>

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
  std::vector<std::vector<double>> solutions, eigenvalues;
  for (const std::string environment : {"", kGenericEnvironment}) {
    const std::string x = folder + (environment.empty() ? "fast.mtx" : "generic.mtx");
    const RunResult s =
        RunVqsolve({"static", "--model", "solid:4000", "-o", x, "--quiet"}, environment);
    ASSERT_EQ(s.exitCode, 0) << s.err;
    int rows = 0, cols = 0;
    solutions.push_back(ReadArray(x, rows, cols));
    const RunResult m =
        RunVqsolve({"modes", "--model", "solid:4000", "-n", "6", "--method", "lanczos", "--json"},
                   environment);
    ASSERT_EQ(m.exitCode, 0) << m.err;
    std::vector<double> lambda;
    const Json report = ParseJson(m.out);
    for (size_t k = 0; k < report["modes"].size(); ++k)
      lambda.push_back(report["modes"][k]["eigenvalue"].number);
    eigenvalues.push_back(lambda);
  }
  ASSERT_EQ(solutions[0].size(), solutions[1].size());
  ASSERT_FALSE(solutions[0].empty());
  double scale = 0.0, difference = 0.0;
  for (size_t i = 0; i < solutions[0].size(); ++i) {
    scale = std::max(scale, std::fabs(solutions[0][i]));
    difference = std::max(difference, std::fabs(solutions[0][i] - solutions[1][i]));
  }
  EXPECT_LE(difference, 1e-10 * scale);
  ASSERT_EQ(eigenvalues[0].size(), 6u);
  ASSERT_EQ(eigenvalues[1].size(), 6u);
  for (size_t k = 0; k < 6; ++k)
    EXPECT_NEAR(eigenvalues[0][k], eigenvalues[1][k], 1e-10 * eigenvalues[0][k]);
}

}  // namespace
