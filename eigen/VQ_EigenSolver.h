// VQ_EigenSolver.h - shared machinery of the sparse generalized eigen solvers K phi = lambda M phi.
//
// The base class holds what every solver of the generalized symmetric problem needs: K (sparse)
// and M (diagonal, sparse or dense; both borrowed), the requested and found counts, the result
// store (eigenvalues in the order found, eigenvectors as columns), the status and warning of the
// last run, the factorisation of the (shifted) stiffness matrix through VQ_SparseSolver with one
// out-of-core retry, a rigid-body (singularity) check, unique work-file names, and the verbose
// progress log. It computes no eigenpairs itself; VQ_SubspaceEigenSparseSolver derives from it.
//
// Status values set here (registry codes): -1 no solver could be created or the factorisation ran
// out of memory, -2 the factorisation reported negative pivots where a positive definite matrix
// was required (sparse solver status -3), -3 singular matrix (the instability equation is kept),
// -9999 any other factorisation failure.
//
// Verbose log: mode 0 off, mode 1 to standard output, mode 2 appended to
// <working directory>/verbose.txt (opened and closed at every message; a file that cannot be
// opened is ignored).
//
// JACOBI solves the small dense pencil of the reduced problems by the generalized Jacobi method:
// K and M are overwritten (they end diagonal), the eigenvectors come back M-normalised as
// columns of `vectors`, the eigenvalues in ascending order (ties: later index first). It returns
// 0, or -1 on a non-positive diagonal term met during a sweep, a zero rotation denominator, a
// zero mass at normalisation, or 100 sweeps without convergence.
#ifndef VQMATH_EIGEN_VQ_EIGENSOLVER_H
#define VQMATH_EIGEN_VQ_EIGENSOLVER_H

#include <string>

#include "dense/MatrixTypes.h"
#include "dense/VQ_ColVector.h"
#include "dense/VQ_Matrix.h"

class VQ_SymMatrix;
class VQ_SparseSymMatrix;
class VQ_SparseSolver;

class VQ_EigenSolver {
 public:
  // Every count 0, status 0, instability DOF -1, verbose off, empty strings and matrices.
  VQ_EigenSolver();
  // n equations, numReqEigen pairs wanted; oocMode and matrixType are handed to VQ_SparseSolver
  // unchanged (2 = out of core; PARDISO matrix type 2 or -2); workingDirectory may be null.
  VQ_EigenSolver(int numEquations, int numReqEigen, int oocMode, int matrixType,
                 const char* workingDirectory);
  virtual ~VQ_EigenSolver();

  // ---- accessors --------------------------------------------------------------------------------
  MATLIBDLLCOMMONS::STATE_STATUS GetStatus() const { return status_; }
  int GetNumReqEigen() const { return numReqEigen_; }
  int GetNumFoundEigen() const { return numFoundEigen_; }
  VQ_Matrix* GetAllEigenVectors() { return &eigenVectors_; }
  int Get_DOFNumForInstability() const { return instabilityDOF_; }
  // Sets the warning code and its text (0 -> "", -23 "Eigenvalue missed (Subspace Iteration)",
  // -24 the automatic negative-shift text, any other code "Unclassified").
  void SetWarningMessage(int code);
  void SetVerboseMode(int mode) { verboseMode_ = mode; }
  int GetVerboseMode() const { return verboseMode_; }
  void GetSolverWarningInfo(std::string& message, int& code) const {
    message = warningMessage_;
    code = warningCode_;
  }
  // 1-based: the i-th stored eigenvalue for 1 <= i <= size of the eigenvalue store, else 0.0.
  double GetEigenValue(int i) const;
  // The eigenvalue store (size = the count the last run asked for; the first
  // GetNumFoundEigen() entries are results).
  const VQ_ColVector& GetAllEigenValues() const { return eigenValues_; }
  int GetNumberOfEquations() const { return numEquations_; }
  const std::string& GetWorkingDirectory() const { return workingDirectory_; }

