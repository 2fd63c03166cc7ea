// GeneralizedJacobi.h - generalized Jacobi solution of K x = lambda M x for small dense pairs.
//
// K and M are symmetric of order n, held as packed upper triangles stored column by column
// (element (i, j), 1 <= i <= j <= n, at position (j-1)*j/2 + (i-1)), which is the storage of
// VQ_SymMatrix. Both are diagonalised simultaneously by plane rotations and are overwritten: they
// end (nearly) diagonal. X (n x n, column-major) receives the eigenvectors as columns, normalised
// so that X' M X = I, and lambda the n eigenvalues in ascending order.
//
// Rotation thresholds: a sweep visits the pairs (i, j), i < j, row by row and rotates a pair when
// its coupling measure |K_ij^2/(K_ii K_jj)| + |M_ij^2/(M_ii M_jj)| reaches the threshold, which
// starts at 0.01 and becomes 0.1*s^3 after a sweep whose largest measure s was at most 1 (0.01
// otherwise). The iteration ends when a whole sweep measured no coupling of 1e-10 or more.
//
// Returns 0 on success and -1 when a diagonal term of K or M met during a sweep is not positive,
// a rotation denominator is zero, a mass to normalise by is zero, or 100 sweeps did not converge.
// Among equal eigenvalues the ascending selection sort takes the last minimum, so equal values
// come out with the later index first.
//
// Internal header: hosts never include it.
#pragma once

namespace vqmath {
namespace internal {

int GeneralizedJacobi(int n, double* K, double* M, double* X, double* lambda);

}  // namespace internal
}  // namespace vqmath
