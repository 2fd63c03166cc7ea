// vqsolve static, run as a program: its solution against dense LAPACK, the inertia it prints
// against the signs of the eigenvalues, and a singular model reported with its equation.

#include <mkl_lapacke.h>

#include <cmath>

#include "VqsolveRunner.h"
#include "models/CsrMatrix.h"
#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/SolverHarness.h"
#include "support/TestSupport.h"

using namespace vqsolve_test;

namespace {

class VqsolveStatic : public ::testing::Test {
 protected:
  void SetUp() override {
    VQSOLVE_REQUIRE();
    folder_ = TempFolder();
  }
  std::string File(const std::string& name) const { return folder_ + name; }

  // Runs static on K and F (n × nrhs), returns the report and the solution written with -o.
  Json Solve(const vqmath::models::CsrMatrix& k, const std::vector<double>& f, int nrhs,
             std::vector<double>& x, int expectedExit = 0) {
    EXPECT_TRUE(vqmath::models::WriteMatrixMarket(k, File("K.mtx")));
    WriteArray(File("F.mtx"), k.n, nrhs, f);
    const RunResult r = RunVqsolve(
        {"static", "-K", File("K.mtx"), "-F", File("F.mtx"), "-o", File("X.mtx"), "--json"});
    EXPECT_EQ(r.exitCode, expectedExit) << r.err;
    int rows = 0, cols = 0;
    if (r.exitCode == 0) {
      x = ReadArray(File("X.mtx"), rows, cols);
      EXPECT_EQ(rows, k.n);
      EXPECT_EQ(cols, nrhs);
    }
    return ParseJson(r.out);
  }

  std::string folder_;
};

// Dense eigenvalues of a symmetric CSR matrix (to count their signs).
std::vector<double> DenseSpectrum(const vqmath::models::CsrMatrix& a) {
  std::vector<double> dense = vqmath::models::ToDense(a), w(static_cast<size_t>(a.n));
  EXPECT_EQ(LAPACKE_dsyev(LAPACK_COL_MAJOR, 'N', 'U', a.n, dense.data(), a.n, w.data()), 0);
  return w;
}

TEST_F(VqsolveStatic, SolidSolutionMatchesDenseLapackForSeveralLoadCases) {
  vqmath::models::SolidParameters p;
  p.nx = 6;
  p.ny = p.nz = 2;
  const vqmath::models::SolidModel solid(p);
  const auto& k = solid.Stiffness();
  const int n = k.n;
  std::vector<double> f = solid.EndFaceLoad(0.0, 0.0, -1e5);
  const std::vector<double> g = solid.GravityLoad(0.0, -9.81, 0.0);
  f.insert(f.end(), g.begin(), g.end());

  std::vector<double> x;
  const Json report = Solve(k, f, 2, x);
  const std::vector<double> reference = vqtest::DenseSolve(vqtest::FromModel(k), f, 2);
  ASSERT_EQ(x.size(), reference.size());
  double scale = 0.0, error = 0.0;
  for (size_t i = 0; i < x.size(); ++i) {
    scale = std::max(scale, std::fabs(reference[i]));
    error = std::max(error, std::fabs(x[i] - reference[i]));
  }
  EXPECT_LT(error, 1e-9 * scale);

  EXPECT_EQ(report["command"].text, "static");
  EXPECT_EQ(report["equations"].number, n);
  EXPECT_EQ(report["loadCases"].number, 2);
  ASSERT_EQ(report["cases"].size(), 2u);
  for (size_t c = 0; c < 2; ++c) {
    // The residual it prints is the residual of the solution it wrote.
    std::vector<double> kx(static_cast<size_t>(n));
    vqmath::models::Multiply(k, &x[c * n], kx.data());
    double rr = 0.0, ff = 0.0, largest = 0.0;
    for (int i = 0; i < n; ++i) {
      rr += (kx[i] - f[c * n + i]) * (kx[i] - f[c * n + i]);
      ff += f[c * n + i] * f[c * n + i];
      largest = std::max(largest, std::fabs(x[c * n + i]));
    }
    EXPECT_LT(report["cases"][c]["residual"].number, 1e-10);
    EXPECT_NEAR(report["cases"][c]["residual"].number, std::sqrt(rr / ff), 1e-12);
    EXPECT_DOUBLE_EQ(report["cases"][c]["maxDisplacement"].number, largest);
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
  const std::vector<double> w = DenseSpectrum(a);
  int negative = 0;
  for (double v : w) negative += v < 0.0;
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

  const RunResult text = RunVqsolve({"static", "-K", File("free.mtx"), "-F", File("f.mtx")});
  EXPECT_EQ(text.exitCode, 3);
  EXPECT_NE(text.err.find("Instability Detected (Ill-conditioned or Singular Matrix Found)"),
            std::string::npos)
      << text.err;
  EXPECT_NE(text.err.find("instability at equation"), std::string::npos) << text.err;

  const RunResult json =
      RunVqsolve({"static", "-K", File("free.mtx"), "-F", File("f.mtx"), "--json"});
  EXPECT_EQ(json.exitCode, 3);
  const Json report = ParseJson(json.out);
  EXPECT_EQ(report["exitCode"].number, 3);
  EXPECT_EQ(report["error"]["kind"].text, "solver");
  EXPECT_EQ(report["error"]["code"].number, -3);
  const double equation = report["error"]["instabilityEquation"].number;
  EXPECT_GE(equation, 1);
  EXPECT_LE(equation, n);
}

}  // namespace
