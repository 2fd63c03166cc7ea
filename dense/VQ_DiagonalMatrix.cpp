// VQ_DiagonalMatrix.cpp - diagonal matrix: storage rule, inverses, m'Dm and D*m products,
// MatrixMarket files and operators.
#include "dense/VQ_DiagonalMatrix.h"

#include <mkl.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <typeinfo>

#include "dense/internal/DenseWork.h"
#include "dense/internal/MtxReader.h"


using vqdense::GeneralView;
using vqdense::kMachineEpsilon;
using vqdense::WorkBuffer;

namespace {

// Reciprocal with the library's cap: values under 1e-20 in magnitude give 1e20.
inline double CappedReciprocal(double d) { return std::fabs(d) < 1e-20 ? 1e20 : 1.0 / d; }
inline long long Pos(int i, int j, int ld) { return static_cast<long long>(j - 1) * ld + (i - 1); }

// m'Dm with at least this many multiply-adds goes to BLAS.
constexpr long long kBlasThreshold = 32768;

}  // namespace

// ================================================================================================
// Construction and storage
// ================================================================================================

VQ_DiagonalMatrix::VQ_DiagonalMatrix() : VQ_SymMatrix() { type = MATLIBDLLCOMMONS::DIAGONAL_MATRIX; }

VQ_DiagonalMatrix::VQ_DiagonalMatrix(int n, double value) : VQ_DiagonalMatrix() {
  if (Initialize(n) && data) std::fill(data, data + size, value);
}

VQ_DiagonalMatrix::VQ_DiagonalMatrix(int n, double* d) : VQ_DiagonalMatrix() {
  if (!Initialize(n) || !data) return;
  if (d)
    std::memcpy(data, d, static_cast<size_t>(size) * sizeof(double));
  else
    std::fill(data, data + size, 0.0);
}

VQ_DiagonalMatrix::VQ_DiagonalMatrix(const VQ_DiagonalMatrix& other) : VQ_DiagonalMatrix() {
  int r = 0, c = 0;
  other.GetBounds(r, c);
  if (Initialize(r) && data)
    for (int k = 1; k <= rows; ++k) data[k - 1] = other.Value(k, k);
  // The copy of a diagonal matrix reports SYM_MATRIX: the library's own marking, kept.
  type = MATLIBDLLCOMMONS::SYM_MATRIX;
}

VQ_DiagonalMatrix& VQ_DiagonalMatrix::operator=(const VQ_DiagonalMatrix& other) {
  if (this == &other) return *this;
  int r = 0, c = 0;
  other.GetBounds(r, c);
  if (Initialize(r) && data)
    for (int k = 1; k <= rows; ++k) data[k - 1] = other.Value(k, k);
  return *this;
}

VQ_DiagonalMatrix::~VQ_DiagonalMatrix() = default;

bool VQ_DiagonalMatrix::Initialize(int n) {
  FreeValueStorage();
  rows = cols = n;
  return AllocateValueStorage(n < 0 ? -1 : n);
}

void VQ_DiagonalMatrix::Redimension(int n, int, double value) {
  if (Initialize(n) && data) std::fill(data, data + size, value);
}

double VQ_DiagonalMatrix::Value(int i, int j) const { return i == j ? data[i - 1] : 0.0; }
double& VQ_DiagonalMatrix::Ref(int i, int) { return data[i - 1]; }
double VQ_DiagonalMatrix::Value_(int i, int j) const { return i == j ? data[i - 1] : 0.0; }
double& VQ_DiagonalMatrix::Ref_(int i, int) { return data[i - 1]; }

void VQ_DiagonalMatrix::SetValue(double v) {
  if (data) std::fill(data, data + size, v);
}

VQ_DiagonalMatrix VQ_DiagonalMatrix::T() const { return VQ_DiagonalMatrix(*this); }

VQ_Matrix VQ_DiagonalMatrix::Inverse() const {
  // The identity of order n with the n reciprocals written over its first n storage positions,
  // i.e. down its first column. This layout is what callers of this class have always received.
  VQ_Matrix r;
  r.SetIdentityMatrix(rows);
  double* p = r.GetDataPointer();
  if (!p || r.NumRows() != rows) return r;
  for (int k = 0; k < rows; ++k) p[k] = CappedReciprocal(data[k]);
  return r;
}

VQ_DiagonalMatrix VQ_DiagonalMatrix::InverseDiag() const {
  VQ_DiagonalMatrix r(rows, 0.0);
  if (!r.data) return r;
  for (int k = 0; k < rows; ++k) r.data[k] = CappedReciprocal(data[k]);
  return r;
}

int VQ_DiagonalMatrix::CountNonZeroDiagonalTerms(double tol) const {
  int count = 0;
  for (int k = 0; k < size; ++k)
    if (std::fabs(data[k]) > tol) ++count;
  return count;
}

