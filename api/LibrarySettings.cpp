// Library lifecycle and the process-wide solver settings that solver objects copy when built:
// the PARDISO parameter array with its override list, the FEAST and Ritz-vector options, the
// solver, matrix and eigen-solver types, and the version queries.
#include <algorithm>

#include "api/internal/GlobalState.h"
#include "core/MklCodePath.h"
#include <cstring>
#include "vqmath.h"

using vqmath::internal::settings;

namespace {

void WriteSparseSolverDefaults() {
  int* p = settings().sparseParams;
  p[0] = 1;    // the array is supplied, not PARDISO's defaults
  p[1] = 0;    // minimum-degree fill-in ordering
  p[2] = 0;    // reserved
  p[3] = 0;    // no iterative (preconditioned) solution
  p[4] = 0;    // no user permutation
  p[5] = 1;    // the solution overwrites the right-hand side
  p[7] = 2;    // at most 2 iterative refinement steps
  p[8] = 0;    // reserved
  p[9] = 8;    // pivot perturbation 1e-8
  p[10] = 1;   // scaling on
  p[11] = 0;   // solve with the matrix itself, not its transpose
  p[12] = 0;   // no weighted matching
  p[13] = 0;   // output: perturbed pivots
  p[14] = 0;   // output: peak memory of analysis
  p[15] = 0;   // output: memory of factorisation
  p[16] = 0;   // output: memory of solution
  p[17] = -1;  // report the number of non-zeros in the factors
  p[18] = -1;  // report the operation count of the factorisation
  p[19] = 0;   // output: iteration count
  p[20] = 0;   // symmetric indefinite pivoting: 1x1 diagonal pivots
  p[24] = 1;   // parallel forward and backward substitution
  p[26] = 0;   // no matrix checker
  p[27] = 0;   // double precision
  p[59] = settings().solverType;  // out-of-core mode
}

void WriteFeastDefaults() {
  static const int defaults[7] = {0, 8, 12, 20, 0, 0, 5};
  std::copy(defaults, defaults + 7, settings().feastParams);
}

void WriteRitzDefaults() {
  settings().ritzSolutionType = 1;
  settings().ritzOrthogonalizeVwrtK = true;
  settings().ritzSelectiveReorthogonalization = true;
  settings().ritzAddStaticCorrection = false;
}

}  // namespace

