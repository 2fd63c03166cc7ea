// vqsolve static: K·X = F by the sparse direct solver, with the residual, the inertia and, for
// a singular model, the equation at which the instability shows.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>

#include "Commands.h"
#include "DirectSolve.h"
#include "GeneratedModel.h"
#include "Library.h"
#include "MatrixMarketInput.h"

namespace vqsolve {

namespace {

using vqmath::models::CsrMatrix;

// Below this fraction the model is reported as ill-conditioned (a warning).
constexpr double kIllConditionedPivotRatio = 1e-8;

struct PivotReport {
  bool known = false;  // the diagonals came back
  double smallestRatio = 0.0;
  int equation = 0;  // 1-based
};

PivotReport AnalysePivots(const DirectResult& r) {
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

std::vector<OptionInfo> StaticOptions() {
  std::vector<OptionInfo> specs = {
      {"-K", "FILE", "stiffness matrix (MatrixMarket, symmetric)"},
      {"-F", "FILE", "load vectors, one column per load case (MatrixMarket array or coordinate)"},
      {"--model", "MODEL", "a generated model instead of files: solid[:EQUATIONS], column, portal"},
      {"-o", "FILE", "write the solution (MatrixMarket array)"},
      {"--svg", "FILE", "draw the deformed shape of a generated model"},
  };
  for (auto& s : CommonOptionSpecs()) specs.push_back(s);
  return specs;
}

void CheckProblemOptions(const CommandLine& line) {
  if (line.Has("--model") == line.Has("-K"))
    throw UsageError("vqsolve static: give either -K (with -F) or --model");
  if (line.Has("-K") && !line.Has("-F")) throw UsageError("vqsolve static: -K needs the loads -F");
  if (line.Has("--svg") && !line.Has("--model"))
    throw UsageError(
        "vqsolve static: --svg draws a generated model (--model); matrix files carry no mesh");
}

// K and the load cases F, from a generated model or from files, with their names.
struct StaticProblem {
  CsrMatrix k;
  DenseBlock f;
  std::unique_ptr<GeneratedModel> model;
  std::string kName, fName;
};

void BuildModel(const CommandLine& line, StaticProblem& p, Progress& progress) {
  progress.Status("building the model");
  p.model = std::make_unique<GeneratedModel>(MakeModel(line.Text("--model"), false));
  p.k = p.model->k;
  p.kName = "model " + p.model->name;
  if (line.Has("-F")) {
    p.fName = line.Text("-F");
    p.f = ReadDenseBlock(p.fName);
  } else {
    p.fName = p.model->loadDescription;
    p.f.rows = p.k.n;
    p.f.cols = 1;
    p.f.values = p.model->load;
  }
}

void LoadProblem(const CommandLine& line, StaticProblem& p, Progress& progress) {
  if (line.Has("--model")) {
    BuildModel(line, p, progress);
  } else {
    p.kName = line.Text("-K");
    p.fName = line.Text("-F");
    p.k = LoadMatrix(p.kName, progress);
    progress.Status("reading " + p.fName);
    p.f = ReadDenseBlock(p.fName);
  }
  progress.Clear();
  if (p.f.rows != p.k.n)
    throw InputError(Format("size mismatch: %s is %d x %d but %s has %d rows", p.kName.c_str(),
                            p.k.n, p.k.n, p.fName.c_str(), p.f.rows));
  if (p.f.cols < 1) throw InputError(p.fName + ": no load case (0 columns)");
}

// The solution and what the library and the residuals say about it.
struct StaticResult {
  std::vector<double> x;
  DirectResult direct;
  PivotReport pivots;
  std::vector<double> residual, largest;  // per load case: |Kx-F|/|F| and max |x|
  double readSeconds = 0.0;
  double totalSeconds = 0.0;
};

// Factorises and solves; a singular K (the library's verdict, code -3) and other failures throw.
void Solve(const StaticProblem& p, const CommonOptions& common, const LibrarySession& session,
           Progress& progress, StaticResult& r) {
  r.x.assign(p.f.values.size(), 0.0);
  DirectOptions options;
  options.outOfCoreMode = common.outOfCoreMode;
  options.matrixType = -2;
  options.diagonals = true;
  options.workingDirectory = session.WorkingDirectory();
  {
    LibraryCall call(progress, Format("factorising and solving (%d equations, %d load case%s)",
                                      p.k.n, p.f.cols, p.f.cols == 1 ? "" : "s"));
    r.direct = SolveDirect(p.k, p.f.values.data(), p.f.cols, r.x.data(), options);
  }
  r.pivots = AnalysePivots(r.direct);
  const DirectResult& d = r.direct;
  if (d.code == -3 || d.registry.error == -3) {
    const int dof = d.registry.instabilityDof;
    throw SolverError(
        -3, d.registry.message + (dof > 0 ? Format(": instability at equation %d", dof) : ""), dof);
  }
  if (d.code != 0 && d.code != -85) throw SolverError(d.code, d.registry.message);
}

void ComputeResiduals(const StaticProblem& p, StaticResult& r) {
  const int n = p.k.n;
  r.residual.resize(static_cast<size_t>(p.f.cols));
  r.largest.resize(static_cast<size_t>(p.f.cols));
  for (int c = 0; c < p.f.cols; ++c)
    r.residual[c] = RelativeResidual(p.k, &r.x[static_cast<size_t>(c) * n],
                                     &p.f.values[static_cast<size_t>(c) * n], &r.largest[c]);
}

void WriteFiles(const CommandLine& line, const StaticProblem& p, const StaticResult& r) {
  const int n = p.k.n;
  if (line.Has("-o")) {
    DenseBlock out;
    out.rows = n;
    out.cols = p.f.cols;
    out.values = r.x;
    WriteDenseBlock(line.Text("-o"), out, "solution of K x = F by vqsolve static");
  }
  if (line.Has("--svg")) {
    std::vector<SvgPanel> panels;
    for (int c = 0; c < p.f.cols; ++c)
      panels.push_back({Format("Load case %d: max |u| = %.3g m", c + 1, r.largest[c]),
                        p.model->toNodes(&r.x[static_cast<size_t>(c) * n])});
    WriteSvg(line.Text("--svg"), p.model->mesh, panels, "vqsolve static", p.model->description);
  }
}

Json StaticJson(const CommandLine& line, const CommonOptions& common, const StaticProblem& p,
                const StaticResult& r, int threads) {
  const DirectResult& d = r.direct;
  Json doc = Json::Object();
  doc.Set("command", "static");
  doc.Set("stiffness", p.kName);
  doc.Set("loads", p.fName);
  doc.Set("equations", p.k.n);
  doc.Set("storedEntries", p.k.Nnz());
  doc.Set("loadCases", p.f.cols);
  Json cases = Json::Array();
  for (int c = 0; c < p.f.cols; ++c) {
    Json one = Json::Object();
    one.Set("loadCase", c + 1);
    one.Set("residual", r.residual[c]);
    one.Set("maxDisplacement", r.largest[c]);
    cases.Push(one);
  }
  doc.Set("cases", cases);
  doc.Set("residual", *std::max_element(r.residual.begin(), r.residual.end()));
  doc.Set("negativePivots", d.registry.negativePivots);
  doc.Set("positivePivots", d.registry.positivePivots);
  doc.Set("perturbedPivots", d.PerturbedPivots());
  doc.Set("positiveDefinite", d.registry.negativePivots == 0);
  doc.Set("factorEntries", static_cast<long long>(d.FactorEntries()));
  if (r.pivots.known) {
    doc.Set("smallestPivotRatio", r.pivots.smallestRatio);
    doc.Set("smallestPivotEquation", r.pivots.equation);
  }
  Json seconds = Json::Object();
  seconds.Set("read", r.readSeconds);
  seconds.Set("factoriseAndSolve", d.seconds);
  seconds.Set("total", r.totalSeconds);
  doc.Set("seconds", seconds);
  doc.Set("threads", threads);
  doc.Set("outOfCoreMode", common.outOfCoreMode);
  doc.Set("warning", d.registry.warningMessage);
  if (line.Has("-o")) doc.Set("solutionFile", line.Text("-o"));
  if (line.Has("--svg")) doc.Set("svgFile", line.Text("--svg"));
  return doc;
}

// The inertia, pivot, factor, time and file lines under the table, and the warnings.
std::string StaticFindings(const CommandLine& line, const StaticResult& r) {
  const DirectResult& d = r.direct;
  const int negative = d.registry.negativePivots, positive = d.registry.positivePivots;
  const bool illConditioned = r.pivots.known && r.pivots.smallestRatio < kIllConditionedPivotRatio;
  std::string text;
  text += Format("  inertia   %d negative, %d positive pivots%s\n", negative, positive,
                 negative == 0 ? " (K is positive definite)" : " (K is not positive definite)");
  if (r.pivots.known)
    text += Format("  pivots    smallest ratio pivot/diagonal %.3g at equation %d%s\n",
                   r.pivots.smallestRatio, r.pivots.equation,
                   illConditioned ? "  <- ill-conditioned" : "");
  if (d.FactorEntries() > 0) text += Format("  factor    %lld entries\n", d.FactorEntries());
  text += Format("  time      read %s, factorise and solve %s, total %s\n",
                 Seconds(r.readSeconds).c_str(), Seconds(d.seconds).c_str(),
                 Seconds(r.totalSeconds).c_str());
  if (line.Has("-o")) text += "  solution  written to " + line.Text("-o") + "\n";
  if (line.Has("--svg")) text += "  picture   written to " + line.Text("--svg") + "\n";
  if (negative > 0)
    text += Format(
        "  warning   %d negative pivot%s: the structure is unstable or the system indefinite\n",
        negative, negative == 1 ? "" : "s");
  if (d.PerturbedPivots() > 0)
    text += Format("  warning   %d small pivot%s perturbed by PARDISO: K is nearly singular\n",
                   d.PerturbedPivots(), d.PerturbedPivots() == 1 ? "" : "s");
  return text;
}

std::string StaticText(const CommandLine& line, const CommonOptions& common, const StaticProblem& p,
                       const StaticResult& r, int threads) {
  std::string text;
  text += "vqsolve static\n";
  text +=
      Format("  K      %s: %d equations, %d stored entries\n", p.kName.c_str(), p.k.n, p.k.Nnz());
  if (p.model) text += Format("         %s\n", p.model->description.c_str());
  text +=
      Format("  F      %s: %d load case%s\n", p.fName.c_str(), p.f.cols, p.f.cols == 1 ? "" : "s");
  static const char* kModes[] = {"in core", "in core when it fits", "out of core"};
  text += Format("  solver PARDISO %s, %d thread%s\n\n", kModes[common.outOfCoreMode], threads,
                 threads == 1 ? "" : "s");
  TextTable table({{"load case"}, {"residual |Kx-F|/|F|"}, {"max |x|"}});
  for (int c = 0; c < p.f.cols; ++c)
    table.AddRow(
        {std::to_string(c + 1), Format("%.3e", r.residual[c]), Format("%.6g", r.largest[c])});
  text += table.Render(2) + "\n";
  return text + StaticFindings(line, r);
}

}  // namespace

int StaticCommand(int argc, char** argv, int first) {
  CommandLine line("static", StaticOptions(), argc, argv, first);
  if (line.Help()) {
    std::fputs(line.Usage("vqsolve static (-K K.mtx -F F.mtx | --model MODEL) [-o X.mtx] [options]")
                   .c_str(),
               stdout);
    return kExitSuccess;
  }
  const CommonOptions common = ReadCommonOptions(line);
  CheckProblemOptions(line);
  Progress progress = MakeProgress(common);
  const auto start = std::chrono::steady_clock::now();
  auto elapsed = [&start] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };

  StaticProblem p;
  LoadProblem(line, p, progress);
  StaticResult r;
  r.readSeconds = elapsed();

  LibrarySession session(common.threads, common.outOfCoreMode, common.workingDirectory);
  Solve(p, common, session, progress, r);
  ComputeResiduals(p, r);
  WriteFiles(line, p, r);
  r.totalSeconds = elapsed();
  Emit(common, StaticJson(line, common, p, r, session.Threads()),
       StaticText(line, common, p, r, session.Threads()));
  return kExitSuccess;
}

}  // namespace vqsolve
