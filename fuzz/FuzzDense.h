// Dense references for the fuzz targets: the structural check of compressed rows redone from the
// calling convention, the dense symmetric matrix they hold, and LAPACK's answers on it (generalized
// eigenvalues, inertia), so that a target can compare the library with an independent result on
// small well-conditioned input.
#pragma once

#include <mkl.h>

#include "FuzzSupport.h"
#include "vqmath.h"

namespace vqfuzz {

inline bool AllFinite(const std::vector<double>& v) {
  for (double x : v)
    if (!std::isfinite(x)) return false;
  return true;
}

// Every value zero or of a magnitude in [1e-100, 1e100]. PARDISO's static pivoting tells the
// inertia of such matrices; with denormal diagonals beside large couplings, or values near the
// largest doubles, it may miscount without a sign (no perturbed pivot), so the inertia checks are
// kept to these.
inline bool Moderate(const std::vector<double>& v) {
  for (double x : v)
    if (x != 0.0 && !(std::fabs(x) >= 1e-100 && std::fabs(x) <= 1e100)) return false;
  return true;
}

// Upper triangle, 1-based, diagonal first, ascending columns, arrays exactly as long as promised.
inline bool WellFormedCsr(const Csr& c) {
  if (c.n < 1 || c.rowPointers.empty() || c.rowPointers[0] != 1) return false;
  for (int i = 1; i <= c.n; ++i)
    if (c.rowPointers[i] < c.rowPointers[i - 1]) return false;
  if (static_cast<size_t>(c.rowPointers[c.n] - 1) != c.columnIndices.size()) return false;
  for (int i = 1; i <= c.n; ++i) {
    const int b = c.rowPointers[i - 1] - 1, e = c.rowPointers[i] - 1;
    if (e <= b || c.columnIndices[b] != i) return false;
    for (int k = b + 1; k < e; ++k)
      if (c.columnIndices[k] <= c.columnIndices[k - 1] || c.columnIndices[k] > c.n) return false;
  }
  return true;
}

// The full symmetric matrix (column-major n x n) of well-formed compressed rows.
inline std::vector<double> DenseOf(const Csr& c) {
  const size_t n = static_cast<size_t>(c.n);
  std::vector<double> a(n * n, 0.0);
  for (int i = 1; i <= c.n; ++i)
    for (int k = c.rowPointers[i - 1] - 1; k < c.rowPointers[i] - 1; ++k) {
      const int j = c.columnIndices[k];
      a[(j - 1) * n + (i - 1)] = c.values[k];
      a[(i - 1) * n + (j - 1)] = c.values[k];
    }
  return a;
}

inline std::vector<double> DenseDiagonal(const std::vector<double>& d) {
  const size_t n = d.size();
  std::vector<double> a(n * n, 0.0);
  for (size_t i = 0; i < n; ++i) a[i * n + i] = d[i];
  return a;
}

// Eigenvalues (ascending) of K phi = lambda M phi with M positive definite; vectors M-normalised
// as columns when wanted. False when LAPACK fails.
inline bool DenseGeneralized(int n, std::vector<double> k, std::vector<double> m,
                             std::vector<double>& values, std::vector<double>* vectors = nullptr) {
  values.assign(static_cast<size_t>(n), 0.0);
  const lapack_int info = LAPACKE_dsygv(LAPACK_COL_MAJOR, 1, vectors ? 'V' : 'N', 'U', n, k.data(),
                                        n, m.data(), n, values.data());
  if (info != 0) return false;
  if (vectors) *vectors = k;
  return true;
}

// Eigenvalues (ascending) of a symmetric matrix.
inline bool DenseEigenvalues(int n, std::vector<double> a, std::vector<double>& values) {
  values.assign(static_cast<size_t>(n), 0.0);
  return LAPACKE_dsyev(LAPACK_COL_MAJOR, 'N', 'U', n, a.data(), n, values.data()) == 0;
}

// Negative eigenvalues of a - sigma*b (inertia), or -1 when an eigenvalue lies within
// 1e-6 * the largest magnitude of zero (the count is then not a sharp reference).
inline int NegativeInertia(int n, const std::vector<double>& a, const std::vector<double>& b,
                           double sigma) {
  std::vector<double> s(a.size());
  for (size_t k = 0; k < a.size(); ++k) s[k] = a[k] - sigma * b[k];
  if (!AllFinite(s)) return -1;
  std::vector<double> w;
  if (!DenseEigenvalues(n, s, w)) return -1;
  double big = 0.0;
  for (double x : w) big = std::max(big, std::fabs(x));
  int negative = 0;
  for (double x : w) {
    if (std::fabs(x) <= 1e-6 * big) return -1;
    if (x < 0) ++negative;
  }
  return negative;
}

// The registry agrees with a returned code and carries a message for every failure.
inline void CheckRegistry(int code) {
  VQFUZZ_CHECK(VQ_GetLastErrorID() == code);
  char* message = VQ_GetLastErrorMessage();
  VQFUZZ_CHECK(message != nullptr);
  if (code < 0) VQFUZZ_CHECK(message[0] != '\0');
  std::free(message);
}

// A caller's output array with guard values after its promised length.
struct Guarded {
  static constexpr size_t kGuard = 8;
  static constexpr double kFill = -12345.5;
  std::vector<double> data;
  size_t length = 0;
  double fill;
  explicit Guarded(size_t len, double value = kFill)
      : data(len + kGuard, kFill), length(len), fill(value) {
    std::fill(data.begin(), data.begin() + static_cast<long>(len), value);
  }
  double* get() { return data.data(); }
  bool GuardIntact() const {
    for (size_t k = length; k < data.size(); ++k)
      if (data[k] != kFill) return false;
    return true;
  }
  // Every element still holds the value it was given (the guards included).
  bool Untouched() const {
    for (size_t k = 0; k < length; ++k)
      if (!(data[k] == fill)) return false;
    return GuardIntact();
  }
};

}  // namespace vqfuzz

