// Test helpers for the sparse symmetric matrix: conversions between VQ_SparseSymMatrix and the
// independent CSR / dense forms of TestSupport.h (read from the raw arrays, never through the
// class's own Value), a layout checker, random symmetric patterns, and stdout capture.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace vqtest {

// Copies the raw arrays of a into a Csr (no checking).
Csr CsrOf(const VQ_SparseSymMatrix& a);
// Full symmetric dense column-major n x n form built from the raw arrays.
std::vector<double> DenseOf(const VQ_SparseSymMatrix& a);
// A sparse matrix built from a Csr through the array constructor.
VQ_SparseSymMatrix SparseOf(const Csr& c);

// Empty string when a is in the canonical layout (rowptr[0] = 1, rowptr[n] = nnz + 1, diagonal
// first, columns strictly ascending within 1..n), else a description of the first violation.
std::string LayoutProblem(const VQ_SparseSymMatrix& a);

// Random symmetric matrix of order n as a dense column-major array: every diagonal entry set,
// off-diagonal entries present with probability density (values in [-1, 1], never exactly 0).
std::vector<double> RandomSymmetricDense(int n, double density, std::uint32_t seed);

// Random dense n x m column-major block.
std::vector<double> RandomBlock(int n, int m, std::uint32_t seed);

// Runs f and returns what it wrote to standard output.
template <class F>
std::string CaptureStdout(F&& f) {
  testing::internal::CaptureStdout();
  f();
  return testing::internal::GetCapturedStdout();
}

// A unique scratch path prefix in the system's temporary folder (files are the caller's to delete).
std::string ScratchPrefix(const std::string& tag);

}  // namespace vqtest
