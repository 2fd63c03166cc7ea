// PARDISO error numbers, their messages and the solver statuses of VQ_SparseSolver, and the
// translation of a solver status into the library's registry codes.
//
// Every PARDISO error number keeps its own message; several map to the same solver status, so
// callers that need to tell them apart keep the raw number as well (VQ_SparseSolver does).
#pragma once

namespace vqmath {
namespace internal {

// Statuses of VQ_SparseSolver (its GetLastErrorCode()).
enum SparseSolverStatus : int {
  kSolverOk = 0,
  kSolverZeroPivot = -1,           // singular or not positive definite; registry -3
  kSolverNonSquare = -2,           // registry -80
  kSolverCancelled = -3,           // registry -2
  kSolverOutOfMemory = -4,         // registry -81
  kSolverOutOfMemoryOoc = -5,      // registry -82
  kSolverInternal = -6,            // any other PARDISO failure; registry -83
  kSolverNotFactorised = -7,       // Solve() before a decomposition; registry -84
  kSolverNegativePivots = -8       // registry -85
};

// Message for a PARDISO error number ("Unclassified Error" for numbers outside the table).
const char* PardisoErrorMessage(int pardisoError);

// Solver status for a PARDISO error number (kSolverInternal for numbers outside the table).
int PardisoErrorStatus(int pardisoError);

// Registry code for a solver status. A status outside the table leaves `current` as it is.
int TranslateSolverStatus(int status, int current);

}  // namespace internal
}  // namespace vqmath
