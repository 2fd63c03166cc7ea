// Lanczos driver against a plain ARPACK + PARDISO shift-invert loop.
//
//   bench_lanczos [equations=100000] [nev=20] [repeats=2]
//
// Problem: the clamped 3D solid bar of the model generator with about `equations` equations and
// its lumped mass; the lowest nev natural modes (σ = 0). Both runs use the same PARDISO settings
// (the library's defaults: symmetric indefinite, nested dissection, 1e-8 pivot perturbation,
// refinement only after perturbed pivots), the same ARPACK sizes (ncv = 2·nev + 1, tolerance the
// machine precision) and deliver mode shapes. The reference loop is written out here with
// nothing but pardiso() and dsaupd_/dseupd_; the library run goes through VQ_LanczosEigenSolver.
// Prints the time of factorisation and solves of the reference, both totals, their ratio, the
// operator applications and the largest relative eigenvalue difference.
#include <mkl.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "eigen/VQ_LanczosEigenSolver.h"
#include "models/SolidModel.h"
#include "vqmath.h"

extern "C" {
void dsaupd_(int* ido, const char* bmat, const int* n, const char* which, const int* nev,
             double* tol, double* resid, const int* ncv, double* v, const int* ldv, int* iparam,
             int* ipntr, double* workd, double* workl, const int* lworkl, int* info,
             size_t bmatLength, size_t whichLength);
void dseupd_(const int* rvec, const char* howmny, int* select, double* d, double* z, const int* ldz,
             const double* sigma, const char* bmat, const int* n, const char* which, const int* nev,
             double* tol, double* resid, const int* ncv, double* v, const int* ldv, int* iparam,
             int* ipntr, double* workd, double* workl, const int* lworkl, int* info,
             size_t howmnyLength, size_t bmatLength, size_t whichLength);
}

namespace {

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Timing {
  double factor = 0.0;
  double solves = 0.0;
  double total = 0.0;
  int applications = 0;
  std::vector<double> values;
};

// The plain loop: PARDISO on K (σ = 0), ARPACK mode 3 with a diagonal M.
Timing PlainLoop(const vqmath::models::CsrMatrix& k, const std::vector<double>& m, int nev) {
  Timing t;
  const double t0 = Now();
  int n = k.n;
  void* pt[64] = {};
  int iparm[64] = {};
  iparm[0] = 1;    // parameters supplied
  iparm[1] = 2;    // nested dissection
  iparm[7] = 2;    // refinement steps (dropped below when no pivot was perturbed)
  iparm[9] = 8;    // pivot perturbation 1e-8
  iparm[17] = -1;  // report factor non-zeros
  iparm[18] = -1;  // report MFlop
  iparm[20] = 1;   // Bunch-Kaufman pivoting
  int maxfct = 1, mnum = 1, mtype = -2, msglvl = 0, error = 0, nrhs = 1, phase = 12;
  double dummy = 0.0;
  int idummy = 0;
  pardiso(pt, &maxfct, &mnum, &mtype, &phase, &n, k.values.data(), k.rowPointers.data(),
          k.columnIndices.data(), &idummy, &nrhs, iparm, &msglvl, &dummy, &dummy, &error);
  if (error != 0) {
    std::printf("PARDISO factorisation failed: %d\n", error);
    std::exit(1);
  }
  if (iparm[13] == 0) iparm[7] = 0;
  const double t1 = Now();
  t.factor = t1 - t0;

  const int ncv = std::min(2 * nev + 1, n - 1);
  const int lworkl = ncv * (ncv + 8);
  std::vector<double> resid(n), v(static_cast<size_t>(n) * ncv), workd(3 * static_cast<size_t>(n)),
      workl(lworkl), d(nev), z(static_cast<size_t>(n) * nev), bx(n);
  std::vector<int> select(ncv);
  int iparam[11] = {}, ipntr[11] = {};
  iparam[0] = 1;
  iparam[2] = 100 * nev;
  iparam[3] = 1;
  iparam[6] = 3;
  double tol = 0.0;
  int ido = 0, info = 0;
  phase = 33;
  double solveTime = 0.0;
  for (;;) {
    dsaupd_(&ido, "G", &n, "LM", &nev, &tol, resid.data(), &ncv, v.data(), &n, iparam, ipntr,
            workd.data(), workl.data(), &lworkl, &info, 1, 2);
    if (ido == 99) break;
    double* x = &workd[ipntr[0] - 1];
    double* y = &workd[ipntr[1] - 1];
    if (ido == -1 || ido == 1) {
      const double* rhs = bx.data();
      if (ido == -1)
        for (int i = 0; i < n; ++i) bx[i] = m[i] * x[i];
      else
        rhs = &workd[ipntr[2] - 1];
      const double s0 = Now();
      pardiso(pt, &maxfct, &mnum, &mtype, &phase, &n, k.values.data(), k.rowPointers.data(),
              k.columnIndices.data(), &idummy, &nrhs, iparm, &msglvl, const_cast<double*>(rhs), y,
              &error);
      solveTime += Now() - s0;
      ++t.applications;
    } else if (ido == 2) {
      for (int i = 0; i < n; ++i) y[i] = m[i] * x[i];
    } else {
      break;
    }
  }
  const int rvec = 1;
  double sigma = 0.0;
  dseupd_(&rvec, "A", select.data(), d.data(), z.data(), &n, &sigma, "G", &n, "LM", &nev, &tol,
          resid.data(), &ncv, v.data(), &n, iparam, ipntr, workd.data(), workl.data(), &lworkl,
          &info, 1, 1, 2);
  t.solves = solveTime;
  t.total = Now() - t0;
  t.values.assign(d.begin(), d.end());
  std::sort(t.values.begin(), t.values.end());
  phase = -1;
  pardiso(pt, &maxfct, &mnum, &mtype, &phase, &n, &dummy, k.rowPointers.data(),
          k.columnIndices.data(), &idummy, &nrhs, iparm, &msglvl, &dummy, &dummy, &error);
  if (info != 0) std::printf("  (plain loop: ARPACK info %d)\n", info);
  return t;
}

Timing Library(const vqmath::models::CsrMatrix& k, const std::vector<double>& m, int nev) {
  Timing t;
  std::vector<double> values(nev), modes(static_cast<size_t>(k.n) * nev);
  int found = 0;
  VQ_LanczosProblem p;
  p.n = k.n;
  p.requested = nev;
  p.kRowPointers = k.rowPointers.data();
  p.kColumnIndices = k.columnIndices.data();
  p.kValues = k.values.data();
  p.bDiagonal = m.data();
  p.eigenvalues = values.data();
  p.modeShapes = modes.data();
  p.found = &found;
  p.workingDirectory = "./";
  const double t0 = Now();
  VQ_LanczosEigenSolver solver(p);
  const int status = solver.SolveNaturalModes();
  t.total = Now() - t0;
  if (status != 0)
    std::printf("  (library: status %d, %s)\n", solver.GetStatus(),
                solver.GetErrorMessage().c_str());
  t.applications = solver.Result().operatorApplications;
  t.values.assign(values.begin(), values.begin() + found);
  return t;
}

}  // namespace

