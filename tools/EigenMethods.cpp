#include "EigenMethods.h"

#include "EntryPoints.h"
#include "MatrixMarketInput.h"
#include "Output.h"
#include "Progress.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace vqsolve {

using vqmath::models::CsrMatrix;

const char* MethodName(Method method)
{
    switch (method) {
    case Method::Subspace: return "subspace";
    case Method::Lanczos: return "lanczos";
    case Method::Feast: return "feast";
    case Method::Ritz: return "ritz";
    case Method::Lapack: return "lapack";
    case Method::Jacobi: return "jacobi";
    }
    return "?";
}

const std::vector<Method>& AllMethods()
{
    static const std::vector<Method> all = {Method::Subspace, Method::Lanczos, Method::Feast,
                                            Method::Ritz, Method::Lapack, Method::Jacobi};
    return all;
}

bool ParseMethod(const std::string& name, Method& method)
{
    for (Method m : AllMethods())
        if (name == MethodName(m)) {
            method = m;
            return true;
        }
    return false;
}

int DenseLimit(Method method)
{
    // LAPACK: three n × n arrays (K, M, vectors); Jacobi: element-wise sweeps, O(n³) each.
    return method == Method::Jacobi ? 600 : 6000;
}

namespace {

// Sorts the eigenpairs ascending and keeps at most `keep` of them.
void SortAndKeep(std::vector<double>& values, std::vector<double>& vectors, int n, size_t keep)
{
    std::vector<size_t> order(values.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return values[a] < values[b]; });
    keep = std::min(keep, order.size());
    std::vector<double> v(keep), x;
    const bool withVectors = vectors.size() >= values.size() * static_cast<size_t>(n) && n > 0;
    if (withVectors) x.resize(keep * static_cast<size_t>(n));
    for (size_t k = 0; k < keep; ++k) {
        v[k] = values[order[k]];
        if (withVectors)
            std::copy(vectors.begin() + order[k] * n, vectors.begin() + (order[k] + 1) * n, x.begin() + k * n);
    }
    values.swap(v);
    vectors.swap(x);
}

// Drops eigenvalues below the shift (when one is given) and above the limit.
void Select(std::vector<double>& values, std::vector<double>& vectors, int n, const EigenRequest& r)
{
    std::vector<double> v, x;
    const bool withVectors = vectors.size() >= values.size() * static_cast<size_t>(n) && n > 0;
    for (size_t k = 0; k < values.size(); ++k) {
        if (r.hasShift && values[k] < r.shift) continue;
        if (r.hasLimit && values[k] > r.limit) continue;
        v.push_back(values[k]);
        if (withVectors) x.insert(x.end(), vectors.begin() + k * n, vectors.begin() + (k + 1) * n);
    }
    values.swap(v);
    vectors.swap(x);
}

bool DenseAvailable(Method method, const Pencil& pencil, bool buckling)
{
    const bool sparseB = pencil.b != nullptr || buckling;
    if (method == Method::Lapack) {
#if defined(VQSOLVE_HAVE_VQ_EigenvalueAnalysis_LAPACK) && defined(VQSOLVE_HAVE_VQ_EigenvalueAnalysis_LAPACK2)
        return sparseB ? VQSOLVE_AVAILABLE(VQ_EigenvalueAnalysis_LAPACK2)
                       : VQSOLVE_AVAILABLE(VQ_EigenvalueAnalysis_LAPACK);
#endif
    } else {
#if defined(VQSOLVE_HAVE_VQ_EigenvalueAnalysis_JACOBI) && defined(VQSOLVE_HAVE_VQ_EigenvalueAnalysis_JACOBI2)
        return sparseB ? VQSOLVE_AVAILABLE(VQ_EigenvalueAnalysis_JACOBI2)
                       : VQSOLVE_AVAILABLE(VQ_EigenvalueAnalysis_JACOBI);
#endif
    }
    (void)sparseB;
    return false;
}

