// VQ_Matrix.cpp - general dense matrix: storage, element access, column members, norms,
// products, Gauss-Jordan inverse, modified Gram-Schmidt, operators and files.
//
// Large products go to MKL BLAS when the operands are in the general layout and the sizes agree;
// every other case (mismatched sizes, packed operands seen through Value) runs the plain loops
// that define the results. Nothing here throws; scratch storage is allocated without throwing and
// an allocation failure is reported through status -1.
#include "dense/VQ_Matrix.h"

#include <mkl.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <typeinfo>

#include "dense/VQ_ColVector.h"
#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_SymMatrix.h"
#include "dense/internal/DenseWork.h"
#include "dense/internal/MtxReader.h"


using MATLIBDLLCOMMONS::MATRIX_TYPE;
using MATLIBDLLCOMMONS::STATE_STATUS;
using vqdense::GeneralView;
using vqdense::kMachineEpsilon;
using vqdense::kSmallestNormal;
using vqdense::WorkBuffer;

namespace {

// Products with at least this many multiply-adds (m*n*k) go to dgemm.
constexpr long long kBlasProductThreshold = 32768;

inline long long Pos(int i, int j, int ld) { return static_cast<long long>(j - 1) * ld + (i - 1); }

// Writes the column-major m x n block `values` into P: raw when P holds the general layout with at
// least m*n values (leading dimension m), otherwise element-wise through P's Ref within P's sizes.
void StoreBlock(VQ_Matrix& P, int m, int n, const double* values) {
  if (m <= 0 || n <= 0) return;
  const long long count = static_cast<long long>(m) * n;
  if (P.HasGeneralLayout() && P.GetSizeAllocated() >= count && P.GetDataPointer()) {
    std::memcpy(P.GetDataPointer(), values, static_cast<size_t>(count) * sizeof(double));
    return;
  }
  const int pr = std::min(m, P.NumRows()), pc = std::min(n, P.NumCols());
  for (int j = 1; j <= pc; ++j)
    for (int i = 1; i <= pr; ++i) P.Ref(i, j) = values[Pos(i, j, m)];
}

// Whether P can receive an m x n result raw with leading dimension m.
bool RawTarget(const VQ_Matrix& P, int m, int n) {
  return P.HasGeneralLayout() && P.GetDataPointer() && P.GetSizeAllocated() >= static_cast<long long>(m) * n;
}

// Sum of squares with four running sums (unrolled by four).
double SumOfSquares(const double* x, long long n) {
  double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
  long long k = 0;
  for (; k + 4 <= n; k += 4) {
    s0 += x[k] * x[k];
    s1 += x[k + 1] * x[k + 1];
    s2 += x[k + 2] * x[k + 2];
    s3 += x[k + 3] * x[k + 3];
  }
  for (; k < n; ++k) s0 += x[k] * x[k];
  return (s0 + s1) + (s2 + s3);
}

// Fills `self` with the full square form of a symmetric source read through Value.
void FillFromSymmetric(VQ_Matrix& self, const VQ_Matrix& s) {
  self.Redimension(s.NumRows(), s.NumCols(), 0.0);
  const int n = std::min(std::min(s.NumRows(), s.NumCols()), std::min(self.NumRows(), self.NumCols()));
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= j; ++i) {
      const double v = s.Value(i, j);
      self.Ref(i, j) = v;
      self.Ref(j, i) = v;
    }
}

}  // namespace

// ================================================================================================
// Construction, allocation, lifecycle
// ================================================================================================

VQ_Matrix::VQ_Matrix()
    : rows(0), cols(0), data(nullptr), size(0), type(MATLIBDLLCOMMONS::MATRIX),
      status(MATLIBDLLCOMMONS::STATUS_OK), shallow(false), ownedStorage_(nullptr) {}

VQ_Matrix::VQ_Matrix(int r, int c) : VQ_Matrix() {
  if (Initialize(r, c) && data) std::memset(data, 0, static_cast<size_t>(size) * sizeof(double));
}

VQ_Matrix::VQ_Matrix(int r, int c, double value) : VQ_Matrix() {
  if (Initialize(r, c) && data) std::fill(data, data + size, value);
}

VQ_Matrix::VQ_Matrix(int r, int c, double* values) : VQ_Matrix() {
  if (Initialize(r, c) && data) {
    if (values)
      std::memcpy(data, values, static_cast<size_t>(size) * sizeof(double));
    else
      std::memset(data, 0, static_cast<size_t>(size) * sizeof(double));
  }
}

VQ_Matrix::VQ_Matrix(const VQ_Matrix& other) : VQ_Matrix() { *this = other; }

VQ_Matrix& VQ_Matrix::operator=(const VQ_Matrix& other) {
  if (this == &other) return *this;
  int r = 0, c = 0;
  other.GetBounds(r, c);
  const bool allocated = Initialize(r, c);
  if (allocated && data) {
    // A packed source holds fewer than rows*cols doubles: copy what it has, clear the rest.
    const long long have = other.data ? std::min<long long>(size, other.size) : 0;
    if (have > 0) std::memcpy(data, other.data, static_cast<size_t>(have) * sizeof(double));
    if (have < size) std::memset(data + have, 0, static_cast<size_t>(size - have) * sizeof(double));
  }
  // The copy takes over the source's kind, status and shallow mark (its storage, freshly
  // allocated, is still released by this object). A failed allocation keeps its -1.
  type = other.type;
  if (allocated) status = other.status;
  shallow = other.shallow;
  return *this;
}

VQ_Matrix::~VQ_Matrix() {
  FreeValueStorage();
  rows = cols = size = 0;
  shallow = false;
}

void VQ_Matrix::ReportNoMemory() {
  std::cout << ">>>>>>> Cannot Allocate Memory !..... <<<<<< \n" << std::endl;
}

void VQ_Matrix::FreeValueStorage() {
  // Storage adopted by CopyShallow is the caller's: never freed. Storage this object allocated
  // itself is freed even when a shallow mark was inherited by copying.
  if (data && (!shallow || data == ownedStorage_)) std::free(data);
  data = nullptr;
  ownedStorage_ = nullptr;
}

bool VQ_Matrix::AllocateValueStorage(long long count) {
  FreeValueStorage();
  if (count < 0 || count > INT_MAX) {
    rows = cols = size = 0;
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return false;
  }
  size = static_cast<int>(count);
  if (count == 0) {
    status = MATLIBDLLCOMMONS::STATUS_OK;
    return true;
  }
  data = static_cast<double*>(std::malloc(static_cast<size_t>(count) * sizeof(double)));
  if (!data) {
    rows = cols = size = 0;
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return false;
  }
  ownedStorage_ = data;
  status = MATLIBDLLCOMMONS::STATUS_OK;
  return true;
}

