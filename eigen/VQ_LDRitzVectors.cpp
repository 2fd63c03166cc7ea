// VQ_LDRitzVectors.cpp - load-dependent Ritz vectors; see the header for the method, the
// options and the statuses.
#include "eigen/VQ_LDRitzVectors.h"

#include <mkl_cblas.h>
#include <mkl_lapacke.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <numeric>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_SymMatrix.h"
#include "eigen/VQ_EigenSolver.h"
#include "eigen/internal/SparseShiftInvertOperator.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/internal/SymmetricProduct.h"

namespace ei = vqmath::eigen_internal;
namespace vi = vqmath::internal;

namespace {

const char* const kTextCancelled = "Analysis Canceled by User";
const char* const kTextInstability = "Instability Detected (ill-conditioned matrices)";
const char* const kTextNoMemory = "Memory Allocation Error (insuffcient memory)";
const char* const kTextFailed = "Failed to Find Ritz Vectors";

constexpr int kStatusNoMemory = -1;
constexpr int kStatusCancelled = -2;
constexpr int kStatusInstability = -3;
constexpr int kStatusFailed = -40;
// Result of a failed reduced solve (mapped to −40 by ResolveError).
constexpr int kReducedSolveFailed = -30;

// A Gram–Schmidt pass that leaves less than this share of the M-norm is repeated (the vector was
// nearly dependent on the earlier ones).
constexpr double kRepeatPass = 0.5;
// A new vector whose M-norm fell below this share of its norm before orthogonalisation carries
// no new direction: the sequence ends.
constexpr double kDependent = 1e-10;
// Above this many vectors the reduced problem goes to LAPACK's tridiagonal route.
constexpr int kJacobiLimit = 200;

size_t Cells(int rows, int cols) { return static_cast<size_t>(rows) * static_cast<size_t>(cols); }

// Packed symmetric (upper, by columns) → full column-major square.
std::vector<double> FullFromSym(const VQ_SymMatrix& s) {
  const int q = s.NumRows();
  std::vector<double> a(Cells(q, q));
  for (int j = 1; j <= q; ++j)
    for (int i = 1; i <= j; ++i) {
      const double v = s.Value(i, j);
      a[Cells(j - 1, q) + (i - 1)] = v;
      a[Cells(i - 1, q) + (j - 1)] = v;
    }
  return a;
}

}  // namespace

// ---- construction
// ----------------------------------------------------------------------------------

VQ_LDRitzVectors::VQ_LDRitzVectors(int n, int* kRowPointers, int* kColumnIndices, double* kValues,
                                   double* massDiagonal, int oocMode, int matrixType,
                                   bool limitFlag, double limitValue)
    : oocMode_(oocMode), matrixType_(matrixType), limitFlag_(limitFlag), limitValue_(limitValue) {
  if (n > 0 && kRowPointers && kColumnIndices && kValues) {
    VQ_SparseSymMatrix k(n, kValues, kRowPointers, kColumnIndices);
    K_.SetEqualTo(&k);
  }
  if (n > 0 && massDiagonal) {
    VQ_DiagonalMatrix d(n, massDiagonal);
    M_.SetEqualTo(&d);
  }
  if (K_.MatrixStatus() != 0 || M_.MatrixStatus() != 0) Fail(kStatusNoMemory, kTextNoMemory);
}

VQ_LDRitzVectors::VQ_LDRitzVectors(int n, int* kRowPointers, int* kColumnIndices, double* kValues,
                                   int* mRowPointers, int* mColumnIndices, double* mValues,
                                   int oocMode, int matrixType, bool limitFlag, double limitValue)
    : oocMode_(oocMode), matrixType_(matrixType), limitFlag_(limitFlag), limitValue_(limitValue) {
  if (n > 0 && kRowPointers && kColumnIndices && kValues) {
    VQ_SparseSymMatrix k(n, kValues, kRowPointers, kColumnIndices);
    K_.SetEqualTo(&k);
  }
  if (n > 0 && mRowPointers && mColumnIndices && mValues) {
    VQ_SparseSymMatrix m(n, mValues, mRowPointers, mColumnIndices);
    M_.SetEqualTo(&m);
  }
  if (K_.MatrixStatus() != 0 || M_.MatrixStatus() != 0) Fail(kStatusNoMemory, kTextNoMemory);
}

VQ_LDRitzVectors::~VQ_LDRitzVectors() = default;

// ---- options
// -------------------------------------------------------------------------------------

