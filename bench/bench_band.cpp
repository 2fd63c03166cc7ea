// Every mode below a frequency: the band search against ARPACK asked for the same number of
// modes at σ = 0 and against FEAST over the same interval.
//
//   bench_band [equations=100000] [modes=100] [workdir=/tmp/]
//
// Problem: the clamped 3D solid bar of the model generator with about `equations` equations and
// its lumped mass (handed to every method as a diagonal sparse matrix). ARPACK runs first, asked
// for `modes` modes nearest σ = 0; the band's upper end is set just above the highest of them,
// so the band holds the same modes. The band search (VQ_EigenvalueAnalysis_Band2) counts the
// band by inertia and proves it complete slice by slice; ARPACK and FEAST
// (VQ_EigenvalueAnalysis_ExtendedSolver on [0, upper], subspace 1.5·modes) carry no such proof.
// Prints one markdown table: wall seconds of each method, the ratio to the band search, modes
// delivered, the largest relative eigenvalue difference to the band, and the proof.
#include <cfloat>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
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
  std::setvbuf(stdout, nullptr, _IOLBF, 0);  // rows survive a time limit that ends the run
  VQ_InitializeLibrary();

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

  // FEAST over [0, upper].
  const int subspace = modes + modes / 2;
  std::vector<double> feast(subspace);
  std::vector<double> feastShapes(static_cast<size_t>(n) * subspace);
  int feastFound = 0;
  t0 = Now();
  const int feastCode = VQ_EigenvalueAnalysis_ExtendedSolver(
      n, subspace, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), mRows.data(),
      mCols.data(), lumped.data(), 0, -2, workdir.c_str(), 0.0, upper, &feastFound, feast.data(), 1,
      feastShapes.data());
  const double feastSeconds = Now() - t0;

  std::printf("| method | status | modes | wall [s] | / band | max rel. diff. to band | complete by |\n");
  std::printf("|---|---|---|---|---|---|---|\n");
  std::printf("| band search (%d slice%s) | %d | %d of %d counted | %.2f | 1.00 | - | Sturm counts per slice: %s |\n",
              slices, slices == 1 ? "" : "s", bandCode, bandFound, bandCount, bandSeconds,
              proven ? "proven" : "NOT proven");
  std::printf("| ARPACK, %d modes at sigma = 0 | %d | %d | %.2f | %.2f | %.1e | nothing |\n", modes, arpackCode,
              arpackFound, arpackSeconds, arpackSeconds / bandSeconds,
              MaxRelativeDifference(arpack, band, std::min(arpackFound, bandFound)));
  std::printf("| FEAST on [0, %.6g], subspace %d | %d | %d | %.2f | %.2f | %.1e | nothing |\n", upper, subspace,
              feastCode, feastFound, feastSeconds, feastSeconds / bandSeconds,
              MaxRelativeDifference(feast, band, std::min(feastFound, bandFound)));
  std::printf("\n");
  VQ_ReleaseLibrary();
  return bandCode == 0 ? 0 : 1;
}
