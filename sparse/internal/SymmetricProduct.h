// Y = A·X for a symmetric matrix A on blocks of column-major vectors: the one product with the
// mass, stiffness or geometric matrix that the eigen solvers and the product entry points use.
//
// Forms of A:
//   - sparse: 1-based upper-triangle compressed rows (the caller's arrays are borrowed, never
//     copied; values may change between products, the pattern may not). MKL's inspector-executor
//     kernel with a symmetric upper descriptor serves it, all columns of a block in one call;
//     its handle is owned here and destroyed with the object. When MKL declines the arrays, MKL's
//     classic symmetric CSR kernel ("U") serves every column instead.
//   - diagonal: a row scaling. A sparse matrix that stores only its diagonal takes this form too,
//     unless the caller asks for the kernel (the product entry points do).
//   - a VQ_Matrix: a VQ_DiagonalMatrix is a diagonal, a VQ_SparseSymMatrix is sparse, and any
//     other square dense matrix is first copied into an owned sparse form.
//
// Massless rows: in the diagonal form a row whose diagonal value is at or below machine epsilon
// in magnitude stands for a massless degree of freedom, and its product is exactly 0.
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
  // Whether a sparse matrix storing only its diagonal may be multiplied as a diagonal.
  enum class DiagonalOnly { kScale, kKernel };

  SymmetricProduct();
  // From a matrix object (see the file comment); Ok() is false when a is null, empty, not square,
  // or could not be taken.
  explicit SymmetricProduct(VQ_Matrix* a, int expectedCalls = 0);
  ~SymmetricProduct();
  SymmetricProduct(const SymmetricProduct&) = delete;
  SymmetricProduct& operator=(const SymmetricProduct&) = delete;

  // expectedCalls > 0 lets MKL analyse the matrix for that many products.
  void SetSparse(int n, const int* rowPointers, const int* columnIndices, const double* values,
                 int expectedCalls, DiagonalOnly diagonalOnly = DiagonalOnly::kScale);
  void SetDiagonal(int n, const double* diagonal);

  bool Ok() const { return n_ > 0 && (diagonal_ != nullptr || values_ != nullptr); }
  bool IsSet() const { return Ok(); }
  bool IsDiagonal() const { return diagonal_ != nullptr; }
  int Order() const { return n_; }
  // The n diagonal values of the diagonal form (null otherwise).
  const double* Diagonal() const { return diagonal_; }
  // The matrix object given to the constructor in sparse form (or the owned copy of a dense one);
  // null otherwise.
  VQ_SparseSymMatrix* Sparse() const { return sparse_; }

  // y = A·x for one column of n values (x and y must not overlap). 0, or −1 when the product
  // cannot be formed.
  int Apply(const double* x, double* y) const { return Apply(x, y, 1); }
  // The same for `columns` columns of n values each, in one call of the kernel.
  int Apply(const double* x, double* y, int columns) const;

 private:
  void Release();
  int KernelColumn(const double* x, double* y) const;

  int n_ = 0;
  const double* diagonal_ = nullptr;
  const int* rowPointers_ = nullptr;
  const int* columnIndices_ = nullptr;
  const double* values_ = nullptr;
  void* handle_ = nullptr;  // sparse_matrix_t
  VQ_SparseSymMatrix* sparse_ = nullptr;
  std::unique_ptr<VQ_SparseSymMatrix> ownedSparse_;
};

}  // namespace internal
}  // namespace vqmath
