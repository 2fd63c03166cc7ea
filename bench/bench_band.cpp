// Every mode below a frequency: the band search against ARPACK asked for the same number of
// modes at σ = 0 and against FEAST over the same interval.
//
//   bench_band [equations=100000] [modes=100] [workdir=/tmp/] [feast_seconds=300]
//
// Problem: the clamped 3D solid bar of the model generator with about `equations` equations and
// its lumped mass (handed to every method as a diagonal sparse matrix). ARPACK runs first, asked
// for `modes` modes nearest σ = 0; the band's upper end is set just above the highest of them,
// so the band holds the same modes. The band search (VQ_EigenvalueAnalysis_Band2) counts the
// band by inertia and proves it complete slice by slice; ARPACK and FEAST
// (VQ_EigenvalueAnalysis_ExtendedSolver on [0, upper], subspace 1.5·modes) carry no such proof.
// Prints one markdown table: wall seconds of each method, the ratio to the band search, modes
// delivered, the largest relative eigenvalue difference to the band, and the proof. Rows are
// printed as the methods finish. FEAST runs in a thread of its own and gets feast_seconds: when
// it has not finished by then its row says so (its time is then a lower bound) and the program
// ends without waiting for it.
#include <algorithm>
#include <cfloat>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "models/SolidModel.h"
#include "vqmath.h"

namespace {

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double MaxRelativeDifference(const std::vector<double>& a, const std::vector<double>& b, int count) {
  double d = 0.0;
  for (int i = 0; i < count && i < static_cast<int>(a.size()) && i < static_cast<int>(b.size()); ++i)
    d = std::max(d, std::fabs(a[i] - b[i]) / std::max(std::fabs(b[i]), 1e-300));
  return d;
}

}  // namespace

