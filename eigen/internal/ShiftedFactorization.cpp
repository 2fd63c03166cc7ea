// The factorisation of K − σ·M for a sequence of shifts; see ShiftedFactorization.h.
#include "eigen/internal/ShiftedFactorization.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "eigen/internal/SparseShiftInvertOperator.h"
#include "sparse/VQ_SparseSolver.h"

namespace vqmath {
namespace eigen_internal {

namespace {

constexpr int kIndefinite = -2;

}  // namespace

ShiftedFactorization::ShiftedFactorization(const PencilArrays& pencil, int oocMode,
                                           const std::string& workingDirectory)
    : n_(pencil.n), oocMode_(oocMode), workingDirectory_(workingDirectory) {
  try {
    ready_ = n_ > 0 && Merge(pencil);
  } catch (const std::bad_alloc&) {
    ready_ = false;
  }
  if (!ready_) return;
  k_.SetSparse(n_, pencil.kRowPointers, pencil.kColumnIndices, pencil.kValues, 8);
  if (pencil.mRowPointers != nullptr)
    m_.SetSparse(n_, pencil.mRowPointers, pencil.mColumnIndices, pencil.mValues, 64);
  else
    m_.SetDiagonal(n_, pencil.mDiagonal);
}

ShiftedFactorization::~ShiftedFactorization() = default;

// Row by row: the sorted union of both rows' columns, the diagonal first (it is the smallest
// column of an upper-triangle row).
bool ShiftedFactorization::Merge(const PencilArrays& p) {
  const int n = p.n;
  rows_.assign(static_cast<size_t>(n) + 1, 1);
  std::vector<int> mark(static_cast<size_t>(n), -1);  // position of a column in the current row
  std::vector<int> row;
  for (int i = 0; i < n; ++i) {
    row.clear();
    row.push_back(i + 1);
    for (int q = p.kRowPointers[i] - 1; q < p.kRowPointers[i + 1] - 1; ++q)
      row.push_back(p.kColumnIndices[q]);
    if (p.mRowPointers != nullptr)
      for (int q = p.mRowPointers[i] - 1; q < p.mRowPointers[i + 1] - 1; ++q)
        row.push_back(p.mColumnIndices[q]);
    std::sort(row.begin(), row.end());
    row.erase(std::unique(row.begin(), row.end()), row.end());
    if (row.front() != i + 1) return false;  // an entry below the diagonal
    const size_t start = cols_.size();
    for (size_t t = 0; t < row.size(); ++t) {
      cols_.push_back(row[t]);
      mark[row[t] - 1] = static_cast<int>(start + t);
    }
    kOnPattern_.resize(cols_.size(), 0.0);
    mOnPattern_.resize(cols_.size(), 0.0);
    for (int q = p.kRowPointers[i] - 1; q < p.kRowPointers[i + 1] - 1; ++q)
      kOnPattern_[mark[p.kColumnIndices[q] - 1]] += p.kValues[q];
    if (p.mRowPointers != nullptr) {
      for (int q = p.mRowPointers[i] - 1; q < p.mRowPointers[i + 1] - 1; ++q)
        mOnPattern_[mark[p.mColumnIndices[q] - 1]] += p.mValues[q];
    } else {
      mOnPattern_[start] = p.mDiagonal[i];
    }
    rows_[i + 1] = static_cast<int>(cols_.size()) + 1;
  }
  shifted_.assign(cols_.size(), 0.0);
  return true;
}

int ShiftedFactorization::Factor(double sigma) {
  if (!ready_) {
    message_ = "Memory Allocation Failed";
    return -1;
  }
  for (size_t q = 0; q < shifted_.size(); ++q) shifted_[q] = kOnPattern_[q] - sigma * mOnPattern_[q];
  sigma_ = sigma;
  factored_ = false;
  negative_ = 0;
  perturbed_ = 0;
  instability_ = -1;
  message_.clear();
  // A shift so large that sigma*M overflows: the factor (and any count from it) would be noise.
  for (double v : shifted_)
    if (!std::isfinite(v)) {
      message_ = "ERROR_INVALID_MATRICES: K - sigma*M overflows at this shift";
      return -64;
    }
  try {
    if (!solver_) {
      solver_.reset(new VQ_SparseSolver(n_, shifted_.data(), rows_.data(), cols_.data(), 1, nullptr,
                                        oocMode_, kIndefinite, 0, workingDirectory_.c_str(),
                                        nullptr));
      // Counts and slices need the inertia of K - sigma M wherever sigma lands; a shift on an
      // eigenvalue shows as perturbed pivots, which this class answers by moving the shift.
      solver_->Set_JudgeSingularity(false);
      analysed_ = false;
    }
  } catch (const std::bad_alloc&) {
    message_ = "Memory Allocation Failed";
    return -1;
  }
  // The pattern never changes: after the first successful analysis only phase 22 runs.
  const int status = solver_->Decomposition(true, !analysed_);
  ++factorizations_;
  if (status != 0) {
    int code = -83;
    solver_->GetSolverErrorInfo(message_, code);
    if (code == -3) instability_ = solver_->Get_DOFNumForInstability();
    analysed_ = false;
    solver_.reset();
    return code == 0 ? -83 : code;
  }
  analysed_ = true;
  factored_ = true;
  negative_ = solver_->Get_NumberOfNegativeEigenvalues();
  perturbed_ = solver_->Get_iParm(13);
  return 0;
}

int ShiftedFactorization::SolveBlock(const double* r, double* y, int n, int columns) {
  if (!factored_) return -84;
  return SparseShiftInvertOperator(m_, *solver_).SolveBlock(r, y, n, columns);
}

}  // namespace eigen_internal
}  // namespace vqmath
