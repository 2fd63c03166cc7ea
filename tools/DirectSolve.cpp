#include "DirectSolve.h"

#include <chrono>

#include "MatrixMarketInput.h"
#include "vqmath.h"

namespace vqsolve {

DirectResult SolveDirect(const vqmath::models::CsrMatrix& k, const double* rhs, int nrhs, double* x,
                         const DirectOptions& options) {
  DirectResult r;
  // The entry point may overwrite the right-hand side; hand it a copy.
  std::vector<double> b(rhs, rhs + static_cast<size_t>(k.n) * nrhs);
  if (options.diagonals) {
    r.matrixDiagonal.assign(static_cast<size_t>(k.n), 0.0);
    r.factorDiagonal.assign(static_cast<size_t>(k.n), 0.0);
  }
  const auto start = std::chrono::steady_clock::now();
  r.code = VQ_DirectSparseSolver(
      k.n, nrhs, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), b.data(),
      options.outOfCoreMode, options.matrixType, r.parameters, 0, options.workingDirectory.c_str(),
      1, 0, x, options.diagonals ? 1 : 0, options.diagonals ? r.matrixDiagonal.data() : nullptr,
      options.diagonals ? r.factorDiagonal.data() : nullptr, options.outOfCoreMode == 2 ? 1 : 0, 0);
  r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  r.registry = ReadRegistry();
  return r;
}

}  // namespace vqsolve
