// Sturm counts, effective masses and the verification switch of the eigen entry points, checked
// against dense LAPACK (dsygv) on real structural pairs and on pairs with known spectra.
#include <mkl.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "support/EigenSupport.h"
#include "support/TestSupport.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

using vqtest::LastMessage;

// All finite eigenvalues, ascending, from the inverse pencil M phi = mu K phi (K positive
// definite; massless equations give mu = 0): the accurate form on badly graded pairs.
std::vector<double> DenseSpectrum(const Csr& k, const Csr& m) { return vqtest::DenseEigenvalues(k, m, nullptr, true); }

struct Pair {
  std::string name;
  Csr k, m;
  bool lumped;
};

std::vector<Pair> RealPairs() {
  std::vector<Pair> pairs;
  for (const char* number : {"01", "02", "05", "07", "22"}) {
    vqtest::EigenProblem e;
    if (!vqtest::RealProblem(number, e)) continue;
    pairs.push_back({std::string("bcsstk") + number, e.k, e.MassCsr(), e.diagonal()});
  }
  return pairs;
}

// A bar of n equations whose consistent mass has a positive diagonal but is indefinite: K =
// tridiag(-1, 2, -1), M = tridiag(0.8, 1, 0.8) (eigenvalues 1 + 1.6 cos(j pi / (n + 1))).
Pair IndefiniteMassBar(int n) { return {"bar", vqtest::Tridiagonal(n, 2.0, -1.0), vqtest::Tridiagonal(n, 1.0, 0.8), false}; }

int SturmCount(const Pair& p, double sigma, bool sparseMass, int* count) {
  if (sparseMass || !p.lumped)
    return VQ_SturmCount2(p.k.n, VQTEST_CSR(p.k), VQTEST_CSR(p.m), sigma, count);
  const std::vector<double> d = vqtest::Diagonal(p.m);
  return VQ_SturmCount(p.k.n, VQTEST_CSR(p.k), d.data(), sigma, count);
}

// Lanczos (shift-invert about 0, sparse M) on a pair.
int Lanczos(const Pair& p, int nev, int* found, std::vector<double>& values,
            std::vector<double>& modes, const vqtest::ScratchDir& dir) {
  return VQ_EigenvalueAnalysis_ARPACK2(p.k.n, nev, VQTEST_CSR(p.k), VQTEST_CSR(p.m), 4, 0, -1,
                                       found, values.data(), modes.data(), 0.0, dir.Path().c_str(),
                                       0);
}

class EigenVerification : public ::testing::Test {
 protected:
  void SetUp() override {
    VQ_InitializeLibrary();
    VQ_SetEigenVerification(0);
  }
  void TearDown() override { VQ_SetEigenVerification(0); }
};

// Counts between consecutive eigenvalues, and just above close neighbours, equal the index.
TEST_F(EigenVerification, SturmCountsMatchDenseSpectra) {
  VQTEST_REQUIRE_DATA();
  for (const Pair& p : RealPairs()) {
    const std::vector<double> lambda = DenseSpectrum(p.k, p.m);
    ASSERT_FALSE(lambda.empty()) << p.name;
    const int last = static_cast<int>(lambda.size()) - 1;
    for (int index : {0, 1, 4, last / 2, last}) {
      const double sigma = index == 0 ? 0.5 * lambda[0]
                           : index == last ? 2.0 * lambda[last]
                                           : 0.5 * (lambda[index - 1] + lambda[index]);
      const int expected = index == last ? last + 1 : index;
      for (bool sparseMass : {false, true}) {
        if (sparseMass && !p.lumped) continue;
        int count = -1;
        ASSERT_EQ(SturmCount(p, sigma, sparseMass, &count), 0) << p.name << " " << LastMessage();
        EXPECT_EQ(count, expected) << p.name << " sigma " << sigma << (sparseMass ? " sparse M" : "");
      }
    }
  }
}

