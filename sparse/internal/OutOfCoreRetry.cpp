// The single out-of-core retry; see OutOfCoreRetry.h.
#include "sparse/internal/OutOfCoreRetry.h"

#include <algorithm>

#include "core/GlobalState.h"

namespace vqmath {
namespace internal {

int OutOfCoreRetry::CoreSizeMb(int peakSymbolicKb, int permanentSymbolicKb, int minOocKb) {
  const long long need =
      std::max<long long>(peakSymbolicKb, static_cast<long long>(permanentSymbolicKb) + minOocKb);
  return static_cast<int>(std::min<long long>(need / 1000 + 1, 0x7fffffff));
}

int OutOfCoreRetry::CoreSizeMb(const int* iparm) { return CoreSizeMb(iparm[14], iparm[15], iparm[62]); }

int OutOfCoreRetry::Enlarge(const int* iparm) {
  const int mb = CoreSizeMb(iparm);
  SetOocMaxCoreSize(mb);
  return mb;
}

int OutOfCoreRetry::Run(const std::function<int()>& attempt,
                        const std::function<bool(int)>& outOfMemory,
                        const std::function<const int*()>& report, bool retryAllowed) {
  const int result = attempt();
  if (!retryAllowed || !outOfMemory(result)) return result;
  const int* iparm = report();
  if (!iparm) return result;
  Enlarge(iparm);
  return attempt();
}

}  // namespace internal
}  // namespace vqmath
