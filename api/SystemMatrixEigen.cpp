// Eigenvalue analysis on a system-matrix handle: the dispatcher of the flat interface run on the
// handle's compressed rows with a diagonal (lumped) mass held in a system vector, using the
// process-wide eigen-solver type, solver settings and subspace eigenvalue limit. Also the
// read-only view of a handle's compressed rows, for hosts that assemble through handles and then
// call the array entry points.
#include <string>

#include "api/internal/CsrValidation.h"
#include "api/internal/EigenEntryFrame.h"
#include "core/GlobalState.h"
#include "api/internal/SystemHandles.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

extern "C" {

int VQ_SysMatrixGetArrays(VQ_SysMatrixHandle h, int* n, const int** rowPointers,
                          const int** columnIndices, const double** values) {
  if (!h || !n || !rowPointers || !columnIndices || !values) return vi::kInvalidInputCode;
  int order = 0;
  double* v = nullptr;
  int* rp = nullptr;
  int* ci = nullptr;
  if (!vi::SystemMatrixArrays(h, order, v, rp, ci)) return vi::kInvalidInputCode;
  *n = order;
  *rowPointers = rp;
  *columnIndices = ci;
  *values = v;
  return 0;
}

int VQ_SysMatrixEigen(VQ_SysMatrixHandle h, VQ_SysVectorHandle mass, int nev, int* found,
                      double* eigenvalues, double* modeShapes) {
  int n = 0;
  const int* rp = nullptr;
  const int* ci = nullptr;
  const double* values = nullptr;
  if (VQ_SysMatrixGetArrays(h, &n, &rp, &ci, &values) != 0 || !mass) {
    VQ_ResetGlobalErrorsAndWarnings();
    vi::ClearEigenOutputs(nev, eigenvalues, found);
    return vi::RecordInvalidInput(!mass ? "mass vector handle is null"
                                        : "system-matrix handle is null or holds no equations");
  }
  if (mass->vector.GetSize() != n) {
    VQ_ResetGlobalErrorsAndWarnings();
    vi::ClearEigenOutputs(nev, eigenvalues, found);
    return vi::RecordInvalidInput("mass vector has " + std::to_string(mass->vector.GetSize()) +
                                  " entries for a matrix of order " + std::to_string(n));
  }
  const vi::Settings& s = vi::settings();
  // FEAST searches from zero up to the eigenvalue limit when it is active, else over all
  // non-negative eigenvalues (the mass is positive semi-definite, K positive definite).
  const double emax = s.subspaceLimitActive ? s.subspaceLimit : 1.0e300;
  return VQ_EigenvalueAnalysis(s.eigenSolverType, n, nev, rp, ci, values,
                               mass->vector.GetDataPointer(), s.solverType, s.solverMatrixType,
                               s.workingDir.c_str(), s.subspaceLimitActive ? 1 : 0, s.subspaceLimit,
                               0, found, eigenvalues, modeShapes ? 1 : 0, modeShapes, 0.0, 0.0,
                               emax, nullptr);
}

}  // extern "C"
