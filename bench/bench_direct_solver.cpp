// Cost of the library around PARDISO: VQ_SparseSolverDirect against a direct PARDISO call on the
// same arrays with the same parameters (phases 11, 22, 33 and -1), on clamped solids of 8-node
// hexahedra from the model generator.
//
//   bench_direct_solver [sizes] [--nrhs N] [--repeats R] [--threads T]
//     sizes      comma-separated equation counts (default 20000,100000; 300000 for the largest)
//     --nrhs     load vectors per solution (default 1)
//     --repeats  timed runs of each side, alternating (default 3; the best of each is kept)
//     --threads  MKL threads, set through VQ_Set_INTEL_MKL_NumberOfThreads before the library is
//                initialised (default: MKL_NUM_THREADS of the environment, else 2)
//
// Reported per size: the best wall time of each side and the overhead (library / raw - 1; target
// at most 3 %), also with the factorisation in the calling thread (key 1004) instead of the
// library's worker thread, the peak resident memory of each side measured in a child process of its own
// (VmHWM after a reset of the high-water mark, total and above the model that both share; target
// library / raw at most 1.1; each side runs in a fresh process of this program), the factorisation rate of PARDISO (iparm[18] MFlop over the time of
// phase 22 in the raw run) beside the rate of cblas_dgemm on 2000 x 2000 matrices in the same
// process and thread setting, and the residual ||K x - F|| / ||F|| of both solutions. Since wall
// times on a shared machine vary by more than the overhead itself, the library's own work is
// also timed on its own: the check of the caller's arrays, and building, starting (an empty
// factorisation on the worker thread) and destroying a solver.
//
// Plain program: prints a table, no pass/fail.

#include <mkl.h>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "api/internal/CsrValidation.h"
#include "models/SolidModel.h"
#include "sparse/VQ_SparseSolver.h"
#include "vqmath.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

struct Problem {
  const vqmath::models::CsrMatrix* k = nullptr;
  std::vector<double> f;  // n x nrhs
  int nrhs = 1;
};

// Phase times of one raw run.
struct RawTimes {
  double analysis = 0, factor = 0, solve = 0, total = 0;
  int mflop = 0;
  int error = 0;
};

// K of the model and nrhs end-face loads.
Problem MakeProblem(const vqmath::models::SolidModel& model, int nrhs) {
  Problem p;
  p.k = &model.Stiffness();
  p.nrhs = nrhs;
  const int n = p.k->n;
  p.f.resize(static_cast<size_t>(n) * nrhs);
  for (int j = 0; j < nrhs; ++j) {
    const std::vector<double> load = model.EndFaceLoad(0.0, 1e5 * (j + 1), -2e5);
    std::copy(load.begin(), load.end(), p.f.begin() + static_cast<size_t>(j) * n);
  }
  return p;
}

// The PARDISO parameters the library's solver starts from for this call (its defaults, the
// process-wide settings untouched), as the library records them.
std::vector<int> LibraryParameters(const Problem& p) {
  const auto& k = *p.k;
  std::vector<double> b(p.f), x(p.f.size());
  VQ_SparseSolverDirect(k.n, p.nrhs, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                        b.data(), 0, x.data());
  std::vector<int> params(64);
  VQ_ParamsListSparseSolver(64, params.data());
  return params;
}

