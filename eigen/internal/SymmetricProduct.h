// SymmetricProduct.h - Y = A X for the mass (or stiffness) matrix of an eigen solver, on blocks of
// column-major vectors.
//
// A diagonal matrix (VQ_DiagonalMatrix) scales rows; rows whose value is at or below machine
// epsilon give 0 (they stand for massless degrees of freedom). A sparse symmetric matrix
// (VQ_SparseSymMatrix, upper triangle, 1-based) goes through MKL's inspector-executor product with
// a symmetric upper descriptor, all columns in one call. Any other square dense matrix is first
// copied into an owned sparse form. The operator borrows the matrix's arrays: the matrix must not
// change its pattern while the operator lives (values may change).
//
// Internal header: hosts never include it.
#pragma once

#include <memory>

class VQ_Matrix;
class VQ_SparseSymMatrix;

namespace vqmath {
namespace internal {

class SymmetricProduct {
 public:
  explicit SymmetricProduct(VQ_Matrix* a);
  ~SymmetricProduct();
  SymmetricProduct(const SymmetricProduct&) = delete;
  SymmetricProduct& operator=(const SymmetricProduct&) = delete;

  // False when the matrix is empty, not square, or MKL could not take it.
  bool Ok() const { return ok_; }
  bool IsDiagonal() const { return diagonal_ != nullptr; }
  int Order() const { return n_; }
  // The n diagonal values of a diagonal matrix (null otherwise).
  const double* Diagonal() const { return diagonal_; }
  // The sparse form (the matrix itself, or the owned copy of a dense one); null when diagonal.
  VQ_SparseSymMatrix* Sparse() const { return sparse_; }

  // y = A x for `columns` columns of n values each (x and y must not overlap). False when MKL
  // reports an error.
  bool Apply(const double* x, double* y, int columns) const;

 private:
  struct MklHandle;

  int n_ = 0;
  bool ok_ = false;
  const double* diagonal_ = nullptr;
  VQ_SparseSymMatrix* sparse_ = nullptr;
  std::unique_ptr<VQ_SparseSymMatrix> ownedSparse_;
  std::unique_ptr<MklHandle> handle_;
};

}  // namespace internal
}  // namespace vqmath
