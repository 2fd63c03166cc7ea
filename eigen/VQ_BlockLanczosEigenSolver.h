// VQ_BlockLanczosEigenSolver.h - eigenpairs nearest a shift by thick-restart block Lanczos on a
// shift-invert operator, with one sparse factorisation per run.
//
// Problems (matrices borrowed as 1-based upper-triangle compressed rows; the second matrix B
// also as a diagonal):
//   natural modes  K phi = lambda M phi:   OP = (K - s M)^-1 M,   theta = 1 / (lambda - s);
//   buckling       K phi = lambda Kg phi:  OP = (K - s Kg)^-1 K,  theta = lambda / (lambda - s),
//                  or, for s = 0,          OP = K^-1 Kg,          theta = 1 / lambda.
// OP is self-adjoint in the inner product of W = M (natural) or W = K (buckling), so the
// projected matrix V' W OP V of a W-orthonormal basis V is symmetric. The wanted pairs are those
// of largest |theta|: the eigenvalues nearest the shift. They come back in ascending order with
// W-normalised mode shapes.
//
// Why block Lanczos with thick restart. K - s B is factored once; afterwards the cost of a run is
// the number of passes over the factor. A solve with b right-hand sides reads the factor once,
// so a block of b vectors costs little more than one vector (at 100k equations about 54 ms for
// one column, 22 ms per column in blocks of 8, 11 ms per column in blocks of 32). Growing the
// Krylov space by blocks turns the vector-by-vector sweep of single-vector Lanczos into one
// multi-column solve per block. A block also sees every copy of a repeated eigenvalue up to its
// size at once (a square bar bends alike in two planes), where a single-vector recurrence only
// finds the second copy from rounding. For a symmetric operator, block Krylov-Schur and
// thick-restart block Lanczos are the same method: after a restart the basis holds the kept Ritz
// vectors (projected matrix diagonal) plus the residual block coupled to all of them (an arrow);
// the next blocks make it block tridiagonal again. The symmetric form needs no Schur form and no
// reordering, only a symmetric eigen-decomposition of the small projected matrix, so it is the
// one used here.
//
// Steps (named member functions):
//   StartBlock          random block (fixed seed) multiplied by OP, which removes components of
//                       massless degrees of freedom, then W-orthonormalised;
//   ExpandBlock         X = OP V_last: one product with the right-hand side matrix and one
//                       PARDISO solve with all columns of the block;
//   Orthogonalise       block classical Gram-Schmidt in the W inner product against the whole
//                       basis, done twice (two matrix-matrix products each, W V kept beside V),
//                       so the basis stays W-orthonormal to rounding and no ghost copies appear;
//   NormaliseBlock      Cholesky QR in the W inner product, done twice; a column that the
//                       Krylov space cannot extend (an invariant subspace was reached) is
//                       replaced by a W-orthogonalised random vector, or dropped when the space is
//                       exhausted;
//   SolveProjected      eigen-decomposition of the symmetrised projected matrix (LAPACK dsyevd)
//                       and the residual estimates ||E y|| from the rows of the residual block;
//   Restart             keeps the converged Ritz vectors and the best unconverged ones (one dgemm
//                       in row strips, no second basis), rebuilds the arrow matrix and locks the
//                       converged pairs: their coupling to the residual block is set to zero, so
//                       they no longer move, while new vectors are still orthogonalised against
//                       them;
//   AcceptPairs         forms the wanted Ritz vectors and checks ||K phi - lambda B phi|| /
//                       (||K||_1 ||phi||) <= 1e-10 for each; a pair that fails sends the run on
//                       with a tighter estimate tolerance;
//   VerifyBySturmCount  optional: factors K - s' B with s' just above the largest eigenvalue
//                       found (relative 1e-6), and compares the number of negative pivots with
//                       the eigenvalues found (those between the shift and s' must be all there
//                       are; the inertia at the shift comes from the kept factorisation; converged
//                       Ritz values left out only because the count was reached, such as the
//                       second copy of a repeated eigenvalue, count as known). A missed
//                       eigenvalue is warning -23; the count is kept for the host.
//
// Limits: with the limit active no eigenvalue above it is sought; the run ends when the nearest
// pairs have converged up to the first one above the limit (fewer than requested is then a full
// result). The count is limited to n and, for a diagonal M, to the number of positive masses.
//
// Statuses (registry codes): 0; -1 memory; -2, -3 (instability equation kept), -9999 a failed
// factorisation (as every eigen solver maps it); -21 no pair converged; -22 some but not all
// converged within the restart limit (they are delivered); -64 invalid input (n, count, arrays).
#ifndef VQMATH_EIGEN_VQ_BLOCKLANCZOSEIGENSOLVER_H
#define VQMATH_EIGEN_VQ_BLOCKLANCZOSEIGENSOLVER_H

#include <memory>
#include <random>
#include <vector>

#include "eigen/VQ_EigenSolver.h"

class VQ_DiagonalMatrix;
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

class VQ_BlockLanczosEigenSolver : public VQ_EigenSolver {
 public:
  enum ProblemKind { kNaturalModes = 0, kBuckling = 1 };