// PARDISO on the same arrays, same parameters, same rules: solution into a separate array
// (iparm[5] = 0), no refinement steps unless the factorisation perturbed pivots.
RawTimes RunRaw(const Problem& p, std::vector<int> iparm, std::vector<double>& x) {
  const auto& k = *p.k;
  RawTimes t;
  void* pt[64] = {};
  int maxfct = 1, mnum = 1, mtype = -2, n = k.n, nrhs = p.nrhs, msglvl = 0, error = 0;
  iparm[5] = 0;
  std::vector<double> b(p.f);
  const auto start = Clock::now();
  int phase = 11;
  pardiso(pt, &maxfct, &mnum, &mtype, &phase, &n, const_cast<double*>(k.values.data()),
          const_cast<int*>(k.rowPointers.data()), const_cast<int*>(k.columnIndices.data()), nullptr,
          &nrhs, iparm.data(), &msglvl, b.data(), x.data(), &error);
  t.analysis = Seconds(start);
  if (error == 0) {
    const auto t22 = Clock::now();
    phase = 22;
    pardiso(pt, &maxfct, &mnum, &mtype, &phase, &n, const_cast<double*>(k.values.data()),
            const_cast<int*>(k.rowPointers.data()), const_cast<int*>(k.columnIndices.data()), nullptr,
            &nrhs, iparm.data(), &msglvl, b.data(), x.data(), &error);
    t.factor = Seconds(t22);
  }
  if (error == 0) {
    const auto t33 = Clock::now();
    if (iparm[13] == 0) iparm[7] = 0;
    phase = 33;
    pardiso(pt, &maxfct, &mnum, &mtype, &phase, &n, const_cast<double*>(k.values.data()),
            const_cast<int*>(k.rowPointers.data()), const_cast<int*>(k.columnIndices.data()), nullptr,
            &nrhs, iparm.data(), &msglvl, b.data(), x.data(), &error);
    t.solve = Seconds(t33);
  }
  t.error = error;
  t.mflop = iparm[18];
  phase = -1;
  int release = 0;
  pardiso(pt, &maxfct, &mnum, &mtype, &phase, &n, nullptr, const_cast<int*>(k.rowPointers.data()),
          const_cast<int*>(k.columnIndices.data()), nullptr, &nrhs, iparm.data(), &msglvl, nullptr,
          nullptr, &release);
  t.total = Seconds(start);
  return t;
}

double RunLibrary(const Problem& p, std::vector<double>& x, int* code) {
  const auto& k = *p.k;
  std::vector<double> b(p.f);
  const auto start = Clock::now();
  *code = VQ_SparseSolverDirect(k.n, p.nrhs, k.rowPointers.data(), k.columnIndices.data(),
                                k.values.data(), b.data(), 0, x.data());
  return Seconds(start);
}

// The library's own work around PARDISO, timed without PARDISO: the input check of the entry
// point and a solver's construction, worker thread start and destruction.
void OwnWork(const Problem& p, double* checkSeconds, double* solverSeconds) {
  const auto& k = *p.k;
  const int runs = 5;
  auto t0 = Clock::now();
  for (int r = 0; r < runs; ++r)
    vqmath::internal::ValidateUpperCsr(k.n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), nullptr);
  *checkSeconds = Seconds(t0) / runs;
  t0 = Clock::now();
  for (int r = 0; r < runs; ++r) {
    VQ_SparseSolver s(k.n, p.nrhs, 0, -2, false, "", false);
    s.SetWorkingDirectory();
    s.ApplyDecomposition(false, true);  // no matrix handed over: returns at once on the worker
  }
  *solverSeconds = Seconds(t0) / runs;
}

double Residual(const Problem& p, const std::vector<double>& x) {
  const auto& k = *p.k;
  double r = 0, f = 0;
  std::vector<double> y(k.n);
  for (int j = 0; j < p.nrhs; ++j) {
    vqmath::models::Multiply(k, x.data() + static_cast<size_t>(j) * k.n, y.data());
    for (int i = 0; i < k.n; ++i) {
      const double fi = p.f[static_cast<size_t>(j) * k.n + i];
      r += (y[i] - fi) * (y[i] - fi);
      f += fi * fi;
    }
  }
  return std::sqrt(r / f);
}

// kB from a "Name:   value kB" line of /proc/self/status.
long StatusKb(const char* name) {
  std::ifstream in("/proc/self/status");
  std::string line;
  const size_t len = std::strlen(name);
  while (std::getline(in, line))
    if (line.compare(0, len, name) == 0) return std::atol(line.c_str() + len + 1);
  return -1;
}

struct Peak {
  long totalKb = -1;  // VmHWM of the child process
  long aboveKb = -1;  // VmHWM minus the resident size before the solution (model and loads)
};

