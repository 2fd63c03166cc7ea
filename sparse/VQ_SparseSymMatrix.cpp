// VQ_SparseSymMatrix.cpp - storage, building, assembly and element access of the sparse symmetric
// matrix (upper triangle, 1-based compressed rows, diagonal first in every row).
//
// Ownership: the value, row pointer and column arrays live in reference-counted blocks
// (SharedArray.h) that shallow copies share. The base class's `data` is only a view of
// the value block; the object keeps the base's `shallow` mark set so that no base-class path ever
// frees that view, and clears the view itself before the block changes.

#include "sparse/VQ_SparseSymMatrix.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstring>
#include <iostream>
#include <new>

#include "sparse/internal/SymUpperProduct.h"
#include "sparse/internal/TextIO.h"

namespace MC = MATLIBDLLCOMMONS;
using vqmath::internal::SharedArray;

namespace {

constexpr double kMachineEpsilon = 2.220446049250313e-16;
constexpr int kInvalidSparseMatrixCreation = -66;

// Target of Ref(): writes through it never reach a matrix.
double g_refScratch = 0.0;

void ReportLine(const char* text) { std::cout << text << std::endl; }

}  // namespace

// ================================================================================================
// Building
// ================================================================================================

VQ_SparseSymMatrix::VQ_SparseSymMatrix() : VQ_SymMatrix() {
  type = MC::SYM_SPARSE_MATRIX;
  rows = cols = size = 0;
  data = nullptr;
  // `data` will only ever be a view of valueBlock_: the mark keeps base-class paths from freeing
  // it.
  shallow = true;
}

VQ_SparseSymMatrix::VQ_SparseSymMatrix(int n) : VQ_SparseSymMatrix() {
  rows = cols = std::max(n, 0);
}

VQ_SparseSymMatrix::VQ_SparseSymMatrix(int n, const double* values, const int* rowptr,
                                       const int* colidx)
    : VQ_SparseSymMatrix() {
  if (n < 0 || !rowptr) {
    SetStatus(kInvalidSparseMatrixCreation);
    return;
  }
  const int nnz = rowptr[n] - 1;
  if (nnz < 0 || (nnz > 0 && (!values || !colidx))) {
    SetStatus(kInvalidSparseMatrixCreation);
    return;
  }
  rows = cols = n;
  size = nnz;
  if (Initialize(0.0)) CopyData(values, colidx, rowptr);
}

VQ_SparseSymMatrix::VQ_SparseSymMatrix(VQ_Matrix* a) : VQ_SparseSymMatrix() {
  if (a) SetEqualTo(a);
}

VQ_SparseSymMatrix::VQ_SparseSymMatrix(VQ_DiagonalMatrix* d) : VQ_SparseSymMatrix() {
  if (!d || d->NumRows() != d->GetSizeAllocated()) return;
  SetEqualTo(d);
}

VQ_SparseSymMatrix::VQ_SparseSymMatrix(const VQ_SparseSymMatrix& other) : VQ_SparseSymMatrix() {
  rows = other.rows;
  cols = other.cols;
  size = other.size;
  valueBlock_ = other.valueBlock_;
  rowBlock_ = other.rowBlock_;
  colBlock_ = other.colBlock_;
  data = valueBlock_.Get();
  rowptr_ = rowBlock_.Get();
  colidx_ = colBlock_.Get();
}

VQ_SparseSymMatrix& VQ_SparseSymMatrix::operator=(const VQ_SparseSymMatrix& other) {
  if (this == &other) return *this;
  DetachData();
  valueBlock_ = other.valueBlock_;
  rowBlock_ = other.rowBlock_;
  colBlock_ = other.colBlock_;
  data = valueBlock_.Get();
  rowptr_ = rowBlock_.Get();
  colidx_ = colBlock_.Get();
  shallow = true;
  rows = other.rows;
  cols = other.cols;
  size = other.size;
  return *this;
}

VQ_SparseSymMatrix::~VQ_SparseSymMatrix() {
  ReleaseMemory();
  for (const auto& entry : fileList_) std::remove(entry.second.c_str());
}

void VQ_SparseSymMatrix::DetachData() {
  if (data && data == valueBlock_.Get()) {
    data = nullptr;
  } else if (data) {
    // Storage installed by a base-class path (never by this class): the base knows how to free it.
    FreeValueStorage();
  }
}

void VQ_SparseSymMatrix::DropArrays() {
  DetachData();
  valueBlock_.Reset();
  rowBlock_.Reset();
  colBlock_.Reset();
  rowptr_ = nullptr;
  colidx_ = nullptr;
  shallow = true;
}

void VQ_SparseSymMatrix::Adopt(int n, SharedArray<double> values, SharedArray<int> rowptr,
                               SharedArray<int> colidx) {
  DetachData();
  valueBlock_ = std::move(values);
  rowBlock_ = std::move(rowptr);
  colBlock_ = std::move(colidx);
  data = valueBlock_.Get();
  rowptr_ = rowBlock_.Get();
  colidx_ = colBlock_.Get();
  shallow = true;
  rows = cols = n;
  size = static_cast<int>(valueBlock_.Count());
}

void VQ_SparseSymMatrix::SyncPointers() {
  DetachData();
  data = valueBlock_.Get();
  rowptr_ = rowBlock_.Get();
  colidx_ = colBlock_.Get();
  shallow = true;
}

int VQ_SparseSymMatrix::HeldRows() const {
  if (!rowptr_) return 0;
  const std::int64_t held = rowBlock_.Count() - 1;
  return static_cast<int>(std::max<std::int64_t>(0, std::min<std::int64_t>(rows, held)));
}

int VQ_SparseSymMatrix::HeldEntries() const {
  std::int64_t n = std::max(size, 0);
  n = std::min(n, valueBlock_.Count());
  n = std::min(n, colBlock_.Count());
  return static_cast<int>(n);
}

