// Operators that serve the ARPACK driver: the product with a symmetric matrix stored as its upper
// triangle (MKL's sparse kernel, or a plain scaling for a diagonal), and the shift-invert
// operator that pairs such a product with a factorisation kept by VQ_SparseSolver.
// Internal header.
#pragma once

#include "eigen/internal/ArpackDriver.h"

class VQ_SparseSolver;

namespace vqmath {
namespace eigen_internal {

// y = A·x for a symmetric A given as its 1-based upper-triangle compressed rows (the caller's
// arrays are borrowed, never copied) or as its diagonal. The sparse form uses MKL's
// inspector-executor kernel, analysed once for repeated products; when MKL declines the arrays
// the legacy symmetric CSR kernel takes over. Not copyable: it owns an MKL handle.
class SymmetricProduct {
 public:
  SymmetricProduct() = default;
  ~SymmetricProduct();
  SymmetricProduct(const SymmetricProduct&) = delete;
  SymmetricProduct& operator=(const SymmetricProduct&) = delete;

  // expectedCalls is a hint for MKL's analysis. A matrix that stores its diagonal only is
  // multiplied as a diagonal.
  void SetSparse(int n, const int* rowPointers, const int* columnIndices, const double* values,
                 int expectedCalls);
  void SetDiagonal(int n, const double* diagonal);
  bool IsSet() const { return n_ > 0 && (diagonal_ != nullptr || values_ != nullptr); }
  int Order() const { return n_; }

  // y = A·x (x and y must not overlap). Returns 0, or −1 when MKL reports a failure.
  int Apply(const double* x, double* y) const;

 private:
  void Release();

  int n_ = 0;
  const double* diagonal_ = nullptr;
  const int* rowPointers_ = nullptr;
  const int* columnIndices_ = nullptr;
  const double* values_ = nullptr;
  void* handle_ = nullptr;  // sparse_matrix_t
};

// OP = (A − σ·B)⁻¹·B with the factorisation of A − σ·B held by a VQ_SparseSolver and the product
// with B. Each solve is one PARDISO solve; the right-hand side is never overwritten.
class SparseShiftInvertOperator : public ArpackOperator {
 public:
  SparseShiftInvertOperator(const SymmetricProduct& b, VQ_SparseSolver& solver)
      : b_(b), solver_(solver) {}
  int ApplyB(const double* x, double* y) override { return b_.Apply(x, y); }
  int Solve(const double* r, double* y) override;

 private:
  const SymmetricProduct& b_;
  VQ_SparseSolver& solver_;
};

}  // namespace eigen_internal
}  // namespace vqmath
