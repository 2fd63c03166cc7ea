// Band search: every eigenpair in [lower, upper] with the band's count from inertia counts,
// checked against dense LAPACK (dsygv) on generated solids and the real structural pairs; slicing
// against one slice; repeated pairs at slice borders; free bodies; empty bands; the cap.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "eigen/VQ_BandEigenSolver.h"
#include "support/EigenSupport.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;
using vqtest::EigenProblem;

using vqtest::BandRun;
using vqtest::RunBand;

std::vector<double> Inside(const std::vector<double>& all, double lower, double upper) {
  std::vector<double> v;
  for (double x : all)
    if (x >= lower && x <= upper) v.push_back(x);
  return v;
}

// Band result equals dsygv's eigenvalues inside the band, with valid M-orthonormal pairs.
void ExpectBand(const EigenProblem& e, const std::vector<double>& reference, const BandRun& r,
                double lower, double upper) {
  const std::vector<double> expected = Inside(reference, lower, upper);
  ASSERT_EQ(r.code, 0);
  ASSERT_EQ(r.bandCount, static_cast<int>(expected.size()));
  ASSERT_EQ(r.found, r.bandCount);
  for (int i = 0; i < r.found; ++i)
    EXPECT_NEAR(r.values[i], expected[i], 1e-10 * std::max(std::fabs(expected[i]), reference.back() * 1e-6))
        << "eigenvalue " << i;
  if (r.found == 0) return;
  const Csr m = e.MassCsr();
  EXPECT_LT(vqtest::EigenResidual(e.k, m, r.found, r.values.data(), r.vectors.data()), 1e-8);
  EXPECT_LT(vqtest::MOrthonormalityError(m, r.found, r.vectors.data()), 1e-9);
}

bool Repeated(double a, double b) { return std::fabs(a - b) < 1e-8 * std::fabs(b); }

// Bounds at the midpoints below eigenvalue `first` and above eigenvalue `last` (0-based), moved
// outward so that no repeated eigenvalue is cut.
void MidpointBand(const std::vector<double>& ev, int first, int last, double& lower, double& upper) {
  while (first > 0 && Repeated(ev[first - 1], ev[first])) --first;
  while (last + 2 < static_cast<int>(ev.size()) && Repeated(ev[last], ev[last + 1])) ++last;
  lower = first == 0 ? -DBL_MAX : 0.5 * (ev[first - 1] + ev[first]);
  upper = 0.5 * (ev[last] + ev[last + 1]);
}

struct BandCase {
  const char* name;
  const char* data;  // shared pair number, or null for a generated solid
  int nx, ny, nz;
  bool consistent;
  int first, last;  // eigenvalue indices the band holds
};

class BandAgainstDense : public ::testing::TestWithParam<BandCase> {};

TEST_P(BandAgainstDense, EigenvaluesAndCountMatchDsygv) {
  const BandCase& c = GetParam();
  EigenProblem e;
  if (c.data) {
    VQTEST_REQUIRE_DATA();
    ASSERT_TRUE(vqtest::RealProblem(c.data, e));
  } else {
    e = vqtest::SolidProblem(c.nx, c.ny, c.nz, c.consistent);
  }
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  double lower = 0.0, upper = 0.0;
  MidpointBand(ev, c.first, c.last, lower, upper);
  const BandRun r = RunBand(e, lower, upper, c.last - c.first + 8);
  ExpectBand(e, ev, r, lower, upper);
}

INSTANTIATE_TEST_SUITE_P(
    Pencils, BandAgainstDense,
    ::testing::Values(BandCase{"SolidLumpedFromBottom", nullptr, 6, 2, 3, false, 0, 11},
                      BandCase{"SolidConsistentInterior", nullptr, 6, 3, 2, true, 7, 30},
                      BandCase{"SolidLumpedManySlices", nullptr, 8, 2, 2, false, 3, 95},
                      BandCase{"Bcsstk05", "05", 0, 0, 0, false, 10, 40},
                      BandCase{"Bcsstk07Consistent", "07", 0, 0, 0, true, 0, 60},
                      BandCase{"Bcsstk01MasslessDofs", "01", 0, 0, 0, false, 2, 20},
                      BandCase{"Bcsstk22", "22", 0, 0, 0, false, 0, 50}),
    [](const ::testing::TestParamInfo<BandCase>& info) { return std::string(info.param.name); });

