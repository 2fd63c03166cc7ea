// Subspace iteration with automatic shifting; see VQ_SubspaceEigenSparseSolver.h.
//
// The block work of an iteration runs on whole n x q blocks: M X through the mass operator (row
// scaling or MKL's sparse symmetric product), one PARDISO solve for all q right-hand sides, the
// projections Xb' Y and Xb' M Xb and the update Xb Q as dgemm calls, and the orthogonalisation
// against found vectors as two dgemm calls. Only the q x q pencil goes through the element-wise
// Jacobi routine.
#include "eigen/VQ_SubspaceEigenSparseSolver.h"

#include <mkl_cblas.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <ctime>
#include <new>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_SymMatrix.h"
#include "eigen/internal/SparseShiftInvertOperator.h"
#include "eigen/internal/VQ_RandomNumGen.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "sparse/internal/SymmetricProduct.h"

namespace ei = vqmath::eigen_internal;

namespace {

constexpr double kMachineEpsilon = 2.220446049250313e-16;
constexpr int kMaxIterations = 200;
constexpr int kDefaultPasses = 1000;

// Sparse-solver statuses met by the solve step.

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

bool Good(const VQ_Matrix& m) { return m.MatrixStatus() == MATLIBDLLCOMMONS::STATUS_OK; }

double Seconds(double startClock) {
  return (static_cast<double>(std::clock()) - startClock) / CLOCKS_PER_SEC;
}

}  // namespace

// Work arrays of one pass.
struct VQ_SubspaceEigenSparseSolver::IterationState {
  int n = 0;
  int q = 0;
  double sigma = 0.0;
  VQ_Matrix X;     // n x q trial block
  VQ_Matrix Xbar;  // n x q solution of (K - sigma M) Xbar = M X
  VQ_Matrix Y;     // n x q, M X
  VQ_Matrix Z;     // n x q, M Xbar
  VQ_SymMatrix Kr, Mr;
  VQ_Matrix Q;
  VQ_ColVector lambda, lambdaPrevious;
  std::vector<double> square;  // q x q product
  std::vector<double> coefficients;
  double lastAccepted = 0.0;  // shifted
  double nextEstimate = 0.0;  // shifted
};

// ---- construction -----------------------------------------------------------------------------

VQ_SubspaceEigenSparseSolver::VQ_SubspaceEigenSparseSolver() = default;

VQ_SubspaceEigenSparseSolver::VQ_SubspaceEigenSparseSolver(VQ_SparseSymMatrix* K, VQ_Matrix* M,
                                                           int oocMode, int matrixType,
                                                           int numReqEigen,
                                                           const char* workingDirectory,
                                                           bool limitActive, double limit)
    : VQ_EigenSolver(K ? K->NumRows() : 0, numReqEigen, oocMode, matrixType, workingDirectory) {
  stiffness_ = K;
  mass_ = M;
  if (limitActive) SetEigenvalueLimit(limit);
  InitializeTheSolver();
}

VQ_SubspaceEigenSparseSolver::VQ_SubspaceEigenSparseSolver(VQ_SparseSymMatrix* K,
                                                           double* massDiagonal, int oocMode,
                                                           int matrixType, int numReqEigen,
                                                           const char* workingDirectory,
                                                           bool limitActive, double limit)
    : VQ_EigenSolver(K ? K->NumRows() : 0, numReqEigen, oocMode, matrixType, workingDirectory) {
  stiffness_ = K;
  if (K && massDiagonal) {
    mass_ = new (std::nothrow) VQ_DiagonalMatrix(K->NumRows(), massDiagonal);
    ownsMass_ = mass_ != nullptr;
  }
  if (limitActive) SetEigenvalueLimit(limit);
  InitializeTheSolver();
}

VQ_SubspaceEigenSparseSolver::VQ_SubspaceEigenSparseSolver(
    int n, int* rowPointers, int* columnIndices, double* values, double* massDiagonal, int oocMode,
    int matrixType, int numReqEigen, const char* workingDirectory, bool limitActive, double limit)
    : VQ_EigenSolver(n, numReqEigen, oocMode, matrixType, workingDirectory) {
  if (n > 0 && rowPointers && columnIndices && values) {
    stiffness_ = new (std::nothrow) VQ_SparseSymMatrix(n, values, rowPointers, columnIndices);
    ownsStiffness_ = stiffness_ != nullptr;
  }
  if (n > 0 && massDiagonal) {
    mass_ = new (std::nothrow) VQ_DiagonalMatrix(n, massDiagonal);
    ownsMass_ = mass_ != nullptr;
  }
  if (limitActive) SetEigenvalueLimit(limit);
  InitializeTheSolver();
}

