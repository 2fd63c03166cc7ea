// PARDISO error table and status translation: see PardisoErrors.h.
#include "sparse/internal/PardisoErrors.h"

namespace vqmath {
namespace internal {

namespace {

struct PardisoErrorEntry {
  int pardisoError;
  const char* message;  // kept exactly as hosts have always received it
  int status;
};

const PardisoErrorEntry kPardisoErrors[] = {
    {-1, "Input Inconsistancy in Sparse Solver", kSolverInternal},
    {-2, "Not Enough Memory in Sparse Solver", kSolverOutOfMemory},
    {-3, "Reordering Problem in Sparse Solver", kSolverInternal},
    {-4, "Zero Pivot, Numerical Factoriztion or Iterative Refinement Problem in Sparse Solver",
     kSolverZeroPivot},
    {-5, "Unclassified (internal) Error in Sparse Solver", kSolverInternal},
    {-6, "Preordering Failed in Sparse Solver", kSolverInternal},
    {-7, "Diagonal matrix is singular", kSolverInternal},
    {-8, "32-bit Integer Overflow Problem in Sparse Solver", kSolverInternal},
    {-9, "Not Enough Memory for OOC in Sparse Solver", kSolverOutOfMemoryOoc},
    {-10, "Problems with Opening OOC Temporary Files in Sparse Solver", kSolverInternal},
    {-11, "Read/Write Problems with the OOC Data File in Sparse Solver", kSolverInternal},
    {-12, "Negative Eigens Found", kSolverNegativePivots},
};

const PardisoErrorEntry* Find(int pardisoError) {
  for (const PardisoErrorEntry& e : kPardisoErrors)
    if (e.pardisoError == pardisoError) return &e;
  return nullptr;
}

}  // namespace

const char* PardisoErrorMessage(int pardisoError) {
  const PardisoErrorEntry* e = Find(pardisoError);
  return e ? e->message : "Unclassified Error";
}

int PardisoErrorStatus(int pardisoError) {
  const PardisoErrorEntry* e = Find(pardisoError);
  return e ? e->status : kSolverInternal;
}

int TranslateSolverStatus(int status, int current) {
  switch (status) {
    case kSolverOk: return 0;
    case kSolverZeroPivot: return -3;
    case kSolverNonSquare: return -80;
    case kSolverCancelled: return -2;
    case kSolverOutOfMemory: return -81;
    case kSolverOutOfMemoryOoc: return -82;
    case kSolverInternal: return -83;
    case kSolverNotFactorised: return -84;
    case kSolverNegativePivots: return -85;
    default: return current;
  }
}

}  // namespace internal
}  // namespace vqmath
