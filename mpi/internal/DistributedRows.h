// Operations on a symmetric matrix whose upper-triangle rows are distributed over the processes
// of a communicator in contiguous ranges (local row pointers, global 1-based columns).
#pragma once

#include <mpi.h>

#include <vector>

namespace vqmath {
namespace mpi_internal {

struct LocalRows {
  int n = 0;
  int first = 1, last = 0;
  std::vector<int> rowPointers;
  std::vector<int> columnIndices;
  std::vector<double> values;
};

// K − σ·B on the local rows: B diagonal (diagonal != nullptr, local slice) or rows of the same
// range (the union of both patterns, row by row). Throws std::bad_alloc.
LocalRows ShiftedRows(int n, int first, int last, const int* kRowPointers, const int* kColumnIndices,
                      const double* kValues, double sigma, const double* diagonal, const int* bRowPointers,
                      const int* bColumnIndices, const double* bValues);

// y = A·x for distributed rows of A and distributed slices x, y (collective). Every process
// gathers the whole x and adds its rows' products, the mirrored entries included, into a whole
// y that a reduce-scatter sums and distributes: 2·n doubles of work space per process.
class DistributedProduct {
 public:
  // Collective: learns how many rows every process owns. Throws std::bad_alloc.
  DistributedProduct(MPI_Comm comm, int n, int first, int last, const int* rowPointers, const int* columnIndices,
                     const double* values);
  void Apply(const double* x, double* y);

 private:
  MPI_Comm comm_;
  int n_, first_, last_;
  const int* ia_;
  const int* ja_;
  const double* a_;
  std::vector<int> counts_, displacements_;
  std::vector<double> whole_, sum_;
};

}  // namespace mpi_internal
}  // namespace vqmath
