#include "mpi/internal/DistributedRows.h"

#include <algorithm>

namespace vqmath {
namespace mpi_internal {

LocalRows ShiftedRows(int n, int first, int last, const int* kRowPointers, const int* kColumnIndices,
                      const double* kValues, double sigma, const double* diagonal, const int* bRowPointers,
                      const int* bColumnIndices, const double* bValues) {
  LocalRows s;
  s.n = n;
  s.first = first;
  s.last = last;
  const int rows = last - first + 1;
  s.rowPointers.reserve(static_cast<size_t>(rows) + 1);
  s.rowPointers.push_back(1);
  const size_t kNnz = static_cast<size_t>(kRowPointers[rows] - 1);
  s.columnIndices.reserve(kNnz);
  s.values.reserve(kNnz);
  for (int r = 0; r < rows; ++r) {
    int p = kRowPointers[r] - 1;
    const int pEnd = kRowPointers[r + 1] - 1;
    if (diagonal) {
      for (; p < pEnd; ++p) {
        s.columnIndices.push_back(kColumnIndices[p]);
        s.values.push_back(p == kRowPointers[r] - 1 ? kValues[p] - sigma * diagonal[r] : kValues[p]);
      }
    } else {
      // Merge of two ascending column lists (both start with the diagonal).
      int q = bRowPointers[r] - 1;
      const int qEnd = bRowPointers[r + 1] - 1;
      while (p < pEnd || q < qEnd) {
        const int cp = p < pEnd ? kColumnIndices[p] : n + 1;
        const int cq = q < qEnd ? bColumnIndices[q] : n + 1;
        if (cp == cq) {
          s.columnIndices.push_back(cp);
          s.values.push_back(kValues[p++] - sigma * bValues[q++]);
        } else if (cp < cq) {
          s.columnIndices.push_back(cp);
          s.values.push_back(kValues[p++]);
        } else {
          s.columnIndices.push_back(cq);
          s.values.push_back(-sigma * bValues[q++]);
        }
      }
    }
    s.rowPointers.push_back(static_cast<int>(s.values.size()) + 1);
  }
  return s;
}

DistributedProduct::DistributedProduct(MPI_Comm comm, int n, int first, int last, const int* rowPointers,
                                       const int* columnIndices, const double* values)
    : comm_(comm), n_(n), first_(first), last_(last), ia_(rowPointers), ja_(columnIndices), a_(values) {
  int size = 1;
  MPI_Comm_size(comm, &size);
  counts_.resize(static_cast<size_t>(size));
  displacements_.resize(static_cast<size_t>(size));
  const int rows = last - first + 1;
  MPI_Allgather(&rows, 1, MPI_INT, counts_.data(), 1, MPI_INT, comm);
  for (int p = 1; p < size; ++p) displacements_[p] = displacements_[p - 1] + counts_[p - 1];
  whole_.assign(static_cast<size_t>(n), 0.0);
  sum_.assign(static_cast<size_t>(n), 0.0);
}

void DistributedProduct::Apply(const double* x, double* y) {
  const int rows = last_ - first_ + 1;
  MPI_Allgatherv(x, rows, MPI_DOUBLE, whole_.data(), counts_.data(), displacements_.data(), MPI_DOUBLE, comm_);
  std::fill(sum_.begin(), sum_.end(), 0.0);
  for (int r = 0; r < rows; ++r) {
    const int i = first_ + r - 1;
    double yi = 0.0;
    const double xi = whole_[i];
    for (int p = ia_[r] - 1; p < ia_[r + 1] - 1; ++p) {
      const int j = ja_[p] - 1;
      yi += a_[p] * whole_[j];
      if (j != i) sum_[j] += a_[p] * xi;
    }
    sum_[i] += yi;
  }
  MPI_Reduce_scatter(sum_.data(), y, counts_.data(), MPI_DOUBLE, MPI_SUM, comm_);
}

}  // namespace mpi_internal
}  // namespace vqmath
