#include "EigenReport.h"

#include <algorithm>

#include "MatrixMarketInput.h"
#include "SvgWriter.h"

namespace vqsolve {

void ThrowIfFailed(const EigenOutcome& outcome) {
  if (!outcome.Failed()) return;
  std::string message =
      outcome.registry.message.empty() ? ErrorText(outcome.code) : outcome.registry.message;
  if (outcome.registry.instabilityDof > 0 && (outcome.code == -3 || outcome.registry.error == -3))
    message += Format(": instability at equation %d", outcome.registry.instabilityDof);
  throw SolverError(outcome.code, message, outcome.registry.instabilityDof);
}

SturmCheck VerifyBySturm(const Pencil& pencil, const EigenOutcome& outcome, bool aboveOnly,
                         bool skip, const CommonOptions& common, const LibrarySession& session,
                         Progress& progress, const std::string& activity) {
  if (skip || outcome.values.empty()) return SturmCheck();
  DirectOptions options;
  options.outOfCoreMode = common.outOfCoreMode;
  options.workingDirectory = session.WorkingDirectory();
  LibraryCall call(progress, activity);
  return CheckFound(pencil, outcome.values, aboveOnly, options);
}

bool HasModeShapes(const EigenOutcome& outcome, int n) {
  const size_t found = outcome.values.size();
  return found > 0 && outcome.vectors.size() >= found * static_cast<size_t>(n);
}

void WriteModeShapes(const std::string& path, const EigenOutcome& outcome, int n,
                     const std::string& comment) {
  DenseBlock out;
  out.rows = n;
  out.cols = static_cast<int>(outcome.values.size());
  out.values.assign(outcome.vectors.begin(),
                    outcome.vectors.begin() + static_cast<size_t>(out.cols) * n);
  WriteDenseBlock(path, out, comment);
}

void DrawModeShapes(const std::string& path, const GeneratedModel& model,
                    const EigenOutcome& outcome, int n,
                    const std::function<std::string(int, double)>& title,
                    const std::string& heading) {
  std::vector<SvgPanel> panels;
  const int found = static_cast<int>(outcome.values.size());
  for (int m = 0; m < std::min(found, 12); ++m)
    panels.push_back({title(m, outcome.values[m]),
                      model.toNodes(&outcome.vectors[static_cast<size_t>(m) * n]), true});
  WriteSvg(path, model.mesh, panels, heading, model.description);
}

Json ModesJson(const std::vector<double>& eigenvalues, const std::vector<double>& ratios) {
  Json modes = Json::Array();
  for (size_t m = 0; m < eigenvalues.size(); ++m) {
    Json one = Json::Object();
    const double lambda = eigenvalues[m];
    one.Set("mode", static_cast<int>(m) + 1);
    one.Set("eigenvalue", lambda);
    one.Set("omega", Omega(lambda));
    one.Set("frequency", Hertz(lambda));
    one.Set("period", Period(lambda));
    if (m < ratios.size()) one.Set("cumulativeMassRatio", ratios[m]);
    modes.Push(one);
  }
  return modes;
}

std::vector<TextTable::Column> ModeColumns(bool withMass) {
  std::vector<TextTable::Column> columns = {
      {"mode"}, {"eigenvalue"}, {"omega [rad/s]"}, {"f [Hz]"}, {"T [s]"}};
  if (withMass) columns.push_back({"cum. mass [%]"});
  return columns;
}

std::vector<std::string> ModeRow(const std::string& label, double lambda) {
  return {label, Format("%.10e", lambda), Number(Omega(lambda), 8), Number(Hertz(lambda), 8),
          Number(Period(lambda), 6)};
}

Json SturmJson(const SturmCheck& sturm) {
  Json json = Json::Object();
  json.Set("done", sturm.done);
  if (sturm.done) {
    json.Set("shift", sturm.shift);
    if (sturm.interval) json.Set("lowerShift", sturm.lowerShift);
    json.Set("eigenvaluesBelowShift", sturm.counted);
    json.Set("found", sturm.found);
    json.Set("passed", sturm.passed);
  } else if (!sturm.message.empty()) {
    json.Set("error", sturm.message);
  }
  return json;
}

Json StatusJson(const EigenOutcome& outcome) {
  Json status = Json::Object();
  status.Set("code", outcome.code);
  status.Set("error", outcome.registry.error);
  status.Set("message", outcome.registry.message);
  status.Set("warning", outcome.registry.warning);
  status.Set("warningMessage", outcome.registry.warningMessage);
  return status;
}

Json SecondsJson(const EigenOutcome& outcome, const SturmCheck& sturm, double totalSeconds) {
  Json seconds = Json::Object();
  seconds.Set("solve", outcome.seconds);
  seconds.Set("sturm", sturm.seconds);
  seconds.Set("total", totalSeconds);
  return seconds;
}

std::string ClosingLines(const EigenOutcome& outcome, const SturmCheck& sturm, bool shortOfModes,
                         int requested, const char* what, double totalSeconds) {
  std::string text;
  const int found = static_cast<int>(outcome.values.size());
  if (outcome.registry.warning != 0)
    text += "  warning      " + outcome.registry.warningMessage + "\n";
  if (outcome.Partial()) text += "  partial      " + outcome.registry.message + "\n";
  if (shortOfModes)
    text += Format("  partial      %d of the %d %s requested were found\n", found, requested, what);
  text += Format("  time         solve %s, Sturm check %s, total %s\n",
                 Seconds(outcome.seconds).c_str(), Seconds(sturm.seconds).c_str(),
                 Seconds(totalSeconds).c_str());
  return text;
}

}  // namespace vqsolve
