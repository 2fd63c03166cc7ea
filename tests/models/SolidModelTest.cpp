// The hexahedral solid: element properties (rigid-body modes, constant-strain patch, mass),
// assembled K and M against dense LAPACK, loads, sizing, and a cantilever against beam theory.

#include "models/CsrMatrix.h"
#include "models/HexahedronElement.h"
#include "models/SolidModel.h"
#include "support/ModelsSupport.h"

#include <gtest/gtest.h>
#include <mkl.h>

#include <algorithm>
#include <cmath>
#include <numeric>

using namespace vqmath::models;

namespace {

SolidParameters Small(bool clamped)
{
    SolidParameters p{4, 2, 3, 0.3, 0.2, 0.1};
    p.clamped = clamped, p.consistentMass = true;
    return p;
}

using vqtest::SymmetricEigenvalues;

// An irregular but valid hexahedron (perturbed unit cube).
std::vector<double> DistortedHexahedron()
{
    const double nat[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    const double shift[8][3] = {{0.05, -0.02, 0.01}, {0.1, 0.03, -0.04}, {-0.06, 0.12, 0.02}, {0.02, -0.05, 0.07},
                                {-0.03, 0.04, -0.08}, {0.09, -0.01, 0.05}, {0.04, 0.08, 0.11}, {-0.07, 0.02, -0.03}};
    std::vector<double> x(24);
    for (int a = 0; a < 8; ++a)
        for (int c = 0; c < 3; ++c) x[3 * a + c] = 2.0 * nat[a][c] + shift[a][c];
    return x;
}

// Solves K·x = f for the clamped solid with LAPACK's banded Cholesky (the node numbering keeps
// the band narrow along a bar).
std::vector<double> SolveBanded(const CsrMatrix& k, std::vector<double> f)
{
    const int n = k.n;
    int kd = 0;
    for (int i = 0; i < n; ++i) kd = std::max(kd, k.columnIndices[k.rowPointers[i + 1] - 2] - (i + 1));
    std::vector<double> band(static_cast<size_t>(kd + 1) * n, 0.0);
    for (int i = 0; i < n; ++i)
        for (int p = k.rowPointers[i] - 1; p < k.rowPointers[i + 1] - 1; ++p) {
            const int j = k.columnIndices[p] - 1;
            band[static_cast<size_t>(j) * (kd + 1) + kd + i - j] = k.values[p];
        }
    EXPECT_EQ(LAPACKE_dpbsv(LAPACK_COL_MAJOR, 'U', n, kd, 1, band.data(), kd + 1, f.data(), n), 0);
    return f;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Element

TEST(Hexahedron, StiffnessIsSymmetricWithExactlySixRigidBodyModes)
{
    const std::vector<double> x = DistortedHexahedron();
    const std::vector<double> k = HexahedronStiffness(x.data(), 210e9, 0.3);
    for (int r = 0; r < 24; ++r)
        for (int c = 0; c < 24; ++c) ASSERT_EQ(k[r + 24 * c], k[c + 24 * r]);
    const std::vector<double> w = SymmetricEigenvalues(24, k);
    const double top = w.back();
    for (int i = 0; i < 6; ++i) EXPECT_LT(std::fabs(w[i]), 1e-12 * top) << i;
    EXPECT_GT(w[6], 1e-3 * top);  // full integration: no spurious zero-energy modes
}

TEST(Hexahedron, ConstantStrainPatchGivesExactEnergy)
{
    // Under a linear displacement field the trilinear element is exact: uᵀKu = V·εᵀDε.
    const std::vector<double> x = DistortedHexahedron();
    const double e = 70e9, nu = 0.25;
    const std::vector<double> k = HexahedronStiffness(x.data(), e, nu);
    const double grad[3][3] = {{1e-3, 2e-4, -3e-4}, {5e-4, -2e-3, 1e-4}, {-1e-4, 3e-4, 4e-4}};  // ∂u_i/∂x_j
    std::vector<double> u(24);
    for (int a = 0; a < 8; ++a)
        for (int i = 0; i < 3; ++i)
            u[3 * a + i] = grad[i][0] * x[3 * a] + grad[i][1] * x[3 * a + 1] + grad[i][2] * x[3 * a + 2];
    std::vector<double> ku(24);
    cblas_dgemv(CblasColMajor, CblasNoTrans, 24, 24, 1.0, k.data(), 24, u.data(), 1, 0.0, ku.data(), 1);
    const double energy = std::inner_product(u.begin(), u.end(), ku.begin(), 0.0);

    const double lambda = e * nu / ((1 + nu) * (1 - 2 * nu)), mu = e / (2 * (1 + nu));
    double eps[3][3], trace = 0.0, epsEps = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) eps[i][j] = 0.5 * (grad[i][j] + grad[j][i]);
    for (int i = 0; i < 3; ++i) trace += eps[i][i];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) epsEps += eps[i][j] * eps[i][j];
    const double expected = HexahedronVolume(x.data()) * (lambda * trace * trace + 2 * mu * epsEps);
    EXPECT_NEAR(energy, expected, 1e-10 * expected);
}

// ---------------------------------------------------------------------------------------------
// Assembled model

class SolidSupports : public ::testing::TestWithParam<bool> {};

TEST_P(SolidSupports, StiffnessIsSymmetricAndDefiniteOnlyWhenClamped)
{
    const bool clamped = GetParam();
    const SolidModel model(Small(clamped));
    const int n = model.NumEquations();
    EXPECT_EQ(n, 3 * model.NumNodes() - (clamped ? 3 * 3 * 4 : 0));
    ASSERT_EQ(CheckLayout(model.Stiffness()), "");
    const std::vector<double> k = ToDense(model.Stiffness());
    const std::vector<double> w = SymmetricEigenvalues(n, k);
    if (clamped) {
        EXPECT_GT(w[0], 1e-8 * w.back());
    } else {
        for (int i = 0; i < 6; ++i) EXPECT_LT(std::fabs(w[i]), 1e-10 * w.back()) << "eigenvalue " << i;
        EXPECT_GT(w[6], 1e-6 * w.back());
    }
}

INSTANTIATE_TEST_SUITE_P(ClampedAndFree, SolidSupports, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "Clamped" : "Free"; });

