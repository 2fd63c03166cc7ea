// vqsolve modes, run as a program: the eigenvalues it prints for every method against dense
// LAPACK and against the library's entry point called directly, its Sturm counts against the
// dense spectrum, the effective mass against the mode shapes it writes, and its pictures.

#include "VqsolveRunner.h"

#include "models/CsrMatrix.h"
#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/TestSupport.h"
#include "vqmath.h"

#include <algorithm>
#include <cmath>

using namespace vqsolve_test;

namespace {

// Runs vqsolve; skips the test when the method is not in this build of the library.
Json RunModes(const std::vector<std::string>& args, int expectedExit = 0)
{
    const RunResult r = RunVqsolve(args);
    if (r.exitCode == 2 && r.err.find("not available in this build") != std::string::npos) return Json();
    EXPECT_EQ(r.exitCode, expectedExit) << r.err;
    return ParseJson(r.out);
}

#define SKIP_WHEN_UNAVAILABLE(report)                                                            \
    do {                                                                                         \
        if ((report).kind == Json::Kind::Null) GTEST_SKIP() << "method not in this build";       \
    } while (0)

size_t CountBelow(const std::vector<double>& spectrum, double sigma)
{
    return static_cast<size_t>(std::count_if(spectrum.begin(), spectrum.end(), [&](double v) { return v < sigma; }));
}

struct DataCase {
    const char* k;
    const char* m;
    bool lumped;
    const char* method;
    int count;
};

class ModesOnShippedMatrices : public ::testing::TestWithParam<DataCase> {};

TEST_P(ModesOnShippedMatrices, EigenvaluesFrequenciesAndSturmCountMatchDenseLapack)
{
    VQSOLVE_REQUIRE();
    VQTEST_REQUIRE_DATA();
    const DataCase c = GetParam();
    vqtest::Csr k, m;
    ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile(c.k), k));
    ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile(c.m), m));
    const std::vector<double> spectrum = vqtest::DenseEigenvalues(k, m);
    ASSERT_GE(spectrum.size(), static_cast<size_t>(c.count));

    const Json report = RunModes({"modes", "-K", vqtest::DataFile(c.k), c.lumped ? "--lumped" : "-M",
                                  vqtest::DataFile(c.m), "-n", std::to_string(c.count), "--method", c.method,
                                  "--json"});
    SKIP_WHEN_UNAVAILABLE(report);
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
        EXPECT_NEAR(mode["frequency"].number, std::sqrt(values[q]) / (2 * M_PI), 1e-12 * std::sqrt(values[q]));
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
                      DataCase{"bcsstk07.mtx", "bcsstm07.mtx", false, "lanczos", 6},
                      DataCase{"bcsstk07.mtx", "bcsstm07.mtx", false, "feast", 6},
                      DataCase{"bcsstk07.mtx", "bcsstm07.mtx", false, "lapack", 6},
                      DataCase{"bcsstk01.mtx", "bcsstm01.mtx", true, "subspace", 5},
                      DataCase{"bcsstk01.mtx", "bcsstm01.mtx", true, "lanczos", 5},
                      DataCase{"bcsstk22.mtx", "bcsstm22.mtx", true, "lanczos", 10}),
    [](const ::testing::TestParamInfo<DataCase>& info) {
        std::string k = info.param.k;
        return k.substr(0, k.find('.')) + "_" + info.param.method;
    });

