// Verification of eigen solutions from plain arrays: VQ_SturmCount(2) (the number of
// eigenvalues below a shift, from the inertia of K − σ·M), VQ_EffectiveMass(2) (participation
// factors and effective-mass fractions of mode shapes) and the process-wide switch that makes
// the Lanczos and FEAST entry points verify what they found.
#include <cmath>
#include <memory>
#include <new>
#include <string>

#include "api/internal/CsrValidation.h"
#include "api/internal/GlobalState.h"
#include "eigen/VQ_ModalMass.h"
#include "sparse/VQ_InertiaCount.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace {

constexpr int kNoMemory = -1;
constexpr int kSingular = -3;

// The registry's text for the code followed by what went wrong (the -64 texts carry their own
// prefix already).
int RecordFailure(int code, const std::string& detail) {
  if (code == vi::kInvalidInputCode) {
    const std::string prefix = "ERROR_INVALID_MATRICES: ";
    return vi::RecordInvalidInput(detail.compare(0, prefix.size(), prefix) == 0
                                      ? detail.substr(prefix.size())
                                      : detail);
  }
  VQ_ResolveEror(code);
  if (!detail.empty() && detail != vi::registry().errorMessage)
    vi::registry().errorMessage += ": " + detail;
  return code;
}

int Count(VQ_InertiaCount& counter, double sigma, int* count) {
  counter.SetOutOfCoreMode(vi::settings().solverType);
  counter.SetWorkingDirectory(vi::settings().workingDir);
  int negative = 0;
  const int code = counter.CountBelow(sigma, &negative);
  if (code != 0) {
    RecordFailure(code, counter.Message());
    if (code == kSingular) vi::registry().instabilityDof = counter.InstabilityEquation();
    return code;
  }
  *count = negative;
  return 0;
}

int CheckCountArguments(int n, const int* kia, const int* kja, const double* ka, double sigma,
                        int* count) {
  if (count == nullptr) return vi::RecordInvalidInput("count is null");
  if (!std::isfinite(sigma)) return vi::RecordInvalidInput("the shift is not a finite number");
  return vi::CheckUpperCsrFinite(n, kia, kja, ka, "K");
}

int CheckModes(int n, int nModes, const double* modeShapes, const double* direction) {
  if (n < 1) return vi::RecordInvalidInput("the order n must be at least 1");
  if (nModes < 0) return vi::RecordInvalidInput("the number of modes is negative");
  int code = nModes == 0 ? 0
                         : vi::CheckFiniteArray("mode shapes", static_cast<long long>(n) * nModes,
                                                modeShapes);
  if (code == 0) code = vi::CheckFiniteArray("direction", n, direction);
  return code;
}

int Effective(VQ_ModalMass& mass, int nModes, const double* modeShapes, const double* direction,
              double* participation, double* fraction) {
  if (nModes == 0) return 0;
  const int code = mass.Compute(nModes, modeShapes, direction, participation, fraction);
  return code == 0 ? 0 : RecordFailure(code, mass.Message());
}

}  // namespace

extern "C" {

int VQ_SturmCount(int n, const int* kRowPointers, const int* kColumnIndices, const double* kValues,
                  const double* massDiagonal, double sigma, int* count) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    int code = CheckCountArguments(n, kRowPointers, kColumnIndices, kValues, sigma, count);
    if (code == 0) code = vi::CheckFiniteArray("mass diagonal", n, massDiagonal);
    if (code != 0) return code;
    VQ_InertiaCount counter(n, kRowPointers, kColumnIndices, kValues, massDiagonal);
    return Count(counter, sigma, count);
  } catch (...) {
    VQ_ResolveEror(kNoMemory);
    return kNoMemory;
  }
}

int VQ_SturmCount2(int n, const int* kRowPointers, const int* kColumnIndices, const double* kValues,
                   const int* mRowPointers, const int* mColumnIndices, const double* mValues,
                   double sigma, int* count) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    int code = CheckCountArguments(n, kRowPointers, kColumnIndices, kValues, sigma, count);
    if (code == 0) code = vi::CheckUpperCsrFinite(n, mRowPointers, mColumnIndices, mValues, "M");
    if (code != 0) return code;
    VQ_InertiaCount counter(n, kRowPointers, kColumnIndices, kValues, mRowPointers,
                            mColumnIndices, mValues);
    return Count(counter, sigma, count);
  } catch (...) {
    VQ_ResolveEror(kNoMemory);
    return kNoMemory;
  }
}

int VQ_EffectiveMass(int n, int nModes, const double* modeShapes, const double* massDiagonal,
                     const double* direction, double* participation,
                     double* effectiveMassFraction) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    int code = CheckModes(n, nModes, modeShapes, direction);
    if (code == 0) code = vi::CheckFiniteArray("mass diagonal", n, massDiagonal);
    if (code != 0) return code;
    VQ_ModalMass mass(n, massDiagonal);
    return Effective(mass, nModes, modeShapes, direction, participation, effectiveMassFraction);
  } catch (...) {
    VQ_ResolveEror(kNoMemory);
    return kNoMemory;
  }
}

int VQ_EffectiveMass2(int n, int nModes, const double* modeShapes, const int* mRowPointers,
                      const int* mColumnIndices, const double* mValues, const double* direction,
                      double* participation, double* effectiveMassFraction) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    int code = CheckModes(n, nModes, modeShapes, direction);
    if (code == 0) code = vi::CheckUpperCsrFinite(n, mRowPointers, mColumnIndices, mValues, "M");
    if (code != 0) return code;
    VQ_ModalMass mass(n, mRowPointers, mColumnIndices, mValues);
    return Effective(mass, nModes, modeShapes, direction, participation, effectiveMassFraction);
  } catch (...) {
    VQ_ResolveEror(kNoMemory);
    return kNoMemory;
  }
}

void VQ_SetEigenVerification(int on) {
  if (on == 0 || on == 1) vi::settings().eigenVerification = on == 1;
}

int VQ_GetEigenVerification(void) { return vi::settings().eigenVerification ? 1 : 0; }

}  // extern "C"
