// Shared pieces of the distributed tests: the rows a process owns of a whole matrix, vectors
// gathered from all processes, and the single-process library's answers to compare with.
#pragma once

#include "models/CsrMatrix.h"
#include "models/DistributedSolid.h"

#include <mpi.h>

#include <string>
#include <vector>

namespace mpitest {

inline int Rank() { int r = 0; return MPI_Comm_rank(MPI_COMM_WORLD, &r), r; }
inline int Size() { int s = 1; return MPI_Comm_size(MPI_COMM_WORLD, &s), s; }

// This process's balanced share of the rows of order n.
vqmath::models::RowRange MyRows(int n);

// Rows `range` of a whole matrix (local row pointers, global columns).
vqmath::models::CsrRows SliceRows(const vqmath::models::CsrMatrix& a, vqmath::models::RowRange range);

// Slice of nvec vectors of length n (column-major) for the range.
std::vector<double> SliceVectors(const std::vector<double>& whole, int n, int nvec, vqmath::models::RowRange range);

// The whole vectors from every process's slices (nvec columns of n), on every process.
std::vector<double> GatherVectors(const std::vector<double>& local, int n, int nvec, vqmath::models::RowRange range);

// max |a − b| / max |b|.
double RelativeDifference(const std::vector<double>& a, const std::vector<double>& b);

// Registry message after a call.
std::string LastMessage();

// Every process's string, on every process.
std::vector<std::string> GatherStrings(const std::string& mine);

// A shared structural matrix, or false when the data folder is absent.
bool ReadShared(const std::string& name, vqmath::models::CsrMatrix& out);

// K − σ·diag(m) whole, for single-process Sturm counts.
int SingleProcessNegativePivots(const vqmath::models::CsrMatrix& shifted);

}  // namespace mpitest
