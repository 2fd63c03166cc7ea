#include "mpi/internal/ClusterSolver.h"

#include "mpi/internal/BreakdownLocator.h"
#include "mpi/internal/DistributedRows.h"
#include "sparse/internal/PardisoErrors.h"

#include <mkl_cluster_sparse_solver.h>

#include <climits>
#include <memory>
#include <cmath>
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
// Relative error of the probing solve above which the matrix is judged by the single-process
// solver: a pivot ratio of 1e-10 leaves an error of about 1e-6, well-conditioned structures 1e-12.
constexpr double kProbeError = 1e-8;
constexpr char kSingularMessage[] = "Instability Detected (Ill-conditioned or Singular Matrix Found)";

Outcome Singular(int equation, const std::string& message) {
  Outcome o;
  o.code = -3;
  o.instabilityDof = equation;
  o.message = message.empty() ? kSingularMessage : message;
  return o;
}

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

Outcome ClusterSolver::NotPositiveDefinite() {
  Outcome o;
  o.code = -3;
  o.message = internal::PardisoErrorMessage(-4);
  o.instabilityDof = 0;
  const Breakdown b = LocateBreakdown(comm_, n_, first_, last_, ia_, ja_, a_);
  if (b.located && b.code == -3) {
    o.instabilityDof = b.equation;
    if (!b.message.empty()) o.message = b.message;
  }
  if (b.located && b.code == 0) o = Outcome();  // positive definite after all
  return o;
}

int ClusterSolver::EquationWithoutStiffness() const {
  int first = INT_MAX;
  for (int r = 0; r < last_ - first_ + 1 && first == INT_MAX; ++r) {
    const int row = first_ + r;
    bool stiff = false;
    for (int p = ia_[r] - 1; p < ia_[r + 1] - 1 && !stiff; ++p) stiff = ja_[p] == row && a_[p] != 0.0;
    if (!stiff) first = row;
  }
  MPI_Allreduce(MPI_IN_PLACE, &first, 1, MPI_INT, MPI_MIN, comm_);
  return first == INT_MAX ? 0 : first;
}

Outcome ClusterSolver::JudgePerturbedPivots(int matrixType) {
  const Breakdown b = LocateBreakdown(comm_, n_, first_, last_, ia_, ja_, a_, matrixType);
  if (b.located && b.code == -3 && b.message == kSingularMessage) return Singular(b.equation, b.message);
  return Outcome();
}

Outcome ClusterSolver::ProbeSingularity(int matrixType) {
  const int rows = LocalRows();
  int ok = 1;
  std::vector<double> z, b, y;
  std::unique_ptr<DistributedProduct> product;
  try {
    z.resize(static_cast<size_t>(rows));
    b.resize(z.size());
    y.resize(z.size());
    // Not a multiple of any rigid-body motion: varies from equation to equation.
    for (int r = 0; r < rows; ++r) z[r] = 1.0 + static_cast<double>((first_ + r) * 7919LL % 1009) / 1009.0;
    product = std::make_unique<DistributedProduct>(comm_, n_, first_, last_, ia_, ja_, a_);
  } catch (const std::bad_alloc&) {
    ok = 0;
  }
  // Agreed before the product, which is collective.
  MPI_Allreduce(MPI_IN_PLACE, &ok, 1, MPI_INT, MPI_MIN, comm_);
  if (!ok) return Outcome();  // nothing to probe with: the factorisation stands
  product->Apply(z.data(), b.data());
  if (Solve(1, b.data(), y.data()).Failed()) return JudgePerturbedPivots(matrixType);
  double sums[2] = {0.0, 0.0};
  for (int r = 0; r < rows; ++r) {
    sums[0] += (y[r] - z[r]) * (y[r] - z[r]);
    sums[1] += z[r] * z[r];
  }
  MPI_Allreduce(MPI_IN_PLACE, sums, 2, MPI_DOUBLE, MPI_SUM, comm_);
  const double error = std::sqrt(sums[0] / sums[1]);
  if (std::isfinite(error) && error <= kProbeError) return Outcome();
  return JudgePerturbedPivots(matrixType);
}

Outcome ClusterSolver::Factor(const int* rowPointers, const int* columnIndices, const double* values, int matrixType,
                              bool stopIfNotPosDefinite) {
  Release();
  ia_ = rowPointers;
  ja_ = columnIndices;
  a_ = values;
  negative_ = positive_ = 0;
  pivotingWarning_ = false;
  // Always the indefinite type: distributed over several processes, the positive definite type
  // neither fails nor reports anything on a matrix that is not positive definite, while the
  // indefinite type reports the inertia and the perturbed pivots that tell.
  Defaults(-2);
  // An equation without stiffness is singular whatever the factorisation makes of it (it would
  // perturb the zero pivot and carry on).
  if (judgeSingularity_) {
    if (const int equation = EquationWithoutStiffness()) return Singular(equation, kSingularMessage);
  }
  active_ = true;
  int error = Call(kAnalysis, 1, nullptr, nullptr);
  if (error != 0) return FailureOf(error, matrixType);
  error = Call(kFactorisation, 1, nullptr, nullptr);
  if (error != 0) {
    Outcome o = FailureOf(error, matrixType);
    // Name the equation as the positive definite factorisation of the single-process solver does.
    const Outcome pd = NotPositiveDefinite();
    if (pd.code == -3 && pd.instabilityDof > 0) o = pd;
    if (o.code != -3) o.instabilityDof = -1;
    return o;
  }
  positive_ = iparm_[21];
  negative_ = iparm_[22];
  // Vanished pivots show only as perturbed ones here; the single-process solver judges them, as
  // it does before a positive definite breakdown or a stop at negative pivots.
  if (judgeSingularity_ && (matrixType != 2 || negative_ == 0)) {
    const int type = matrixType == 2 ? 2 : -2;
    const Outcome singular = iparm_[13] > 0 ? JudgePerturbedPivots(type) : ProbeSingularity(type);
    if (singular.Failed()) return singular;
  }
  if (matrixType == 2) {
    if (negative_ > 0 || iparm_[13] > 0) return NotPositiveDefinite();
    return Outcome();
  }
  if (negative_ > 0) {
    if (stopIfNotPosDefinite) {
      Outcome o = NotPositiveDefinite();
      o.code = -3;  // a failure in every case
      if (o.message.empty()) o.message = internal::PardisoErrorMessage(-4);
      return o;
    }
    pivotingWarning_ = true;
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
