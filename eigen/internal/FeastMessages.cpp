// FEAST's info values → message and status; see FeastMessages.h.
#include "eigen/internal/FeastMessages.h"

#include <cstdio>

namespace vqmath {
namespace eigen_internal {

void FeastInfoMessage(int info, std::string& message, int& status) {
  char buffer[256];
  switch (info) {
    case 202:
      message = "Error: Problem with size of the system N(N<=0))";
      status = -60;
      return;
    case 201:
      message = "Error: Problem with size of initial subspace M0 (M0<=0)";
      status = -61;
      return;
    case 200:
      message = "Error: Problem with Emin,Emax(Emin>=Emax)";
      status = -62;
      return;
    case 3:
      message = "Warning: Size of the subspace M0 is too small (M0<M)";
      status = -67;
      return;
    case 2:
      message = "Warning: No Convergence (number of iteration loops >feastparam(3))";
      status = -68;
      return;
    case 1:
      message = "Warning: No eigenvalue found in the search interval.\n";
      status = -69;
      return;
    case -1:
      message = "Internal error for allocation memory";
      status = -1;
      return;
    case -2:
      message =
          "Internal error of the inner system solver. Possible reasons: not enough memory "
          "for PARDISO solver or inconsistent input.";
      status = -63;
      return;
    case -3:
      message =
          "Internal error of the reduced eigenvalue solver. Possible cause: matrix B may "
          "not be positive definite. It can be checked with PARDISO usages, if "
          "necessary.\n";
      status = -64;
      return;
    default: break;
  }
  status = -65;
  if (info >= 100) {
    std::snprintf(buffer, sizeof buffer,
                  "Problem with %d th value of the input Intel\xAE Eigensolver Package parameter "
                  "(i.e feastparam(%d))\n",
                  info - 100, info - 100);
    message = buffer;
  } else if (info <= -100) {
    std::snprintf(buffer, sizeof buffer,
                  "Problem with the %d th argument of the Intel\xAE Eigensolver Package "
                  "interface\n",
                  -info - 100);
    message = buffer;
  } else {
    message = "Unknown Error.";
  }
}

bool IsValidFeastContourPointCount(int points) {
  static const int kAccepted[] = {3, 4, 5, 6, 8, 10, 12, 16, 20, 24, 32, 40, 48};
  for (int p : kAccepted)
    if (p == points) return true;
  return false;
}

}  // namespace eigen_internal
}  // namespace vqmath
