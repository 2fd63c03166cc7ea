// The block Lanczos slice solver; see BlockSliceSolver.h.
#include "eigen/internal/BlockSliceSolver.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <numeric>

#include "dense/VQ_Matrix.h"
#include "eigen/VQ_BlockLanczosEigenSolver.h"

namespace vqmath {
namespace eigen_internal {

int BlockSliceSolver::Solve(const SliceRequest& request, SliceOutcome& outcome) {
  outcome = SliceOutcome();
  const int n = request.n;
  const int wanted =
      std::max(request.count, std::min(request.count + request.extra, request.limit));
  std::unique_ptr<VQ_BlockLanczosEigenSolver> block;
  try {
    block.reset(new VQ_BlockLanczosEigenSolver(
        n, pencil_.kRowPointers, pencil_.kColumnIndices, pencil_.kValues, pencil_.mRowPointers,
        pencil_.mColumnIndices, pencil_.mValues, pencil_.mDiagonal,
        VQ_BlockLanczosEigenSolver::kNaturalModes, wanted, 0, -2, ""));
  } catch (const std::bad_alloc&) {
    block.reset();
  }
  if (!block || block->GetStatus() != 0) {
    outcome.status = -1;
    outcome.message = "Memory Allocation Failed";
    return outcome.status;
  }
  block->Set_Shift(request.sigma);
  block->Set_ShiftInvertOperator(request.op);
  const int status = block->Solve();
  outcome.operatorApplications = block->Get_BlockSolves();
  outcome.iterations = block->Get_Restarts();
  // Partial results (-22), and none at all (-21), are handed on: the caller checks them against
  // the counts, asks again for more and reports a slice that stays short. Memory stays memory;
  // anything else is the Lanczos failure of the band search.
  if (status == -1) {
    outcome.status = -1;
    outcome.message = "Memory Allocation Failed";
    return outcome.status;
  }
  if (status != 0 && status != -22 && status != -21) {
    outcome.status = -45;
    outcome.message = "Block Lanczos failed to find the slice's eigenpairs";
    return outcome.status;
  }
  const int found = status == -21 ? 0 : block->GetNumFoundEigen();
  if (found <= 0 || !block->GetAllEigenVectors()) return 0;
  const double* vectors = block->GetAllEigenVectors()->GetDataPointer();
  std::vector<int> order(static_cast<size_t>(found));
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&block](int a, int b) {
    return block->GetEigenValue(a + 1) < block->GetEigenValue(b + 1);
  });
  const size_t un = static_cast<size_t>(n);
  outcome.values.resize(static_cast<size_t>(found));
  outcome.vectors.resize(un * static_cast<size_t>(found));
  for (int i = 0; i < found; ++i) {
    outcome.values[i] = block->GetEigenValue(order[i] + 1);
    std::memcpy(&outcome.vectors[un * i], vectors + un * static_cast<size_t>(order[i]),
                sizeof(double) * un);
  }
  return 0;
}

}  // namespace eigen_internal
}  // namespace vqmath
