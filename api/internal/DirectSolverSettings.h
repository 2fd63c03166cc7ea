// Process-wide settings and kept results of VQ_SparseSolverDirect, exchanged through the keyed
// functions (VQ_SetParameterL/B, VQ_GetResultsIA/DA):
//
//   1003  stop if not positive definite            1009  PARDISO message level (0 or 1)
//   1004  factor in the calling thread              1010  the 64 PARDISO parameters of the last call
//   1005  collect the two diagonals                 1013  first diagonal vector (of K)
//   1006  allow the out-of-core retry               1014  second diagonal vector (of the factor)
//
// Plain process-wide data without a lock, like the rest of the library's settings.
#pragma once

#include <vector>

namespace vqmath {
namespace internal {

struct DirectSolverSettings {
  bool stopIfNotPosDefinite = false;          // key 1003
  bool decompositionInCallingThread = false;  // key 1004: first argument of ApplyDecomposition
  bool collectDiagonals = false;              // key 1005
  bool retryOutOfCore = false;                // key 1006
  int messageLevel = 0;                       // key 1009

  // The 64 PARDISO parameters kept after the decomposition of the last VQ_SparseSolverDirect
  // (key 1010; also read by its out-of-core retry).
  int keptParams[64] = {};
  // Diagonal information of the last VQ_SparseSolverDirect with key 1005 on: the diagonal of K
  // (key 1013) and of the factor (key 1014), in K's equation order.
  std::vector<double> matrixDiagonal;
  std::vector<double> factorDiagonal;
};

DirectSolverSettings& directSolverSettings();

}  // namespace internal
}  // namespace vqmath
