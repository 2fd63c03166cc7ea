#include "LibraryCalls.h"

#include "vqmath.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace vqpy {

namespace {

std::string TakeText(char* text)
{
    std::string s = text ? text : "";
    std::free(text);
    return s;
}

Outcome ReadRegistry(int code)
{
    Outcome o;
    o.code = code;
    o.message = TakeText(VQ_GetLastErrorMessage());
    o.warning = VQ_GetLastWarningID();
    o.warningMessage = TakeText(VQ_GetLastWarningMessage());
    o.equation = VQ_GetInstabilityDOF();
    o.negativePivots = VQ_GetNumberOfNegativeEigenvalues();
    o.positivePivots = VQ_GetNumberOfPositiveEigenvalues();
    return o;
}

const char* Directory(const CallSettings& s) { return s.workingDirectory.c_str(); }

}  // namespace

ScopedSettings::ScopedSettings(const CallSettings& s)
{
    solverType_ = VQ_GetSolverType();
    VQ_SetSolverType(s.outOfCore);
#if defined(VQPY_HAVE_VQ_SetEigenVerification) && defined(VQPY_HAVE_VQ_GetEigenVerification)
    verification_ = VQ_GetEigenVerification();
    VQ_SetEigenVerification(0);
#endif
    if (s.threads > 0) {
        threads_ = VQ_mkl_get_max_threads();
        VQ_mkl_set_num_threads(s.threads);
    }
    if (s.coreSizeMb > 0) {
        coreSize_ = VQ_Get_INTEL_MKL_OOC_Max_Core_Size();
        VQ_Set_INTEL_MKL_OOC_Max_Core_Size(s.coreSizeMb);
    }
    if (s.outOfCore != 0 && !s.workingDirectory.empty()) {
        // The out-of-core files of PARDISO go where the working directory says.
        workingDirectory_ = TakeText(VQ_GetWorkingDir());
        workingDirectorySet_ = true;
        VQ_SetWorkingDir(s.workingDirectory.c_str());
    }
}

ScopedSettings::~ScopedSettings()
{
    VQ_SetSolverType(solverType_);
#if defined(VQPY_HAVE_VQ_SetEigenVerification) && defined(VQPY_HAVE_VQ_GetEigenVerification)
    VQ_SetEigenVerification(verification_);
#endif
    if (threads_ > 0) VQ_mkl_set_num_threads(threads_);
    if (coreSize_ > 0) VQ_Set_INTEL_MKL_OOC_Max_Core_Size(coreSize_);
    if (workingDirectorySet_) VQ_SetWorkingDir(workingDirectory_.c_str());
}

Outcome Solve(const UpperCsr& k, double* x, int nrhs, bool definite, const CallSettings& settings)
{
    ScopedSettings scope(settings);
    // In place: x holds the loads on entry and receives the solution.
    const int code = VQ_DirectSparseSolver(
        k.n, nrhs, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), x,
        settings.outOfCore, definite ? 2 : -2, nullptr, 0, Directory(settings), 1, 0, nullptr, 0,
        nullptr, nullptr, settings.outOfCore == 2 ? 1 : 0, 0);
    return ReadRegistry(code);
}

Outcome SturmCount(const UpperCsr& k, const UpperCsr& b, double sigma, const CallSettings& settings,
                   int* count)
{
    ScopedSettings scope(settings);
#if defined(VQPY_HAVE_VQ_SturmCount) && defined(VQPY_HAVE_VQ_SturmCount2)
    int counted = 0;
    const int code =
        b.IsDiagonal()
            ? VQ_SturmCount(k.n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                            b.Diagonal().data(), sigma, &counted)
            : VQ_SturmCount2(k.n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                             b.rowPointers.data(), b.columnIndices.data(), b.values.data(), sigma,
                             &counted);
    Outcome o = ReadRegistry(code);
    *count = counted;
    return o;
#else
    // The inertia of one factorisation of K - sigma B through the direct solver.
    const UpperCsr shifted = Shifted(k, b, sigma);
    std::vector<double> x(static_cast<size_t>(k.n), 0.0);
    const int code = VQ_DirectSparseSolver(
        shifted.n, 1, shifted.rowPointers.data(), shifted.columnIndices.data(),
        shifted.values.data(), x.data(), settings.outOfCore, -2, nullptr, 0, Directory(settings), 1,
        0, nullptr, 0, nullptr, nullptr, settings.outOfCore == 2 ? 1 : 0, 0);
    Outcome o = ReadRegistry(code);
    // An indefinite K - sigma B factors with pivoting (-85): its inertia is what is wanted.
    if (o.code == -85) o.code = 0;
    *count = o.negativePivots;
    return o;
#endif
}

