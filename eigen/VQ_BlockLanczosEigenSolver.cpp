// Thick-restart block Lanczos on a shift-invert operator; see VQ_BlockLanczosEigenSolver.h.
#include "eigen/VQ_BlockLanczosEigenSolver.h"

#include <mkl_cblas.h>
#include <mkl_lapacke.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <new>
#include <numeric>

#include "dense/VQ_DiagonalMatrix.h"
#include "eigen/internal/SparseShiftInvertOperator.h"
#include "sparse/internal/SymmetricProduct.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace ei = vqmath::eigen_internal;

namespace {

using Index = std::size_t;

constexpr double kEpsilon = 2.220446049250313e-16;
// Relative residual every delivered pair must meet.
constexpr double kResidualTarget = 1e-10;
// Residual estimate (relative to |theta|) at which a Ritz pair counts as converged; tightened
// when a pair fails the residual check.
constexpr double kFirstTolerance = 1e-10;
// Converged pairs are locked only once their estimate is this share of the tolerance: a locked
// pair no longer moves, so it must already be well inside the residual target.
constexpr double kLockShare = 1e-2;
// Estimate (relative to |theta|) under which a Ritz value not delivered still counts as a known
// eigenvalue for the Sturm comparison.
constexpr double kNearbyEstimate = 1e-6;
// Blocks per restart cycle at least: the degree of the block Krylov polynomial of one cycle.
constexpr int kDegree = 8;
constexpr double kSmallestTolerance = 1e-15;
// A column whose norm falls below this share of its norm before orthogonalisation lies in the
// space already spanned.
constexpr double kDependent = 1e-11;
// Cholesky QR is used when the block's columns are this well balanced; otherwise column by column.
constexpr double kBalanced = 1e-4;
// The Sturm shift lies this far (relative) above the largest eigenvalue found.
constexpr double kSturmOffset = 1e-6;
constexpr int kDefaultCycles = 300;
// Rows per strip when the basis is rotated in place at a restart.
constexpr int kStripRows = 2048;

double* Column(std::vector<double>& a, int n, int j) {
  return a.data() + static_cast<Index>(n) * static_cast<Index>(j);
}

// 1-norm (= infinity-norm) of a symmetric matrix stored as its upper triangle.
double SymmetricOneNorm(int n, const int* ia, const int* ja, const double* a) {
  std::vector<double> sums(static_cast<Index>(n), 0.0);
  for (int i = 0; i < n; ++i) {
    for (int p = ia[i] - 1; p < ia[i + 1] - 1; ++p) {
      const int j = ja[p] - 1;
      sums[static_cast<Index>(i)] += std::fabs(a[p]);
      if (j != i) sums[static_cast<Index>(j)] += std::fabs(a[p]);
    }
  }
  double norm = 0.0;
  for (double s : sums) norm = std::max(norm, s);
  return norm;
}

}  // namespace

// Work arrays of one run: the basis V (W-orthonormal columns), W V beside it, the projected
// matrix H, the block work space and the projected eigen-decomposition.
struct VQ_BlockLanczosEigenSolver::Basis {
  int n = 0;
  int b = 0;
  int mMax = 0;      // active columns at which a cycle ends
  int capacity = 0;  // columns of V: active + one residual block
  int span = 0;      // most W-orthonormal columns there can be: n, or the masses of a diagonal M
  int locked = 0;    // leading columns whose pairs are locked
  std::vector<double> V, WV, H;
  std::vector<double> X, WX, X0, C, R, T;
  std::vector<double> beforeNorms;
  // Projected eigen-decomposition of the last cycle.
  std::vector<double> theta, Y, S, estimate;
  std::vector<int> order;  // Ritz indices by decreasing |theta|
  double h(int i, int j) const { return H[static_cast<Index>(j) * capacity + i]; }
  double& h(int i, int j) { return H[static_cast<Index>(j) * capacity + i]; }
};

