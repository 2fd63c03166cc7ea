// Generalized Jacobi: agreement with LAPACK's dsygv on random symmetric positive definite pairs,
// M-orthonormal vectors, and the hand-computable edge cases (order 1, uncoupled pairs, ties with
// the later index first, failures on non-positive diagonals).
#include <gtest/gtest.h>
#include <mkl_cblas.h>

#include <cmath>
#include <random>
#include <vector>

#include "eigen/internal/GeneralizedJacobi.h"
#include "support/EigenHarness.h"

namespace {

using Dense = std::vector<double>;  // column-major n x n

// Random symmetric positive definite matrix A'A + shift*I with entries of A in [-1, 1].
Dense RandomSpd(int n, std::mt19937& rng, double shift) {
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  Dense a(static_cast<size_t>(n) * n), s(static_cast<size_t>(n) * n);
  for (double& v : a) v = u(rng);
  cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, n, n, n, 1.0, a.data(), n, a.data(), n, 0.0,
              s.data(), n);
  for (int i = 0; i < n; ++i) s[static_cast<size_t>(i) * n + i] += shift;
  return s;
}

// Packed upper triangle (column by column), the storage of VQ_SymMatrix.
Dense Pack(int n, const Dense& full) {
  Dense p;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i <= j; ++i) p.push_back(full[static_cast<size_t>(j) * n + i]);
  return p;
}

class JacobiAgainstLapack : public ::testing::TestWithParam<int> {};

// Through the eigen harness (dsygv, residuals, M-orthonormality, Sturm count). The sweeps stop
// after a sweep whose couplings (measured before its rotations) were all below 1e-10 in square,
// i.e. 1e-5 relative: the eigenvalues are then exact to rounding (second order), the vectors
// orthonormal to well below that first-order bound.
TEST_P(JacobiAgainstLapack, EigenvaluesAndMOrthonormalVectors) {
  const int n = GetParam();
  std::mt19937 rng(1000 + n);
  const vqtest::EigenMethod jacobi = [](const vqtest::EigenProblem& e, int count) {
    Dense kp = Pack(count, vqtest::Dense(e.k)), mp = Pack(count, vqtest::Dense(e.mass));
    vqtest::EigenOutcome out{0, Dense(count), Dense(static_cast<size_t>(count) * count)};
    out.status = vqmath::internal::GeneralizedJacobi(count, kp.data(), mp.data(), out.vectors.data(), out.values.data());
    return out;
  };
  vqtest::EigenCheckOptions o;
  o.valueTolerance = 1e-10;
  for (int trial = 0; trial < 2; ++trial) {
    const Dense k = RandomSpd(n, rng, 0.5 * n);
    const Dense m = RandomSpd(n, rng, 1.0 + n);
    vqtest::RunEigenChecks(jacobi, {"random", vqtest::CsrFromDense(n, k), {}, vqtest::CsrFromDense(n, m)}, n, o);
  }
}

INSTANTIATE_TEST_SUITE_P(Orders, JacobiAgainstLapack, ::testing::Values(1, 2, 3, 7, 24, 60));

TEST(JacobiEdgeCases, OrderOneIsQuotientAndScaledUnitVector) {
  double k = 8.0, m = 4.0, x = 0.0, lambda = 0.0;
  ASSERT_EQ(0, vqmath::internal::GeneralizedJacobi(1, &k, &m, &x, &lambda));
  EXPECT_DOUBLE_EQ(2.0, lambda);
  EXPECT_DOUBLE_EQ(0.5, x);
}

TEST(JacobiEdgeCases, CoupledTwoByTwoHandComputed) {
  // K = [2 -1; -1 2], M = I: eigenvalues 1 and 3, vectors (1, 1)/sqrt2 and (1, -1)/sqrt2.
  Dense k = {2.0, -1.0, 2.0}, m = {1.0, 0.0, 1.0}, x(4), lambda(2);
  ASSERT_EQ(0, vqmath::internal::GeneralizedJacobi(2, k.data(), m.data(), x.data(), lambda.data()));
  EXPECT_NEAR(1.0, lambda[0], 1e-14);
  EXPECT_NEAR(3.0, lambda[1], 1e-14);
  const double r = 1.0 / std::sqrt(2.0);
  EXPECT_NEAR(r, std::fabs(x[0]), 1e-14);
  EXPECT_NEAR(x[0], x[1], 1e-14);
  EXPECT_NEAR(r, std::fabs(x[2]), 1e-14);
  EXPECT_NEAR(x[2], -x[3], 1e-14);
}

TEST(JacobiEdgeCases, NonPositiveDiagonalFails) {
  Dense k = {2.0, 0.5, 1.0}, m = {1.0, 0.0, 0.0}, x(4), lambda(2);
  EXPECT_EQ(-1,
            vqmath::internal::GeneralizedJacobi(2, k.data(), m.data(), x.data(), lambda.data()));
  Dense k2 = {-2.0, 0.5, 1.0}, m2 = {1.0, 0.0, 1.0};
  EXPECT_EQ(-1,
            vqmath::internal::GeneralizedJacobi(2, k2.data(), m2.data(), x.data(), lambda.data()));
}

}  // namespace
