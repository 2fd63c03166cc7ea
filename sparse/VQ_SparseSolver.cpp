// VQ_SparseSolver: PARDISO analysis, factorisation and solution. See VQ_SparseSolver.h.
#include "sparse/VQ_SparseSolver.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>

#include <mkl_service.h>

#include "core/GlobalState.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "sparse/internal/PardisoErrors.h"
#include "sparse/internal/PardisoHandle.h"
#include "sparse/internal/PardisoReports.h"
#include "sparse/internal/PardisoWorkspace.h"
#include "sparse/internal/PivotOrder.h"
#include "sparse/internal/SingularityCheck.h"

using vqmath::internal::PardisoArgs;
using vqmath::internal::PardisoHandle;
using vqmath::internal::SingularityCheck;
namespace vi = vqmath::internal;

namespace {

// iparm positions the solver sets or reads (0-based, PARDISO's C numbering).
enum Iparm : int {
  kUserValues = 0,          // 1: the array is supplied, not PARDISO's defaults
  kOrdering = 1,            // fill-in reducing ordering
  kIterativeSolve = 3,      // 10 L + K: CGS (K 1) or CG (K 2) preconditioned by the factor
  kPermutation = 4,         // 2: return the permutation in perm
  kSolutionInB = 5,         // 1: the solution overwrites the right-hand side
  kRefinementSteps = 7,     // maximum number of iterative refinement steps
  kPivotPerturbation = 9,   // perturbation 10^-value of small pivots
  kPerturbedPivots = 13,    // output: number of perturbed pivots
  kFactorNonzeros = 17,     // -1 on input: report the non-zeros of the factor
  kFactorMflops = 18,       // -1 on input: report the MFlop of the factorisation
  kPivoting = 20,           // 1: 1x1 and 2x2 Bunch-Kaufman pivoting
  kPositivePivots = 21,     // output: inertia, positive part
  kNegativePivots = 22,     // output: inertia, negative part
  kParallelSolve = 24,      // forward/backward substitution in parallel
  kMatrixChecker = 26,      // 1: check the CSR arrays
  kPrecision = 27,          // 0: double precision
  kZeroPivotEquation = 29,  // output: equation of a zero or negative pivot (SPD types)
  kPartialSolve = 30,       // partial solution for sparse right-hand sides
  kCnrThreads = 33,         // thread count of the conditional numerical reproducibility mode
  kZeroBasedIndexing = 34,  // 1: 0-based row pointers and column indices
  kSchurComplement = 35,    // Schur complement of a block of equations
  kBlockFormat = 36,        // storage: 0 CSR, >0 BSR, <0 VBSR
  kDiagonalAccess = 55,     // 1: keep the diagonal and pivots for pardiso_getdiag
  kOutOfCore = 59           // 0 in core, 1 out of core when needed, 2 out of core
};

constexpr char kPivotingWarning[] =
    "Pivoting Applied for Small or Zero Pivots. Solution Successfully Completed.";

// Message of a solve without a factorisation; the form feed stands in the text on purpose (it is
// the registry's text for code -84).
constexpr char kNotFactorisedMessage[] =
    "Sparse Solver Called before Decomposition"
    "\f"
    "actorization Called";

// Registry text of an instability (code -3), the message of a matrix found singular.
constexpr char kSingularMessage[] = "Instability Detected (Ill-conditioned or Singular Matrix Found)";

// Pivot perturbation (10^-value of the matrix norm) of the factorisation that looks at pivots
// PARDISO perturbed: far below any ratio a host would call singular, so that a vanished pivot
// shows at the rounding level it came from.
constexpr int kJudgingPerturbation = 30;

const char* OrEmpty(const char* text) { return text ? text : ""; }

}  // namespace

// ---- construction -------------------------------------------------------------------------------

void VQ_SparseSolver::CreateHandle() {
  std::memset(iparm_, 0, sizeof iparm_);
  handle_.reset(new PardisoHandle());
  singularPivotRatio_ = vi::settings().singularPivotRatio;
}

VQ_SparseSolver::VQ_SparseSolver() {
  CreateHandle();
  InitializeSolver();
}

VQ_SparseSolver::VQ_SparseSolver(VQ_SparseSymMatrix* K, VQ_Matrix* B, int oocMode, int mtype,
                                 bool verbose, const char* workingDirectory, VQ_Matrix* X)
    : mtype_(mtype), oocMode_(oocMode), workingDirectory_(OrEmpty(workingDirectory)), verbose_(verbose) {
  CreateHandle();
  if (K) Set_Matrix(K);
  if (B) {
    nrhs_ = B->NumCols();
    rhs_ = B->GetDataPointer();
  } else {
    nrhs_ = 1;
  }
  result_ = X ? X->GetDataPointer() : nullptr;
  inPlace_ = (result_ == nullptr);
  InitializeSolver();
}