void VQ_LDRitzVectors::SetParameters(bool orthogonalizeVwrtK, bool selectiveReorthogonalization,
                                     bool staticCorrection) {
  orthogonalizeVwrtK_ = orthogonalizeVwrtK;
  selectiveReorthogonalization_ = selectiveReorthogonalization;
  staticCorrection_ = staticCorrection;
}

void VQ_LDRitzVectors::GetParameters(bool& orthogonalizeVwrtK, bool& selectiveReorthogonalization,
                                     bool& staticCorrection) const {
  orthogonalizeVwrtK = orthogonalizeVwrtK_;
  selectiveReorthogonalization = selectiveReorthogonalization_;
  staticCorrection = staticCorrection_;
}

void VQ_LDRitzVectors::CheckNumReqEigens(int a, int b, int& n) const { n = std::min({n, a, b}); }

// ---- errors
// --------------------------------------------------------------------------------------

void VQ_LDRitzVectors::Fail(int status, const char* message) {
  status_ = status;
  errorMessage_ = message;
}

void VQ_LDRitzVectors::ResolveError(VQ_SparseSolver* solver, int code) {
  switch (code) {
    case 0: return;
    case VQ_SparseSolver::kStatusCancelled: Fail(kStatusCancelled, kTextCancelled); return;
    case VQ_SparseSolver::kStatusZeroPivot:
      Fail(kStatusInstability, kTextInstability);
      if (solver) instabilityEquation_ = solver->Get_DOFNumForInstability();
      return;
    case VQ_SparseSolver::kStatusOutOfMemory:
    case VQ_SparseSolver::kStatusOutOfMemoryOutOfCore:
      Fail(kStatusNoMemory, kTextNoMemory);
      return;
    default: Fail(kStatusFailed, kTextFailed); return;
  }
}

void VQ_LDRitzVectors::ResolveError(int status) {
  status_ = status;
  switch (status) {
    case 0: return;
    case kStatusCancelled: errorMessage_ = kTextCancelled; return;
    case kStatusInstability: errorMessage_ = kTextInstability; return;
    default: Fail(kStatusFailed, kTextFailed); return;
  }
}

void VQ_LDRitzVectors::PrintMatrices(const char* folder) {
  const std::string base = folder ? folder : "";
  if (FILE* f = std::fopen((base + "MASSMatrix.mtx").c_str(), "w")) {
    M_.StoreIn_MTX_Format(f);
    std::fclose(f);
  }
  if (FILE* f = std::fopen((base + "STIFFNESSMatrix.mtx").c_str(), "w")) {
    K_.StoreIn_MTX_Format(f);
    std::fclose(f);
  }
}

// ---- reduced problem
// -----------------------------------------------------------------------------

int VQ_LDRitzVectors::SubspaceIterationEigenSolver(int count, VQ_SymMatrix& Kr, VQ_SymMatrix& Mr,
                                                   std::string workingDirectory) {
  if (count > kJacobiLimit) return ArnoldiSolver(count, Kr, Mr, workingDirectory);
  try {
    // Generalized Jacobi, as subspace iteration solves its projected problems; it works on
    // copies (it overwrites its operands).
    VQ_SymMatrix k(Kr), m(Mr);
    VQ_EigenSolver jacobi;
    VQ_ColVector values(count);
    VQ_Matrix vectors(count, count);
    if (jacobi.JACOBI(k, m, vectors, values) != 0) return kReducedSolveFailed;
    reducedVectors_ = vectors;
    estimates_ = values;
    return 0;
  } catch (const std::bad_alloc&) {
    return -4;
  }
}

int VQ_LDRitzVectors::ArnoldiSolver(int count, VQ_SymMatrix& Kr, VQ_SymMatrix& Mr,
                                    std::string /*workingDirectory*/) {
  try {
    std::vector<double> a = FullFromSym(Kr), b = FullFromSym(Mr), w(static_cast<size_t>(count));
    if (LAPACKE_dsygvd(LAPACK_COL_MAJOR, 1, 'V', 'U', count, a.data(), count, b.data(), count,
                       w.data()) != 0)
      return kReducedSolveFailed;
    reducedVectors_ = VQ_Matrix(count, count, a.data());
    estimates_ = VQ_ColVector(count, w.data());
    return 0;
  } catch (const std::bad_alloc&) {
    return -4;
  }
}

