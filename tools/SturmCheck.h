#pragma once
// The Sturm-sequence check of an eigen solution through the library's VQ_SturmCount(2): the
// number of eigenvalues of K·φ = λ·B·φ below σ, from the inertia of K − σ·B. Counting with σ
// just above the highest eigenvalue found tells whether a solver missed one.

#include <string>
#include <vector>

#include "DirectSolve.h"
#include "models/CsrMatrix.h"

namespace vqsolve {

// K·φ = λ·B·φ with B sparse (consistent mass, geometric stiffness) or diagonal (lumped mass).
struct Pencil {
  const vqmath::models::CsrMatrix* k = nullptr;
  const vqmath::models::CsrMatrix* b = nullptr;   // sparse B, or
  const std::vector<double>* diagonal = nullptr;  // diagonal B
  int N() const { return k ? k->n : 0; }
};

struct SturmCount {
  int code = 0;         // the direct solver's result
  std::string message;  // its registry message when it failed
  double shift = 0.0;
  int negativePivots = 0;
  int positivePivots = 0;
  double seconds = 0.0;
};

// Eigenvalues below σ (negative pivots of K − σ·B).
SturmCount CountBelow(const Pencil& pencil, double sigma, const DirectOptions& options);

struct SturmCheck {
  bool done = false;  // false: nothing to check (no eigenvalue found) or no direct solver
  bool passed = false;
  double shift = 0.0;       // σ above the highest eigenvalue found
  double lowerShift = 0.0;  // with a lower bound: σ below the lowest one found
  bool interval = false;
  int counted = 0;  // eigenvalues below shift (above lowerShift with an interval)
  int found = 0;    // eigenvalues found in that range
  int code = 0;     // direct solver failure, if any
  std::string message;
  double seconds = 0.0;
};

// Checks the found eigenvalues (ascending or not). With aboveOnly, the solver looked only at
// eigenvalues above some shift, and the check counts the eigenvalues between a σ just below the
// lowest value found and a σ just above the highest (two factorisations); otherwise all
// eigenvalues below the σ above the highest value found are counted.
SturmCheck CheckFound(const Pencil& pencil, const std::vector<double>& found, bool aboveOnly,
                      const DirectOptions& options);

// The shift just above (direction +1) or below (−1) an eigenvalue used by the check: `relative`
// of the eigenvalue itself (of 1e-3·scale when it is near zero, scale being the largest
// magnitude found), clear of the solver's error and short of the next eigenvalue.
double ShiftBeside(double value, int direction, double scale, double relative = 1e-5);

// A σ with at least `count` eigenvalues below it, found by factorisations of K − σ·B with σ
// growing from an estimate (for solvers that need a search interval). Throws SolverError when
// the factorisation fails.
double UpperBoundFor(const Pencil& pencil, int count, double lowerBound,
                     const DirectOptions& options, int* counted = nullptr);

}  // namespace vqsolve
