#include "MpiCommands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "CommandLine.h"
#include "DistributedProblem.h"
#include "Output.h"
#include "PeakMemory.h"
#include "vqmath.h"
#include "vqmath_mpi.h"

namespace vqsolve_mpi {

using vqsolve::CommandLine;
using vqsolve::Format;
using vqsolve::Json;
using vqsolve::OptionInfo;
using vqsolve::UsageError;

namespace {

constexpr int kExitSuccess = 0, kExitPartial = 1;

int Rank(MPI_Comm comm) {
  int r = 0;
  MPI_Comm_rank(comm, &r);
  return r;
}

int Size(MPI_Comm comm) {
  int s = 1;
  MPI_Comm_size(comm, &s);
  return s;
}

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

}  // namespace

int StaticCommand(MPI_Comm comm, int argc, char** argv) {
  const std::vector<OptionInfo> specs = {
      {"-K", "FILE", "stiffness matrix (MatrixMarket, symmetric), read by process 0"},
      {"-F", "FILE", "load vector (default: all ones)"},
      {"--model", "MODEL",
       "a generated solid instead of files: solid[:EQUATIONS], built distributed"},
      {"--matrix-type", "T",
       "2 (positive definite) or -2 (indefinite, reports the inertia; default)"},
      {"--stop-if-not-positive-definite", "", "negative pivots are a failure at their equation"},
      {"--json", "", "write the report as JSON"},
  };
  CommandLine line("static", specs, argc, argv, 2);
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
  const double start = MPI_Wtime();
  const DistributedProblem d = Load(comm, line, false, false);
  const double built = MPI_Wtime();

  VQ_MpiFactorization* factor = nullptr;
  Check(VQ_MpiSparseFactor(comm, d.n, d.rows.first, d.rows.last, d.k.rowPointers.data(),
                           d.k.columnIndices.data(), d.k.values.data(), matrixType,
                           line.Has("--stop-if-not-positive-definite") ? 1 : 0, &factor));
  std::unique_ptr<VQ_MpiFactorization, void (*)(VQ_MpiFactorization*)> kept(factor,
                                                                            VQ_MpiSparseRelease);
  const int negative = VQ_GetNumberOfNegativeEigenvalues(),
            positive = VQ_GetNumberOfPositiveEigenvalues();
  const int warning = VQ_GetLastWarningID();
  const std::string warningText = LastWarning();
  int iparm[64];
  VQ_MpiGetLastSolverParameters(iparm);
  const double factored = MPI_Wtime();
  std::vector<double> x(d.load.size());
  Check(VQ_MpiSparseSolve(factor, 1, d.load.data(), x.data()));
  const double solved = MPI_Wtime();
  kept.reset();

  // Residual ‖K·x − F‖ / ‖F‖ and the largest displacement, over all processes.
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
  const double residual = std::sqrt(Sum(comm, r2)) / std::max(std::sqrt(Sum(comm, f2)), 1e-300);
  struct {
    double value;
    int rank;
  } mine = {std::fabs(umax), Rank(comm)}, largest;
  MPI_Allreduce(&mine, &largest, 1, MPI_DOUBLE_INT, MPI_MAXLOC, comm);
  double extreme[2] = {umax, static_cast<double>(at)};
  MPI_Bcast(extreme, 2, MPI_DOUBLE, largest.rank, comm);
  const std::vector<double> peaks = GatherPeakMemoryMiB(comm);
  const double end = MPI_Wtime();

  Json doc = Json::Object();
  doc.Set("command", "static");
  doc.Set("processes", Size(comm));
  doc.Set("stiffness", d.kName);
  doc.Set("equations", d.n);
  doc.Set("load", d.loadName);
  Json inertia = Json::Object();
  inertia.Set("negative", negative);
  inertia.Set("positive", positive);
  doc.Set("inertia", inertia);
  doc.Set("maxDisplacement", extreme[0]);
  doc.Set("maxDisplacementEquation", static_cast<int>(extreme[1]));
  doc.Set("relativeResidual", residual);
  doc.Set("factor", FactorJson(iparm));
  Json status = StatusJson(0);
  status.Set("warning", warning);
  status.Set("warningMessage", warningText);
  doc.Set("status", status);
  Json seconds = Json::Object();
  seconds.Set("build", built - start);
  seconds.Set("factor", factored - built);
  seconds.Set("solve", solved - factored);
  seconds.Set("total", end - start);
  doc.Set("seconds", seconds);
  doc.Set("peakMemoryMiB", MemoryJson(peaks));

  std::string text = Format("vqsolve-mpi static on %d processes\n", Size(comm));
  text += Format("  K        %s: %d equations\n", d.kName.c_str(), d.n);
  if (!d.description.empty()) text += "           " + d.description + "\n";
  text += "  load     " + d.loadName + "\n";
  text += Format("  pivots   %d positive, %d negative\n", positive, negative);
  text += Format("  factor   %lld entries, %lld MFlop\n", static_cast<long long>(iparm[17]),
                 static_cast<long long>(iparm[18]));
  text += Format("  largest displacement %.10e at equation %d\n", extreme[0],
                 static_cast<int>(extreme[1]));
  text += Format("  relative residual    %.3e\n", residual);
  if (warning != 0) text += "  warning  " + warningText + "\n";
  text += Format("  time     build %.3f s, factor %.3f s, solve %.3f s, total %.3f s\n",
                 built - start, factored - built, solved - factored, end - start);
  text += MemoryText(peaks);
  Emit(comm, json, doc, text);
  return kExitSuccess;
}

int ModesCommand(MPI_Comm comm, int argc, char** argv, bool buckling) {
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
  const char* name = buckling ? "buckling" : "modes";
  CommandLine line(name, specs, argc, argv, 2);
  if (line.Help()) {
    if (Rank(comm) == 0)
      std::fputs(
          line
              .Usage(Format(
                  "mpirun -np P vqsolve-mpi %s (-K K.mtx %s | --model solid:N) -n N [options]",
                  name, buckling ? "-G Kg.mtx" : "(-M M.mtx | --lumped M.mtx)"))
              .c_str(),
          stdout);
    return kExitSuccess;
  }
  const bool json = line.Has("--json");
  const int requested = line.Integer("-n", buckling ? 5 : 10, 1, 100000);
  const double start = MPI_Wtime();
  const DistributedProblem d = Load(comm, line, buckling, true);
  const double built = MPI_Wtime();
  const bool sparseB = d.b.n > 0;
  const double* diagonal = sparseB ? nullptr : d.lumpedMass.data();
  const int* bp = sparseB ? d.b.rowPointers.data() : nullptr;
  const int* bc = sparseB ? d.b.columnIndices.data() : nullptr;
  const double* bv = sparseB ? d.b.values.data() : nullptr;
  auto sturm = [&](double sigma, int& below) {
    return VQ_MpiSturmCount(comm, d.n, d.rows.first, d.rows.last, d.k.rowPointers.data(),
                            d.k.columnIndices.data(), d.k.values.data(), diagonal, bp, bc, bv,
                            sigma, &below);
  };
  // Mean ratio of the diagonals of K and B: a size of the spectrum, and the first buckling
  // shift is the smallest such ratio.
  const int local = d.rows.Count();
  double ratioSum = 0.0, ratioCount = 0.0, ratioMin = 0.0;
  for (int i = 0; i < local; ++i) {
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
  double lowest = ratioMin > 0.0 ? ratioMin : 1e300;
  MPI_Allreduce(MPI_IN_PLACE, &lowest, 1, MPI_DOUBLE, MPI_MIN, comm);

  double shift = line.Real("--shift", 0.0);
  std::string note;
  if (buckling && !line.Has("--shift")) {
    shift = lowest < 1e300 ? lowest : 1.0;
    for (int attempt = 0; attempt < 30 && lowest < 1e300; ++attempt) {
      int below = 0;
      if (sturm(shift, below) != 0 || below == 0) break;
      shift *= 0.1;
    }
    note = Format("shift %.6g below the lowest buckling factor", shift);
  }
  std::vector<double> values(static_cast<size_t>(requested), 0.0);
  std::vector<double> shapes(static_cast<size_t>(local) * requested, 0.0);
  int found = 0, belowShift = 0;
  const double solveStart = MPI_Wtime();
  const int code = VQ_MpiEigenvalueAnalysis_Lanczos(
      comm, d.n, d.rows.first, d.rows.last, d.k.rowPointers.data(), d.k.columnIndices.data(),
      d.k.values.data(), diagonal, bp, bc, bv, buckling ? 1 : 0, requested, shift, -1, &found,
      values.data(), shapes.data(), &belowShift);
  Check(code);
  const Json status = StatusJson(code);
  int iparm[64];
  VQ_MpiGetLastSolverParameters(iparm);
  const double solved = MPI_Wtime();
  values.resize(static_cast<size_t>(found));

  // Sturm check: the negative pivots of K − σ·B with σ just above the highest value found.
  bool sturmDone = false, passed = false;
  int counted = 0;
  double sigma = 0.0;
  if (!line.Has("--no-sturm") && found > 0) {
    const double highest = values.back();
    sigma = highest + 1e-5 * std::max(std::fabs(highest), 1e-6 * scale);
    int below = 0;
    if (sturm(sigma, below) == 0) {
      sturmDone = true;
      counted = below;
      passed = counted == found;
    }
  }
  const double checked = MPI_Wtime();
  const std::vector<double> peaks = GatherPeakMemoryMiB(comm);
  const bool partial = code == 1 || found < std::min(requested, d.n - 1) || (sturmDone && !passed);

  Json doc = Json::Object();
  doc.Set("command", name);
  doc.Set("method", "lanczos");
  doc.Set("processes", Size(comm));
  doc.Set("stiffness", d.kName);
  doc.Set(buckling ? "geometricStiffness" : "mass", d.bName);
  doc.Set("equations", d.n);
  doc.Set("requested", requested);
  doc.Set("found", found);
  doc.Set("shift", shift);
  doc.Set("belowShift", belowShift);
  Json modes = Json::Array();
  for (int m = 0; m < found; ++m) {
    Json one = Json::Object();
    one.Set("mode", m + 1);
    one.Set("eigenvalue", values[m]);
    if (!buckling) {
      const double omega = values[m] >= 0 ? std::sqrt(values[m]) : NAN;
      one.Set("omega", omega);
      one.Set("frequency", omega / (2 * M_PI));
    }
    modes.Push(one);
  }
  doc.Set("modes", modes);
  doc.Set("eigenvalues", Json::Numbers(values));
  Json sturmJson = Json::Object();
  sturmJson.Set("done", sturmDone);
  if (sturmDone) {
    sturmJson.Set("shift", sigma);
    sturmJson.Set("eigenvaluesBelowShift", counted);
    sturmJson.Set("found", found);
    sturmJson.Set("passed", passed);
  }
  doc.Set("sturm", sturmJson);
  doc.Set("status", status);
  doc.Set("partial", partial);
  if (!note.empty()) doc.Set("note", note);
  doc.Set("factor", FactorJson(iparm));
  Json seconds = Json::Object();
  seconds.Set("build", built - start);
  seconds.Set("solve", solved - solveStart);
  seconds.Set("sturm", checked - solved);
  seconds.Set("total", checked - start);
  doc.Set("seconds", seconds);
  doc.Set("peakMemoryMiB", MemoryJson(peaks));

  std::string text = Format("vqsolve-mpi %s on %d processes\n", name, Size(comm));
  text += Format("  K        %s: %d equations\n", d.kName.c_str(), d.n);
  if (!d.description.empty()) text += "           " + d.description + "\n";
  text += Format("  %s %s\n", buckling ? "Kg      " : "M       ", d.bName.c_str());
  text += Format("  method   Lanczos (PARPACK), shift %.6g: %d requested, %d found in %.3f s%s\n",
                 shift, requested, found, solved - solveStart,
                 note.empty() ? "" : (" (" + note + ")").c_str());
  text += "\n";
  vqsolve::TextTable table(
      buckling ? std::vector<vqsolve::TextTable::Column>{{"mode"}, {"buckling factor"}}
               : std::vector<vqsolve::TextTable::Column>{{"mode"}, {"eigenvalue"}, {"f [Hz]"}});
  for (int m = 0; m < found; ++m) {
    std::vector<std::string> row = {std::to_string(m + 1), Format("%.10e", values[m])};
    if (!buckling)
      row.push_back(vqsolve::Number(std::sqrt(std::max(values[m], 0.0)) / (2 * M_PI), 8));
    table.AddRow(row);
  }
  text += table.Render(2) + "\n";
  if (sturmDone)
    text += Format("  Sturm check  %d eigenvalues below sigma = %.6g, %d found: %s\n", counted,
                   sigma, found, passed ? "passed" : "FAILED, eigenvalues were missed");
  if (code == 1) text += "  partial      " + LastMessage() + "\n";
  text += Format("  time     build %.3f s, solve %.3f s, Sturm check %.3f s, total %.3f s\n",
                 built - start, solved - solveStart, checked - solved, checked - start);
  text += MemoryText(peaks);
  Emit(comm, json, doc, text);
  return partial ? kExitPartial : kExitSuccess;
}

}  // namespace vqsolve_mpi
