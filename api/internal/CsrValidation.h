// Checks of the arrays a host hands to a flat entry point, run before any of them is read by a
// solver or kernel, so that malformed input ends in an error code instead of a crash.
//
// All of them report malformed input with the code kInvalidInputCode (-64,
// "ERROR_INVALID_MATRICES"); the registry message is that text followed by ": " and what was
// wrong, e.g. "ERROR_INVALID_MATRICES: row 3: column index 2 lies below the diagonal".
#pragma once

#include <string>

namespace vqmath {
namespace internal {

constexpr int kInvalidInputCode = -64;

// The upper triangle of a symmetric matrix of order n in compressed rows, 1-based: n >= 1,
// arrays present, rowPointers[0] = 1, every row non-empty with its diagonal first, the other
// column indices strictly ascending within 1..n. Values are not inspected (only their presence).
// Returns true when valid; otherwise false with a description in *problem.
bool ValidateUpperCsr(int n, const int* rowPointers, const int* columnIndices, const double* values,
                      std::string* problem);

// Records kInvalidInputCode with "ERROR_INVALID_MATRICES: <problem>" in the registry and returns
// the code.
int RecordInvalidInput(const std::string& problem);

// ValidateUpperCsr followed by RecordInvalidInput on failure: 0 when valid, else the code.
int CheckUpperCsr(int n, const int* rowPointers, const int* columnIndices, const double* values);

}  // namespace internal
}  // namespace vqmath
