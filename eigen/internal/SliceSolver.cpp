// Slice solvers of the band search; see SliceSolver.h.
#include "eigen/internal/SliceSolver.h"

#include <algorithm>
#include <cmath>

#include "eigen/internal/ArpackMessages.h"

namespace vqmath {
namespace eigen_internal {

int ArpackSliceSolver::Solve(const SliceRequest& request, SliceOutcome& outcome) {
  outcome = SliceOutcome();
  if (request.n == 1) {
    // ARPACK needs more equations than wanted pairs; one equation is its own eigenproblem:
    // theta = (k - sigma*m)^-1 * m, lambda = sigma + 1/theta, phi = 1/sqrt(m).
    double one = 1.0, m = 0.0, theta = 0.0;
    if (request.op->ApplyB(&one, &m) != 0 || request.op->Solve(&m, &theta) != 0) {
      outcome.status = -83;
      outcome.message = "Unclassified Sparse Solver Error";
      return outcome.status;
    }
    outcome.operatorApplications = 1;
    const double lambda = request.sigma + 1.0 / theta;
    if (m > 0.0 && std::isfinite(lambda)) {
      outcome.values.push_back(lambda);
      outcome.vectors.push_back(1.0 / std::sqrt(m));
    }
    return 0;
  }
  ArpackRequest r;
  r.n = request.n;
  r.sizes = ComputeArpackSizes(request.n, std::max(request.count, std::min(request.count + request.extra, request.limit)), -1);
  r.which = ArpackWhich::kLargestMagnitude;
  r.mode = ArpackMode::kShiftInvert;
  r.sigma = request.sigma;
  r.wantVectors = true;
  ArpackOutcome a;
  const ArpackResult result = RunArpack(r, *request.op, a);
  outcome.operatorApplications = a.operatorApplications;
  outcome.iterations = a.iterations;
  switch (result) {
    case ArpackResult::kConverged:
    case ArpackResult::kPartial:
      // What converged is handed on; the caller checks it against the counts.
      outcome.values.swap(a.values);
      outcome.vectors.swap(a.vectors);
      return 0;
    case ArpackResult::kOutOfMemory:
      outcome.status = -1;
      outcome.message = "Memory Allocation Failed";
      return outcome.status;
    case ArpackResult::kOperatorFailed:
      outcome.status = -83;
      outcome.message = "Unclassified Sparse Solver Error";
      return outcome.status;
    default: {
      std::string text = "ARPACK failed to Find Eigenvectors";
      ArpackInfoText(a.info, text);
      outcome.status = -45;
      outcome.message = text;
      return outcome.status;
    }
  }
}

}  // namespace eigen_internal
}  // namespace vqmath
