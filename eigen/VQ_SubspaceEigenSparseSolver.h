// VQ_SubspaceEigenSparseSolver.h - lowest eigenpairs of K phi = lambda M phi by subspace
// iteration with automatic shifting and a Sturm sequence check.
//
// K is sparse symmetric; M is diagonal (VQ_DiagonalMatrix), sparse symmetric (VQ_SparseSymMatrix)
// or dense (any other square kind: used through its sparse form in products and shifts, and
// through its diagonal for the unit trial vectors). The solver works in passes. Each pass
// factorises K - sigma*M once (PARDISO) and runs a block subspace iteration on it: q = min(2p, p +
// 8) trial vectors are M-orthogonalised against the eigenvectors already found, multiplied by M,
// solved for all q columns in one PARDISO call, projected (Kr = Xb' M X, Mr = Xb' M Xb), and the
// small pencil is solved by the generalized Jacobi method. Eigenvalues are accepted one at a time
// in ascending order, as soon as their relative change between two iterations is below the
// tolerance (1e-6 by default); an accepted column is replaced by random numbers so that the block
// keeps hunting for new vectors. The next pass shifts behind the last accepted eigenvalue: sigma =
// a + 0.95(b - a) for the last accepted value a and the next estimate b, or 0.99a when the two are
// too close. At the start of a shifted pass the number of negative pivots of K - sigma*M must equal
// the number of eigenvalues found below sigma; otherwise the warning -23 "Eigenvalue missed
// (Subspace Iteration)" is set and the run goes on.
//
// Before a run K is written to a work file (working directory + 32-character GUID + "1.dat", ...)
// from which every shifted pass reloads the unshifted values; K is left unshifted when the run
// ends. Unless rigid-body modes are allowed, K must factorise as positive definite first
// (status -3 with the instability equation otherwise).
//
// Statuses (registry codes): 0, -1 memory, -2 negative pivots where positive definite was
// required, -3 singular K, -20 no mass term above the zero value (at construction), -21 no
// eigenvalue found, -22 partial results (the eigenvalues found stay readable), -9999 other
// factorisation failure. Results are read through the VQ_EigenSolver accessors.
//
// Copies share the random generator (released with the last copy that holds it) and take only
// the settings listed at the copy constructor.
#ifndef VQMATH_EIGEN_VQ_SUBSPACEEIGENSPARSESOLVER_H
#define VQMATH_EIGEN_VQ_SUBSPACEEIGENSPARSESOLVER_H

#include <memory>
#include <string>

#include "dense/VQ_ColVector.h"
#include "dense/VQ_Matrix.h"
#include "eigen/VQ_EigenSolver.h"

class VQ_RandomNumGen;
class VQ_SparseSolver;
class VQ_SparseSymMatrix;

namespace vqmath {
namespace internal {
class SymmetricProduct;
}
namespace eigen_internal {
class ShiftInvertOperator;
}
}  // namespace vqmath

class VQ_SubspaceEigenSparseSolver : public VQ_EigenSolver {
 public:
  // Everything empty: no matrices, no generator, no results.
  VQ_SubspaceEigenSparseSolver();
  // K and M borrowed. limitActive: wanted eigenvalues end at `limit` (stored only when true).
  VQ_SubspaceEigenSparseSolver(VQ_SparseSymMatrix* K, VQ_Matrix* M, int oocMode, int matrixType,
                               int numReqEigen, const char* workingDirectory, bool limitActive,
                               double limit);
  // K borrowed; M = a new owned diagonal matrix of K's order from massDiagonal.
  VQ_SubspaceEigenSparseSolver(VQ_SparseSymMatrix* K, double* massDiagonal, int oocMode,
                               int matrixType, int numReqEigen, const char* workingDirectory,
                               bool limitActive, double limit);
  // K owned, built from upper 1-based compressed rows; M owned diagonal.
  VQ_SubspaceEigenSparseSolver(int n, int* rowPointers, int* columnIndices, double* values,
                               double* massDiagonal, int oocMode, int matrixType, int numReqEigen,
                               const char* workingDirectory, bool limitActive, double limit);
  // K and M owned, both built from upper 1-based compressed rows.
  VQ_SubspaceEigenSparseSolver(int n, int* kRowPointers, int* kColumnIndices, double* kValues,
                               int* mRowPointers, int* mColumnIndices, double* mValues, int oocMode,
                               int matrixType, int numReqEigen, const char* workingDirectory,
                               bool limitActive, double limit);
  // Default-constructed base (no matrices, no results) plus: the ownership flags, the work-file
  // stem, the last converged and next estimated values, the subspace size, the tolerance, the
  // pass mark, the zero value, the seed, the limit-active flag, the random generator (shared),
  // the verbose mode and the vectors-not-kept flag. The limit value and the rigid-body flag are
  // not copied. Assignment first releases the matrices this object owns and returns its base to
  // the default state, then copies the same set.
  VQ_SubspaceEigenSparseSolver(const VQ_SubspaceEigenSparseSolver& other);
  VQ_SubspaceEigenSparseSolver& operator=(const VQ_SubspaceEigenSparseSolver& other);
  ~VQ_SubspaceEigenSparseSolver() override;

