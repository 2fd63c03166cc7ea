#include "sparse/SharedArray.h"

namespace vqmath {
namespace internal {

namespace {
int g_failAfter = 0;  // 0: never fail; n > 0: the n-th allocation from now fails
}

void SetSparseAllocationFailure(int nth) { g_failAfter = nth > 0 ? nth : 0; }

bool SparseAllocationShouldFail() {
  if (g_failAfter <= 0) return false;
  return --g_failAfter == 0;
}

}  // namespace internal
}  // namespace vqmath
