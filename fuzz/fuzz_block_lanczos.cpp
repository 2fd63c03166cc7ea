// Block shift-invert Lanczos (VQ_EigenvalueAnalysis_BlockLanczos, _BlockLanczos2) fed arbitrary
// models, block sizes, restart limits, shifts, limits and selectors, with the verification switch
// (VQ_SetEigenVerification) set from the input. Promises checked:
//   - the switch takes 0 and 1 and ignores other values;
//   - the code equals the registry's (1 with -22 recorded); at most nev pairs delivered, the other
//     eigenvalue slots cleared, nothing written past nev values or n*nev shape values (guards);
//   - malformed or non-finite K, M or Kg and a negative block size are rejected with -64, the
//     mode shapes untouched and the Sturm count -1;
//   - the Sturm count is -1 unless verification is on;
//   - a diagonally dominant K with a positive diagonal M at a shift <= 0 yields the lowest nev
//     eigenvalues of the dense pencil (LAPACK dsygv) with small residuals and M-normalised shapes.
// fuzz max_len: 1024
#include <sys/stat.h>

#include "FuzzDense.h"

namespace {

int* Rows(vqfuzz::Csr& c) { return c.rowPointers.empty() ? nullptr : c.rowPointers.data(); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string workDir = vqfuzz::ScratchFolder("lanczos-work");
  FuzzedDataProvider in(data, size);
  const int before = VQ_GetEigenVerification();
  const int verify = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(0, 1) : in.ConsumeIntegral<int>();
  VQ_SetEigenVerification(verify);
  const int verification = VQ_GetEigenVerification();
  VQFUZZ_CHECK(verification == (verify == 0 || verify == 1 ? verify : before));

  const bool sparseB = in.ConsumeBool();
  const int selector = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(0, 3) : in.ConsumeIntegral<int>();
  const int nev = in.ConsumeIntegralInRange<int>(-1, 10);
  const int blockSize = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(-1, 5) : in.ConsumeIntegral<int>();
  const int maxIterations = in.ConsumeBool() ? 0 : in.ConsumeIntegralInRange<int>(-2, 5);
  const double shift = in.ConsumeBool() ? 0.0 : vqfuzz::PickValue(in);
  const int limitActive = in.ConsumeBool();
  const double limit = vqfuzz::PickValue(in);
  const bool nullShapes = in.ConsumeBool();
  const bool wantSturm = in.ConsumeBool();
  vqfuzz::Csr k = vqfuzz::BuildCsr(in, 7);
  const int n = k.n;
  const bool positiveMass = in.ConsumeBool();
  std::vector<double> mass(n > 0 ? static_cast<size_t>(n) : 0);
  for (double& m : mass) m = positiveMass ? 1.0 + in.ConsumeIntegralInRange<int>(0, 3) : vqfuzz::PickValue(in);
  vqfuzz::Csr b;
  if (sparseB && n >= 1) {
    if (in.ConsumeBool()) {
      b = vqfuzz::BuildCsr(in, 7, n);
    } else {  // the diagonal mass as compressed rows
      b.n = n;
      for (int i = 0; i <= n; ++i) b.rowPointers.push_back(i + 1);
      for (int i = 1; i <= n; ++i) b.columnIndices.push_back(i);
      b.values = mass;
    }
  }

  const size_t slots = nev > 0 ? static_cast<size_t>(nev) : 0;
  vqfuzz::Guarded eigenvalues(slots);
  vqfuzz::Guarded shapes(n > 0 ? static_cast<size_t>(n) * slots : 0);
  int found = -5, sturm = -5;
  vqfuzz::DumpCsr("K", k);
  vqfuzz::DumpValues("mass", mass.data(), mass.size());
  if (sparseB) vqfuzz::DumpCsr("B", b);
  if (vqfuzz::Verbose())
    std::fprintf(stderr, "sparseB %d selector %d nev %d block %d iterations %d shift %.17g limit %d %.17g verify %d\n",
                 sparseB, selector, nev, blockSize, maxIterations, shift, limitActive, limit, verification);
  int code;
  if (sparseB)
    code = VQ_EigenvalueAnalysis_BlockLanczos2(
        n, nev, Rows(k), vqfuzz::DataOrNull(k.columnIndices), vqfuzz::DataOrNull(k.values), Rows(b),
        vqfuzz::DataOrNull(b.columnIndices), vqfuzz::DataOrNull(b.values), selector, blockSize,
        maxIterations, &found, eigenvalues.get(), nullShapes ? nullptr : shapes.get(), shift,
        limitActive, limit, workDir.c_str(), wantSturm ? &sturm : nullptr);
  else
    code = VQ_EigenvalueAnalysis_BlockLanczos(
        n, nev, Rows(k), vqfuzz::DataOrNull(k.columnIndices), vqfuzz::DataOrNull(k.values),
        vqfuzz::DataOrNull(mass), blockSize, maxIterations, &found, eigenvalues.get(),
        nullShapes ? nullptr : shapes.get(), shift, limitActive, limit, workDir.c_str(),
        wantSturm ? &sturm : nullptr);

  if (vqfuzz::Verbose()) std::fprintf(stderr, "code %d found %d sturm %d\n", code, found, sturm);
  vqfuzz::DumpValues("eigenvalues", eigenvalues.get(), slots);
  VQFUZZ_CHECK(code <= 1);
  vqfuzz::CheckRegistry(code == 1 ? -22 : code);
  VQFUZZ_CHECK(eigenvalues.GuardIntact() && shapes.GuardIntact());
  VQFUZZ_CHECK(found >= 0 && found <= std::max(nev, 0));
  if (code == 0 || code == 1) VQFUZZ_CHECK(found >= 1);
  if (code < 0) VQFUZZ_CHECK(found == 0);
  for (size_t i = static_cast<size_t>(found); i < slots; ++i) VQFUZZ_CHECK(eigenvalues.data[i] == 0.0);
  if (wantSturm && (!verification || code < 0)) VQFUZZ_CHECK(sturm == -1);
  if (wantSturm && verification && code >= 0) VQFUZZ_CHECK(sturm >= -1 && sturm <= n);

  const bool kValid = vqfuzz::WellFormedCsr(k) && vqfuzz::AllFinite(k.values);
  const bool bValid = sparseB ? vqfuzz::WellFormedCsr(b) && vqfuzz::AllFinite(b.values)
                              : vqfuzz::AllFinite(mass);
  const bool valid = n >= 1 && nev >= 1 && kValid && bValid && blockSize >= 0 &&
                     std::isfinite(shift) && !(limitActive && std::isnan(limit));
  if (!valid) VQFUZZ_CHECK(code == -64);
  if (code == -64) {
    VQFUZZ_CHECK(shapes.Untouched());
    return 0;
  }
  for (int i = 0; i < found; ++i) VQFUZZ_CHECK(std::isfinite(eigenvalues.data[i]));
  for (int i = 1; i < found; ++i) VQFUZZ_CHECK(eigenvalues.data[i - 1] <= eigenvalues.data[i]);

  // The dense reference on a well-conditioned natural-mode problem.
  const bool natural = !sparseB || !(selector == 1 || selector == 3);
  const bool valuesOnly = sparseB && (selector == 2 || selector == 3);
  const bool sameMass = !sparseB || b.values == mass;
  if (!(k.dominant && !k.corrupted && positiveMass && sameMass && natural && shift <= 0.0 &&
        shift > -1.0 && !limitActive && nev <= n))
    return 0;
  VQFUZZ_CHECK(code == 0 && found == nev);
  std::vector<double> kd = vqfuzz::DenseOf(k), md = vqfuzz::DenseDiagonal(mass), reference;
  VQFUZZ_CHECK(vqfuzz::DenseGeneralized(n, kd, md, reference));
  for (int i = 0; i < nev; ++i)
    VQFUZZ_CHECK(std::fabs(eigenvalues.data[i] - reference[i]) <= 1e-8 * std::fabs(reference[i]));
  if (wantSturm && verification) VQFUZZ_CHECK(sturm >= nev);
  if (nullShapes || valuesOnly) return 0;
  double kNorm = 0.0;  // ||K||_1
  for (int j = 0; j < n; ++j) {
    double s = 0.0;
    for (int i = 0; i < n; ++i) s += std::fabs(kd[static_cast<size_t>(j) * n + i]);
    kNorm = std::max(kNorm, s);
  }
  for (int m = 0; m < nev; ++m) {
    const double* phi = shapes.data.data() + static_cast<size_t>(m) * n;
    double r2 = 0.0, p2 = 0.0, mm = 0.0;
    for (int i = 0; i < n; ++i) {
      double kphi = 0.0;
      for (int j = 0; j < n; ++j) kphi += kd[static_cast<size_t>(j) * n + i] * phi[j];
      const double r = kphi - eigenvalues.data[m] * mass[i] * phi[i];
      r2 += r * r;
      p2 += phi[i] * phi[i];
      mm += phi[i] * mass[i] * phi[i];
    }
    VQFUZZ_CHECK(std::sqrt(r2) <= 1e-9 * kNorm * std::sqrt(p2));
    VQFUZZ_CHECK(std::fabs(mm - 1.0) <= 1e-8);
  }
  return 0;
}
