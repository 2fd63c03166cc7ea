// vqsolve's error classes, run as a program: malformed MatrixMarket files are bad input (exit 2)
// named by file and line, size mismatches name both files, usage errors are bad input, solver
// failures exit 3 with the registry's message, partial results exit 1.

#include <cmath>

#include "VqsolveRunner.h"
#include "models/CsrMatrix.h"
#include "support/TestSupport.h"

using namespace vqsolve_test;

namespace {

const char kGood[] =
    "%%MatrixMarket matrix coordinate real symmetric\n"
    "% a 3 x 3 spring chain\n"
    "3 3 5\n"
    "1 1 2.0\n"
    "2 1 -1.0\n"
    "2 2 2.0\n"
    "3 2 -1.0\n"
    "3 3 2.0\n";

const char kMass[] =
    "%%MatrixMarket matrix coordinate real symmetric\n"
    "3 3 3\n"
    "1 1 1.0\n"
    "2 2 1.0\n"
    "3 3 1.0\n";

struct BadFile {
  const char* name;
  const char* text;
  const char* expected;  // after "<path>"
};

class MalformedStiffness : public ::testing::TestWithParam<BadFile> {};

TEST_P(MalformedStiffness, IsBadInputNamingFileAndLine) {
  VQSOLVE_REQUIRE();
  const std::string folder = TempFolder();
  const std::string k = folder + GetParam().name + ".mtx";
  WriteText(k, GetParam().text);
  WriteText(folder + "M.mtx", kMass);
  const RunResult r =
      RunVqsolve({"modes", "-K", k, "--lumped", folder + "M.mtx", "-n", "1", "--method", "lapack"});
  EXPECT_EQ(r.exitCode, 2) << r.err;
  EXPECT_NE(r.err.find(k + GetParam().expected), std::string::npos) << "stderr: " << r.err;
  EXPECT_TRUE(r.out.empty()) << r.out;

  const RunResult json = RunVqsolve({"static", "-K", k, "-F", folder + "M.mtx", "--json"});
  EXPECT_EQ(json.exitCode, 2);
  const Json report = ParseJson(json.out);
  EXPECT_EQ(report["exitCode"].number, 2);
  EXPECT_EQ(report["error"]["kind"].text, "input");
  EXPECT_NE(report["error"]["message"].text.find(k + GetParam().expected), std::string::npos)
      << report["error"]["message"].text;
}

INSTANTIATE_TEST_SUITE_P(
    Files, MalformedStiffness,
    ::testing::Values(
        BadFile{"empty", "", ": the file is empty"},
        BadFile{"banner", "%MatrixMarket matrix coordinate real symmetric\n1 1 1\n1 1 1\n",
                ":1: not a MatrixMarket file"},
        BadFile{"complex", "%%MatrixMarket matrix coordinate complex symmetric\n1 1 1\n1 1 1 0\n",
                ":1: field 'complex' is not supported"},
        BadFile{"sizeline", "%%MatrixMarket matrix coordinate real symmetric\n%\n3 3\n",
                ":3: the size line must give rows, columns and the number of entries"},
        BadFile{"index",
                "%%MatrixMarket matrix coordinate real symmetric\n3 3 2\n1 1 2.0\n2 x 1.0\n",
                ":4: column index 'x' is not an integer"},
        BadFile{"value",
                "%%MatrixMarket matrix coordinate real symmetric\n3 3 2\n% c\n1 1 2.0\n2 1 abc\n",
                ":5: value 'abc' is not a number"},
        BadFile{"nan", "%%MatrixMarket matrix coordinate real symmetric\n3 3 1\n1 1 nan\n",
                ":3: value 'nan' is not a finite number"},
        BadFile{"outside",
                "%%MatrixMarket matrix coordinate real symmetric\n3 3 2\n1 1 2.0\n4 1 1.0\n",
                ":4: entry (4, 1) lies outside the 3 x 3 matrix declared on line 2"},
        BadFile{"short",
                "%%MatrixMarket matrix coordinate real symmetric\n3 3 4\n1 1 2.0\n2 2 2.0\n\n",
                ":5: the file ends after 2 of the 4 entries declared on line 2"},
        BadFile{"long",
                "%%MatrixMarket matrix coordinate real symmetric\n3 3 1\n1 1 2.0\n2 2 2.0\n",
                ":4: more entries than the 1 declared on line 2"},
        BadFile{"fields", "%%MatrixMarket matrix coordinate real symmetric\n3 3 1\n1 1 2.0 7\n",
                ":3: unexpected text '7'"},
        BadFile{"square", "%%MatrixMarket matrix coordinate real general\n3 2 1\n1 1 2.0\n",
                ":2: the matrix must be square"},
        BadFile{
            "unsymmetric",
            "%%MatrixMarket matrix coordinate real general\n2 2 4\n1 1 2\n1 2 -1\n2 1 -3\n2 2 2\n",
            ": the matrix is not symmetric: entry (1, 2) is -1 on line 4 but (2, 1) is -3 on line "
            "5"}),
    [](const ::testing::TestParamInfo<BadFile>& info) { return std::string(info.param.name); });

class VqsolveErrors : public ::testing::Test {
 protected:
  void SetUp() override {
    VQSOLVE_REQUIRE();
    folder_ = TempFolder();
    WriteText(File("K.mtx"), kGood);
    WriteText(File("M.mtx"), kMass);
  }
  std::string File(const std::string& name) const { return folder_ + name; }
  std::string folder_;
};

TEST_F(VqsolveErrors, UsageErrorsAreBadInput) {
  const std::vector<std::vector<std::string>> cases = {
      {},
      {"solve"},
      {"modes", "-K", File("K.mtx"), "--lumped", File("M.mtx"), "--bogus"},
      {"modes", "-K", File("K.mtx"), "--lumped", File("M.mtx"), "-n"},
      {"modes", "-K", File("K.mtx"), "--lumped", File("M.mtx"), "-n", "many"},
      {"modes", "-K", File("K.mtx"), "--lumped", File("M.mtx"), "-n", "0"},
      {"modes", "-K", File("K.mtx"), "--lumped", File("M.mtx"), "--method", "power"},
      {"modes", "-K", File("K.mtx")},
      {"modes", "-K", File("K.mtx"), "-M", File("M.mtx"), "--lumped", File("M.mtx")},
      {"modes", "-K", File("K.mtx"), "--lumped", File("M.mtx"), "--interval", "5,1", "--method",
       "feast"},
      {"modes", "-K", File("K.mtx"), "--lumped", File("M.mtx"), "--svg", File("x.svg")},
      {"static", "-K", File("K.mtx")},
      {"static", "-K", File("K.mtx"), "-F", File("M.mtx"), "--ooc", "3"},
      {"buckling", "--model", "solid"},
      {"demo", "--size", "huge"},
  };
  for (const auto& args : cases) {
    const RunResult r = RunVqsolve(args);
    std::string line;
    for (const auto& a : args) line += a + " ";
    EXPECT_EQ(r.exitCode, 2) << line << "\n" << r.err;
    EXPECT_FALSE(r.err.empty()) << line;
  }
}

TEST_F(VqsolveErrors, SolverFailureExitsWithTheRegistryMessage) {
  VQTEST_REQUIRE_DATA();
  // bcsstm01 has 24 zero masses: the dense LAPACK path cannot factor M and reports -30.
  const RunResult r =
      RunVqsolve({"modes", "-K", vqtest::DataFile("bcsstk01.mtx"), "--lumped",
                  vqtest::DataFile("bcsstm01.mtx"), "-n", "4", "--method", "lapack", "--json"});
  EXPECT_EQ(r.exitCode, 3);
  EXPECT_NE(r.err.find("LAPACK Eigenvalue Solution Failed"), std::string::npos) << r.err;
  const Json report = ParseJson(r.out);
  EXPECT_EQ(report["exitCode"].number, 3);
  EXPECT_EQ(report["error"]["kind"].text, "solver");
  EXPECT_EQ(report["error"]["code"].number, -30);
  EXPECT_EQ(report["error"]["message"].text, "LAPACK Eigenvalue Solution Failed");
}

TEST_F(VqsolveErrors, FewerModesThanRequestedArePartialResults) {
  VQTEST_REQUIRE_DATA();
  // Only 24 of the 48 equations of bcsstk01/bcsstm01 carry mass: 24 finite eigenvalues.
  const RunResult r =
      RunVqsolve({"modes", "-K", vqtest::DataFile("bcsstk01.mtx"), "--lumped",
                  vqtest::DataFile("bcsstm01.mtx"), "-n", "30", "--method", "subspace", "--json"});
  EXPECT_EQ(r.exitCode, 1) << r.err;
  const Json report = ParseJson(r.out);
  EXPECT_EQ(report["requested"].number, 30);
  EXPECT_EQ(report["found"].number, 24);
  EXPECT_TRUE(report["partial"].boolean);
  EXPECT_TRUE(report["sturm"]["passed"].boolean);
}

}  // namespace
