// Text reports of a PARDISO analysis and factorisation, composed from the iparm report entries
// when a solver runs verbosely.
#pragma once

#include <string>

namespace vqmath {
namespace internal {

// Memory and operation figures of the analysis (iparm[14..18]), MKL's thread count, the order,
// the number of load vectors and the out-of-core mode.
std::string ComposeAnalysisReport(const int* iparm, int maxThreads, int n, int nrhs, int oocMode);

// Memory figures of the factorisation (iparm[60..62]) and whether phase 22 finished.
std::string ComposeFactorizationReport(const int* iparm, bool failed);

}  // namespace internal
}  // namespace vqmath
