// Distributed static solution against the single-process library: solutions, inertia,
// pivoting warning and the equation of a singular model.
#include "support/MpiTestSupport.h"

#include "models/SolidModel.h"
#include "vqmath.h"
#include "vqmath_mpi.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using vqmath::models::CsrMatrix;
using vqmath::models::CsrRows;
using vqmath::models::DistributedSolid;
using vqmath::models::SolidModel;
using vqmath::models::SolidParameters;

struct Reference {
    int code = 0;
    int dof = -1, negative = 0, positive = 0, warning = 0;
    std::string message;
    std::vector<double> x;
};

// The codes, counts and message the registry holds after a call.
void ReadRegistry(Reference& r)
{
    r.dof = VQ_GetInstabilityDOF();
    r.negative = VQ_GetNumberOfNegativeEigenvalues();
    r.positive = VQ_GetNumberOfPositiveEigenvalues();
    r.warning = VQ_GetLastWarningID();
    r.message = mpitest::LastMessage();
}

Reference SingleProcess(const CsrMatrix& k, const std::vector<double>& f, int nrhs, int matrixType, int stop)
{
    Reference r;
    std::vector<double> b = f;
    r.x.assign(f.size(), 0.0);
    int params[64];
    r.code = VQ_DirectSparseSolver(k.n, nrhs, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), b.data(),
                                   0, matrixType, params, stop, "", 1, 0, r.x.data(), 0, nullptr, nullptr, 0, 0);
    ReadRegistry(r);
    return r;
}

Reference Distributed(const CsrRows& k, const std::vector<double>& f, int nrhs, int matrixType, int stop)
{
    Reference r;
    const std::vector<double> local = mpitest::SliceVectors(f, k.n, nrhs, k.rows);
    std::vector<double> x(local.size(), 0.0);
    r.code = VQ_MpiDirectSparseSolver(MPI_COMM_WORLD, k.n, k.rows.first, k.rows.last, k.rowPointers.data(),
                                      k.columnIndices.data(), k.values.data(), nrhs, local.data(), x.data(), matrixType,
                                      stop);
    ReadRegistry(r);
    r.x = mpitest::GatherVectors(x, k.n, nrhs, k.rows);
    return r;
}

// Three load cases: end-face shear, gravity, a point force.
std::vector<double> Loads(const SolidModel& s)
{
    std::vector<double> f = s.EndFaceLoad(0.0, 0.0, -1.0e6);
    const std::vector<double> g = s.GravityLoad(0.0, -9.81, 0.0);
    const std::vector<double> p = s.NodeLoad(s.Node(s.Parameters().nx, 1, 1), 0, 5.0e5);
    f.insert(f.end(), g.begin(), g.end());
    f.insert(f.end(), p.begin(), p.end());
    return f;
}

TEST(DistributedStatic, GeneratedSolidsEqualTheSingleProcessSolution)
{
    struct Case {
        int equations, nrhs;
    };
    for (const Case c : {Case{300, 1}, Case{3000, 3}, Case{6000, 2}}) {
        SCOPED_TRACE(c.equations);
        const SolidParameters p = SolidModel::ForEquations(c.equations);
        const SolidModel whole(p);
        const DistributedSolid part(p, mpitest::MyRows(whole.NumEquations()));
        std::vector<double> f = Loads(whole);
        f.resize(static_cast<size_t>(whole.NumEquations()) * c.nrhs);
        const Reference ref = SingleProcess(whole.Stiffness(), f, c.nrhs, -2, 0);
        const Reference got = Distributed(part.Stiffness(), f, c.nrhs, -2, 0);
        ASSERT_EQ(0, ref.code);
        ASSERT_EQ(0, got.code) << got.message;
        EXPECT_LE(mpitest::RelativeDifference(got.x, ref.x), 1e-10);
        EXPECT_EQ(0, got.negative);
        EXPECT_EQ(whole.NumEquations(), got.positive);
        EXPECT_EQ(0, got.warning);
    }
}

TEST(DistributedStatic, SharedStructuresEqualTheSingleProcessSolution)
{
    // bcsstk20 is ill-conditioned (about 4e12): factorisations that round differently agree to
    // some 1e-10 only.
    struct Case {
        const char* name;
        double agree;
    };
    for (const Case c : {Case{"bcsstk06.mtx", 1e-10}, Case{"bcsstk20.mtx", 1e-9}}) {
        const char* name = c.name;
        CsrMatrix k;
        if (!mpitest::ReadShared(name, k)) GTEST_SKIP() << "shared structural matrices not found (" << name << ")";
        SCOPED_TRACE(name);
        std::vector<double> f(static_cast<size_t>(k.n) * 2);
        for (size_t i = 0; i < f.size(); ++i) f[i] = 1.0 + static_cast<double>(i % 7) - 0.5 * static_cast<double>(i % 3);
        const Reference ref = SingleProcess(k, f, 2, -2, 0);
        const Reference got = Distributed(mpitest::SliceRows(k, mpitest::MyRows(k.n)), f, 2, -2, 0);
        ASSERT_EQ(0, ref.code);
        ASSERT_EQ(0, got.code) << got.message;
        EXPECT_LE(mpitest::RelativeDifference(got.x, ref.x), c.agree);
        EXPECT_EQ(ref.positive, got.positive);
        EXPECT_EQ(ref.negative, got.negative);
    }
}

