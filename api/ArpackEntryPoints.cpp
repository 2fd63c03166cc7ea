// Lanczos (ARPACK) entry points: VQ_EigenvalueAnalysis_ARPACK … _ARPACK5.
//
// Frame of every function: reset the registry, clear the nev eigenvalue slots and the count,
// normalise the selectors (mode 1…5, other → 4; selector 0…3, other → 0), check the arrays
// (−64 "ERROR_INVALID_MATRICES: …"), run VQ_LanczosEigenSolver with the library's out-of-core
// mode and PARDISO matrix type, and record the outcome: 0; 1 with −22 for partial results (the
// converged pairs are delivered); else the driver's code with the driver's own text as the
// registry message (it names the cause more precisely than the registry's table), and the
// instability equation for −3. Nothing is thrown across the boundary; an allocation failure
// gives −1 "Memory Allocation Failed".
#include <cstring>
#include <new>
#include <string>

#include "api/internal/CsrValidation.h"
#include "api/internal/GlobalState.h"
#include "eigen/VQ_LanczosEigenSolver.h"
#include "vqmath.h"

namespace {

namespace vi = vqmath::internal;

constexpr int kPartialResults = -22;
constexpr int kNoMemory = -1;

// The selector's bits.
constexpr int kSelectorBuckling = 1;
constexpr int kSelectorValuesOnly = 2;

enum class Driver { kSingle, kIncrementalNatural, kIncrementalBuckling };

int NormaliseMode(int mode) { return (mode >= 1 && mode <= 5) ? mode : 4; }
int NormaliseSelector(int selector) { return (selector >= 0 && selector <= 3) ? selector : 0; }

// The entry points' shared arguments, as taken from the caller.
struct Call {
  int n = 0;
  int nev = 0;
  const int* kia = nullptr;
  const int* kja = nullptr;
  const double* ka = nullptr;
  // Second matrix: sparse (bia non-null) or diagonal.
  const int* bia = nullptr;
  const int* bja = nullptr;
  const double* ba = nullptr;
  const double* bDiagonal = nullptr;
  const char* bName = "M";
  int mode = 4;
  int selector = 0;
  int maxIterations = -1;
  int blockSize = 0;
  int* found = nullptr;
  double* eigenvalues = nullptr;
  double* modeShapes = nullptr;
  double shift = 0.0;
  bool verbose = false;
};

// Array checks; 0 or the recorded −64. A non-positive order is left to the driver, which
// reports it with ARPACK's own text.
int CheckInput(const Call& c) {
  if (c.n <= 0) return 0;
  if (c.nev > 0 && c.eigenvalues == nullptr)
    return vi::RecordInvalidInput("eigenvalue array is null");
  int code = vi::CheckUpperCsrFinite(c.n, c.kia, c.kja, c.ka, "K");
  if (code != 0) return code;
  if (c.bia != nullptr) return vi::CheckUpperCsrFinite(c.n, c.bia, c.bja, c.ba, c.bName);
  return vi::CheckFiniteArray(c.bName, c.n, c.bDiagonal);
}

int Run(const Call& c, Driver driver, const std::string& workingDirectory) {
  VQ_ResetGlobalErrorsAndWarnings();
  try {
    if (c.found) *c.found = 0;
    if (c.nev > 0 && c.eigenvalues) std::memset(c.eigenvalues, 0, sizeof(double) * c.nev);
    const int check = CheckInput(c);
    if (check != 0) return check;

    VQ_LanczosProblem p;
    p.n = c.n;
    p.requested = c.nev;
    p.kRowPointers = c.kia;
    p.kColumnIndices = c.kja;
    p.kValues = c.ka;
    p.bRowPointers = c.bia;
    p.bColumnIndices = c.bja;
    p.bValues = c.ba;
    p.bDiagonal = c.bDiagonal;
    p.shift = c.shift;
    p.which = c.mode;
    p.maxIterations = c.maxIterations;
    p.blockSize = c.blockSize;
    p.eigenvalues = c.eigenvalues;
    p.modeShapes = (c.selector & kSelectorValuesOnly) ? nullptr : c.modeShapes;
    p.found = c.found;
    p.oocMode = vi::settings().solverType;
    p.matrixType = vi::settings().solverMatrixType;
    p.workingDirectory = workingDirectory.c_str();
    p.verbose = c.verbose;
    p.verify = vi::settings().eigenVerification;

    VQ_LanczosEigenSolver solver(p);
    switch (driver) {
      case Driver::kSingle: solver.Solve((c.selector & kSelectorBuckling) ? 1 : 0); break;
      case Driver::kIncrementalNatural: solver.SolveNaturalModesIncrementally(); break;
      case Driver::kIncrementalBuckling: solver.SolveBucklingModesIncrementally(); break;
    }
    const VQ_LanczosResult& r = solver.Result();
    if (r.warning != 0) VQ_ResolveWarning(r.warning);
    if (r.status == 0) return 0;
    vi::SetError(r.status, r.message.c_str());
    if (r.status == -3) vi::registry().instabilityDof = r.instabilityEquation;
    if (r.status == kPartialResults && r.found > 0) return 1;
    return r.status;
  } catch (...) {
    VQ_ResolveEror(kNoMemory);
    return kNoMemory;
  }
}

// The unsuffixed entry point takes the caller's text into a string first and runs from it.
int RunWithText(const Call& c, Driver driver, const char* workingDirectory) {
  try {
    const std::string text = workingDirectory ? workingDirectory : "";
    return Run(c, driver, text);
  } catch (...) {
    VQ_ResetGlobalErrorsAndWarnings();
    VQ_ResolveEror(kNoMemory);
    return kNoMemory;
  }
}

Call Common(int n, int nev, const int* kia, const int* kja, const double* ka, int mode,
            int selector, int maxIterations, int* found, double* eigenvalues, double* modeShapes,
            double shift, int verbose) {
  Call c;
  c.n = n;
  c.nev = nev;
  c.kia = kia;
  c.kja = kja;
  c.ka = ka;
  c.mode = NormaliseMode(mode);
  c.selector = NormaliseSelector(selector);
  c.maxIterations = maxIterations;
  c.found = found;
  c.eigenvalues = eigenvalues;
  c.modeShapes = modeShapes;
  c.shift = shift;
  c.verbose = verbose != 0;
  return c;
}

}  // namespace