int VQ_LDRitzVectors::LAPACKEigenSolver(VQ_SymMatrix& Kr, VQ_SymMatrix& Mr) {
  try {
    const int q = Kr.NumRows();
    std::vector<double> a = FullFromSym(Kr), b = FullFromSym(Mr), w(static_cast<size_t>(q));
    if (LAPACKE_dsygv(LAPACK_COL_MAJOR, 1, 'V', 'U', q, a.data(), q, b.data(), q, w.data()) != 0)
      return kReducedSolveFailed;
    reducedVectors_ = VQ_Matrix(q, q, a.data());
    estimates_ = VQ_ColVector(q, w.data());
    return 0;
  } catch (const std::bad_alloc&) {
    return -4;
  }
}

// ---- solution
// ------------------------------------------------------------------------------------

int VQ_LDRitzVectors::SolveWYD(unsigned count, std::string workingDirectory,
                               VQ_RitzProgressCallback progress, VQ_ColVector* load, int vecType) {
  return Solve(false, count, workingDirectory, progress, load, vecType);
}

int VQ_LDRitzVectors::SolveLWYD(unsigned count, std::string workingDirectory,
                                VQ_RitzProgressCallback progress, VQ_ColVector* load, int vecType) {
  return Solve(true, count, workingDirectory, progress, load, vecType);
}

void VQ_LDRitzVectors::ResetResults() {
  status_ = 0;
  errorMessage_.clear();
  instabilityEquation_ = -1;
  gramSchmidtPasses_ = 0;
  vectors_ = VQ_Matrix();
  reducedVectors_ = VQ_Matrix();
  estimates_ = VQ_ColVector();
  meffRatios_ = VQ_ColVector();
  errNorm1_ = VQ_ColVector();
  errNorm2_ = VQ_ColVector();
}

// The work of one run: the load, the factorisation of K, the products with M and K, the generated
// vectors X (M-orthonormal) with M·X, and the final vectors with their estimates.
struct VQ_LDRitzVectors::RitzRun {
  int n = 0;
  size_t un = 0;
  int count = 0;          // vectors wanted
  bool lanczos = false;   // three-term recurrence instead of full Gram–Schmidt
  bool asForce = false;   // the load is a force (else a pattern multiplied by M)
  bool repeatPasses = true;
  std::vector<double> f;  // the load: the caller's vector, or ones
  std::unique_ptr<VQ_SparseSolver> solver;
  vi::SymmetricProduct mass, stiffness;
  std::unique_ptr<ei::SparseShiftInvertOperator> op;  // M·x and K⁻¹·r
  std::vector<double> X, MX, y, my, rhs, c;
  int made = 0;
  int* gramSchmidtPasses = nullptr;
  // Results of the reduced problem: q vectors φ (n × q) and their estimates, ascending.
  int q = 0;
  std::vector<double> kr;
  std::vector<double> phi, lambda;

  // M-norm of v (mv = M·v formed on the way); −1 when v'·M·v is negative.
  double MNorm(const double* v, double* mv) const {
    mass.Apply(v, mv);
    const double s = cblas_ddot(n, v, 1, mv, 1);
    return s > 0.0 ? std::sqrt(s) : (s == 0.0 ? 0.0 : -1.0);
  }
  // One Gram–Schmidt pass of y against the first k vectors: c = (MX)ᵀ·y, y −= X·c.
  void Pass(int k) {
    if (k == 0) return;
    cblas_dgemv(CblasColMajor, CblasTrans, n, k, 1.0, MX.data(), n, y.data(), 1, 0.0, c.data(), 1);
    cblas_dgemv(CblasColMajor, CblasNoTrans, n, k, -1.0, X.data(), n, c.data(), 1, 1.0, y.data(),
                1);
    ++*gramSchmidtPasses;
  }
  // Gram–Schmidt against all k earlier vectors, repeated while a pass removed more than half of
  // the norm (when repetition is allowed). Returns the M-norm left.
  double Orthogonalise(int k, double before, bool repeat) {
    double now = before;
    for (int p = 0; p < std::max(k, 1); ++p) {
      Pass(k);
      const double left = MNorm(y.data(), my.data());
      if (left < 0.0) return left;
      const bool cancelled = left < kRepeatPass * now;
      now = left;
      if (!repeat || !cancelled) break;
    }
    return now;
  }
  // y / norm becomes the next vector.
  void Accept(double norm) {
    const double s = 1.0 / norm;
    for (size_t i = 0; i < un; ++i) {
      X[Cells(made, n) + i] = y[i] * s;
      MX[Cells(made, n) + i] = my[i] * s;
    }
    ++made;
  }
};

