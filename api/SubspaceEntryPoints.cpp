// Natural modes by subspace iteration from plain arrays: VQ_EigenvalueAnalysis_SubSpaceSolver
// (diagonal mass) and VQ_EigenvalueAnalysis_SubSpaceSolver2 (sparse mass).
//
// Beyond the common frame of the eigen entry points these add: the override count, the
// rigid-body flag, one automatic retry at shift -0.1 when an unshifted run found nothing (warning
// -24), the solver's own warning (-23, a missed eigenvalue) carried to the registry, and partial
// results (-22) that are copied and answered with 1.
#include <cmath>
#include <memory>
#include <new>

#include "api/internal/EigenEntryFrame.h"
#include "core/GlobalState.h"
#include "eigen/VQ_SubspaceEigenSparseSolver.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace {

// Shift of the automatic retry when an unshifted run fails to find anything (typically a model
// with rigid-body modes, whose zero eigenvalues an unshifted factorisation cannot reach).
constexpr double kAutomaticShift = -0.1;

struct SubspaceRequest {
  int n, nev;
  int* found;
  double* eigenvalues;
  int wantModeShapes;
  double* modeShapes;
  double shift;
  int overrideFlag, overrideCount;
  int allowRigidBodyModes;
  double tolerance;
};

int Run(VQ_SubspaceEigenSparseSolver& solver, const SubspaceRequest& r) {
  if (solver.GetStatus() != 0) {
    VQ_ResolveEror(-1);
    return -1;
  }
  const int count = r.overrideFlag == 1 ? r.overrideCount : r.nev;
  solver.SetRigidBodyModesCheck(r.allowRigidBodyModes != 0);
  if (r.tolerance > 0.0) solver.SetConvergenceTolerance(r.tolerance);
  // The solver writes converged vectors straight into the caller's array when that array is
  // large enough for every vector the solver may store.
  const bool direct = r.wantModeShapes == 1 && r.modeShapes && count <= r.nev;
  if (direct) solver.SetEigenVector(r.modeShapes);

  int status = solver.SolveSystemIncrementally(count, r.shift, 1000);
  if (status == -21 && solver.GetNumFoundEigen() == 0 && solver.GetZeroVal() > std::fabs(r.shift)) {
    status = solver.SolveSystemIncrementally(count, kAutomaticShift, 1000);
    if (status == 0 || status == -22) VQ_ResolveWarning(-24);
  }
  std::string warningText;
  int warning = 0;
  solver.GetSolverWarningInfo(warningText, warning);
  if (warning != 0) VQ_ResolveWarning(warning);

  if (status != 0 && status != -22) return vi::RecordSolverStatus(status, solver.Get_DOFNumForInstability());

  const int found = solver.GetNumFoundEigen();
  const double* values = solver.GetAllEigenValues().GetDataPointer();
  int copied = vi::CopyEigenResults(r.n, r.nev, found, values,
                                    (r.wantModeShapes == 1 && !direct) ? solver.GetAllEigenVectors() : nullptr,
                                    r.eigenvalues, (r.wantModeShapes == 1 && !direct) ? r.modeShapes : nullptr);
  if (r.found) *r.found = copied;
  if (status == -22) {
    VQ_ResolveEror(-22);
    return 1;
  }
  return 0;
}

// Frame shared by both variants: reset, clear, check (the mass check differs), build, run.
template <typename CheckMass, typename Build>
int Entry(const SubspaceRequest& r, const int* kRowPointers, const int* kColumnIndices,
          const double* kValues, CheckMass checkMass, Build build) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    vi::ClearEigenOutputs(r.nev, r.eigenvalues, r.found);
    if (!vi::CheckEigenInput(r.n, r.nev, kRowPointers, kColumnIndices, kValues, "K") || !checkMass())
      return VQ_GetLastErrorID();
    std::unique_ptr<VQ_SubspaceEigenSparseSolver> solver(build(r.overrideFlag == 1 ? r.overrideCount : r.nev));
    if (!solver) {
      VQ_ResolveEror(-1);
      return -1;
    }
    return Run(*solver, r);
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

}  // namespace

extern "C" {

int VQ_EigenvalueAnalysis_SubSpaceSolver(int n, int nev, const int* kRowPointers,
                                         const int* kColumnIndices, const double* kValues,
                                         const double* massDiagonal, int oocMode, int matrixType,
                                         const char* workingDirectory, int limitActive,
                                         double limit, int allowRigidBodyModes, int* found,
                                         double* eigenvalues, int wantModeShapes,
                                         double* modeShapes, double shift, int overrideFlag,
                                         int overrideCount, double tolerance) {
  return Entry(
      {n, nev, found, eigenvalues, wantModeShapes, modeShapes, shift, overrideFlag, overrideCount,
       allowRigidBodyModes, tolerance},
      kRowPointers, kColumnIndices, kValues, [&] { return vi::CheckDiagonalMass(n, massDiagonal); },
      [&](int count) {
        return new (std::nothrow) VQ_SubspaceEigenSparseSolver(
            n, const_cast<int*>(kRowPointers), const_cast<int*>(kColumnIndices),
            const_cast<double*>(kValues), const_cast<double*>(massDiagonal), oocMode, matrixType,
            count, workingDirectory ? workingDirectory : "", limitActive != 0, limit);
      });
}

int VQ_EigenvalueAnalysis_SubSpaceSolver2(int n, int nev, const int* kRowPointers,
                                          const int* kColumnIndices, const double* kValues,
                                          const int* mRowPointers, const int* mColumnIndices,
                                          const double* mValues, int oocMode, int matrixType,
                                          const char* workingDirectory, int limitActive,
                                          double limit, int allowRigidBodyModes, int* found,
                                          double* eigenvalues, int wantModeShapes,
                                          double* modeShapes, double shift, int overrideFlag,
                                          int overrideCount, double tolerance) {
  return Entry(
      {n, nev, found, eigenvalues, wantModeShapes, modeShapes, shift, overrideFlag, overrideCount,
       allowRigidBodyModes, tolerance},
      kRowPointers, kColumnIndices, kValues,
      [&] { return vi::CheckSparseOperand(n, mRowPointers, mColumnIndices, mValues, "M"); },
      [&](int count) {
        return new (std::nothrow) VQ_SubspaceEigenSparseSolver(
            n, const_cast<int*>(kRowPointers), const_cast<int*>(kColumnIndices),
            const_cast<double*>(kValues), const_cast<int*>(mRowPointers),
            const_cast<int*>(mColumnIndices), const_cast<double*>(mValues), oocMode, matrixType,
            count, workingDirectory ? workingDirectory : "", limitActive != 0, limit);
      });
}

}  // extern "C"
