// Shared machinery of the sparse eigen solvers; see VQ_EigenSolver.h.
#include "eigen/VQ_EigenSolver.h"

#include <mkl_cblas.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <new>
#include <vector>

#include "core/GlobalState.h"
#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_SymMatrix.h"
#include "eigen/internal/GeneralizedJacobi.h"
#include "sparse/internal/SymmetricProduct.h"
#include "sparse/internal/OutOfCoreRetry.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace {

// Sparse-solver results (VQ_SparseSolver statuses) that the eigen solvers interpret.

const char* const kMissedText = "Eigenvalue missed (Subspace Iteration)";
const char* const kNegativeShiftText =
    "Negative shifting applied automatically to find correct Eigenvalues. (Subspace Iteration)";

std::string Format(const char* format, double value) {
  char buffer[128];
  std::snprintf(buffer, sizeof buffer, format, value);
  return buffer;
}

std::string Format(const char* format, int value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, value);
  return buffer;
}

}  // namespace

VQ_EigenSolver::VQ_EigenSolver() = default;

VQ_EigenSolver::VQ_EigenSolver(int numEquations, int numReqEigen, int oocMode, int matrixType,
                               const char* workingDirectory)
    : numReqEigen_(numReqEigen),
      workingDirectory_(workingDirectory ? workingDirectory : ""),
      numEquations_(numEquations),
      oocMode_(oocMode),
      matrixType_(matrixType) {}

VQ_EigenSolver::~VQ_EigenSolver() = default;

void VQ_EigenSolver::SetWarningMessage(int code) {
  warningCode_ = code;
  switch (code) {
    case 0: warningMessage_.clear(); break;
    case -23: warningMessage_ = kMissedText; break;
    case -24: warningMessage_ = kNegativeShiftText; break;
    default: warningMessage_ = "Unclassified"; break;
  }
}

double VQ_EigenSolver::GetEigenValue(int i) const {
  if (i < 1 || i > eigenValues_.NumRows() * eigenValues_.NumCols()) return 0.0;
  return eigenValues_[i];
}

// ---- factorisation
// --------------------------------------------------------------------------------

void VQ_EigenSolver::CreateSolver(std::string fileName, VQ_SparseSolver** solver, bool readFromFile,
                                  VQ_Matrix* rhs) {
  if (!solver) return;
  if (*solver) {
    delete *solver;
    *solver = nullptr;
  }
  if (!stiffness_) return;
  if (readFromFile) stiffness_->ReadFromFile(fileName.c_str(), true, true, false, false);
  if (!rhs) {
    rhs_.Redimension(stiffness_->NumRows(), 1, 0.0);
    if (rhs_.MatrixStatus() != MATLIBDLLCOMMONS::STATUS_OK) return;
    rhs = &rhs_;
  }
  try {
    *solver = new VQ_SparseSolver(stiffness_, rhs, oocMode_, matrixType_, false,
                                  workingDirectory_.c_str(), nullptr);
  } catch (...) {
    *solver = nullptr;
  }
}

int VQ_EigenSolver::CreateSolverAndDecompose(std::string fileName, VQ_SparseSolver** solver,
                                             bool readFromFile, VQ_Matrix* rhs) {
  return DecomposeWithRetry(fileName, solver, readFromFile, rhs, nullptr, nullptr);
}

int VQ_EigenSolver::DecomposeWithRetry(const std::string& fileName, VQ_SparseSolver** solver,
                                       bool readFromFile, VQ_Matrix* rhs,
                                       void (*configure)(VQ_SparseSolver*, void*), void* context) {
  if (!solver) return VQ_SparseSolver::kStatusOutOfMemory;
  // Decomposition = analysis + factorisation in this thread, the factorised flag, and the copy of
  // the 64 PARDISO parameters to the global report when the host set the global array.
  auto attempt = [&]() {
    CreateSolver(fileName, solver, readFromFile, rhs);
    if (!*solver) return static_cast<int>(VQ_SparseSolver::kStatusOutOfMemory);
    if (configure) configure(*solver, context);
    return (*solver)->Decomposition(true, true);
  };
  int report[64] = {};
  auto outOfMemory = [&](int result) {
    return *solver && (result == VQ_SparseSolver::kStatusOutOfMemory ||
                       result == VQ_SparseSolver::kStatusOutOfMemoryOutOfCore);
  };
  auto failedReport = [&]() -> const int* {
    (*solver)->SaveSolverInfo(report);
    return report;
  };
  return vqmath::internal::OutOfCoreRetry::Run(attempt, outOfMemory, failedReport, oocMode_ == 2);
}

void VQ_EigenSolver::MapDecompositionResult(int result, const VQ_SparseSolver* solver) {
  switch (result) {
    case 0: break;
    case VQ_SparseSolver::kStatusCancelled: SetStatus(-2); break;
    case VQ_SparseSolver::kStatusZeroPivot:
      if (solver) instabilityDOF_ = solver->Get_DOFNumForInstability();
      SetStatus(-3);
      break;
    case VQ_SparseSolver::kStatusOutOfMemory:
    case VQ_SparseSolver::kStatusOutOfMemoryOutOfCore: SetStatus(-1); break;
    default: SetStatus(-9999); break;
  }
}

