// Band search with the single-vector Lanczos (ARPACK) slice solver in place of the default block
// one: the band's eigenvalues against dense LAPACK (dsygv), every slice proven by its inertia
// counts, and M-orthonormal modes; lumped and consistent mass, repeated pairs at slice borders.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <memory>
#include <vector>

#include "eigen/VQ_BandEigenSolver.h"
#include "eigen/internal/SliceSolver.h"
#include "support/EigenSupport.h"

namespace {

struct SliceCase {
  int nx, ny, nz;
  bool consistent;
  int modes;      // the band holds the lowest `modes` eigenvalues
  int sliceSize;
};

class BandArpackSlices : public ::testing::TestWithParam<SliceCase> {};

TEST_P(BandArpackSlices, EigenvaluesAndSliceCountsMatchDsygv) {
  const SliceCase& c = GetParam();
  const vqtest::EigenProblem e = vqtest::SolidProblem(c.nx, c.ny, c.nz, c.consistent);
  const std::vector<double> ev = vqtest::ReferenceEigenvalues(e);
  ASSERT_GT(ev.size(), static_cast<size_t>(c.modes));
  VQ_BandProblem p;
  p.n = e.k.n, p.kRowPointers = e.k.rowPointers.data();
  p.kColumnIndices = e.k.columnIndices.data(), p.kValues = e.k.values.data();
  if (e.diagonal()) {
    p.mDiagonal = e.lumped.data();
  } else {
    p.mRowPointers = e.mass.rowPointers.data();
    p.mColumnIndices = e.mass.columnIndices.data(), p.mValues = e.mass.values.data();
  }
  p.lower = -DBL_MAX, p.upper = 0.5 * (ev[c.modes - 1] + ev[c.modes]);
  ASSERT_GT(ev[c.modes] - ev[c.modes - 1], 1e-6 * ev[c.modes]) << "band edge on a repeated pair";

  VQ_BandEigenSolver band(p);
  band.Set_SliceSize(c.sliceSize);
  band.Set_SliceSolver(std::unique_ptr<vqmath::eigen_internal::SliceSolver>(
      new vqmath::eigen_internal::ArpackSliceSolver()));
  ASSERT_EQ(band.Solve(c.modes + 8), 0) << band.GetErrorMessage();
  ASSERT_EQ(band.GetNumFoundEigen(), c.modes);
  for (int i = 0; i < c.modes; ++i)
    EXPECT_NEAR(band.Eigenvalues()[i], ev[i], 1e-9 * std::fabs(ev[i]) + 1e-9) << i;
  for (const VQ_BandSlice& s : band.Slices()) EXPECT_EQ(s.found, s.countUpper - s.countLower);
  EXPECT_LT(vqtest::MOrthonormalityError(e.MassCsr(), c.modes, band.ModeShapes().data()), 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Solids, BandArpackSlices,
                         ::testing::Values(SliceCase{6, 2, 3, false, 30, 8},
                                           SliceCase{8, 2, 2, true, 50, 6},
                                           SliceCase{12, 2, 2, false, 20, 3}));

}  // namespace
