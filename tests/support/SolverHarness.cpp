// Shared checks of the linear-solver paths: see SolverHarness.h.
#include "support/SolverHarness.h"

#include <cmath>
#include <cstdint>

#include <mkl_lapacke.h>

#include "models/SolidModel.h"

namespace vqtest {

std::vector<double> MakeRightHandSides(int n, int nrhs, unsigned seed) {
  std::vector<double> f(static_cast<size_t>(n) * nrhs);
  std::uint64_t state = 0x9E3779B97F4A7C15ull ^ seed;
  for (double& v : f) {
    state = state * 6364136223846793005ull + 1442695040888963407ull;
    v = static_cast<double>(state >> 11) / 9007199254740992.0 * 2.0 - 1.0;
  }
  return f;
}

std::vector<double> DenseSolve(const Csr& k, const std::vector<double>& f, int nrhs) {
  std::vector<double> a = Dense(k);
  std::vector<double> x = f;
  std::vector<lapack_int> ipiv(k.n);
  lapack_int info = LAPACKE_dsysv(LAPACK_COL_MAJOR, 'U', k.n, nrhs, a.data(), k.n, ipiv.data(),
                                  x.data(), k.n);
  if (info != 0) return {};
  return x;
}

double RelativeDifference(const std::vector<double>& a, const std::vector<double>& b) {
  double d = 0.0, n = 0.0;
  if (a.size() != b.size()) return HUGE_VAL;
  for (size_t i = 0; i < a.size(); ++i) d += (a[i] - b[i]) * (a[i] - b[i]), n += b[i] * b[i];
  return std::sqrt(d / std::max(n, 1e-300));
}

namespace {

double Norm(const std::vector<double>& v) {
  double s = 0.0;
  for (double x : v) s += x * x;
  return std::sqrt(s);
}

double FrobeniusNorm(const Csr& k) {
  double s = 0.0;
  for (int i = 0; i < k.n; ++i)
    for (int p = k.rowPointers[i] - 1; p < k.rowPointers[i + 1] - 1; ++p)
      s += (k.columnIndices[p] == i + 1 ? 1.0 : 2.0) * k.values[p] * k.values[p];
  return std::sqrt(s);
}

// The residual measure chosen by the options.
double Residual(const Csr& k, const double* x, const std::vector<double>& f, int nrhs,
                const HarnessOptions& options) {
  const double relative = RelativeResidual(k, x, f.data(), nrhs);
  if (!options.backwardError) return relative;
  const std::vector<double> xv(x, x + f.size());
  const double fn = Norm(f);
  return relative * fn / (FrobeniusNorm(k) * Norm(xv) + fn);
}

}  // namespace

void RunSolverChecks(SolverUnderTest& solver, const Csr& k, const HarnessOptions& options) {
  ASSERT_EQ(0, solver.Factor(k)) << "factorisation failed";
  const size_t n = static_cast<size_t>(k.n);

  for (int nrhs : options.rhsCounts) {
    SCOPED_TRACE("nrhs = " + std::to_string(nrhs));
    const std::vector<double> f = MakeRightHandSides(k.n, nrhs, 11u + nrhs);
    std::vector<double> reference;
    if (k.n <= options.denseReferenceLimit) {
      reference = DenseSolve(k, f, nrhs);
      ASSERT_FALSE(reference.empty()) << "dense reference failed";
    }

    {
      SCOPED_TRACE("solution into a separate array");
      std::vector<double> b = f;
      std::vector<double> x(n * nrhs, std::nan(""));
      ASSERT_EQ(0, solver.Solve(nrhs, b.data(), x.data()));
      EXPECT_EQ(f, b) << "the right-hand sides changed although the solution went elsewhere";
      EXPECT_LE(Residual(k, x.data(), f, nrhs, options), options.residualTolerance);
      if (!reference.empty()) {
        EXPECT_LE(RelativeDifference(x, reference), options.referenceTolerance);
      }

      // A second solve on the same factorisation with other loads.
      const std::vector<double> g = MakeRightHandSides(k.n, nrhs, 101u + nrhs);
      std::vector<double> c = g;
      std::vector<double> y(n * nrhs, std::nan(""));
      ASSERT_EQ(0, solver.Solve(nrhs, c.data(), y.data()));
      EXPECT_LE(Residual(k, y.data(), g, nrhs, options), options.residualTolerance);
    }

    {
      SCOPED_TRACE("solution in place");
      std::vector<double> b = f;
      ASSERT_EQ(0, solver.Solve(nrhs, b.data(), nullptr));
      EXPECT_LE(Residual(k, b.data(), f, nrhs, options), options.residualTolerance);
      if (!reference.empty()) {
        EXPECT_LE(RelativeDifference(b, reference), options.referenceTolerance);
      }
    }
  }
}

Csr SolidStiffness(int equations) {
  vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(equations));
  return model.Stiffness();
}

std::vector<double> SolidLumpedMass(int equations) {
  vqmath::models::SolidModel model(vqmath::models::SolidModel::ForEquations(equations));
  return model.LumpedMass();
}

}  // namespace vqtest