bool VQ_Matrix::Initialize(int r, int c) {
  ReleaseMemory();
  rows = r;
  cols = c;
  const long long count = (r < 0 || c < 0) ? -1 : static_cast<long long>(r) * c;
  return AllocateValueStorage(count);
}

bool VQ_Matrix::HasGeneralLayout() const {
  return dynamic_cast<const VQ_SymMatrix*>(this) == nullptr && rows >= 0 && cols >= 0 &&
         static_cast<long long>(rows) * cols <= size;
}

// ================================================================================================
// Virtual element access
// ================================================================================================

VQ_MatrixAux VQ_Matrix::operator()(int i, int j) { return VQ_MatrixAux(*this, i, j); }

void VQ_Matrix::Redimension(int r, int c, double value) {
  if (Initialize(r, c) && data) std::fill(data, data + size, value);
}

void VQ_Matrix::GetBounds(int& r, int& c) const {
  r = rows;
  c = cols;
}

int VQ_Matrix::NumRows() const { return rows; }
int VQ_Matrix::NumCols() const { return cols; }

void VQ_Matrix::ReleaseMemory() {
  FreeValueStorage();
  rows = cols = size = 0;
}

double VQ_Matrix::Value(int i, int j) const { return data[Shift(i, j)]; }
double& VQ_Matrix::Ref(int i, int j) { return data[Shift(i, j)]; }
double VQ_Matrix::Value_(int i, int j) const { return data[Shift(i, j)]; }
double& VQ_Matrix::Ref_(int i, int j) { return data[Shift(i, j)]; }

std::string VQ_Matrix::GetMatrixType() const {
  switch (static_cast<int>(type)) {
    case MATLIBDLLCOMMONS::MATRIX: return "MATRIX";
    case MATLIBDLLCOMMONS::SYM_MATRIX: return "SYM_MATRIX";
    case MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX: return "SYM_SPARSE_MATRIX";
    case MATLIBDLLCOMMONS::DIAGONAL_MATRIX: return "DIAGONAL_MATRIX";
    case MATLIBDLLCOMMONS::ROW_VECTOR: return "ROW_VECTOR";
    case MATLIBDLLCOMMONS::COLUMN_VECTOR: return "COLUMN_VECTOR";
    default: return "UNDETERMINED";
  }
}

// ================================================================================================
// Storage and whole-matrix members
// ================================================================================================

void VQ_Matrix::SetValue(double v) {
  if (data) std::fill(data, data + size, v);
}

void VQ_Matrix::SetIdentityMatrix(int n) {
  Redimension(n, n, 0.0);
  const int m = std::min(NumRows(), NumCols());
  for (int k = 1; k <= m; ++k) Ref(k, k) = 1.0;
}

void VQ_Matrix::Copy(double* dst) const {
  if (data && dst && size > 0) std::memcpy(dst, data, static_cast<size_t>(size) * sizeof(double));
}

void VQ_Matrix::CopyFromMatrixForm(int r, int c, double* src) {
  if (Initialize(r, c) && data && src) std::memcpy(data, src, static_cast<size_t>(size) * sizeof(double));
}

void VQ_Matrix::CopyShallow(int r, int c, double* src) {
  ReleaseMemory();
  const long long count = static_cast<long long>(r) * c;
  if (r < 0 || c < 0 || count > INT_MAX) {
    status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
    return;
  }
  rows = r;
  cols = c;
  size = static_cast<int>(count);
  data = src;
  ownedStorage_ = nullptr;
  shallow = true;
}

void VQ_Matrix::CopyToDiag(int n, double* d) {
  Redimension(n, n, 0.0);
  const int m = std::min(NumRows(), NumCols());
  if (!d) return;
  for (int k = 1; k <= m; ++k) Ref(k, k) = d[k - 1];
}

void VQ_Matrix::SetEqualTo(const VQ_Matrix* other) {
  if (!other || !data || !other->data) return;
  const int n = std::min(size, other->size);
  if (n > 0 && data != other->data) std::memmove(data, other->data, static_cast<size_t>(n) * sizeof(double));
}

void VQ_Matrix::SetEqualTo(const VQ_SymMatrix& s) { FillFromSymmetric(*this, s); }

void VQ_Matrix::Add(const VQ_Matrix& b) {
  if (!data || !b.data) return;
  const int n = std::min(size, b.size);
  for (int k = 0; k < n; ++k) data[k] += b.data[k];
}

void VQ_Matrix::Subtract(const VQ_Matrix& b) {
  if (!data || !b.data) return;
  const int n = std::min(size, b.size);
  for (int k = 0; k < n; ++k) data[k] -= b.data[k];
}

bool VQ_Matrix::ConfirmEQ(int a, int b) const {
  if (a == b) return true;
  status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  return false;
}

// ================================================================================================
// Columns
// ================================================================================================

namespace {

// Column j of m into out[0..NumRows()-1].
void ReadColumn(const VQ_Matrix& m, int j, double* out) {
  const int n = m.NumRows();
  if (n <= 0) return;
  if (m.HasGeneralLayout()) {
    std::memcpy(out, m.GetDataPointer() + Pos(1, j, n), static_cast<size_t>(n) * sizeof(double));
    return;
  }
  for (int i = 1; i <= n; ++i) out[i - 1] = m.Value(i, j);
}

// in[0..NumRows()-1] into column j of m.
void WriteColumn(VQ_Matrix& m, int j, const double* in) {
  const int n = m.NumRows();
  if (n <= 0) return;
  if (m.HasGeneralLayout()) {
    std::memmove(m.GetDataPointer() + Pos(1, j, n), in, static_cast<size_t>(n) * sizeof(double));
    return;
  }
  for (int i = 1; i <= n; ++i) m.Ref(i, j) = in[i - 1];
}

// Column srcCol of src into column dstCol of dst (both with the same number of rows).
bool CopyColumn(const VQ_Matrix& src, int srcCol, VQ_Matrix& dst, int dstCol) {
  const int n = src.NumRows();
  if (n <= 0) return true;
  if (src.HasGeneralLayout()) {
    WriteColumn(dst, dstCol, src.GetDataPointer() + Pos(1, srcCol, n));
    return true;
  }
  WorkBuffer col(n);
  if (!col.ok()) return false;
  ReadColumn(src, srcCol, col.get());
  WriteColumn(dst, dstCol, col.get());
  return true;
}

}  // namespace

int VQ_Matrix::InsertVector(const VQ_ColVector& v, int j) {
  if (j < 1 || j > NumCols() || v.NumRows() != NumRows()) return -1;
  return CopyColumn(v, 1, *this, j) ? 0 : -1;
}