VQ_BlockLanczosEigenSolver::VQ_BlockLanczosEigenSolver(
    int n, const int* kRowPointers, const int* kColumnIndices, const double* kValues,
    const int* bRowPointers, const int* bColumnIndices, const double* bValues,
    const double* bDiagonal, ProblemKind kind, int numReqEigen, int oocMode, int matrixType,
    const char* workingDirectory)
    : VQ_EigenSolver(n, numReqEigen, oocMode, matrixType, workingDirectory),
      kind_(kind),
      random_(0x5eed1234u) {
  if (n < 1 || !kRowPointers || !kColumnIndices || !kValues) return;
  try {
    k_.reset(new VQ_SparseSymMatrix(n, kValues, kRowPointers, kColumnIndices));
    if (k_->MatrixStatus() != 0) {
      SetStatus(-1);
      return;
    }
    if (bRowPointers && bColumnIndices && bValues) {
      bSparse_.reset(new VQ_SparseSymMatrix(n, bValues, bRowPointers, bColumnIndices));
      if (bSparse_->MatrixStatus() != 0) SetStatus(-1);
      mass_ = bSparse_.get();
    } else if (bDiagonal) {
      bDiagonal_.reset(new VQ_DiagonalMatrix(n, const_cast<double*>(bDiagonal)));
      if (bDiagonal_->MatrixStatus() != 0) SetStatus(-1);
      mass_ = bDiagonal_.get();
      std::vector<int> rows(static_cast<Index>(n) + 1), columns(static_cast<Index>(n));
      std::iota(rows.begin(), rows.end(), 1);
      std::iota(columns.begin(), columns.end(), 1);
      bDiagonalSparse_.reset(new VQ_SparseSymMatrix(n, bDiagonal, rows.data(), columns.data()));
      if (bDiagonalSparse_->MatrixStatus() != 0) SetStatus(-1);
      for (int i = 0; i < n; ++i)
        if (std::fabs(bDiagonal[i]) > kEpsilon) ++numMassDOF_;
    }
  } catch (const std::bad_alloc&) {
    SetStatus(-1);
  }
}

VQ_BlockLanczosEigenSolver::~VQ_BlockLanczosEigenSolver() {
  delete solver_;
  stiffness_ = nullptr;
  mass_ = nullptr;
}

int VQ_BlockLanczosEigenSolver::DefaultBlockSize(int wanted) {
  // Larger blocks read the factor fewer times per vector but need more vectors in all: for the
  // usual 10 to 40 modes 8 columns balance the two.
  if (wanted <= 12) return 4;
  if (wanted <= 40) return 8;
  return 16;
}

double VQ_BlockLanczosEigenSolver::ToEigenvalue(double theta) const {
  if (kind_ == kNaturalModes) return shift_ + 1.0 / theta;
  if (inverseBuckling_) return 1.0 / theta;
  return shift_ * theta / (theta - 1.0);
}

// ---- operators ---------------------------------------------------------------------------------

bool VQ_BlockLanczosEigenSolver::ApplyW(const double* x, double* y, int columns) const {
  // W = M for natural modes, K for buckling modes.
  return (kind_ == kNaturalModes ? bProduct_->Apply(x, y, columns)
                                 : kProduct_->Apply(x, y, columns)) == 0;
}

bool VQ_BlockLanczosEigenSolver::ApplyRhs(const double* x, const double* wx, double* y,
                                          int columns) const {
  // The matrix OP applies before the solve: W itself, except K^-1 Kg for buckling at shift 0.
  if (inverseBuckling_) return bProduct_->Apply(x, y, columns) == 0;
  std::memcpy(y, wx, sizeof(double) * static_cast<Index>(numEquations_) * columns);
  return true;
}

// ---- preparation and factorisation -------------------------------------------------------------

bool VQ_BlockLanczosEigenSolver::Prepare() {
  const int n = numEquations_;
  if (n < 1 || numReqEigen_ < 1 || !k_ || !mass_) {
    Fail(-64);
    return false;
  }
  inverseBuckling_ = kind_ == kBuckling && std::fabs(shift_) < kEpsilon;
  kProduct_.reset(new vqmath::internal::SymmetricProduct(k_.get()));
  bProduct_.reset(new vqmath::internal::SymmetricProduct(mass_));
  if (!kProduct_->Ok() || !bProduct_->Ok()) {
    Fail(-1);
    return false;
  }
  kNorm_ = SymmetricOneNorm(n, k_->GetRowVectorPointer(), k_->GetColumnVectorPointer(),
                            k_->GetDataPointer());
  if (!(kNorm_ > 0.0)) kNorm_ = 1.0;

  wanted_ = std::min(numReqEigen_, n);
  if (kind_ == kNaturalModes && bDiagonal_) wanted_ = std::min(wanted_, numMassDOF_);
  if (wanted_ < 1) {
    Fail(-20);
    return false;
  }
  block_ = requestedBlock_ > 0 ? requestedBlock_ : DefaultBlockSize(wanted_);
  block_ = std::max(1, std::min(block_, n));
  return true;
}

