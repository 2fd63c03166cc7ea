#include "mpi/internal/ClusterSolver.h"

#include "sparse/internal/PardisoErrors.h"

#include <mkl_cluster_sparse_solver.h>

#include <cstring>
#include <new>
#include <vector>

namespace vqmath {
namespace mpi_internal {

namespace {

constexpr int kAnalysis = 11;
constexpr int kFactorisation = 22;
constexpr int kSolve = 33;
constexpr int kReleaseAll = -1;

}  // namespace

ClusterSolver::ClusterSolver(MPI_Comm comm, int n, int firstRow, int lastRow)
    : comm_(comm), fcomm_(static_cast<int>(MPI_Comm_c2f(comm))), n_(n), first_(firstRow), last_(lastRow) {}

ClusterSolver::~ClusterSolver() { Release(); }

void ClusterSolver::Defaults(int matrixType) {
  std::memset(iparm_, 0, sizeof iparm_);
  iparm_[0] = 1;    // our own values
  iparm_[1] = 2;    // nested dissection
  iparm_[7] = 2;    // iterative refinement steps
  iparm_[9] = 8;    // pivot perturbation 1e-8
  iparm_[17] = -1;  // report the non-zeros of the factor
  iparm_[18] = -1;  // report the MFlop of the factorisation
  iparm_[20] = 1;   // 1x1 and 2x2 Bunch-Kaufman pivoting
  iparm_[26] = 0;
  iparm_[27] = 0;   // double precision
  iparm_[34] = 0;   // 1-based indices
  iparm_[39] = 2;   // matrix, right-hand sides and solution distributed by rows
  iparm_[40] = first_;
  iparm_[41] = last_;
  mtype_ = matrixType;
}

int ClusterSolver::Call(int phase, int nrhs, double* b, double* x) {
  const int maxfct = 1, mnum = 1, msglvl = 0;
  int error = 0;
  double dummy = 0.0;
  cluster_sparse_solver(handle_, &maxfct, &mnum, &mtype_, &phase, &n_, a_, ia_, ja_, nullptr, &nrhs, iparm_,
                        &msglvl, b ? b : &dummy, x ? x : &dummy, &fcomm_, &error);
  // The statistics live on the first process; every process reports the same ones.
  // The domain bounds are each process's own.
  MPI_Bcast(iparm_, 64, MPI_INT, 0, comm_);
  iparm_[40] = first_;
  iparm_[41] = last_;
  int worst = error;
  MPI_Allreduce(&error, &worst, 1, MPI_INT, MPI_MIN, comm_);
  return worst;
}

void ClusterSolver::Release() {
  if (!active_) return;
  Call(kReleaseAll, 1, nullptr, nullptr);
  std::memset(handle_, 0, sizeof handle_);
  active_ = false;
}

Outcome ClusterSolver::FailureOf(int error, int matrixType) {
  Outcome o;
  const int status = internal::PardisoErrorStatus(error);
  o.code = internal::TranslateSolverStatus(status, -83);
  o.message = internal::PardisoErrorMessage(error);
  if (status == internal::kSolverZeroPivot) o.instabilityDof = iparm_[29];
  return o;
}

Outcome ClusterSolver::Factor(const int* rowPointers, const int* columnIndices, const double* values, int matrixType,
                              bool stopIfNotPosDefinite) {
  Release();
  ia_ = rowPointers;
  ja_ = columnIndices;
  a_ = values;
  negative_ = positive_ = 0;
  pivotingWarning_ = false;
  Defaults(matrixType);
  active_ = true;
  int error = Call(kAnalysis, 1, nullptr, nullptr);
  if (error != 0) return FailureOf(error, matrixType);
  error = Call(kFactorisation, 1, nullptr, nullptr);
  if (error != 0) {
    Outcome o = FailureOf(error, matrixType);
    if (o.instabilityDof < 1) o.instabilityDof = 0;
    // No equation known: a positive definite factorisation names where it breaks down.
    if (o.instabilityDof == 0 && matrixType == -2) {
      Release();
      Defaults(2);
      active_ = true;
      int retry = Call(kAnalysis, 1, nullptr, nullptr);
      if (retry == 0) retry = Call(kFactorisation, 1, nullptr, nullptr);
      if (retry != 0) {
        o = FailureOf(retry, 2);
        o.instabilityDof = iparm_[29];
      }
    }
    if (o.code != -3) o.instabilityDof = -1;
    return o;
  }
  positive_ = iparm_[21];
  negative_ = iparm_[22];
  if (matrixType == 2) positive_ = n_;  // no inertia is reported for the positive definite type
  if (negative_ > 0) {
    if (stopIfNotPosDefinite) {
      const int keepNegative = negative_, keepPositive = positive_;
      Release();
      Defaults(2);
      active_ = true;
      Outcome o;
      o.code = -3;
      o.message = internal::PardisoErrorMessage(-4);
      o.instabilityDof = 0;
      int retry = Call(kAnalysis, 1, nullptr, nullptr);
      if (retry == 0) retry = Call(kFactorisation, 1, nullptr, nullptr);
      if (retry != 0) {
        o.message = internal::PardisoErrorMessage(retry);
        o.instabilityDof = iparm_[29];
      }
      negative_ = keepNegative;
      positive_ = keepPositive;
      Release();
      return o;
    }
    if (matrixType == -2) pivotingWarning_ = true;
  }
  return Outcome();
}

Outcome ClusterSolver::Solve(int nrhs, const double* b, double* x) {
  Outcome o;
  if (!active_) {
    o.code = -84;
    o.message = "Sparse Solver Called before Decomposition\factorization Called";
    return o;
  }
  const size_t count = static_cast<size_t>(LocalRows()) * nrhs;
  std::vector<double> rhs;
  try {
    rhs.assign(b, b + count);
  } catch (const std::bad_alloc&) {
    o.code = -81;
    o.message = internal::PardisoErrorMessage(-2);
  }
  // Every process takes part in the agreement, also one that could not allocate.
  o = Agree(comm_, o);
  if (o.Failed()) return o;
  iparm_[7] = iparm_[13] == 0 ? 0 : 2;  // refinement only after perturbed pivots
  iparm_[5] = 0;
  const int error = Call(kSolve, nrhs, rhs.data(), x);
  if (error != 0) return FailureOf(error, mtype_);
  return o;
}

}  // namespace mpi_internal
}  // namespace vqmath
