// Equations of the pivots of a factorisation: see PivotOrder.h.
#include "sparse/internal/PivotOrder.h"

#include <cstddef>
#include <deque>
#include <map>
#include <utility>

namespace vqmath {
namespace internal {

bool EquationsOfPivots(int n, const int* perm, const double* daPivotOrder, const double* kDiagonal,
                       std::vector<int>& equations) {
  equations.assign(static_cast<std::size_t>(n), 0);
  std::vector<char> seen(static_cast<std::size_t>(n), 0);
  for (int i = 0; i < n; ++i) {
    const int eq = perm[i];
    if (eq < 1 || eq > n || seen[eq - 1]) return false;
    seen[eq - 1] = 1;
  }

  // Exchanges stay within a block of consecutive positions: the shortest runs whose reported
  // values and perm's equations' values are the same multiset. Within such a run, positions that
  // perm explains keep its equation; the others are matched by value among themselves.
  std::map<double, int> balance;
  int unbalanced = 0;
  int start = 0;
  for (int i = 0; i < n; ++i) {
    const double reported = daPivotOrder[i];
    const double expected = kDiagonal[perm[i] - 1];
    if (reported != expected) {
      for (const auto& change : {std::make_pair(reported, 1), std::make_pair(expected, -1)}) {
        int& count = balance[change.first];
        if (count == 0) ++unbalanced;
        count += change.second;
        if (count == 0) --unbalanced;
      }
    }
    if (unbalanced != 0) continue;

    std::map<double, std::deque<int>> byValue;
    for (int p = start; p <= i; ++p) {
      if (daPivotOrder[p] == kDiagonal[perm[p] - 1])
        equations[p] = perm[p];
      else
        byValue[kDiagonal[perm[p] - 1]].push_back(perm[p]);
    }
    for (int p = start; p <= i; ++p) {
      if (equations[p] != 0) continue;
      std::deque<int>& candidates = byValue[daPivotOrder[p]];
      equations[p] = candidates.front();  // the run is balanced, so a candidate exists
      candidates.pop_front();
    }
    balance.clear();
    start = i + 1;
  }
  if (unbalanced != 0) return false;
  return true;
}

}  // namespace internal
}  // namespace vqmath
