#include "mpi/internal/SliceCheck.h"

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace vqmath {
namespace mpi_internal {

namespace {

std::string Text(const char* format, long long a, long long b = 0, long long c = 0, long long d = 0) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, format, a, b, c, d);
  return buffer;
}

const char* NonFinite(double v) { return std::isnan(v) ? "NaN" : "infinite"; }

}  // namespace

std::string CheckRowRanges(MPI_Comm comm, int n, int firstRow, int lastRow) {
  int size = 1;
  MPI_Comm_size(comm, &size);
  const int mine[3] = {n, firstRow, lastRow};
  std::vector<int> all(static_cast<size_t>(size) * 3);
  MPI_Allgather(mine, 3, MPI_INT, all.data(), 3, MPI_INT, comm);
  if (all[0] < 1) return Text("process 0 gives the order n = %lld", all[0]);
  int expected = 1;
  for (int p = 0; p < size; ++p) {
    const int pn = all[3 * p], first = all[3 * p + 1], last = all[3 * p + 2];
    if (pn != all[0]) return Text("process %lld gives the order n = %lld, process 0 gives %lld", p, pn, all[0]);
    if (last < first) return Text("process %lld owns no rows (rows %lld..%lld)", p, first, last);
    if (first != expected) {
      if (p == 0) return Text("process 0 owns rows %lld..%lld, but the first process must start at row 1", first, last);
      return Text("process %lld owns rows %lld..%lld, ", p, first, last) +
             Text("but process %lld ends at row %lld", p - 1, expected - 1);
    }
    if (last > pn) return Text("process %lld owns rows %lld..%lld beyond the order n = %lld", p, first, last, pn);
    expected = last + 1;
  }
  if (expected != all[0] + 1)
    return Text("process %lld, the last, ends at row %lld, but the order is n = %lld", size - 1, expected - 1, all[0]);
  return std::string();
}

std::string CheckRows(const char* name, int n, int firstRow, int lastRow, const int* rowPointers,
                      const int* columnIndices, const double* values) {
  const std::string prefix = std::string(name) + ": ";
  if (!rowPointers || !columnIndices || !values) return prefix + "an array is missing (NULL)";
  const int rows = lastRow - firstRow + 1;
  if (rowPointers[0] != 1) return prefix + Text("the row pointers start at %lld instead of 1", rowPointers[0]);
  for (int r = 0; r < rows; ++r)
    if (rowPointers[r + 1] <= rowPointers[r])
      return prefix + Text("row %lld: the diagonal entry is missing (empty row or decreasing row pointers)",
                           firstRow + r);
  for (int r = 0; r < rows; ++r) {
    const int row = firstRow + r;
    for (int p = rowPointers[r] - 1; p < rowPointers[r + 1] - 1; ++p) {
      const int col = columnIndices[p];
      if (p == rowPointers[r] - 1) {
        if (col != row) return prefix + Text("row %lld: the first entry is column %lld, not the diagonal", row, col);
      } else if (col <= columnIndices[p - 1]) {
        return prefix + Text("row %lld: column %lld does not ascend after column %lld", row, col, columnIndices[p - 1]);
      }
      if (col > n) return prefix + Text("row %lld: column %lld lies beyond the order n = %lld", row, col, n);
      if (!std::isfinite(values[p]))
        return prefix + Text("value at row %lld, column %lld is ", row, col) + NonFinite(values[p]);
    }
  }
  return std::string();
}

std::string CheckSlice(const char* name, long long count, int firstRow, const double* values) {
  const std::string prefix = std::string(name) + ": ";
  if (!values) return prefix + "the array is missing (NULL)";
  for (long long i = 0; i < count; ++i)
    if (!std::isfinite(values[i])) return prefix + Text("value at row %lld is ", firstRow + i) + NonFinite(values[i]);
  return std::string();
}

}  // namespace mpi_internal
}  // namespace vqmath
