#include "SturmCheck.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "vqmath.h"

namespace vqsolve {

using vqmath::models::CsrMatrix;

SturmCount CountBelow(const Pencil& pencil, double sigma, const DirectOptions& options) {
  (void)options;  // the library counts with its own out-of-core mode and working directory
  SturmCount c;
  c.shift = sigma;
  const CsrMatrix& k = *pencil.k;
  const auto start = std::chrono::steady_clock::now();
  int count = 0;
  if (pencil.b)
    c.code = VQ_SturmCount2(k.n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                            pencil.b->rowPointers.data(), pencil.b->columnIndices.data(),
                            pencil.b->values.data(), sigma, &count);
  else
    c.code = VQ_SturmCount(k.n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                           pencil.diagonal->data(), sigma, &count);
  c.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (c.code != 0) {
    c.message = ReadRegistry().message;
    if (c.message.empty()) c.message = ErrorText(c.code);
  }
  c.negativePivots = count;
  return c;
}

double ShiftBeside(double value, int direction, double scale, double relative) {
  double reach = std::max(std::fabs(value), 1e-3 * std::fabs(scale));
  if (!(reach > 0.0)) reach = 1.0;
  return value + (direction < 0 ? -1.0 : 1.0) * relative * reach;
}

SturmCheck CheckFound(const Pencil& pencil, const std::vector<double>& found, bool aboveOnly,
                      const DirectOptions& options) {
  SturmCheck s;
  if (found.empty()) return s;
  double scale = 0.0;
  for (double v : found) scale = std::max(scale, std::fabs(v));
  const double highest = *std::max_element(found.begin(), found.end());
  const double lowest = *std::min_element(found.begin(), found.end());
  s.shift = ShiftBeside(highest, +1, scale);
  const SturmCount above = CountBelow(pencil, s.shift, options);
  s.seconds += above.seconds;
  if (above.message.size()) {
    s.code = above.code;
    s.message = above.message;
    return s;
  }
  s.counted = above.negativePivots;
  s.found = static_cast<int>(found.size());
  int below = 0;
  if (aboveOnly) {
    s.interval = true;
    s.lowerShift = ShiftBeside(lowest, -1, scale);
    const SturmCount lower = CountBelow(pencil, s.lowerShift, options);
    s.seconds += lower.seconds;
    if (lower.message.size()) {
      s.code = lower.code;
      s.message = lower.message;
      return s;
    }
    below = lower.negativePivots;
    s.counted -= below;
  }
  if (s.counted > s.found) {
    // An eigenvalue just above the highest one found may lie below the shift: count again
    // closer to it; the check fails only when that count is still too high.
    const double closer = ShiftBeside(highest, +1, scale, 1e-8);
    const SturmCount close = closer > highest ? CountBelow(pencil, closer, options) : SturmCount();
    s.seconds += close.seconds;
    if (closer > highest && close.message.empty() && close.negativePivots - below <= s.found) {
      s.shift = closer;
      s.counted = close.negativePivots - below;
    }
  }
  s.done = true;
  s.passed = s.counted == s.found;
  return s;
}

double UpperBoundFor(const Pencil& pencil, int count, double lowerBound,
                     const DirectOptions& options, int* counted) {
  // Start from the smallest Rayleigh quotient of a unit vector, min k_ii / b_ii, which lies
  // above the lowest eigenvalue, and grow σ geometrically until enough eigenvalues lie below.
  const CsrMatrix& k = *pencil.k;
  double sigma = 0.0;
  for (int i = 0; i < k.n; ++i) {
    const double kii = k.values[k.rowPointers[i] - 1];
    const double bii =
        pencil.b ? pencil.b->values[pencil.b->rowPointers[i] - 1] : (*pencil.diagonal)[i];
    if (bii > 0.0 && kii > 0.0 && (sigma == 0.0 || kii / bii < sigma)) sigma = kii / bii;
  }
  // Just above that ratio: exactly at it K − σB has a zero diagonal entry, which the library
  // reports as singular.
  sigma *= 1.0 + 1e-9;
  if (sigma <= 0.0) sigma = 1.0;
  sigma = std::max(sigma, lowerBound + std::fabs(lowerBound) * 1e-3 + 1e-12);
  double previous = lowerBound;
  for (int attempt = 0; attempt < 60; ++attempt) {
    const SturmCount c = CountBelow(pencil, sigma, options);
    if (!c.message.empty()) throw SolverError(c.code, c.message);
    if (c.negativePivots >= count) {
      if (counted) *counted = c.negativePivots;
      // Tighten when too many lie below: FEAST's search space (1.5 times the wanted
      // count) must hold them all, or FEAST runs again with a larger one.
      if (c.negativePivots > count + count / 2 && attempt < 58) {
        double lo = previous, hi = sigma;
        for (int b = 0; b < 12; ++b) {
          const double mid = 0.5 * (lo + hi);
          const SturmCount m = CountBelow(pencil, mid, options);
          if (!m.message.empty()) throw SolverError(m.code, m.message);
          if (m.negativePivots >= count) {
            hi = mid;
            if (counted) *counted = m.negativePivots;
            if (m.negativePivots <= count + count / 2) break;
          } else {
            lo = mid;
          }
        }
        return hi;
      }
      return sigma;
    }
    previous = sigma;
    // Few eigenvalues below: the spectrum grows like λ ~ index^(2/3) in a 3D solid; step
    // by a factor that reaches the wanted count quickly without overshooting far.
    const double ratio = c.negativePivots > 0 ? static_cast<double>(count) / c.negativePivots : 4.0;
    sigma *= std::min(4.0, std::max(1.3, std::pow(ratio, 1.0) * 1.1));
  }
  throw SolverError(-4, "could not bracket the lowest " + std::to_string(count) + " eigenvalues");
}

}  // namespace vqsolve
