// Direct solution entry points: VQ_SparseSolverDirect (process-wide settings) and
// VQ_DirectSparseSolver (everything as arguments).
//
// Each call resets the registry, checks the caller's arrays, builds one VQ_SparseSolver on them
// (no copy of K is made: the solver borrows the arrays), factors, solves, records code, message,
// instability equation and pivot counts in the registry, and destroys the solver again. When the
// out-of-core factorisation runs out of memory and a retry is allowed, the core size is raised to
// what PARDISO reported it needs and the whole solution runs once more.
//
// Malformed input (null arrays, n < 1, nrhs < 1, bad compressed rows, an unknown solver or matrix
// type) is reported as -64 "ERROR_INVALID_MATRICES: <what is wrong>" before anything is read or
// written; the caller's arrays are then left untouched.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "api/internal/CsrValidation.h"
#include "api/internal/DirectSolverSettings.h"
#include "core/GlobalState.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/internal/OutOfCoreRetry.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace {

// Everything one direct solution needs, whichever entry point it came from.
struct DirectCall {
  int n = 0;
  int nrhs = 0;
  const int* rowPointers = nullptr;
  const int* columnIndices = nullptr;
  const double* values = nullptr;
  double* rhs = nullptr;
  double* solution = nullptr;
  int solverType = 0;  // out-of-core mode
  int matrixType = -2;
  bool stopIfNotPosDefinite = false;
  const char* workingDirectory = "";
  bool decompositionInCallingThread = false;
  bool constructorFlag = false;
  bool diagonalInfo = false;
  double* matrixDiagonal = nullptr;
  double* factorDiagonal = nullptr;
  int messageLevel = 0;
  int* keptParams = nullptr;  // receives the 64 PARDISO parameters after the decomposition
};

// The caller's arrays and choices; 0 when usable, else -64 recorded.
int CheckCall(const DirectCall& c) {
  if (c.nrhs < 1)
    return vi::RecordInvalidInput("number of right-hand sides nrhs = " + std::to_string(c.nrhs) +
                                  " is below 1");
  if (int code = vi::CheckUpperCsrFinite(c.n, c.rowPointers, c.columnIndices, c.values)) return code;
  if (!c.rhs) return vi::RecordInvalidInput("right-hand side array is null");
  if (c.solverType < 0 || c.solverType > 2)
    return vi::RecordInvalidInput("solver type " + std::to_string(c.solverType) + " is not 0, 1 or 2");
  if (c.matrixType != 2 && c.matrixType != -2)
    return vi::RecordInvalidInput("matrix type " + std::to_string(c.matrixType) + " is not 2 or -2");
  if (c.diagonalInfo && (!c.matrixDiagonal || !c.factorDiagonal))
    return vi::RecordInvalidInput("diagonal information requested but a diagonal array is null");
  return 0;
}

// Records the solver's error (message and translated code) in the registry; returns the code.
int RecordSolverError(const VQ_SparseSolver& solver, bool withInstability) {
  vi::Registry& r = vi::registry();
  std::string message;
  int code = r.errorCode;
  solver.GetSolverErrorInfo(message, code);
  vi::SetError(code, message.c_str());
  if (withInstability && code == -3) r.instabilityDof = solver.Get_DOFNumForInstability();
  return code;
}

// One solution: reset, build, factor, solve, record. Returns the registry code.
int SolveOnce(const DirectCall& c) {
  VQ_ResetGlobalErrorsAndWarnings();
  if (int code = CheckCall(c)) return code;

  vi::Registry& r = vi::registry();
  std::unique_ptr<VQ_SparseSolver> solver;
  try {
    solver.reset(new VQ_SparseSolver(c.n, c.nrhs, c.solverType, c.matrixType, false,
                                     c.workingDirectory ? c.workingDirectory : "", c.constructorFlag));
    solver->Set_StopIfNotPosDefinite(c.stopIfNotPosDefinite);
    if (c.diagonalInfo) solver->SetDiagElementsInfo(true, c.matrixDiagonal, c.factorDiagonal);
    solver->SetWorkingDirectory();
    solver->SetMessageLevelInfo(c.messageLevel);
    // PARDISO reads K without changing it; the solver's interface takes plain pointers.
    solver->Set_Matrix(c.n, const_cast<double*>(c.values), const_cast<int*>(c.rowPointers),
                       const_cast<int*>(c.columnIndices));
    solver->Set_LoadVector(0, c.nrhs, c.rhs);
    solver->Set_ResultVector(c.solution);  // null: the solution overwrites rhs (iparm[5] = 1)
  } catch (...) {
    VQ_ResolveEror(-1);
    return r.errorCode;
  }

  int status = solver->ApplyDecomposition(c.decompositionInCallingThread, true);
  if (vi::settings().sparseParamsSetByHost) solver->UpdateGlobalSparseSolverParams();
  r.negativeEigenvalues = solver->Get_NumberOfNegativeEigenvalues();
  r.positiveEigenvalues = solver->Get_NumberOfPositiveEigenvalues();
  if (c.keptParams) solver->SaveSolverInfo(c.keptParams);
  if (status != 0) return RecordSolverError(*solver, true);

  int solved = solver->Solve();
  if (solved != 0) return RecordSolverError(*solver, false);

  if (c.matrixType == -2 && solver->Get_NumberOfNegativeEigenvalues() > solved) {
    std::string message;
    int warning = 0;
    solver->GetSolverWarningInfo(message, warning);
    r.warningMessage = message;
    if (warning == 0)
      r.warningCode = 0;
    else if (warning == -1)
      r.warningCode = -85;
  }
  return 0;
}