TEST(DistributedStatic, IndefiniteMatrixReportsTheSameInertiaAndWarning)
{
    // K − σ·M with σ among the low eigenvalues of a solid: a few negative pivots.
    const SolidParameters p = SolidModel::ForEquations(2000);
    const SolidModel whole(p);
    const int n = whole.NumEquations();
    const DistributedSolid part(p, mpitest::MyRows(n));
    const double sigma = 2.0e6;
    const CsrMatrix shifted = vqmath::models::Shifted(whole.Stiffness(), whole.LumpedMass(), sigma);
    CsrRows local = part.Stiffness();
    for (int r = 0; r < local.rows.Count(); ++r) local.values[local.rowPointers[r] - 1] -= sigma * part.LumpedMass()[r];
    const std::vector<double> f = whole.EndFaceLoad(0.0, 1.0e3, 0.0);
    const Reference ref = SingleProcess(shifted, f, 1, -2, 0);
    const Reference got = Distributed(local, f, 1, -2, 0);
    ASSERT_EQ(0, ref.code);
    ASSERT_EQ(0, got.code) << got.message;
    ASSERT_GT(ref.negative, 0);
    EXPECT_EQ(ref.negative, got.negative);
    EXPECT_EQ(ref.positive, got.positive);
    EXPECT_EQ(-85, got.warning);
    EXPECT_LE(mpitest::RelativeDifference(got.x, ref.x), 1e-8);  // indefinite: pivoting differs

    // Stopping at negative pivots is a failure at an equation, as in the single-process library.
    const Reference refStop = SingleProcess(shifted, f, 1, -2, 1);
    const Reference gotStop = Distributed(local, f, 1, -2, 1);
    EXPECT_EQ(-3, refStop.code);
    EXPECT_EQ(-3, gotStop.code);
    EXPECT_GE(gotStop.dof, 1);
    EXPECT_LE(gotStop.dof, n);
    EXPECT_EQ(refStop.dof, gotStop.dof);
    EXPECT_EQ(refStop.message, gotStop.message);
    EXPECT_EQ(ref.negative, gotStop.negative);
}

// A clamped solid with an equation without any stiffness (owned by the second half), and a free
// one, whose six rigid-body modes leave pivots at the rounding level that the factorisation only
// perturbs: both libraries call the matrix singular at the same equation, for either matrix type,
// stopping at negative pivots or not, and every process says the same.
TEST(DistributedStatic, SingularModelsReportTheSameEquation)
{
    for (const bool clamped : {true, false}) {
        SolidParameters p = SolidModel::ForEquations(clamped ? 3000 : 1500);
        p.clamped = clamped;
        const SolidModel whole(p);
        const int n = whole.NumEquations();
        const int j = clamped ? n / 2 + 7 : 0;
        CsrMatrix k = whole.Stiffness();
        for (int i = 1; i <= n; ++i)
            for (int q = k.rowPointers[i - 1] - 1; q < k.rowPointers[i] - 1; ++q)
                if (i == j || k.columnIndices[q] == j) k.values[q] = 0.0;
        const CsrRows local = mpitest::SliceRows(k, mpitest::MyRows(n));
        const std::vector<double> f(static_cast<size_t>(n), 1.0);
        for (const int matrixType : {2, -2})
            for (const int stop : {0, 1}) {
                SCOPED_TRACE(std::string(clamped ? "clamped" : "free") + ", type " + std::to_string(matrixType) +
                             ", stop " + std::to_string(stop));
                const Reference ref = SingleProcess(k, f, 1, matrixType, stop);
                const Reference got = Distributed(local, f, 1, matrixType, stop);
                EXPECT_EQ(-3, ref.code);
                EXPECT_EQ(ref.code, got.code);
                EXPECT_EQ(clamped ? j : ref.dof, ref.dof);
                EXPECT_GE(ref.dof, 1);
                EXPECT_EQ(ref.dof, got.dof);
                EXPECT_EQ(ref.message, got.message);
                const std::vector<std::string> all = mpitest::GatherStrings(std::to_string(got.dof) + " " + got.message);
                for (const std::string& s : all) EXPECT_EQ(all[0], s);
            }
    }
}

TEST(DistributedStatic, OneFactorisationServesSeveralSolvesAndTheFortranHandle)
{
    const SolidParameters p = SolidModel::ForEquations(1500);
    const SolidModel whole(p);
    const int n = whole.NumEquations();
    const DistributedSolid part(p, mpitest::MyRows(n));
    const CsrRows& k = part.Stiffness();
    VQ_MpiFactorization* factor = nullptr;
    ASSERT_EQ(0, VQ_MpiSparseFactor_F(MPI_Comm_c2f(MPI_COMM_WORLD), n, k.rows.first, k.rows.last,
                                      k.rowPointers.data(), k.columnIndices.data(), k.values.data(), 2, 0, &factor));
    ASSERT_NE(nullptr, factor);
    const std::vector<double> all = Loads(whole);
    for (int c = 0; c < 3; ++c) {
        const std::vector<double> f(all.begin() + static_cast<long>(c) * n, all.begin() + static_cast<long>(c + 1) * n);
        const std::vector<double> local = mpitest::SliceVectors(f, n, 1, k.rows);
        std::vector<double> x(local.size());
        ASSERT_EQ(0, VQ_MpiSparseSolve(factor, 1, local.data(), x.data()));
        const Reference ref = SingleProcess(whole.Stiffness(), f, 1, 2, 0);
        EXPECT_LE(mpitest::RelativeDifference(mpitest::GatherVectors(x, n, 1, k.rows), ref.x), 1e-10);
    }
    VQ_MpiSparseRelease(factor);
}

}  // namespace
