#pragma once
// What vqsolve and vqsolve-mpi share at their frame: the exit codes, the --json switch as seen
// before a command reads its options, and the report of the error that ended a run.

#include <string>

namespace vqsolve {

enum ExitCode {
  kExitSuccess = 0,
  kExitPartial = 1,       // partial results: fewer modes than asked, or a failed Sturm check
  kExitBadInput = 2,      // usage errors, unreadable or inconsistent files, unavailable methods
  kExitSolverFailure = 3  // the library reported an error
};

// True when an argument after the command is --json.
bool WantsJson(int argc, char** argv);

// "<program>: <message>" on standard error and, with json, the document {"exitCode": ..,
// "error": {"kind", "message", "code" (when not 0), "instabilityEquation" (when known)}} on
// standard output.
void ReportError(const char* program, bool json, const char* kind, int exitCode,
                 const std::string& message, int code = 0, int instabilityDof = -1);

}  // namespace vqsolve
