#pragma once
// The part of a problem one process of vqsolve-mpi holds: its rows of K (and of the mass or the
// geometric stiffness), its slices of the lumped mass and of the load. A generated solid is
// built distributed (each process assembles only its own rows); MatrixMarket files are read by
// process 0 and their rows sent to the process that owns them.

#include <mpi.h>

#include <string>
#include <vector>

#include "models/DistributedSolid.h"

namespace vqsolve_mpi {

struct DistributedProblem {
  int n = 0;
  vqmath::models::RowRange rows;
  vqmath::models::CsrRows k;
  vqmath::models::CsrRows b;       // geometric stiffness or consistent mass; n = 0 when absent
  std::vector<double> lumpedMass;  // local slice; empty when absent
  std::vector<double> load;        // local slice
  std::string kName, bName, loadName, description;
};

// "solid:N" (or "solid"): the bar vqsolve generates for N equations, its end-face load, its
// lumped mass, and with geometric the stiffness of a unit axial compression.
DistributedProblem GenerateSolid(MPI_Comm comm, const std::string& model, bool geometric);

// Files read by process 0 (empty names are skipped); rows split evenly over the processes. A
// lumped mass file is a diagonal or a vector; a load file a vector (the first column of an array).
// Throws vqsolve::InputError with the same message on every process.
DistributedProblem ReadAndScatter(MPI_Comm comm, const std::string& kFile, const std::string& bFile,
                                  const std::string& lumpedFile, const std::string& loadFile);

}  // namespace vqsolve_mpi
