// The flat Lanczos entry points VQ_EigenvalueAnalysis_ARPACK … _ARPACK5: argument handling
// (selectors, eigenvalue-only runs, cleared outputs), the registry they leave, and their
// results against known spectra.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "models/FrameModel.h"
#include "support/TestSupport.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

std::string LastMessage() {
  char* text = VQ_GetLastErrorMessage();
  std::string s = text ? text : "";
  std::free(text);
  return s;
}

// K = diag(1…n) reversed, M = diag(2): λ_i = i / 2.
struct DiagonalProblem {
  int n;
  std::vector<double> kd, md;
  Csr k, m;
  explicit DiagonalProblem(int order) : n(order), kd(order), md(order, 2.0) {
    for (int i = 0; i < n; ++i) kd[i] = n - i;
    k = vqtest::DiagonalCsr(kd);
    m = vqtest::DiagonalCsr(md);
  }
};

class LanczosEntryPoints : public ::testing::Test {
 protected:
  void SetUp() override { VQ_InitializeLibrary(); }
  void TearDown() override { VQ_SetSolverMatrixType(-2); }
};

TEST_F(LanczosEntryPoints, DiagonalAndSparseMassGiveTheSameModes) {
  DiagonalProblem d(30);
  std::vector<double> v1(4, 9.0), v2(4, 9.0), s1(30 * 4), s2(30 * 4);
  int f1 = -1, f2 = -1;
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK(30, 4, d.k.rowPointers.data(), d.k.columnIndices.data(),
                                         d.k.values.data(), d.md.data(), 4, 0, -1, &f1, v1.data(),
                                         s1.data(), 0.0, "", 0),
            0)
      << LastMessage();
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK2(30, 4, d.k.rowPointers.data(), d.k.columnIndices.data(),
                                          d.k.values.data(), d.m.rowPointers.data(),
                                          d.m.columnIndices.data(), d.m.values.data(), 4, 0, -1,
                                          &f2, v2.data(), s2.data(), 0.0, nullptr, 0),
            0)
      << LastMessage();
  EXPECT_EQ(f1, 4);
  EXPECT_EQ(f2, 4);
  EXPECT_EQ(VQ_GetLastErrorID(), 0);
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(v1[i], (i + 1) / 2.0, 1e-12);
    EXPECT_NEAR(v2[i], (i + 1) / 2.0, 1e-12);
  }
  EXPECT_LT(vqtest::MOrthonormalityError(d.m, 4, s1.data()), 1e-10);
}

TEST_F(LanczosEntryPoints, SelectorsOutOfRangeTakeTheirDefaults) {
  DiagonalProblem d(20);
  for (int mode : {0, 6, -1, 4}) {
    for (int selector : {-1, 4, 9, 0}) {
      std::vector<double> v(3, 9.0);
      int found = 0;
      // mode → 4 ("LM": nearest the shift), selector → 0 (natural modes)
      ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK(
                    20, 3, d.k.rowPointers.data(), d.k.columnIndices.data(), d.k.values.data(),
                    d.md.data(), mode, selector, -1, &found, v.data(), nullptr, 3.1, "", 0),
                0)
          << mode << " " << selector << ": " << LastMessage();
      EXPECT_NEAR(v[0], 2.5, 1e-12);  // λ = 2.5, 3, 3.5 nearest 3.1
      EXPECT_NEAR(v[2], 3.5, 1e-12);
    }
  }
}

TEST_F(LanczosEntryPoints, SmallestAlgebraicSelectorPicksTheOtherSideOfTheShift) {
  // "SA" on the shift-inverted values 1/(λ − σ) gives the eigenvalues just below σ.
  DiagonalProblem d(20);
  std::vector<double> v(2, 0.0);
  int found = 0;
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK(20, 2, d.k.rowPointers.data(), d.k.columnIndices.data(),
                                         d.k.values.data(), d.md.data(), 1, 0, -1, &found, v.data(),
                                         nullptr, 5.2, "", 0),
            0)
      << LastMessage();
  EXPECT_NEAR(v[0], 4.5, 1e-12);
  EXPECT_NEAR(v[1], 5.0, 1e-12);
}

