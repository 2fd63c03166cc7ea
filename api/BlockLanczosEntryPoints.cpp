// Block shift-invert Lanczos entry points: VQ_EigenvalueAnalysis_BlockLanczos (diagonal M) and
// VQ_EigenvalueAnalysis_BlockLanczos2 (sparse M or Kg).
//
// Frame: reset the registry, clear the nev eigenvalue slots, the count and the Sturm count, check
// the input (-64 "ERROR_INVALID_MATRICES: ..."), run VQ_BlockLanczosEigenSolver with the
// library's out-of-core mode and PARDISO matrix type, copy the pairs out, and record the outcome:
// 0; 1 with -22 for partial results (the converged pairs are delivered); otherwise the solver's
// code (the instability equation for -3). A missed eigenvalue found by the Sturm count is warning
// -23. Nothing is thrown across the boundary.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "api/internal/CsrValidation.h"
#include "api/internal/EigenEntryFrame.h"
#include "core/GlobalState.h"
#include "eigen/VQ_BlockLanczosEigenSolver.h"
#include "vqmath.h"

namespace {

namespace vi = vqmath::internal;

constexpr int kSelectorBuckling = 1;
constexpr int kSelectorValuesOnly = 2;

// Whether the results are verified by a Sturm count (one more factorisation): the process-wide
// verification switch (VQ_SetEigenVerification), off unless the host turns it on.
bool VerificationRequested() { return VQ_GetEigenVerification() != 0; }

struct Call {
  int n = 0;
  int nev = 0;
  const int* kia = nullptr;
  const int* kja = nullptr;
  const double* ka = nullptr;
  const int* bia = nullptr;
  const int* bja = nullptr;
  const double* ba = nullptr;
  const double* bDiagonal = nullptr;
  int selector = 0;
  int blockSize = 0;
  int maxIterations = 0;
  int* found = nullptr;
  double* eigenvalues = nullptr;
  double* modeShapes = nullptr;
  double shift = 0.0;
  bool limitActive = false;
  double limit = 0.0;
  const char* workingDirectory = nullptr;
  int* sturmCount = nullptr;
};

bool CheckInput(const Call& c) {
  const bool buckling = (c.selector & kSelectorBuckling) != 0;
  if (!vi::CheckEigenInput(c.n, c.nev, c.kia, c.kja, c.ka, "K")) return false;
  if (!c.eigenvalues) {
    vi::RecordInvalidInput("the eigenvalue array is missing");
    return false;
  }
  // An infinite or NaN shift makes K - shift*B meaningless (its factor and every Ritz value NaN);
  // a NaN limit compares false with every eigenvalue.
  if (!std::isfinite(c.shift)) {
    vi::RecordInvalidInput("the shift is not a finite number");
    return false;
  }
  if (c.limitActive && std::isnan(c.limit)) {
    vi::RecordInvalidInput("the eigenvalue limit is not a number");
    return false;
  }
  if (c.blockSize < 0) {
    vi::RecordInvalidInput("the block size must be 0 (chosen by the library) or positive, got " +
                           std::to_string(c.blockSize));
    return false;
  }
  if (c.bDiagonal || !c.bia) return vi::CheckDiagonalMass(c.n, c.bDiagonal);
  return vi::CheckSparseOperand(c.n, c.bia, c.bja, c.ba, buckling ? "Kg" : "M");
}

int Run(const Call& c) {
  VQ_ResetGlobalErrorsAndWarnings();
  try {
    vi::ClearEigenOutputs(c.nev, c.eigenvalues, c.found);
    if (c.sturmCount) *c.sturmCount = -1;
    if (!CheckInput(c)) return VQ_GetLastErrorID();

    const bool buckling = (c.selector & kSelectorBuckling) != 0;
    const std::string directory = c.workingDirectory ? c.workingDirectory : "";
    VQ_BlockLanczosEigenSolver solver(
        c.n, c.kia, c.kja, c.ka, c.bia, c.bja, c.ba, c.bDiagonal,
        buckling ? VQ_BlockLanczosEigenSolver::kBuckling : VQ_BlockLanczosEigenSolver::kNaturalModes,
        c.nev, vi::settings().solverType, vi::settings().solverMatrixType, directory.c_str());
    if (solver.GetStatus() != 0) {
      VQ_ResolveEror(-1);
      return -1;
    }
    solver.Set_Shift(c.shift);
    solver.Set_BlockSize(c.blockSize);
    solver.Set_MaxIterations(c.maxIterations);
    solver.Set_Limit(c.limitActive, c.limit);
    solver.Set_VerifyWithSturmCount(VerificationRequested());
    const int status = solver.Solve();

    const int found = solver.GetNumFoundEigen();
    if ((status == 0 || status == -22) && found > 0) {
      double* shapes = (c.selector & kSelectorValuesOnly) ? nullptr : c.modeShapes;
      const int copied = vi::CopyEigenResults(c.n, c.nev, found,
                                              solver.GetAllEigenValues().GetDataPointer(),
                                              solver.GetAllEigenVectors(), c.eigenvalues, shapes);
      if (c.found) *c.found = copied;
    }
    if (c.sturmCount) *c.sturmCount = solver.Get_SturmCount();
    std::string warning;
    int warningCode = 0;
    solver.GetSolverWarningInfo(warning, warningCode);
    if (warningCode != 0) VQ_ResolveWarning(warningCode);
    if (status == -22 && found > 0) {
      VQ_ResolveEror(-22);
      return 1;
    }
    return vi::RecordSolverStatus(status, solver.Get_DOFNumForInstability());
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

// The arguments both entry points share.
Call CommonCall(int n, int nev, const int* kRowPointers, const int* kColumnIndices,
                const double* kValues, int blockSize, int maxIterations, int* found,
                double* eigenvalues, double* modeShapes, double shift, int limitActive,
                double limit, const char* workingDirectory, int* sturmCount) {
  Call c;
  c.n = n;
  c.nev = nev;
  c.kia = kRowPointers;
  c.kja = kColumnIndices;
  c.ka = kValues;
  c.blockSize = blockSize;
  c.maxIterations = maxIterations;
  c.found = found;
  c.eigenvalues = eigenvalues;
  c.modeShapes = modeShapes;
  c.shift = shift;
  c.limitActive = limitActive != 0;
  c.limit = limit;
  c.workingDirectory = workingDirectory;
  c.sturmCount = sturmCount;
  return c;
}

}  // namespace

extern "C" {

int VQ_EigenvalueAnalysis_BlockLanczos(int n, int nev, const int* kRowPointers,
                                       const int* kColumnIndices, const double* kValues,
                                       const double* massDiagonal, int blockSize,
                                       int maxIterations, int* found, double* eigenvalues,
                                       double* modeShapes, double shift, int limitActive,
                                       double limit, const char* workingDirectory,
                                       int* sturmCount) {
  Call c = CommonCall(n, nev, kRowPointers, kColumnIndices, kValues, blockSize, maxIterations, found,
                      eigenvalues, modeShapes, shift, limitActive, limit, workingDirectory,
                      sturmCount);
  c.bDiagonal = massDiagonal;
  return Run(c);
}

int VQ_EigenvalueAnalysis_BlockLanczos2(int n, int nev, const int* kRowPointers,
                                        const int* kColumnIndices, const double* kValues,
                                        const int* bRowPointers, const int* bColumnIndices,
                                        const double* bValues, int selector, int blockSize,
                                        int maxIterations, int* found, double* eigenvalues,
                                        double* modeShapes, double shift, int limitActive,
                                        double limit, const char* workingDirectory,
                                        int* sturmCount) {
  Call c = CommonCall(n, nev, kRowPointers, kColumnIndices, kValues, blockSize, maxIterations, found,
                      eigenvalues, modeShapes, shift, limitActive, limit, workingDirectory,
                      sturmCount);
  c.bia = bRowPointers;
  c.bja = bColumnIndices;
  c.ba = bValues;
  c.selector = (selector >= 0 && selector <= 3) ? selector : 0;
  if (!c.bia && n > 0) {
    VQ_ResetGlobalErrorsAndWarnings();
    vi::ClearEigenOutputs(nev, eigenvalues, found);
    if (sturmCount) *sturmCount = -1;
    return vi::RecordInvalidInput(std::string((c.selector & kSelectorBuckling) ? "Kg" : "M") +
                                  ": row pointer array is null");
  }
  return Run(c);
}

}  // extern "C"
