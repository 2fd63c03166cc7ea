// VQ_ExtendedEigenSparseSolver.cpp - eigenpairs in an interval by MKL's FEAST; see the header.
#include "eigen/VQ_ExtendedEigenSparseSolver.h"

#include <mkl_solvers_ee.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <numeric>

#include "api/internal/GlobalState.h"
#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "eigen/VQ_ModalMass.h"
#include "eigen/VQ_SturmSequenceCheck.h"
#include "eigen/internal/FeastMessages.h"
#include "sparse/VQ_InertiaCount.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace vi = vqmath::internal;
namespace ei = vqmath::eigen_internal;
using MATLIBDLLCOMMONS::STATE_STATUS;

namespace {

// Defaults of the user parameters fpm(1)…fpm(7).
constexpr int kDefaultUserParams[7] = {0, 8, 12, 20, 0, 0, 5};
// FEAST's info values the search reacts to.
constexpr int kFeastOk = 0;
constexpr int kFeastNoEigenvalue = 1;
constexpr int kFeastSubspaceTooSmall = 3;
constexpr int kFeastBadInterval = 200;
constexpr int kFeastBadSubspace = 201;
constexpr int kFeastBadOrder = 202;
// Subspace growth: at most this many FEAST calls per sub-interval.
constexpr int kMaxFeastCalls = 5;
constexpr int kStatusPartial = -22;
constexpr int kWarningEigenvalueMissed = -23;

}  // namespace

// ---- construction -------------------------------------------------------------------------------

VQ_ExtendedEigenSparseSolver::VQ_ExtendedEigenSparseSolver(VQ_SparseSymMatrix& K,
                                                           VQ_SparseSymMatrix& M, int oocMode,
                                                           int mtype, bool verbose,
                                                           const char* workingDirectory)
    : VQ_SparseSolver(&K, nullptr, oocMode, mtype, verbose, workingDirectory, nullptr) {
  order_ = K.NumRows();
  kRowPointers_ = K.GetRowVectorPointer();
  kColumnIndices_ = K.GetColumnVectorPointer();
  kValues_ = K.GetDataPointer();
  bRowPointers_ = M.GetRowVectorPointer();
  bColumnIndices_ = M.GetColumnVectorPointer();
  bValues_ = M.GetDataPointer();
  Setup(workingDirectory);
}

VQ_ExtendedEigenSparseSolver::VQ_ExtendedEigenSparseSolver(VQ_SparseSymMatrix& K,
                                                           VQ_DiagonalMatrix& M, int oocMode,
                                                           int mtype, bool verbose,
                                                           const char* workingDirectory)
    : VQ_SparseSolver(&K, nullptr, oocMode, mtype, verbose, workingDirectory, nullptr) {
  order_ = K.NumRows();
  kRowPointers_ = K.GetRowVectorPointer();
  kColumnIndices_ = K.GetColumnVectorPointer();
  kValues_ = K.GetDataPointer();
  Setup(workingDirectory);
  // A diagonal of another order than K leaves B empty; FEAST then rejects the input.
  if (M.NumRows() == order_ && M.GetDataPointer() != nullptr) UseDiagonalB(M.GetDataPointer());
}

VQ_ExtendedEigenSparseSolver::VQ_ExtendedEigenSparseSolver(VQ_SparseSymMatrix& K, int oocMode,
                                                           int mtype, bool verbose,
                                                           const char* workingDirectory)
    : VQ_SparseSolver(&K, nullptr, oocMode, mtype, verbose, workingDirectory, nullptr) {
  order_ = K.NumRows();
  kRowPointers_ = K.GetRowVectorPointer();
  kColumnIndices_ = K.GetColumnVectorPointer();
  kValues_ = K.GetDataPointer();
  Setup(workingDirectory);
  UseIdentityB();
}

