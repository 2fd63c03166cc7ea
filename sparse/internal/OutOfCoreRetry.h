// The single out-of-core retry of a PARDISO factorisation that ran out of memory.
//
// When an out-of-core factorisation (mode 2) fails for lack of memory, PARDISO has already
// reported what it needs: iparm(15) the peak memory of the symbolic phase, iparm(16) its
// permanent memory and iparm(63) the minimum out-of-core memory, all in kilobytes. The core size
// becomes max(iparm(15), iparm(16) + iparm(63)) / 1000 + 1 megabytes; it is remembered as the
// library's out-of-core core size and written to MKL_PARDISO_OOC_MAX_CORE_SIZE, and the work is
// run exactly once more. There is never a third attempt.
//
// Every factorisation of the library that may retry (eigen solvers, direct solution entry points)
// goes through RunWithOutOfCoreRetry, so the rule lives here only.
//
// Internal header: hosts never include it.
#pragma once

#include <functional>

namespace vqmath {
namespace internal {

class OutOfCoreRetry {
 public:
  // Core size in megabytes from the three kilobyte figures (1-based iparm(15), (16), (63)).
  static int CoreSizeMb(int peakSymbolicKb, int permanentSymbolicKb, int minOocKb);
  // The same from PARDISO's 64 parameters (0-based array).
  static int CoreSizeMb(const int* iparm);
  // Remembers the core size for the report in iparm and publishes it to the environment;
  // returns the size written.
  static int Enlarge(const int* iparm);

  // Runs attempt(); when retryAllowed and outOfMemory(result) hold, enlarges the core size from
  // report() (the 64 parameters of the failed attempt; null: no retry) and runs attempt() once
  // more. Returns the last result.
  static int Run(const std::function<int()>& attempt, const std::function<bool(int)>& outOfMemory,
                 const std::function<const int*()>& report, bool retryAllowed);
};

}  // namespace internal
}  // namespace vqmath
