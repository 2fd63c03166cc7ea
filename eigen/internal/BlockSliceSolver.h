// A slice solver of the band search by the block Lanczos method (VQ_BlockLanczosEigenSolver)
// working on the slice's own factorisation of K − σ·M, handed in through the shift-invert
// operator: the block method factors nothing. Each block of vectors is solved in one PARDISO
// call, so the factor is read fewer times than by single-vector Lanczos.
//
// Internal header.
#pragma once

#include "eigen/internal/ShiftedFactorization.h"
#include "eigen/internal/SliceSolver.h"

namespace vqmath {
namespace eigen_internal {

class BlockSliceSolver : public SliceSolver {
 public:
  // The pencil's arrays are borrowed and must outlive the solver.
  explicit BlockSliceSolver(const PencilArrays& pencil) : pencil_(pencil) {}
  int Solve(const SliceRequest& request, SliceOutcome& outcome) override;
  const char* Name() const override { return "block Lanczos"; }

 private:
  PencilArrays pencil_;
};

}  // namespace eigen_internal
}  // namespace vqmath
