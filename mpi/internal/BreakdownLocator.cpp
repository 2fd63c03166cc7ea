#include "mpi/internal/BreakdownLocator.h"

#include "vqmath.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace vqmath {
namespace mpi_internal {

Breakdown LocateBreakdown(MPI_Comm comm, int n, int firstRow, int lastRow, const int* rowPointers,
                          const int* columnIndices, const double* values, int matrixType) {
  Breakdown b;
  int rank = 0, size = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  const int rows = lastRow - firstRow + 1;
  const int nnz = rowPointers[rows] - 1;
  long long total = nnz;
  MPI_Allreduce(MPI_IN_PLACE, &total, 1, MPI_LONG_LONG, MPI_SUM, comm);
  if (total > kMaxGatheredEntries) return b;

  std::vector<int> rowCounts(static_cast<size_t>(size)), nnzCounts(static_cast<size_t>(size));
  MPI_Gather(&rows, 1, MPI_INT, rowCounts.data(), 1, MPI_INT, 0, comm);
  MPI_Gather(&nnz, 1, MPI_INT, nnzCounts.data(), 1, MPI_INT, 0, comm);
  // Row lengths rather than pointers: they concatenate without adjustment.
  std::vector<int> lengths, allLengths, columns, rowDisp, nnzDisp;
  std::vector<double> allValues;
  int ok = 1;
  try {
    lengths.resize(static_cast<size_t>(rows));
    for (int r = 0; r < rows; ++r) lengths[r] = rowPointers[r + 1] - rowPointers[r];
  } catch (const std::bad_alloc&) {
    ok = 0;
  }
  if (rank == 0 && ok) {
    try {
      allLengths.resize(static_cast<size_t>(n));
      columns.resize(static_cast<size_t>(total));
      allValues.resize(static_cast<size_t>(total));
      rowDisp.assign(static_cast<size_t>(size), 0);
      nnzDisp.assign(static_cast<size_t>(size), 0);
      for (int p = 1; p < size; ++p) {
        rowDisp[p] = rowDisp[p - 1] + rowCounts[p - 1];
        nnzDisp[p] = nnzDisp[p - 1] + nnzCounts[p - 1];
      }
    } catch (const std::bad_alloc&) {
      ok = 0;
    }
  }
  // Any process short of memory: nothing is gathered, the breakdown stays unlocated.
  MPI_Allreduce(MPI_IN_PLACE, &ok, 1, MPI_INT, MPI_MIN, comm);
  if (!ok) return b;
  MPI_Gatherv(lengths.data(), rows, MPI_INT, allLengths.data(), rowCounts.data(), rowDisp.data(), MPI_INT, 0, comm);
  MPI_Gatherv(columnIndices, nnz, MPI_INT, columns.data(), nnzCounts.data(), nnzDisp.data(), MPI_INT, 0, comm);
  MPI_Gatherv(values, nnz, MPI_DOUBLE, allValues.data(), nnzCounts.data(), nnzDisp.data(), MPI_DOUBLE, 0, comm);

  int result[3] = {0, 0, 0};
  char message[512] = {};
  if (rank == 0) {
    try {
      std::vector<int> pointers(static_cast<size_t>(n) + 1, 1);
      for (int i = 0; i < n; ++i) pointers[i + 1] = pointers[i] + allLengths[i];
      std::vector<double> rhs(static_cast<size_t>(n), 0.0), x(static_cast<size_t>(n), 0.0);
      int params[64] = {};
      const int code = VQ_DirectSparseSolver(n, 1, pointers.data(), columns.data(), allValues.data(), rhs.data(), 0, matrixType,
                                             params, 0, "", 1, 0, x.data(), 0, nullptr, nullptr, 0, 0);
      result[0] = 1;
      result[1] = code;
      result[2] = code == -3 ? VQ_GetInstabilityDOF() : 0;
      if (code != 0) {
        char* text = VQ_GetLastErrorMessage();
        if (text) std::strncpy(message, text, sizeof message - 1);
        std::free(text);
      }
    } catch (const std::bad_alloc&) {
      result[0] = 0;
    }
  }
  MPI_Bcast(result, 3, MPI_INT, 0, comm);
  MPI_Bcast(message, static_cast<int>(sizeof message), MPI_CHAR, 0, comm);
  b.message = message;
  b.located = result[0] == 1;
  b.code = result[1];
  b.equation = result[2];
  return b;
}

}  // namespace mpi_internal
}  // namespace vqmath
