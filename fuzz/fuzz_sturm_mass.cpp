// The verification entry points fed arbitrary pencils, shifts, mode shapes and directions:
// VQ_SturmCount / VQ_SturmCount2 (eigenvalues below sigma from the inertia of K - sigma*M) and
// VQ_EffectiveMass / VQ_EffectiveMass2 (participation factors and effective-mass fractions).
// Promises checked:
//   - the code equals the registry's; -64 for malformed rows, NaN or infinite values or shift,
//     a null count, a negative mode count, with the caller's count and output arrays untouched;
//   - nothing is written past nModes outputs (guard values);
//   - a solved count equals the negative inertia of the dense K - sigma*M (LAPACK) when sharp;
//     a diagonally dominant K with a non-negative diagonal M at sigma <= 0 counts 0;
//   - participation factors and fractions equal the dense formulas for modes that carry mass.
// fuzz max_len: 1024
#include "FuzzDense.h"

namespace {

// M as a dense matrix from its diagonal or compressed rows.
struct Mass {
  bool sparse = false;
  std::vector<double> diagonal;
  vqfuzz::Csr rows;
};

Mass BuildMass(FuzzedDataProvider& in, int n) {
  Mass m;
  m.sparse = in.ConsumeBool();
  const int kind = in.ConsumeIntegralInRange<int>(0, 3);
  if (m.sparse && kind == 3 && n >= 1) {
    m.rows = vqfuzz::BuildCsr(in, 8, n);
    return m;
  }
  const size_t len = n > 0 ? static_cast<size_t>(n) : 0;
  m.diagonal.resize(len);
  for (double& d : m.diagonal)
    d = kind == 0 ? 1.0 : kind == 1 ? in.ConsumeIntegralInRange<int>(0, 3) : vqfuzz::PickValue(in);
  if (m.sparse) {
    // The diagonal as compressed rows.
    m.rows.n = n;
    if (n >= 0) {
      m.rows.rowPointers.resize(len + 1);
      for (size_t i = 0; i <= len; ++i) m.rows.rowPointers[i] = static_cast<int>(i) + 1;
      for (int i = 1; i <= n; ++i) m.rows.columnIndices.push_back(i);
      m.rows.values = m.diagonal;
    }
  }
  return m;
}

int* Rows(vqfuzz::Csr& c) { return c.rowPointers.empty() ? nullptr : c.rowPointers.data(); }

void Sturm(FuzzedDataProvider& in, vqfuzz::Csr& k, Mass& m) {
  const int n = k.n;
  const double sigma = in.ConsumeBool() ? -in.ConsumeIntegralInRange<int>(0, 3)
                                        : in.ConsumeBool() ? in.ConsumeFloatingPointInRange<double>(-1.0, 50.0)
                                                           : vqfuzz::PickValue(in);
  const bool nullCount = in.ConsumeIntegralInRange<int>(0, 15) == 0;
  int count = -7;
  const int code =
      m.sparse ? VQ_SturmCount2(n, Rows(k), vqfuzz::DataOrNull(k.columnIndices),
                                vqfuzz::DataOrNull(k.values), Rows(m.rows),
                                vqfuzz::DataOrNull(m.rows.columnIndices),
                                vqfuzz::DataOrNull(m.rows.values), sigma, nullCount ? nullptr : &count)
               : VQ_SturmCount(n, Rows(k), vqfuzz::DataOrNull(k.columnIndices),
                               vqfuzz::DataOrNull(k.values), vqfuzz::DataOrNull(m.diagonal), sigma,
                               nullCount ? nullptr : &count);
  vqfuzz::DumpCsr("K", k);
  if (m.sparse) vqfuzz::DumpCsr("M", m.rows);
  vqfuzz::DumpValues("mass", m.diagonal.data(), m.diagonal.size());
  if (vqfuzz::Verbose()) std::fprintf(stderr, "sigma %.17g code %d count %d\n", sigma, code, count);
  vqfuzz::CheckRegistry(code);
  VQFUZZ_CHECK(code == 0 || code == -1 || code == -3 || code == -64 || (code <= -81 && code >= -84));
  const bool kValid = vqfuzz::WellFormedCsr(k) && vqfuzz::AllFinite(k.values);
  const bool mValid = m.sparse ? vqfuzz::WellFormedCsr(m.rows) && m.rows.n == n &&
                                     vqfuzz::AllFinite(m.rows.values)
                               : n >= 1 && vqfuzz::AllFinite(m.diagonal);
  bool shiftedFinite = true;  // sigma*M overflowing is refused as well
  if (kValid && mValid && std::isfinite(sigma))
    for (double v : m.sparse ? m.rows.values : m.diagonal) shiftedFinite = shiftedFinite && std::isfinite(sigma * v);
  const bool valid = kValid && mValid && !nullCount && std::isfinite(sigma) && shiftedFinite;
  if (!valid) VQFUZZ_CHECK(code == -64);
  if (valid) VQFUZZ_CHECK(code != -64);
  if (code != 0) {
    VQFUZZ_CHECK(count == -7);
    if (code == -3)
      VQFUZZ_CHECK(VQ_GetInstabilityDOF() == -1 ||
                   (VQ_GetInstabilityDOF() >= 1 && VQ_GetInstabilityDOF() <= n));
    return;
  }
  VQFUZZ_CHECK(count >= 0 && count <= n);
  const std::vector<double> kd = vqfuzz::DenseOf(k);
  const std::vector<double> md = m.sparse ? vqfuzz::DenseOf(m.rows) : vqfuzz::DenseDiagonal(m.diagonal);
  const int negative = vqfuzz::NegativeInertia(n, kd, md, sigma);
  if (vqfuzz::Verbose()) std::fprintf(stderr, "dense inertia %d\n", negative);
  const bool moderate = vqfuzz::Moderate(k.values) && vqfuzz::Moderate(md) &&
                        vqfuzz::Moderate(std::vector<double>{sigma});
  if (negative >= 0 && moderate) VQFUZZ_CHECK(count == negative);
  bool massNonNegativeDiagonal = !m.sparse || m.rows.columnIndices.size() == static_cast<size_t>(n);
  for (int i = 0; i < n; ++i) massNonNegativeDiagonal = massNonNegativeDiagonal && md[i * n + i] >= 0;
  if (k.dominant && !k.corrupted && massNonNegativeDiagonal && sigma <= 0 && sigma > -1e6)
    VQFUZZ_CHECK(count == 0);
}

// Dense quadratic and bilinear forms with M.
double Form(int n, const std::vector<double>& md, const double* a, const double* b) {
  double s = 0.0;
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) s += a[i] * md[static_cast<size_t>(j) * n + i] * b[j];
  return s;
}

