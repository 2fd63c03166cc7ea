#include "api/internal/EigenEntryFrame.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "api/internal/CsrValidation.h"
#include "core/GlobalState.h"
#include "dense/VQ_Matrix.h"
#include "vqmath.h"

namespace vqmath {
namespace internal {

namespace {

bool Finite(const double* v, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k)
    if (!std::isfinite(v[k])) return false;
  return true;
}

}  // namespace

bool CheckSparseOperand(int n, const int* rowPointers, const int* columnIndices,
                        const double* values, const char* what) {
  std::string problem;
  if (!ValidateUpperCsr(n, rowPointers, columnIndices, values, &problem)) {
    RecordInvalidInput(std::string(what) + ": " + problem);
    return false;
  }
  if (!Finite(values, static_cast<std::size_t>(rowPointers[n] - 1))) {
    RecordInvalidInput(std::string(what) + ": a value is NaN or infinite");
    return false;
  }
  return true;
}

bool CheckEigenInput(int n, int nev, const int* rowPointers, const int* columnIndices,
                     const double* values, const char* what) {
  if (n < 1) {
    RecordInvalidInput("the order n must be at least 1, got " + std::to_string(n));
    return false;
  }
  if (nev < 1) {
    RecordInvalidInput("the number of eigenvalues requested must be at least 1, got " +
                       std::to_string(nev));
    return false;
  }
  return CheckSparseOperand(n, rowPointers, columnIndices, values, what);
}

bool CheckDiagonalMass(int n, const double* mass) {
  if (!mass) {
    RecordInvalidInput("the diagonal mass array is missing");
    return false;
  }
  if (!Finite(mass, static_cast<std::size_t>(n))) {
    RecordInvalidInput("the diagonal mass holds a NaN or infinite value");
    return false;
  }
  return true;
}

bool CheckOptionalVector(int n, const double* v, const char* what) {
  if (v && !Finite(v, static_cast<std::size_t>(n))) {
    RecordInvalidInput(std::string(what) + " holds a NaN or infinite value");
    return false;
  }
  return true;
}

void ClearEigenOutputs(int nev, double* eigenvalues, int* found) {
  if (eigenvalues && nev > 0) std::fill(eigenvalues, eigenvalues + nev, 0.0);
  if (found) *found = 0;
}

int CopyEigenResults(int n, int nev, int count, const double* values, const VQ_Matrix* vectors,
                     double* eigenvalues, double* modeShapes) {
  int k = std::max(0, std::min(count, nev));
  if (eigenvalues && values) std::copy(values, values + k, eigenvalues);
  if (modeShapes && vectors) {
    const double* src = vectors->GetDataPointer();
    int rows = vectors->NumRows();
    int cols = std::min(k, vectors->NumCols());
    if (src && rows == n)
      std::memcpy(modeShapes, src, sizeof(double) * static_cast<std::size_t>(n) * cols);
  }
  return k;
}

int RecordSolverStatus(int status, int instabilityDof) {
  if (status == 0) return 0;
  VQ_ResolveEror(status);
  if (status == -3) registry().instabilityDof = instabilityDof;
  return status;
}

}  // namespace internal
}  // namespace vqmath
