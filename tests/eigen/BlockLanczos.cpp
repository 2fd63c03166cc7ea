// Block shift-invert Lanczos: real structural pairs and generated solids against dense LAPACK,
// residuals, repeated eigenvalues with their multiplicity, rigid-body modes below a negative
// shift, buckling of the pinned column against Euler's loads, the Sturm count, the interval
// limit, block sizes, out-of-core factorisation and the input checks of the entry points.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "eigen/VQ_BlockLanczosEigenSolver.h"
#include "models/FrameModel.h"
#include "support/EigenHarness.h"
#include "support/ModelsSupport.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;
using vqtest::EigenProblem;

struct BlockOptions {
  int selector = 0;
  double shift = 0.0;
  int block = 0;
  bool limitActive = false;
  double limit = 0.0;
  bool verify = false;
};

struct BlockRun {
  int code = 0;
  int found = 0;
  int sturm = -2;
  int warning = 0;
  std::vector<double> values, modes;
};

// Runs the entry point that fits the problem (diagonal or sparse second matrix).
BlockRun RunBlock(const Csr& k, const Csr* b, const std::vector<double>* diagonal, int nev,
                  const BlockOptions& o = {}) {
  BlockRun r;
  r.values.assign(static_cast<size_t>(nev), -1.0);
  r.modes.assign(static_cast<size_t>(k.n) * nev, 0.0);
  VQ_SetEigenVerification(o.verify ? 1 : 0);
  if (b)
    r.code = VQ_EigenvalueAnalysis_BlockLanczos2(
        k.n, nev, VQTEST_CSR(k), VQTEST_CSR(*b), o.selector, o.block, 0, &r.found, r.values.data(),
        r.modes.data(), o.shift, o.limitActive ? 1 : 0, o.limit, nullptr, &r.sturm);
  else
    r.code = VQ_EigenvalueAnalysis_BlockLanczos(
        k.n, nev, VQTEST_CSR(k), diagonal->data(), o.block, 0, &r.found, r.values.data(),
        r.modes.data(), o.shift, o.limitActive ? 1 : 0, o.limit, nullptr, &r.sturm);
  VQ_SetEigenVerification(0);
  r.warning = VQ_GetLastWarningID();
  r.values.resize(static_cast<size_t>(std::max(r.found, 0)));
  r.modes.resize(static_cast<size_t>(k.n) * r.values.size());
  return r;
}

BlockRun RunBlock(const EigenProblem& e, int nev, const BlockOptions& o = {}) {
  return e.diagonal() ? RunBlock(e.k, nullptr, &e.lumped, nev, o) : RunBlock(e.k, &e.mass, nullptr, nev, o);
}

// The block method as a method of the eigen harness, residuals scaled by ||K||_1 ||phi|| (zero
// eigenvalues included); *last keeps the whole run for the method's own counts.
vqtest::EigenMethod Block(const BlockOptions& o, BlockRun* last = nullptr) {
  return [o, last](const EigenProblem& e, int nev) {
    const BlockRun r = RunBlock(e, nev, o);
    if (last) *last = r;
    return vqtest::EigenOutcome{r.code, r.values, r.modes};
  };
}

vqtest::EigenCheckOptions Checks(double tolerance = 1e-10) {
  vqtest::EigenCheckOptions c;
  c.valueTolerance = tolerance, c.zeroFloor = 1e-4, c.residualTolerance = 1e-10;
  c.residualByNormOfK = true, c.orthonormalityTolerance = 1e-9;
  return c;
}

// The Sturm count the solver should report: the eigenvalues below a shift just above the largest
// one found (a repeated eigenvalue cut by the count shows up with all its copies).
int ExpectedSturmCount(const EigenProblem& e, const BlockRun& r) {
  const std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
  const double sigma = r.values.back() + 1e-6 * std::fabs(r.values.back());
  return static_cast<int>(std::count_if(reference.begin(), reference.end(), [sigma](double v) { return v < sigma; }));
}