bool VQ_EigenSolver::CheckForRigidBodyModes(std::string fileName) {
  return CheckForRigidBodyModes(fileName, nullptr);
}

bool VQ_EigenSolver::CheckForRigidBodyModes(std::string fileName, VQ_SparseSolver** keep) {
  if (keep) *keep = nullptr;
  if (!stiffness_) {
    SetStatus(-1);
    return false;
  }
  // Indefinite type whatever this object's type, and stop when negative pivots appear: a K with
  // negative pivots fails here as well as a singular one, which the sparse direct solver's rule
  // reports with its equation. Out of core, a factorisation short of memory is retried once with
  // the core size PARDISO asks for, as for every factorisation.
  auto configure = [](VQ_SparseSolver* s, void*) {
    s->SetMatrixType(-2);
    s->Set_StopIfNotPosDefinite(true);
  };
  VQ_SparseSolver* solver = nullptr;
  const int result = DecomposeWithRetry(fileName, &solver, false, nullptr, configure, nullptr);
  if (!solver) {
    SetStatus(-1);
    return false;
  }
  MapDecompositionResult(result, solver);
  const bool regular = status_ == MATLIBDLLCOMMONS::STATUS_OK;
  if (regular && keep) {
    *keep = solver;
  } else {
    delete solver;
  }
  return regular;
}

// ---- small numerical helpers
// ------------------------------------------------------------------------

double VQ_EigenSolver::CalculateRayleighQuotient(VQ_ColVector& x, VQ_SparseSymMatrix* A) {
  if (!A || A->NumRows() != x.NumRows() || x.NumRows() < 1) return 0.0;
  vqmath::internal::SymmetricProduct product(A);
  if (!product.Ok()) return 0.0;
  VQ_ColVector y(x.NumRows());
  if (product.Apply(x.GetDataPointer(), y.GetDataPointer()) != 0) return 0.0;
  return x.Dot(y) / x.Dot(x);
}

void VQ_EigenSolver::Gram_Schmidt_Orthogonalization(VQ_Matrix& X, VQ_Matrix& Y, int count) {
  if (count < 1) return;
  const int n = X.NumRows();
  count = std::min(count, X.NumCols());
  if (n < 1 || count < 1 || Y.NumRows() != n) return;
  vqmath::internal::SymmetricProduct weight(&Y);
  if (!weight.Ok()) return;
  double* x = X.GetDataPointer();
  const std::size_t nn = static_cast<std::size_t>(n);
  std::vector<double> w(nn * static_cast<std::size_t>(count));
  if (weight.Apply(x, w.data(), count) != 0) return;
  // Modified Gram-Schmidt in the M inner product; w keeps M times each column up to date.
  for (int j = 0; j < count; ++j) {
    double* xj = x + j * nn;
    double* wj = w.data() + j * nn;
    for (int k = 0; k < j; ++k) {
      const double* xk = x + k * nn;
      const double* wk = w.data() + k * nn;
      const double d = cblas_ddot(n, xk, 1, wj, 1);
      cblas_daxpy(n, -d, xk, 1, xj, 1);
      cblas_daxpy(n, -d, wk, 1, wj, 1);
    }
    const double norm2 = cblas_ddot(n, xj, 1, wj, 1);
    if (norm2 > 0.0) {
      const double s = 1.0 / std::sqrt(norm2);
      cblas_dscal(n, s, xj, 1);
      cblas_dscal(n, s, wj, 1);
    }
  }
}

int VQ_EigenSolver::JACOBI(VQ_SymMatrix& K, VQ_SymMatrix& M, VQ_Matrix& vectors,
                           VQ_ColVector& values) {
  const int n = K.NumRows();
  if (M.NumRows() != n) return -1;
  vectors.Redimension(n, n, 0.0);
  values.Redimension(n, 1, 0.0);
  if (n < 1) return 0;
  if (vectors.MatrixStatus() != MATLIBDLLCOMMONS::STATUS_OK ||
      values.MatrixStatus() != MATLIBDLLCOMMONS::STATUS_OK)
    return -1;

  const std::size_t packed = static_cast<std::size_t>(n) * (n + 1) / 2;
  auto isPacked = [&](const VQ_SymMatrix& s) {
    const MATLIBDLLCOMMONS::MATRIX_TYPE t = s.MatrixType();
    return (t == MATLIBDLLCOMMONS::SYM_MATRIX || t == MATLIBDLLCOMMONS::MATRIX) &&
           s.GetDataPointer() && static_cast<std::size_t>(s.GetSizeAllocated()) == packed;
  };
  // Other storage kinds (diagonal, sparse) are worked on through a packed copy and written back
  // through their Ref, which for those kinds keeps only what they can store.
  std::vector<double> kCopy, mCopy;
  auto gather = [&](const VQ_SymMatrix& s, std::vector<double>& out) {
    out.resize(packed);
    for (int j = 1; j <= n; ++j)
      for (int i = 1; i <= j; ++i)
        out[static_cast<std::size_t>(j - 1) * j / 2 + (i - 1)] = s.Value(i, j);
    return out.data();
  };
  double* k = isPacked(K) ? K.GetDataPointer() : gather(K, kCopy);
  double* m = isPacked(M) ? M.GetDataPointer() : gather(M, mCopy);
  const int result = vqmath::internal::GeneralizedJacobi(n, k, m, vectors.GetDataPointer(),
                                                         values.GetDataPointer());
  auto scatter = [&](VQ_SymMatrix& s, const std::vector<double>& in) {
    if (s.MatrixType() == MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX) return;
    for (int i = 1; i <= n; ++i)
      s.Ref(i, i) = in[static_cast<std::size_t>(i - 1) * i / 2 + (i - 1)];
  };
  if (!kCopy.empty()) scatter(K, kCopy);
  if (!mCopy.empty()) scatter(M, mCopy);
  return result;
}

