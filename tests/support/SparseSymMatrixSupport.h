// Test helpers for the sparse symmetric matrix: conversions between VQ_SparseSymMatrix and the
// independent CSR / dense forms of TestSupport.h (read from the raw arrays, never through the
// class's own Value), builders, a layout checker and random symmetric patterns. Scratch paths,
// file bytes and stdout capture come from DenseSupport.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sparse/VQ_SparseSymMatrix.h"
#include "support/DenseSupport.h"
#include "support/TestSupport.h"

namespace vqtest {

// Copies the raw arrays of a into a Csr (no checking).
Csr CsrOf(const VQ_SparseSymMatrix& a);
// Full symmetric dense column-major n x n form built from the raw arrays.
std::vector<double> DenseOf(const VQ_SparseSymMatrix& a);
// Hand-made arrays (1-based, taken as they are) through the array constructor.
VQ_SparseSymMatrix FromArrays(int n, std::vector<int> rowPointers, std::vector<int> columnIndices,
                              std::vector<double> values);
// Built from a dense column-major n x n array through the dense-matrix constructor (which drops
// off-diagonal entries at or below machine epsilon).
VQ_SparseSymMatrix FromDense(int n, std::vector<double> dense);
// A random matrix of RandomSymmetricDense through FromDense.
VQ_SparseSymMatrix RandomSparse(int n, double density, std::uint32_t seed);
// A diagonal matrix through the diagonal-matrix constructor.
VQ_SparseSymMatrix DiagonalSparse(std::vector<double> d);

// Success when a holds nothing: order 0 (both sizes), no stored entry, Value(1, 1) = 0.
::testing::AssertionResult IsEmpty(const VQ_SparseSymMatrix& a);

// Element by element |got - want| <= tol.
void ExpectNear(const std::vector<double>& got, const std::vector<double>& want, double tol);

// Empty string when a is in the canonical layout (rowptr[0] = 1, rowptr[n] = nnz + 1, diagonal
// first, columns strictly ascending within 1..n), else a description of the first violation.
std::string LayoutProblem(const VQ_SparseSymMatrix& a);

// Random symmetric matrix of order n as a dense column-major array: every diagonal entry set,
// off-diagonal entries present with probability density (values in [-1, 1], never exactly 0).
std::vector<double> RandomSymmetricDense(int n, double density, std::uint32_t seed);

// Random dense n x m column-major block.
std::vector<double> RandomBlock(int n, int m, std::uint32_t seed);

}  // namespace vqtest