TEST_F(LanczosEntryPoints, EigenvalueOnlySelectorLeavesTheModeShapesAlone) {
  DiagonalProblem d(16);
  std::vector<double> v(3), shapes(16 * 3, 42.0);
  int found = 0;
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK2(16, 3, d.k.rowPointers.data(), d.k.columnIndices.data(),
                                          d.k.values.data(), d.m.rowPointers.data(),
                                          d.m.columnIndices.data(), d.m.values.data(), 4, 2, -1,
                                          &found, v.data(), shapes.data(), 0.0, "", 0),
            0);
  EXPECT_EQ(found, 3);
  EXPECT_NEAR(v[2], 1.5, 1e-12);
  for (double s : shapes) EXPECT_EQ(s, 42.0);
}

TEST_F(LanczosEntryPoints, StructuralModelWithLumpedMassAndGeometricStiffness) {
  vqmath::models::ColumnParameters c;
  c.elements = 20;
  const vqmath::models::FrameModel column = vqmath::models::FrameModel::PinnedColumn(c);
  const auto& k = column.Stiffness();
  const auto& g = column.GeometricStiffness();
  const std::vector<double>& lumped = column.LumpedMass();
  const int n = k.n;
  std::vector<double> v(3), shapes(static_cast<size_t>(n) * 3);
  int found = 0;
  // Buckling (selector 1) with the mass left out.
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK4(n, 3, k.rowPointers.data(), k.columnIndices.data(),
                                          k.values.data(), nullptr, g.rowPointers.data(),
                                          g.columnIndices.data(), g.values.data(), 4, 1, -1, &found,
                                          v.data(), shapes.data(), 1e6, "", 0),
            0)
      << LastMessage();
  for (int mode = 1; mode <= 3; ++mode)
    EXPECT_LT(vqtest::RelDiff(v[mode - 1], c.EulerLoad(mode)), 1e-3);
  // Natural modes (selector 0) with Kg left out: ω² of the first transverse mode.
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK4(n, 3, k.rowPointers.data(), k.columnIndices.data(),
                                          k.values.data(), lumped.data(), nullptr, nullptr, nullptr,
                                          4, 0, -1, &found, v.data(), shapes.data(), 0.0, "", 0),
            0)
      << LastMessage();
  const double omega = c.NaturalFrequency(1);
  EXPECT_LT(vqtest::RelDiff(v[0], omega * omega), 5e-3);
}

TEST_F(LanczosEntryPoints, IncrementalVariantsMatchOnePass) {
  DiagonalProblem d(40);
  std::vector<double> one(9), inc(9);
  int f1 = 0, f2 = 0;
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK2(40, 9, d.k.rowPointers.data(), d.k.columnIndices.data(),
                                          d.k.values.data(), d.m.rowPointers.data(),
                                          d.m.columnIndices.data(), d.m.values.data(), 4, 0, -1,
                                          &f1, one.data(), nullptr, 0.0, "", 0),
            0);
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK3(40, 9, d.k.rowPointers.data(), d.k.columnIndices.data(),
                                          d.k.values.data(), d.m.rowPointers.data(),
                                          d.m.columnIndices.data(), d.m.values.data(), 4, 0, -1, 4,
                                          &f2, inc.data(), nullptr, 0.0, "", 0),
            0)
      << LastMessage();
  EXPECT_EQ(f2, 9);
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(inc[i], one[i], 1e-12);

  vqmath::models::ColumnParameters c;
  c.elements = 16;
  const auto column = vqmath::models::FrameModel::PinnedColumn(c);
  const auto& k = column.Stiffness();
  const auto& g = column.GeometricStiffness();
  std::vector<double> b(4);
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK5(k.n, 4, k.rowPointers.data(), k.columnIndices.data(),
                                          k.values.data(), g.rowPointers.data(),
                                          g.columnIndices.data(), g.values.data(), 4, 0, -1, 2, &f2,
                                          b.data(), nullptr, 1e6, "", 0),
            0)
      << LastMessage();
  for (int mode = 1; mode <= 4; ++mode)
    EXPECT_LT(vqtest::RelDiff(b[mode - 1], c.EulerLoad(mode)), 2e-3);
}