bool VQ_LDRitzVectors::PrepareRitzRun(RitzRun& r, unsigned requested,
                                      const std::string& workingDirectory, VQ_ColVector* load,
                                      int vecType) {
  const int n = K_.NumRows();
  if (n <= 0 || K_.GetRowVectorPointer() == nullptr || M_.NumRows() != n ||
      M_.GetRowVectorPointer() == nullptr) {
    Fail(kStatusFailed, kTextFailed);
    return false;
  }
  // At most one vector per mass degree of freedom.
  const int massTerms = M_.CountNonZeroDiagonalTerms(zero_);
  const int count = static_cast<int>(
      std::min<unsigned>(requested, static_cast<unsigned>(std::min(massTerms, n))));
  if (count == 0 || massTerms == 0) {
    Fail(kStatusFailed, kTextFailed);
    return false;
  }
  r.n = n;
  r.un = static_cast<size_t>(n);
  r.count = count;
  r.gramSchmidtPasses = &gramSchmidtPasses_;

  r.f.assign(r.un, 1.0);
  const bool haveLoad = load != nullptr && load->GetDataPointer() != nullptr;
  if (haveLoad) {
    if (load->NumRows() * load->NumCols() < n) {
      Fail(kStatusFailed, kTextFailed);
      return false;
    }
    std::memcpy(r.f.data(), load->GetDataPointer(), sizeof(double) * r.un);
  }
  r.asForce = haveLoad && vecType == 1;

  // Factor K once.
  r.solver.reset(new VQ_SparseSolver(&K_, nullptr, oocMode_, matrixType_, false,
                                     workingDirectory.c_str(), nullptr));
  const int factor = r.solver->Decomposition(true, true);
  if (factor != 0) {
    ResolveError(r.solver.get(), factor);
    return false;
  }
  r.mass.SetSparse(n, M_.GetRowVectorPointer(), M_.GetColumnVectorPointer(), M_.GetDataPointer(),
                   4 * count + 8);
  r.stiffness.SetSparse(n, K_.GetRowVectorPointer(), K_.GetColumnVectorPointer(),
                        K_.GetDataPointer(), count + 2);
  r.op.reset(new ei::SparseShiftInvertOperator(r.mass, *r.solver));
  r.X.assign(Cells(n, count), 0.0);
  r.MX.assign(Cells(n, count), 0.0);
  r.y.assign(r.un, 0.0);
  r.my.assign(r.un, 0.0);
  r.rhs.assign(r.un, 0.0);
  r.c.assign(static_cast<size_t>(count), 0.0);
  return true;
}

bool VQ_LDRitzVectors::ReportProgress(const RitzRun& r, VQ_RitzProgressCallback progress) {
  if (progress && !progress(r.made, static_cast<double>(r.made) / r.count)) {
    Fail(kStatusCancelled, kTextCancelled);
    return false;
  }
  return true;
}

bool VQ_LDRitzVectors::SolveWithStiffness(RitzRun& r, const double* rhs) {
  if (r.op->Solve(rhs, r.y.data()) == 0) return true;
  ResolveError(r.solver.get(), r.solver->GetLastErrorCode());
  return false;
}

bool VQ_LDRitzVectors::FirstRitzVector(RitzRun& r, VQ_RitzProgressCallback progress) {
  // x₁ = K⁻¹·r, r = M·f (pattern) or f (force).
  if (r.asForce)
    std::memcpy(r.rhs.data(), r.f.data(), sizeof(double) * r.un);
  else
    r.mass.Apply(r.f.data(), r.rhs.data());
  if (!SolveWithStiffness(r, r.rhs.data())) return false;
  const double first = r.MNorm(r.y.data(), r.my.data());
  if (!(first > 0.0)) {  // negative: not a mass; zero: the load has no mass component
    Fail(kStatusFailed, kTextFailed);
    return false;
  }
  r.Accept(first);
  return ReportProgress(r, progress);
}