extern "C" {

int VQ_InitializeLibrary(void) {
  using vqmath::internal::SetEnv;
  using vqmath::internal::SetEnvInt;
  SetEnvInt("MKL_NUM_THREADS", settings().numberOfThreads);
  WriteSparseSolverDefaults();
  WriteFeastDefaults();
  WriteRitzDefaults();
  VQ_ResetGlobalErrorsAndWarnings();
  SetEnvInt("MKL_PARDISO_OOC_MAX_CORE_SIZE", settings().oocMaxCoreSize);
  SetEnvInt("MKL_PARDISO_OOC_MAX_SWAP_SIZE", settings().oocMaxSwapSize);
  return SetEnv("MKL_PARDISO_OOC_KEEP_FILE", "1");
}

int VQ_ReleaseLibrary(void) {
  settings().keptSolver.reset();
  return 0;
}

int VQ_ReleaseSolver(void) { return VQ_ReleaseLibrary(); }

void VQ_SetGlobalSparseSolverParams(const int* params) {
  if (!params) return;
  std::copy(params, params + 64, settings().sparseParams);
  settings().sparseParamsSetByHost = true;
}

void VQ_GetGlobalSparseSolverParams(int* params) {
  if (!params) return;
  std::copy(settings().sparseParams, settings().sparseParams + 64, params);
}

// The index is the caller's to keep in 0..63; it is not range-checked, as with the rest of the
// single-value parameter functions. A negative or too large index is still not allowed to write
// outside the array: it is ignored.
int VQ_SetGlobalSparseSolverParam(int index, int value) {
  if (index >= 0 && index < 64) settings().sparseParams[index] = value;
  settings().sparseParamsSetByHost = true;
  return 0;
}

int VQ_GetGlobalSparseSolverParam(int index) {
  return (index >= 0 && index < 64) ? settings().sparseParams[index] : 0;
}

void VQ_Initialize_INTEL_MKL_SparseSolverParams(void) { WriteSparseSolverDefaults(); }

int VQ_OverrideDefaultSparseSolverParam(int index, int value) {
  settings().overrides.emplace_back(index, value);
  settings().overridesActive = true;
  return 0;
}

void VQ_ResetOverrideListSparseSolverParam(void) {
  settings().overrides.clear();
  settings().overridesActive = false;
}

void VQ_ParamsListSparseSolver(int count, int* params) {
  if (!(count > 0 && count < 65) || !params) return;
  const std::vector<int>& last = settings().lastSolverParams;
  for (int k = 0; k < count; ++k) params[k] = k < static_cast<int>(last.size()) ? last[k] : 0;
}

void VQ_SetGlobalExtendedEigenSparseSolverParams(const int* params) {
  if (!params) return;
  std::copy(params, params + 7, settings().feastParams);
  settings().feastParamsSetByHost = true;
}

void VQ_GetGlobalExtendedEigenSparseSolverParams(int* params) {
  if (!params) return;
  std::copy(settings().feastParams, settings().feastParams + 7, params);
}

int VQ_SetGlobalExtendedEigenSparseSolverParam(int index, int value) {
  if (index >= 0 && index < 7) settings().feastParams[index] = value;
  settings().feastParamsSetByHost = true;
  return 0;
}

int VQ_GetGlobalExtendedEigenSparseSolverParam(int index) {
  return (index >= 0 && index < 7) ? settings().feastParams[index] : 0;
}

void VQ_Initialize_INTEL_MKL_ExtendedSparseSolverParams(void) { WriteFeastDefaults(); }

int VQ_SetSolverType(int value) {
  if (value == 0 || value == 1 || value == 2) settings().solverType = value;
  return value;
}
int VQ_GetSolverType(void) { return settings().solverType; }

int VQ_SetSolverMatrixType(int value) {
  if (value == 2 || value == -2) settings().solverMatrixType = value;
  return value;
}
int VQ_GetSolverMatrixType(void) { return settings().solverMatrixType; }

int VQ_SetEigenSolverType(int value) {
  if (value == 0 || value == 1 || value == 2) settings().eigenSolverType = value;
  return value;
}
int VQ_GetEigenSolverType(void) { return settings().eigenSolverType; }

void VQ_SetSubspaceEigenvalueLimits(int flag, double limit) {
  settings().subspaceLimitActive = flag != 0;
  settings().subspaceLimit = limit;
}

// Any nonzero type selects 1: the collapse is deliberate, so 2 or -1 are not rejected.
int VQ_SetRitzVectorSolutionType(int value) {
  settings().ritzSolutionType = value == 0 ? 0 : 1;
  return value;
}
int VQ_GetRitzVectorSolutionType(void) { return settings().ritzSolutionType; }

int VQ_SetRitzVectorOrthogonalizeVwrtK(int flag) {
  settings().ritzOrthogonalizeVwrtK = flag != 0;
  return flag;
}
int VQ_GetRitzVectorOrthogonalizeVwrtK(void) { return settings().ritzOrthogonalizeVwrtK ? 1 : 0; }

int VQ_SetRitzVectorSelectiveReorthogonalization(int flag) {
  settings().ritzSelectiveReorthogonalization = flag != 0;
  return flag;
}
int VQ_GetRitzVectorSelectiveReorthogonalization(void) {
  return settings().ritzSelectiveReorthogonalization ? 1 : 0;
}

int VQ_SetRitzVectorAddStaticCorrection(int flag) {
  settings().ritzAddStaticCorrection = flag != 0;
  return flag;
}
int VQ_GetRitzVectorAddStaticCorrection(void) { return settings().ritzAddStaticCorrection ? 1 : 0; }

void VQ_Initialize_RitzVectorsParams(void) { WriteRitzDefaults(); }

// The numbers describe the math-library release the interface was defined against; they are
// fixed and not queried at run time.
void VQ_GetMKLVersion(int* major, int* minor, int* update, int* buildDate, int* number) {
  if (major) *major = 2018;
  if (minor) *minor = 0;
  if (update) *update = 1;
  if (buildDate) *buildDate = 20171007;
  if (number) *number = 20180001;
}

int VQ_GetMKLCodePath(char* text, int size) {
  const std::string path = vqmath::MklCodePath();
  if (text && size > 0) {
    const size_t n = std::min(path.size(), static_cast<size_t>(size - 1));
    std::memcpy(text, path.data(), n);
    text[n] = '\0';
  }
  return static_cast<int>(path.size());
}

void VQ_GetMathLibVersion(int* major, int* minor, int* patch, int* build, int* date) {
  if (major) *major = 1;
  if (minor) *minor = 1;
  if (patch) *patch = 0;
  if (build) *build = 9;
  if (date) *date = 20170603;
}

}  // extern "C"
