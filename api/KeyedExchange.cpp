// Keyed parameter and result exchange: settings that have no setter of their own, and the
// results the last VQ_SparseSolverDirect left behind (its 64 PARDISO parameters and the two
// diagonal vectors).
//
//   VQ_SetParameterL  1001 solver type (0, 1, 2)   1002 matrix type (2, -2)   1009 message level (0, 1)
//   VQ_SetParameterB  1003 stop if not positive definite   1004 factor in the calling thread
//                     1005 collect diagonals                1006 allow the out-of-core retry
//   VQ_SetParameterC  1008 working directory
//   VQ_GetResultsIA   1010 PARDISO parameters      VQ_GetResultsDA 1013 / 1014 diagonals
// Unknown keys are ignored.
#include <algorithm>
#include <vector>

#include "api/internal/DirectSolverSettings.h"
#include "vqmath.h"

using vqmath::internal::directSolverSettings;

namespace {

// 1 when the request fits (or asks for nothing, or names no result), 0 when count exceeds what is
// held; values are copied only in the first case with count >= 1.
template <typename T>
int CopyResult(const T* held, int heldCount, int count, T* out) {
  if (count > heldCount) return 0;
  if (count >= 1 && out) std::copy(held, held + count, out);
  return 1;
}

}  // namespace

extern "C" {

void VQ_SetParameterL(int key, int value) {
  switch (key) {
    case 1001: VQ_SetSolverType(value); break;
    case 1002: VQ_SetSolverMatrixType(value); break;
    case 1009:
      if (value == 0 || value == 1) directSolverSettings().messageLevel = value;
      break;
    default: break;
  }
}

void VQ_SetParameterB(int key, int flag) {
  auto& s = directSolverSettings();
  switch (key) {
    case 1003: s.stopIfNotPosDefinite = flag != 0; break;
    case 1004: s.decompositionInCallingThread = flag != 0; break;
    case 1005: s.collectDiagonals = flag != 0; break;
    case 1006: s.retryOutOfCore = flag != 0; break;
    default: break;
  }
}

void VQ_SetParameterC(int key, const char* text) {
  if (key == 1008) VQ_SetWorkingDir(text ? text : "");
}

void VQ_SetParameterD(int, double) {}
void VQ_SetParameterLA(int, int, const int*) {}
void VQ_SetParameterDA(int, int, const double*) {}
void VQ_SetParameterBA(int, int, const int*) {}
void VQ_SetParameterCA(int, int, const char* const*) {}

int VQ_GetResultsIA(int key, int count, int* values) {
  if (key != 1010) return 1;
  return CopyResult(directSolverSettings().keptParams, 64, count, values);
}

int VQ_GetResultsDA(int key, int count, double* values) {
  const std::vector<double>* held = nullptr;
  if (key == 1013) held = &directSolverSettings().matrixDiagonal;
  if (key == 1014) held = &directSolverSettings().factorDiagonal;
  if (!held) return 1;
  return CopyResult(held->data(), static_cast<int>(held->size()), count, values);
}

int VQ_GetResultsLA(int, int, int*) { return 1; }

}  // extern "C"