Outcome Band(const UpperCsr& k, const UpperCsr& m, double lower, double upper, int maxModes,
             double* values, double* vectors, int* bandCount, const CallSettings& settings)
{
    ScopedSettings scope(settings);
    int found = 0;
    *bandCount = 0;
    const int code =
        m.IsDiagonal()
            ? VQ_EigenvalueAnalysis_Band(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                         k.values.data(), m.Diagonal().data(), lower, upper, maxModes,
                                         bandCount, &found, values, vectors, Directory(settings))
            : VQ_EigenvalueAnalysis_Band2(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                          k.values.data(), m.rowPointers.data(), m.columnIndices.data(),
                                          m.values.data(), lower, upper, maxModes, bandCount, &found,
                                          values, vectors, Directory(settings));
    Outcome o = ReadRegistry(code);
    o.found = code == 0 ? std::max(0, std::min(found, maxModes)) : 0;
    return o;
}

bool EffectiveMassAvailable()
{
#if defined(VQPY_HAVE_VQ_EffectiveMass) && defined(VQPY_HAVE_VQ_EffectiveMass2)
    return true;
#else
    return false;
#endif
}

Outcome EffectiveMass(const UpperCsr& m, int modes, const double* shapes, const double* direction,
                      double* participation, double* fraction)
{
#if defined(VQPY_HAVE_VQ_EffectiveMass) && defined(VQPY_HAVE_VQ_EffectiveMass2)
    const int code =
        m.IsDiagonal()
            ? VQ_EffectiveMass(m.n, modes, shapes, m.Diagonal().data(), direction, participation,
                               fraction)
            : VQ_EffectiveMass2(m.n, modes, shapes, m.rowPointers.data(), m.columnIndices.data(),
                                m.values.data(), direction, participation, fraction);
    return ReadRegistry(code);
#else
    (void)m, (void)modes, (void)shapes, (void)direction, (void)participation, (void)fraction;
    Outcome o;
    o.code = -9999;
    o.message = "effective mass is not available in this build of the library";
    return o;
#endif
}

void Multiply(const UpperCsr& a, const double* x, double* y, int ncols)
{
    VQ_SparseSymmMatrixMatrixMultiplication_MKL(a.n, ncols, a.values.data(), a.rowPointers.data(),
                                                a.columnIndices.data(), x, y);
}

namespace {

Outcome Dense(const EigenCall& call, const UpperCsr& k, const UpperCsr& b, double* values,
              double* vectors)
{
    // Buckling: Kg phi = mu K phi with K positive definite, lambda = 1 / mu.
    const UpperCsr& a = call.buckling ? b : k;
    const UpperCsr& m = call.buckling ? k : b;
    const bool diagonal = m.IsDiagonal();
    std::vector<double> d = diagonal ? m.Diagonal() : std::vector<double>();
    int code;
    if (call.method == "lapack")
        code = diagonal ? VQ_EigenvalueAnalysis_LAPACK(a.n, a.rowPointers.data(), a.columnIndices.data(),
                                                       a.values.data(), d.data(), 1, values, vectors)
                        : VQ_EigenvalueAnalysis_LAPACK2(a.n, a.rowPointers.data(),
                                                        a.columnIndices.data(), a.values.data(),
                                                        m.rowPointers.data(), m.columnIndices.data(),
                                                        m.values.data(), 1, values, vectors);
    else
        code = diagonal ? VQ_EigenvalueAnalysis_JACOBI(a.n, a.rowPointers.data(), a.columnIndices.data(),
                                                       a.values.data(), d.data(), values, vectors)
                        : VQ_EigenvalueAnalysis_JACOBI2(a.n, a.rowPointers.data(),
                                                        a.columnIndices.data(), a.values.data(),
                                                        m.rowPointers.data(), m.columnIndices.data(),
                                                        m.values.data(), values, vectors);
    Outcome o = ReadRegistry(code);
    if (code != 0) return o;
    const int n = a.n;
    o.found = n;
    if (!call.buckling) return o;
    // Keep the positive mu as lambda = 1/mu, ascending (mu descending), vectors alongside.
    std::vector<int> order;
    for (int i = 0; i < n; ++i)
        if (values[i] > 0.0) order.push_back(i);
    std::sort(order.begin(), order.end(), [&](int x, int y) { return values[x] > values[y]; });
    std::vector<double> v(order.size()), x(order.size() * static_cast<size_t>(n));
    for (size_t q = 0; q < order.size(); ++q) {
        v[q] = 1.0 / values[order[q]];
        std::copy(vectors + static_cast<size_t>(order[q]) * n,
                  vectors + static_cast<size_t>(order[q] + 1) * n, x.begin() + q * n);
    }
    std::copy(v.begin(), v.end(), values);
    std::copy(x.begin(), x.end(), vectors);
    o.found = static_cast<int>(order.size());
    return o;
}

}  // namespace