int VQ_Matrix::InsertVector(const VQ_Matrix& src, int srcCol, int dstCol) {
  if (dstCol < 1 || dstCol > NumCols() || src.NumRows() != NumRows() || srcCol < 1 || srcCol > src.NumCols())
    return -1;
  return CopyColumn(src, srcCol, *this, dstCol) ? 0 : -1;
}

int VQ_Matrix::ExtractVector(VQ_ColVector& v, int j) const {
  if (j < 1 || j > NumCols() || v.NumRows() != NumRows()) return -1;
  return CopyColumn(*this, j, v, 1) ? 0 : -1;
}

int VQ_Matrix::ExtractVector(VQ_Matrix& dst, int dstCol, int srcCol) const {
  if (srcCol < 1 || srcCol > NumCols() || dst.NumRows() != NumRows() || dstCol < 1 || dstCol > dst.NumCols())
    return -1;
  return CopyColumn(*this, srcCol, dst, dstCol) ? 0 : -1;
}

int VQ_Matrix::ExtractVector(int n, double* dst, int j) const {
  if (j < 1 || j > NumCols() || n != NumRows() || (n > 0 && !dst)) return -1;
  ReadColumn(*this, j, dst);
  return 0;
}

int VQ_Matrix::ReadVector(VQ_ColVector& v, int j) const {
  if (j < 1 || j > cols) return -1;
  v.Redimension(NumRows(), 1, 0.0);
  if (v.NumRows() != NumRows()) return -1;  // allocation failed
  return CopyColumn(*this, j, v, 1) ? 0 : -1;
}

void VQ_Matrix::ApplyScaleToColumn(double s, int j) {
  if (j < 1 || j > NumCols()) return;
  const int n = NumRows();
  if (HasGeneralLayout()) {
    double* c = data + Pos(1, j, rows);
    for (int i = 0; i < n; ++i) c[i] *= s;
    return;
  }
  for (int i = 1; i <= n; ++i) Ref(i, j) = Value(i, j) * s;
}

void VQ_Matrix::CopyColumnsToGivenMatrix(VQ_Matrix* dst, int n) const {
  if (!dst || dst == this) return;
  dst->Redimension(NumRows(), n, 0.0);
  const int ncopy = std::min(std::min(n, NumCols()), dst->NumCols());
  if (dst->NumRows() != NumRows()) return;
  for (int j = 1; j <= ncopy; ++j)
    if (!CopyColumn(*this, j, *dst, j)) return;
}

bool VQ_Matrix::ObtainSubMatrices(VQ_Matrix& a, VQ_Matrix& b, VQ_Matrix& e, int n) const {
  const int m = rows - n;
  if (m <= 0) return false;
  // Reads outside this matrix and writes outside the (pre-sized) parts are skipped.
  auto inside = [](const VQ_Matrix& x, int i, int j) { return i >= 1 && j >= 1 && i <= x.NumRows() && j <= x.NumCols(); };
  for (int j = 1; j <= m; ++j)
    for (int i = 1; i <= m; ++i)
      if (inside(a, i, j) && inside(*this, i, j)) a.Ref(i, j) = Value(i, j);
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= m; ++i)
      if (inside(e, i, j) && inside(*this, i, m + j)) e.Ref(i, j) = Value(i, m + j);
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= n; ++i)
      if (inside(b, i, j) && inside(*this, m + i, m + j)) b.Ref(i, j) = Value(m + i, m + j);
  return true;
}

// ================================================================================================
// Norms and diagonal queries
// ================================================================================================

double VQ_Matrix::Norm() const {
  if (!data || size <= 0) return 0.0;
  return std::sqrt(SumOfSquares(data, size));
}

double VQ_Matrix::Norm(int j) const {
  if (j < 1 || j > cols) return 0.0;
  // The norm of the last column, whatever j is: the argument is only range-checked. This is the
  // library's long-standing behaviour and callers rely on it.
  if (HasGeneralLayout()) return std::sqrt(SumOfSquares(data + Pos(1, cols, rows), rows));
  double s = 0.0;
  for (int i = 1; i <= rows; ++i) {
    const double v = Value(i, cols);
    s += v * v;
  }
  return std::sqrt(s);
}

int VQ_Matrix::NumberOfNonZeroDiagonalTerms(double tol) const {
  const int n = std::min(rows, cols);
  int count = 0;
  for (int k = 1; k <= n; ++k)
    if (std::fabs(Value(k, k)) > tol) ++count;
  return count;
}

bool VQ_Matrix::GetListOfDiagonalTerms(double* out) const {
  if (NumRows() != NumCols()) return false;
  const int n = NumRows();
  for (int k = 1; k <= n; ++k) out[k - 1] = Value(k, k);
  return true;
}

// ================================================================================================
// Products and derived matrices
// ================================================================================================

VQ_Matrix VQ_Matrix::T() const {
  VQ_Matrix r(cols, rows);
  if (r.rows != cols || r.cols != rows || !r.data) return r;
  if (HasGeneralLayout()) {
    // Blocked transpose: both matrices are walked in cache-sized tiles.
    constexpr int kTile = 32;
    for (int j0 = 0; j0 < cols; j0 += kTile)
      for (int i0 = 0; i0 < rows; i0 += kTile) {
        const int j1 = std::min(cols, j0 + kTile), i1 = std::min(rows, i0 + kTile);
        for (int j = j0; j < j1; ++j)
          for (int i = i0; i < i1; ++i) r.data[static_cast<long long>(i) * cols + j] = data[static_cast<long long>(j) * rows + i];
      }
    return r;
  }
  for (int j = 1; j <= cols; ++j)
    for (int i = 1; i <= rows; ++i) r.data[Pos(j, i, cols)] = Value(i, j);
  return r;
}

VQ_Matrix VQ_Matrix::Squared() const {
  VQ_Matrix r(rows, cols);
  if (!r.data || !data) return r;
  const int n = std::min(size, r.size);
  for (int k = 0; k < n; ++k) r.data[k] = data[k] * data[k];
  return r;
}

