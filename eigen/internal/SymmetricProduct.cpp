// Block products with the mass or stiffness matrix; see SymmetricProduct.h.
#include "eigen/internal/SymmetricProduct.h"

#include <mkl_spblas.h>

#include <cmath>
#include <cstddef>
#include <new>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace vqmath {
namespace internal {

namespace {
constexpr double kEpsilon = 2.220446049250313e-16;
}

struct SymmetricProduct::MklHandle {
  sparse_matrix_t matrix = nullptr;
  matrix_descr descriptor{};
  ~MklHandle() {
    if (matrix) mkl_sparse_destroy(matrix);
  }
};

SymmetricProduct::SymmetricProduct(VQ_Matrix* a) {
  if (!a || a->NumRows() < 1 || a->NumRows() != a->NumCols()) return;
  n_ = a->NumRows();
  const MATLIBDLLCOMMONS::MATRIX_TYPE kind = a->MatrixType();
  if (kind == MATLIBDLLCOMMONS::DIAGONAL_MATRIX) {
    if (a->GetSizeAllocated() < n_ || !a->GetDataPointer()) return;
    diagonal_ = a->GetDataPointer();
    ok_ = true;
    return;
  }
  if (kind == MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX) {
    sparse_ = static_cast<VQ_SparseSymMatrix*>(a);
  } else {
    ownedSparse_.reset(new (std::nothrow) VQ_SparseSymMatrix(a));
    if (!ownedSparse_ || ownedSparse_->NumRows() != n_) return;
    sparse_ = ownedSparse_.get();
  }
  int* ia = sparse_->GetRowVectorPointer();
  int* ja = sparse_->GetColumnVectorPointer();
  double* values = sparse_->GetDataPointer();
  if (!ia || !ja || !values) return;
  handle_.reset(new (std::nothrow) MklHandle);
  if (!handle_) return;
  if (mkl_sparse_d_create_csr(&handle_->matrix, SPARSE_INDEX_BASE_ONE, n_, n_, ia, ia + 1, ja,
                              values) != SPARSE_STATUS_SUCCESS) {
    handle_->matrix = nullptr;
    return;
  }
  handle_->descriptor.type = SPARSE_MATRIX_TYPE_SYMMETRIC;
  handle_->descriptor.mode = SPARSE_FILL_MODE_UPPER;
  handle_->descriptor.diag = SPARSE_DIAG_NON_UNIT;
  ok_ = true;
}

SymmetricProduct::~SymmetricProduct() = default;

bool SymmetricProduct::Apply(const double* x, double* y, int columns) const {
  if (!ok_ || columns < 1) return ok_;
  const std::size_t n = static_cast<std::size_t>(n_);
  if (diagonal_) {
    for (int c = 0; c < columns; ++c) {
      const double* xc = x + static_cast<std::size_t>(c) * n;
      double* yc = y + static_cast<std::size_t>(c) * n;
      for (std::size_t i = 0; i < n; ++i)
        yc[i] = std::fabs(diagonal_[i]) > kEpsilon ? diagonal_[i] * xc[i] : 0.0;
    }
    return true;
  }
  sparse_status_t status;
  if (columns == 1)
    status = mkl_sparse_d_mv(SPARSE_OPERATION_NON_TRANSPOSE, 1.0, handle_->matrix,
                             handle_->descriptor, x, 0.0, y);
  else
    status =
        mkl_sparse_d_mm(SPARSE_OPERATION_NON_TRANSPOSE, 1.0, handle_->matrix, handle_->descriptor,
                        SPARSE_LAYOUT_COLUMN_MAJOR, x, columns, n_, 0.0, y, n_);
  return status == SPARSE_STATUS_SUCCESS;
}

}  // namespace internal
}  // namespace vqmath
