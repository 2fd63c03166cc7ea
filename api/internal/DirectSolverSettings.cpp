// Storage of the direct-solution settings: see DirectSolverSettings.h.
#include "api/internal/DirectSolverSettings.h"

namespace vqmath {
namespace internal {

DirectSolverSettings& directSolverSettings() {
  static DirectSolverSettings s;
  return s;
}

}  // namespace internal
}  // namespace vqmath
