// The process-wide PARDISO parameters are the host's to set (VQ_SetGlobalSparseSolverParams,
// VQ_SetGlobalSparseSolverParam, VQ_OverrideDefaultSparseSolverParam): whatever values they hold,
// a direct solution of a valid model must end in a documented code, never in a crash or a read or
// write outside the arrays (the solver resets the entries that would make PARDISO read the
// arrays in another layout or use buffers it does not provide). Each input is a set of parameter
// values, overrides and solution settings applied to one small positive definite model.
#include <cstdio>
#include <cstdlib>

#include "FuzzDense.h"
#include "vqmath.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  VQ_Initialize_INTEL_MKL_SparseSolverParams();
  VQ_ResetOverrideListSparseSolverParam();
  int params[64];
  VQ_GetGlobalSparseSolverParams(params);
  const int changes = in.ConsumeIntegralInRange<int>(0, 12);
  for (int k = 0; k < changes; ++k) {
    const int index = in.ConsumeIntegralInRange<int>(0, 63);
    params[index] =
        in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(-2, 4) : in.ConsumeIntegral<int>();
  }
  // The iterative-refinement bound (7) is the one count a host may legitimately set huge: it asks
  // for that many refinement steps and gets them. Kept small here so runs stay short.
  if (params[7] > 100 || params[7] < -100) params[7] %= 100;
  // Always set: the host-set mark cannot be taken back, so every input starts from its own array.
  VQ_SetGlobalSparseSolverParams(params);
  const int overrides = in.ConsumeIntegralInRange<int>(0, 4);
  for (int k = 0; k < overrides; ++k)
    VQ_OverrideDefaultSparseSolverParam(
        in.ConsumeIntegralInRange<int>(-2, 66),
        in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(-2, 4) : in.ConsumeIntegral<int>());
  VQ_SetSolverType(in.ConsumeIntegralInRange<int>(0, 1));
  VQ_SetSolverMatrixType(in.ConsumeBool() ? 2 : -2);
  VQ_SetParameterB(1003, in.ConsumeBool());
  VQ_SetParameterB(1004, in.ConsumeBool());
  VQ_SetParameterB(1005, in.ConsumeBool());

  // A positive definite tridiagonal model of order 2..20 with a few extra couplings.
  const int n = in.ConsumeIntegralInRange<int>(2, 20);
  std::vector<int> rp(1, 1), ci;
  std::vector<double> v;
  for (int i = 1; i <= n; ++i) {
    ci.push_back(i);
    v.push_back(4.0 * n);
    for (int j = i + 1; j <= n; ++j)
      if (j == i + 1 || in.ConsumeIntegralInRange<int>(0, 7) == 0) {
        ci.push_back(j);
        v.push_back(-1.0);
      }
    rp.push_back(static_cast<int>(ci.size()) + 1);
  }
  const int nrhs = in.ConsumeIntegralInRange<int>(1, 3);
  std::vector<double> rhs(static_cast<size_t>(n) * nrhs, 1.0), x(rhs.size(), 0.0);
  const bool inPlace = in.ConsumeBool();
  if (vqfuzz::Verbose()) {
    int used[64];
    VQ_GetGlobalSparseSolverParams(used);
    std::fprintf(stderr, "n %d nrhs %d in place %d; parameters:", n, nrhs, inPlace);
    for (int i = 0; i < 64; ++i) std::fprintf(stderr, " %d", used[i]);
    std::fprintf(stderr, "\n");
  }
  const int code = VQ_SparseSolverDirect(n, nrhs, rp.data(), ci.data(), v.data(), rhs.data(), 0,
                                         inPlace ? nullptr : x.data());
  VQFUZZ_CHECK(vqfuzz::DirectSolutionCode(code));
  VQFUZZ_CHECK(VQ_GetLastErrorID() == code);
  char* message = VQ_GetLastErrorMessage();
  VQFUZZ_CHECK(message != nullptr);
  std::free(message);
  int kept[64];
  VQ_GetResultsIA(1010, 64, kept);
  double diagonal[20];
  VQ_GetResultsDA(1013, n, diagonal);
  VQ_ResetOverrideListSparseSolverParam();
  return 0;
}