int VQ_LDRitzVectors::NextDirection(RitzRun& r, double& beta, double& norm) {
  const int n = r.n;
  const int made = r.made;
  // y = K⁻¹·M·x_last
  if (!SolveWithStiffness(r, &r.MX[Cells(made - 1, n)])) return -1;
  const double before = r.MNorm(r.y.data(), r.my.data());
  if (!(before > 0.0)) return 0;
  if (r.lanczos) {
    // Three-term recurrence: against the last two vectors only.
    const double* xl = &r.X[Cells(made - 1, n)];
    const double alpha = cblas_ddot(n, &r.MX[Cells(made - 1, n)], 1, r.y.data(), 1);
    cblas_daxpy(n, -alpha, xl, 1, r.y.data(), 1);
    if (made >= 2) cblas_daxpy(n, -beta, &r.X[Cells(made - 2, n)], 1, r.y.data(), 1);
    norm = r.MNorm(r.y.data(), r.my.data());
    if (selectiveReorthogonalization_ && norm > 0.0) {
      // Loss of orthogonality against the earlier vectors: reorthogonalise fully.
      cblas_dgemv(CblasColMajor, CblasTrans, n, made, 1.0, r.MX.data(), n, r.y.data(), 1, 0.0,
                  r.c.data(), 1);
      double worst = 0.0;
      for (int j = 0; j < made; ++j) worst = std::max(worst, std::fabs(r.c[j]));
      const double sqrtEps = std::sqrt(std::numeric_limits<double>::epsilon());
      if (worst > sqrtEps * norm) norm = r.Orthogonalise(made, norm, true);
    }
  } else {
    norm = r.Orthogonalise(made, before, selectiveReorthogonalization_);
  }
  if (!(norm > kDependent * before)) return 0;  // no new direction: the sequence ends
  beta = norm;
  return 1;
}

bool VQ_LDRitzVectors::GenerateRitzVectors(RitzRun& r, VQ_RitzProgressCallback progress) {
  if (!FirstRitzVector(r, progress)) return false;
  // Static correction of the Lanczos variant: the load taken as a force, unless the first
  // vector already is its static response.
  const bool addStatic = r.lanczos && staticCorrection_ && !r.asForce && r.count >= 2;
  double beta = 0.0;  // M-norm of the previous Lanczos step
  while (r.made < r.count) {
    double norm = 0.0;
    bool fromStatic = false;
    if (addStatic && r.made == r.count - 1) {
      // y = K⁻¹·f against all, twice if needed; kept only when it brings a new direction.
      if (!SolveWithStiffness(r, r.f.data())) return false;
      const double before = r.MNorm(r.y.data(), r.my.data());
      norm = before > 0.0 ? r.Orthogonalise(r.made, before, true) : 0.0;
      fromStatic = before > 0.0 && norm > kDependent * before;
    }
    if (!fromStatic) {
      const int next = NextDirection(r, beta, norm);
      if (next < 0) return false;
      if (next == 0) break;
    }
    r.Accept(norm);
    if (!ReportProgress(r, progress)) return false;
  }
  r.q = r.made;
  return true;
}

bool VQ_LDRitzVectors::SolveReducedProblem(RitzRun& r, const std::string& workingDirectory) {
  const int n = r.n, q = r.q;
  // Reduced matrices Kr = Xᵀ·K·X and Mr = Xᵀ·M·X.
  std::vector<double> KX(Cells(n, q));
  r.stiffness.Apply(r.X.data(), KX.data(), q);
  std::vector<double>& kr = r.kr;
  kr.assign(Cells(q, q), 0.0);
  std::vector<double> mr(Cells(q, q));
  cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, q, q, n, 1.0, r.X.data(), n, KX.data(), n,
              0.0, kr.data(), q);
  cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, q, q, n, 1.0, r.X.data(), n, r.MX.data(),
              n, 0.0, mr.data(), q);
  VQ_SymMatrix Kr(q, 0.0), Mr(q, 0.0);
  for (int j = 1; j <= q; ++j)
    for (int i = 1; i <= j; ++i) {
      // Symmetrised: the products agree only to round-off.
      Kr.Ref(i, j) = 0.5 * (kr[Cells(j - 1, q) + i - 1] + kr[Cells(i - 1, q) + j - 1]);
      Mr.Ref(i, j) = 0.5 * (mr[Cells(j - 1, q) + i - 1] + mr[Cells(i - 1, q) + j - 1]);
    }

  std::vector<int> order(static_cast<size_t>(q));
  std::iota(order.begin(), order.end(), 0);
  r.phi.assign(Cells(n, q), 0.0);
  r.lambda.clear();
  if (!orthogonalizeVwrtK_) {
    // The generated vectors themselves, with their Rayleigh quotients, ascending.
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return kr[Cells(a, q) + a] < kr[Cells(b, q) + b]; });
    for (int j = 0; j < q; ++j) {
      r.lambda.push_back(kr[Cells(order[j], q) + order[j]]);
      std::memcpy(&r.phi[Cells(j, n)], &r.X[Cells(order[j], n)], sizeof(double) * r.un);
    }
    return true;
  }
  int code = SubspaceIterationEigenSolver(q, Kr, Mr, workingDirectory);
  if (code != 0) code = LAPACKEigenSolver(Kr, Mr);
  if (code != 0) {
    ResolveError(r.solver.get(), code);
    return false;
  }
  // Φ = X·Q, ascending order of the estimates.
  std::stable_sort(order.begin(), order.end(),
                   [this](int a, int b) { return estimates_[a + 1] < estimates_[b + 1]; });
  std::vector<double> Q(Cells(q, q));
  for (int j = 0; j < q; ++j) {
    r.lambda.push_back(estimates_[order[j] + 1]);
    for (int i = 0; i < q; ++i) Q[Cells(j, q) + i] = reducedVectors_.Value(i + 1, order[j] + 1);
  }
  cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, q, q, 1.0, r.X.data(), n, Q.data(), q,
              0.0, r.phi.data(), n);
  return true;
}

