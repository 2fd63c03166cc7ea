// Subspace iteration on the generated 3D solid, with its time split into the phases of a run.
//
//   bench_subspace [equations=50000] [nev=20] [tolerance=1e-6] [repeats=1]
//
// Problem: the clamped 3D solid bar of the model generator with about `equations` equations and
// its lumped mass; the lowest nev natural modes. The run goes through VQ_SubspaceEigenSparseSolver
// as a host would drive it (default settings, the given convergence tolerance) and reports:
// the rigid-body check (a factorisation of K), the factorisations of K - sigma*M, the PARDISO
// solves (all q columns in one call per iteration), the block work (M products, projections,
// Xb*Q, orthogonalisation against found vectors), the reduced Jacobi solutions, the number of
// iterations and passes, the total, and the largest residual ||K phi - lambda M phi|| / ||K phi||.
// For scale, the same modes are computed by the Lanczos (ARPACK) driver in the same run; the
// ratio of the two totals and the largest relative eigenvalue difference are printed.
#include <mkl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "eigen/VQ_LanczosEigenSolver.h"
#include "eigen/VQ_SubspaceEigenSparseSolver.h"
#include "models/SolidModel.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "vqmath.h"

namespace {

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Outcome {
  double total = 0.0;
  std::vector<double> values;
  std::vector<double> vectors;
  VQ_SubspaceEigenSparseSolver::Timings timings;
  int status = 0;
  int applications = 0;
};

Outcome Subspace(const vqmath::models::CsrMatrix& k, const std::vector<double>& m, int nev,
                 double tolerance, const std::string& folder) {
  Outcome o;
  // The solver owns copies of K and M, as the flat entry points build them.
  vqmath::models::CsrMatrix kc = k;
  std::vector<double> mc = m;
  const double t0 = Now();
  VQ_SubspaceEigenSparseSolver solver(kc.n, kc.rowPointers.data(), kc.columnIndices.data(),
                                      kc.values.data(), mc.data(), 0, -2, nev, folder.c_str(),
                                      false, 0.0);
  solver.SetConvergenceTolerance(tolerance);
  o.status = solver.SolveSystemIncrementally(nev, 0.0, 0);
  o.total = Now() - t0;
  o.timings = solver.GetTimings();
  for (int i = 1; i <= solver.GetNumFoundEigen(); ++i) o.values.push_back(solver.GetEigenValue(i));
  const VQ_Matrix* v = solver.GetAllEigenVectors();
  o.vectors.assign(v->GetDataPointer(),
                   v->GetDataPointer() + static_cast<size_t>(k.n) * o.values.size());
  return o;
}

Outcome Lanczos(const vqmath::models::CsrMatrix& k, const std::vector<double>& m, int nev,
                const std::string& folder) {
  Outcome o;
  std::vector<double> values(nev), modes(static_cast<size_t>(k.n) * nev);
  int found = 0;
  VQ_LanczosProblem p;
  p.n = k.n;
  p.requested = nev;
  p.kRowPointers = const_cast<int*>(k.rowPointers.data());
  p.kColumnIndices = const_cast<int*>(k.columnIndices.data());
  p.kValues = const_cast<double*>(k.values.data());
  p.bDiagonal = const_cast<double*>(m.data());
  p.eigenvalues = values.data();
  p.modeShapes = modes.data();
  p.found = &found;
  p.workingDirectory = folder.c_str();
  const double t0 = Now();
  VQ_LanczosEigenSolver solver(p);
  o.status = solver.SolveNaturalModes();
  o.total = Now() - t0;
  o.applications = solver.Result().operatorApplications;
  o.values.assign(values.begin(), values.begin() + found);
  return o;
}

double LargestResidual(const vqmath::models::CsrMatrix& k, const std::vector<double>& m,
                       const Outcome& o) {
  const int n = k.n;
  std::vector<double> kx(n);
  double worst = 0.0;
  for (size_t c = 0; c < o.values.size(); ++c) {
    const double* x = o.vectors.data() + c * n;
    vqmath::models::Multiply(k, x, kx.data());
    double r = 0.0, s = 0.0;
    for (int i = 0; i < n; ++i) {
      const double d = kx[i] - o.values[c] * m[i] * x[i];
      r += d * d;
      s += kx[i] * kx[i];
    }
    worst = std::max(worst, std::sqrt(r / s));
  }
  return worst;
}

}  // namespace

