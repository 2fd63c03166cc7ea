// vqsolve modes --band: every mode in a frequency (or eigenvalue) band through
// VQ_EigenvalueAnalysis_Band/_Band2, the table with the cumulative effective mass, the Sturm
// proof of each slice (VQ_GetBandSlices) and, with --residual, the residual mode's row.
#include "BandModes.h"

#include <cfloat>
#include <chrono>
#include <cmath>
#include <tuple>

#include "EigenReport.h"
#include "Library.h"
#include "MatrixMarketInput.h"
#include "Output.h"
#include "vqmath.h"

namespace vqsolve {

namespace {

constexpr double kTwoPi = 6.283185307179586;

double EigenvalueOfHertz(double f) { return (kTwoPi * f) * (kTwoPi * f); }

struct Slice {
  double lower, upper, shift;
  int below, belowUpper, belowShift, found;
};

// The band asked for, in eigenvalues, and its description for the report.
struct Band {
  double lower = 0.0, upper = 0.0;
  std::string text;
};

Band ReadBand(const CommandLine& line) {
  if (line.Has("--band") && line.Has("--band-eig"))
    throw UsageError("vqsolve modes: give either --band (Hz) or --band-eig (eigenvalues)");
  Band band;
  if (line.Has("--band")) {
    double f1 = 0.0, f2 = 0.0;
    std::tie(f1, f2) = line.Interval("--band");
    band.lower = f1 <= 0.0 ? -DBL_MAX : EigenvalueOfHertz(f1);
    band.upper = EigenvalueOfHertz(f2);
    band.text = Format("%.6g Hz <= f <= %.6g Hz", f1, f2);
  } else {
    std::tie(band.lower, band.upper) = line.Interval("--band-eig");
    band.text = Format("%.6g <= eigenvalue <= %.6g", band.lower, band.upper);
  }
  return band;
}

// What the band search found, with its proof and the residual mode.
struct BandResult {
  int bandCount = 0, found = 0;
  std::vector<double> values, vectors;
  std::vector<Slice> slices;
  bool proven = true;
  std::vector<double> ratios;
  bool haveResidual = false;
  double residualLambda = 0.0, residualFraction = 0.0;
  double solveSeconds = 0.0, totalSeconds = 0.0;
};

// Every mode in the band by the library's band search (at most cap of them).
void SolveBand(const BandInput& input, const Band& band, int cap, Progress& progress,
               BandResult& r) {
  const Pencil& pencil = *input.pencil;
  const int n = pencil.N();
  const auto& k = *pencil.k;
  r.values.assign(static_cast<size_t>(cap), 0.0);
  r.vectors.assign(static_cast<size_t>(n) * cap, 0.0);
  const auto start = std::chrono::steady_clock::now();
  progress.Status("band search: factorising K - sigma M and solving the slices");
  const int code =
      pencil.b ? VQ_EigenvalueAnalysis_Band2(
                     n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                     pencil.b->rowPointers.data(), pencil.b->columnIndices.data(),
                     pencil.b->values.data(), band.lower, band.upper, cap, &r.bandCount, &r.found,
                     r.values.data(), r.vectors.data(), input.workingDirectory.c_str())
               : VQ_EigenvalueAnalysis_Band(
                     n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                     pencil.diagonal->data(), band.lower, band.upper, cap, &r.bandCount, &r.found,
                     r.values.data(), r.vectors.data(), input.workingDirectory.c_str());
  const Registry registry = ReadRegistry();
  r.solveSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  progress.Clear();
  if (code == -90)
    throw SolverError(code, Format("%s: the band holds %d modes, more than --max-modes %d",
                                   registry.message.c_str(), r.bandCount, cap));
  if (code != 0)
    throw SolverError(code, registry.message.empty() ? ErrorText(code) : registry.message,
                      registry.instabilityDof);
  r.values.resize(r.found);
  r.vectors.resize(static_cast<size_t>(n) * r.found);
}

// The slices of the last band search with their Sturm counts (VQ_GetBandSlices).
std::vector<Slice> ReadSlices() {
  std::vector<Slice> slices(static_cast<size_t>(VQ_GetBandSlices(0, nullptr, nullptr)));
  if (!slices.empty()) {
    std::vector<double> b(3 * slices.size());
    std::vector<int> c(4 * slices.size());
    VQ_GetBandSlices(static_cast<int>(slices.size()), b.data(), c.data());
    for (size_t i = 0; i < slices.size(); ++i)
      slices[i] = {b[3 * i],     b[3 * i + 1], b[3 * i + 2], c[4 * i],
                   c[4 * i + 1], c[4 * i + 2], c[4 * i + 3]};
  }
  return slices;
}

// The residual mode, which completes the effective mass of the direction.
void ComputeResidualMode(const BandInput& input, BandResult& r) {
  const Pencil& pencil = *input.pencil;
  const int n = pencil.N();
  const auto& k = *pencil.k;
  std::vector<double> mode(n);
  const int rc = pencil.b
                     ? VQ_ResidualMode2(n, k.rowPointers.data(), k.columnIndices.data(),
                                        k.values.data(), pencil.b->rowPointers.data(),
                                        pencil.b->columnIndices.data(), pencil.b->values.data(),
                                        r.found, r.vectors.data(), input.direction->data(),
                                        mode.data(), &r.residualLambda, &r.residualFraction)
                     : VQ_ResidualMode(n, k.rowPointers.data(), k.columnIndices.data(),
                                       k.values.data(), pencil.diagonal->data(), r.found,
                                       r.vectors.data(), input.direction->data(), mode.data(),
                                       &r.residualLambda, &r.residualFraction);
  const Registry registry = ReadRegistry();
  if (rc != 0)
    throw SolverError(rc, registry.message.empty() ? ErrorText(rc) : registry.message,
                      registry.instabilityDof);
  r.haveResidual = true;
}

Json SlicesJson(const std::vector<Slice>& slices) {
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
  return sturm;
}

Json BandJson(const BandInput& input, const Band& band, const BandResult& r) {
  Json doc = Json::Object();
  doc.Set("command", "modes");
  doc.Set("method", "band");
  doc.Set("stiffness", input.kName);
  doc.Set("mass", input.mName);
  doc.Set("lumpedMass", input.pencil->diagonal != nullptr);
  doc.Set("equations", input.pencil->N());
  doc.Set("lower", band.lower);
  doc.Set("upper", band.upper);
  doc.Set("bandCount", r.bandCount);
  doc.Set("found", r.found);
  doc.Set("modes", ModesJson(r.values, r.ratios));
  doc.Set("eigenvalues", Json::Numbers(r.values));
  doc.Set("massDirection", input.directionName);
  if (r.haveResidual) {
    Json residual = Json::Object();
    residual.Set("eigenvalue", r.residualLambda);
    residual.Set("frequency", Hertz(r.residualLambda));
    residual.Set("effectiveMassRatio", r.residualFraction);
    residual.Set("cumulativeMassRatio",
                 (r.ratios.empty() ? 0.0 : r.ratios.back()) + r.residualFraction);
    doc.Set("residualMode", residual);
  }
  doc.Set("slices", SlicesJson(r.slices));
  doc.Set("proven", r.proven);
  Json seconds = Json::Object();
  seconds.Set("solve", r.solveSeconds);
  seconds.Set("total", r.totalSeconds);
  doc.Set("seconds", seconds);
  doc.Set("threads", input.threads);
  return doc;
}

// The modes of the band and, with --residual, the residual mode's row.
std::string BandTable(const BandResult& r) {
  TextTable table(ModeColumns(!r.ratios.empty()));
  for (int m = 0; m < r.found; ++m) {
    std::vector<std::string> row = ModeRow(std::to_string(m + 1), r.values[m]);
    if (!r.ratios.empty()) row.push_back(Format("%.2f", 100.0 * r.ratios[m]));
    table.AddRow(row);
  }
  if (r.haveResidual) {
    std::vector<std::string> row = ModeRow("residual", r.residualLambda);
    if (!r.ratios.empty())
      row.push_back(Format("%.2f", 100.0 * (r.ratios.back() + r.residualFraction)));
    table.AddRow(row);
  }
  return (r.found > 0 || r.haveResidual) ? table.Render(2) + "\n" : std::string();
}

// The Sturm proof: every slice's counts at its ends and the modes found in it.
std::string ProofText(const BandResult& r) {
  std::string text = "  Sturm proof  (negative pivots of K - sigma M at each slice's ends)\n";
  TextTable proof({{"slice"},
                   {"from"},
                   {"to"},
                   {"shift"},
                   {"below from"},
                   {"below to"},
                   {"in slice"},
                   {"found"}});
  for (size_t i = 0; i < r.slices.size(); ++i) {
    const Slice& s = r.slices[i];
    proof.AddRow({std::to_string(i + 1), Format("%.8e", s.lower), Format("%.8e", s.upper),
                  Format("%.8e", s.shift), std::to_string(s.below), std::to_string(s.belowUpper),
                  std::to_string(s.belowUpper - s.below), std::to_string(s.found)});
  }
  if (!r.slices.empty()) text += proof.Render(4) + "\n";
  text += Format(
      "  %s\n", r.proven
                    ? Format("proven: %d modes in the band, %d found", r.bandCount, r.found).c_str()
                    : "NOT proven: a slice holds fewer modes than its counts");
  return text;
}

std::string BandText(const BandInput& input, const Band& band, const BandResult& r) {
  const auto& k = *input.pencil->k;
  std::string text = "vqsolve modes\n";
  text +=
      Format("  K       %s: %d equations, %d stored entries\n", input.kName.c_str(), k.n, k.Nnz());
  if (!input.description.empty()) text += Format("          %s\n", input.description.c_str());
  text += Format("  M       %s\n", input.mName.c_str());
  text +=
      Format("  band    %s: %d mode%s (Sturm counts), %d found in %s\n", band.text.c_str(),
             r.bandCount, r.bandCount == 1 ? "" : "s", r.found, Seconds(r.solveSeconds).c_str());
  text += "\n";
  text += BandTable(r);
  if (!r.ratios.empty()) text += "  effective mass along: " + input.directionName + "\n";
  text += ProofText(r);
  text += Format("  time         band %s, total %s\n", Seconds(r.solveSeconds).c_str(),
                 Seconds(r.totalSeconds).c_str());
  return text;
}

}  // namespace

std::vector<OptionInfo> BandOptionSpecs() {
  return {
      {"--band", "F1,F2",
       "every mode with F1 <= f <= F2 [Hz] (F1 = 0: from the bottom, rigid-body modes included)"},
      {"--band-eig", "A,B", "every mode with A <= eigenvalue <= B"},
      {"--max-modes", "N", "with a band: the most modes to take (default 2000)"},
      {"--residual", "",
       "with a band: add the residual (missing-mass) mode of the effective-mass direction"},
  };
}

bool BandRequested(const CommandLine& line) { return line.Has("--band") || line.Has("--band-eig"); }

int RunBandModes(const CommandLine& line, const CommonOptions& common, const BandInput& input,
                 Progress& progress) {
  const Band band = ReadBand(line);
  const int cap = line.Integer("--max-modes", 2000, 1, 1000000);
  const Pencil& pencil = *input.pencil;
  const auto start = std::chrono::steady_clock::now();
  BandResult r;
  SolveBand(input, band, cap, progress, r);
  r.slices = ReadSlices();
  for (const Slice& s : r.slices) r.proven = r.proven && s.found == s.belowUpper - s.below;
  if (r.found > 0)
    r.ratios =
        CumulativeMassRatios(pencil.b, pencil.diagonal, *input.direction, r.vectors, r.found);
  if (line.Has("--residual")) ComputeResidualMode(input, r);
  r.totalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  Emit(common, BandJson(input, band, r), BandText(input, band, r));
  return r.proven ? kExitSuccess : kExitPartial;
}

}  // namespace vqsolve