bool VQ_LDRitzVectors::StoreRitzResults(RitzRun& r, int& kept) {
  // Eigenvalue limit: drop the pairs above it.
  kept = r.q;
  if (limitFlag_) {
    kept = 0;
    while (kept < r.q && r.lambda[kept] <= limitValue_) ++kept;
    if (kept == 0) {
      Fail(kStatusFailed, kTextFailed);
      return false;
    }
  }
  vectors_ = VQ_Matrix(r.n, kept, r.phi.data());
  estimates_ = VQ_ColVector(kept, r.lambda.data());
  return true;
}

void VQ_LDRitzVectors::ComputeRitzMeasures(const RitzRun& r, int kept) {
  // Effective mass ratios, residuals, load representation error.
  const int n = r.n;
  const size_t un = r.un;
  const std::vector<double>& f = r.f;
  std::vector<double> mf(un), force(un), kphi(un), mphi(un), residual(un);
  r.mass.Apply(f.data(), mf.data());
  if (r.asForce)
    force = f;
  else
    force = mf;
  const double total = cblas_ddot(n, f.data(), 1, mf.data(), 1);
  const double forceNorm = cblas_dnrm2(n, force.data(), 1);
  std::vector<double> remaining = force;
  meffRatios_ = VQ_ColVector(kept);
  errNorm1_ = VQ_ColVector(kept);
  errNorm2_ = VQ_ColVector(kept);
  double cumulative = 0.0;
  for (int j = 0; j < kept; ++j) {
    const double* p = &r.phi[Cells(j, n)];
    r.mass.Apply(p, mphi.data());
    r.stiffness.Apply(p, kphi.data());
    const double gamma = cblas_ddot(n, mphi.data(), 1, f.data(), 1);
    cumulative += gamma * gamma;
    meffRatios_[j + 1] = total > 0.0 ? cumulative / total : 0.0;
    std::memcpy(residual.data(), kphi.data(), sizeof(double) * un);
    cblas_daxpy(n, -r.lambda[j], mphi.data(), 1, residual.data(), 1);
    const double kn = cblas_dnrm2(n, kphi.data(), 1);
    errNorm1_[j + 1] = kn > 0.0 ? cblas_dnrm2(n, residual.data(), 1) / kn : 0.0;
    const double participation = cblas_ddot(n, p, 1, force.data(), 1);
    cblas_daxpy(n, -participation, mphi.data(), 1, remaining.data(), 1);
    errNorm2_[j + 1] = forceNorm > 0.0 ? cblas_dnrm2(n, remaining.data(), 1) / forceNorm : 0.0;
  }
}

int VQ_LDRitzVectors::Solve(bool lanczos, unsigned requested, const std::string& workingDirectory,
                            VQ_RitzProgressCallback progress, VQ_ColVector* load, int vecType) {
  ResetResults();
  try {
    RitzRun r;
    r.lanczos = lanczos;
    int kept = 0;
    if (!PrepareRitzRun(r, requested, workingDirectory, load, vecType) ||
        !GenerateRitzVectors(r, progress) || !SolveReducedProblem(r, workingDirectory) ||
        !StoreRitzResults(r, kept))
      return status_;
    ComputeRitzMeasures(r, kept);
    ResolveError(r.solver.get(), 0);
    return status_;
  } catch (const std::bad_alloc&) {
    Fail(kStatusNoMemory, kTextNoMemory);
    return status_;
  }
}
