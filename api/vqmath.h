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
/* @@SECTION direct-solution@@ */

/* ============================================================================================ */
/* System matrix and vector handles                                                             */
/* ============================================================================================ */
/* @@SECTION handles@@ */

/* ============================================================================================ */
/* Dense eigenvalue paths (LAPACK and generalized Jacobi)                                       */
/* ============================================================================================ */
/* @@SECTION dense-eigen@@ */

/* ============================================================================================ */
/* Lanczos (ARPACK) eigenvalue entry points                                                     */
/* ============================================================================================ */
/* @@SECTION arpack@@ */

/* ============================================================================================ */
/* Eigenvalue analysis entry points and keyed exchange                                          */
/* ============================================================================================ */
/* @@SECTION eigen-analysis@@ */

#ifdef __cplusplus
}
#endif

#endif /* VQMATH_H */
