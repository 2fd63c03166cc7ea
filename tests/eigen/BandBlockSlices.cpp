// Band search with the block Lanczos slice solver on each slice's own factorisation: the band's
// eigenvalues against dense LAPACK (dsygv), every slice proven by its inertia counts, and
// M-orthonormal modes; lumped and consistent mass, slices with repeated pairs at their borders.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <memory>
#include <vector>

#include "eigen/VQ_BandEigenSolver.h"
#include "eigen/internal/BlockSliceSolver.h"
#include "support/EigenSupport.h"

namespace {

struct BlockSliceCase {
  int nx, ny, nz;
  bool consistent;
  int modes;      // the band holds the lowest `modes` eigenvalues
  int sliceSize;
};

class BandBlockSlices : public ::testing::TestWithParam<BlockSliceCase> {};

TEST_P(BandBlockSlices, EigenvaluesAndSliceCountsMatchDsygv) {
  const BlockSliceCase& c = GetParam();
  const vqtest::EigenProblem e = vqtest::SolidProblem(c.nx, c.ny, c.nz, c.consistent);
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  ASSERT_GT(ev.size(), static_cast<size_t>(c.modes));
  VQ_BandProblem p;
  vqmath::eigen_internal::PencilArrays pencil;
  p.n = pencil.n = e.k.n, p.kRowPointers = pencil.kRowPointers = e.k.rowPointers.data();
  p.kColumnIndices = pencil.kColumnIndices = e.k.columnIndices.data();
  p.kValues = pencil.kValues = e.k.values.data();
  if (e.diagonal()) {
    p.mDiagonal = pencil.mDiagonal = e.lumped.data();
  } else {
    p.mRowPointers = pencil.mRowPointers = e.mass.rowPointers.data();
    p.mColumnIndices = pencil.mColumnIndices = e.mass.columnIndices.data();
    p.mValues = pencil.mValues = e.mass.values.data();
  }
  p.lower = -DBL_MAX, p.upper = 0.5 * (ev[c.modes - 1] + ev[c.modes]);
  ASSERT_GT(ev[c.modes] - ev[c.modes - 1], 1e-6 * ev[c.modes]) << "band edge on a repeated pair";

  VQ_BandEigenSolver band(p);
  band.Set_SliceSize(c.sliceSize);
  band.Set_SliceSolver(std::unique_ptr<vqmath::eigen_internal::SliceSolver>(
      new vqmath::eigen_internal::BlockSliceSolver(pencil)));
  ASSERT_EQ(band.Solve(c.modes + 8), 0) << band.GetErrorMessage();
  ASSERT_EQ(band.GetNumFoundEigen(), c.modes);
  for (int i = 0; i < c.modes; ++i)
    EXPECT_NEAR(band.Eigenvalues()[i], ev[i], 1e-9 * std::fabs(ev[i]) + 1e-9) << i;
  for (const VQ_BandSlice& s : band.Slices()) EXPECT_EQ(s.found, s.countUpper - s.countLower);
  EXPECT_LT(vqtest::MOrthonormalityError(e.MassCsr(), c.modes, band.ModeShapes().data()), 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Solids, BandBlockSlices,
                         ::testing::Values(BlockSliceCase{6, 2, 3, false, 30, 8},
                                           BlockSliceCase{8, 2, 2, true, 50, 6},
                                           BlockSliceCase{12, 2, 2, false, 20, 3}));

}  // namespace
