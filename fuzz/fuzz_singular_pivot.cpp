// The singular-pivot ratio (VQ_SetSingularPivotRatio / VQ_GetSingularPivotRatio) set to arbitrary
// values, then a direct solution (VQ_SparseSolverDirect, PARDISO matrix type 2 or -2) of an
// arbitrary model. Promises checked:
//   - the setter takes 0 <= ratio < 1, ignores anything else (NaN, infinities, negatives, >= 1)
//     and returns the value in force, which the getter reports;
//   - the code equals the registry's; -64 for malformed or non-finite input, with the caller's
//     right-hand sides untouched; -3 names an equation of the model (1..n);
//   - an equation without stiffness (zero diagonal) is singular whatever the ratio;
//   - a diagonally dominant model (every pivot above 3/4 of its diagonal) solves for any ratio
//     below 3/4, with a small residual; any solved model of matrix type -2 without perturbed
//     pivots reports the negative pivot count of its dense inertia (LAPACK) when that is sharp.
// fuzz max_len: 1024
#include <cstdlib>

#include "FuzzDense.h"

namespace {

double KxResidual(const vqfuzz::Csr& c, const std::vector<double>& x, const std::vector<double>& b) {
  std::vector<double> kx(static_cast<size_t>(c.n), 0.0);
  for (int i = 1; i <= c.n; ++i)
    for (int k = c.rowPointers[i - 1] - 1; k < c.rowPointers[i] - 1; ++k) {
      const int j = c.columnIndices[k];
      kx[i - 1] += c.values[k] * x[j - 1];
      if (j != i) kx[j - 1] += c.values[k] * x[i - 1];
    }
  double num = 0.0, den = 0.0;
  for (int i = 0; i < c.n; ++i) {
    num += (kx[i] - b[i]) * (kx[i] - b[i]);
    den += b[i] * b[i];
  }
  return den > 0 ? std::sqrt(num / den) : 0.0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const double before = VQ_GetSingularPivotRatio();
  double ratio;
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0: ratio = 1e-10; break;
    case 1: ratio = in.ConsumeFloatingPointInRange<double>(0.0, 1.0); break;
    case 2: ratio = vqfuzz::PickValue(in); break;
    default: ratio = std::pow(10.0, -in.ConsumeIntegralInRange<int>(0, 16)); break;
  }
  const double inForce = VQ_SetSingularPivotRatio(ratio);
  const bool accepted = ratio >= 0.0 && ratio < 1.0;
  if (accepted)
    VQFUZZ_CHECK(inForce == ratio);
  else
    VQFUZZ_CHECK(std::memcmp(&inForce, &before, sizeof(double)) == 0);
  const double got = VQ_GetSingularPivotRatio();
  VQFUZZ_CHECK(std::memcmp(&inForce, &got, sizeof(double)) == 0);

  const int matrixType = in.ConsumeBool() ? 2 : -2;
  const bool zeroDiagonal = in.ConsumeIntegralInRange<int>(0, 7) == 0;
  vqfuzz::Csr c = vqfuzz::BuildCsr(in, 8);
  const int n = c.n;
  const bool valid = vqfuzz::WellFormedCsr(c);
  if (valid && zeroDiagonal) c.values[c.rowPointers[in.ConsumeIntegralInRange<int>(0, n - 1)] - 1] = 0.0;
  const bool finite = vqfuzz::AllFinite(c.values);

  std::vector<double> rhs(n > 0 ? static_cast<size_t>(n) : 0);
  for (size_t k = 0; k < rhs.size(); ++k) rhs[k] = 1.0 + static_cast<double>(k % 5);
  const std::vector<double> rhsBefore = rhs;
  vqfuzz::Guarded solution(rhs.size(), 0.0);

  VQ_SetSolverType(0);
  VQ_SetSolverMatrixType(matrixType);
  VQ_SetParameterB(1003, 0);
  // Factor in the calling thread: a worker thread per input costs more than the solve (the
  // worker-thread path is fuzzed by fuzz_solver_direct).
  VQ_SetParameterB(1004, 1);
  const int code = VQ_SparseSolverDirect(n, 1, c.rowPointers.empty() ? nullptr : c.rowPointers.data(),
                                         vqfuzz::DataOrNull(c.columnIndices),
                                         vqfuzz::DataOrNull(c.values), vqfuzz::DataOrNull(rhs), 0,
                                         rhs.empty() ? nullptr : solution.get());
  vqfuzz::DumpCsr("K", c);
  if (vqfuzz::Verbose())
    std::fprintf(stderr, "ratio %.17g type %d code %d negative %d\n", inForce, matrixType, code,
                 VQ_GetNumberOfNegativeEigenvalues());
  vqfuzz::CheckRegistry(code);
  VQFUZZ_CHECK(code == 0 || code == -1 || code == -3 || code == -64 || (code <= -81 && code >= -84));
  VQFUZZ_CHECK(solution.GuardIntact());
  if (!valid || !finite) {
    VQFUZZ_CHECK(code == -64);
  } else {
    VQFUZZ_CHECK(code != -64);
  }
  if (code == -64) {
    VQFUZZ_CHECK(vqfuzz::SameBits(rhs, rhsBefore));
    VQFUZZ_CHECK(solution.Untouched());
    return 0;
  }
  if (code == -3) {
    const int dof = VQ_GetInstabilityDOF();
    VQFUZZ_CHECK(dof >= 1 && dof <= n);
  }
  if (!valid || !finite) return 0;
  bool zero = false;
  for (int i = 0; i < n; ++i) zero = zero || c.values[c.rowPointers[i] - 1] == 0.0;
  if (zero) VQFUZZ_CHECK(code == -3);
  if (c.dominant && !c.corrupted && !zero && inForce < 0.7) {
    VQFUZZ_CHECK(code == 0);
    std::vector<double> x(solution.data.begin(), solution.data.begin() + n);
    VQFUZZ_CHECK(KxResidual(c, x, rhsBefore) < 1e-8);
  }
  // The pivot counts are those of PARDISO's factorisation: with perturbed pivots (iparm(14) > 0,
  // static pivoting on a tiny pivot) they may differ from the inertia, as PARDISO documents.
  int iparm[64] = {0};
  VQ_GetResultsIA(1010, 64, iparm);
  if (code == 0 && matrixType == -2 && n <= 8 && iparm[13] == 0 && vqfuzz::Moderate(c.values)) {
    const std::vector<double> k = vqfuzz::DenseOf(c);
    const int negative = vqfuzz::NegativeInertia(n, k, std::vector<double>(k.size(), 0.0), 0.0);
    if (negative >= 0) VQFUZZ_CHECK(VQ_GetNumberOfNegativeEigenvalues() == negative);
  }
  return 0;
}
