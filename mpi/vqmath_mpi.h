/*
 * vqmath_mpi: static and modal solution of one model distributed over the processes of an MPI
 * communicator, by Intel MKL's cluster sparse solver and PARPACK. C99 and C++.
 *
 * Distributed input. Each process of the communicator owns a contiguous range of equations
 * firstRow..lastRow (1-based, inclusive); the ranges follow the process ranks in order, do not
 * overlap and together cover 1..n, every process owning at least one row. A process passes
 * only its own rows of each symmetric matrix, as the upper triangle in compressed rows:
 *   rowPointers   lastRow-firstRow+2 entries, local, starting at 1;
 *   columnIndices 1-based GLOBAL columns, the diagonal first in every row, then ascending;
 *   values        the matching values.
 * Vectors (loads, mass diagonals, solutions, mode shapes) are passed as the process's slice:
 * lastRow-firstRow+1 values per vector, vectors one after the other.
 *
 * Every function here is collective: all processes of the communicator call it with the same
 * n and scalar arguments. Each resets the registry of libvqmath (VQ_GetLastErrorID,
 * VQ_GetLastErrorMessage, VQ_GetInstabilityDOF, VQ_GetNumberOf...Eigenvalues) on every process
 * and leaves the same outcome there on every process: when one process finds its input wrong
 * or a step fails on one process, all return the same code and message (the message names the
 * process), and none is left waiting. Codes are those of the single-process library: -64
 * "ERROR_INVALID_MATRICES: ..." for malformed input (nothing is factored, output arrays are
 * untouched), -3 singular (VQ_GetInstabilityDOF names the global equation), -81 out of memory,
 * -83 other sparse-solver failures, -45/-46 Lanczos failures, -1 memory, 1 with -22 recorded
 * for partial eigen results.
 *
 * MPI must be initialised by the host. The _F variants take a Fortran communicator handle
 * (MPI_Comm_c2f) for hosts that hold one.
 */
#ifndef VQMATH_MPI_H
#define VQMATH_MPI_H

#include <mpi.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A factorisation kept between solves. */
typedef struct VQ_MpiFactorization VQ_MpiFactorization;

/* The functions that take a communicator come in pairs with the same other arguments:
   name(MPI_Comm comm, ...) and name_F(MPI_Fint comm, ...) for hosts that hold a Fortran handle
   (VQ_MpiSparseFactor_F, VQ_MpiDirectSparseSolver_F, VQ_MpiSturmCount_F,
   VQ_MpiEigenvalueAnalysis_Lanczos_F). VQ_MPI_COMM_PAIR declares both from one argument list. */
#define VQ_MPI_COMM_PAIR(name, ...)                  \
  int name(MPI_Comm comm /* in */, __VA_ARGS__); \
  int name##_F(MPI_Fint comm /* in */, __VA_ARGS__)

/* Factors the distributed symmetric K once. matrixType 2 (positive definite) or -2 (indefinite,
   reports the inertia: VQ_GetNumberOfNegativeEigenvalues/PositiveEigenvalues on every process).
   stopIfNotPosDefinite 1 turns negative pivots into -3 with the equation. On success
   *factorization holds the factorisation (release it with VQ_MpiSparseRelease); on failure it
   is set to NULL. */
VQ_MPI_COMM_PAIR(VQ_MpiSparseFactor, int n /* in */, int firstRow /* in */, int lastRow /* in */,
                 const int* rowPointers /* in: local rows + 1 */, const int* columnIndices /* in */,
                 const double* values /* in */, int matrixType /* in: 2 or -2 */,
                 int stopIfNotPosDefinite /* in */, VQ_MpiFactorization** factorization /* out */);

/* Solves K X = F for nrhs load cases with the kept factorisation: rhs and solution hold the
   process's slice of each case (local rows x nrhs, column-major). Collective. */
int VQ_MpiSparseSolve(VQ_MpiFactorization* factorization /* in */, int nrhs /* in */,
                      const double* rhs /* in: local rows * nrhs */,
                      double* solution /* out: local rows * nrhs */);

