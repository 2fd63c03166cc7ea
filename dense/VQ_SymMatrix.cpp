// VQ_SymMatrix.cpp - packed symmetric matrix: storage rule, copies, congruence products
// (t' K t and t K t'), text output and operators.
//
// The packed upper triangle by columns is exactly BLAS packed 'U' storage, so the matrix-vector
// products use dspmv and the congruence products unpack K once and run BLAS-3 (dsymm / dgemm and
// dgemmt for the triangle of the result); the per-column loops remain as the fallback when the
// scratch space cannot be allocated and for storage kinds derived from this class.
#include "dense/VQ_SymMatrix.h"

#include <mkl.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <typeinfo>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/internal/DenseWork.h"


using vqdense::GeneralView;
using vqdense::kMachineEpsilon;
using vqdense::WorkBuffer;

namespace {

inline long long PackedPos(int i, int j) { return static_cast<long long>(j - 1) * j / 2 + (i - 1); }
inline long long Pos(int i, int j, int ld) { return static_cast<long long>(j - 1) * ld + (i - 1); }

// Full n x n column-major form of the leading order-n block of a symmetric matrix.
void Unpack(const VQ_SymMatrix& k, int n, double* full) {
  const bool packed = k.HasPackedLayout();
  const double* p = k.GetDataPointer();
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= j; ++i) {
      const double v = packed ? p[PackedPos(i, j)] : k.Value(i, j);
      full[Pos(i, j, n)] = v;
      full[Pos(j, i, n)] = v;
    }
}

// w = K x over the leading order-n block, for any symmetric kind.
void SymTimesVector(const VQ_SymMatrix& k, int n, const double* x, double* w) {
  if (n <= 0) return;
  if (k.HasPackedLayout()) {
    cblas_dspmv(CblasColMajor, CblasUpper, n, 1.0, k.GetDataPointer(), x, 1, 0.0, w, 1);
    return;
  }
  if (typeid(k) == typeid(VQ_DiagonalMatrix)) {
    for (int i = 1; i <= n; ++i) w[i - 1] = k.Value(i, i) * x[i - 1];
    return;
  }
  for (int i = 1; i <= n; ++i) {
    double s = 0.0;
    for (int c = 1; c <= n; ++c) s += k.Value(i, c) * x[c - 1];
    w[i - 1] = s;
  }
}

// Stores value at (i, j), i <= j, of r: raw for the packed layout, otherwise through Ref_.
inline void StoreUpper(VQ_SymMatrix& r, bool rawPacked, int i, int j, double v) {
  if (rawPacked)
    r.GetDataPointer()[PackedPos(i, j)] = v;
  else
    r.Ref_(i, j) = v;
}

}  // namespace

// ================================================================================================
// Construction and storage
// ================================================================================================

VQ_SymMatrix::VQ_SymMatrix() : VQ_Matrix() { type = MATLIBDLLCOMMONS::SYM_MATRIX; }

VQ_SymMatrix::VQ_SymMatrix(int n, double value) : VQ_SymMatrix() {
  if (Initialize(n) && data) std::fill(data, data + size, value);
}

VQ_SymMatrix::VQ_SymMatrix(int n, double* diag) : VQ_SymMatrix() {
  if (!Initialize(n) || !data) return;
  std::fill(data, data + size, 0.0);
  if (diag)
    for (int k = 1; k <= n; ++k) data[Shift_(k, k)] = diag[k - 1];
}

VQ_SymMatrix::VQ_SymMatrix(const VQ_SymMatrix& other) : VQ_SymMatrix() {
  int r = 0, c = 0;
  other.GetBounds(r, c);
  if (Initialize(r) && data) {
    const int have = other.data ? std::min(size, other.size) : 0;
    if (have > 0) std::memcpy(data, other.data, static_cast<size_t>(have) * sizeof(double));
    if (have < size) std::fill(data + have, data + size, 0.0);
  }
  // The copy of a symmetric matrix reports MATRIX: the library's own marking, kept.
  type = MATLIBDLLCOMMONS::MATRIX;
}

VQ_SymMatrix& VQ_SymMatrix::operator=(const VQ_SymMatrix& other) {
  if (this == &other) return *this;
  int r = 0, c = 0;
  other.GetBounds(r, c);
  if (Initialize(r) && data) {
    const int have = other.data ? std::min(size, other.size) : 0;
    if (have > 0) std::memcpy(data, other.data, static_cast<size_t>(have) * sizeof(double));
    if (have < size) std::fill(data + have, data + size, 0.0);
  }
  return *this;
}

VQ_SymMatrix::~VQ_SymMatrix() = default;

bool VQ_SymMatrix::Initialize(int n) {
  // Storage adopted through CopyShallow is never freed (FreeValueStorage keeps it).
  FreeValueStorage();
  rows = cols = n;
  const long long count = n < 0 ? -1 : static_cast<long long>(n) * (n + 1) / 2;
  return AllocateValueStorage(count);
}

