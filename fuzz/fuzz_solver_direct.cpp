// VQ_SparseSolverDirect, VQ_DirectSparseSolver and the sparse product entry points fed arbitrary
// compressed-row arrays at small orders, with fuzzed solver settings. Promises checked:
//   - the return code is one the interface documents and equals the registry's code, with a
//     message for every failure;
//   - malformed input (-64) leaves the caller's right-hand sides and solution untouched, and a
//     matrix holding NaN or an infinity is always rejected as malformed;
//   - nothing is read or written outside the caller's arrays (AddressSanitizer);
//   - a valid, diagonally dominant matrix is solved: the residual of every load case is small.
#include <cstdlib>

#include "FuzzDense.h"
#include "vqmath.h"

namespace {

// max over load cases of |K x - b| / |b| (K from its upper triangle).
double RelativeResidual(const vqfuzz::Csr& c, int nrhs, const std::vector<double>& x,
                        const std::vector<double>& b) {
  double worst = 0.0;
  for (int r = 0; r < nrhs; ++r) {
    const double* xr = x.data() + static_cast<size_t>(r) * c.n;
    const double* br = b.data() + static_cast<size_t>(r) * c.n;
    std::vector<double> kx(static_cast<size_t>(c.n), 0.0);
    for (int i = 1; i <= c.n; ++i)
      for (int k = c.rowPointers[i - 1] - 1; k < c.rowPointers[i] - 1; ++k) {
        const int j = c.columnIndices[k];
        kx[i - 1] += c.values[k] * xr[j - 1];
        if (j != i) kx[j - 1] += c.values[k] * xr[i - 1];
      }
    double num = 0.0, den = 0.0;
    for (int i = 0; i < c.n; ++i) {
      num += (kx[i] - br[i]) * (kx[i] - br[i]);
      den += br[i] * br[i];
    }
    if (den > 0) worst = std::max(worst, std::sqrt(num / den));
  }
  return worst;
}

void CheckRegistry(int code) {
  VQFUZZ_CHECK(vqfuzz::DirectSolutionCode(code));
  VQFUZZ_CHECK(VQ_GetLastErrorID() == code);
  char* message = VQ_GetLastErrorMessage();
  VQFUZZ_CHECK(message != nullptr);
  if (code != 0) VQFUZZ_CHECK(message[0] != '\0');
  std::free(message);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const uint8_t mode = in.ConsumeIntegral<uint8_t>();
  const int nrhs = in.ConsumeIntegralInRange<int>(-1, 3);
  const int solverType = in.ConsumeIntegralInRange<int>(0, 1);
  const int matrixType = in.ConsumeBool() ? 2 : -2;
  const bool stop = in.ConsumeBool();
  const bool diagonals = in.ConsumeBool();
  const bool inPlace = in.ConsumeBool();
  vqfuzz::Csr c = vqfuzz::BuildCsr(in, 12);

  const int n = c.n;
  const size_t loads = n > 0 && nrhs > 0 ? static_cast<size_t>(n) * nrhs : 0;
  std::vector<double> rhs(loads), solution(loads);
  for (size_t k = 0; k < loads; ++k) rhs[k] = 1.0 + static_cast<double>(k % 7);
  const std::vector<double> rhsBefore = rhs;
  const std::vector<double> solutionBefore = solution;
  const bool valid = vqfuzz::WellFormedCsr(c);
  const bool finite = vqfuzz::AllFinite(c.values);

  int* rp = c.rowPointers.empty() ? nullptr : c.rowPointers.data();
  int* ci = vqfuzz::DataOrNull(c.columnIndices);
  double* v = vqfuzz::DataOrNull(c.values);
  // Now and then a null array where a real one would be.
  if ((mode & 0x30) == 0x30) {
    if (mode & 1)
      rp = nullptr;
    else if (mode & 2)
      ci = nullptr;
    else
      v = nullptr;
  }
  double* b = vqfuzz::DataOrNull(rhs);
  double* x = inPlace ? nullptr : vqfuzz::DataOrNull(solution);

  int code;
  switch (mode % 4) {
    case 0:
    case 1: {
      VQ_SetSolverType(solverType);
      VQ_SetSolverMatrixType(matrixType);
      VQ_SetParameterB(1003, stop);
      VQ_SetParameterB(1005, diagonals);
      VQ_SetParameterB(1004, (mode & 4) != 0);
      code = VQ_SparseSolverDirect(n, nrhs, rp, ci, v, b, 0, x);
      break;
    }
    case 2: {
      std::vector<double> d1(n > 0 ? static_cast<size_t>(n) : 0), d2(d1.size());
      std::vector<int> params(64);
      code = VQ_DirectSparseSolver(n, nrhs, rp, ci, v, b, solverType, matrixType, params.data(),
                                   stop, "", (mode & 4) != 0, 0, x, diagonals,
                                   vqfuzz::DataOrNull(d1), vqfuzz::DataOrNull(d2), 0, 0);
      break;
    }
    default: {
      // Products: y = K x with the kernel or the library's own class.
      std::vector<double> xin(n > 0 ? static_cast<size_t>(n) : 0, 1.0), y(xin.size(), 0.0);
      const std::vector<double> yBefore = y;
      VQ_ResetGlobalErrorsAndWarnings();
      const int p = VQ_SparseSymmMatrixVectorMultiplication(
          (mode & 4) != 0, n, v, rp, ci, vqfuzz::DataOrNull(xin), vqfuzz::DataOrNull(y));
      VQFUZZ_CHECK(p == 0 || p == -1 || p == -64);
      if (p == -64) VQFUZZ_CHECK(vqfuzz::SameBits(y, yBefore));
      if (valid && rp && ci && v) VQFUZZ_CHECK(p == 0);
      return 0;
    }
  }

  CheckRegistry(code);
  const bool arraysGiven = rp && ci && v && b;
  if (code == -64) {
    VQFUZZ_CHECK(vqfuzz::SameBits(rhs, rhsBefore));
    VQFUZZ_CHECK(vqfuzz::SameBits(solution, solutionBefore));
  }
  if (!valid || !finite || !arraysGiven || nrhs < 1) VQFUZZ_CHECK(code == -64);
  if (valid && finite && arraysGiven && nrhs >= 1) VQFUZZ_CHECK(code != -64);
  if (c.dominant && !c.corrupted && arraysGiven && nrhs >= 1 && n >= 1) {
    // A diagonally dominant matrix with positive diagonal: positive definite, well conditioned.
    VQFUZZ_CHECK(code == 0);
    const std::vector<double>& result = inPlace ? rhs : solution;
    VQFUZZ_CHECK(RelativeResidual(c, nrhs, result, rhsBefore) < 1e-8);
  }
  return 0;
}
