// vqsolve modes, run as a program: the eigenvalues it prints for every method against dense
// LAPACK and against the library's entry point called directly, its Sturm counts against the
// dense spectrum, the effective mass against the mode shapes it writes, and its pictures.

#include <algorithm>
#include <cmath>

#include "VqsolveRunner.h"
#include "models/CsrMatrix.h"
#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/TestSupport.h"
#include "vqmath.h"

using namespace vqsolve_test;

namespace {

Json RunModes(const std::vector<std::string>& args, int expectedExit = 0) {
  const RunResult r = RunVqsolve(args);
  EXPECT_EQ(r.exitCode, expectedExit) << r.err;
  return ParseJson(r.out);
}

size_t CountBelow(const std::vector<double>& spectrum, double sigma) {
  return static_cast<size_t>(
      std::count_if(spectrum.begin(), spectrum.end(), [&](double v) { return v < sigma; }));
}

struct DataCase {
  const char* k;
  const char* m;
  bool lumped;
  const char* method;
  int count;
};

class ModesOnShippedMatrices : public ::testing::TestWithParam<DataCase> {};

TEST_P(ModesOnShippedMatrices, EigenvaluesFrequenciesAndSturmCountMatchDenseLapack) {
  VQSOLVE_REQUIRE();
  VQTEST_REQUIRE_DATA();
  const DataCase c = GetParam();
  vqtest::Csr k, m;
  ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile(c.k), k));
  ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile(c.m), m));
  const std::vector<double> spectrum = vqtest::DenseEigenvalues(k, m);
  ASSERT_GE(spectrum.size(), static_cast<size_t>(c.count));

  const Json report = RunModes({"modes", "-K", vqtest::DataFile(c.k), c.lumped ? "--lumped" : "-M",
                                vqtest::DataFile(c.m), "-n", std::to_string(c.count), "--method",
                                c.method, "--json"});
  EXPECT_EQ(report["method"].text, c.method);
  EXPECT_EQ(report["lumpedMass"].boolean, c.lumped);
  ASSERT_EQ(report["found"].number, c.count);
  const std::vector<double> values = report["eigenvalues"].Numbers();
  ASSERT_EQ(values.size(), static_cast<size_t>(c.count));
  for (int q = 0; q < c.count; ++q) {
    EXPECT_LT(vqtest::RelDiff(values[q], spectrum[q]), 1e-8) << c.method << " mode " << q + 1;
    const Json& mode = report["modes"][q];
    EXPECT_EQ(mode["eigenvalue"].number, values[q]);
    EXPECT_NEAR(mode["omega"].number, std::sqrt(values[q]), 1e-12 * std::sqrt(values[q]));
    EXPECT_NEAR(mode["frequency"].number, std::sqrt(values[q]) / (2 * M_PI),
                1e-12 * std::sqrt(values[q]));
    EXPECT_NEAR(mode["period"].number * mode["frequency"].number, 1.0, 1e-12);
  }
  // The Sturm count it prints is the number of dense eigenvalues below its shift.
  const Json& sturm = report["sturm"];
  ASSERT_TRUE(sturm["done"].boolean);
  EXPECT_GT(sturm["shift"].number, values.back());
  EXPECT_EQ(sturm["eigenvaluesBelowShift"].number, CountBelow(spectrum, sturm["shift"].number));
  EXPECT_TRUE(sturm["passed"].boolean);
  EXPECT_FALSE(report["partial"].boolean);
}