class VqsolveModes : public ::testing::Test {
protected:
    void SetUp() override
    {
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

TEST_F(VqsolveModes, PrintedNumbersAreTheLibrarysResults)
{
    // The same entry point called here directly gives the numbers vqsolve prints.
    const Json report = RunModes({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "6", "--method",
                                  "lanczos", "--json"});
    SKIP_WHEN_UNAVAILABLE(report);
    const int n = k_.n;
    std::vector<double> values(6, 0.0), shapes(static_cast<size_t>(6) * n, 0.0);
    int found = 0;
    ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK(n, 6, k_.rowPointers.data(), k_.columnIndices.data(), k_.values.data(),
                                           solid_->LumpedMass().data(), 4, 0, -1, &found, values.data(),
                                           shapes.data(), 0.0, ::testing::TempDir().c_str(), 0),
              0);
    ASSERT_EQ(found, 6);
    const std::vector<double> printed = report["eigenvalues"].Numbers();
    ASSERT_EQ(printed.size(), 6u);
    for (int q = 0; q < 6; ++q) {
        EXPECT_LT(vqtest::RelDiff(printed[q], values[q]), 1e-12);
        EXPECT_LT(vqtest::RelDiff(printed[q], spectrum_[q]), 1e-9);
    }
}

TEST_F(VqsolveModes, ShiftedSearchIsCheckedBetweenTwoSturmCounts)
{
    // Lanczos around a shift between modes 4 and 5; subspace iteration from a shift below the
    // first mode (above it, its projected problem is indefinite and the library reports -21).
    const std::vector<std::pair<const char*, double>> cases = {{"lanczos", 0.5 * (spectrum_[3] + spectrum_[4])},
                                                               {"subspace", 0.5 * spectrum_[0]}};
    for (const auto& [method, shift] : cases) {
        const Json report = RunModes({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "4", "--method",
                                      method, "--shift", std::to_string(shift), "--json"});
        if (report.kind == Json::Kind::Null) continue;
        const std::vector<double> values = report["eigenvalues"].Numbers();
        ASSERT_EQ(values.size(), 4u) << method;
        const Json& sturm = report["sturm"];
        ASSERT_TRUE(sturm["done"].boolean) << method;
        ASSERT_TRUE(sturm.Has("lowerShift")) << method;
        // The count between the two shifts is the dense count, and the values are the dense ones
        // in that range.
        const size_t between = CountBelow(spectrum_, sturm["shift"].number) - CountBelow(spectrum_, sturm["lowerShift"].number);
        EXPECT_EQ(sturm["eigenvaluesBelowShift"].number, between) << method;
        const size_t first = CountBelow(spectrum_, sturm["lowerShift"].number);
        for (size_t q = 0; q < values.size(); ++q)
            EXPECT_LT(vqtest::RelDiff(values[q], spectrum_[first + q]), 1e-8) << method << " mode " << q;
        EXPECT_EQ(sturm["passed"].boolean, between == values.size()) << method;
    }
}

TEST_F(VqsolveModes, IncrementalLanczosPassesFindTheLowestModes)
{
    const Json report = RunModes({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "10", "--method",
                                  "lanczos", "--block", "4", "--json"});
    SKIP_WHEN_UNAVAILABLE(report);
    const std::vector<double> values = report["eigenvalues"].Numbers();
    ASSERT_EQ(values.size(), 10u);
    for (size_t q = 0; q < values.size(); ++q) EXPECT_LT(vqtest::RelDiff(values[q], spectrum_[q]), 1e-8) << q;
    EXPECT_TRUE(report["sturm"]["passed"].boolean);
}

TEST_F(VqsolveModes, FeastFindsTheEigenvaluesOfTheInterval)
{
    const double a = 0.5 * (spectrum_[1] + spectrum_[2]), b = 0.5 * (spectrum_[6] + spectrum_[7]);
    const Json report = RunModes({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "20", "--method",
                                  "feast", "--interval", std::to_string(a) + "," + std::to_string(b), "--json"});
    SKIP_WHEN_UNAVAILABLE(report);
    const std::vector<double> values = report["eigenvalues"].Numbers();
    ASSERT_EQ(values.size(), 5u);  // modes 3 to 7
    for (size_t q = 0; q < 5; ++q) EXPECT_LT(vqtest::RelDiff(values[q], spectrum_[2 + q]), 1e-8);
    EXPECT_TRUE(report["sturm"]["passed"].boolean);
    EXPECT_FALSE(report["partial"].boolean);  // the interval, not the count, bounds the search
}

TEST_F(VqsolveModes, LimitEndsTheSearchWithoutPartialResults)
{
    const double limit = 0.5 * (spectrum_[4] + spectrum_[5]);
    for (const char* method : {"subspace", "lanczos", "lapack", "block"}) {
        const Json report = RunModes({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "9", "--method",
                                      method, "--limit", std::to_string(limit), "--json"});
        if (report.kind == Json::Kind::Null) continue;
        const std::vector<double> values = report["eigenvalues"].Numbers();
        ASSERT_EQ(values.size(), 5u) << method;
        for (size_t q = 0; q < 5; ++q) EXPECT_LT(vqtest::RelDiff(values[q], spectrum_[q]), 1e-8) << method;
        EXPECT_FALSE(report["partial"].boolean) << method;
        EXPECT_TRUE(report["sturm"]["passed"].boolean) << method;
    }
}

TEST_F(VqsolveModes, CumulativeEffectiveMassFollowsTheModeShapesItWrites)
{
    const int n = k_.n;
    const std::vector<double> pattern = solid_->RigidBodyMode(2);  // vertical translation
    WriteArray(File("r.mtx"), n, 1, pattern);
    const Json report = RunModes({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "8", "--method",
                                  "subspace", "--tolerance", "1e-12", "-F", File("r.mtx"), "-o", File("phi.mtx"),
                                  "--json"});
    SKIP_WHEN_UNAVAILABLE(report);
    int rows = 0, cols = 0;
    const std::vector<double> phi = ReadArray(File("phi.mtx"), rows, cols);
    ASSERT_EQ(rows, n);
    ASSERT_EQ(cols, 8);
    // The shapes are eigenvectors (residual) ...
    const std::vector<double> values = report["eigenvalues"].Numbers();
    EXPECT_LT(vqtest::EigenResidual(k_, m_, 8, values.data(), phi.data()), 1e-6);
    // ... and the ratios are Σ (φᵀ M r)² / (φᵀ M φ · rᵀ M r).
    const std::vector<double>& mass = solid_->LumpedMass();
    double total = 0.0;
    for (int i = 0; i < n; ++i) total += pattern[i] * mass[i] * pattern[i];
    double sum = 0.0, previous = 0.0;
    for (int q = 0; q < 8; ++q) {
        double gamma = 0.0, norm = 0.0;
        for (int i = 0; i < n; ++i) {
            gamma += phi[q * n + i] * mass[i] * pattern[i];
            norm += phi[q * n + i] * mass[i] * phi[q * n + i];
        }
        sum += gamma * gamma / (norm * total);
        const double printed = report["modes"][q]["cumulativeMassRatio"].number;
        EXPECT_NEAR(printed, sum, 1e-12);
        EXPECT_GE(printed, previous - 1e-15);
        EXPECT_LE(printed, 1.0 + 1e-12);
        previous = printed;
    }
    EXPECT_GT(previous, 0.6);  // a clamped bar: the first vertical bending mode alone carries most
}

TEST_F(VqsolveModes, RitzValuesBoundTheEigenvaluesAndCollectTheEffectiveMass)
{
    // Ritz vectors from a vertical load: they follow the vertical modes.
    const int n = k_.n;
    WriteArray(File("fz.mtx"), n, 1, solid_->EndFaceLoad(0.0, 0.0, -1.0));
    const Json report = RunModes({"modes", "-K", File("K.mtx"), "--lumped", File("m.mtx"), "-n", "6", "--method",
                                  "ritz", "-F", File("fz.mtx"), "--json"});
    SKIP_WHEN_UNAVAILABLE(report);
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

TEST_F(VqsolveModes, PictureHasOnePanelPerMode)
{
    for (int modes : {1, 4}) {
        const std::string svg = File("modes" + std::to_string(modes) + ".svg");
        const Json report = RunModes({"modes", "--model", "solid:300", "-n", std::to_string(modes), "--method",
                                      "lanczos", "--svg", svg, "--json"});
        if (report.kind == Json::Kind::Null) continue;
        const std::string text = ReadFile(svg);
        const XmlCheck xml = CheckXml(text);
        EXPECT_TRUE(xml.wellFormed) << xml.problem;
        EXPECT_EQ(xml.root, "svg");
        EXPECT_EQ(xml.panels, modes);
        EXPECT_GE(xml.paths, 2 * modes);  // undeformed and deformed edges in every panel
        // Each panel's title carries its frequency.
        for (int q = 0; q < modes; ++q)
            EXPECT_NE(text.find("Mode " + std::to_string(q + 1) + ": "), std::string::npos);
    }
}

TEST(VqsolveXmlCheck, RejectsBrokenDocuments)
{
    EXPECT_TRUE(CheckXml("<?xml version=\"1.0\"?>\n<svg a=\"1\"><g class=\"panel\"><path d=\"M0 0\"/></g></svg>\n").wellFormed);
    EXPECT_FALSE(CheckXml("<svg><g></svg></g>").wellFormed);
    EXPECT_FALSE(CheckXml("<svg a=1></svg>").wellFormed);
    EXPECT_FALSE(CheckXml("<svg><text>a & b</text></svg>").wellFormed);
    EXPECT_FALSE(CheckXml("<svg></svg><svg></svg>").wellFormed);
    EXPECT_FALSE(CheckXml("<svg>").wellFormed);
    EXPECT_EQ(CheckXml("<svg><g class=\"panel\"/><g class=\"panel\"></g><g/></svg>").panels, 2);
}

}  // namespace
