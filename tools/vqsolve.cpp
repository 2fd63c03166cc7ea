// vqsolve: solves finite-element systems from MatrixMarket files (or generated models) with
// the vqmath library: static solution, natural modes, buckling, and a demonstration.

#include <cstdio>
#include <new>
#include <stdexcept>
#include <string>

#include "Commands.h"
#include "Library.h"
#include "MatrixMarketInput.h"
#include "vqmath.h"

namespace {

const char kProgram[] = "vqsolve";

const char kUsage[] =
    "usage: vqsolve COMMAND [options]\n"
    "\n"
    "commands:\n"
    "  static    solve K x = F: residual, inertia (pivot signs), time\n"
    "  modes     natural modes K phi = lambda M phi: eigenvalues, frequencies, Sturm check\n"
    "  buckling  buckling factors K phi = lambda Kg phi\n"
    "  demo      a generated 3D solid: one load case and the lowest modes by every method\n"
    "\n"
    "  vqsolve COMMAND --help   options of a command\n"
    "  vqsolve --version        versions of vqsolve, the library and MKL\n"
    "\n"
    "exit codes: 0 success, 1 partial results, 2 bad input, 3 solver failure\n";

}  // namespace

int main(int argc, char** argv) {
  using namespace vqsolve;
  if (argc < 2) {
    std::fputs(kUsage, stderr);
    return kExitBadInput;
  }
  const std::string command = argv[1];
  if (command == "-h" || command == "--help" || command == "help") {
    std::fputs(kUsage, stdout);
    return kExitSuccess;
  }
  if (command == "--version") {
    int a = 0, b = 0, c = 0, d = 0, e = 0;
    VQ_GetMathLibVersion(&a, &b, &c, &d, &e);
    std::printf("vqsolve %d.%d.%d (library build %d, %d)\n", a, b, c, d, e);
    char path[256];
    VQ_GetMKLCodePath(path, sizeof path);
    std::printf("MKL code path: %s\n", path);
    return kExitSuccess;
  }
  const bool json = WantsJson(argc, argv);
  try {
    if (command == "static") return StaticCommand(argc, argv, 2);
    if (command == "modes") return ModesCommand(argc, argv, 2);
    if (command == "buckling") return BucklingCommand(argc, argv, 2);
    if (command == "demo") return DemoCommand(argc, argv, 2);
    ReportError(kProgram, false, "usage", kExitBadInput,
                "unknown command '" + command + "'\n\n" + kUsage);
    return kExitBadInput;
  } catch (const UsageError& e) {
    ReportError(kProgram, json, "usage", kExitBadInput, e.what());
    return kExitBadInput;
  } catch (const InputError& e) {
    ReportError(kProgram, json, "input", kExitBadInput, e.what());
    return kExitBadInput;
  } catch (const SolverError& e) {
    ReportError(kProgram, json, "solver", kExitSolverFailure, e.what(), e.Code(),
                e.InstabilityDof());
    return kExitSolverFailure;
  } catch (const std::bad_alloc&) {
    ReportError(kProgram, json, "solver", kExitSolverFailure, "out of memory", -1);
    return kExitSolverFailure;
  } catch (const std::invalid_argument& e) {
    ReportError(kProgram, json, "input", kExitBadInput, e.what());
    return kExitBadInput;
  } catch (const std::length_error& e) {
    ReportError(kProgram, json, "input", kExitBadInput, e.what());
    return kExitBadInput;
  } catch (const std::exception& e) {
    ReportError(kProgram, json, "solver", kExitSolverFailure, e.what());
    return kExitSolverFailure;
  }
}
