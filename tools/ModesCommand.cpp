// vqsolve modes: the lowest natural modes K·φ = λ·M·φ by a method of choice, with frequencies,
// the Sturm-sequence verification and the cumulative effective mass.

#include <chrono>
#include <cmath>
#include <memory>
#include <tuple>

#include "BandModes.h"
#include "Commands.h"
#include "EigenMethods.h"
#include "EigenReport.h"
#include "GeneratedModel.h"
#include "Library.h"
#include "MatrixMarketInput.h"
#include "SturmCheck.h"
#include "vqmath.h"

namespace vqsolve {

using vqmath::models::CsrMatrix;

namespace {

std::string MethodList() {
  std::string s;
  for (Method m : AllMethods()) s += (s.empty() ? "" : "|") + std::string(MethodName(m));
  return s;
}

std::vector<OptionInfo> ModesOptions() {
  std::vector<OptionInfo> specs = {
      {"-K", "FILE", "stiffness matrix (MatrixMarket, symmetric)"},
      {"-M", "FILE", "consistent (sparse) mass matrix"},
      {"--lumped", "FILE", "lumped mass: a diagonal matrix or a vector"},
      {"--model", "MODEL", "a generated model instead of files: solid[:EQUATIONS], column, portal"},
      {"--consistent", "", "with --model: consistent instead of lumped mass"},
      {"-n", "N", "number of modes (default 10)"},
      {"--method", "NAME", MethodList() + " (default lanczos)"},
      {"--shift", "S",
       "shift of the solver: lanczos finds the eigenvalues nearest S, subspace and dense "
       "methods those above S (subspace: S below the lowest wanted eigenvalue)"},
      {"--tolerance", "T", "subspace: relative convergence tolerance (default 1e-6)"},
      {"--interval", "A,B", "search interval of FEAST (default: bracketed by Sturm counts)"},
      {"--limit", "L", "no eigenvalue above L is wanted"},
      {"-F", "FILE", "load pattern: start of the Ritz vectors and direction of the effective mass"},
      {"-o", "FILE", "write the mode shapes (MatrixMarket array, one column per mode)"},
      {"--svg", "FILE", "draw the first modes of a generated model (one panel per mode)"},
      {"--block", "N",
       "lanczos: find the modes in incremental passes of N (at least 2); block: vectors per block"},
      {"--no-sturm", "", "skip the Sturm-sequence verification"},
  };
  for (auto& s : BandOptionSpecs()) specs.push_back(s);
  for (auto& s : CommonOptionSpecs()) specs.push_back(s);
  return specs;
}

// The method: shift-invert Lanczos by default, the fastest of the methods that deliver every pair
// to full accuracy on the benchmark's solids (block Lanczos does too, a little slower).
Method ReadMethod(const CommandLine& line, std::string& methodName) {
  Method method = Method::Lanczos;
  methodName = line.Text("--method", "lanczos");
  if (!ParseMethod(methodName, method))
    throw UsageError("vqsolve modes: --method must be one of " + MethodList() + ", got '" +
                     methodName + "'");
  return method;
}

void CheckProblemOptions(const CommandLine& line) {
  if (line.Has("--model") == line.Has("-K"))
    throw UsageError("vqsolve modes: give either -K or --model");
  if (line.Has("-K") && line.Has("-M") == line.Has("--lumped"))
    throw UsageError(
        "vqsolve modes: give the mass with either -M (consistent) or --lumped (diagonal)");
  if (line.Has("--model") && (line.Has("-M") || line.Has("--lumped")))
    throw UsageError(
        "vqsolve modes: --model brings its own mass (use --consistent for a consistent one)");
  if (line.Has("--svg") && !line.Has("--model"))
    throw UsageError(
        "vqsolve modes: --svg draws a generated model (--model); matrix files carry no mesh");
}

EigenRequest ReadRequest(const CommandLine& line, Method method) {
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
  return request;
}

// K, the mass (sparse or lumped) and the direction of the effective mass, with their names.
struct ModesProblem {
  CsrMatrix k, mass;
  std::vector<double> lumped, pattern;
  std::unique_ptr<GeneratedModel> model;
  std::string kName, mName, patternName;

