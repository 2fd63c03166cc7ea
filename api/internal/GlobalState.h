// Process-wide state of the library: the error/warning registry, the solver settings that solver
// objects copy when they are built, the thread/out-of-core values remembered by the environment
// setters, and the solver kept between calls by the system-matrix interface.
//
// Everything here is plain process-wide data without a lock: the host calls the library from one
// thread at a time. Internal header: hosts never include it.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vqmath {
namespace internal {

struct Registry {
  int errorCode = 0;
  std::string errorMessage;
  int warningCode = 0;
  std::string warningMessage;
  int instabilityDof = -1;
  int negativeEigenvalues = 0;
  int positiveEigenvalues = 0;
};

struct Settings {
  // PARDISO out-of-core mode (0 in core, 1 in core with out-of-core fallback, 2 out of core).
  int solverType = 0;
  // PARDISO matrix type: 2 symmetric positive definite, -2 symmetric indefinite.
  int solverMatrixType = -2;
  int eigenSolverType = 0;

  int sparseParams[64] = {};
  bool sparseParamsSetByHost = false;
  std::vector<std::pair<int, int>> overrides;  // applied in order: a later pair wins
  bool overridesActive = false;
  std::vector<int> lastSolverParams;  // refilled by every sparse solver constructor

  int feastParams[7] = {};
  bool feastParamsSetByHost = false;

  int ritzSolutionType = 1;
  bool ritzOrthogonalizeVwrtK = true;
  bool ritzSelectiveReorthogonalization = true;
  bool ritzAddStaticCorrection = false;

  bool subspaceLimitActive = false;
  double subspaceLimit = 1000.0;

  // Lanczos and FEAST count the eigenvalues below their highest one found (VQ_SetEigenVerification).
  bool eigenVerification = false;

  // Remembered by the environment setters.
  int numberOfThreads = 1;
  int oocMaxCoreSize = 2000;
  int oocMaxSwapSize = 0;
  std::string workingDir;

  // The sparse direct solver kept by the system-matrix interface between calls (type-erased so
  // that this layer does not depend on the solver class); released by VQ_ReleaseLibrary.
  std::shared_ptr<void> keptSolver;
};

Registry& registry();
Settings& settings();

// Records a code with a message of the caller's choosing (for fixed codes whose text is not the
// registry table's, e.g. -9999 "Unclassified").
void SetError(int code, const char* message);

// A new random (version 4) UUID in its 36-character text form, e.g.
// "1b4e28ba-2fa1-41d2-883f-b9a761bde3fb".
std::string NewGuid();

// The same with the four hyphens turned into underscores.
std::string NewGuidUnderscored();

// Out-of-core scratch path: working directory + GUID (underscored) + "_ooc_file".
std::string NewOocPath();

// setenv wrapper; returns 0 on success like the platform's environment write.
int SetEnv(const char* name, const char* value);
int SetEnvInt(const char* name, int value);

// Number of processors the operating system reports online.
int ProcessorCount();

}  // namespace internal
}  // namespace vqmath
