// vqsolve buckling: the lowest buckling factors of K·φ = λ·Kg·φ, λ the factor on the loads for
// which the geometric stiffness Kg was formed, with the Sturm-sequence verification.

#include <chrono>
#include <cmath>
#include <memory>

#include "Commands.h"
#include "EigenMethods.h"
#include "EigenReport.h"
#include "GeneratedModel.h"
#include "Library.h"
#include "MatrixMarketInput.h"
#include "SturmCheck.h"

namespace vqsolve {

using vqmath::models::CsrMatrix;

namespace {

// The methods that solve buckling, in the order of preference.
const std::vector<Method>& BucklingMethods() {
  static const std::vector<Method> methods = {Method::Block, Method::Lanczos, Method::Subspace,
                                              Method::Lapack, Method::Jacobi};
  return methods;
}

std::string MethodList() {
  std::string list;
  for (Method m : BucklingMethods()) list += (list.empty() ? "" : "|") + std::string(MethodName(m));
  return list;
}

std::vector<OptionInfo> BucklingOptions() {
  std::vector<OptionInfo> specs = {
      {"-K", "FILE", "stiffness matrix (MatrixMarket, symmetric)"},
      {"-G", "FILE", "geometric stiffness matrix Kg"},
      {"--model", "MODEL", "a generated frame instead of files: column, portal"},
      {"-n", "N", "number of buckling factors (default 5)"},
      {"--method", "NAME", MethodList() + " (default: block)"},
      {"--shift", "S", "look for buckling factors from S upwards"},
      {"-o", "FILE", "write the buckling modes (MatrixMarket array, one column per mode)"},
      {"--svg", "FILE", "draw the buckling modes of a generated model (one panel per mode)"},
      {"--block", "N",
       "lanczos: find the modes in incremental passes of N (at least 2); block: vectors per block"},
      {"--no-sturm", "", "skip the Sturm-sequence verification"},
  };
  for (auto& s : CommonOptionSpecs()) specs.push_back(s);
  return specs;
}

void CheckProblemOptions(const CommandLine& line) {
  if (line.Has("--model") == line.Has("-K"))
    throw UsageError("vqsolve buckling: give either -K (with -G) or --model");
  if (line.Has("-K") && !line.Has("-G"))
    throw UsageError("vqsolve buckling: -K needs the geometric stiffness -G");
  if (line.Has("--svg") && !line.Has("--model"))
    throw UsageError(
        "vqsolve buckling: --svg draws a generated model (--model); matrix files carry no mesh");
}

// K and Kg, from a generated frame or from files, with their names.
struct BucklingProblem {
  CsrMatrix k, kg;
  std::unique_ptr<GeneratedModel> model;
  std::string kName, gName;
};

void LoadProblem(const CommandLine& line, BucklingProblem& p, Progress& progress) {
  if (line.Has("--model")) {
    const std::string modelName = line.Text("--model");
    if (modelName != "column" && modelName != "portal")
      throw UsageError(
          "vqsolve buckling: --model must be column or portal (frames carry a geometric "
          "stiffness)");
    p.model = std::make_unique<GeneratedModel>(MakeModel(modelName, false));
    p.k = p.model->k;
    p.kg = p.model->kg;
    p.kName = "model " + p.model->name;
    p.gName = "geometric stiffness of the model";
  } else {
    p.kName = line.Text("-K");
    p.gName = line.Text("-G");
    p.k = LoadMatrix(p.kName, progress);
    p.kg = LoadMatrix(p.gName, progress);
    CheckSameOrder(p.kName, p.k.n, p.gName, p.kg.n);
  }
}

// --method when given (it must solve buckling), else the first method that suits the problem.
Method ChooseMethod(const CommandLine& line, const Pencil& pencil) {
  if (line.Has("--method")) {
    const std::string name = line.Text("--method");
    for (Method m : BucklingMethods())
      if (name == MethodName(m)) {
        if (!MethodAvailable(m, pencil, true))
          throw InputError(Format(
              "method %s needs a positive definite B and does not solve buckling", MethodName(m)));
        return m;
      }
    throw UsageError("vqsolve buckling: --method must be one of " + MethodList() + ", got '" +
                     name + "'");
  }
  const int n = pencil.N();
  for (Method m : BucklingMethods())
    if (MethodAvailable(m, pencil, true) && (m != Method::Lapack || n <= DenseLimit(m)) &&
        (m != Method::Jacobi || n <= DenseLimit(m)))
      return m;
  throw InputError("no buckling method suits this problem");
}

// What the run found and how it is judged.
struct BucklingResult {
  Method method = Method::Lanczos;
  EigenRequest request;
  EigenOutcome outcome;
  SturmCheck sturm;
  bool haveVectors = false;
  bool shortOfModes = false;
  bool partial = false;
  double totalSeconds = 0.0;
  int Found() const { return static_cast<int>(outcome.values.size()); }
};

void WriteFiles(const CommandLine& line, const BucklingProblem& p, const BucklingResult& r) {
  if (line.Has("-o") && r.haveVectors)
    WriteModeShapes(line.Text("-o"), r.outcome, p.k.n, "buckling modes by vqsolve buckling");
  if (line.Has("--svg") && r.haveVectors)
    DrawModeShapes(
        line.Text("--svg"), *p.model, r.outcome, p.k.n,
        [](int m, double factor) { return Format("Mode %d: buckling factor %.5g", m + 1, factor); },
        "vqsolve buckling (" + std::string(MethodName(r.method)) + ")");
}

Json BucklingJson(const BucklingProblem& p, const BucklingResult& r) {
  Json doc = Json::Object();
  doc.Set("command", "buckling");
  doc.Set("method", MethodName(r.method));
  doc.Set("stiffness", p.kName);
  doc.Set("geometricStiffness", p.gName);
  doc.Set("equations", p.k.n);
  doc.Set("requested", r.request.count);
  doc.Set("found", r.Found());
  doc.Set("factors", Json::Numbers(r.outcome.values));
  doc.Set("sturm", SturmJson(r.sturm));
  doc.Set("status", StatusJson(r.outcome));
  doc.Set("partial", r.partial);
  doc.Set("seconds", SecondsJson(r.outcome, r.sturm, r.totalSeconds));
  return doc;
}

std::string BucklingText(const CommandLine& line, const BucklingProblem& p,
                         const BucklingResult& r) {
  const SturmCheck& sturm = r.sturm;
  std::string text;
  text += "vqsolve buckling\n";
  text +=
      Format("  K       %s: %d equations, %d stored entries\n", p.kName.c_str(), p.k.n, p.k.Nnz());
  if (p.model) text += Format("          %s\n", p.model->description.c_str());
  text += Format("  Kg      %s: %d stored entries\n", p.gName.c_str(), p.kg.Nnz());
  text += Format("  method  %s: %d factor%s requested, %d found in %s\n\n", MethodName(r.method),
                 r.request.count, r.request.count == 1 ? "" : "s", r.Found(),
                 Seconds(r.outcome.seconds).c_str());
  TextTable table({{"mode"}, {"buckling factor"}});
  for (int m = 0; m < r.Found(); ++m)
    table.AddRow({std::to_string(m + 1), Format("%.10e", r.outcome.values[m])});
  text += table.Render(2) + "\n";
  if (sturm.done)
    text += Format(
        "  Sturm check  %d buckling factors %s sigma = %.6g (negative pivots of K - sigma Kg), "
        "%d found: %s\n",
        sturm.counted, sturm.interval ? "up to" : "in (0, sigma) with", sturm.shift, sturm.found,
        sturm.passed ? "passed" : "FAILED, buckling factors were missed");
  else if (!sturm.message.empty())
    text += "  Sturm check  not done: " + sturm.message + "\n";
  text +=
      ClosingLines(r.outcome, sturm, r.shortOfModes, r.request.count, "factors", r.totalSeconds);
  if (line.Has("-o") && r.haveVectors)
    text += "  modes        written to " + line.Text("-o") + "\n";
  if (line.Has("--svg") && r.haveVectors)
    text += "  picture      written to " + line.Text("--svg") + "\n";
  return text;
}

}  // namespace

int BucklingCommand(int argc, char** argv, int first) {
  CommandLine line("buckling", BucklingOptions(), argc, argv, first);
  if (line.Help()) {
    std::fputs(
        line.Usage("vqsolve buckling (-K K.mtx -G Kg.mtx | --model column|portal) -n 5 [options]")
            .c_str(),
        stdout);
    return kExitSuccess;
  }
  const CommonOptions common = ReadCommonOptions(line);
  CheckProblemOptions(line);
  BucklingResult r;
  r.request.buckling = true;
  r.request.count = line.Integer("-n", 5, 1, 100000);
  r.request.block = line.Integer("--block", 0, 2, 100000);
  r.request.hasShift = line.Has("--shift");
  r.request.shift = line.Real("--shift", 0.0);
  Progress progress = MakeProgress(common);
  const auto start = std::chrono::steady_clock::now();

  BucklingProblem p;
  LoadProblem(line, p, progress);
  Pencil pencil;
  pencil.k = &p.k;
  pencil.b = &p.kg;

  LibrarySession session(common.threads, common.outOfCoreMode, common.workingDirectory);
  r.method = ChooseMethod(line, pencil);
  if (r.request.block > 0 && r.method != Method::Lanczos && r.method != Method::Block)
    throw UsageError("vqsolve buckling: --block belongs to --method lanczos or block");
  r.request.wantVectors = true;
  r.request.outOfCoreMode = common.outOfCoreMode;
  r.request.workingDirectory = session.WorkingDirectory();

  r.outcome = RunEigen(r.method, pencil, r.request, progress);
  session.RestoreThreads();
  ThrowIfFailed(r.outcome);

  r.sturm = VerifyBySturm(pencil, r.outcome, r.request.hasShift, line.Has("--no-sturm"), common,
                          session, progress, "Sturm check: factorising K - sigma Kg");
  r.haveVectors = HasModeShapes(r.outcome, p.k.n);
  WriteFiles(line, p, r);
  r.totalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  r.shortOfModes = r.Found() < r.request.count;
  r.partial = r.outcome.Partial() || r.shortOfModes || (r.sturm.done && !r.sturm.passed);
  Emit(common, BucklingJson(p, r), BucklingText(line, p, r));
  return r.partial ? kExitPartial : kExitSuccess;
}

}  // namespace vqsolve
