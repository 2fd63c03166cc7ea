// Block products with a symmetric matrix; see SymmetricProduct.h.
#include "sparse/internal/SymmetricProduct.h"

#include <mkl_spblas.h>

#include <cmath>
#include <cstddef>
#include <new>

#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace vqmath {
namespace internal {

namespace {

constexpr double kEpsilon = 2.220446049250313e-16;

matrix_descr SymmetricUpper() {
  matrix_descr d;
  d.type = SPARSE_MATRIX_TYPE_SYMMETRIC;
  d.mode = SPARSE_FILL_MODE_UPPER;
  d.diag = SPARSE_DIAG_NON_UNIT;
  return d;
}

}  // namespace

SymmetricProduct::SymmetricProduct(VQ_Matrix* a, int expectedCalls) {
  if (!a || a->NumRows() < 1 || a->NumRows() != a->NumCols()) return;
  const int n = a->NumRows();
  const MATLIBDLLCOMMONS::MATRIX_TYPE kind = a->MatrixType();
  if (kind == MATLIBDLLCOMMONS::DIAGONAL_MATRIX) {
    if (a->GetSizeAllocated() < n || !a->GetDataPointer()) return;
    SetDiagonal(n, a->GetDataPointer());
    return;
  }
  VQ_SparseSymMatrix* sparse = nullptr;
  if (kind == MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX) {
    sparse = static_cast<VQ_SparseSymMatrix*>(a);
  } else {
    ownedSparse_.reset(new (std::nothrow) VQ_SparseSymMatrix(a));
    if (!ownedSparse_ || ownedSparse_->NumRows() != n) return;
    sparse = ownedSparse_.get();
  }
  const int* ia = sparse->GetRowVectorPointer();
  const int* ja = sparse->GetColumnVectorPointer();
  const double* values = sparse->GetDataPointer();
  if (!ia || !ja || !values) return;
  SetSparse(n, ia, ja, values, expectedCalls);
  sparse_ = sparse;
}

SymmetricProduct::SymmetricProduct() = default;

SymmetricProduct::~SymmetricProduct() { Release(); }

void SymmetricProduct::Release() {
  if (handle_ != nullptr) mkl_sparse_destroy(static_cast<sparse_matrix_t>(handle_));
  handle_ = nullptr;
  n_ = 0;
  diagonal_ = nullptr;
  rowPointers_ = nullptr;
  columnIndices_ = nullptr;
  values_ = nullptr;
}

void SymmetricProduct::SetDiagonal(int n, const double* diagonal) {
  Release();
  if (n <= 0 || !diagonal) return;
  n_ = n;
  diagonal_ = diagonal;
}

void SymmetricProduct::SetSparse(int n, const int* rowPointers, const int* columnIndices,
                                 const double* values, int expectedCalls,
                                 DiagonalOnly diagonalOnly) {
  Release();
  if (n <= 0 || !rowPointers || !columnIndices || !values) return;
  n_ = n;
  // A matrix that stores only its diagonal (one entry per row, diagonal first) is a scaling:
  // its values are the diagonal in row order.
  if (diagonalOnly == DiagonalOnly::kScale && rowPointers[n] - 1 == n) {
    diagonal_ = values;
    return;
  }
  rowPointers_ = rowPointers;
  columnIndices_ = columnIndices;
  values_ = values;
  // MKL's handle refers to the arrays without copying or changing them.
  sparse_matrix_t a = nullptr;
  if (mkl_sparse_d_create_csr(&a, SPARSE_INDEX_BASE_ONE, n, n, const_cast<int*>(rowPointers),
                              const_cast<int*>(rowPointers) + 1, const_cast<int*>(columnIndices),
                              const_cast<double*>(values)) != SPARSE_STATUS_SUCCESS)
    return;  // the classic kernel serves the products
  handle_ = a;
  if (expectedCalls > 0) {
    mkl_sparse_set_mv_hint(a, SPARSE_OPERATION_NON_TRANSPOSE, SymmetricUpper(), expectedCalls);
    mkl_sparse_optimize(a);
  }
}

int SymmetricProduct::KernelColumn(const double* x, double* y) const {
  if (handle_ != nullptr) {
    const sparse_status_t s =
        mkl_sparse_d_mv(SPARSE_OPERATION_NON_TRANSPOSE, 1.0, static_cast<sparse_matrix_t>(handle_),
                        SymmetricUpper(), x, 0.0, y);
    return s == SPARSE_STATUS_SUCCESS ? 0 : -1;
  }
  const char uplo = 'U';
  const int n = n_;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  mkl_dcsrsymv(&uplo, &n, values_, rowPointers_, columnIndices_, x, y);
#pragma GCC diagnostic pop
  return 0;
}

int SymmetricProduct::Apply(const double* x, double* y, int columns) const {
  if (!Ok()) return -1;
  if (columns < 1) return 0;
  const std::size_t n = static_cast<std::size_t>(n_);
  if (diagonal_ != nullptr) {
    for (int c = 0; c < columns; ++c) {
      const double* xc = x + static_cast<std::size_t>(c) * n;
      double* yc = y + static_cast<std::size_t>(c) * n;
      for (std::size_t i = 0; i < n; ++i)
        yc[i] = std::fabs(diagonal_[i]) > kEpsilon ? diagonal_[i] * xc[i] : 0.0;
    }
    return 0;
  }
  if (columns > 1 && handle_ != nullptr &&
      mkl_sparse_d_mm(SPARSE_OPERATION_NON_TRANSPOSE, 1.0, static_cast<sparse_matrix_t>(handle_),
                      SymmetricUpper(), SPARSE_LAYOUT_COLUMN_MAJOR, x, columns, n_, 0.0, y,
                      n_) == SPARSE_STATUS_SUCCESS)
    return 0;
  // One column at a time: a single vector, a block MKL declined, or the classic kernel.
  for (int c = 0; c < columns; ++c) {
    const std::size_t offset = static_cast<std::size_t>(c) * n;
    if (KernelColumn(x + offset, y + offset) != 0) return -1;
  }
  return 0;
}

}  // namespace internal
}  // namespace vqmath
