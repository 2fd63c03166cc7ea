// Solution-procedure functions: part of the exported interface that hosts link against, without
// any effect. VQ_SolProcBegin hands out no procedure (a null handle).
#include "vqmath.h"

extern "C" {

VQ_SolProcHandle VQ_SolProcBegin(void) { return nullptr; }
void VQ_SolProcEnd(VQ_SolProcHandle) {}
void VQ_SolProcDef(VQ_SolProcHandle, int) {}
void VQ_SolProcSetStrategy(VQ_SolProcHandle, int) {}
void VQ_SolProcInitTimeStep(VQ_SolProcHandle, double, double) {}
void VQ_SolProcSetParamd(VQ_SolProcHandle, int, double) {}
void VQ_SolProcExecute(VQ_SolProcHandle) {}
void VQ_SolProcGetSysVector(VQ_SolProcHandle, int, VQ_SysVectorHandle*) {}
void VQ_SolProcGetDouble(VQ_SolProcHandle, int, double*) {}

}  // extern "C"
