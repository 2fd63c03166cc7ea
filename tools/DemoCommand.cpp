// vqsolve demo.
#include "Commands.h"
namespace vqsolve {
int DemoCommand(int, char**, int) { throw UsageError("demo: not yet"); }
}  // namespace vqsolve
