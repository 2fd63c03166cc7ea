// SparseOperators.h - free operators with a sparse symmetric operand.
//
// Scalar products and quotients and the sums with a diagonal matrix return SHALLOW copies of the
// sparse operand (they share its arrays), so they change the operand's values as well:
// `B = A * 2.0` doubles A too. This is the library's long-standing behaviour and is kept; a caller
// that needs A unchanged makes a deep copy first (SetEqualTo). The sums and differences of two
// sparse matrices and the products with dense matrices return new matrices.
#ifndef VQMATH_SPARSE_SPARSEOPERATORS_H
#define VQMATH_SPARSE_SPARSEOPERATORS_H

#include "dense/VQ_ColVector.h"
#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"

// Shallow copy of a with its values multiplied by s.
VQMATH_DENSE_API VQ_SparseSymMatrix operator*(const VQ_SparseSymMatrix& a, double s);
VQMATH_DENSE_API VQ_SparseSymMatrix operator*(double s, const VQ_SparseSymMatrix& a);
// Shallow copy of a with its values divided by s; |s| < machine epsilon: returned unscaled.
VQMATH_DENSE_API VQ_SparseSymMatrix operator/(const VQ_SparseSymMatrix& a, double s);
// Shallow copy of a with d added to its diagonal (when the orders agree; else unchanged).
VQMATH_DENSE_API VQ_SparseSymMatrix operator+(const VQ_SparseSymMatrix& a,
                                              const VQ_DiagonalMatrix& d);
VQMATH_DENSE_API VQ_SparseSymMatrix operator+(const VQ_DiagonalMatrix& d,
                                              const VQ_SparseSymMatrix& a);
// New matrix a + b / a - b; the pattern is the union of both patterns.
VQMATH_DENSE_API VQ_SparseSymMatrix operator+(const VQ_SparseSymMatrix& a,
                                              const VQ_SparseSymMatrix& b);
VQMATH_DENSE_API VQ_SparseSymMatrix operator-(const VQ_SparseSymMatrix& a,
                                              const VQ_SparseSymMatrix& b);
// New dense n x m matrix A*X (X has at least n rows; otherwise the zero result carries status -8).
VQMATH_DENSE_API VQ_Matrix operator*(const VQ_SparseSymMatrix& a, const VQ_Matrix& x);
// The same for a column vector, as a column vector.
VQMATH_DENSE_API VQ_ColVector operator*(const VQ_SparseSymMatrix& a, const VQ_ColVector& x);

#endif  // VQMATH_SPARSE_SPARSEOPERATORS_H