VQ_SubspaceEigenSparseSolver::VQ_SubspaceEigenSparseSolver(
    int n, int* kRowPointers, int* kColumnIndices, double* kValues, int* mRowPointers,
    int* mColumnIndices, double* mValues, int oocMode, int matrixType, int numReqEigen,
    const char* workingDirectory, bool limitActive, double limit)
    : VQ_EigenSolver(n, numReqEigen, oocMode, matrixType, workingDirectory) {
  if (n > 0 && kRowPointers && kColumnIndices && kValues) {
    stiffness_ = new (std::nothrow) VQ_SparseSymMatrix(n, kValues, kRowPointers, kColumnIndices);
    ownsStiffness_ = stiffness_ != nullptr;
  }
  if (n > 0 && mRowPointers && mColumnIndices && mValues) {
    mass_ = new (std::nothrow) VQ_SparseSymMatrix(n, mValues, mRowPointers, mColumnIndices);
    ownsMass_ = mass_ != nullptr;
  }
  if (limitActive) SetEigenvalueLimit(limit);
  InitializeTheSolver();
}

VQ_SubspaceEigenSparseSolver::VQ_SubspaceEigenSparseSolver(
    const VQ_SubspaceEigenSparseSolver& other)
    : VQ_EigenSolver() {
  CopySettingsFrom(other);
}

VQ_SubspaceEigenSparseSolver& VQ_SubspaceEigenSparseSolver::operator=(
    const VQ_SubspaceEigenSparseSolver& other) {
  if (this == &other) return *this;
  ReleaseOwned();
  static_cast<VQ_EigenSolver&>(*this) = VQ_EigenSolver();
  CopySettingsFrom(other);
  return *this;
}

VQ_SubspaceEigenSparseSolver::~VQ_SubspaceEigenSparseSolver() { ReleaseOwned(); }

void VQ_SubspaceEigenSparseSolver::ReleaseOwned() {
  massProduct_.reset();
  unshiftedFactor_.reset();
  if (ownsStiffness_) delete stiffness_;
  if (ownsMass_) delete mass_;
  stiffness_ = nullptr;
  mass_ = nullptr;
  ownsStiffness_ = false;
  ownsMass_ = false;
}

void VQ_SubspaceEigenSparseSolver::CopySettingsFrom(const VQ_SubspaceEigenSparseSolver& other) {
  ownsStiffness_ = other.ownsStiffness_;
  ownsMass_ = other.ownsMass_;
  workFileStem_ = other.workFileStem_;
  lastConvergedValue_ = other.lastConvergedValue_;
  nextEstimatedValue_ = other.nextEstimatedValue_;
  subspaceSize_ = other.subspaceSize_;
  tolerance_ = other.tolerance_;
  passMark_ = other.passMark_;
  zeroValue_ = other.zeroValue_;
  randomSeed_ = other.randomSeed_;
  limitActive_ = other.limitActive_;
  randomGenerator_ = other.randomGenerator_;
  verboseMode_ = other.verboseMode_;
  vectorsNotKept_ = other.vectorsNotKept_;
}

void VQ_SubspaceEigenSparseSolver::InitializeTheSolver() {
  zeroValue_ = 1e-8;
  tolerance_ = 1e-6;
  instabilityDOF_ = -1;
  workFileStem_ = workingDirectory_ + GenerateUniqueGUIDString();
  randomGenerator_.reset();
  passMark_ = 1;
  numFoundEigen_ = 0;
  lastConvergedValue_ = 0.0;
  nextEstimatedValue_ = 0.0;
  verboseMode_ = 0;

  if (!stiffness_ || !mass_ || !Good(*stiffness_) || !Good(*mass_)) {
    SetStatus(-1);
    return;
  }
  if (numReqEigen_ > numEquations_) numReqEigen_ = numEquations_;
  numMassDOF_ = mass_->NumberOfNonZeroDiagonalTerms(zeroValue_);
  if (numMassDOF_ == 0) {
    SetStatus(-20);
    return;
  }
  if (numReqEigen_ > numMassDOF_) numReqEigen_ = numMassDOF_;
  subspaceSize_ = NumberOfTrialVectors(numReqEigen_);
  randomGenerator_ = std::make_shared<VQ_RandomNumGen>();
}

int VQ_SubspaceEigenSparseSolver::NumberOfTrialVectors(int p) const {
  int q = std::min(2 * p, p + 8);
  const int orderOfMass = mass_ ? mass_->NumRows() : 0;
  if (q > orderOfMass - numFoundEigen_) q = orderOfMass - numFoundEigen_;
  return std::min(numMassDOF_ - numFoundEigen_, q);
}

