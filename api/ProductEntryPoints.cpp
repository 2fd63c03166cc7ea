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

#include "api/internal/CsrValidation.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "sparse/internal/SymmetricProduct.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace {

// y = A·x for `columns` columns with the library's symmetric product on the caller's arrays
// (borrowed, not copied). These entry points are MKL's kernel whatever the pattern, so a matrix
// storing only its diagonal is not taken as a scaling.
int KernelApply(int n, const double* values, const int* rowPointers, const int* columnIndices,
                const double* x, double* y, int columns) {
  vi::SymmetricProduct a;
  a.SetSparse(n, rowPointers, columnIndices, values, 0, vi::SymmetricProduct::DiagonalOnly::kKernel);
  return a.Apply(x, y, columns);
}

int CheckVectors(const double* x, const double* y) {
  if (!x) return vi::RecordInvalidInput("input vector x is null");
  if (!y) return vi::RecordInvalidInput("output vector y is null");
  return 0;
}

int KernelProduct(int n, const double* values, const int* rowPointers, const int* columnIndices,
                  const double* x, double* y) {
  if (int code = vi::CheckUpperCsr(n, rowPointers, columnIndices, values)) return code;
  if (int code = CheckVectors(x, y)) return code;
  return KernelApply(n, values, rowPointers, columnIndices, x, y, 1);
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
    // All columns in one call of the kernel; column j of Y is A times column j of X.
    return KernelApply(n, values, rowPointers, columnIndices, X, Y, ncols);
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
