// Band eigenvalue analysis (VQ_EigenvalueAnalysis_Band, _Band2) fed arbitrary models, bounds and
// caps, followed by VQ_GetBandSlices with arbitrary slice caps. Models are small arbitrary ones or
// spring chains long enough to be cut into slices. Promises checked:
//   - the code equals the registry's and is a documented one;
//   - invalid bounds (NaN, lower above upper, upper not finite) on valid arrays give -92, invalid
//     arrays on valid bounds -64; nothing written past maxModes eigenvalues or n*maxModes shape
//     values (guards); on -90 the band count exceeds the cap and nothing but the count (and the
//     cleared slots) is written;
//   - on success found = bandCount, eigenvalues ascending inside the band, the other slots 0;
//   - on a well-conditioned pencil (dominant K, positive diagonal M, no eigenvalue near an
//     edge) the band count and eigenvalues equal the dense reference (LAPACK, or the chain's
//     closed form);
//   - the slices tile the band: counts consistent with bandCount and found, and nothing written
//     past maxSlices entries.
// fuzz max_len: 1024
#include <sys/stat.h>

#include "FuzzDense.h"

namespace {

int* Rows(vqfuzz::Csr& c) { return c.rowPointers.empty() ? nullptr : c.rowPointers.data(); }

bool Documented(int code) {
  switch (code) {
    case 0: case -1: case -3: case -45: case -64: case -81: case -82: case -83: case -90:
    case -91: case -92: return true;
    default: return false;
  }
}

double Bound(FuzzedDataProvider& in, const std::vector<double>& reference) {
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0: return vqfuzz::PickValue(in);
    case 1: return -std::numeric_limits<double>::max();
    case 2: {
      if (reference.empty()) return 0.0;
      // Between two reference eigenvalues (or on one).
      const size_t i = in.ConsumeIntegralInRange<size_t>(0, reference.size() - 1);
      const double next = i + 1 < reference.size() ? reference[i + 1] : 2 * reference[i] + 1;
      return reference[i] + in.ConsumeIntegralInRange<int>(0, 4) * 0.25 * (next - reference[i]);
    }
    default: return in.ConsumeFloatingPointInRange<double>(-1.0, 20.0);
  }
}