void VQ_SubspaceEigenSparseSolver::SetEigenVector(double* modeShapes) {
  externalVectors_ = modeShapes;
  externalColumns_ = numReqEigen_;
}

bool VQ_SubspaceEigenSparseSolver::IsMassMatrixDiagonal() const {
  if (!mass_) return false;
  const MATLIBDLLCOMMONS::MATRIX_TYPE kind = mass_->MatrixType();
  if (kind == MATLIBDLLCOMMONS::DIAGONAL_MATRIX) return true;
  return kind != MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX && mass_->NumRows() == mass_->NumCols();
}

double VQ_SubspaceEigenSparseSolver::CalculateNewShift(double lastConverged,
                                                       double nextEstimate) const {
  if (numFoundEigen_ < 1) return 0.0;
  if (nextEstimate > kMachineEpsilon && nextEstimate - lastConverged >= 0.01)
    return lastConverged + 0.95 * (nextEstimate - lastConverged);
  return 0.99 * lastConverged;
}

int VQ_SubspaceEigenSparseSolver::SturmSequenceCheck(double sigma) const {
  return numFoundEigen_ - (sigma < lastConvergedValue_ ? 1 : 0);
}

// ---- shifting ---------------------------------------------------------------------------------

void VQ_SubspaceEigenSparseSolver::ShiftMatrix(double sigma) {
  if (!stiffness_ || !mass_) return;
  const MATLIBDLLCOMMONS::MATRIX_TYPE kind = mass_->MatrixType();
  if (kind == MATLIBDLLCOMMONS::DIAGONAL_MATRIX) {
    // Only K's stored diagonal entries change.
    double* values = stiffness_->GetDataPointer();
    const int n = std::min(stiffness_->NumRows(), mass_->NumRows());
    for (int i = 1; i <= n; ++i) {
      const int at = stiffness_->FindLoc(i, i);
      if (at >= 0) values[at] -= sigma * mass_->Value(i, i);
    }
  } else if (kind == MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX) {
    stiffness_->TwoSparseMatrixOperation(static_cast<VQ_SparseSymMatrix*>(mass_), 1.0, -sigma);
  } else {
    // A dense mass is shifted through its sparse form (its diagonal alone when that is all it
    // holds), so that K - sigma*M is exact for full dense masses as well.
    VQ_SparseSymMatrix sparseMass(mass_);
    if (sparseMass.NumRows() == stiffness_->NumRows())
      stiffness_->TwoSparseMatrixOperation(&sparseMass, 1.0, -sigma);
  }
}

bool VQ_SubspaceEigenSparseSolver::ApplyShift(double sigma) {
  if (sigma == appliedShift_) return true;
  if (appliedShift_ != 0.0) {
    if (!RestoreUnshiftedStiffness()) return false;
  }
  if (sigma != 0.0) {
    ShiftMatrix(sigma);
    appliedShift_ = sigma;
  }
  return true;
}

bool VQ_SubspaceEigenSparseSolver::RestoreUnshiftedStiffness() {
  if (appliedShift_ == 0.0) return true;
  if (!stiffness_ || !stiffnessSaved_) return false;
  // The pattern of K changes only when a sparse mass reaches outside it; then the saved pattern
  // is read back as well.
  const bool patternChanged = stiffness_->GetNumberOfNonZeros() != savedNonZeros_;
  const bool ok =
      stiffness_->ReadFromFile(workFileStem_.c_str(), true, true, patternChanged, patternChanged);
  if (ok) appliedShift_ = 0.0;
  return ok;
}

bool VQ_SubspaceEigenSparseSolver::PrepareMassProduct() {
  massProduct_.reset(new (std::nothrow) vqmath::internal::SymmetricProduct(mass_));
  return massProduct_ && massProduct_->Ok();
}

// ---- trial vectors
// --------------------------------------------------------------------------------

void VQ_SubspaceEigenSparseSolver::FillColumnWithRandomNumbers(VQ_Matrix& X, int column) {
  if (!randomGenerator_) randomGenerator_ = std::make_shared<VQ_RandomNumGen>();
  const int n = X.NumRows();
  double* c = X.GetDataPointer() + static_cast<std::size_t>(column - 1) * n;
  for (int i = 0; i < n; ++i) c[i] = randomGenerator_->Next(randomSeed_);
}

void VQ_SubspaceEigenSparseSolver::GenerateTrialVectorWithRandomNumbers(VQ_Matrix& X, int q) {
  const int n = stiffness_ ? stiffness_->NumRows() : X.NumRows();
  X.Redimension(n, q, 0.0);
  if (!Good(X)) return;
  randomSeed_ = -1;
  for (int c = 1; c <= q; ++c) FillColumnWithRandomNumbers(X, c);
  X.ObtainOrthogonalizedForm(false);
}

