// Band entry points: VQ_EigenvalueAnalysis_Band/_Band2 (every eigenpair in [lower, upper], with
// the band's count from inertia counts) and VQ_ResidualMode/_ResidualMode2 (the missing-mass mode
// of a direction).
//
// Frame: reset the registry, clear the outputs the caller sized (count, found, the maxModes
// eigenvalue slots), check the arrays (−64), run the solver with the library's out-of-core mode,
// copy the results, and record the outcome with the solver's own text. Nothing is thrown across
// the boundary; an allocation failure gives −1 "Memory Allocation Failed".
#include <cmath>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "api/internal/CsrValidation.h"
#include "core/GlobalState.h"
#include "eigen/VQ_BandEigenSolver.h"
#include "eigen/internal/ResidualMode.h"
#include "eigen/internal/ShiftedFactorization.h"
#include "vqmath.h"

namespace {

namespace vi = vqmath::internal;
namespace ei = vqmath::eigen_internal;

constexpr int kNoMemory = -1;

// The slices of the last band call, for VQ_GetBandSlices (process-wide, like the other results
// kept between calls).
std::vector<VQ_BandSlice>& LastSlices() {
  static std::vector<VQ_BandSlice> slices;
  return slices;
}

int CheckPencil(const ei::PencilArrays& p) {
  int code = vi::CheckUpperCsrFinite(p.n, p.kRowPointers, p.kColumnIndices, p.kValues, "K");
  if (code != 0) return code;
  if (p.mRowPointers != nullptr)
    return vi::CheckUpperCsrFinite(p.n, p.mRowPointers, p.mColumnIndices, p.mValues, "M");
  return vi::CheckFiniteArray("M", p.n, p.mDiagonal);
}

int Record(int code, const std::string& message) {
  if (code == 0) return 0;
  vi::SetError(code, message.c_str());
  return code;
}

int RunBand(const ei::PencilArrays& p, double lower, double upper, int maxModes, int* bandCount,
            int* found, double* eigenvalues, double* modeShapes, const char* workingDirectory) {
  VQ_ResetGlobalErrorsAndWarnings();
  try {
    LastSlices().clear();
    if (bandCount) *bandCount = 0;
    if (found) *found = 0;
    if (maxModes > 0 && eigenvalues) std::memset(eigenvalues, 0, sizeof(double) * maxModes);
    if (p.n <= 0) return vi::RecordInvalidInput("the order n must be positive");
    if (maxModes > 0 && eigenvalues == nullptr)
      return vi::RecordInvalidInput("eigenvalue array is null");
    const int check = CheckPencil(p);
    if (check != 0) return check;

    VQ_BandProblem problem;
    problem.n = p.n;
    problem.kRowPointers = p.kRowPointers;
    problem.kColumnIndices = p.kColumnIndices;
    problem.kValues = p.kValues;
    problem.mRowPointers = p.mRowPointers;
    problem.mColumnIndices = p.mColumnIndices;
    problem.mValues = p.mValues;
    problem.mDiagonal = p.mDiagonal;
    problem.lower = lower;
    problem.upper = upper;
    problem.oocMode = vi::settings().solverType;
    const std::string folder = workingDirectory ? workingDirectory : vi::settings().workingDir;
    problem.workingDirectory = folder.c_str();

    VQ_BandEigenSolver solver(problem);
    const int status = solver.Solve(maxModes);
    if (bandCount) *bandCount = solver.GetBandCount();
    if (status == 0) LastSlices() = solver.Slices();
    if (status != 0) {
      if (status == -3) vi::registry().instabilityDof = solver.Get_DOFNumForInstability();
      return Record(status, solver.GetErrorMessage());
    }
    const int count = solver.GetNumFoundEigen();
    if (count > 0) {
      std::memcpy(eigenvalues, solver.Eigenvalues().data(), sizeof(double) * count);
      if (modeShapes)
        std::memcpy(modeShapes, solver.ModeShapes().data(),
                    sizeof(double) * static_cast<size_t>(p.n) * count);
    }
    if (found) *found = count;
    return 0;
  } catch (...) {
    VQ_ResolveEror(kNoMemory);
    return kNoMemory;
  }
}

// Factors K, or K − σ·M with σ < 0 when K is singular or indefinite (a free structure), so that
// the static solve of the residual mode is well posed.
int RunResidual(const ei::PencilArrays& p, int nModes, const double* modeShapes,
                const double* direction, double* residualMode, double* residualEigenvalue,
                double* effectiveMassFraction) {
  VQ_ResetGlobalErrorsAndWarnings();
  try {
    if (residualEigenvalue) *residualEigenvalue = 0.0;
    if (effectiveMassFraction) *effectiveMassFraction = 0.0;
    if (p.n <= 0) return vi::RecordInvalidInput("the order n must be positive");
    if (nModes < 0 || (nModes > 0 && modeShapes == nullptr))
      return vi::RecordInvalidInput("mode shapes are missing");
    if (!direction || !residualMode || !residualEigenvalue || !effectiveMassFraction)
      return vi::RecordInvalidInput("direction or an output array is null");
    int check = CheckPencil(p);
    if (check == 0) check = vi::CheckFiniteArray("direction", p.n, direction);
    if (check == 0 && nModes > 0)
      check = vi::CheckFiniteArray("mode shapes", static_cast<long long>(p.n) * nModes, modeShapes);
    if (check != 0) return check;

    const std::string folder = vi::settings().workingDir;
    ei::ShiftedFactorization factor(p, vi::settings().solverType, folder);
    if (!factor.Ready()) return VQ_ResolveEror(kNoMemory);
    int status = factor.Factor(0.0);
    if (status != 0 || factor.CountBelow() > 0 || !factor.Reliable()) {
      // Mean diagonal ratio as the scale of the spectrum; a small fraction of it below zero.
      double kTrace = 0.0, mTrace = 0.0;
      for (int i = 0; i < p.n; ++i) {
        kTrace += p.kValues[p.kRowPointers[i] - 1];
        mTrace += p.mRowPointers ? p.mValues[p.mRowPointers[i] - 1] : p.mDiagonal[i];
      }
      if (!(mTrace > 0.0)) return VQ_ResolveEror(-20);
      const double sigma = -1e-4 * std::fabs(kTrace / mTrace);
      status = factor.Factor(sigma);
      // Negative or perturbed pivots below zero: K is indefinite, or singular where M has no
      // mass (a free equation without mass), and no static solution exists.
      if (status == 0 && (factor.CountBelow() > 0 || !factor.Reliable())) {
        vi::registry().instabilityDof = -1;
        return Record(-3, "Instability Detected (Ill-conditioned or Singular Matrix Found)");
      }
    }
    if (status != 0) {
      if (status == -3) vi::registry().instabilityDof = factor.InstabilityEquation();
      return Record(status, factor.Message());
    }
    const ei::ResidualModeResult r =
        ei::ComputeResidualMode(factor, nModes, modeShapes, direction);
    if (r.status == vi::kInvalidInputCode)
      return vi::RecordInvalidInput(
          "no residual mode: M is not positive semi-definite, or the values overflow");
    if (r.status != 0) return VQ_ResolveEror(r.status);
    std::memcpy(residualMode, r.mode.data(), sizeof(double) * p.n);
    *residualEigenvalue = r.eigenvalue;
    *effectiveMassFraction = r.fraction;
    return 0;
  } catch (...) {
    VQ_ResolveEror(kNoMemory);
    return kNoMemory;
  }
}

ei::PencilArrays Pencil(int n, const int* kia, const int* kja, const double* ka, const int* mia,
                        const int* mja, const double* ma, const double* md) {
  ei::PencilArrays p;
  p.n = n;
  p.kRowPointers = kia;
  p.kColumnIndices = kja;
  p.kValues = ka;
  p.mRowPointers = mia;
  p.mColumnIndices = mja;
  p.mValues = ma;
  p.mDiagonal = md;
  return p;
}

}  // namespace