void VQ_SparseSymMatrix::RowRange(int i, int& begin, int& end) const {
  const int held = HeldEntries();
  begin = std::min(std::max(rowptr_[i - 1] - 1, 0), held);
  end = std::min(std::max(rowptr_[i] - 1, begin), held);
}

bool VQ_SparseSymMatrix::Initialize(double v) {
  const int n = std::max(rows, 0);
  const int nnz = std::max(size, 0);
  SharedArray<double> values = SharedArray<double>::Allocate(nnz);
  SharedArray<int> rowptr = SharedArray<int>::Allocate(static_cast<std::int64_t>(n) + 1);
  SharedArray<int> colidx = SharedArray<int>::Allocate(nnz);
  if (!values || !rowptr || !colidx) {
    DropArrays();
    rows = cols = size = 0;
    SetStatus(MC::STATUS_NO_MEMORY);
    ReportLine(">>>>>>> Cannot Allocate Memory !..... <<<<<< ");
    return false;
  }
  std::fill(values.Get(), values.Get() + nnz, v);
  std::fill(rowptr.Get(), rowptr.Get() + n + 1, 0);
  std::fill(colidx.Get(), colidx.Get() + nnz, 0);
  Adopt(n, std::move(values), std::move(rowptr), std::move(colidx));
  SetStatus(MC::STATUS_OK);
  return true;
}

void VQ_SparseSymMatrix::CopyData(const double* values, const int* colidx, const int* rowptr) {
  const int nnz = HeldEntries();
  if (values && data && nnz > 0)
    std::memcpy(data, values, sizeof(double) * static_cast<size_t>(nnz));
  if (colidx && colidx_ && nnz > 0)
    std::memcpy(colidx_, colidx, sizeof(int) * static_cast<size_t>(nnz));
  if (rowptr && rowptr_) {
    const std::int64_t count =
        std::min<std::int64_t>(static_cast<std::int64_t>(rows) + 1, rowBlock_.Count());
    std::memcpy(rowptr_, rowptr, sizeof(int) * static_cast<size_t>(count));
  }
}

namespace {
// Entries of a's upper triangle that a sparse copy keeps (64-bit so that huge dense inputs are
// detected instead of overflowing).
std::int64_t CountKept(VQ_Matrix* a) {
  const int n = a->NumRows();
  std::int64_t count = 0;
  for (int i = 1; i <= n; ++i)
    for (int j = i; j <= n; ++j)
      if (i == j || std::fabs(a->Value(i, j)) > kMachineEpsilon) ++count;
  return count;
}
}  // namespace

int VQ_SparseSymMatrix::CountNonzeroTerms(VQ_Matrix* a) {
  if (!a) return 0;
  return static_cast<int>(std::min<std::int64_t>(CountKept(a), INT_MAX));
}

int VQ_SparseSymMatrix::SetEqualTo(VQ_Matrix* a) {
  if (!a) return -1;
  if (a == this) return 0;
  // Fast paths that give exactly what the element walk below gives, in O(nnz) instead of O(n^2):
  // a diagonal matrix, and a sparse matrix whose rows are in the canonical layout.
  if (auto* d = dynamic_cast<VQ_DiagonalMatrix*>(a)) {
    if (d->NumRows() == d->GetSizeAllocated()) return SetEqualTo(d);
  }
  if (auto* s = dynamic_cast<VQ_SparseSymMatrix*>(a)) {
    if (s->HasCanonicalLayout()) return ThinCopyOf(s);
  }
  if (a->NumRows() != a->NumCols()) {
    SetStatus(MC::STATUS_DIMENSION_MISMATCH);
    return -1;
  }
  ReleaseMemory();
  const int n = std::max(a->NumRows(), 0);
  const std::int64_t kept = CountKept(a);
  rows = cols = n;
  if (kept > INT_MAX) {
    rows = cols = size = 0;
    SetStatus(MC::STATUS_NO_MEMORY);
    ReportLine(">>>>>>> Cannot Allocate Memory !..... <<<<<< ");
    return -1;
  }
  size = static_cast<int>(kept);
  if (!Initialize(0.0)) return -1;
  int pos = 0;
  for (int i = 1; i <= n; ++i) {
    for (int j = i; j <= n; ++j) {
      const double v = a->Value(i, j);
      if (i != j && !(std::fabs(v) > kMachineEpsilon)) continue;
      if (i == j) rowptr_[i - 1] = pos + 1;
      data[pos] = v;
      colidx_[pos] = j;
      ++pos;
    }
  }
  rowptr_[n] = n > 0 ? rowptr_[n - 1] + 1 : 1;
  return 0;
}

bool VQ_SparseSymMatrix::HasCanonicalLayout() const {
  const int n = rows;
  if (n < 0 || HeldRows() < n || rowptr_[0] != 1 || rowptr_[n] - 1 != size || HeldEntries() < size)
    return false;
  for (int i = 1; i <= n; ++i) {
    const int begin = rowptr_[i - 1] - 1, end = rowptr_[i] - 1;
    if (end <= begin || colidx_[begin] != i) return false;
    for (int k = begin + 1; k < end; ++k)
      if (colidx_[k] <= colidx_[k - 1] || colidx_[k] > n) return false;
  }
  return true;
}

int VQ_SparseSymMatrix::ThinCopyOf(const VQ_SparseSymMatrix* s) {
  // Same selection as the dense walk: the diagonal always, other entries above machine epsilon.
  // s may share its arrays with this object: hold them while this object lets go of its own.
  const SharedArray<double> sv = s->valueBlock_;
  const SharedArray<int> sr = s->rowBlock_, sc = s->colBlock_;
  const int n = s->rows;
  const double* v = sv.Get();
  const int* rp = sr.Get();
  const int* ci = sc.Get();
  std::int64_t kept = 0;
  for (int i = 1; i <= n; ++i)
    for (int k = rp[i - 1] - 1; k < rp[i] - 1; ++k)
      if (ci[k] == i || std::fabs(v[k]) > kMachineEpsilon) ++kept;
  ReleaseMemory();
  rows = cols = n;
  size = static_cast<int>(kept);
  if (!Initialize(0.0)) return -1;
  int pos = 0;
  for (int i = 1; i <= n; ++i) {
    rowptr_[i - 1] = pos + 1;
    for (int k = rp[i - 1] - 1; k < rp[i] - 1; ++k) {
      if (ci[k] != i && !(std::fabs(v[k]) > kMachineEpsilon)) continue;
      data[pos] = v[k];
      colidx_[pos] = ci[k];
      ++pos;
    }
  }
  rowptr_[n] = n > 0 ? rowptr_[n - 1] + 1 : 1;
  return 0;
}

