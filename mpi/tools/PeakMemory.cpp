#include "PeakMemory.h"

#include <cstdio>
#include <cstring>

namespace vqsolve_mpi {

double PeakMemoryMiB() {
  std::FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return 0.0;
  char line[256];
  double kib = 0.0;
  while (std::fgets(line, sizeof line, f))
    if (std::strncmp(line, "VmHWM:", 6) == 0) {
      std::sscanf(line + 6, "%lf", &kib);
      break;
    }
  std::fclose(f);
  return kib / 1024.0;
}

std::vector<double> GatherPeakMemoryMiB(MPI_Comm comm) {
  int rank = 0, size = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  const double mine = PeakMemoryMiB();
  std::vector<double> all(rank == 0 ? static_cast<size_t>(size) : 0);
  MPI_Gather(&mine, 1, MPI_DOUBLE, all.data(), 1, MPI_DOUBLE, 0, comm);
  return all;
}

}  // namespace vqsolve_mpi
