// The equation eliminated at every pivot position of a PARDISO factorisation.
//
// The analysis returns the fill-reducing permutation perm (position i eliminates equation
// perm[i]), but the numerical factorisation may still exchange pivots within a block (diagonal
// pivoting picks the largest diagonal entry first, Bunch-Kaufman may swap rows). pardiso_getdiag
// reports, beside each pivot, the diagonal entry of K that the pivot came from; where it differs
// from K's diagonal at perm[i], the positions of the block are matched to their equations by that
// value (in position order among equal values).
#pragma once

#include <vector>

namespace vqmath {
namespace internal {

// n positions; perm and daPivotOrder in pivot order, kDiagonal in equation order. Fills
// equations[i] (1-based) for every position i and returns true, or returns false when perm is not
// a permutation or the reported values cannot be matched to K's diagonal.
bool EquationsOfPivots(int n, const int* perm, const double* daPivotOrder, const double* kDiagonal,
                       std::vector<int>& equations);

}  // namespace internal
}  // namespace vqmath