extern "C" {

int VQ_EigenvalueAnalysis_Band(int n, const int* kRowPointers, const int* kColumnIndices,
                               const double* kValues, const double* massDiagonal, double lower,
                               double upper, int maxModes, int* bandCount, int* found,
                               double* eigenvalues, double* modeShapes,
                               const char* workingDirectory) {
  return RunBand(Pencil(n, kRowPointers, kColumnIndices, kValues, nullptr, nullptr, nullptr,
                        massDiagonal),
                 lower, upper, maxModes, bandCount, found, eigenvalues, modeShapes,
                 workingDirectory);
}

int VQ_EigenvalueAnalysis_Band2(int n, const int* kRowPointers, const int* kColumnIndices,
                                const double* kValues, const int* mRowPointers,
                                const int* mColumnIndices, const double* mValues, double lower,
                                double upper, int maxModes, int* bandCount, int* found,
                                double* eigenvalues, double* modeShapes,
                                const char* workingDirectory) {
  return RunBand(Pencil(n, kRowPointers, kColumnIndices, kValues, mRowPointers, mColumnIndices,
                        mValues, nullptr),
                 lower, upper, maxModes, bandCount, found, eigenvalues, modeShapes,
                 workingDirectory);
}

int VQ_GetBandSlices(int maxSlices, double* bounds, int* counts) {
  const std::vector<VQ_BandSlice>& slices = LastSlices();
  const int held = static_cast<int>(slices.size());
  for (int i = 0; i < held && i < maxSlices; ++i) {
    const VQ_BandSlice& s = slices[i];
    if (bounds) {
      bounds[3 * i] = s.lower;
      bounds[3 * i + 1] = s.upper;
      bounds[3 * i + 2] = s.shift;
    }
    if (counts) {
      counts[4 * i] = s.countLower;
      counts[4 * i + 1] = s.countUpper;
      counts[4 * i + 2] = s.countAtShift;
      counts[4 * i + 3] = s.found;
    }
  }
  return held;
}

int VQ_ResidualMode(int n, const int* kRowPointers, const int* kColumnIndices,
                    const double* kValues, const double* massDiagonal, int nModes,
                    const double* modeShapes, const double* direction, double* residualMode,
                    double* residualEigenvalue, double* effectiveMassFraction) {
  return RunResidual(Pencil(n, kRowPointers, kColumnIndices, kValues, nullptr, nullptr, nullptr,
                            massDiagonal),
                     nModes, modeShapes, direction, residualMode, residualEigenvalue,
                     effectiveMassFraction);
}

int VQ_ResidualMode2(int n, const int* kRowPointers, const int* kColumnIndices,
                     const double* kValues, const int* mRowPointers, const int* mColumnIndices,
                     const double* mValues, int nModes, const double* modeShapes,
                     const double* direction, double* residualMode, double* residualEigenvalue,
                     double* effectiveMassFraction) {
  return RunResidual(Pencil(n, kRowPointers, kColumnIndices, kValues, mRowPointers, mColumnIndices,
                            mValues, nullptr),
                     nModes, modeShapes, direction, residualMode, residualEigenvalue,
                     effectiveMassFraction);
}

}  // extern "C"
