// Checks of the distributed input every process brings, run before any of it reaches the
// cluster solver: a malformed slice on one process must end in the same error on every process,
// not in a crash or in a collective call that never returns.
#pragma once

#include <mpi.h>

#include <string>

namespace vqmath {
namespace mpi_internal {

// The row ranges of all processes (collective): the same order n everywhere, ranges in rank
// order, each non-empty, together exactly 1..n. Returns "" or what is wrong, naming the process,
// e.g. "process 1 owns rows 7..12, but process 0 ends at row 4".
std::string CheckRowRanges(MPI_Comm comm, int n, int firstRow, int lastRow);

// The local rows firstRow..lastRow of a symmetric matrix of order n: local row pointers from 1,
// non-decreasing; each row non-empty with its diagonal first, then strictly ascending global
// columns up to n; every value finite. Returns "" or what is wrong with global row numbers,
// e.g. "K: row 8: column 3 lies below the diagonal". Assumes a sane range (CheckRowRanges).
std::string CheckRows(const char* name, int n, int firstRow, int lastRow, const int* rowPointers,
                      const int* columnIndices, const double* values);

// count values present and finite: "" or e.g. "mass diagonal: value at row 9 is NaN" (rows
// counted from firstRow).
std::string CheckSlice(const char* name, long long count, int firstRow, const double* values);

}  // namespace mpi_internal
}  // namespace vqmath
