// vqsolve buckling, run as a program: the pinned column against Euler's loads, matrix files of a
// portal frame against dense LAPACK for every method, and the picture of the buckling modes. A
// generated solid, which has no geometric stiffness, is among the usage errors.


#include "VqsolveRunner.h"
#include "models/FrameModel.h"
#include "support/ModelsSupport.h"
#include "support/TestSupport.h"

using namespace vqsolve_test;

namespace {

using VqsolveBuckling = VqsolveTest;

TEST_F(VqsolveBuckling, PinnedColumnBucklesAtEulersLoads) {
  // The model vqsolve generates: 20 elements, unit compression, so the factors are loads.
  vqmath::models::ColumnParameters p;
  p.elements = 20;
  const Json report =
      RunJson({"buckling", "--model", "column", "-n", "3", "--svg", File("column.svg")});
  const std::vector<double> factors = report["factors"].Numbers();
  ASSERT_EQ(factors.size(), 3u);
  for (int mode = 1; mode <= 3; ++mode)
    EXPECT_LT(vqtest::RelDiff(factors[mode - 1], p.EulerLoad(mode)), 2e-5 * mode * mode) << mode;
  EXPECT_TRUE(report["sturm"]["passed"].boolean);
  EXPECT_EQ(report["sturm"]["eigenvaluesBelowShift"].number, 3);

  const XmlCheck svg = CheckXml(vqtest::FileBytes(File("column.svg")));
  EXPECT_TRUE(svg.wellFormed) << svg.problem;
  EXPECT_EQ(svg.panels, 3);
}

TEST_F(VqsolveBuckling, PortalFrameFilesAgreeWithDenseLapackForEveryMethod) {
  vqmath::models::PortalParameters p;
  const auto frame = vqmath::models::FrameModel::PortalFrame(p);
  ASSERT_TRUE(vqmath::models::WriteMatrixMarket(frame.Stiffness(), File("K.mtx")));
  ASSERT_TRUE(vqmath::models::WriteMatrixMarket(frame.GeometricStiffness(), File("Kg.mtx")));
  // Kg is only positive semi-definite (the beam carries no force): the reference solves the
  // inverse form Kg phi = mu K phi, lambda = 1 / mu.
  const std::vector<double> reference = vqtest::DenseEigenvalues(
      vqtest::FromModel(frame.Stiffness()), vqtest::FromModel(frame.GeometricStiffness()));
  ASSERT_GE(reference.size(), 4u);
  for (const char* method : {"lanczos", "subspace", "lapack", "block"}) {
    const Json report = RunJson(
        {"buckling", "-K", File("K.mtx"), "-G", File("Kg.mtx"), "-n", "4", "--method", method});
    EXPECT_EQ(report["method"].text, method);
    const std::vector<double> factors = report["factors"].Numbers();
    ASSERT_EQ(factors.size(), 4u) << method;
    for (size_t q = 0; q < 4; ++q)
      EXPECT_LT(vqtest::RelDiff(factors[q], reference[q]), 1e-8) << method << " " << q;
    EXPECT_TRUE(report["sturm"]["passed"].boolean) << method;
  }
}

}  // namespace