  Pencil MakePencil() const {
    Pencil pencil;
    pencil.k = &k;
    if (mass.n > 0)
      pencil.b = &mass;
    else
      pencil.diagonal = &lumped;
    return pencil;
  }
};

void BuildModel(const CommandLine& line, ModesProblem& p, Progress& progress) {
  progress.Status("building the model");
  p.model =
      std::make_unique<GeneratedModel>(MakeModel(line.Text("--model"), line.Has("--consistent")));
  p.k = p.model->k;
  p.kName = "model " + p.model->name;
  if (line.Has("--consistent")) {
    p.mass = p.model->consistentMass;
    p.mName = "consistent mass of the model";
  } else {
    p.lumped = p.model->lumpedMass;
    p.mName = "lumped mass of the model";
  }
  p.pattern = p.model->direction;
  p.patternName = "unit translation along " + p.model->directionName;
}

void ReadMatrices(const CommandLine& line, ModesProblem& p, Progress& progress) {
  p.kName = line.Text("-K");
  p.k = LoadMatrix(p.kName, progress);
  if (line.Has("-M")) {
    p.mName = line.Text("-M");
    p.mass = LoadMatrix(p.mName, progress);
    CheckSameOrder(p.kName, p.k.n, p.mName, p.mass.n);
  } else {
    p.mName = line.Text("--lumped");
    progress.Status("reading " + p.mName);
    p.lumped = ReadDiagonal(p.mName);
    CheckSameOrder(p.kName, p.k.n, p.mName, static_cast<int>(p.lumped.size()));
  }
}

// The load pattern: -F, else the model's direction, else all ones.
void ReadPattern(const CommandLine& line, ModesProblem& p) {
  if (line.Has("-F")) {
    p.patternName = line.Text("-F");
    const DenseBlock f = ReadDenseBlock(p.patternName);
    if (f.rows != p.k.n)
      throw InputError(Format("size mismatch: %s is %d x %d but %s has %d rows", p.kName.c_str(),
                              p.k.n, p.k.n, p.patternName.c_str(), f.rows));
    p.pattern.assign(f.values.begin(), f.values.begin() + p.k.n);
  } else if (p.pattern.empty()) {
    p.pattern.assign(static_cast<size_t>(p.k.n), 1.0);
    p.patternName = "all ones";
  }
}

void LoadProblem(const CommandLine& line, ModesProblem& p, Progress& progress) {
  if (line.Has("--model"))
    BuildModel(line, p, progress);
  else
    ReadMatrices(line, p, progress);
  ReadPattern(line, p);
  progress.Clear();
}

int RunBand(const CommandLine& line, const CommonOptions& common, const ModesProblem& p,
            const Pencil& pencil, const LibrarySession& session, Progress& progress) {
  BandInput band;
  band.pencil = &pencil;
  band.direction = &p.pattern;
  band.directionName = p.patternName;
  band.kName = p.kName;
  band.mName = p.mName;
  if (p.model) band.description = p.model->description;
  band.workingDirectory = session.WorkingDirectory();
  band.threads = session.Threads();
  return RunBandModes(line, common, band, progress);
}

// What the run found and how it is judged.
struct ModesResult {
  std::string methodName;
  bool ritz = false;
  EigenRequest request;
  EigenOutcome outcome;
  SturmCheck sturm;
  std::vector<double> ratios;
  bool haveVectors = false;
  bool shortOfModes = false;
  bool partial = false;
  double totalSeconds = 0.0;
  int Found() const { return static_cast<int>(outcome.values.size()); }
};

void WriteFiles(const CommandLine& line, const ModesProblem& p, const ModesResult& r) {
  if (line.Has("-o") && r.haveVectors)
    WriteModeShapes(line.Text("-o"), r.outcome, p.k.n,
                    "mode shapes by vqsolve modes --method " + r.methodName);
  if (line.Has("--svg") && r.haveVectors)
    DrawModeShapes(
        line.Text("--svg"), *p.model, r.outcome, p.k.n,
        [](int m, double lambda) { return Format("Mode %d: %.4g Hz", m + 1, Hertz(lambda)); },
        "vqsolve modes (" + r.methodName + ")");
}

// Partial: fewer modes than asked (unless a limit or an interval ended the search), a run the
// library itself calls partial, or eigenvalues the Sturm count says were missed. Ritz vectors
// follow the load pattern, not the spectrum: modes the pattern does not excite are left out by
// design, so their Sturm count informs and does not fail the run.
void Judge(ModesResult& r) {
  const bool bounded = r.request.hasLimit || r.request.hasInterval;
  r.shortOfModes = r.Found() < r.request.count && !bounded;
  r.partial = r.outcome.Partial() || r.shortOfModes || (r.sturm.done && !r.sturm.passed && !r.ritz);
}

Json ModesDocument(const ModesProblem& p, const Pencil& pencil, const ModesResult& r, int threads) {
  Json doc = Json::Object();
  doc.Set("command", "modes");
  doc.Set("method", r.methodName);
  doc.Set("stiffness", p.kName);
  doc.Set("mass", p.mName);
  doc.Set("lumpedMass", pencil.diagonal != nullptr);
  doc.Set("equations", p.k.n);
  doc.Set("requested", r.request.count);
  doc.Set("found", r.Found());
  doc.Set("modes", ModesJson(r.outcome.values, r.ratios));
  doc.Set("eigenvalues", Json::Numbers(r.outcome.values));
  doc.Set("massDirection", p.patternName);
  doc.Set("sturm", SturmJson(r.sturm));
  doc.Set("status", StatusJson(r.outcome));
  doc.Set("partial", r.partial);
  if (!r.outcome.note.empty()) doc.Set("note", r.outcome.note);
  doc.Set("seconds", SecondsJson(r.outcome, r.sturm, r.totalSeconds));
  doc.Set("threads", threads);
  return doc;
}

std::string ModesTable(const ModesResult& r) {
  TextTable table(ModeColumns(!r.ratios.empty()));
  for (int m = 0; m < r.Found(); ++m) {
    std::vector<std::string> row = ModeRow(std::to_string(m + 1), r.outcome.values[m]);
    if (!r.ratios.empty()) row.push_back(Format("%.2f", 100.0 * r.ratios[m]));
    table.AddRow(row);
  }
  return table.Render(2) + "\n";
}

std::string SturmLine(const ModesResult& r) {
  const SturmCheck& sturm = r.sturm;
  if (!sturm.done)
    return sturm.message.empty() ? std::string()
                                 : "  Sturm check  not done: " + sturm.message + "\n";
  if (sturm.interval)
    return Format(
        "  Sturm check  %d eigenvalues between %.6g and %.6g (pivot counts of K - sigma M), "
        "%d found: %s\n",
        sturm.counted, sturm.lowerShift, sturm.shift, sturm.found,
        sturm.passed ? "passed" : "FAILED, eigenvalues were missed");
  return Format(
      "  Sturm check  %d eigenvalues below sigma = %.6g (negative pivots of K - sigma M), "
      "%d found: %s\n",
      sturm.counted, sturm.shift, sturm.found,
      sturm.passed ? "passed"
      : r.ritz     ? "the Ritz vectors follow the load pattern and leave out the "
                     "modes it does not excite"
                   : "FAILED, eigenvalues were missed");
}

std::string ModesText(const CommandLine& line, const ModesProblem& p, const ModesResult& r) {
  std::string text;
  text += "vqsolve modes\n";
  text +=
      Format("  K       %s: %d equations, %d stored entries\n", p.kName.c_str(), p.k.n, p.k.Nnz());
  if (p.model) text += Format("          %s\n", p.model->description.c_str());
  text += Format("  M       %s\n", p.mName.c_str());
  text += Format("  method  %s: %d mode%s requested, %d found in %s%s\n", r.methodName.c_str(),
                 r.request.count, r.request.count == 1 ? "" : "s", r.Found(),
                 Seconds(r.outcome.seconds).c_str(),
                 r.outcome.note.empty() ? "" : (" (" + r.outcome.note + ")").c_str());
  text += "\n";
  text += ModesTable(r);
  if (!r.ratios.empty()) text += "  effective mass along: " + p.patternName + "\n";
  text += SturmLine(r);
  text +=
      ClosingLines(r.outcome, r.sturm, r.shortOfModes, r.request.count, "modes", r.totalSeconds);
  if (line.Has("-o") && r.haveVectors)
    text += "  mode shapes  written to " + line.Text("-o") + "\n";
  if (line.Has("--svg") && r.haveVectors)
    text += "  picture      written to " + line.Text("--svg") + "\n";
  return text;
}

}  // namespace

int ModesCommand(int argc, char** argv, int first) {
  CommandLine line("modes", ModesOptions(), argc, argv, first);
  if (line.Help()) {
    std::fputs(
        line.Usage("vqsolve modes (-K K.mtx (-M M.mtx | --lumped M.mtx) | --model MODEL) -n 20 "
                   "[--method NAME] [options]")
            .c_str(),
        stdout);
    return kExitSuccess;
  }
  const CommonOptions common = ReadCommonOptions(line);
  ModesResult r;
  const Method method = ReadMethod(line, r.methodName);
  r.ritz = method == Method::Ritz;
  CheckProblemOptions(line);
  r.request = ReadRequest(line, method);
  Progress progress = MakeProgress(common);
  const auto start = std::chrono::steady_clock::now();

  ModesProblem p;
  LoadProblem(line, p, progress);
  const Pencil pencil = p.MakePencil();

  LibrarySession session(common.threads, common.outOfCoreMode, common.workingDirectory);
  if (line.Has("--no-sturm")) VQ_SetEigenVerification(0);
  if (BandRequested(line)) return RunBand(line, common, p, pencil, session, progress);
  if (line.Has("--residual") || line.Has("--max-modes"))
    throw UsageError("vqsolve modes: --residual and --max-modes belong to --band or --band-eig");
  r.request.load = &p.pattern;
  r.request.wantVectors = true;
  r.request.outOfCoreMode = common.outOfCoreMode;
  r.request.workingDirectory = session.WorkingDirectory();

  r.outcome = RunEigen(method, pencil, r.request, progress);
  session.RestoreThreads();
  ThrowIfFailed(r.outcome);

  // Verification and derived numbers.
  r.sturm = VerifyBySturm(pencil, r.outcome, r.request.hasShift || r.request.hasInterval,
                          line.Has("--no-sturm"), common, session, progress,
                          "Sturm check: factorising K - sigma M");
  r.haveVectors = HasModeShapes(r.outcome, p.k.n);
  if (r.haveVectors)
    r.ratios =
        CumulativeMassRatios(pencil.b, pencil.diagonal, p.pattern, r.outcome.vectors, r.Found());
  WriteFiles(line, p, r);
  r.totalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  Judge(r);
  Emit(common, ModesDocument(p, pencil, r, session.Threads()), ModesText(line, p, r));
  return r.partial ? kExitPartial : kExitSuccess;
}

}  // namespace vqsolve