  // ---- settings ---------------------------------------------------------------------------------
  void SetEigenvalueLimit(double limit) {
    eigenvalueLimit_ = limit;
    limitActive_ = true;
  }
  void GetEigenvalueLimit(double& limit) const { limit = eigenvalueLimit_; }
  bool IsEigenvalueLimitActive() const { return limitActive_; }
  // true: rigid-body modes are allowed, the singularity check before a run is skipped.
  void SetRigidBodyModesCheck(bool allowRigidBodyModes) {
    rigidBodyModesAllowed_ = allowRigidBodyModes;
  }
  bool GetRigidBodyModesCheck() const { return rigidBodyModesAllowed_; }
  double GetZeroVal() const { return zeroValue_; }
  void SetConvergenceTolerance(double tolerance) { tolerance_ = tolerance; }
  double GetConvergenceTolerance() const { return tolerance_; }
  // true: runs do not size or fill the eigenvector store (eigenvalues only).
  void SetVectorsNotKept(bool notKept) { vectorsNotKept_ = notKept; }
  // Eigenvectors go straight into the caller's n x numReqEigen column-major array (it must stay
  // valid while the solver runs and is read through GetAllEigenVectors()); null returns to the
  // solver's own store.
  void SetEigenVector(double* modeShapes);
  int GetSubspaceSize() const { return subspaceSize_; }
  // Wall-clock split of the last run (seconds), for benchmarks and diagnosis.
  struct Timings {
    double rigidBodyCheck = 0.0;  // factorisation of the unshifted K
    double factorisation = 0.0;   // factorisations of K - sigma*M (all passes)
    double solves = 0.0;          // PARDISO solves with all q columns
    double blockWork = 0.0;       // M products, projections, Xb*Q, orthogonalisation
    double reducedSolves = 0.0;   // generalized Jacobi on the q x q pencils
    int factorisations = 0;
    int iterations = 0;
    int passes = 0;
  };
  const Timings& GetTimings() const { return timings_; }
  const std::string& GetWorkFileStem() const { return workFileStem_; }
  int GetNumMassDOF() const { return numMassDOF_; }

  // ---- operations -------------------------------------------------------------------------------
  void InitializeTheSolver();
  // q = min(2p, p + 8), at most (order of M - found count) and (mass DOFs - found count).
  int NumberOfTrialVectors(int p) const;
  // Runs passes until `requested` eigenpairs are found (or the limit is passed); shift is the
  // first pass's shift when |shift| exceeds the zero value; maxPasses < 1 means 1000.
  MATLIBDLLCOMMONS::STATE_STATUS SolveSystemIncrementally(int requested, double shift,
                                                          int maxPasses);
  // One pass at shift sigma: count receives the number of eigenpairs accepted, values and vectors
  // their (unshifted) eigenvalues and vectors. 0 success, -1 failure, 1 and 2 partial results
  // after a failure of the reduced solution.
  int SubspaceIteration(int p, double sigma, int& count, VQ_ColVector& values, VQ_Matrix& vectors,
                        double startClock);
  // 0.0 before anything is found; a + 0.95(b - a) when b > machine epsilon and b - a >= 0.01;
  // 0.99a otherwise.
  double CalculateNewShift(double lastConverged, double nextEstimate) const;
  // K := K - sigma*M (only K's stored diagonal for a diagonal M; the sparse sum otherwise).
  void ShiftMatrix(double sigma);
  // Unit vectors at the rows of largest m_ii/k_ii, random numbers in the remaining columns, then
  // orthonormalised. false when the diagonals cannot be collected.
  bool TrialVectors(VQ_Matrix& X, int q);
  void GenerateTrialVector(VQ_Matrix& X, int q, const double* kDiagonal, const double* mDiagonal);
  void GenerateTrialVectorWithRandomNumbers(VQ_Matrix& X, int q);
  // flags[i] = 1 for a new value, -1 when values[i] lies within the relative tolerance of an
  // eigenvalue already stored.
  void ExamineConvergedResults(int* flags, int count, const VQ_ColVector& values,
                               const VQ_Matrix& vectors) const;
  // Number of negative pivots expected at sigma: found count, less one when sigma lies below the
  // last converged value.
  int SturmSequenceCheck(double sigma) const;
  // Diagonal kind, or a dense square matrix (whose diagonal the trial vectors use).
  bool IsMassMatrixDiagonal() const;