std::unique_ptr<VQ_SparseSymMatrix> VQ_BlockLanczosEigenSolver::MakeShifted(double sigma) const {
  const int n = numEquations_;
  std::unique_ptr<VQ_SparseSymMatrix> shifted(new VQ_SparseSymMatrix(
      n, k_->GetDataPointer(), k_->GetRowVectorPointer(), k_->GetColumnVectorPointer()));
  const VQ_SparseSymMatrix* b = bSparse_ ? bSparse_.get() : bDiagonalSparse_.get();
  if (shifted->MatrixStatus() != 0 || !b || !shifted->TwoSparseMatrixOperation(b, 1.0, -sigma) ||
      shifted->MatrixStatus() != 0)
    return nullptr;
  return shifted;
}

bool VQ_BlockLanczosEigenSolver::Factorise() {
  if (external_) {
    // The caller's factorisation of K - s M serves every solve.
    if (kind_ == kNaturalModes) return true;
    Fail(-64);
    return false;
  }
  // K - s B on the union of both patterns (also for s = 0, so that a later shift for the Sturm
  // count keeps the pattern and the analysis).
  shifted_ = MakeShifted(inverseBuckling_ ? 0.0 : shift_);
  if (!shifted_) {
    Fail(-1);
    return false;
  }
  // A shift that makes K - s B overflow (s times a large B) leaves infinities that the
  // factorisation would turn into NaN eigenvalues: the input is beyond the arithmetic.
  const double* values = shifted_->GetDataPointer();
  for (long long q = 0; q < shifted_->GetNumberOfNonZeros(); ++q)
    if (!std::isfinite(values[q])) {
      Fail(-64);
      return false;
    }
  stiffness_ = shifted_.get();
  const int result = DecomposeWithRetry("", &solver_, false, nullptr, nullptr, nullptr);
  ++factorizations_;
  if (!solver_) {
    Fail(-1);
    return false;
  }
  if (result != 0) {
    MapDecompositionResult(result, solver_);
    return false;
  }
  negativeAtShift_ = solver_->Get_NumberOfNegativeEigenvalues();
  return true;
}

// ---- block steps -------------------------------------------------------------------------------

bool VQ_BlockLanczosEigenSolver::ExpandBlock(Basis& s, int first, int count, double* x) {
  const int n = s.n;
  // Right-hand sides in s.T (n x count), solution into x: one solve for all columns.
  if (!ApplyRhs(Column(s.V, n, first), Column(s.WV, n, first), s.T.data(), count)) {
    Fail(-9999);
    return false;
  }
  int solved;
  if (external_) {
    solved = external_->SolveBlock(s.T.data(), x, n, count);
  } else {
    ei::SparseShiftInvertOperator op(kind_ == kNaturalModes ? *bProduct_ : *kProduct_, *solver_);
    solved = op.SolveBlock(s.T.data(), x, n, count);
  }
  ++blockSolves_;
  if (solved != 0) {
    Fail(solved == -4 || solved == -5 ? -1 : -9999);
    return false;
  }
  return true;
}

void VQ_BlockLanczosEigenSolver::Orthogonalise(Basis& s, int basisCount, double* x, int count,
                                               double* coefficients) {
  const int n = s.n;
  std::fill(coefficients, coefficients + static_cast<Index>(basisCount) * count, 0.0);
  if (basisCount == 0) return;
  std::vector<double>& pass = s.R;  // basisCount x count scratch (R is sized for it)
  for (int round = 0; round < 2; ++round) {
    // c = (W V)' x ; x -= V c ; coefficients += c.
    cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, basisCount, count, n, 1.0, s.WV.data(), n,
                x, n, 0.0, pass.data(), basisCount);
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, count, basisCount, -1.0, s.V.data(),
                n, pass.data(), basisCount, 1.0, x, n);
    for (Index k = 0; k < static_cast<Index>(basisCount) * count; ++k)
      coefficients[k] += pass[k];
  }
}

