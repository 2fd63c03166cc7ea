// vqsolve modes --band / --band-eig, run as a program: the band's modes against dense LAPACK,
// the Sturm proof of every slice against the dense spectrum, the residual mode's row completing
// the effective mass, and a band over the cap.

#include <cmath>

#include "VqsolveRunner.h"
#include "support/TestSupport.h"

using namespace vqsolve_test;

namespace {

TEST(VqsolveBand, ModesProofAndResidualRowOnAShippedPair) {
  VQSOLVE_REQUIRE();
  VQTEST_REQUIRE_DATA();
  vqtest::Csr k, m;
  ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile("bcsstk05.mtx"), k));
  ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile("bcsstm05.mtx"), m));
  const std::vector<double> spectrum = vqtest::DenseEigenvalues(k, m);
  const double lower = 0.5 * (spectrum[4] + spectrum[5]),
               upper = 0.5 * (spectrum[129] + spectrum[130]);
  const Json report = RunJson({"modes", "-K", vqtest::DataFile("bcsstk05.mtx"), "--lumped",
                               vqtest::DataFile("bcsstm05.mtx"), "--band-eig",
                               std::to_string(lower) + "," + std::to_string(upper), "--residual"});
  EXPECT_EQ(report["method"].text, "band");
  // 125 modes: more than one slice takes from 153 degrees of freedom with mass.
  ASSERT_EQ(report["bandCount"].number, 125);
  ASSERT_EQ(report["found"].number, 125);
  const std::vector<double> values = report["eigenvalues"].Numbers();
  for (int i = 0; i < 125; ++i) EXPECT_NEAR(values[i], spectrum[i + 5], 1e-10 * spectrum[i + 5]);
  EXPECT_TRUE(report["proven"].boolean);
  // Every slice's counts are the dense spectrum's, and the slices tile the band.
  const Json& slices = report["slices"];
  ASSERT_GE(slices.items.size(), 2u);
  for (size_t i = 0; i < slices.items.size(); ++i) {
    const Json& s = slices[i];
    EXPECT_EQ(s["eigenvaluesBelowLower"].number, CountBelow(spectrum, s["lower"].number));
    EXPECT_EQ(s["eigenvaluesBelowUpper"].number, CountBelow(spectrum, s["upper"].number));
    EXPECT_EQ(s["eigenvaluesBelowShift"].number, CountBelow(spectrum, s["shift"].number));
    EXPECT_EQ(s["found"].number,
              s["eigenvaluesBelowUpper"].number - s["eigenvaluesBelowLower"].number);
    if (i > 0) EXPECT_EQ(s["lower"].number, slices[i - 1]["upper"].number);
  }
  // The band does not start at the bottom, so its modes miss mass; the residual row fills it.
  EXPECT_NEAR(report["residualMode"]["cumulativeMassRatio"].number, 1.0, 1e-10);
}

TEST(VqsolveBand, HertzBandFromTheBottomAndTheCap) {
  VQSOLVE_REQUIRE();
  const Json report = RunJson({"modes", "--model", "solid:1500", "--band", "0,600"});
  const int count = static_cast<int>(report["bandCount"].number);
  ASSERT_GE(count, 3);
  const std::vector<double> values = report["eigenvalues"].Numbers();
  const double top = std::pow(2.0 * 3.141592653589793 * 600.0, 2.0);
  EXPECT_LE(values.back(), top);
  const RunResult capped = RunVqsolve({"modes", "--model", "solid:1500", "--band", "0,600",
                                       "--max-modes", std::to_string(count - 1)});
  EXPECT_EQ(capped.exitCode, 3);
  EXPECT_NE(capped.err.find("holds " + std::to_string(count) + " modes"), std::string::npos)
      << capped.err;
}

}  // namespace
