// vqsolve buckling: the lowest buckling factors of K·φ = λ·Kg·φ, λ the factor on the loads for
// which the geometric stiffness Kg was formed, with the Sturm-sequence verification.

#include "Commands.h"
#include "EigenMethods.h"
#include "GeneratedModel.h"
#include "Library.h"
#include "MatrixMarketInput.h"
#include "SturmCheck.h"

#include <chrono>
#include <cmath>
#include <memory>

namespace vqsolve {

using vqmath::models::CsrMatrix;

int BucklingCommand(int argc, char** argv, int first)
{
    const std::vector<Method> methods = {Method::Block, Method::Lanczos, Method::Subspace, Method::Lapack, Method::Jacobi};
    std::string list;
    for (Method m : methods) list += (list.empty() ? "" : "|") + std::string(MethodName(m));
    std::vector<OptionInfo> specs = {
        {"-K", "FILE", "stiffness matrix (MatrixMarket, symmetric)"},
        {"-G", "FILE", "geometric stiffness matrix Kg"},
        {"--model", "MODEL", "a generated frame instead of files: column, portal"},
        {"-n", "N", "number of buckling factors (default 5)"},
        {"--method", "NAME", list + " (default: block)"},
        {"--shift", "S", "look for buckling factors from S upwards"},
        {"-o", "FILE", "write the buckling modes (MatrixMarket array, one column per mode)"},
        {"--svg", "FILE", "draw the buckling modes of a generated model (one panel per mode)"},
        {"--block", "N", "lanczos: find the modes in incremental passes of N (at least 2); block: vectors per block"},
        {"--no-sturm", "", "skip the Sturm-sequence verification"},
    };
    for (auto& s : CommonOptionSpecs()) specs.push_back(s);
    CommandLine line("buckling", specs, argc, argv, first);
    if (line.Help()) {
        std::fputs(line.Usage("vqsolve buckling (-K K.mtx -G Kg.mtx | --model column|portal) -n 5 [options]").c_str(),
                   stdout);
        return kExitSuccess;
    }
    const CommonOptions common = ReadCommonOptions(line);
    if (line.Has("--model") == line.Has("-K")) throw UsageError("vqsolve buckling: give either -K (with -G) or --model");
    if (line.Has("-K") && !line.Has("-G")) throw UsageError("vqsolve buckling: -K needs the geometric stiffness -G");
    if (line.Has("--svg") && !line.Has("--model"))
        throw UsageError("vqsolve buckling: --svg draws a generated model (--model); matrix files carry no mesh");
    EigenRequest request;
    request.buckling = true;
    request.count = line.Integer("-n", 5, 1, 100000);
    request.block = line.Integer("--block", 0, 2, 100000);
    request.hasShift = line.Has("--shift");
    request.shift = line.Real("--shift", 0.0);
    Progress progress = MakeProgress(common);
    const auto start = std::chrono::steady_clock::now();

    CsrMatrix k, kg;
    std::unique_ptr<GeneratedModel> model;
    std::string kName, gName;
    if (line.Has("--model")) {
        const std::string modelName = line.Text("--model");
        if (modelName != "column" && modelName != "portal")
            throw UsageError("vqsolve buckling: --model must be column or portal (frames carry a geometric stiffness)");
        model = std::make_unique<GeneratedModel>(MakeModel(modelName, false));
        k = model->k;
        kg = model->kg;
        kName = "model " + model->name;
        gName = "geometric stiffness of the model";
    } else {
        kName = line.Text("-K");
        gName = line.Text("-G");
        k = LoadMatrix(kName, progress);
        kg = LoadMatrix(gName, progress);
        CheckSameOrder(kName, k.n, gName, kg.n);
    }
    Pencil pencil;
    pencil.k = &k;
    pencil.b = &kg;

    LibrarySession session(common.threads, common.outOfCoreMode, common.workingDirectory);
    Method method = Method::Lanczos;
    if (line.Has("--method")) {
        const std::string name = line.Text("--method");
        bool known = false;
        for (Method m : methods)
            if (name == MethodName(m)) {
                method = m;
                known = true;
            }
        if (!known) throw UsageError("vqsolve buckling: --method must be one of " + list + ", got '" + name + "'");
        if (!MethodAvailable(method, pencil, true))
            throw InputError(Format("method %s needs a positive definite B and does not solve buckling", MethodName(method)));
    } else {
        bool chosen = false;
        for (Method m : methods)
            if (!chosen && MethodAvailable(m, pencil, true) &&
                (m != Method::Lapack || k.n <= DenseLimit(m)) && (m != Method::Jacobi || k.n <= DenseLimit(m))) {
                method = m;
                chosen = true;
            }
        if (!chosen) throw InputError("no buckling method suits this problem");
    }
    if (request.block > 0 && method != Method::Lanczos && method != Method::Block)
        throw UsageError("vqsolve buckling: --block belongs to --method lanczos or block");
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

    SturmCheck sturm;
    if (!line.Has("--no-sturm") && found > 0) {
        DirectOptions options;
        options.outOfCoreMode = common.outOfCoreMode;
        options.workingDirectory = session.WorkingDirectory();
        LibraryCall call(progress, "Sturm check: factorising K - sigma Kg");
        sturm = CheckFound(pencil, outcome.values, request.hasShift, options);
    }
    const bool haveVectors = outcome.vectors.size() >= static_cast<size_t>(found) * n && found > 0;
    if (line.Has("-o") && haveVectors) {
        DenseBlock out;
        out.rows = n;
        out.cols = found;
        out.values.assign(outcome.vectors.begin(), outcome.vectors.begin() + static_cast<size_t>(found) * n);
        WriteDenseBlock(line.Text("-o"), out, "buckling modes by vqsolve buckling");
    }
    if (line.Has("--svg") && haveVectors) {
        std::vector<SvgPanel> panels;
        for (int m = 0; m < std::min(found, 12); ++m)
            panels.push_back({Format("Mode %d: buckling factor %.5g", m + 1, outcome.values[m]),
                              model->toNodes(&outcome.vectors[static_cast<size_t>(m) * n]), true});
        WriteSvg(line.Text("--svg"), model->mesh, panels, "vqsolve buckling (" + std::string(MethodName(method)) + ")", model->description);
    }
    const double totalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const bool shortOfModes = found < request.count;
    const bool partial = outcome.Partial() || shortOfModes || (sturm.done && !sturm.passed);

    Json doc = Json::Object();
    doc.Set("command", "buckling");
    doc.Set("method", MethodName(method));
    doc.Set("stiffness", kName);
    doc.Set("geometricStiffness", gName);
    doc.Set("equations", n);
    doc.Set("requested", request.count);
    doc.Set("found", found);
    doc.Set("factors", Json::Numbers(outcome.values));
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
    Json seconds = Json::Object();
    seconds.Set("solve", outcome.seconds);
    seconds.Set("sturm", sturm.seconds);
    seconds.Set("total", totalSeconds);
    doc.Set("seconds", seconds);

    std::string text;
    text += "vqsolve buckling\n";
    text += Format("  K       %s: %d equations, %d stored entries\n", kName.c_str(), n, k.Nnz());
    if (model) text += Format("          %s\n", model->description.c_str());
    text += Format("  Kg      %s: %d stored entries\n", gName.c_str(), kg.Nnz());
    text += Format("  method  %s: %d factor%s requested, %d found in %s\n\n", MethodName(method), request.count,
                   request.count == 1 ? "" : "s", found, Seconds(outcome.seconds).c_str());
    TextTable table({{"mode"}, {"buckling factor"}});
    for (int m = 0; m < found; ++m) table.AddRow({std::to_string(m + 1), Format("%.10e", outcome.values[m])});
    text += table.Render(2) + "\n";
    if (sturm.done)
        text += Format("  Sturm check  %d buckling factors %s sigma = %.6g (negative pivots of K - sigma Kg), "
                       "%d found: %s\n",
                       sturm.counted, sturm.interval ? "up to" : "in (0, sigma) with", sturm.shift, sturm.found,
                       sturm.passed ? "passed" : "FAILED, buckling factors were missed");
    else if (!sturm.message.empty())
        text += "  Sturm check  not done: " + sturm.message + "\n";
    if (outcome.registry.warning != 0) text += "  warning      " + outcome.registry.warningMessage + "\n";
    if (outcome.Partial()) text += "  partial      " + outcome.registry.message + "\n";
    if (shortOfModes) text += Format("  partial      %d of the %d factors requested were found\n", found, request.count);
    text += Format("  time         solve %s, Sturm check %s, total %s\n", Seconds(outcome.seconds).c_str(),
                   Seconds(sturm.seconds).c_str(), Seconds(totalSeconds).c_str());
    if (line.Has("-o") && haveVectors) text += "  modes        written to " + line.Text("-o") + "\n";
    if (line.Has("--svg") && haveVectors) text += "  picture      written to " + line.Text("--svg") + "\n";
    Emit(common, doc, text);
    return partial ? kExitPartial : kExitSuccess;
}

}  // namespace vqsolve
