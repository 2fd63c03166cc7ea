// Residual (missing-mass) mode: modes + residual mode hold the whole mass of each direction,
// the residual mode is M-orthonormal to the modes, and its eigenvalue is the participation-
// weighted harmonic mean of the eigenvalues left out (checked with every dsygv eigenpair).
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <string>
#include <vector>

#include "eigen/VQ_BandEigenSolver.h"
#include "models/SolidModel.h"
#include "support/EigenSupport.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;
using vqtest::EigenProblem;

struct Model {
  EigenProblem e;
  std::vector<std::vector<double>> directions;  // x, y, z translations, a wave
};

Model Solid(int nx, int ny, int nz, bool consistent, bool clamped) {
  vqmath::models::SolidParameters p;
  p.nx = nx, p.ny = ny, p.nz = nz, p.consistentMass = consistent, p.clamped = clamped;
  vqmath::models::SolidModel model(p);
  Model m;
  m.e = vqtest::SolidProblem(nx, ny, nz, consistent, clamped);
  for (int d = 0; d < 3; ++d) m.directions.push_back(model.RigidBodyMode(d));
  // A field no set of rigid-body modes holds.
  std::vector<double> wave(m.e.k.n);
  for (size_t i = 0; i < wave.size(); ++i) wave[i] = std::sin(0.37 * static_cast<double>(i));
  m.directions.push_back(wave);
  return m;
}

using vqtest::MDot;

struct ResidualCase {
  const char* name;
  int nx, ny, nz;
  bool consistent, clamped;
  int modes;  // modes of the band (from the bottom), before the residual mode
};

class ResidualMode : public ::testing::TestWithParam<ResidualCase> {};

TEST_P(ResidualMode, CompletesTheMassAndMatchesTheMissingModes) {
  const ResidualCase& c = GetParam();
  const Model model = Solid(c.nx, c.ny, c.nz, c.consistent, c.clamped);
  const EigenProblem& e = model.e;
  const Csr m = e.MassCsr();
  const int n = e.k.n;
  std::vector<double> denseVectors;
  const std::vector<double> ev = vqtest::DenseEigenvalues(e.k, m, &denseVectors);
  // The band: everything below the midpoint above mode `modes` (a free body from just below 0).
  const double lower = c.clamped ? -DBL_MAX : -1e-3 * ev[6];
  const double upper = 0.5 * (ev[c.modes - 1] + ev[c.modes]);
  const vqtest::BandRun band = vqtest::RunBand(e, lower, upper, c.modes + 4);
  const int found = band.found;
  const std::vector<double>& shapes = band.vectors;
  ASSERT_EQ(band.code, 0);
  ASSERT_EQ(found, c.modes);

  for (int d = 0; d < 4; ++d) {
    SCOPED_TRACE("direction " + std::to_string(d));
    const double* r = model.directions[d].data();
    std::vector<double> psi(n);
    double lambda = 0.0, fraction = 0.0;
    const int rc = e.diagonal()
                       ? VQ_ResidualMode(n, VQTEST_CSR(e.k), e.lumped.data(), found, shapes.data(),
                                         r, psi.data(), &lambda, &fraction)
                       : VQ_ResidualMode2(n, VQTEST_CSR(e.k), VQTEST_CSR(m), found, shapes.data(),
                                          r, psi.data(), &lambda, &fraction);
    ASSERT_EQ(rc, 0);
    const double total = MDot(m, r, r);
    double modal = 0.0;
    for (int j = 0; j < found; ++j) {
      const double g = MDot(m, &shapes[static_cast<size_t>(j) * n], r);
      modal += g * g / total;
      EXPECT_NEAR(MDot(m, &shapes[static_cast<size_t>(j) * n], psi.data()), 0.0, 1e-10);
    }
    EXPECT_NEAR(modal + fraction, 1.0, 1e-10);
    if (modal > 1.0 - 1e-10) {
      // A free body's rigid-body modes hold a translation completely: no residual mode.
      for (double x : psi) ASSERT_EQ(x, 0.0);
      continue;
    }
    EXPECT_NEAR(MDot(m, psi.data(), psi.data()), 1.0, 1e-10);
    // Independent eigenvalue: Σ c² / Σ (c²/λ) over the dense modes left out.
    double mass = 0.0, flexibility = 0.0;
    for (size_t j = c.modes; j < ev.size(); ++j) {
      const double g = MDot(m, &denseVectors[j * n], r);
      mass += g * g;
      flexibility += g * g / ev[j];
    }
    if (mass > 1e-8 * total) {
      EXPECT_NEAR(lambda, mass / flexibility, 1e-7 * lambda);
      EXPECT_GE(lambda, ev[c.modes] * (1 - 1e-10));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Solids, ResidualMode,
    ::testing::Values(ResidualCase{"ClampedLumped", 6, 2, 3, false, true, 10},
                      ResidualCase{"ClampedConsistent", 5, 2, 2, true, true, 14},
                      ResidualCase{"FreeLumpedWithRigidBodyModes", 4, 2, 3, false, false, 12}),
    [](const ::testing::TestParamInfo<ResidualCase>& info) { return std::string(info.param.name); });

// The class computes the flat function's residual mode with the band's own factorisation; no modes at all
// leaves the whole mass to the residual mode; a direction without mass is refused.
TEST(ResidualModeEdges, ClassNoModesAndMasslessDirection) {
  const Model model = Solid(6, 2, 3, false, true);
  const EigenProblem& e = model.e;
  const int n = e.k.n;
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  VQ_BandEigenSolver band(vqtest::BandProblemOf(e, -DBL_MAX, 0.5 * (ev[7] + ev[8])));
  ASSERT_EQ(band.Solve(20), 0);
  std::vector<double> psi(n), flat(n);
  double lambda = 0, fraction = 0, modes = 0, flatLambda = 0, flatFraction = 0;
  ASSERT_EQ(band.ComputeResidualMode(model.directions[2].data(), psi.data(), &lambda, &fraction,
                                     &modes), 0);
  EXPECT_NEAR(modes + fraction, 1.0, 1e-10);
  ASSERT_EQ(VQ_ResidualMode(n, VQTEST_CSR(e.k), e.lumped.data(), 8, band.ModeShapes().data(),
                            model.directions[2].data(), flat.data(), &flatLambda, &flatFraction),
            0);
  // The flat function is checked against the dense modes above; the class must agree with it.
  EXPECT_NEAR(lambda, flatLambda, 1e-8 * flatLambda);
  EXPECT_NEAR(fraction, flatFraction, 1e-10);

  ASSERT_EQ(VQ_ResidualMode(n, VQTEST_CSR(e.k), e.lumped.data(), 0, nullptr,
                            model.directions[0].data(), flat.data(), &flatLambda, &flatFraction),
            0);
  EXPECT_NEAR(flatFraction, 1.0, 1e-12);

  const std::vector<double> zero(n, 0.0);
  EXPECT_EQ(VQ_ResidualMode(n, VQTEST_CSR(e.k), e.lumped.data(), 0, nullptr, zero.data(),
                            flat.data(), &flatLambda, &flatFraction),
            -20);
}

}  // namespace
