// The singularity rule of the sparse direct solver: see SingularityCheck.h.
#include "sparse/internal/SingularityCheck.h"

#include <cmath>

namespace vqmath {
namespace internal {

int SingularityCheck::EquationWithoutStiffness(int n, const double* a, const int* ia,
                                               const int* ja) {
  if (n < 1 || !a || !ia || !ja) return 0;
  const int nnz = ia[n] - 1;
  for (int i = 0; i < n; ++i) {
    const int begin = ia[i] - 1;
    const int end = ia[i + 1] - 1;
    if (begin < 0 || end < begin || end > nnz) continue;
    bool stiff = false;
    // The diagonal stands first in a row of the solver's layout; the rest of the row is searched
    // as well for arrays that store it elsewhere.
    for (int p = begin; p < end && !stiff; ++p) stiff = ja[p] == i + 1 && a[p] != 0.0;
    if (!stiff) return i + 1;
  }
  return 0;
}

SingularityCheck::Pivot SingularityCheck::SmallestPivot(int n, const double* matrixDiagonal,
                                                        const double* factorDiagonal) {
  Pivot smallest;
  if (n < 1 || !matrixDiagonal || !factorDiagonal) return smallest;
  for (int i = 0; i < n; ++i) {
    const double d = std::fabs(matrixDiagonal[i]);
    if (!(d > 0.0)) continue;
    const double ratio = std::fabs(factorDiagonal[i]) / d;
    if (smallest.equation == 0 || ratio < smallest.ratio) {
      smallest.ratio = ratio;
      smallest.equation = i + 1;
    }
  }
  return smallest;
}

bool SingularityCheck::IsSingular(const Pivot& smallest, double ratio) {
  return ratio > 0.0 && smallest.equation > 0 && smallest.ratio < ratio;
}

}  // namespace internal
}  // namespace vqmath
