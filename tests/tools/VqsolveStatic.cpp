// vqsolve static, run as a program: its solution against dense LAPACK, the inertia it prints
// against the signs of the eigenvalues, and a singular model reported with its equation.

#include <cmath>

#include "VqsolveRunner.h"
#include "models/CsrMatrix.h"
#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/SolverHarness.h"
#include "support/TestSupport.h"

using namespace vqsolve_test;

namespace {

class VqsolveStatic : public VqsolveTest {
 protected:
  // Runs static on K and F (n × nrhs), returns the report and the solution written with -o.
  Json Solve(const vqmath::models::CsrMatrix& k, const std::vector<double>& f, int nrhs,
             std::vector<double>& x) {
    EXPECT_TRUE(vqmath::models::WriteMatrixMarket(k, File("K.mtx")));
    WriteArray(File("F.mtx"), k.n, nrhs, f);
    const Json report =
        RunJson({"static", "-K", File("K.mtx"), "-F", File("F.mtx"), "-o", File("X.mtx")});
    int rows = 0, cols = 0;
    x = ReadArray(File("X.mtx"), rows, cols);
    EXPECT_EQ(rows, k.n);
    EXPECT_EQ(cols, nrhs);
    return report;
  }
};

TEST_F(VqsolveStatic, SolidSolutionMatchesDenseLapackForSeveralLoadCases) {
  const vqmath::models::SolidModel solid({6, 2, 2});
  const auto& k = solid.Stiffness();
  const int n = k.n;
  std::vector<double> f = solid.EndFaceLoad(0.0, 0.0, -1e5);
  const std::vector<double> g = solid.GravityLoad(0.0, -9.81, 0.0);
  f.insert(f.end(), g.begin(), g.end());

  std::vector<double> x;
  const Json report = Solve(k, f, 2, x);
  const std::vector<double> reference = vqtest::DenseSolve(vqtest::FromModel(k), f, 2);
  EXPECT_LT(vqtest::RelativeDifference(x, reference), 1e-9);

  EXPECT_EQ(report["command"].text, "static");
  EXPECT_EQ(report["equations"].number, n);
  EXPECT_EQ(report["loadCases"].number, 2);
  ASSERT_EQ(report["cases"].size(), 2u);
  for (size_t c = 0; c < 2; ++c) {
    // The residual it prints is the residual of the solution it wrote.
    const double residual = vqtest::RelativeResidual(k, &x[c * n], &f[c * n], 1);
    EXPECT_LT(report["cases"][c]["residual"].number, 1e-10);
    EXPECT_NEAR(report["cases"][c]["residual"].number, residual, 1e-12);
    EXPECT_DOUBLE_EQ(report["cases"][c]["maxDisplacement"].number,
                     MaxAbs(&x[c * n], &x[(c + 1) * n]));
  }
  EXPECT_EQ(report["negativePivots"].number, 0);
  EXPECT_EQ(report["positivePivots"].number, n);
  EXPECT_TRUE(report["positiveDefinite"].boolean);
}

TEST_F(VqsolveStatic, InertiaOfAnIndefiniteMatrixCountsItsNegativeEigenvalues) {
  // A coupled tridiagonal matrix with a shifted diagonal: some eigenvalues negative.
  const int n = 40;
  vqtest::Csr a = vqtest::Tridiagonal(n, 0.0, -0.9);
  for (int i = 1; i <= n; ++i) a.values[a.rowPointers[i - 1] - 1] = 1.0 - 0.5 * std::cos(0.7 * i);
  const int negative = CountBelow(vqtest::SymmetricEigenvalues(n, vqtest::Dense(a)), 0.0);
  ASSERT_GT(negative, 0);
  ASSERT_LT(negative, n);

  std::vector<double> x;
  const Json report = Solve(a, std::vector<double>(n, 1.0), 1, x);
  EXPECT_EQ(report["negativePivots"].number, negative);
  EXPECT_EQ(report["positivePivots"].number, n - negative);
  EXPECT_FALSE(report["positiveDefinite"].boolean);
  EXPECT_LT(report["residual"].number, 1e-10);
}

TEST_F(VqsolveStatic, SingularModelIsASolverFailureNamingTheInstabilityEquation) {
  // A free-free chain of springs: one rigid-body mode.
  const int n = 30;
  const vqtest::Csr k = vqtest::SpringChain(n, true);
  ASSERT_TRUE(vqmath::models::WriteMatrixMarket(k, File("free.mtx")));
  std::vector<double> f(n, 0.0);
  f[n - 1] = 1.0;
  WriteArray(File("f.mtx"), n, 1, f);

  // The message goes to standard error, and with --json into the report as well.
  const RunResult r = RunVqsolve({"static", "-K", File("free.mtx"), "-F", File("f.mtx"), "--json"});
  EXPECT_EQ(r.exitCode, 3);
  const Json report = ParseJson(r.out);
  EXPECT_EQ(report["exitCode"].number, 3);
  EXPECT_EQ(report["error"]["kind"].text, "solver");
  EXPECT_EQ(report["error"]["code"].number, -3);
  const int equation = static_cast<int>(report["error"]["instabilityEquation"].number);
  EXPECT_GE(equation, 1);
  EXPECT_LE(equation, n);
  const std::string message =
      "Instability Detected (Ill-conditioned or Singular Matrix Found): "
      "instability at equation " +
      std::to_string(equation);
  EXPECT_EQ(report["error"]["message"].text, message);
  EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
}

}  // namespace