// An edge on an eigenvalue (dsygv's value) belongs to the band, at either end.
TEST(BandEdges, EigenvalueOnAnEdgeIsInside) {
  const EigenProblem e = vqtest::SolidProblem(5, 2, 3, false);
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  ASSERT_FALSE(Repeated(ev[3], ev[4]) || Repeated(ev[9], ev[10]));
  const BandRun r = RunBand(e, ev[4], ev[9], 20);
  ASSERT_EQ(r.code, 0);
  EXPECT_EQ(r.bandCount, 6);
  ASSERT_EQ(r.found, 6);
  EXPECT_NEAR(r.values[0], ev[4], 1e-10 * ev[4]);
  EXPECT_NEAR(r.values[5], ev[9], 1e-10 * ev[9]);
}

// The same band in many small slices and in one slice; every slice proven by its counts.
TEST(BandSlicing, ManySlicesEqualOneSlice) {
  const EigenProblem e = vqtest::SolidProblem(8, 2, 2, true);
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  double lower = 0.0, upper = 0.0;
  MidpointBand(ev, 0, 49, lower, upper);
  VQ_BandEigenSolver one(vqtest::BandProblemOf(e, lower, upper));
  one.Set_SliceSize(100);
  ASSERT_EQ(one.Solve(60), 0);
  EXPECT_EQ(one.Slices().size(), 1u);
  VQ_BandEigenSolver many(vqtest::BandProblemOf(e, lower, upper));
  many.Set_SliceSize(6);
  ASSERT_EQ(many.Solve(60), 0);
  EXPECT_GE(many.Slices().size(), 9u);
  ASSERT_EQ(one.GetNumFoundEigen(), 50);
  ASSERT_EQ(many.GetNumFoundEigen(), 50);
  for (int i = 0; i < 50; ++i)
    EXPECT_NEAR(many.Eigenvalues()[i], one.Eigenvalues()[i], 1e-10 * one.Eigenvalues()[i]);
  int total = 0;
  for (const VQ_BandSlice& s : many.Slices()) {
    EXPECT_EQ(s.found, s.countUpper - s.countLower);
    EXPECT_GE(s.countAtShift, s.countLower);
    EXPECT_LE(s.countAtShift, s.countUpper);
    total += s.found;
  }
  EXPECT_EQ(total, 50);
  EXPECT_LT(vqtest::MOrthonormalityError(e.MassCsr(), 50, many.ModeShapes().data()), 1e-9);
}

// A square-section bar has repeated bending pairs; slices of one mode put borders right at the
// pairs, which must come out once each, with M-orthonormal vectors.
TEST(BandSlicing, RepeatedPairsAtSliceBorders) {
  const EigenProblem e = vqtest::SolidProblem(12, 2, 2, false);
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  int pairs = 0;
  for (int i = 0; i + 1 < 20; ++i) pairs += std::fabs(ev[i + 1] - ev[i]) < 1e-8 * ev[i];
  ASSERT_GE(pairs, 3) << "the bar should have repeated bending eigenvalues";
  double lower = 0.0, upper = 0.0;
  MidpointBand(ev, 0, 19, lower, upper);
  VQ_BandEigenSolver s(vqtest::BandProblemOf(e, lower, upper));
  s.Set_SliceSize(1);
  ASSERT_EQ(s.Solve(20), 0) << s.GetErrorMessage();
  ASSERT_EQ(s.GetNumFoundEigen(), 20);
  for (int i = 0; i < 20; ++i) EXPECT_NEAR(s.Eigenvalues()[i], ev[i], 1e-10 * ev[i]);
  EXPECT_LT(vqtest::MOrthonormalityError(e.MassCsr(), 20, s.ModeShapes().data()), 1e-9);
}