VQ_SparseSolver::VQ_SparseSolver(int n, double* a, int* ia, int* ja, int nrhs, double* b, int oocMode,
                                 int mtype, int verbose, const char* workingDirectory, double* x)
    : values_(a), rowPointers_(ia), columnIndices_(ja), rhs_(b), result_(x), mtype_(mtype), n_(n),
      nrhs_(nrhs), oocMode_(oocMode), workingDirectory_(OrEmpty(workingDirectory)),
      verbose_(verbose == 1), inPlace_(x == nullptr) {
  CreateHandle();
  InitializeSolver();
}

VQ_SparseSolver::VQ_SparseSolver(int oocMode, int mtype, bool verbose, const char* workingDirectory)
    : mtype_(mtype), oocMode_(oocMode), workingDirectory_(OrEmpty(workingDirectory)), verbose_(verbose) {
  CreateHandle();
  InitializeSolver();
}

VQ_SparseSolver::VQ_SparseSolver(int n, int nrhs, int oocMode, int mtype, bool verbose,
                                 const char* workingDirectory, bool inPlace)
    : mtype_(mtype), n_(n), nrhs_(nrhs), oocMode_(oocMode), workingDirectory_(OrEmpty(workingDirectory)),
      verbose_(verbose), inPlace_(inPlace), ownBufferRequested_(true) {
  CreateHandle();
  InitializeSolver();
  // The n x nrhs work buffer is allocated once, by the first solve that needs it (a solve in
  // place); solves into a separate result array do without it.
}

VQ_SparseSolver::VQ_SparseSolver(const VQ_SparseSolver& other) {
  CreateHandle();
  CopyConfiguration(other);
}

VQ_SparseSolver& VQ_SparseSolver::operator=(const VQ_SparseSolver& other) {
  if (this == &other) return *this;
  // The factorisation of this solver is given up; the copy has to factor again.
  if (factorised_) {
    handle_->Release();
    mkl_free_buffers();
  }
  CopyConfiguration(other);
  return *this;
}

void VQ_SparseSolver::CopyConfiguration(const VQ_SparseSolver& o) {
  values_ = o.values_;
  rowPointers_ = o.rowPointers_;
  columnIndices_ = o.columnIndices_;
  rhs_ = o.rhs_;
  result_ = o.result_;
  mtype_ = o.mtype_;
  std::memcpy(iparm_, o.iparm_, sizeof iparm_);
  maxfct_ = o.maxfct_;
  mnum_ = o.mnum_;
  msglvl_ = o.msglvl_;
  n_ = o.n_;
  nrhs_ = o.nrhs_;
  oocMode_ = o.oocMode_;
  workingDirectory_ = o.workingDirectory_;
  verbose_ = o.verbose_;
  stopIfNotPosDefinite_ = o.stopIfNotPosDefinite_;
  factorised_ = false;
  factorValid_ = false;
  checkSparseRepresentation_ = o.checkSparseRepresentation_;
  fillInOrdering_ = o.fillInOrdering_;
  status_ = 0;
  pardisoError_ = 0;
  warningCode_ = 0;
  instabilityEquation_ = 0;
  negativePivots_ = 0;
  positivePivots_ = 0;
  errorMessage_.clear();
  warningMessage_.clear();
  inPlace_ = o.inPlace_;
  ownBufferRequested_ = o.ownBufferRequested_;
  ownBuffer_.reset();
  ownBufferSize_ = 0;
  diagonalRequested_ = o.diagonalRequested_;
  matrixDiagonal_ = o.matrixDiagonal_;
  factorDiagonal_ = o.factorDiagonal_;
  permutation_.reset();
  permutationSize_ = 0;
  singularPivotRatio_ = o.singularPivotRatio_;
  judgeSingularity_ = o.judgeSingularity_;
  smallestPivotRatio_ = 0.0;
  smallestPivotEquation_ = 0;
  pivotMatrixDiagonal_.clear();
  pivotFactorDiagonal_.clear();
  pivotsKnown_ = false;
  // A solver of its own gets scratch files of its own.
  SetWorkingDirectory();
}

VQ_SparseSolver::~VQ_SparseSolver() {
  if (factorised_ && handle_) {
    handle_->Release();
    mkl_free_buffers();
  }
}

bool VQ_SparseSolver::AllocateOwnBuffer() {
  ownBuffer_.reset();
  ownBufferSize_ = 0;
  long long count = static_cast<long long>(std::max(n_, 0)) * std::max(nrhs_, 0);
  if (count == 0) return true;
  ownBuffer_ = vi::AllocateSolveWorkspace(count);
  if (!ownBuffer_) return false;
  ownBufferSize_ = count;
  return true;
}

