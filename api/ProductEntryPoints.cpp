// Product entry points: symmetric sparse matrix times vector(s) through MKL's inspector-executor
// kernel or the library's own sparse class, dense matrix products through cblas_dgemm.
//
// They neither reset nor write the registry for valid input. Malformed input (null arrays,
// negative sizes, bad compressed rows) returns -64 and records it, so that nothing is read or
// written outside the caller's arrays.
#include <cstdio>
#include <new>
#include <string>

#include <mkl_cblas.h>
#include <mkl_spblas.h>

#include "api/internal/CsrValidation.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace {

// MKL's view of an upper-triangle CSR matrix (1-based), borrowing the caller's arrays: MKL's
// create call copies nothing, and the handle is destroyed on every path.
class SymmetricUpperCsr {
 public:
  SymmetricUpperCsr(int n, const double* values, const int* rowPointers, const int* columnIndices) {
    status_ = mkl_sparse_d_create_csr(&handle_, SPARSE_INDEX_BASE_ONE, n, n,
                                      const_cast<int*>(rowPointers), const_cast<int*>(rowPointers) + 1,
                                      const_cast<int*>(columnIndices), const_cast<double*>(values));
    descr_.type = SPARSE_MATRIX_TYPE_SYMMETRIC;
    descr_.mode = SPARSE_FILL_MODE_UPPER;
    descr_.diag = SPARSE_DIAG_NON_UNIT;
  }
  ~SymmetricUpperCsr() {
    if (status_ == SPARSE_STATUS_SUCCESS) mkl_sparse_destroy(handle_);
  }
  SymmetricUpperCsr(const SymmetricUpperCsr&) = delete;
  SymmetricUpperCsr& operator=(const SymmetricUpperCsr&) = delete;

  bool ok() const { return status_ == SPARSE_STATUS_SUCCESS; }

  // y = A x
  sparse_status_t Multiply(const double* x, double* y) const {
    return mkl_sparse_d_mv(SPARSE_OPERATION_NON_TRANSPOSE, 1.0, handle_, descr_, x, 0.0, y);
  }
  // Y = A X for ncols columns, column-major with leading dimension n.
  sparse_status_t Multiply(int n, int ncols, const double* X, double* Y) const {
    return mkl_sparse_d_mm(SPARSE_OPERATION_NON_TRANSPOSE, 1.0, handle_, descr_,
                           SPARSE_LAYOUT_COLUMN_MAJOR, X, ncols, n, 0.0, Y, n);
  }

 private:
  sparse_matrix_t handle_ = nullptr;
  matrix_descr descr_{};
  sparse_status_t status_ = SPARSE_STATUS_NOT_INITIALIZED;
};

int CheckVectors(const double* x, const double* y) {
  if (!x) return vi::RecordInvalidInput("input vector x is null");
  if (!y) return vi::RecordInvalidInput("output vector y is null");
  return 0;
}

int KernelProduct(int n, const double* values, const int* rowPointers, const int* columnIndices,
                  const double* x, double* y) {
  if (int code = vi::CheckUpperCsr(n, rowPointers, columnIndices, values)) return code;
  if (int code = CheckVectors(x, y)) return code;
  SymmetricUpperCsr a(n, values, rowPointers, columnIndices);
  if (!a.ok()) return -1;
  return a.Multiply(x, y) == SPARSE_STATUS_SUCCESS ? 0 : -1;
}

}  // namespace

