/*
 * vqmath.h - the flat C interface of the vqmath library.
 *
 * Sparse direct solution (PARDISO) and generalized symmetric eigenvalue analysis for structural
 * finite-element models. Every function has C linkage; this header compiles as C99 and as C++.
 *
 * Conventions
 *   - All integers are 32-bit (int); all values are double.
 *   - Sparse matrices are the upper triangle in compressed rows with 1-based indices, every row
 *     storing its diagonal first: rowPointers[n+1], columnIndices[nnz], values[nnz].
 *   - Dense arrays are column-major with leading dimension n.
 *   - Every entry point that runs a solver resets the error registry on entry and leaves the
 *     code and message of its outcome there (VQ_GetLastErrorID, VQ_GetLastErrorMessage).
 *   - Strings returned by the library (messages, the working directory) are malloc()ed copies
 *     that the caller owns and releases with free().
 *   - Argument roles are marked in: input, out: output, inout: both.
 */
#ifndef VQMATH_H
#define VQMATH_H

#ifdef __cplusplus
extern "C" {
#endif

/* ============================================================================================ */
/* Error and warning registry                                                                   */
/* ============================================================================================ */

/* Stores code as the last error with its fixed message ("Unclassified" for unknown codes). */
int VQ_ResolveEror(int code /* in */);
/* Stores code as the last warning with its fixed message. */
int VQ_ResolveWarning(int code /* in */);
/* Clears both codes and messages, sets the instability DOF to -1 and both pivot counts to 0. */
void VQ_ResetGlobalErrorsAndWarnings(void);
/* Code of the last error (0 when none). */
int VQ_GetLastErrorID(void);
/* Copy of the last error message; the caller releases it with free(). */
char* VQ_GetLastErrorMessage(void);
/* Code of the last warning (0 when none). */
int VQ_GetLastWarningID(void);
/* Copy of the last warning message; the caller releases it with free(). */
char* VQ_GetLastWarningMessage(void);
/* Equation at which the last factorisation found the matrix singular, or -1. */
int VQ_GetInstabilityDOF(void);
/* Number of negative pivots (eigenvalues) of the last factorisation of an entry point. */
int VQ_GetNumberOfNegativeEigenvalues(void);
/* Number of positive pivots (eigenvalues) of the last factorisation of an entry point. */
int VQ_GetNumberOfPositiveEigenvalues(void);

/* ============================================================================================ */
/* Library lifecycle and solver settings                                                        */
/* ============================================================================================ */

/* Publishes threads and out-of-core sizes, writes the PARDISO, FEAST and Ritz defaults and resets
   the registry. Returns the result of the last environment write (0 on success). */
int VQ_InitializeLibrary(void);
/* Destroys the solver kept by VQ_SysMatrixSolveAdvanced, if any. Returns 0. */
int VQ_ReleaseLibrary(void);
/* Same as VQ_ReleaseLibrary. */
int VQ_ReleaseSolver(void);

/* Copies 64 PARDISO parameters into the global array and marks it as set by the host. */
void VQ_SetGlobalSparseSolverParams(const int* params /* in: 64 */);
/* Copies the 64 global PARDISO parameters to the caller. */
void VQ_GetGlobalSparseSolverParams(int* params /* out: 64 */);
/* Stores one global PARDISO parameter (index 0..63, not checked); marks the array host-set. */
int VQ_SetGlobalSparseSolverParam(int index /* in */, int value /* in */);
/* One global PARDISO parameter (index 0..63, not checked). */
int VQ_GetGlobalSparseSolverParam(int index /* in */);
/* Writes the library's PARDISO defaults into the global array. */
void VQ_Initialize_INTEL_MKL_SparseSolverParams(void);
/* Appends (index, value) to the override list applied by every new sparse solver; returns 0. */
int VQ_OverrideDefaultSparseSolverParam(int index /* in */, int value /* in */);
/* Empties the override list. */
void VQ_ResetOverrideListSparseSolverParam(void);
/* Copies the first count (1..64) parameters of the last sparse solver built; else nothing. */
void VQ_ParamsListSparseSolver(int count /* in */, int* params /* out: count */);

/* Copies 7 FEAST parameters into the global array and marks it as set by the host. */
void VQ_SetGlobalExtendedEigenSparseSolverParams(const int* params /* in: 7 */);
/* Copies the 7 global FEAST parameters to the caller. */
void VQ_GetGlobalExtendedEigenSparseSolverParams(int* params /* out: 7 */);
/* Stores one FEAST parameter (index 0..6, not checked); marks the array host-set; returns 0. */
int VQ_SetGlobalExtendedEigenSparseSolverParam(int index /* in */, int value /* in */);
/* One global FEAST parameter (index 0..6, not checked). */
int VQ_GetGlobalExtendedEigenSparseSolverParam(int index /* in */);
/* Writes the FEAST defaults (0, 8, 12, 20, 0, 0, 5). */
void VQ_Initialize_INTEL_MKL_ExtendedSparseSolverParams(void);

/* Out-of-core mode 0, 1 or 2 (other values ignored); returns the argument. */
int VQ_SetSolverType(int value /* in */);
int VQ_GetSolverType(void);
/* PARDISO matrix type 2 (SPD) or -2 (indefinite) (other values ignored); returns the argument. */
int VQ_SetSolverMatrixType(int value /* in */);
int VQ_GetSolverMatrixType(void);
/* Eigen-solver type 0 subspace, 1 Ritz vectors, 2 FEAST (other values ignored); returns it. */
int VQ_SetEigenSolverType(int value /* in */);
int VQ_GetEigenSolverType(void);
/* Eigenvalue limit of subspace iteration: active when flag is nonzero; limit always stored. */
void VQ_SetSubspaceEigenvalueLimits(int flag /* in */, double limit /* in */);

/* Ritz-vector solution type: 0 stores 0, any nonzero value stores 1; returns the argument. */
int VQ_SetRitzVectorSolutionType(int value /* in */);
int VQ_GetRitzVectorSolutionType(void);
int VQ_SetRitzVectorOrthogonalizeVwrtK(int flag /* in */);
int VQ_GetRitzVectorOrthogonalizeVwrtK(void);
int VQ_SetRitzVectorSelectiveReorthogonalization(int flag /* in */);
int VQ_GetRitzVectorSelectiveReorthogonalization(void);
int VQ_SetRitzVectorAddStaticCorrection(int flag /* in */);
int VQ_GetRitzVectorAddStaticCorrection(void);
/* Writes the Ritz defaults (type 1, orthogonalise wrt K on, selective on, static correction off). */
void VQ_Initialize_RitzVectorsParams(void);

/* Math-library version the library was built against: major, minor, update, build date, number. */
void VQ_GetMKLVersion(int* major, int* minor, int* update, int* buildDate, int* number /* out */);
/* The code path MKL runs in this process, as MKL describes it (for example "Intel(R) Advanced
   Vector Extensions 2 (Intel(R) AVX2) enabled processors"; "Intel(R) Architecture processors" for
   its generic kernels). On AMD processors MKL 2020 runs its generic kernels unless told the
   processor qualifies; the library tells it so, and MKL then uses the AVX2/AVX-512 kernels the
   processor supports (about twice the dense and factorisation speed on AVX-512 processors).
   VQMATH_MKL_FAST_PATH=0 in the environment before the first MKL call keeps MKL's vendor check.
   Writes at most size - 1 characters and a terminating zero into text (may be null); returns the
   length of the full description. */
int VQ_GetMKLCodePath(char* text /* out: size */, int size /* in */);
/* The library's own version: 1, 1, 0, 9, 20170603. */
void VQ_GetMathLibVersion(int* major, int* minor, int* patch, int* build, int* date /* out */);

/* ============================================================================================ */
/* Threads, out-of-core sizes and the working directory                                         */
/* ============================================================================================ */

/* "MKL_NUM_THREADS" = n; remembers n. Returns 0 on success. */
int VQ_Set_INTEL_MKL_NumberOfThreads(int n /* in */);
/* "MKL_NUM_THREADS" = the processor count; remembers nothing. */
int VQ_Set_INTEL_MKL_UseMaxNumberOfThreads(void);
/* "OMP_NUM_THREADS" = n. */
int VQ_Set_INTEL_MKL_OMP_NumberOfThreads(int n /* in */);
/* "MKL_DYNAMIC" = "1" when flag is 1, else "0". */
int VQ_Set_INTEL_MKL_DYNAMIC_PARAMETER(int flag /* in */);
/* "KMP_AFFINITY" = "enabled" when flag is nonzero, else "disabled". */
int VQ_Set_INTEL_MKL_KMP_AFFINITY(int flag /* in */);
/* "MKL_PARDISO_OOC_KEEP_FILE" = "1" when flag is 1, else "0". */
int VQ_Set_INTEL_MKL_OOC_KEEP_FILE(int flag /* in */);
/* "MKL_PARDISO_OOC_MAX_CORE_SIZE" = mb (megabytes); remembers it. */
int VQ_Set_INTEL_MKL_OOC_Max_Core_Size(int mb /* in */);
/* "MKL_PARDISO_OOC_MAX_SWAP_SIZE" = mb; remembers it. */
int VQ_Set_INTEL_MKL_OOC_MAX_SWAP_SIZE(int mb /* in */);
/* Writes the variable named after the domain (0 "MKL_DOMAIN_ALL", 1 "MKL_DOMAIN_BLAS", 2 "MKL_DOMAIN_FFT",
   3 "MKL_DOMAIN_VML", 4 "MKL_DOMAIN_PARDISO") with value n; another domain writes nothing and
   returns the domain. */
int VQ_Set_INTEL_MKL_DOMAIN_NumberOfThreads(int domain /* in */, int n /* in */);
/* Remembered values, not the environment. */
int VQ_Get_INTEL_MKL_NumberOfThreads(void);
int VQ_Get_INTEL_MKL_OOC_Max_Core_Size(void);
int VQ_Get_INTEL_MKL_OOC_Max_Swap_Size(void);

/* Pass-throughs to the math library's thread service functions. */
int VQ_mkl_set_num_threads(int n /* in */);
int VQ_mkl_domain_set_num_threads(int n /* in */, int domain /* in */);
int VQ_mkl_set_num_threads_local(int n /* in */);
int VQ_mkl_set_dynamic(int flag /* in */);
int VQ_mkl_get_max_threads(void);
int VQ_mkl_domain_get_max_threads(int domain /* in */);
int VQ_mkl_get_dynamic(void);

/* Stores the working directory (it should end with "/") and publishes a fresh out-of-core path
   "<dir><guid>_ooc_file" as "MKL_PARDISO_OOC_PATH". Returns the result of the environment write. */
int VQ_SetWorkingDir(const char* dir /* in */);
/* Copy of the working directory; the caller releases it with free(). */
char* VQ_GetWorkingDir(void);

/* ============================================================================================ */
/* Direct solution and product entry points                                                     */
/* ============================================================================================ */
/*
 * K x = F by PARDISO for a symmetric K (upper CSR, 1-based, diagonal first in every row) and
 * nrhs right-hand sides (n x nrhs, column-major). Both functions reset the registry, factor,
 * solve and return 0 or the registry code: -3 singular (VQ_GetInstabilityDOF gives the
 * equation), -81/-82 out of memory in core/out of core, -83 other PARDISO failure, -1 memory.
 * A null solution array makes the solution overwrite rhs; otherwise rhs is left unchanged.
 * Pivot counts of the factorisation: VQ_GetNumberOfNegativeEigenvalues/PositiveEigenvalues; an
 * indefinite K (matrix type -2) solves and leaves warning -85 with the pivoting message.
 * Malformed input - null arrays, n < 1, nrhs < 1, row pointers not starting at 1 or decreasing,
 * a missing diagonal, column indices below the diagonal, beyond n or not ascending, values that
 * are NaN or infinite, a solver type other than 0/1/2 or a matrix type other than 2/-2 - returns -64 with the message
 * "ERROR_INVALID_MATRICES: <what is wrong>" and leaves every caller array untouched.
 */
/* Solves with the process-wide settings: solver type and matrix type (VQ_SetSolverType,
   VQ_SetSolverMatrixType), working directory, and keys 1003-1006, 1009 of VQ_SetParameterB/L.
   With key 1006 on and solver type 2, an out-of-core memory failure is retried once with the
   core size PARDISO asked for. constructorFlag: the solver's initial in-place flag (the solution
   array decides in the end). */
int VQ_SparseSolverDirect(int n /* in */, int nrhs /* in */, const int* rowPointers /* in: n+1 */,
                          const int* columnIndices /* in: nnz */, const double* values /* in: nnz */,
                          double* rhs /* inout: n*nrhs */, int constructorFlag /* in */,
                          double* solution /* out: n*nrhs, or NULL for in place */);
/* Solves with everything given as arguments. parameters receives the 64 PARDISO parameters
   after the factorisation (also when it failed; may be NULL); with diagonalInfo 1 the diagonals of
   K and of its factor are returned in equation order; retryOutOfCore 1 allows one out-of-core
   retry with a larger core size when solverType is 2; messageLevel 1 lets PARDISO print. */
int VQ_DirectSparseSolver(int n /* in */, int nrhs /* in */, const int* rowPointers /* in: n+1 */,
                          const int* columnIndices /* in: nnz */, const double* values /* in: nnz */,
                          double* rhs /* inout: n*nrhs */, int solverType /* in: 0, 1, 2 */,
                          int matrixType /* in: 2 or -2 */, int* parameters /* out: 64 or NULL */,
                          int stopIfNotPosDefinite /* in */, const char* workingDirectory /* in */,
                          int decompositionFlag /* in: 1 factor in the calling thread */,
                          int constructorFlag /* in */,
                          double* solution /* out: n*nrhs, or NULL for in place */,
                          int diagonalInfo /* in: 1 returns the diagonals */,
                          double* diagonalArray1 /* out: n, diagonal of K */,
                          double* diagonalArray2 /* out: n, diagonal of the factor */,
                          int retryOutOfCore /* in */, int messageLevel /* in: 0 or 1 */);

/* Products. They neither reset nor write the registry, except that malformed input (null arrays,
   bad CSR, negative sizes) returns -64 and records it as above. */
/* y = A x for symmetric A (upper CSR): MKL's kernel when useKernel is nonzero, else the
   library's own product (VQ_SparseSymmMatrixVectorMultiplication_NATIVE). */
int VQ_SparseSymmMatrixVectorMultiplication(int useKernel /* in */, int n /* in */,
                                            const double* values /* in */,
                                            const int* rowPointers /* in */,
                                            const int* columnIndices /* in */,
                                            const double* x /* in: n */, double* y /* out: n */);
/* y = A x through the library's sparse matrix class; -1 (y untouched) when memory fails. */
int VQ_SparseSymmMatrixVectorMultiplication_NATIVE(int n /* in */, const double* values /* in */,
                                                   const int* rowPointers /* in */,
                                                   const int* columnIndices /* in */,
                                                   const double* x /* in: n */,
                                                   double* y /* out: n */);
/* y = A x with MKL's symmetric sparse kernel on the upper triangle. */
int VQ_SparseSymmMatrixVectorMultiplication_MKL(int n /* in */, const double* values /* in */,
                                                const int* rowPointers /* in */,
                                                const int* columnIndices /* in */,
                                                const double* x /* in: n */, double* y /* out: n */);
/* Y = A X for ncols columns (n x ncols, column-major); ncols < 1 does nothing and returns 0. */
int VQ_SparseSymmMatrixMatrixMultiplication_MKL(int n /* in */, int ncols /* in */,
                                                const double* values /* in */,
                                                const int* rowPointers /* in */,
                                                const int* columnIndices /* in */,
                                                const double* X /* in: n*ncols */,
                                                double* Y /* out: n*ncols */);
/* C = alpha op(A) op(B) + beta C by cblas_dgemm, column-major. transA/transB: 0 none, 1
   transpose (other values skip the dimension checks; transB 2 asks for the conjugate transpose).
   Dimensions must agree (colsA = rowsB, rowsC = rowsA, colsC = colsB for 0/0, and likewise with
   the transposed sizes), else -1 and C is untouched. Leading dimensions: lda = rowsA, ldc =
   rowsC, ldb = rowsB, but colsB when transB is 1: a transposed B is passed with leading
   dimension colsB. */
int VQ_MatrixMatrixMultiplication_MKL(const double* A /* in */, const double* B /* in */,
                                      double* C /* inout */, int rowsA /* in */, int colsA /* in */,
                                      int rowsB /* in */, int colsB /* in */, int rowsC /* in */,
                                      int colsC /* in */, unsigned char transA /* in */,
                                      unsigned char transB /* in */, double alpha /* in */,
                                      double beta /* in */);

/* Diagnostic dumps in the current directory: "K.mtx" (a symmetric K in upper CSR) and "F.mtx"
   (n x nrhs right-hand sides), MatrixMarket coordinate text. Return 0, -5 when the file cannot
   be opened, -64 for malformed input, -1 when memory fails. Called on request only. */
int VQ_WriteSystemMatrixMTX(int n /* in */, const int* rowPointers /* in */,
                            const int* columnIndices /* in */, const double* values /* in */);
int VQ_WriteLoadMatrixMTX(int n /* in */, int nrhs /* in */, const double* rhs /* in: n*nrhs */);

/* ============================================================================================ */
/* System matrix and vector handles                                                             */
/* ============================================================================================ */
/*
 * A system matrix is a symmetric sparse matrix that the host assembles element by element; a
 * system vector is a dense column. Handles are opaque; the host owns them from Begin/Create/Clone
 * to End. Equation numbers in dof lists are 1-based; 0 marks a dof that takes no part and is
 * skipped. Typical use: Begin, Def(n), PreAssem for every element (reserves the pattern), Assem
 * for every element, then Solve/SolveMult/Prod. The reserved pattern is closed into compressed
 * rows by the first call that needs it (Assem, Init, Prod, Solve, Clone, ...); every equation gets
 * a diagonal entry then, so an equation without stiffness shows as a singular matrix (-3).
 * Only the solving functions report through the registry (-64 for null or mismatched handles).
 */
typedef struct VQ_SysMatrix* VQ_SysMatrixHandle;
typedef struct VQ_SysVector* VQ_SysVectorHandle;
typedef struct VQ_SolProc* VQ_SolProcHandle;
/* Callback of VQ_SysMatrixSetFunction. */
typedef void (*VQ_SysMatrixFunction)(VQ_SysMatrixHandle matrix, void* argument);

/* New empty system matrix (order 0). */
VQ_SysMatrixHandle VQ_SysMatrixBegin(void);
/* Destroys h (NULL is ignored). */
void VQ_SysMatrixEnd(VQ_SysMatrixHandle h /* in */);
/* New matrix with h's order, pattern and values; NULL when h is NULL or memory fails. */
VQ_SysMatrixHandle VQ_SysMatrixClone(VQ_SysMatrixHandle h /* in */);
/* Makes h an empty n x n matrix ready for pre-assembly (previous contents are dropped). */
void VQ_SysMatrixDef(VQ_SysMatrixHandle h /* inout */, int ignored /* in */, int n /* in */);
/* Writes the order of h to *n and returns it. */
int VQ_SysMatrixInq(VQ_SysMatrixHandle h /* in */, int ignored /* in */, int* n /* out */);
/* Reserves entry (i, j), i <= j, for every pair of nonzero equations of dofs (one element). */
void VQ_SysMatrixPreAssem(VQ_SysMatrixHandle h /* inout */, int count /* in */,
                          const int* dofs /* in: count */);
/* Reserves the diagonal entry of every nonzero equation of dofs. */
void VQ_SysMatrixPreAssemDiag(VQ_SysMatrixHandle h /* inout */, int count /* in */,
                              const int* dofs /* in: count */);
/* Adds an element matrix (order count, upper triangle packed by columns: local (a, b), a <= b, at
   1-based position b(b-1)/2 + a) at the equations dofs; entries outside the reserved pattern are
   skipped. */
void VQ_SysMatrixAssem(VQ_SysMatrixHandle h /* inout */, int count /* in */,
                       const int* dofs /* in: count */,
                       const double* elementMatrix /* in: count(count+1)/2 */);
/* Adds values[k] to the diagonal entry of equation dofs[k] (skipped when not reserved). */
void VQ_SysMatrixAssemDiag(VQ_SysMatrixHandle h /* inout */, int count /* in */,
                           const int* dofs /* in: count */, const double* values /* in: count */);
/* Sets every stored value to value. */
void VQ_SysMatrixInit(VQ_SysMatrixHandle h /* inout */, double value /* in */);
/* h += factor * other, position by position (both must have the same pattern, else nothing). */
void VQ_SysMatrixSum(VQ_SysMatrixHandle h /* inout */, double factor /* in */,
                     VQ_SysMatrixHandle other /* in */);
/* y = h x: method 0 the library's own product, otherwise MKL's kernel; y is sized to the order. */
void VQ_SysMatrixProd(VQ_SysMatrixHandle h /* in */, VQ_SysVectorHandle x /* in */,
                      VQ_SysVectorHandle y /* out */, int method /* in */);
/* The same on plain arrays of order n. */
void VQ_SysMatrixProd2(VQ_SysMatrixHandle h /* in */, const double* x /* in: n */,
                       double* y /* out: n */, int method /* in */);
/* Key 18: out-of-core core size (MB); 23: out-of-core mode 1 or 2 into the global PARDISO array;
   93: eigen-solver type by code (5 subspace, 10 FEAST, 6 unchanged, other Ritz vectors). */
void VQ_SysMatrixSetParami(VQ_SysMatrixHandle h /* in */, int key /* in */, int value /* in */);
/* Key 6: subspace eigenvalue limit on, limit = value. */
void VQ_SysMatrixSetParamd(VQ_SysMatrixHandle h /* in */, int key /* in */, double value /* in */);
/* Key 1: calls function(h, argument) at once. */
void VQ_SysMatrixSetFunction(VQ_SysMatrixHandle h /* in */, int key /* in */,
                             VQ_SysMatrixFunction function /* in */, void* argument /* in */);
/* Key 4: non-zeros of the factor (global PARDISO parameter 17); 7: global parameter 29; 15: 1;
   other keys: 0. */
void VQ_SysMatrixGetInteger(VQ_SysMatrixHandle h /* in */, int key /* in */, int* value /* out */);
/* Writes 0.0. */
void VQ_SysMatrixGetDouble(VQ_SysMatrixHandle h /* in */, int key /* in */, double* value /* out */);
/* Writes 0. */
void VQ_SysMatrixGetLong(VQ_SysMatrixHandle h /* in */, int key /* in */, long long* value /* out */);
/* Always 0. */
int VQ_SysMatrixError(void);
/* No effect (kept for hosts that call them). */
void VQ_SysMatrixAbort(VQ_SysMatrixHandle h /* in */);
void VQ_SysMatrixFactor(VQ_SysMatrixHandle h /* in */);
void VQ_SysMatrixProcess(VQ_SysMatrixHandle h /* in */);
void VQ_SysMatrixSetOocFile(VQ_SysMatrixHandle h /* in */, const char* path /* in */);
void VQ_SysMatrixEigenFree(VQ_SysMatrixHandle h /* in */);
/* h solution = rhs with the process-wide solver settings; solution is sized to the order (NULL
   solves in place into rhs). Returns 0 or the registry code (as VQ_SparseSolverDirect). */
int VQ_SysMatrixSolve(VQ_SysMatrixHandle h /* in */, VQ_SysVectorHandle rhs /* inout */,
                      VQ_SysVectorHandle solution /* out, or NULL */);
/* One factorisation, then count solves: solutionVectors[k] = h^-1 rhsVectors[k]. Stops at the
   first failing solve. count 0 factors and returns 0. */
int VQ_SysMatrixSolveMult(VQ_SysMatrixHandle h /* in */, int count /* in */,
                          VQ_SysVectorHandle* rhsVectors /* inout: count */,
                          VQ_SysVectorHandle* solutionVectors /* out: count */);
/* Solves on plain arrays with a solver kept between calls (released by VQ_ReleaseLibrary):
   the first call factors; later calls with refactor 1 take new arrays of the same pattern and
   factor again without a new analysis; with refactor != 1 they ignore their array arguments and
   solve with the rhs/solution buffers of the call that last handed arrays over (the host refills
   them). decompositionFlag 1 factors in the calling thread. NULL solution: in place. */
int VQ_SysMatrixSolveAdvanced(int n /* in */, const double* values /* in */,
                              const int* rowPointers /* in */, const int* columnIndices /* in */,
                              int nrhs /* in */, double* rhs /* inout: n*nrhs */,
                              int decompositionFlag /* in */, int refactor /* in */,
                              double* solution /* out: n*nrhs, or NULL */);
/* Copies column `column` (1..order) of h into out (sized to the order); -64 otherwise. */
int VQ_SysMatrixColumn(VQ_SysMatrixHandle h /* in */, int column /* in */,
                       VQ_SysVectorHandle out /* out */);
/* Copies the diagonal of h into out (sized to the order); -64 for null handles. */
int VQ_SysMatrixDiag(VQ_SysMatrixHandle h /* in */, VQ_SysVectorHandle out /* out */);
/* Lowest nev eigenvalues of h phi = lambda diag(mass) phi by the process-wide eigen-solver type
   (VQ_SetEigenSolverType, or key 93 of VQ_SysMatrixSetParami), solver settings and subspace
   eigenvalue limit (key 6 of VQ_SysMatrixSetParamd): the dispatcher VQ_EigenvalueAnalysis on the
   handle's compressed rows (FEAST searches [0, limit], or all non-negative eigenvalues without a
   limit). mass holds n values. Returns as the dispatcher does. */
int VQ_SysMatrixEigen(VQ_SysMatrixHandle h /* in */, VQ_SysVectorHandle mass /* in */,
                      int nev /* in */, int* found /* out */, double* eigenvalues /* out: nev */,
                      double* modeShapes /* out: n*nev, or NULL */);
/* Read-only view of h's compressed rows (upper triangle, 1-based; the pattern is closed first):
   valid until h changes or is destroyed. Returns 0, or -64 for a null handle or an empty matrix. */
int VQ_SysMatrixGetArrays(VQ_SysMatrixHandle h /* in */, int* n /* out */,
                          const int** rowPointers /* out */, const int** columnIndices /* out */,
                          const double** values /* out */);
/* Solves h solution = rhs again with the factorisation that h keeps from its previous Resolve
   (factoring first when there is none or h changed since). The factorisation is freed by
   VQ_SysMatrixEnd and by any change of h. Returns 0 or the registry code. */
int VQ_SysMatrixResolve(VQ_SysMatrixHandle h /* in */, VQ_SysVectorHandle rhs /* in */,
                        VQ_SysVectorHandle solution /* out */);

/* New vector of one entry 0.0. */
VQ_SysVectorHandle VQ_SysVectorBegin(void);
/* New vector of n entries, all value (NULL when memory fails). */
VQ_SysVectorHandle VQ_SysVectorCreate(int n /* in */, double value /* in */);
/* Destroys v (NULL is ignored). */
void VQ_SysVectorEnd(VQ_SysVectorHandle v /* in */);
/* Resizes v to n entries of 0.0. */
void VQ_SysVectorDef(VQ_SysVectorHandle v /* inout */, int n /* in */);
/* Writes the number of entries to *n and returns it. */
int VQ_SysVectorInq(VQ_SysVectorHandle v /* in */, int* n /* out */);
/* Sets every entry to value. */
void VQ_SysVectorInit(VQ_SysVectorHandle v /* inout */, double value /* in */);
/* target = source (size and values). */
void VQ_SysVectorCopy(VQ_SysVectorHandle target /* out */, VQ_SysVectorHandle source /* in */);
/* v[i] = a[i] + factor b[i] over the entries of v (v may be a or b). */
void VQ_SysVectorAdd(VQ_SysVectorHandle v /* out */, VQ_SysVectorHandle a /* in */,
                     double factor /* in */, VQ_SysVectorHandle b /* in */);
/* Euclidean norm. */
void VQ_SysVectorNorm(VQ_SysVectorHandle v /* in */, int ignored /* in */, double* norm /* out */);
/* Largest absolute entry. */
void VQ_SysVectorLInfNorm(VQ_SysVectorHandle v /* in */, int ignored /* in */, double* norm /* out */);
/* out[k] = v[dofs[k]] (1-based; 0 and out-of-range equations skipped). */
void VQ_SysVectorGather(VQ_SysVectorHandle v /* in */, int count /* in */,
                        const int* dofs /* in: count */, double* out /* out: count */);
/* v[dofs[k]] = in[k] (1-based; 0 and out-of-range equations skipped). */
void VQ_SysVectorScatter(VQ_SysVectorHandle v /* inout */, int count /* in */,
                         const int* dofs /* in: count */, const double* in /* in: count */);
/* v[dofs[k]] += values[k] for every nonzero dofs[k]. */
void VQ_SysVectorAssem(VQ_SysVectorHandle v /* inout */, int count /* in */,
                       const int* dofs /* in: count */, const double* values /* in: count */);
/* Always 0. */
int VQ_SysVectorError(void);

/* Solution procedures: present in the interface, without effect. VQ_SolProcBegin returns NULL. */
VQ_SolProcHandle VQ_SolProcBegin(void);
void VQ_SolProcEnd(VQ_SolProcHandle p /* in */);
void VQ_SolProcDef(VQ_SolProcHandle p /* in */, int kind /* in */);
void VQ_SolProcSetStrategy(VQ_SolProcHandle p /* in */, int strategy /* in */);
void VQ_SolProcInitTimeStep(VQ_SolProcHandle p /* in */, double time /* in */, double step /* in */);
void VQ_SolProcSetParamd(VQ_SolProcHandle p /* in */, int key /* in */, double value /* in */);
void VQ_SolProcExecute(VQ_SolProcHandle p /* in */);
void VQ_SolProcGetSysVector(VQ_SolProcHandle p /* in */, int key /* in */,
                            VQ_SysVectorHandle* v /* out, left unchanged */);
void VQ_SolProcGetDouble(VQ_SolProcHandle p /* in */, int key /* in */,
                         double* value /* out, left unchanged */);

/* ============================================================================================ */
/* Dense eigenvalue paths (LAPACK and generalized Jacobi)                                       */
/* ============================================================================================ */
/* Small generalized problems K phi = lambda M phi solved densely (n x n work arrays), either by
   LAPACK's dsygv or by the library's generalized Jacobi method. Sparse K (and M) are the upper
   triangle in 1-based compressed rows; a diagonal M is an array of n values. Eigenvalues come back
   in ascending order, vectors M-normalised, vector k as the k-th run of n values (column-major
   n x n). Each function resets the registry, clears the n eigenvalue slots, and returns 0, or -30
   "LAPACK Eigenvalue Solution Failed" for any solver failure (the Jacobi paths use that same code
   and text), -64 "ERROR_INVALID_MATRICES: ..." for malformed input (null arrays, n <= 0, bad
   compressed rows, values that are not finite), -1 when the n x n work arrays cannot be
   allocated. A vectors array may be null when the vectors are not wanted. */

/* dsygv on sparse K and diagonal M; vectors copied out when wantVectors is nonzero. */
int VQ_EigenvalueAnalysis_LAPACK(int n /* in */, const int* kRowPointers /* in: n+1 */,
                                 const int* kColumnIndices /* in: nnz */,
                                 const double* kValues /* in: nnz */,
                                 const double* massDiagonal /* in: n */, int wantVectors /* in */,
                                 double* eigenvalues /* out: n */, double* vectors /* out: n*n */);
/* dsygv on sparse K and sparse M. */
int VQ_EigenvalueAnalysis_LAPACK2(int n /* in */, const int* kRowPointers /* in: n+1 */,
                                  const int* kColumnIndices /* in */, const double* kValues /* in */,
                                  const int* mRowPointers /* in: n+1 */,
                                  const int* mColumnIndices /* in */, const double* mValues /* in */,
                                  int wantVectors /* in */, double* eigenvalues /* out: n */,
                                  double* vectors /* out: n*n */);
/* dsygv directly on the caller's dense arrays in row-major layout (upper triangle read); both are
   overwritten by LAPACK's work, and with wantVectors nonzero K holds the eigenvectors as columns
   of the row-major array: K[(i-1)*n + (k-1)] is component i of vector k. */
int VQ_EigenvalueAnalysis_LAPACK3(int n /* in */, double* K /* inout: n*n */,
                                  double* M /* inout: n*n */, int wantVectors /* in */,
                                  double* eigenvalues /* out: n */);
/* Generalized Jacobi on sparse K and diagonal M. */
int VQ_EigenvalueAnalysis_JACOBI(int n /* in */, const int* kRowPointers /* in: n+1 */,
                                 const int* kColumnIndices /* in */, const double* kValues /* in */,
                                 const double* massDiagonal /* in: n */,
                                 double* eigenvalues /* out: n */, double* vectors /* out: n*n */);
/* Generalized Jacobi on sparse K and sparse M. */
int VQ_EigenvalueAnalysis_JACOBI2(int n /* in */, const int* kRowPointers /* in: n+1 */,
                                  const int* kColumnIndices /* in */, const double* kValues /* in */,
                                  const int* mRowPointers /* in: n+1 */,
                                  const int* mColumnIndices /* in */, const double* mValues /* in */,
                                  double* eigenvalues /* out: n */, double* vectors /* out: n*n */);
/* Generalized Jacobi on dense column-major K and M; only their upper triangles are read. */
int VQ_EigenvalueAnalysis_JACOBI3(int n /* in */, const double* K /* in: n*n */,
                                  const double* M /* in: n*n */, double* eigenvalues /* out: n */,
                                  double* vectors /* out: n*n */);

/* ============================================================================================ */
/* Lanczos (ARPACK) eigenvalue entry points                                                     */
/* ============================================================================================ */
/* Natural modes K phi = lambda M phi and buckling modes K phi = lambda Kg phi by implicitly
   restarted Lanczos (ARPACK dsaupd/dseupd) with the sparse direct solver serving every operator
   application: shift-invert on K - shift*M for natural modes, ARPACK's buckling mode on
   K - shift*Kg for buckling (the shift must then be non-zero, e.g. of the order of the expected
   buckling factors). Eigenvalues are accurate to round-off (ARPACK's tolerance is the machine
   precision) and come back in ascending order; mode shapes are M-normalised (natural) or
   K-normalised (buckling), mode k as the k-th run of n values (column-major n x nev).
   The out-of-core mode and PARDISO matrix type are the library's settings (VQ_SetSolverType,
   VQ_SetSolverMatrixType).

   Common arguments:
     n, nev          order of K and number of eigenpairs wanted; nev = n computes n - 1 (ARPACK
                     needs nev < n).
     K, M, Kg        upper triangle in 1-based compressed rows (row pointers n+1, column indices
                     and values nnz); a diagonal matrix is an array of n values.
     mode            spectrum selector on the transformed problem: 1 "SA", 2 "LA", 3 "SM",
                     4 "LM" (the eigenvalues nearest the shift: the usual choice), 5 "BE"; any
                     other value is taken as 4.
     selector        0 natural modes, 1 buckling modes, 2 natural modes eigenvalues only,
                     3 buckling modes eigenvalues only; any other value is taken as 0. Bit 0
                     chooses the problem where the entry point offers both, bit 1 suppresses the
                     mode shapes.
     maxIterations   ARPACK restart iterations; -1 (or any value < 1) for 100 * nev.
     blockSize       modes per pass of the incremental variants (>= 2). The first pass runs at
                     the shift, later passes move the shift upward past the modes found; each new
                     mode is checked against those found by the modal assurance criterion (MAC
                     > 0.99 found before, <= 0.01 new, between: failure -45).
     found           number of eigenpairs delivered (may be null).
     eigenvalues     nev values, cleared on entry; modeShapes n*nev values or null.
     shift           sigma of the spectral transformation.
     workingDirectory folder for out-of-core files of the factorisation (null: current folder).
     verbose         nonzero prints the progress of the incremental passes to standard output.

   Returns 0 on success; 1 with error -22 "Not all required EigenValues were found" in the
   registry when fewer eigenpairs than requested converged (at least one; they are delivered);
   otherwise the negative code, with the driver's text as the registry message:
     -1  "Memory Allocation Error (insuffcient memory)"     -2  "Analysis Canceled by User"
     -3  "Instability Detected (ill-conditioned matrices)", instability DOF set
     -45 ARPACK's failure text, "ARPACK failed to Find Eigenvectors" or the MAC failure text
     -46 invalid input: ARPACK's input texts (e.g. "No. of equations N must be positive"),
         "Cannot use ARPACK buckling mode (mode 4) without a shift (shift cannot be zero)",
         "Incremental solver requires block size greater than or equal to 2"
     -47 "Buckling factor is approaching zero, check model for instabilities"
     -64 "ERROR_INVALID_MATRICES: ..." for malformed arrays (null, bad compressed rows, not finite)
     -80 ... -85 a failed factorisation, with the sparse solver's message. */

/* K sparse, second matrix diagonal: M (selector 0, 2) or Kg (selector 1, 3). */
int VQ_EigenvalueAnalysis_ARPACK(int n /* in */, int nev /* in */,
                                 const int* kRowPointers /* in: n+1 */,
                                 const int* kColumnIndices /* in */, const double* kValues /* in */,
                                 const double* bDiagonal /* in: n, M or Kg */, int mode /* in */,
                                 int selector /* in */, int maxIterations /* in */,
                                 int* found /* out, may be null */,
                                 double* eigenvalues /* out: nev */,
                                 double* modeShapes /* out: n*nev, may be null */,
                                 double shift /* in */, const char* workingDirectory /* in */,
                                 int verbose /* in */);
/* K sparse, second matrix sparse: M (selector 0, 2) or Kg (selector 1, 3). */
int VQ_EigenvalueAnalysis_ARPACK2(int n /* in */, int nev /* in */,
                                  const int* kRowPointers /* in: n+1 */,
                                  const int* kColumnIndices /* in */, const double* kValues /* in */,
                                  const int* bRowPointers /* in: n+1, M or Kg */,
                                  const int* bColumnIndices /* in */, const double* bValues /* in */,
                                  int mode /* in */, int selector /* in */,
                                  int maxIterations /* in */, int* found /* out, may be null */,
                                  double* eigenvalues /* out: nev */,
                                  double* modeShapes /* out: n*nev, may be null */,
                                  double shift /* in */, const char* workingDirectory /* in */,
                                  int verbose /* in */);
/* Natural modes in passes of blockSize modes (K and M sparse); selector bit 1 suppresses the
   mode shapes, bit 0 is ignored. */
int VQ_EigenvalueAnalysis_ARPACK3(int n /* in */, int nev /* in */,
                                  const int* kRowPointers /* in: n+1 */,
                                  const int* kColumnIndices /* in */, const double* kValues /* in */,
                                  const int* mRowPointers /* in: n+1 */,
                                  const int* mColumnIndices /* in */, const double* mValues /* in */,
                                  int mode /* in */, int selector /* in */,
                                  int maxIterations /* in */, int blockSize /* in */,
                                  int* found /* out, may be null */,
                                  double* eigenvalues /* out: nev */,
                                  double* modeShapes /* out: n*nev, may be null */,
                                  double shift /* in */, const char* workingDirectory /* in */,
                                  int verbose /* in */);
/* The structural model as most hosts hold it: K sparse, lumped (diagonal) M and sparse Kg; the
   selector chooses natural modes (uses M; Kg may be null) or buckling modes (uses Kg; M may be
   null). */
int VQ_EigenvalueAnalysis_ARPACK4(int n /* in */, int nev /* in */,
                                  const int* kRowPointers /* in: n+1 */,
                                  const int* kColumnIndices /* in */, const double* kValues /* in */,
                                  const double* massDiagonal /* in: n */,
                                  const int* gRowPointers /* in: n+1 */,
                                  const int* gColumnIndices /* in */, const double* gValues /* in */,
                                  int mode /* in */, int selector /* in */,
                                  int maxIterations /* in */, int* found /* out, may be null */,
                                  double* eigenvalues /* out: nev */,
                                  double* modeShapes /* out: n*nev, may be null */,
                                  double shift /* in */, const char* workingDirectory /* in */,
                                  int verbose /* in */);
/* Buckling modes in passes of blockSize modes (K and Kg sparse, shift non-zero); selector bit 1
   suppresses the mode shapes, bit 0 is ignored. */
int VQ_EigenvalueAnalysis_ARPACK5(int n /* in */, int nev /* in */,
                                  const int* kRowPointers /* in: n+1 */,
                                  const int* kColumnIndices /* in */, const double* kValues /* in */,
                                  const int* gRowPointers /* in: n+1 */,
                                  const int* gColumnIndices /* in */, const double* gValues /* in */,
                                  int mode /* in */, int selector /* in */,
                                  int maxIterations /* in */, int blockSize /* in */,
                                  int* found /* out, may be null */,
                                  double* eigenvalues /* out: nev */,
                                  double* modeShapes /* out: n*nev, may be null */,
                                  double shift /* in */, const char* workingDirectory /* in */,
                                  int verbose /* in */);

/* ============================================================================================ */
/* Block shift-invert Lanczos eigenvalue entry points                                           */
/* ============================================================================================ */
/* Natural modes K phi = lambda M phi and buckling modes K phi = lambda Kg phi by thick-restart
   block Lanczos on a shift-invert operator: K - shift*M (K - shift*Kg) is factored once by the
   sparse direct solver (out of core when the library's solver type says so, with one retry that
   enlarges the out-of-core memory), and the Krylov space grows by blocks of blockSize vectors,
   each block one solve with blockSize right-hand sides. The eigenvalues nearest the shift are
   found (for shift <= the lowest eigenvalue: the lowest ones), repeated eigenvalues with their
   multiplicity; every returned pair satisfies ||K phi - lambda B phi|| / (||K||_1 ||phi||) <=
   1e-10. Eigenvalues come back in ascending order; mode shapes are M-normalised (natural) or
   K-normalised (buckling), mode k as the k-th run of n values (column-major n x nev). Rigid-body
   modes need a negative shift (K itself is singular). Buckling at shift 0 works on K^-1 Kg (the
   buckling factors smallest in magnitude); a non-zero shift selects those nearest it.

   Common arguments:
     n, nev          order of K and number of eigenpairs wanted (at most n; for a diagonal M at
                     most the number of non-zero masses).
     K, M, Kg        upper triangle in 1-based compressed rows (row pointers n+1, column indices
                     and values nnz); the diagonal M is an array of n values.
     selector        0 natural modes, 1 buckling modes, 2 natural modes eigenvalues only,
                     3 buckling modes eigenvalues only; any other value is taken as 0 (as the
                     ARPACK entry points number it).
     blockSize       vectors per block; 0 lets the library choose (from nev, 4 to 16); values
                     above n are reduced to n; negative values are invalid (-64).
     maxIterations   restart cycles; 0 or less for the library's limit (300).
     found           number of eigenpairs delivered (may be null).
     eigenvalues     nev values, cleared on entry; modeShapes n*nev values or null.
     shift           sigma of the spectral transformation.
     limitActive     1: no eigenvalue above limit is sought; the search ends once the pairs up to
     limit           the first one above it have converged (fewer than nev is then a full result).
     workingDirectory folder for out-of-core files of the factorisation (null: current folder).
     sturmCount      out, may be null: -1 when the results were not verified; otherwise the
                     number of eigenvalues below a shift just above the largest one returned
                     (relative 1e-6), from the inertia of one more factorisation. Verification
                     is on when VQ_SetEigenVerification(1) was called. A count
                     that shows an eigenvalue between the shift and the largest one returned that
                     was not found is warning -23.

   Returns 0 on success; 1 with error -22 in the registry when fewer eigenpairs than requested
   converged within the restart limit (at least one; they are delivered); otherwise the negative
   code: -1 memory, -2 / -3 / -9999 a failed factorisation (-3 with the instability equation in
   VQ_GetInstabilityDOF), -20 no non-zero mass, -21 no pair converged, -64
   "ERROR_INVALID_MATRICES: ..." for invalid input (n < 1, nev < 1, a missing eigenvalue array,
   malformed compressed rows, NaN or infinite values, a negative block size). */

/* K sparse, M diagonal: natural modes. */
int VQ_EigenvalueAnalysis_BlockLanczos(int n /* in */, int nev /* in */,
                                       const int* kRowPointers /* in: n+1 */,
                                       const int* kColumnIndices /* in */,
                                       const double* kValues /* in */,
                                       const double* massDiagonal /* in: n */,
                                       int blockSize /* in: 0 = chosen by the library */,
                                       int maxIterations /* in */,
                                       int* found /* out, may be null */,
                                       double* eigenvalues /* out: nev */,
                                       double* modeShapes /* out: n*nev, may be null */,
                                       double shift /* in */, int limitActive /* in */,
                                       double limit /* in */,
                                       const char* workingDirectory /* in */,
                                       int* sturmCount /* out, may be null */);
/* K sparse, second matrix sparse: M (selector 0, 2) or Kg (selector 1, 3). */
int VQ_EigenvalueAnalysis_BlockLanczos2(int n /* in */, int nev /* in */,
                                        const int* kRowPointers /* in: n+1 */,
                                        const int* kColumnIndices /* in */,
                                        const double* kValues /* in */,
                                        const int* bRowPointers /* in: n+1, M or Kg */,
                                        const int* bColumnIndices /* in */,
                                        const double* bValues /* in */, int selector /* in */,
                                        int blockSize /* in: 0 = chosen by the library */,
                                        int maxIterations /* in */,
                                        int* found /* out, may be null */,
                                        double* eigenvalues /* out: nev */,
                                        double* modeShapes /* out: n*nev, may be null */,
                                        double shift /* in */, int limitActive /* in */,
                                        double limit /* in */,
                                        const char* workingDirectory /* in */,
                                        int* sturmCount /* out, may be null */);

/* ============================================================================================ */
/* Eigenvalue analysis entry points and keyed exchange                                          */
/* ============================================================================================ */
/* Common frame: each function resets the registry, clears the nev eigenvalue slots and the count
   output, checks its input (-64 "ERROR_INVALID_MATRICES: <what>" for n < 1, nev < 1, missing or
   malformed compressed rows, NaN or infinite values), builds the solver on copies of the caller's
   arrays, runs it and copies at most nev eigenvalues (ascending) and, on request, as many mode
   shapes (n values each, mode after mode) into the caller's arrays. Returns 0 on success, 1 with
   error -22 recorded when only part of the requested eigenvalues was found (those are copied),
   -1 when the solver cannot be built, otherwise the solver's status (with the instability
   equation in VQ_GetInstabilityDOF for -3). oocMode and matrixType are PARDISO's out-of-core mode
   (0, 1, 2) and matrix type (2, -2) for the factorisations; workingDirectory (ending with "/")
   receives work files. */

/* Lowest eigenpairs of K phi = lambda M phi (M diagonal) by subspace iteration with automatic
   shifting and a Sturm-sequence check. limitActive/limit: stop once an eigenvalue above limit is
   found. allowRigidBodyModes: 1 skips the check that K is positive definite. shift: first pass's
   shift (0 = none). overrideFlag 1: overrideCount eigenpairs are sought instead of nev (at most nev
   are copied out). tolerance: relative convergence tolerance (<= 0 keeps 1e-6). When an unshifted
   run finds nothing, it is retried once at shift -0.1 and warning -24 is recorded; a missed
   eigenvalue found by the Sturm check is warning -23. */
int VQ_EigenvalueAnalysis_SubSpaceSolver(int n /* in */, int nev /* in */,
                                         const int* kRowPointers /* in: n+1 */,
                                         const int* kColumnIndices /* in */,
                                         const double* kValues /* in */,
                                         const double* massDiagonal /* in: n */, int oocMode /* in */,
                                         int matrixType /* in */,
                                         const char* workingDirectory /* in */,
                                         int limitActive /* in */, double limit /* in */,
                                         int allowRigidBodyModes /* in */, int* found /* out */,
                                         double* eigenvalues /* out: nev */,
                                         int wantModeShapes /* in: 1 = deliver */,
                                         double* modeShapes /* out: n*nev */, double shift /* in */,
                                         int overrideFlag /* in */, int overrideCount /* in */,
                                         double tolerance /* in */);
/* The same with a sparse mass matrix M (upper CSR). */
int VQ_EigenvalueAnalysis_SubSpaceSolver2(
    int n /* in */, int nev /* in */, const int* kRowPointers /* in: n+1 */,
    const int* kColumnIndices /* in */, const double* kValues /* in */,
    const int* mRowPointers /* in: n+1 */, const int* mColumnIndices /* in */,
    const double* mValues /* in */, int oocMode /* in */, int matrixType /* in */,
    const char* workingDirectory /* in */, int limitActive /* in */, double limit /* in */,
    int allowRigidBodyModes /* in */, int* found /* out */, double* eigenvalues /* out: nev */,
    int wantModeShapes /* in */, double* modeShapes /* out: n*nev */, double shift /* in */,
    int overrideFlag /* in */, int overrideCount /* in */, double tolerance /* in */);

/* Load-dependent Ritz vectors (M diagonal): nev M-orthonormal vectors generated from a load
   pattern, with the eigenvalue estimates of the reduced problem. loadFlag nonzero: load holds n
   values (else a vector of ones is used); vectorKind 1 takes the load as given, any other value
   multiplies the pattern by M first. The Ritz options and solution type come from the process-wide
   settings (VQ_SetRitzVector...). limitActive/limit as for subspace iteration. */
int VQ_EigenvalueAnalysis_RitzVectorSolver(int n /* in */, int nev /* in */,
                                           const int* kRowPointers /* in: n+1 */,
                                           const int* kColumnIndices /* in */,
                                           const double* kValues /* in */,
                                           const double* massDiagonal /* in: n */,
                                           int oocMode /* in */, int matrixType /* in */,
                                           const char* workingDirectory /* in */,
                                           int limitActive /* in */, double limit /* in */,
                                           int loadFlag /* in */, const double* load /* in: n */,
                                           int vectorKind /* in */, int* found /* out */,
                                           double* eigenvalues /* out: nev */,
                                           int wantModeShapes /* in: 1 = deliver */,
                                           double* modeShapes /* out: n*nev */);
/* The same with a sparse mass matrix M (upper CSR). */
int VQ_EigenvalueAnalysis_RitzVectorSolver2(
    int n /* in */, int nev /* in */, const int* kRowPointers /* in: n+1 */,
    const int* kColumnIndices /* in */, const double* kValues /* in */,
    const int* mRowPointers /* in: n+1 */, const int* mColumnIndices /* in */,
    const double* mValues /* in */, int oocMode /* in */, int matrixType /* in */,
    const char* workingDirectory /* in */, int limitActive /* in */, double limit /* in */,
    int loadFlag /* in */, const double* load /* in: n */, int vectorKind /* in */,
    int* found /* out */, double* eigenvalues /* out: nev */, int wantModeShapes /* in */,
    double* modeShapes /* out: n*nev */);

/* Eigenpairs with eigenvalues in [emin, emax] by FEAST (sparse M), searched in four equal
   sub-intervals from the lowest up until nev are collected. storeVectors nonzero with a modeShapes
   array delivers the vectors. FEAST parameters set by the host (VQ_SetGlobalExtended...) are
   used. Errors -60...-69 are FEAST's (-62 for emin >= emax). */
int VQ_EigenvalueAnalysis_ExtendedSolver(
    int n /* in */, int nev /* in */, const int* kRowPointers /* in: n+1 */,
    const int* kColumnIndices /* in */, const double* kValues /* in */,
    const int* mRowPointers /* in: n+1 */, const int* mColumnIndices /* in */,
    const double* mValues /* in */, int oocMode /* in */, int matrixType /* in */,
    const char* workingDirectory /* in */, double emin /* in */, double emax /* in */,
    int* found /* out */, double* eigenvalues /* out: nev */, int storeVectors /* in */,
    double* modeShapes /* out: n*nev */);

/* Dispatcher by eigen-solver type (M diagonal): 0 subspace iteration (allowRigidBodyModes, shift,
   limit used), 1 Ritz vectors (load may be null: ones; limit used), 2 FEAST on [emin, emax];
   any other type records -9999 "Unclassified" and returns -9999. */
int VQ_EigenvalueAnalysis(int eigenSolverType /* in */, int n /* in */, int nev /* in */,
                          const int* kRowPointers /* in: n+1 */, const int* kColumnIndices /* in */,
                          const double* kValues /* in */, const double* massDiagonal /* in: n */,
                          int oocMode /* in */, int matrixType /* in */,
                          const char* workingDirectory /* in */, int limitActive /* in */,
                          double limit /* in */, int allowRigidBodyModes /* in */,
                          int* found /* out */, double* eigenvalues /* out: nev */,
                          int wantModeShapes /* in */, double* modeShapes /* out: n*nev */,
                          double shift /* in */, double emin /* in */, double emax /* in */,
                          const double* load /* in: n, or null */);

/* Keyed settings. L: 1001 solver type, 1002 matrix type, 1009 PARDISO message level of
   VQ_SparseSolverDirect (0, 1). B: 1003 stop if not positive definite, 1004 factor in the
   calling thread, 1005 collect the diagonals of K and of the factor, 1006 allow the out-of-core
   retry (all for VQ_SparseSolverDirect). C: 1008 working directory. Other keys, and the D, LA,
   DA, BA, CA forms, have no effect. */
void VQ_SetParameterL(int key /* in */, int value /* in */);
void VQ_SetParameterB(int key /* in */, int flag /* in */);
void VQ_SetParameterC(int key /* in */, const char* text /* in */);
void VQ_SetParameterD(int key /* in */, double value /* in */);
void VQ_SetParameterLA(int key /* in */, int count /* in */, const int* values /* in */);
void VQ_SetParameterDA(int key /* in */, int count /* in */, const double* values /* in */);
void VQ_SetParameterBA(int key /* in */, int count /* in */, const int* values /* in */);
void VQ_SetParameterCA(int key /* in */, int count /* in */, const char* const* texts /* in */);
/* Keyed results of the last VQ_SparseSolverDirect: 1010 its 64 PARDISO parameters (IA); 1013 the
   diagonal of K, 1014 the diagonal of the factor, in equation order (DA). Copies the first count
   values and returns 1; returns 0 (nothing copied) when count exceeds what is held; unknown keys
   and count < 1 copy nothing and return 1. LA has no results and returns 1. */
int VQ_GetResultsIA(int key /* in */, int count /* in */, int* values /* out: count */);
int VQ_GetResultsDA(int key /* in */, int count /* in */, double* values /* out: count */);
int VQ_GetResultsLA(int key /* in */, int count /* in */, int* values /* out: count */);

/* ============================================================================================ */
/* Verification of eigen solutions                                                              */
/* ============================================================================================ */

/* Number of eigenvalues of K phi = lambda M phi below sigma, from the inertia of K - sigma M
   (its negative pivots, one factorisation): with M positive semi-definite every eigenvalue below
   sigma; for a positive definite K and sigma > 0, those in (0, sigma). M as its diagonal. Uses the
   library's out-of-core mode and working directory. A sigma on an eigenvalue (within rounding)
   is no failure: the pivot of that eigenvalue is perturbed and falls on one side, usually giving
   the count strictly below sigma; move sigma off the eigenvalues for an exact count. Returns 0,
   -64 for malformed input, or the factorisation's code (-3 where PARDISO itself fails on a zero
   pivot, with the instability DOF; -1 and -81 to -83 as for the direct solution). */
int VQ_SturmCount(int n /* in */, const int* kRowPointers /* in: n+1 */,
                  const int* kColumnIndices /* in */, const double* kValues /* in */,
                  const double* massDiagonal /* in: n */, double sigma /* in */,
                  int* count /* out */);
/* The same with M sparse (upper triangle, compressed rows, 1-based). */
int VQ_SturmCount2(int n /* in */, const int* kRowPointers /* in: n+1 */,
                   const int* kColumnIndices /* in */, const double* kValues /* in */,
                   const int* mRowPointers /* in: n+1 */, const int* mColumnIndices /* in */,
                   const double* mValues /* in */, double sigma /* in */, int* count /* out */);
/* Participation factors Gamma_i = phi_i' M r / (phi_i' M phi_i) and effective-mass fractions
   (phi_i' M r)^2 / (phi_i' M phi_i) / (r' M r) of nModes mode shapes along the direction r; M as
   its diagonal. Either output may be null. Returns 0, -64 for malformed input or a mass that shows
   itself not positive semi-definite, -7 when r' M r = 0 or a mode carries no mass. */
int VQ_EffectiveMass(int n /* in */, int nModes /* in */,
                     const double* modeShapes /* in: n*nModes column-major */,
                     const double* massDiagonal /* in: n */, const double* direction /* in: n */,
                     double* participation /* out: nModes, may be null */,
                     double* effectiveMassFraction /* out: nModes, may be null */);
/* The same with M sparse. */
int VQ_EffectiveMass2(int n /* in */, int nModes /* in */,
                      const double* modeShapes /* in: n*nModes column-major */,
                      const int* mRowPointers /* in: n+1 */, const int* mColumnIndices /* in */,
                      const double* mValues /* in */, const double* direction /* in: n */,
                      double* participation /* out: nModes, may be null */,
                      double* effectiveMassFraction /* out: nModes, may be null */);
/* Process-wide switch, off at load: when on, the Lanczos (ARPACK) natural-mode and FEAST entry
   points count the eigenvalues from the lowest they claim to just above the highest they
   returned; a missed eigenvalue leaves warning -23, values that are not eigenvalues (a mass that
   is not positive semi-definite) end the run with -64 and a message saying so. Values other than
   0 and 1 are ignored. */
void VQ_SetEigenVerification(int on /* in: 0 off (default), 1 on */);
int VQ_GetEigenVerification(void);

/* ---- What the library calls singular ----------------------------------------------------------
   A factored matrix is singular - code -3 "Instability Detected (Ill-conditioned or Singular Matrix
   Found)" with VQ_GetInstabilityDOF() the host's 1-based equation - when an equation has no
   stiffness (zero or missing diagonal entry) or when a pivot of its factorisation is smaller than
   the singular pivot ratio times that equation's diagonal entry. One rule for every path: the
   direct solutions, the system-matrix solves, the rigid-body check and shifted factorisations of
   the eigen solvers (a shifted K - sigma M is judged as itself).
   Default 1e-10, between the two kinds of model: a mechanism or rigid-body mode leaves a pivot
   at the rounding level, which grows with the model (measured: 1e-15 on small models, 1e-13 on
   a free solid of 30 000 equations, 3e-11 on one of 300 000), while supported models keep
   ratios of 5e-10 and above (a stiff part 1e8 times stiffer than its soft supports 5e-10, a
   slender beam of 1000 elements 2e-9, penalty supports of 1e12 k 5e-2). Lower it for stiffness
   contrasts beyond 1e8, raise it for free bodies of millions of equations.
   Set: 0 <= ratio < 1 (0 judges by zero diagonals alone); other values are ignored. Returns the
   value in force. Solvers built afterwards use it. */
double VQ_SetSingularPivotRatio(double ratio /* in */);
double VQ_GetSingularPivotRatio(void);

/* ============================================================================================ */
/* Band eigenvalue analysis and residual (missing-mass) modes                                   */
/* ============================================================================================ */

/* Every eigenpair of K*phi = lambda*M*phi with lower <= lambda <= upper, and the exact number of
   them proven by inertia (Sturm) counts: the negative pivots of K - sigma*M factored at both
   ends. A band holding more than about 120 modes (fewer above about 500,000 equations, so
   that a slice's vectors stay within about 2 GB) is cut into slices at shifts chosen from the
   counts (bisection), each slice is solved by block shift-invert Lanczos around its own shift and
   checked against its counts; repeated eigenvalues at a slice border are kept once. Mode shapes
   are M-normalised, eigenvalues ascending.
     n                      order of K (and M)
     K                      upper triangle, 1-based compressed rows
     massDiagonal           lumped mass, n values (_Band); _Band2 takes M in compressed rows
     lower                  lambda_a; -DBL_MAX (or -INFINITY, or any value below the spectrum)
                            means "every eigenvalue below upper"; a band starting below 0
                            holds a free structure's rigid-body modes
     upper                  lambda_b, finite, not below lower; an eigenvalue on an edge (to 1e-9
                            relative) is inside the band
     maxModes               the most eigenpairs the caller's arrays take
     bandCount              the exact count of eigenvalues in the band, also when it exceeds
                            maxModes
     found                  the eigenpairs delivered (= bandCount on success)
     eigenvalues            maxModes doubles (cleared on entry); modeShapes n*maxModes doubles or
                            null (no shapes); nothing is written past found entries
     workingDirectory       folder for out-of-core files; null: the library's working directory
   The library's out-of-core mode (VQ_SetParameterL 1001) applies. Returns 0 (also for an empty
   band: bandCount 0), or: -90 the band holds more than maxModes (bandCount set, nothing else
   written); -91 a slice did not yield the modes its counts prove; -92 invalid bounds (NaN, lower
   above upper, upper not finite); -64 invalid arrays; -3 a singular factorisation (instability
   DOF); -81/-82/-83 other sparse solver failures; -45 a Lanczos failure; -1 memory. */
int VQ_EigenvalueAnalysis_Band(int n /* in */, const int* kRowPointers /* in: n+1 */,
                               const int* kColumnIndices /* in */, const double* kValues /* in */,
                               const double* massDiagonal /* in: n */, double lower /* in */,
                               double upper /* in */, int maxModes /* in */,
                               int* bandCount /* out */, int* found /* out */,
                               double* eigenvalues /* out: maxModes */,
                               double* modeShapes /* out: n*maxModes, or null */,
                               const char* workingDirectory /* in, or null */);
int VQ_EigenvalueAnalysis_Band2(int n /* in */, const int* kRowPointers /* in: n+1 */,
                                const int* kColumnIndices /* in */, const double* kValues /* in */,
                                const int* mRowPointers /* in: n+1 */,
                                const int* mColumnIndices /* in */, const double* mValues /* in */,
                                double lower /* in */, double upper /* in */, int maxModes /* in */,
                                int* bandCount /* out */, int* found /* out */,
                                double* eigenvalues /* out: maxModes */,
                                double* modeShapes /* out: n*maxModes, or null */,
                                const char* workingDirectory /* in, or null */);

/* The Sturm proof of the last VQ_EigenvalueAnalysis_Band/_Band2 call, one slice after the other
   (ascending): bounds[3*i .. 3*i+2] = the slice's lower end, upper end and shift; counts[4*i ..
   4*i+3] = eigenvalues below its lower end, below its upper end and below its shift (negative
   pivots of K - sigma*M), and the eigenpairs found in it. Copies at most maxSlices slices (either
   array may be null) and returns the number of slices held (0 before any band call or for an
   empty band). */
int VQ_GetBandSlices(int maxSlices /* in */, double* bounds /* out: 3*maxSlices, or null */,
                     int* counts /* out: 4*maxSlices, or null */);

/* The residual (missing-mass) mode of a direction r (e.g. a unit translation per dof) for nModes
   M-normalised modes: r_perp = r - Phi*Phi'*M*r, M-normalised, M-orthogonal to the modes. Its
   effective mass (psi'*M*r)^2 is exactly what the modes miss of r'*M*r, so modes + residual mode
   hold 100 % of the mass in that direction (the static response K^-1*M*r_perp would hold less
   unless parallel to r_perp). Its eigenvalue is the one with which this single mode reproduces
   the static response that the missing modes contribute along r_perp:
   lambda = sigma + r_perp'*M*r_perp / (r_perp'*M*(K - sigma*M)^-1*M*r_perp), a weighted
   harmonic mean of the missing eigenvalues, from one factorisation of K (sigma = 0), or of
   K - sigma*M with a small sigma < 0 when K is singular (free structure).
     modeShapes             n*nModes, M-normalised (nModes may be 0)
     direction              n values
     residualMode           out: n values (zeros when the modes already hold the whole mass)
     residualEigenvalue     out: its eigenvalue
     effectiveMassFraction  out: its effective mass / r'*M*r
   Returns 0, -20 no mass in the direction, -64 invalid arrays (or a mass that shows itself not
   positive semi-definite, or values whose products overflow), -3 an indefinite or singular
   factorisation, -81/-82/-83 sparse solver failures, -1 memory. */
int VQ_ResidualMode(int n /* in */, const int* kRowPointers /* in: n+1 */,
                    const int* kColumnIndices /* in */, const double* kValues /* in */,
                    const double* massDiagonal /* in: n */, int nModes /* in */,
                    const double* modeShapes /* in: n*nModes */, const double* direction /* in: n */,
                    double* residualMode /* out: n */, double* residualEigenvalue /* out */,
                    double* effectiveMassFraction /* out */);
int VQ_ResidualMode2(int n /* in */, const int* kRowPointers /* in: n+1 */,
                     const int* kColumnIndices /* in */, const double* kValues /* in */,
                     const int* mRowPointers /* in: n+1 */, const int* mColumnIndices /* in */,
                     const double* mValues /* in */, int nModes /* in */,
                     const double* modeShapes /* in: n*nModes */,
                     const double* direction /* in: n */, double* residualMode /* out: n */,
                     double* residualEigenvalue /* out */, double* effectiveMassFraction /* out */);

#ifdef __cplusplus
}
#endif

#endif /* VQMATH_H */
