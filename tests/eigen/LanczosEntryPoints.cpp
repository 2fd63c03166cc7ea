// The flat Lanczos entry points VQ_EigenvalueAnalysis_ARPACK … _ARPACK5: argument handling
// (selectors, eigenvalue-only runs, cleared outputs), the registry they leave, and their
// results against known spectra.
#include <gtest/gtest.h>

#include <vector>

#include "models/FrameModel.h"
#include "support/EigenSupport.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

using vqtest::LastMessage;

// K = diag(kd), M = diag(md), given to the entry points with M as its diagonal (ARPACK) or in
// compressed rows (ARPACK2, ARPACK3).
struct DiagonalProblem {
  vqtest::EigenProblem e;
  Csr m = e.MassCsr();
  int Arpack(int nev, int mode, int selector, int* found, double* values, double* shapes,
             double shift, int maxIterations = -1) const {
    return VQ_EigenvalueAnalysis_ARPACK(e.k.n, nev, VQTEST_CSR(e.k), e.lumped.data(), mode,
                                        selector, maxIterations, found, values, shapes, shift, "",
                                        0);
  }
  int Arpack2(int nev, int selector, int* found, double* values, double* shapes) const {
    return VQ_EigenvalueAnalysis_ARPACK2(e.k.n, nev, VQTEST_CSR(e.k), VQTEST_CSR(m), 4, selector,
                                         -1, found, values, shapes, 0.0, nullptr, 0);
  }
  int Arpack3(int nev, int block, int* found, double* values) const {
    return VQ_EigenvalueAnalysis_ARPACK3(e.k.n, nev, VQTEST_CSR(e.k), VQTEST_CSR(m), 4, 0, -1,
                                         block, found, values, nullptr, 0.0, "", 0);
  }
};

class LanczosEntryPoints : public ::testing::Test {
 protected:
  void SetUp() override { VQ_InitializeLibrary(); }
};

TEST_F(LanczosEntryPoints, DiagonalOrSparseMassOnePassOrIncrementalGiveTheSameModes) {
  // K = diag(40 … 1) (reversed, so that sorting is exercised), M = 2 I: λ_i = i / 2.
  std::vector<double> kd(40);
  for (int i = 0; i < 40; ++i) kd[i] = 40 - i;
  const DiagonalProblem d{vqtest::DiagonalProblem(kd, std::vector<double>(40, 2.0))};
  const int nev = 9;
  std::vector<double> v1(nev, 9.0), v2(nev, 9.0), v3(nev, 9.0), v4(nev, 9.0);
  std::vector<double> s1(40 * nev), s2(40 * nev), untouched(40 * nev, 42.0);
  int f1 = -1, f2 = -1, f3 = -1, f4 = -1;
  ASSERT_EQ(d.Arpack(nev, 4, 0, &f1, v1.data(), s1.data(), 0.0), 0) << LastMessage();
  ASSERT_EQ(d.Arpack2(nev, 0, &f2, v2.data(), s2.data()), 0) << LastMessage();
  EXPECT_EQ(VQ_GetLastErrorID(), 0);
  ASSERT_EQ(d.Arpack2(nev, 2, &f3, v3.data(), untouched.data()), 0);  // eigenvalues only
  ASSERT_EQ(d.Arpack3(nev, 4, &f4, v4.data()), 0) << LastMessage();   // passes of four
  for (int f : {f1, f2, f3, f4}) EXPECT_EQ(f, nev);
  for (int i = 0; i < nev; ++i)
    for (const std::vector<double>* v : {&v1, &v2, &v3, &v4})
      EXPECT_NEAR((*v)[i], (i + 1) / 2.0, 1e-12) << "eigenvalue " << i + 1;
  EXPECT_LT(vqtest::MOrthonormalityError(d.m, nev, s1.data()), 1e-10);
  EXPECT_LT(vqtest::MOrthonormalityError(d.m, nev, s2.data()), 1e-10);
  for (double s : untouched) EXPECT_EQ(s, 42.0);
}

TEST_F(LanczosEntryPoints, FrameModelThroughArpack4AndArpack5) {
  vqmath::models::ColumnParameters c;
  c.elements = 20;
  const auto column = vqmath::models::FrameModel::PinnedColumn(c);
  const auto& k = column.Stiffness();
  const auto& g = column.GeometricStiffness();
  const int n = k.n;
  std::vector<double> v(4), shapes(static_cast<size_t>(n) * 3);
  int found = 0;
  // Buckling (selector 1) with the mass left out.
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK4(n, 3, VQTEST_CSR(k), nullptr, VQTEST_CSR(g), 4, 1, -1,
                                          &found, v.data(), shapes.data(), 1e6, "", 0),
            0)
      << LastMessage();
  for (int mode = 1; mode <= 3; ++mode)  // n²·π²EI/L²
    EXPECT_LT(vqtest::RelDiff(v[mode - 1], c.EulerLoad(mode)), 1e-3);
  const std::vector<double> single = v;
  // Natural modes (selector 0) with Kg left out: ω² of the first transverse mode.
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK4(n, 3, VQTEST_CSR(k), column.LumpedMass().data(), nullptr,
                                          nullptr, nullptr, 4, 0, -1, &found, v.data(),
                                          shapes.data(), 0.0, "", 0),
            0)
      << LastMessage();
  const double omega = c.NaturalFrequency(1);
  EXPECT_LT(vqtest::RelDiff(v[0], omega * omega), 5e-3);
  // Buckling in passes of two: the same loads as in one pass, and the fourth.
  ASSERT_EQ(VQ_EigenvalueAnalysis_ARPACK5(n, 4, VQTEST_CSR(k), VQTEST_CSR(g), 4, 0, -1, 2, &found,
                                          v.data(), nullptr, 1e6, "", 0),
            0)
      << LastMessage();
  ASSERT_EQ(found, 4);
  for (int mode = 1; mode <= 3; ++mode) EXPECT_LT(vqtest::RelDiff(v[mode - 1], single[mode - 1]), 1e-9);
  EXPECT_LT(vqtest::RelDiff(v[3], c.EulerLoad(4)), 2e-3);
}

TEST_F(LanczosEntryPoints, PartialResultsReturnOneWithMinus22) {
  // Five separated eigenvalues below a tight cluster; one restart cycle allowed.
  std::vector<double> kd = {1.0, 2.0, 3.0, 4.0, 5.0};
  for (int i = 0; i < 400; ++i) kd.push_back(100.0 + 1e-3 * i);
  const DiagonalProblem d{vqtest::DiagonalProblem(kd, std::vector<double>(kd.size(), 1.0))};
  std::vector<double> v(40, -1.0);
  int found = 0;
  EXPECT_EQ(d.Arpack(40, 4, 0, &found, v.data(), nullptr, 0.0, 1), 1);
  EXPECT_EQ(VQ_GetLastErrorID(), -22);
  EXPECT_EQ(LastMessage(), "Not all required EigenValues were found");
  ASSERT_EQ(found, 5);
  for (int q = 0; q < 5; ++q) EXPECT_NEAR(v[q], q + 1.0, 1e-9);
}

}  // namespace