int main(int argc, char** argv) {
  const int equations = argc > 1 ? std::atoi(argv[1]) : 100000;
  const int nev = argc > 2 ? std::atoi(argv[2]) : 20;
  const int repeats = argc > 3 ? std::atoi(argv[3]) : 2;
  // MKL's thread count as the environment gives it (default 2), published before initialisation
  // as a host does.
  const char* threads = std::getenv("MKL_NUM_THREADS");
  VQ_Set_INTEL_MKL_NumberOfThreads(threads ? std::atoi(threads) : 2);
  VQ_InitializeLibrary();

  const double g0 = Now();
  const vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(equations));
  const auto& k = model.Stiffness();
  const std::vector<double>& m = model.LumpedMass();
  std::printf(
      "3D solid: %d equations, %d stored entries of K, %d modes (generated in %.1f s), "
      "%d MKL threads\n",
      k.n, k.Nnz(), nev, Now() - g0, mkl_get_max_threads());

  Timing best[2];
  for (int r = 0; r < repeats; ++r) {
    // Alternate the order so that neither run always profits from a warm cache.
    for (int which = 0; which < 2; ++which) {
      const int run = (r % 2 == 0) ? which : 1 - which;
      const Timing t = run == 0 ? PlainLoop(k, m, nev) : Library(k, m, nev);
      std::printf("  %-12s total %7.3f s", run == 0 ? "plain loop" : "library", t.total);
      if (run == 0)
        std::printf("  (factor %.3f s, %d solves %.3f s)", t.factor, t.applications, t.solves);
      else
        std::printf("  (%d operator applications)", t.applications);
      std::printf("\n");
      if (r == 0 || t.total < best[run].total) best[run] = t;
    }
  }
  double worst = 0.0;
  const size_t count = std::min(best[0].values.size(), best[1].values.size());
  for (size_t i = 0; i < count; ++i)
    worst = std::max(
        worst, std::fabs(best[1].values[i] - best[0].values[i]) / std::fabs(best[0].values[i]));
  std::printf(
      "best: plain loop %.3f s, library %.3f s, ratio %.3f; eigenvalues agree to %.1e "
      "(%zu compared), lowest %.6e\n",
      best[0].total, best[1].total, best[1].total / best[0].total, worst, count,
      count ? best[0].values[0] : 0.0);
  return 0;
}
