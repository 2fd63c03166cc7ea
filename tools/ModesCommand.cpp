// vqsolve modes: the lowest natural modes K·φ = λ·M·φ by a method of choice, with frequencies,
// the Sturm-sequence verification and the cumulative effective mass.

#include "BandModes.h"
#include "Commands.h"
#include "EigenMethods.h"
#include "GeneratedModel.h"
#include "Library.h"
#include "MatrixMarketInput.h"
#include "vqmath.h"
#include "SturmCheck.h"

#include <chrono>
#include <cmath>
#include <memory>
#include <tuple>

namespace vqsolve {

using vqmath::models::CsrMatrix;

namespace {

std::string MethodList()
{
    std::string s;
    for (Method m : AllMethods()) s += (s.empty() ? "" : "|") + std::string(MethodName(m));
    return s;
}

}  // namespace

int ModesCommand(int argc, char** argv, int first)
{
    std::vector<OptionInfo> specs = {
        {"-K", "FILE", "stiffness matrix (MatrixMarket, symmetric)"},
        {"-M", "FILE", "consistent (sparse) mass matrix"},
        {"--lumped", "FILE", "lumped mass: a diagonal matrix or a vector"},
        {"--model", "MODEL", "a generated model instead of files: solid[:EQUATIONS], column, portal"},
        {"--consistent", "", "with --model: consistent instead of lumped mass"},
        {"-n", "N", "number of modes (default 10)"},
        {"--method", "NAME", MethodList() + " (default block, else subspace)"},
        {"--shift", "S", "shift of the solver: lanczos finds the eigenvalues nearest S, subspace and dense "
                         "methods those above S (subspace: S below the lowest wanted eigenvalue)"},
        {"--tolerance", "T", "subspace: relative convergence tolerance (default 1e-6)"},
        {"--interval", "A,B", "search interval of FEAST (default: bracketed by Sturm counts)"},
        {"--limit", "L", "no eigenvalue above L is wanted"},
        {"-F", "FILE", "load pattern: start of the Ritz vectors and direction of the effective mass"},
        {"-o", "FILE", "write the mode shapes (MatrixMarket array, one column per mode)"},
        {"--svg", "FILE", "draw the first modes of a generated model (one panel per mode)"},
        {"--block", "N", "lanczos: find the modes in incremental passes of N (at least 2); block: vectors per block"},
        {"--no-sturm", "", "skip the Sturm-sequence verification"},
    };
    for (auto& s : BandOptionSpecs()) specs.push_back(s);
    for (auto& s : CommonOptionSpecs()) specs.push_back(s);
    CommandLine line("modes", specs, argc, argv, first);
    if (line.Help()) {
        std::fputs(line.Usage("vqsolve modes (-K K.mtx (-M M.mtx | --lumped M.mtx) | --model MODEL) -n 20 "
                              "[--method NAME] [options]").c_str(),
                   stdout);
        return kExitSuccess;
    }
    const CommonOptions common = ReadCommonOptions(line);
    // Block Lanczos is the default: one factorisation, few passes over the factor, every pair to
    // a residual of 1e-10. A library without it falls back to subspace iteration.
    Method method = Method::Block;
    std::string methodName = line.Text("--method", "block");
    if (!ParseMethod(methodName, method))
        throw UsageError("vqsolve modes: --method must be one of " + MethodList() + ", got '" + methodName + "'");
    if (line.Has("--model") == line.Has("-K")) throw UsageError("vqsolve modes: give either -K or --model");
    if (line.Has("-K") && line.Has("-M") == line.Has("--lumped"))
        throw UsageError("vqsolve modes: give the mass with either -M (consistent) or --lumped (diagonal)");
    if (line.Has("--model") && (line.Has("-M") || line.Has("--lumped")))
        throw UsageError("vqsolve modes: --model brings its own mass (use --consistent for a consistent one)");
    if (line.Has("--svg") && !line.Has("--model"))
        throw UsageError("vqsolve modes: --svg draws a generated model (--model); matrix files carry no mesh");
    EigenRequest request;
    request.count = line.Integer("-n", 10, 1, 100000);
    request.block = line.Integer("--block", 0, 2, 100000);
    request.hasShift = line.Has("--shift");
    request.shift = line.Real("--shift", 0.0);
    request.tolerance = line.Real("--tolerance", 0.0);
    if (request.tolerance < 0.0 || request.tolerance >= 1.0)
        throw UsageError("vqsolve modes: --tolerance must lie in [0, 1)");
    request.hasLimit = line.Has("--limit");
    request.limit = line.Real("--limit", 0.0);
    request.hasInterval = line.Has("--interval");
    if (request.hasInterval) std::tie(request.lower, request.upper) = line.Interval("--interval");
    if (request.hasInterval && method != Method::Feast)
        throw UsageError("vqsolve modes: --interval belongs to --method feast");
    if (request.block > 0 && method != Method::Lanczos && method != Method::Block)
        throw UsageError("vqsolve modes: --block belongs to --method lanczos or block");
    Progress progress = MakeProgress(common);
    const auto start = std::chrono::steady_clock::now();

    // The problem.
    CsrMatrix k, mass;
    std::vector<double> lumped, pattern;
    std::unique_ptr<GeneratedModel> model;
    std::string kName, mName, patternName;
    if (line.Has("--model")) {
        progress.Status("building the model");
        model = std::make_unique<GeneratedModel>(MakeModel(line.Text("--model"), line.Has("--consistent")));
        k = model->k;
        kName = "model " + model->name;
        if (line.Has("--consistent")) {
            mass = model->consistentMass;
            mName = "consistent mass of the model";
        } else {
            lumped = model->lumpedMass;
            mName = "lumped mass of the model";
        }
        pattern = model->direction;
        patternName = "unit translation along " + model->directionName;
    } else {
        kName = line.Text("-K");
        k = LoadMatrix(kName, progress);
        if (line.Has("-M")) {
            mName = line.Text("-M");
            mass = LoadMatrix(mName, progress);
            CheckSameOrder(kName, k.n, mName, mass.n);
        } else {
            mName = line.Text("--lumped");
            progress.Status("reading " + mName);
            lumped = ReadDiagonal(mName);
            CheckSameOrder(kName, k.n, mName, static_cast<int>(lumped.size()));
        }
    }
    if (line.Has("-F")) {
        patternName = line.Text("-F");
        const DenseBlock f = ReadDenseBlock(patternName);
        if (f.rows != k.n)
            throw InputError(Format("size mismatch: %s is %d x %d but %s has %d rows", kName.c_str(), k.n, k.n,
                                    patternName.c_str(), f.rows));
        pattern.assign(f.values.begin(), f.values.begin() + k.n);
    } else if (pattern.empty()) {
        pattern.assign(static_cast<size_t>(k.n), 1.0);
        patternName = "all ones";
    }
    progress.Clear();

    Pencil pencil;
    pencil.k = &k;
    if (mass.n > 0)
        pencil.b = &mass;
    else
        pencil.diagonal = &lumped;

    LibrarySession session(common.threads, common.outOfCoreMode, common.workingDirectory);
    if (line.Has("--no-sturm")) VQ_SetEigenVerification(0);
    if (BandRequested(line)) {
        BandInput band;
        band.pencil = &pencil;
        band.direction = &pattern;
        band.directionName = patternName;
        band.kName = kName;
        band.mName = mName;
        if (model) band.description = model->description;
        band.workingDirectory = session.WorkingDirectory();
        band.threads = session.Threads();
        return RunBandModes(line, common, band, progress);
    }
    if (line.Has("--residual") || line.Has("--max-modes"))
        throw UsageError("vqsolve modes: --residual and --max-modes belong to --band or --band-eig");
    request.load = &pattern;
    request.wantVectors = true;
    request.outOfCoreMode = common.outOfCoreMode;
    request.workingDirectory = session.WorkingDirectory();

    EigenOutcome outcome = RunEigen(method, pencil, request, progress);
    session.RestoreThreads();
    if (outcome.Failed()) {
        std::string message = outcome.registry.message.empty() ? ErrorText(outcome.code) : outcome.registry.message;
        if (outcome.registry.instabilityDof > 0 && (outcome.code == -3 || outcome.registry.error == -3))
            message += Format(": instability at equation %d", outcome.registry.instabilityDof);
        throw SolverError(outcome.code, message, outcome.registry.instabilityDof);
    }
    const int found = static_cast<int>(outcome.values.size());
    const int n = k.n;

    // Verification and derived numbers.
    SturmCheck sturm;
    if (!line.Has("--no-sturm") && found > 0) {
        DirectOptions options;
        options.outOfCoreMode = common.outOfCoreMode;
        options.workingDirectory = session.WorkingDirectory();
        LibraryCall call(progress, "Sturm check: factorising K - sigma M");
        sturm = CheckFound(pencil, outcome.values, request.hasShift || request.hasInterval, options);
    }
    const bool haveVectors = outcome.vectors.size() >= static_cast<size_t>(found) * n && found > 0;
    const std::vector<double> ratios =
        haveVectors ? CumulativeMassRatios(pencil.b, pencil.diagonal, pattern, outcome.vectors, found)
                    : std::vector<double>();

    if (line.Has("-o") && haveVectors) {
        DenseBlock out;
        out.rows = n;
        out.cols = found;
        out.values.assign(outcome.vectors.begin(), outcome.vectors.begin() + static_cast<size_t>(found) * n);
        WriteDenseBlock(line.Text("-o"), out, "mode shapes by vqsolve modes --method " + methodName);
    }
    if (line.Has("--svg") && haveVectors) {
        std::vector<SvgPanel> panels;
        for (int m = 0; m < std::min(found, 12); ++m)
            panels.push_back({Format("Mode %d: %.4g Hz", m + 1, Hertz(outcome.values[m])),
                              model->toNodes(&outcome.vectors[static_cast<size_t>(m) * n]), true});
        WriteSvg(line.Text("--svg"), model->mesh, panels,
                 "vqsolve modes (" + methodName + ")", model->description);
    }
    const double totalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    // Partial: fewer modes than asked (unless a limit or an interval ended the search), a run
    // the library itself calls partial, or eigenvalues the Sturm count says were missed.
    const bool bounded = request.hasLimit || request.hasInterval;
    const bool shortOfModes = found < request.count && !bounded;
    // Ritz vectors follow the load pattern, not the spectrum: modes the pattern does not excite
    // are left out by design, so their Sturm count informs and does not fail the run.
    const bool ritz = method == Method::Ritz;
    const bool partial = outcome.Partial() || shortOfModes || (sturm.done && !sturm.passed && !ritz);

    Json doc = Json::Object();
    doc.Set("command", "modes");
    doc.Set("method", methodName);
    doc.Set("stiffness", kName);
    doc.Set("mass", mName);
    doc.Set("lumpedMass", pencil.diagonal != nullptr);
    doc.Set("equations", n);
    doc.Set("requested", request.count);
    doc.Set("found", found);
    Json modes = Json::Array();
    for (int m = 0; m < found; ++m) {
        Json one = Json::Object();
        const double lambda = outcome.values[m];
        one.Set("mode", m + 1);
        one.Set("eigenvalue", lambda);
        one.Set("omega", Omega(lambda));
        one.Set("frequency", Hertz(lambda));
        one.Set("period", Period(lambda));
        if (m < static_cast<int>(ratios.size())) one.Set("cumulativeMassRatio", ratios[m]);
        modes.Push(one);
    }
    doc.Set("modes", modes);
    doc.Set("eigenvalues", Json::Numbers(outcome.values));
    doc.Set("massDirection", patternName);
    Json sturmJson = Json::Object();
    sturmJson.Set("done", sturm.done);
    if (sturm.done) {
        sturmJson.Set("shift", sturm.shift);
        if (sturm.interval) sturmJson.Set("lowerShift", sturm.lowerShift);
        sturmJson.Set("eigenvaluesBelowShift", sturm.counted);
        sturmJson.Set("found", sturm.found);
        sturmJson.Set("passed", sturm.passed);
    } else if (!sturm.message.empty()) {
        sturmJson.Set("error", sturm.message);
    }
    doc.Set("sturm", sturmJson);
    Json status = Json::Object();
    status.Set("code", outcome.code);
    status.Set("error", outcome.registry.error);
    status.Set("message", outcome.registry.message);
    status.Set("warning", outcome.registry.warning);
    status.Set("warningMessage", outcome.registry.warningMessage);
    doc.Set("status", status);
    doc.Set("partial", partial);
    if (!outcome.note.empty()) doc.Set("note", outcome.note);
    Json seconds = Json::Object();
    seconds.Set("solve", outcome.seconds);
    seconds.Set("sturm", sturm.seconds);
    seconds.Set("total", totalSeconds);
    doc.Set("seconds", seconds);
    doc.Set("threads", session.Threads());

    std::string text;
    text += "vqsolve modes\n";
    text += Format("  K       %s: %d equations, %d stored entries\n", kName.c_str(), n, k.Nnz());
    if (model) text += Format("          %s\n", model->description.c_str());
    text += Format("  M       %s\n", mName.c_str());
    text += Format("  method  %s: %d mode%s requested, %d found in %s%s\n", methodName.c_str(), request.count,
                   request.count == 1 ? "" : "s", found, Seconds(outcome.seconds).c_str(),
                   outcome.note.empty() ? "" : (" (" + outcome.note + ")").c_str());
    text += "\n";
    std::vector<TextTable::Column> columns = {{"mode"}, {"eigenvalue"}, {"omega [rad/s]"}, {"f [Hz]"}, {"T [s]"}};
    if (!ratios.empty()) columns.push_back({"cum. mass [%]"});
    TextTable table(columns);
    for (int m = 0; m < found; ++m) {
        const double lambda = outcome.values[m];
        std::vector<std::string> row = {std::to_string(m + 1), Format("%.10e", lambda), Number(Omega(lambda), 8),
                                        Number(Hertz(lambda), 8), Number(Period(lambda), 6)};
        if (!ratios.empty()) row.push_back(Format("%.2f", 100.0 * ratios[m]));
        table.AddRow(row);
    }
    text += table.Render(2) + "\n";
    if (!ratios.empty()) text += "  effective mass along: " + patternName + "\n";
    if (sturm.done) {
        if (sturm.interval)
            text += Format("  Sturm check  %d eigenvalues between %.6g and %.6g (pivot counts of K - sigma M), "
                           "%d found: %s\n",
                           sturm.counted, sturm.lowerShift, sturm.shift, sturm.found,
                           sturm.passed ? "passed" : "FAILED, eigenvalues were missed");
        else
            text += Format("  Sturm check  %d eigenvalues below sigma = %.6g (negative pivots of K - sigma M), "
                           "%d found: %s\n",
                           sturm.counted, sturm.shift, sturm.found,
                           sturm.passed ? "passed"
                                        : ritz ? "the Ritz vectors follow the load pattern and leave out the "
                                                 "modes it does not excite"
                                               : "FAILED, eigenvalues were missed");
    } else if (!sturm.message.empty()) {
        text += "  Sturm check  not done: " + sturm.message + "\n";
    }
    if (outcome.registry.warning != 0) text += "  warning      " + outcome.registry.warningMessage + "\n";
    if (outcome.Partial()) text += "  partial      " + outcome.registry.message + "\n";
    if (shortOfModes) text += Format("  partial      %d of the %d modes requested were found\n", found, request.count);
    text += Format("  time         solve %s, Sturm check %s, total %s\n", Seconds(outcome.seconds).c_str(),
                   Seconds(sturm.seconds).c_str(), Seconds(totalSeconds).c_str());
    if (line.Has("-o") && haveVectors) text += "  mode shapes  written to " + line.Text("-o") + "\n";
    if (line.Has("--svg") && haveVectors) text += "  picture      written to " + line.Text("--svg") + "\n";
    Emit(common, doc, text);
    return partial ? kExitPartial : kExitSuccess;
}

}  // namespace vqsolve
