// Input checks of the flat entry points: see CsrValidation.h.
#include "api/internal/CsrValidation.h"

#include <cmath>
#include <string>

#include "core/GlobalState.h"

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
  // All row pointers first: once they ascend from 1, every column index read below lies inside
  // the rowPointers[n] - 1 entries that the caller's arrays hold.
  for (int i = 1; i <= n; ++i) {
    const int begin = rowPointers[i - 1];
    const int end = rowPointers[i];
    if (end < begin) {
      p = Row(i) + "row pointers decrease (" + std::to_string(begin) + " then " + std::to_string(end) + ")";
      return false;
    }
  }
  for (int i = 1; i <= n; ++i) {
    const int begin = rowPointers[i - 1];
    const int end = rowPointers[i];
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

namespace {

const char* NonFiniteKind(double v) { return std::isnan(v) ? "NaN" : "infinite"; }

// Position of the first value that is NaN or infinite, or -1.
long long FirstNonFinite(long long count, const double* values) {
  for (long long k = 0; k < count; ++k)
    if (!std::isfinite(values[k])) return k;
  return -1;
}

std::string Named(const char* name, const std::string& problem) {
  return name && *name ? std::string(name) + ": " + problem : problem;
}

}  // namespace

bool ValidateFiniteValues(long long count, const double* values, std::string* problem) {
  std::string local;
  std::string& p = problem ? *problem : local;
  if (count > 0 && !values) {
    p = "value array is null";
    return false;
  }
  const long long k = FirstNonFinite(count, values);
  if (k < 0) return true;
  p = "value " + std::to_string(k + 1) + " is " + NonFiniteKind(values[k]);
  return false;
}

bool ValidateFiniteUpperCsr(int n, const int* rowPointers, const int* columnIndices,
                            const double* values, std::string* problem) {
  std::string local;
  std::string& p = problem ? *problem : local;
  const long long nnz = static_cast<long long>(rowPointers[n]) - 1;
  const long long k = FirstNonFinite(nnz, values);
  if (k < 0) return true;
  // The row holding position k: the last row whose first entry lies at or before it.
  int row = 1;
  while (row < n && rowPointers[row] - 1 <= k) ++row;
  p = "value at row " + std::to_string(row) + ", column " + std::to_string(columnIndices[k]) +
      " is " + NonFiniteKind(values[k]);
  return false;
}

int CheckUpperCsrFinite(int n, const int* rowPointers, const int* columnIndices,
                        const double* values, const char* name) {
  std::string problem;
  if (!ValidateUpperCsr(n, rowPointers, columnIndices, values, &problem) ||
      !ValidateFiniteUpperCsr(n, rowPointers, columnIndices, values, &problem))
    return RecordInvalidInput(Named(name, problem));
  return 0;
}

int CheckFiniteArray(const char* name, long long count, const double* values) {
  std::string problem;
  if (!values) return RecordInvalidInput(Named(name, "array is null"));
  if (!ValidateFiniteValues(count, values, &problem)) return RecordInvalidInput(Named(name, problem));
  return 0;
}

}  // namespace internal
}  // namespace vqmath