TEST(BlockLanczos, GeneratedSolidsAndRealPairsMatchDenseLapack) {
  // Solids (nx, ny, nz, consistent mass), verified by the Sturm count, then real pairs; modes
  // wanted, block size (0: the library's choice), tolerance on the eigenvalues: bcsstm20's masses
  // span many decades, and dsygv's Cholesky factor of it loses digits that the residual check
  // (1e-10 for every pair) does not.
  const struct {
    const char* number;
    int nx, ny, nz;
    bool consistent;
    int nev, block;
    double tolerance;
  } cases[] = {{nullptr, 6, 2, 2, false, 20, 0, 1e-10}, {nullptr, 5, 2, 3, true, 15, 0, 1e-10},
               {nullptr, 4, 3, 3, false, 30, 0, 1e-10}, {"02", 0, 0, 0, false, 10, 0, 1e-10},
               {"05", 0, 0, 0, false, 20, 0, 1e-10},    {"06", 0, 0, 0, false, 12, 3, 1e-10},
               {"07", 0, 0, 0, false, 25, 0, 1e-10},    {"20", 0, 0, 0, false, 20, 8, 1e-8},
               {"22", 0, 0, 0, false, 15, 0, 1e-10}};
  // Without verification no count is made.
  EXPECT_EQ(RunBlock(vqtest::SolidProblem(4, 2, 2, false), 5).sturm, -1);
  for (const auto& c : cases) {
    EigenProblem e;
    if (c.number) {
      VQTEST_REQUIRE_DATA();
      ASSERT_TRUE(vqtest::RealProblem(c.number, e)) << c.number;
    } else {
      e = vqtest::SolidProblem(c.nx, c.ny, c.nz, c.consistent);
    }
    BlockOptions o;
    o.block = c.block, o.verify = !c.number;
    BlockRun r;
    vqtest::RunEigenChecks(Block(o, &r), e, c.nev, Checks(c.tolerance));
    if (c.number) continue;
    // The count below a shift just above the largest eigenvalue found is the number found (and
    // the other copies of a repeated eigenvalue the count cut).
    EXPECT_EQ(r.sturm, ExpectedSturmCount(e, r)) << c.nx << "x" << c.ny << "x" << c.nz;
    EXPECT_EQ(r.warning, 0);
  }
}

TEST(BlockLanczos, RepeatedEigenvaluesComeOutWithTheirMultiplicity) {
  // A constructed pencil (random rotation of known eigenvalues, M = I) with a triple and pairs,
  // and a bar of square section, whose bending modes come in pairs.
  const std::vector<double> spectrum = {1, 1, 1, 2, 3, 3, 4, 5, 5, 5, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14,
                                        15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30};
  const EigenProblem rotated = vqtest::RotatedProblem(spectrum, 7u);
  for (int block : {4, 5, 0}) {
    BlockOptions o;
    o.block = block, o.verify = true;
    const BlockRun r = RunBlock(rotated, 12, o);
    ASSERT_EQ(r.code, 0);
    ASSERT_EQ(r.found, 12);
    for (int i = 0; i < 12; ++i) EXPECT_NEAR(r.values[i], spectrum[i], 1e-10 * spectrum[i]) << block;
    EXPECT_EQ(r.sturm, 12);
    EXPECT_EQ(r.warning, 0);
  }
  // A block of two may see only two copies of the fourfold eigenvalue 5 (whether rounding brings
  // the others in depends on the kernels): the Sturm count is the true number of eigenvalues up to
  // the largest returned, and any copy left out shows as warning -23.
  BlockOptions small;
  small.block = 2, small.verify = true;
  const BlockRun missed = RunBlock(rotated, 12, small);
  ASSERT_GT(missed.found, 0);
  const double largest = missed.values[static_cast<size_t>(missed.found) - 1];
  const int truth = static_cast<int>(
      std::count_if(spectrum.begin(), spectrum.end(), [&](double v) { return v <= largest * (1 + 1e-6); }));
  EXPECT_EQ(missed.sturm, truth);
  EXPECT_EQ(missed.warning, truth > missed.found ? -23 : 0);
  const EigenProblem bar = vqtest::SolidProblem(8, 2, 2, false);
  BlockRun r;
  vqtest::RunEigenChecks(Block({}, &r), bar, 10, Checks());
  int pairs = 0;
  for (int i = 0; i + 1 < r.found; ++i)
    if (vqtest::RelDiff(r.values[i + 1], r.values[i]) < 1e-8) ++pairs;
  EXPECT_GE(pairs, 2) << "the square bar's bending modes come in pairs";
}

TEST(BlockLanczos, RigidBodyModesAreFoundBelowANegativeShift) {
  // A free solid: six zero eigenvalues, then the elastic ones; lumped and consistent mass.
  for (bool consistent : {false, true}) {
    const EigenProblem e = vqtest::SolidProblem(4, 2, 2, consistent, false);
    const std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
    BlockOptions o;
    o.shift = -0.01 * reference[6], o.verify = true;
    BlockRun r;
    vqtest::RunEigenChecks(Block(o, &r), e, 12, Checks());
    for (int i = 0; i < 6; ++i) EXPECT_LT(std::fabs(r.values[i]), 1e-9 * reference[6]);
    EXPECT_EQ(r.sturm, ExpectedSturmCount(e, r));
    EXPECT_EQ(r.warning, 0);
  }
}

