// VQ_ModalMass - participation factors and effective-mass fractions.
#include "eigen/VQ_ModalMass.h"

#include <cmath>
#include <cstdio>
#include <new>
#include <vector>

#include "sparse/internal/SymUpperProduct.h"

namespace {

constexpr int kNoMemory = -1;
constexpr int kDivisionByZero = -7;
constexpr int kInvalidMatrices = -64;

double Dot(int n, const double* a, const double* b) {
  double s = 0.0;
  for (int i = 0; i < n; ++i) s += a[i] * b[i];
  return s;
}

}  // namespace

VQ_ModalMass::VQ_ModalMass(int n, const double* massDiagonal) : n_(n), diagonal_(massDiagonal) {}

VQ_ModalMass::VQ_ModalMass(int n, const int* mRowPointers, const int* mColumnIndices,
                           const double* mValues)
    : n_(n), rowPointers_(mRowPointers), columnIndices_(mColumnIndices), values_(mValues) {}

void VQ_ModalMass::Apply(int columns, const double* x, double* y) const {
  if (diagonal_ != nullptr) {
    for (int j = 0; j < columns; ++j) {
      const size_t offset = static_cast<size_t>(j) * n_;
      for (int i = 0; i < n_; ++i) y[offset + i] = diagonal_[i] * x[offset + i];
    }
    return;
  }
  const int nnz = rowPointers_[n_] - 1;
  vqmath::internal::SymUpperTimesDense(n_, nnz, rowPointers_, columnIndices_, values_, columns, x,
                                       n_, y, n_);
}

int VQ_ModalMass::ModalMasses(int nModes, const double* modeShapes, double* norms) const {
  try {
    std::vector<double> mphi(static_cast<size_t>(n_));
    for (int j = 0; j < nModes; ++j) {
      const double* phi = modeShapes + static_cast<size_t>(j) * n_;
      Apply(1, phi, mphi.data());
      norms[j] = Dot(n_, phi, mphi.data());
    }
    return 0;
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  }
}

int VQ_ModalMass::Compute(int nModes, const double* modeShapes, const double* direction,
                          double* participation, double* effectiveMassFraction) {
  message_.clear();
  char text[160];
  try {
    std::vector<double> mr(static_cast<size_t>(n_));
    Apply(1, direction, mr.data());
    const double total = Dot(n_, direction, mr.data());
    if (total < 0.0) {
      std::snprintf(text, sizeof text, "M is not positive semi-definite: r'*M*r = %.6g", total);
      message_ = text;
      return kInvalidMatrices;
    }
    if (total == 0.0) {
      message_ = "the direction carries no mass: r'*M*r = 0";
      return kDivisionByZero;
    }
    std::vector<double> norms(static_cast<size_t>(nModes));
    if (ModalMasses(nModes, modeShapes, norms.data()) != 0) {
      message_ = "Memory Allocation Failed";
      return kNoMemory;
    }
    for (int j = 0; j < nModes; ++j) {
      if (norms[j] < 0.0) {
        std::snprintf(text, sizeof text,
                      "M is not positive semi-definite: mode %d has phi'*M*phi = %.6g", j + 1,
                      norms[j]);
        message_ = text;
        return kInvalidMatrices;
      }
      if (norms[j] == 0.0) {
        std::snprintf(text, sizeof text, "mode %d carries no mass: phi'*M*phi = 0", j + 1);
        message_ = text;
        return kDivisionByZero;
      }
    }
    for (int j = 0; j < nModes; ++j) {
      const double l = Dot(n_, modeShapes + static_cast<size_t>(j) * n_, mr.data());
      if (participation) participation[j] = l / norms[j];
      if (effectiveMassFraction) effectiveMassFraction[j] = l * l / norms[j] / total;
    }
    return 0;
  } catch (const std::bad_alloc&) {
    message_ = "Memory Allocation Failed";
    return kNoMemory;
  }
}