void VQ_DiagonalMatrix::MtSM(const VQ_Matrix& m, VQ_SymMatrix& s) const {
  // s(i, j) = sum over the rows k of m of m(k, i) m(k, j) d_k, i <= j, in packed storage order.
  if (static_cast<const VQ_Matrix*>(&s) == this || static_cast<const VQ_Matrix*>(&s) == &m) {
    // The result would overwrite an operand before it is read: go through a temporary.
    VQ_SymMatrix tmp;
    MtSM(m, tmp);
    s = tmp;
    return;
  }
  const int q = m.NumCols();
  const int K = std::min(m.NumRows(), rows);  // rows of m beyond the order have no d_k
  s.Redimension(q, q, 0.0);
  if (q <= 0 || s.NumRows() != q || K <= 0) return;
  GeneralView mv(m);
  if (!mv.ok()) {
    ReportNoMemory();
    return;
  }
  const int ld = mv.rows;
  const bool rawS = s.HasPackedLayout();
  double* sp = s.GetDataPointer();

  if (static_cast<long long>(q) * q * K >= kBlasThreshold) {
    WorkBuffer x(static_cast<long long>(K) * q), c(static_cast<long long>(q) * q);
    if (x.ok() && c.ok()) {
      // X = D m (rows 1..K), C = m' X (upper triangle).
      for (int j = 1; j <= q; ++j) {
        const double* mj = mv.column(j);
        double* xj = x.get() + Pos(1, j, K);
        for (int k = 0; k < K; ++k) xj[k] = data[k] * mj[k];
      }
      cblas_dgemmt(CblasColMajor, CblasUpper, CblasTrans, CblasNoTrans, q, K, 1.0, mv.data(), ld, x.get(), K, 0.0,
                   c.get(), q);
      for (int j = 1; j <= q; ++j)
        for (int i = 1; i <= j; ++i) {
          const double v = 0.0 + c[Pos(i, j, q)];
          if (rawS)
            sp[static_cast<long long>(j - 1) * j / 2 + (i - 1)] += v;
          else
            s.Ref_(i, j) += v;
        }
      return;
    }
  }
  for (int j = 1; j <= q; ++j) {
    const double* mj = mv.column(j);
    for (int i = 1; i <= j; ++i) {
      const double* mi = mv.column(i);
      double sum = 0.0;
      for (int k = 0; k < K; ++k) sum += mi[k] * mj[k] * data[k];
      if (rawS)
        sp[static_cast<long long>(j - 1) * j / 2 + (i - 1)] += sum;
      else
        s.Ref_(i, j) += sum;
    }
  }
}

void VQ_DiagonalMatrix::MultiplyWithMatrix(const VQ_Matrix& m, VQ_Matrix& r) const {
  // r(i, j) = d_i m(i, j) for the rows whose |d_i| exceeds machine epsilon; the other rows of r
  // keep what they held.
  const int nrows = std::min(std::min(rows, r.NumRows()), m.NumRows());
  const int ncols = std::min(r.NumCols(), m.NumCols());
  if (nrows <= 0 || ncols <= 0) return;
  if (m.HasGeneralLayout() && r.HasGeneralLayout()) {
    const double* mp = m.GetDataPointer();
    double* rp = r.GetDataPointer();
    const int ldm = m.NumRows(), ldr = r.NumRows();
    for (int j = 1; j <= ncols; ++j) {
      const double* mj = mp + Pos(1, j, ldm);
      double* rj = rp + Pos(1, j, ldr);
      for (int i = 0; i < nrows; ++i)
        if (std::fabs(data[i]) > kMachineEpsilon) rj[i] = data[i] * mj[i];
    }
    return;
  }
  for (int j = 1; j <= ncols; ++j)
    for (int i = 1; i <= nrows; ++i)
      if (std::fabs(data[i - 1]) > kMachineEpsilon) r.Ref(i, j) = data[i - 1] * m.Value(i, j);
}

// ================================================================================================
// Files
// ================================================================================================

void VQ_DiagonalMatrix::StoreIn_MTX_Format(FILE* f, bool skipZeros) const {
  if (!f) return;
  const int n = rows;
  std::fprintf(f, "%%%%MatrixMarket matrix coordinate real symmetric \n");
  // The count is always the order, also when zeros are skipped (the library's format).
  std::fprintf(f, "%d \t %d \t %d \n", n, n, n);
  for (int k = 1; k <= n; ++k) {
    const double v = data[k - 1];
    if (skipZeros && std::fabs(v) <= kMachineEpsilon) continue;
    std::fprintf(f, "%d \t %d \t %10.18f \n", k, k, v);
  }
}