TEST(BlockLanczos, PinnedColumnBucklesAtEulersLoads) {
  vqmath::models::ColumnParameters c;
  c.elements = 40;
  const vqmath::models::FrameModel f = vqmath::models::FrameModel::PinnedColumn(c);
  const Csr k = vqtest::FromModel(f.Stiffness()), kg = vqtest::FromModel(f.GeometricStiffness());
  const std::vector<double> reference = vqtest::DenseEigenvalues(k, kg);
  // Shift 0 (K^-1 Kg) and a shift below the first load (buckling transformation).
  for (double shift : {0.0, 0.5 * c.EulerLoad(1)}) {
    BlockOptions o;
    o.selector = 1, o.shift = shift, o.verify = true;
    const BlockRun r = RunBlock(k, &kg, nullptr, 5, o);
    ASSERT_EQ(r.code, 0) << shift;
    ASSERT_EQ(r.found, 5);
    for (int mode = 1; mode <= 5; ++mode) {
      EXPECT_LT(vqtest::RelDiff(r.values[mode - 1], c.EulerLoad(mode)), 2e-3) << mode;
      EXPECT_NEAR(r.values[mode - 1], reference[mode - 1], 1e-10 * reference[mode - 1]) << mode;
    }
    EXPECT_LE(vqtest::EigenResidual(k, kg, r.found, r.values.data(), r.modes.data(), true), 1e-10);
    EXPECT_EQ(r.sturm, 5) << shift;
    EXPECT_EQ(r.warning, 0);
  }
}

TEST(BlockLanczos, BlockSizesMassFormsLimitAndOutOfCoreAgree) {
  // Any block size (1, odd, the library's, larger than the problem), a diagonal M given as a
  // diagonal or as compressed rows, and PARDISO out of core give the same eigenvalues; the class
  // makes one factorisation per run (two with the Sturm count).
  const EigenProblem e = vqtest::SolidProblem(5, 2, 2, false);
  const Csr m = vqtest::DiagonalCsr(e.lumped);
  const std::vector<double> reference = vqtest::ReferenceEigenvalues(e);
  for (int block : {1, 3, 0, 10000}) {
    BlockOptions o;
    o.block = block;
    for (const BlockRun& r : {RunBlock(e.k, nullptr, &e.lumped, 8, o), RunBlock(e.k, &m, nullptr, 8, o)}) {
      ASSERT_EQ(r.code, 0) << block;
      ASSERT_EQ(r.found, 8);
      for (int i = 0; i < 8; ++i) EXPECT_NEAR(r.values[i], reference[i], 1e-10 * reference[i]);
    }
  }
  vqtest::ScratchDir dir;
  for (const auto& [ooc, verify] : {std::pair<int, bool>{0, false}, {2, true}}) {
    VQ_BlockLanczosEigenSolver s(e.k.n, VQTEST_CSR(e.k), nullptr, nullptr, nullptr, e.lumped.data(),
                                 VQ_BlockLanczosEigenSolver::kNaturalModes, 20, ooc, -2,
                                 dir.Path().c_str());
    s.Set_BlockSize(8);
    s.Set_VerifyWithSturmCount(verify);
    ASSERT_EQ(s.Solve(), 0) << ooc;
    ASSERT_EQ(s.GetNumFoundEigen(), 20);
    EXPECT_EQ(s.Get_Factorizations(), verify ? 2 : 1);
    EXPECT_EQ(s.Get_SturmCount(), verify ? 20 : -1);
    EXPECT_LE(s.Get_LargestResidual(), 1e-10);
    for (int i = 0; i < 20; ++i) EXPECT_NEAR(s.GetEigenValue(i + 1), reference[i], 1e-10 * reference[i]);
  }
  // The interval limit ends the search at the fifth eigenvalue.
  BlockOptions o;
  o.limitActive = true, o.limit = 0.5 * (reference[4] + reference[5]);
  const BlockRun r = RunBlock(e, 12, o);
  EXPECT_EQ(r.code, 0);
  ASSERT_EQ(r.found, 5);
  for (int i = 0; i < 5; ++i) EXPECT_NEAR(r.values[i], reference[i], 1e-10 * reference[i]);
  // Arguments of the block method's own: a negative block size, no eigenvalue array (the rest of
  // the input checks are the malformed-input table's).
  int found = 9, sturm = 9;
  std::vector<double> values(4, 7.0);
  EXPECT_EQ(
      VQ_EigenvalueAnalysis_BlockLanczos(e.k.n, 4, VQTEST_CSR(e.k), e.lumped.data(), -2, 0, &found,
                                         values.data(), nullptr, 0.0, 0, 0.0, nullptr, &sturm),
      -64);
  EXPECT_EQ(
      VQ_EigenvalueAnalysis_BlockLanczos(e.k.n, 4, VQTEST_CSR(e.k), e.lumped.data(), 0, 0, &found,
                                         nullptr, nullptr, 0.0, 0, 0.0, nullptr, &sturm),
      -64);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(sturm, -1);
}

}  // namespace
