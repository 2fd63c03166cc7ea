// The residual (missing-mass) mode of a direction r for a set of M-orthonormal modes Φ.
//
// The modes carry the effective masses (φᵢᵀ·M·r)²; what they leave out of the total rᵀ·M·r is
// exactly r⊥ᵀ·M·r⊥ with r⊥ = r − Φ·Φᵀ·M·r, the part of r that the modes do not represent
// (M·r⊥ = M·r − M·Φ·Φᵀ·M·r is the unrepresented inertia load).
//
// Shape. A vector ψ that is M-orthogonal to Φ has the effective mass (ψᵀ·M·r)²/(ψᵀ·M·ψ) =
// (ψᵀ·M·r⊥)²/(ψᵀ·M·ψ), and by the Cauchy–Schwarz inequality in the M inner product this is at
// most r⊥ᵀ·M·r⊥, with equality only when ψ is parallel to r⊥ (on the degrees of freedom that
// carry mass). The static response K⁻¹·M·r⊥ — the usual residual vector — is therefore short of
// the missing mass whenever it is not parallel to r⊥, which is the normal case. The residual
// mode is thus r⊥ itself, M-normalised: modes plus residual mode hold 100 % of rᵀ·M·r.
//
// Eigenvalue. The factorisation of K − σ·M serves the stiffness side: x = (K − σ·M)⁻¹·M·r⊥ is the
// static response to the missing inertia load, and
//     λ_r = σ + (r⊥ᵀ·M·r⊥) / (r⊥ᵀ·M·x)
// is the eigenvalue with which a single mode of mass r⊥ᵀ·M·r⊥ gives the same static response
// along r⊥ as all the modes left out: writing r⊥ = Σⱼ cⱼ·φⱼ over those modes, λ_r − σ is the
// harmonic mean of the (λⱼ − σ) weighted by their missing masses cⱼ², so λ_r lies between the
// lowest and the highest eigenvalue left out, and a response computed with the residual mode
// reproduces the missing static (low-frequency) contribution exactly. This holds when every
// eigenvalue below σ is among the modes (then all λⱼ − σ > 0); otherwise (r⊥ᵀ·M·x ≤ 0) the
// Rayleigh quotient r⊥ᵀ·K·r⊥ / r⊥ᵀ·M·r⊥ is given instead.
//
// With σ < 0 (a factorisation that stays regular for a free structure) x is first refined into
// the static response K⁻¹·M·r⊥ by the fixed point x ← (K − σ·M)⁻¹·(M·r⊥ − σ·M·x), which
// converges whenever r⊥ holds no rigid-body motion (then σ = 0 above); otherwise the shifted
// response stands.
//
// When the modes already hold the whole mass (r⊥ᵀ·M·r⊥ ≤ 1e-13·rᵀ·M·r) the residual mode is the
// zero vector with eigenvalue 0 and its (vanishing) fraction.
//
// Internal header.
#pragma once

#include <vector>

#include "eigen/internal/ShiftedFactorization.h"

namespace vqmath {
namespace eigen_internal {

struct ResidualModeResult {
  int status = 0;               // 0, −1 memory, −20 no mass in the direction, −83 solve failed,
                                // −64 the arithmetic overflowed (input near the largest doubles)
                                // or M showed itself not positive semi-definite
  std::vector<double> mode;     // n values, M-normalised, M-orthogonal to the modes
  double eigenvalue = 0.0;
  double fraction = 0.0;        // its effective mass / rᵀ·M·r
  double modesFraction = 0.0;   // Σ (φᵢᵀ·M·r)² / rᵀ·M·r
};

// factored holds the factorisation of K − σ·M (σ below every eigenvalue left out); modes are
// nModes columns of n values, M-normalised.
ResidualModeResult ComputeResidualMode(ShiftedFactorization& factored, int nModes,
                                       const double* modes, const double* direction);

}  // namespace eigen_internal
}  // namespace vqmath