void VQ_Matrix::PostMultiply(const VQ_Matrix& B, VQ_Matrix& P) const {
  const int m = rows, kdim = cols, n = B.cols;
  const bool match = (cols == B.rows);
  if (!match) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  if (m <= 0 || n <= 0) return;

  const bool rawOperands = HasGeneralLayout() && B.HasGeneralLayout();
  if (match && rawOperands && RawTarget(P, m, n)) {
    if (kdim == 0) {
      std::memset(P.data, 0, static_cast<size_t>(m) * n * sizeof(double));
      return;
    }
    // A product written over one of its own operands goes through a scratch block.
    const bool aliased = P.data == data || P.data == B.data;
    if (static_cast<long long>(m) * n * kdim >= kBlasProductThreshold) {
      WorkBuffer scratch(aliased ? static_cast<long long>(m) * n : 0);
      if (scratch.ok()) {
        double* target = aliased ? scratch.get() : P.data;
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, m, n, kdim, 1.0, data, m, B.data, kdim, 0.0, target, m);
        if (aliased) std::memcpy(P.data, target, static_cast<size_t>(m) * n * sizeof(double));
        return;
      }
    }
    // Inner products of row i of A and column j of B, k in increasing order, unrolled by four.
    for (int j = 0; j < n && !aliased; ++j) {
      const double* bj = B.data + static_cast<long long>(j) * kdim;
      double* pj = P.data + static_cast<long long>(j) * m;
      for (int i = 0; i < m; ++i) {
        const double* ai = data + i;
        double s = 0.0;
        int k = 0;
        for (; k + 4 <= kdim; k += 4)
          s += ai[static_cast<long long>(k) * m] * bj[k] + ai[static_cast<long long>(k + 1) * m] * bj[k + 1] +
               ai[static_cast<long long>(k + 2) * m] * bj[k + 2] + ai[static_cast<long long>(k + 3) * m] * bj[k + 3];
        for (; k < kdim; ++k) s += ai[static_cast<long long>(k) * m] * bj[k];
        pj[i] = s;
      }
    }
    if (!aliased) return;
  }

  // General case: sizes that disagree, packed operands or an irregular target. The product runs
  // over A.cols terms; column j of B is read as A.cols consecutive values of B's storage (its
  // column-major layout), terms beyond B's storage contribute nothing.
  GeneralView a(*this), b(B);
  WorkBuffer out(static_cast<long long>(m) * n);
  if (!a.ok() || !b.ok() || !out.ok()) {
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  const long long bsize = static_cast<long long>(B.rows) * B.cols;
  for (int j = 1; j <= n; ++j)
    for (int i = 1; i <= m; ++i) {
      double s = 0.0;
      for (int k = 1; k <= kdim; ++k) {
        const long long pb = Pos(k, j, B.rows);
        if (pb < bsize) s += a.at(i, k) * b.data()[pb];
      }
      out[Pos(i, j, m)] = s;
    }
  StoreBlock(P, m, n, out.get());
}

void VQ_Matrix::PreMultiply(const VQ_Matrix& B, VQ_Matrix& P) const { B.PostMultiply(*this, P); }

namespace {

// The symmetric products add a term only when both factors exceed machine epsilon in magnitude.
// Replacing every factor that fails the test (NaN included) by an exact zero gives the same sums,
// except where a zeroed factor would meet an infinity (0 * inf = NaN instead of a skipped term).
inline double KeptFactor(double v) { return std::fabs(v) > kMachineEpsilon ? v : 0.0; }

// Copies the r x c block of `src` (leading dimension ld) to dst with KeptFactor applied. Returns
// false when a kept value is infinite.
bool ThresholdedCopy(const double* src, int r, int c, int ld, double* dst) {
  bool finite = true;
  for (int j = 0; j < c; ++j) {
    const double* sj = src + static_cast<long long>(j) * ld;
    double* dj = dst + static_cast<long long>(j) * r;
    for (int i = 0; i < r; ++i) {
      dj[i] = KeptFactor(sj[i]);
      if (std::isinf(dj[i])) finite = false;
    }
  }
  return finite;
}

// Scans the r x c block of src (leading dimension ld): `changes` tells whether KeptFactor alters a
// value (a nonzero value of magnitude <= machine epsilon, or NaN), `finite` whether no value is
// infinite. Lets the products use the operand's own storage when no copy is needed.
void ScanFactors(const double* src, int r, int c, int ld, bool& changes, bool& finite) {
  changes = false;
  finite = true;
  for (int j = 0; j < c; ++j) {
    const double* sj = src + static_cast<long long>(j) * ld;
    for (int i = 0; i < r; ++i) {
      const double v = sj[i];
      if (v != 0.0 && !(std::fabs(v) > kMachineEpsilon)) changes = true;
      if (std::isinf(v)) finite = false;
    }
  }
}

// Upper triangle (column-major n x n, i <= j) of a symmetric matrix with KeptFactor applied, read
// from the packed storage or through Value. Returns false when a kept value is infinite.
bool UnpackUpperThresholded(const VQ_SymMatrix& s, int n, double* full) {
  const double* p = s.GetDataPointer();
  const bool packed = s.HasPackedLayout();
  bool finite = true;
  for (int j = 1; j <= n; ++j) {
    double* fj = full + Pos(1, j, n);
    const double* pj = packed ? p + static_cast<long long>(j - 1) * j / 2 : nullptr;
    for (int i = 1; i <= j; ++i) {
      const double v = KeptFactor(packed ? pj[i - 1] : s.Value(i, j));
      if (std::isinf(v)) finite = false;
      fj[i - 1] = v;
    }
  }
  return finite;
}

// Mirrors the upper triangle of a column-major n x n array into its lower triangle.
void MirrorUpper(int n, double* full) {
  for (int j = 1; j <= n; ++j)
    for (int i = j + 1; i <= n; ++i) full[Pos(i, j, n)] = full[Pos(j, i, n)];
}

}  // namespace