void VQ_SparseSolver::InitializeSolver() {
  vi::Settings& s = vi::settings();

  std::memset(iparm_, 0, sizeof iparm_);
  if (s.sparseParamsSetByHost) {
    std::memcpy(iparm_, s.sparseParams, sizeof iparm_);
  } else {
    iparm_[kUserValues] = 1;
    iparm_[kOrdering] = fillInOrdering_;
    if (diagonalRequested_) iparm_[kPermutation] = 2;
    iparm_[kSolutionInB] = inPlace_ ? 1 : 0;
    iparm_[kRefinementSteps] = 2;
    iparm_[kPivotPerturbation] = 8;
    iparm_[kFactorNonzeros] = -1;
    iparm_[kFactorMflops] = -1;
    iparm_[kPivoting] = 1;
    iparm_[kParallelSolve] = oocMode_ != 0 ? 1 : 0;
    iparm_[kMatrixChecker] = checkSparseRepresentation_ ? 1 : 0;
    iparm_[kPrecision] = 0;
    iparm_[kDiagonalAccess] = diagonalRequested_ ? 1 : 0;
    iparm_[kOutOfCore] = oocMode_;
  }
  if (s.overridesActive) {
    for (const auto& pair : s.overrides)
      if (pair.first >= 0 && pair.first < 64) iparm_[pair.first] = pair.second;
  }

  maxfct_ = 1;
  mnum_ = 1;
  msglvl_ = verbose_ ? 1 : 0;
  // A fresh handle: whatever this object held before is released first.
  if (handle_->InUse()) handle_->Release();
  factorised_ = false;
  factorValid_ = false;

  s.lastSolverParams.assign(iparm_, iparm_ + 64);

  SetWorkingDirectory();
}

// ---- operands -----------------------------------------------------------------------------------

void VQ_SparseSolver::Set_Matrix(VQ_SparseSymMatrix* K) {
  if (!K) return;
  n_ = K->NumRows();
  values_ = K->GetDataPointer();
  rowPointers_ = K->GetRowVectorPointer();
  columnIndices_ = K->GetColumnVectorPointer();
}

void VQ_SparseSolver::Set_Matrix(int n, double* a, int* ia, int* ja) {
  n_ = n;
  values_ = a;
  rowPointers_ = ia;
  columnIndices_ = ja;
}

void VQ_SparseSolver::Set_LoadVector(VQ_Matrix* B) {
  if (!B) return;
  rhs_ = B->GetDataPointer();
  nrhs_ = B->NumCols();
}

void VQ_SparseSolver::Set_LoadVector(int, int nrhs, double* b) {
  rhs_ = b;
  nrhs_ = nrhs;
}

void VQ_SparseSolver::Set_ResultVector(VQ_Matrix* X) {
  result_ = X ? X->GetDataPointer() : nullptr;
  inPlace_ = false;
}

void VQ_SparseSolver::Set_ResultVector(double* x) {
  result_ = x;
  SetSolutionInPlace(x == nullptr);
}

void VQ_SparseSolver::SetSolutionInPlace(bool inPlace) {
  inPlace_ = inPlace;
  iparm_[kSolutionInB] = inPlace ? 1 : 0;
}

// ---- factorisation ------------------------------------------------------------------------------

int VQ_SparseSolver::Decomposition(bool inCallingThread, bool withAnalysis) {
  int status = ApplyDecomposition(inCallingThread, withAnalysis);
  factorised_ = true;
  if (vi::settings().sparseParamsSetByHost) UpdateGlobalSparseSolverParams();
  return status;
}

int VQ_SparseSolver::Decomposition(VQ_SparseSymMatrix* K, VQ_Matrix* B, VQ_Matrix* X,
                                   bool inCallingThread, bool withAnalysis) {
  Set_Matrix(K);
  if (B) Set_LoadVector(B);
  if (X) {
    Set_ResultVector(X);
    iparm_[kSolutionInB] = 0;
  } else {
    Set_ResultVector(static_cast<double*>(nullptr));
  }
  return Decomposition(inCallingThread, withAnalysis);
}

int VQ_SparseSolver::Decomposition(double* a, int* ia, int* ja, double* b, double* x,
                                   bool inCallingThread, bool withAnalysis) {
  values_ = a;
  rowPointers_ = ia;
  columnIndices_ = ja;
  rhs_ = b;
  Set_ResultVector(x);
  return Decomposition(inCallingThread, withAnalysis);
}

void VQ_SparseSolver::StoreError(int pardisoError) {
  pardisoError_ = pardisoError;
  errorMessage_ = vi::PardisoErrorMessage(pardisoError);
  status_ = vi::PardisoErrorStatus(pardisoError);
}

