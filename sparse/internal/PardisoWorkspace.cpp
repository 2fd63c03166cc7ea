// Solution work arrays: see PardisoWorkspace.h.
#include "sparse/internal/PardisoWorkspace.h"

#include <cstddef>
#include <limits>
#include <new>

namespace vqmath {
namespace internal {

namespace {
long long g_limit = 0;
}

std::unique_ptr<double[]> AllocateSolveWorkspace(long long count) noexcept {
  if (count < 1) return nullptr;
  if (g_limit > 0 && count > g_limit) return nullptr;
  if (static_cast<unsigned long long>(count) > std::numeric_limits<std::size_t>::max() / sizeof(double))
    return nullptr;
  return std::unique_ptr<double[]>(new (std::nothrow) double[static_cast<std::size_t>(count)]);
}

long long SetSolveWorkspaceLimit(long long maxDoubles) noexcept {
  long long previous = g_limit;
  g_limit = maxDoubles > 0 ? maxDoubles : 0;
  return previous;
}

}  // namespace internal
}  // namespace vqmath
