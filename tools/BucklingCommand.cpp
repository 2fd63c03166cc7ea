// vqsolve buckling: the lowest buckling factors K·φ = λ·Kg·φ.
#include "Commands.h"
namespace vqsolve {
int BucklingCommand(int, char**, int) { throw UsageError("buckling: not yet"); }
}  // namespace vqsolve