// ---- files
// ------------------------------------------------------------------------------------------

std::string VQ_EigenSolver::GenerateUniqueGUIDString() {
  std::string guid = vqmath::internal::NewGuid();
  guid.erase(std::remove(guid.begin(), guid.end(), '-'), guid.end());
  return guid;
}

void VQ_EigenSolver::PrintMatrices(const char* folder) {
  const std::string base = folder ? folder : "";
  if (mass_) {
    if (FILE* f = std::fopen((base + "MASSMatrix.mtx").c_str(), "w")) {
      const MATLIBDLLCOMMONS::MATRIX_TYPE kind = mass_->MatrixType();
      if (kind == MATLIBDLLCOMMONS::DIAGONAL_MATRIX)
        static_cast<VQ_DiagonalMatrix*>(mass_)->StoreIn_MTX_Format(f, false);
      else if (kind == MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX)
        // A sparse mass is written in its own symmetric coordinate form: the general writer
        // would visit all n^2 positions.
        static_cast<VQ_SparseSymMatrix*>(mass_)->StoreIn_MTX_Format(f);
      else
        mass_->StoreIn_MTX_Format(f, true);
      std::fclose(f);
    }
  }
  if (stiffness_) {
    if (FILE* f = std::fopen((base + "STIFFNESSMatrix.mtx").c_str(), "w")) {
      stiffness_->StoreIn_MTX_Format(f);
      std::fclose(f);
    }
  }
}

// ---- verbose log
// ------------------------------------------------------------------------------------

std::string VQ_EigenSolver::VerboseFilePath() const { return workingDirectory_ + "/verbose.txt"; }

void VQ_EigenSolver::ProcessVerboseMessage(const std::string& text) {
  if (verboseMode_ == 1) {
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
  } else if (verboseMode_ == 2) {
    if (FILE* f = std::fopen(VerboseFilePath().c_str(), "a")) {
      std::fputs(text.c_str(), f);
      std::fclose(f);
    }
  }
}

void VQ_EigenSolver::ProcessVerboseInfo1(int eigenNumber, double eigenvalue, int iteration,
                                         double seconds) {
  if (verboseMode_ == 0) return;
  ProcessVerboseMessage(Format("EigenValue %d: ", eigenNumber) +
                        Format("%12.16f at Iteration Number ", eigenvalue) +
                        Format("%d \t", iteration) + Format("[%12.16f  sec] \n", seconds));
}

void VQ_EigenSolver::ProcessVerboseInfo2(double lastConverged, double nextEstimate, double shift,
                                         double previousShift) {
  if (verboseMode_ == 0) return;
  ProcessVerboseMessage(
      std::string(
          "Last two shift did not produce results. But There is still partial results found\n") +
      Format("Last Converged Value: %12.16f \n", lastConverged) +
      Format("Next Estimated Value: %12.16f \n", nextEstimate) + Format("Shift: %12.8f \n", shift) +
      Format("Previous Shift: %12.16f \n", previousShift));
}

void VQ_EigenSolver::ProcessVerboseInfo3(int negativePivots, int converged) {
  if (verboseMode_ == 0) return;
  ProcessVerboseMessage(
      std::string("Sturm Sequence Check Reported that Eigen Values Are Missed !..............\n") +
      Format("Number of Negative Eigens Found :  %d \n", negativePivots) +
      Format("Number of Converged Eigens      :  %d \n", converged));
}

void VQ_EigenSolver::ProcessVerboseInfo4(const std::string& text, int value) {
  if (verboseMode_ == 0) return;
  ProcessVerboseMessage(text + Format("%d \n", value));
}

void VQ_EigenSolver::ProcessVerboseInfo4(const std::string& text, double value) {
  if (verboseMode_ == 0) return;
  ProcessVerboseMessage(text + Format("%12.16f \n", value));
}

void VQ_EigenSolver::ProcessVerboseInfo5(const VQ_SymMatrix& matrix) {
  if (verboseMode_ != 2) return;
  std::ofstream out(VerboseFilePath(), std::ios::app);
  if (out) matrix.print(&out);
}

void VQ_EigenSolver::RemoveVerboseFile() {
  if (verboseMode_ == 2) std::remove(VerboseFilePath().c_str());
}
