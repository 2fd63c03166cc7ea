// Plane beam-column frames: element matrices, and the buckling loads and natural frequencies
// of the pinned column against the closed-form Euler–Bernoulli values (dense LAPACK dsygv).

#include "models/BeamColumnElement.h"
#include "models/CsrMatrix.h"
#include "models/FrameModel.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace vqmath::models;

namespace {

using vqtest::SymmetricEigenvalues;

// Buckling loads of K·φ = λ·Kg·φ, ascending. Kg is only semi-definite (no axial terms), so the
// pencil is solved the other way round, Kg·φ = μ·K·φ with K definite, and λ = 1/μ over μ > 0.
std::vector<double> BucklingLoads(const FrameModel& f)
{
    return vqtest::DenseEigenvalues(f.Stiffness(), f.GeometricStiffness(), nullptr, true);
}

// Circular frequencies of K·φ = ω²·M·φ, ascending.
std::vector<double> Frequencies(const FrameModel& f)
{
    std::vector<double> w = vqtest::DenseEigenvalues(f.Stiffness(), f.Mass());
    for (double& x : w) x = std::sqrt(x);
    return w;
}

// uᵀ·A·v for a 6 × 6 element matrix A (column-major).
double Form(const double* u, const std::vector<double>& a, const double* v)
{
    double s = 0.0;
    for (int r = 0; r < 6; ++r)
        for (int q = 0; q < 6; ++q) s += u[r] * a[r + 6 * q] * v[q];
    return s;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Element

class InclinedMember : public ::testing::TestWithParam<double> {};

TEST_P(InclinedMember, StiffnessHasThreeRigidBodyModesAndKnownValues)
{
    const double angle = GetParam(), l = 2.5;
    const double x2 = l * std::cos(angle), y2 = l * std::sin(angle);
    const double e = 200e9, a = 4e-3, inertia = 8e-6;
    const std::vector<double> k = BeamColumnStiffness2D(1.0, -2.0, 1.0 + x2, -2.0 + y2, e, a, inertia);
    for (int r = 0; r < 6; ++r)
        for (int c = 0; c < 6; ++c) ASSERT_EQ(k[r + 6 * c], k[c + 6 * r]);
    const std::vector<double> w = SymmetricEigenvalues(6, k);
    for (int i = 0; i < 3; ++i) EXPECT_LT(std::fabs(w[i]), 1e-12 * w[5]);
    EXPECT_GT(w[3], 1e-6 * w[5]);
    // Stretching along the axis costs EA/L; a unit end rotation costs 4EI/L.
    const double c = std::cos(angle), s = std::sin(angle);
    const double stretch[6] = {0, 0, 0, c, s, 0};
    EXPECT_NEAR(Form(stretch, k, stretch), e * a / l, 1e-9 * e * a / l);
    EXPECT_NEAR(k[2 + 6 * 2], 4 * e * inertia / l, 1e-9 * e * inertia / l);
    EXPECT_NEAR(k[2 + 6 * 5], 2 * e * inertia / l, 1e-9 * e * inertia / l);
}

TEST_P(InclinedMember, GeometricStiffnessAndMassRespectRigidMotion)
{
    const double angle = GetParam(), l = 1.5, n = 3000.0, rhoA = 40.0;
    const double c = std::cos(angle), s = std::sin(angle);
    const std::vector<double> kg = BeamColumnGeometricStiffness2D(0, 0, l * c, l * s, n);
    const std::vector<double> m = BeamColumnConsistentMass2D(0, 0, l * c, l * s, rhoA);
    const double dx[6] = {1, 0, 0, 1, 0, 0}, dy[6] = {0, 1, 0, 0, 1, 0}, axial[6] = {0, 0, 0, c, s, 0};
    // Rigid translations carry no geometric stiffness, but the element's mass; an axial stretch
    // carries no geometric stiffness either.
    for (const double* u : {dx, dy, axial}) {
        for (int r = 0; r < 6; ++r) {
            double unit[6] = {0, 0, 0, 0, 0, 0};
            unit[r] = 1.0;
            EXPECT_NEAR(Form(unit, kg, u), 0.0, 1e-9 * n) << "row " << r;
        }
        if (u != axial) {
            EXPECT_NEAR(Form(u, m, u), rhoA * l, 1e-12 * rhoA * l);
        }
    }
    // A rigid rotation θ = 1 about node 1 lowers the energy by N·L (the P-Δ effect): uᵀ·Kg·u = N·L.
    const double rot[6] = {0, 0, 1, -s * l, c * l, 1};
    EXPECT_NEAR(Form(rot, kg, rot), n * l, 1e-9 * n * l);

    const std::vector<double> lumped = BeamColumnLumpedMass2D(0, 0, l * c, l * s, rhoA);
    EXPECT_DOUBLE_EQ(lumped[0] + lumped[3], rhoA * l);
    EXPECT_DOUBLE_EQ(lumped[1] + lumped[4], rhoA * l);
    EXPECT_GT(lumped[2], 0.0);
    EXPECT_THROW(BeamColumnStiffness2D(1, 1, 1, 1, 210e9, 1, 1), std::invalid_argument);
}

INSTANTIATE_TEST_SUITE_P(Angles, InclinedMember, ::testing::Values(0.0, 0.5 * M_PI, 0.3, 2.4, -1.1));

// ---------------------------------------------------------------------------------------------
// Pinned column

TEST(PinnedColumn, LowestBucklingLoadsAreEulerLoads)
{
    ColumnParameters p;
    p.elements = 16;
    const FrameModel column = FrameModel::PinnedColumn(p);
    EXPECT_EQ(column.NumEquations(), 3 * 17 - 3);
    const std::vector<double> lambda = BucklingLoads(column);
    ASSERT_GE(lambda.size(), 4u);
    for (int mode = 1; mode <= 4; ++mode) {
        const double exact = p.EulerLoad(mode);
        // Cubic elements with consistent Kg overestimate slightly, by O((n/elements)^2)·…
        EXPECT_GE(lambda[mode - 1], exact * (1 - 1e-9)) << "mode " << mode;
        EXPECT_LT(lambda[mode - 1], exact * (1 + 2e-3 * mode * mode)) << "mode " << mode;
    }
    EXPECT_NEAR(p.EulerLoad(1), M_PI * M_PI * 210e9 * 19.43e-6 / 16.0, 1e-6);
}

TEST(PinnedColumn, TransverseFrequenciesMatchBeamTheory)
{
    ColumnParameters p;
    p.elements = 20;
    for (bool consistent : {true, false}) {
        p.consistentMass = consistent;
        const FrameModel column = FrameModel::PinnedColumn(p);
        EXPECT_EQ(CheckLayout(column.Mass()), "");
        const std::vector<double> w = Frequencies(column);
        // The transverse modes come first; the axial ones are far higher for this column.
        for (int mode = 1; mode <= 3; ++mode)
            EXPECT_NEAR(w[mode - 1], p.NaturalFrequency(mode), (consistent ? 1e-3 : 1e-2) * p.NaturalFrequency(mode))
                << (consistent ? "consistent" : "lumped") << " mode " << mode;
    }
}

// ---------------------------------------------------------------------------------------------
// Portal frame and hand-built frames

TEST(PortalFrame, SwayBucklingLiesBetweenTheRigidAndTheMissingBeamBounds)
{
    // Fixed-base columns whose tops sway: with an infinitely stiff beam each column buckles at
    // π²EI/h² (effective length h), with no beam at π²EI/(4h²) (a free-standing cantilever).
    PortalParameters p;
    const double ei = p.column.youngsModulus * p.column.inertia;
    const double upper = M_PI * M_PI * ei / (p.height * p.height), lower = upper / 4;
    const double flexible = BucklingLoads(FrameModel::PortalFrame(p))[0];
    EXPECT_GT(flexible, lower);
    EXPECT_LT(flexible, upper);
    p.beam.inertia *= 1e4;
    const double stiff = BucklingLoads(FrameModel::PortalFrame(p))[0];
    EXPECT_GT(stiff, flexible);
    EXPECT_NEAR(stiff, upper, 5e-3 * upper);
}