void Effective(FuzzedDataProvider& in, Mass& m, int n) {
  const int nModes = in.ConsumeIntegralInRange<int>(-1, 4);
  const bool plain = in.ConsumeBool();
  const size_t len = n > 0 ? static_cast<size_t>(n) : 0;
  std::vector<double> modes(nModes > 0 ? len * nModes : 0), direction(len);
  for (double& v : modes) v = plain ? in.ConsumeIntegralInRange<int>(-3, 3) : vqfuzz::PickValue(in);
  for (double& v : direction) v = plain ? in.ConsumeIntegralInRange<int>(-2, 2) : vqfuzz::PickValue(in);
  const size_t outs = nModes > 0 ? static_cast<size_t>(nModes) : 0;
  vqfuzz::Guarded participation(outs), fraction(outs);
  const bool nullParticipation = in.ConsumeIntegralInRange<int>(0, 7) == 0;
  const bool nullFraction = in.ConsumeIntegralInRange<int>(0, 7) == 0;
  double* p = nullParticipation ? nullptr : participation.get();
  double* f = nullFraction ? nullptr : fraction.get();
  const int code =
      m.sparse ? VQ_EffectiveMass2(n, nModes, vqfuzz::DataOrNull(modes), Rows(m.rows),
                                   vqfuzz::DataOrNull(m.rows.columnIndices),
                                   vqfuzz::DataOrNull(m.rows.values), vqfuzz::DataOrNull(direction), p, f)
               : VQ_EffectiveMass(n, nModes, vqfuzz::DataOrNull(modes), vqfuzz::DataOrNull(m.diagonal),
                                  vqfuzz::DataOrNull(direction), p, f);
  vqfuzz::CheckRegistry(code);
  VQFUZZ_CHECK(code == 0 || code == -1 || code == -7 || code == -64);
  VQFUZZ_CHECK(participation.GuardIntact() && fraction.GuardIntact());
  const bool mValid = m.sparse ? vqfuzz::WellFormedCsr(m.rows) && m.rows.n == n &&
                                     vqfuzz::AllFinite(m.rows.values)
                               : n >= 1 && vqfuzz::AllFinite(m.diagonal);
  const bool inputsFinite = vqfuzz::AllFinite(modes) && vqfuzz::AllFinite(direction);
  if (n < 1 || nModes < 0 || (nModes > 0 && (!mValid || !inputsFinite))) VQFUZZ_CHECK(code == -64);
  if (code == -64) {
    VQFUZZ_CHECK(participation.Untouched() && fraction.Untouched());
    return;
  }
  if (code != 0 || nModes == 0) return;
  const std::vector<double> md = m.sparse ? vqfuzz::DenseOf(m.rows) : vqfuzz::DenseDiagonal(m.diagonal);
  if (!vqfuzz::AllFinite(md)) return;
  // Small integers everywhere: every form is exact in doubles, only the final divisions round.
  bool exact = plain;
  for (double x : md) exact = exact && x == std::floor(x) && std::fabs(x) <= 1e6;
  if (!exact) return;
  const double rr = Form(n, md, direction.data(), direction.data());
  VQFUZZ_CHECK(rr > 0);
  for (int i = 0; i < nModes; ++i) {
    const double* phi = modes.data() + static_cast<size_t>(i) * n;
    const double pp = Form(n, md, phi, phi), pr = Form(n, md, phi, direction.data());
    VQFUZZ_CHECK(pp > 0);
    const double gamma = pr / pp, frac = pr * pr / pp / rr;
    if (p) VQFUZZ_CHECK(std::fabs(p[i] - gamma) <= 1e-12 * (1.0 + std::fabs(gamma)));
    if (f) VQFUZZ_CHECK(std::fabs(f[i] - frac) <= 1e-12 * (1.0 + std::fabs(frac)));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const bool sturm = in.ConsumeBool();
  vqfuzz::Csr k = vqfuzz::BuildCsr(in, 8);
  Mass m = BuildMass(in, k.n);
  if (sturm)
    Sturm(in, k, m);
  else
    Effective(in, m, m.sparse ? m.rows.n : k.n);
  return 0;
}
