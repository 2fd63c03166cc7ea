#include "Commands.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "MatrixMarketInput.h"
#include "vqmath.h"

namespace vqsolve {

std::vector<OptionInfo> CommonOptionSpecs() {
  return {
      {"--json", "", "machine-readable report on standard output"},
      {"--quiet", "", "no progress and no library messages on standard error"},
      {"--threads", "N",
       "threads of the math library (default: MKL_NUM_THREADS or all processors)"},
      {"--ooc", "0|1|2", "PARDISO memory mode: 0 in core, 1 in core when it fits, 2 out of core"},
      {"--workdir", "DIR", "folder for the solvers' scratch files (default: a temporary folder)"},
  };
}

CommonOptions ReadCommonOptions(const CommandLine& line) {
  CommonOptions o;
  o.json = line.Has("--json");
  o.quiet = line.Has("--quiet");
  o.threads = line.Integer("--threads", 0, 1, 1024);
  o.outOfCoreMode = line.Integer("--ooc", 0, 0, 2);
  o.workingDirectory = line.Text("--workdir");
  return o;
}

Progress MakeProgress(const CommonOptions& options) {
  return Progress(!options.quiet && isatty(STDERR_FILENO), options.quiet);
}

vqmath::models::CsrMatrix LoadMatrix(const std::string& path, Progress& progress) {
  progress.Status("reading " + path);
  vqmath::models::CsrMatrix a = ReadSymmetricMatrix(path);
  progress.Clear();
  return a;
}

void CheckSameOrder(const std::string& nameA, int orderA, const std::string& nameB, int orderB) {
  if (orderA != orderB)
    throw InputError(Format("size mismatch: %s is %d x %d but %s is %d x %d", nameA.c_str(), orderA,
                            orderA, nameB.c_str(), orderB, orderB));
}

double RelativeResidual(const vqmath::models::CsrMatrix& k, const double* x, const double* f,
                        double* largest) {
  const int n = k.n;
  std::vector<double> kx(static_cast<size_t>(n));
  vqmath::models::Multiply(k, x, kx.data());
  double rr = 0.0, ff = 0.0, xm = 0.0;
  for (int i = 0; i < n; ++i) {
    rr += (kx[i] - f[i]) * (kx[i] - f[i]);
    ff += f[i] * f[i];
    xm = std::max(xm, std::fabs(x[i]));
  }
  *largest = xm;
  return ff > 0.0 ? std::sqrt(rr / ff) : std::sqrt(rr);
}

void Emit(const CommonOptions& options, const Json& json, const std::string& text) {
  const std::string out = options.json ? json.Dump() + "\n" : text;
  std::fwrite(out.data(), 1, out.size(), stdout);
  std::fflush(stdout);
}

double Omega(double lambda) { return lambda >= 0.0 ? std::sqrt(lambda) : std::nan(""); }
double Hertz(double lambda) { return Omega(lambda) / (2.0 * M_PI); }
double Period(double lambda) {
  const double f = Hertz(lambda);
  return f > 0.0 ? 1.0 / f : std::nan("");
}

std::vector<double> CumulativeMassRatios(const vqmath::models::CsrMatrix* mass,
                                         const std::vector<double>* lumped,
                                         const std::vector<double>& direction,
                                         const std::vector<double>& vectors, int modes) {
  std::vector<double> ratios;
  const int n = static_cast<int>(direction.size());
  if (n == 0 || modes <= 0 || vectors.size() < static_cast<size_t>(n) * modes) return ratios;
  std::vector<double> fractions(static_cast<size_t>(modes));
  const int code = mass ? VQ_EffectiveMass2(n, modes, vectors.data(), mass->rowPointers.data(),
                                            mass->columnIndices.data(), mass->values.data(),
                                            direction.data(), nullptr, fractions.data())
                        : VQ_EffectiveMass(n, modes, vectors.data(), lumped->data(),
                                           direction.data(), nullptr, fractions.data());
  VQ_ResetGlobalErrorsAndWarnings();  // a direction without mass leaves no column, not an error
  if (code != 0) return ratios;
  double sum = 0.0;
  for (double f : fractions) ratios.push_back(sum += f);
  return ratios;
}

}  // namespace vqsolve
