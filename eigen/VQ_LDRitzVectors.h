// VQ_LDRitzVectors.h - load-dependent Ritz vectors of a structure.
//
// From a spatial load pattern f the solver builds `count` M-orthonormal vectors by repeated
// static solutions with the factorised stiffness,
//     x₁ = K⁻¹·r,  xᵢ = K⁻¹·M·xᵢ₋₁ (i = 2 … count), each M-orthogonalised against the earlier ones,
// with r = M·f when f is a pattern (vector kind 0: f is the direction of an acceleration, e.g. a
// ground motion, and M·f the inertia load) and r = f when f is taken as a force vector as given
// (vector kind 1). Without a load the pattern is a vector of ones. The reduced problem
// (Xᵀ·K·X)·q = λ·(Xᵀ·M·X)·q in the space they span then gives estimated eigenvalues λ (from
// above: they bound the true ones of the same index) and Ritz vectors Φ = X·Q, M-orthonormal and
// K-orthogonal, which carry the load's response with far fewer vectors than eigenvectors would.
//
// The two generation schemes:
//   SolveWYD   Gram–Schmidt of every new vector against all earlier ones (a pass is repeated
//              when it removed more than half of the vector's M-norm, i.e. the vector was nearly
//              dependent, as long as the selective-reorthogonalization option is on; with it off
//              every vector gets exactly one pass).
//   SolveLWYD  the Lanczos form of the same sequence: each new vector is orthogonalised against
//              the previous two only (three-term recurrence), and against all earlier ones only
//              when a loss of orthogonality above √ε is measured (selective reorthogonalization;
//              with the option off the three-term recurrence alone). With the static-correction
//              option on, the last vector of the basis is the static response K⁻¹·f to the load
//              taken as a force (orthogonalised against the others): the count-2 basis is then
//              {K⁻¹·M·f, K⁻¹·f}. Where the first vector already is K⁻¹·f (vector kind 1) nothing is
//              added.
// When a new vector is dependent on the earlier ones (the load excites fewer modes than asked
// for), the sequence ends there and fewer vectors are delivered.
//
// Options (all on after construction):
//   orthogonalize V with respect to K: solve the reduced problem, so that the delivered vectors
//     are K-orthogonal and the estimates are Ritz values; off: the generated vectors X themselves
//     are delivered (M-orthonormal only) with their Rayleigh quotients xᵢᵀKxᵢ as estimates,
//     ascending;
//   selective reorthogonalization and static correction: see above.
// Limit: when the limit flag is set, Ritz pairs whose estimated eigenvalue exceeds the limit value
// are dropped (all dropped: −40).
//
// Count: capped by the number of mass diagonal terms above 1e-8 in magnitude and by n.
// Reduced problem: SubspaceIterationEigenSolver solves it as subspace iteration solves its
// projected problems, by the generalized Jacobi method, or, above 200 vectors, by ArnoldiSolver
// (LAPACK's tridiagonal divide-and-conquer route); if that fails, LAPACKEigenSolver (dsygv).
//
// Measures of the result (count values each, after a successful solve):
//   GetMeffRatios  cumulative effective modal mass ratio of the load direction:
//                  Σⱼ≤ᵢ Γⱼ² / (fᵀ·M·f), Γⱼ = φⱼᵀ·M·f (φ M-normalised; f the load vector as given,
//                  taken as the direction for either vector kind). It reaches 1 when the vectors
//                  span all mass degrees of freedom the load reaches.
//   GetErrNorm1    relative residual of each Ritz pair, ‖K·φᵢ − λᵢ·M·φᵢ‖ / ‖K·φᵢ‖.
//   GetErrNorm2    error of representing the load by the first i vectors,
//                  ‖F − Σⱼ≤ᵢ M·φⱼ·(φⱼᵀ·F)‖ / ‖F‖ with F = M·f (kind 0) or f (kind 1).
//
// Statuses (GetStatus, GetErrorMessage): 0; −1 "Memory Allocation Error (insuffcient memory)";
// −2 "Analysis Canceled by User" (progress callback returned false); −3 "Instability Detected
// (ill-conditioned matrices)" with the equation in Get_DOFNumForInstability; −40 "Failed to Find
// Ritz Vectors" (no stiffness or mass, count 0, no mass term, a load without mass component, a
// failed reduced solve, any other factorisation failure).
#ifndef VQMATH_EIGEN_VQ_LDRITZVECTORS_H
#define VQMATH_EIGEN_VQ_LDRITZVECTORS_H

#include <string>
#include <vector>

#include "dense/MatrixTypes.h"
#include "dense/VQ_ColVector.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"

class VQ_SparseSolver;
class VQ_SymMatrix;

// Progress callback: (vectors made so far, fraction done); false cancels the run.
typedef bool (*VQ_RitzProgressCallback)(int count, double fraction);

class VQ_LDRitzVectors {
 public:
  // K in 1-based upper compressed rows and a diagonal mass (n values); both are copied.
  VQ_LDRitzVectors(int n, int* kRowPointers, int* kColumnIndices, double* kValues,
                   double* massDiagonal, int oocMode, int matrixType, bool limitFlag,
                   double limitValue);
  // K and M in 1-based upper compressed rows; both are copied.
  VQ_LDRitzVectors(int n, int* kRowPointers, int* kColumnIndices, double* kValues,
                   int* mRowPointers, int* mColumnIndices, double* mValues, int oocMode,
                   int matrixType, bool limitFlag, double limitValue);
  ~VQ_LDRitzVectors();
  VQ_LDRitzVectors(const VQ_LDRitzVectors&) = delete;
  VQ_LDRitzVectors& operator=(const VQ_LDRitzVectors&) = delete;

