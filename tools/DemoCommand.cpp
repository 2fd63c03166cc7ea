// vqsolve demo: a generated 3D solid, one static load case and its lowest modes by every method
// that suits the size, compared in one table (agreement in digits, time, Sturm check), and a
// picture of the static deflection and the first modes.

#include <algorithm>
#include <chrono>
#include <cmath>

#include "Commands.h"
#include "DirectSolve.h"
#include "EigenMethods.h"
#include "GeneratedModel.h"
#include "Library.h"
#include "MatrixMarketInput.h"
#include "SturmCheck.h"

namespace vqsolve {

namespace {

struct MethodRun {
  Method method;
  bool ran = false;
  std::string skipped;  // why it did not run
  EigenOutcome outcome;
  SturmCheck sturm;
  double digits = 0.0;  // agreement with the reference, in significant digits
  int matched = 0;      // Ritz values that are eigenvalues of the reference (6 digits or more)
  bool reference = false;
  double massRatio = std::nan("");
};

// Significant digits to which the values agree with the reference, over the modes both have.
double AgreementDigits(const std::vector<double>& values, const std::vector<double>& reference) {
  const size_t m = std::min(values.size(), reference.size());
  if (m == 0) return 0.0;
  double worst = 0.0;
  for (size_t k = 0; k < m; ++k) {
    const double scale = std::max(std::fabs(reference[k]), 1e-300);
    worst = std::max(worst, std::fabs(values[k] - reference[k]) / scale);
  }
  return worst > 1e-16 ? std::min(16.0, -std::log10(worst)) : 16.0;
}

// Ritz values are a selection of the spectrum (the modes the load excites): each is compared
// with the nearest reference eigenvalue; those agreeing to 6 digits or more count as matched, and
// the digits are the worst over them.
double MatchedDigits(const std::vector<double>& values, const std::vector<double>& reference,
                     int& matched) {
  matched = 0;
  double worst = 0.0;
  for (double v : values) {
    double best = HUGE_VAL;
    for (double r : reference)
      best = std::min(best, std::fabs(v - r) / std::max(std::fabs(r), 1e-300));
    if (best <= 1e-6) {
      ++matched;
      worst = std::max(worst, best);
    }
  }
  if (matched == 0) return 0.0;
  return worst > 1e-16 ? std::min(16.0, -std::log10(worst)) : 16.0;
}

std::vector<OptionInfo> DemoOptions() {
  std::vector<OptionInfo> specs = {
      {"--size", "SIZE",
       "small (about 400 equations), medium (about 30 000, default) or large (about 100 000)"},
      {"-n", "N", "number of modes (default 12)"},
      {"--svg", "FILE",
       "picture of the static deflection and the first modes (default vqsolve-demo.svg)"},
      {"--no-svg", "", "no picture"},
  };
  for (auto& s : CommonOptionSpecs()) specs.push_back(s);
  return specs;
}

// The static load case of the model.
struct StaticCase {
  std::vector<double> x;
  DirectResult direct;
  double residual = 0.0;
  double tip = 0.0;  // max |x|
};

StaticCase SolveStatic(const GeneratedModel& model, const DirectOptions& direct,
                       Progress& progress) {
  const int n = model.k.n;
  StaticCase st;
  st.x.assign(static_cast<size_t>(n), 0.0);
  {
    LibraryCall call(progress, Format("static load case: factorising and solving %d equations", n));
    st.direct = SolveDirect(model.k, model.load.data(), 1, st.x.data(), direct);
  }
  const DirectResult& d = st.direct;
  if (d.code != 0 && d.code != -85)
    throw SolverError(d.code, d.registry.message, d.registry.instabilityDof);
  st.residual = RelativeResidual(model.k, st.x.data(), model.load.data(), &st.tip);
  return st;
}

// Every method, those that do not suit the size marked as skipped.
std::vector<MethodRun> PlanRuns(int n) {
  std::vector<MethodRun> runs;
  for (Method m : AllMethods()) {
    MethodRun run;
    run.method = m;
    if (m == Method::Feast && n > 3000)
      run.skipped = "complex factorisations on one thread, minutes at this size (try --size small)";
    else if (m == Method::Lapack && n > 1500)
      run.skipped = Format("dense, too large (%d equations)", n);
    else if (m == Method::Jacobi && n > 500)
      run.skipped = Format("dense, too large (%d equations)", n);
    runs.push_back(run);
  }
  return runs;
}

// Runs one method with its Sturm check and effective mass; a method that does not suit the
// problem is marked as skipped.
void RunMethod(MethodRun& run, const GeneratedModel& model, const Pencil& pencil,
               const EigenRequest& request, const LibrarySession& session,
               const DirectOptions& direct, Progress& progress) {
  try {
    run.outcome = RunEigen(run.method, pencil, request, progress);
    run.ran = true;
  } catch (const InputError& e) {
    run.skipped = e.what();
    return;
  }
  session.RestoreThreads();
  if (run.outcome.Failed() || run.outcome.values.empty()) return;
  LibraryCall call(progress, Format("%s: Sturm check", MethodName(run.method)));
  run.sturm = CheckFound(pencil, run.outcome.values, false, direct);
  const std::vector<double> ratios =
      CumulativeMassRatios(nullptr, &model.lumpedMass, model.direction, run.outcome.vectors,
                           static_cast<int>(run.outcome.values.size()));
  if (!ratios.empty()) run.massRatio = ratios.back();
}

// The reference: the dense solution when there is one, else the first sparse method that found
// every mode and passed its Sturm check. Every other run is scored against it.
const MethodRun* ScoreAgainstReference(std::vector<MethodRun>& runs, int count) {
  const MethodRun* reference = nullptr;
  for (Method preferred : {Method::Lapack, Method::Lanczos, Method::Subspace, Method::Feast})
    for (const MethodRun& run : runs)
      if (!reference && run.method == preferred && run.ran && !run.outcome.Failed() &&
          static_cast<int>(run.outcome.values.size()) == count &&
          (!run.sturm.done || run.sturm.passed))
        reference = &run;
  for (MethodRun& run : runs) {
    if (!reference || !run.ran || run.outcome.Failed()) continue;
    run.reference = &run == reference;
    run.digits = run.method == Method::Ritz
                     ? MatchedDigits(run.outcome.values, reference->outcome.values, run.matched)
                     : AgreementDigits(run.outcome.values, reference->outcome.values);
  }
  return reference;
}

// The static deflection and the first modes of the reference.
void DrawDemo(const std::string& svgPath, const GeneratedModel& model, const StaticCase& st,
              const MethodRun* reference) {
  const int n = model.k.n;
  std::vector<SvgPanel> panels;
  panels.push_back(
      {Format("Static load: tip deflection %.3g mm", 1e3 * st.tip), model.toNodes(st.x.data())});
  if (reference)
    for (int m = 0; m < std::min(5, static_cast<int>(reference->outcome.values.size())); ++m)
      if (reference->outcome.vectors.size() >= static_cast<size_t>(m + 1) * n)
        panels.push_back({Format("Mode %d: %.4g Hz", m + 1, Hertz(reference->outcome.values[m])),
                          model.toNodes(&reference->outcome.vectors[static_cast<size_t>(m) * n]),
                          true});
  WriteSvg(svgPath, model.mesh, panels, "vqsolve demo", model.description);
}

// Everything the report needs.
struct DemoResult {
  std::string size;
  int count = 0;
  StaticCase st;
  std::vector<MethodRun> runs;
  const MethodRun* reference = nullptr;
  std::string svgPath;
  int threads = 0;
  double totalSeconds = 0.0;
};

Json RunJson(const MethodRun& run, const MethodRun* reference) {
  Json one = Json::Object();
  one.Set("method", MethodName(run.method));
  one.Set("ran", run.ran);
  if (!run.skipped.empty()) one.Set("skipped", run.skipped);
  if (!run.ran) return one;
  one.Set("code", run.outcome.code);
  one.Set("message", run.outcome.registry.message);
  one.Set("found", static_cast<int>(run.outcome.values.size()));
  one.Set("eigenvalues", Json::Numbers(run.outcome.values));
  one.Set("seconds", run.outcome.seconds);
  if (reference && !run.outcome.Failed()) one.Set("digits", run.digits);
  if (reference && run.method == Method::Ritz) one.Set("matchedModes", run.matched);
  one.Set("reference", run.reference);
  one.Set("sturmDone", run.sturm.done);
  if (run.sturm.done) {
    one.Set("sturmPassed", run.sturm.passed);
    one.Set("eigenvaluesBelowShift", run.sturm.counted);
  }
  one.Set("cumulativeMassRatio", run.massRatio);
  return one;
}

Json DemoJson(const GeneratedModel& model, const DemoResult& r) {
  const DirectResult& d = r.st.direct;
  Json doc = Json::Object();
  doc.Set("command", "demo");
  doc.Set("size", r.size);
  doc.Set("model", model.description);
  doc.Set("equations", model.k.n);
  doc.Set("storedEntries", model.k.Nnz());
  doc.Set("threads", r.threads);
  Json statics = Json::Object();
  statics.Set("load", model.loadDescription);
  statics.Set("residual", r.st.residual);
  statics.Set("maxDisplacement", r.st.tip);
  statics.Set("negativePivots", d.registry.negativePivots);
  statics.Set("positivePivots", d.registry.positivePivots);
  statics.Set("factorEntries", static_cast<long long>(d.FactorEntries()));
  statics.Set("seconds", d.seconds);
  doc.Set("static", statics);
  doc.Set("modesRequested", r.count);
  doc.Set("reference", r.reference ? MethodName(r.reference->method) : "");
  Json methods = Json::Array();
  for (const MethodRun& run : r.runs) methods.Push(RunJson(run, r.reference));
  doc.Set("methods", methods);
  doc.Set("svgFile", r.svgPath);
  doc.Set("seconds", r.totalSeconds);
  return doc;
}

// The modes of the reference: frequency, period and cumulative effective mass.
std::string ReferenceModesText(const GeneratedModel& model, const DemoResult& r) {
  const MethodRun* reference = r.reference;
  std::string text =
      Format("\n  the %d lowest modes (%s):\n", r.count, MethodName(reference->method));
  const std::vector<double> ratios = CumulativeMassRatios(
      nullptr, &model.lumpedMass, model.direction, reference->outcome.vectors, r.count);
  TextTable modes({{"mode"}, {"f [Hz]"}, {"T [s]"}, {"cum. mass z [%]"}});
  for (int m = 0; m < r.count; ++m) {
    const double lambda = reference->outcome.values[m];
    modes.AddRow({std::to_string(m + 1), Number(Hertz(lambda), 8), Number(Period(lambda), 6),
                  m < static_cast<int>(ratios.size()) ? Format("%.1f", 100.0 * ratios[m]) : "-"});
  }
  return text + modes.Render(4);
}

std::vector<std::string> RunRow(const MethodRun& run, const MethodRun* reference, int count) {
  if (!run.ran) return {MethodName(run.method), "-", "-", "-", "-", "skipped: " + run.skipped};
  const EigenOutcome& o = run.outcome;
  if (o.Failed())
    return {MethodName(run.method), "0", "-",
            Seconds(o.seconds),     "-", "failed: " + o.registry.message};
  std::string sturm =
      !run.sturm.done    ? "not done"
      : run.sturm.passed ? Format("passed (%d below sigma)", run.sturm.counted)
      : run.method == Method::Ritz
          ? Format("%d below sigma: follows the load", run.sturm.counted)
          : Format("FAILED (%d below sigma, %d found)", run.sturm.counted, run.sturm.found);
  return {MethodName(run.method),
          Format("%d/%d", static_cast<int>(o.values.size()), count),
          run.reference                ? "ref"
          : !reference                 ? "-"
          : run.method == Method::Ritz ? Format("%.1f on %d", run.digits, run.matched)
                                       : Format("%.1f", run.digits),
          Seconds(o.seconds),
          std::isfinite(run.massRatio) ? Format("%.1f", 100.0 * run.massRatio) : "-",
          sturm};
}

// The comparison of every method, with the note on Ritz vectors when they ran.
std::string MethodsText(const DemoResult& r) {
  std::string text = Format(
      "\n  %d modes by every method%s:\n", r.count,
      r.reference
          ? (", digits of agreement with " + std::string(MethodName(r.reference->method))).c_str()
          : "");
  TextTable table(
      {{"method", false}, {"modes"}, {"digits"}, {"time"}, {"mass z [%]"}, {"Sturm check", false}});
  for (const MethodRun& run : r.runs) table.AddRow(RunRow(run, r.reference, r.count));
  text += table.Render(4);
  bool ritzShown = false;
  for (const MethodRun& run : r.runs)
    if (run.method == Method::Ritz && run.ran && !run.outcome.Failed()) ritzShown = true;
  if (ritzShown)
    text +=
        "\n  Ritz vectors start from the static load: they catch the modes that load excites (see "
        "the\n"
        "  effective mass), not every low mode; their digits are over the values that are modes.\n";
  return text;
}

std::string DemoText(const GeneratedModel& model, const DemoResult& r) {
  const DirectResult& d = r.st.direct;
  std::string text;
  text += "vqsolve demo\n";
  text += Format("  model   %s\n", model.description.c_str());
  text += Format("          %d stored entries of K, lumped mass, %d thread%s\n", model.k.Nnz(),
                 r.threads, r.threads == 1 ? "" : "s");
  text += Format(
      "  static  %s: tip deflection %.4g mm, residual %.2e, %d negative / %d positive pivots, %s\n",
      model.loadDescription.c_str(), 1e3 * r.st.tip, r.st.residual, d.registry.negativePivots,
      d.registry.positivePivots, Seconds(d.seconds).c_str());
  if (r.reference) text += ReferenceModesText(model, r);
  text += MethodsText(r);
  if (!r.svgPath.empty()) text += "\n  picture written to " + r.svgPath + "\n";
  text += Format("  total time %s\n", Seconds(r.totalSeconds).c_str());
  return text;
}

}  // namespace

int DemoCommand(int argc, char** argv, int first) {
  CommandLine line("demo", DemoOptions(), argc, argv, first);
  if (line.Help()) {
    std::fputs(line.Usage("vqsolve demo [--size small|medium|large] [options]").c_str(), stdout);
    return kExitSuccess;
  }
  const CommonOptions common = ReadCommonOptions(line);
  DemoResult r;
  r.size = line.Choice("--size", {"small", "medium", "large"}, "medium");
  r.count = line.Integer("-n", 12, 1, 200);
  if (line.Has("--svg") && line.Has("--no-svg"))
    throw UsageError("vqsolve demo: --svg and --no-svg exclude each other");
  r.svgPath = line.Has("--no-svg") ? "" : line.Text("--svg", "vqsolve-demo.svg");
  Progress progress = MakeProgress(common);
  const auto start = std::chrono::steady_clock::now();

  // The model: a clamped steel bar, slightly wider than high so that its two bending
  // directions have distinct frequencies.
  const int target = r.size == "small" ? 400 : r.size == "large" ? 100000 : 30000;
  progress.Status("building the model");
  const GeneratedModel model = MakeSolid(BarParameters(target), false);
  progress.Clear();
  Pencil pencil;
  pencil.k = &model.k;
  pencil.diagonal = &model.lumpedMass;

  LibrarySession session(common.threads, common.outOfCoreMode, common.workingDirectory);
  r.threads = session.Threads();
  DirectOptions direct;
  direct.outOfCoreMode = common.outOfCoreMode;
  direct.workingDirectory = session.WorkingDirectory();
  r.st = SolveStatic(model, direct, progress);

  EigenRequest request;
  request.count = r.count;
  request.wantVectors = true;
  request.load = &model.load;  // Ritz vectors start from the static load
  request.outOfCoreMode = common.outOfCoreMode;
  request.workingDirectory = session.WorkingDirectory();
  r.runs = PlanRuns(model.k.n);
  for (MethodRun& run : r.runs)
    if (run.skipped.empty()) RunMethod(run, model, pencil, request, session, direct, progress);
  r.reference = ScoreAgainstReference(r.runs, r.count);

  if (!r.svgPath.empty()) DrawDemo(r.svgPath, model, r.st, r.reference);
  r.totalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  Emit(common, DemoJson(model, r), DemoText(model, r));
  return r.reference ? kExitSuccess : kExitSolverFailure;
}

}  // namespace vqsolve
