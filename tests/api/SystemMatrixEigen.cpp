// Eigenvalue analysis on a system-matrix handle assembled element by element, with the method
// chosen by the handle keys, against dense LAPACK.
#include <algorithm>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "models/CsrMatrix.h"
#include "models/SolidModel.h"
#include "support/ModelsSupport.h"
#include "support/TestSupport.h"
#include "vqmath.h"

namespace {

class SystemMatrixEigen : public ::testing::Test {
 protected:
  void SetUp() override {
    VQ_InitializeLibrary();
    model_ = std::make_unique<vqmath::models::SolidModel>(vqmath::models::SolidParameters{6, 2, 2});
    const int n = model_->NumEquations();
    h_ = vqtest::AssembleHandle(*model_);
    mass_ = vqtest::SysVectorOf(model_->LumpedMass().data(), n);
    reference_ = vqtest::DenseEigenvalues(vqtest::FromModel(model_->Stiffness()),
                                          vqtest::DiagonalCsr(model_->LumpedMass()));
  }
  void TearDown() override {
    VQ_SysMatrixEnd(h_);
    VQ_SysVectorEnd(mass_);
    VQ_SetEigenSolverType(0);
    VQ_SetSubspaceEigenvalueLimits(0, 1000.0);
    VQ_Set_INTEL_MKL_NumberOfThreads(2);
  }
  std::unique_ptr<vqmath::models::SolidModel> model_;
  VQ_SysMatrixHandle h_ = nullptr;
  VQ_SysVectorHandle mass_ = nullptr;
  std::vector<double> reference_;
};

TEST_F(SystemMatrixEigen, HandleArraysAreTheAssembledStiffness) {
  int n = 0;
  const int *rp = nullptr, *ci = nullptr;
  const double* v = nullptr;
  ASSERT_EQ(VQ_SysMatrixGetArrays(h_, &n, &rp, &ci, &v), 0);
  const vqmath::models::CsrMatrix& k = model_->Stiffness();
  ASSERT_EQ(n, k.n);
  int inquired = 0;
  EXPECT_EQ(k.n, VQ_SysMatrixInq(h_, 0, &inquired));
  EXPECT_EQ(k.n, inquired);
  ASSERT_TRUE(std::equal(k.rowPointers.begin(), k.rowPointers.end(), rp));
  ASSERT_TRUE(std::equal(k.columnIndices.begin(), k.columnIndices.end(), ci));
  const double scale = *std::max_element(k.values.begin(), k.values.end());
  for (size_t p = 0; p < k.values.size(); ++p) ASSERT_NEAR(v[p], k.values[p], 1e-12 * scale) << p;
  EXPECT_EQ(VQ_SysMatrixGetArrays(nullptr, &n, &rp, &ci, &v), -64);
}

TEST_F(SystemMatrixEigen, MethodChosenByKey93) {
  const int nev = 4;
  for (int code : {5, 10, 9}) {  // subspace, FEAST, Ritz vectors
    VQ_SysMatrixSetParami(h_, 93, code);
    if (code == 10) VQ_SysMatrixSetParamd(h_, 6, 0.5 * (reference_[3] + reference_[4]));
    std::vector<double> values(nev), shapes(static_cast<size_t>(model_->NumEquations()) * nev);
    int found = 0;
    int status = VQ_SysMatrixEigen(h_, mass_, nev, &found, values.data(), shapes.data());
    ASSERT_EQ(status, 0) << "code " << code << ": " << vqtest::LastError().message;
    ASSERT_EQ(found, nev);
    std::sort(values.begin(), values.end());
    for (int q = 0; q < nev; ++q) {
      if (code == 9)  // Ritz values from a load of ones bound the eigenvalues from above
        EXPECT_GE(values[q], reference_[q] * (1 - 1e-10));
      else
        EXPECT_LT(vqtest::RelDiff(values[q], reference_[q]), 1e-8) << code << " " << q;
    }
    VQ_SetSubspaceEigenvalueLimits(0, 1000.0);
  }
}

TEST_F(SystemMatrixEigen, MassOfTheWrongSizeIsRejected) {
  VQ_SysVectorHandle small = VQ_SysVectorCreate(3, 1.0);
  double values[2] = {4.0, 4.0};
  int found = 7;
  EXPECT_EQ(VQ_SysMatrixEigen(h_, small, 2, &found, values, nullptr), -64);
  EXPECT_EQ(found, 0);
  EXPECT_EQ(values[0], 0.0);
  EXPECT_EQ(VQ_SysMatrixEigen(h_, nullptr, 2, &found, values, nullptr), -64);
  VQ_SysVectorEnd(small);
}

}  // namespace
