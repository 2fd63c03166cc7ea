// A factorisation of a symmetric matrix distributed over the processes of a communicator by
// MKL's cluster sparse solver (PARDISO for clusters), in its distributed input mode: every
// process hands in only its own contiguous rows, and right-hand sides and solutions are
// distributed the same way.
//
// It behaves like the single-process sparse solver: nested-dissection ordering, Bunch-Kaufman
// pivoting with perturbation, the inertia (positive and negative pivots), and on a breakdown the
// equation at which a positive definite factorisation stops (see BreakdownLocator). For the
// positive definite type, negative or perturbed pivots are such a breakdown; with
// stopIfNotPosDefinite negative pivots are one for the indefinite type as well.
//
// It follows the library's singularity rule: an equation without stiffness (zero or missing
// diagonal), or a pivot below the singular pivot ratio times its diagonal, fails the
// factorisation with -3 "Instability Detected" and the equation the single-process library
// names. A factorisation wanted for its inertia only (a Sturm count) turns the rule off.
//
// Every member is collective over the communicator; every result is the same on all processes.
#pragma once

#include "mpi/internal/MpiAgreement.h"

#include <mpi.h>

namespace vqmath {
namespace mpi_internal {

class ClusterSolver {
 public:
  ClusterSolver(MPI_Comm comm, int n, int firstRow, int lastRow);
  ~ClusterSolver();
  ClusterSolver(const ClusterSolver&) = delete;
  ClusterSolver& operator=(const ClusterSolver&) = delete;

  // Analysis and numerical factorisation of the local rows (already checked). The arrays must
  // stay alive while the solver is used.
  Outcome Factor(const int* rowPointers, const int* columnIndices, const double* values, int matrixType,
                 bool stopIfNotPosDefinite);

  // X = K⁻¹·B for nrhs local slices (local rows × nrhs); b is not changed.
  Outcome Solve(int nrhs, const double* b, double* x);

  // Off: neither an equation without stiffness nor a vanishing pivot fails Factor. On by default.
  void SetJudgeSingularity(bool judge) { judgeSingularity_ = judge; }

  int NegativePivots() const { return negative_; }
  int PositivePivots() const { return positive_; }
  // True when the indefinite factorisation succeeded with negative pivots (pivoting warning).
  bool PivotingWarning() const { return pivotingWarning_; }
  const int* Parameters() const { return iparm_; }
  int LocalRows() const { return last_ - first_ + 1; }
  int FirstRow() const { return first_; }
  MPI_Comm Comm() const { return comm_; }

 private:
  int Call(int phase, int nrhs, double* b, double* x);  // returns PARDISO's error, agreed
  void Release();
  void Defaults(int matrixType);
  Outcome FailureOf(int error, int matrixType);
  // A positive definite factorisation on one process names the equation of the breakdown, or
  // finds none (success).
  Outcome NotPositiveDefinite();
  // The first equation (global, 1-based) without stiffness on any process, or 0.
  int EquationWithoutStiffness() const;
  // After perturbed pivots: the single-process verdict on the same matrix (-3 with its equation
  // when a pivot vanished), or success.
  Outcome JudgePerturbedPivots(int matrixType);
  // The pivots themselves stay hidden in the cluster solver, and a pivot at the rounding level
  // need not be perturbed. A vanishing pivot shows in a solve, though: for K·z = b with a known z,
  // the error of the computed z grows like the rounding over the smallest pivot ratio. A large
  // error has the single-process solver judge the matrix (JudgePerturbedPivots).
  Outcome ProbeSingularity(int matrixType);

  MPI_Comm comm_;
  int fcomm_;
  int n_, first_, last_;
  void* handle_[64] = {};
  int iparm_[64] = {};
  int mtype_ = -2;
  bool active_ = false;
  const int* ia_ = nullptr;
  const int* ja_ = nullptr;
  const double* a_ = nullptr;
  int negative_ = 0, positive_ = 0;
  bool pivotingWarning_ = false;
  bool judgeSingularity_ = true;
};

}  // namespace mpi_internal
}  // namespace vqmath