int VQ_SparseSolver::ApplyDecomposition(bool inCallingThread, bool withAnalysis) {
  status_ = 0;
  warningCode_ = 0;

  if (inCallingThread) {
    RunFactorizationJob(withAnalysis);
  } else {
    // The factorisation runs on a thread of its own; this thread only waits for it. Should the
    // system refuse a new thread, the work is done here instead.
    bool ran = false;
    try {
      std::thread worker([this, withAnalysis] { RunFactorizationJob(withAnalysis); });
      worker.join();
      ran = true;
    } catch (const std::system_error&) {
    }
    if (!ran) RunFactorizationJob(withAnalysis);
  }
  // PARDISO may hold memory after any attempt, so the destructor must release it.
  factorised_ = true;

  if (status_ == vi::kSolverOutOfMemory || status_ == vi::kSolverOutOfMemoryOoc) return status_;

  if (diagonalRequested_ && n_ >= 2 && pivotsKnown_) {
    for (int i = 0; i < n_; ++i) {
      if (matrixDiagonal_) matrixDiagonal_[i] = pivotMatrixDiagonal_[i];
      if (factorDiagonal_) factorDiagonal_[i] = pivotFactorDiagonal_[i];
    }
  }
  return status_;
}

bool VQ_SparseSolver::FetchDiagonals() {
  pivotsKnown_ = false;
  if (n_ < 1 || !permutation_ || permutationSize_ != n_) return false;
  bool permuted = false;
  for (int i = 0; i < n_ && !permuted; ++i) permuted = permutation_[i] >= 1;
  if (!permuted) {
    if (n_ != 1) return false;
    permutation_[0] = 1;  // one equation needs no ordering
  }
  std::unique_ptr<double[]> df(new (std::nothrow) double[n_]);
  std::unique_ptr<double[]> da(new (std::nothrow) double[n_]);
  std::unique_ptr<double[]> kd(new (std::nothrow) double[n_]);
  if (!df || !da || !kd) return false;
  if (handle_->GetDiagonal(df.get(), da.get(), mnum_) != 0) return false;
  // K's diagonal in equation order: the first entry of every row.
  const int nnz = rowPointers_[n_] - 1;
  for (int i = 0; i < n_; ++i) {
    const int p = rowPointers_[i] - 1;
    kd[i] = (p >= 0 && p < nnz && columnIndices_[p] == i + 1) ? values_[p] : 0.0;
  }
  // PARDISO gives both diagonals in pivot order: entry i belongs to equation perm[i], corrected
  // where the factorisation exchanged pivots within a block.
  std::vector<int> equations;
  if (!vi::EquationsOfPivots(n_, permutation_.get(), da.get(), kd.get(), equations)) {
    equations.assign(permutation_.get(), permutation_.get() + n_);
  }
  pivotMatrixDiagonal_.assign(static_cast<std::size_t>(n_), 0.0);
  pivotFactorDiagonal_.assign(static_cast<std::size_t>(n_), 0.0);
  for (int i = 0; i < n_; ++i) {
    const int eq = equations[i];
    if (eq < 1 || eq > n_) continue;
    pivotMatrixDiagonal_[eq - 1] = da[i];
    pivotFactorDiagonal_[eq - 1] = df[i];
  }
  pivotsKnown_ = true;
  return true;
}

int VQ_SparseSolver::CallPardiso(int phase, PardisoArgs& args) noexcept {
  // Every phase runs with the pivots accessible (iparm[55] = 1) and the permutation returned
  // (iparm[4] = 2), which the singularity rule needs; iparm keeps and reports the values of those
  // two entries that the defaults or the host chose.
  int local[64];
  std::memcpy(local, iparm_, sizeof local);
  local[kDiagonalAccess] = 1;
  if (permutation_ && permutationSize_ == n_) {
    if (local[kPermutation] == 0) local[kPermutation] = 2;
    args.perm = permutation_.get();
  }
  args.iparm = local;
  const int error = handle_->Call(phase, args);
  const int permutationSwitch = iparm_[kPermutation];
  const int diagonalAccess = iparm_[kDiagonalAccess];
  std::memcpy(iparm_, local, sizeof local);
  iparm_[kPermutation] = permutationSwitch;
  iparm_[kDiagonalAccess] = diagonalAccess;
  args.iparm = iparm_;
  return error;
}

void VQ_SparseSolver::ReportSingular(int equation) {
  status_ = vi::kSolverZeroPivot;
  instabilityEquation_ = equation;
  // Reported where PARDISO reports the equation of a zero pivot, for hosts that read it there.
  iparm_[kZeroPivotEquation] = equation;
  errorMessage_ = kSingularMessage;
  factorValid_ = false;
}

