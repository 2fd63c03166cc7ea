// VQ_SparseSolver: sparse direct solution of K X = B for a symmetric K by Intel MKL PARDISO.
//
// K is the upper triangle in compressed rows with 1-based indices, every row storing its diagonal
// first (the layout of VQ_SparseSymMatrix), handed to PARDISO without conversion. The solver
// borrows K's three arrays, the right-hand sides B (n x nrhs, column-major) and, optionally, a
// separate result array X; none of them is copied or freed here. Without X the solution
// overwrites B.
//
// Use: construct (the constructor copies the library's process-wide PARDISO settings), factor with
// Decomposition() or ApplyDecomposition() (analysis, phase 11, and numerical factorisation, phase
// 22, on a worker thread that the call waits for, or in the calling thread), then Solve() any
// number of times. After a factorisation the solver reports the inertia of K (numbers of positive
// and negative pivots), the equation at which a factorisation broke down, and on request the
// diagonals of K and of the factor in K's equation order.
//
// Failure: every operation returns a status (0 on success, see GetLastErrorCode()); nothing is
// thrown. GetSolverErrorInfo() translates the status into the library's registry codes (-3
// singular, -81/-82 out of memory in core/out of core, -83 other PARDISO failure, -84 solve before
// factorisation, -85 negative pivots), and Get_PardisoError() keeps PARDISO's raw error number.
//
// Out of core: with mode 2 (or mode 1 when the factor does not fit into
// MKL_PARDISO_OOC_MAX_CORE_SIZE megabytes) PARDISO keeps the factor in scratch files named
// "<working directory>/<GUID>_ooc_file.*", one GUID per solver; they are removed when the solver
// is destroyed unless MKL_PARDISO_OOC_KEEP_FILE is "0".
//
// Copies: a copy takes the configuration (arrays, iparm, flags) but not the factorisation, which
// belongs to exactly one solver; the copy has to be factored again.
#pragma once

#include <memory>
#include <string>
#include <vector>

class VQ_Matrix;
class VQ_SparseSymMatrix;

namespace vqmath {
namespace internal {
class PardisoHandle;
struct PardisoArgs;
}
}  // namespace vqmath

class VQ_SparseSolver {
 public:
  // What the operations return and GetLastErrorCode() reports; GetSolverErrorInfo() turns each
  // into the library's registry code (in brackets).
  enum Status : int {
    kStatusOk = 0,
    kStatusZeroPivot = -1,             // singular, or not positive definite when told to stop (-3)
    kStatusNonSquare = -2,             // (-80)
    kStatusCancelled = -3,             // (-2)
    kStatusOutOfMemory = -4,           // in core (-81)
    kStatusOutOfMemoryOutOfCore = -5,  // (-82)
    kStatusInternalError = -6,         // any other PARDISO failure (-83)
    kStatusNotFactorised = -7,         // a solve before any factorisation (-84)
    kStatusNegativePivots = -8         // (-85)
  };

  // Empty solver: matrix type -2, n = nrhs = 0, in core, solution in place.
  VQ_SparseSolver();
  // On K's arrays (n = K's rows). With B: nrhs = B's columns and B's data as right-hand sides;
  // without B: nrhs = 1 and no right-hand side yet. X's data receives the solution; a null X
  // solves in place.
  VQ_SparseSolver(VQ_SparseSymMatrix* K, VQ_Matrix* B, int oocMode, int mtype, bool verbose,
                  const char* workingDirectory, VQ_Matrix* X);
  // The same from raw arrays; verbose only when `verbose` is 1; a null x solves in place.
  VQ_SparseSolver(int n, double* a, int* ia, int* ja, int nrhs, double* b, int oocMode, int mtype,
                  int verbose, const char* workingDirectory, double* x);
  // No matrix yet; solution in place.
  VQ_SparseSolver(int oocMode, int mtype, bool verbose, const char* workingDirectory);
  // Order and number of right-hand sides known: an n x nrhs solution work buffer is allocated
  // once, by the first solve in place, and reused by every later one.
  VQ_SparseSolver(int n, int nrhs, int oocMode, int mtype, bool verbose,
                  const char* workingDirectory, bool inPlace);

  VQ_SparseSolver(const VQ_SparseSolver& other);
  VQ_SparseSolver& operator=(const VQ_SparseSolver& other);
  // Releases PARDISO's memory (phase -1) when a factorisation was made, then MKL's buffers.
  virtual ~VQ_SparseSolver();

  // Sets iparm from the global PARDISO array (when the host set it) or from the solver defaults,
  // applies the global override list, records the result as the library's last-used parameter
  // list, clears the PARDISO handle and publishes a fresh out-of-core path.
  void InitializeSolver();

