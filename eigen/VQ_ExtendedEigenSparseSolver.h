// VQ_ExtendedEigenSparseSolver.h - all eigenpairs of K·x = λ·B·x in an interval [Emin, Emax] by
// MKL's FEAST contour-integral solver for real symmetric sparse matrices (dfeast_scsrgv, upper
// triangle, one-based compressed rows).
//
// K and B are borrowed (the caller keeps them alive and unchanged during a solve). B is the mass
// matrix in compressed rows, or built here from a diagonal mass, or, for the constructors
// without a mass, the identity in compressed rows (so the problem is the standard one K·x = λ·x).
//
// The class derives from VQ_SparseSolver only for its PARDISO settings: FEAST_init hands the
// solver's 64 PARDISO parameters to FEAST (fpm(64) = 1, fpm(65…128) = iparm), so that FEAST's
// inner complex solves use the settings of the library's direct solver.
//
// Every constructor sets the seven user parameters to their defaults and writes
// MKL_PARDISO_OOC_MAX_CORE_SIZE = "2000", MKL_PARDISO_OOC_KEEP_FILE = "1" and
// MKL_NUM_THREADS = "1" into the process environment (MKL runs single-threaded from then on),
// then publishes the solver's out-of-core path.
//
// SolveSystem cuts [Emin, Emax] into `intervals` equal sub-intervals and searches them from the
// lowest up until `requested` eigenvalues are collected (values ascending within a sub-interval;
// vectors as columns of `vectors`, which must be n × requested). Each sub-interval starts with a
// search subspace of M0 = ⌊1.5·requested⌋ (at most n) that doubles while FEAST reports it too
// small, at most five FEAST calls. Status (GetStatus, GetSolverStatusMessage): 0 success (also
// when fewer than requested lie in the interval), −22 when a later sub-interval failed after
// some eigenvalues were collected ("Only %d Eigenvalues of Requested %d Eigenvalues Found \n"),
// else FEAST's failure through ResolveSolverErrors (−60…−69, −1, −65).
#ifndef VQMATH_EIGEN_VQ_EXTENDEDEIGENSPARSESOLVER_H
#define VQMATH_EIGEN_VQ_EXTENDEDEIGENSPARSESOLVER_H

#include <string>
#include <vector>

#include "dense/MatrixTypes.h"
#include "sparse/VQ_SparseSolver.h"

class VQ_Matrix;
class VQ_DiagonalMatrix;
class VQ_SparseSymMatrix;

class VQ_ExtendedEigenSparseSolver : public VQ_SparseSolver {
 public:
  // The trailing (oocMode, mtype, verbose, workingDirectory) are the sparse-solver settings.
  VQ_ExtendedEigenSparseSolver(VQ_SparseSymMatrix& K, VQ_SparseSymMatrix& M, int oocMode, int mtype,
                               bool verbose, const char* workingDirectory);
  VQ_ExtendedEigenSparseSolver(VQ_SparseSymMatrix& K, VQ_DiagonalMatrix& M, int oocMode, int mtype,
                               bool verbose, const char* workingDirectory);
  VQ_ExtendedEigenSparseSolver(VQ_SparseSymMatrix& K, int oocMode, int mtype, bool verbose,
                               const char* workingDirectory);
  VQ_ExtendedEigenSparseSolver(int n, int* ia, int* ja, double* a, int* ib, int* jb, double* b,
                               int oocMode, int mtype, bool verbose, const char* workingDirectory);
  VQ_ExtendedEigenSparseSolver(int n, int* ia, int* ja, double* a, double* bDiagonal, int oocMode,
                               int mtype, bool verbose, const char* workingDirectory);
  VQ_ExtendedEigenSparseSolver(int n, int* ia, int* ja, double* a, int oocMode, int mtype,
                               bool verbose, const char* workingDirectory);
  // Copies take the strings, settings and matrices (a B built here is copied and owned anew).
  VQ_ExtendedEigenSparseSolver(const VQ_ExtendedEigenSparseSolver& other);
  VQ_ExtendedEigenSparseSolver& operator=(const VQ_ExtendedEigenSparseSolver& other);
  ~VQ_ExtendedEigenSparseSolver() override;

