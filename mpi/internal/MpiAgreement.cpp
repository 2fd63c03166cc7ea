#include "mpi/internal/MpiAgreement.h"

#include "core/GlobalState.h"

#include <cstring>
#include <vector>

namespace vqmath {
namespace mpi_internal {

namespace {

struct Record_ {
  int code;
  int instabilityDof;
  char message[488];
};

}  // namespace

int RankOf(MPI_Comm comm) {
  int rank = 0;
  MPI_Comm_rank(comm, &rank);
  return rank;
}

int SizeOf(MPI_Comm comm) {
  int size = 1;
  MPI_Comm_size(comm, &size);
  return size;
}

Outcome Agree(MPI_Comm comm, const Outcome& local) {
  Record_ mine;
  std::memset(&mine, 0, sizeof mine);
  mine.code = local.code;
  mine.instabilityDof = local.instabilityDof;
  std::strncpy(mine.message, local.message.c_str(), sizeof mine.message - 1);
  std::vector<Record_> all(static_cast<size_t>(SizeOf(comm)));
  MPI_Allgather(&mine, static_cast<int>(sizeof mine), MPI_BYTE, all.data(), static_cast<int>(sizeof mine),
                MPI_BYTE, comm);
  for (const Record_& r : all)
    if (r.code != 0) {
      Outcome o;
      o.code = r.code;
      o.instabilityDof = r.instabilityDof;
      o.message.assign(r.message, strnlen(r.message, sizeof r.message));
      return o;
    }
  return Outcome();
}

int Record(const Outcome& outcome) {
  if (outcome.code == 0) return 0;
  internal::SetError(outcome.code, outcome.message.c_str());
  if (outcome.code == -3) internal::registry().instabilityDof = outcome.instabilityDof;
  return outcome.code;
}

}  // namespace mpi_internal
}  // namespace vqmath