void VQ_SubspaceEigenSparseSolver::GenerateTrialVector(VQ_Matrix& X, int q, const double* kDiagonal,
                                                       const double* mDiagonal) {
  const int n = stiffness_->NumRows();
  X.Redimension(n, q, 0.0);
  if (!Good(X)) return;
  std::vector<char> used(static_cast<std::size_t>(n), 0);
  int units = 0;
  for (int c = 1; c <= q - 1; ++c) {
    int best = -1;
    double bestRatio = 0.0;
    for (int i = 0; i < n; ++i) {
      if (used[i]) continue;
      const double ratio = mDiagonal[i] / kDiagonal[i];
      if (ratio > kMachineEpsilon && (best < 0 || ratio > bestRatio)) {
        best = i;
        bestRatio = ratio;
      }
    }
    if (best < 0) break;
    X.Ref(best + 1, c) = 1.0;
    used[best] = 1;
    ++units;
  }
  randomSeed_ = -1;
  if (units == q - 1) {
    FillColumnWithRandomNumbers(X, q);
  } else {
    for (int c = units + 1; c <= q; ++c) FillColumnWithRandomNumbers(X, c);
  }
  X.ObtainOrthogonalizedForm(false);
}

bool VQ_SubspaceEigenSparseSolver::TrialVectors(VQ_Matrix& X, int q) {
  if (!stiffness_ || !mass_) return false;
  const int n = stiffness_->NumRows();
  std::vector<double> kDiagonal, mDiagonal;
  try {
    kDiagonal.resize(static_cast<std::size_t>(n));
    mDiagonal.resize(static_cast<std::size_t>(n));
  } catch (const std::bad_alloc&) {
    return false;
  }
  for (int i = 1; i <= n; ++i) {
    kDiagonal[i - 1] = stiffness_->Value(i, i);
    mDiagonal[i - 1] = mass_->Value(i, i);
  }
  GenerateTrialVector(X, q, kDiagonal.data(), mDiagonal.data());
  return Good(X);
}

// ---- results
// --------------------------------------------------------------------------------------

void VQ_SubspaceEigenSparseSolver::ExamineConvergedResults(int* flags, int count,
                                                           const VQ_ColVector& values,
                                                           const VQ_Matrix& vectors) const {
  for (int i = 1; i <= count; ++i) {
    flags[i - 1] = 1;
    const double v = values[i];
    for (int k = 1; k <= numFoundEigen_; ++k) {
      const double e = eigenValues_[k];
      if (std::fabs(e - v) / std::fabs(e) < tolerance_) {
        flags[i - 1] = -1;
        break;
      }
    }
  }
}

bool VQ_SubspaceEigenSparseSolver::ConvergenceCheck(IterationState& s, int p, int& count,
                                                    VQ_ColVector& values, VQ_Matrix& vectors,
                                                    int iteration, double startClock) {
  bool accepted = false;
  const std::size_t n = static_cast<std::size_t>(s.n);
  for (int i = 1; i <= s.q; ++i) {
    const double change =
        std::fabs(s.lambda[i] - s.lambdaPrevious[i]) / std::fabs(s.lambdaPrevious[i]);
    if (!(change <= tolerance_)) break;  // only a leading run of eigenvalues is accepted
    ++count;
    values[count] = s.lambda[i] + s.sigma;
    const int column = vectorsAreView_ ? numFoundEigen_ + count : count;
    std::copy_n(s.X.GetDataPointer() + (i - 1) * n, n,
                vectors.GetDataPointer() + static_cast<std::size_t>(column - 1) * n);
    ProcessVerboseInfo1(numFoundEigen_ + count, s.lambda[i] + s.sigma, iteration,
                        Seconds(startClock));
    s.lastAccepted = s.lambda[i];
    if (i + 1 <= s.q) s.nextEstimate = s.lambda[i + 1];
    // The accepted column starts hunting for a new vector.
    FillColumnWithRandomNumbers(s.X, i);
    accepted = true;
    if (count >= p || numFoundEigen_ + count >= numReqEigen_ ||
        (limitActive_ && s.lambda[i] + s.sigma > eigenvalueLimit_))
      break;
  }
  return accepted;
}

