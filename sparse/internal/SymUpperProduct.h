// Product of a symmetric matrix stored as its upper triangle in 1-based compressed rows with a
// block of dense columns: P = A * X, the stored triangle acting as the full symmetric matrix.
//
// Every stored entry (r, c) adds a*X(c, :) to P(r, :) and, when c != r, a*X(r, :) to P(c, :).
// The rows are walked through their row pointers, so the cost is O(nnz * m), and the
// contributions to each element of P are summed in ascending storage position, which makes the
// result identical, bit for bit, to the entry-by-entry definition. Entries whose column lies
// outside 1..n are skipped, and positions are clamped to [0, nnz), so hand-made arrays cannot make
// the kernel read or write out of bounds.
//
// Internal header: hosts never include it.
#pragma once

namespace vqmath {
namespace internal {

// P (first n rows of m columns, leading dimension ldp) = A * X (leading dimension ldx).
// When the work space of the multi-column path cannot be allocated, P is computed column by
// column instead (same result).
void SymUpperTimesDense(int n, int nnz, const int* rowptr, const int* colidx, const double* values,
                        int m, const double* X, int ldx, double* P, int ldp);

}  // namespace internal
}  // namespace vqmath
