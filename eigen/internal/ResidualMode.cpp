// The residual (missing-mass) mode; see ResidualMode.h for the formulation.
#include "eigen/internal/ResidualMode.h"

#include <mkl_cblas.h>

#include <algorithm>
#include <cmath>
#include <new>

namespace vqmath {
namespace eigen_internal {

namespace {

constexpr double kCompleteMass = 1e-13;
// Status of a result that overflowed (input beyond what the arithmetic holds) or that shows M
// not positive semi-definite.
constexpr int kInvalid = -64;
// Rounding allowed above a fraction of one.
constexpr double kFractionSlack = 1e-9;
constexpr int kRefinementSteps = 40;
constexpr double kRefined = 1e-14;
constexpr double kSlowContraction = 0.5;

// v ← v − Φ·(Φᵀ·w) where w = M·v.
void RemoveModes(int n, int nModes, const double* modes, const std::vector<double>& mv,
                 std::vector<double>& v, std::vector<double>& g) {
  if (nModes == 0) return;
  cblas_dgemv(CblasColMajor, CblasTrans, n, nModes, 1.0, modes, n, mv.data(), 1, 0.0, g.data(), 1);
  cblas_dgemv(CblasColMajor, CblasNoTrans, n, nModes, -1.0, modes, n, g.data(), 1, 1.0, v.data(), 1);
}

// x = (K − σ·M)⁻¹·b with σ < 0 turned into the static response K⁻¹·b by the fixed point
// x ← (K − σ·M)⁻¹·(b − σ·M·x), whose error shrinks by |σ|/(λⱼ + |σ|) per step in each mode j:
// fast when σ is small against the eigenvalues left in b. False (x unchanged) when it does not
// settle, as when b holds a rigid-body motion that K cannot resist.
bool RefineToStatic(ShiftedFactorization& factored, const std::vector<double>& b,
                    std::vector<double>& x) {
  const int n = static_cast<int>(b.size());
  const double sigma = factored.Sigma();
  std::vector<double> y(x), rhs(n), my(n);
  double previous = 0.0;
  for (int step = 0; step < kRefinementSteps; ++step) {
    factored.ApplyB(y.data(), my.data());
    for (int i = 0; i < n; ++i) rhs[i] = b[i] - sigma * my[i];
    std::vector<double> next(n);
    if (factored.Solve(rhs.data(), next.data()) != 0) return false;
    double change = 0.0, size = 0.0;
    for (int i = 0; i < n; ++i) {
      change = std::max(change, std::fabs(next[i] - y[i]));
      size = std::max(size, std::fabs(next[i]));
    }
    y.swap(next);
    if (change <= kRefined * size) {
      x.swap(y);
      return true;
    }
    if (step > 0 && change > kSlowContraction * previous) return false;
    previous = change;
  }
  return false;
}

}  // namespace

ResidualModeResult ComputeResidualMode(ShiftedFactorization& factored, int nModes,
                                       const double* modes, const double* direction) {
  ResidualModeResult out;
  try {
    const int n = factored.MassProduct().Order();
    std::vector<double> v(direction, direction + n), mv(n), g(nModes > 0 ? nModes : 1);
    factored.ApplyB(v.data(), mv.data());
    const double total = cblas_ddot(n, v.data(), 1, mv.data(), 1);
    if (!(total > 0.0)) {
      out.status = -20;
      return out;
    }
    // Modal participations, then r⊥ by two passes of classical Gram–Schmidt.
    if (nModes > 0) {
      cblas_dgemv(CblasColMajor, CblasTrans, n, nModes, 1.0, modes, n, mv.data(), 1, 0.0, g.data(),
                  1);
      out.modesFraction = cblas_ddot(nModes, g.data(), 1, g.data(), 1) / total;
    }
    for (int pass = 0; pass < 2; ++pass) {
      factored.ApplyB(v.data(), mv.data());
      RemoveModes(n, nModes, modes, mv, v, g);
    }
    factored.ApplyB(v.data(), mv.data());
    const double missing = cblas_ddot(n, v.data(), 1, mv.data(), 1);
    // A missing mass below zero, or (further down) a fraction above one, breaks Cauchy-Schwarz in
    // the M inner product: M shows itself not positive semi-definite, and nothing here means
    // anything.
    if (!std::isfinite(total) || !std::isfinite(missing) || missing < -kCompleteMass * total) {
      out.status = kInvalid;
      return out;
    }
    out.mode.assign(n, 0.0);
    if (!(missing > kCompleteMass * total)) {
      out.fraction = missing > 0.0 ? missing / total : 0.0;
      return out;
    }
    // Static response to the missing inertia load.
    std::vector<double> x(n);
    const int solved = factored.Solve(mv.data(), x.data());
    if (solved != 0) {
      out.status = -83;
      return out;
    }
    double sigma = factored.Sigma();
    if (sigma < 0.0 && RefineToStatic(factored, mv, x)) sigma = 0.0;
    const double flexibility = cblas_ddot(n, mv.data(), 1, x.data(), 1);
    if (flexibility > 0.0) {
      out.eigenvalue = sigma + missing / flexibility;
    } else {
      factored.ApplyK(v.data(), x.data());
      out.eigenvalue = cblas_ddot(n, v.data(), 1, x.data(), 1) / missing;
    }
    const double scale = 1.0 / std::sqrt(missing);
    for (int i = 0; i < n; ++i) out.mode[i] = v[i] * scale;
    // (ψᵀ·M·r)² with ψ = r⊥/‖r⊥‖_M.
    factored.ApplyB(out.mode.data(), mv.data());
    const double participation = cblas_ddot(n, mv.data(), 1, direction, 1);
    out.fraction = participation * participation / total;
    // Finite input whose products overflow (modes or direction near the largest doubles) leaves
    // infinities and NaN: not a result; nor is a fraction above one (M not semi-definite).
    bool finite = std::isfinite(out.eigenvalue) && std::isfinite(out.fraction);
    for (int i = 0; i < n && finite; ++i) finite = std::isfinite(out.mode[i]);
    if (!finite || out.fraction > 1.0 + kFractionSlack) {
      out = ResidualModeResult();
      out.status = kInvalid;
    }
  } catch (const std::bad_alloc&) {
    out = ResidualModeResult();
    out.status = -1;
  }
  return out;
}

}  // namespace eigen_internal
}  // namespace vqmath
