// The operator every shift-invert eigen method of the library works with, for the generalized
// problem A·φ = λ·B·φ at a shift σ: the product with B and the solution with the factorisation of
// A − σ·B, one vector at a time or on blocks of column-major vectors.
//
//   natural modes: A = K, B = M;  buckling: A = K, B = K (ARPACK's buckling mode) or Kg.
//
// The subspace iteration, the load-dependent Ritz vectors, the Lanczos (ARPACK) driver, the
// block Lanczos method and the band search take their products and solves through it; how the
// factorisation is held (VQ_SparseSolver, a distributed solver) is the implementation's affair.
//
// Results are 0 on success; any other value is the implementation's failure code.
//
// Internal header: hosts never include it.
#pragma once

#include <cstddef>

namespace vqmath {
namespace eigen_internal {

class ShiftInvertOperator {
 public:
  virtual ~ShiftInvertOperator() = default;

  // y = B·x.
  virtual int ApplyB(const double* x, double* y) = 0;
  // y = (A − σ·B)⁻¹·r with the kept factorisation; r is left unchanged.
  virtual int Solve(const double* r, double* y) = 0;

  // The same on `columns` column-major vectors of n values each. These default to one column at a
  // time; implementations that can do a block in one call override them.
  virtual int ApplyBBlock(const double* x, double* y, int n, int columns) {
    for (int c = 0; c < columns; ++c) {
      const std::size_t offset = static_cast<std::size_t>(c) * static_cast<std::size_t>(n);
      if (int s = ApplyB(x + offset, y + offset)) return s;
    }
    return 0;
  }
  virtual int SolveBlock(const double* r, double* y, int n, int columns) {
    for (int c = 0; c < columns; ++c) {
      const std::size_t offset = static_cast<std::size_t>(c) * static_cast<std::size_t>(n);
      if (int s = Solve(r + offset, y + offset)) return s;
    }
    return 0;
  }
};

}  // namespace eigen_internal
}  // namespace vqmath