  // Searches [Emin, Emax] in `intervals` equal sub-intervals; returns the status.
  int SolveSystem(double Emin, double Emax, int requested, std::vector<double>& values,
                  VQ_Matrix& vectors, bool storeVectors, int intervals);
  // One FEAST search of [lo, hi], appending at most requested − values.size() pairs; returns
  // FEAST's info (0 also when the interval holds no eigenvalue; 3 after five calls with a
  // subspace still too small). FEAST's documented input errors are checked first and returned
  // as FEAST documents them: 202 order n <= 0, 201 subspace M0 <= 0, 200 lo >= hi.
  int Solve(double lo, double hi, int requested, std::vector<double>& values, VQ_Matrix& vectors,
            bool storeVectors);
  // fpm from feastinit, the validated user parameters, then the solver's PARDISO parameters.
  void FEAST_init();
  // The sparse solver's own initialisation (PARDISO parameters from the library's settings).
  void PARDISO_init();
  // FEAST info → message and status (see the source for the table).
  void ResolveSolverErrors(int info, std::string& message, MATLIBDLLCOMMONS::STATE_STATUS& status);

  // ---- user parameters fpm(1)…fpm(7); each setter stores the value and marks them as set ----
  void SetRunTimeStatus(int value);  // fpm(1): 0 or 1
  int GetRunTimeStatus() const { return userParams_[0]; }
  void SetNumberOfCountourPoints(int value);  // fpm(2): 3…48, listed
  int GetNumberOfCountourPoints() const { return userParams_[1]; }
  void SetErrorTraceDoublePrecesionStoppingCriteria(int value);  // fpm(3)
  int GetErrorTraceDoublePrecesionStoppingCriteria() const { return userParams_[2]; }
  void SetMaxRefinimentLoop(int value);  // fpm(4)
  int GetMaxRefinimentLoop() const { return userParams_[3]; }
  void SetUserInitialSpace(int value);  // fpm(5): 0 or 1
  int GetUserInitialSpace() const { return userParams_[4]; }
  void SetStoppingTestType(int value);  // fpm(6): 0 or 1
  int GetStoppingTestType() const { return userParams_[5]; }
  void SetErrorTraceSinglePrecesionStoppingCriteria(int value);  // fpm(7)
  int GetErrorTraceSinglePrecesionStoppingCriteria() const { return userParams_[6]; }
  bool UserParametersSet() const { return userParamsSet_; }

  // ---- results ----------------------------------------------------------------------------------
  MATLIBDLLCOMMONS::STATE_STATUS GetStatus() const { return status_; }
  const std::string& GetSolverStatusMessage() const { return statusMessage_; }
  // The FEAST parameter array as last handed to FEAST (128 values).
  const int* GetFeastParameters() const { return fpm_; }
  // FEAST calls made by the last SolveSystem (all sub-intervals, subspace growth included).
  int GetNumberOfFeastCalls() const { return feastCalls_; }
  // Subspace size M0 of the last FEAST call.
  int GetLastSubspaceSize() const { return lastM0_; }
  int Order() const { return order_; }

  // ---- verification -----------------------------------------------------------------------------
  // When on, SolveSystem counts the eigenvalues of K − σ·B from Emin to just above the highest
  // one found (VQ_SturmSequenceCheck): a missed one sets warning −23 (GetWarningCode); values that
  // are not eigenvalues (B not positive semi-definite) fail with −64 and are dropped.
  void SetVerification(bool on) { verify_ = on; }
  int GetWarningCode() const { return warningCode_; }
  // Eigenvalues the verification counted (−1 when it did not run).
  int GetSturmCount() const { return sturmCount_; }

 private:
  int SearchIntervals(double Emin, double Emax, int requested, std::vector<double>& values,
                      VQ_Matrix& vectors, bool storeVectors, int intervals);
  int VerifyFound(double Emin, std::vector<double>& values, const double* modeShapes, int status);
  void Setup(const char* workingDirectory);
  void SetDefaultUserParameters();
  void UseDiagonalB(const double* diagonal);
  void UseIdentityB();
  void RepointOwnedB();

  std::string workingDirectory_;
  int order_ = 0;
  // K (borrowed).
  int* kRowPointers_ = nullptr;
  int* kColumnIndices_ = nullptr;
  double* kValues_ = nullptr;
  // B (borrowed, or pointing at the owned arrays below).
  int* bRowPointers_ = nullptr;
  int* bColumnIndices_ = nullptr;
  double* bValues_ = nullptr;
  std::string statusMessage_;
  MATLIBDLLCOMMONS::STATE_STATUS status_ = MATLIBDLLCOMMONS::STATUS_OK;
  int fpm_[128];
  bool userParamsSet_ = false;
  void SetUserParameter(int index, int value);
  int userParams_[7];

  // B built by this object (diagonal mass or identity).
  bool ownsB_ = false;
  std::vector<int> ownedRowPointers_;
  std::vector<int> ownedColumnIndices_;
  std::vector<double> ownedValues_;

  int feastCalls_ = 0;
  int lastM0_ = 0;

  bool verify_ = false;
  int warningCode_ = 0;
  int sturmCount_ = -1;
};

#endif  // VQMATH_EIGEN_VQ_EXTENDEDEIGENSPARSESOLVER_H
