// The residual (missing-mass) mode (VQ_ResidualMode, _ResidualMode2) of arbitrary models, mode
// shapes and directions. Promises checked:
//   - the code equals the registry's and is a documented one;
//   - malformed or non-finite K, M, modes or direction, a negative mode count and null arrays are
//     rejected with -64, the residual mode untouched; nothing written past n values (guards);
//   - on success the mode, its eigenvalue and its fraction are finite and the fraction in [0, 1];
//   - for a well-conditioned pencil (dominant K, positive diagonal M) with exact M-normalised
//     modes from LAPACK, the fraction equals r_perp'M r_perp / r'M r, the mode is +-r_perp
//     M-normalised and M-orthogonal to the modes, and its eigenvalue is
//     r_perp'M r_perp / (r_perp'M K^-1 M r_perp), all against dense arithmetic.
// fuzz max_len: 1024
#include "FuzzDense.h"

namespace {

int* Rows(vqfuzz::Csr& c) { return c.rowPointers.empty() ? nullptr : c.rowPointers.data(); }

bool Documented(int code) {
  switch (code) {
    case 0: case -1: case -3: case -20: case -64: case -81: case -82: case -83: return true;
    default: return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const bool sparseM = in.ConsumeBool();
  vqfuzz::Csr k = vqfuzz::BuildCsr(in, 8);
  const int n = k.n;
  const size_t len = n > 0 ? static_cast<size_t>(n) : 0;
  const bool positiveMass = in.ConsumeBool();
  std::vector<double> mass(len);
  for (double& m : mass) m = positiveMass ? 1.0 + in.ConsumeIntegralInRange<int>(0, 3) : vqfuzz::PickValue(in);
  vqfuzz::Csr m;
  bool sameMass = true;
  if (sparseM && n >= 1) {
    if (in.ConsumeIntegralInRange<int>(0, 3) == 0) {
      m = vqfuzz::BuildCsr(in, 8, n);
      sameMass = false;
    } else {
      m = vqfuzz::DiagonalCsr(mass);
    }
  }
  const bool wellConditioned = n >= 1 && k.dominant && !k.corrupted && positiveMass && sameMass;
  const int nModes = in.ConsumeIntegralInRange<int>(-1, std::max(0, std::min(n, 4)));
  const bool exactModes = wellConditioned && in.ConsumeBool();
  std::vector<double> kd, md, values, vectors;
  if (wellConditioned) {
    kd = vqfuzz::DenseOf(k);
    md = vqfuzz::DenseDiagonal(mass);
    VQFUZZ_CHECK(vqfuzz::DenseGeneralized(n, kd, md, values, &vectors));
  }
  std::vector<double> modes(nModes > 0 ? len * nModes : 0);
  for (size_t i = 0; i < modes.size(); ++i) modes[i] = exactModes ? vectors[i] : vqfuzz::PickValue(in);
  const bool plainDirection = in.ConsumeBool();
  std::vector<double> direction(len);
  for (double& r : direction)
    r = plainDirection ? in.ConsumeIntegralInRange<int>(-2, 2) : vqfuzz::PickValue(in);
  const uint8_t nulls = in.ConsumeIntegral<uint8_t>();
  vqfuzz::Guarded mode(len);
  double eigenvalue = -3.5, fraction = -3.5;
  const double* modesArg = (nulls & 0x71) == 0x71 ? nullptr : vqfuzz::DataOrNull(modes);
  const double* directionArg = (nulls & 0x72) == 0x72 ? nullptr : vqfuzz::DataOrNull(direction);
  double* modeArg = (nulls & 0x74) == 0x74 ? nullptr : (len ? mode.get() : nullptr);
  double* eigenvalueArg = (nulls & 0x78) == 0x78 ? nullptr : &eigenvalue;

  vqfuzz::DumpCsr("K", k);
  vqfuzz::DumpValues("mass", mass.data(), mass.size());
  if (sparseM) vqfuzz::DumpCsr("M", m);
  vqfuzz::DumpValues("modes", modes.data(), modes.size());
  vqfuzz::DumpValues("direction", direction.data(), direction.size());
  const int code =
      sparseM ? VQ_ResidualMode2(n, Rows(k), vqfuzz::DataOrNull(k.columnIndices),
                                 vqfuzz::DataOrNull(k.values), Rows(m), vqfuzz::DataOrNull(m.columnIndices),
                                 vqfuzz::DataOrNull(m.values), nModes, modesArg, directionArg, modeArg,
                                 eigenvalueArg, &fraction)
              : VQ_ResidualMode(n, Rows(k), vqfuzz::DataOrNull(k.columnIndices),
                                vqfuzz::DataOrNull(k.values), vqfuzz::DataOrNull(mass), nModes,
                                modesArg, directionArg, modeArg, eigenvalueArg, &fraction);
  if (vqfuzz::Verbose())
    std::fprintf(stderr, "code %d eigenvalue %.17g fraction %.17g\n", code, eigenvalue, fraction);
  vqfuzz::DumpValues("mode", mode.get(), len);
  vqfuzz::CheckRegistry(code);
  VQFUZZ_CHECK(Documented(code));
  VQFUZZ_CHECK(mode.GuardIntact());

  const bool kValid = vqfuzz::WellFormedCsr(k) && vqfuzz::AllFinite(k.values);
  const bool mValid = sparseM ? vqfuzz::WellFormedCsr(m) && vqfuzz::AllFinite(m.values)
                              : vqfuzz::AllFinite(mass);
  const bool arraysGiven = (nModes == 0 || modesArg) && directionArg && modeArg && eigenvalueArg;
  const bool valid = n >= 1 && nModes >= 0 && kValid && mValid && arraysGiven &&
                     vqfuzz::AllFinite(modes) && vqfuzz::AllFinite(direction);
  if (!valid) VQFUZZ_CHECK(code == -64);
  if (valid && wellConditioned && plainDirection && (exactModes || nModes == 0)) {
    double rr = 0.0;
    for (int i = 0; i < n; ++i) rr += direction[i] * mass[i] * direction[i];
    VQFUZZ_CHECK(code == (rr > 0.0 ? 0 : -20));
  }
  if (code != 0) {
    VQFUZZ_CHECK(mode.Untouched());
    if (code == -3) VQFUZZ_CHECK(VQ_GetInstabilityDOF() == -1 ||
                                 (VQ_GetInstabilityDOF() >= 1 && VQ_GetInstabilityDOF() <= n));
    return 0;
  }
  VQFUZZ_CHECK(std::isfinite(eigenvalue) && std::isfinite(fraction));
  VQFUZZ_CHECK(fraction >= 0.0 && fraction <= 1.0 + 1e-9);
  for (int i = 0; i < n; ++i) VQFUZZ_CHECK(std::isfinite(mode.data[i]));
  if (!exactModes || !plainDirection) return 0;

  // Dense reference: r_perp = r - Phi Phi' M r.
  std::vector<double> rp(direction);
  for (int j = 0; j < nModes; ++j) {
    const double* phi = vectors.data() + static_cast<size_t>(j) * n;
    double c = 0.0;
    for (int i = 0; i < n; ++i) c += phi[i] * mass[i] * direction[i];
    for (int i = 0; i < n; ++i) rp[i] -= c * phi[i];
  }
  double rr = 0.0, pp = 0.0;
  for (int i = 0; i < n; ++i) {
    rr += direction[i] * mass[i] * direction[i];
    pp += rp[i] * mass[i] * rp[i];
  }
  if (rr == 0.0) return 0;  // -20 expected, and not a success
  VQFUZZ_CHECK(std::fabs(fraction - pp / rr) <= 1e-8);
  if (pp <= 1e-12 * rr) return 0;  // the modes hold the whole mass: the mode is noise
  // K^-1 M r_perp by LAPACK.
  std::vector<double> a(kd), x(len);
  for (int i = 0; i < n; ++i) x[i] = mass[i] * rp[i];
  std::vector<lapack_int> ipiv(len);
  VQFUZZ_CHECK(LAPACKE_dsysv(LAPACK_COL_MAJOR, 'U', n, 1, a.data(), n, ipiv.data(), x.data(), n) == 0);
  double flex = 0.0;
  for (int i = 0; i < n; ++i) flex += rp[i] * mass[i] * x[i];
  const double lambda = pp / flex;
  VQFUZZ_CHECK(std::fabs(eigenvalue - lambda) <= 1e-7 * std::fabs(lambda));
  const double scale = 1.0 / std::sqrt(pp);
  double plus = 0.0, minus = 0.0;
  for (int i = 0; i < n; ++i) {
    plus = std::max(plus, std::fabs(mode.data[i] - rp[i] * scale));
    minus = std::max(minus, std::fabs(mode.data[i] + rp[i] * scale));
  }
  VQFUZZ_CHECK(std::min(plus, minus) <= 1e-7);
  return 0;
}
