// Buckling modes by the Lanczos driver (ARPACK's buckling mode on K − σ·Kg): the pinned column
// against Euler's loads n²·π²·EI/L², the single-problem selector, and the buckling failures.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "models/FrameModel.h"
#include "support/LanczosSupport.h"
#include "support/ModelsSupport.h"

namespace {

using vqmath::models::ColumnParameters;
using vqmath::models::FrameModel;
using vqtest::Csr;
using vqtest::LanczosRun;

// The pinned column of the model generator with its matrices in the test CSR form.
struct Column {
  ColumnParameters c;
  Csr k, kg, m;
  explicit Column(int elements, bool consistentMass = false) {
    c.elements = elements, c.consistentMass = consistentMass;
    const FrameModel f = FrameModel::PinnedColumn(c);
    k = vqtest::FromModel(f.Stiffness());
    kg = vqtest::FromModel(f.GeometricStiffness());
    m = vqtest::FromModel(f.Mass());
  }
};

// flag 1: buckling through the single-problem selector; 0 (or any other): natural modes; 2:
// incremental buckling with the given block.
LanczosRun Lanczos(const Csr& k, const Csr& b, int requested, double shift, int flag,
                   int block = 0) {
  return vqtest::RunLanczos(
      k, &b, nullptr, requested,
      [flag](VQ_LanczosEigenSolver& s) {
        return flag == 2 ? s.SolveBucklingModesIncrementally() : s.Solve(flag);
      },
      [&](VQ_LanczosProblem& p) { p.shift = shift, p.blockSize = block; });
}

TEST(LanczosBuckling, PinnedColumnGivesEulersLoadsInOneOrSeveralPasses) {
  const Column col(24);
  // A positive shift below the first load (π²EI/L² ≈ 2.5e6 N): the loads nearest it are the
  // lowest ones. The shift should be of the order of the loads wanted: the buckling
  // transformation ν = λ/(λ − σ) crowds all ν towards 1 when σ is far below them.
  const LanczosRun single = Lanczos(col.k, col.kg, 6, 1e6, 1);
  ASSERT_TRUE(vqtest::Delivered(single, 6));
  for (int mode = 1; mode <= 4; ++mode) {
    EXPECT_LT(vqtest::RelDiff(single.values[mode - 1], col.c.EulerLoad(mode)), 1e-3)
        << "mode " << mode << ": " << single.values[mode - 1] << " vs " << col.c.EulerLoad(mode);
    // n²·π²EI/L²: the ratios of the higher loads to the first.
    EXPECT_NEAR(single.values[mode - 1] / single.values[0], mode * mode, 2e-3 * mode * mode);
  }
  const LanczosRun passes = Lanczos(col.k, col.kg, 6, 1e6, 2, 2);
  ASSERT_TRUE(vqtest::Delivered(passes, 6));
  EXPECT_GT(passes.result.passes, 1);
  for (int i = 0; i < 6; ++i) EXPECT_LT(vqtest::RelDiff(passes.values[i], single.values[i]), 1e-9);
}

TEST(LanczosBuckling, BucklingModesAreKNormalisedEigenvectors) {
  const Column col(12);
  const LanczosRun o =
      vqtest::RunLanczos(col.k, &col.kg, nullptr, 3, &VQ_LanczosEigenSolver::SolveBucklingModes,
                         [](VQ_LanczosProblem& p) { p.shift = 1e6; });
  ASSERT_TRUE(vqtest::Delivered(o));
  EXPECT_LT(vqtest::MOrthonormalityError(col.k, 3, o.modes.data()), 1e-9);  // Φᵀ·K·Φ = I
  EXPECT_LT(vqtest::EigenResidual(col.k, col.kg, 3, o.values.data(), o.modes.data()), 1e-9);
}

TEST(LanczosBuckling, RefusalsAndFailuresOfTheBucklingDrivers) {
  const Column col(8);
  // K·φ = λ·I·φ with one almost vanishing stiffness: a mechanism in all but name. The shift sits
  // next to it (the buckling transformation finds the factors nearest the shift).
  const Csr mechanism = vqtest::DiagonalCsr({1e-12, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0});
  const Csr identity = vqtest::DiagonalCsr(std::vector<double>(8, 1.0));
  for (int flag : {1, 2}) {  // single and incremental
    const LanczosRun zero = Lanczos(col.k, col.kg, 2, 0.0, flag, 2);
    EXPECT_EQ(zero.driverStatus, -101);
    EXPECT_EQ(zero.result.status, -46);
    EXPECT_EQ(zero.result.message,
              "Cannot use ARPACK buckling mode (mode 4) without a shift (shift cannot be zero)");
    EXPECT_EQ(zero.result.found, 0);
    EXPECT_EQ(zero.result.factorizations, 0);  // refused before anything is factored

    const LanczosRun near = Lanczos(mechanism, identity, 3, 5e-13, flag, 3);
    EXPECT_EQ(near.driverStatus, -302);
    EXPECT_EQ(near.result.status, -47);
    EXPECT_EQ(near.result.message,
              "Buckling factor is approaching zero, check model for instabilities");
  }
}

}  // namespace
