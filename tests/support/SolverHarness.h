// One set of checks that every linear-solver path of the library runs through: the classes, the
// direct-solution entry points, the system-matrix handles. A path wraps itself in a
// SolverUnderTest (factor once, then solve any number of times); RunSolverChecks then solves one
// and several right-hand sides, into a separate array and in place, twice on one factorisation,
// and checks the residual ||K X - F|| / ||F||, that F is left alone when the solution goes
// elsewhere, and (for small K) agreement with a dense LAPACK solution.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace vqtest {

class SolverUnderTest {
 public:
  virtual ~SolverUnderTest() = default;
  // Factors K (the object keeps K's arrays alive); 0 on success.
  virtual int Factor(const Csr& k) = 0;
  // Solves K X = B for nrhs columns with the factorisation: into x, or into b when x is null.
  virtual int Solve(int nrhs, double* b, double* x) = 0;
};

struct HarnessOptions {
  double residualTolerance = 1e-10;    // ||K X - F||_F / ||F||_F
  // Measure the residual as the normwise backward error ||K X - F|| / (||K|| ||X|| + ||F||)
  // instead (Frobenius norms), for matrices so ill-conditioned that ||K X - F|| / ||F|| is bounded
  // only by the condition number times the rounding error.
  bool backwardError = false;
  double referenceTolerance = 1e-7;    // ||X - X_dense|| / ||X_dense||
  int denseReferenceLimit = 1500;      // dense LAPACK reference only up to this order
  std::vector<int> rhsCounts{1, 4};
};

// Runs all checks on `solver` for K; failures are reported through GoogleTest.
void RunSolverChecks(SolverUnderTest& solver, const Csr& k, const HarnessOptions& options = {});

// Deterministic right-hand sides (n x nrhs, column-major) with entries in [-1, 1].
std::vector<double> MakeRightHandSides(int n, int nrhs, unsigned seed = 7);

// ||a - b|| / ||b|| (2-norms).
double RelativeDifference(const std::vector<double>& a, const std::vector<double>& b);

// X = K^-1 F by dense LAPACK (dsysv on the full symmetric matrix); empty on failure.
std::vector<double> DenseSolve(const Csr& k, const std::vector<double>& f, int nrhs);

// A clamped hexahedral solid from the model generator with about `equations` equations.
Csr SolidStiffness(int equations);
// Its lumped mass (diagonal).
std::vector<double> SolidLumpedMass(int equations);

// K with equation j decoupled and without stiffness (a degree of freedom nothing holds).
inline Csr WithoutStiffnessAt(Csr k, int j) {
  for (int i = 1; i <= k.n; ++i)
    for (int p = k.rowPointers[i - 1] - 1; p < k.rowPointers[i] - 1; ++p)
      if (i == j || k.columnIndices[p] == j) k.values[p] = 0.0;
  return k;
}

// K - sigma * diag(m) on K's pattern.
inline Csr ShiftedByDiagonal(const Csr& k, const std::vector<double>& m, double sigma) {
  return vqmath::models::Shifted(k, m, sigma);
}

}  // namespace vqtest