  // ---- factorisation ----------------------------------------------------------------------------
  // Deletes *solver when not null; reloads K's values from fileName when readFromFile; builds a
  // new VQ_SparseSolver on K with rhs (an n x 1 zero matrix kept in this object when rhs is null).
  // *solver is null when the solver could not be built.
  void CreateSolver(std::string fileName, VQ_SparseSolver** solver, bool readFromFile,
                    VQ_Matrix* rhs);
  // CreateSolver, then analysis and factorisation in the calling thread (the solver's 64 PARDISO
  // parameters go to the global report when the host set the global array). A result of -4 or -5
  // (out of memory) in out-of-core mode 2 enlarges MKL_PARDISO_OOC_MAX_CORE_SIZE from PARDISO's
  // memory report and tries exactly once more. Returns the last decomposition result (0 success;
  // -1 when no solver could be built).
  int CreateSolverAndDecompose(std::string fileName, VQ_SparseSolver** solver, bool readFromFile,
                               VQ_Matrix* rhs);
  // Factorises K without shift as symmetric indefinite with stop-if-not-positive-definite (with the
  // same out-of-core retry): true when K is positive definite. Otherwise the status becomes -2
  // (negative pivots), -3 (singular by the sparse direct solver's rule, see VQ_SetSingularPivotRatio;
  // instability DOF set), -1 (no memory) or -9999.
  bool CheckForRigidBodyModes(std::string fileName);
  // The same; when K passes and `keep` is not null, the factorised solver is handed over in *keep
  // (the caller deletes it) instead of being deleted, so that an unshifted first pass can reuse it.
  bool CheckForRigidBodyModes(std::string fileName, VQ_SparseSolver** keep);
  // Maps a decomposition result onto the status as CheckForRigidBodyModes does (0 leaves the
  // status); the instability DOF is taken from solver for a singular matrix.
  void MapDecompositionResult(int result, const VQ_SparseSolver* solver);

  // ---- small numerical helpers ------------------------------------------------------------------
  // (x' A x) / (x' x).
  double CalculateRayleighQuotient(VQ_ColVector& x, VQ_SparseSymMatrix* A);
  // M-orthonormalises the first `count` columns of X in place (modified Gram-Schmidt, columns
  // taken in order, each normalised to x' M x = 1), with M = Y: a diagonal Y is read through its
  // diagonal, a sparse symmetric Y through MKL's symmetric product, any other square Y as dense.
  // count < 1 does nothing; count is limited to X's columns.
  void Gram_Schmidt_Orthogonalization(VQ_Matrix& X, VQ_Matrix& Y, int count);
  // Generalized Jacobi on the dense pencil (see the file comment).
  int JACOBI(VQ_SymMatrix& K, VQ_SymMatrix& M, VQ_Matrix& vectors, VQ_ColVector& values);

  // ---- files ------------------------------------------------------------------------------------
  // 32 hexadecimal characters of a new random GUID (no hyphens).
  std::string GenerateUniqueGUIDString();
  // MatrixMarket dumps folder + "MASSMatrix.mtx" and folder + "STIFFNESSMatrix.mtx" (the caller
  // supplies the trailing separator); a file that cannot be opened is skipped.
  void PrintMatrices(const char* folder);

  // ---- verbose log ------------------------------------------------------------------------------
  void ProcessVerboseInfo1(int eigenNumber, double eigenvalue, int iteration, double seconds);
  void ProcessVerboseInfo2(double lastConverged, double nextEstimate, double shift,
                           double previousShift);
  void ProcessVerboseInfo3(int negativePivots, int converged);
  void ProcessVerboseInfo4(const std::string& text, int value);
  void ProcessVerboseInfo4(const std::string& text, double value);
  // Mode 2 only: the matrix's own text form appended to the log file.
  void ProcessVerboseInfo5(const VQ_SymMatrix& matrix);
  void ProcessVerboseMessage(const std::string& text);
  // Deletes <working directory>/verbose.txt in mode 2; nothing otherwise.
  void RemoveVerboseFile();
  std::string VerboseFilePath() const;

 protected:
  // CreateSolver and factorisation with the single out-of-core retry; `configure` (may be null)
  // adjusts every solver built before it factorises.
  int DecomposeWithRetry(const std::string& fileName, VQ_SparseSolver** solver, bool readFromFile,
                         VQ_Matrix* rhs, void (*configure)(VQ_SparseSolver*, void*), void* context);
  void SetStatus(int code) { status_ = static_cast<MATLIBDLLCOMMONS::STATE_STATUS>(code); }

  VQ_SparseSymMatrix* stiffness_ = nullptr;  // K (borrowed unless a derived class owns it)
  VQ_Matrix* mass_ = nullptr;                // M (borrowed unless a derived class owns it)
  int numReqEigen_ = 0;
  int numFoundEigen_ = 0;
  int numMassDOF_ = 0;  // diagonal terms of M above the zero value: most pairs that can exist
  std::string workingDirectory_;
  VQ_Matrix eigenVectors_;  // column j = j-th eigenvector
  VQ_ColVector eigenValues_;
  int instabilityDOF_ = -1;
  int numEquations_ = 0;
  MATLIBDLLCOMMONS::STATE_STATUS status_ = MATLIBDLLCOMMONS::STATUS_OK;
  int oocMode_ = 0;
  int matrixType_ = 0;
  int reservedCount_ = 0;
  VQ_Matrix rhs_;  // n x 1 zeros for solvers created without a right-hand side
  int warningCode_ = 0;
  std::string warningMessage_;
  int verboseMode_ = 0;
};

#endif  // VQMATH_EIGEN_VQ_EIGENSOLVER_H
