// The library's one rule for a singular matrix, applied by VQ_SparseSolver around every
// factorisation it makes (direct solutions, system-matrix handles, eigen solvers, vqsolve).
//
// A symmetric matrix is singular when
//   - an equation has no stiffness: its diagonal entry is missing or zero (an empty row, an
//     unconnected node, a degree of freedom nothing was assembled into); this is found before
//     the factorisation, or
//   - a pivot of its LDL^T factorisation is smaller in magnitude than `ratio` times the matrix's
//     own diagonal entry of the same equation (the inverse of the "maximum diagonal ratio" of
//     structural codes). A rigid-body mode or a mechanism leaves a pivot at the rounding level.
//
// The equation reported is the one the host assembled (1-based, not PARDISO's pivot position).
// With an LDL^T factorisation, a (near) zero pivot at equation e means that a (near) null vector
// of the matrix has a unit entry at e: e is always a degree of freedom of the mechanism.
#pragma once

namespace vqmath {
namespace internal {

class SingularityCheck {
 public:
  struct Pivot {
    double ratio = 0.0;  // |factor pivot| / |matrix diagonal|
    int equation = 0;    // 1-based; 0 when no equation could be judged
  };

  // First equation (1-based) of an upper-triangle compressed-row matrix (1-based indices) whose
  // diagonal entry is missing or zero; 0 when every equation has one. Rows that are not well
  // formed are skipped (the factorisation reports them).
  static int EquationWithoutStiffness(int n, const double* a, const int* ia, const int* ja);

  // Equation of the smallest ratio |factorDiagonal| / |matrixDiagonal| (both in equation order),
  // skipping equations whose matrix diagonal is zero.
  static Pivot SmallestPivot(int n, const double* matrixDiagonal, const double* factorDiagonal);

  // True when the smallest pivot marks the matrix singular under `ratio` (a ratio of 0 or less
  // judges nothing by the pivots).
  static bool IsSingular(const Pivot& smallest, double ratio);
};

}  // namespace internal
}  // namespace vqmath
