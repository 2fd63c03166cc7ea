// vqsolve modes --band: every mode in a frequency (or eigenvalue) band through
// VQ_EigenvalueAnalysis_Band/_Band2, the table with the cumulative effective mass, the Sturm
// proof of each slice (VQ_GetBandSlices) and, with --residual, the residual mode's row.
#include "BandModes.h"

#include "Library.h"
#include "MatrixMarketInput.h"
#include "Output.h"

#include <cfloat>
#include <chrono>
#include <cmath>
#include <tuple>

#include "vqmath.h"

namespace vqsolve {

namespace {

constexpr double kTwoPi = 6.283185307179586;

double EigenvalueOfHertz(double f) { return (kTwoPi * f) * (kTwoPi * f); }

struct Slice {
    double lower, upper, shift;
    int below, belowUpper, belowShift, found;
};

}  // namespace

std::vector<OptionInfo> BandOptionSpecs()
{
    return {
        {"--band", "F1,F2", "every mode with F1 <= f <= F2 [Hz] (F1 = 0: from the bottom, rigid-body modes included)"},
        {"--band-eig", "A,B", "every mode with A <= eigenvalue <= B"},
        {"--max-modes", "N", "with a band: the most modes to take (default 2000)"},
        {"--residual", "", "with a band: add the residual (missing-mass) mode of the effective-mass direction"},
    };
}

bool BandRequested(const CommandLine& line) { return line.Has("--band") || line.Has("--band-eig"); }

int RunBandModes(const CommandLine& line, const CommonOptions& common, const BandInput& input,
                 Progress& progress)
{
    if (line.Has("--band") && line.Has("--band-eig"))
        throw UsageError("vqsolve modes: give either --band (Hz) or --band-eig (eigenvalues)");
    double lower = 0.0, upper = 0.0;
    std::string bandText;
    if (line.Has("--band")) {
        double f1 = 0.0, f2 = 0.0;
        std::tie(f1, f2) = line.Interval("--band");
        lower = f1 <= 0.0 ? -DBL_MAX : EigenvalueOfHertz(f1);
        upper = EigenvalueOfHertz(f2);
        bandText = Format("%.6g Hz <= f <= %.6g Hz", f1, f2);
    } else {
        std::tie(lower, upper) = line.Interval("--band-eig");
        bandText = Format("%.6g <= eigenvalue <= %.6g", lower, upper);
    }
    const int cap = line.Integer("--max-modes", 2000, 1, 1000000);
    const Pencil& pencil = *input.pencil;
    const int n = pencil.N();
    const auto& k = *pencil.k;
    std::vector<double> values(static_cast<size_t>(cap)), vectors(static_cast<size_t>(n) * cap);
    int bandCount = 0, found = 0;
    const auto start = std::chrono::steady_clock::now();
    progress.Status("band search: factorising K - sigma M and solving the slices");
    const int code =
        pencil.b ? VQ_EigenvalueAnalysis_Band2(n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                                               pencil.b->rowPointers.data(), pencil.b->columnIndices.data(),
                                               pencil.b->values.data(), lower, upper, cap, &bandCount, &found,
                                               values.data(), vectors.data(), input.workingDirectory.c_str())
                 : VQ_EigenvalueAnalysis_Band(n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                                              pencil.diagonal->data(), lower, upper, cap, &bandCount, &found,
                                              values.data(), vectors.data(), input.workingDirectory.c_str());
    const Registry registry = ReadRegistry();
    const double solveSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    progress.Clear();
    if (code == -90)
        throw SolverError(code, Format("%s: the band holds %d modes, more than --max-modes %d", registry.message.c_str(),
                                       bandCount, cap));
    if (code != 0) throw SolverError(code, registry.message.empty() ? ErrorText(code) : registry.message,
                                     registry.instabilityDof);
    values.resize(found);
    vectors.resize(static_cast<size_t>(n) * found);

    std::vector<Slice> slices(static_cast<size_t>(VQ_GetBandSlices(0, nullptr, nullptr)));
    if (!slices.empty()) {
        std::vector<double> b(3 * slices.size());
        std::vector<int> c(4 * slices.size());
        VQ_GetBandSlices(static_cast<int>(slices.size()), b.data(), c.data());
        for (size_t i = 0; i < slices.size(); ++i)
            slices[i] = {b[3 * i], b[3 * i + 1], b[3 * i + 2], c[4 * i], c[4 * i + 1], c[4 * i + 2], c[4 * i + 3]};
    }
    bool proven = true;
    for (const Slice& s : slices) proven = proven && s.found == s.belowUpper - s.below;

    std::vector<double> ratios =
        found > 0 ? CumulativeMassRatios(pencil.b, pencil.diagonal, *input.direction, vectors, found)
                  : std::vector<double>();
    // The residual mode completes the effective mass of the direction.
    bool haveResidual = false;
    double residualLambda = 0.0, residualFraction = 0.0;
    if (line.Has("--residual")) {
        std::vector<double> mode(n);
        const int rc =
            pencil.b ? VQ_ResidualMode2(n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                                        pencil.b->rowPointers.data(), pencil.b->columnIndices.data(),
                                        pencil.b->values.data(), found, vectors.data(), input.direction->data(),
                                        mode.data(), &residualLambda, &residualFraction)
                     : VQ_ResidualMode(n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                                       pencil.diagonal->data(), found, vectors.data(), input.direction->data(),
                                       mode.data(), &residualLambda, &residualFraction);
        const Registry r = ReadRegistry();
        if (rc != 0) throw SolverError(rc, r.message.empty() ? ErrorText(rc) : r.message, r.instabilityDof);
        haveResidual = true;
    }
    const double totalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    Json doc = Json::Object();
    doc.Set("command", "modes");
    doc.Set("method", "band");
    doc.Set("stiffness", input.kName);
    doc.Set("mass", input.mName);
    doc.Set("lumpedMass", pencil.diagonal != nullptr);
    doc.Set("equations", n);
    doc.Set("lower", lower);
    doc.Set("upper", upper);
    doc.Set("bandCount", bandCount);
    doc.Set("found", found);
    Json modes = Json::Array();
    for (int m = 0; m < found; ++m) {
        Json one = Json::Object();
        one.Set("mode", m + 1);
        one.Set("eigenvalue", values[m]);
        one.Set("omega", Omega(values[m]));
        one.Set("frequency", Hertz(values[m]));
        one.Set("period", Period(values[m]));
        if (m < static_cast<int>(ratios.size())) one.Set("cumulativeMassRatio", ratios[m]);
        modes.Push(one);
    }
    doc.Set("modes", modes);
    doc.Set("eigenvalues", Json::Numbers(values));
    doc.Set("massDirection", input.directionName);
    if (haveResidual) {
        Json r = Json::Object();
        r.Set("eigenvalue", residualLambda);
        r.Set("frequency", Hertz(residualLambda));
        r.Set("effectiveMassRatio", residualFraction);
        r.Set("cumulativeMassRatio", (ratios.empty() ? 0.0 : ratios.back()) + residualFraction);
        doc.Set("residualMode", r);
    }
    Json sturm = Json::Array();
    for (const Slice& s : slices) {
        Json one = Json::Object();
        one.Set("lower", s.lower);
        one.Set("upper", s.upper);
        one.Set("shift", s.shift);
        one.Set("eigenvaluesBelowLower", s.below);
        one.Set("eigenvaluesBelowUpper", s.belowUpper);
        one.Set("eigenvaluesBelowShift", s.belowShift);
        one.Set("found", s.found);
        sturm.Push(one);
    }
    doc.Set("slices", sturm);
    doc.Set("proven", proven);
    Json seconds = Json::Object();
    seconds.Set("solve", solveSeconds);
    seconds.Set("total", totalSeconds);
    doc.Set("seconds", seconds);
    doc.Set("threads", input.threads);

    std::string text = "vqsolve modes\n";
    text += Format("  K       %s: %d equations, %d stored entries\n", input.kName.c_str(), n, k.Nnz());
    if (!input.description.empty()) text += Format("          %s\n", input.description.c_str());
    text += Format("  M       %s\n", input.mName.c_str());
    text += Format("  band    %s: %d mode%s (Sturm counts), %d found in %s\n", bandText.c_str(), bandCount,
                   bandCount == 1 ? "" : "s", found, Seconds(solveSeconds).c_str());
    text += "\n";
    std::vector<TextTable::Column> columns = {{"mode"}, {"eigenvalue"}, {"omega [rad/s]"}, {"f [Hz]"}, {"T [s]"}};
    if (!ratios.empty()) columns.push_back({"cum. mass [%]"});
    TextTable table(columns);
    for (int m = 0; m < found; ++m) {
        std::vector<std::string> row = {std::to_string(m + 1), Format("%.10e", values[m]), Number(Omega(values[m]), 8),
                                        Number(Hertz(values[m]), 8), Number(Period(values[m]), 6)};
        if (!ratios.empty()) row.push_back(Format("%.2f", 100.0 * ratios[m]));
        table.AddRow(row);
    }
    if (haveResidual) {
        std::vector<std::string> row = {"residual", Format("%.10e", residualLambda), Number(Omega(residualLambda), 8),
                                        Number(Hertz(residualLambda), 8), Number(Period(residualLambda), 6)};
        if (!ratios.empty())
            row.push_back(Format("%.2f", 100.0 * (ratios.back() + residualFraction)));
        table.AddRow(row);
    }
    if (found > 0 || haveResidual) text += table.Render(2) + "\n";
    if (!ratios.empty()) text += "  effective mass along: " + input.directionName + "\n";
    text += "  Sturm proof  (negative pivots of K - sigma M at each slice's ends)\n";
    TextTable proof({{"slice"}, {"from"}, {"to"}, {"shift"}, {"below from"}, {"below to"}, {"in slice"}, {"found"}});
    for (size_t i = 0; i < slices.size(); ++i) {
        const Slice& s = slices[i];
        proof.AddRow({std::to_string(i + 1), Format("%.8e", s.lower), Format("%.8e", s.upper), Format("%.8e", s.shift),
                      std::to_string(s.below), std::to_string(s.belowUpper), std::to_string(s.belowUpper - s.below),
                      std::to_string(s.found)});
    }
    if (!slices.empty()) text += proof.Render(4) + "\n";
    text += Format("  %s\n", proven ? Format("proven: %d modes in the band, %d found", bandCount, found).c_str()
                                    : "NOT proven: a slice holds fewer modes than its counts");
    text += Format("  time         band %s, total %s\n", Seconds(solveSeconds).c_str(), Seconds(totalSeconds).c_str());
    Emit(common, doc, text);
    return proven ? kExitSuccess : kExitPartial;
}

}  // namespace vqsolve
