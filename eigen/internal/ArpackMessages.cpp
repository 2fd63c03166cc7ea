// Texts and status codes of the Lanczos (ARPACK) driver; see ArpackMessages.h.
#include "eigen/internal/ArpackMessages.h"

namespace vqmath {
namespace eigen_internal {

const char* const kTextNoMemory = "Memory Allocation Error (insuffcient memory)";
const char* const kTextNotAllFound = "Not all required EigenValues were found";
const char* const kTextShiftFailedMass = "Failed to shift matrix K with -sigma*M";
const char* const kTextShiftFailedGeometric = "Failed to shift matrix K with -sigma*Kg";

bool ArpackInfoText(int info, std::string& text) {
  const char* t = nullptr;
  switch (info) {
    case 1: t = "Maximum number of iterations taken"; break;
    case 3:
      t = "No shifts could be applied, Try increasing no. of computation vectors NCV relative "
          "to no. of requested eigenvalues NEV";
      break;
    case -1: t = "No. of equations N must be positive"; break;
    case -2: t = "No. of requested eigenvalues NEV must be positive"; break;
    case -3:
    case -4:
      // "no. ofrequested" (no blank) is the text as hosts know it.
      t = "No. of computation vectors NCV must be greater than no. ofrequested eigenvalues NEV "
          "and less than or equal to No. of equations N";
      break;
    case -5: t = "Incorrect Criteria"; break;
    case -6: t = "Incorrect B matrix type"; break;
    case -7: t = "length of private array workL is not sufficient "; break;
    case -8: t = "LAPACK error"; break;
    case -9: t = "Starting vector is zero"; break;
    case -10: t = "Incorrect mode, mode shall be in the range 1-5"; break;
    case -11:
      t = "For mode 1, B has to be identity (eigenvalue problem is not a generalized one)";
      break;
    case -12: t = "Implicit shifts index has to either be 0 (user provided)  or 1 (exact)"; break;
    case -13:
      t = "No. of required eigenvalues is not compatible with the BOTH_ENDS criteria";
      break;
    case -14: t = "Failed to find eigen values to sufficient accuracy"; break;
    case -15: t = "HOWMNY must be 'A' (ALL) or 'S' (Select), if eigenvectors are requested"; break;
    case -16: t = "HOWMNY must be 'S' (Select) is not yet implemented in ARPACK"; break;
    case -17:
      t = "Incorrect number of converged eigenvectors, Data might be passed incorrectly or "
          "modified by user";
      break;
    case -9999:
      t = "Could not build an Arnoldi factorization, check that enough workspace and array "
          "storage has been allocated";
      break;
    default: return false;
  }
  text = t;
  return true;
}

int ArpackInfoStatus(int info) {
  switch (info) {
    case -1:
    case -2:
    case -3:
    case -4:
    case -5:
    case -6:
    case -7:
    case -10:
    case -11:
    case -12:
    case -13:
    case -15:
    case -16: return kStatusArpackInvalidInput;
    default: return kStatusArpackFailed;
  }
}

void LanczosDriverStatusText(int driverStatus, int& code, std::string& text) {
  switch (driverStatus) {
    case kLanczosOk:
      code = 0;
      text.clear();
      return;
    case kLanczosCancelled:
      code = kStatusCancelled;
      text = "Analysis Canceled by User";
      return;
    case kLanczosInstability:
      code = kStatusInstability;
      text = "Instability Detected (ill-conditioned matrices)";
      return;
    case kLanczosNoMemory:
    case kLanczosNoMemoryOoc:
    case kLanczosOutOfMemoryInCore:
    case kLanczosOutOfMemoryOoc:
      code = kStatusNoMemory;
      text = kTextNoMemory;
      return;
    case kLanczosNotAllFound:
      code = kStatusPartial;
      text = kTextNotAllFound;
      return;
    case kLanczosBucklingWithoutShift:
      code = kStatusArpackInvalidInput;
      text = "Cannot use ARPACK buckling mode (mode 4) without a shift (shift cannot be zero)";
      return;
    case kLanczosMacFailed:
      code = kStatusArpackFailed;
      text =
          "Incremental solver failed, Modes do not satisfies Modal Assurance Criterion (MAC) "
          "probably due to loss of orthogonality";
      return;
    case kLanczosBlockTooSmall:
      code = kStatusArpackInvalidInput;
      text = "Incremental solver requires block size greater than or equal to 2";
      return;
    case kLanczosBucklingMacFailed:
      code = kStatusArpackFailed;
      text =
          "Solution of buckling problem failed, Modes do not satisfies Modal Assurance "
          "Criterion (MAC) probably due to loss of orthogonality";
      return;
    case kLanczosBucklingFactorNearZero:
      code = kStatusBucklingFactorNearZero;
      text = "Buckling factor is approaching zero, check model for instabilities";
      return;
    default:
      code = kStatusArpackFailed;
      text = "ARPACK failed to Find Eigenvectors";
      return;
  }
}

}  // namespace eigen_internal
}  // namespace vqmath
