// The shift-invert operator on a factorisation of A − σ·B held by VQ_SparseSolver and the
// symmetric product with B. Each solve is one PARDISO solve (all columns of a block at once); the
// right-hand side is never overwritten.
//
// Internal header: hosts never include it.
#pragma once

#include "eigen/internal/ShiftInvertOperator.h"
#include "sparse/internal/SymmetricProduct.h"

class VQ_SparseSolver;

namespace vqmath {
namespace eigen_internal {

class SparseShiftInvertOperator : public ShiftInvertOperator {
 public:
  // Both are borrowed and must outlive the operator.
  SparseShiftInvertOperator(const vqmath::internal::SymmetricProduct& b, VQ_SparseSolver& solver)
      : b_(b), solver_(solver) {}

  int ApplyB(const double* x, double* y) override { return b_.Apply(x, y); }
  int Solve(const double* r, double* y) override { return SolveBlock(r, y, b_.Order(), 1); }
  int ApplyBBlock(const double* x, double* y, int n, int columns) override {
    return b_.Apply(x, y, columns);
  }
  int SolveBlock(const double* r, double* y, int n, int columns) override;

 private:
  const vqmath::internal::SymmetricProduct& b_;
  VQ_SparseSolver& solver_;
};

}  // namespace eigen_internal
}  // namespace vqmath
