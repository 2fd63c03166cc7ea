#include "MpiCommands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "CommandLine.h"
#include "DistributedProblem.h"
#include "ExitReport.h"
#include "MpiRank.h"
#include "Output.h"
#include "PeakMemory.h"
#include "vqmath.h"
#include "vqmath_mpi.h"

namespace vqsolve_mpi {

using vqsolve::CommandLine;
using vqsolve::Format;
using vqsolve::Json;
using vqsolve::kExitPartial;
using vqsolve::kExitSuccess;
using vqsolve::OptionInfo;
using vqsolve::UsageError;

namespace {

std::string LastMessage() {
  char* text = VQ_GetLastErrorMessage();
  std::string s = text ? text : "";
  std::free(text);
  return s;
}

std::string LastWarning() {
  char* text = VQ_GetLastWarningMessage();
  std::string s = text ? text : "";
  std::free(text);
  return s;
}

// Throws LibraryFailure for a failed call (0 and 1, partial results, pass).
void Check(int code) {
  if (code == 0 || code == 1) return;
  std::string message = LastMessage();
  const int dof = VQ_GetInstabilityDOF();
  if (code == -3 && dof > 0) message += Format(": instability at equation %d", dof);
  throw LibraryFailure(code, message, code == -3 ? dof : -1);
}

Json StatusJson(int code) {
  Json status = Json::Object();
  status.Set("code", code);
  status.Set("error", VQ_GetLastErrorID());
  status.Set("message", LastMessage());
  status.Set("warning", VQ_GetLastWarningID());
  status.Set("warningMessage", LastWarning());
  return status;
}

Json MemoryJson(const std::vector<double>& peaks) { return Json::Numbers(peaks); }

std::string MemoryText(const std::vector<double>& peaks) {
  std::string text = "  peak memory per process [MiB]:";
  for (size_t p = 0; p < peaks.size(); ++p) text += Format(" %zu: %.1f", p, peaks[p]);
  return text + "\n";
}

Json FactorJson(const int* iparm) {
  Json f = Json::Object();
  f.Set("factorEntries", static_cast<long long>(iparm[17]));
  f.Set("mflop", static_cast<long long>(iparm[18]));
  f.Set("peakAnalysisKiB", static_cast<long long>(iparm[14]));
  f.Set("permanentKiB", static_cast<long long>(iparm[15]));
  f.Set("factorisationKiB", static_cast<long long>(iparm[16]));
  return f;
}

void Emit(MPI_Comm comm, bool json, const Json& doc, const std::string& text) {
  if (Rank(comm) != 0) return;
  if (json)
    std::printf("%s\n", doc.Dump().c_str());
  else
    std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

DistributedProblem Load(MPI_Comm comm, const CommandLine& line, bool geometric, bool massWanted) {
  if (line.Has("--model") == line.Has("-K")) throw UsageError("give either -K or --model");
  if (line.Has("--model")) return GenerateSolid(comm, line.Text("--model"), geometric);
  std::string b, lumped;
  if (geometric) {
    if (!line.Has("-G")) throw UsageError("-K needs the geometric stiffness -G");
    b = line.Text("-G");
  } else if (massWanted) {
    if (line.Has("-M") == line.Has("--lumped"))
      throw UsageError("give the mass with either -M (consistent) or --lumped (diagonal)");
    b = line.Text("-M", "");
    lumped = line.Text("--lumped", "");
  }
  return ReadAndScatter(comm, line.Text("-K"), b, lumped, line.Text("-F", ""));
}

// The MPI sum of a local value.
double Sum(MPI_Comm comm, double v) {
  double s = 0.0;
  MPI_Allreduce(&v, &s, 1, MPI_DOUBLE, MPI_SUM, comm);
  return s;
}

std::vector<OptionInfo> StaticOptions() {
  return {
      {"-K", "FILE", "stiffness matrix (MatrixMarket, symmetric), read by process 0"},
      {"-F", "FILE", "load vector (default: all ones)"},
      {"--model", "MODEL",
       "a generated solid instead of files: solid[:EQUATIONS], built distributed"},
      {"--matrix-type", "T",
       "2 (positive definite) or -2 (indefinite, reports the inertia; default)"},
      {"--stop-if-not-positive-definite", "", "negative pivots are a failure at their equation"},
      {"--json", "", "write the report as JSON"},
  };
}

// What the static run found, with its times (MPI_Wtime).
struct StaticRun {
  int negative = 0, positive = 0, warning = 0;
  std::string warningText;
  int iparm[64] = {};
  std::vector<double> x;
  double residual = 0.0;
  double extreme[2] = {0.0, 0.0};  // the largest displacement (signed) and its equation
  std::vector<double> peaks;
  double start = 0.0, built = 0.0, factored = 0.0, solved = 0.0, end = 0.0;
};

// One factorisation with its inertia and statistics, then the solve.
void FactorAndSolve(MPI_Comm comm, const CommandLine& line, const DistributedProblem& d,
                    int matrixType, StaticRun& r) {
  VQ_MpiFactorization* factor = nullptr;
  Check(VQ_MpiSparseFactor(comm, d.n, d.rows.first, d.rows.last, d.k.rowPointers.data(),
                           d.k.columnIndices.data(), d.k.values.data(), matrixType,
                           line.Has("--stop-if-not-positive-definite") ? 1 : 0, &factor));
  std::unique_ptr<VQ_MpiFactorization, void (*)(VQ_MpiFactorization*)> kept(factor,
                                                                            VQ_MpiSparseRelease);
  r.negative = VQ_GetNumberOfNegativeEigenvalues();
  r.positive = VQ_GetNumberOfPositiveEigenvalues();
  r.warning = VQ_GetLastWarningID();
  r.warningText = LastWarning();
  VQ_MpiGetLastSolverParameters(r.iparm);
  r.factored = MPI_Wtime();
  r.x.assign(d.load.size(), 0.0);
  Check(VQ_MpiSparseSolve(factor, 1, d.load.data(), r.x.data()));
  r.solved = MPI_Wtime();
}

// Residual ‖K·x − F‖ / ‖F‖ and the largest displacement, over all processes.
void Verify(MPI_Comm comm, const DistributedProblem& d, StaticRun& r) {
  const std::vector<double>& x = r.x;
  std::vector<double> kx(x.size());
  Check(VQ_MpiSparseSymmMatrixVectorMultiplication(comm, d.n, d.rows.first, d.rows.last,
                                                   d.k.rowPointers.data(), d.k.columnIndices.data(),
                                                   d.k.values.data(), x.data(), kx.data()));
  double r2 = 0.0, f2 = 0.0, umax = 0.0;
  int at = 0;
  for (size_t i = 0; i < x.size(); ++i) {
    r2 += (kx[i] - d.load[i]) * (kx[i] - d.load[i]);
    f2 += d.load[i] * d.load[i];
    if (std::fabs(x[i]) > std::fabs(umax)) {
      umax = x[i];
      at = d.rows.first + static_cast<int>(i);
    }
  }
  r.residual = std::sqrt(Sum(comm, r2)) / std::max(std::sqrt(Sum(comm, f2)), 1e-300);
  struct {
    double value;
    int rank;
  } mine = {std::fabs(umax), Rank(comm)}, largest;
  MPI_Allreduce(&mine, &largest, 1, MPI_DOUBLE_INT, MPI_MAXLOC, comm);
  r.extreme[0] = umax;
  r.extreme[1] = static_cast<double>(at);
  MPI_Bcast(r.extreme, 2, MPI_DOUBLE, largest.rank, comm);
}

Json StaticJson(MPI_Comm comm, const DistributedProblem& d, const StaticRun& r) {
  Json doc = Json::Object();
  doc.Set("command", "static");
  doc.Set("processes", Size(comm));
  doc.Set("stiffness", d.kName);
  doc.Set("equations", d.n);
  doc.Set("load", d.loadName);
  Json inertia = Json::Object();
  inertia.Set("negative", r.negative);
  inertia.Set("positive", r.positive);
  doc.Set("inertia", inertia);
  doc.Set("maxDisplacement", r.extreme[0]);
  doc.Set("maxDisplacementEquation", static_cast<int>(r.extreme[1]));
  doc.Set("relativeResidual", r.residual);
  doc.Set("factor", FactorJson(r.iparm));
  Json status = StatusJson(0);
  status.Set("warning", r.warning);
  status.Set("warningMessage", r.warningText);
  doc.Set("status", status);
  Json seconds = Json::Object();
  seconds.Set("build", r.built - r.start);
  seconds.Set("factor", r.factored - r.built);
  seconds.Set("solve", r.solved - r.factored);
  seconds.Set("total", r.end - r.start);
  doc.Set("seconds", seconds);
  doc.Set("peakMemoryMiB", MemoryJson(r.peaks));
  return doc;
}

std::string StaticText(MPI_Comm comm, const DistributedProblem& d, const StaticRun& r) {
  std::string text = Format("vqsolve-mpi static on %d processes\n", Size(comm));
  text += Format("  K        %s: %d equations\n", d.kName.c_str(), d.n);
  if (!d.description.empty()) text += "           " + d.description + "\n";
  text += "  load     " + d.loadName + "\n";
  text += Format("  pivots   %d positive, %d negative\n", r.positive, r.negative);
  text += Format("  factor   %lld entries, %lld MFlop\n", static_cast<long long>(r.iparm[17]),
                 static_cast<long long>(r.iparm[18]));
  text += Format("  largest displacement %.10e at equation %d\n", r.extreme[0],
                 static_cast<int>(r.extreme[1]));
  text += Format("  relative residual    %.3e\n", r.residual);
  if (r.warning != 0) text += "  warning  " + r.warningText + "\n";
  text += Format("  time     build %.3f s, factor %.3f s, solve %.3f s, total %.3f s\n",
                 r.built - r.start, r.factored - r.built, r.solved - r.factored, r.end - r.start);
  text += MemoryText(r.peaks);
  return text;
}

std::vector<OptionInfo> ModesOptions(bool buckling) {
  std::vector<OptionInfo> specs = {
      {"-K", "FILE", "stiffness matrix (MatrixMarket, symmetric), read by process 0"},
      {"--model", "MODEL",
       "a generated solid instead of files: solid[:EQUATIONS], built distributed"},
      {"-n", "N",
       buckling ? "number of buckling factors (default 5)" : "number of modes (default 10)"},
      {"--shift", "S",
       buckling ? "look for buckling factors nearest S (default: below the lowest, by Sturm counts)"
                : "the eigenvalues nearest S are found (default 0)"},
      {"--no-sturm", "", "skip the Sturm-sequence verification"},
      {"--json", "", "write the report as JSON"},
  };
  if (buckling) {
    specs.push_back({"-G", "FILE", "geometric stiffness matrix Kg"});
  } else {
    specs.push_back({"-M", "FILE", "consistent (sparse) mass matrix"});
    specs.push_back({"--lumped", "FILE", "lumped mass: a diagonal matrix or a vector"});
  }
  return specs;
}

// K·φ = λ·B·φ on this process's rows: B as a diagonal or as distributed rows.
struct DistributedPencil {
  MPI_Comm comm;
  const DistributedProblem& d;
  const double* diagonal = nullptr;
  const int* bp = nullptr;
  const int* bc = nullptr;
  const double* bv = nullptr;

  DistributedPencil(MPI_Comm c, const DistributedProblem& problem) : comm(c), d(problem) {
    const bool sparseB = d.b.n > 0;
    diagonal = sparseB ? nullptr : d.lumpedMass.data();
    bp = sparseB ? d.b.rowPointers.data() : nullptr;
    bc = sparseB ? d.b.columnIndices.data() : nullptr;
    bv = sparseB ? d.b.values.data() : nullptr;
  }
  // Eigenvalues below sigma (negative pivots of K − σ·B); returns the library's code.
  int SturmCount(double sigma, int& below) const {
    return VQ_MpiSturmCount(comm, d.n, d.rows.first, d.rows.last, d.k.rowPointers.data(),
                            d.k.columnIndices.data(), d.k.values.data(), diagonal, bp, bc, bv,
                            sigma, &below);
  }
};

// Mean ratio of the diagonals of K and B, a size of the spectrum; *lowest receives the smallest
// such ratio (1e300 when none is positive), the first buckling shift.
double SpectrumScale(MPI_Comm comm, const DistributedProblem& d, double* lowest) {
  const bool sparseB = d.b.n > 0;
  double ratioSum = 0.0, ratioCount = 0.0, ratioMin = 0.0;
  for (int i = 0; i < d.rows.Count(); ++i) {
    const double kii = d.k.values[d.k.rowPointers[i] - 1];
    const double bii = sparseB ? d.b.values[d.b.rowPointers[i] - 1] : d.lumpedMass[i];
    if (bii > 0.0 && kii > 0.0) {
      ratioSum += kii / bii;
      ratioCount += 1.0;
      if (ratioMin == 0.0 || kii / bii < ratioMin) ratioMin = kii / bii;
    }
  }
  const double scale =
      ratioCount > 0 ? Sum(comm, ratioSum) / std::max(Sum(comm, ratioCount), 1.0) : 1.0;
  *lowest = ratioMin > 0.0 ? ratioMin : 1e300;
  MPI_Allreduce(MPI_IN_PLACE, lowest, 1, MPI_DOUBLE, MPI_MIN, comm);
  return scale;
}

// A buckling shift below the lowest factor: from the smallest diagonal ratio down by tens until
// no factor lies below it.
double ShiftBelowLowest(const DistributedPencil& pencil, double lowest) {
  double shift = lowest < 1e300 ? lowest : 1.0;
  for (int attempt = 0; attempt < 30 && lowest < 1e300; ++attempt) {
    int below = 0;
    if (pencil.SturmCount(shift, below) != 0 || below == 0) break;
    shift *= 0.1;
  }
  return shift;
}

// What the modes run found, with its times (MPI_Wtime).
struct ModesRun {
  const char* name = "modes";
  bool buckling = false;
  int requested = 0, found = 0, belowShift = 0, code = 0;
  double shift = 0.0;
  std::string note;
  std::vector<double> values;
  Json status;
  int iparm[64] = {};
  bool sturmDone = false, passed = false, partial = false;
  int counted = 0;
  double sigma = 0.0;
  std::vector<double> peaks;
  double start = 0.0, built = 0.0, solveStart = 0.0, solved = 0.0, checked = 0.0;
};

void SolveModes(const DistributedPencil& pencil, ModesRun& r) {
  const DistributedProblem& d = pencil.d;
  r.values.assign(static_cast<size_t>(r.requested), 0.0);
  std::vector<double> shapes(static_cast<size_t>(d.rows.Count()) * r.requested, 0.0);
  r.solveStart = MPI_Wtime();
  r.code = VQ_MpiEigenvalueAnalysis_Lanczos(
      pencil.comm, d.n, d.rows.first, d.rows.last, d.k.rowPointers.data(), d.k.columnIndices.data(),
      d.k.values.data(), pencil.diagonal, pencil.bp, pencil.bc, pencil.bv, r.buckling ? 1 : 0,
      r.requested, r.shift, -1, &r.found, r.values.data(), shapes.data(), &r.belowShift);
  Check(r.code);
  r.status = StatusJson(r.code);
  VQ_MpiGetLastSolverParameters(r.iparm);
  r.solved = MPI_Wtime();
  r.values.resize(static_cast<size_t>(r.found));
}

// Sturm check: the negative pivots of K − σ·B with σ just above the highest value found.
void CheckBySturm(const DistributedPencil& pencil, double scale, ModesRun& r) {
  const double highest = r.values.back();
  r.sigma = highest + 1e-5 * std::max(std::fabs(highest), 1e-6 * scale);
  int below = 0;
  if (pencil.SturmCount(r.sigma, below) == 0) {
    r.sturmDone = true;
    r.counted = below;
    r.passed = r.counted == r.found;
  }
}

Json ModesJson(MPI_Comm comm, const DistributedProblem& d, const ModesRun& r) {
  Json doc = Json::Object();
  doc.Set("command", r.name);
  doc.Set("method", "lanczos");
  doc.Set("processes", Size(comm));
  doc.Set("stiffness", d.kName);
  doc.Set(r.buckling ? "geometricStiffness" : "mass", d.bName);
  doc.Set("equations", d.n);
  doc.Set("requested", r.requested);
  doc.Set("found", r.found);
  doc.Set("shift", r.shift);
  doc.Set("belowShift", r.belowShift);
  Json modes = Json::Array();
  for (int m = 0; m < r.found; ++m) {
    Json one = Json::Object();
    one.Set("mode", m + 1);
    one.Set("eigenvalue", r.values[m]);
    if (!r.buckling) {
      const double omega = r.values[m] >= 0 ? std::sqrt(r.values[m]) : NAN;
      one.Set("omega", omega);
      one.Set("frequency", omega / (2 * M_PI));
    }
    modes.Push(one);
  }
  doc.Set("modes", modes);
  doc.Set("eigenvalues", Json::Numbers(r.values));
  Json sturmJson = Json::Object();
  sturmJson.Set("done", r.sturmDone);
  if (r.sturmDone) {
    sturmJson.Set("shift", r.sigma);
    sturmJson.Set("eigenvaluesBelowShift", r.counted);
    sturmJson.Set("found", r.found);
    sturmJson.Set("passed", r.passed);
  }
  doc.Set("sturm", sturmJson);
  doc.Set("status", r.status);
  doc.Set("partial", r.partial);
  if (!r.note.empty()) doc.Set("note", r.note);
  doc.Set("factor", FactorJson(r.iparm));
  Json seconds = Json::Object();
  seconds.Set("build", r.built - r.start);
  seconds.Set("solve", r.solved - r.solveStart);
  seconds.Set("sturm", r.checked - r.solved);
  seconds.Set("total", r.checked - r.start);
  doc.Set("seconds", seconds);
  doc.Set("peakMemoryMiB", MemoryJson(r.peaks));
  return doc;
}

std::string ModesTable(const ModesRun& r) {
  vqsolve::TextTable table(
      r.buckling ? std::vector<vqsolve::TextTable::Column>{{"mode"}, {"buckling factor"}}
                 : std::vector<vqsolve::TextTable::Column>{{"mode"}, {"eigenvalue"}, {"f [Hz]"}});
  for (int m = 0; m < r.found; ++m) {
    std::vector<std::string> row = {std::to_string(m + 1), Format("%.10e", r.values[m])};
    if (!r.buckling)
      row.push_back(vqsolve::Number(std::sqrt(std::max(r.values[m], 0.0)) / (2 * M_PI), 8));
    table.AddRow(row);
  }
  return table.Render(2) + "\n";
}

std::string ModesText(MPI_Comm comm, const DistributedProblem& d, const ModesRun& r) {
  std::string text = Format("vqsolve-mpi %s on %d processes\n", r.name, Size(comm));
  text += Format("  K        %s: %d equations\n", d.kName.c_str(), d.n);
  if (!d.description.empty()) text += "           " + d.description + "\n";
  text += Format("  %s %s\n", r.buckling ? "Kg      " : "M       ", d.bName.c_str());
  text += Format("  method   Lanczos (PARPACK), shift %.6g: %d requested, %d found in %.3f s%s\n",
                 r.shift, r.requested, r.found, r.solved - r.solveStart,
                 r.note.empty() ? "" : (" (" + r.note + ")").c_str());
  text += "\n";
  text += ModesTable(r);
  if (r.sturmDone)
    text += Format("  Sturm check  %d eigenvalues below sigma = %.6g, %d found: %s\n", r.counted,
                   r.sigma, r.found, r.passed ? "passed" : "FAILED, eigenvalues were missed");
  if (r.code == 1) text += "  partial      " + LastMessage() + "\n";
  text +=
      Format("  time     build %.3f s, solve %.3f s, Sturm check %.3f s, total %.3f s\n",
             r.built - r.start, r.solved - r.solveStart, r.checked - r.solved, r.checked - r.start);
  text += MemoryText(r.peaks);
  return text;
}

}  // namespace

int StaticCommand(MPI_Comm comm, int argc, char** argv) {
  CommandLine line("static", StaticOptions(), argc, argv, 2);
  if (line.Help()) {
    if (Rank(comm) == 0)
      std::fputs(line.Usage("mpirun -np P vqsolve-mpi static (-K K.mtx [-F F.mtx] | --model "
                            "solid:N) [options]")
                     .c_str(),
                 stdout);
    return kExitSuccess;
  }
  const bool json = line.Has("--json");
  const int matrixType = line.Integer("--matrix-type", -2, -2, 2);
  if (matrixType != 2 && matrixType != -2) throw UsageError("--matrix-type must be 2 or -2");
  StaticRun r;
  r.start = MPI_Wtime();
  const DistributedProblem d = Load(comm, line, false, false);
  r.built = MPI_Wtime();
  FactorAndSolve(comm, line, d, matrixType, r);
  Verify(comm, d, r);
  r.peaks = GatherPeakMemoryMiB(comm);
  r.end = MPI_Wtime();
  Emit(comm, json, StaticJson(comm, d, r), StaticText(comm, d, r));
  return kExitSuccess;
}

int ModesCommand(MPI_Comm comm, int argc, char** argv, bool buckling) {
  ModesRun r;
  r.buckling = buckling;
  r.name = buckling ? "buckling" : "modes";
  CommandLine line(r.name, ModesOptions(buckling), argc, argv, 2);
  if (line.Help()) {
    if (Rank(comm) == 0)
      std::fputs(
          line
              .Usage(Format(
                  "mpirun -np P vqsolve-mpi %s (-K K.mtx %s | --model solid:N) -n N [options]",
                  r.name, buckling ? "-G Kg.mtx" : "(-M M.mtx | --lumped M.mtx)"))
              .c_str(),
          stdout);
    return kExitSuccess;
  }
  const bool json = line.Has("--json");
  r.requested = line.Integer("-n", buckling ? 5 : 10, 1, 100000);
  r.start = MPI_Wtime();
  const DistributedProblem d = Load(comm, line, buckling, true);
  r.built = MPI_Wtime();
  const DistributedPencil pencil(comm, d);
  double lowest = 0.0;
  const double scale = SpectrumScale(comm, d, &lowest);

  r.shift = line.Real("--shift", 0.0);
  if (buckling && !line.Has("--shift")) {
    r.shift = ShiftBelowLowest(pencil, lowest);
    r.note = Format("shift %.6g below the lowest buckling factor", r.shift);
  }
  SolveModes(pencil, r);
  if (!line.Has("--no-sturm") && r.found > 0) CheckBySturm(pencil, scale, r);
  r.checked = MPI_Wtime();
  r.peaks = GatherPeakMemoryMiB(comm);
  r.partial = r.code == 1 || r.found < std::min(r.requested, d.n - 1) || (r.sturmDone && !r.passed);
  Emit(comm, json, ModesJson(comm, d, r), ModesText(comm, d, r));
  return r.partial ? kExitPartial : kExitSuccess;
}

}  // namespace vqsolve_mpi
