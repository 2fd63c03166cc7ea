// Incremental natural modes: passes of a fixed block size with moving shifts find the same modes
// as one pass, never deliver a mode twice (also across repeated eigenvalues cut by a block), and
// report what they did.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include "models/SolidModel.h"
#include "support/LanczosSupport.h"
#include "support/ModelsSupport.h"

namespace {

using vqtest::Csr;
using vqtest::LanczosRun;

// block 0: one pass; otherwise the incremental driver with that block size.
LanczosRun Solve(const Csr& k, const std::vector<double>& mass, int requested, int block,
                 bool verbose = false) {
  return vqtest::RunLanczos(
      k, nullptr, &mass, requested,
      [block](VQ_LanczosEigenSolver& s) {
        return block == 0 ? s.SolveNaturalModes() : s.SolveNaturalModesIncrementally();
      },
      [&](VQ_LanczosProblem& p) {
        p.blockSize = block;
        p.verbose = verbose;
      });
}

std::vector<double> Ramp(int n) {
  std::vector<double> v(n);
  std::iota(v.begin(), v.end(), 1.0);
  return v;
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
  const Csr k = vqtest::FromModel(model.Stiffness());
  const std::vector<double>& mass = model.LumpedMass();
  const Csr m = vqtest::DiagonalCsr(mass);

  const LanczosRun one = Solve(k, mass, c.requested, 0);
  const LanczosRun passes = Solve(k, mass, c.requested, c.block);
  ASSERT_TRUE(vqtest::Delivered(one));
  ASSERT_TRUE(vqtest::Delivered(passes, c.requested));
  EXPECT_GT(passes.result.passes, 1);
  EXPECT_EQ(passes.result.factorizations, passes.result.passes);
  for (int i = 0; i < c.requested; ++i)
    EXPECT_LT(vqtest::RelDiff(passes.values[i], one.values[i]), 1e-9)
        << "mode " << i + 1 << ": " << passes.values[i] << " vs " << one.values[i];
  // No mode twice: the delivered shapes are M-orthonormal, also within repeated eigenvalues.
  EXPECT_LT(vqtest::MOrthonormalityError(m, c.requested, passes.modes.data()), 1e-8);
  EXPECT_LT(vqtest::EigenResidual(k, m, c.requested, passes.values.data(), passes.modes.data()),
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

TEST(LanczosIncrementalExact, RepeatedEigenvaluesAreKeptApart) {
  // λ = 1, 1, 1, 2, 2, 3, 3, 3, 4, … : triples and pairs cut by blocks of two.
  const int n = 40;
  std::vector<double> kd(n), md(n), expected(n);
  for (int i = 0; i < n; ++i) {
    md[i] = 1.0 + 0.1 * (i % 3);  // non-uniform mass
    kd[i] = (1.0 + (i % 13)) * md[i];
    expected[i] = kd[i] / md[i];
  }
  std::sort(expected.begin(), expected.end());
  const LanczosRun m = Solve(vqtest::DiagonalCsr(kd), md, 11, 2);
  ASSERT_TRUE(vqtest::Delivered(m, 11));
  for (int i = 0; i < 11; ++i) EXPECT_NEAR(m.values[i], expected[i], 1e-10);
  EXPECT_LT(vqtest::MOrthonormalityError(vqtest::DiagonalCsr(md), 11, m.modes.data()), 1e-8);
}

}  // namespace