void VQ_SubspaceEigenSparseSolver::OrthogonaliseAgainstFound(IterationState& s, int count,
                                                             const VQ_Matrix& vectors) {
  // Blocks of M-orthonormal vectors to remove from X: the solver's store (found vectors, and with
  // a view also this pass's), and this pass's separate matrix otherwise.
  struct Block {
    const double* data;
    int columns;
  };
  Block blocks[2];
  int numBlocks = 0;
  const bool storeHoldsVectors = !vectorsNotKept_ && eigenVectors_.NumRows() == s.n;
  if (vectorsAreView_) {
    if (numFoundEigen_ + count > 0 && storeHoldsVectors)
      blocks[numBlocks++] = {eigenVectors_.GetDataPointer(), numFoundEigen_ + count};
  } else {
    if (numFoundEigen_ > 0 && storeHoldsVectors && eigenVectors_.NumCols() >= numFoundEigen_)
      blocks[numBlocks++] = {eigenVectors_.GetDataPointer(), numFoundEigen_};
    if (count > 0) blocks[numBlocks++] = {vectors.GetDataPointer(), count};
  }
  if (numBlocks == 0) return;

  const int n = s.n, q = s.q;
  double* x = s.X.GetDataPointer();
  double* w = s.Y.GetDataPointer();  // scratch: M X (the next step recomputes Y)
  massProduct_->Apply(x, w, q);
  for (int b = 0; b < numBlocks; ++b) {
    const int k = blocks[b].columns;
    s.coefficients.resize(static_cast<std::size_t>(k) * q);
    // C = Phi' (M X), X -= Phi C.
    cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, k, q, n, 1.0, blocks[b].data, n, w, n, 0.0,
                s.coefficients.data(), k);
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, q, k, -1.0, blocks[b].data, n,
                s.coefficients.data(), k, 1.0, x, n);
  }
}

// ---- one pass
// -------------------------------------------------------------------------------------