/* Releases the factorisation (collective; NULL is ignored on every process). */
void VQ_MpiSparseRelease(VQ_MpiFactorization* factorization /* in */);

/* Factor and solve in one call (VQ_MpiSparseFactor, VQ_MpiSparseSolve, VQ_MpiSparseRelease). */
VQ_MPI_COMM_PAIR(VQ_MpiDirectSparseSolver, int n /* in */, int firstRow /* in */,
                 int lastRow /* in */, const int* rowPointers /* in */,
                 const int* columnIndices /* in */, const double* values /* in */,
                 int nrhs /* in */, const double* rhs /* in */, double* solution /* out */,
                 int matrixType /* in: 2 or -2 */, int stopIfNotPosDefinite /* in */);

/* Number of eigenvalues of K phi = lambda B phi below sigma (the negative pivots of K - sigma B,
   by Sylvester's law of inertia). B is either a diagonal (massDiagonal: local rows, the other
   three NULL) or distributed rows like K (bRowPointers, bColumnIndices, bValues; massDiagonal
   NULL). */
VQ_MPI_COMM_PAIR(VQ_MpiSturmCount, int n /* in */, int firstRow /* in */, int lastRow /* in */,
                 const int* kRowPointers /* in */, const int* kColumnIndices /* in */,
                 const double* kValues /* in */,
                 const double* massDiagonal /* in: local rows or NULL */,
                 const int* bRowPointers /* in or NULL */,
                 const int* bColumnIndices /* in or NULL */, const double* bValues /* in or NULL */,
                 double sigma /* in */, int* below /* out */);

/* The `requested` eigenvalues of K phi = lambda B phi nearest the shift, by shift-invert
   Lanczos (PARPACK) on the distributed factorisation of K - shift B.
     buckling 0: natural modes, B = M, given as massDiagonal or as distributed rows;
     buckling 1: buckling factors, B = Kg given as distributed rows (shift must not be 0).
   eigenvalues (requested entries, ascending) are the same on every process; modeShapes (local
   rows x requested, or NULL) receive each process's slice of the shapes, M- (or K-) orthonormal.
   maxIterations -1: 100 x requested. *found: the number delivered. *belowShift: eigenvalues
   below the shift (negative pivots of K - shift B). Returns 0, 1 (partial, -22 recorded) or the
   error code. */
VQ_MPI_COMM_PAIR(VQ_MpiEigenvalueAnalysis_Lanczos, int n /* in */, int firstRow /* in */,
                 int lastRow /* in */, const int* kRowPointers /* in */,
                 const int* kColumnIndices /* in */, const double* kValues /* in */,
                 const double* massDiagonal /* in: local rows or NULL */,
                 const int* bRowPointers /* in or NULL */,
                 const int* bColumnIndices /* in or NULL */, const double* bValues /* in or NULL */,
                 int buckling /* in: 0 or 1 */, int requested /* in */, double shift /* in */,
                 int maxIterations /* in */, int* found /* out */,
                 double* eigenvalues /* out: requested */,
                 double* modeShapes /* out: local rows * requested, or NULL */,
                 int* belowShift /* out, or NULL */);

/* y = A x for distributed rows of a symmetric A and distributed slices x, y (local rows each).
   Does not touch the registry except for malformed input (-64, agreed on every process). */
int VQ_MpiSparseSymmMatrixVectorMultiplication(MPI_Comm comm /* in */, int n /* in */, int firstRow /* in */,
                                               int lastRow /* in */, const int* rowPointers /* in */,
                                               const int* columnIndices /* in */, const double* values /* in */,
                                               const double* x /* in: local rows */, double* y /* out: local rows */);

/* PARDISO's statistics of the last factorisation on this process (iparm[14..18], [21], [22],
   [29], [62] and so on; 64 entries, the same on every process). */
void VQ_MpiGetLastSolverParameters(int* parameters /* out: 64 */);

#undef VQ_MPI_COMM_PAIR

#ifdef __cplusplus
}
#endif

#endif /* VQMATH_MPI_H */
