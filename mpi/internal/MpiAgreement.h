// One outcome for every process of a communicator: each process brings what it found (success,
// or a code, a message and possibly an equation), one collective exchange follows, and every
// process continues with the first failure in rank order, or with success when none failed.
// Because the exchange happens whatever the local result, no process is left waiting in a later
// collective call while another has given up.
#pragma once

#include <mpi.h>

#include <string>

namespace vqmath {
namespace mpi_internal {

struct Outcome {
  int code = 0;             // registry code, 0 for success
  int instabilityDof = -1;  // global equation for code -3, else -1
  std::string message;      // registry message
  bool Failed() const { return code != 0; }
};

// Collective over comm. A message longer than 480 bytes is cut.
Outcome Agree(MPI_Comm comm, const Outcome& local);

// Records an agreed outcome in libvqmath's registry (code, message, instability equation).
int Record(const Outcome& outcome);

// Rank and size of comm.
int RankOf(MPI_Comm comm);
int SizeOf(MPI_Comm comm);

}  // namespace mpi_internal
}  // namespace vqmath