int VQ_BlockLanczosEigenSolver::NormaliseBlock(Basis& s, int basisCount, double* x, double* wx,
                                               int count, double* r) {
  const int n = s.n;
  const int b = s.b;
  const int room = std::min(s.capacity - basisCount, s.span - basisCount);
  std::fill(r, r + static_cast<Index>(b) * b, 0.0);
  if (count < 1 || room < 1) return 0;
  const Index bytes = sizeof(double) * static_cast<Index>(n) * count;
  std::memcpy(s.X0.data(), x, bytes);

  bool balanced = count <= room;
  for (int j = 0; j < count && balanced; ++j) {
    const double after = cblas_dnrm2(n, x + static_cast<Index>(j) * n, 1);
    if (!(after > kDependent * s.beforeNorms[j])) balanced = false;
  }
  std::vector<double> g(static_cast<Index>(count) * count), total(static_cast<Index>(count) * count);
  if (balanced && !ApplyW(x, wx, count)) return -1;
  for (int round = 0; round < 2 && balanced; ++round) {
    // Cholesky QR: G = X' W X = R' R, X <- X R^-1, W X <- W X R^-1.
    cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, count, count, n, 1.0, x, n, wx, n, 0.0,
                g.data(), count);
    if (LAPACKE_dpotrf(LAPACK_COL_MAJOR, 'U', count, g.data(), count) != 0) {
      balanced = false;
      break;
    }
    double smallest = g[0], largest = g[0];
    for (int j = 0; j < count; ++j) {
      const double d = g[static_cast<Index>(j) * count + j];
      smallest = std::min(smallest, d);
      largest = std::max(largest, d);
    }
    if (!(smallest > kBalanced * largest)) {
      balanced = false;
      break;
    }
    for (int j = 0; j < count; ++j)
      for (int i = j + 1; i < count; ++i) g[static_cast<Index>(j) * count + i] = 0.0;
    cblas_dtrsm(CblasColMajor, CblasRight, CblasUpper, CblasNoTrans, CblasNonUnit, n, count, 1.0,
                g.data(), count, x, n);
    cblas_dtrsm(CblasColMajor, CblasRight, CblasUpper, CblasNoTrans, CblasNonUnit, n, count, 1.0,
                g.data(), count, wx, n);
    if (round == 0) {
      total = g;
    } else {
      // R = R2 R1.
      cblas_dtrmm(CblasColMajor, CblasLeft, CblasUpper, CblasNoTrans, CblasNonUnit, count, count,
                  1.0, g.data(), count, total.data(), count);
    }
  }
  if (balanced) {
    std::memcpy(Column(s.V, n, basisCount), x, bytes);
    std::memcpy(Column(s.WV, n, basisCount), wx, bytes);
    for (int j = 0; j < count; ++j)
      for (int i = 0; i <= j; ++i)
        r[static_cast<Index>(j) * b + i] = total[static_cast<Index>(j) * count + i];
    return count;
  }

  // Column by column: modified Gram-Schmidt in the W inner product against the basis and the
  // columns kept so far (twice); a dependent column is replaced by a random vector.
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  std::vector<double> c(static_cast<Index>(basisCount) + b);
  int kept = 0;
  // Orthogonalises v against the basis and the columns kept so far; `coefficients` receives its
  // components along the kept columns of this block (both rounds).
  std::vector<double> coefficients(static_cast<Index>(b), 0.0);
  auto orthogonaliseAll = [&](double* v) {
    const int m = basisCount + kept;
    std::fill(coefficients.begin(), coefficients.end(), 0.0);
    for (int round = 0; round < 2; ++round) {
      cblas_dgemv(CblasColMajor, CblasTrans, n, m, 1.0, s.WV.data(), n, v, 1, 0.0, c.data(), 1);
      cblas_dgemv(CblasColMajor, CblasNoTrans, n, m, -1.0, s.V.data(), n, c.data(), 1, 1.0, v, 1);
      for (int i = 0; i < kept; ++i) coefficients[static_cast<Index>(i)] += c[basisCount + i];
    }
  };
  // Appends v (already orthogonal) as the next basis column; false when it is dependent.
  auto append = [&](double* v, double before) -> bool {
    const double after = cblas_dnrm2(n, v, 1);
    if (!(after > kDependent * before)) return false;
    double* q = Column(s.V, n, basisCount + kept);
    double* wq = Column(s.WV, n, basisCount + kept);
    std::memcpy(q, v, sizeof(double) * n);
    if (!ApplyW(q, wq, 1)) return false;
    const double norm2 = cblas_ddot(n, q, 1, wq, 1);
    if (!(norm2 > 0.0)) return false;
    const double scale = 1.0 / std::sqrt(norm2);
    cblas_dscal(n, scale, q, 1);
    cblas_dscal(n, scale, wq, 1);
    return true;
  };
  std::vector<double> v(static_cast<Index>(n));
  for (int j = 0; j < count; ++j) {
    std::memcpy(v.data(), s.X0.data() + static_cast<Index>(j) * n, sizeof(double) * n);
    orthogonaliseAll(v.data());
    double* rj = r + static_cast<Index>(j) * b;
    for (int i = 0; i < kept; ++i) rj[i] = coefficients[static_cast<Index>(i)];
    // With no room left the column lies in the space spanned (the basis covers all n
    // dimensions): only its coefficients count.
    if (kept >= room) continue;
    const double before = std::max(s.beforeNorms[j], 1e-300);
    if (append(v.data(), before)) {
      // r_jj = q' W v: the W-norm of v before scaling.
      rj[kept] = cblas_ddot(n, v.data(), 1, Column(s.WV, n, basisCount + kept), 1);
      ++kept;
      continue;
    }
    // The Krylov space cannot grow from this column: continue with a random direction.
    if (basisCount + kept >= s.span) continue;
    for (int i = 0; i < n; ++i) v[static_cast<Index>(i)] = uniform(random_);
    const double randomBefore = cblas_dnrm2(n, v.data(), 1);
    orthogonaliseAll(v.data());
    if (append(v.data(), randomBefore)) ++kept;  // its coupling to the block is zero
  }
  return kept;
}

