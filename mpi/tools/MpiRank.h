#pragma once
// This process's rank and the number of processes of a communicator.

#include <mpi.h>

namespace vqsolve_mpi {

inline int Rank(MPI_Comm comm) {
  int r = 0;
  MPI_Comm_rank(comm, &r);
  return r;
}

inline int Size(MPI_Comm comm) {
  int s = 1;
  MPI_Comm_size(comm, &s);
  return s;
}

}  // namespace vqsolve_mpi
