#pragma once
// Sparse direct solution through the flat entry point VQ_DirectSparseSolver: one factorisation
// and solve per call, with the pivot counts (inertia), PARDISO's parameter report and, on
// request, the diagonals of K and of its factor.

#include <string>
#include <vector>

#include "Library.h"
#include "models/CsrMatrix.h"

namespace vqsolve {

struct DirectOptions {
  int outOfCoreMode = 0;
  int matrixType = -2;     // symmetric indefinite: reports the inertia
  bool diagonals = false;  // return the diagonals of K and of the factor
  std::string workingDirectory;
};

struct DirectResult {
  int code = 0;             // the entry point's result (0 or a registry code)
  Registry registry;        // after the call
  int parameters[64] = {};  // PARDISO's iparm after the factorisation
  std::vector<double> matrixDiagonal, factorDiagonal;
  double seconds = 0.0;

  int PerturbedPivots() const { return parameters[13]; }
  long long FactorEntries() const { return parameters[17]; }
};

// K X = F for nrhs right-hand sides (n × nrhs, column-major); x receives the solution.
DirectResult SolveDirect(const vqmath::models::CsrMatrix& k, const double* rhs, int nrhs, double* x,
                         const DirectOptions& options);

}  // namespace vqsolve
