// Band, residual-mode, block Lanczos and Sturm-count entry points on input at the edge of what they take: a
// lower bound far below the spectrum, equations without stiffness or mass, mode shapes whose
// products overflow, shifts and limits that are not numbers. Each must end in the documented
// code with nothing but the documented outputs written.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <limits>
#include <string>
#include <vector>

#include "support/TestSupport.h"
#include "vqmath.h"

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A diagonal K with M = I: its diagonal is its spectrum.
struct Diagonal {
  vqtest::Csr k;
  std::vector<double> m;
  explicit Diagonal(const std::vector<double>& values) : k(vqtest::DiagonalCsr(values)), m(values.size(), 1.0) {}
  int n() const { return k.n; }
};

int BandCount(const Diagonal& d, double lower, double upper, int* found) {
  int count = -1;
  std::vector<double> values(d.m.size(), -1.0);
  const int code = VQ_EigenvalueAnalysis_Band(d.n(), VQTEST_CSR(d.k), d.m.data(), lower, upper, d.n(), &count,
                                              found, values.data(), nullptr, nullptr);
  return code == 0 ? count : code;
}

// Any value below the spectrum means "every eigenvalue below upper": a huge one must not widen
// the upper end of the band by its own magnitude. An upper end far above the spectrum holds all
// of it; one at "minus infinity" (-1e300 and below) an empty band; one where K - sigma*M
// overflows is refused.
TEST(HostileBand, LowerBoundFarBelowTheSpectrum) {
  const Diagonal d({2.0, 3.0, 5.0, 7.0});
  struct Row { double lower, upper; int count; };
  for (const Row& r : {Row{-DBL_MAX, 6.0, 3}, Row{-1e58, 6.0, 3}, Row{-1e300, 2.5, 1},
                       Row{-1e20, 7.0, 4}, Row{2.5, 1e10, 3}, Row{-DBL_MAX, 1e78, 4},
                       Row{2.5, 1e200, 3}, Row{-DBL_MAX, -DBL_MAX, 0}, Row{-DBL_MAX, -1e301, 0},
                       Row{2.5, 8.7e260, 3}, Row{-DBL_MAX, DBL_MAX, -64}}) {
    int found = -1;
    EXPECT_EQ(BandCount(d, r.lower, r.upper, &found), r.count) << r.lower << " " << r.upper;
    EXPECT_EQ(found, std::max(r.count, 0));
  }
}

// Bands holding (nearly) every eigenvalue of a tiny model: ARPACK cannot take them (it needs more
// equations than pairs), the slice is solved densely.
TEST(HostileBand, TinyModelsWholeSpectrum) {
  struct Row { std::vector<double> k, m; double lower, upper; };
  for (const Row& r : {Row{{4.0}, {2.0}, 0.5, 4.25}, Row{{8.0, 8.0}, {4.0, 4.0}, -1e300, 2.75},
                       Row{{3.0, 6.0, 9.0}, {3.0, 3.0, 3.0}, 0.0, 3.5}}) {
    Diagonal d(r.k);
    d.m = r.m;
    std::vector<double> expected;
    for (size_t i = 0; i < r.k.size(); ++i)
      if (r.k[i] / r.m[i] >= r.lower && r.k[i] / r.m[i] <= r.upper) expected.push_back(r.k[i] / r.m[i]);
    int count = -1, found = -1;
    const int n = d.n();
    std::vector<double> values(n, -1.0), shapes(static_cast<size_t>(n) * n, 0.0);
    EXPECT_EQ(VQ_EigenvalueAnalysis_Band(n, VQTEST_CSR(d.k), d.m.data(), r.lower, r.upper, n, &count, &found,
                                         values.data(), shapes.data(), nullptr),
              0) << n;
    EXPECT_EQ(count, static_cast<int>(expected.size())) << n;
    ASSERT_EQ(found, count) << n;
    for (int i = 0; i < found; ++i) EXPECT_NEAR(values[i], expected[i], 1e-12) << n;
  }
}

