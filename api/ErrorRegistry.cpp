// The error and warning registry: the last error and warning with their fixed messages, the
// instability equation and the pivot counts of the last factorisation.
#include <cstdlib>
#include <cstring>

#include "core/GlobalState.h"
#include "vqmath.h"

using vqmath::internal::registry;

namespace {

// The form feed inside the -84 text is deliberate and part of the message (61 characters).
const char kCalledBeforeDecomposition[] =
    "Sparse Solver Called before Decomposition\x0c"
    "actorization Called";

const char* ErrorText(int code) {
  switch (code) {
    case 0: return "";
    case -1: return "Memory Allocation Failed";
    case -2: return "User Cancelled";
    case -3: return "Instability Detected (Ill-conditioned or Singular Matrix Found)";
    case -4: return "Convergence Failed";
    case -5: return "File Not Found";
    case -6: return "File Found but Warning in Reading";
    case -7: return "Division By Zero Detected";
    case -8: return "Incompatible Matrices Detected";
    case -20: return "No Mass Found";
    case -21:
      return "Eigenvalue Solution Failed. This may be due to ill-conditioned stiffness matrix "
             "(inadequately supported structure or near zero Eigenvalue). Please check validity "
             "of the model. A solution with an shifting strategy or other Eigenvalue solvers are "
             "also recommended.";
    case -22: return "Partial Results for Eigenvalue Analysis Found";
    case -23: return "Eigenvalue missed (Subspace Iteration)";
    case -30: return "LAPACK Eigenvalue Solution Failed";
    case -35: return "JACOBI Eigenvalue Solution Failed";
    case -40: return "Ritz Vectors Solution Failed";
    case -45: return "Arnoldi-Lanczos (ARPACK) Solution Failed";
    case -46: return "Arnoldi-Lanczos (ARPACK) Invalid Input Detected";
    case -47:
      return "Arnoldi-Lanczos (ARPACK) solver failed! Buckling factor is approaching zero, check "
             "model for instabilities";
    case -60: return "ERROR_SIZE_OF_SYSTEM";
    case -61: return "ERROR_SIZE_OF_SUBSPACE";
    case -62: return "ERROR_LOWER_UPPER_BOUNDS";
    case -63: return "ERROR_PARDISO_SOLVER";
    case -64: return "ERROR_INVALID_MATRICES";
    case -65: return "ERROR_FEAST_INTERNAL";
    case -66: return "ERROR_INVALID_SPARSE_MATRIX_CREATION";
    case -67: return "WARNING_SMALL_SUBSPACE";
    case -68: return "WARNING_NO_CONVERGING";
    case -69: return "WARNING_NO_EIGENVALUE_FOUND";
    case -80: return "Non-square matrix detected during taking inverse of the matrix";
    case -81: return "Out-of-memory Error (in-core)";
    case -82: return "Out-of-memory Error (out-of-core)";
    case -83: return "Unclassified Sparse Solver Error";
    case -84: return kCalledBeforeDecomposition;
    case -85:
      return "Pivoting Applied for Small or Zero Pivots. Solution Successfully Completed. "
             "Negative Eigenvalues Found.";
    // Band search.
    case -90: return "More Eigenvalues in the Band than the Caller Can Take";
    case -91: return "Eigenvalues of the Band Missed (Sturm Count not Reached)";
    case -92: return "Invalid Band Bounds";
    default: return "Unclassified";
  }
}

// Warning texts end with a tab, which belongs to the message.
const char* WarningText(int code) {
  switch (code) {
    case 0: return "";
    case -23: return "Eigenvalue missed (Subspace Iteration)\t";
    case -24:
      return "Negative shifting applied automatically to find correct Eigenvalues. (Subspace "
             "Iteration)\t";
    default: return "Unclassified";
  }
}

char* CopyForCaller(const std::string& text) {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy) std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

}  // namespace

extern "C" {

int VQ_ResolveEror(int code) {
  registry().errorCode = code;
  registry().errorMessage = ErrorText(code);
  return code;
}

int VQ_ResolveWarning(int code) {
  registry().warningCode = code;
  registry().warningMessage = WarningText(code);
  return code;
}

void VQ_ResetGlobalErrorsAndWarnings(void) { registry() = vqmath::internal::Registry(); }

int VQ_GetLastErrorID(void) { return registry().errorCode; }
char* VQ_GetLastErrorMessage(void) { return CopyForCaller(registry().errorMessage); }
int VQ_GetLastWarningID(void) { return registry().warningCode; }
char* VQ_GetLastWarningMessage(void) { return CopyForCaller(registry().warningMessage); }
int VQ_GetInstabilityDOF(void) { return registry().instabilityDof; }
int VQ_GetNumberOfNegativeEigenvalues(void) { return registry().negativeEigenvalues; }
int VQ_GetNumberOfPositiveEigenvalues(void) { return registry().positiveEigenvalues; }

}  // extern "C"
