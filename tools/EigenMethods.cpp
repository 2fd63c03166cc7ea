#include "EigenMethods.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "MatrixMarketInput.h"
#include "Output.h"
#include "Progress.h"
#include "vqmath.h"

namespace vqsolve {

using vqmath::models::CsrMatrix;

const char* MethodName(Method method) {
  switch (method) {
    case Method::Subspace: return "subspace";
    case Method::Lanczos: return "lanczos";
    case Method::Feast: return "feast";
    case Method::Ritz: return "ritz";
    case Method::Lapack: return "lapack";
    case Method::Jacobi: return "jacobi";
    case Method::Block: return "block";
  }
  return "?";
}

const std::vector<Method>& AllMethods() {
  static const std::vector<Method> all = {Method::Subspace, Method::Lanczos, Method::Feast,
                                          Method::Ritz,     Method::Lapack,  Method::Jacobi,
                                          Method::Block};
  return all;
}

bool ParseMethod(const std::string& name, Method& method) {
  for (Method m : AllMethods())
    if (name == MethodName(m)) {
      method = m;
      return true;
    }
  return false;
}

int DenseLimit(Method method) {
  // LAPACK: three n × n arrays (K, M, vectors); Jacobi: element-wise sweeps, O(n³) each.
  return method == Method::Jacobi ? 600 : 6000;
}

namespace {

// Sorts the eigenpairs ascending and keeps at most `keep` of them.
void SortAndKeep(std::vector<double>& values, std::vector<double>& vectors, int n, size_t keep) {
  std::vector<size_t> order(values.size());
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return values[a] < values[b]; });
  keep = std::min(keep, order.size());
  std::vector<double> v(keep), x;
  const bool withVectors = vectors.size() >= values.size() * static_cast<size_t>(n) && n > 0;
  if (withVectors) x.resize(keep * static_cast<size_t>(n));
  for (size_t k = 0; k < keep; ++k) {
    v[k] = values[order[k]];
    if (withVectors)
      std::copy(vectors.begin() + order[k] * n, vectors.begin() + (order[k] + 1) * n,
                x.begin() + k * n);
  }
  values.swap(v);
  vectors.swap(x);
}

