#include "Commands.h"

#include "MatrixMarketInput.h"

#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace vqsolve {

std::vector<OptionInfo> CommonOptionSpecs()
{
    return {
        {"--json", "", "machine-readable report on standard output"},
        {"--quiet", "", "no progress and no library messages on standard error"},
        {"--threads", "N", "threads of the math library (default: MKL_NUM_THREADS or all processors)"},
        {"--ooc", "0|1|2", "PARDISO memory mode: 0 in core, 1 in core when it fits, 2 out of core"},
        {"--workdir", "DIR", "folder for the solvers' scratch files (default: a temporary folder)"},
    };
}

CommonOptions ReadCommonOptions(const CommandLine& line)
{
    CommonOptions o;
    o.json = line.Has("--json");
    o.quiet = line.Has("--quiet");
    o.threads = line.Integer("--threads", 0, 1, 1024);
    o.outOfCoreMode = line.Integer("--ooc", 0, 0, 2);
    o.workingDirectory = line.Text("--workdir");
    return o;
}

Progress MakeProgress(const CommonOptions& options)
{
    return Progress(!options.quiet && isatty(STDERR_FILENO), options.quiet);
}

vqmath::models::CsrMatrix LoadMatrix(const std::string& path, Progress& progress)
{
    progress.Status("reading " + path);
    vqmath::models::CsrMatrix a = ReadSymmetricMatrix(path);
    progress.Clear();
    return a;
}

void CheckSameOrder(const std::string& nameA, int orderA, const std::string& nameB, int orderB)
{
    if (orderA != orderB)
        throw InputError(Format("size mismatch: %s is %d x %d but %s is %d x %d", nameA.c_str(), orderA,
                                orderA, nameB.c_str(), orderB, orderB));
}

void Emit(const CommonOptions& options, const Json& json, const std::string& text)
{
    const std::string out = options.json ? json.Dump() + "\n" : text;
    std::fwrite(out.data(), 1, out.size(), stdout);
    std::fflush(stdout);
}

double Omega(double lambda) { return lambda >= 0.0 ? std::sqrt(lambda) : std::nan(""); }
double Hertz(double lambda) { return Omega(lambda) / (2.0 * M_PI); }
double Period(double lambda)
{
    const double f = Hertz(lambda);
    return f > 0.0 ? 1.0 / f : std::nan("");
}

std::vector<double> CumulativeMassRatios(const vqmath::models::CsrMatrix* mass,
                                         const std::vector<double>* lumped,
                                         const std::vector<double>& direction,
                                         const std::vector<double>& vectors, int modes)
{
    const size_t n = direction.size();
    auto applyMass = [&](const double* x) {
        std::vector<double> y(n, 0.0);
        if (mass)
            vqmath::models::Multiply(*mass, x, y.data());
        else
            for (size_t i = 0; i < n; ++i) y[i] = (*lumped)[i] * x[i];
        return y;
    };
    std::vector<double> ratios;
    if (n == 0 || vectors.size() < n * static_cast<size_t>(modes)) return ratios;
    const std::vector<double> mr = applyMass(direction.data());
    double total = 0.0;
    for (size_t i = 0; i < n; ++i) total += direction[i] * mr[i];
    double sum = 0.0;
    for (int k = 0; k < modes; ++k) {
        const double* phi = &vectors[k * n];
        const std::vector<double> mphi = applyMass(phi);
        double gamma = 0.0, norm = 0.0;
        for (size_t i = 0; i < n; ++i) {
            gamma += phi[i] * mr[i];
            norm += phi[i] * mphi[i];
        }
        if (norm > 0.0 && total > 0.0) sum += gamma * gamma / (norm * total);
        ratios.push_back(sum);
    }
    return ratios;
}

}  // namespace vqsolve