VQ_ExtendedEigenSparseSolver::VQ_ExtendedEigenSparseSolver(int n, int* ia, int* ja, double* a,
                                                           int* ib, int* jb, double* b, int oocMode,
                                                           int mtype, bool verbose,
                                                           const char* workingDirectory)
    : VQ_SparseSolver(n, a, ia, ja, 1, nullptr, oocMode, mtype, verbose ? 1 : 0, workingDirectory,
                      nullptr) {
  order_ = n;
  kRowPointers_ = ia;
  kColumnIndices_ = ja;
  kValues_ = a;
  bRowPointers_ = ib;
  bColumnIndices_ = jb;
  bValues_ = b;
  Setup(workingDirectory);
}

VQ_ExtendedEigenSparseSolver::VQ_ExtendedEigenSparseSolver(int n, int* ia, int* ja, double* a,
                                                           double* bDiagonal, int oocMode,
                                                           int mtype, bool verbose,
                                                           const char* workingDirectory)
    : VQ_SparseSolver(n, a, ia, ja, 1, nullptr, oocMode, mtype, verbose ? 1 : 0, workingDirectory,
                      nullptr) {
  order_ = n;
  kRowPointers_ = ia;
  kColumnIndices_ = ja;
  kValues_ = a;
  Setup(workingDirectory);
  if (bDiagonal != nullptr) UseDiagonalB(bDiagonal);
}

VQ_ExtendedEigenSparseSolver::VQ_ExtendedEigenSparseSolver(int n, int* ia, int* ja, double* a,
                                                           int oocMode, int mtype, bool verbose,
                                                           const char* workingDirectory)
    : VQ_SparseSolver(n, a, ia, ja, 1, nullptr, oocMode, mtype, verbose ? 1 : 0, workingDirectory,
                      nullptr) {
  order_ = n;
  kRowPointers_ = ia;
  kColumnIndices_ = ja;
  kValues_ = a;
  Setup(workingDirectory);
  UseIdentityB();
}

VQ_ExtendedEigenSparseSolver::VQ_ExtendedEigenSparseSolver(
    const VQ_ExtendedEigenSparseSolver& other)
    : VQ_SparseSolver(other),
      workingDirectory_(other.workingDirectory_),
      order_(other.order_),
      kRowPointers_(other.kRowPointers_),
      kColumnIndices_(other.kColumnIndices_),
      kValues_(other.kValues_),
      bRowPointers_(other.bRowPointers_),
      bColumnIndices_(other.bColumnIndices_),
      bValues_(other.bValues_),
      statusMessage_(other.statusMessage_),
      status_(other.status_),
      userParamsSet_(other.userParamsSet_),
      ownsB_(other.ownsB_),
      ownedRowPointers_(other.ownedRowPointers_),
      ownedColumnIndices_(other.ownedColumnIndices_),
      ownedValues_(other.ownedValues_),
      feastCalls_(other.feastCalls_),
      lastM0_(other.lastM0_),
      verify_(other.verify_),
      warningCode_(other.warningCode_),
      sturmCount_(other.sturmCount_) {
  std::memcpy(fpm_, other.fpm_, sizeof fpm_);
  std::memcpy(userParams_, other.userParams_, sizeof userParams_);
  RepointOwnedB();
}

VQ_ExtendedEigenSparseSolver& VQ_ExtendedEigenSparseSolver::operator=(
    const VQ_ExtendedEigenSparseSolver& other) {
  if (this == &other) return *this;
  VQ_SparseSolver::operator=(other);
  workingDirectory_ = other.workingDirectory_;
  order_ = other.order_;
  kRowPointers_ = other.kRowPointers_;
  kColumnIndices_ = other.kColumnIndices_;
  kValues_ = other.kValues_;
  bRowPointers_ = other.bRowPointers_;
  bColumnIndices_ = other.bColumnIndices_;
  bValues_ = other.bValues_;
  statusMessage_ = other.statusMessage_;
  status_ = other.status_;
  std::memcpy(fpm_, other.fpm_, sizeof fpm_);
  userParamsSet_ = other.userParamsSet_;
  std::memcpy(userParams_, other.userParams_, sizeof userParams_);
  ownsB_ = other.ownsB_;
  ownedRowPointers_ = other.ownedRowPointers_;
  ownedColumnIndices_ = other.ownedColumnIndices_;
  ownedValues_ = other.ownedValues_;
  feastCalls_ = other.feastCalls_;
  lastM0_ = other.lastM0_;
  verify_ = other.verify_;
  warningCode_ = other.warningCode_;
  sturmCount_ = other.sturmCount_;
  RepointOwnedB();
  return *this;
}