bool VQ_SparseSolver::JudgePivots(PardisoArgs& args) {
  if (!FetchDiagonals()) return true;  // no pivots reported: nothing to judge
  SingularityCheck::Pivot smallest =
      SingularityCheck::SmallestPivot(n_, pivotMatrixDiagonal_.data(), pivotFactorDiagonal_.data());
  if (iparm_[kPerturbedPivots] > 0 && singularPivotRatio_ > 0.0 &&
      !SingularityCheck::IsSingular(smallest, singularPivotRatio_)) {
    // PARDISO replaced pivots that vanished by a perturbation of about 10^-iparm[9] of the
    // matrix norm, which hides how small they were. They are looked at once more, factored with a
    // perturbation far below any ratio; the matrix is then factored again with its own settings
    // when it is regular after all, so its solution stays what it was.
    int reported[64];
    std::memcpy(reported, iparm_, sizeof reported);
    iparm_[kPivotPerturbation] = kJudgingPerturbation;
    const int judging = CallPardiso(vi::kFactor, args);
    std::memcpy(iparm_, reported, sizeof reported);
    if (judging == 0 && FetchDiagonals()) {
      const SingularityCheck::Pivot exact = SingularityCheck::SmallestPivot(
          n_, pivotMatrixDiagonal_.data(), pivotFactorDiagonal_.data());
      if (SingularityCheck::IsSingular(exact, singularPivotRatio_)) {
        smallestPivotRatio_ = exact.ratio;
        smallestPivotEquation_ = exact.equation;
        ReportSingular(exact.equation);
        return false;
      }
    }
    const int again = CallPardiso(vi::kFactor, args);
    std::memcpy(iparm_, reported, sizeof reported);
    if (again != 0) {
      StoreError(again);
      return false;
    }
    if (FetchDiagonals())
      smallest = SingularityCheck::SmallestPivot(n_, pivotMatrixDiagonal_.data(),
                                                 pivotFactorDiagonal_.data());
  }
  smallestPivotRatio_ = smallest.ratio;
  smallestPivotEquation_ = smallest.equation;
  if (SingularityCheck::IsSingular(smallest, singularPivotRatio_)) {
    ReportSingular(smallest.equation);
    return false;
  }
  return true;
}

void VQ_SparseSolver::EnforceArrayLayout() {
  // Whatever the host's global array or overrides say, the arrays handed to PARDISO are doubles
  // in 1-based compressed rows, and the solver keeps no buffers for a Schur complement or a
  // partial solution: entries that would make PARDISO read them otherwise are reset, and the
  // diagonal-access switch is kept to the two values PARDISO accepts.
  iparm_[kPrecision] = 0;
  iparm_[kPartialSolve] = 0;
  iparm_[kZeroBasedIndexing] = 0;
  iparm_[kSchurComplement] = 0;
  iparm_[kBlockFormat] = 0;
  // PARDISO takes only 0 or 1 here and fails badly on anything else.
  iparm_[kDiagonalAccess] = (iparm_[kDiagonalAccess] == 1 || diagonalRequested_) ? 1 : 0;
  // A negative iterative-solve code corrupts PARDISO's heap during the solve: taken as "none".
  // A stopping exponent L whose 10^-L underflows to zero (L >= 324) never lets the iteration
  // stop: it is held at 300.
  if (iparm_[kIterativeSolve] < 0) iparm_[kIterativeSolve] = 0;
  if (iparm_[kIterativeSolve] / 10 > 300) iparm_[kIterativeSolve] = 3000 + iparm_[kIterativeSolve] % 10;
  // The permutation switch: 0 none, 2 returned in the solver's array. No caller can hand the
  // solver a permutation, so 1 (read it from that array, which holds no permutation) and values
  // PARDISO does not know - both crash the ordering - become 0.
  if (iparm_[kPermutation] != 0 && iparm_[kPermutation] != 2) iparm_[kPermutation] = diagonalRequested_ ? 2 : 0;
  // A thread count beyond any machine (around 1.5e9) sends the analysis into an endless loop.
  if (iparm_[kCnrThreads] < 0 || iparm_[kCnrThreads] > 65536) iparm_[kCnrThreads] = 0;
  // An out-of-core mode other than 0, 1 or 2 crashes the factorisation: the solver's own is used.
  if (iparm_[kOutOfCore] < 0 || iparm_[kOutOfCore] > 2)
    iparm_[kOutOfCore] = (oocMode_ >= 0 && oocMode_ <= 2) ? oocMode_ : 0;
}

void VQ_SparseSolver::ResetFactorizationOutcome() {
  factorValid_ = false;
  instabilityEquation_ = 0;
  negativePivots_ = 0;
  positivePivots_ = 0;
  pardisoError_ = 0;
  errorMessage_.clear();
  warningMessage_.clear();

  smallestPivotRatio_ = 0.0;
  smallestPivotEquation_ = 0;
  pivotsKnown_ = false;
}

PardisoArgs VQ_SparseSolver::OperandArgs() {
  PardisoArgs args;
  args.maxfct = maxfct_;
  args.mnum = mnum_;
  args.mtype = mtype_;
  args.n = n_;
  args.a = values_;
  args.ia = rowPointers_;
  args.ja = columnIndices_;
  args.iparm = iparm_;
  args.msglvl = msglvl_;
  return args;
}