TEST(SolidModelShift, ShiftBetweenEigenvaluesCountsTheEigenvaluesBelow)
{
    const SolidModel model(Small(true));
    const int n = model.NumEquations();
    const std::vector<double> lambda =
        vqtest::DenseEigenvalues(vqtest::FromModel(model.Stiffness()), vqtest::FromModel(model.ConsistentMass()));
    ASSERT_EQ(static_cast<int>(lambda.size()), n);
    const double sigma = 0.5 * (lambda[4] + lambda[5]);
    const std::vector<double> w = SymmetricEigenvalues(n, ToDense(Shifted(model.Stiffness(), model.ConsistentMass(), sigma)));
    EXPECT_EQ(std::count_if(w.begin(), w.end(), [](double x) { return x < 0; }), 5);
    const std::vector<double> wl =
        SymmetricEigenvalues(n, ToDense(Shifted(model.Stiffness(), model.LumpedMass(), 0.0)));
    EXPECT_GT(wl[0], 0.0);
}

// ---------------------------------------------------------------------------------------------
// Loads and sizes

// ---------------------------------------------------------------------------------------------
// Cantilever

TEST(SolidModelCantilever, TipDeflectionApproachesBeamTheory)
{
    // A 1 m bar of 0.1 m × 0.1 m section under an end shear. Full integration makes the
    // trilinear bricks too stiff in bending; the error falls as the elements shorten.
    const double force = 1000.0;
    double previousRatio = 0.0;
    for (int refine : {1, 2}) {
        const SolidParameters p{20 * refine, 2 * refine, 2 * refine, 0.05 / refine, 0.05 / refine, 0.05 / refine};
        const SolidModel model(p);
        const std::vector<double> u = SolveBanded(model.Stiffness(), model.EndFaceLoad(0.0, 0.0, -force));
        double tip = 0.0;
        const std::vector<int> face = model.EndFaceNodes();
        for (int node : face) tip += u[model.Equation(node, 2) - 1];
        tip = -tip / face.size();
        const double inertia = model.Width() * std::pow(model.Height(), 3) / 12.0;
        const double beam = force * std::pow(model.Length(), 3) / (3.0 * p.youngsModulus * inertia);
        const double ratio = tip / beam;
        EXPECT_GT(ratio, refine == 1 ? 0.85 : 0.9) << "mesh " << p.nx << "x" << p.ny << "x" << p.nz;
        EXPECT_LT(ratio, 1.02);
        EXPECT_GT(ratio, previousRatio);  // converges from the stiff side
        previousRatio = ratio;
    }
}