// Child mode: builds the model itself, resets the high-water mark ("5" to clear_refs), runs one
// side once and prints its peak. A process of its own for each side, so that neither inherits
// the other's memory (fork alone would also copy MKL's threads in an unusable state).
int RunChild(const std::string& side, const Problem& p, const std::vector<int>& params) {
  {
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
  }
  const long base = StatusKb("VmRSS:");
  std::vector<double> x(p.f.size());
  if (side == "raw") {
    RunRaw(p, params, x);
  } else {
    int code = 0;
    RunLibrary(p, x, &code);
  }
  const long peak = StatusKb("VmHWM:");
  std::printf("PEAK %ld %ld\n", peak, peak - base);
  return 0;
}

Peak MeasurePeak(const char* self, const std::string& side, int target, int nrhs, int threads) {
  Peak peak;
  const std::string command = std::string(self) + " --child " + side + " " + std::to_string(target) +
                              " --nrhs " + std::to_string(nrhs) + " --threads " + std::to_string(threads);
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char line[256];
    while (std::fgets(line, sizeof line, pipe))
      if (std::strncmp(line, "PEAK ", 5) == 0) std::sscanf(line + 5, "%ld %ld", &peak.totalKb, &peak.aboveKb);
    pclose(pipe);
  }
  return peak;
}

double DgemmGflops() {
  const int n = 2000;
  std::vector<double> a(static_cast<size_t>(n) * n), b(a.size()), c(a.size());
  for (size_t i = 0; i < a.size(); ++i) {
    a[i] = std::sin(0.001 * i);
    b[i] = std::cos(0.002 * i);
  }
  cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0, a.data(), n, b.data(), n, 0.0, c.data(), n);
  double best = 1e300;
  for (int r = 0; r < 3; ++r) {
    const auto t0 = Clock::now();
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0, a.data(), n, b.data(), n, 0.0, c.data(), n);
    best = std::min(best, Seconds(t0));
  }
  return 2.0 * n * n * static_cast<double>(n) / best / 1e9;
}