int VQ_SparseSymMatrix::SetEqualTo(VQ_SparseSymMatrix* s) {
  if (!s) return -1;
  if (s == this) return 0;
  // s may share its arrays with this object: its own references keep them alive meanwhile.
  DropArrays();
  const int n = std::max(s->rows, 0);
  rows = cols = n;
  size = 0;
  if (!s->rowptr_ || s->HeldRows() < n) {
    // Nothing finished to copy (a sized object awaiting assembly): same order, no arrays.
    return 0;
  }
  const int nnz = s->rowptr_[n] - 1;
  if (nnz < 0 || nnz > s->HeldEntries()) {
    rows = cols = 0;
    SetStatus(kInvalidSparseMatrixCreation);
    return -1;
  }
  size = nnz;
  if (!Initialize(0.0)) return -1;
  CopyData(s->data, s->colidx_, s->rowptr_);
  return 0;
}

int VQ_SparseSymMatrix::SetEqualTo(VQ_DiagonalMatrix* d) {
  if (!d) return -1;
  const int n = d->NumRows();
  if (n != d->GetSizeAllocated() || n < 0) {
    SetStatus(MC::STATUS_DIMENSION_MISMATCH);
    return -1;
  }
  rows = cols = size = n;
  if (!Initialize(0.0)) return -1;
  const double* dv = d->GetDataPointer();
  for (int i = 1; i <= n; ++i) {
    data[i - 1] = dv ? dv[i - 1] : d->Value(i, i);
    colidx_[i - 1] = i;
    rowptr_[i - 1] = i;
  }
  rowptr_[n] = n > 0 ? rowptr_[n - 1] + 1 : 1;
  return 0;
}

void VQ_SparseSymMatrix::SetBounds(int n) { rows = cols = n; }

void VQ_SparseSymMatrix::SetValue(double v) {
  const int nnz = HeldEntries();
  if (data) std::fill(data, data + nnz, v);
}

void VQ_SparseSymMatrix::Redimension(int, int, double) {}

void VQ_SparseSymMatrix::ClearBuffer() {
  buffer_.clear();
  hint_ = buffer_.end();
  bufferPool_.release();
}

void VQ_SparseSymMatrix::ClearWork() {
  workValues_.clear();
  workRowPointers_.clear();
  workColumns_.clear();
}

void VQ_SparseSymMatrix::ReleaseMemory() {
  DropArrays();
  rows = cols = size = 0;
  ClearBuffer();
  std::vector<double>().swap(workValues_);
  std::vector<int>().swap(workRowPointers_);
  std::vector<int>().swap(workColumns_);
  assemblyOutOfMemory_ = false;
}

// ================================================================================================
// Element access
// ================================================================================================

int VQ_SparseSymMatrix::FindLoc(int i, int j) const {
  if (i > rows) return -1;
  while (i >= 1) {
    if (j >= i) break;
    std::swap(i, j);
    if (i > rows) return -1;
  }
  if (i < 1 || i > HeldRows()) return -1;
  int begin = 0, end = 0;
  RowRange(i, begin, end);
  for (int k = begin; k < end; ++k)
    if (colidx_[k] == j) return k;
  return -1;
}

double VQ_SparseSymMatrix::Value(int i, int j) const {
  const int loc = FindLoc(i, j);
  return loc < 0 ? 0.0 : data[loc];
}

double& VQ_SparseSymMatrix::Ref(int, int) {
  g_refScratch = 0.0;
  return g_refScratch;
}

double VQ_SparseSymMatrix::Value_(int i, int j) const { return Value(i, j); }

double& VQ_SparseSymMatrix::Ref_(int i, int j) { return Ref(i, j); }

bool VQ_SparseSymMatrix::Set(int i, int j, const double& v) {
  const int loc = FindLoc(i, j);
  if (loc < 0) return false;
  data[loc] = v;
  return true;
}

bool VQ_SparseSymMatrix::CopyPointers(double** values, int** rowptr, int** colidx) const {
  if (!values || !rowptr || !colidx) return false;
  const int nnz = HeldEntries();
  const int n = std::max(rows, 0);
  double* v = new (std::nothrow) double[static_cast<size_t>(nnz)];
  int* r = new (std::nothrow) int[static_cast<size_t>(n) + 1];
  int* c = new (std::nothrow) int[static_cast<size_t>(nnz)];
  if (!v || !r || !c) {
    delete[] v;
    delete[] r;
    delete[] c;
    return false;
  }
  if (nnz > 0) {
    std::memcpy(v, data, sizeof(double) * static_cast<size_t>(nnz));
    std::memcpy(c, colidx_, sizeof(int) * static_cast<size_t>(nnz));
  }
  std::fill(r, r + n + 1, 0);
  if (rowptr_) std::memcpy(r, rowptr_, sizeof(int) * static_cast<size_t>(HeldRows() + 1));
  *values = v;
  *rowptr = r;
  *colidx = c;
  return true;
}

bool VQ_SparseSymMatrix::GetListOfDiagonalTerms(double* out, int n) const {
  if (n != rows || !out) return false;
  for (int i = 1; i <= n; ++i) out[i - 1] = Value(i, i);
  return true;
}