// Participation factors and fractions against the dense modes of dsygv: all modes together hold
// the whole mass, and scaling a mode changes its factor but not its fraction.
TEST_F(EigenVerification, EffectiveMassOfAllDenseModes) {
  VQTEST_REQUIRE_DATA();
  for (const char* number : {"02", "07"}) {
    vqtest::EigenProblem e;
    ASSERT_TRUE(vqtest::RealProblem(number, e));
    const Csr m = e.MassCsr();
    const int n = e.k.n;
    std::vector<double> a = vqtest::Dense(e.k), b = vqtest::Dense(m), w(n);
    ASSERT_EQ(LAPACKE_dsygv(LAPACK_COL_MAJOR, 1, 'V', 'U', n, a.data(), n, b.data(), n, w.data()), 0);
    std::vector<double> r(n);
    for (int i = 0; i < n; ++i) r[i] = (i % 6 == 0) ? 1.0 : 0.0;  // one translation per node
    for (int i = 0; i < n; ++i) a[i + 2 * n] *= -3.0;              // mode 3 scaled
    std::vector<double> gamma(n), fraction(n), fraction2(n);
    ASSERT_EQ(
        VQ_EffectiveMass2(n, n, a.data(), VQTEST_CSR(m), r.data(), gamma.data(), fraction.data()),
        0)
        << LastMessage();
    std::vector<double> mr(n);
    vqtest::Multiply(m, r.data(), mr.data());
    const double total = std::inner_product(r.begin(), r.end(), mr.begin(), 0.0);
    EXPECT_NEAR(std::accumulate(fraction.begin(), fraction.end(), 0.0), 1.0, 1e-9) << number;
    for (int j = 0; j < n; ++j) {
      // M-normalised modes: Gamma = phi' M r, fraction = Gamma^2 / r' M r.
      const double l = std::inner_product(a.begin() + j * n, a.begin() + (j + 1) * n, mr.begin(), 0.0);
      const double scale = j == 2 ? -3.0 : 1.0;
      EXPECT_NEAR(gamma[j], l / (scale * scale), 1e-9 * std::sqrt(total)) << number << " mode " << j;
      EXPECT_NEAR(fraction[j], l * l / (scale * scale) / total, 1e-10) << number << " mode " << j;
    }
    if (e.diagonal()) {
      ASSERT_EQ(VQ_EffectiveMass(n, n, a.data(), e.lumped.data(), r.data(), nullptr, fraction2.data()), 0);
      for (int j = 0; j < n; ++j) EXPECT_NEAR(fraction2[j], fraction[j], 1e-12);
    }
  }
}

// Malformed input and degenerate directions end in a code and a message, never a count.
TEST_F(EigenVerification, FailuresReportCodeAndMessage) {
  const Csr k = vqtest::Tridiagonal(8, 2.0, -1.0);
  const int *rp = k.rowPointers.data(), *ci = k.columnIndices.data();
  const std::vector<double> ones(8, 1.0), zeros(8, 0.0), negative = {-1, 1, 1, 1, 1, 1, 1, 1};
  std::vector<double> modes(16, 0.0);
  modes[0] = modes[9] = 1.0;
  const double* phi = modes.data();
  double out[2];
  int count = 7;
  const struct {
    int expected;
    const char* text;
    std::function<int()> call;
  } cases[] = {
      {-64, "count",
       [&] { return VQ_SturmCount(8, rp, ci, k.values.data(), ones.data(), 1.0, nullptr); }},
      {-64, "shift",
       [&] { return VQ_SturmCount(8, rp, ci, k.values.data(), ones.data(), NAN, &count); }},
      {-7, "no mass",
       [&] { return VQ_EffectiveMass(8, 2, phi, ones.data(), zeros.data(), out, out); }},
      {-64, "not positive semi-definite",
       [&] { return VQ_EffectiveMass(8, 2, phi, negative.data(), ones.data(), out, out); }},
      {-7, "no mass",
       [&] { return VQ_EffectiveMass(8, 2, phi, zeros.data(), ones.data(), out, out); }},
      {-64, "modes",
       [&] { return VQ_EffectiveMass(8, -1, phi, ones.data(), ones.data(), out, out); }},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.call(), c.expected) << c.text;
    EXPECT_NE(LastMessage().find(c.text), std::string::npos) << LastMessage();
  }
  EXPECT_EQ(count, 7) << "a failed count leaves the output alone";
  EXPECT_EQ(VQ_EffectiveMass(8, 0, nullptr, ones.data(), ones.data(), nullptr, nullptr), 0);
}

