// Generalized Jacobi method for small symmetric pairs; see GeneralizedJacobi.h.
#include "eigen/internal/GeneralizedJacobi.h"

#include <cmath>
#include <cstddef>

namespace vqmath {
namespace internal {

namespace {

constexpr double kTolerance = 1e-10;      // 0.1^10: convergence of the sweep measure
constexpr double kStartThreshold = 0.01;  // rotation threshold of the first sweep
constexpr int kMaxSweeps = 100;
constexpr double kDegenerate = 1e-5;  // |den| must exceed this fraction of kk

// Packed upper position of 1-based (i, j), either triangle.
inline std::size_t P(int i, int j) {
  if (i > j) {
    const int t = i;
    i = j;
    j = t;
  }
  return static_cast<std::size_t>(j - 1) * j / 2 + static_cast<std::size_t>(i - 1);
}

}  // namespace

int GeneralizedJacobi(int n, double* K, double* M, double* X, double* lambda) {
  if (n < 1) return 0;
  const std::size_t nn = static_cast<std::size_t>(n);
  auto x = [&](int row, int col) -> double& {
    return X[static_cast<std::size_t>(col - 1) * nn + static_cast<std::size_t>(row - 1)];
  };

  for (std::size_t k = 0; k < nn * nn; ++k) X[k] = 0.0;
  for (int k = 1; k <= n; ++k) x(k, k) = 1.0;
  for (int k = 0; k < n; ++k) lambda[k] = 0.0;

  double threshold = kStartThreshold;
  int sweep = 1;
  for (;;) {
    double measure = 0.0;
    for (int i = 1; i <= n - 1; ++i) {
      for (int j = i + 1; j <= n; ++j) {
        const std::size_t ii = P(i, i), jj = P(j, j), ij = P(i, j);
        if (K[ii] <= 0.0 || M[ii] <= 0.0 || K[jj] <= 0.0 || M[jj] <= 0.0) return -1;

        // Every pair counts towards the sweep measure, rotated or not.
        const double cK = std::fabs(K[ij] * K[ij] / (K[ii] * K[jj]));
        const double cM = std::fabs(M[ij] * M[ij] / (M[ii] * M[jj]));
        const double coupling = cK + cM;
        if (coupling > measure) measure = coupling;
        if (threshold > coupling) continue;

        const double kii = K[ii] * M[ij] - M[ii] * K[ij];
        const double kjj = K[jj] * M[ij] - M[jj] * K[ij];
        const double kk = K[ii] * M[jj] - K[jj] * M[ii];
        const double check = kk * kk + 4.0 * kii * kjj;
        if (check < 0.0) continue;  // left unrotated
        const double sq = std::sqrt(check);
        const double den = kk >= 0.0 ? kk / 2.0 + sq / 2.0 : kk / 2.0 - sq / 2.0;

        double ca, cg;
        if (std::fabs(den) > kDegenerate * kk) {
          if (den == 0.0) return -1;
          ca = kjj / den;
          cg = -kii / den;
        } else {
          // Near-degenerate pair: eliminate the stiffness coupling alone.
          ca = 0.0;
          cg = -K[ij] / K[jj];
        }

        // Rows/columns k != i, j of both matrices (symmetric storage: one update per pair).
        for (int k = 1; k <= n; ++k) {
          if (k == i || k == j) continue;
          const std::size_t ki = P(k, i), kj = P(k, j);
          const double aki = K[ki], akj = K[kj];
          K[ki] = aki + cg * akj;
          K[kj] = akj + ca * aki;
          const double bki = M[ki], bkj = M[kj];
          M[ki] = bki + cg * bkj;
          M[kj] = bkj + ca * bki;
        }
        const double akk = K[jj], bkk = M[jj];
        K[jj] = akk + 2.0 * ca * K[ij] + ca * ca * K[ii];
        M[jj] = bkk + 2.0 * ca * M[ij] + ca * ca * M[ii];
        K[ii] = K[ii] + 2.0 * cg * K[ij] + cg * cg * akk;
        M[ii] = M[ii] + 2.0 * cg * M[ij] + cg * cg * bkk;
        K[ij] = 0.0;
        M[ij] = 0.0;

        double* xi = &x(1, i);
        double* xj = &x(1, j);
        for (int k = 0; k < n; ++k) {
          const double old = xi[k];
          xi[k] = old + cg * xj[k];
          xj[k] = xj[k] + ca * old;
        }
      }
    }
    if (measure < kTolerance) break;
    threshold = measure > 1.0 ? kStartThreshold : 0.1 * measure * measure * measure;
    ++sweep;
    if (sweep > kMaxSweeps) return -1;
  }

  for (int i = 1; i <= n; ++i) {
    const double mii = M[P(i, i)];
    if (mii > 0.0) {
      lambda[i - 1] = K[P(i, i)] / mii;
      const double root = std::sqrt(mii);
      if (root == 0.0) return -1;
      double* xi = &x(1, i);
      for (int k = 0; k < n; ++k) xi[k] /= root;
    }
    if (n == 1) return 0;
  }

  // Ascending selection sort; "<=" makes the last of equal minima win.
  for (int i = 1; i <= n - 1; ++i) {
    int at = i;
    double smallest = lambda[i - 1];
    for (int k = i + 1; k <= n; ++k) {
      if (lambda[k - 1] <= smallest) {
        smallest = lambda[k - 1];
        at = k;
      }
    }
    if (at != i) {
      const double t = lambda[i - 1];
      lambda[i - 1] = lambda[at - 1];
      lambda[at - 1] = t;
      double* xi = &x(1, i);
      double* xa = &x(1, at);
      for (int k = 0; k < n; ++k) {
        const double v = xi[k];
        xi[k] = xa[k];
        xa[k] = v;
      }
    }
  }
  return 0;
}

}  // namespace internal
}  // namespace vqmath