int main(int argc, char** argv) {
  const int equations = argc > 1 ? std::atoi(argv[1]) : 100000;
  const int modes = argc > 2 ? std::atoi(argv[2]) : 100;
  const std::string workdir = argc > 3 ? argv[3] : "/tmp/";
  const double feastLimit = argc > 4 ? std::atof(argv[4]) : 300.0;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);  // rows survive a time limit that ends the run
  // The library starts MKL on one thread; every method here gets the threads the caller asked for.
  const char* asked = std::getenv("MKL_NUM_THREADS");
  const int threadCount = asked ? std::max(1, std::atoi(asked)) : 2;
  VQ_InitializeLibrary();
  VQ_Set_INTEL_MKL_NumberOfThreads(threadCount);

  vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(equations));
  const auto& k = model.Stiffness();
  const std::vector<double>& lumped = model.LumpedMass();
  const int n = k.n;
  std::vector<int> mRows(n + 1), mCols(n);
  for (int i = 0; i <= n; ++i) mRows[i] = i + 1;
  for (int i = 0; i < n; ++i) mCols[i] = i + 1;

  const char* threads = std::getenv("MKL_NUM_THREADS");
  std::printf("## Every mode below a frequency: band search, ARPACK, FEAST\n\n");
  std::printf("Clamped solid, %d equations, lumped mass, the lowest %d modes; MKL_NUM_THREADS=%s.\n\n", n,
              modes, threads ? threads : "(unset)");

  // ARPACK: the modes nearest σ = 0.
  std::vector<double> arpack(modes), shapes(static_cast<size_t>(n) * (modes + 64));
  int arpackFound = 0;
  double t0 = Now();
  const int arpackCode = VQ_EigenvalueAnalysis_ARPACK2(
      n, modes, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), mRows.data(),
      mCols.data(), lumped.data(), 4, 0, -1, &arpackFound, arpack.data(), shapes.data(), 0.0,
      workdir.c_str(), 0);
  const double arpackSeconds = Now() - t0;
  std::fprintf(stderr, "ARPACK: %.2f s\n", arpackSeconds);
  if (arpackCode != 0 || arpackFound < modes) {
    std::printf("ARPACK failed (%d, %d found): no band to compare\n", arpackCode, arpackFound);
    return 1;
  }
  const double upper = arpack[modes - 1] * (1.0 + 1e-7);

  // Band search over (−∞, upper].
  const int cap = modes + 64;
  std::vector<double> band(cap);
  int bandCount = 0, bandFound = 0;
  t0 = Now();
  const int bandCode = VQ_EigenvalueAnalysis_Band2(
      n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), mRows.data(), mCols.data(),
      lumped.data(), -DBL_MAX, upper, cap, &bandCount, &bandFound, band.data(), shapes.data(),
      workdir.c_str());
  const double bandSeconds = Now() - t0;
  std::fprintf(stderr, "band: %.2f s\n", bandSeconds);
  const int slices = VQ_GetBandSlices(0, nullptr, nullptr);
  std::vector<int> counts(4 * static_cast<size_t>(std::max(slices, 1)));
  VQ_GetBandSlices(slices, nullptr, counts.data());
  bool proven = bandCode == 0;
  for (int i = 0; i < slices; ++i) proven = proven && counts[4 * i + 3] == counts[4 * i + 1] - counts[4 * i];

  std::printf("| method | status | modes | wall [s] | / band | max rel. diff. to band | complete by |\n");
  std::printf("|---|---|---|---|---|---|---|\n");
  std::printf("| band search (%d slice%s) | %d | %d of %d counted | %.2f | 1.00 | - | Sturm counts per slice: %s |\n",
              slices, slices == 1 ? "" : "s", bandCode, bandFound, bandCount, bandSeconds,
              proven ? "proven" : "NOT proven");
  std::printf("| ARPACK, %d modes at sigma = 0 | %d | %d | %.2f | %.2f | %.1e | nothing |\n", modes, arpackCode,
              arpackFound, arpackSeconds, arpackSeconds / bandSeconds,
              MaxRelativeDifference(arpack, band, std::min(arpackFound, bandFound)));

  // FEAST over [0, upper], in a thread of its own so that a run beyond the limit can be reported.
  const int subspace = modes + modes / 2;
  struct FeastRun {
    std::mutex lock;
    std::condition_variable done;
    bool finished = false;
    int code = 0, found = 0;
    std::vector<double> values, shapes;
  };
  auto* run = new FeastRun();  // left to the thread when it outlives the limit
  run->values.resize(subspace);
  run->shapes.resize(static_cast<size_t>(n) * subspace);
  t0 = Now();
  std::thread([run, n, subspace, &k, &mRows, &mCols, &lumped, workdir, upper]() {
    int found = 0;
    const int code = VQ_EigenvalueAnalysis_ExtendedSolver(
        n, subspace, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), mRows.data(),
        mCols.data(), lumped.data(), 0, -2, workdir.c_str(), 0.0, upper, &found, run->values.data(), 1,
        run->shapes.data());
    std::lock_guard<std::mutex> guard(run->lock);
    run->code = code, run->found = found, run->finished = true;
    run->done.notify_all();
  }).detach();
  std::unique_lock<std::mutex> wait(run->lock);
  run->done.wait_for(wait, std::chrono::duration<double>(feastLimit), [run] { return run->finished; });
  const double feastSeconds = Now() - t0;
  if (!run->finished) {
    std::printf("| FEAST on [0, %.6g], subspace %d | stopped | - | > %.0f | > %.2f | - | nothing |\n\n", upper,
                subspace, feastSeconds, feastSeconds / bandSeconds);
    std::fflush(stdout);
    std::_Exit(bandCode == 0 ? 0 : 1);  // FEAST still runs in its thread
  }
  std::printf("| FEAST on [0, %.6g], subspace %d | %d | %d | %.2f | %.2f | %.1e | nothing |\n", upper, subspace,
              run->code, run->found, feastSeconds, feastSeconds / bandSeconds,
              MaxRelativeDifference(run->values, band, std::min(run->found, bandFound)));
  wait.unlock();
  delete run;
  std::printf("\n");
  VQ_ReleaseLibrary();
  return bandCode == 0 ? 0 : 1;
}
