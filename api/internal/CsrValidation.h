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
// The row pointers are checked as a whole before any column index is read, so a corrupt pointer
// never sends the check past the rowPointers[n] - 1 entries the caller's arrays hold.
// Returns true when valid; otherwise false with a description in *problem.
bool ValidateUpperCsr(int n, const int* rowPointers, const int* columnIndices, const double* values,
                      std::string* problem);

// Records kInvalidInputCode with "ERROR_INVALID_MATRICES: <problem>" in the registry and returns
// the code.
int RecordInvalidInput(const std::string& problem);

// ValidateUpperCsr followed by RecordInvalidInput on failure: 0 when valid, else the code.
int CheckUpperCsr(int n, const int* rowPointers, const int* columnIndices, const double* values);

// Every one of the count values is a finite number (no NaN, no infinity). On failure *problem
// names the first offending value: "value 4 is NaN" (1-based position).
bool ValidateFiniteValues(long long count, const double* values, std::string* problem);

// For a matrix that passed ValidateUpperCsr: every stored value is finite. On failure *problem
// names the entry: "value at row 3, column 5 is infinite".
bool ValidateFiniteUpperCsr(int n, const int* rowPointers, const int* columnIndices,
                            const double* values, std::string* problem);

// What a solver needs of a matrix it factors or iterates with: ValidateUpperCsr and then
// ValidateFiniteUpperCsr. A NaN or an infinity would otherwise run through the factorisation and
// come back as a solution of NaNs with a success code. With a name (e.g. "K" or "M") the message
// starts with it: "ERROR_INVALID_MATRICES: M: row 2: the diagonal entry is missing (empty row)".
// 0 when valid, else kInvalidInputCode recorded.
int CheckUpperCsrFinite(int n, const int* rowPointers, const int* columnIndices,
                        const double* values, const char* name = nullptr);

// count values of a dense array (a diagonal mass, a load vector) present and finite; the message
// names the array: "ERROR_INVALID_MATRICES: mass diagonal: value 7 is NaN". 0 or the code.
int CheckFiniteArray(const char* name, long long count, const double* values);

}  // namespace internal
}  // namespace vqmath