void VQ_Matrix::PostMultiply(const VQ_SymMatrix& S, VQ_Matrix& P) const {
  // P = A*S; a term A(i,k)*S(k,j) is added only when both factors exceed machine epsilon.
  const int m = rows, n = S.NumRows();
  if (cols != n) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  const int inner = std::min(cols, n);
  if (m <= 0 || n <= 0) return;
  GeneralView a(*this);
  if (!a.ok()) {
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  // A is used in place unless some of its factors must become zeros (then a thresholded copy).
  bool changesA = false, finiteA = true;
  if (inner > 0) ScanFactors(a.data(), m, inner, m, changesA, finiteA);
  const bool direct = RawTarget(P, m, n) && P.data != a.data();
  WorkBuffer full(static_cast<long long>(n) * n), at(changesA ? static_cast<long long>(m) * inner : 0),
      out(direct ? 0 : static_cast<long long>(m) * n);
  if (!full.ok() || !at.ok() || !out.ok()) {
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  const bool finiteS = UnpackUpperThresholded(S, n, full.get());
  if (changesA) ThresholdedCopy(a.data(), m, inner, m, at.get());
  const double* af = changesA ? at.get() : a.data();
  double* result = direct ? P.data : out.get();
  if (inner <= 0) {
    std::fill(result, result + static_cast<long long>(m) * n, 0.0);
  } else if (inner == n && finiteA && finiteS && static_cast<long long>(m) * n * inner >= kBlasProductThreshold) {
    // P = A' S' with S' symmetric (upper triangle referenced).
    cblas_dsymm(CblasColMajor, CblasRight, CblasUpper, m, n, 1.0, full.get(), n, af, m, 0.0, result, m);
  } else {
    MirrorUpper(n, full.get());
    // Term by term, k in increasing order; zeroed factors are the skipped terms.
    for (int j = 1; j <= n; ++j) {
      double* pj = result + Pos(1, j, m);
      std::fill(pj, pj + m, 0.0);
      const double* sj = full.get() + Pos(1, j, n);
      for (int k = 1; k <= inner; ++k) {
        const double s = sj[k - 1];
        if (s == 0.0) continue;
        const double* ak = af + Pos(1, k, m);
        for (int i = 0; i < m; ++i) pj[i] += (std::fabs(ak[i]) > kMachineEpsilon) ? ak[i] * s : 0.0;
      }
    }
  }
  if (!direct) StoreBlock(P, m, n, out.get());
}

void VQ_Matrix::PreMultiply(const VQ_SymMatrix& S, VQ_Matrix& P) const {
  // P = S*A with the same skipping of factors under machine epsilon.
  const int n = S.NumRows(), c = cols;
  if (rows != n) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  const int inner = std::min(rows, n);
  if (n <= 0 || c <= 0) return;
  GeneralView a(*this);
  if (!a.ok()) {
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  const int lda = a.rows;
  bool changesA = false, finiteA = true;
  if (inner > 0) ScanFactors(a.data(), inner, c, lda, changesA, finiteA);
  const bool direct = RawTarget(P, n, c) && P.data != a.data();
  WorkBuffer full(static_cast<long long>(n) * n), at(changesA ? static_cast<long long>(inner) * c : 0),
      out(direct ? 0 : static_cast<long long>(n) * c);
  if (!full.ok() || !at.ok() || !out.ok()) {
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  const bool finiteS = UnpackUpperThresholded(S, n, full.get());
  if (changesA) ThresholdedCopy(a.data(), inner, c, lda, at.get());
  const double* af = changesA ? at.get() : a.data();
  const int ldaf = changesA ? inner : lda;
  double* result = direct ? P.data : out.get();
  if (inner <= 0) {
    std::fill(result, result + static_cast<long long>(n) * c, 0.0);
  } else if (inner == n && finiteA && finiteS && static_cast<long long>(n) * c * inner >= kBlasProductThreshold) {
    // P = S' A' with S' symmetric (upper triangle referenced).
    cblas_dsymm(CblasColMajor, CblasLeft, CblasUpper, n, c, 1.0, full.get(), n, af, ldaf, 0.0, result, n);
  } else {
    MirrorUpper(n, full.get());
    for (int j = 1; j <= c; ++j) {
      double* pj = result + Pos(1, j, n);
      std::fill(pj, pj + n, 0.0);
      const double* aj = af + static_cast<long long>(j - 1) * ldaf;
      for (int k = 1; k <= inner; ++k) {
        const double av = aj[k - 1];
        if (!(std::fabs(av) > kMachineEpsilon)) continue;
        const double* sk = full.get() + Pos(1, k, n);
        for (int i = 0; i < n; ++i) pj[i] += (sk[i] != 0.0) ? sk[i] * av : 0.0;
      }
    }
  }
  if (!direct) StoreBlock(P, n, c, out.get());
}

void VQ_Matrix::PostMultiply(const VQ_DiagonalMatrix& D, VQ_Matrix& P) const {
  // P(i,j) = sum over k = 1..A.cols of A(i,k) * D(k,j), accumulated from 0.0 in increasing k.
  // D(k,j) is 0.0 off the diagonal, so the sum is 0.0 + A(i,j)*d_j unless another A(i,k) of the
  // row is infinite or NaN (0 * inf = NaN), which is evaluated exactly without the n^2 loop.
  const int m = rows, K = cols, n = D.NumCols();
  if (cols != D.NumRows()) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  if (m <= 0 || n <= 0) return;
  GeneralView a(*this);
  WorkBuffer out(static_cast<long long>(m) * n);
  WorkBuffer nonFinite(m);
  if (!a.ok() || !out.ok() || !nonFinite.ok()) {
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return;
  }
  const bool plainDiagonal = typeid(D) == typeid(VQ_DiagonalMatrix);
  if (!plainDiagonal) {
    // A kind derived from the diagonal with its own Value: the literal sum.
    for (int j = 1; j <= n; ++j)
      for (int i = 1; i <= m; ++i) {
        double s = 0.0;
        for (int k = 1; k <= K; ++k) s += a.at(i, k) * D.Value(k, j);
        out[Pos(i, j, m)] = s;
      }
    StoreBlock(P, m, n, out.get());
    return;
  }
  for (int i = 0; i < m; ++i) nonFinite[i] = 0.0;
  for (int k = 1; k <= K; ++k) {
    const double* ak = a.column(k);
    for (int i = 0; i < m; ++i)
      if (!std::isfinite(ak[i])) nonFinite[i] += 1.0;
  }
  for (int j = 1; j <= n; ++j) {
    const double dj = D.Value(j, j);
    double* pj = out.get() + Pos(1, j, m);
    const double* aj = j <= K ? a.column(j) : nullptr;
    for (int i = 0; i < m; ++i) {
      double others = nonFinite[i];
      double s = 0.0;
      if (aj) {
        if (!std::isfinite(aj[i])) others -= 1.0;
        s = 0.0 + aj[i] * dj;
      }
      pj[i] = others > 0.0 ? std::nan("") : s;
    }
  }
  StoreBlock(P, m, n, out.get());
}

void VQ_Matrix::PreMultiply(const VQ_DiagonalMatrix& D, VQ_Matrix& P) const {
  // Deliberately the same computation as PostMultiply: P = A*D, not D*A. Existing callers depend
  // on this behaviour.
  PostMultiply(D, P);
}

namespace {

// Orders from which the elimination is blocked.
constexpr int kBlockedInverseOrder = 96;
constexpr int kInverseBlock = 48;

// Gauss-Jordan elimination without pivoting on column-major W (n x n), applying every row
// operation to R (n x n, the identity on entry), then the final division of row k of R by W(k,k).
//
// The pivots are taken in blocks of nb. Within a block the n x nb panel W(:, K) is eliminated
// column by column exactly as the unblocked method does, recording the multipliers f_k. The block's
// row operations together are one matrix M = E_last ... E_first with E_k = I - f_k e_k', which
// differs from the identity only in the columns K; the rest of W and R is then updated at once by
// [W R] += (M(:, K) - I(:, K)) [W R](K, :) with dgemm. The result is the same elimination up to the
// order of rounding. While all multipliers are finite only the columns that can still change are
// updated (W to the right of the block, R up to its end); a non-finite multiplier switches to
// full-width updates so that infinities and NaNs spread as in the full elimination.
bool BlockedGaussJordan(int n, double* w, double* r) {
  const long long nn = n;
  const int nbMax = kInverseBlock;
  WorkBuffer f(nn * nbMax), x(nn * nbMax), rowsW(static_cast<long long>(nbMax) * n),
      rowsR(static_cast<long long>(nbMax) * n), pivotRow(nbMax);
  if (!f.ok() || !x.ok() || !rowsW.ok() || !rowsR.ok() || !pivotRow.ok()) return false;
  bool fullWidth = false;
  for (int k0 = 0; k0 < n; k0 += nbMax) {
    const int nb = std::min(nbMax, n - k0), k1 = k0 + nb;
    // Panel elimination on W(:, k0..k1-1).
    for (int kk = 0; kk < nb; ++kk) {
      const int k = k0 + kk;
      double* fk = f.get() + kk * nn;
      const double pivot = w[k * nn + k];
      for (int i = 0; i < n; ++i) {
        fk[i] = (i == k) ? 0.0 : w[k * nn + i] / pivot;
        if (!std::isfinite(fk[i])) fullWidth = true;
      }
      for (int q = fullWidth ? k0 : k; q < k1; ++q) {
        double* wq = w + q * nn;
        const double wkq = wq[k];
        for (int i = 0; i < n; ++i) wq[i] -= fk[i] * wkq;
        wq[k] = wkq;  // the pivot row itself is not touched
      }
    }
    // X = M(:, K) - I(:, K), composed step by step.
    for (int j = 0; j < nb; ++j)
      for (int i = 0; i < n; ++i) x[j * nn + i] = (i == k0 + j) ? 1.0 : 0.0;
    for (int kk = 0; kk < nb; ++kk) {
      const int k = k0 + kk;
      const double* fk = f.get() + kk * nn;
      for (int j = 0; j < nb; ++j) pivotRow[j] = x[j * nn + k];
      for (int j = 0; j < nb; ++j) {
        double* xj = x.get() + j * nn;
        const double pj = pivotRow[j];
        for (int i = 0; i < n; ++i) xj[i] -= fk[i] * pj;
        xj[k] = pj;
      }
    }
    for (int j = 0; j < nb; ++j) x[j * nn + k0 + j] -= 1.0;
    // Rows K of W and R, taken before the update. W is updated right of the block (and, once
    // full width, left of it too); the panel columns were eliminated above.
    const int rCols = fullWidth ? n : k1;
    auto updateW = [&](int from, int to) {
      const int count = to - from;
      if (count <= 0) return;
      for (int q = 0; q < count; ++q)
        for (int j = 0; j < nb; ++j) rowsW[static_cast<long long>(q) * nb + j] = w[(from + q) * nn + k0 + j];
      cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, count, nb, 1.0, x.get(), n, rowsW.get(), nb, 1.0,
                  w + from * nn, n);
    };
    updateW(k1, n);
    if (fullWidth) updateW(0, k0);
    for (int q = 0; q < rCols; ++q)
      for (int j = 0; j < nb; ++j) rowsR[static_cast<long long>(q) * nb + j] = r[q * nn + k0 + j];
    if (rCols > 0)
      cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, rCols, nb, 1.0, x.get(), n, rowsR.get(), nb, 1.0, r, n);
  }
  for (int q = 0; q < n; ++q)
    for (int i = 0; i < n; ++i) r[q * nn + i] /= w[i * nn + i];
  return true;
}

}  // namespace

VQ_Matrix VQ_Matrix::Inverse() const {
  // Gauss-Jordan elimination without pivoting on the full form read through Value. A zero pivot is
  // not detected: it produces infinities or NaNs.
  const int n = rows, mcols = cols;
  if (n != mcols) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  VQ_Matrix R;
  R.SetIdentityMatrix(n);
  if (n <= 0 || R.rows != n) return R;
  const long long nn = n;
  GeneralView a(*this);
  if (n >= kBlockedInverseOrder) {
    WorkBuffer w(nn * nn);
    if (!w.ok() || !a.ok()) {
      R.status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
      ReportNoMemory();
      return R;
    }
    // Columns beyond a narrower receiver are zero (they never occur for a square matrix).
    for (int q = 0; q < n; ++q)
      for (int i = 0; i < n; ++i) w[q * nn + i] = q < mcols ? a.at(i + 1, q + 1) : 0.0;
    if (BlockedGaussJordan(n, w.get(), R.data)) return R;
    R.SetIdentityMatrix(n);  // scratch allocation failed: fall back to the unblocked elimination
  }
  WorkBuffer w(nn * nn), r(nn * nn), f(n);
  if (!w.ok() || !r.ok() || !f.ok() || !a.ok()) {
    R.status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    ReportNoMemory();
    return R;
  }
  // Unblocked elimination. W and R are kept row-major so that the row operations run over
  // contiguous memory.
  for (int i = 0; i < n; ++i)
    for (int q = 0; q < n; ++q) {
      w[i * nn + q] = q < mcols ? a.at(i + 1, q + 1) : 0.0;
      r[i * nn + q] = (i == q) ? 1.0 : 0.0;
    }
  // While every multiplier stays finite, row k of R is zero beyond column k and the columns of W
  // before k are never read again, so the updates are restricted to W(:, k..n) and R(:, 1..k);
  // the first non-finite multiplier switches to full-width updates, which propagate the
  // infinities and NaNs exactly as the full elimination does.
  bool fullWidth = false;
  for (int k = 0; k < n; ++k) {
    const double* wk = w.get() + k * nn;
    const double* rk = r.get() + k * nn;
    const double pivot = wk[k];
    for (int i = 0; i < n; ++i) {
      f[i] = (i == k) ? 0.0 : w[i * nn + k] / pivot;
      if (!std::isfinite(f[i])) fullWidth = true;
    }
    const int wFrom = fullWidth ? 0 : k;
    const int rTo = fullWidth ? n : k + 1;
    for (int i = 0; i < n; ++i) {
      if (i == k) continue;
      const double fi = f[i];
      double* wi = w.get() + i * nn;
      double* ri = r.get() + i * nn;
      for (int q = wFrom; q < n; ++q) wi[q] -= fi * wk[q];
      for (int q = 0; q < rTo; ++q) ri[q] -= fi * rk[q];
    }
  }
  for (int k = 0; k < n; ++k) {
    const double pivot = w[k * nn + k];
    for (int q = 0; q < n; ++q) R.data[q * nn + k] = r[k * nn + q] / pivot;
  }
  return R;
}

bool VQ_Matrix::ObtainOrthogonalizedForm(bool check) {
  const int n = rows, m = cols;
  if (m >= 1 && n >= 1) {
    GeneralView view(*this);
    if (!view.ok()) {
      status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
      ReportNoMemory();
      return false;
    }
    double* q = const_cast<double*>(view.data());  // own storage, or a scratch copy written back
    // Modified Gram-Schmidt: column j is reduced against the finished columns 1..j-1 in order,
    // each dot product taken with the current (partly reduced) column j.
    for (int j = 0; j < m; ++j) {
      double* cj = q + static_cast<long long>(j) * n;
      for (int k = 0; k < j; ++k) {
        const double* ck = q + static_cast<long long>(k) * n;
        const double d = cblas_ddot(n, ck, 1, cj, 1);
        cblas_daxpy(n, -d, ck, 1, cj, 1);
      }
      const double norm = std::sqrt(cblas_ddot(n, cj, 1, cj, 1));
      for (int i = 0; i < n; ++i) cj[i] /= norm;
    }
    if (!HasGeneralLayout())
      for (int j = 1; j <= m; ++j)
        for (int i = 1; i <= n; ++i) Ref(i, j) = view.at(i, j);
  }
  if (!check || m < 1) return true;

  // Orthonormality check: every column i against the partners k = 1..cols-1 (the last column is
  // never a partner; the bound is kept as it always was). With one column nothing is checked.
  GeneralView view(*this);
  WorkBuffer g(static_cast<long long>(m) * m);
  auto accept = [](int i, int k, double d) {
    return i == k ? (d > 0.99999 && d < 1.00001) : (d > -1e-5 && d < 1e-5);
  };
  if (view.ok() && g.ok() && n >= 1) {
    // G = Q'Q, upper triangle: covers every pair (k < i) and the diagonal.
    cblas_dsyrk(CblasColMajor, CblasUpper, CblasTrans, m, n, 1.0, view.data(), n, 0.0, g.get(), m);
    for (int i = 1; i <= m; ++i)
      for (int k = 1; k <= m - 1; ++k) {
        const int lo = std::min(i, k), hi = std::max(i, k);
        if (!accept(i, k, g[Pos(lo, hi, m)])) return false;
      }
    return true;
  }
  for (int i = 1; i <= m; ++i)
    for (int k = 1; k <= m - 1; ++k) {
      double d = 0.0;
      for (int r = 1; r <= n; ++r) d += Value(r, k) * Value(r, i);
      if (!accept(i, k, d)) return false;
    }
  return true;
}

void VQ_Matrix::PrintMessage(const char* text) { std::cout << (text ? text : "") << std::endl; }

void VQ_Matrix::PrintMessage2(char* text, int n) {
  if (!text) return;
  std::sprintf(text + std::strlen(text), "%d", n);
  std::cout << text << std::endl;
}

// ================================================================================================
// Member operators
// ================================================================================================

VQ_Matrix VQ_Matrix::operator+() const { return VQ_Matrix(*this); }

VQ_Matrix VQ_Matrix::operator-() const {
  VQ_Matrix r(rows, cols);
  if (!r.data) return r;
  if (HasGeneralLayout()) {
    const long long n = static_cast<long long>(rows) * cols;
    for (long long k = 0; k < n; ++k) r.data[k] = -data[k];
    return r;
  }
  for (int j = 1; j <= cols; ++j)
    for (int i = 1; i <= rows; ++i) r.data[Pos(i, j, rows)] = -Value(i, j);
  return r;
}

namespace {

// this(i,j) op= B.Value(i,j) over B's sizes. In the general layout an element is addressed by its
// column-major position, which must lie inside this object's storage; other kinds are addressed
// through Ref within their sizes.
template <typename Op>
void AccumulateOver(VQ_Matrix& self, const VQ_Matrix& b, Op op) {
  const int br = b.NumRows(), bc = b.NumCols();
  if (br <= 0 || bc <= 0) return;
  GeneralView bv(b);
  if (!bv.ok()) return;
  if (self.HasGeneralLayout()) {
    double* p = self.GetDataPointer();
    const long long limit = self.GetSizeAllocated();
    const int ld = self.NumRows();
    for (int j = 1; j <= bc; ++j)
      for (int i = 1; i <= br; ++i) {
        const long long pos = Pos(i, j, ld);
        if (pos >= 0 && pos < limit) p[pos] = op(p[pos], bv.at(i, j));
      }
    return;
  }
  const int r = std::min(br, self.NumRows()), c = std::min(bc, self.NumCols());
  for (int j = 1; j <= c; ++j)
    for (int i = 1; i <= r; ++i) self.Ref(i, j) = op(self.Value(i, j), bv.at(i, j));
}

}  // namespace

VQ_Matrix& VQ_Matrix::operator+=(const VQ_Matrix& B) {
  if (B.NumRows() != NumRows()) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  if (B.NumCols() != NumCols()) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  AccumulateOver(*this, B, [](double x, double y) { return x + y; });
  return *this;
}

VQ_Matrix& VQ_Matrix::operator-=(const VQ_Matrix& B) {
  if (B.NumRows() != NumRows()) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  if (B.NumCols() != NumCols()) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
  AccumulateOver(*this, B, [](double x, double y) { return x - y; });
  return *this;
}

VQ_Matrix& VQ_Matrix::operator*=(double s) {
  if (!data) return *this;
  const long long n = std::min<long long>(static_cast<long long>(rows) * cols, size);
  for (long long k = 0; k < n; ++k) data[k] *= s;
  return *this;
}

VQ_Matrix& VQ_Matrix::operator/=(double s) {
  // The general matrix flags only divisors under the smallest normal double; the symmetric,
  // diagonal and vector kinds use machine epsilon. Both bounds are intended.
  if (std::fabs(s) < kSmallestNormal) status = MATLIBDLLCOMMONS::STATUS_DIVISION_BY_ZERO;
  return *this *= (1.0 / s);
}

// ================================================================================================
// Files
// ================================================================================================

void VQ_Matrix::StoreIn_MTX_Format(FILE* f, bool skipZeros) const {
  if (!f) return;
  const int r = NumRows(), c = NumCols();
  long long count = 0;
  if (skipZeros) {
    for (int i = 1; i <= r; ++i)
      for (int j = 1; j <= c; ++j)
        if (std::fabs(Value(i, j)) > kSmallestNormal) ++count;
  } else {
    count = static_cast<long long>(r) * c;
  }
  std::fprintf(f, "%%%%MatrixMarket matrix coordinate real general \n");
  std::fprintf(f, "%d \t %d \t %d \n", r, c, static_cast<int>(count));
  for (int i = 1; i <= r; ++i)
    for (int j = 1; j <= c; ++j) {
      const double v = Value(i, j);
      if (skipZeros && !(std::fabs(v) > kSmallestNormal)) continue;
      std::fprintf(f, "%d \t %d \t %10.18f \n", i, j, v);
    }
}

bool VQ_Matrix::ReadIn_MTX_Format(const char* path, bool verbose) {
  try {
    vqdense::MtxReader reader(path);
    if (!reader.is_open()) {
      status = MATLIBDLLCOMMONS::STATUS_FILE_NOT_FOUND;
      if (verbose) std::cout << ">>>>>>> File Not Found : " << (path ? path : "") << "  <<<<<< \n" << std::endl;
      return false;
    }
    long long r = 0, c = 0, count = 0;
    if (!reader.ReadSizeLine(r, c, count)) return false;
    Redimension(vqdense::MtxReader::ClampSize(r), vqdense::MtxReader::ClampSize(c), 0.0);
    const int nr = NumRows(), nc = NumCols();
    long long i = 0, j = 0;
    double v = 0.0;
    for (long long e = 0; e < count && reader.ReadEntry(i, j, v); ++e) {
      if (i < 1 || j < 1 || i > nr || j > nc) continue;  // outside the declared size: skipped
      Ref(static_cast<int>(i), static_cast<int>(j)) = v;
    }
    return true;
  } catch (...) {
    // Only an allocation inside the line reader can throw here.
    status = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
    return false;
  }
}

void VQ_Matrix::print(const char* path, int append, bool scientific) const {
  if (!path) return;
  FILE* f = std::fopen(path, append == 0 ? "w" : "a");
  if (!f) return;
  const int r = NumRows(), c = NumCols();
  std::fprintf(f, "\nMatrix Type = %s \t NumRows: %d \t  NumCols: %d \n", GetMatrixType().c_str(), r, c);
  std::fprintf(f, "\n{");
  for (int i = 1; i <= r; ++i) {
    std::fprintf(f, "{");
    for (int j = 1; j <= c; ++j) {
      const double v = Value(i, j);
      if (j < c) {
        std::fprintf(f, scientific ? "%e , " : "%12.8f , ", v);
        std::fprintf(f, " ");
      } else {
        std::fprintf(f, scientific ? "%e " : "%12.8f ", v);
      }
    }
    std::fprintf(f, "},\n");
  }
  std::fprintf(f, "}\n");
  std::fclose(f);
}

namespace {

void ReportFile(bool verbose, const char* what, const std::string& path) {
  if (verbose) std::cout << ">>>>>>> " << what << " : " << path << "  <<<<<< \n" << std::endl;
}

}  // namespace

bool VQ_Matrix::WriteToFile(const char* base, bool verbose) const {
  const std::string stem = base ? base : "";
  const std::string headerPath = stem + "1.dat", valuesPath = stem + "2.dat";
  FILE* h = std::fopen(headerPath.c_str(), "wb");
  if (!h) {
    status = MATLIBDLLCOMMONS::STATUS_FILE_NOT_FOUND;
    ReportFile(verbose, "Cannot Open File", headerPath);
    return false;
  }
  const int header[6] = {rows, cols, size, static_cast<int>(type), static_cast<int>(status), shallow ? 1 : 0};
  const bool headerOk = std::fwrite(header, sizeof(int), 6, h) == 6;
  const bool headerClosed = std::fclose(h) == 0;
  FILE* v = std::fopen(valuesPath.c_str(), "wb");
  if (!v) {
    status = MATLIBDLLCOMMONS::STATUS_FILE_NOT_FOUND;
    ReportFile(verbose, "Cannot Open File", valuesPath);
    return false;
  }
  bool valuesOk = true;
  if (size > 0 && data) valuesOk = std::fwrite(data, sizeof(double), static_cast<size_t>(size), v) == static_cast<size_t>(size);
  const bool valuesClosed = std::fclose(v) == 0;
  return headerOk && headerClosed && valuesOk && valuesClosed;
}

bool VQ_Matrix::ReadFromFile(const char* base, bool verbose, bool removeFiles) {
  const std::string stem = base ? base : "";
  const std::string headerPath = stem + "1.dat", valuesPath = stem + "2.dat";
  FILE* h = std::fopen(headerPath.c_str(), "rb");
  if (!h) {
    status = MATLIBDLLCOMMONS::STATUS_FILE_NOT_FOUND;
    ReportFile(verbose, "File Not Found", headerPath);
    return false;
  }
  int header[6] = {0, 0, 0, 0, 0, 0};
  const bool headerOk = std::fread(header, sizeof(int), 6, h) == 6;
  std::fclose(h);
  FILE* v = std::fopen(valuesPath.c_str(), "rb");
  if (!v) {
    status = MATLIBDLLCOMMONS::STATUS_FILE_NOT_FOUND;
    ReportFile(verbose, "File Not Found", valuesPath);
    return false;
  }
  // The snapshot is accepted only when its header is complete and the value file holds exactly
  // `size` doubles; anything else leaves this object untouched.
  long long bytes = -1;
  if (std::fseek(v, 0, SEEK_END) == 0) bytes = std::ftell(v);
  std::rewind(v);
  if (!headerOk || header[0] < 0 || header[1] < 0 || header[2] < 0 ||
      bytes != static_cast<long long>(header[2]) * static_cast<long long>(sizeof(double))) {
    std::fclose(v);
    return false;
  }
  Redimension(header[0], header[1], 0.0);
  if (size != header[2] || NumRows() != header[0]) {
    // The snapshot was taken from another storage kind than this object's.
    std::fclose(v);
    if (status == MATLIBDLLCOMMONS::STATUS_OK) status = MATLIBDLLCOMMONS::STATUS_DIMENSION_MISMATCH;
    return false;
  }
  const bool valuesOk = size == 0 || std::fread(data, sizeof(double), static_cast<size_t>(size), v) == static_cast<size_t>(size);
  std::fclose(v);
  if (!valuesOk) return false;
  type = static_cast<MATRIX_TYPE>(header[3]);
  status = static_cast<STATE_STATUS>(header[4]);
  shallow = header[5] != 0;
  if (removeFiles) {
    std::remove(headerPath.c_str());
    std::remove(valuesPath.c_str());
  }
  return true;
}

// ================================================================================================
// Free operators
// ================================================================================================

VQ_Matrix operator+(const VQ_Matrix& a, const VQ_Matrix& b) {
  VQ_Matrix r(a);
  r += b;
  return r;
}

VQ_Matrix operator-(const VQ_Matrix& a, const VQ_Matrix& b) {
  VQ_Matrix r(a);
  r -= b;
  return r;
}

VQ_Matrix operator*(const VQ_Matrix& a, const VQ_Matrix& b) {
  VQ_Matrix r(a.NumRows(), b.NumCols());
  a.PostMultiply(b, r);
  return r;
}

VQ_Matrix operator*(const VQ_Matrix& a, double s) {
  VQ_Matrix r(a);
  r *= s;
  return r;
}

VQ_Matrix operator*(double s, const VQ_Matrix& a) { return a * s; }

VQ_Matrix operator/(const VQ_Matrix& a, double s) {
  VQ_Matrix r(a);
  r /= s;
  return r;
}
