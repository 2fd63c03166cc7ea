// Buckling modes by the Lanczos driver (ARPACK's buckling mode on K − σ·Kg): the pinned column
// against Euler's loads n²·π²·EI/L², the single-problem selector, and the buckling failures.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "eigen/VQ_LanczosEigenSolver.h"
#include "models/FrameModel.h"
#include "support/TestSupport.h"

namespace {

using vqmath::models::ColumnParameters;
using vqmath::models::CsrMatrix;
using vqmath::models::FrameModel;

struct Outcome {
  int driverStatus = 0;
  VQ_LanczosResult result;
  std::vector<double> values;
  std::vector<double> modes;
};

VQ_LanczosProblem Problem(const CsrMatrix& k, const CsrMatrix& b, int requested, double shift,
                          std::vector<double>& values, std::vector<double>& modes, int* found) {
  values.assign(static_cast<size_t>(requested), 0.0);
  modes.assign(static_cast<size_t>(k.n) * requested, 0.0);
  VQ_LanczosProblem p;
  p.n = k.n;
  p.requested = requested;
  p.kRowPointers = k.rowPointers.data();
  p.kColumnIndices = k.columnIndices.data();
  p.kValues = k.values.data();
  p.bRowPointers = b.rowPointers.data();
  p.bColumnIndices = b.columnIndices.data();
  p.bValues = b.values.data();
  p.shift = shift;
  p.eigenvalues = values.data();
  p.modeShapes = modes.data();
  p.found = found;
  return p;
}

// flag 1: buckling through the single-problem selector; 0: natural modes; 2: incremental
// buckling with the given block.
Outcome RunLanczos(const CsrMatrix& k, const CsrMatrix& b, int requested, double shift, int flag,
                   int block = 0) {
  Outcome o;
  int found = -1;
  VQ_LanczosProblem p = Problem(k, b, requested, shift, o.values, o.modes, &found);
  p.blockSize = block;
  VQ_LanczosEigenSolver solver(p);
  o.driverStatus = flag == 2 ? solver.SolveBucklingModesIncrementally() : solver.Solve(flag);
  o.result = solver.Result();
  EXPECT_EQ(found, o.result.found);
  o.values.resize(static_cast<size_t>(std::max(found, 0)));
  return o;
}

ColumnParameters Column(int elements) {
  ColumnParameters c;
  c.elements = elements;
  return c;
}

TEST(LanczosBuckling, PinnedColumnGivesEulersLoads) {
  const ColumnParameters c = Column(24);
  const FrameModel column = FrameModel::PinnedColumn(c);
  // A positive shift below the first load (π²EI/L² ≈ 2.5e6 N): the loads nearest it are the
  // lowest ones. The shift should be of the order of the loads wanted: the buckling
  // transformation ν = λ/(λ − σ) crowds all ν towards 1 when σ is far below them.
  const Outcome o = RunLanczos(column.Stiffness(), column.GeometricStiffness(), 4, 1e6, 1);
  ASSERT_EQ(o.driverStatus, 0) << o.result.message;
  ASSERT_EQ(o.result.found, 4);
  for (int mode = 1; mode <= 4; ++mode)
    EXPECT_LT(vqtest::RelDiff(o.values[mode - 1], c.EulerLoad(mode)), 1e-3)
        << "mode " << mode << ": " << o.values[mode - 1] << " vs " << c.EulerLoad(mode);
  // n²·π²EI/L²: the ratios of the higher loads to the first.
  for (int mode = 2; mode <= 4; ++mode)
    EXPECT_NEAR(o.values[mode - 1] / o.values[0], mode * mode, 2e-3 * mode * mode);
}

TEST(LanczosBuckling, RefiningTheColumnConvergesToEulersLoad) {
  double previous = 1.0;
  for (int elements : {4, 8, 16}) {
    const ColumnParameters c = Column(elements);
    const FrameModel column = FrameModel::PinnedColumn(c);
    const Outcome o = RunLanczos(column.Stiffness(), column.GeometricStiffness(), 2, 1e6, 1);
    ASSERT_EQ(o.driverStatus, 0) << o.result.message;
    const double error = vqtest::RelDiff(o.values[0], c.EulerLoad(1));
    EXPECT_LT(error, previous) << elements << " elements";
    EXPECT_GT(o.values[0], c.EulerLoad(1) * (1 - 1e-12));  // the model is stiffer than the beam
    previous = error;
  }
  EXPECT_LT(previous, 1e-5);
}

TEST(LanczosBuckling, BucklingModesAreKNormalised) {
  const FrameModel column = FrameModel::PinnedColumn(Column(12));
  Outcome o;
  int found = 0;
  VQ_LanczosProblem p =
      Problem(column.Stiffness(), column.GeometricStiffness(), 3, 1e6, o.values, o.modes, &found);
  VQ_LanczosEigenSolver solver(p);
  ASSERT_EQ(solver.SolveBucklingModes(), 0) << solver.GetErrorMessage();
  const CsrMatrix& k = column.Stiffness();
  const CsrMatrix& kg = column.GeometricStiffness();
  const int n = k.n;
  for (int a = 0; a < 3; ++a) {
    const std::vector<double> phi(o.modes.begin() + a * n, o.modes.begin() + (a + 1) * n);
    const std::vector<double> kphi = vqmath::models::Multiply(k, phi);
    const std::vector<double> gphi = vqmath::models::Multiply(kg, phi);
    double kk = 0, gg = 0, r = 0, rn = 0;
    for (int i = 0; i < n; ++i) {
      kk += phi[i] * kphi[i];
      gg += phi[i] * gphi[i];
      const double ri = kphi[i] - o.values[a] * gphi[i];
      r += ri * ri;
      rn += kphi[i] * kphi[i];
    }
    EXPECT_NEAR(kk, 1.0, 1e-9);                             // φᵀ·K·φ = 1
    EXPECT_NEAR(kk / gg, o.values[a], 1e-8 * o.values[a]);  // Rayleigh quotient
    EXPECT_LT(std::sqrt(r / rn), 1e-9);
  }
}

TEST(LanczosBuckling, SelectorRunsNaturalModesForAnyOtherFlag) {
  ColumnParameters c = Column(24);
  c.consistentMass = true;
  const FrameModel column = FrameModel::PinnedColumn(c);
  for (int flag : {0, 3, -1}) {
    const Outcome o = RunLanczos(column.Stiffness(), column.Mass(), 2, 0.0, flag);
    ASSERT_EQ(o.driverStatus, 0) << o.result.message;
    // ω² of the first transverse mode of the pinned beam.
    const double omega = c.NaturalFrequency(1);
    EXPECT_LT(vqtest::RelDiff(o.values[0], omega * omega), 1e-3) << "flag " << flag;
  }
}

TEST(LanczosBuckling, ZeroShiftIsRefusedBeforeAnythingIsFactored) {
  const FrameModel column = FrameModel::PinnedColumn(Column(8));
  for (int flag : {1, 2}) {
    const Outcome o = RunLanczos(column.Stiffness(), column.GeometricStiffness(), 2, 0.0, flag, 2);
    EXPECT_EQ(o.driverStatus, -101);
    EXPECT_EQ(o.result.status, -46);
    EXPECT_EQ(o.result.message,
              "Cannot use ARPACK buckling mode (mode 4) without a shift (shift cannot be zero)");
    EXPECT_EQ(o.result.found, 0);
    EXPECT_EQ(o.result.factorizations, 0);
  }
}

TEST(LanczosBuckling, BucklingFactorNearZeroEndsTheRun) {
  // K·φ = λ·I·φ with one almost vanishing stiffness: a mechanism in all but name.
  const std::vector<double> kd = {1e-12, 1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0};
  const CsrMatrix k = vqmath::models::FromDiagonal(kd);
  const CsrMatrix kg = vqmath::models::FromDiagonal(std::vector<double>(kd.size(), 1.0));
  // The shift next to it (the buckling transformation finds the factors nearest the shift).
  for (int flag : {1, 2}) {
    const Outcome o = RunLanczos(k, kg, 3, 5e-13, flag, 3);
    EXPECT_EQ(o.driverStatus, -302);
    EXPECT_EQ(o.result.status, -47);
    EXPECT_EQ(o.result.message,
              "Buckling factor is approaching zero, check model for instabilities");
  }
}

TEST(LanczosBuckling, IncrementalBucklingFindsTheSameLoads) {
  const ColumnParameters c = Column(24);
  const FrameModel column = FrameModel::PinnedColumn(c);
  const Outcome single = RunLanczos(column.Stiffness(), column.GeometricStiffness(), 6, 1e6, 1);
  const Outcome passes = RunLanczos(column.Stiffness(), column.GeometricStiffness(), 6, 1e6, 2, 2);
  ASSERT_EQ(single.driverStatus, 0) << single.result.message;
  ASSERT_EQ(passes.driverStatus, 0) << passes.result.message;
  ASSERT_EQ(passes.result.found, 6);
  EXPECT_GT(passes.result.passes, 1);
  for (int i = 0; i < 6; ++i) EXPECT_LT(vqtest::RelDiff(passes.values[i], single.values[i]), 1e-9);
}

}  // namespace
