#pragma once
// The eigen solvers of the library behind one call: vqsolve picks the flat entry point that
// fits the method and the kind of B (diagonal or sparse), runs it and reads the registry.

#include <string>
#include <vector>

#include "Library.h"
#include "SturmCheck.h"

namespace vqsolve {

class Progress;

enum class Method { Subspace, Lanczos, Feast, Ritz, Lapack, Jacobi, Block };

const char* MethodName(Method method);
// "subspace", "lanczos", "feast", "ritz", "lapack", "jacobi", "block"; false for anything else.
bool ParseMethod(const std::string& name, Method& method);
const std::vector<Method>& AllMethods();

// Dense methods work on n × n arrays: the largest order vqsolve hands them.
int DenseLimit(Method method);

struct EigenRequest {
  int count = 10;  // eigenvalues wanted
  bool hasShift = false;
  double shift = 0.0;
  bool hasInterval = false;  // FEAST search interval
  double lower = 0.0, upper = 0.0;
  bool hasLimit = false;  // no eigenvalue above this is wanted
  double limit = 0.0;
  const std::vector<double>* load = nullptr;  // Ritz vectors start from this pattern:
  bool loadIsForce = false;                   //   a force as given, or a displacement (× B)
  double tolerance = 0.0;  // subspace convergence tolerance; 0: the library's (1e-6)
  int block = 0;           // Lanczos: modes per incremental pass (0: one run);
                           // block: vectors per block (0: the library's choice)
  bool wantVectors = true;
  bool buckling = false;  // B is the geometric stiffness
  int outOfCoreMode = 0;
  std::string workingDirectory;
};

struct EigenOutcome {
  Method method = Method::Subspace;
  bool available = false;  // the library of this run offers the method
  int code = 0;            // the entry point's result
  Registry registry;
  std::vector<double> values;   // ascending
  std::vector<double> vectors;  // n per mode, in the order of values
  double seconds = 0.0;
  std::string note;  // e.g. the FEAST interval used
  bool Partial() const { return code == 1 || code == -22 || registry.error == -22; }
  bool Failed() const { return !Partial() && code != 0; }
};

// True when the loaded library offers the method for this kind of B.
bool MethodAvailable(Method method, const Pencil& pencil, bool buckling = false);

// Runs the method; the progress shows what it does. Never throws for a solver failure (the
// outcome carries it); throws InputError when the problem does not suit the method.
EigenOutcome RunEigen(Method method, const Pencil& pencil, const EigenRequest& request,
                      Progress& progress);

}  // namespace vqsolve