bool VQ_SymMatrix::HasPackedLayout() const {
  return typeid(*this) == typeid(VQ_SymMatrix) && rows >= 0 &&
         static_cast<long long>(rows) * (rows + 1) / 2 <= size;
}

void VQ_SymMatrix::Redimension(int n, int, double value) {
  if (Initialize(n) && data) std::fill(data, data + size, value);
}

double VQ_SymMatrix::Value(int i, int j) const { return data[Shift(i, j)]; }
double& VQ_SymMatrix::Ref(int i, int j) { return data[Shift(i, j)]; }
double VQ_SymMatrix::Value_(int i, int j) const { return data[Shift(i, j)]; }
double& VQ_SymMatrix::Ref_(int i, int j) { return data[Shift(i, j)]; }

void VQ_SymMatrix::SetValue(double v) {
  if (data) std::fill(data, data + size, v);
}

VQ_SymMatrix VQ_SymMatrix::T() const { return VQ_SymMatrix(*this); }

VQ_Matrix VQ_SymMatrix::Inverse() const { return VQ_Matrix::Inverse(); }

void VQ_SymMatrix::CopyUpperDiagonal(const VQ_Matrix& m) {
  if (m.NumRows() != m.NumCols()) return;
  const int n = m.NumRows();
  Redimension(n, n, 0.0);
  const int order = std::min(n, NumRows());
  for (int j = 1; j <= order; ++j)
    for (int i = 1; i <= j; ++i) Ref_(i, j) = m.Value(i, j);
}

// ================================================================================================
// Congruence products
// ================================================================================================

