// The process-wide singular pivot ratio that every sparse direct solver copies when it is built.
#include "core/GlobalState.h"
#include "vqmath.h"

extern "C" {

double VQ_SetSingularPivotRatio(double ratio) {
  double& stored = vqmath::internal::settings().singularPivotRatio;
  if (ratio >= 0.0 && ratio < 1.0) stored = ratio;
  return stored;
}

double VQ_GetSingularPivotRatio(void) { return vqmath::internal::settings().singularPivotRatio; }

}  // extern "C"