int VQ_SparseSymMatrix::CountNonZeroDiagonalTerms(double tol) const {
  int count = 0;
  for (int i = 1; i <= rows; ++i)
    if (std::fabs(Value(i, i)) > tol) ++count;
  return count;
}

bool VQ_SparseSymMatrix::IsSparseMatrixDiagonal() const { return size == rows && size == cols; }

bool VQ_SparseSymMatrix::CheckSparsity(const VQ_SparseSymMatrix* b) const {
  if (!b) return false;
  if (size != b->size || rows != b->rows || cols != b->cols) return false;
  if (rowptr_ == b->rowptr_ && colidx_ == b->colidx_) return true;  // shared arrays
  const int n = std::max(rows, 0);
  if (!rowptr_ || !b->rowptr_) return !rowptr_ && !b->rowptr_ && size == 0;
  if (HeldRows() < n || b->HeldRows() < n) return false;
  if (std::memcmp(rowptr_, b->rowptr_, sizeof(int) * (static_cast<size_t>(n) + 1)) != 0)
    return false;
  const int nnz = std::max(size, 0);
  if (HeldEntries() < nnz || b->HeldEntries() < nnz) return false;
  return nnz == 0 || std::memcmp(colidx_, b->colidx_, sizeof(int) * static_cast<size_t>(nnz)) == 0;
}

double VQ_SparseSymMatrix::ReturnMemoryUsage() const {
  const double n = rows, nnz = size;
  return ((n + 1.0) * 4.0 + nnz * 8.0 + nnz * 4.0) / 1e6;
}

// ================================================================================================
// Assembly
// ================================================================================================

void VQ_SparseSymMatrix::BeginMatrix() {
  ClearBuffer();
  ClearWork();
  assemblyOutOfMemory_ = false;
}

bool VQ_SparseSymMatrix::Add(int i, int j, const double& v) {
  // Key (r-1)*n + (c-r): ascending keys visit the upper triangle row by row, columns ascending,
  // and key mod n is 0 exactly on the diagonal.
  const std::int64_t n = rows;
  const std::int64_t r = std::min(i, j), c = std::max(i, j);
  const std::int64_t key = (r - 1) * n + (c - r);
  // The entry touched last, or the one after it, is checked before searching the tree (the three
  // equations of a node are neighbours in the key order).
  auto it = buffer_.end();
  if (hint_ != buffer_.end()) {
    if (hint_->first == key) {
      it = hint_;
    } else if (hint_->first < key) {
      auto next = std::next(hint_);
      if (next == buffer_.end() || next->first >= key) it = next;
    }
  }
  if (it == buffer_.end() || it->first != key) {
    if (it == buffer_.end() || it->first < key) it = buffer_.lower_bound(key);
  }
  if (it != buffer_.end() && it->first == key) {
    it->second += v;
    hint_ = it;
    return false;
  }
  try {
    hint_ = buffer_.emplace_hint(it, key, v);
  } catch (const std::bad_alloc&) {
    assemblyOutOfMemory_ = true;
    return false;
  }
  return true;
}

void VQ_SparseSymMatrix::FailInvalidCreation() {
  size = rows = cols = 0;
  ClearWork();
  SetStatus(kInvalidSparseMatrixCreation);
  ReportLine(">>>>>>> Invalid Sparse Matrix Creation !..... <<<<<< ");
}

bool VQ_SparseSymMatrix::ResolveMatrix() {
  ClearWork();
  const std::int64_t n = rows;
  if (n <= 0 || buffer_.size() > static_cast<size_t>(INT_MAX) - 1) {
    if (n == 0 && buffer_.empty()) {
      workRowPointers_.push_back(1);  // the empty matrix: one closing pointer, no entries
      size = 0;
      return true;
    }
    FailInvalidCreation();
    return false;
  }
  try {
    workValues_.reserve(buffer_.size());
    workColumns_.reserve(buffer_.size());
    // At most one row pointer per buffered entry (each row needs its diagonal), whatever n claims.
    workRowPointers_.reserve(std::min(static_cast<size_t>(n), buffer_.size()) + 1);
  } catch (const std::bad_alloc&) {
    ClearWork();
    size = rows = cols = 0;
    SetStatus(MC::STATUS_NO_MEMORY);
    ReportLine(">>>>>>> Cannot Allocate Memory !..... <<<<<< ");
    return false;
  }
  const std::int64_t lastKey = n * n;  // keys of entries inside 1..n lie in [0, n*n)
  int p = 1;
  std::int64_t r = 0;
  for (const auto& entry : buffer_) {
    const std::int64_t key = entry.first;
    if (key < 0 || key >= lastKey) break;  // an index outside 1..n: invalid assembly
    const std::int64_t offset = key % n;
    if (offset == 0) {
      ++r;
      workRowPointers_.push_back(p);
    }
    // The column comes from the row counter, so an entry of a row whose diagonal is missing would
    // land in the previous row; the count of diagonal entries below rejects such assemblies, and
    // a column beyond n (an aliased index) is rejected here.
    const std::int64_t column = offset + r;
    if (r == 0 || column > n) break;
    workValues_.push_back(entry.second);
    workColumns_.push_back(static_cast<int>(column));
    ++p;
  }
  if (workRowPointers_.size() == static_cast<size_t>(n) && workValues_.size() == buffer_.size()) {
    workRowPointers_.push_back(workRowPointers_.back() + 1);
    size = static_cast<int>(workValues_.size());
    return true;
  }
  FailInvalidCreation();
  return false;
}