// Free body: the six rigid-body modes are in a band that starts below zero.
TEST(BandSpecialCases, FreeBodyBandStartingBelowZero) {
  const EigenProblem e = vqtest::SolidProblem(4, 2, 2, false, false);
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  const double upper = 0.5 * (ev[13] + ev[14]);
  const BandRun r = RunBand(e, -1e-3 * ev[6], upper, 20);
  ASSERT_EQ(r.code, 0);
  ASSERT_EQ(r.bandCount, 14);
  for (int i = 0; i < 6; ++i) EXPECT_LT(std::fabs(r.values[i]), 1e-8 * ev[6]);
  for (int i = 6; i < 14; ++i) EXPECT_NEAR(r.values[i], ev[i], 1e-10 * ev[i]);
  EXPECT_LT(vqtest::MOrthonormalityError(e.MassCsr(), 14, r.vectors.data()), 1e-9);
}

TEST(BandSpecialCases, EmptyBandAndCapAndBadBounds) {
  const EigenProblem e = vqtest::SolidProblem(5, 2, 3, false);
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  ASSERT_FALSE(Repeated(ev[7], ev[8]) || Repeated(ev[11], ev[12]));
  // Between two neighbouring eigenvalues: nothing, and that is a success.
  const double gap = ev[8] - ev[7];
  BandRun r = RunBand(e, ev[7] + 0.25 * gap, ev[8] - 0.25 * gap, 4);
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.bandCount, 0);
  EXPECT_EQ(r.found, 0);

  // More modes than the cap: the code, the count, nothing written past the cap.
  const int n = e.k.n, cap = 5;
  std::vector<double> values(cap + 3, -7.0), shapes(static_cast<size_t>(n) * (cap + 1), -7.0);
  int bandCount = -1, found = -1;
  const int code = VQ_EigenvalueAnalysis_Band(n, VQTEST_CSR(e.k), e.lumped.data(), -DBL_MAX,
                                              0.5 * (ev[11] + ev[12]), cap, &bandCount, &found,
                                              values.data(), shapes.data(), nullptr);
  EXPECT_EQ(code, -90);
  EXPECT_EQ(vqtest::LastError().code, -90);
  EXPECT_EQ(bandCount, 12);
  EXPECT_EQ(found, 0);
  for (int i = cap; i < cap + 3; ++i) EXPECT_EQ(values[i], -7.0);
  for (size_t i = static_cast<size_t>(n) * cap; i < shapes.size(); ++i) ASSERT_EQ(shapes[i], -7.0);

  EXPECT_EQ(vqtest::LastError().message, "More Eigenvalues in the Band than the Caller Can Take");

  struct Bad { double lower, upper; };
  for (const Bad& b : {Bad{2.0, 1.0}, Bad{0.0, std::numeric_limits<double>::infinity()},
                       Bad{std::nan(""), 1.0}}) {
    r = RunBand(e, b.lower, b.upper, 4);
    EXPECT_EQ(r.code, -92) << b.lower << " " << b.upper;
  }
}

// Out of core: the same band through PARDISO's out-of-core factorisation.
TEST(BandSpecialCases, OutOfCoreFactorisation) {
  const EigenProblem e = vqtest::SolidProblem(6, 2, 3, true);
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  double lower = 0.0, upper = 0.0;
  MidpointBand(ev, 2, 20, lower, upper);
  vqtest::ScratchDir scratch;
  VQ_SetWorkingDir(scratch.Path().c_str());
  VQ_SetParameterL(1001, 2);
  const BandRun r = RunBand(e, lower, upper, 30);
  VQ_SetParameterL(1001, 0);
  ExpectBand(e, ev, r, lower, upper);
}

}  // namespace
