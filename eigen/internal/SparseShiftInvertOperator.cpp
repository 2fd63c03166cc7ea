// The shift-invert operator on VQ_SparseSolver; see SparseShiftInvertOperator.h.
#include "eigen/internal/SparseShiftInvertOperator.h"

#include "sparse/VQ_SparseSolver.h"

namespace vqmath {
namespace eigen_internal {

int SparseShiftInvertOperator::SolveBlock(const double* r, double* y, int n, int columns) {
  // PARDISO reads the right-hand sides and writes the separate result array.
  solver_.Set_LoadVector(0, columns, const_cast<double*>(r));
  solver_.Set_ResultVector(y);
  return solver_.Solve();
}

}  // namespace eigen_internal
}  // namespace vqmath