bool VQ_SparseSolver::CheckFactorizationInput() {
  if (n_ < 1 || !values_ || !rowPointers_ || !columnIndices_) {
    StoreError(-1);  // input inconsistency: nothing to factor
    return false;
  }

  EnforceArrayLayout();

  // An equation without stiffness makes the matrix singular whatever the factorisation would
  // make of it (PARDISO perturbs the zero pivot and carries on).
  if (const int equation = judgeSingularity_ ? SingularityCheck::EquationWithoutStiffness(
                                                   n_, values_, rowPointers_, columnIndices_)
                                             : 0) {
    ReportSingular(equation);
    return false;
  }
  return true;
}

bool VQ_SparseSolver::PreparePermutation() {
  // PARDISO returns its permutation into this array at every analysis (CallPardiso): the
  // pivots are put back into the host's equation order with it.
  if (permutationSize_ != n_) {
    permutation_.reset(new (std::nothrow) int[n_]);
    permutationSize_ = permutation_ ? n_ : 0;
    if (permutation_) std::fill(permutation_.get(), permutation_.get() + n_, 0);
  }
  if (!permutation_) {
    StoreError(-2);
    return false;
  }
  return true;
}

bool VQ_SparseSolver::AnalyseAndFactor(PardisoArgs& args, bool withAnalysis) {
  // Every solver writes its own scratch files: its path is published again right before
  // PARDISO reads it, since other solvers may have published theirs in the meantime.
  if (iparm_[kOutOfCore] != 0 && !oocPath_.empty())
    vi::SetEnv("MKL_PARDISO_OOC_PATH", oocPath_.c_str());

  // A factorisation needs an analysis on this handle first.
  if (!handle_->InUse()) withAnalysis = true;

  if (withAnalysis) {
    int error = CallPardiso(vi::kAnalysis, args);
    if (verbose_) {
      // Composed for the verbose mode and not kept; PARDISO prints its own statistics.
      std::string report = vi::ComposeAnalysisReport(iparm_, mkl_get_max_threads(), n_, nrhs_, oocMode_);
      (void)report;
    }
    if (error != 0) {
      StoreError(error);
      return false;
    }
  }

  int error = CallPardiso(vi::kFactor, args);
  if (verbose_) {
    std::string report = vi::ComposeFactorizationReport(iparm_, error != 0);
    (void)report;
  }
  if (error != 0) {
    RecordFactorizationFailure(args, error);
    return false;
  }
  return true;
}

void VQ_SparseSolver::RecordFactorizationFailure(PardisoArgs& args, int error) {
  StoreError(error);
  if (status_ == vi::kSolverZeroPivot) instabilityEquation_ = iparm_[kZeroPivotEquation];
  // With no equation known yet, a factorisation as positive definite locates the breakdown.
  if (instabilityEquation_ == 0 && mtype_ == -2) {
    args.mtype = 2;
    int retry = CallPardiso(vi::kFactor, args);
    if (retry != 0) {
      instabilityEquation_ = iparm_[kZeroPivotEquation];
      StoreError(retry);
    }
  }
}

void VQ_SparseSolver::RejectIndefinite(PardisoArgs& args) {
  args.mtype = 2;
  int retry = CallPardiso(vi::kFactor, args);
  if (retry != 0) {
    instabilityEquation_ = iparm_[kZeroPivotEquation];
    pardisoError_ = retry;
    errorMessage_ = vi::PardisoErrorMessage(retry);
  } else {
    // The positive definite retry went through on a pivot it could not tell from zero:
    // report the failure with the zero-pivot message all the same.
    errorMessage_ = vi::PardisoErrorMessage(-4);
  }
  status_ = vi::kSolverZeroPivot;
}

void VQ_SparseSolver::JudgeInertia(PardisoArgs& args) {
  positivePivots_ = iparm_[kPositivePivots];
  negativePivots_ = iparm_[kNegativePivots];
  // PARDISO reports no inertia for the positive definite type; a Cholesky factorisation that
  // succeeded has n positive pivots.
  if (mtype_ == 2 && positivePivots_ == 0 && negativePivots_ == 0) positivePivots_ = n_;

  // The library's one rule for a singular matrix; rounding-level pivots of either sign are a
  // singularity, not an indefinite matrix.
  if (judgeSingularity_ && !JudgePivots(args)) return;

  if (negativePivots_ > 0) {
    if (stopIfNotPosDefinite_) {
      RejectIndefinite(args);
      return;
    }
    if (mtype_ == -2) {
      warningMessage_ = kPivotingWarning;
      warningCode_ = -1;
    }
  }
  status_ = 0;
  factorValid_ = true;
}

