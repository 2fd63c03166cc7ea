// VQ_ColVector.cpp - column vector: construction, norms, cross product, column copies, operators
// and the matrix-vector products.
#include "dense/VQ_ColVector.h"

#include <mkl.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <iostream>
#include <typeinfo>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_RowVector.h"
#include "dense/VQ_SymMatrix.h"
#include "dense/internal/DenseWork.h"

using vqdense::GeneralView;
using vqdense::kMachineEpsilon;

namespace {

// Matrix-vector products with at least this many multiply-adds go to dgemv.
constexpr long long kBlasThreshold = 4096;

int CountOf(const std::vector<double>& v) {
  return v.size() > static_cast<size_t>(INT_MAX) ? -1 : static_cast<int>(v.size());
}

}  // namespace

VQ_ColVector::VQ_ColVector() : VQ_Matrix() { type = MATLIBDLLCOMMONS::COLUMN_VECTOR; }

VQ_ColVector::VQ_ColVector(int n) : VQ_Matrix(n, 1) { type = MATLIBDLLCOMMONS::COLUMN_VECTOR; }

VQ_ColVector::VQ_ColVector(int n, double value) : VQ_Matrix(n, 1, value) { type = MATLIBDLLCOMMONS::COLUMN_VECTOR; }

VQ_ColVector::VQ_ColVector(int n, double* values) : VQ_Matrix(n, 1, values) {
  type = MATLIBDLLCOMMONS::COLUMN_VECTOR;
}

VQ_ColVector::VQ_ColVector(const std::vector<double>& v) : VQ_Matrix(CountOf(v), 1) {
  type = MATLIBDLLCOMMONS::COLUMN_VECTOR;
  if (data && !v.empty()) std::memcpy(data, v.data(), static_cast<size_t>(size) * sizeof(double));
}

VQ_ColVector::VQ_ColVector(const VQ_ColVector& other) : VQ_Matrix(other) {}

VQ_ColVector& VQ_ColVector::operator=(const VQ_ColVector& other) {
  VQ_Matrix::operator=(other);
  return *this;
}

VQ_ColVector::~VQ_ColVector() = default;

double VQ_ColVector::Norm() const {
  if (!data) return 0.0;
  const int n = std::min(rows, size);
  double s = 0.0;
  for (int k = 0; k < n; ++k) s += data[k] * data[k];
  return std::sqrt(s);
}

double VQ_ColVector::Dot(const VQ_ColVector& b) const {
  if (!data || !b.data) return 0.0;
  const int n = std::min(std::min(rows * cols, size), b.size);  // never beyond b's storage
  double s = 0.0;
  for (int k = 0; k < n; ++k) s += data[k] * b.data[k];
  return s;
}

void VQ_ColVector::Normalize() {
  const double norm = Norm();
  if (data)
    for (int k = 0; k < size; ++k) data[k] /= norm;
}

VQ_ColVector VQ_ColVector::Cross(const VQ_ColVector& b) const {
  VQ_ColVector r(3, 0.0);
  // The two element counts are compared with each other (not with 3): that is the test callers
  // have always met. Elements beyond a vector shorter than 3 are read as 0.
  if (rows * cols != b.rows * b.cols) {
    status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
    std::cout << " This vector is not 3x1, Cross product is not performed !..... " << std::endl;
    return r;
  }
  auto at = [](const VQ_ColVector& v, int k) { return k < v.size && v.data ? v.data[k] : 0.0; };
  const double a1 = at(*this, 0), a2 = at(*this, 1), a3 = at(*this, 2);
  const double b1 = at(b, 0), b2 = at(b, 1), b3 = at(b, 2);
  if (r.data) {
    r.data[0] = a2 * b3 - a3 * b2;
    r.data[1] = a3 * b1 - a1 * b3;
    r.data[2] = a1 * b2 - a2 * b1;
  }
  return r;
}

VQ_RowVector VQ_ColVector::T() const {
  VQ_RowVector r(GetSize());
  double* p = r.GetDataPointer();
  const int n = std::min(r.GetSizeAllocated(), size);
  if (p && data && n > 0) std::memcpy(p, data, static_cast<size_t>(n) * sizeof(double));
  return r;
}

VQ_ColVector VQ_ColVector::Squared() const {
  VQ_ColVector r(GetSize());
  const int n = std::min(r.size, size);
  for (int k = 0; k < n; ++k) r.data[k] = data[k] * data[k];
  return r;
}

void VQ_ColVector::SetEqualTo(const VQ_Matrix& m, int j) {
  if (NumRows() != m.NumRows() || j < 1 || j > m.NumCols() || !data) return;
  const int n = std::min(rows, size);
  if (m.HasGeneralLayout()) {
    std::memmove(data, m.GetDataPointer() + static_cast<long long>(j - 1) * m.NumRows(),
                 static_cast<size_t>(n) * sizeof(double));
    return;
  }
  for (int i = 1; i <= n; ++i) data[i - 1] = m.Value(i, j);
}

void VQ_ColVector::SetEqualTo(const VQ_DiagonalMatrix& d) {
  if (NumRows() != d.NumRows() || !data) return;
  const int n = std::min(rows, size);
  for (int k = 1; k <= n; ++k) data[k - 1] = d.Value(k, k);
}

