// The handle interface driven by fuzz bytes: a system matrix defined, pre-assembled and assembled
// element by element with arbitrary equation lists (0, negative and out-of-range equations
// included) and arbitrary element values, vectors gathered, scattered and assembled the same way,
// then VQ_SysMatrixSolve, VQ_SysMatrixSolveMult and VQ_SysMatrixResolve on it, and
// VQ_SysMatrixSolveAdvanced on arbitrary compressed-row arrays. Promises checked: documented codes
// equal to the registry's, a NaN or infinite stiffness always rejected, nothing touched outside
// the arrays and handles (AddressSanitizer), every handle destructible afterwards.
#include <cstdlib>

#include "FuzzSupport.h"
#include "vqmath.h"

namespace {

void CheckRegistry(int code) {
  VQFUZZ_CHECK(vqfuzz::DirectSolutionCode(code));
  VQFUZZ_CHECK(VQ_GetLastErrorID() == code);
  char* message = VQ_GetLastErrorMessage();
  VQFUZZ_CHECK(message != nullptr);
  if (code != 0) VQFUZZ_CHECK(message[0] != '\0');
  std::free(message);
}

std::vector<int> Dofs(FuzzedDataProvider& in, int n, int count) {
  std::vector<int> dofs(static_cast<size_t>(count));
  for (int& d : dofs)
    d = in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(-1, n + 1) : in.ConsumeIntegral<int>();
  return dofs;
}

std::vector<double> Values(FuzzedDataProvider& in, size_t count) {
  std::vector<double> v(count);
  for (double& x : v) x = vqfuzz::PickValue(in);
  return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  VQ_SetSolverType(0);
  VQ_SetSolverMatrixType(in.ConsumeBool() ? 2 : -2);

  const int n = in.ConsumeIntegralInRange<int>(-1, 10);
  VQ_SysMatrixHandle h = VQ_SysMatrixBegin();
  VQFUZZ_CHECK(h != nullptr);
  VQ_SysMatrixDef(h, 0, n);
  VQ_SysVectorHandle v = VQ_SysVectorCreate(in.ConsumeIntegralInRange<int>(0, 12), 1.0);

  const int steps = in.ConsumeIntegralInRange<int>(0, 12);
  for (int s = 0; s < steps && in.remaining_bytes() > 0; ++s) {
    const int op = in.ConsumeIntegralInRange<int>(0, 8);
    const int count = in.ConsumeIntegralInRange<int>(0, 6);
    std::vector<int> dofs = Dofs(in, n, count);
    int* d = vqfuzz::DataOrNull(dofs);
    switch (op) {
      case 0: VQ_SysMatrixPreAssem(h, count, d); break;
      case 1: VQ_SysMatrixPreAssemDiag(h, count, d); break;
      case 2: {
        std::vector<double> e = Values(in, static_cast<size_t>(count) * (count + 1) / 2);
        VQ_SysMatrixAssem(h, count, d, vqfuzz::DataOrNull(e));
        break;
      }
      case 3: {
        std::vector<double> e = Values(in, static_cast<size_t>(count));
        VQ_SysMatrixAssemDiag(h, count, d, vqfuzz::DataOrNull(e));
        break;
      }
      case 4: {
        std::vector<double> out(static_cast<size_t>(count), -7.0);
        VQ_SysVectorGather(v, count, d, vqfuzz::DataOrNull(out));
        break;
      }
      case 5: {
        std::vector<double> e = Values(in, static_cast<size_t>(count));
        if (in.ConsumeBool())
          VQ_SysVectorScatter(v, count, d, vqfuzz::DataOrNull(e));
        else
          VQ_SysVectorAssem(v, count, d, vqfuzz::DataOrNull(e));
        break;
      }
      case 6: {
        VQ_SysMatrixHandle c = VQ_SysMatrixClone(h);
        VQ_SysMatrixSum(h, 0.5, c);
        VQ_SysMatrixEnd(c);
        break;
      }
      case 7: {
        VQ_SysVectorHandle y = VQ_SysVectorBegin();
        VQ_SysMatrixProd(h, v, y, count & 1);
        VQ_SysMatrixDiag(h, y);
        VQ_SysMatrixColumn(h, count, y);
        VQ_SysVectorEnd(y);
        break;
      }
      default: {
        VQ_SysMatrixInit(h, vqfuzz::PickValue(in));
        break;
      }
    }
  }

  // Right-hand side sized to the order, or not; a separate solution vector of any size, or none.
  int order = 0;
  VQ_SysMatrixInq(h, 0, &order);
  const int rhsSize = in.ConsumeBool() ? order : in.ConsumeIntegralInRange<int>(0, 12);
  VQ_SysVectorHandle rhs = VQ_SysVectorCreate(rhsSize, 1.0);
  VQ_SysVectorHandle x =
      in.ConsumeBool() ? VQ_SysVectorCreate(in.ConsumeIntegralInRange<int>(0, 12), 0.0) : nullptr;

  // What the matrix holds now, column by column (skipped entries never reached it).
  bool nonFinite = false;
  VQ_SysVectorHandle column = VQ_SysVectorBegin();
  for (int j = 1; j <= order; ++j) {
    if (VQ_SysMatrixColumn(h, j, column) != 0) break;
    std::vector<double> values(static_cast<size_t>(order));
    std::vector<int> all(static_cast<size_t>(order));
    for (int i = 0; i < order; ++i) all[i] = i + 1;
    VQ_SysVectorGather(column, order, all.data(), values.data());
    for (double y : values) nonFinite |= !std::isfinite(y);
  }
  VQ_SysVectorEnd(column);

  int code = VQ_SysMatrixSolve(h, rhs, x);
  CheckRegistry(code);
  if (nonFinite) VQFUZZ_CHECK(code == -64);

  VQ_SysVectorHandle rhsList[2] = {rhs, v};
  VQ_SysVectorHandle solList[2] = {x ? x : v, rhs};
  code = VQ_SysMatrixSolveMult(h, in.ConsumeIntegralInRange<int>(-1, 2), rhsList, solList);
  CheckRegistry(code);
  code = VQ_SysMatrixResolve(h, rhs, x);
  CheckRegistry(code);
  VQ_SysMatrixAssemDiag(h, 0, nullptr, nullptr);
  code = VQ_SysMatrixResolve(h, rhs, x);
  CheckRegistry(code);

  // The solver kept between calls, on raw arrays.
  vqfuzz::Csr c = vqfuzz::BuildCsr(in, 8);
  std::vector<double> b(c.n > 0 ? static_cast<size_t>(c.n) : 0, 1.0);
  code = VQ_SysMatrixSolveAdvanced(
      c.n, vqfuzz::DataOrNull(c.values), c.rowPointers.empty() ? nullptr : c.rowPointers.data(),
      vqfuzz::DataOrNull(c.columnIndices), 1, vqfuzz::DataOrNull(b), 1, 1, nullptr);
  CheckRegistry(code);
  if (code != -64 && in.ConsumeBool()) {
    // Solves again with the buffers handed over above (they are still alive).
    code = VQ_SysMatrixSolveAdvanced(0, nullptr, nullptr, nullptr, 0, nullptr, 1, 0, nullptr);
    CheckRegistry(code);
  }
  VQ_ReleaseSolver();

  VQ_SysVectorEnd(x);
  VQ_SysVectorEnd(rhs);
  VQ_SysVectorEnd(v);
  VQ_SysMatrixEnd(h);
  return 0;
}
