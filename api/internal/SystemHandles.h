// What the opaque handles of the system-matrix interface point at.
//
// VQ_SysMatrix holds the sparse symmetric matrix the host assembles, whether its reserved pattern
// is still open (entries collected by pre-assembly, not yet in compressed rows), and the
// factorisation that VQ_SysMatrixResolve keeps for it. VQ_SysVector holds one dense column.
// Internal header: hosts see only the opaque pointers of vqmath.h.
#pragma once

#include <memory>

#include "dense/VQ_ColVector.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"

struct VQ_SysMatrix {
  VQ_SparseSymMatrix matrix;
  // Entries have been reserved since the pattern was last closed into compressed rows.
  bool patternOpen = false;
  // Factorisation kept by VQ_SysMatrixResolve; dropped whenever the matrix changes.
  std::unique_ptr<VQ_SparseSolver> resolveSolver;
};

struct VQ_SysVector {
  VQ_ColVector vector;
};

namespace vqmath {
namespace internal {

// Closes a pattern left open by pre-assembly into compressed rows (giving every equation its
// diagonal entry). True when the matrix is in compressed rows afterwards (also when nothing was
// open); false when the closing failed (memory).
bool CloseSystemPattern(VQ_SysMatrix* h);

// Marks the values or the pattern of h as changed: the kept factorisation is dropped.
void SystemMatrixChanged(VQ_SysMatrix* h);

// Order and entry count of a closed matrix, or false when it holds no compressed rows.
bool SystemMatrixArrays(VQ_SysMatrix* h, int& n, double*& values, int*& rowPointers,
                        int*& columnIndices);

}  // namespace internal
}  // namespace vqmath
