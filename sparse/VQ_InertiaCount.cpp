// VQ_InertiaCount - negative pivots of K − σ·B.
#include "sparse/VQ_InertiaCount.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numeric>
#include <vector>

#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace {

constexpr int kNoMemory = -1;
constexpr int kSingular = -3;
constexpr int kUnclassifiedSolverError = -83;
constexpr int kInvalidInput = -64;
constexpr double kLargestUnscaled = 1e150;

}  // namespace

VQ_InertiaCount::VQ_InertiaCount(int n, const int* kRowPointers, const int* kColumnIndices,
                                 const double* kValues, const double* bDiagonal)
    : n_(n), kRowPointers_(kRowPointers), kColumnIndices_(kColumnIndices), kValues_(kValues) {
  if (n <= 0 || bDiagonal == nullptr) return;
  try {
    std::vector<int> rows(static_cast<size_t>(n) + 1), cols(static_cast<size_t>(n));
    std::iota(rows.begin(), rows.end(), 1);
    std::iota(cols.begin(), cols.end(), 1);
    b_.reset(new VQ_SparseSymMatrix(n, bDiagonal, rows.data(), cols.data()));
  } catch (const std::bad_alloc&) {
    b_.reset();
  }
}

VQ_InertiaCount::VQ_InertiaCount(int n, const int* kRowPointers, const int* kColumnIndices,
                                 const double* kValues, const int* bRowPointers,
                                 const int* bColumnIndices, const double* bValues)
    : n_(n), kRowPointers_(kRowPointers), kColumnIndices_(kColumnIndices), kValues_(kValues) {
  if (n <= 0 || !bRowPointers || !bColumnIndices || !bValues) return;
  try {
    b_.reset(new VQ_SparseSymMatrix(n, bValues, bRowPointers, bColumnIndices));
  } catch (const std::bad_alloc&) {
    b_.reset();
  }
}

VQ_InertiaCount::~VQ_InertiaCount() = default;

int VQ_InertiaCount::CountBelow(double sigma, int* count) {
  message_.clear();
  instabilityEquation_ = -1;
  try {
    if (!b_ || b_->MatrixStatus() != 0) {
      message_ = "Memory Allocation Failed";
      return kNoMemory;
    }
    VQ_SparseSymMatrix shifted(n_, kValues_, kRowPointers_, kColumnIndices_);
    if (shifted.MatrixStatus() != 0 ||
        !shifted.TwoSparseMatrixOperation(b_.get(), 1.0, -sigma) || shifted.MatrixStatus() != 0) {
      message_ = "Memory Allocation Failed";
      return kNoMemory;
    }
    // The inertia of c*(K - sigma*B) is that of K - sigma*B for any c > 0. Values beyond 1e150
    // would overflow in the elimination (their squares exceed the largest double) and leave a
    // wrong count: they are scaled down first. sigma*B itself overflowing is refused.
    double* values = shifted.GetDataPointer();
    const int nnz = shifted.GetNumberOfNonZeros();
    double largest = 0.0;
    for (int q = 0; q < nnz; ++q) largest = std::max(largest, std::fabs(values[q]));
    if (!std::isfinite(largest)) {
      message_ = "ERROR_INVALID_MATRICES: K - sigma*M overflows at this shift";
      return kInvalidInput;
    }
    if (largest > kLargestUnscaled)
      for (int q = 0; q < nnz; ++q) values[q] /= largest;
    VQ_SparseSolver solver(n_, shifted.GetDataPointer(), shifted.GetRowVectorPointer(),
                           shifted.GetColumnVectorPointer(), 1, nullptr, oocMode_, -2, 0,
                           workingDirectory_.c_str(), nullptr);
    // Only the inertia is wanted: a shift on or next to an eigenvalue is no failure here.
    solver.Set_JudgeSingularity(false);
    const int status = solver.Decomposition(true, true);
    if (status != 0) {
      int code = kUnclassifiedSolverError;
      solver.GetSolverErrorInfo(message_, code);
      if (code == kSingular) instabilityEquation_ = solver.Get_DOFNumForInstability();
      if (message_.empty()) message_ = "Unclassified Sparse Solver Error";
      return code;
    }
    if (count) *count = solver.Get_NumberOfNegativeEigenvalues();
    return 0;
  } catch (const std::bad_alloc&) {
    message_ = "Memory Allocation Failed";
    return kNoMemory;
  }
}

double VQ_InertiaCount::ShiftBeside(double value, int direction, double scale, double relative) {
  double reach = std::max(std::fabs(value), 1e-3 * std::fabs(scale));
  if (!(reach > 0.0)) reach = 1.0;  // nothing to measure against: all eigenvalues found are zero
  return value + (direction < 0 ? -1.0 : 1.0) * relative * reach;
}
