// All eigenpairs in an interval by FEAST from plain arrays: VQ_EigenvalueAnalysis_ExtendedSolver.
// The interval is searched in four equal sub-intervals from the lowest up; the FEAST parameters
// the host set through VQ_SetGlobalExtendedEigenSparseSolverParam(s) are handed to the solver.
#include <memory>
#include <new>
#include <vector>

#include "api/internal/EigenEntryFrame.h"
#include "api/internal/GlobalState.h"
#include "dense/VQ_Matrix.h"
#include "eigen/VQ_ExtendedEigenSparseSolver.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace {

constexpr int kSubIntervals = 4;

void ApplyHostFeastParameters(VQ_ExtendedEigenSparseSolver& solver) {
  const vi::Settings& s = vi::settings();
  if (!s.feastParamsSetByHost) return;
  solver.SetRunTimeStatus(s.feastParams[0]);
  solver.SetNumberOfCountourPoints(s.feastParams[1]);
  solver.SetErrorTraceDoublePrecesionStoppingCriteria(s.feastParams[2]);
  solver.SetMaxRefinimentLoop(s.feastParams[3]);
  solver.SetUserInitialSpace(s.feastParams[4]);
  solver.SetStoppingTestType(s.feastParams[5]);
  solver.SetErrorTraceSinglePrecesionStoppingCriteria(s.feastParams[6]);
}

}  // namespace

extern "C" {

int VQ_EigenvalueAnalysis_ExtendedSolver(int n, int nev, const int* kRowPointers,
                                         const int* kColumnIndices, const double* kValues,
                                         const int* mRowPointers, const int* mColumnIndices,
                                         const double* mValues, int oocMode, int matrixType,
                                         const char* workingDirectory, double emin, double emax,
                                         int* found, double* eigenvalues, int storeVectors,
                                         double* modeShapes) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    vi::ClearEigenOutputs(nev, eigenvalues, found);
    if (!vi::CheckEigenInput(n, nev, kRowPointers, kColumnIndices, kValues, "K") ||
        !vi::CheckSparseOperand(n, mRowPointers, mColumnIndices, mValues, "M"))
      return VQ_GetLastErrorID();
    std::unique_ptr<VQ_ExtendedEigenSparseSolver> solver(new (std::nothrow) VQ_ExtendedEigenSparseSolver(
        n, const_cast<int*>(kRowPointers), const_cast<int*>(kColumnIndices),
        const_cast<double*>(kValues), const_cast<int*>(mRowPointers),
        const_cast<int*>(mColumnIndices), const_cast<double*>(mValues), oocMode, matrixType,
        false, workingDirectory ? workingDirectory : ""));
    if (!solver || solver->GetStatus() != 0) {
      VQ_ResolveEror(-1);
      return -1;
    }
    ApplyHostFeastParameters(*solver);
    solver->SetVerification(vi::settings().eigenVerification);

    const bool store = storeVectors != 0 && modeShapes;
    std::vector<double> values;
    VQ_Matrix vectors;
    if (store) {
      vectors.Redimension(n, nev, 0.0);
      if (vectors.MatrixStatus() != 0) {
        VQ_ResolveEror(-1);
        return -1;
      }
    }
    int status = solver->SolveSystem(emin, emax, nev, values, vectors, store, kSubIntervals);
    if (solver->GetWarningCode() != 0) VQ_ResolveWarning(solver->GetWarningCode());
    if (status == -64) {
      vi::SetError(status, solver->GetSolverStatusMessage().c_str());
      return status;
    }
    if (status != 0 && status != -22) return vi::RecordSolverStatus(status, -1);
    int copied = vi::CopyEigenResults(n, nev, static_cast<int>(values.size()), values.data(),
                                      store ? &vectors : nullptr, eigenvalues,
                                      store ? modeShapes : nullptr);
    if (found) *found = copied;
    if (status == -22) {
      VQ_ResolveEror(-22);
      return 1;
    }
    return 0;
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

}  // extern "C"