bool VQ_SparseSymMatrix::EndMatrix() {
  bool ok;
  if (assemblyOutOfMemory_) {
    ClearWork();
    size = rows = cols = 0;
    SetStatus(MC::STATUS_NO_MEMORY);
    ReportLine(">>>>>>> Cannot Allocate Memory !..... <<<<<< ");
    ok = false;
  } else {
    ok = ResolveMatrix();
  }
  ClearBuffer();
  assemblyOutOfMemory_ = false;
  if (!ok) {
    ClearWork();
    return false;
  }
  size = static_cast<int>(workValues_.size());
  rows = cols = static_cast<int>(workRowPointers_.size()) - 1;
  if (!Initialize(0.0)) {
    ClearWork();
    return false;
  }
  if (size > 0) {
    std::memcpy(data, workValues_.data(), sizeof(double) * static_cast<size_t>(size));
    std::memcpy(colidx_, workColumns_.data(), sizeof(int) * static_cast<size_t>(size));
  }
  std::memcpy(rowptr_, workRowPointers_.data(), sizeof(int) * (static_cast<size_t>(rows) + 1));
  ClearWork();  // capacity kept for the next assembly
  return true;
}

// ================================================================================================
// Arithmetic
// ================================================================================================

VQ_SparseSymMatrix& VQ_SparseSymMatrix::operator*=(double s) {
  const int nnz = HeldEntries();
  for (int k = 0; k < nnz; ++k) data[k] *= s;
  return *this;
}

VQ_SparseSymMatrix& VQ_SparseSymMatrix::operator/=(double s) {
  if (std::fabs(s) < kMachineEpsilon) {
    SetStatus(MC::STATUS_DIVISION_BY_ZERO);
    return *this;
  }
  const int nnz = HeldEntries();
  for (int k = 0; k < nnz; ++k) data[k] /= s;
  return *this;
}

VQ_SparseSymMatrix& VQ_SparseSymMatrix::operator+=(const VQ_SparseSymMatrix& b) {
  if (!CheckSparsity(&b)) return *this;
  const int nnz = HeldEntries();
  const double* bv = b.data;
  for (int k = 0; k < nnz; ++k) data[k] += bv[k];
  return *this;
}

VQ_SparseSymMatrix& VQ_SparseSymMatrix::operator-=(const VQ_SparseSymMatrix& b) {
  if (!CheckSparsity(&b)) return *this;
  const int nnz = HeldEntries();
  const double* bv = b.data;
  for (int k = 0; k < nnz; ++k) data[k] -= bv[k];
  return *this;
}

VQ_SparseSymMatrix VQ_SparseSymMatrix::operator+() const { return VQ_SparseSymMatrix(*this); }

VQ_SparseSymMatrix VQ_SparseSymMatrix::operator-() const {
  VQ_SparseSymMatrix r(*this);  // shares the arrays: this matrix is negated as well
  const int nnz = r.HeldEntries();
  for (int k = 0; k < nnz; ++k) r.data[k] = -r.data[k];
  return r;
}

bool VQ_SparseSymMatrix::AddSparseMatrix(const VQ_SparseSymMatrix* b, double f, bool check) {
  if (!b) return false;
  if (check && !CheckSparsity(b)) return false;
  // Without the check the patterns are taken as given; the walk still stays inside both arrays.
  const int nnz = std::min(HeldEntries(), b->HeldEntries());
  const double* bv = b->data;
  for (int k = 0; k < nnz; ++k) data[k] += f * bv[k];
  return true;
}

bool VQ_SparseSymMatrix::CheckSubsetSparsity(const VQ_SparseSymMatrix* b) const {
  if (!b) return false;
  const int bn = b->HeldRows();
  const int held = HeldRows();
  std::int64_t visited = 0;
  for (int i = 1; i <= bn; ++i) {
    int bb = 0, be = 0;
    b->RowRange(i, bb, be);
    for (int k = bb; k < be; ++k) {
      const int j = b->colidx_[k];
      if (i < 1 || i > rows || i > held) return false;
      if (j >= i) {
        int ab = 0, ae = 0;
        RowRange(i, ab, ae);
        bool found = false;
        for (int q = ab; q < ae && !found; ++q) found = colidx_[q] == j;
        if (!found) return false;
      } else if (FindLoc(j, i) < 0) {
        return false;
      }
      ++visited;
    }
  }
  return visited == b->size;
}

namespace {

// Merges row i of two sparse matrices given as (columns, values) ranges in storage order:
// equal columns are combined as a + beta*b, otherwise the smaller column goes first. The callback
// receives (column, value) of every merged entry in order.
template <class Emit>
void MergeRow(const int* ac, const double* av, int ab, int ae, const int* bc, const double* bv,
              int bb, int be, double beta, Emit&& emit) {
  int p = ab, q = bb;
  while (p < ae || q < be) {
    if (p < ae && q < be) {
      if (ac[p] == bc[q]) {
        emit(ac[p], av[p] + beta * bv[q]);
        ++p;
        ++q;
      } else if (ac[p] < bc[q]) {
        emit(ac[p], av[p]);
        ++p;
      } else {
        emit(bc[q], beta * bv[q]);
        ++q;
      }
    } else if (p < ae) {
      emit(ac[p], av[p]);
      ++p;
    } else {
      emit(bc[q], beta * bv[q]);
      ++q;
    }
  }
}

}  // namespace

