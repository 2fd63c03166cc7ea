// Shared pieces of the libFuzzer targets: a scratch file per process for the file readers, the
// property check that turns a broken promise of the library into a crash the fuzzer records, and
// the builder of compressed-row arrays from fuzz bytes.
//
// Arrays handed to the library are allocated with exactly the length the calling convention
// promises (row pointers n + 1, columns and values as many as the row pointers say), so that
// AddressSanitizer reports any read or write past them.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace vqfuzz {

// Aborts with a message: libFuzzer saves the input as a crash.
#define VQFUZZ_CHECK(cond)                                                                         \
  do {                                                                                             \
    if (!(cond)) {                                                                                 \
      std::fprintf(stderr, "vqfuzz: property violated at %s:%d: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                                                \
    }                                                                                              \
  } while (0)

// A file of this process under $TMPDIR (default /tmp), rewritten for every input.
inline std::string ScratchPath(const char* tag) {
  const char* dir = std::getenv("TMPDIR");
  return std::string(dir && *dir ? dir : "/tmp") + "/vqfuzz-" + std::to_string(getpid()) + "-" +
         tag;
}

// A scratch folder of this process (created once per tag), with a trailing slash: the working
// directory handed to the solvers.
inline std::string ScratchFolder(const char* tag) {
  const std::string d = ScratchPath(tag);
  mkdir(d.c_str(), 0700);
  return d + "/";
}

inline void WriteFile(const std::string& path, const void* bytes, size_t size) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) std::abort();
  if (size > 0 && std::fwrite(bytes, 1, size, f) != size) std::abort();
  std::fclose(f);
}

// Values that make numerical code misbehave, mixed with ordinary ones.
inline double PickValue(FuzzedDataProvider& in) {
  static const double kTable[] = {0.0,
                                  1.0,
                                  -1.0,
                                  4.0,
                                  0.5,
                                  -2.0,
                                  1e-300,
                                  1e300,
                                  -1e300,
                                  4.9e-324,
                                  std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity(),
                                  2.220446049250313e-16,
                                  1e8,
                                  100.0};
  const uint8_t pick = in.ConsumeIntegral<uint8_t>();
  if (pick < 200) return kTable[pick % (sizeof kTable / sizeof kTable[0])];
  double v;
  const uint64_t bits = in.ConsumeIntegral<uint64_t>();
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

// A symmetric matrix of order n in upper compressed rows, built from fuzz bytes: mostly a valid
// pattern (diagonal first, ascending columns) with diagonally dominant values, then up to a few
// corruptions of single row pointers, columns or values with arbitrary integers and doubles.
struct Csr {
  int n = 0;
  std::vector<int> rowPointers;    // n + 1 entries (none when n < 0)
  std::vector<int> columnIndices;  // as many as the row pointers promise (see Build)
  std::vector<double> values;
  bool dominant = false;  // diagonal 4n, off-diagonal -1: positive definite unless corrupted
  bool corrupted = false;
};

// v + d, kept inside the int range (an earlier corruption may have left v at INT_MIN or INT_MAX).
inline int Nudge(int v, int d) {
  const long long r = static_cast<long long>(v) + d;
  return static_cast<int>(std::max<long long>(INT_MIN, std::min<long long>(INT_MAX, r)));
}

// order >= 0 fixes the order instead of taking it from the bytes (a second matrix of a pencil).
inline Csr BuildCsr(FuzzedDataProvider& in, int maxOrder, int order = -1) {
  Csr c;
  c.n = order >= 0 ? order : in.ConsumeIntegralInRange<int>(-2, maxOrder);
  if (c.n < 0) return c;
  c.rowPointers.assign(static_cast<size_t>(c.n) + 1, 1);
  std::vector<int> cols;
  std::vector<double> vals;
  const bool dominant = in.ConsumeBool();
  c.dominant = dominant;
  for (int i = 1; i <= c.n; ++i) {
    c.rowPointers[i - 1] = static_cast<int>(cols.size()) + 1;
    cols.push_back(i);
    vals.push_back(dominant ? 4.0 * c.n : PickValue(in));
    for (int j = i + 1; j <= c.n; ++j) {
      if (!in.ConsumeBool()) continue;
      cols.push_back(j);
      vals.push_back(dominant ? -1.0 : PickValue(in));
    }
  }
  c.rowPointers[c.n] = static_cast<int>(cols.size()) + 1;

  const int corruptions = in.ConsumeIntegralInRange<int>(0, 3);
  for (int k = 0; k < corruptions; ++k) {
    const int what = in.ConsumeIntegralInRange<int>(0, 2);
    if (what == 0) {
      const size_t at = in.ConsumeIntegralInRange<size_t>(0, c.rowPointers.size() - 1);
      c.rowPointers[at] = in.ConsumeBool()
                              ? Nudge(c.rowPointers[at], in.ConsumeIntegralInRange<int>(-3, 3))
                              : in.ConsumeIntegral<int>();
    } else if (what == 1 && !cols.empty()) {
      const size_t at = in.ConsumeIntegralInRange<size_t>(0, cols.size() - 1);
      cols[at] = in.ConsumeBool() ? Nudge(cols[at], in.ConsumeIntegralInRange<int>(-3, 3))
                                  : in.ConsumeIntegral<int>();
    } else if (!vals.empty()) {
      const size_t at = in.ConsumeIntegralInRange<size_t>(0, vals.size() - 1);
      vals[at] = PickValue(in);
    }
    c.corrupted = true;
  }

  // The caller's arrays hold rowPointers[n] - 1 entries. When the row pointers promise more than
  // a matrix of order n can hold (n(n+1)/2), the arrays hold one entry beyond that maximum:
  // anything further cannot belong to a valid matrix, and the checks must stop before it.
  const long long promised = static_cast<long long>(c.rowPointers[c.n]) - 1;
  const long long most = static_cast<long long>(c.n) * (c.n + 1) / 2 + 1;
  const long long length = std::max(0LL, std::min(promised, most));
  cols.resize(static_cast<size_t>(length), 1);
  vals.resize(static_cast<size_t>(length), 1.0);
  c.columnIndices.assign(cols.begin(), cols.end());  // exact capacity
  c.values.assign(vals.begin(), vals.end());
  return c;
}

// The diagonal matrix of the given values in compressed rows.
inline Csr DiagonalCsr(const std::vector<double>& values) {
  Csr c;
  c.n = static_cast<int>(values.size());
  for (int i = 0; i <= c.n; ++i) c.rowPointers.push_back(i + 1);
  for (int i = 1; i <= c.n; ++i) c.columnIndices.push_back(i);
  c.values = values;
  return c;
}

// Data pointer of a vector, null when it is empty (an empty array is a null array to a C host).
template <typename T>
T* DataOrNull(std::vector<T>& v) {
  return v.empty() ? nullptr : v.data();
}

// The codes a direct solution may end in: success, memory, a singular model, malformed input and
// the factorisation and solution failures of the solver.
inline bool DirectSolutionCode(int code) {
  switch (code) {
    case 0:
    case -1:
    case -3:
    case -64:
    case -81:
    case -82:
    case -83:
    case -84: return true;
    default: return false;
  }
}

// Bitwise equality of two double arrays (NaN payloads included).
inline bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}

}  // namespace vqfuzz