std::vector<int> ParseSizes(const std::string& text) {
  std::vector<int> sizes;
  std::stringstream in(text);
  std::string item;
  while (std::getline(in, item, ','))
    if (!item.empty()) sizes.push_back(std::atoi(item.c_str()));
  return sizes;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<int> sizes{20000, 100000};
  int nrhs = 1, repeats = 3;
  std::string childSide;
  const char* envThreads = std::getenv("MKL_NUM_THREADS");
  int threads = envThreads ? std::max(1, std::atoi(envThreads)) : 2;
  for (int a = 1; a < argc; ++a) {
    const std::string arg = argv[a];
    if (arg == "--nrhs" && a + 1 < argc) {
      nrhs = std::max(1, std::atoi(argv[++a]));
    } else if (arg == "--repeats" && a + 1 < argc) {
      repeats = std::max(1, std::atoi(argv[++a]));
    } else if (arg == "--child" && a + 1 < argc) {
      childSide = argv[++a];
    } else if (arg == "--threads" && a + 1 < argc) {
      threads = std::max(1, std::atoi(argv[++a]));
    } else if (arg == "--help" || arg == "-h") {
      std::printf("usage: %s [20000,100000,300000] [--nrhs N] [--repeats R] [--threads T]\n", argv[0]);
      return 0;
    } else {
      sizes = ParseSizes(arg);
    }
  }

  // The library publishes its thread count when it is initialised; MKL reads it on first use.
  VQ_Set_INTEL_MKL_NumberOfThreads(threads);
  VQ_Set_INTEL_MKL_OMP_NumberOfThreads(threads);
  VQ_InitializeLibrary();
  mkl_set_num_threads(threads);
  if (!childSide.empty() && !sizes.empty()) {
    vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(sizes[0]));
    Problem p = MakeProblem(model, nrhs);
    return RunChild(childSide, p, LibraryParameters(p));
  }
  const double dgemm = DgemmGflops();
  std::printf("VQ_SparseSolverDirect against raw PARDISO (phases 11/22/33/-1), same arrays and parameters\n");
  std::printf("MKL threads %d, load vectors %d, best of %d runs in rotating order; cblas_dgemm 2000^3: %.1f GFlop/s\n\n",
              mkl_get_max_threads(), nrhs, repeats, dgemm);
  std::printf("%8s %10s | %9s %9s %8s %9s %8s | %10s %10s %7s | %10s %10s %7s | %9s %8s | %8s %8s\n", "n", "nnz(K)",
              "raw [s]", "lib [s]", "overhd", "lib1 [s]", "overhd", "raw pk MB", "lib pk MB", "ratio", "raw +MB", "lib +MB", "ratio",
              "fact GF/s", "of dgemm", "res raw", "res lib");

  for (int target : sizes) {
    vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(target));
    const Problem p = MakeProblem(model, nrhs);
    const int n = p.k->n;
    const std::vector<int> params = LibraryParameters(p);

    // Timing: alternate the two sides so that both see the same machine state.
    double bestRaw = 1e300, bestLib = 1e300, bestLibCalling = 1e300;
    RawTimes raw;
    std::vector<double> xr(p.f.size()), xl(p.f.size());
    int code = 0;
    // The order of the three sides rotates from run to run, so that none is always the one that
    // follows another's release of MKL's buffers.
    for (int r = 0; r < repeats; ++r) {
      for (int side = 0; side < 3; ++side) {
        switch ((side + r) % 3) {
          case 0: {
            const RawTimes t = RunRaw(p, params, xr);
            if (t.total < bestRaw) {
              bestRaw = t.total;
              raw = t;
            }
            break;
          }
          case 1:
            bestLib = std::min(bestLib, RunLibrary(p, xl, &code));
            break;
          default:
            VQ_SetParameterB(1004, 1);
            bestLibCalling = std::min(bestLibCalling, RunLibrary(p, xl, &code));
            VQ_SetParameterB(1004, 0);
            break;
        }
      }
    }

    // Memory: each side in a process of its own.
    const Peak rawPeak = MeasurePeak(argv[0], "raw", target, nrhs, threads);
    const Peak libPeak = MeasurePeak(argv[0], "lib", target, nrhs, threads);

    const double rate = raw.factor > 0 ? raw.mflop / raw.factor / 1000.0 : 0.0;
    std::printf("%8d %10d | %9.3f %9.3f %7.2f%% %9.3f %7.2f%% | %10.1f %10.1f %7.3f | %10.1f %10.1f %7.3f | %9.1f %7.0f%% | %8.1e %8.1e\n",
                n, p.k->Nnz(), bestRaw, bestLib, 100.0 * (bestLib / bestRaw - 1.0), bestLibCalling,
                100.0 * (bestLibCalling / bestRaw - 1.0), rawPeak.totalKb / 1024.0,
                libPeak.totalKb / 1024.0, static_cast<double>(libPeak.totalKb) / rawPeak.totalKb,
                rawPeak.aboveKb / 1024.0, libPeak.aboveKb / 1024.0,
                static_cast<double>(libPeak.aboveKb) / rawPeak.aboveKb, rate, 100.0 * rate / dgemm,
                Residual(p, xr), Residual(p, xl));
    double checkSeconds = 0, solverSeconds = 0;
    OwnWork(p, &checkSeconds, &solverSeconds);
    std::printf("%8s raw phases: analysis %.3f s, factorisation %.3f s (%d MFlop), solve %.3f s; library code %d%s\n",
                "", raw.analysis, raw.factor, raw.mflop, raw.solve, code, raw.error ? " (raw PARDISO error)" : "");
    std::printf("%8s library's own work: input check %.2f ms, solver setup + worker thread + teardown %.2f ms"
                " = %.3f%% of the raw time\n",
                "", 1e3 * checkSeconds, 1e3 * solverSeconds, 100.0 * (checkSeconds + solverSeconds) / bestRaw);
    std::fflush(stdout);
  }
  return 0;
}
