// Operators that serve the ARPACK driver; see ArpackOperators.h.
#include "eigen/internal/ArpackOperators.h"

#include <mkl_spblas.h>

#include "sparse/VQ_SparseSolver.h"

namespace vqmath {
namespace eigen_internal {

namespace {

matrix_descr SymmetricUpper() {
  matrix_descr d;
  d.type = SPARSE_MATRIX_TYPE_SYMMETRIC;
  d.mode = SPARSE_FILL_MODE_UPPER;
  d.diag = SPARSE_DIAG_NON_UNIT;
  return d;
}

}  // namespace

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
  n_ = n;
  diagonal_ = diagonal;
}

void SymmetricProduct::SetSparse(int n, const int* rowPointers, const int* columnIndices,
                                 const double* values, int expectedCalls) {
  Release();
  n_ = n;
  if (n <= 0) return;
  // A matrix that stores only its diagonal (one entry per row, diagonal first) is a scaling:
  // its values are the diagonal in row order.
  if (rowPointers[n] - 1 == n) {
    diagonal_ = values;
    return;
  }
  rowPointers_ = rowPointers;
  columnIndices_ = columnIndices;
  values_ = values;
  // MKL's handle refers to the arrays without copying or changing them.
  sparse_matrix_t a = nullptr;
  sparse_status_t s =
      mkl_sparse_d_create_csr(&a, SPARSE_INDEX_BASE_ONE, n, n, const_cast<int*>(rowPointers),
                              const_cast<int*>(rowPointers) + 1, const_cast<int*>(columnIndices),
                              const_cast<double*>(values));
  if (s != SPARSE_STATUS_SUCCESS) return;  // the legacy kernel serves the products
  handle_ = a;
  if (expectedCalls > 0) {
    mkl_sparse_set_mv_hint(a, SPARSE_OPERATION_NON_TRANSPOSE, SymmetricUpper(), expectedCalls);
    mkl_sparse_optimize(a);
  }
}

int SymmetricProduct::Apply(const double* x, double* y) const {
  if (diagonal_ != nullptr) {
    const double* d = diagonal_;
    for (int i = 0; i < n_; ++i) y[i] = d[i] * x[i];
    return 0;
  }
  if (values_ == nullptr) return -1;
  if (handle_ != nullptr) {
    sparse_status_t s =
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

int SparseShiftInvertOperator::Solve(const double* r, double* y) {
  // PARDISO reads the right-hand side and writes the separate result array.
  solver_.Set_LoadVector(0, 1, const_cast<double*>(r));
  solver_.Set_ResultVector(y);
  return solver_.Solve();
}

}  // namespace eigen_internal
}  // namespace vqmath
