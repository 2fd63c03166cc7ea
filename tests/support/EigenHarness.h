// One set of checks for every eigen method of the library: a method is a function from a
// generalized problem and a count to what it delivered (status, eigenvalues, M-normalised mode
// shapes); RunEigenChecks compares the eigenvalues with LAPACKE_dsygv, measures the residuals
// ||K phi - lambda M phi|| / ||K phi|| and the M-orthonormality of the shapes, and confirms by the
// inertia of K - sigma M (a Sturm count computed here with LAPACK) that no eigenvalue below the
// highest delivered one was missed.
#pragma once

#include <functional>
#include <vector>

#include "support/EigenSupport.h"

namespace vqtest {

struct EigenOutcome {
  int status = 0;
  std::vector<double> values;   // ascending (a repeated eigenvalue in either order)
  std::vector<double> vectors;  // n per mode, column-major; empty when the method gives none
};

using EigenMethod = std::function<EigenOutcome(const EigenProblem&, int count)>;

struct EigenCheckOptions {
  double valueTolerance = 1e-8;            // relative, against dsygv
  double residualTolerance = 1e-6;         // max over the modes
  double orthonormalityTolerance = 1e-6;   // max |Phi' M Phi - I|
  bool expectVectors = true;
  // Eigenvalues compared to valueTolerance * max(|reference|, zeroFloor * |highest reference|):
  // a free body's zero eigenvalues are held to the elastic ones' absolute accuracy.
  double zeroFloor = 0.0;
  bool residualByNormOfK = false;  // residual / (||K||_1 ||phi||) instead of / ||K phi||
  int first = 0;  // the method delivers eigenvalues first + 1 ... first + count (an interval)
};

void RunEigenChecks(const EigenMethod& method, const EigenProblem& e, int count,
                    const EigenCheckOptions& options = {});

// Number of eigenvalues of K phi = lambda M phi below sigma: the negative eigenvalues of the dense
// K - sigma M, counted from the block-diagonal factor of LAPACK's dsytrf.
int SturmCount(const Csr& k, const Csr& m, double sigma);

}  // namespace vqtest
