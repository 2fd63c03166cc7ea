// The equation at which a positive definite factorisation breaks down. The cluster solver
// reports such a breakdown as a memory failure (its error -2) and names no equation, so the
// equation is found by factoring the matrix once more on process 0 with the single-process
// solver, which reports the same equation as the single-process library would. This gathers the
// whole matrix on process 0: it is done only after a failure and only up to a size
// (kMaxGatheredEntries) that one process can hold; beyond that the equation stays unknown.
#pragma once

#include <mpi.h>

namespace vqmath {
namespace mpi_internal {

constexpr long long kMaxGatheredEntries = 60000000;  // about 720 MB of rows on process 0

struct Breakdown {
  bool located = false;  // false: too large to gather, or the gathering failed
  int code = 0;          // the single-process result: -3 breakdown, 0 none (really out of memory)
  int equation = 0;      // for -3: the global equation
};

// Collective; the same result on every process.
Breakdown LocateBreakdown(MPI_Comm comm, int n, int firstRow, int lastRow, const int* rowPointers,
                          const int* columnIndices, const double* values);

}  // namespace mpi_internal
}  // namespace vqmath