// A mass near the largest doubles breaks the slice's Lanczos run down (NaN Ritz values): no NaN
// is delivered as an eigenvalue.
TEST(HostileBand, NoNaNEigenvalueFromABreakdown) {
  Diagonal d({0.5, 0.5});
  d.m = {2.4730475973087617e+220, 0.5};
  int count = -1, found = -1;
  std::vector<double> values(2, -1.0);
  const int code = VQ_EigenvalueAnalysis_Band(d.n(), VQTEST_CSR(d.k), d.m.data(), 0.0, 0.0, 2, &count, &found,
                                              values.data(), nullptr, nullptr);
  // The count proves an eigenvalue (2e-221) that the slice cannot resolve: -91, nothing found.
  EXPECT_EQ(code, -91);
  EXPECT_EQ(VQ_GetLastErrorID(), code);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(values, std::vector<double>(2, 0.0));
}

// A slice on which block Lanczos converges nothing (an indefinite mass of -1e300 beside a
// denormal one) ends as a band short of its count (-91), not with the block method's own code.
TEST(HostileBand, SliceWithNothingConvergedIsAShortBand) {
  const std::vector<int> rows = {1, 2, 4, 5}, cols = {1, 2, 3, 3};
  const std::vector<double> k = {0.0, 0.0, -1.0, 4.0}, m = {-1e300, 2.9149873104633546e-322, 0.0};
  int count = -1, found = -1;
  double value = -1.0;
  const int code = VQ_EigenvalueAnalysis_Band(3, rows.data(), cols.data(), k.data(), m.data(), 0.0,
                                              0.0, 0, &count, &found, &value, nullptr, nullptr);
  EXPECT_EQ(code, -91);
  EXPECT_EQ(VQ_GetLastErrorID(), code);
  EXPECT_EQ(found, 0);
}

struct ResidualRow {
  const char* name;
  std::vector<double> k, m;  // diagonals
  std::vector<double> mode;  // one mode shape, or empty
  int code;
};

class HostileResidual : public ::testing::TestWithParam<ResidualRow> {};

// Failures leave the residual mode as it was and clear the two scalars.
TEST_P(HostileResidual, DocumentedCodeAndNothingWritten) {
  const ResidualRow& c = GetParam();
  Diagonal d(c.k);
  d.m = c.m;
  const std::vector<double> direction(c.k.size(), 1.0);
  std::vector<double> mode(c.k.size(), 7.0);
  double eigenvalue = 7.0, fraction = 7.0;
  const int code = VQ_ResidualMode(d.n(), VQTEST_CSR(d.k), d.m.data(), c.mode.empty() ? 0 : 1,
                                   c.mode.empty() ? nullptr : c.mode.data(), direction.data(), mode.data(),
                                   &eigenvalue, &fraction);
  EXPECT_EQ(code, c.code);
  EXPECT_EQ(VQ_GetLastErrorID(), c.code);
  for (double x : mode) EXPECT_EQ(x, 7.0);
  EXPECT_EQ(eigenvalue, 0.0);
  EXPECT_EQ(fraction, 0.0);
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, HostileResidual,
    ::testing::Values(
        // Equation 1 has neither stiffness nor mass: K - sigma*M is singular for every sigma.
        ResidualRow{"NoStiffnessNoMass", {0.0, 1.0, 1.0}, {0.0, 1.0, 1.0}, {}, -3},
        // A mode near the largest doubles: r - phi*(phi'*M*r) overflows.
        ResidualRow{"ModeOverflows", {4.0, 4.0}, {1.0, 1.0}, {1e300, 0.0}, -64},
        ResidualRow{"DirectionMassOverflows", {4.0, 4.0}, {1e308, 1e308}, {}, -64},
        // r - phi*(phi'*M*r) = (1, 2) has M-norm 2 - 4 < 0: M is not semi-definite.
        ResidualRow{"MassNotSemiDefinite", {4.0, 4.0}, {2.0, -1.0}, {0.0, 1.0}, -64}),
    [](const ::testing::TestParamInfo<ResidualRow>& info) { return std::string(info.param.name); });

