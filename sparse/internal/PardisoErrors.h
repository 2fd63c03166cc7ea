// PARDISO error numbers, their messages and the solver statuses of VQ_SparseSolver, and the
// translation of a solver status into the library's registry codes.
//
// Every PARDISO error number keeps its own message; several map to the same solver status, so
// callers that need to tell them apart keep the raw number as well (VQ_SparseSolver does).
#pragma once

#include "sparse/VQ_SparseSolver.h"

namespace vqmath {
namespace internal {

// The statuses of VQ_SparseSolver (VQ_SparseSolver::Status) by the names the sparse folder uses.
constexpr int kSolverOk = VQ_SparseSolver::kStatusOk;
constexpr int kSolverZeroPivot = VQ_SparseSolver::kStatusZeroPivot;
constexpr int kSolverNonSquare = VQ_SparseSolver::kStatusNonSquare;
constexpr int kSolverCancelled = VQ_SparseSolver::kStatusCancelled;
constexpr int kSolverOutOfMemory = VQ_SparseSolver::kStatusOutOfMemory;
constexpr int kSolverOutOfMemoryOoc = VQ_SparseSolver::kStatusOutOfMemoryOutOfCore;
constexpr int kSolverInternal = VQ_SparseSolver::kStatusInternalError;
constexpr int kSolverNotFactorised = VQ_SparseSolver::kStatusNotFactorised;
constexpr int kSolverNegativePivots = VQ_SparseSolver::kStatusNegativePivots;

// Message for a PARDISO error number ("Unclassified Error" for numbers outside the table).
const char* PardisoErrorMessage(int pardisoError);

// Solver status for a PARDISO error number (kSolverInternal for numbers outside the table).
int PardisoErrorStatus(int pardisoError);

// Registry code for a solver status. A status outside the table leaves `current` as it is.
int TranslateSolverStatus(int status, int current);

}  // namespace internal
}  // namespace vqmath