  // ---- factorisation (each returns the status) -------------------------------------------------
  // On the arrays already held.
  int Decomposition(bool inCallingThread = false, bool withAnalysis = true);
  // Takes K's arrays, B's data and X's data first (null X: in place, iparm[5] = 1).
  int Decomposition(VQ_SparseSymMatrix* K, VQ_Matrix* B, VQ_Matrix* X, bool inCallingThread = false,
                    bool withAnalysis = true);
  // The same from raw arrays (order and nrhs unchanged).
  int Decomposition(double* a, int* ia, int* ja, double* b, double* x, bool inCallingThread = false,
                    bool withAnalysis = true);
  // The work itself: analysis (when withAnalysis), factorisation, inertia and the diagonal request.
  // Runs on a worker thread that this call joins unless inCallingThread is true.
  int ApplyDecomposition(bool inCallingThread, bool withAnalysis);

  // ---- solution -------------------------------------------------------------------------------
  // All load vectors; falls back to one vector at a time when memory for all of them is short.
  // -7 before any factorisation.
  int Solve();
  // Load vector k (1-based) alone, or all of them for k = -1.
  int SolveForLoadCase(int k);

  // ---- operands -------------------------------------------------------------------------------
  // K's arrays and order (borrowed).
  void Set_Matrix(VQ_SparseSymMatrix* K);
  void Set_Matrix(int n, double* a, int* ia, int* ja);
  // B's data, nrhs = B's columns.
  void Set_LoadVector(VQ_Matrix* B);
  // b with nrhs columns; the first argument is ignored.
  void Set_LoadVector(int ignored, int nrhs, double* b);
  // X's data as result (solution no longer in place).
  void Set_ResultVector(VQ_Matrix* X);
  // x as result; null means in place (also iparm[5]).
  void Set_ResultVector(double* x);

  // ---- settings and queries -------------------------------------------------------------------
  void SetMatrixType(int mtype);
  int GetMatrixType() const;
  // PARDISO's msglvl (1 prints its statistics to standard output).
  void SetMessageLevelInfo(int level);
  // When an indefinite matrix type finds negative pivots, retry as positive definite and fail
  // with status -1 (registry -3) and the equation of the failure.
  void Set_StopIfNotPosDefinite(bool stop);
  // Non-zero switches on PARDISO's matrix checker (iparm[26]) at the next InitializeSolver().
  void Set_CheckSparseRepresentation(int check);
  // Fill-in reducing ordering for the defaults (iparm[1]): 0 minimum degree, 2 nested dissection,
  // 3 parallel nested dissection. Takes effect at the next InitializeSolver().
  void Set_Fill_InReducingOrdering_Type(int ordering);
  // iparm[i] for 0 <= i < 64, else 0.
  int Get_iParm(int i) const;
  int GetLastErrorCode() const;
  // PARDISO's raw error number of the last call that failed (0 when none).
  int Get_PardisoError() const;
  int Get_DOFNumForInstability() const;
  int Get_NumberOfNegativeEigenvalues() const;
  int Get_NumberOfPositiveEigenvalues() const;
  int Get_NumberOfEquations() const;
  int Get_NumberOfLoadVectors() const;
  bool IsFactorised() const;
  // The 64 iparm values.
  void SaveSolverInfo(int* out) const;
  void SaveSolverInfo(std::vector<int>& out) const;
  // Global 64-value PARDISO array into iparm, or iparm into it.
  void ReadGlobalSparseSolverParams();
  void UpdateGlobalSparseSolverParams() const;
  // Requests both diagonals (n values each, filled in K's equation order by the next
  // factorisation): sets iparm[4] = 2 (return the permutation) and iparm[55] = 1. Pivots that the
  // factorisation exchanges within a block after the analysis are followed by the matrix diagonal
  // PARDISO reports beside them; with Bunch-Kaufman pivoting (iparm[20] = 1) PARDISO reports that
  // diagonal in analysis order, so the two factor entries of a block whose rows it exchanged stay
  // at the analysis positions.
  void SetDiagElementsInfo(bool on, double* matrixDiagonal, double* factorDiagonal);
  // Singularity: a factorisation fails with status -1 (registry -3 "Instability Detected") and
  // the instability equation when an equation has no stiffness (zero or missing diagonal, found
  // before factoring) or when a pivot is smaller than `ratio` times its equation's diagonal entry
  // of the matrix being factored. Copied from VQ_SetSingularPivotRatio at construction; 0 turns
  // the pivot test off. Returns the value in force (a negative or non-finite ratio, or one of 1
  // or more, is ignored).
  double Set_SingularPivotRatio(double ratio);
  double Get_SingularPivotRatio() const;
  // Off: the factorisation is wanted for its inertia only (a Sturm count), so neither an
  // equation without stiffness nor a vanishing pivot fails it. On by default.
  void Set_JudgeSingularity(bool judge);
  // Smallest |pivot| / |diagonal| of the last factorisation and its equation (1-based), 0 when
  // PARDISO could not report the pivots.
  double Get_SmallestPivotRatio() const;
  int Get_SmallestPivotEquation() const;
  // Message of the last error; code translated into the registry codes (a status outside the
  // table leaves `code` as it was).
  void GetSolverErrorInfo(std::string& message, int& code) const;
  // Message of the last warning and its code (0, or -1 after pivoting of an indefinite matrix).
  void GetSolverWarningInfo(std::string& message, int& code) const;
  // A new GUID in its 36-character text form.
  std::string GenerateUniqueGUIDString();
  // Publishes "<working directory>/<GUID>_ooc_file" as MKL_PARDISO_OOC_PATH for this solver.
  void SetWorkingDirectory();
  // The out-of-core path this solver publishes before it factors.
  const std::string& Get_OutOfCorePath() const;