VQ_ExtendedEigenSparseSolver::~VQ_ExtendedEigenSparseSolver() = default;

void VQ_ExtendedEigenSparseSolver::Setup(const char* workingDirectory) {
  std::memset(fpm_, 0, sizeof fpm_);
  SetDefaultUserParameters();
  workingDirectory_ = workingDirectory ? workingDirectory : "";
  // FEAST's PARDISO runs in core up to 2000 MB and single-threaded from here on.
  vi::SetEnv("MKL_PARDISO_OOC_MAX_CORE_SIZE", "2000");
  vi::SetEnv("MKL_PARDISO_OOC_KEEP_FILE", "1");
  vi::SetEnv("MKL_NUM_THREADS", "1");
  SetWorkingDirectory();
}

void VQ_ExtendedEigenSparseSolver::SetDefaultUserParameters() {
  std::memcpy(userParams_, kDefaultUserParams, sizeof userParams_);
  userParamsSet_ = false;
}

void VQ_ExtendedEigenSparseSolver::UseDiagonalB(const double* diagonal) {
  // The diagonal mass as compressed rows: one entry per row, on the diagonal.
  try {
    ownedRowPointers_.resize(static_cast<size_t>(std::max(order_, 0)) + 1);
    ownedColumnIndices_.resize(static_cast<size_t>(std::max(order_, 0)));
    std::iota(ownedRowPointers_.begin(), ownedRowPointers_.end(), 1);
    std::iota(ownedColumnIndices_.begin(), ownedColumnIndices_.end(), 1);
    ownedValues_.assign(diagonal, diagonal + std::max(order_, 0));
    ownsB_ = true;
    RepointOwnedB();
  } catch (const std::bad_alloc&) {
    ownsB_ = false;
    status_ = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
  }
}

void VQ_ExtendedEigenSparseSolver::UseIdentityB() {
  try {
    const std::vector<double> ones(static_cast<size_t>(std::max(order_, 0)), 1.0);
    UseDiagonalB(ones.data());
  } catch (const std::bad_alloc&) {
    status_ = MATLIBDLLCOMMONS::STATUS_NO_MEMORY;
  }
}

void VQ_ExtendedEigenSparseSolver::RepointOwnedB() {
  if (!ownsB_) return;
  bRowPointers_ = ownedRowPointers_.data();
  bColumnIndices_ = ownedColumnIndices_.data();
  bValues_ = ownedValues_.data();
}

// ---- user parameters
// -----------------------------------------------------------------------------

// Every setter stores its value for fpm(index + 1) and marks the user parameters as set; the
// values are validated when FEAST_init hands them to FEAST.
void VQ_ExtendedEigenSparseSolver::SetUserParameter(int index, int value) {
  userParams_[index] = value;
  userParamsSet_ = true;
}
void VQ_ExtendedEigenSparseSolver::SetRunTimeStatus(int value) { SetUserParameter(0, value); }
void VQ_ExtendedEigenSparseSolver::SetNumberOfCountourPoints(int value) { SetUserParameter(1, value); }
void VQ_ExtendedEigenSparseSolver::SetErrorTraceDoublePrecesionStoppingCriteria(int value) { SetUserParameter(2, value); }
void VQ_ExtendedEigenSparseSolver::SetMaxRefinimentLoop(int value) { SetUserParameter(3, value); }
void VQ_ExtendedEigenSparseSolver::SetUserInitialSpace(int value) { SetUserParameter(4, value); }
void VQ_ExtendedEigenSparseSolver::SetStoppingTestType(int value) { SetUserParameter(5, value); }
void VQ_ExtendedEigenSparseSolver::SetErrorTraceSinglePrecesionStoppingCriteria(int value) { SetUserParameter(6, value); }