bool VQ_BlockLanczosEigenSolver::StartBlock(Basis& s, int& kept) {
  const int n = s.n;
  const int count = std::min(s.b, n);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  for (Index k = 0; k < static_cast<Index>(n) * count; ++k) s.X[k] = uniform(random_);
  // OP applied to a random block: for the natural modes the right-hand side is M X.
  if (!ApplyW(s.X.data(), s.WX.data(), count)) {
    Fail(-9999);
    return false;
  }
  std::memcpy(s.V.data(), s.X.data(), sizeof(double) * static_cast<Index>(n) * count);
  std::memcpy(s.WV.data(), s.WX.data(), sizeof(double) * static_cast<Index>(n) * count);
  if (!ExpandBlock(s, 0, count, s.X.data())) return false;
  for (int j = 0; j < count; ++j)
    s.beforeNorms[j] = cblas_dnrm2(n, s.X.data() + static_cast<Index>(j) * n, 1);
  kept = NormaliseBlock(s, 0, s.X.data(), s.WX.data(), count, s.R.data());
  if (kept < 1) {
    Fail(kept < 0 ? -9999 : -21);
    return false;
  }
  return true;
}

bool VQ_BlockLanczosEigenSolver::SolveProjected(Basis& s, int active, int pending) {
  const Index m = static_cast<Index>(active);
  s.Y.assign(m * m, 0.0);
  for (int j = 0; j < active; ++j)
    for (int i = 0; i < active; ++i)
      s.Y[static_cast<Index>(j) * m + i] = 0.5 * (s.h(i, j) + s.h(j, i));
  s.theta.assign(m, 0.0);
  if (LAPACKE_dsyevd(LAPACK_COL_MAJOR, 'V', 'U', active, s.Y.data(), active, s.theta.data()) != 0)
    return false;
  // Residual estimates: the rows of the residual block times the Ritz vectors, S = E Y.
  s.S.assign(static_cast<Index>(std::max(pending, 1)) * m, 0.0);
  s.estimate.assign(m, 0.0);
  if (pending > 0) {
    std::vector<double> e(static_cast<Index>(pending) * m);
    for (int j = 0; j < active; ++j)
      for (int i = 0; i < pending; ++i) e[static_cast<Index>(j) * pending + i] = s.h(active + i, j);
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, pending, active, active, 1.0, e.data(),
                pending, s.Y.data(), active, 0.0, s.S.data(), pending);
    for (int j = 0; j < active; ++j)
      s.estimate[static_cast<Index>(j)] =
          cblas_dnrm2(pending, s.S.data() + static_cast<Index>(j) * pending, 1);
  }
  s.order.resize(m);
  std::iota(s.order.begin(), s.order.end(), 0);
  std::stable_sort(s.order.begin(), s.order.end(),
                   [&s](int a, int b) { return std::fabs(s.theta[a]) > std::fabs(s.theta[b]); });
  return true;
}

