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
#include "eigen/internal/ArpackOperators.h"
#include "sparse/VQ_SparseSolver.h"

namespace ei = vqmath::eigen_internal;

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

int VQ_LDRitzVectors::Solve(bool lanczos, unsigned requested, const std::string& workingDirectory,
                            VQ_RitzProgressCallback progress, VQ_ColVector* load, int vecType) {
  ResetResults();
  std::unique_ptr<VQ_SparseSolver> solver;
  try {
    const int n = K_.NumRows();
    if (n <= 0 || K_.GetRowVectorPointer() == nullptr || M_.NumRows() != n ||
        M_.GetRowVectorPointer() == nullptr) {
      Fail(kStatusFailed, kTextFailed);
      return status_;
    }
    // At most one vector per mass degree of freedom.
    const int massTerms = M_.CountNonZeroDiagonalTerms(zero_);
    const int count = static_cast<int>(
        std::min<unsigned>(requested, static_cast<unsigned>(std::min(massTerms, n))));
    if (count == 0 || massTerms == 0) {
      Fail(kStatusFailed, kTextFailed);
      return status_;
    }
    const size_t un = static_cast<size_t>(n);

    // The load: the caller's vector, or ones.
    std::vector<double> f(un, 1.0);
    const bool haveLoad = load != nullptr && load->GetDataPointer() != nullptr;
    if (haveLoad) {
      if (load->NumRows() * load->NumCols() < n) {
        Fail(kStatusFailed, kTextFailed);
        return status_;
      }
      std::memcpy(f.data(), load->GetDataPointer(), sizeof(double) * un);
    }
    const bool asForce = haveLoad && vecType == 1;

    // Factor K once.
    solver.reset(new VQ_SparseSolver(&K_, nullptr, oocMode_, matrixType_, false,
                                     workingDirectory.c_str(), nullptr));
    const int factor = solver->Decomposition(true, true);
    if (factor != 0) {
      ResolveError(solver.get(), factor);
      return status_;
    }

    ei::SymmetricProduct mass, stiffness;
    mass.SetSparse(n, M_.GetRowVectorPointer(), M_.GetColumnVectorPointer(), M_.GetDataPointer(),
                   4 * count + 8);
    stiffness.SetSparse(n, K_.GetRowVectorPointer(), K_.GetColumnVectorPointer(),
                        K_.GetDataPointer(), count + 2);
    auto solve = [&solver](const double* rhs, double* x) {
      solver->Set_LoadVector(0, 1, const_cast<double*>(rhs));
      solver->Set_ResultVector(x);
      return solver->Solve();
    };

    std::vector<double> X(Cells(n, count));   // the generated vectors, M-orthonormal
    std::vector<double> MX(Cells(n, count));  // M times each of them
    std::vector<double> y(un), my(un), rhs(un), c(static_cast<size_t>(count));
    int made = 0;

    // M-norm of y (my = M·y formed on the way).
    auto mnorm = [&](const double* v, double* mv) {
      mass.Apply(v, mv);
      const double s = cblas_ddot(n, v, 1, mv, 1);
      return s > 0.0 ? std::sqrt(s) : (s == 0.0 ? 0.0 : -1.0);
    };
    // One Gram–Schmidt pass of y against the first k vectors: c = (MX)ᵀ·y, y −= X·c.
    auto pass = [&](int k) {
      if (k == 0) return;
      cblas_dgemv(CblasColMajor, CblasTrans, n, k, 1.0, MX.data(), n, y.data(), 1, 0.0, c.data(),
                  1);
      cblas_dgemv(CblasColMajor, CblasNoTrans, n, k, -1.0, X.data(), n, c.data(), 1, 1.0, y.data(),
                  1);
      ++gramSchmidtPasses_;
    };
    // Gram–Schmidt against all k earlier vectors, repeated while a pass removed more than half
    // of the norm (when repetition is allowed). Returns the M-norm left.
    auto orthogonalise = [&](int k, double before, bool repeat) {
      double now = before;
      for (int p = 0; p < std::max(k, 1); ++p) {
        pass(k);
        const double left = mnorm(y.data(), my.data());
        if (left < 0.0) return left;
        const bool cancelled = left < kRepeatPass * now;
        now = left;
        if (!repeat || !cancelled) break;
      }
      return now;
    };
    auto accept = [&](double norm) {
      const double s = 1.0 / norm;
      for (size_t i = 0; i < un; ++i) {
        X[Cells(made, n) + i] = y[i] * s;
        MX[Cells(made, n) + i] = my[i] * s;
      }
      ++made;
    };

    // First vector: x₁ = K⁻¹·r, r = M·f (pattern) or f (force).
    if (asForce) {
      std::memcpy(rhs.data(), f.data(), sizeof(double) * un);
    } else {
      mass.Apply(f.data(), rhs.data());
    }
    if (solve(rhs.data(), y.data()) != 0) {
      ResolveError(solver.get(), solver->GetLastErrorCode());
      return status_;
    }
    const double first = mnorm(y.data(), my.data());
    if (!(first > 0.0)) {  // negative: not a mass; zero: the load has no mass component
      Fail(kStatusFailed, kTextFailed);
      return status_;
    }
    accept(first);
    if (progress && !progress(made, static_cast<double>(made) / count)) {
      Fail(kStatusCancelled, kTextCancelled);
      return status_;
    }

    // Static correction of the Lanczos variant: the load taken as a force, unless the first
    // vector already is its static response.
    const bool addStatic = lanczos && staticCorrection_ && !asForce && count >= 2;
    double beta = 0.0;  // M-norm of the previous Lanczos step
    const double sqrtEps = std::sqrt(std::numeric_limits<double>::epsilon());

    while (made < count) {
      const bool last = made == count - 1;
      bool fromStatic = false;
      double norm = 0.0;
      if (addStatic && last) {
        // y = K⁻¹·f against all, twice if needed; kept only when it brings a new direction.
        if (solve(f.data(), y.data()) != 0) {
          ResolveError(solver.get(), solver->GetLastErrorCode());
          return status_;
        }
        const double before = mnorm(y.data(), my.data());
        norm = before > 0.0 ? orthogonalise(made, before, true) : 0.0;
        fromStatic = before > 0.0 && norm > kDependent * before;
      }
      if (!fromStatic) {
        // y = K⁻¹·M·x_last
        if (solve(&MX[Cells(made - 1, n)], y.data()) != 0) {
          ResolveError(solver.get(), solver->GetLastErrorCode());
          return status_;
        }
        const double before = mnorm(y.data(), my.data());
        if (!(before > 0.0)) break;
        if (lanczos) {
          // Three-term recurrence: against the last two vectors only.
          const double* xl = &X[Cells(made - 1, n)];
          const double alpha = cblas_ddot(n, &MX[Cells(made - 1, n)], 1, y.data(), 1);
          cblas_daxpy(n, -alpha, xl, 1, y.data(), 1);
          if (made >= 2) cblas_daxpy(n, -beta, &X[Cells(made - 2, n)], 1, y.data(), 1);
          norm = mnorm(y.data(), my.data());
          if (selectiveReorthogonalization_ && norm > 0.0) {
            // Loss of orthogonality against the earlier vectors: reorthogonalise fully.
            cblas_dgemv(CblasColMajor, CblasTrans, n, made, 1.0, MX.data(), n, y.data(), 1, 0.0,
                        c.data(), 1);
            double worst = 0.0;
            for (int j = 0; j < made; ++j) worst = std::max(worst, std::fabs(c[j]));
            if (worst > sqrtEps * norm) norm = orthogonalise(made, norm, true);
          }
        } else {
          norm = orthogonalise(made, before, selectiveReorthogonalization_);
        }
        if (!(norm > kDependent * before)) break;  // no new direction: the sequence ends
        beta = norm;
      }
      accept(norm);
      if (progress && !progress(made, static_cast<double>(made) / count)) {
        Fail(kStatusCancelled, kTextCancelled);
        return status_;
      }
    }
    const int q = made;

    // Reduced matrices Kr = Xᵀ·K·X and Mr = Xᵀ·M·X.
    std::vector<double> KX(Cells(n, q));
    for (int j = 0; j < q; ++j) stiffness.Apply(&X[Cells(j, n)], &KX[Cells(j, n)]);
    std::vector<double> kr(Cells(q, q)), mr(Cells(q, q));
    cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, q, q, n, 1.0, X.data(), n, KX.data(), n,
                0.0, kr.data(), q);
    cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, q, q, n, 1.0, X.data(), n, MX.data(), n,
                0.0, mr.data(), q);
    VQ_SymMatrix Kr(q, 0.0), Mr(q, 0.0);
    for (int j = 1; j <= q; ++j)
      for (int i = 1; i <= j; ++i) {
        // Symmetrised: the products agree only to round-off.
        Kr.Ref(i, j) = 0.5 * (kr[Cells(j - 1, q) + i - 1] + kr[Cells(i - 1, q) + j - 1]);
        Mr.Ref(i, j) = 0.5 * (mr[Cells(j - 1, q) + i - 1] + mr[Cells(i - 1, q) + j - 1]);
      }

    std::vector<double> phi;     // final vectors, n × q
    std::vector<double> lambda;  // their estimates, ascending
    if (orthogonalizeVwrtK_) {
      int code = SubspaceIterationEigenSolver(q, Kr, Mr, workingDirectory);
      if (code != 0) code = LAPACKEigenSolver(Kr, Mr);
      if (code != 0) {
        ResolveError(solver.get(), code);
        return status_;
      }
      // Φ = X·Q, ascending order of the estimates.
      std::vector<int> order(static_cast<size_t>(q));
      std::iota(order.begin(), order.end(), 0);
      std::stable_sort(order.begin(), order.end(),
                       [this](int a, int b) { return estimates_[a + 1] < estimates_[b + 1]; });
      std::vector<double> Q(Cells(q, q));
      for (int j = 0; j < q; ++j) {
        lambda.push_back(estimates_[order[j] + 1]);
        for (int i = 0; i < q; ++i) Q[Cells(j, q) + i] = reducedVectors_.Value(i + 1, order[j] + 1);
      }
      phi.assign(Cells(n, q), 0.0);
      cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, q, q, 1.0, X.data(), n, Q.data(), q,
                  0.0, phi.data(), n);
    } else {
      // The generated vectors themselves, with their Rayleigh quotients, ascending.
      std::vector<int> order(static_cast<size_t>(q));
      std::iota(order.begin(), order.end(), 0);
      std::stable_sort(order.begin(), order.end(),
                       [&](int a, int b) { return kr[Cells(a, q) + a] < kr[Cells(b, q) + b]; });
      phi.assign(Cells(n, q), 0.0);
      for (int j = 0; j < q; ++j) {
        lambda.push_back(kr[Cells(order[j], q) + order[j]]);
        std::memcpy(&phi[Cells(j, n)], &X[Cells(order[j], n)], sizeof(double) * un);
      }
    }

    // Eigenvalue limit: drop the pairs above it.
    int kept = q;
    if (limitFlag_) {
      kept = 0;
      while (kept < q && lambda[kept] <= limitValue_) ++kept;
      if (kept == 0) {
        Fail(kStatusFailed, kTextFailed);
        return status_;
      }
    }

    vectors_ = VQ_Matrix(n, kept, phi.data());
    estimates_ = VQ_ColVector(kept, lambda.data());

    // Measures: effective mass ratios, residuals, load representation error.
    std::vector<double> mf(un), force(un), kphi(un), mphi(un), residual(un);
    mass.Apply(f.data(), mf.data());
    if (asForce)
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
      const double* p = &phi[Cells(j, n)];
      mass.Apply(p, mphi.data());
      stiffness.Apply(p, kphi.data());
      const double gamma = cblas_ddot(n, mphi.data(), 1, f.data(), 1);
      cumulative += gamma * gamma;
      meffRatios_[j + 1] = total > 0.0 ? cumulative / total : 0.0;
      std::memcpy(residual.data(), kphi.data(), sizeof(double) * un);
      cblas_daxpy(n, -lambda[j], mphi.data(), 1, residual.data(), 1);
      const double kn = cblas_dnrm2(n, kphi.data(), 1);
      errNorm1_[j + 1] = kn > 0.0 ? cblas_dnrm2(n, residual.data(), 1) / kn : 0.0;
      const double participation = cblas_ddot(n, p, 1, force.data(), 1);
      cblas_daxpy(n, -participation, mphi.data(), 1, remaining.data(), 1);
      errNorm2_[j + 1] = forceNorm > 0.0 ? cblas_dnrm2(n, remaining.data(), 1) / forceNorm : 0.0;
    }
    ResolveError(solver.get(), 0);
    return status_;
  } catch (const std::bad_alloc&) {
    Fail(kStatusNoMemory, kTextNoMemory);
    return status_;
  }
}