bool VQ_SubspaceEigenSparseSolver::AllocatePass(IterationState& s, int p, VQ_ColVector& values,
                                                VQ_Matrix& vectors) {
  const int n = s.n, q = s.q;
  // The pass writes into `vectors` in place when it is a view on the solver's own store.
  vectorsAreView_ = vectors.GetDataPointer() != nullptr &&
                    vectors.GetDataPointer() == eigenVectors_.GetDataPointer();
  if (vectors.NumRows() != n || vectors.NumCols() < (vectorsAreView_ ? numReqEigen_ : p) ||
      values.NumRows() * values.NumCols() < p)
    return false;
  if (!massProduct_ && !PrepareMassProduct()) return false;
  try {
    s.X.Redimension(n, q, 0.0);
    s.Xbar.Redimension(n, q, 0.0);
    s.Y.Redimension(n, q, 0.0);
    s.Z.Redimension(n, q, 0.0);
    s.Kr.Redimension(q, q, 0.0);
    s.Mr.Redimension(q, q, 0.0);
    s.lambda.Redimension(q, 1, 1e-9);
    s.lambdaPrevious.Redimension(q, 1, 1e-9);
    s.square.resize(static_cast<std::size_t>(q) * q);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return Good(s.X) && Good(s.Xbar) && Good(s.Y) && Good(s.Z) && Good(s.Kr) && Good(s.Mr) &&
         Good(s.lambda) && Good(s.lambdaPrevious);
}

bool VQ_SubspaceEigenSparseSolver::StartBlock(IterationState& s) {
  // Every pass shifts the saved, unshifted K; sigma = 0 brings K back to it.
  if (!ApplyShift(std::fabs(s.sigma) > kMachineEpsilon ? s.sigma : 0.0)) return false;
  if (IsMassMatrixDiagonal() && std::fabs(s.sigma) < kMachineEpsilon) return TrialVectors(s.X, s.q);
  GenerateTrialVectorWithRandomNumbers(s.X, s.q);
  return Good(s.X);
}

VQ_SparseSolver* VQ_SubspaceEigenSparseSolver::FactorPass(double sigma) {
  VQ_SparseSolver* solver = nullptr;
  int decomposition = 0;
  if (unshiftedFactor_ && appliedShift_ == 0.0 && matrixType_ == -2) {
    // K unshifted and factorised as symmetric indefinite by the rigid-body check already.
    solver = unshiftedFactor_.release();
  } else {
    unshiftedFactor_.reset();
    const auto factorStart = Clock::now();
    decomposition = CreateSolverAndDecompose(workFileStem_, &solver, false, nullptr);
    timings_.factorisation += SecondsSince(factorStart);
    ++timings_.factorisations;
  }
  if (decomposition != 0) {
    MapDecompositionResult(decomposition, solver);
    // With rigid-body modes allowed, an unshifted K that is singular is expected: nothing can be
    // found without a shift (the entry points then shift below zero and run again).
    if (rigidBodyModesAllowed_ && appliedShift_ == 0.0 &&
        decomposition == VQ_SparseSolver::kStatusZeroPivot)
      SetStatus(-21);
    delete solver;
    return nullptr;
  }

  ProcessVerboseInfo4("Shift :", sigma);
  if (std::fabs(sigma) > kMachineEpsilon && numFoundEigen_ > 0) {
    const int negative = solver->Get_NumberOfNegativeEigenvalues();
    if (negative != SturmSequenceCheck(sigma)) {
      ProcessVerboseInfo3(negative, numFoundEigen_);
      SetWarningMessage(-23);
    }
  }
  return solver;
}

bool VQ_SubspaceEigenSparseSolver::InverseIterationStep(IterationState& s,
                                                        ei::ShiftInvertOperator& op, int count,
                                                        const VQ_Matrix& vectors) {
  auto t = Clock::now();
  OrthogonaliseAgainstFound(s, count, vectors);
  if (op.ApplyBBlock(s.X.GetDataPointer(), s.Y.GetDataPointer(), s.n, s.q) != 0) {
    SetStatus(-9999);
    return false;
  }
  timings_.blockWork += SecondsSince(t);

  // All q columns are solved in one call: right-hand sides Y, solutions Xbar.
  t = Clock::now();
  const int solved = op.SolveBlock(s.Y.GetDataPointer(), s.Xbar.GetDataPointer(), s.n, s.q);
  timings_.solves += SecondsSince(t);
  if (solved == 0) return true;
  if (solved == VQ_SparseSolver::kStatusCancelled)
    SetStatus(-2);
  else if (solved == VQ_SparseSolver::kStatusOutOfMemory ||
           solved == VQ_SparseSolver::kStatusOutOfMemoryOutOfCore)
    SetStatus(-1);
  else
    SetStatus(-9999);
  return false;
}

void VQ_SubspaceEigenSparseSolver::ProjectOntoBlock(IterationState& s) {
  // Kr = Xbar' Y and Mr = Xbar' M Xbar; only their upper triangles are formed and kept.
  const auto t = Clock::now();
  const int n = s.n, q = s.q;
  double* square = s.square.data();
  const double* xbar = s.Xbar.GetDataPointer();
  auto keepUpper = [q, square](double* packed) {
    for (int j = 1; j <= q; ++j)
      for (int i = 1; i <= j; ++i) packed[(j - 1) * j / 2 + (i - 1)] = square[(j - 1) * q + (i - 1)];
  };
  cblas_dgemmt(CblasColMajor, CblasUpper, CblasTrans, CblasNoTrans, q, n, 1.0, xbar, n,
               s.Y.GetDataPointer(), n, 0.0, square, q);
  keepUpper(s.Kr.GetDataPointer());
  massProduct_->Apply(xbar, s.Z.GetDataPointer(), q);
  cblas_dgemmt(CblasColMajor, CblasUpper, CblasTrans, CblasNoTrans, q, n, 1.0, xbar, n,
               s.Z.GetDataPointer(), n, 0.0, square, q);
  keepUpper(s.Mr.GetDataPointer());
  timings_.blockWork += SecondsSince(t);
}

int VQ_SubspaceEigenSparseSolver::JacobiFailed(double sigma, int count) {
  ProcessVerboseMessage("............JACOBI RETURNED -1......................................\n");
  if (numFoundEigen_ == 0 && count == 0 && std::fabs(sigma) < kMachineEpsilon) {
    ProcessVerboseMessage(
        "\tNo results found at all (assuming that no shift applied at this stage).\n");
    SetStatus(-21);
    return -1;
  }
  if (count > 0) {
    ProcessVerboseMessage("\tPartial results found.\n");
    return 1;
  }
  if (numFoundEigen_ > 0) {
    ProcessVerboseMessage(
        "\tNo converged results found in this call. but there are some results found in "
        "previous calls of this function.\n");
    return 2;
  }
  ProcessVerboseMessage("\tJacobi failed: Subspace iteration is failed.\n");
  SetStatus(-21);
  return -1;
}

int VQ_SubspaceEigenSparseSolver::SubspaceIteration(int p, double sigma, int& count,
                                                    VQ_ColVector& values, VQ_Matrix& vectors,
                                                    double startClock) {
  IterationState s;
  s.n = stiffness_ ? stiffness_->NumRows() : 0;
  s.q = NumberOfTrialVectors(p);
  s.sigma = sigma;
  subspaceSize_ = s.q;
  if (s.n < 1 || s.q < 1) {
    SetStatus(-21);
    return -1;
  }
  if (!AllocatePass(s, p, values, vectors)) {
    SetStatus(-1);
    return -1;
  }
  s.nextEstimate = nextEstimatedValue_ - sigma;

  ProcessVerboseInfo4("Tolerance = ", tolerance_);
  if (!StartBlock(s)) {
    SetStatus(-1);
    return -1;
  }
  // Released on every way out of this pass.
  const std::unique_ptr<VQ_SparseSolver> solver(FactorPass(sigma));
  if (!solver) return -1;
  ei::SparseShiftInvertOperator op(*massProduct_, *solver);

  for (int iteration = 1; iteration <= kMaxIterations; ++iteration) {
    ++timings_.iterations;
    if (!InverseIterationStep(s, op, count, vectors)) return -1;
    ProjectOntoBlock(s);

    auto t = Clock::now();
    const int jacobi = JACOBI(s.Kr, s.Mr, s.Q, s.lambda);
    timings_.reducedSolves += SecondsSince(t);
    if (jacobi != 0) return JacobiFailed(sigma, count);

    // X = Xbar Q: the M-orthonormal Ritz vectors.
    t = Clock::now();
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, s.n, s.q, s.q, 1.0,
                s.Xbar.GetDataPointer(), s.n, s.Q.GetDataPointer(), s.q, 0.0, s.X.GetDataPointer(),
                s.n);
    timings_.blockWork += SecondsSince(t);

    if (ConvergenceCheck(s, p, count, values, vectors, iteration, startClock)) {
      lastConvergedValue_ = s.lastAccepted + sigma;
      nextEstimatedValue_ = s.nextEstimate + sigma;
    }
    if (count >= p || numFoundEigen_ + count >= numReqEigen_ ||
        (limitActive_ && count >= 1 && values[count] > eigenvalueLimit_)) {
      SetStatus(0);
      return 0;
    }
    std::copy_n(s.lambda.GetDataPointer(), s.q, s.lambdaPrevious.GetDataPointer());
  }

  if (count < 1) {
    SetStatus(-21);
    return -1;
  }
  return 0;
}

