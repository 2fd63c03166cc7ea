#include "ExitReport.h"

#include <cstdio>
#include <cstring>

#include "Output.h"

namespace vqsolve {

bool WantsJson(int argc, char** argv) {
  for (int k = 2; k < argc; ++k)
    if (std::strcmp(argv[k], "--json") == 0) return true;
  return false;
}

void ReportError(const char* program, bool json, const char* kind, int exitCode,
                 const std::string& message, int code, int instabilityDof) {
  std::fprintf(stderr, "%s: %s\n", program, message.c_str());
  if (!json) return;
  Json error = Json::Object();
  error.Set("kind", kind);
  error.Set("message", message);
  if (code != 0) error.Set("code", code);
  if (instabilityDof > 0) error.Set("instabilityEquation", instabilityDof);
  Json doc = Json::Object();
  doc.Set("exitCode", exitCode);
  doc.Set("error", error);
  std::printf("%s\n", doc.Dump().c_str());
}

}  // namespace vqsolve
