// Incremental natural modes: passes of a fixed block size with moving shifts find the same modes
// as one pass, never deliver a mode twice (also across repeated eigenvalues cut by a block), and
// report what they did.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "eigen/VQ_LanczosEigenSolver.h"
#include "models/SolidModel.h"
#include "support/TestSupport.h"

namespace {

using vqtest::Csr;

struct Modes {
  int driverStatus = 0;
  VQ_LanczosResult result;
  std::vector<double> values;
  std::vector<double> shapes;
};

// block 0: one pass; otherwise the incremental driver with that block size.
Modes Solve(const Csr& k, const std::vector<double>& mass, int requested, int block,
            double shift = 0.0, bool verbose = false) {
  Modes m;
  m.values.assign(static_cast<size_t>(requested), 0.0);
  m.shapes.assign(static_cast<size_t>(k.n) * requested, 0.0);
  int found = -1;
  VQ_LanczosProblem p;
  p.n = k.n;
  p.requested = requested;
  p.kRowPointers = k.rowPointers.data();
  p.kColumnIndices = k.columnIndices.data();
  p.kValues = k.values.data();
  p.bDiagonal = mass.data();
  p.shift = shift;
  p.blockSize = block;
  p.verbose = verbose;
  p.eigenvalues = m.values.data();
  p.modeShapes = m.shapes.data();
  p.found = &found;
  VQ_LanczosEigenSolver solver(p);
  m.driverStatus =
      block == 0 ? solver.SolveNaturalModes() : solver.SolveNaturalModesIncrementally();
  m.result = solver.Result();
  EXPECT_EQ(found, m.result.found);
  m.values.resize(static_cast<size_t>(std::max(found, 0)));
  m.shapes.resize(static_cast<size_t>(k.n) * std::max(found, 0));
  return m;
}

Csr FromModel(const vqmath::models::CsrMatrix& a) {
  Csr c;
  c.n = a.n;
  c.rowPointers = a.rowPointers;
  c.columnIndices = a.columnIndices;
  c.values = a.values;
  return c;
}

struct IncrementalCase {
  const char* name;
  int nx, ny, nz;
  int requested;
  int block;
};

class LanczosIncremental : public ::testing::TestWithParam<IncrementalCase> {};

TEST_P(LanczosIncremental, PassesFindTheModesOfOnePassExactlyOnce) {
  const IncrementalCase c = GetParam();
  vqmath::models::SolidParameters sp;
  sp.nx = c.nx;
  sp.ny = c.ny;
  sp.nz = c.nz;
  const vqmath::models::SolidModel model(sp);
  const Csr k = FromModel(model.Stiffness());
  const std::vector<double>& mass = model.LumpedMass();
  const Csr m = vqtest::DiagonalCsr(mass);

  const Modes one = Solve(k, mass, c.requested, 0);
  const Modes passes = Solve(k, mass, c.requested, c.block);
  ASSERT_EQ(one.driverStatus, 0) << one.result.message;
  ASSERT_EQ(passes.driverStatus, 0) << passes.result.message;
  ASSERT_EQ(passes.result.found, c.requested);
  EXPECT_GT(passes.result.passes, 1);
  EXPECT_EQ(passes.result.factorizations, passes.result.passes);
  for (int i = 0; i < c.requested; ++i)
    EXPECT_LT(vqtest::RelDiff(passes.values[i], one.values[i]), 1e-9)
        << "mode " << i + 1 << ": " << passes.values[i] << " vs " << one.values[i];
  // No mode twice: the delivered shapes are M-orthonormal, also within repeated eigenvalues.
  EXPECT_LT(vqtest::MOrthonormalityError(m, c.requested, passes.shapes.data()), 1e-8);
  EXPECT_LT(vqtest::EigenResidual(k, m, c.requested, passes.values.data(), passes.shapes.data()),
            1e-8);
  EXPECT_TRUE(std::is_sorted(passes.values.begin(), passes.values.end()));
}

// The square cross-sections have pairs of equal bending eigenvalues; blocks of odd size cut
// such pairs between passes.
INSTANTIATE_TEST_SUITE_P(Solids, LanczosIncremental,
                         ::testing::Values(IncrementalCase{"RectangularBarBlock4", 8, 3, 2, 14, 4},
                                           IncrementalCase{"SquareBarBlock3", 8, 2, 2, 12, 3},
                                           IncrementalCase{"SquareBarBlock2", 6, 2, 2, 9, 2},
                                           IncrementalCase{"CubeBlock5", 3, 3, 3, 16, 5}),
                         [](const ::testing::TestParamInfo<IncrementalCase>& info) {
                           return std::string(info.param.name);
                         });

TEST(LanczosIncrementalExact, DiagonalPencilInPassesOfTwo) {
  const int n = 50;
  std::vector<double> kd(n), md(n, 1.0);
  std::iota(kd.begin(), kd.end(), 1.0);
  std::reverse(kd.begin(), kd.end());
  const Csr k = vqtest::DiagonalCsr(kd);
  const Modes m = Solve(k, md, 10, 2);
  ASSERT_EQ(m.driverStatus, 0) << m.result.message;
  ASSERT_EQ(m.result.found, 10);
  for (int i = 0; i < 10; ++i) EXPECT_NEAR(m.values[i], i + 1.0, 1e-10);
}

TEST(LanczosIncrementalExact, RepeatedEigenvaluesAreKeptApart) {
  // λ = 1, 1, 1, 2, 2, 3, 3, 3, 4, … : triples and pairs cut by blocks of two.
  const int n = 40;
  std::vector<double> kd(n), md(n);
  for (int i = 0; i < n; ++i) {
    kd[i] = 1.0 + (i % 13);
    md[i] = 1.0 + 0.1 * (i % 3);  // non-uniform mass
    kd[i] *= md[i];
  }
  std::vector<double> expected = kd;
  for (int i = 0; i < n; ++i) expected[i] = kd[i] / md[i];
  std::sort(expected.begin(), expected.end());
  const Csr k = vqtest::DiagonalCsr(kd);
  const Modes m = Solve(k, md, 11, 2);
  ASSERT_EQ(m.driverStatus, 0) << m.result.message;
  ASSERT_EQ(m.result.found, 11);
  for (int i = 0; i < 11; ++i) EXPECT_NEAR(m.values[i], expected[i], 1e-10);
  EXPECT_LT(vqtest::MOrthonormalityError(vqtest::DiagonalCsr(md), 11, m.shapes.data()), 1e-8);
}

TEST(LanczosIncrementalExact, BlockSizeBelowTwoIsRefused) {
  const std::vector<double> kd = {1, 2, 3, 4, 5}, md(5, 1.0);
  const Csr k = vqtest::DiagonalCsr(kd);
  for (int block : {1, 0, -3}) {
    VQ_LanczosProblem p;
    p.n = 5;
    p.requested = 2;
    p.kRowPointers = k.rowPointers.data();
    p.kColumnIndices = k.columnIndices.data();
    p.kValues = k.values.data();
    p.bDiagonal = md.data();
    p.blockSize = block;
    double values[2] = {7, 7};
    p.eigenvalues = values;
    VQ_LanczosEigenSolver solver(p);
    EXPECT_EQ(solver.SolveNaturalModesIncrementally(), -202);
    EXPECT_EQ(solver.GetStatus(), -46);
    EXPECT_EQ(solver.GetErrorMessage(),
              "Incremental solver requires block size greater than or equal to 2");
    EXPECT_EQ(solver.Result().factorizations, 0);
  }
}

TEST(LanczosIncrementalExact, VerboseRunReportsPassesShiftsAndMac) {
  const int n = 30;
  std::vector<double> kd(n), md(n, 1.0);
  std::iota(kd.begin(), kd.end(), 1.0);
  const Csr k = vqtest::DiagonalCsr(kd);
  testing::internal::CaptureStdout();
  const Modes m = Solve(k, md, 6, 3, 0.0, true);
  const std::string out = testing::internal::GetCapturedStdout();
  ASSERT_EQ(m.driverStatus, 0) << m.result.message;
  EXPECT_NE(out.find("    solving incrementally using 2 passes with size 3\n"), std::string::npos)
      << out;
  EXPECT_NE(out.find("    Current shift value is 0.000000\n"), std::string::npos) << out;
  EXPECT_NE(out.find("    Computed MAC value = 0.000000\n"), std::string::npos) << out;
  EXPECT_NE(out.find("    Found 3 modes in pass 1/2 (total 3 found)\n"), std::string::npos) << out;
  EXPECT_NE(out.find("    Found all 6 modes in pass "), std::string::npos) << out;
  // The second pass starts between the two highest eigenvalues of the first: (2 + 3) / 2.
  EXPECT_NE(out.find("    Current shift value is 2.500000\n"), std::string::npos) << out;
  // A mode found again shows a MAC of 1.
  EXPECT_NE(out.find("    Computed MAC value = 1.000000\n"), std::string::npos) << out;
}

TEST(LanczosIncrementalExact, QuietRunPrintsNothing) {
  const std::vector<double> kd = {1, 2, 3, 4, 5, 6, 7, 8}, md(8, 1.0);
  const Csr k = vqtest::DiagonalCsr(kd);
  testing::internal::CaptureStdout();
  const Modes m = Solve(k, md, 4, 2);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(m.driverStatus, 0);
}

}  // namespace
