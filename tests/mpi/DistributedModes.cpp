// Distributed shift-invert Lanczos against the single-process Lanczos (ARPACK) entry points:
// eigenvalues, the count below the shift, Sturm counts, and residuals of the mode shapes.
#include "support/MpiTestSupport.h"

#include "models/SolidModel.h"
#include "vqmath.h"
#include "vqmath_mpi.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

using vqmath::models::CsrMatrix;
using vqmath::models::CsrRows;
using vqmath::models::DistributedSolid;
using vqmath::models::SolidModel;
using vqmath::models::SolidParameters;

struct Problem {
    CsrMatrix k;                 // whole
    CsrMatrix b;                 // whole sparse B, or n = 0
    std::vector<double> mass;    // whole diagonal, or empty
    CsrRows kRows, bRows;        // this process's rows
    std::vector<double> massRows;
    bool buckling = false;
};

Problem Split(const CsrMatrix& k, const CsrMatrix* b, const std::vector<double>* mass, bool buckling)
{
    Problem p;
    p.k = k;
    p.buckling = buckling;
    const vqmath::models::RowRange rows = mpitest::MyRows(k.n);
    p.kRows = mpitest::SliceRows(k, rows);
    if (b) {
        p.b = *b;
        p.bRows = mpitest::SliceRows(*b, rows);
    } else {
        p.mass = *mass;
        p.massRows = mpitest::SliceVectors(*mass, k.n, 1, rows);
    }
    return p;
}

struct Result {
    int code = 0, found = 0, below = 0;
    std::vector<double> values, shapes;  // shapes whole, on every process
};

// B whole: the sparse second matrix, or the lumped mass as compressed rows.
CsrMatrix WholeB(const Problem& p) { return p.b.n > 0 ? p.b : vqmath::models::FromDiagonal(p.mass); }

Result SingleProcess(const Problem& p, int nev, double shift)
{
    Result r;
    const int n = p.k.n;
    r.values.assign(static_cast<size_t>(nev), 0.0);
    r.shapes.assign(static_cast<size_t>(n) * nev, 0.0);
    const CsrMatrix b = WholeB(p);
    r.code = VQ_EigenvalueAnalysis_ARPACK2(n, nev, p.k.rowPointers.data(), p.k.columnIndices.data(), p.k.values.data(),
                                           b.rowPointers.data(), b.columnIndices.data(), b.values.data(), 4,
                                           p.buckling ? 1 : 0, -1, &r.found, r.values.data(), r.shapes.data(), shift,
                                           "", 0);
    r.values.resize(static_cast<size_t>(std::max(r.found, 0)));
    return r;
}

const double* Diagonal(const Problem& p) { return p.b.n > 0 ? nullptr : p.massRows.data(); }
const int* BRp(const Problem& p) { return p.b.n > 0 ? p.bRows.rowPointers.data() : nullptr; }
const int* BCi(const Problem& p) { return p.b.n > 0 ? p.bRows.columnIndices.data() : nullptr; }
const double* BV(const Problem& p) { return p.b.n > 0 ? p.bRows.values.data() : nullptr; }

Result Distributed(const Problem& p, int nev, double shift)
{
    Result r;
    const CsrRows& k = p.kRows;
    const int rows = k.rows.Count();
    r.values.assign(static_cast<size_t>(nev), 0.0);
    std::vector<double> local(static_cast<size_t>(rows) * nev, 0.0);
    r.code = VQ_MpiEigenvalueAnalysis_Lanczos(MPI_COMM_WORLD, k.n, k.rows.first, k.rows.last, k.rowPointers.data(),
                                              k.columnIndices.data(), k.values.data(), Diagonal(p), BRp(p), BCi(p),
                                              BV(p), p.buckling ? 1 : 0, nev, shift, -1, &r.found, r.values.data(),
                                              local.data(), &r.below);
    r.values.resize(static_cast<size_t>(std::max(r.found, 0)));
    r.shapes = mpitest::GatherVectors(local, k.n, nev, k.rows);
    return r;
}

int DistributedSturm(const Problem& p, double sigma)
{
    const CsrRows& k = p.kRows;
    int below = -1;
    EXPECT_EQ(0, VQ_MpiSturmCount(MPI_COMM_WORLD, k.n, k.rows.first, k.rows.last, k.rowPointers.data(),
                                  k.columnIndices.data(), k.values.data(), Diagonal(p), BRp(p), BCi(p), BV(p), sigma,
                                  &below));
    return below;
}

CsrMatrix ShiftedWhole(const Problem& p, double sigma) { return vqmath::models::Shifted(p.k, WholeB(p), sigma); }

// max over modes of ‖K·φ − λ·B·φ‖ / ‖K·φ‖ (whole matrices).
double WorstResidual(const Problem& p, const Result& r)
{
    const int n = p.k.n;
    const CsrMatrix b = WholeB(p);
    double worst = 0.0;
    for (int m = 0; m < r.found; ++m) {
        const std::vector<double> phi(r.shapes.begin() + static_cast<long>(m) * n,
                                      r.shapes.begin() + static_cast<long>(m + 1) * n);
        const std::vector<double> kphi = vqmath::models::Multiply(p.k, phi);
        const std::vector<double> bphi = vqmath::models::Multiply(b, phi);
        double e = 0.0, s = 0.0;
        for (int i = 0; i < n; ++i) {
            e += (kphi[i] - r.values[m] * bphi[i]) * (kphi[i] - r.values[m] * bphi[i]);
            s += kphi[i] * kphi[i];
        }
        worst = std::max(worst, std::sqrt(e / s));
    }
    return worst;
}

