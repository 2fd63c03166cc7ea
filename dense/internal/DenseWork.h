// DenseWork.h - private helpers of the dense classes: thresholds, a non-throwing scratch buffer,
// and the allocation message. Not part of the public interface.
#ifndef VQMATH_DENSE_INTERNAL_DENSEWORK_H
#define VQMATH_DENSE_INTERNAL_DENSEWORK_H

#include <cstddef>
#include <cstdlib>

#include "dense/VQ_Matrix.h"

namespace vqdense {

// Division threshold of VQ_Matrix and the "zero" bound of its MatrixMarket writer: the smallest
// normal double.
constexpr double kSmallestNormal = 2.2250738585072014e-308;
// Division threshold of the symmetric, diagonal and vector kinds, and the bound under which the
// symmetric products treat a factor as an exact zero: machine epsilon.
constexpr double kMachineEpsilon = 2.220446049250313e-16;

// Scratch array of doubles allocated without throwing; ok() tells whether the allocation held.
class WorkBuffer {
 public:
  explicit WorkBuffer(long long count)
      : p_(count > 0 ? static_cast<double*>(std::malloc(static_cast<std::size_t>(count) * sizeof(double)))
                     : nullptr),
        count_(count) {}
  ~WorkBuffer() { std::free(p_); }
  WorkBuffer(const WorkBuffer&) = delete;
  WorkBuffer& operator=(const WorkBuffer&) = delete;
  bool ok() const { return count_ <= 0 || p_ != nullptr; }
  double* get() const { return p_; }
  double& operator[](long long k) const { return p_[k]; }

 private:
  double* p_;
  long long count_;
};

// Column-major rows x cols view of any matrix kind: the storage itself for the general layout,
// otherwise a scratch copy filled through the virtual Value. ok() is false when the scratch copy
// could not be allocated.
class GeneralView {
 public:
  explicit GeneralView(const VQ_Matrix& m)
      : rows(m.NumRows()), cols(m.NumCols()),
        buffer_(m.HasGeneralLayout() ? 0 : static_cast<long long>(rows) * cols) {
    if (m.HasGeneralLayout()) {
      p_ = m.GetDataPointer();
      return;
    }
    p_ = buffer_.get();
    if (!buffer_.ok()) return;
    for (int j = 1; j <= cols; ++j)
      for (int i = 1; i <= rows; ++i) buffer_[static_cast<long long>(j - 1) * rows + (i - 1)] = m.Value(i, j);
  }
  bool ok() const { return buffer_.ok(); }
  const double* data() const { return p_; }
  const double* column(int j) const { return p_ + static_cast<long long>(j - 1) * rows; }
  double at(int i, int j) const { return p_[static_cast<long long>(j - 1) * rows + (i - 1)]; }
  const int rows;
  const int cols;

 private:
  WorkBuffer buffer_;
  const double* p_ = nullptr;
};

}  // namespace vqdense

#endif  // VQMATH_DENSE_INTERNAL_DENSEWORK_H