// The switch: off at load, 0 and 1 only; on, Lanczos and FEAST pass on right results of real
// pairs (massless equations included), warn when the modes returned leave gaps, and refuse
// values of an indefinite mass that are not eigenvalues.
TEST_F(EigenVerification, SwitchVerifiesLanczosAndFeast) {
  VQTEST_REQUIRE_DATA();
  EXPECT_EQ(VQ_GetEigenVerification(), 0);
  VQ_SetEigenVerification(1);
  VQ_SetEigenVerification(2);
  EXPECT_EQ(VQ_GetEigenVerification(), 1);
  vqtest::ScratchDir dir;
  for (const Pair& p : RealPairs()) {
    const int n = p.k.n, nev = std::min(12, n / 4);
    std::vector<double> values(nev), modes(static_cast<size_t>(n) * nev);
    int found = 0;
    EXPECT_EQ(Lanczos(p, nev, &found, values, modes, dir), 0) << p.name << ": " << LastMessage();
    EXPECT_EQ(VQ_GetLastWarningID(), 0) << p.name << " Lanczos";
    EXPECT_EQ(found, nev);
    const std::vector<double> lambda = DenseSpectrum(p.k, p.m);
    ASSERT_GT(lambda.size(), static_cast<size_t>(nev)) << p.name << ": no dense reference";
    const int code = VQ_EigenvalueAnalysis_ExtendedSolver(
        n, nev, VQTEST_CSR(p.k), VQTEST_CSR(p.m), 0, -2, dir.Path().c_str(), 0.0,
        0.5 * (lambda[nev - 1] + lambda[nev]), &found, values.data(), 1, modes.data());
    EXPECT_EQ(code, 0) << p.name << " FEAST: " << LastMessage();
    EXPECT_EQ(VQ_GetLastWarningID(), 0) << p.name << " FEAST";
    EXPECT_EQ(found, nev) << p.name << " FEAST";
  }

  // Selector "SM" at shift 0 returns the highest eigenvalues: the ones below them were missed.
  const vqtest::EigenProblem diag = vqtest::DiagonalProblem({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, std::vector<double>(10, 1.0));
  for (int on : {0, 1}) {
    VQ_SetEigenVerification(on);
    std::vector<double> values(2);
    int found = 0;
    EXPECT_EQ(
        VQ_EigenvalueAnalysis_ARPACK(10, 2, VQTEST_CSR(diag.k), diag.lumped.data(), 3, 2, -1,
                                     &found, values.data(), nullptr, 0.0, dir.Path().c_str(), 0),
        0);
    EXPECT_NEAR(values[1], 10.0, 1e-9);
    EXPECT_EQ(VQ_GetLastWarningID(), on ? -23 : 0) << "switch " << on;
  }

  // A positive mass diagonal, an indefinite consistent mass: told, not returned as modes.
  VQ_SetEigenVerification(1);
  const Pair bar = IndefiniteMassBar(60);
  std::vector<double> values(10, 0.0), modes(600);
  int found = -1;
  EXPECT_EQ(Lanczos(bar, 10, &found, values, modes, dir), -64);
  EXPECT_NE(LastMessage().find("M is not positive semi-definite"), std::string::npos) << LastMessage();
  EXPECT_EQ(found, 0);
  EXPECT_EQ(values[0], 0.0);
}

}  // namespace