TEST_F(LanczosEntryPoints, FailuresLeaveCodeAndDriverTextInTheRegistry) {
  DiagonalProblem d(10);
  std::vector<double> v(3, 5.0);
  int found = 7;
  // Buckling without a shift.
  EXPECT_EQ(VQ_EigenvalueAnalysis_ARPACK2(10, 3, d.k.rowPointers.data(), d.k.columnIndices.data(),
                                          d.k.values.data(), d.m.rowPointers.data(),
                                          d.m.columnIndices.data(), d.m.values.data(), 4, 1, -1,
                                          &found, v.data(), nullptr, 0.0, "", 0),
            -46);
  EXPECT_EQ(VQ_GetLastErrorID(), -46);
  EXPECT_EQ(LastMessage(),
            "Cannot use ARPACK buckling mode (mode 4) without a shift (shift cannot be zero)");
  EXPECT_EQ(found, 0);
  for (double x : v) EXPECT_EQ(x, 0.0);  // cleared on entry
  // Block size below two.
  EXPECT_EQ(VQ_EigenvalueAnalysis_ARPACK3(10, 3, d.k.rowPointers.data(), d.k.columnIndices.data(),
                                          d.k.values.data(), d.m.rowPointers.data(),
                                          d.m.columnIndices.data(), d.m.values.data(), 4, 0, -1, 1,
                                          &found, v.data(), nullptr, 0.0, "", 0),
            -46);
  EXPECT_EQ(LastMessage(), "Incremental solver requires block size greater than or equal to 2");
  // No equations.
  EXPECT_EQ(VQ_EigenvalueAnalysis_ARPACK(0, 3, nullptr, nullptr, nullptr, nullptr, 4, 0, -1, &found,
                                         v.data(), nullptr, 0.0, "", 0),
            -46);
  EXPECT_EQ(LastMessage(), "No. of equations N must be positive");
  // Malformed compressed rows: a row pointer that runs backwards.
  std::vector<int> badRows = d.k.rowPointers;
  badRows[3] = 2;
  EXPECT_EQ(VQ_EigenvalueAnalysis_ARPACK(10, 3, badRows.data(), d.k.columnIndices.data(),
                                         d.k.values.data(), d.md.data(), 4, 0, -1, &found, v.data(),
                                         nullptr, 0.0, "", 0),
            -64);
  EXPECT_EQ(VQ_GetLastErrorID(), -64);
}

TEST_F(LanczosEntryPoints, SingularStiffnessRecordsTheInstabilityDof) {
  std::vector<double> kd = {4.0, 1.0, 3.0, 0.0, 2.0, 6.0}, md(6, 1.0);
  const Csr k = vqtest::DiagonalCsr(kd);
  VQ_SetSolverMatrixType(2);
  std::vector<double> v(2);
  int found = 0;
  EXPECT_EQ(VQ_EigenvalueAnalysis_ARPACK(6, 2, k.rowPointers.data(), k.columnIndices.data(),
                                         k.values.data(), md.data(), 4, 0, -1, &found, v.data(),
                                         nullptr, 0.0, "", 0),
            -3);
  EXPECT_EQ(LastMessage(), "Instability Detected (ill-conditioned matrices)");
  EXPECT_EQ(VQ_GetInstabilityDOF(), 4);
}

TEST_F(LanczosEntryPoints, PartialResultsReturnOneWithMinus22) {
  const int n = 400;
  std::vector<double> kd(n), md(n, 1.0);
  for (int i = 0; i < n; ++i) kd[i] = 1.0 + 1e-3 * i;
  const Csr k = vqtest::DiagonalCsr(kd);
  std::vector<double> v(40);
  int found = 0;
  const int r = VQ_EigenvalueAnalysis_ARPACK(n, 40, k.rowPointers.data(), k.columnIndices.data(),
                                             k.values.data(), md.data(), 4, 0, 1, &found, v.data(),
                                             nullptr, 1.2005, "", 0);
  if (r == 0) GTEST_SKIP() << "ARPACK converged within one iteration";
  if (found == 0) GTEST_SKIP() << "nothing converged within one iteration";
  EXPECT_EQ(r, 1);
  EXPECT_EQ(VQ_GetLastErrorID(), -22);
  EXPECT_EQ(LastMessage(), "Not all required EigenValues were found");
  EXPECT_GT(found, 0);
  EXPECT_LT(found, 40);
}

}  // namespace
