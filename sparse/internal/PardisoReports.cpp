// Verbose PARDISO reports: see PardisoReports.h. Each line is formatted into a buffer of 200
// characters, as the reports have always been, and the lines are joined.
#include "sparse/internal/PardisoReports.h"

#include <algorithm>
#include <cstdio>

namespace vqmath {
namespace internal {

namespace {

constexpr int kLineBuffer = 200;

void AppendLine(std::string& out, const char* format, int value) {
  char line[kLineBuffer];
  std::snprintf(line, sizeof line, format, value);
  out += line;
}

}  // namespace

std::string ComposeAnalysisReport(const int* iparm, int maxThreads, int n, int nrhs, int oocMode) {
  std::string r;
  AppendLine(r,
             "\nTotal Peak Memory in KBytes that the Solver Needs For Analysis and Symbolic "
             "Factorization= %d \n",
             iparm[14]);
  AppendLine(r, "Permanent Memory Symbolic Factorization = %d \n", iparm[15]);
  AppendLine(r,
             "Memory Requirement (KBytes) for Numerical Factorization and Solution (In-Core: "
             "estimated size; OOC: estimated disk space)= %d \n",
             iparm[16]);
  AppendLine(r, "Total Peak Memory (KBytes) = %d \n\n", std::max(iparm[15] + iparm[16], iparm[14]));
  AppendLine(r, "Number of Operations in MFlop (1.0e6 Operations) = %d \n", iparm[18]);
  AppendLine(r, "Max. Number of Threads Detected by MKL = %d \n", maxThreads);
  AppendLine(r, "\n\nNumber of Equations: %d \n", n);
  AppendLine(r, "Number of Load Vectors: %d \n", nrhs);
  AppendLine(r, "Solver Type: %d \n", oocMode);
  return r;
}

std::string ComposeFactorizationReport(const int* iparm, bool failed) {
  std::string r;
  AppendLine(r,
             "\nTotal Peak Memory in MBytes that the Solver Used For Analysis and Symbolic "
             "Factorization= %d \n",
             iparm[60]);
  AppendLine(r,
             "Total Double Precision Memory Consumption in MBytes that the Solver Used For "
             "Analysis and Symbolic Factorization= %d \n",
             iparm[61]);
  AppendLine(r,
             "Total Double Precision Memory Consumption in MBytes that the Solver Used For "
             "Factorization and Solution = %d \n",
             iparm[62]);
  r += failed ? "\n\nFailed to Finish Phase 22 !....... \n" : "\n\nFinished Phase 22 Succesfully !....... \n";
  return r;
}

}  // namespace internal
}  // namespace vqmath