void CheckSlices(FuzzedDataProvider& in, int code, int bandCount, int found) {
  const int held = VQ_GetBandSlices(0, nullptr, nullptr);
  if (code != 0 || bandCount == 0) {
    VQFUZZ_CHECK(held == 0);
    return;
  }
  VQFUZZ_CHECK(held >= 1);
  const int cap = in.ConsumeIntegralInRange<int>(-1, held + 1);
  const size_t copied = static_cast<size_t>(std::max(0, std::min(cap, held)));
  vqfuzz::Guarded bounds(3 * copied);
  vqfuzz::GuardedInts counts(4 * copied);
  VQFUZZ_CHECK(VQ_GetBandSlices(cap, bounds.get(), counts.get()) == held);
  VQFUZZ_CHECK(bounds.GuardIntact() && counts.GuardIntact());
  if (cap < held) return;
  int sum = 0;
  for (int i = 0; i < held; ++i) {
    const int* c = counts.data.data() + 4 * i;
    const double* b = bounds.data.data() + 3 * i;
    VQFUZZ_CHECK(b[0] <= b[1]);
    // A pair on a slice border is kept by one of the two slices: per slice, found may differ
    // from its count; the band's totals may not.
    VQFUZZ_CHECK(c[3] >= 0);
    if (i > 0) VQFUZZ_CHECK(c[0] == counts.data[4 * (i - 1) + 1]);
    sum += c[3];
  }
  VQFUZZ_CHECK(sum == found);
  VQFUZZ_CHECK(counts.data[4 * (held - 1) + 1] - counts.data[0] == bandCount);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string workDir = vqfuzz::ScratchFolder("band-work");
  FuzzedDataProvider in(data, size);
  const bool sparseM = in.ConsumeBool();
  const bool chain = in.ConsumeIntegralInRange<int>(0, 7) == 0;
  vqfuzz::Csr k = chain ? vqfuzz::ChainCsr(in.ConsumeIntegralInRange<int>(30, 90))
                        : vqfuzz::BuildCsr(in, 7);
  const int n = k.n;
  const bool positiveMass = chain || in.ConsumeBool();
  std::vector<double> mass(n > 0 ? static_cast<size_t>(n) : 0);
  for (double& m : mass)
    m = chain ? 1.0 : positiveMass ? 1.0 + in.ConsumeIntegralInRange<int>(0, 3) : vqfuzz::PickValue(in);
  vqfuzz::Csr m;
  bool sameMass = true;
  if (sparseM && n >= 1) {
    if (!chain && in.ConsumeIntegralInRange<int>(0, 3) == 0) {
      m = vqfuzz::BuildCsr(in, 7, n);
      sameMass = false;
    } else {
      m = vqfuzz::DiagonalCsr(mass);
    }
  }
  // The dense reference where the pencil is well conditioned.
  const bool wellConditioned = chain || (n >= 1 && k.dominant && !k.corrupted && positiveMass && sameMass);
  std::vector<double> reference;
  if (wellConditioned) {
    if (chain)
      reference = vqfuzz::ChainEigenvalues(n);
    else
      VQFUZZ_CHECK(vqfuzz::DenseGeneralized(n, vqfuzz::DenseOf(k), vqfuzz::DenseDiagonal(mass), reference));
  }
  double lower = Bound(in, reference), upper = Bound(in, reference);
  if (in.ConsumeBool() && lower > upper) std::swap(lower, upper);
  const int maxModes = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(-1, n + 1)
                                        : in.ConsumeIntegralInRange<int>(0, 3);
  const bool nullShapes = chain || in.ConsumeBool();
  const size_t slots = maxModes > 0 ? static_cast<size_t>(maxModes) : 0;
  vqfuzz::Guarded eigenvalues(slots);
  vqfuzz::Guarded shapes(n > 0 ? static_cast<size_t>(n) * slots : 0);
  int bandCount = -5, found = -5;
  vqfuzz::DumpCsr("K", k);
  vqfuzz::DumpValues("mass", mass.data(), mass.size());
  if (sparseM) vqfuzz::DumpCsr("M", m);
  if (vqfuzz::Verbose())
    std::fprintf(stderr, "sparseM %d lower %.17g upper %.17g maxModes %d\n", sparseM, lower, upper,
                 maxModes);
  const int code =
      sparseM ? VQ_EigenvalueAnalysis_Band2(n, Rows(k), vqfuzz::DataOrNull(k.columnIndices),
                                            vqfuzz::DataOrNull(k.values), Rows(m),
                                            vqfuzz::DataOrNull(m.columnIndices),
                                            vqfuzz::DataOrNull(m.values), lower, upper, maxModes,
                                            &bandCount, &found, eigenvalues.get(),
                                            nullShapes ? nullptr : shapes.get(), workDir.c_str())
              : VQ_EigenvalueAnalysis_Band(n, Rows(k), vqfuzz::DataOrNull(k.columnIndices),
                                           vqfuzz::DataOrNull(k.values), vqfuzz::DataOrNull(mass),
                                           lower, upper, maxModes, &bandCount, &found,
                                           eigenvalues.get(), nullShapes ? nullptr : shapes.get(),
                                           workDir.c_str());
  if (vqfuzz::Verbose()) std::fprintf(stderr, "code %d bandCount %d found %d\n", code, bandCount, found);
  vqfuzz::DumpValues("eigenvalues", eigenvalues.get(), slots);
  vqfuzz::DumpValues("reference", reference.data(), reference.size());
  vqfuzz::CheckRegistry(code);
  VQFUZZ_CHECK(Documented(code));
  VQFUZZ_CHECK(eigenvalues.GuardIntact() && shapes.GuardIntact());
  for (size_t i = 0; i < slots; ++i)
    if (static_cast<int>(i) >= std::max(found, 0)) VQFUZZ_CHECK(eigenvalues.data[i] == 0.0);

  const bool kValid = vqfuzz::WellFormedCsr(k) && vqfuzz::AllFinite(k.values);
  const bool mValid = sparseM ? vqfuzz::WellFormedCsr(m) && vqfuzz::AllFinite(m.values)
                              : vqfuzz::AllFinite(mass);
  const bool arraysValid = n >= 1 && kValid && mValid;
  const bool boundsValid = !std::isnan(lower) && std::isfinite(upper) && lower <= upper;
  if (!arraysValid && boundsValid) VQFUZZ_CHECK(code == -64);
  if (arraysValid && !boundsValid) VQFUZZ_CHECK(code == -92);
  if (code != 0) {
    VQFUZZ_CHECK(found == 0);
    VQFUZZ_CHECK(shapes.Untouched());
    if (code == -90) VQFUZZ_CHECK(bandCount > maxModes);
    if (code == -3) VQFUZZ_CHECK(VQ_GetInstabilityDOF() >= 1 && VQ_GetInstabilityDOF() <= n);
  } else {
    VQFUZZ_CHECK(found == bandCount && found <= std::max(maxModes, 0));
    // The counts prove eigenvalues only for a positive semi-definite M; an indefinite one (not
    // detected, as documented) yields values the band cannot vouch for.
    std::vector<double> mEigen;
    const std::vector<double> md = sparseM ? vqfuzz::DenseOf(m) : vqfuzz::DenseDiagonal(mass);
    const bool semiDefinite =
        vqfuzz::DenseEigenvalues(n, md, mEigen) && mEigen.front() >= -1e-12 * std::fabs(mEigen.back());
    // Edges are widened by 1e-9 relative to the bounds (absolute 1e-9 at a bound of zero), and a
    // computed eigenvalue carries an error of rounding times the spectrum's scale |K| / min M (an
    // exact 0 of a singular K with values 1e8 comes out as -5e-9).
    double kMax = 0.0, mMin = std::numeric_limits<double>::infinity();
    for (double v : k.values) kMax = std::max(kMax, std::fabs(v));
    for (int i = 0; i < n; ++i) {
      const double d = sparseM ? m.values[m.rowPointers[i] - 1] : mass[i];
      if (d > 0.0) mMin = std::min(mMin, d);
    }
    const double tol =
        1e-9 * std::max({1.0, std::fabs(upper), lower > -1e300 ? std::fabs(lower) : 0.0}) +
        1e-13 * kMax / mMin;
    // Where PARDISO perturbed pivots at an edge (an eigenvalue within rounding of it), the search
    // moved that edge outward and counted there: the band it proves and delivers reaches to the
    // outer ends of its slices, and eigenvalues of such a cluster carry the perturbation's error.
    double low = lower, high = upper;
    const int held = VQ_GetBandSlices(0, nullptr, nullptr);
    if (code == 0 && held > 0) {
      std::vector<double> ends(3 * static_cast<size_t>(held));
      VQ_GetBandSlices(held, ends.data(), nullptr);
      low = std::min(low, ends[0]);
      high = std::max(high, ends[3 * static_cast<size_t>(held - 1) + 1]);
    }
    for (int i = 0; i < found; ++i) {
      if (semiDefinite)
        VQFUZZ_CHECK(eigenvalues.data[i] >= low - tol && eigenvalues.data[i] <= high + tol);
      if (i > 0) VQFUZZ_CHECK(eigenvalues.data[i - 1] <= eigenvalues.data[i]);
    }
  }
  CheckSlices(in, code, bandCount, found);

  // Bounds whose multiples of M overflow are refused (-64) rather than counted.
  const bool representable = std::fabs(upper) < 1e299 && (lower <= -1e300 || std::fabs(lower) < 1e299);
  if (!wellConditioned || !boundsValid || !representable) return 0;
  // Sharp only when no eigenvalue sits near an edge.
  const double scale = std::max(1.0, std::fabs(reference.back()));
  int inside = 0;
  for (double w : reference) {
    if (std::fabs(w - lower) <= 1e-6 * scale || std::fabs(w - upper) <= 1e-6 * scale) return 0;
    if (w > lower && w < upper) ++inside;
  }
  VQFUZZ_CHECK(code == 0 || code == -90);
  VQFUZZ_CHECK(bandCount == inside);
  if (code != 0) return 0;
  size_t first = 0;
  while (first < reference.size() && reference[first] < lower) ++first;
  for (int i = 0; i < found; ++i)
    VQFUZZ_CHECK(std::fabs(eigenvalues.data[i] - reference[first + i]) <= 1e-8 * scale);
  return 0;
}
