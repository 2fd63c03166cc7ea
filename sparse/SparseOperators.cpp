// SparseOperators.cpp - free operators with a sparse symmetric operand (see SparseOperators.h for
// which ones share the operand's arrays).

#include "sparse/SparseOperators.h"

#include <cmath>
#include <vector>

namespace {
constexpr double kMachineEpsilon = 2.220446049250313e-16;

// Adds d's diagonal to the diagonal of a (a shallow copy of the caller's operand).
void AddDiagonal(VQ_SparseSymMatrix& a, const VQ_DiagonalMatrix& d) {
  const int n = a.NumRows();
  if (d.NumRows() != n) return;
  for (int i = 1; i <= n; ++i) a.Set(i, i, a.Value(i, i) + d.Value(i, i));
}

// P = A * X for any dense kind of X (read raw when it has the general layout, else via Value).
void Product(const VQ_SparseSymMatrix& a, const VQ_Matrix& x, VQ_Matrix& p) {
  const int n = a.NumRows();
  const int m = x.NumCols();
  if (p.MatrixStatus() != MATLIBDLLCOMMONS::STATUS_OK || n <= 0 || m <= 0) return;
  // The product reads X's first n rows; a shorter X is flagged on the result, which stays zero.
  if (!p.ConfirmEQ(n <= x.NumRows() ? n : x.NumRows(), n)) return;
  if (x.HasGeneralLayout() && x.GetDataPointer()) {
    a.MultiplyDense(m, x.GetDataPointer(), x.NumRows(), p.GetDataPointer(), n);
    return;
  }
  std::vector<double> xs(static_cast<size_t>(n) * m);
  for (int j = 1; j <= m; ++j)
    for (int i = 1; i <= n; ++i) xs[static_cast<size_t>(j - 1) * n + (i - 1)] = x.Value(i, j);
  a.MultiplyDense(m, xs.data(), n, p.GetDataPointer(), n);
}
}  // namespace

VQ_SparseSymMatrix operator*(const VQ_SparseSymMatrix& a, double s) {
  VQ_SparseSymMatrix r(a);
  r *= s;
  return r;
}

VQ_SparseSymMatrix operator*(double s, const VQ_SparseSymMatrix& a) { return a * s; }

VQ_SparseSymMatrix operator/(const VQ_SparseSymMatrix& a, double s) {
  VQ_SparseSymMatrix r(a);
  if (std::fabs(s) < kMachineEpsilon) return r;  // returned unscaled, no status
  r /= s;
  return r;
}

VQ_SparseSymMatrix operator+(const VQ_SparseSymMatrix& a, const VQ_DiagonalMatrix& d) {
  VQ_SparseSymMatrix r(a);
  AddDiagonal(r, d);
  return r;
}

VQ_SparseSymMatrix operator+(const VQ_DiagonalMatrix& d, const VQ_SparseSymMatrix& a) {
  return a + d;
}

VQ_SparseSymMatrix operator+(const VQ_SparseSymMatrix& a, const VQ_SparseSymMatrix& b) {
  VQ_SparseSymMatrix r;
  r.SetEqualTo(const_cast<VQ_SparseSymMatrix*>(&a));
  r.TwoSparseMatrixOperation(&b, 1.0, 1.0);
  return r;
}

VQ_SparseSymMatrix operator-(const VQ_SparseSymMatrix& a, const VQ_SparseSymMatrix& b) {
  VQ_SparseSymMatrix r;
  r.SetEqualTo(const_cast<VQ_SparseSymMatrix*>(&a));
  r.TwoSparseMatrixOperation(&b, 1.0, -1.0);
  return r;
}

VQ_Matrix operator*(const VQ_SparseSymMatrix& a, const VQ_Matrix& x) {
  VQ_Matrix p(a.NumRows(), x.NumCols());
  Product(a, x, p);
  return p;
}

VQ_ColVector operator*(const VQ_SparseSymMatrix& a, const VQ_ColVector& x) {
  VQ_ColVector p(a.NumRows());
  Product(a, x, p);
  return p;
}