// A shift that is not finite, or that makes K - shift*M overflow, and an active limit that is
// not a number are invalid input.
TEST(HostileBlockLanczos, ShiftAndLimitMustBeNumbers) {
  struct Row { double shift; int limitActive; double limit; double mass; int code; };
  for (const Row& r : {Row{kInf, 0, 0.0, 1.0, -64}, Row{-kInf, 0, 0.0, 1.0, -64},
                       Row{kNaN, 0, 0.0, 1.0, -64}, Row{1e300, 0, 0.0, 1e10, -64},
                       Row{0.0, 1, kNaN, 1.0, -64}, Row{0.0, 0, kNaN, 1.0, 0},
                       Row{0.0, 1, kInf, 1.0, 0}}) {
    Diagonal d({8.0 * r.mass, 9.0 * r.mass});
    d.m.assign(2, r.mass);
    std::vector<double> values(2, -1.0), shapes(4, -1.0);
    int found = -1, sturm = -5;
    const int code = VQ_EigenvalueAnalysis_BlockLanczos(d.n(), 2, VQTEST_CSR(d.k), d.m.data(), 0, 0, &found,
                                                        values.data(), shapes.data(), r.shift, r.limitActive,
                                                        r.limit, nullptr, &sturm);
    EXPECT_EQ(code, r.code) << r.shift << " " << r.limit << " " << r.mass;
    if (r.code != 0) {
      EXPECT_EQ(found, 0);
      EXPECT_EQ(values, std::vector<double>(2, 0.0));
      EXPECT_EQ(shapes, std::vector<double>(4, -1.0));
      EXPECT_EQ(sturm, -1);
    } else {
      EXPECT_NEAR(values[0], 8.0, 1e-9);
      EXPECT_NEAR(values[1], 9.0, 1e-9);
    }
  }
}

// Buckling with a zero Kg has no buckling factor (all infinite): nothing is delivered.
TEST(HostileBlockLanczos, NoGeometricStiffnessNoBucklingFactor) {
  const Diagonal d({12.0, 12.0, 12.0});
  const std::vector<double> kg(3, 0.0);
  std::vector<double> values(3, -1.0);
  int found = -1;
  const int code = VQ_EigenvalueAnalysis_BlockLanczos2(
      d.n(), 3, VQTEST_CSR(d.k), d.k.rowPointers.data(), d.k.columnIndices.data(), kg.data(),
      3, 1, 2, &found, values.data(), nullptr, 0.0, 0, 0.0, nullptr, nullptr);
  EXPECT_LT(code, 0);
  EXPECT_EQ(VQ_GetLastErrorID(), code);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(values, std::vector<double>(3, 0.0));
}

// Inertia does not depend on the scale: values near the largest doubles are counted right (their
// squares would overflow in the factorisation), and a shift whose multiple of M overflows is
// refused.
TEST(HostileSturm, ValuesNearTheLargestDoubles) {
  // K - (-3)*M has eigenvalues of about -2.6e305, -3e300, 2e300, 2.6e305: two below -3.
  const std::vector<int> rows = {1, 5, 8, 9, 10}, cols = {1, 2, 3, 4, 2, 3, 4, 3, 4};
  const std::vector<double> k = {0.5, 1.2e160, 2e-16, 2e-16, 2e-16, -2.56e305, 1e300, -1e300, -1e300};
  const std::vector<double> m = {-1e300, 0.0, 1e300, 1e300};
  struct Row { double sigma; int code, count; };
  for (const Row& r : {Row{-3.0, 0, 2}, Row{1e10, -64, -1}}) {
    int count = -1;
    EXPECT_EQ(VQ_SturmCount(4, rows.data(), cols.data(), k.data(), m.data(), r.sigma, &count), r.code)
        << r.sigma;
    EXPECT_EQ(VQ_GetLastErrorID(), r.code);
    EXPECT_EQ(count, r.count);
  }
}

}  // namespace
