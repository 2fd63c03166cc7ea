// The equation at which a factorisation breaks down. The cluster solver reports a positive
// definite breakdown as a memory failure (its error -2) and names no equation, and it cannot
// report its pivots, which the library's singularity rule judges (a vanishing pivot is only seen
// as a perturbed one). So the matrix is factored once more on process 0 with the single-process
// solver, which reports the same code, equation and message as the single-process library would. This gathers the
// whole matrix on process 0: it is done only after a failure and only up to a size
// (kMaxGatheredEntries) that one process can hold; beyond that the equation stays unknown.
#pragma once

#include <mpi.h>

#include <string>

namespace vqmath {
namespace mpi_internal {

constexpr long long kMaxGatheredEntries = 60000000;  // about 720 MB of rows on process 0

struct Breakdown {
  bool located = false;  // false: too large to gather, or the gathering failed
  int code = 0;          // the single-process result: -3 breakdown, 0 none (really out of memory)
  int equation = 0;      // for -3: the global equation
  std::string message;   // the single-process message for a failure
};

// Collective; the same result on every process. matrixType 2 (positive definite) or -2.
Breakdown LocateBreakdown(MPI_Comm comm, int n, int firstRow, int lastRow, const int* rowPointers,
                          const int* columnIndices, const double* values, int matrixType = 2);

}  // namespace mpi_internal
}  // namespace vqmath
