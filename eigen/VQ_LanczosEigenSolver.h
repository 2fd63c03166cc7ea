// VQ_LanczosEigenSolver.h - natural and buckling modes by implicitly restarted Lanczos (ARPACK).
//
// Problems (matrices as 1-based upper-triangle compressed rows, borrowed, never changed):
//   natural modes  K·φ = λ·M·φ   in ARPACK's shift-invert mode (iparam(7) = 3) on K − σ·M;
//   buckling       K·φ = λ·Kg·φ  in ARPACK's buckling mode (iparam(7) = 4) on K − σ·Kg, which
//                                needs a non-zero shift σ.
// The second matrix (M or Kg) is given either in compressed rows or as its diagonal.
//
// Every run factors the shifted matrix once with VQ_SparseSolver (PARDISO; K itself when
// |σ| < 2.220446049250313e-16) and serves each ARPACK request with one PARDISO solve and, where
// ARPACK asks for it, one product with the second matrix (MKL's sparse kernel, or a scaling for
// a diagonal). ARPACK's tolerance is the machine precision (its Fortran routines are called with
// tol = 0, which they replace by it), so the eigenvalues are accurate to round-off.
//
// Sizes: nev = min(requested, n), reduced to n − 1 when it equals n (ARPACK needs ncv > nev);
// ncv = min(2·nev + 1, n − 1), raised to n when that leaves ncv = nev. The maximum number of
// restart iterations is the caller's, or 100·nev for −1.
//
// Spectrum selector ("which", 1…5 = "SA", "LA", "SM", "LM", "BE"; other values "LM"): it acts on
// the transformed eigenvalues, so "LM" (the usual choice) gives the eigenvalues nearest σ.
// Eigenvalues are delivered in ascending order with their mode shapes (B-normalised: M for
// natural modes, K for buckling modes).
//
// Incremental drivers: the requested modes are found in passes of a fixed block size (≥ 2). The
// first pass runs at the caller's shift with the caller's selector; each later pass moves the
// shift to the middle between the two highest distinct eigenvalues found so far and, when the
// selector is "LM", looks at the eigenvalues just above the shift ("LA" on the transformed
// problem) so that the passes march upward through the spectrum without gaps. Every mode of a
// pass is compared with the modes already found by the modal assurance criterion taken in the
// metric of B, MAC = (Σⱼ (uⱼᵀ·B·φ)²) / (φᵀ·B·φ) over the found (B-orthonormal) modes uⱼ — for
// one found mode the usual normalised squared inner product; distinct modes are exactly
// B-orthogonal, so their MAC is at round-off level in this metric:
//   MAC > 0.99          the mode was found before and is not added;
//   MAC ≤ 0.01          a new mode;
//   0.01 < MAC ≤ 0.99   a failure (−45, loss of orthogonality), except where all the found modes
//                       it shares are of the same eigenvalue (relative 1e-6): then it belongs to
//                       a repeated eigenvalue whose eigenspace was cut by the block, and its part
//                       B-orthogonal to them is the missing mode, which is added.
// A new mode of a repeated eigenvalue is always made B-orthogonal to its partners found before,
// so the delivered modes are B-orthonormal. When a pass adds nothing (a repeated eigenvalue
// filled the block), the shift moves just past that eigenvalue (relative 1e-5); a second pass
// without progress ends the search.
// The passes end when the requested count is reached; a pass that adds nothing ends the search
// with the modes found so far (−22). At most requested + ⌈requested / block⌉ passes are made.
//
// Result record (Result()): the library status code (registry numbering) and its text:
//    0   success
//   −1   "Memory Allocation Error (insuffcient memory)"
//   −2   "Analysis Canceled by User" (factorisation cancelled)
//   −3   "Instability Detected (ill-conditioned matrices)"; the equation in instabilityEquation
//   −22  "Not all required EigenValues were found": fewer converged modes than requested (at
//        least one); they are delivered and the count says how many (ARPACK info 1 or −9999)
//   −45  an ARPACK failure (its info text), or "ARPACK failed to Find Eigenvectors", or the MAC
//        failure texts, or "Failed to shift matrix K with -sigma*M" ("…*Kg" for buckling) when
//        the shifted matrix cannot be formed
//   −46  invalid input: ARPACK's input errors (info −1…−7, −10…−13, −15, −16, their texts),
//        buckling without a shift, block size below 2
//   −47  "Buckling factor is approaching zero, check model for instabilities": a buckling factor
//        with |λ| ≤ 1e-9·max(|σ|, max|λ|) (a mechanism makes K singular)
//   other  a failed factorisation: the sparse solver's code and message
// The routines return the driver status (0, or negative: −9 factorisation failed, −10 unexpected
// ARPACK request, −11 partial results, −12 ARPACK error, and the values of the driver table:
// −99, −101, −201, −202, −301, −302, −4 memory). Nothing is thrown.
#ifndef VQMATH_EIGEN_VQ_LANCZOSEIGENSOLVER_H
#define VQMATH_EIGEN_VQ_LANCZOSEIGENSOLVER_H

#include <memory>
#include <string>
#include <vector>

class VQ_SparseSolver;
class VQ_SparseSymMatrix;