// Dense LAPACK or Jacobi: all n eigenpairs, then the wanted ones. For buckling the pencil is
// turned round, Kg·φ = μ·K·φ with λ = 1/μ, because K is positive definite and Kg is not.
void RunDense(Method method, const Pencil& pencil, const EigenRequest& request, EigenOutcome& out)
{
    const int n = pencil.N();
    if (n > DenseLimit(method))
        throw InputError(Format("the %s method works on dense %d x %d arrays; this problem has %d "
                                "equations, more than the %d it is offered for",
                                MethodName(method), n, n, n, DenseLimit(method)));
    std::vector<double> values(static_cast<size_t>(n), 0.0);
    std::vector<double> vectors(static_cast<size_t>(n) * n, 0.0);
    CsrMatrix diagonalB;
    const CsrMatrix* a = pencil.k;
    const CsrMatrix* b = pencil.b;
    if (request.buckling) std::swap(a, b);
    int code = 0;
    if (method == Method::Lapack) {
#if defined(VQSOLVE_HAVE_VQ_EigenvalueAnalysis_LAPACK) && defined(VQSOLVE_HAVE_VQ_EigenvalueAnalysis_LAPACK2)
        if (b)
            code = VQ_EigenvalueAnalysis_LAPACK2(n, a->rowPointers.data(), a->columnIndices.data(),
                                                 a->values.data(), b->rowPointers.data(),
                                                 b->columnIndices.data(), b->values.data(), 1,
                                                 values.data(), vectors.data());
        else
            code = VQ_EigenvalueAnalysis_LAPACK(n, a->rowPointers.data(), a->columnIndices.data(),
                                                a->values.data(), pencil.diagonal->data(), 1,
                                                values.data(), vectors.data());
#endif
    } else {
#if defined(VQSOLVE_HAVE_VQ_EigenvalueAnalysis_JACOBI) && defined(VQSOLVE_HAVE_VQ_EigenvalueAnalysis_JACOBI2)
        if (b)
            code = VQ_EigenvalueAnalysis_JACOBI2(n, a->rowPointers.data(), a->columnIndices.data(),
                                                 a->values.data(), b->rowPointers.data(),
                                                 b->columnIndices.data(), b->values.data(),
                                                 values.data(), vectors.data());
        else
            code = VQ_EigenvalueAnalysis_JACOBI(n, a->rowPointers.data(), a->columnIndices.data(),
                                                a->values.data(), pencil.diagonal->data(),
                                                values.data(), vectors.data());
#endif
    }
    out.code = code;
    out.registry = ReadRegistry();
    if (code != 0) return;
    if (request.buckling) {
        // λ = 1/μ over the positive μ.
        std::vector<double> v, x;
        for (int k = 0; k < n; ++k)
            if (values[k] > 0.0) {
                v.push_back(1.0 / values[k]);
                x.insert(x.end(), vectors.begin() + static_cast<size_t>(k) * n,
                         vectors.begin() + static_cast<size_t>(k + 1) * n);
            }
        values.swap(v);
        vectors.swap(x);
    }
    SortAndKeep(values, vectors, n, values.size());
    Select(values, vectors, n, request);
    SortAndKeep(values, vectors, n, static_cast<size_t>(request.count));
    out.values = values;
    if (request.wantVectors) out.vectors = vectors;
}

}  // namespace

bool MethodAvailable(Method method, const Pencil& pencil, bool buckling)
{
    switch (method) {
    case Method::Lapack:
    case Method::Jacobi: return DenseAvailable(method, pencil, buckling);
    case Method::Subspace:
    case Method::Lanczos:
    case Method::Feast:
    case Method::Ritz: return false;
    }
    return false;
}

EigenOutcome RunEigen(Method method, const Pencil& pencil, const EigenRequest& request, Progress& progress)
{
    EigenOutcome out;
    out.method = method;
    out.available = MethodAvailable(method, pencil, request.buckling);
    if (!out.available) return out;
    LibraryCall call(progress, Format("%s: %d equations", MethodName(method), pencil.N()));
    switch (method) {
    case Method::Lapack:
    case Method::Jacobi: RunDense(method, pencil, request, out); break;
    default: break;
    }
    out.seconds = call.Seconds();
    return out;
}

}  // namespace vqsolve