void VQ_SparseSolver::RunFactorizationJob(bool withAnalysis) noexcept {
  try {
    ResetFactorizationOutcome();
    if (!CheckFactorizationInput() || !PreparePermutation()) return;

    PardisoArgs args = OperandArgs();
    args.nrhs = std::max(nrhs_, 1);
    double dummy = 0.0;
    args.b = &dummy;  // not read by analysis and factorisation
    args.x = &dummy;
    args.perm = permutation_.get();

    if (AnalyseAndFactor(args, withAnalysis)) JudgeInertia(args);
  } catch (const std::bad_alloc&) {
    StoreError(-2);
  } catch (...) {
    StoreError(-5);
  }
}

// ---- solution -----------------------------------------------------------------------------------

int VQ_SparseSolver::SolveForLoadCase(int k) {
  try {
    // Also after a failed factorisation there is nothing to solve with.
    if (!factorised_ || !factorValid_) {
      status_ = vi::kSolverNotFactorised;
      errorMessage_ = kNotFactorisedMessage;
      return status_;
    }
    int count = (k == -1) ? nrhs_ : 1;
    if (k != -1 && (k < 1 || k > nrhs_)) {
      StoreError(-1);
      return status_;
    }
    if (count < 1) return 0;
    if (!rhs_ || n_ < 1) {
      StoreError(-1);
      return status_;
    }

    // No refinement steps unless the factorisation perturbed pivots.
    if (iparm_[kPerturbedPivots] == 0) iparm_[kRefinementSteps] = 0;

    const long long offset = (k == -1) ? 0 : static_cast<long long>(k - 1) * n_;
    const long long length = static_cast<long long>(n_) * count;
    double* b = rhs_ + offset;
    double* x = (result_ && result_ != rhs_) ? result_ + offset : nullptr;

    // With a separate result array PARDISO writes the solution there directly and leaves the
    // right-hand sides as they are; in place it needs an n x count work array.
    iparm_[kSolutionInB] = x ? 0 : 1;
    std::unique_ptr<double[]> work;
    if (!x) {
      if (ownBufferRequested_ && !ownBuffer_) AllocateOwnBuffer();
      if (ownBuffer_ && ownBufferSize_ >= length) {
        x = ownBuffer_.get();
      } else {
        work = vi::AllocateSolveWorkspace(length);
        if (!work) {
          if (oocMode_ == 2) {
            errorMessage_ = vi::PardisoErrorMessage(-9);
            status_ = vi::kSolverOutOfMemoryOoc;
          } else {
            errorMessage_ = vi::PardisoErrorMessage(-2);
            status_ = vi::kSolverOutOfMemory;
          }
          return status_;
        }
        x = work.get();
      }
    }

    if (iparm_[kOutOfCore] != 0 && !oocPath_.empty())
      vi::SetEnv("MKL_PARDISO_OOC_PATH", oocPath_.c_str());

    PardisoArgs args = OperandArgs();
    args.perm = (iparm_[kPermutation] != 0) ? permutation_.get() : nullptr;
    args.nrhs = count;
    args.b = b;
    args.x = x;
    int error = CallPardiso(vi::kSolve, args);
    if (error != 0) {
      StoreError(error);
      return status_;
    }
    status_ = 0;
    return 0;
  } catch (const std::bad_alloc&) {
    StoreError(-2);
    return status_;
  }
}

int VQ_SparseSolver::Solve() {
  if (!factorised_) {
    status_ = vi::kSolverNotFactorised;
    errorMessage_ = kNotFactorisedMessage;
    return status_;
  }
  int result = SolveForLoadCase(-1);
  if ((result == vi::kSolverOutOfMemory || result == vi::kSolverOutOfMemoryOoc) && nrhs_ >= 1) {
    // Not enough memory for all load vectors at once: one at a time.
    for (int k = 1; k <= nrhs_; ++k) {
      result = SolveForLoadCase(k);
      if (result != 0) break;
    }
  }
  status_ = result;
  return result;
}

// ---- settings and queries -----------------------------------------------------------------------

void VQ_SparseSolver::SetMatrixType(int mtype) { mtype_ = mtype; }
int VQ_SparseSolver::GetMatrixType() const { return mtype_; }
void VQ_SparseSolver::SetMessageLevelInfo(int level) { msglvl_ = level; }
void VQ_SparseSolver::Set_StopIfNotPosDefinite(bool stop) { stopIfNotPosDefinite_ = stop; }
void VQ_SparseSolver::Set_CheckSparseRepresentation(int check) { checkSparseRepresentation_ = check != 0; }
void VQ_SparseSolver::Set_Fill_InReducingOrdering_Type(int ordering) { fillInOrdering_ = ordering; }
int VQ_SparseSolver::Get_iParm(int i) const { return (i >= 0 && i < 64) ? iparm_[i] : 0; }
int VQ_SparseSolver::GetLastErrorCode() const { return status_; }
int VQ_SparseSolver::Get_PardisoError() const { return pardisoError_; }

double VQ_SparseSolver::Set_SingularPivotRatio(double ratio) {
  if (ratio >= 0.0 && ratio < 1.0) singularPivotRatio_ = ratio;
  return singularPivotRatio_;
}