void VQ_BlockLanczosEigenSolver::Restart(Basis& s, int active, int pending, int keep) {
  const int n = s.n;
  const Index m = static_cast<Index>(active);
  // Q = the kept Ritz vectors of the projected problem (active x keep).
  std::vector<double> q(m * keep), strip(static_cast<Index>(kStripRows) * keep);
  for (int j = 0; j < keep; ++j)
    std::memcpy(&q[static_cast<Index>(j) * m], &s.Y[static_cast<Index>(s.order[j]) * m],
                sizeof(double) * m);
  // V(:, 0:keep) = V(:, 0:active) Q, and the same for W V, one strip of rows at a time.
  for (std::vector<double>* a : {&s.V, &s.WV}) {
    for (int r0 = 0; r0 < n; r0 += kStripRows) {
      const int rows = std::min(kStripRows, n - r0);
      cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, rows, keep, active, 1.0,
                  a->data() + r0, n, q.data(), active, 0.0, strip.data(), rows);
      for (int j = 0; j < keep; ++j)
        std::memcpy(a->data() + static_cast<Index>(j) * n + r0,
                    strip.data() + static_cast<Index>(j) * rows, sizeof(double) * rows);
    }
    // The residual block follows the kept vectors.
    for (int j = 0; j < pending; ++j)
      std::memmove(Column(*a, n, keep + j), Column(*a, n, active + j),
                   sizeof(double) * static_cast<Index>(n));
  }
  // Arrow matrix: the kept Ritz values on the diagonal, the residual block coupled to them. The
  // converged pairs in front are locked: their coupling is dropped.
  std::vector<double> coupling(static_cast<Index>(pending) * keep);
  for (int j = 0; j < keep; ++j)
    for (int i = 0; i < pending; ++i)
      coupling[static_cast<Index>(j) * pending + i] =
          s.S[static_cast<Index>(s.order[j]) * pending + i];
  std::vector<double> values(static_cast<Index>(keep));
  for (int j = 0; j < keep; ++j) values[static_cast<Index>(j)] = s.theta[s.order[j]];
  std::fill(s.H.begin(), s.H.end(), 0.0);
  for (int j = 0; j < keep; ++j) {
    s.h(j, j) = values[static_cast<Index>(j)];
    if (j < s.locked) continue;
    for (int i = 0; i < pending; ++i) {
      s.h(keep + i, j) = coupling[static_cast<Index>(j) * pending + i];
      s.h(j, keep + i) = coupling[static_cast<Index>(j) * pending + i];
    }
  }
  ++restarts_;
}

bool VQ_BlockLanczosEigenSolver::AcceptPairs(Basis& s, int active, int count) {
  const int n = s.n;
  const Index m = static_cast<Index>(active);
  std::vector<int> chosen(s.order.begin(), s.order.begin() + count);
  std::sort(chosen.begin(), chosen.end(), [this, &s](int a, int b) {
    return ToEigenvalue(s.theta[a]) < ToEigenvalue(s.theta[b]);
  });
  std::vector<double> q(m * count);
  for (int j = 0; j < count; ++j)
    std::memcpy(&q[static_cast<Index>(j) * m], &s.Y[static_cast<Index>(chosen[j]) * m],
                sizeof(double) * m);
  eigenVectors_.Redimension(n, count, 0.0);
  eigenValues_.Redimension(count, 1, 0.0);
  if (eigenVectors_.MatrixStatus() != MATLIBDLLCOMMONS::STATUS_OK ||
      eigenValues_.MatrixStatus() != MATLIBDLLCOMMONS::STATUS_OK) {
    Fail(-1);
    return false;
  }
  double* phi = eigenVectors_.GetDataPointer();
  cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, count, active, 1.0, s.V.data(), n,
              q.data(), active, 0.0, phi, n);
  std::vector<double> kphi(static_cast<Index>(n) * count), bphi(static_cast<Index>(n) * count);
  if (kProduct_->Apply(phi, kphi.data(), count) != 0 ||
      bProduct_->Apply(phi, bphi.data(), count) != 0) {
    Fail(-9999);
    return false;
  }
  largestResidual_ = 0.0;
  bool all = true;
  for (int j = 0; j < count; ++j) {
    const double lambda = ToEigenvalue(s.theta[chosen[j]]);
    eigenValues_[j + 1] = lambda;
    const Index at = static_cast<Index>(j) * n;
    cblas_daxpy(n, -lambda, bphi.data() + at, 1, kphi.data() + at, 1);
    const double residual =
        cblas_dnrm2(n, kphi.data() + at, 1) / (kNorm_ * std::max(cblas_dnrm2(n, phi + at, 1), 1e-300));
    largestResidual_ = std::max(largestResidual_, residual);
    if (!(residual <= kResidualTarget)) all = false;
  }
  numFoundEigen_ = count;
  // Converged Ritz values left out only because the count was reached (the other copies of a
  // repeated eigenvalue cut by the count): the Sturm count sees them.
  nearbyValues_.clear();
  for (Index j = static_cast<Index>(count); j < m; ++j) {
    const int i = s.order[j];
    if (s.estimate[i] <= kNearbyEstimate * std::fabs(s.theta[i]))
      nearbyValues_.push_back(ToEigenvalue(s.theta[i]));
  }
  return all;
}

