// Input checks of the flat entry points: see CsrValidation.h.
#include "api/internal/CsrValidation.h"

#include <string>

#include "api/internal/GlobalState.h"

namespace vqmath {
namespace internal {

namespace {

std::string Row(int i) { return "row " + std::to_string(i) + ": "; }

}  // namespace

bool ValidateUpperCsr(int n, const int* rowPointers, const int* columnIndices, const double* values,
                      std::string* problem) {
  std::string local;
  std::string& p = problem ? *problem : local;
  if (n < 1) {
    p = "order n = " + std::to_string(n) + " is not positive";
    return false;
  }
  if (!rowPointers) {
    p = "row pointer array is null";
    return false;
  }
  if (!columnIndices) {
    p = "column index array is null";
    return false;
  }
  if (!values) {
    p = "value array is null";
    return false;
  }
  if (rowPointers[0] != 1) {
    p = "row pointers must start at 1 (found " + std::to_string(rowPointers[0]) + ")";
    return false;
  }
  for (int i = 1; i <= n; ++i) {
    const int begin = rowPointers[i - 1];
    const int end = rowPointers[i];
    if (end < begin) {
      p = Row(i) + "row pointers decrease (" + std::to_string(begin) + " then " + std::to_string(end) + ")";
      return false;
    }
    if (end == begin) {
      p = Row(i) + "the diagonal entry is missing (empty row)";
      return false;
    }
    const int first = columnIndices[begin - 1];
    if (first < i) {
      p = Row(i) + "column index " + std::to_string(first) + " lies below the diagonal";
      return false;
    }
    if (first != i) {
      p = Row(i) + "the diagonal entry is missing (first column is " + std::to_string(first) + ")";
      return false;
    }
    int previous = first;
    for (int k = begin; k < end - 1; ++k) {
      const int c = columnIndices[k];
      if (c < i) {
        p = Row(i) + "column index " + std::to_string(c) + " lies below the diagonal";
        return false;
      }
      if (c > n) {
        p = Row(i) + "column index " + std::to_string(c) + " exceeds the order " + std::to_string(n);
        return false;
      }
      if (c <= previous) {
        p = Row(i) + "column indices are not strictly ascending (" + std::to_string(previous) +
            " then " + std::to_string(c) + ")";
        return false;
      }
      previous = c;
    }
  }
  return true;
}

int RecordInvalidInput(const std::string& problem) {
  std::string message = "ERROR_INVALID_MATRICES: " + problem;
  SetError(kInvalidInputCode, message.c_str());
  return kInvalidInputCode;
}

int CheckUpperCsr(int n, const int* rowPointers, const int* columnIndices, const double* values) {
  std::string problem;
  if (ValidateUpperCsr(n, rowPointers, columnIndices, values, &problem)) return 0;
  return RecordInvalidInput(problem);
}

}  // namespace internal
}  // namespace vqmath