namespace vqfuzz {

// A fixed-fixed spring chain of order n: K = tridiag(-1, 2, -1), so with M = I its eigenvalues
// are 2 - 2 cos(j pi / (n + 1)), j = 1..n (distinct, known without LAPACK at any order).
inline Csr ChainCsr(int n) {
  Csr c;
  c.n = n;
  for (int i = 1; i <= n; ++i) {
    c.rowPointers.push_back(static_cast<int>(c.columnIndices.size()) + 1);
    c.columnIndices.push_back(i);
    c.values.push_back(2.0);
    if (i < n) {
      c.columnIndices.push_back(i + 1);
      c.values.push_back(-1.0);
    }
  }
  c.rowPointers.push_back(static_cast<int>(c.columnIndices.size()) + 1);
  return c;
}

inline std::vector<double> ChainEigenvalues(int n) {
  std::vector<double> w;
  for (int j = 1; j <= n; ++j) w.push_back(2.0 - 2.0 * std::cos(j * M_PI / (n + 1)));
  return w;
}

// Integer outputs with guard values after their promised length.
struct GuardedInts {
  static constexpr size_t kGuard = 8;
  static constexpr int kFill = -424242;
  std::vector<int> data;
  size_t length = 0;
  explicit GuardedInts(size_t len) : data(len + kGuard, kFill), length(len) {}
  int* get() { return data.data(); }
  bool GuardIntact() const {
    for (size_t k = length; k < data.size(); ++k)
      if (data[k] != kFill) return false;
    return true;
  }
};

}  // namespace vqfuzz

namespace vqfuzz {

// With VQFUZZ_VERBOSE set, replaying an input prints what it decoded to (standard error).
inline bool Verbose() {
  static const bool on = std::getenv("VQFUZZ_VERBOSE") != nullptr;
  return on;
}

inline void DumpValues(const char* name, const double* v, size_t count) {
  if (!Verbose()) return;
  std::fprintf(stderr, "%s[%zu] =", name, count);
  for (size_t i = 0; i < count; ++i) std::fprintf(stderr, " %.17g", v[i]);
  std::fprintf(stderr, "\n");
}

inline void DumpCsr(const char* name, const Csr& c) {
  if (!Verbose()) return;
  std::fprintf(stderr, "%s: n %d dominant %d corrupted %d\n  rows", name, c.n, c.dominant,
               c.corrupted);
  for (int r : c.rowPointers) std::fprintf(stderr, " %d", r);
  std::fprintf(stderr, "\n  cols");
  for (int j : c.columnIndices) std::fprintf(stderr, " %d", j);
  std::fprintf(stderr, "\n");
  DumpValues("  values", c.values.data(), c.values.size());
}

}  // namespace vqfuzz
