// vqsolve-mpi: static, modal and buckling solution of one model distributed over the processes
// of an MPI run, e.g.
//   mpirun -np 4 vqsolve-mpi modes --model solid:1000000 -n 10
// Exit codes as vqsolve: 0 success, 1 partial results, 2 bad input, 3 solver failure.
#include <mpi.h>

#include <cstdio>
#include <new>
#include <string>

#include "CommandLine.h"
#include "ExitReport.h"
#include "MatrixMarketInput.h"
#include "MpiCommands.h"
#include "Output.h"

namespace {

const char* const kUsage =
    "usage: mpirun -np P vqsolve-mpi COMMAND [options]\n"
    "  static    K x = F: one distributed factorisation and solve, with the inertia\n"
    "  modes     lowest natural modes K phi = lambda M phi by shift-invert Lanczos (PARPACK)\n"
    "  buckling  lowest buckling factors K phi = lambda Kg phi\n"
    "Every command takes --model solid:N (built distributed) or MatrixMarket files (read by\n"
    "process 0 and scattered), --json, and -h for its options. Each process reports its peak "
    "memory.\n";

// Only process 0 reports.
void ReportError(bool json, const char* kind, int exitCode, const std::string& message,
                 int code = 0, int instabilityDof = -1) {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  if (rank == 0)
    vqsolve::ReportError("vqsolve-mpi", json, kind, exitCode, message, code, instabilityDof);
}

int Run(int argc, char** argv) {
  using namespace vqsolve_mpi;
  using vqsolve::kExitBadInput;
  using vqsolve::kExitSolverFailure;
  using vqsolve::kExitSuccess;
  if (argc < 2) {
    ReportError(false, "usage", kExitBadInput, kUsage);
    return kExitBadInput;
  }
  const std::string command = argv[1];
  if (command == "-h" || command == "--help" || command == "help") {
    int rank = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    if (rank == 0) std::fputs(kUsage, stdout);
    return kExitSuccess;
  }
  const bool json = vqsolve::WantsJson(argc, argv);
  try {
    if (command == "static") return StaticCommand(MPI_COMM_WORLD, argc, argv);
    if (command == "modes") return ModesCommand(MPI_COMM_WORLD, argc, argv, false);
    if (command == "buckling") return ModesCommand(MPI_COMM_WORLD, argc, argv, true);
    ReportError(false, "usage", kExitBadInput, "unknown command '" + command + "'\n\n" + kUsage);
    return kExitBadInput;
  } catch (const vqsolve::UsageError& e) {
    ReportError(json, "usage", kExitBadInput, e.what());
    return kExitBadInput;
  } catch (const vqsolve::InputError& e) {
    ReportError(json, "input", kExitBadInput, e.what());
    return kExitBadInput;
  } catch (const LibraryFailure& e) {
    ReportError(json, "solver", kExitSolverFailure, e.what(), e.Code(), e.InstabilityDof());
    return kExitSolverFailure;
  } catch (const std::bad_alloc&) {
    ReportError(json, "solver", kExitSolverFailure, "out of memory", -1);
    return kExitSolverFailure;
  } catch (const std::exception& e) {
    ReportError(json, "input", kExitBadInput, e.what());
    return kExitBadInput;
  }
}

}  // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  const int code = Run(argc, argv);
  std::fflush(stdout);
  MPI_Finalize();
  return code;
}