  // ---- process environment (return the result of the environment write, 0 on success) --------
  static int Set_INTEL_MKL_OOC_Max_Core_Size(int mb);
  static int Set_INTEL_MKL_NumberOfThreads(int threads);
  static int Set_INTEL_MKL_UseMaxNumberOfThreads();
  static int Set_INTEL_MKL_OMP_NumberOfThreads(int threads);
  static int Set_INTEL_MKL_OOC_KEEP_FILE(int keep);
  static int Set_INTEL_MKL_KMP_AFFINITY(int on);
  // Core size "2000", keep-file "1", one thread; then a fresh out-of-core path.
  int Set_UseDefault_INTELSolverSettings();

 private:
  void CreateHandle();
  void CopyConfiguration(const VQ_SparseSolver& other);
  void RunFactorizationJob(bool withAnalysis) noexcept;
  // The steps of a factorisation job; those returning bool return false when the job ends there
  // with its status recorded.
  void ResetFactorizationOutcome();
  bool CheckFactorizationInput();
  bool PreparePermutation();
  bool AnalyseAndFactor(vqmath::internal::PardisoArgs& args, bool withAnalysis);
  void RecordFactorizationFailure(vqmath::internal::PardisoArgs& args, int error);
  void JudgeInertia(vqmath::internal::PardisoArgs& args);
  void RejectIndefinite(vqmath::internal::PardisoArgs& args);
  // PARDISO's arguments for this solver's operands (matrix type, order, arrays, parameters).
  vqmath::internal::PardisoArgs OperandArgs();
  void EnforceArrayLayout();
  void StoreError(int pardisoError);
  void SetSolutionInPlace(bool inPlace);
  bool AllocateOwnBuffer();
  int CallPardiso(int phase, vqmath::internal::PardisoArgs& args) noexcept;
  bool FetchDiagonals();
  bool JudgePivots(vqmath::internal::PardisoArgs& args);
  void ReportSingular(int equation);

  // Borrowed operands.
  double* values_ = nullptr;
  int* rowPointers_ = nullptr;
  int* columnIndices_ = nullptr;
  double* rhs_ = nullptr;
  double* result_ = nullptr;

  int mtype_ = -2;
  std::unique_ptr<vqmath::internal::PardisoHandle> handle_;
  int iparm_[64];
  int maxfct_ = 1;
  int mnum_ = 1;
  int msglvl_ = 0;
  int n_ = 0;
  int nrhs_ = 0;
  int oocMode_ = 0;
  std::string workingDirectory_;
  std::string oocPath_;
  bool verbose_ = false;
  bool stopIfNotPosDefinite_ = false;
  bool factorised_ = false;
  bool factorValid_ = false;  // the last factorisation succeeded (solves are possible)
  bool checkSparseRepresentation_ = false;
  int fillInOrdering_ = 2;

  int status_ = 0;
  int pardisoError_ = 0;
  int warningCode_ = 0;
  int instabilityEquation_ = 0;
  int negativePivots_ = 0;
  int positivePivots_ = 0;
  std::string errorMessage_;
  std::string warningMessage_;

  bool inPlace_ = true;
  bool ownBufferRequested_ = false;
  std::unique_ptr<double[]> ownBuffer_;
  long long ownBufferSize_ = 0;

  bool diagonalRequested_ = false;
  double* matrixDiagonal_ = nullptr;
  double* factorDiagonal_ = nullptr;
  std::unique_ptr<int[]> permutation_;
  int permutationSize_ = 0;

  // The singularity rule and what the last factorisation showed of it. The pivots come back
  // through PARDISO's diagonal access, which every factorisation switches on for itself.
  double singularPivotRatio_ = 0.0;
  bool judgeSingularity_ = true;
  double smallestPivotRatio_ = 0.0;
  int smallestPivotEquation_ = 0;
  std::vector<double> pivotMatrixDiagonal_;  // equation order
  std::vector<double> pivotFactorDiagonal_;  // equation order
  bool pivotsKnown_ = false;
};
