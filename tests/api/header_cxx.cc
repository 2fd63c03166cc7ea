// Compiles the public C header alone as C++ (built, not run).
#include <vqmath.h>