// ---- FEAST -------------------------------------------------------------------------------------

void VQ_ExtendedEigenSparseSolver::PARDISO_init() { InitializeSolver(); }

void VQ_ExtendedEigenSparseSolver::FEAST_init() {
  feastinit(fpm_);
  if (userParamsSet_) {
    // Switches take only 0 or 1, the contour points only FEAST's list; a rejected user value is
    // replaced by the default, so that the getters show what FEAST was given.
    auto binary = [this](int k) {
      if (userParams_[k] == 0 || userParams_[k] == 1)
        fpm_[k] = userParams_[k];
      else
        userParams_[k] = kDefaultUserParams[k];
    };
    binary(0);
    if (ei::IsValidFeastContourPointCount(userParams_[1]))
      fpm_[1] = userParams_[1];
    else
      userParams_[1] = kDefaultUserParams[1];
    fpm_[2] = userParams_[2];
    fpm_[3] = userParams_[3];
    binary(4);
    binary(5);
    fpm_[6] = userParams_[6];
  }
  // FEAST's inner solves take the direct solver's PARDISO parameters.
  fpm_[63] = 1;
  SaveSolverInfo(fpm_ + 64);
}

void VQ_ExtendedEigenSparseSolver::ResolveSolverErrors(int info, std::string& message,
                                                       STATE_STATUS& status) {
  int code = 0;
  ei::FeastInfoMessage(info, message, code);
  status = static_cast<STATE_STATUS>(code);
}

int VQ_ExtendedEigenSparseSolver::Solve(double lo, double hi, int requested,
                                        std::vector<double>& values, VQ_Matrix& vectors,
                                        bool storeVectors) {
  const int n = order_;
  int m0 = static_cast<int>(1.5 * requested);
  // FEAST's documented input errors, checked here first: MKL reports them only as a bad
  // argument (info −102, −112, …), which would lose their own texts.
  if (n <= 0) return kFeastBadOrder;
  if (std::min(m0, n) <= 0) return kFeastBadSubspace;
  if (!(lo < hi)) return kFeastBadInterval;
  for (int attempt = 1;; ++attempt) {
    m0 = std::min(m0, n);
    lastM0_ = m0;
    std::vector<double> e, x, res;
    try {
      // FEAST itself reports a non-positive order or subspace; the arrays hold at least one
      // value so that it can.
      const size_t columns = static_cast<size_t>(std::max(m0, 1));
      e.assign(columns, 0.0);
      x.assign(static_cast<size_t>(std::max(n, 1)) * columns, 0.0);
      res.assign(columns, 0.0);
    } catch (const std::bad_alloc&) {
      return -1;  // FEAST's own code for an allocation failure
    }
    double epsout = 0.0;
    int loop = 0;
    int found = 0;
    int info = 0;
    const char uplo = 'U';
    ++feastCalls_;
    dfeast_scsrgv(&uplo, &n, kValues_, kRowPointers_, kColumnIndices_, bValues_, bRowPointers_,
                  bColumnIndices_, fpm_, &epsout, &loop, &lo, &hi, &m0, e.data(), x.data(), &found,
                  res.data(), &info);
    if (info == kFeastOk) {
      const int collected = static_cast<int>(values.size());
      const int k = std::max(0, std::min(found, requested - collected));
      if (storeVectors) {
        // Columns collected+1 … collected+k, as far as the caller's matrix reaches.
        const int rows = vectors.NumRows();
        const int cols = vectors.NumCols();
        double* dst = vectors.GetDataPointer();
        if (dst != nullptr && rows == n) {
          for (int j = 0; j < k && collected + j < cols; ++j)
            std::memcpy(dst + static_cast<size_t>(collected + j) * n,
                        x.data() + static_cast<size_t>(j) * n, sizeof(double) * n);
        }
      }
      values.insert(values.end(), e.begin(), e.begin() + k);
      return 0;
    }
    if (info == kFeastNoEigenvalue) return 0;
    if (info == kFeastSubspaceTooSmall) {
      if (attempt >= kMaxFeastCalls) return kFeastSubspaceTooSmall;
      m0 *= 2;
      continue;
    }
    return info;
  }
}