bool VQ_SparseSymMatrix::TwoSparseMatrixOperation(const VQ_SparseSymMatrix* b, double alpha,
                                                  double beta) {
  if (!b) return false;
  if (rows != b->rows || cols != b->cols) return false;
  // The scaling happens first, also when a later step fails.
  if (std::fabs(alpha - 1.0) > kMachineEpsilon) *this *= alpha;

  if (CheckSparsity(b)) {
    const int nnz = HeldEntries();
    const double* bv = b->data;
    for (int k = 0; k < nnz; ++k) data[k] += beta * bv[k];
    return true;
  }

  const int n = rows;
  if (b->IsSparseMatrixDiagonal()) {
    int updated = 0;
    for (int i = 1; i <= n; ++i) {
      const int loc = FindLoc(i, i);
      if (loc < 0) return false;
      data[loc] += beta * b->Value(i, i);
      ++updated;
    }
    return updated == n && n == b->size;
  }

  if (CheckSubsetSparsity(b)) {
    std::int64_t visited = 0;
    const int bn = b->HeldRows();
    for (int i = 1; i <= bn; ++i) {
      int bb = 0, be = 0;
      b->RowRange(i, bb, be);
      for (int k = bb; k < be; ++k) {
        const int loc = FindLoc(i, b->colidx_[k]);
        if (loc < 0) return false;
        data[loc] += beta * b->data[k];
        ++visited;
      }
    }
    return visited == b->size;
  }

  // Different patterns: merge row by row into new arrays. The union of the two patterns needs at
  // most nnz(A) + nnz(B) entries; counting first sizes the arrays exactly (also for order 1, where
  // the two shared diagonals make the classic bound rowptrA[n-1] + rowptrB[n-1] - 2 zero).
  const int an = HeldRows(), bn = b->HeldRows();
  auto rangeA = [&](int i, int& s, int& e) {
    s = e = 0;
    if (i <= an) RowRange(i, s, e);
  };
  auto rangeB = [&](int i, int& s, int& e) {
    s = e = 0;
    if (i <= bn) b->RowRange(i, s, e);
  };
  std::int64_t total = 0;
  for (int i = 1; i <= n; ++i) {
    int ab, ae, bb, be;
    rangeA(i, ab, ae);
    rangeB(i, bb, be);
    MergeRow(colidx_, data, ab, ae, b->colidx_, b->data, bb, be, beta,
             [&](int, double) { ++total; });
  }
  if (total > INT_MAX) {
    SetStatus(MC::STATUS_NO_MEMORY);
    ReportLine(">>>>>>> Cannot Allocate Memory !..... <<<<<< ");
    return false;
  }
  SharedArray<double> mv = SharedArray<double>::Allocate(total);
  SharedArray<int> mr = SharedArray<int>::Allocate(static_cast<std::int64_t>(n) + 1);
  SharedArray<int> mc = SharedArray<int>::Allocate(total);
  if (!mv || !mr || !mc) {
    SetStatus(MC::STATUS_NO_MEMORY);
    ReportLine(">>>>>>> Cannot Allocate Memory !..... <<<<<< ");
    return false;
  }
  double* v = mv.Get();
  int* r = mr.Get();
  int* c = mc.Get();
  int count = 0;
  r[0] = 1;
  for (int i = 1; i <= n; ++i) {
    int ab, ae, bb, be;
    rangeA(i, ab, ae);
    rangeB(i, bb, be);
    MergeRow(colidx_, data, ab, ae, b->colidx_, b->data, bb, be, beta, [&](int col, double val) {
      c[count] = col;
      v[count] = val;
      ++count;
    });
    r[i] = count + 1;
  }
  Adopt(n, std::move(mv), std::move(mr), std::move(mc));
  SetStatus(MC::STATUS_OK);
  return true;
}

void VQ_SparseSymMatrix::MultiplyDense(int m, const double* X, int ldx, double* P, int ldp) const {
  const int n = std::max(rows, 0);
  if (m <= 0 || n == 0 || !X || !P || ldx < n || ldp < n) return;
  const int held = HeldRows();
  // Rows beyond the held row pointers (a sized matrix awaiting assembly) contribute nothing.
  vqmath::internal::SymUpperTimesDense(held, HeldEntries(), rowptr_, colidx_, data, m, X, ldx, P,
                                       ldp);
  if (held < n)
    for (int j = 0; j < m; ++j)
      std::fill(P + static_cast<size_t>(j) * ldp + held, P + static_cast<size_t>(j) * ldp + n, 0.0);
}

// ================================================================================================
// Files
// ================================================================================================

void VQ_SparseSymMatrix::AddToFileList(std::string path) {
  if (fileList_.find(path) == fileList_.end()) fileList_.emplace(path, path);
}

bool VQ_SparseSymMatrix::WriteToFile(const char* base, bool plusSign, bool values, bool rowPointers,
                                     bool columns) {
  const std::string stem = base ? base : "";
  const bool wanted[3] = {values, rowPointers, columns};
  for (int which = 1; which <= 3; ++which) {
    if (!wanted[which - 1]) continue;
    const std::string path = stem + std::to_string(which) + ".dat";
    std::FILE* f = std::fopen(path.c_str(), "w");
    if (!f) {
      SetStatus(MC::STATUS_FILE_NOT_FOUND);
      ReportLine(">>>>>>> Cannot Open File !..... <<<<<< ");
      rows = cols = size = 0;  // the arrays stay allocated
      return false;
    }
    AddToFileList(path);
    bool ok;
    {
      vqmath::internal::NumberWriter w(f);
      if (which == 1) {
        const int nnz = HeldEntries();
        w.Int(nnz, plusSign);
        w.Text("\n");
        for (int k = 0; k < nnz; ++k) {
          w.Scientific16(data[k], plusSign);
          w.Text("\n");
        }
      } else if (which == 2) {
        const int count = rowptr_ ? HeldRows() + 1 : 0;
        w.Int(count, plusSign);
        w.Text("\n");
        for (int k = 0; k < count; ++k) {
          w.Int(rowptr_[k], plusSign);
          w.Text("\n");
        }
      } else {
        const int nnz = HeldEntries();
        w.Int(nnz, plusSign);
        w.Text("\n");
        for (int k = 0; k < nnz; ++k) {
          w.Int(colidx_[k], plusSign);
          w.Text("\n");
        }
      }
      ok = w.Flush();
    }
    if (std::fclose(f) != 0) ok = false;
    if (!ok) {
      // Disk full or a similar write error: the matrix in memory is kept, the file is incomplete.
      SetStatus(MC::STATUS_FILE_NOT_FOUND);
      ReportLine(">>>>>>> Cannot Write File !..... <<<<<< ");
      return false;
    }
  }
  return true;
}