 private:
  struct IterationState;

  int RunPasses(int requested, double shift, int maxPasses);
  void ReleaseOwned();
  void CopySettingsFrom(const VQ_SubspaceEigenSparseSolver& other);
  // Accepts the leading converged Ritz values of one iteration (see the source).
  bool ConvergenceCheck(IterationState& s, int p, int& count, VQ_ColVector& values,
                        VQ_Matrix& vectors, int iteration, double startClock);
  // M-orthogonalises the q columns of X against the found vectors and those of this pass.
  void OrthogonaliseAgainstFound(IterationState& s, int count, const VQ_Matrix& vectors);
  void FillColumnWithRandomNumbers(VQ_Matrix& X, int column);
  // Brings K to the shift sigma (reloading the unshifted values when another shift is applied).
  bool ApplyShift(double sigma);
  bool RestoreUnshiftedStiffness();
  bool PrepareMassProduct();
  // The steps of one pass (SubspaceIteration): work arrays, shift and trial block, factorisation
  // with the Sturm check (null on failure, status set), one inverse iteration M X -> Xbar, the
  // projection Kr = Xbar' M X, Mr = Xbar' M Xbar, and the outcome of a failed reduced solve.
  bool AllocatePass(IterationState& s, int p, VQ_ColVector& values, VQ_Matrix& vectors);
  bool StartBlock(IterationState& s);
  VQ_SparseSolver* FactorPass(double sigma);
  bool InverseIterationStep(IterationState& s, vqmath::eigen_internal::ShiftInvertOperator& op,
                            int count, const VQ_Matrix& vectors);
  void ProjectOntoBlock(IterationState& s);
  int JacobiFailed(double sigma, int count);

  bool ownsStiffness_ = false;
  bool ownsMass_ = false;
  std::string workFileStem_;
  double lastConvergedValue_ = 0.0;
  double nextEstimatedValue_ = 0.0;
  int subspaceSize_ = 0;
  double tolerance_ = 1e-6;
  int passMark_ = 1;
  int randomSeed_ = -1;
  std::shared_ptr<VQ_RandomNumGen> randomGenerator_;  // shared by copies
  bool limitActive_ = false;
  double eigenvalueLimit_ = 1.7976931348623157e308;
  bool rigidBodyModesAllowed_ = false;
  bool vectorsNotKept_ = false;
  double zeroValue_ = 1e-8;

  // Run state (not copied).
  std::unique_ptr<vqmath::internal::SymmetricProduct> massProduct_;
  double* externalVectors_ = nullptr;  // caller's mode-shape array (SetEigenVector)
  int externalColumns_ = 0;            // its number of columns
  bool vectorsAreView_ = false;        // the pass writes straight into the eigenvector store
  bool stiffnessSaved_ = false;
  int savedNonZeros_ = 0;      // nnz of K when it was saved
  double appliedShift_ = 0.0;  // shift currently applied to K
  Timings timings_;
  // Factorisation of the unshifted K left by the rigid-body check, taken by an unshifted first
  // pass instead of factorising the same matrix again.
  std::unique_ptr<VQ_SparseSolver> unshiftedFactor_;
};

#endif  // VQMATH_EIGEN_VQ_SUBSPACEEIGENSPARSESOLVER_H
