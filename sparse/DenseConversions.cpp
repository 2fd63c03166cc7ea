// The dense matrix members that take a sparse symmetric matrix. They live on the sparse side so
// that the dense classes need nothing of it: each reads the sparse matrix through the dense
// base's element access.
#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "dense/VQ_SymMatrix.h"
#include "sparse/VQ_SparseSymMatrix.h"

void VQ_Matrix::SetEqualTo(const VQ_SparseSymMatrix& s) {
  SetEqualTo(static_cast<const VQ_SymMatrix&>(s));
}

VQ_SymMatrix::VQ_SymMatrix(const VQ_SparseSymMatrix* s) : VQ_SymMatrix() {
  if (!s) return;
  const VQ_Matrix& src = *s;
  const int n = src.NumRows();
  if (!Initialize(n) || !data) return;
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= j; ++i) data[Shift_(i, j)] = src.Value(i, j);
}

void VQ_DiagonalMatrix::CopyDiagonalTerms(const VQ_SparseSymMatrix* s) {
  if (!s) return;
  const VQ_Matrix& src = *s;
  if (!Initialize(src.NumRows()) || !data) return;
  for (int k = 1; k <= rows; ++k) data[k - 1] = src.Value(k, k);
}