extern "C" {

int VQ_SparseSymmMatrixVectorMultiplication(int useKernel, int n, const double* values,
                                            const int* rowPointers, const int* columnIndices,
                                            const double* x, double* y) {
  if (useKernel != 0)
    return VQ_SparseSymmMatrixVectorMultiplication_MKL(n, values, rowPointers, columnIndices, x, y);
  return VQ_SparseSymmMatrixVectorMultiplication_NATIVE(n, values, rowPointers, columnIndices, x, y);
}

int VQ_SparseSymmMatrixVectorMultiplication_MKL(int n, const double* values, const int* rowPointers,
                                                const int* columnIndices, const double* x, double* y) {
  try {
    return KernelProduct(n, values, rowPointers, columnIndices, x, y);
  } catch (...) {
    return -1;
  }
}

int VQ_SparseSymmMatrixVectorMultiplication_NATIVE(int n, const double* values,
                                                   const int* rowPointers,
                                                   const int* columnIndices, const double* x,
                                                   double* y) {
  try {
    if (int code = vi::CheckUpperCsr(n, rowPointers, columnIndices, values)) return code;
    if (int code = CheckVectors(x, y)) return code;
    // The class copies the arrays; it reads them without changing them.
    VQ_SparseSymMatrix a(n, const_cast<double*>(values), const_cast<int*>(rowPointers),
                         const_cast<int*>(columnIndices));
    VQ_Matrix column(n, 1, const_cast<double*>(x));
    if (a.MatrixStatus() != 0 || column.MatrixStatus() != 0) return -1;
    VQ_Matrix product = a * column;
    if (product.MatrixStatus() != 0 || product.NumRows() != n || !product.GetDataPointer()) return -1;
    const double* p = product.GetDataPointer();
    for (int i = 0; i < n; ++i) y[i] = p[i];
    return 0;
  } catch (...) {
    return -1;
  }
}

int VQ_SparseSymmMatrixMatrixMultiplication_MKL(int n, int ncols, const double* values,
                                                const int* rowPointers, const int* columnIndices,
                                                const double* X, double* Y) {
  try {
    if (ncols < 1) return 0;
    if (int code = vi::CheckUpperCsr(n, rowPointers, columnIndices, values)) return code;
    if (int code = CheckVectors(X, Y)) return code;
    SymmetricUpperCsr a(n, values, rowPointers, columnIndices);
    if (!a.ok()) return -1;
    // All columns in one call of the kernel; column j of Y is A times column j of X.
    if (a.Multiply(n, ncols, X, Y) == SPARSE_STATUS_SUCCESS) return 0;
    for (int j = 0; j < ncols; ++j) {
      const long long offset = static_cast<long long>(j) * n;
      if (a.Multiply(X + offset, Y + offset) != SPARSE_STATUS_SUCCESS) return -1;
    }
    return 0;
  } catch (...) {
    return -1;
  }
}

int VQ_MatrixMatrixMultiplication_MKL(const double* A, const double* B, double* C, int rowsA,
                                      int colsA, int rowsB, int colsB, int rowsC, int colsC,
                                      unsigned char transA, unsigned char transB, double alpha,
                                      double beta) {
  if (!A || !B || !C) return vi::RecordInvalidInput("a matrix array of the dense product is null");
  if (rowsA < 0 || colsA < 0 || rowsB < 0 || colsB < 0 || rowsC < 0 || colsC < 0)
    return vi::RecordInvalidInput("a dimension of the dense product is negative");

  if (transA == 0 && transB == 0) {
    if (colsA != rowsB || rowsC != rowsA || colsC != colsB) return -1;
  } else if (transA == 0 && transB == 1) {
    if (colsA != colsB || rowsC != rowsA || colsC != rowsB) return -1;
  } else if (transA == 1 && transB == 0) {
    if (rowsA != rowsB || rowsC != colsA || colsC != colsB) return -1;
  } else if (transA == 1 && transB == 1) {
    if (rowsA != colsB || rowsC != colsA || colsC != rowsB) return -1;
  }

  const CBLAS_TRANSPOSE opA = (transA == 1) ? CblasTrans : CblasNoTrans;
  // 111 + transB in CBLAS's numbering: 111 none, 112 transpose, 113 conjugate transpose.
  const CBLAS_TRANSPOSE opB = static_cast<CBLAS_TRANSPOSE>(111 + transB);
  const int m = (transA == 1) ? colsA : rowsA;
  const int nn = (transB == 1) ? rowsB : colsB;
  const int k = (transA == 1) ? rowsA : colsA;
  const int lda = rowsA;
  // A transposed B is taken with leading dimension colsB: hosts pass it so.
  const int ldb = (transB == 1) ? colsB : rowsB;
  const int ldc = rowsC;
  cblas_dgemm(CblasColMajor, opA, opB, m, nn, k, alpha, A, lda, B, ldb, beta, C, ldc);
  return 0;
}

int VQ_WriteSystemMatrixMTX(int n, const int* rowPointers, const int* columnIndices,
                            const double* values) {
  try {
    if (int code = vi::CheckUpperCsr(n, rowPointers, columnIndices, values)) return code;
    VQ_SparseSymMatrix k(n, const_cast<double*>(values), const_cast<int*>(rowPointers),
                         const_cast<int*>(columnIndices));
    if (k.MatrixStatus() != 0) return -1;
    std::FILE* f = std::fopen("K.mtx", "w");
    if (!f) return -5;
    k.StoreIn_MTX_Format(f);
    std::fclose(f);
    return 0;
  } catch (...) {
    return -1;
  }
}

int VQ_WriteLoadMatrixMTX(int n, int nrhs, const double* rhs) {
  try {
    if (n < 1 || nrhs < 1) return vi::RecordInvalidInput("sizes of the load matrix are not positive");
    if (!rhs) return vi::RecordInvalidInput("load matrix array is null");
    VQ_Matrix f(n, nrhs, const_cast<double*>(rhs));
    if (f.MatrixStatus() != 0) return -1;
    std::FILE* file = std::fopen("F.mtx", "w");
    if (!file) return -5;
    f.StoreIn_MTX_Format(file, false);
    std::fclose(file);
    return 0;
  } catch (...) {
    return -1;
  }
}

}  // extern "C"
