// VQ_SturmSequenceCheck - counts of K − σ·M around the eigenvalues found.
#include "eigen/VQ_SturmSequenceCheck.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "eigen/VQ_ModalMass.h"
#include "sparse/VQ_InertiaCount.h"

namespace {

constexpr int kInvalidMatrices = -64;
// The upper shift: 1e-5 of the highest eigenvalue above it, then 1e-8 when a close eigenvalue
// may have been counted.
constexpr double kShiftStep = 1e-5;
constexpr double kCloseShiftStep = 1e-8;

}  // namespace

VQ_SturmSequenceCheck::VQ_SturmSequenceCheck(VQ_InertiaCount& counter, const VQ_ModalMass* mass)
    : counter_(counter), mass_(mass) {}

std::string VQ_SturmSequenceCheck::MassEvidence(int count, const double* modeShapes) const {
  const int n = counter_.Order();
  char text[160];
  for (int i = 0; i < n; ++i) {
    const double d = massDiagonal_ ? massDiagonal_[i]
                     : (mRowPointers_ && mValues_) ? mValues_[mRowPointers_[i] - 1]
                                                   : 0.0;
    if (d < 0.0) {
      std::snprintf(text, sizeof text, "; M(%d,%d) = %.6g is negative", i + 1, i + 1, d);
      return text;
    }
  }
  if (mass_ && modeShapes && count > 0) {
    std::vector<double> norms(static_cast<size_t>(count));
    if (mass_->ModalMasses(count, modeShapes, norms.data()) == 0) {
      for (int j = 0; j < count; ++j) {
        if (norms[j] < 0.0) {
          std::snprintf(text, sizeof text, "; mode %d has phi'*M*phi = %.6g", j + 1, norms[j]);
          return text;
        }
      }
    }
  }
  return std::string();
}

VQ_SturmCheckOutcome VQ_SturmSequenceCheck::Check(const double* values, int count,
                                                  double claimedFrom, const double* modeShapes) {
  VQ_SturmCheckOutcome out;
  if (count <= 0 || values == nullptr) return out;
  const double highest = *std::max_element(values, values + count);
  const double lowest = std::min(*std::min_element(values, values + count), claimedFrom);
  double scale = 0.0;
  for (int i = 0; i < count; ++i) scale = std::max(scale, std::fabs(values[i]));

  out.found = count;
  out.lowerShift = VQ_InertiaCount::ShiftBeside(lowest, -1, scale, kShiftStep);
  out.upperShift = VQ_InertiaCount::ShiftBeside(highest, +1, scale, kShiftStep);
  int below = 0, above = 0;
  out.status = counter_.CountBelow(out.lowerShift, &below);
  if (out.status == 0) out.status = counter_.CountBelow(out.upperShift, &above);
  if (out.status != 0) {
    out.message = counter_.Message();
    return out;
  }
  out.counted = above - below;
  if (out.counted > count) {
    const double closer = VQ_InertiaCount::ShiftBeside(highest, +1, scale, kCloseShiftStep);
    int closeCount = 0;
    if (closer > highest && counter_.CountBelow(closer, &closeCount) == 0 &&
        closeCount - below <= count) {
      out.upperShift = closer;
      out.counted = closeCount - below;
    }
  }
  out.done = true;
  out.missed = out.counted > count;
  if (out.counted < count) {
    char text[320];
    std::snprintf(text, sizeof text,
                  "ERROR_INVALID_MATRICES: M is not positive semi-definite: the values found are "
                  "not eigenvalues (the inertia of K - sigma*M counts %d eigenvalues between "
                  "%.6g and %.6g, %d values were found)",
                  out.counted, out.lowerShift, out.upperShift, count);
    out.status = kInvalidMatrices;
    out.message = std::string(text) + MassEvidence(count, modeShapes);
  }
  return out;
}