bool VQ_DiagonalMatrix::ReadIn_MTX_Format(const char* path, bool verbose) {
  try {
    vqdense::MtxReader reader(path);
    if (!reader.is_open()) {
      status = MATLIBDLLCOMMONS::STATUS_FILE_NOT_FOUND;
      if (verbose) std::cout << ">>>>>>> File Not Found : " << (path ? path : "") << "  <<<<<< \n" << std::endl;
      return false;
    }
    long long r = 0, c = 0, count = 0;
    if (!reader.ReadSizeLine(r, c, count)) return false;
    const int n = vqdense::MtxReader::ClampSize(r);
    Redimension(n, n, 0.0);
    long long i = 0, j = 0, ignored = 0;
    double v = 0.0;
    for (long long e = 0; e < count && reader.ReadEntry(i, j, v); ++e) {
      if (i != j) {
        ++ignored;
        continue;
      }
      if (i < 1 || i > rows) continue;  // outside the declared order: skipped
      data[i - 1] = v;
    }
    // The status reports dropped off-diagonal terms only on a verbose read: the library's own
    // coupling of the two, kept.
    if (ignored > 0 && verbose) {
      std::cout << ">>>>>>> Off Diagonal Terms Found in redaing the File. They are Ignored !..... <<<<<< \n"
                << std::endl;
      status = MATLIBDLLCOMMONS::STATUS_OFF_DIAGONAL_IGNORED;
    }
    return true;
  } catch (...) {
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    return false;
  }
}

// ================================================================================================
// Operators
// ================================================================================================

VQ_DiagonalMatrix VQ_DiagonalMatrix::operator+() const { return VQ_DiagonalMatrix(*this); }

VQ_DiagonalMatrix VQ_DiagonalMatrix::operator-() const {
  // Order-1 result: see VQ_SymMatrix::operator-.
  VQ_DiagonalMatrix r(1, static_cast<double>(rows));
  if (r.data && data && size > 0) r.data[0] = -data[0];
  return r;
}

VQ_DiagonalMatrix& VQ_DiagonalMatrix::operator*=(double s) {
  if (data)
    for (int k = 0; k < size; ++k) data[k] *= s;
  return *this;
}

VQ_DiagonalMatrix& VQ_DiagonalMatrix::operator/=(double s) {
  if (std::fabs(s) < kMachineEpsilon) status = MATLIBDLLCOMMONS::STATUS_DIVISION_BY_ZERO;
  return *this *= (1.0 / s);
}

VQ_DiagonalMatrix& VQ_DiagonalMatrix::operator+=(const VQ_DiagonalMatrix& b) {
  const int n = std::min(size, b.size);
  if (data && b.data)
    for (int k = 0; k < n; ++k) data[k] += b.data[k];
  return *this;
}

VQ_DiagonalMatrix& VQ_DiagonalMatrix::operator-=(const VQ_DiagonalMatrix& b) {
  const int n = std::min(size, b.size);
  if (data && b.data)
    for (int k = 0; k < n; ++k) data[k] -= b.data[k];
  return *this;
}

// ================================================================================================
// Free operators
// ================================================================================================

VQ_DiagonalMatrix operator*(const VQ_DiagonalMatrix& a, double s) {
  VQ_DiagonalMatrix r(a);
  r *= s;
  return r;
}

VQ_DiagonalMatrix operator*(double s, const VQ_DiagonalMatrix& a) { return a * s; }

VQ_DiagonalMatrix operator/(const VQ_DiagonalMatrix& a, double s) {
  VQ_DiagonalMatrix r(a);
  r /= s;
  return r;
}

VQ_DiagonalMatrix operator+(const VQ_DiagonalMatrix& a, const VQ_DiagonalMatrix& b) {
  VQ_DiagonalMatrix r(a);
  r += b;
  return r;
}

VQ_DiagonalMatrix operator-(const VQ_DiagonalMatrix& a, const VQ_DiagonalMatrix& b) {
  VQ_DiagonalMatrix r(a);
  r -= b;
  return r;
}

VQ_DiagonalMatrix operator*(const VQ_DiagonalMatrix& a, const VQ_DiagonalMatrix& b) {
  const int n = a.NumRows();
  VQ_DiagonalMatrix r(n, 0.0);
  if (b.NumRows() != n) return r;
  double* p = r.GetDataPointer();
  const double* x = a.GetDataPointer();
  const double* y = b.GetDataPointer();
  if (p && x && y)
    for (int k = 0; k < n; ++k) p[k] = x[k] * y[k];
  return r;
}

VQ_Matrix operator*(const VQ_Matrix& a, const VQ_DiagonalMatrix& d) {
  VQ_Matrix r(a.NumRows(), d.NumCols());
  a.PostMultiply(d, r);
  return r;
}

VQ_Matrix operator*(const VQ_DiagonalMatrix& d, const VQ_Matrix& a) {
  // D*A: row i of A scaled by d_i (rows of A beyond the order of D stay zero).
  const int n = d.NumRows(), c = a.NumCols();
  VQ_Matrix r(n, c);
  double* p = r.GetDataPointer();
  const double* dv = d.GetDataPointer();
  if (!p || !dv) return r;
  const int common = std::min(n, a.NumRows());
  GeneralView av(a);
  if (!av.ok()) return r;
  for (int j = 1; j <= c; ++j) {
    const double* aj = av.column(j);
    double* pj = p + Pos(1, j, n);
    for (int i = 0; i < common; ++i) pj[i] = dv[i] * aj[i];
  }
  return r;
}