int VQ_ExtendedEigenSparseSolver::SolveSystem(double Emin, double Emax, int requested,
                                              std::vector<double>& values, VQ_Matrix& vectors,
                                              bool storeVectors, int intervals) {
  warningCode_ = 0;
  sturmCount_ = -1;
  const int status = SearchIntervals(Emin, Emax, requested, values, vectors, storeVectors, intervals);
  if (status != 0 && status != kStatusPartial) return status;
  return VerifyFound(Emin, values, storeVectors ? vectors.GetDataPointer() : nullptr, status);
}

int VQ_ExtendedEigenSparseSolver::VerifyFound(double Emin, std::vector<double>& values,
                                              const double* modeShapes, int status) {
  if (!verify_ || values.empty()) return status;
  const int count = static_cast<int>(values.size());
  VQ_InertiaCount counter(order_, kRowPointers_, kColumnIndices_, kValues_, bRowPointers_,
                          bColumnIndices_, bValues_);
  counter.SetOutOfCoreMode(Get_iParm(59));  // the out-of-core mode this solver factors with
  counter.SetWorkingDirectory(workingDirectory_);
  VQ_ModalMass mass(order_, bRowPointers_, bColumnIndices_, bValues_);
  VQ_SturmSequenceCheck check(counter, &mass);
  check.SetSparseMass(bRowPointers_, bValues_);
  const VQ_SturmCheckOutcome outcome = check.Check(values.data(), count, Emin, modeShapes);
  if (outcome.done) sturmCount_ = outcome.counted;
  if (outcome.status != 0) {
    values.clear();  // nothing found is an eigenvalue
    statusMessage_ = outcome.message;
    status_ = static_cast<STATE_STATUS>(outcome.status);
    return outcome.status;
  }
  if (outcome.missed) warningCode_ = kWarningEigenvalueMissed;
  return status;
}

int VQ_ExtendedEigenSparseSolver::SearchIntervals(double Emin, double Emax, int requested,
                                                  std::vector<double>& values, VQ_Matrix& vectors,
                                                  bool storeVectors, int intervals) {
  status_ = MATLIBDLLCOMMONS::STATUS_OK;
  statusMessage_.clear();
  feastCalls_ = 0;
  PARDISO_init();
  FEAST_init();
  if (intervals < 1) return status_;
  const double width = (Emax - Emin) / intervals;
  for (int k = 0; k < intervals; ++k) {
    const double lo = Emin + k * width;
    const double hi = Emin + (k + 1) * width;
    const int result = Solve(lo, hi, requested, values, vectors, storeVectors);
    const int collected = static_cast<int>(values.size());
    if (result != 0) {
      if (collected == 0) {
        ResolveSolverErrors(result, statusMessage_, status_);
        return status_;
      }
      char buffer[128];
      std::snprintf(buffer, sizeof buffer,
                    "Only %d Eigenvalues of Requested %d Eigenvalues Found \n", collected,
                    requested);
      statusMessage_ = buffer;
      status_ = static_cast<STATE_STATUS>(kStatusPartial);
      return kStatusPartial;
    }
    if (collected >= requested) {
      status_ = MATLIBDLLCOMMONS::STATUS_OK;
      return 0;
    }
  }
  return status_;
}