  // K (kRowPointers, kColumnIndices, kValues) and B (M or Kg): compressed rows, or, when
  // bRowPointers is null, the diagonal bDiagonal (n values). The arrays are copied.
  // Construction failures leave status -1.
  VQ_BlockLanczosEigenSolver(int n, const int* kRowPointers, const int* kColumnIndices,
                             const double* kValues, const int* bRowPointers,
                             const int* bColumnIndices, const double* bValues,
                             const double* bDiagonal, ProblemKind kind, int numReqEigen,
                             int oocMode, int matrixType, const char* workingDirectory);
  ~VQ_BlockLanczosEigenSolver() override;
  VQ_BlockLanczosEigenSolver(const VQ_BlockLanczosEigenSolver&) = delete;
  VQ_BlockLanczosEigenSolver& operator=(const VQ_BlockLanczosEigenSolver&) = delete;

  // ---- settings ---------------------------------------------------------------------------------
  void Set_Shift(double shift) { shift_ = shift; }
  // Columns per block; 0 (or below 1) lets the solver choose from the count wanted.
  void Set_BlockSize(int blockSize) { requestedBlock_ = blockSize; }
  // Restart cycles; below 1: 300.
  void Set_MaxIterations(int cycles) { maxCycles_ = cycles; }
  void Set_Limit(bool active, double limit) {
    limitActive_ = active;
    limit_ = limit;
  }
  void Set_VerifyWithSturmCount(bool on) { verify_ = on; }
  // A factorisation of K - shift B held by the caller (natural modes): the run factors nothing
  // and solves through op, which must outlive the run; the Sturm verification is left to the
  // caller, who has the inertia of that factorisation. Null returns to the solver's own factor.
  void Set_ShiftInvertOperator(vqmath::eigen_internal::ShiftInvertOperator* op) { external_ = op; }

  // ---- run and results --------------------------------------------------------------------------
  // Returns the status (also GetStatus()). Eigenvalues and vectors through the base accessors.
  int Solve();
  // The block size the last run used.
  int Get_BlockSize() const { return block_; }
  // Number of eigenvalues below s' by the verification; -1 when it was not made.
  int Get_SturmCount() const { return sturmCount_; }
  int Get_Factorizations() const { return factorizations_; }
  int Get_BlockSolves() const { return blockSolves_; }
  int Get_Restarts() const { return restarts_; }
  // Largest ||K phi - lambda B phi|| / (||K||_1 ||phi||) over the delivered pairs.
  double Get_LargestResidual() const { return largestResidual_; }
  // The block size chosen for `wanted` pairs when the caller leaves it open.
  static int DefaultBlockSize(int wanted);

 private:
  struct Basis;

  bool Prepare();
  // K - sigma B on the union of both patterns, in new arrays (null when memory runs out).
  std::unique_ptr<VQ_SparseSymMatrix> MakeShifted(double sigma) const;
  bool Factorise();
  bool StartBlock(Basis& s, int& kept);
  // Steps of Solve: the basis sized for the run, the block expansion up to a cycle's size, and
  // the count of converged pairs nearest the shift (with those that can be locked).
  void SizeBasis(Basis& s);
  bool ExpandToCycleSize(Basis& s, int& active, int& pending);
  int CountConverged(const Basis& s, int active, double tolerance, int& lockable,
                     bool& limitReached) const;
  bool ExpandBlock(Basis& s, int first, int count, double* x);
  void Orthogonalise(Basis& s, int basisCount, double* x, int count, double* coefficients);
  int NormaliseBlock(Basis& s, int basisCount, double* x, double* wx, int count, double* r);
  bool SolveProjected(Basis& s, int active, int pending);
  void Restart(Basis& s, int active, int pending, int keep);
  bool AcceptPairs(Basis& s, int active, int count);
  void VerifyBySturmCount();
  double ToEigenvalue(double theta) const;
  bool ApplyW(const double* x, double* y, int columns) const;
  bool ApplyRhs(const double* x, const double* wx, double* y, int columns) const;
  void Fail(int status) { SetStatus(status); }

  ProblemKind kind_;
  double shift_ = 0.0;
  int requestedBlock_ = 0;
  int maxCycles_ = 0;
  bool limitActive_ = false;
  double limit_ = 0.0;
  bool verify_ = false;

  int block_ = 0;
  int wanted_ = 0;
  int sturmCount_ = -1;
  int negativeAtShift_ = 0;
  int factorizations_ = 0;
  int blockSolves_ = 0;
  int restarts_ = 0;
  double largestResidual_ = 0.0;
  std::vector<double> nearbyValues_;  // converged Ritz values beyond the count delivered
  double kNorm_ = 0.0;
  bool inverseBuckling_ = false;  // buckling at s = 0: OP = K^-1 Kg

  std::unique_ptr<VQ_SparseSymMatrix> k_;         // copy of K
  std::unique_ptr<VQ_SparseSymMatrix> bSparse_;   // copy of B (sparse B)
  std::unique_ptr<VQ_DiagonalMatrix> bDiagonal_;  // copy of B (diagonal B)
  std::unique_ptr<VQ_SparseSymMatrix> bDiagonalSparse_;  // a diagonal B in compressed rows
  std::unique_ptr<VQ_SparseSymMatrix> shifted_;   // K - s B on the union pattern
  std::unique_ptr<vqmath::internal::SymmetricProduct> kProduct_;
  std::unique_ptr<vqmath::internal::SymmetricProduct> bProduct_;
  VQ_SparseSolver* solver_ = nullptr;  // factor of K - s B (owned)
  vqmath::eigen_internal::ShiftInvertOperator* external_ = nullptr;  // the caller's factor
  std::mt19937_64 random_;
};

#endif  // VQMATH_EIGEN_VQ_BLOCKLANCZOSEIGENSOLVER_H
