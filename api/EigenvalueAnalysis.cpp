// The eigenvalue analysis dispatcher: one entry point for a diagonal (lumped) mass that runs the
// method the host chose by number (0 subspace iteration, 1 Ritz vectors, 2 FEAST).
#include <vector>

#include "api/internal/CsrValidation.h"
#include "core/GlobalState.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace {

constexpr int kUnknownSolverType = -9999;

int RunFeast(int n, int nev, const int* ia, const int* ja, const double* a,
             const double* massDiagonal, int oocMode, int matrixType, const char* workingDirectory,
             int* found, double* eigenvalues, int wantModeShapes, double* modeShapes, double emin,
             double emax) {
  // FEAST takes the mass in compressed rows: the diagonal as a one-entry-per-row matrix.
  if (n < 1 || !massDiagonal) {
    VQ_ResetGlobalErrorsAndWarnings();
    if (found) *found = 0;
    if (eigenvalues)
      for (int k = 0; k < nev; ++k) eigenvalues[k] = 0.0;
    return vi::RecordInvalidInput(n < 1 ? "the order n must be at least 1" : "the diagonal mass array is missing");
  }
  std::vector<int> rows(n + 1), cols(n);
  for (int i = 0; i < n; ++i) rows[i] = cols[i] = i + 1;
  rows[n] = n + 1;
  return VQ_EigenvalueAnalysis_ExtendedSolver(n, nev, ia, ja, a, rows.data(), cols.data(),
                                              massDiagonal, oocMode, matrixType, workingDirectory,
                                              emin, emax, found, eigenvalues, wantModeShapes,
                                              modeShapes);
}

}  // namespace

extern "C" {

int VQ_EigenvalueAnalysis(int eigenSolverType, int n, int nev, const int* kRowPointers,
                          const int* kColumnIndices, const double* kValues,
                          const double* massDiagonal, int oocMode, int matrixType,
                          const char* workingDirectory, int limitActive, double limit,
                          int allowRigidBodyModes, int* found, double* eigenvalues,
                          int wantModeShapes, double* modeShapes, double shift, double emin,
                          double emax, const double* load) {
  try {
    switch (eigenSolverType) {
      case 0:
        return VQ_EigenvalueAnalysis_SubSpaceSolver(
            n, nev, kRowPointers, kColumnIndices, kValues, massDiagonal, oocMode, matrixType,
            workingDirectory, limitActive, limit, allowRigidBodyModes, found, eigenvalues,
            wantModeShapes, modeShapes, shift, 0, nev, 0.0);
      case 1:
        return VQ_EigenvalueAnalysis_RitzVectorSolver(
            n, nev, kRowPointers, kColumnIndices, kValues, massDiagonal, oocMode, matrixType,
            workingDirectory, limitActive, limit, load ? 1 : 0, load, 0, found, eigenvalues,
            wantModeShapes, modeShapes);
      case 2:
        return RunFeast(n, nev, kRowPointers, kColumnIndices, kValues, massDiagonal, oocMode,
                        matrixType, workingDirectory, found, eigenvalues, wantModeShapes,
                        modeShapes, emin, emax);
      default:
        VQ_ResetGlobalErrorsAndWarnings();
        if (found) *found = 0;
        if (eigenvalues)
          for (int k = 0; k < nev; ++k) eigenvalues[k] = 0.0;
        vi::SetError(kUnknownSolverType, "Unclassified");
        return kUnknownSolverType;
    }
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

}  // extern "C"