// The comparison every case makes: the same eigenvalues (to `agree`, relative), the same count
// below the shift and the same Sturm count just above the highest eigenvalue, small residuals.
void ExpectSameAsSingleProcess(const Problem& p, int nev, double shift, double agree = 1e-10)
{
    const Result ref = SingleProcess(p, nev, shift);
    const Result got = Distributed(p, nev, shift);
    ASSERT_EQ(0, ref.code);
    ASSERT_EQ(0, got.code) << mpitest::LastMessage();
    ASSERT_EQ(ref.found, got.found);
    for (int m = 0; m < got.found; ++m)
        EXPECT_LE(std::fabs(got.values[m] - ref.values[m]), agree * std::fabs(ref.values[m])) << "mode " << m + 1;
    EXPECT_EQ(mpitest::SingleProcessNegativePivots(ShiftedWhole(p, shift)), got.below);
    const double sigma = got.values.back() * (1.0 + 1e-5);
    const int sturm = DistributedSturm(p, sigma);
    EXPECT_EQ(mpitest::SingleProcessNegativePivots(ShiftedWhole(p, sigma)), sturm);
    if (shift == 0.0 && !p.buckling) {
        EXPECT_EQ(got.found, sturm);
    }
    EXPECT_LE(WorstResidual(p, got), std::max(1e-8, 10.0 * WorstResidual(p, ref)));
    // Every process holds the same eigenvalues.
    std::vector<double> all(got.values.size() * mpitest::Size());
    MPI_Allgather(got.values.data(), got.found, MPI_DOUBLE, all.data(), got.found, MPI_DOUBLE, MPI_COMM_WORLD);
    for (size_t i = 0; i < all.size(); ++i) EXPECT_EQ(got.values[i % got.values.size()], all[i]);
}

TEST(DistributedModes, GeneratedSolidsEqualTheSingleProcessLanczos)
{
    struct Case {
        int equations, nev;
        double shift;
    };
    for (const Case c : {Case{600, 6, 0.0}, Case{4000, 10, 0.0}, Case{4000, 8, 3.0e5}}) {
        SCOPED_TRACE(c.equations);
        const SolidParameters params = SolidModel::ForEquations(c.equations);
        const SolidModel whole(params);
        // The distributed generator gives the rows; the whole model the reference.
        const DistributedSolid part(params, mpitest::MyRows(whole.NumEquations()));
        Problem p = Split(whole.Stiffness(), nullptr, &whole.LumpedMass(), false);
        p.kRows = part.Stiffness();
        p.massRows = part.LumpedMass();
        ExpectSameAsSingleProcess(p, c.nev, c.shift);
    }
}

TEST(DistributedModes, SharedStructuresWithLumpedAndConsistentMass)
{
    // bcsstk20 is ill-conditioned (about 4e12): its lowest eigenvalues are fixed only to some 1e-9
    // relative (two dense LAPACK drivers differ by 7e-9), so factorisations that round differently
    // agree to that level.
    struct Case {
        const char *k, *m;
        bool lumped;
        double agree;
    };
    for (const Case c : {Case{"bcsstk20.mtx", "bcsstm20.mtx", true, 2e-8}, Case{"bcsstk07.mtx", "bcsstm07.mtx", false, 1e-10}}) {
        CsrMatrix k, m;
        if (!mpitest::ReadShared(c.k, k) || !mpitest::ReadShared(c.m, m))
            GTEST_SKIP() << "shared structural matrices not found (" << c.k << ")";
        SCOPED_TRACE(c.k);
        const std::vector<double> diagonal = vqmath::models::Diagonal(m);
        const Problem p = c.lumped ? Split(k, nullptr, &diagonal, false) : Split(k, &m, nullptr, false);
        ExpectSameAsSingleProcess(p, 8, 0.0, c.agree);
    }
}

TEST(DistributedModes, BucklingOfAnAxiallyCompressedSolid)
{
    SolidParameters params = SolidModel::ForEquations(1500);
    const SolidModel whole(params);
    const int n = whole.NumEquations();
    // The geometric stiffness as one process sees all rows of it.
    const DistributedSolid all(params, {1, n});
    const CsrRows& g = all.GeometricStiffness();
    const CsrMatrix kg{n, g.rowPointers, g.columnIndices, g.values};
    Problem p = Split(whole.Stiffness(), &kg, nullptr, true);
    // A shift below the lowest buckling load (no negative pivots of K − σ·Kg).
    double shift = 1.0e7;
    while (mpitest::SingleProcessNegativePivots(ShiftedWhole(p, shift)) > 0) shift *= 0.1;
    ExpectSameAsSingleProcess(p, 4, shift);

    // Without a shift the buckling mode is refused at once, as by the single-process driver.
    Result none = Distributed(p, 4, 0.0);
    EXPECT_EQ(SingleProcess(p, 4, 0.0).code, none.code);
    EXPECT_NE(0, none.code);
}

}  // namespace