// ---- the run
// --------------------------------------------------------------------------------------

MATLIBDLLCOMMONS::STATE_STATUS VQ_SubspaceEigenSparseSolver::SolveSystemIncrementally(
    int requested, double shift, int maxPasses) {
  timings_ = Timings();
  if (!stiffness_ || !mass_) {
    SetStatus(-1);
    return status_;
  }
  if (numMassDOF_ < 1) {
    SetStatus(-20);
    return status_;
  }
  RemoveVerboseFile();
  int result;
  try {
    result = RunPasses(requested, shift, maxPasses);
  } catch (...) {
    // Allocation failures of the standard containers (and anything else thrown below) end the
    // run as a memory failure; nothing leaves the solver.
    SetStatus(-1);
    result = -1;
  }
  // K is handed back unshifted; the mass operator borrowed M's arrays for this run only.
  RestoreUnshiftedStiffness();
  massProduct_.reset();
  unshiftedFactor_.reset();
  (void)result;
  return status_;
}

int VQ_SubspaceEigenSparseSolver::RunPasses(int requested, double shift, int maxPasses) {
  // 1. Save K: every shifted pass reloads its unshifted values from this file.
  // The pattern files are needed only when shifting can change K's pattern: a sparse (or dense)
  // mass with entries outside it.
  bool patternMayChange = false;
  if (mass_->MatrixType() != MATLIBDLLCOMMONS::DIAGONAL_MATRIX) {
    if (mass_->MatrixType() == MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX)
      patternMayChange = !stiffness_->CheckSubsetSparsity(static_cast<VQ_SparseSymMatrix*>(mass_));
    else
      patternMayChange = true;
  }
  if (!stiffness_->WriteToFile(workFileStem_.c_str(), true, true, patternMayChange,
                               patternMayChange)) {
    SetStatus(-5);
    return -5;
  }
  stiffnessSaved_ = true;
  SetWarningMessage(0);  // a warning describes the run that set it
  savedNonZeros_ = stiffness_->GetNumberOfNonZeros();
  appliedShift_ = 0.0;
  SetStatus(0);
  instabilityDOF_ = -1;

  // 2. K must be positive definite unless rigid-body modes are allowed.
  if (!rigidBodyModesAllowed_) {
    const auto checkStart = Clock::now();
    VQ_SparseSolver* factor = nullptr;
    const bool regular = CheckForRigidBodyModes(workFileStem_, &factor);
    unshiftedFactor_.reset(factor);
    timings_.rigidBodyCheck = SecondsSince(checkStart);
    if (!regular) {
      // Singular or not positive definite: -3 (with the instability equation when one is known).
      // A check that could not run for lack of memory, or failed otherwise, keeps its own code.
      if (status_ != -1 && status_ != -9999) SetStatus(-3);
      return status_;
    }
  }

  // 3. Result stores.
  const int n = stiffness_->NumRows();
  const int p = requested;
  if (p < 1) {
    SetStatus(-21);
    return -21;
  }
  eigenValues_.Redimension(p, 1, 0.0);
  if (!Good(eigenValues_)) {
    SetStatus(-1);
    return -1;
  }
  if (!vectorsNotKept_) {
    if (externalVectors_) {
      const int columns = std::min(p, externalColumns_);
      eigenVectors_.CopyShallow(n, columns, externalVectors_);
      std::fill_n(externalVectors_, static_cast<std::size_t>(n) * columns, 0.0);
    } else {
      eigenVectors_.Redimension(n, p, 0.0);
      if (!Good(eigenVectors_)) {
        SetStatus(-1);
        return -1;
      }
    }
  }
  numFoundEigen_ = 0;
  lastConvergedValue_ = 0.0;
  nextEstimatedValue_ = 0.0;
  if (maxPasses < 1) maxPasses = kDefaultPasses;
  if (numMassDOF_ < requested) numReqEigen_ = numMassDOF_;
  if (!PrepareMassProduct()) {
    SetStatus(-1);
    return -1;
  }

  // 4. Clock for the log; the previous shift.
  const double startClock = static_cast<double>(std::clock());
  const bool givenShift = std::fabs(shift) > zeroValue_;
  double previousShift = givenShift ? shift : 0.0;

  // 5. Passes.
  for (int pass = 1; pass <= maxPasses; ++pass) {
    ++timings_.passes;
    VQ_ColVector values(p);
    VQ_Matrix own, view;
    vectorsAreView_ = p == numReqEigen_ && !vectorsNotKept_ && eigenVectors_.NumRows() == n &&
                      eigenVectors_.NumCols() >= p;
    VQ_Matrix* vectors = &own;
    if (vectorsAreView_) {
      view.CopyShallow(n, eigenVectors_.NumCols(), eigenVectors_.GetDataPointer());
      vectors = &view;
    } else {
      own.Redimension(n, p, 0.0);
      if (!Good(own) || !Good(values)) {
        SetStatus(-1);
        return -1;
      }
    }

    double sigma;
    if (pass == 1 && givenShift)
      sigma = shift;
    else if (numFoundEigen_ == 0)
      sigma = 0.0;
    else
      sigma = CalculateNewShift(lastConvergedValue_, nextEstimatedValue_);

    int count = 0;
    const int foundBefore = numFoundEigen_;
    const int result = SubspaceIteration(p, sigma, count, values, *vectors, startClock);

    if (count > 0) {
      ProcessVerboseInfo4("Number of Eigens Current : ", count);
      std::vector<int> flags(static_cast<std::size_t>(count));
      ExamineConvergedResults(flags.data(), count, values, *vectors);
      for (int i = 1; i <= count; ++i) {
        if (flags[i - 1] != 1) continue;
        ++numFoundEigen_;
        eigenValues_[numFoundEigen_] = values[i];
        if (!vectorsNotKept_) {
          // With a view the vector already sits at column foundBefore + i; it moves down only
          // when an earlier value of this pass was dropped as found before.
          const int from = vectorsAreView_ ? foundBefore + i : i;
          if (!vectorsAreView_ || from != numFoundEigen_)
            eigenVectors_.InsertVector(*vectors, from, numFoundEigen_);
        }
        if (numFoundEigen_ >= numReqEigen_) {
          ProcessVerboseMessage("All requested Eigens found\n");
          SetStatus(0);
          return 0;
        }
        if (limitActive_ && values[i] > eigenvalueLimit_) {
          ProcessVerboseMessage("Max. Eigen limit check enforced\n");
          SetStatus(0);
          return 0;
        }
      }
    }

    if (result == -1) {
      if (numFoundEigen_ == 0) {
        const int st = status_;
        if (st != -1 && st != -2 && st != -3 && st != -9999 && st != -21) SetStatus(-21);
        return status_;
      }
      ProcessVerboseMessage(
          "Even though last call of SubspaceIteration returned an error, there are still some "
          "results found in previos call of SubspaceIteration\n");
      SetStatus(-22);
      return -22;
    }

    if (count == 0 && std::fabs(sigma) > kMachineEpsilon &&
        sigma - previousShift < kMachineEpsilon) {
      if (numFoundEigen_ == 0) {
        SetStatus(-21);
        return -21;
      }
      SetStatus(-22);
      ProcessVerboseInfo2(lastConvergedValue_, nextEstimatedValue_, sigma, previousShift);
      return -22;
    }
    previousShift = sigma;
  }
  return status_;
}
