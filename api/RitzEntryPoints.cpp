// Load-dependent Ritz vectors from plain arrays: VQ_EigenvalueAnalysis_RitzVectorSolver
// (diagonal mass) and VQ_EigenvalueAnalysis_RitzVectorSolver2 (sparse mass). The Ritz options
// and the solution type (0 SolveWYD, 1 SolveLWYD) come from the process-wide settings.
#include <memory>
#include <new>

#include "api/internal/CsrValidation.h"
#include "api/internal/EigenEntryFrame.h"
#include "core/GlobalState.h"
#include "dense/VQ_ColVector.h"
#include "eigen/VQ_LDRitzVectors.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace {

struct RitzRequest {
  int n, nev;
  const char* workingDirectory;
  int loadFlag;
  const double* load;
  int vectorKind;
  int* found;
  double* eigenvalues;
  int wantModeShapes;
  double* modeShapes;
};

int Run(VQ_LDRitzVectors* solver, const RitzRequest& r) {
  if (!solver || solver->GetStatus() != 0) {
    VQ_ResolveEror(-1);
    return -1;
  }
  const vi::Settings& s = vi::settings();
  solver->SetParameters(s.ritzOrthogonalizeVwrtK, s.ritzSelectiveReorthogonalization,
                        s.ritzAddStaticCorrection);
  std::unique_ptr<VQ_ColVector> load;
  int kind = 0;
  if (r.loadFlag != 0) {
    load.reset(new (std::nothrow) VQ_ColVector(r.n, const_cast<double*>(r.load)));
    if (!load || load->MatrixStatus() != 0) {
      VQ_ResolveEror(-1);
      return -1;
    }
    kind = r.vectorKind == 1 ? 1 : 0;
  }
  const std::string dir = r.workingDirectory ? r.workingDirectory : "";
  const unsigned count = static_cast<unsigned>(r.nev);
  int status = s.ritzSolutionType == 0 ? solver->SolveWYD(count, dir, nullptr, load.get(), kind)
                                       : solver->SolveLWYD(count, dir, nullptr, load.get(), kind);
  if (status != 0) return vi::RecordSolverStatus(status, solver->Get_DOFNumForInstability());
  VQ_ColVector& values = solver->GetEstEigVals();
  const bool shapes = r.wantModeShapes == 1 && r.modeShapes;
  int copied = vi::CopyEigenResults(r.n, r.nev, values.NumRows(), values.GetDataPointer(),
                                    shapes ? solver->GetVectorsPtr() : nullptr, r.eigenvalues,
                                    shapes ? r.modeShapes : nullptr);
  if (r.found) *r.found = copied;
  return 0;
}

bool CheckLoad(int n, int loadFlag, const double* load) {
  if (loadFlag == 0) return true;
  if (!load) {
    vi::RecordInvalidInput("the load flag is set but the load vector is missing");
    return false;
  }
  return vi::CheckOptionalVector(n, load, "the load vector");
}

// Frame shared by both variants: reset, clear, check (the mass check differs), build, run.
template <typename CheckMass, typename Build>
int Entry(const RitzRequest& r, const int* kRowPointers, const int* kColumnIndices,
          const double* kValues, CheckMass checkMass, Build build) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    vi::ClearEigenOutputs(r.nev, r.eigenvalues, r.found);
    if (!vi::CheckEigenInput(r.n, r.nev, kRowPointers, kColumnIndices, kValues, "K") ||
        !checkMass() || !CheckLoad(r.n, r.loadFlag, r.load))
      return VQ_GetLastErrorID();
    std::unique_ptr<VQ_LDRitzVectors> solver(build());
    return Run(solver.get(), r);
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

}  // namespace

extern "C" {

int VQ_EigenvalueAnalysis_RitzVectorSolver(int n, int nev, const int* kRowPointers,
                                           const int* kColumnIndices, const double* kValues,
                                           const double* massDiagonal, int oocMode,
                                           int matrixType, const char* workingDirectory,
                                           int limitActive, double limit, int loadFlag,
                                           const double* load, int vectorKind, int* found,
                                           double* eigenvalues, int wantModeShapes,
                                           double* modeShapes) {
  return Entry(
      {n, nev, workingDirectory, loadFlag, load, vectorKind, found, eigenvalues, wantModeShapes,
       modeShapes},
      kRowPointers, kColumnIndices, kValues, [&] { return vi::CheckDiagonalMass(n, massDiagonal); },
      [&] {
        return new (std::nothrow) VQ_LDRitzVectors(
            n, const_cast<int*>(kRowPointers), const_cast<int*>(kColumnIndices),
            const_cast<double*>(kValues), const_cast<double*>(massDiagonal), oocMode, matrixType,
            limitActive != 0, limit);
      });
}

int VQ_EigenvalueAnalysis_RitzVectorSolver2(int n, int nev, const int* kRowPointers,
                                            const int* kColumnIndices, const double* kValues,
                                            const int* mRowPointers, const int* mColumnIndices,
                                            const double* mValues, int oocMode, int matrixType,
                                            const char* workingDirectory, int limitActive,
                                            double limit, int loadFlag, const double* load,
                                            int vectorKind, int* found, double* eigenvalues,
                                            int wantModeShapes, double* modeShapes) {
  return Entry(
      {n, nev, workingDirectory, loadFlag, load, vectorKind, found, eigenvalues, wantModeShapes,
       modeShapes},
      kRowPointers, kColumnIndices, kValues,
      [&] { return vi::CheckSparseOperand(n, mRowPointers, mColumnIndices, mValues, "M"); },
      [&] {
        return new (std::nothrow) VQ_LDRitzVectors(
            n, const_cast<int*>(kRowPointers), const_cast<int*>(kColumnIndices),
            const_cast<double*>(kValues), const_cast<int*>(mRowPointers),
            const_cast<int*>(mColumnIndices), const_cast<double*>(mValues), oocMode, matrixType,
            limitActive != 0, limit);
      });
}

}  // extern "C"
