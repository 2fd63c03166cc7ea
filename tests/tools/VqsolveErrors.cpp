// vqsolve's error classes, run as a program: malformed MatrixMarket files are bad input (exit 2)
// named by file and line, usage errors are bad input, solver failures exit 3 with the registry's
// message, partial results exit 1.

#include <cctype>

#include "VqsolveRunner.h"
#include "models/CsrMatrix.h"
#include "support/TestSupport.h"

using namespace vqsolve_test;

namespace {

struct BadFile {
  const char* name;
  const char* text;  // after the banner of a symmetric coordinate file when it starts with a digit
  const char* expected;  // after "<path>"
};

class VqsolveMalformedStiffness : public ::testing::TestWithParam<BadFile> {};

TEST_P(VqsolveMalformedStiffness, IsBadInputNamingFileAndLine) {
  VQSOLVE_REQUIRE();
  const std::string folder = TempFolder(), text = GetParam().text;
  const std::string k = folder + GetParam().name + ".mtx", expected = k + GetParam().expected;
  vqtest::WriteBytes(
      k, (std::isdigit(text[0]) ? "%%MatrixMarket matrix coordinate real symmetric\n" : "") + text);
  WriteArray(folder + "M.mtx", 3, 1, {1.0, 1.0, 1.0});
  // The message goes to standard error, and with --json into the report as well.
  const RunResult r = RunVqsolve(
      {"modes", "-K", k, "--lumped", folder + "M.mtx", "-n", "1", "--method", "lapack", "--json"});
  EXPECT_EQ(r.exitCode, 2) << r.err;
  EXPECT_NE(r.err.find(expected), std::string::npos) << "stderr: " << r.err;
  const Json report = ParseJson(r.out);
  EXPECT_EQ(report["exitCode"].number, 2);
  EXPECT_EQ(report["error"]["kind"].text, "input");
  EXPECT_NE(report["error"]["message"].text.find(expected), std::string::npos) << r.out;
}

INSTANTIATE_TEST_SUITE_P(
    Files, VqsolveMalformedStiffness,
    ::testing::Values(
        BadFile{"empty", "", ": the file is empty"},
        BadFile{"banner", "%MatrixMarket matrix coordinate real symmetric\n1 1 1\n1 1 1\n",
                ":1: not a MatrixMarket file"},
        BadFile{"complex", "%%MatrixMarket matrix coordinate complex symmetric\n1 1 1\n1 1 1 0\n",
                ":1: field 'complex' is not supported"},
        BadFile{"sizeline", "%%MatrixMarket matrix coordinate real symmetric\n%\n3 3\n",
                ":3: the size line must give rows, columns and the number of entries"},
        BadFile{"index", "3 3 2\n1 1 2.0\n2 x 1.0\n", ":4: column index 'x' is not an integer"},
        BadFile{"value", "3 3 2\n% c\n1 1 2.0\n2 1 abc\n", ":5: value 'abc' is not a number"},
        BadFile{"nan", "3 3 1\n1 1 nan\n", ":3: value 'nan' is not a finite number"},
        BadFile{"outside", "3 3 2\n1 1 2.0\n4 1 1.0\n",
                ":4: entry (4, 1) lies outside the 3 x 3 matrix declared on line 2"},
        BadFile{"short", "3 3 4\n1 1 2.0\n2 2 2.0\n\n",
                ":5: the file ends after 2 of the 4 entries declared on line 2"},
        BadFile{"long", "3 3 1\n1 1 2.0\n2 2 2.0\n",
                ":4: more entries than the 1 declared on line 2"},
        BadFile{"fields", "3 3 1\n1 1 2.0 7\n", ":3: unexpected text '7'"},
        BadFile{"square", "%%MatrixMarket matrix coordinate real general\n3 2 1\n1 1 2.0\n",
                ":2: the matrix must be square"},
        BadFile{
            "unsymmetric",
            "%%MatrixMarket matrix coordinate real general\n2 2 4\n1 1 2\n1 2 -1\n2 1 -3\n2 2 2\n",
            ": the matrix is not symmetric: entry (1, 2) is -1 on line 4 but (2, 1) is -3 on line "
            "5"}),
    [](const ::testing::TestParamInfo<BadFile>& info) { return std::string(info.param.name); });

class VqsolveErrors : public VqsolveTest {
 protected:
  void SetUp() override {
    VqsolveTest::SetUp();
    ASSERT_TRUE(vqmath::models::WriteMatrixMarket(vqtest::SpringChain(3), File("K.mtx")));
    WriteArray(File("M.mtx"), 3, 1, {1.0, 1.0, 1.0});
  }
};

TEST_F(VqsolveErrors, UsageErrorsAreBadInput) {
  // Words naming a file (*.mtx, *.svg) stand for that file in the test's folder.
  for (const std::string line :
       {"", "solve", "modes -K K.mtx --lumped M.mtx --bogus", "modes -K K.mtx --lumped M.mtx -n",
        "modes -K K.mtx --lumped M.mtx -n many", "modes -K K.mtx --lumped M.mtx -n 0",
        "modes -K K.mtx --lumped M.mtx --method power", "modes -K K.mtx",
        "modes -K K.mtx -M M.mtx --lumped M.mtx",
        "modes -K K.mtx --lumped M.mtx --interval 5,1 --method feast",
        "modes -K K.mtx --lumped M.mtx --svg x.svg", "static -K K.mtx",
        "static -K K.mtx -F M.mtx --ooc 3", "buckling --model solid", "demo --size huge"}) {
    std::vector<std::string> args;
    std::istringstream words(line);
    for (std::string w; words >> w;) args.push_back(w.find('.') != std::string::npos ? File(w) : w);
    const RunResult r = RunVqsolve(args);
    EXPECT_EQ(r.exitCode, 2) << line << "\n" << r.err;
    EXPECT_FALSE(r.err.empty()) << line;
    EXPECT_TRUE(r.out.empty()) << line << "\n" << r.out;
    if (line == "buckling --model solid") {  // a generated solid has no geometric stiffness
      EXPECT_NE(r.err.find("column or portal"), std::string::npos) << r.err;
    }
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
  const Json report =
      RunJson({"modes", "-K", vqtest::DataFile("bcsstk01.mtx"), "--lumped",
               vqtest::DataFile("bcsstm01.mtx"), "-n", "30", "--method", "subspace"},
              1);
  EXPECT_EQ(report["requested"].number, 30);
  EXPECT_EQ(report["found"].number, 24);
  EXPECT_TRUE(report["partial"].boolean);
  EXPECT_TRUE(report["sturm"]["passed"].boolean);
}

}  // namespace
