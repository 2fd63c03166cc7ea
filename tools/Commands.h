#pragma once
// The commands of vqsolve and what they share: exit codes, the options every command takes,
// loading of matrices with progress, and the report frame (table or JSON).

#include <string>
#include <vector>

#include "CommandLine.h"
#include "ExitReport.h"
#include "Output.h"
#include "Progress.h"
#include "models/CsrMatrix.h"

namespace vqsolve {

int StaticCommand(int argc, char** argv, int first);
int ModesCommand(int argc, char** argv, int first);
int BucklingCommand(int argc, char** argv, int first);
int DemoCommand(int argc, char** argv, int first);

// Options every command takes.
struct CommonOptions {
  bool json = false;
  bool quiet = false;
  int threads = 0;  // 0: MKL_NUM_THREADS or all processors
  int outOfCoreMode = 0;
  std::string workingDirectory;
};
std::vector<OptionInfo> CommonOptionSpecs();
CommonOptions ReadCommonOptions(const CommandLine& line);
// Progress on standard error, shown when standard error is a terminal and not --quiet (the
// report itself goes to standard output, so --json and progress do not mix).
Progress MakeProgress(const CommonOptions& options);

// A symmetric matrix from a MatrixMarket file, with a progress line.
vqmath::models::CsrMatrix LoadMatrix(const std::string& path, Progress& progress);
// Throws InputError naming both files when the orders differ.
void CheckSameOrder(const std::string& nameA, int orderA, const std::string& nameB, int orderB);

// |K·x − f| / |f| (|K·x − f| when f is zero) for one load case of K.n entries; *largest receives
// max |x_i|.
double RelativeResidual(const vqmath::models::CsrMatrix& k, const double* x, const double* f,
                        double* largest);

// Writes the report: the JSON document or the text (each ends with a newline).
void Emit(const CommonOptions& options, const Json& json, const std::string& text);

// Eigenvalue → circular frequency ω = √λ (NaN for λ < 0), f = ω/2π, T = 1/f.
double Omega(double lambda);
double Hertz(double lambda);
double Period(double lambda);

// Σ (φᵢᵀ·M·r)² / (φᵢᵀ·M·φᵢ · rᵀ·M·r) over the modes so far, mode by mode: the cumulative ratio of
// the effective mass in the direction r. M is sparse (mass) or diagonal (lumped).
std::vector<double> CumulativeMassRatios(const vqmath::models::CsrMatrix* mass,
                                         const std::vector<double>* lumped,
                                         const std::vector<double>& direction,
                                         const std::vector<double>& vectors, int modes);

}  // namespace vqsolve