// ---- Sturm verification ------------------------------------------------------------------------

void VQ_BlockLanczosEigenSolver::VerifyBySturmCount() {
  sturmCount_ = -1;
  if (numFoundEigen_ < 1) return;
  const double top = eigenValues_[numFoundEigen_];
  const double s = inverseBuckling_ ? 0.0 : shift_;
  // Buckling counts need a positive Sturm shift above a non-negative shift.
  if (kind_ == kBuckling && (top <= 0.0 || s < 0.0)) return;
  const double scale = std::max({std::fabs(top), std::fabs(top - s), 1e-300});
  const double sigma = top + kSturmOffset * scale;

  // K - s' B on the pattern already analysed: only the numerical factorisation is repeated.
  std::unique_ptr<VQ_SparseSymMatrix> next = MakeShifted(sigma);
  if (!next) return;
  int result;
  if (matrixType_ == -2 && next->GetNumberOfNonZeros() == shifted_->GetNumberOfNonZeros()) {
    std::memcpy(shifted_->GetDataPointer(), next->GetDataPointer(),
                sizeof(double) * static_cast<Index>(next->GetNumberOfNonZeros()));
    result = solver_->Decomposition(true, false);
    if (result == -4 || result == -5) {
      stiffness_ = shifted_.get();
      result = DecomposeWithRetry("", &solver_, false, nullptr, nullptr, nullptr);
    }
  } else {
    shifted_.swap(next);
    stiffness_ = shifted_.get();
    auto indefinite = [](VQ_SparseSolver* solver, void*) { solver->SetMatrixType(-2); };
    result = DecomposeWithRetry("", &solver_, false, nullptr, indefinite, nullptr);
  }
  ++factorizations_;
  if (!solver_ || result != 0) return;
  sturmCount_ = solver_->Get_NumberOfNegativeEigenvalues();
  // Every eigenvalue between the shift and s' must have been found.
  int foundAbove = 0;
  for (int i = 1; i <= numFoundEigen_; ++i)
    if (eigenValues_[i] >= s && eigenValues_[i] < sigma) ++foundAbove;
  for (double value : nearbyValues_)
    if (value >= s && value < sigma) ++foundAbove;
  const int below = negativeAtShift_;
  if (sturmCount_ - below != foundAbove) {
    ProcessVerboseInfo3(sturmCount_, numFoundEigen_);
    SetWarningMessage(-23);
  }
}

// ---- the run -----------------------------------------------------------------------------------

void VQ_BlockLanczosEigenSolver::SizeBasis(Basis& s) {
  const int n = numEquations_;
  s.n = n;
  s.b = block_;
  // A diagonal M with massless equations is only positive semi-definite: its inner product
  // admits no more orthonormal vectors than it has masses, and the Krylov space of the
  // operator is exhausted there. Columns beyond would be rounding noise in the massless
  // equations that spoils every Ritz vector.
  s.span = kind_ == kNaturalModes && bDiagonal_ ? std::min(n, numMassDOF_) : n;
  s.mMax = std::min(s.span, std::max({2 * wanted_ + block_, wanted_ + 3 * block_, kDegree * block_}));
  s.capacity = std::min(n, s.mMax + block_);
  const Index cap = static_cast<Index>(s.capacity);
  const Index nb = static_cast<Index>(n) * block_;
  s.V.assign(static_cast<Index>(n) * cap, 0.0);
  s.WV.assign(static_cast<Index>(n) * cap, 0.0);
  s.H.assign(cap * cap, 0.0);
  s.X.assign(nb, 0.0);
  s.WX.assign(nb, 0.0);
  s.X0.assign(nb, 0.0);
  s.T.assign(std::max(nb, cap), 0.0);
  s.C.assign(cap * block_, 0.0);
  s.R.assign(std::max(cap * block_, static_cast<Index>(block_) * block_), 0.0);
  s.beforeNorms.assign(static_cast<Index>(block_), 0.0);
}

