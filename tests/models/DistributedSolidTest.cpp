// The solid built one range of rows at a time: its rows, lumped mass and loads equal those of
// the whole SolidModel bit for bit, the ranges of BalancedRows tile the equations, and the
// geometric stiffness of a unit axial compression has its closed-form energies.

#include "models/CsrMatrix.h"
#include "models/DistributedSolid.h"
#include "models/SolidModel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <vector>

using namespace vqmath::models;

namespace {

SolidParameters Box(int nx, int ny, int nz, bool clamped)
{
    SolidParameters p;
    p.nx = nx, p.ny = ny, p.nz = nz, p.hx = 0.3, p.hy = 0.2, p.hz = 0.1, p.clamped = clamped;
    return p;
}

TEST(DistributedSolid, RangesEqualTheWholeModelExactly)
{
    struct Case {
        SolidParameters p;
        int parts;
    };
    for (const Case& c : {Case{Box(4, 2, 3, true), 1}, Case{Box(4, 2, 3, false), 3}, Case{Box(7, 3, 2, true), 4},
                          Case{SolidModel::ForEquations(3000), 5}}) {
        const SolidModel whole(c.p);
        const CsrMatrix& k = whole.Stiffness();
        const std::vector<double> load = whole.EndFaceLoad(1.0, -2.0, 3.0);
        ASSERT_EQ(whole.NumEquations(), DistributedSolid::EquationsOf(c.p));
        for (int part = 0; part < c.parts; ++part) {
            const RowRange r = BalancedRows(whole.NumEquations(), c.parts, part);
            const DistributedSolid d(c.p, r);
            const CsrRows& rows = d.Stiffness();
            const int begin = k.rowPointers[r.first - 1] - 1, end = k.rowPointers[r.last] - 1;
            std::vector<int> pointers;
            for (int i = r.first - 1; i <= r.last; ++i) pointers.push_back(k.rowPointers[i] - begin);
            EXPECT_EQ(pointers, rows.rowPointers);
            EXPECT_EQ(std::vector<int>(k.columnIndices.begin() + begin, k.columnIndices.begin() + end),
                      rows.columnIndices);
            EXPECT_EQ(std::vector<double>(k.values.begin() + begin, k.values.begin() + end), rows.values);
            EXPECT_EQ(std::vector<double>(whole.LumpedMass().begin() + r.first - 1,
                                          whole.LumpedMass().begin() + r.last),
                      d.LumpedMass());
            EXPECT_EQ(std::vector<double>(load.begin() + r.first - 1, load.begin() + r.last),
                      d.EndFaceLoad(1.0, -2.0, 3.0));
        }
    }
}

TEST(DistributedSolid, BalancedRowsTileTheEquations)
{
    for (const int n : {1, 7, 100, 1001})
        for (const int parts : {1, 2, 3, 8}) {
            if (parts > n) continue;
            int next = 1;
            for (int p = 0; p < parts; ++p) {
                const RowRange r = BalancedRows(n, parts, p);
                EXPECT_EQ(next, r.first);
                EXPECT_LE(r.Count(), n / parts + 1);
                EXPECT_GE(r.Count(), n / parts);
                next = r.last + 1;
            }
            EXPECT_EQ(n + 1, next);
        }
}

TEST(DistributedSolid, GeometricStiffnessOfAUnitCompression)
{
    // Free body: ∫ σ (∂u/∂x)² dV with σ = 1/A gives 0 for a rigid translation and the length L for
    // the field u_y = x (∂u_y/∂x = 1), whatever the mesh.
    const SolidParameters p = Box(5, 3, 2, false);
    const SolidModel whole(p);
    const int n = whole.NumEquations();
    const DistributedSolid all(p, {1, n});
    const CsrRows& g = all.GeometricStiffness();
    const CsrMatrix kg{n, g.rowPointers, g.columnIndices, g.values};
    EXPECT_EQ("", CheckLayout(kg));
    auto energy = [&](const std::vector<double>& u) {
        const std::vector<double> ku = Multiply(kg, u);
        double e = 0.0;
        for (int i = 0; i < n; ++i) e += u[i] * ku[i];
        return e;
    };
    for (int mode = 0; mode < 3; ++mode) EXPECT_NEAR(0.0, energy(whole.RigidBodyMode(mode)), 1e-12);
    std::vector<double> shear(static_cast<size_t>(n), 0.0);
    const std::vector<double>& x = whole.NodeCoordinates();
    for (int node = 0; node < whole.NumNodes(); ++node)
        if (const int eq = whole.Equation(node, 1)) shear[eq - 1] = x[3 * node];
    EXPECT_NEAR(whole.Length(), energy(shear), 1e-12 * whole.Length());
    // Positive semi-definite: no negative energy for a field that varies along x.
    std::vector<double> wave(static_cast<size_t>(n), 0.0);
    for (int node = 0; node < whole.NumNodes(); ++node)
        if (const int eq = whole.Equation(node, 2)) wave[eq - 1] = std::sin(3.0 * x[3 * node]);
    EXPECT_GT(energy(wave), 0.0);
}

TEST(DistributedSolid, RejectsRangesOutsideTheModel)
{
    const SolidParameters p = Box(2, 1, 1, true);
    const int n = DistributedSolid::EquationsOf(p);
    EXPECT_THROW(DistributedSolid(p, {0, 3}), std::invalid_argument);
    EXPECT_THROW(DistributedSolid(p, {1, n + 1}), std::invalid_argument);
    EXPECT_THROW(DistributedSolid(p, {5, 3}), std::invalid_argument);
    EXPECT_NO_THROW(DistributedSolid(p, {4, 3}));  // empty
}

}  // namespace
