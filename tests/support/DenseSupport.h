// Test helpers for the dense matrix classes: reproducible random data, small builders,
// extended-precision reference products, file bytes, scratch paths and stdout capture.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "dense/VQ_Dense.h"

namespace vqtest {

// n uniform values in [lo, hi), reproducible from seed.
std::vector<double> RandomValues(size_t n, unsigned seed, double lo = -1.0, double hi = 1.0);
// rows x cols general matrix with RandomValues.
VQ_Matrix RandomMatrix(int rows, int cols, unsigned seed);
// Column-major n x n matrix with random entries and a dominant diagonal (well conditioned).
std::vector<double> DiagonallyDominant(int n, unsigned seed);
// Random symmetric matrix of order n as a packed VQ_SymMatrix (values in [-1, 1), diagonal + n).
VQ_SymMatrix RandomSym(int n, unsigned seed);

// A rows x cols matrix from column-major values.
VQ_Matrix Mat(int rows, int cols, std::vector<double> values);
// A symmetric matrix of order n from its upper triangle listed column by column:
// (1,1), (1,2), (2,2), (1,3), ...
VQ_SymMatrix SymUpper(int n, const std::vector<double>& upper);
// Column-major identity of order n.
std::vector<double> Identity(int n);

// Success when m holds no storage: rows, cols and size 0, no data pointer.
::testing::AssertionResult HasNoStorage(const VQ_Matrix& m);

// Full column-major form of any matrix read through Value.
std::vector<double> Full(const VQ_Matrix& m);
// C = A B in long double, column-major (A m x k, B k x n).
std::vector<double> RefProduct(const std::vector<double>& a, int m, int k,
                               const std::vector<double>& b, int n);
// Transpose of a column-major r x c array.
std::vector<double> RefTranspose(const std::vector<double>& a, int r, int c);
// Largest |a - b| over the arrays (they must have the same length).
double MaxAbsDiff(const std::vector<double>& a, const std::vector<double>& b);

// What f() writes to standard output.
template <class F>
std::string Stdout(F&& f) {
  testing::internal::CaptureStdout();
  f();
  return testing::internal::GetCapturedStdout();
}

// Whole file as bytes ("" when missing) / write bytes to a file.
std::string FileBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::string& bytes);
// A path in the test scratch folder, unique per test and name.
std::string ScratchPath(const std::string& name);

// A scratch file of ScratchPath (holding text when given), removed at the end of its scope.
struct TempFile {
  explicit TempFile(const std::string& name, const char* text = nullptr) : path(ScratchPath(name)) {
    if (text) WriteBytes(path, text);
  }
  ~TempFile() { std::remove(path.c_str()); }
  std::string path;
};

}  // namespace vqtest