// Drops eigenvalues below the shift (when one is given) and above the limit.
void Select(std::vector<double>& values, std::vector<double>& vectors, int n,
            const EigenRequest& r) {
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

// Dense LAPACK or Jacobi: all n eigenpairs, then the wanted ones. For buckling the pencil is
// turned round, Kg·φ = μ·K·φ with λ = 1/μ, because K is positive definite and Kg is not.
void RunDense(Method method, const Pencil& pencil, const EigenRequest& request, EigenOutcome& out) {
  const int n = pencil.N();
  if (n > DenseLimit(method))
    throw InputError(
        Format("the %s method works on dense %d x %d arrays; this problem has %d "
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
    if (b)
      code = VQ_EigenvalueAnalysis_LAPACK2(n, a->rowPointers.data(), a->columnIndices.data(),
                                           a->values.data(), b->rowPointers.data(),
                                           b->columnIndices.data(), b->values.data(), 1,
                                           values.data(), vectors.data());
    else
      code = VQ_EigenvalueAnalysis_LAPACK(n, a->rowPointers.data(), a->columnIndices.data(),
                                          a->values.data(), pencil.diagonal->data(), 1,
                                          values.data(), vectors.data());
  } else {
    if (b)
      code = VQ_EigenvalueAnalysis_JACOBI2(n, a->rowPointers.data(), a->columnIndices.data(),
                                           a->values.data(), b->rowPointers.data(),
                                           b->columnIndices.data(), b->values.data(), values.data(),
                                           vectors.data());
    else
      code = VQ_EigenvalueAnalysis_JACOBI(n, a->rowPointers.data(), a->columnIndices.data(),
                                          a->values.data(), pencil.diagonal->data(), values.data(),
                                          vectors.data());
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

// Results of a sparse entry point: `found` pairs in the arrays, sorted ascending.
void TakeResults(EigenOutcome& out, int code, int found, std::vector<double>& values,
                 std::vector<double>& vectors, int n, const EigenRequest& request) {
  out.code = code;
  out.registry = ReadRegistry();
  if (code != 0 && code != 1) return;
  found = std::max(0, std::min(found, static_cast<int>(values.size())));
  values.resize(static_cast<size_t>(found));
  vectors.resize(request.wantVectors ? static_cast<size_t>(found) * n : 0);
  SortAndKeep(values, vectors, n, values.size());
  out.values = values;
  out.vectors = vectors;
}

void RunSubspace(const Pencil& pencil, const EigenRequest& request, EigenOutcome& out) {
  const int n = pencil.N(), nev = std::min(request.count, n);
  const CsrMatrix& k = *pencil.k;
  std::vector<double> values(static_cast<size_t>(nev), 0.0),
      vectors(static_cast<size_t>(nev) * n, 0.0);
  int found = 0, code;
  if (pencil.b)
    code = VQ_EigenvalueAnalysis_SubSpaceSolver2(
        n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
        pencil.b->rowPointers.data(), pencil.b->columnIndices.data(), pencil.b->values.data(),
        request.outOfCoreMode, VQ_GetSolverMatrixType(), request.workingDirectory.c_str(),
        request.hasLimit ? 1 : 0, request.limit, 0, &found, values.data(),
        request.wantVectors ? 1 : 0, vectors.data(), request.hasShift ? request.shift : 0.0, 0, 0,
        request.tolerance);
  else
    code = VQ_EigenvalueAnalysis_SubSpaceSolver(
        n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
        pencil.diagonal->data(), request.outOfCoreMode, VQ_GetSolverMatrixType(),
        request.workingDirectory.c_str(), request.hasLimit ? 1 : 0, request.limit, 0, &found,
        values.data(), request.wantVectors ? 1 : 0, vectors.data(),
        request.hasShift ? request.shift : 0.0, 0, 0, request.tolerance);
  TakeResults(out, code, found, values, vectors, n, request);
}

// A shift for ARPACK's buckling mode: below the lowest buckling factor (no negative pivot in
// K − σ·Kg) but within a decade of it, from the smallest ratio k_ii / kg_ii downwards.
double BucklingShift(const Pencil& pencil, const EigenRequest& request) {
  const CsrMatrix& k = *pencil.k;
  const CsrMatrix& g = *pencil.b;
  double sigma = 0.0;
  for (int i = 0; i < k.n; ++i) {
    const double kii = k.values[k.rowPointers[i] - 1], gii = g.values[g.rowPointers[i] - 1];
    if (gii > 0.0 && kii > 0.0 && (sigma == 0.0 || kii / gii < sigma)) sigma = kii / gii;
  }
  if (sigma <= 0.0) return 1.0;
  // Just below that ratio: exactly at it K − σKg has a zero diagonal entry (singular).
  sigma *= 1.0 - 1e-9;
  DirectOptions options;
  options.outOfCoreMode = request.outOfCoreMode;
  options.workingDirectory = request.workingDirectory;
  for (int attempt = 0; attempt < 30; ++attempt) {
    const SturmCount c = CountBelow(pencil, sigma, options);
    if (!c.message.empty() || c.negativePivots == 0) break;
    sigma *= 0.1;
  }
  return sigma;
}

void RunLanczos(const Pencil& pencil, const EigenRequest& request, EigenOutcome& out,
                LibraryCall& call) {
  const int n = pencil.N(), nev = std::min(request.count, n);
  const CsrMatrix& k = *pencil.k;
  std::vector<double> values(static_cast<size_t>(nev), 0.0),
      vectors(static_cast<size_t>(nev) * n, 0.0);
  double shift = request.hasShift ? request.shift : 0.0;
  if (request.buckling && !request.hasShift) {
    call.Stage("Lanczos (ARPACK): a shift below the lowest buckling factor by Sturm counts");
    shift = BucklingShift(pencil, request);
    call.Stage(Format("Lanczos (ARPACK): %d buckling modes above %.4g", nev, shift));
    out.note = Format("shift %.6g below the lowest buckling factor", shift);
  }
  // Selector: bit 0 buckling, bit 1 no mode shapes. Mode 4: the eigenvalues nearest the shift.
  const int selector = (request.buckling ? 1 : 0) | (request.wantVectors ? 0 : 2);
  int found = 0, code;
  if (request.block > 0) {
    // Incremental passes of `block` modes; the library reports each pass on standard output,
    // which the progress line shows.
    CsrMatrix diagonal;
    const CsrMatrix* b = pencil.b;
    if (!b) {
      diagonal = vqmath::models::FromDiagonal(*pencil.diagonal);
      b = &diagonal;
    }
    auto run = request.buckling ? VQ_EigenvalueAnalysis_ARPACK5 : VQ_EigenvalueAnalysis_ARPACK3;
    code = run(n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
               b->rowPointers.data(), b->columnIndices.data(), b->values.data(), 4, selector, -1,
               request.block, &found, values.data(), request.wantVectors ? vectors.data() : nullptr,
               shift, request.workingDirectory.c_str(), 1);
    TakeResults(out, code, found, values, vectors, n, request);
    return;
  }
  if (pencil.b)
    code = VQ_EigenvalueAnalysis_ARPACK2(
        n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
        pencil.b->rowPointers.data(), pencil.b->columnIndices.data(), pencil.b->values.data(), 4,
        selector, -1, &found, values.data(), request.wantVectors ? vectors.data() : nullptr, shift,
        request.workingDirectory.c_str(), 1);
  else
    code = VQ_EigenvalueAnalysis_ARPACK(
        n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
        pencil.diagonal->data(), 4, selector, -1, &found, values.data(),
        request.wantVectors ? vectors.data() : nullptr, shift, request.workingDirectory.c_str(), 1);
  TakeResults(out, code, found, values, vectors, n, request);
}

// Block shift-invert Lanczos: the eigenvalues nearest the shift (0 unless given; buckling at
// shift 0 works on K⁻¹·Kg, so no shift search is needed). vqsolve makes its own Sturm check.
void RunBlock(const Pencil& pencil, const EigenRequest& request, EigenOutcome& out) {
  const int n = pencil.N(), nev = std::min(request.count, n);
  const CsrMatrix& k = *pencil.k;
  std::vector<double> values(static_cast<size_t>(nev), 0.0),
      vectors(static_cast<size_t>(nev) * n, 0.0);
  const double shift = request.hasShift ? request.shift : 0.0;
  const int selector = (request.buckling ? 1 : 0) | (request.wantVectors ? 0 : 2);
  int found = 0, sturm = -1, code;
  CsrMatrix diagonal;
  const CsrMatrix* b = pencil.b;
  if (!b && request.buckling) {
    diagonal = vqmath::models::FromDiagonal(*pencil.diagonal);
    b = &diagonal;
  }
  if (b)
    code = VQ_EigenvalueAnalysis_BlockLanczos2(
        n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
        b->rowPointers.data(), b->columnIndices.data(), b->values.data(), selector, request.block,
        0, &found, values.data(), request.wantVectors ? vectors.data() : nullptr, shift,
        request.hasLimit ? 1 : 0, request.limit, request.workingDirectory.c_str(), &sturm);
  else
    code = VQ_EigenvalueAnalysis_BlockLanczos(
        n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
        pencil.diagonal->data(), request.block, 0, &found, values.data(),
        request.wantVectors ? vectors.data() : nullptr, shift, request.hasLimit ? 1 : 0,
        request.limit, request.workingDirectory.c_str(), &sturm);
  TakeResults(out, code, found, values, vectors, n, request);
}

void RunFeast(const Pencil& pencil, const EigenRequest& request, EigenOutcome& out,
              LibraryCall& call) {
  const int n = pencil.N(), nev = std::min(request.count, n);
  const CsrMatrix& k = *pencil.k;
  CsrMatrix diagonal;
  const CsrMatrix* b = pencil.b;
  if (!b) {
    diagonal = vqmath::models::FromDiagonal(*pencil.diagonal);
    b = &diagonal;
  }
  // The search interval: given, or from Sturm counts (negative pivots of K − σ·M) with σ grown
  // until the wanted number of eigenvalues lies below it.
  double lower = request.lower, upper = request.upper;
  if (!request.hasInterval) {
    DirectOptions options;
    options.outOfCoreMode = request.outOfCoreMode;
    options.workingDirectory = request.workingDirectory;
    const double from = request.hasShift ? request.shift : 0.0;
    int counted = 0;
    call.Stage("FEAST: bracketing the interval by Sturm counts");
    upper = UpperBoundFor(pencil, nev, from, options, &counted);
    lower = request.hasShift ? request.shift : -1e-3 * upper;
    // The library searches its interval in four equal parts from the bottom, one FEAST run
    // each, until it has the wanted count: the bracket is made the lowest quarter, so one
    // run finds every wanted mode.
    if (request.hasLimit)
      upper = std::min(upper, request.limit);
    else
      upper = lower + 4.0 * (upper - lower);
    out.note = Format("interval [%.6g, %.6g] from Sturm counts", lower, upper);
  } else {
    out.note = Format("interval [%.6g, %.6g]", lower, upper);
  }
  call.Stage(Format("FEAST: %d modes in [%.4g, %.4g]", nev, lower, upper));
  std::vector<double> values(static_cast<size_t>(nev), 0.0),
      vectors(static_cast<size_t>(nev) * n, 0.0);
  int found = 0;
  const int code = VQ_EigenvalueAnalysis_ExtendedSolver(
      n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), b->rowPointers.data(),
      b->columnIndices.data(), b->values.data(), request.outOfCoreMode, VQ_GetSolverMatrixType(),
      request.workingDirectory.c_str(), lower, upper, &found, values.data(),
      request.wantVectors ? 1 : 0, vectors.data());
  TakeResults(out, code, found, values, vectors, n, request);
}

void RunRitz(const Pencil& pencil, const EigenRequest& request, EigenOutcome& out) {
  const int n = pencil.N(), nev = std::min(request.count, n);
  const CsrMatrix& k = *pencil.k;
  std::vector<double> values(static_cast<size_t>(nev), 0.0),
      vectors(static_cast<size_t>(nev) * n, 0.0);
  const bool haveLoad = request.load && static_cast<int>(request.load->size()) == n;
  const double* load = haveLoad ? request.load->data() : nullptr;
  const int kind = request.loadIsForce ? 1 : 0;
  int found = 0, code;
  if (pencil.b)
    code = VQ_EigenvalueAnalysis_RitzVectorSolver2(
        n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
        pencil.b->rowPointers.data(), pencil.b->columnIndices.data(), pencil.b->values.data(),
        request.outOfCoreMode, VQ_GetSolverMatrixType(), request.workingDirectory.c_str(),
        request.hasLimit ? 1 : 0, request.limit, haveLoad ? 1 : 0, load, kind, &found,
        values.data(), request.wantVectors ? 1 : 0, vectors.data());
  else
    code = VQ_EigenvalueAnalysis_RitzVectorSolver(
        n, nev, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
        pencil.diagonal->data(), request.outOfCoreMode, VQ_GetSolverMatrixType(),
        request.workingDirectory.c_str(), request.hasLimit ? 1 : 0, request.limit, haveLoad ? 1 : 0,
        load, kind, &found, values.data(), request.wantVectors ? 1 : 0, vectors.data());
  TakeResults(out, code, found, values, vectors, n, request);
}

}  // namespace

bool MethodAvailable(Method method, const Pencil&, bool buckling) {
  // FEAST and Ritz vectors need a positive definite B: not the geometric stiffness.
  return !buckling || (method != Method::Feast && method != Method::Ritz);
}

EigenOutcome RunEigen(Method method, const Pencil& pencil, const EigenRequest& request,
                      Progress& progress) {
  EigenOutcome out;
  out.method = method;
  out.available = MethodAvailable(method, pencil, request.buckling);
  if (!out.available) return out;
  static const char* kTitles[] = {"subspace iteration", "Lanczos (ARPACK)", "FEAST",
                                  "Ritz vectors",       "dense LAPACK",     "dense Jacobi",
                                  "block Lanczos"};
  LibraryCall call(
      progress, Format("%s: %d %s of %d equations", kTitles[static_cast<int>(method)],
                       request.count, request.buckling ? "buckling modes" : "modes", pencil.N()));
  switch (method) {
    case Method::Lapack:
    case Method::Jacobi: RunDense(method, pencil, request, out); break;
    case Method::Subspace: RunSubspace(pencil, request, out); break;
    case Method::Lanczos: RunLanczos(pencil, request, out, call); break;
    case Method::Feast: RunFeast(pencil, request, out, call); break;
    case Method::Ritz: RunRitz(pencil, request, out); break;
    case Method::Block: RunBlock(pencil, request, out); break;
  }
  // Solvers stop at the first eigenvalue above the limit and keep it: it is not wanted.
  if (request.hasLimit && !out.values.empty()) {
    EigenRequest limitOnly;
    limitOnly.hasLimit = true;
    limitOnly.limit = request.limit;
    Select(out.values, out.vectors, pencil.N(), limitOnly);
  }
  out.seconds = call.Seconds();
  return out;
}

}  // namespace vqsolve
