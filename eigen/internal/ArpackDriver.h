// Reverse-communication driver for ARPACK's symmetric implicitly restarted Lanczos routines
// (dsaupd/dseupd) on a generalized problem A·φ = λ·B·φ in one of ARPACK's two spectral
// transformations:
//
//   shift-invert (iparam(7) = 3): OP = (A − σ·B)⁻¹·B, B = M, for natural modes K·φ = λ·M·φ;
//   buckling     (iparam(7) = 4): OP = (K − σ·Kg)⁻¹·K, B = K, for K·φ = λ·Kg·φ (σ ≠ 0).
//
// The driver owns ARPACK's work arrays (std::vector, zeroed), runs the ido loop and serves every
// request through the operator it is given; it knows nothing about how the operator factors or
// multiplies. One call is one complete ARPACK run. ARPACK keeps state between its calls in SAVEd
// variables, so runs must not overlap (the library is used by one thread at a time).
//
// Internal header: hosts never include it.
#pragma once

#include <string>
#include <vector>

#include "eigen/internal/ShiftInvertOperator.h"

namespace vqmath {
namespace eigen_internal {

// ARPACK's spectrum selector ("which"), numbered as the entry points number it.
enum class ArpackWhich : int {
  kSmallestAlgebraic = 1,  // "SA"
  kLargestAlgebraic = 2,   // "LA"
  kSmallestMagnitude = 3,  // "SM"
  kLargestMagnitude = 4,   // "LM": in a spectral transformation, the eigenvalues nearest σ
  kBothEnds = 5,           // "BE"
};

// The two-character text ARPACK expects; any value outside 1..5 is taken as "LM".
const char* ArpackWhichText(ArpackWhich which);
// 1..5 → the selector; any other value → kLargestMagnitude.
ArpackWhich ArpackWhichFromInt(int value);

// ARPACK's iparam(7) values used by the library.
enum class ArpackMode : int {
  kShiftInvert = 3,
  kBuckling = 4,
};

// Sizes handed to ARPACK, derived from the problem order and the requested count:
//   nev = min(requested, n), reduced to n − 1 when it equals n;
//   ncv = min(2·nev + 1, n − 1), raised to n when that leaves ncv = nev and nev = n − 1;
//   maxIterations = the caller's value, or 100·nev when the caller passes −1 (or any value < 1).
struct ArpackSizes {
  int nev = 0;
  int ncv = 0;
  int maxIterations = 0;
};
ArpackSizes ComputeArpackSizes(int n, int requested, int maxIterations);

// The driver serves ARPACK through a ShiftInvertOperator; a result other than 0 ends the run and
// is reported back in ArpackOutcome::operatorStatus.

struct ArpackRequest {
  int n = 0;
  ArpackSizes sizes;
  ArpackWhich which = ArpackWhich::kLargestMagnitude;
  ArpackMode mode = ArpackMode::kShiftInvert;
  double sigma = 0.0;
  bool wantVectors = true;
};

enum class ArpackResult : int {
  kConverged = 0,       // all nev eigenpairs delivered
  kPartial = 1,         // 1 ≤ nconv < nev pairs delivered (ARPACK info 1 or −9999)
  kArpackError = 2,     // dsaupd or dseupd failed: see info / inEupd
  kOperatorFailed = 3,  // the operator returned operatorStatus ≠ 0
  kUnexpectedIdo = 4,   // ARPACK asked for a request the driver does not serve
  kOutOfMemory = 5,     // a work array could not be allocated
};

struct ArpackOutcome {
  ArpackResult result = ArpackResult::kConverged;
  int info = 0;                  // ARPACK's info of the failing (or last) routine
  bool inEupd = false;           // true when info comes from dseupd
  int ido = 0;                   // the last ido (meaningful for kUnexpectedIdo)
  int operatorStatus = 0;        // the operator's result for kOperatorFailed
  int nconv = 0;                 // converged Ritz values reported by dsaupd (iparam(5))
  int iterations = 0;            // restart iterations taken (iparam(3))
  int operatorApplications = 0;  // OP·x requests served (iparam(9))
  int bProducts = 0;             // B·x requests served (iparam(10))
  // Delivered pairs, eigenvalues ascending: count values and, when vectors were requested,
  // count columns of n doubles (column-major).
  int count = 0;
  std::vector<double> values;
  std::vector<double> vectors;
};

// Runs dsaupd in reverse communication until it finishes, then dseupd. Never throws.
ArpackResult RunArpack(const ArpackRequest& request, ShiftInvertOperator& op, ArpackOutcome& outcome);

}  // namespace eigen_internal
}  // namespace vqmath