bool VQ_SparseSymMatrix::ReadSwapFile(const std::string& path, int which) {
  auto fail = [&](int code, const char* message) {
    SetStatus(code);
    ReportLine(message);
    DropArrays();
    rows = cols = size = 0;
    return false;
  };
  std::FILE* f = std::fopen(path.c_str(), "r");
  if (!f) {
    SetStatus(MC::STATUS_FILE_NOT_FOUND);
    std::cout << ">>>>>>> Cannot Open File : " << path << "  <<<<<< " << std::endl;
    DropArrays();
    rows = cols = size = 0;
    return false;
  }
  std::int64_t count = -1;
  bool ok = true;
  SharedArray<double> dv;
  SharedArray<int> iv;
  {
    vqmath::internal::LineReader reader(f);
    const char* b;
    const char* e;
    ok = reader.NextData(b, e) && vqmath::internal::ParseInt64(b, e, count) &&
         vqmath::internal::OnlyBlanks(b, e);
    const std::int64_t minCount = which == 2 ? 1 : 0;
    if (ok && (count < minCount || count - minCount > INT_MAX - 1)) ok = false;
    if (ok) {
      if (which == 1)
        dv = SharedArray<double>::Allocate(count);
      else
        iv = SharedArray<int>::Allocate(count);
      if (!dv && !iv) {
        std::fclose(f);
        return fail(MC::STATUS_NO_MEMORY, ">>>>>>> Cannot Allocate Memory !..... <<<<<< ");
      }
    }
    for (std::int64_t k = 0; ok && k < count; ++k) {
      if (!reader.NextData(b, e)) {
        ok = false;
        break;
      }
      if (which == 1) {
        ok = vqmath::internal::ParseDouble(b, e, dv.Get()[k]);
      } else {
        std::int64_t v = 0;
        ok = vqmath::internal::ParseInt64(b, e, v) && v >= INT_MIN && v <= INT_MAX;
        if (ok) iv.Get()[k] = static_cast<int>(v);
      }
      ok = ok && vqmath::internal::OnlyBlanks(b, e);
    }
  }
  std::fclose(f);
  if (!ok)
    return fail(MC::STATUS_OFF_DIAGONAL_IGNORED,
                ">>>>>>> Invalid Sparse Matrix File !..... <<<<<< ");
  if (which == 1) {
    DetachData();
    valueBlock_ = std::move(dv);
    size = static_cast<int>(count);
  } else if (which == 2) {
    rowBlock_ = std::move(iv);
    rows = cols = static_cast<int>(count - 1);
  } else {
    colBlock_ = std::move(iv);
  }
  SyncPointers();
  return true;
}

bool VQ_SparseSymMatrix::LayoutIsConsistent() const {
  if (valueBlock_ && valueBlock_.Count() != size) return false;
  if (colBlock_ && colBlock_.Count() != size) return false;
  if (rowBlock_) {
    if (rowBlock_.Count() != static_cast<std::int64_t>(rows) + 1 || rowptr_[0] != 1) return false;
    for (int i = 1; i <= rows; ++i)
      if (rowptr_[i] < rowptr_[i - 1]) return false;
    if (rowptr_[rows] - 1 != size) return false;
    if (colBlock_)
      for (int k = 0; k < size; ++k)
        if (colidx_[k] < 1 || colidx_[k] > rows) return false;
  }
  return true;
}

bool VQ_SparseSymMatrix::ReadFromFile(const char* base, bool plusSign, bool values,
                                      bool rowPointers, bool columns) {
  const std::string stem = base ? base : "";
  const bool wanted[3] = {values, rowPointers, columns};
  // Only files this matrix wrote itself are read; if any requested one is not among them nothing
  // is read at all, so the matrix is never left half replaced by foreign files.
  for (int which = 1; which <= 3; ++which)
    if (wanted[which - 1] &&
        fileList_.find(stem + std::to_string(which) + ".dat") == fileList_.end())
      return false;
  for (int which = 1; which <= 3; ++which)
    if (wanted[which - 1] && !ReadSwapFile(stem + std::to_string(which) + ".dat", which))
      return false;
  if (!LayoutIsConsistent()) {
    SetStatus(MC::STATUS_OFF_DIAGONAL_IGNORED);
    ReportLine(">>>>>>> Invalid Sparse Matrix File !..... <<<<<< ");
    DropArrays();
    rows = cols = size = 0;
    return false;
  }
  return true;
}

void VQ_SparseSymMatrix::StoreIn_MTX_Format(FILE* f) const {
  if (!f) return;
  const int n = std::max(rows, 0);
  const int held = HeldRows();
  // One line per stored entry with a column inside 1..n, written as row <= column, plus a zero line
  // for every diagonal position that is not stored (placed first in its row).
  auto diagonalStored = [&](int i) {
    if (i > held) return false;
    int b, e;
    RowRange(i, b, e);
    for (int k = b; k < e; ++k)
      if (colidx_[k] == i) return true;
    return false;
  };
  std::int64_t count = 0;
  for (int i = 1; i <= n; ++i) {
    if (!diagonalStored(i)) ++count;
    if (i > held) continue;
    int b, e;
    RowRange(i, b, e);
    for (int k = b; k < e; ++k)
      if (colidx_[k] >= 1 && colidx_[k] <= n) ++count;
  }
  vqmath::internal::NumberWriter w(f);
  w.Text("%%MatrixMarket matrix coordinate real symmetric \n");
  w.Int(n, false);
  w.Text(" \t ");
  w.Int(n, false);
  w.Text(" \t ");
  w.Int(count, false);
  w.Text(" \n");
  auto line = [&](int i, int j, double v) {
    w.Int(i, false);
    w.Text(" \t ");
    w.Int(j, false);
    w.Text(" \t ");
    w.Fixed18(v);
    w.Text(" \n");
  };
  for (int i = 1; i <= n; ++i) {
    if (!diagonalStored(i)) line(i, i, 0.0);
    if (i > held) continue;
    int b, e;
    RowRange(i, b, e);
    for (int k = b; k < e; ++k) {
      const int j = colidx_[k];
      if (j < 1 || j > n) continue;
      line(std::min(i, j), std::max(i, j), data[k]);
    }
  }
  w.Flush();
}