void VQ_SymMatrix::Tt_K_T(const VQ_Matrix& t, VQ_SymMatrix& r) const {
  // r(i, j) = t(:, i)' K t(:, j), i <= j. Per column j: w = K t(:, j), then r(j, jj) = t(:, jj).w
  // for jj = j..m. Sizes that disagree are reduced to the common leading block.
  if (&r == this || static_cast<const VQ_Matrix*>(&r) == &t) {
    // The result would overwrite an operand before it is read: go through a temporary.
    VQ_SymMatrix tmp;
    Tt_K_T(t, tmp);
    r = tmp;
    return;
  }
  const int n = std::min(NumRows(), t.NumRows()), m = t.NumCols();
  r.Redimension(m, m, 0.0);
  if (m <= 0 || r.NumRows() != m) return;
  const bool rawR = r.HasPackedLayout();
  if (n <= 0) return;
  GeneralView tv(t);
  if (!tv.ok()) {
    r.status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  const int ldt = tv.rows;

  if (HasPackedLayout()) {
    WorkBuffer full(static_cast<long long>(n) * n), w(static_cast<long long>(n) * m), c(static_cast<long long>(m) * m);
    if (full.ok() && w.ok() && c.ok()) {
      Unpack(*this, n, full.get());
      // W = K T, then the lower triangle of C = T' W: C(jj, j) = t(:, jj).(K t(:, j)), jj >= j.
      cblas_dsymm(CblasColMajor, CblasLeft, CblasUpper, n, m, 1.0, full.get(), n, tv.data(), ldt, 0.0, w.get(), n);
      cblas_dgemmt(CblasColMajor, CblasLower, CblasTrans, CblasNoTrans, m, n, 1.0, tv.data(), ldt, w.get(), n, 0.0,
                   c.get(), m);
      for (int j = 1; j <= m; ++j)
        for (int jj = j; jj <= m; ++jj) StoreUpper(r, rawR, j, jj, c[Pos(jj, j, m)]);
      return;
    }
  }
  WorkBuffer w(n);
  if (!w.ok()) {
    r.status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  for (int j = 1; j <= m; ++j) {
    SymTimesVector(*this, n, tv.column(j), w.get());
    for (int jj = j; jj <= m; ++jj) StoreUpper(r, rawR, j, jj, cblas_ddot(n, tv.column(jj), 1, w.get(), 1));
  }
}

void VQ_SymMatrix::T_K_Tt(const VQ_Matrix& t, VQ_SymMatrix& r) const {
  // r(i, j) = t(i, :) K t(j, :)', i <= j, built like Tt_K_T with the rows of t.
  if (&r == this || static_cast<const VQ_Matrix*>(&r) == &t) {
    VQ_SymMatrix tmp;
    T_K_Tt(t, tmp);
    r = tmp;
    return;
  }
  const int n = std::min(NumRows(), t.NumCols()), m = t.NumRows();
  r.Redimension(m, m, 0.0);
  if (m <= 0 || r.NumRows() != m) return;
  const bool rawR = r.HasPackedLayout();
  if (n <= 0) return;
  GeneralView tv(t);
  if (!tv.ok()) {
    r.status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  const int ldt = tv.rows;  // = m

  if (HasPackedLayout()) {
    WorkBuffer full(static_cast<long long>(n) * n), w(static_cast<long long>(n) * m), c(static_cast<long long>(m) * m);
    if (full.ok() && w.ok() && c.ok()) {
      Unpack(*this, n, full.get());
      // W = K T' (n x m), then the lower triangle of C = T W: C(jj, j) = t(jj, :).(K t(j, :)').
      cblas_dgemm(CblasColMajor, CblasNoTrans, CblasTrans, n, m, n, 1.0, full.get(), n, tv.data(), ldt, 0.0, w.get(), n);
      cblas_dgemmt(CblasColMajor, CblasLower, CblasNoTrans, CblasNoTrans, m, n, 1.0, tv.data(), ldt, w.get(), n, 0.0,
                   c.get(), m);
      for (int j = 1; j <= m; ++j)
        for (int jj = j; jj <= m; ++jj) StoreUpper(r, rawR, j, jj, c[Pos(jj, j, m)]);
      return;
    }
  }
  WorkBuffer x(n), w(n);
  if (!x.ok() || !w.ok()) {
    r.status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  for (int j = 1; j <= m; ++j) {
    for (int k = 1; k <= n; ++k) x[k - 1] = tv.at(j, k);
    SymTimesVector(*this, n, x.get(), w.get());
    for (int jj = j; jj <= m; ++jj)
      StoreUpper(r, rawR, j, jj, cblas_ddot(n, tv.data() + (jj - 1), ldt, w.get(), 1));
  }
}

void VQ_SymMatrix::print(std::ostream* os) const {
  if (!os) return;
  const int n = NumRows();
  char buffer[64];
  for (int i = 1; i <= n; ++i) {
    for (int j = 1; j <= n; ++j) {
      std::snprintf(buffer, sizeof buffer, "%12.16f", Value(i, j));
      *os << buffer << (j < n ? " " : "");
    }
    *os << "\n";
  }
}

// ================================================================================================
// Operators
// ================================================================================================

VQ_SymMatrix VQ_SymMatrix::operator+() const { return VQ_SymMatrix(*this); }

VQ_SymMatrix VQ_SymMatrix::operator-() const {
  // The result is allocated with a single element holding the order, and the negated stored values
  // are then written from that element on. Only the first write lands inside the result, so the
  // defined outcome is an order-1 matrix holding the negated first stored value.
  VQ_SymMatrix r(1, static_cast<double>(rows));
  if (r.data && data && size > 0) r.data[0] = -data[0];
  return r;
}

VQ_SymMatrix& VQ_SymMatrix::operator*=(double s) {
  if (data)
    for (int k = 0; k < size; ++k) data[k] *= s;
  return *this;
}

VQ_SymMatrix& VQ_SymMatrix::operator/=(double s) {
  if (std::fabs(s) < kMachineEpsilon) status = MATLIBDLLCOMMONS::STATUS_DIVISION_BY_ZERO;
  return *this *= (1.0 / s);
}

namespace {

template <typename Op>
void PackedAccumulate(double* dst, int dstSize, const VQ_Matrix& b, Op op) {
  const double* src = b.GetDataPointer();
  if (!dst || !src) return;
  const long long limit = std::min(dstSize, b.GetSizeAllocated());
  const int br = b.NumRows(), bc = b.NumCols();
  for (int j = 1; j <= bc; ++j)
    for (int i = 1; i <= std::min(br, j); ++i) {
      const long long p = PackedPos(i, j);
      if (p < limit) dst[p] = op(dst[p], src[p]);
    }
}

}  // namespace

VQ_SymMatrix& VQ_SymMatrix::operator+=(const VQ_Matrix& b) {
  PackedAccumulate(data, size, b, [](double x, double y) { return x + y; });
  return *this;
}

VQ_SymMatrix& VQ_SymMatrix::operator-=(const VQ_Matrix& b) {
  PackedAccumulate(data, size, b, [](double x, double y) { return x - y; });
  return *this;
}

// ================================================================================================
// Free operators
// ================================================================================================

VQ_SymMatrix operator*(const VQ_SymMatrix& a, double s) {
  VQ_SymMatrix r(a);
  r *= s;
  return r;
}

VQ_SymMatrix operator*(double s, const VQ_SymMatrix& a) { return a * s; }

VQ_SymMatrix operator/(const VQ_SymMatrix& a, double s) {
  VQ_SymMatrix r(a);
  r /= s;
  return r;
}

VQ_SymMatrix operator+(const VQ_SymMatrix& a, const VQ_SymMatrix& b) {
  VQ_SymMatrix r(a);
  r += b;
  return r;
}

VQ_SymMatrix operator-(const VQ_SymMatrix& a, const VQ_SymMatrix& b) {
  VQ_SymMatrix r(a);
  r -= b;
  return r;
}

VQ_Matrix operator*(const VQ_Matrix& a, const VQ_SymMatrix& s) {
  VQ_Matrix r(a.NumRows(), s.NumCols());
  a.PostMultiply(s, r);
  return r;
}

VQ_Matrix operator*(const VQ_SymMatrix& s, const VQ_Matrix& a) {
  VQ_Matrix r(s.NumRows(), a.NumCols());
  a.PreMultiply(s, r);
  return r;
}
