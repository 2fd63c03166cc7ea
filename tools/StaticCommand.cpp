// vqsolve static: K·X = F by the sparse direct solver, with the residual, the inertia and, for
// a singular model, the equation at which the instability shows.

#include "Commands.h"
#include "DirectSolve.h"
#include "GeneratedModel.h"
#include "Library.h"
#include "MatrixMarketInput.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>

namespace vqsolve {

namespace {

using vqmath::models::CsrMatrix;

// Below this fraction the model is reported as ill-conditioned (a warning).
constexpr double kIllConditionedPivotRatio = 1e-8;

struct PivotReport {
    bool known = false;       // the diagonals came back
    double smallestRatio = 0.0;
    int equation = 0;         // 1-based
};

PivotReport AnalysePivots(const DirectResult& r)
{
    PivotReport p;
    const size_t n = r.matrixDiagonal.size();
    double smallest = HUGE_VAL;
    for (size_t i = 0; i < n; ++i) {
        const double a = std::fabs(r.matrixDiagonal[i]);
        if (!(a > 0.0)) continue;
        const double ratio = std::fabs(r.factorDiagonal[i]) / a;
        if (ratio < smallest) {
            smallest = ratio;
            p.equation = static_cast<int>(i) + 1;
        }
    }
    bool any = false;
    for (size_t i = 0; i < n && !any; ++i) any = r.factorDiagonal[i] != 0.0;
    p.known = any && p.equation > 0;
    p.smallestRatio = smallest;
    return p;
}

}  // namespace

int StaticCommand(int argc, char** argv, int first)
{
    std::vector<OptionInfo> specs = {
        {"-K", "FILE", "stiffness matrix (MatrixMarket, symmetric)"},
        {"-F", "FILE", "load vectors, one column per load case (MatrixMarket array or coordinate)"},
        {"--model", "MODEL", "a generated model instead of files: solid[:EQUATIONS], column, portal"},
        {"-o", "FILE", "write the solution (MatrixMarket array)"},
        {"--svg", "FILE", "draw the deformed shape of a generated model"},
    };
    for (auto& s : CommonOptionSpecs()) specs.push_back(s);
    CommandLine line("static", specs, argc, argv, first);
    if (line.Help()) {
        std::fputs(line.Usage("vqsolve static (-K K.mtx -F F.mtx | --model MODEL) [-o X.mtx] [options]").c_str(),
                   stdout);
        return kExitSuccess;
    }
    const CommonOptions common = ReadCommonOptions(line);
    if (line.Has("--model") == line.Has("-K"))
        throw UsageError("vqsolve static: give either -K (with -F) or --model");
    if (line.Has("-K") && !line.Has("-F")) throw UsageError("vqsolve static: -K needs the loads -F");
    if (line.Has("--svg") && !line.Has("--model"))
        throw UsageError("vqsolve static: --svg draws a generated model (--model); matrix files carry no mesh");
    Progress progress = MakeProgress(common);
    const auto start = std::chrono::steady_clock::now();

    // The problem.
    CsrMatrix k;
    DenseBlock f;
    std::unique_ptr<GeneratedModel> model;
    std::string kName, fName;
    if (line.Has("--model")) {
        progress.Status("building the model");
        model = std::make_unique<GeneratedModel>(MakeModel(line.Text("--model"), false));
        k = model->k;
        kName = "model " + model->name;
        if (line.Has("-F")) {
            fName = line.Text("-F");
            f = ReadDenseBlock(fName);
        } else {
            fName = model->loadDescription;
            f.rows = k.n;
            f.cols = 1;
            f.values = model->load;
        }
    } else {
        kName = line.Text("-K");
        fName = line.Text("-F");
        k = LoadMatrix(kName, progress);
        progress.Status("reading " + fName);
        f = ReadDenseBlock(fName);
    }
    progress.Clear();
    if (f.rows != k.n)
        throw InputError(Format("size mismatch: %s is %d x %d but %s has %d rows", kName.c_str(), k.n, k.n,
                                fName.c_str(), f.rows));
    if (f.cols < 1) throw InputError(fName + ": no load case (0 columns)");
    const double readSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    LibrarySession session(common.threads, common.outOfCoreMode, common.workingDirectory);

    // Solve.
    std::vector<double> x(f.values.size(), 0.0);
    DirectOptions options;
    options.outOfCoreMode = common.outOfCoreMode;
    options.matrixType = -2;
    options.diagonals = true;
    options.workingDirectory = session.WorkingDirectory();
    DirectResult r;
    {
        LibraryCall call(progress, Format("factorising and solving (%d equations, %d load case%s)", k.n, f.cols,
                                          f.cols == 1 ? "" : "s"));
        r = SolveDirect(k, f.values.data(), f.cols, x.data(), options);
    }
    const PivotReport pivots = AnalysePivots(r);

    if (r.code == -3 || r.registry.error == -3) {
        const int dof = r.registry.instabilityDof;
        throw SolverError(-3, r.registry.message + (dof > 0 ? Format(": instability at equation %d", dof) : ""),
                          dof);
    }
    // A singular model is the library's verdict (code -3 above): vqsolve judges nothing itself.
    if (r.code != 0 && r.code != -85) throw SolverError(r.code, r.registry.message);

    // Residuals.
    const int n = k.n;
    std::vector<double> residual(static_cast<size_t>(f.cols)), largest(static_cast<size_t>(f.cols));
    std::vector<double> kx(static_cast<size_t>(n));
    for (int c = 0; c < f.cols; ++c) {
        const double* xc = &x[static_cast<size_t>(c) * n];
        const double* fc = &f.values[static_cast<size_t>(c) * n];
        vqmath::models::Multiply(k, xc, kx.data());
        double rr = 0.0, ff = 0.0, xm = 0.0;
        for (int i = 0; i < n; ++i) {
            rr += (kx[i] - fc[i]) * (kx[i] - fc[i]);
            ff += fc[i] * fc[i];
            xm = std::max(xm, std::fabs(xc[i]));
        }
        residual[c] = ff > 0.0 ? std::sqrt(rr / ff) : std::sqrt(rr);
        largest[c] = xm;
    }

    if (line.Has("-o")) {
        DenseBlock out;
        out.rows = n;
        out.cols = f.cols;
        out.values = x;
        WriteDenseBlock(line.Text("-o"), out, "solution of K x = F by vqsolve static");
    }
    if (line.Has("--svg")) {
        std::vector<SvgPanel> panels;
        for (int c = 0; c < f.cols; ++c)
            panels.push_back({Format("Load case %d: max |u| = %.3g m", c + 1, largest[c]),
                              model->toNodes(&x[static_cast<size_t>(c) * n])});
        WriteSvg(line.Text("--svg"), model->mesh, panels, "vqsolve static", model->description);
    }
    const double totalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    const int negative = r.registry.negativePivots, positive = r.registry.positivePivots;
    const bool illConditioned = pivots.known && pivots.smallestRatio < kIllConditionedPivotRatio;

    Json doc = Json::Object();
    doc.Set("command", "static");
    doc.Set("stiffness", kName);
    doc.Set("loads", fName);
    doc.Set("equations", n);
    doc.Set("storedEntries", k.Nnz());
    doc.Set("loadCases", f.cols);
    Json cases = Json::Array();
    for (int c = 0; c < f.cols; ++c) {
        Json one = Json::Object();
        one.Set("loadCase", c + 1);
        one.Set("residual", residual[c]);
        one.Set("maxDisplacement", largest[c]);
        cases.Push(one);
    }
    doc.Set("cases", cases);
    doc.Set("residual", *std::max_element(residual.begin(), residual.end()));
    doc.Set("negativePivots", negative);
    doc.Set("positivePivots", positive);
    doc.Set("perturbedPivots", r.PerturbedPivots());
    doc.Set("positiveDefinite", negative == 0);
    doc.Set("factorEntries", static_cast<long long>(r.FactorEntries()));
    if (pivots.known) {
        doc.Set("smallestPivotRatio", pivots.smallestRatio);
        doc.Set("smallestPivotEquation", pivots.equation);
    }
    Json seconds = Json::Object();
    seconds.Set("read", readSeconds);
    seconds.Set("factoriseAndSolve", r.seconds);
    seconds.Set("total", totalSeconds);
    doc.Set("seconds", seconds);
    doc.Set("threads", session.Threads());
    doc.Set("outOfCoreMode", common.outOfCoreMode);
    doc.Set("warning", r.registry.warningMessage);
    if (line.Has("-o")) doc.Set("solutionFile", line.Text("-o"));
    if (line.Has("--svg")) doc.Set("svgFile", line.Text("--svg"));

    std::string text;
    text += "vqsolve static\n";
    text += Format("  K      %s: %d equations, %d stored entries\n", kName.c_str(), n, k.Nnz());
    if (model) text += Format("         %s\n", model->description.c_str());
    text += Format("  F      %s: %d load case%s\n", fName.c_str(), f.cols, f.cols == 1 ? "" : "s");
    static const char* kModes[] = {"in core", "in core when it fits", "out of core"};
    text += Format("  solver PARDISO %s, %d thread%s\n\n", kModes[common.outOfCoreMode], session.Threads(),
                   session.Threads() == 1 ? "" : "s");
    TextTable table({{"load case"}, {"residual |Kx-F|/|F|"}, {"max |x|"}});
    for (int c = 0; c < f.cols; ++c)
        table.AddRow({std::to_string(c + 1), Format("%.3e", residual[c]), Format("%.6g", largest[c])});
    text += table.Render(2) + "\n";
    text += Format("  inertia   %d negative, %d positive pivots%s\n", negative, positive,
                   negative == 0 ? " (K is positive definite)" : " (K is not positive definite)");
    if (pivots.known)
        text += Format("  pivots    smallest ratio pivot/diagonal %.3g at equation %d%s\n", pivots.smallestRatio,
                       pivots.equation, illConditioned ? "  <- ill-conditioned" : "");
    if (r.FactorEntries() > 0) text += Format("  factor    %lld entries\n", r.FactorEntries());
    text += Format("  time      read %s, factorise and solve %s, total %s\n", Seconds(readSeconds).c_str(),
                   Seconds(r.seconds).c_str(), Seconds(totalSeconds).c_str());
    if (line.Has("-o")) text += "  solution  written to " + line.Text("-o") + "\n";
    if (line.Has("--svg")) text += "  picture   written to " + line.Text("--svg") + "\n";
    if (negative > 0)
        text += Format("  warning   %d negative pivot%s: the structure is unstable or the system indefinite\n",
                       negative, negative == 1 ? "" : "s");
    if (r.PerturbedPivots() > 0)
        text += Format("  warning   %d small pivot%s perturbed by PARDISO: K is nearly singular\n", r.PerturbedPivots(),
                       r.PerturbedPivots() == 1 ? "" : "s");
    Emit(common, doc, text);
    return kExitSuccess;
}

}  // namespace vqsolve