namespace {

bool EqualsNoCase(const char* b, const char* e, const char* word) {
  const size_t len = std::strlen(word);
  if (static_cast<size_t>(e - b) != len) return false;
  for (size_t k = 0; k < len; ++k)
    if (std::tolower(static_cast<unsigned char>(b[k])) != word[k]) return false;
  return true;
}

// Splits the header line into whitespace-separated words.
std::vector<std::pair<const char*, const char*>> Words(const char* b, const char* e) {
  std::vector<std::pair<const char*, const char*>> words;
  while (b < e) {
    while (b < e && std::isspace(static_cast<unsigned char>(*b))) ++b;
    const char* s = b;
    while (b < e && !std::isspace(static_cast<unsigned char>(*b))) ++b;
    if (b > s) words.emplace_back(s, b);
  }
  return words;
}

}  // namespace

bool VQ_SparseSymMatrix::ReadIn_MTX_Format(const char* path, bool report) {
  std::FILE* f = path ? std::fopen(path, "r") : nullptr;
  if (!f) {
    SetStatus(MC::STATUS_FILE_NOT_FOUND);
    if (report)
      std::cout << ">>>>>>> File Not Found : " << (path ? path : "") << "  <<<<<< " << '\n'
                << std::endl;
    return false;
  }
  ReleaseMemory();
  BeginMatrix();
  const char* problem = nullptr;
  {
    vqmath::internal::LineReader reader(f);
    const char* b;
    const char* e;
    std::int64_t m = 0, n = 0, count = 0;
    if (!reader.Next(b, e)) {
      problem = "empty file";
    } else {
      // "%%MatrixMarket matrix coordinate <real|integer|double> symmetric"
      const auto w = Words(b, e);
      if (w.size() < 5 || !EqualsNoCase(w[0].first, w[0].second, "%%matrixmarket") ||
          !EqualsNoCase(w[1].first, w[1].second, "matrix") ||
          !EqualsNoCase(w[2].first, w[2].second, "coordinate") ||
          !(EqualsNoCase(w[3].first, w[3].second, "real") ||
            EqualsNoCase(w[3].first, w[3].second, "integer") ||
            EqualsNoCase(w[3].first, w[3].second, "double")) ||
          !EqualsNoCase(w[4].first, w[4].second, "symmetric"))
        problem = "not a MatrixMarket coordinate real symmetric file";
    }
    if (!problem) {
      if (!reader.NextData(b, e) || !vqmath::internal::ParseInt64(b, e, m) ||
          !vqmath::internal::ParseInt64(b, e, n) || !vqmath::internal::ParseInt64(b, e, count) ||
          !vqmath::internal::OnlyBlanks(b, e))
        problem = "bad size line";
      else if (m != n || m < 0 || m > INT_MAX - 1 || count < 0)
        problem = "bad sizes";
    }
    if (!problem) {
      rows = cols = static_cast<int>(m);
      for (std::int64_t t = 0; t < count; ++t) {
        std::int64_t i = 0, j = 0;
        double v = 0.0;
        if (!reader.NextData(b, e)) {
          problem = "fewer entries than announced";
          break;
        }
        if (!vqmath::internal::ParseInt64(b, e, i) || !vqmath::internal::ParseInt64(b, e, j) ||
            !vqmath::internal::ParseDouble(b, e, v) || !vqmath::internal::OnlyBlanks(b, e)) {
          problem = "bad entry line";
          break;
        }
        if (i < 1 || i > m || j < 1 || j > m) {
          problem = "index out of range";
          break;
        }
        // Tiny off-diagonal values are dropped; diagonal entries are kept whatever their value.
        if (i == j || std::fabs(v) > kMachineEpsilon)
          Add(static_cast<int>(i), static_cast<int>(j), v);
      }
    }
  }
  std::fclose(f);
  if (problem) {
    ClearBuffer();
    ClearWork();
    rows = cols = size = 0;
    SetStatus(MC::STATUS_OFF_DIAGONAL_IGNORED);
    if (report)
      std::cout << ">>>>>>> Invalid MatrixMarket File : " << path << " (" << problem << ")  <<<<<< "
                << std::endl;
    return false;
  }
  // A file without some diagonal entry leaves the matrix empty with status -66; the read itself
  // succeeded.
  EndMatrix();
  return true;
}

void VQ_SparseSymMatrix::print(const char* path, int append, bool scientific) const {
  if (!path) return;
  std::FILE* f = std::fopen(path, append != 0 ? "a" : "w");
  if (!f) return;
  std::fprintf(f, "\nMatrix Type = %s \t NumRows: %d \t  NumCols: %d \n", GetMatrixType().c_str(),
               rows, cols);
  std::fprintf(f, "\n{");
  const int n = rows;
  for (int i = 1; i <= n; ++i) {
    std::fprintf(f, "{");
    for (int j = 1; j <= n; ++j) {
      if (j > 1) std::fprintf(f, " ");
      const double v = Value(i, j);
      if (j < n)
        std::fprintf(f, scientific ? "%e , " : "%12.8f , ", v);
      else
        std::fprintf(f, scientific ? "%e " : "%12.8f ", v);
    }
    std::fprintf(f, "},\n");
  }
  std::fprintf(f, "}\n");
  std::fclose(f);
}

void VQ_SparseSymMatrix::WriteData(const char* path) const {
  if (!path) return;
  std::FILE* f = std::fopen(path, "w");
  if (!f) return;
  const int nnz = HeldEntries();
  for (int k = 0; k < nnz; ++k) std::fprintf(f, "%12.8f \n", data[k]);
  if (rowptr_)
    for (int k = 0; k <= HeldRows(); ++k) std::fprintf(f, "%d \n", rowptr_[k]);
  for (int k = 0; k < nnz; ++k) std::fprintf(f, "%d \n", colidx_[k]);
  std::fclose(f);
}
