// Solving with system-matrix handles: one right-hand side (VQ_SysMatrixSolve), many on one
// factorisation (VQ_SysMatrixSolveMult), the solver kept between calls on plain arrays
// (VQ_SysMatrixSolveAdvanced), repeated solves with a factorisation kept per handle
// (VQ_SysMatrixResolve), and the eigenvalue analysis on a handle.
//
// Every one resets the registry, records the outcome there (code, message, instability equation
// for -3, pivot counts of the factorisation) and returns the code. Null or mismatched handles and
// malformed arrays are reported as -64 before anything is factored.
#include <memory>
#include <string>

#include "api/internal/CsrValidation.h"
#include "core/GlobalState.h"
#include "api/internal/SystemHandles.h"
#include "vqmath.h"

namespace vi = vqmath::internal;

namespace {

int RecordSolverError(const VQ_SparseSolver& solver, bool withInstability) {
  vi::Registry& r = vi::registry();
  std::string message;
  int code = r.errorCode;
  solver.GetSolverErrorInfo(message, code);
  vi::SetError(code, message.c_str());
  if (withInstability && code == -3) r.instabilityDof = solver.Get_DOFNumForInstability();
  return code;
}

void CopyCounts(const VQ_SparseSolver& solver) {
  vi::Registry& r = vi::registry();
  r.negativeEigenvalues = solver.Get_NumberOfNegativeEigenvalues();
  r.positiveEigenvalues = solver.Get_NumberOfPositiveEigenvalues();
}

void CopyParametersBack(const VQ_SparseSolver& solver) {
  if (vi::settings().sparseParamsSetByHost) solver.UpdateGlobalSparseSolverParams();
}

// The matrix of h in compressed rows, or -64 recorded.
int CheckMatrix(VQ_SysMatrix* h, int& n) {
  if (!h) return vi::RecordInvalidInput("system-matrix handle is null");
  double* values = nullptr;
  int* rp = nullptr;
  int* ci = nullptr;
  if (!vi::SystemMatrixArrays(h, n, values, rp, ci))
    return vi::RecordInvalidInput("system matrix has no equations (order " +
                                  std::to_string(h->matrix.NumRows()) + ")");
  // The library built the pattern; the values are the host's.
  std::string problem;
  if (!vi::ValidateFiniteUpperCsr(n, rp, ci, values, &problem)) return vi::RecordInvalidInput(problem);
  return 0;
}

// rhs must hold n entries; a solution handle is sized to n (null: in place).
int CheckVectors(VQ_SysVector* rhs, VQ_SysVector* solution, int n) {
  if (!rhs) return vi::RecordInvalidInput("right-hand side handle is null");
  if (rhs->vector.GetSize() != n)
    return vi::RecordInvalidInput("right-hand side has " + std::to_string(rhs->vector.GetSize()) +
                                  " entries, the matrix " + std::to_string(n) + " equations");
  if (solution && solution->vector.GetSize() != n) {
    solution->vector.Redimension(n, 1, 0.0);
    if (solution->vector.GetSize() != n) {
      VQ_ResolveEror(-1);
      return -1;
    }
  }
  return 0;
}

// The solver that VQ_SysMatrixSolveAdvanced keeps between calls, with the order and entry count
// of the pattern it analysed (the host may refill the same buffers, so the arrays themselves
// cannot tell). Stored type-erased in the process-wide settings; VQ_ReleaseLibrary drops it.
struct KeptSystemSolver {
  std::unique_ptr<VQ_SparseSolver> solver;
  int n = 0;
  int nnz = 0;
};

std::shared_ptr<KeptSystemSolver> Kept() {
  return std::static_pointer_cast<KeptSystemSolver>(vi::settings().keptSolver);
}

// Factor and solve with a fresh solver on h (VQ_SysMatrixSolve's steps), keeping the solver in
// *keep when asked.
int FactorAndSolve(VQ_SysMatrix* h, VQ_SysVector* rhs, VQ_SysVector* solution,
                   std::unique_ptr<VQ_SparseSolver>* keep) {
  const vi::Settings& s = vi::settings();
  std::unique_ptr<VQ_SparseSolver> solver;
  try {
    solver.reset(new VQ_SparseSolver(&h->matrix, &rhs->vector, s.solverType, s.solverMatrixType,
                                     false, s.workingDir.c_str(),
                                     solution ? &solution->vector : nullptr));
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
  int status = solver->ApplyDecomposition(true, true);
  CopyParametersBack(*solver);
  CopyCounts(*solver);
  if (status != 0) return RecordSolverError(*solver, true);
  if (solver->Solve() != 0) return RecordSolverError(*solver, false);
  if (keep) *keep = std::move(solver);
  return 0;
}

}  // namespace

extern "C" {

int VQ_SysMatrixSolve(VQ_SysMatrixHandle h, VQ_SysVectorHandle rhs, VQ_SysVectorHandle solution) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    int n = 0;
    if (int code = CheckMatrix(h, n)) return code;
    if (int code = CheckVectors(rhs, solution, n)) return code;
    return FactorAndSolve(h, rhs, solution, nullptr);
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

int VQ_SysMatrixSolveMult(VQ_SysMatrixHandle h, int count, VQ_SysVectorHandle* rhsVectors,
                          VQ_SysVectorHandle* solutionVectors) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    int n = 0;
    if (int code = CheckMatrix(h, n)) return code;
    if (count < 0) return vi::RecordInvalidInput("count of right-hand sides is negative");
    if (count > 0 && (!rhsVectors || !solutionVectors))
      return vi::RecordInvalidInput("array of vector handles is null");
    for (int k = 0; k < count; ++k) {
      if (!solutionVectors[k]) return vi::RecordInvalidInput("solution handle " + std::to_string(k) + " is null");
      if (int code = CheckVectors(rhsVectors[k], solutionVectors[k], n)) return code;
    }

    const vi::Settings& s = vi::settings();
    double* values = h->matrix.GetDataPointer();
    int* rp = h->matrix.GetRowVectorPointer();
    int* ci = h->matrix.GetColumnVectorPointer();
    std::unique_ptr<VQ_SparseSolver> solver;
    try {
      solver.reset(new VQ_SparseSolver(n, values, rp, ci, count, nullptr, s.solverType,
                                       s.solverMatrixType, 0, s.workingDir.c_str(),
                                       count > 0 ? solutionVectors[0]->vector.GetDataPointer() : nullptr));
    } catch (...) {
      VQ_ResolveEror(-1);
      return -1;
    }
    int status = solver->ApplyDecomposition(true, true);
    CopyParametersBack(*solver);
    CopyCounts(*solver);
    if (status != 0) return RecordSolverError(*solver, true);

    // One factorisation serves every pair.
    for (int k = 0; k < count; ++k) {
      solver->Set_LoadVector(&rhsVectors[k]->vector);
      solver->Set_ResultVector(&solutionVectors[k]->vector);
      if (solver->Solve() != 0) return RecordSolverError(*solver, false);
    }
    return 0;
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

int VQ_SysMatrixSolveAdvanced(int n, const double* values, const int* rowPointers,
                              const int* columnIndices, int nrhs, double* rhs, int decompositionFlag,
                              int refactor, double* solution) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    vi::Settings& s = vi::settings();
    std::shared_ptr<KeptSystemSolver> kept = Kept();
    const bool handOver = !kept || refactor == 1;

    if (handOver) {
      if (nrhs < 1)
        return vi::RecordInvalidInput("number of right-hand sides nrhs = " + std::to_string(nrhs) +
                                      " is below 1");
      if (int code = vi::CheckUpperCsrFinite(n, rowPointers, columnIndices, values)) return code;
      if (!rhs) return vi::RecordInvalidInput("right-hand side array is null");
    }

    int status = 0;
    if (!kept) {
      try {
        kept = std::make_shared<KeptSystemSolver>();
        kept->solver.reset(new VQ_SparseSolver(n, nrhs, s.solverType, s.solverMatrixType, false,
                                               s.workingDir.c_str(), solution == nullptr));
      } catch (...) {
        VQ_ResolveEror(-1);
        return -1;
      }
      // Kept from here on, also when something below fails, until VQ_ReleaseLibrary.
      s.keptSolver = kept;
      VQ_SparseSolver& solver = *kept->solver;
      kept->n = n;
      kept->nnz = rowPointers[n] - 1;
      solver.Set_Matrix(n, const_cast<double*>(values), const_cast<int*>(rowPointers),
                        const_cast<int*>(columnIndices));
      solver.Set_LoadVector(0, nrhs, rhs);
      solver.Set_ResultVector(solution);
      status = solver.ApplyDecomposition(decompositionFlag != 0, true);
      CopyParametersBack(solver);
      CopyCounts(solver);
      if (status != 0) return RecordSolverError(solver, true);
    } else if (refactor == 1) {
      // New values on the kept pattern: factor again without a new analysis. A different order
      // or entry count cannot reuse the analysis, so it is redone then.
      VQ_SparseSolver& solver = *kept->solver;
      const bool samePattern = n == kept->n && rowPointers[n] - 1 == kept->nnz;
      kept->n = n;
      kept->nnz = rowPointers[n] - 1;
      solver.Set_Matrix(n, const_cast<double*>(values), const_cast<int*>(rowPointers),
                        const_cast<int*>(columnIndices));
      solver.Set_LoadVector(0, nrhs, rhs);
      solver.Set_ResultVector(solution);
      status = solver.ApplyDecomposition(decompositionFlag != 0, !samePattern);
      CopyParametersBack(solver);
      if (status != 0) return RecordSolverError(solver, true);
    }

    if (kept->solver->Solve() != 0) return RecordSolverError(*kept->solver, false);
    return 0;
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

int VQ_SysMatrixResolve(VQ_SysMatrixHandle h, VQ_SysVectorHandle rhs, VQ_SysVectorHandle solution) {
  try {
    VQ_ResetGlobalErrorsAndWarnings();
    int n = 0;
    if (int code = CheckMatrix(h, n)) return code;
    if (int code = CheckVectors(rhs, solution, n)) return code;
    if (!h->resolveSolver) return FactorAndSolve(h, rhs, solution, &h->resolveSolver);

    VQ_SparseSolver& solver = *h->resolveSolver;
    CopyCounts(solver);
    solver.Set_LoadVector(&rhs->vector);
    if (solution)
      solver.Set_ResultVector(&solution->vector);
    else
      solver.Set_ResultVector(static_cast<double*>(nullptr));
    if (solver.Solve() != 0) return RecordSolverError(solver, false);
    return 0;
  } catch (...) {
    VQ_ResolveEror(-1);
    return -1;
  }
}

}  // extern "C"