INSTANTIATE_TEST_SUITE_P(
    Methods, ModesOnShippedMatrices,
    ::testing::Values(DataCase{"bcsstk05.mtx", "bcsstm05.mtx", true, "subspace", 8},
                      DataCase{"bcsstk05.mtx", "bcsstm05.mtx", true, "lanczos", 8},
                      DataCase{"bcsstk05.mtx", "bcsstm05.mtx", true, "block", 8},
                      DataCase{"bcsstk07.mtx", "bcsstm07.mtx", false, "block", 6},
                      DataCase{"bcsstk05.mtx", "bcsstm05.mtx", true, "feast", 8},
                      DataCase{"bcsstk05.mtx", "bcsstm05.mtx", true, "lapack", 8},
                      DataCase{"bcsstk05.mtx", "bcsstm05.mtx", true, "jacobi", 8},
                      DataCase{"bcsstk07.mtx", "bcsstm07.mtx", false, "subspace", 6},
                      DataCase{"bcsstk07.mtx", "bcsstm07.mtx", false, "feast", 6},
                      DataCase{"bcsstk22.mtx", "bcsstm22.mtx", true, "lanczos", 10}),
    [](const ::testing::TestParamInfo<DataCase>& info) {
      std::string k = info.param.k;
      return k.substr(0, k.find('.')) + "_" + info.param.method;
    });

class VqsolveModes : public ::testing::Test {
 protected:
  void SetUp() override {
    VQSOLVE_REQUIRE();
    folder_ = TempFolder();
    vqmath::models::SolidParameters p;
    p.nx = 8;
    p.ny = 3;
    p.nz = 2;
    solid_ = std::make_unique<vqmath::models::SolidModel>(p);
    ASSERT_TRUE(vqmath::models::WriteMatrixMarket(solid_->Stiffness(), File("K.mtx")));
    // The lumped mass as a vector file.
    WriteArray(File("m.mtx"), solid_->NumEquations(), 1, solid_->LumpedMass());
    k_ = vqtest::FromModel(solid_->Stiffness());
    m_ = vqtest::DiagonalCsr(solid_->LumpedMass());
    spectrum_ = vqtest::DenseEigenvalues(k_, m_);
  }
  std::string File(const std::string& name) const { return folder_ + name; }

  std::string folder_;
  std::unique_ptr<vqmath::models::SolidModel> solid_;
  vqtest::Csr k_, m_;
  std::vector<double> spectrum_;
};

TEST_F(VqsolveModes, ShiftedSearchIsCheckedBetweenTwoSturmCounts) {
  // Lanczos around a shift between modes 4 and 5; subspace iteration from a shift below the
  // first mode (above it, its projected problem is indefinite and the library reports -21).
  const std::vector<std::pair<const char*, double>> cases = {
      {"lanczos", 0.5 * (spectrum_[3] + spectrum_[4])}, {"subspace", 0.5 * spectrum_[0]}};
  for (const auto& [method, shift] : cases) {
    const Json report =
        RunModes({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "4", "--method",
                  method, "--shift", std::to_string(shift), "--json"});
    const std::vector<double> values = report["eigenvalues"].Numbers();
    ASSERT_EQ(values.size(), 4u) << method;
    const Json& sturm = report["sturm"];
    ASSERT_TRUE(sturm["done"].boolean) << method;
    ASSERT_TRUE(sturm.Has("lowerShift")) << method;
    // The count between the two shifts is the dense count, and the values are the dense ones
    // in that range.
    const size_t between = CountBelow(spectrum_, sturm["shift"].number) -
                           CountBelow(spectrum_, sturm["lowerShift"].number);
    EXPECT_EQ(sturm["eigenvaluesBelowShift"].number, between) << method;
    const size_t first = CountBelow(spectrum_, sturm["lowerShift"].number);
    for (size_t q = 0; q < values.size(); ++q)
      EXPECT_LT(vqtest::RelDiff(values[q], spectrum_[first + q]), 1e-8) << method << " mode " << q;
    EXPECT_EQ(sturm["passed"].boolean, between == values.size()) << method;
  }
}

TEST_F(VqsolveModes, RitzValuesBoundTheEigenvaluesAndCollectTheEffectiveMass) {
  // Ritz vectors from a vertical load: they follow the vertical modes.
  const int n = k_.n;
  WriteArray(File("fz.mtx"), n, 1, solid_->EndFaceLoad(0.0, 0.0, -1.0));
  const Json report = RunModes({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "6",
                                "--method", "ritz", "-F", File("fz.mtx"), "--json"});
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
