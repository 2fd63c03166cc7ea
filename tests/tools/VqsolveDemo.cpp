// vqsolve demo, run as a program on its small model: the static load case and the modes of
// every method against dense LAPACK on the same generated bar, the comparison it prints, and
// its picture.


#include "VqsolveRunner.h"
#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/SolverHarness.h"
#include "support/TestSupport.h"

using namespace vqsolve_test;

namespace {

using VqsolveDemo = VqsolveTest;

TEST_F(VqsolveDemo, SmallDemoAgreesWithDenseLapackAndDrawsItsResults) {
  const Json report = RunJson({"demo", "--size", "small", "-n", "6", "--svg", File("demo.svg")});

  // The small demo model: a clamped bar of 12 x 3 x 2 cubes of 0.5 m.
  const vqmath::models::SolidModel solid({12, 3, 2, 0.5, 0.5, 0.5});
  ASSERT_EQ(report["equations"].number, solid.NumEquations());
  const vqtest::Csr k = vqtest::FromModel(solid.Stiffness());
  const std::vector<double> spectrum =
      vqtest::DenseEigenvalues(k, vqtest::DiagonalCsr(solid.LumpedMass()));

  // Static: 1 MN downwards on the free end.
  const std::vector<double> f = solid.EndFaceLoad(0.0, 0.0, -1.0e6);
  const std::vector<double> x = vqtest::DenseSolve(k, f, 1);
  EXPECT_LT(vqtest::RelDiff(report["static"]["maxDisplacement"].number,
                            MaxAbs(x.data(), x.data() + x.size())),
            1e-9);
  EXPECT_LT(report["static"]["residual"].number, 1e-10);
  EXPECT_EQ(report["static"]["negativePivots"].number, 0);

  // Every method runs on the small model and succeeds: its eigenvalues, and the digits it is
  // credited with.
  const int count = static_cast<int>(report["modesRequested"].number);
  ASSERT_EQ(count, 6);
  const Json& methods = report["methods"];
  ASSERT_EQ(methods.size(), 7u);
  for (size_t m = 0; m < methods.size(); ++m) {
    const Json& run = methods[m];
    const std::string name = run["method"].text;
    ASSERT_TRUE(run["ran"].boolean) << name;
    ASSERT_EQ(run["code"].number, 0) << name;
    const std::vector<double> values = run["eigenvalues"].Numbers();
    if (name == "ritz") {
      // Ritz values from the static load: upper bounds, the first one exact.
      for (size_t q = 0; q < values.size(); ++q) EXPECT_GE(values[q], spectrum[q] * (1 - 1e-9));
      EXPECT_LT(vqtest::RelDiff(values[0], spectrum[0]), 1e-8);
      continue;
    }
    ASSERT_EQ(values.size(), 6u) << name;
    double worst = 0.0;
    for (int q = 0; q < count; ++q)
      worst = std::max(worst, vqtest::RelDiff(values[q], spectrum[q]));
    EXPECT_LT(worst, 1e-7) << name;
    EXPECT_GE(run["digits"].number, 7.0) << name;
    EXPECT_TRUE(run["sturmPassed"].boolean) << name;
    EXPECT_EQ(run["eigenvaluesBelowShift"].number, count) << name;
  }

  // The picture: the static deflection and the first five modes.
  const XmlCheck svg = CheckXml(vqtest::FileBytes(File("demo.svg")));
  EXPECT_TRUE(svg.wellFormed) << svg.problem;
  EXPECT_EQ(svg.panels, 6);
}

TEST_F(VqsolveDemo, TextReportHasOneComparisonRowPerMethod) {
  const RunResult r = RunVqsolve({"demo", "--size", "small", "-n", "4", "--no-svg"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  for (const char* method : {"subspace", "lanczos", "feast", "ritz", "lapack", "jacobi", "block"})
    EXPECT_NE(r.out.find(std::string("\n    ") + method + " "), std::string::npos) << method << "\n"
                                                                                   << r.out;
  EXPECT_NE(r.out.find("Sturm check"), std::string::npos);
  EXPECT_EQ(r.out.find("picture written"), std::string::npos);
}

}  // namespace