int main(int argc, char** argv) {
  const int equations = argc > 1 ? std::atoi(argv[1]) : 50000;
  const int nev = argc > 2 ? std::atoi(argv[2]) : 20;
  const double tolerance = argc > 3 ? std::atof(argv[3]) : 1e-6;
  const int repeats = argc > 4 ? std::atoi(argv[4]) : 1;
  const char* threads = std::getenv("MKL_NUM_THREADS");
  VQ_Set_INTEL_MKL_NumberOfThreads(threads ? std::atoi(threads) : 2);
  VQ_InitializeLibrary();

  char folderTemplate[] = "/tmp/bench-subspace-XXXXXX";
  const char* made = mkdtemp(folderTemplate);
  const std::string folder = made ? std::string(made) + "/" : "./";

  const double g0 = Now();
  const vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(equations));
  const auto& k = model.Stiffness();
  const std::vector<double>& m = model.LumpedMass();
  std::printf(
      "3D solid: %d equations, %d stored entries of K, %d modes, tolerance %.0e "
      "(generated in %.1f s), %d MKL threads\n",
      k.n, k.Nnz(), nev, tolerance, Now() - g0, mkl_get_max_threads());

  Outcome best, lanczos;
  for (int r = 0; r < std::max(1, repeats); ++r) {
    const Outcome s = Subspace(k, m, nev, tolerance, folder);
    if (r == 0 || s.total < best.total) best = s;
    const Outcome l = Lanczos(k, m, nev, folder);
    if (r == 0 || l.total < lanczos.total) lanczos = l;
  }

  const auto& t = best.timings;
  const double accounted =
      t.rigidBodyCheck + t.factorisation + t.solves + t.blockWork + t.reducedSolves;
  std::printf(
      "subspace iteration: status %d, %zu modes, %d passes, %d factorisations, %d iterations\n",
      best.status, best.values.size(), t.passes, t.factorisations, t.iterations);
  std::printf("  rigid-body check (factor K)   %8.3f s\n", t.rigidBodyCheck);
  std::printf("  factorisation of K - sigma M  %8.3f s\n", t.factorisation);
  std::printf("  iterations: solves (q rhs)    %8.3f s\n", t.solves);
  std::printf("  iterations: block work        %8.3f s\n", t.blockWork);
  std::printf("  reduced solves (Jacobi)       %8.3f s\n", t.reducedSolves);
  std::printf("  other (files, set-up)         %8.3f s\n", best.total - accounted);
  std::printf("  total                         %8.3f s\n", best.total);
  std::printf("  largest residual %.2e\n", LargestResidual(k, m, best));

  double worst = 0.0;
  const size_t count = std::min(best.values.size(), lanczos.values.size());
  for (size_t i = 0; i < count; ++i)
    worst = std::max(worst,
                     std::fabs(best.values[i] - lanczos.values[i]) / std::fabs(lanczos.values[i]));
  std::printf("Lanczos driver: status %d, %zu modes, %d operator applications, total %.3f s\n",
              lanczos.status, lanczos.values.size(), lanczos.applications, lanczos.total);
  std::printf(
      "subspace / Lanczos time ratio %.3f; eigenvalues agree to %.1e (%zu compared); "
      "lowest %.6e, highest %.6e\n",
      best.total / lanczos.total, worst, count, count ? lanczos.values[0] : 0.0,
      count ? lanczos.values[count - 1] : 0.0);
  std::system(("rm -rf '" + folder + "'").c_str());
  return 0;
}