// Run parameters of the Lanczos drivers.
struct VQ_LanczosProblem {
  int n = 0;          // order of K
  int requested = 0;  // eigenpairs wanted
  // K, upper triangle, 1-based compressed rows.
  const int* kRowPointers = nullptr;
  const int* kColumnIndices = nullptr;
  const double* kValues = nullptr;
  // Second matrix B (M for natural modes, Kg for buckling): compressed rows, or, when
  // bRowPointers is null, its diagonal (n doubles) in bDiagonal.
  const int* bRowPointers = nullptr;
  const int* bColumnIndices = nullptr;
  const double* bValues = nullptr;
  const double* bDiagonal = nullptr;

  double shift = 0.0;      // σ
  int which = 4;           // spectrum selector 1…5 (other values: 4, "LM")
  int maxIterations = -1;  // ARPACK restart iterations; −1: 100·nev
  int blockSize = 0;       // modes per pass of the incremental drivers

  // Outputs: eigenvalues (requested doubles), mode shapes (n × requested, column-major; null:
  // not delivered) and the count delivered (may be null).
  double* eigenvalues = nullptr;
  double* modeShapes = nullptr;
  int* found = nullptr;

  // Sparse direct solver settings: out-of-core mode (0, 1, 2), PARDISO matrix type (−2 or 2),
  // working directory for out-of-core files (null: the current directory).
  int oocMode = 0;
  int matrixType = -2;
  const char* workingDirectory = nullptr;
  // Progress lines on standard output.
  bool verbose = false;
  // After a natural-mode run, count the eigenvalues of K − σ·M around the ones delivered
  // (VQ_SturmSequenceCheck): a missed mode sets warning −23; values that are not eigenvalues (a
  // mass that is not positive semi-definite) fail the run with −64 and deliver nothing.
  bool verify = false;
};

// Result record of a run.
struct VQ_LanczosResult {
  int status = 0;                // registry code, 0 on success
  std::string message;           // its text ("" on success)
  int instabilityEquation = -1;  // equation of a singular factorisation (status −3)
  int driverStatus = 0;          // the value the routine returned
  int found = 0;                 // eigenpairs delivered
  int passes = 0;                // passes made (1 for the single drivers)
  int factorizations = 0;        // PARDISO factorisations made
  int operatorApplications = 0;  // (A − σB)⁻¹·y solves served to ARPACK, all passes
  int bProducts = 0;             // B·x products served to ARPACK, all passes
  int iterations = 0;            // ARPACK restart iterations, all passes
  int warning = 0;               // −23 when the verification found a missed mode
  int sturmCount = -1;           // eigenvalues counted by the verification (−1: not made)
};

class VQ_LanczosEigenSolver {
 public:
  explicit VQ_LanczosEigenSolver(const VQ_LanczosProblem& problem);
  ~VQ_LanczosEigenSolver();
  VQ_LanczosEigenSolver(const VQ_LanczosEigenSolver&) = delete;
  VQ_LanczosEigenSolver& operator=(const VQ_LanczosEigenSolver&) = delete;

  // Natural modes by shift-invert on K − σ·M.
  int SolveNaturalModes();
  // Buckling modes by ARPACK's buckling mode on K − σ·Kg (σ ≠ 0).
  int SolveBucklingModes();
  // The single-problem selector: flag 1 runs the buckling driver, any other value the
  // natural-mode driver.
  int Solve(int problemFlag);
  // Incremental drivers (block size from the problem; see the file comment).
  int SolveNaturalModesIncrementally();
  int SolveBucklingModesIncrementally();

  const VQ_LanczosResult& Result() const { return result_; }
  int GetStatus() const { return result_.status; }
  const std::string& GetErrorMessage() const { return result_.message; }
  int Get_DOFNumForInstability() const { return result_.instabilityEquation; }
  int GetNumFoundEigen() const { return result_.found; }

 private:
  struct Pass;        // one ARPACK run at one shift
  struct FoundModes;  // the modes the incremental drivers have accepted

  int SolveSingle(bool buckling);
  int SolveIncrementally(bool buckling);
  // Steps of the incremental drivers: the request's checks (wanted = modes to find), the MAC
  // test of one pass's modes against those found, and the delivery in ascending order.
  int CheckIncrementalRequest(bool buckling, int& wanted);
  int AddPassModes(bool buckling, const Pass& pass, FoundModes& found, int& added);
  int DeliverIncremental(bool buckling, const FoundModes& found, int wanted);
  int RunPass(bool buckling, double sigma, int requested, int which, bool wantVectors, Pass& pass);
  int Factor(bool buckling, double sigma);
  int Fail(int driverStatus);
  int FailWith(int driverStatus, int status, const std::string& message);
  void Deliver(int count, const double* values, const double* vectors);
  int Verify(bool buckling, int count, const double* values, const double* vectors);
  void Print(const char* format, ...) const;

  VQ_LanczosProblem problem_;
  VQ_LanczosResult result_;

  // Factorisation state: the shifted matrix (when σ ≠ 0), the solver and the shift it holds.
  std::unique_ptr<VQ_SparseSymMatrix> kMatrix_;
  std::unique_ptr<VQ_SparseSymMatrix> bMatrix_;
  std::unique_ptr<VQ_SparseSymMatrix> shifted_;
  std::unique_ptr<VQ_SparseSolver> solver_;
  bool factoredShifted_ = false;  // the solver's analysis belongs to the shifted pattern
};

#endif  // VQMATH_EIGEN_VQ_LANCZOSEIGENSOLVER_H