bool VQ_BlockLanczosEigenSolver::ExpandToCycleSize(Basis& s, int& active, int& pending) {
  const int n = s.n;
  std::vector<double> r(static_cast<Index>(block_) * block_);
  while (pending > 0 && active + pending <= s.mMax) {
    const int first = active;
    const int count = pending;
    const int total = active + pending;
    if (!ExpandBlock(s, first, count, s.X.data())) return false;
    for (int j = 0; j < count; ++j)
      s.beforeNorms[j] = cblas_dnrm2(n, s.X.data() + static_cast<Index>(j) * n, 1);
    Orthogonalise(s, total, s.X.data(), count, s.C.data());
    for (int j = 0; j < count; ++j) {
      for (int i = 0; i < total; ++i)
        s.h(i, first + j) = i < s.locked ? 0.0 : s.C[static_cast<Index>(j) * total + i];
    }
    const int kept = NormaliseBlock(s, total, s.X.data(), s.WX.data(), count, r.data());
    if (kept < 0) {
      Fail(-9999);
      return false;
    }
    for (int j = 0; j < count; ++j)
      for (int i = 0; i < kept; ++i) s.h(total + i, first + j) = r[static_cast<Index>(j) * block_ + i];
    active = total;
    pending = kept;
  }
  return true;
}

int VQ_BlockLanczosEigenSolver::CountConverged(const Basis& s, int active, double tolerance,
                                               int& lockable, bool& limitReached) const {
  // Converged pairs, nearest the shift first.
  const double thetaMax = std::fabs(s.theta[s.order[0]]);
  int converged = 0;
  lockable = 0;
  limitReached = false;
  while (converged < active && converged < wanted_) {
    const int i = s.order[converged];
    const double bound = std::max(tolerance * std::fabs(s.theta[i]), 10.0 * kEpsilon * thetaMax);
    if (!(s.estimate[i] <= bound)) break;
    // theta = 0 is an infinite eigenvalue (a direction without mass, or without geometric
    // stiffness for buckling): not a pair.
    if (!std::isfinite(ToEigenvalue(s.theta[i]))) break;
    if (lockable == converged && s.estimate[i] <= kLockShare * bound) ++lockable;
    if (limitActive_ && ToEigenvalue(s.theta[i]) > limit_) limitReached = true;
    ++converged;
    if (limitReached) break;
  }
  return converged;
}

int VQ_BlockLanczosEigenSolver::Solve() {
  if (status_ != 0) return status_;
  numFoundEigen_ = 0;
  sturmCount_ = -1;
  factorizations_ = blockSolves_ = restarts_ = 0;
  largestResidual_ = 0.0;
  SetWarningMessage(0);
  try {
    if (!Prepare() || !Factorise()) return status_;
    Basis s;
    SizeBasis(s);
    int active = 0;
    int pending = 0;
    if (!StartBlock(s, pending)) return status_;

    const int maxCycles = maxCycles_ > 0 ? maxCycles_ : kDefaultCycles;
    double tolerance = kFirstTolerance;
    bool limitStopped = false;
    for (int cycle = 0; cycle < maxCycles; ++cycle) {
      if (!ExpandToCycleSize(s, active, pending)) return status_;
      if (!SolveProjected(s, active, pending)) {
        Fail(-9999);
        return status_;
      }
      // The run is done when the wanted pairs have converged.
      int lockable = 0;
      bool limitReached = false;
      const int converged = CountConverged(s, active, tolerance, lockable, limitReached);
      const bool done = converged >= wanted_ || limitReached || pending == 0;
      if (done && converged > 0) {
        if (AcceptPairs(s, active, converged)) {
          // Pairs above the limit are not wanted.
          if (limitActive_) {
            int within = 0;
            while (within < converged && eigenValues_[within + 1] <= limit_) ++within;
            numFoundEigen_ = within;
            limitStopped = limitReached;
          }
          break;
        }
        // A pair missed the residual target: iterate on with a tighter estimate tolerance.
        if (pending == 0 || tolerance <= kSmallestTolerance) {
          Fail(-22);
          return status_;
        }
        numFoundEigen_ = 0;
        tolerance = std::max(kSmallestTolerance, tolerance * 0.01);
      }
      if (cycle + 1 == maxCycles) {
        if (converged > 0) AcceptPairs(s, active, converged);
        break;
      }
      // Thick restart: converged pairs (locked) and the best unconverged ones.
      int keep = std::min(s.mMax - block_, wanted_ + (s.mMax - block_ - wanted_) / 2);
      keep = std::max(keep, std::min(converged, s.mMax - block_));
      keep = std::max(1, std::min(keep, active));
      s.locked = std::min(lockable, keep);
      Restart(s, active, pending, keep);
      active = keep;
    }
    if (numFoundEigen_ < 1) {
      Fail(-21);
      return status_;
    }
    if (verify_ && !external_) VerifyBySturmCount();
    if (numFoundEigen_ < wanted_ && !limitStopped) Fail(-22);
    return status_;
  } catch (const std::bad_alloc&) {
    Fail(-1);
    return status_;
  }
}
