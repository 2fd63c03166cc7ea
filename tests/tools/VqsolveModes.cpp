// vqsolve modes, run as a program: every method reachable by --method with the eigenvalues,
// frequencies and Sturm count it prints against dense LAPACK, the shifted search between two
// Sturm counts, and Ritz vectors from a load with their effective mass.

#include <algorithm>
#include <cmath>
#include <tuple>

#include "VqsolveRunner.h"
#include "models/CsrMatrix.h"
#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/TestSupport.h"

using namespace vqsolve_test;

namespace {

TEST(VqsolveModesOnShippedPairs, EveryMethodMatchesDenseLapack) {
  VQSOLVE_REQUIRE();
  VQTEST_REQUIRE_DATA();
  // Every method on the lumped pair 05, and the consistent mass (-M) of pair 07.
  const std::tuple<std::string, bool, const char*, int> cases[] = {
      {"05", true, "subspace", 8}, {"05", true, "lanczos", 8}, {"05", true, "block", 8},
      {"05", true, "feast", 8},    {"05", true, "lapack", 8},  {"05", true, "jacobi", 8},
      {"07", false, "block", 6}};
  for (const auto& [pair, lumped, method, count] : cases) {
    SCOPED_TRACE(pair + " " + method);
    const std::string kFile = vqtest::DataFile("bcsstk" + pair + ".mtx"),
                      mFile = vqtest::DataFile("bcsstm" + pair + ".mtx");
    vqtest::Csr k, m;
    ASSERT_TRUE(vqtest::ReadMtx(kFile, k) && vqtest::ReadMtx(mFile, m));
    const std::vector<double> spectrum = vqtest::DenseEigenvalues(k, m);
    const Json report = RunJson({"modes", "-K", kFile, lumped ? "--lumped" : "-M", mFile, "-n",
                                 std::to_string(count), "--method", method});
    EXPECT_EQ(report["method"].text, method);
    EXPECT_EQ(report["lumpedMass"].boolean, lumped);
    EXPECT_EQ(report["found"].number, count);
    const std::vector<double> values = report["eigenvalues"].Numbers();
    ASSERT_EQ(values.size(), static_cast<size_t>(count));
    for (int q = 0; q < count; ++q) {
      EXPECT_LT(vqtest::RelDiff(values[q], spectrum[q]), 1e-8) << "mode " << q + 1;
      const Json& mode = report["modes"][q];
      const double omega = std::sqrt(values[q]);
      EXPECT_EQ(mode["eigenvalue"].number, values[q]);
      EXPECT_NEAR(mode["omega"].number, omega, 1e-12 * omega);
      EXPECT_NEAR(mode["frequency"].number, omega / (2 * M_PI), 1e-12 * omega);
      EXPECT_NEAR(mode["period"].number * mode["frequency"].number, 1.0, 1e-12);
    }
    // The Sturm count it prints is the number of dense eigenvalues below its shift.
    const Json& sturm = report["sturm"];
    EXPECT_TRUE(sturm["done"].boolean && sturm["passed"].boolean);
    EXPECT_GT(sturm["shift"].number, values.back());
    EXPECT_EQ(sturm["eigenvaluesBelowShift"].number, CountBelow(spectrum, sturm["shift"].number));
    EXPECT_FALSE(report["partial"].boolean);
  }
}

class VqsolveModes : public VqsolveTest {
 protected:
  void SetUp() override {
    VqsolveTest::SetUp();
    if (IsSkipped()) return;
    solid_ = std::make_unique<vqmath::models::SolidModel>(vqmath::models::SolidParameters{8, 3, 2});
    ASSERT_TRUE(vqmath::models::WriteMatrixMarket(solid_->Stiffness(), File("K.mtx")));
    // The lumped mass as a vector file.
    WriteArray(File("m.mtx"), solid_->NumEquations(), 1, solid_->LumpedMass());
    spectrum_ = vqtest::DenseEigenvalues(vqtest::FromModel(solid_->Stiffness()),
                                         vqtest::DiagonalCsr(solid_->LumpedMass()));
  }
  std::unique_ptr<vqmath::models::SolidModel> solid_;
  std::vector<double> spectrum_;
};

TEST_F(VqsolveModes, ShiftedSearchIsCheckedBetweenTwoSturmCounts) {
  // Lanczos around a shift between modes 4 and 5; subspace iteration from a shift below the
  // first mode (above it, its projected problem is indefinite and the library reports -21).
  const std::vector<std::pair<const char*, double>> cases = {
      {"lanczos", 0.5 * (spectrum_[3] + spectrum_[4])}, {"subspace", 0.5 * spectrum_[0]}};
  for (const auto& [method, shift] : cases) {
    const Json report = RunJson({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "4",
                                 "--method", method, "--shift", std::to_string(shift)});
    const std::vector<double> values = report["eigenvalues"].Numbers();
    ASSERT_EQ(values.size(), 4u) << method;
    const Json& sturm = report["sturm"];
    ASSERT_TRUE(sturm["done"].boolean) << method;
    ASSERT_TRUE(sturm.members.count("lowerShift")) << method;
    // The count between the two shifts is the dense count, and the values are the dense ones
    // in that range.
    const size_t first = CountBelow(spectrum_, sturm["lowerShift"].number);
    const size_t between = CountBelow(spectrum_, sturm["shift"].number) - first;
    EXPECT_EQ(sturm["eigenvaluesBelowShift"].number, between) << method;
    for (size_t q = 0; q < values.size(); ++q)
      EXPECT_LT(vqtest::RelDiff(values[q], spectrum_[first + q]), 1e-8) << method << " mode " << q;
    EXPECT_EQ(sturm["passed"].boolean, between == values.size()) << method;
  }
}

TEST_F(VqsolveModes, RitzValuesBoundTheEigenvaluesAndCollectTheEffectiveMass) {
  // Ritz vectors from a vertical load: they follow the vertical modes.
  WriteArray(File("fz.mtx"), solid_->NumEquations(), 1, solid_->EndFaceLoad(0.0, 0.0, -1.0));
  const Json report = RunJson({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "6",
                               "--method", "ritz", "-F", File("fz.mtx")});
  const std::vector<double> values = report["eigenvalues"].Numbers();
  ASSERT_EQ(values.size(), 6u);
  // Rayleigh-Ritz: the q-th Ritz value is never below the q-th eigenvalue, and the lowest one,
  // the first vertical bending mode, is found.
  for (size_t q = 0; q < values.size(); ++q) EXPECT_GE(values[q], spectrum_[q] * (1.0 - 1e-9)) << q;
  EXPECT_LT(vqtest::RelDiff(values[0], spectrum_[0]), 1e-8);
  // Leaving out the modes the load does not excite is no failure of the run.
  EXPECT_FALSE(report["partial"].boolean);
  double previous = 0.0;
  for (size_t q = 0; q < values.size(); ++q) {
    const double ratio = report["modes"][q]["cumulativeMassRatio"].number;
    EXPECT_GE(ratio, previous - 1e-15);
    EXPECT_LE(ratio, 1.0 + 1e-12);
    previous = ratio;
  }
  EXPECT_GT(previous, 0.5);
}

}  // namespace
