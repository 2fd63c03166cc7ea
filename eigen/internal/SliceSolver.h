// One slice of a band search: the eigenpairs of K·φ = λ·M·φ nearest a shift σ that lie in a
// slice [lower, upper] known (from inertia counts) to hold `count` eigenvalues.
//
// The caller has factored K − σ·M and hands the operator that applies M and solves with that
// factorisation; a slice solver never factors anything itself, so any method that works with
// shift-invert products (single-vector Lanczos through ARPACK, a block method) can serve the
// band search. The caller places σ at the middle of the slice, so the `count` eigenvalues
// nearest σ are exactly the slice's; a solver asks for a few more to be safe and returns what
// it converged, the caller keeps those inside the slice and checks their number against the
// counts.
//
// Internal header.
#pragma once

#include <string>
#include <vector>

#include "eigen/internal/ArpackDriver.h"

namespace vqmath {
namespace eigen_internal {

struct SliceRequest {
  int n = 0;
  double sigma = 0.0;
  double lower = 0.0;
  double upper = 0.0;
  int count = 0;     // eigenvalues in [lower, upper] by the inertia counts
  int extra = 0;     // how many more than count to ask for (grows when a try comes up short)
  int limit = 1 << 30;  // but never more than this many in all (at least count)
  ShiftInvertOperator* op = nullptr;  // y = M·x, y = (K − σ·M)⁻¹·r
};

struct SliceOutcome {
  int status = 0;        // library code, 0 on success
  std::string message;   // its text
  // Converged pairs nearest σ, eigenvalues ascending, vectors M-normalised (n per pair).
  std::vector<double> values;
  std::vector<double> vectors;
  int operatorApplications = 0;
  int iterations = 0;
};

class SliceSolver {
 public:
  virtual ~SliceSolver() = default;
  virtual int Solve(const SliceRequest& request, SliceOutcome& outcome) = 0;
  virtual const char* Name() const = 0;
};

// Shift-invert Lanczos by ARPACK ("LM" on the transformed problem: the eigenvalues nearest σ).
class ArpackSliceSolver : public SliceSolver {
 public:
  int Solve(const SliceRequest& request, SliceOutcome& outcome) override;
  const char* Name() const override { return "Lanczos (ARPACK)"; }
};

}  // namespace eigen_internal
}  // namespace vqmath