extern "C" {

int VQ_EigenvalueAnalysis_ARPACK(int n, int nev, const int* kRowPointers, const int* kColumnIndices,
                                 const double* kValues, const double* bDiagonal, int mode,
                                 int selector, int maxIterations, int* found, double* eigenvalues,
                                 double* modeShapes, double shift, const char* workingDirectory,
                                 int verbose) {
  Call c = Common(n, nev, kRowPointers, kColumnIndices, kValues, mode, selector, maxIterations,
                  found, eigenvalues, modeShapes, shift, verbose);
  c.bDiagonal = bDiagonal;
  c.bName = (c.selector & kSelectorBuckling) ? "Kg diagonal" : "mass diagonal";
  return RunWithText(c, Driver::kSingle, workingDirectory);
}

int VQ_EigenvalueAnalysis_ARPACK2(int n, int nev, const int* kRowPointers,
                                  const int* kColumnIndices, const double* kValues,
                                  const int* bRowPointers, const int* bColumnIndices,
                                  const double* bValues, int mode, int selector, int maxIterations,
                                  int* found, double* eigenvalues, double* modeShapes, double shift,
                                  const char* workingDirectory, int verbose) {
  Call c = Common(n, nev, kRowPointers, kColumnIndices, kValues, mode, selector, maxIterations,
                  found, eigenvalues, modeShapes, shift, verbose);
  c.bia = bRowPointers;
  c.bja = bColumnIndices;
  c.ba = bValues;
  c.bName = (c.selector & kSelectorBuckling) ? "Kg" : "M";
  // A null row pointer array is malformed input here, not a request for a diagonal.
  if (c.bia == nullptr && n > 0) {
    VQ_ResetGlobalErrorsAndWarnings();
    if (found) *found = 0;
    return vi::RecordInvalidInput(std::string(c.bName) + ": row pointer array is null");
  }
  try {
    return Run(c, Driver::kSingle, workingDirectory ? workingDirectory : "");
  } catch (...) {
    return kNoMemory;
  }
}

int VQ_EigenvalueAnalysis_ARPACK3(int n, int nev, const int* kRowPointers,
                                  const int* kColumnIndices, const double* kValues,
                                  const int* mRowPointers, const int* mColumnIndices,
                                  const double* mValues, int mode, int selector, int maxIterations,
                                  int blockSize, int* found, double* eigenvalues,
                                  double* modeShapes, double shift, const char* workingDirectory,
                                  int verbose) {
  Call c = Common(n, nev, kRowPointers, kColumnIndices, kValues, mode, selector, maxIterations,
                  found, eigenvalues, modeShapes, shift, verbose);
  c.bia = mRowPointers;
  c.bja = mColumnIndices;
  c.ba = mValues;
  c.bName = "M";
  c.blockSize = blockSize;
  if (c.bia == nullptr && n > 0) {
    VQ_ResetGlobalErrorsAndWarnings();
    if (found) *found = 0;
    return vi::RecordInvalidInput("M: row pointer array is null");
  }
  try {
    return Run(c, Driver::kIncrementalNatural, workingDirectory ? workingDirectory : "");
  } catch (...) {
    return kNoMemory;
  }
}

int VQ_EigenvalueAnalysis_ARPACK4(int n, int nev, const int* kRowPointers,
                                  const int* kColumnIndices, const double* kValues,
                                  const double* massDiagonal, const int* gRowPointers,
                                  const int* gColumnIndices, const double* gValues, int mode,
                                  int selector, int maxIterations, int* found, double* eigenvalues,
                                  double* modeShapes, double shift, const char* workingDirectory,
                                  int verbose) {
  Call c = Common(n, nev, kRowPointers, kColumnIndices, kValues, mode, selector, maxIterations,
                  found, eigenvalues, modeShapes, shift, verbose);
  if (c.selector & kSelectorBuckling) {
    c.bia = gRowPointers;
    c.bja = gColumnIndices;
    c.ba = gValues;
    c.bName = "Kg";
    if (c.bia == nullptr && n > 0) {
      VQ_ResetGlobalErrorsAndWarnings();
      if (found) *found = 0;
      return vi::RecordInvalidInput("Kg: row pointer array is null");
    }
  } else {
    c.bDiagonal = massDiagonal;
    c.bName = "mass diagonal";
  }
  try {
    return Run(c, Driver::kSingle, workingDirectory ? workingDirectory : "");
  } catch (...) {
    return kNoMemory;
  }
}

int VQ_EigenvalueAnalysis_ARPACK5(int n, int nev, const int* kRowPointers,
                                  const int* kColumnIndices, const double* kValues,
                                  const int* gRowPointers, const int* gColumnIndices,
                                  const double* gValues, int mode, int selector, int maxIterations,
                                  int blockSize, int* found, double* eigenvalues,
                                  double* modeShapes, double shift, const char* workingDirectory,
                                  int verbose) {
  Call c = Common(n, nev, kRowPointers, kColumnIndices, kValues, mode, selector, maxIterations,
                  found, eigenvalues, modeShapes, shift, verbose);
  c.bia = gRowPointers;
  c.bja = gColumnIndices;
  c.ba = gValues;
  c.bName = "Kg";
  c.blockSize = blockSize;
  if (c.bia == nullptr && n > 0) {
    VQ_ResetGlobalErrorsAndWarnings();
    if (found) *found = 0;
    return vi::RecordInvalidInput("Kg: row pointer array is null");
  }
  try {
    return Run(c, Driver::kIncrementalBuckling, workingDirectory ? workingDirectory : "");
  } catch (...) {
    return kNoMemory;
  }
}

}  // extern "C"