Outcome Eigen(const EigenCall& call, const UpperCsr& k, const UpperCsr& b, double* values,
              double* vectors, const CallSettings& settings)
{
    ScopedSettings scope(settings);
    if (call.method == "lapack" || call.method == "jacobi") return Dense(call, k, b, values, vectors);

    const int n = k.n, nev = call.count;
    const int matrixType = VQ_GetSolverMatrixType();
    const bool diagonal = b.IsDiagonal();
    std::vector<double> d = diagonal ? b.Diagonal() : std::vector<double>();
    const int* kr = k.rowPointers.data();
    const int* kc = k.columnIndices.data();
    const double* kv = k.values.data();
    const int* br = b.rowPointers.data();
    const int* bc = b.columnIndices.data();
    const double* bv = b.values.data();
    const int want = call.wantVectors && vectors ? 1 : 0;
    int found = 0, code;
    if (call.method == "lanczos") {
        // Mode 4: the eigenvalues nearest the shift. Selector bit 0 buckling, bit 1 values only.
        const int selector = (call.buckling ? 1 : 0) | (want ? 0 : 2);
        double* shapes = want ? vectors : nullptr;
        if (call.block > 0)
            code = (call.buckling ? VQ_EigenvalueAnalysis_ARPACK5 : VQ_EigenvalueAnalysis_ARPACK3)(
                n, nev, kr, kc, kv, br, bc, bv, 4, selector, -1, call.block, &found, values, shapes,
                call.shift, Directory(settings), 0);
        else if (diagonal)
            code = VQ_EigenvalueAnalysis_ARPACK(n, nev, kr, kc, kv, d.data(), 4, selector, -1, &found,
                                                values, shapes, call.shift, Directory(settings), 0);
        else
            code = VQ_EigenvalueAnalysis_ARPACK2(n, nev, kr, kc, kv, br, bc, bv, 4, selector, -1,
                                                 &found, values, shapes, call.shift,
                                                 Directory(settings), 0);
    } else if (call.method == "block") {
        // Block shift-invert Lanczos: the eigenvalues nearest the shift, block size chosen by
        // the library unless given. Verification is the module's own (the Sturm check).
        const int selector = (call.buckling ? 1 : 0) | (want ? 0 : 2);
        double* shapes = want ? vectors : nullptr;
        int sturm = -1;
        if (diagonal && !call.buckling)
            code = VQ_EigenvalueAnalysis_BlockLanczos(n, nev, kr, kc, kv, d.data(), call.block, 0, &found,
                                                      values, shapes, call.shift, 0, 0.0, Directory(settings),
                                                      &sturm);
        else
            code = VQ_EigenvalueAnalysis_BlockLanczos2(n, nev, kr, kc, kv, br, bc, bv, selector, call.block, 0,
                                                       &found, values, shapes, call.shift, 0, 0.0,
                                                       Directory(settings), &sturm);
    } else if (call.method == "subspace") {
        std::vector<double> scratch;
        double* shapes = vectors;
        if (!want) {
            scratch.resize(static_cast<size_t>(n) * nev);
            shapes = scratch.data();
        }
        if (diagonal)
            code = VQ_EigenvalueAnalysis_SubSpaceSolver(
                n, nev, kr, kc, kv, d.data(), settings.outOfCore, matrixType, Directory(settings), 0,
                0.0, 0, &found, values, want, shapes, call.shift, 0, 0, call.tolerance);
        else
            code = VQ_EigenvalueAnalysis_SubSpaceSolver2(
                n, nev, kr, kc, kv, br, bc, bv, settings.outOfCore, matrixType, Directory(settings), 0,
                0.0, 0, &found, values, want, shapes, call.shift, 0, 0, call.tolerance);
    } else if (call.method == "ritz") {
        std::vector<double> scratch;
        double* shapes = vectors;
        if (!want) {
            scratch.resize(static_cast<size_t>(n) * nev);
            shapes = scratch.data();
        }
        const int kind = call.loadIsForce ? 1 : 0;
        if (diagonal)
            code = VQ_EigenvalueAnalysis_RitzVectorSolver(
                n, nev, kr, kc, kv, d.data(), settings.outOfCore, matrixType, Directory(settings), 0,
                0.0, call.load ? 1 : 0, call.load, kind, &found, values, want, shapes);
        else
            code = VQ_EigenvalueAnalysis_RitzVectorSolver2(
                n, nev, kr, kc, kv, br, bc, bv, settings.outOfCore, matrixType, Directory(settings), 0,
                0.0, call.load ? 1 : 0, call.load, kind, &found, values, want, shapes);
    } else if (call.method == "feast") {
        std::vector<double> scratch;
        double* shapes = vectors;
        if (!want) {
            scratch.resize(static_cast<size_t>(n) * nev);
            shapes = scratch.data();
        }
        code = VQ_EigenvalueAnalysis_ExtendedSolver(n, nev, kr, kc, kv, br, bc, bv, settings.outOfCore,
                                                    matrixType, Directory(settings), call.lower,
                                                    call.upper, &found, values, 1, shapes);
    } else {
        throw InputError("unknown method '" + call.method + "'");
    }
    Outcome o = ReadRegistry(code);
    o.found = code == 0 || code == 1 ? std::max(0, std::min(found, nev)) : 0;
    return o;
}

}  // namespace vqpy
