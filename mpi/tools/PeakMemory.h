#pragma once
// Peak resident memory of each process of a run (the kernel's high-water mark, VmHWM).

#include <mpi.h>

#include <vector>

namespace vqsolve_mpi {

// This process's peak resident memory in MiB (0 when the kernel does not say).
double PeakMemoryMiB();

// Every process's peak, in rank order, on process 0 (empty elsewhere). Collective.
std::vector<double> GatherPeakMemoryMiB(MPI_Comm comm);

}  // namespace vqsolve_mpi
