// VQ_RowVector.cpp - row vector: construction, element access through the virtual operator[],
// operators and the vector-matrix products.
#include "dense/VQ_RowVector.h"

#include <mkl.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <typeinfo>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_SymMatrix.h"
#include "dense/internal/DenseWork.h"

using vqdense::GeneralView;
using vqdense::kMachineEpsilon;

namespace {
constexpr long long kBlasThreshold = 4096;
}  // namespace

VQ_RowVector::VQ_RowVector() : VQ_Matrix() { type = MATLIBDLLCOMMONS::ROW_VECTOR; }

VQ_RowVector::VQ_RowVector(int n) : VQ_Matrix(1, n) { type = MATLIBDLLCOMMONS::ROW_VECTOR; }

VQ_RowVector::VQ_RowVector(int n, double value) : VQ_Matrix(1, n, value) { type = MATLIBDLLCOMMONS::ROW_VECTOR; }

VQ_RowVector::VQ_RowVector(const VQ_RowVector& other) : VQ_Matrix(other) {}

VQ_RowVector& VQ_RowVector::operator=(const VQ_RowVector& other) {
  VQ_Matrix::operator=(other);
  return *this;
}

VQ_RowVector::~VQ_RowVector() = default;

double VQ_RowVector::operator[](int k) const { return data[static_cast<long long>(k - 1) * rows]; }
double& VQ_RowVector::operator[](int k) { return data[static_cast<long long>(k - 1) * rows]; }

VQ_ColVector VQ_RowVector::T() const {
  const int n = GetSize();
  VQ_ColVector r(n);
  double* p = r.GetDataPointer();
  if (p)
    for (int k = 1; k <= n; ++k) p[k - 1] = (*this)[k];
  return r;
}

VQ_RowVector VQ_RowVector::operator+() const { return VQ_RowVector(*this); }

VQ_RowVector VQ_RowVector::operator-() const {
  VQ_RowVector r(*this);
  const int n = r.GetSize();
  if (r.data)
    for (int k = 1; k <= n; ++k) r[k] = -r[k];
  return r;
}

VQ_RowVector& VQ_RowVector::operator+=(const VQ_RowVector& b) {
  if (!data || !b.data) return *this;
  const int n = std::min(GetSize(), b.GetSize());
  for (int k = 1; k <= n; ++k) (*this)[k] += b[k];
  return *this;
}

VQ_RowVector& VQ_RowVector::operator-=(const VQ_RowVector& b) {
  if (!data || !b.data) return *this;
  const int n = std::min(GetSize(), b.GetSize());
  for (int k = 1; k <= n; ++k) (*this)[k] -= b[k];
  return *this;
}

VQ_RowVector& VQ_RowVector::operator*=(double s) {
  if (!data) return *this;
  const int n = GetSize();
  for (int k = 1; k <= n; ++k) (*this)[k] *= s;
  return *this;
}

VQ_RowVector& VQ_RowVector::operator/=(double s) {
  if (std::fabs(s) < kMachineEpsilon) status = MATLIBDLLCOMMONS::STATUS_DIVISION_BY_ZERO;
  if (!data) return *this;
  const double inv = 1.0 / s;
  const int n = GetSize();
  for (int k = 1; k <= n; ++k) (*this)[k] *= inv;
  return *this;
}

// ================================================================================================
// Free operators
// ================================================================================================

VQ_RowVector operator*(const VQ_RowVector& r, const VQ_Matrix& a) {
  // result(j) = sum over k of r[k] A(k, j), k over the common length of r and the rows of A.
  const int n = a.NumCols(), common = std::min(r.GetSize(), a.NumRows());
  VQ_RowVector out(n);
  double* y = out.GetDataPointer();
  if (!y || common <= 0 || !r.GetDataPointer()) return out;
  GeneralView av(a);
  if (!av.ok()) return out;
  const VQ_ColVector x = r.T();
  if (static_cast<long long>(n) * common >= kBlasThreshold) {
    cblas_dgemv(CblasColMajor, CblasTrans, common, n, 1.0, av.data(), av.rows, x.GetDataPointer(), 1, 0.0, y, 1);
    return out;
  }
  for (int j = 1; j <= n; ++j) {
    const double* aj = av.column(j);
    double s = 0.0;
    for (int k = 0; k < common; ++k) s += x[k + 1] * aj[k];
    y[j - 1] = s;
  }
  return out;
}

VQ_RowVector operator*(const VQ_RowVector& r, const VQ_SymMatrix& s) {
  // r S = (S r')' for the symmetric S.
  const int n = s.NumRows();
  VQ_RowVector out(n);
  double* y = out.GetDataPointer();
  if (!y || n <= 0 || !r.GetDataPointer()) return out;
  const VQ_ColVector x = r.T();
  const int common = std::min(n, x.GetSize());
  if (s.HasPackedLayout() && common == n) {
    cblas_dspmv(CblasColMajor, CblasUpper, n, 1.0, s.GetDataPointer(), x.GetDataPointer(), 1, 0.0, y, 1);
    return out;
  }
  if (typeid(s) == typeid(VQ_DiagonalMatrix)) {
    for (int j = 1; j <= common; ++j) y[j - 1] = x[j] * s.Value(j, j);
    return out;
  }
  for (int j = 1; j <= n; ++j) {
    double sum = 0.0;
    for (int k = 1; k <= common; ++k) sum += x[k] * s.Value(k, j);
    y[j - 1] = sum;
  }
  return out;
}

VQ_RowVector operator*(const VQ_RowVector& r, const VQ_DiagonalMatrix& d) {
  const int n = d.NumRows();
  VQ_RowVector out(n);
  double* y = out.GetDataPointer();
  const double* dv = d.GetDataPointer();
  if (!y || !dv || !r.GetDataPointer()) return out;
  const int common = std::min(n, r.GetSize());
  for (int j = 1; j <= common; ++j) y[j - 1] = r[j] * dv[j - 1];
  return out;
}

double operator*(const VQ_RowVector& r, const VQ_ColVector& v) {
  // sum over k = 1..cols(r) of r[k] v(k); no size check, but never beyond v's storage.
  const double* x = v.GetDataPointer();
  if (!x || !r.GetDataPointer()) return 0.0;
  const int n = std::min(r.NumCols(), v.GetSizeAllocated());
  double s = 0.0;
  for (int k = 1; k <= n; ++k) s += r[k] * x[k - 1];
  return s;
}

VQ_RowVector operator+(const VQ_RowVector& a, const VQ_RowVector& b) {
  VQ_RowVector r(a);
  r += b;
  return r;
}

VQ_RowVector operator-(const VQ_RowVector& a, const VQ_RowVector& b) {
  VQ_RowVector r(a);
  r -= b;
  return r;
}

VQ_RowVector operator*(const VQ_RowVector& a, double s) {
  VQ_RowVector r(a);
  r *= s;
  return r;
}

VQ_RowVector operator*(double s, const VQ_RowVector& a) { return a * s; }

VQ_RowVector operator/(const VQ_RowVector& a, double s) {
  VQ_RowVector r(a);
  r /= s;
  return r;
}
