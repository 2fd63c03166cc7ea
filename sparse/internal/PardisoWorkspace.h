// Solution work arrays of the sparse direct solver, allocated without throwing.
//
// The solver asks for n x nrhs doubles per solve (PARDISO's x array when the solution overwrites
// the right-hand sides). A limit can be set to make these allocations fail on purpose, so that
// the out-of-memory paths (message, status, one-vector-at-a-time fallback) can be exercised.
#pragma once

#include <memory>

namespace vqmath {
namespace internal {

// count doubles, or null when the allocation fails or exceeds the limit below.
std::unique_ptr<double[]> AllocateSolveWorkspace(long long count) noexcept;

// Largest work array (in doubles) that AllocateSolveWorkspace hands out; 0 removes the limit.
// Used by the tests of the out-of-memory paths; returns the previous limit.
long long SetSolveWorkspaceLimit(long long maxDoubles) noexcept;

}  // namespace internal
}  // namespace vqmath
