#pragma once
// The commands of vqsolve-mpi. Every process runs the same command; process 0 prints.

#include <mpi.h>

#include <stdexcept>
#include <string>

namespace vqsolve_mpi {

// A failure the library reported (the same on every process).
class LibraryFailure : public std::runtime_error {
 public:
  LibraryFailure(int code, const std::string& message, int instabilityDof)
      : std::runtime_error(message), code_(code), instabilityDof_(instabilityDof) {}
  int Code() const { return code_; }
  int InstabilityDof() const { return instabilityDof_; }

 private:
  int code_;
  int instabilityDof_;
};

int StaticCommand(MPI_Comm comm, int argc, char** argv);
int ModesCommand(MPI_Comm comm, int argc, char** argv, bool buckling);

}  // namespace vqsolve_mpi