double VQ_SparseSolver::Get_SingularPivotRatio() const { return singularPivotRatio_; }

void VQ_SparseSolver::Set_JudgeSingularity(bool judge) { judgeSingularity_ = judge; }
double VQ_SparseSolver::Get_SmallestPivotRatio() const { return smallestPivotRatio_; }
int VQ_SparseSolver::Get_SmallestPivotEquation() const { return smallestPivotEquation_; }
int VQ_SparseSolver::Get_DOFNumForInstability() const { return instabilityEquation_; }
int VQ_SparseSolver::Get_NumberOfNegativeEigenvalues() const { return negativePivots_; }
int VQ_SparseSolver::Get_NumberOfPositiveEigenvalues() const { return positivePivots_; }
int VQ_SparseSolver::Get_NumberOfEquations() const { return n_; }
int VQ_SparseSolver::Get_NumberOfLoadVectors() const { return nrhs_; }
bool VQ_SparseSolver::IsFactorised() const { return factorised_; }

void VQ_SparseSolver::SaveSolverInfo(int* out) const {
  if (out) std::memcpy(out, iparm_, sizeof iparm_);
}

void VQ_SparseSolver::SaveSolverInfo(std::vector<int>& out) const {
  out.clear();
  out.insert(out.end(), iparm_, iparm_ + 64);
}

void VQ_SparseSolver::ReadGlobalSparseSolverParams() {
  std::memcpy(iparm_, vi::settings().sparseParams, sizeof iparm_);
}

void VQ_SparseSolver::UpdateGlobalSparseSolverParams() const {
  std::memcpy(vi::settings().sparseParams, iparm_, sizeof iparm_);
}

void VQ_SparseSolver::SetDiagElementsInfo(bool on, double* matrixDiagonal, double* factorDiagonal) {
  diagonalRequested_ = on;
  matrixDiagonal_ = on ? matrixDiagonal : nullptr;
  factorDiagonal_ = on ? factorDiagonal : nullptr;
  iparm_[kDiagonalAccess] = on ? 1 : 0;
  if (on) iparm_[kPermutation] = 2;
}

void VQ_SparseSolver::GetSolverErrorInfo(std::string& message, int& code) const {
  message = errorMessage_;
  code = vi::TranslateSolverStatus(status_, code);
}

void VQ_SparseSolver::GetSolverWarningInfo(std::string& message, int& code) const {
  message = warningMessage_;
  code = warningCode_;
}

std::string VQ_SparseSolver::GenerateUniqueGUIDString() { return vi::NewGuid(); }

void VQ_SparseSolver::SetWorkingDirectory() {
  // "<dir>/<GUID>_ooc_file": a separator is added unless the directory already ends with one;
  // without a working directory the files go to the current directory.
  std::string path = workingDirectory_;
  if (!path.empty() && path.back() != '/') path += '/';
  path += GenerateUniqueGUIDString();
  path += "_ooc_file";
  oocPath_ = path;
  vi::SetEnv("MKL_PARDISO_OOC_PATH", oocPath_.c_str());
}

const std::string& VQ_SparseSolver::Get_OutOfCorePath() const { return oocPath_; }

// ---- process environment ------------------------------------------------------------------------

int VQ_SparseSolver::Set_INTEL_MKL_OOC_Max_Core_Size(int mb) {
  return vi::SetEnvInt("MKL_PARDISO_OOC_MAX_CORE_SIZE", mb);
}

int VQ_SparseSolver::Set_INTEL_MKL_NumberOfThreads(int threads) {
  return vi::SetEnvInt("MKL_NUM_THREADS", threads);
}

int VQ_SparseSolver::Set_INTEL_MKL_UseMaxNumberOfThreads() {
  return vi::SetEnvInt("MKL_NUM_THREADS", vi::ProcessorCount());
}

int VQ_SparseSolver::Set_INTEL_MKL_OMP_NumberOfThreads(int threads) {
  return vi::SetEnvInt("OMP_NUM_THREADS", threads);
}

int VQ_SparseSolver::Set_INTEL_MKL_OOC_KEEP_FILE(int keep) {
  return vi::SetEnv("MKL_PARDISO_OOC_KEEP_FILE", keep == 1 ? "1" : "0");
}

int VQ_SparseSolver::Set_INTEL_MKL_KMP_AFFINITY(int on) {
  return vi::SetEnv("KMP_AFFINITY", on != 0 ? "enabled" : "disabled");
}

int VQ_SparseSolver::Set_UseDefault_INTELSolverSettings() {
  int r = vi::SetEnv("MKL_PARDISO_OOC_MAX_CORE_SIZE", "2000");
  r |= vi::SetEnv("MKL_PARDISO_OOC_KEEP_FILE", "1");
  r |= vi::SetEnv("MKL_NUM_THREADS", "1");
  SetWorkingDirectory();
  return r;
}
