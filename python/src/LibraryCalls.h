#pragma once
// The library's flat entry points as the Python module calls them: one function per job, on
// matrices already in the library's layout, writing into arrays the caller allocated. None of
// them touches the interpreter, so the module runs them with the GIL released.

#include "UpperCsr.h"

#include <string>

namespace vqpy {

// What a call leaves in the library's registry.
struct Outcome {
    int code = 0;
    std::string message;
    int warning = 0;
    std::string warningMessage;
    int equation = -1;        // instability equation (1-based) of a singular matrix, else -1
    int negativePivots = 0;   // inertia of the last factorisation
    int positivePivots = 0;
    int found = 0;            // eigenpairs delivered
};

// Settings of one call. They are applied on entry and the previous process-wide values are
// restored on exit, so that nothing outlives the call. The library's own check of eigen
// solutions is off meanwhile: the module counts by Sturm sequence itself and reports the count on
// the result, and a second check in the library would factor K - sigma M once more.
struct CallSettings {
    int threads = 0;          // 0: leave the math library's count as it is
    int outOfCore = 0;        // PARDISO out-of-core mode 0 (in core), 1 (when needed), 2 (always)
    int coreSizeMb = 0;       // out-of-core memory budget; 0: unchanged
    std::string workingDirectory;  // ends with "/"
};

class ScopedSettings {
public:
    explicit ScopedSettings(const CallSettings& settings);
    ~ScopedSettings();
    ScopedSettings(const ScopedSettings&) = delete;
    ScopedSettings& operator=(const ScopedSettings&) = delete;

private:
    int threads_ = 0, solverType_ = 0, coreSize_ = 0, verification_ = 0;
    bool workingDirectorySet_ = false;
    std::string workingDirectory_;
};

// K X = F for nrhs columns; x holds F on entry (n x nrhs, column-major) and X on return.
Outcome Solve(const UpperCsr& k, double* x, int nrhs, bool definite, const CallSettings& settings);

// Eigen request of one method on the pencil (K, B), B the mass or the geometric stiffness.
struct EigenCall {
    std::string method;       // subspace, lanczos, feast, ritz, lapack, jacobi
    int count = 0;            // eigenpairs wanted (all n for the dense methods)
    double shift = 0.0;
    double tolerance = 0.0;   // subspace iteration only; <= 0: the library's
    double lower = 0.0, upper = 0.0;  // FEAST's interval
    int block = 0;            // Lanczos in passes of this many modes (0: one run)
    bool buckling = false;
    bool wantVectors = true;
    const double* load = nullptr;  // Ritz vectors: starting load pattern (n), or none
    bool loadIsForce = true;
};

// Runs the method; values hold call.count doubles, vectors n * call.count (column-major) or
// null. For buckling by a dense method the pencil is turned round internally; values are the
// buckling factors. Throws InputError for a method that does not exist.
Outcome Eigen(const EigenCall& call, const UpperCsr& k, const UpperCsr& b, double* values,
              double* vectors, const CallSettings& settings);

// Every eigenpair with lower <= lambda <= upper by the library's band search (Sturm counts at
// both ends, slices solved by shift-invert Lanczos). values hold maxModes doubles, vectors
// n * maxModes (column-major) or null. *bandCount is the proven number of eigenvalues in the
// band, also when it exceeds maxModes (code -90, nothing else written).
Outcome Band(const UpperCsr& k, const UpperCsr& m, double lower, double upper, int maxModes,
             double* values, double* vectors, int* bandCount, const CallSettings& settings);

// Number of eigenvalues of K phi = lambda B phi below sigma: the negative pivots of K - sigma B.
Outcome SturmCount(const UpperCsr& k, const UpperCsr& b, double sigma, const CallSettings& settings,
                   int* count);

// Participation factors and effective-mass fractions of `modes` mode shapes (n x modes,
// column-major) in the direction r: phi^T M r / phi^T M phi and (phi^T M r)^2 / (phi^T M phi) /
// (r^T M r). Available when the library offers it (EffectiveMassAvailable()).
bool EffectiveMassAvailable();
Outcome EffectiveMass(const UpperCsr& m, int modes, const double* shapes, const double* direction,
                      double* participation, double* fraction);

// Y = A X for ncols columns (column-major).
void Multiply(const UpperCsr& a, const double* x, double* y, int ncols);

}  // namespace vqpy
