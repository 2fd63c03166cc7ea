// Buckling modes by the Lanczos driver (ARPACK's buckling mode on K − σ·Kg): K-normalised modes
// of the pinned column and the buckling failures (its Euler loads, in one pass and in several, are
// the flat entry points' test).
#include <gtest/gtest.h>

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
  Csr k, kg;
  explicit Column(int elements) {
    c.elements = elements;
    const FrameModel f = FrameModel::PinnedColumn(c);
    k = vqtest::FromModel(f.Stiffness()), kg = vqtest::FromModel(f.GeometricStiffness());
  }
};

// Buckling through the single-problem selector (incremental: in passes of the given block).
LanczosRun Lanczos(const Csr& k, const Csr& b, int requested, double shift, bool incremental,
                   int block) {
  return vqtest::RunLanczos(
      k, &b, nullptr, requested,
      [incremental](VQ_LanczosEigenSolver& s) {
        return incremental ? s.SolveBucklingModesIncrementally() : s.Solve(1);
      },
      [&](VQ_LanczosProblem& p) { p.shift = shift, p.blockSize = block; });
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
  for (bool incremental : {false, true}) {
    const LanczosRun zero = Lanczos(col.k, col.kg, 2, 0.0, incremental, 2);
    EXPECT_EQ(zero.driverStatus, -101);
    EXPECT_EQ(zero.result.status, -46);
    EXPECT_EQ(zero.result.message,
              "Cannot use ARPACK buckling mode (mode 4) without a shift (shift cannot be zero)");
    EXPECT_EQ(zero.result.found, 0);
    EXPECT_EQ(zero.result.factorizations, 0);  // refused before anything is factored

    const LanczosRun near = Lanczos(mechanism, identity, 3, 5e-13, incremental, 3);
    EXPECT_EQ(near.driverStatus, -302);
    EXPECT_EQ(near.result.status, -47);
    EXPECT_EQ(near.result.message,
              "Buckling factor is approaching zero, check model for instabilities");
  }
}

}  // namespace
