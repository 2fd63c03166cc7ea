// Slice solvers of the band search; see SliceSolver.h.
#include "eigen/internal/SliceSolver.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include <mkl_lapacke.h>

#include "eigen/internal/ArpackMessages.h"

namespace vqmath {
namespace eigen_internal {

namespace {
// Slices of at most this many equations that ARPACK cannot take are solved densely.
constexpr int kDenseOrder = 64;
}  // namespace

int ArpackSliceSolver::Solve(const SliceRequest& request, SliceOutcome& outcome) {
  outcome = SliceOutcome();
  const int n = request.n;
  if (n <= kDenseOrder && std::max(request.count, request.count + request.extra) >= n - 1) {
    // ARPACK needs more equations than wanted pairs: a slice this small is solved densely as
    // M (K - sigma*M)^-1 M phi = theta M phi, lambda = sigma + 1/theta (M positive definite).
    std::vector<double> mDense(static_cast<size_t>(n) * n), a(mDense.size()), e(n), y(n);
    for (int j = 0; j < n; ++j) {
      std::fill(e.begin(), e.end(), 0.0);
      e[j] = 1.0;
      double* mj = &mDense[static_cast<size_t>(j) * n];
      if (request.op->ApplyB(e.data(), mj) != 0 || request.op->Solve(mj, y.data()) != 0 ||
          request.op->ApplyB(y.data(), &a[static_cast<size_t>(j) * n]) != 0) {
        outcome.status = -83;
        outcome.message = "Unclassified Sparse Solver Error";
        return outcome.status;
      }
    }
    outcome.operatorApplications = 2 * n;
    std::vector<double> theta(n), b(mDense);
    if (LAPACKE_dsygv(LAPACK_COL_MAJOR, 1, 'V', 'U', n, a.data(), n, b.data(), n, theta.data()) == 0) {
      std::vector<std::pair<double, int>> pairs;
      for (int j = 0; j < n; ++j) {
        const double lambda = request.sigma + 1.0 / theta[j];
        if (std::isfinite(lambda)) pairs.emplace_back(lambda, j);
      }
      std::sort(pairs.begin(), pairs.end());
      for (const auto& p : pairs) {
        outcome.values.push_back(p.first);
        const double* v = &a[static_cast<size_t>(p.second) * n];
        outcome.vectors.insert(outcome.vectors.end(), v, v + n);
      }
      return 0;
    }
    // M not positive definite: ARPACK's way below.
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