void VQ_ColVector::CopyTo(double* dst, int n) const {
  const int count = std::min(n, size);
  if (dst && data && count > 0) std::memcpy(dst, data, static_cast<size_t>(count) * sizeof(double));
}

VQ_ColVector VQ_ColVector::operator+() const { return VQ_ColVector(*this); }

VQ_ColVector VQ_ColVector::operator-() const {
  VQ_ColVector r(*this);
  if (r.data)
    for (int k = 0; k < r.size; ++k) r.data[k] = -r.data[k];
  return r;
}

VQ_ColVector& VQ_ColVector::operator+=(const VQ_ColVector& b) {
  if (!data || !b.data) return *this;
  const int n = std::min(std::min(rows, size), b.size);
  for (int k = 0; k < n; ++k) data[k] += b.data[k];
  return *this;
}

VQ_ColVector& VQ_ColVector::operator-=(const VQ_ColVector& b) {
  if (!data || !b.data) return *this;
  const int n = std::min(std::min(rows, size), b.size);
  for (int k = 0; k < n; ++k) data[k] -= b.data[k];
  return *this;
}

VQ_ColVector& VQ_ColVector::operator*=(double s) {
  if (data)
    for (int k = 0; k < size; ++k) data[k] *= s;
  return *this;
}

VQ_ColVector& VQ_ColVector::operator/=(double s) {
  if (std::fabs(s) < kMachineEpsilon) status = MATLIBDLLCOMMONS::STATUS_DIVISION_BY_ZERO;
  return *this *= (1.0 / s);
}

// ================================================================================================
// Free operators
// ================================================================================================

VQ_ColVector operator*(const VQ_Matrix& a, const VQ_ColVector& v) {
  // result(i) = sum over k = 1..cols(A) of A(i, k) v(k); terms beyond v's storage contribute
  // nothing. A mismatch marks A.
  const int m = a.NumRows(), kdim = a.NumCols();
  if (kdim != v.NumRows()) a.ConfirmEQ(kdim, v.NumRows());
  VQ_ColVector r(m);
  double* y = r.GetDataPointer();
  const double* x = v.GetDataPointer();
  if (!y || m <= 0) return r;
  const int terms = x ? std::min(kdim, v.GetSizeAllocated()) : 0;
  if (terms <= 0) return r;
  GeneralView av(a);
  if (!av.ok()) return r;
  if (static_cast<long long>(m) * terms >= kBlasThreshold) {
    cblas_dgemv(CblasColMajor, CblasNoTrans, m, terms, 1.0, av.data(), m, x, 1, 0.0, y, 1);
    return r;
  }
  for (int k = 1; k <= terms; ++k) {
    const double* ak = av.column(k);
    const double xk = x[k - 1];
    for (int i = 0; i < m; ++i) y[i] += ak[i] * xk;
  }
  return r;
}

VQ_ColVector operator*(const VQ_SymMatrix& s, const VQ_ColVector& v) {
  const int n = s.NumRows();
  VQ_ColVector r(n);
  double* y = r.GetDataPointer();
  const double* x = v.GetDataPointer();
  if (!y || !x || n <= 0) return r;
  const int common = std::min(n, v.GetSizeAllocated());
  if (s.HasPackedLayout() && common == n) {
    cblas_dspmv(CblasColMajor, CblasUpper, n, 1.0, s.GetDataPointer(), x, 1, 0.0, y, 1);
    return r;
  }
  if (typeid(s) == typeid(VQ_DiagonalMatrix)) {
    for (int i = 1; i <= common; ++i) y[i - 1] = s.Value(i, i) * x[i - 1];
    return r;
  }
  for (int i = 1; i <= n; ++i) {
    double sum = 0.0;
    for (int k = 1; k <= common; ++k) sum += s.Value(i, k) * x[k - 1];
    y[i - 1] = sum;
  }
  return r;
}

VQ_ColVector operator*(const VQ_DiagonalMatrix& d, const VQ_ColVector& v) {
  const int n = d.NumRows();
  VQ_ColVector r(n);
  double* y = r.GetDataPointer();
  const double* x = v.GetDataPointer();
  const double* dv = d.GetDataPointer();
  if (!y || !x || !dv) return r;
  const int common = std::min(n, v.GetSizeAllocated());
  for (int i = 0; i < common; ++i) y[i] = dv[i] * x[i];
  return r;
}

VQ_ColVector operator+(const VQ_ColVector& a, const VQ_ColVector& b) {
  VQ_ColVector r(a);
  r += b;
  return r;
}

VQ_ColVector operator-(const VQ_ColVector& a, const VQ_ColVector& b) {
  VQ_ColVector r(a);
  r -= b;
  return r;
}

VQ_ColVector operator*(const VQ_ColVector& a, double s) {
  VQ_ColVector r(a);
  r *= s;
  return r;
}

VQ_ColVector operator*(double s, const VQ_ColVector& a) { return a * s; }

VQ_ColVector operator/(const VQ_ColVector& a, double s) {
  VQ_ColVector r(a);
  r /= s;
  return r;
}
