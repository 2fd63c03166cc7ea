#include "support/EigenHarness.h"

#include <gtest/gtest.h>
#include <mkl_lapacke.h>

#include <algorithm>
#include <cmath>

namespace vqtest {

int SturmCount(const Csr& k, const Csr& m, double sigma) {
  const int n = k.n;
  std::vector<double> a = Dense(k);
  const std::vector<double> b = Dense(m);
  for (size_t i = 0; i < a.size(); ++i) a[i] -= sigma * b[i];
  std::vector<lapack_int> pivots(n);
  if (LAPACKE_dsytrf(LAPACK_COL_MAJOR, 'U', n, a.data(), n, pivots.data()) < 0) return -1;
  int negative = 0;
  for (int i = 0; i < n; ++i) {
    const double d = a[static_cast<size_t>(i) * n + i];
    if (pivots[i] > 0) {  // 1 x 1 block
      negative += d < 0.0;
    } else {  // 2 x 2 block (i, i+1): one negative eigenvalue when its determinant is negative
      const double e = a[static_cast<size_t>(i + 1) * n + i + 1], f = a[static_cast<size_t>(i + 1) * n + i];
      const double det = d * e - f * f;
      negative += det < 0.0 ? 1 : (d + e < 0.0 ? 2 : 0);
      ++i;
    }
  }
  return negative;
}

void RunEigenChecks(const EigenMethod& method, const EigenProblem& e, int count, const EigenCheckOptions& o) {
  SCOPED_TRACE(e.name);
  const Csr m = e.MassCsr();
  const std::vector<double> reference = DenseEigenvalues(e.k, m);
  ASSERT_GE(reference.size(), static_cast<size_t>(o.first + count));
  const EigenOutcome r = method(e, count);
  ASSERT_EQ(r.status, 0);
  ASSERT_EQ(r.values.size(), static_cast<size_t>(count));
  const double floor = o.zeroFloor * std::fabs(reference[o.first + count - 1]);
  for (int i = 0; i < count; ++i)
    EXPECT_LT(std::fabs(r.values[i] - reference[o.first + i]),
              o.valueTolerance * std::max({std::fabs(reference[o.first + i]), floor, 1e-300}))
        << "mode " << o.first + i + 1 << ": " << r.values[i] << " vs " << reference[o.first + i];
  for (int i = 1; i < count; ++i)  // ascending (a repeated eigenvalue in either order)
    EXPECT_GE(r.values[i], r.values[i - 1] - 1e-9 * std::fabs(r.values[i - 1])) << "mode " << i + 1;
  if (o.expectVectors) {
    ASSERT_EQ(r.vectors.size(), static_cast<size_t>(e.k.n) * count);
    EXPECT_LE(EigenResidual(e.k, m, count, r.values.data(), r.vectors.data(), o.residualByNormOfK), o.residualTolerance);
    EXPECT_LE(MOrthonormalityError(m, count, r.vectors.data()), o.orthonormalityTolerance);
  }
  // Nothing missed: just above the highest delivered value lie exactly first + count eigenvalues.
  // (An eigenvalue repeated across the cut is counted too.)
  const double sigma = r.values.back() + 1e-6 * std::fabs(r.values.back()) + 1e-300;
  size_t below = static_cast<size_t>(o.first + count);
  while (below < reference.size() && reference[below] < sigma) ++below;
  EXPECT_EQ(SturmCount(e.k, m, sigma), static_cast<int>(below));
}

}  // namespace vqtest