// The solution with its single out-of-core retry.
int SolveWithRetry(DirectCall c, bool retryAllowed) {
  // PARDISO's memory figures of the failed attempt come back in the kept parameters.
  return vi::OutOfCoreRetry::Run([&]() { return SolveOnce(c); },
                                 [](int code) { return code == -81 || code == -82; },
                                 [&]() -> const int* { return c.keptParams; },
                                 c.solverType == 2 && retryAllowed);
}

}  // namespace

extern "C" {

int VQ_SparseSolverDirect(int n, int nrhs, const int* rowPointers, const int* columnIndices,
                          const double* values, double* rhs, int constructorFlag, double* solution) {
  try {
    vi::Settings& s = vi::settings();
    vi::DirectSolverSettings& d = vi::directSolverSettings();
    DirectCall c;
    c.n = n;
    c.nrhs = nrhs;
    c.rowPointers = rowPointers;
    c.columnIndices = columnIndices;
    c.values = values;
    c.rhs = rhs;
    c.solution = solution;
    c.solverType = s.solverType;
    c.matrixType = s.solverMatrixType;
    c.stopIfNotPosDefinite = d.stopIfNotPosDefinite;
    c.workingDirectory = s.workingDir.c_str();
    c.decompositionInCallingThread = d.decompositionInCallingThread;
    c.constructorFlag = constructorFlag != 0;
    c.messageLevel = d.messageLevel;
    c.keptParams = d.keptParams;
    if (d.collectDiagonals && n > 0) {
      d.matrixDiagonal.resize(static_cast<size_t>(n), 0.0);
      d.factorDiagonal.resize(static_cast<size_t>(n), 0.0);
      c.diagonalInfo = true;
      c.matrixDiagonal = d.matrixDiagonal.data();
      c.factorDiagonal = d.factorDiagonal.data();
    }
    return SolveWithRetry(c, d.retryOutOfCore);
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

int VQ_DirectSparseSolver(int n, int nrhs, const int* rowPointers, const int* columnIndices,
                          const double* values, double* rhs, int solverType, int matrixType,
                          int* parameters, int stopIfNotPosDefinite, const char* workingDirectory,
                          int decompositionFlag, int constructorFlag, double* solution,
                          int diagonalInfo, double* diagonalArray1, double* diagonalArray2,
                          int retryOutOfCore, int messageLevel) {
  try {
    // Without a parameter array of the caller the retry still needs PARDISO's memory figures.
    int localParams[64] = {};
    DirectCall c;
    c.n = n;
    c.nrhs = nrhs;
    c.rowPointers = rowPointers;
    c.columnIndices = columnIndices;
    c.values = values;
    c.rhs = rhs;
    c.solution = solution;
    c.solverType = solverType;
    c.matrixType = matrixType;
    c.stopIfNotPosDefinite = stopIfNotPosDefinite != 0;
    c.workingDirectory = workingDirectory ? workingDirectory : "";
    c.decompositionInCallingThread = decompositionFlag != 0;
    c.constructorFlag = constructorFlag != 0;
    c.diagonalInfo = diagonalInfo == 1;
    c.matrixDiagonal = diagonalArray1;
    c.factorDiagonal = diagonalArray2;
    c.messageLevel = messageLevel;
    c.keptParams = parameters ? parameters : localParams;
    return SolveWithRetry(c, retryOutOfCore == 1);
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

}  // extern "C"
