// Reverse-communication driver for PARPACK's distributed symmetric Lanczos routines
// (pdsaupd/pdseupd): each process holds its slice of every Lanczos vector, and the operator
// (a distributed solve and B-product) is applied collectively. Sizes, spectral modes and the
// spectrum selector follow the single-process driver, so that both find the same eigenpairs.
#pragma once

#include "eigen/internal/ArpackDriver.h"

#include <mpi.h>

#include <vector>

namespace vqmath {
namespace mpi_internal {

struct ParpackRequest {
  int n = 0;           // order of the whole problem
  int localRows = 0;   // rows of this process
  eigen_internal::ArpackSizes sizes;
  eigen_internal::ArpackMode mode = eigen_internal::ArpackMode::kShiftInvert;
  double sigma = 0.0;
  bool wantVectors = true;
};

struct ParpackOutcome {
  eigen_internal::ArpackResult result = eigen_internal::ArpackResult::kConverged;
  int info = 0;
  bool inEupd = false;
  int operatorStatus = 0;
  int nconv = 0;
  int count = 0;
  std::vector<double> values;   // ascending, the same on every process
  std::vector<double> vectors;  // count slices of localRows
};

// Collective over comm. The operator's members are collective as well and must return the same
// status on every process.
eigen_internal::ArpackResult RunParpack(MPI_Comm comm, const ParpackRequest& request,
                                        eigen_internal::ShiftInvertOperator& op, ParpackOutcome& outcome);

}  // namespace mpi_internal
}  // namespace vqmath