  // ---- options ----------------------------------------------------------------------------------
  void SetParameters(bool orthogonalizeVwrtK, bool selectiveReorthogonalization,
                     bool staticCorrection);
  void GetParameters(bool& orthogonalizeVwrtK, bool& selectiveReorthogonalization,
                     bool& staticCorrection) const;
  void SetOrthogonalizeVwrtKOption(bool on) { orthogonalizeVwrtK_ = on; }
  void SetSelectiveReorthogonalization(bool on) { selectiveReorthogonalization_ = on; }
  void SetStaticCorrectionOption(bool on) { staticCorrection_ = on; }
  // n becomes min(n, a, b).
  void CheckNumReqEigens(int a, int b, int& n) const;

  // ---- solution (each returns the status)
  // --------------------------------------------------------- load: optional, n values; vecType 1
  // takes it as a force vector, 0 as a pattern (see above).
  int SolveWYD(unsigned count, std::string workingDirectory, VQ_RitzProgressCallback progress,
               VQ_ColVector* load, int vecType);
  int SolveLWYD(unsigned count, std::string workingDirectory, VQ_RitzProgressCallback progress,
                VQ_ColVector* load, int vecType);

  // ---- results
  // ------------------------------------------------------------------------------------ The Ritz
  // vectors, n × count (column j the j-th, in ascending order of the estimates).
  VQ_Matrix* GetVectorsPtr() { return &vectors_; }
  // The estimated eigenvalues, ascending (count values).
  VQ_ColVector& GetEstEigVals() { return estimates_; }
  int GetStatus() const { return status_; }
  std::string GetErrorMessage() const { return errorMessage_; }
  int Get_DOFNumForInstability() const { return instabilityEquation_; }
  VQ_ColVector GetMeffRatios() const { return meffRatios_; }
  VQ_ColVector GetErrNorm1() const { return errNorm1_; }
  VQ_ColVector GetErrNorm2() const { return errNorm2_; }
  // Gram–Schmidt passes (against all earlier vectors) made by the last solve.
  int GetNumberOfGramSchmidtPasses() const { return gramSchmidtPasses_; }

  // ---- reduced problem (results in the reduced vectors and the estimates; 0 on success)
  // -----------
  int SubspaceIterationEigenSolver(int count, VQ_SymMatrix& Kr, VQ_SymMatrix& Mr,
                                   std::string workingDirectory);
  int ArnoldiSolver(int count, VQ_SymMatrix& Kr, VQ_SymMatrix& Mr, std::string workingDirectory);
  int LAPACKEigenSolver(VQ_SymMatrix& Kr, VQ_SymMatrix& Mr);

  // ---- errors
  // ------------------------------------------------------------------------------------- A
  // factorisation (or reduced-solve) result: 0 unchanged; −3 → −2; −1 → −3 with the solver's
  // instability equation; −4, −5 → −1; other → −40.
  void ResolveError(VQ_SparseSolver* solver, int code);
  // A status: stored; −2 and −3 with their texts; 0 nothing; other → −40.
  void ResolveError(int status);

  // folder + "MASSMatrix.mtx" and folder + "STIFFNESSMatrix.mtx" (MatrixMarket).
  void PrintMatrices(const char* folder);

 private:
  int Solve(bool lanczos, unsigned count, const std::string& workingDirectory,
            VQ_RitzProgressCallback progress, VQ_ColVector* load, int vecType);
  void Fail(int status, const char* message);
  void ResetResults();

  // The steps of Solve on the work of one run: sizes, load and factorisation of K; the sequence of
  // M-orthonormal vectors (the first from the load, then one K⁻¹·M step at a time, with the
  // static correction last); the reduced problem; the eigenvalue limit and the stored results;
  // the effective-mass and residual measures. A step returning false has set the status.
  struct RitzRun;
  bool PrepareRitzRun(RitzRun& r, unsigned requested, const std::string& workingDirectory,
                      VQ_ColVector* load, int vecType);
  bool ReportProgress(const RitzRun& r, VQ_RitzProgressCallback progress);
  bool SolveWithStiffness(RitzRun& r, const double* rhs);
  bool FirstRitzVector(RitzRun& r, VQ_RitzProgressCallback progress);
  // The next direction K⁻¹·M·x_last made M-orthogonal to the vectors so far: 1 with its M-norm,
  // 0 when it brings nothing new (the sequence ends), −1 on a failed solve.
  int NextDirection(RitzRun& r, double& beta, double& norm);
  bool GenerateRitzVectors(RitzRun& r, VQ_RitzProgressCallback progress);
  bool SolveReducedProblem(RitzRun& r, const std::string& workingDirectory);
  bool StoreRitzResults(RitzRun& r, int& kept);
  void ComputeRitzMeasures(const RitzRun& r, int kept);

  VQ_SparseSymMatrix K_;
  VQ_SparseSymMatrix M_;
  VQ_Matrix vectors_;
  VQ_Matrix reducedVectors_;
  VQ_ColVector estimates_;
  int status_ = 0;
  int instabilityEquation_ = -1;
  bool orthogonalizeVwrtK_ = true;
  bool selectiveReorthogonalization_ = true;
  bool staticCorrection_ = true;
  std::string errorMessage_;
  int oocMode_ = 0;
  int matrixType_ = -2;
  int flag_ = 1;
  bool limitFlag_ = false;
  double limitValue_ = 0.0;
  double zero_ = 1e-8;  // mass diagonal terms above this count as mass

  VQ_ColVector meffRatios_;
  VQ_ColVector errNorm1_;
  VQ_ColVector errNorm2_;
  int gramSchmidtPasses_ = 0;
};

#endif  // VQMATH_EIGEN_VQ_LDRITZVECTORS_H
