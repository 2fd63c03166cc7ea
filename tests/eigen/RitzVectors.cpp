// Load-dependent Ritz vectors: M-orthonormality, estimates bounding the true eigenvalues from
// above and converging as the count grows, effective mass reaching 1, the generation variants
// and options, and the failures.
#include <gtest/gtest.h>
#include <mkl_lapacke.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "dense/VQ_ColVector.h"
#include "eigen/VQ_LDRitzVectors.h"
#include "models/SolidModel.h"
#include "support/TestSupport.h"

namespace {

using vqtest::Csr;

Csr FromModel(const vqmath::models::CsrMatrix& a) {
  Csr c;
  c.n = a.n;
  c.rowPointers = a.rowPointers;
  c.columnIndices = a.columnIndices;
  c.values = a.values;
  return c;
}

// A load pattern that reaches every mode.
std::vector<double> GenericLoad(int n) {
  std::vector<double> f(n);
  for (int i = 0; i < n; ++i) f[i] = 1.0 + 0.5 * std::sin(0.7 * i) + 0.25 * std::cos(1.9 * i);
  return f;
}

class RitzVectors : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    vqmath::models::SolidParameters sp;
    sp.nx = 5;
    sp.ny = 2;
    sp.nz = 2;
    sp.hy = 0.15;  // rectangular: no repeated eigenvalues
    const vqmath::models::SolidModel model(sp);
    k_ = new Csr(FromModel(model.Stiffness()));
    mass_ = new std::vector<double>(model.LumpedMass());
    m_ = new Csr(vqtest::DiagonalCsr(*mass_));
    reference_ = new std::vector<double>(vqtest::DenseEigenvalues(*k_, *m_));
  }
  static void TearDownTestSuite() {
    delete k_;
    delete mass_;
    delete m_;
    delete reference_;
  }

  VQ_LDRitzVectors* Make(bool limit = false, double limitValue = 0.0) {
    return new VQ_LDRitzVectors(k_->n, k_->rowPointers.data(), k_->columnIndices.data(),
                                k_->values.data(), mass_->data(), 0, -2, limit, limitValue);
  }
  int N() const { return k_->n; }
  std::vector<double> Estimates(VQ_LDRitzVectors& r) {
    VQ_ColVector& e = r.GetEstEigVals();
    return std::vector<double>(e.GetDataPointer(), e.GetDataPointer() + e.NumRows());
  }
  std::vector<double> Vectors(VQ_LDRitzVectors& r) {
    VQ_Matrix* v = r.GetVectorsPtr();
    return std::vector<double>(
        v->GetDataPointer(),
        v->GetDataPointer() + static_cast<size_t>(v->NumRows()) * v->NumCols());
  }

  static Csr* k_;
  static Csr* m_;
  static std::vector<double>* mass_;
  static std::vector<double>* reference_;
};

Csr* RitzVectors::k_ = nullptr;
Csr* RitzVectors::m_ = nullptr;
std::vector<double>* RitzVectors::mass_ = nullptr;
std::vector<double>* RitzVectors::reference_ = nullptr;

TEST_F(RitzVectors, VectorsAreMOrthonormalAndKOrthogonal) {
  std::unique_ptr<VQ_LDRitzVectors> r(Make());
  VQ_ColVector load(GenericLoad(N()));
  for (bool lanczos : {false, true}) {
    const int status =
        lanczos ? r->SolveLWYD(12, "", nullptr, &load, 0) : r->SolveWYD(12, "", nullptr, &load, 0);
    ASSERT_EQ(status, 0) << r->GetErrorMessage();
    ASSERT_EQ(r->GetVectorsPtr()->NumCols(), 12);
    const std::vector<double> phi = Vectors(*r);
    EXPECT_LT(vqtest::MOrthonormalityError(*m_, 12, phi.data()), 1e-10);
    // φᵢᵀ·K·φⱼ = λᵢ·δᵢⱼ.
    const std::vector<double> est = Estimates(*r);
    std::vector<double> kp(N());
    for (int a = 0; a < 12; ++a) {
      vqtest::Multiply(*k_, &phi[static_cast<size_t>(a) * N()], kp.data());
      for (int b = 0; b < 12; ++b) {
        double d = 0;
        for (int i = 0; i < N(); ++i) d += phi[static_cast<size_t>(b) * N() + i] * kp[i];
        EXPECT_NEAR(d, a == b ? est[a] : 0.0, 1e-9 * est[11]) << a << "," << b;
      }
    }
    EXPECT_TRUE(std::is_sorted(est.begin(), est.end()));
  }
}

TEST_F(RitzVectors, EstimatesApproachTheLowestEigenvaluesFromAbove) {
  std::unique_ptr<VQ_LDRitzVectors> r(Make());
  VQ_ColVector load(GenericLoad(N()));
  const std::vector<double>& lambda = *reference_;
  std::vector<double> previous;
  for (int count : {3, 6, 12, 24, 48}) {
    ASSERT_EQ(r->SolveWYD(count, "", nullptr, &load, 0), 0) << r->GetErrorMessage();
    const std::vector<double> est = Estimates(*r);
    ASSERT_EQ(est.size(), static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)  // Ritz values bound the eigenvalue of the same index
      EXPECT_GE(est[i], lambda[i] * (1 - 1e-10)) << "count " << count << ", estimate " << i;
    for (size_t i = 0; i < previous.size() && i < 3; ++i)  // and come down as the space grows
      EXPECT_LE(est[i], previous[i] * (1 + 1e-12)) << "count " << count << ", estimate " << i;
    previous = est;
  }
  for (int i = 0; i < 5; ++i)
    EXPECT_LT(vqtest::RelDiff(previous[i], lambda[i]), 1e-8) << "estimate " << i;
  // Converged pairs have small residuals.
  VQ_ColVector e1 = r->GetErrNorm1();
  for (int i = 1; i <= 5; ++i) EXPECT_LT(e1[i], 1e-6) << i;
}

TEST_F(RitzVectors, EffectiveMassRatioReachesOneAtTheMassDegreesOfFreedom) {
  std::unique_ptr<VQ_LDRitzVectors> r(Make());
  VQ_ColVector load(GenericLoad(N()));
  ASSERT_EQ(r->SolveWYD(8, "", nullptr, &load, 0), 0);
  VQ_ColVector few = r->GetMeffRatios();
  EXPECT_LT(few[8], 0.9999);
  for (int i = 2; i <= 8; ++i) EXPECT_GE(few[i], few[i - 1]);

  // As many as there are mass degrees of freedom (all of them here).
  ASSERT_EQ(r->SolveWYD(N() + 10, "", nullptr, &load, 0), 0) << r->GetErrorMessage();
  const int q = r->GetVectorsPtr()->NumCols();
  EXPECT_LE(q, N());
  VQ_ColVector all = r->GetMeffRatios();
  EXPECT_NEAR(all[q], 1.0, 1e-9);
  VQ_ColVector e2 = r->GetErrNorm2();
  EXPECT_LT(e2[q], 1e-8);  // the load is represented completely
  EXPECT_GT(e2[1], e2[q]);
  // Against an independent computation: Γ₁²/(fᵀMf) of the first vector.
  const std::vector<double> phi = Vectors(*r);
  double gamma = 0, total = 0;
  for (int i = 0; i < N(); ++i) {
    gamma += phi[i] * (*mass_)[i] * load[i + 1];
    total += load[i + 1] * (*mass_)[i] * load[i + 1];
  }
  EXPECT_NEAR(all[1], gamma * gamma / total, 1e-12);
}

TEST_F(RitzVectors, MoreVectorsThanMassTermsGiveThatManyVectors) {
  VQTEST_REQUIRE_DATA();
  Csr k, m;
  ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile("bcsstk01.mtx"), k));
  ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile("bcsstm01.mtx"), m));
  std::vector<double> d = vqtest::Diagonal(m);
  int massTerms = 0;
  for (double x : d) massTerms += std::fabs(x) > 1e-8;
  ASSERT_EQ(massTerms, 24);
  VQ_LDRitzVectors r(k.n, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), d.data(),
                     0, -2, false, 0.0);
  VQ_ColVector load(GenericLoad(k.n));
  ASSERT_EQ(r.SolveWYD(40, "", nullptr, &load, 0), 0) << r.GetErrorMessage();
  EXPECT_EQ(r.GetVectorsPtr()->NumCols(), 24);
  // The mass fully represented; the estimates bound the 24 finite eigenvalues from above, and
  // the lowest ones are converged. (A basis as large as the mass space is built from vectors
  // that cancel heavily in the Gram–Schmidt passes, so its highest directions are not exact.)
  const std::vector<double> lambda = vqtest::DenseEigenvalues(k, m);
  VQ_ColVector& est = r.GetEstEigVals();
  for (int i = 0; i < 24; ++i) EXPECT_GE(est[i + 1], lambda[i] * (1 - 1e-9)) << i;
  for (int i = 0; i < 10; ++i) EXPECT_LT(vqtest::RelDiff(est[i + 1], lambda[i]), 1e-6) << i;
  EXPECT_NEAR(r.GetMeffRatios()[24], 1.0, 1e-9);
}

TEST_F(RitzVectors, ForceVectorKindEqualsPatternTimesMass) {
  // Kind 1 with F = M·f spans the same space as kind 0 with f.
  const std::vector<double> f = GenericLoad(N());
  std::vector<double> force(N());
  for (int i = 0; i < N(); ++i) force[i] = (*mass_)[i] * f[i];
  std::unique_ptr<VQ_LDRitzVectors> a(Make()), b(Make());
  VQ_ColVector pattern(f), given(force);
  ASSERT_EQ(a->SolveWYD(10, "", nullptr, &pattern, 0), 0);
  ASSERT_EQ(b->SolveWYD(10, "", nullptr, &given, 1), 0);
  const std::vector<double> ea = Estimates(*a), eb = Estimates(*b);
  for (int i = 0; i < 10; ++i) EXPECT_LT(vqtest::RelDiff(eb[i], ea[i]), 1e-9) << i;
  // Without a load vector, ones stand in: the same as a pattern of ones.
  std::unique_ptr<VQ_LDRitzVectors> c(Make()), d(Make());
  VQ_ColVector ones(std::vector<double>(N(), 1.0));
  ASSERT_EQ(c->SolveWYD(6, "", nullptr, nullptr, 1), 0);
  ASSERT_EQ(d->SolveWYD(6, "", nullptr, &ones, 0), 0);
  for (int i = 1; i <= 6; ++i)
    EXPECT_NEAR(c->GetEstEigVals()[i], d->GetEstEigVals()[i], 1e-9 * d->GetEstEigVals()[i]);
}

TEST_F(RitzVectors, LanczosVariantSpansTheSameSpace) {
  std::unique_ptr<VQ_LDRitzVectors> a(Make()), b(Make());
  VQ_ColVector load(GenericLoad(N()));
  a->SetStaticCorrectionOption(false);
  b->SetStaticCorrectionOption(false);
  ASSERT_EQ(a->SolveWYD(15, "", nullptr, &load, 0), 0);
  ASSERT_EQ(b->SolveLWYD(15, "", nullptr, &load, 0), 0);
  const std::vector<double> ea = Estimates(*a), eb = Estimates(*b);
  for (int i = 0; i < 15; ++i) EXPECT_LT(vqtest::RelDiff(eb[i], ea[i]), 1e-7) << i;
}

TEST_F(RitzVectors, StaticCorrectionPutsTheStaticResponseIntoTheBasis) {
  // With the option on the count-2 basis is {K⁻¹·M·f, K⁻¹·f}: K⁻¹·f lies in the span.
  const std::vector<double> f = GenericLoad(N());
  VQ_ColVector load(f);
  // u = K⁻¹·f by a dense solve of the reference.
  std::vector<double> dense = vqtest::Dense(*k_);
  std::vector<double> u = f;
  {
    std::vector<int> ipiv(N());
    ASSERT_EQ(
        LAPACKE_dgesv(LAPACK_COL_MAJOR, N(), 1, dense.data(), N(), ipiv.data(), u.data(), N()), 0);
  }
  auto spanError = [&](VQ_LDRitzVectors& r) {
    // ‖u − Φ·Φᵀ·M·u‖_M / ‖u‖_M
    const std::vector<double> phi = Vectors(r);
    const int q = r.GetVectorsPtr()->NumCols();
    std::vector<double> rest = u;
    for (int j = 0; j < q; ++j) {
      double c = 0;
      for (int i = 0; i < N(); ++i) c += phi[static_cast<size_t>(j) * N() + i] * (*mass_)[i] * u[i];
      for (int i = 0; i < N(); ++i) rest[i] -= c * phi[static_cast<size_t>(j) * N() + i];
    }
    double a = 0, b = 0;
    for (int i = 0; i < N(); ++i) {
      a += rest[i] * (*mass_)[i] * rest[i];
      b += u[i] * (*mass_)[i] * u[i];
    }
    return std::sqrt(a / b);
  };
  std::unique_ptr<VQ_LDRitzVectors> on(Make()), off(Make());
  on->SetStaticCorrectionOption(true);
  off->SetStaticCorrectionOption(false);
  ASSERT_EQ(on->SolveLWYD(2, "", nullptr, &load, 0), 0) << on->GetErrorMessage();
  ASSERT_EQ(off->SolveLWYD(2, "", nullptr, &load, 0), 0);
  EXPECT_LT(spanError(*on), 1e-10);
  EXPECT_GT(spanError(*off), 1e-3);
  // The plain variant never adds it.
  std::unique_ptr<VQ_LDRitzVectors> wyd(Make());
  ASSERT_EQ(wyd->SolveWYD(2, "", nullptr, &load, 0), 0);
  EXPECT_GT(spanError(*wyd), 1e-3);
}

TEST_F(RitzVectors, SelectiveReorthogonalizationOffMeansOnePassPerVector) {
  std::unique_ptr<VQ_LDRitzVectors> r(Make());
  VQ_ColVector load(GenericLoad(N()));
  r->SetSelectiveReorthogonalization(false);
  ASSERT_EQ(r->SolveWYD(20, "", nullptr, &load, 0), 0);
  EXPECT_EQ(r->GetNumberOfGramSchmidtPasses(), 19);
  r->SetSelectiveReorthogonalization(true);
  ASSERT_EQ(r->SolveWYD(20, "", nullptr, &load, 0), 0);
  EXPECT_GE(r->GetNumberOfGramSchmidtPasses(), 19);
  EXPECT_LT(vqtest::MOrthonormalityError(*m_, 20, Vectors(*r).data()), 1e-10);
}

TEST_F(RitzVectors, WithoutKOrthogonalisationTheGeneratedVectorsAreDelivered) {
  std::unique_ptr<VQ_LDRitzVectors> r(Make());
  VQ_ColVector load(GenericLoad(N()));
  r->SetOrthogonalizeVwrtKOption(false);
  ASSERT_EQ(r->SolveWYD(6, "", nullptr, &load, 0), 0);
  const std::vector<double> phi = Vectors(*r);
  const std::vector<double> est = Estimates(*r);
  EXPECT_LT(vqtest::MOrthonormalityError(*m_, 6, phi.data()), 1e-10);
  EXPECT_TRUE(std::is_sorted(est.begin(), est.end()));
  // Each estimate is its vector's Rayleigh quotient.
  std::vector<double> kp(N());
  for (int a = 0; a < 6; ++a) {
    vqtest::Multiply(*k_, &phi[static_cast<size_t>(a) * N()], kp.data());
    double d = 0;
    for (int i = 0; i < N(); ++i) d += phi[static_cast<size_t>(a) * N() + i] * kp[i];
    EXPECT_NEAR(d, est[a], 1e-10 * est[a]);
  }
}

TEST_F(RitzVectors, LimitDropsEstimatesAboveIt) {
  VQ_ColVector load(GenericLoad(N()));
  std::unique_ptr<VQ_LDRitzVectors> full(Make());
  ASSERT_EQ(full->SolveWYD(10, "", nullptr, &load, 0), 0);
  const std::vector<double> est = Estimates(*full);
  const double limit = 0.5 * (est[3] + est[4]);
  std::unique_ptr<VQ_LDRitzVectors> limited(Make(true, limit));
  ASSERT_EQ(limited->SolveWYD(10, "", nullptr, &load, 0), 0);
  EXPECT_EQ(limited->GetEstEigVals().NumRows(), 4);
  EXPECT_EQ(limited->GetVectorsPtr()->NumCols(), 4);
  std::unique_ptr<VQ_LDRitzVectors> none(Make(true, est[0] * 0.5));
  EXPECT_EQ(none->SolveWYD(10, "", nullptr, &load, 0), -40);
}

TEST_F(RitzVectors, PrintMatricesWritesBothMatrixMarketFiles) {
  std::unique_ptr<VQ_LDRitzVectors> r(Make());
  const std::string folder = ::testing::TempDir();
  r->PrintMatrices(folder.c_str());
  for (const char* name : {"MASSMatrix.mtx", "STIFFNESSMatrix.mtx"}) {
    Csr read;
    std::string error;
    ASSERT_TRUE(vqtest::ReadMtx(folder + name, read, &error)) << name << ": " << error;
    const Csr& expected = std::string(name) == "MASSMatrix.mtx" ? *m_ : *k_;
    ASSERT_EQ(read.n, expected.n);
    EXPECT_EQ(read.rowPointers, expected.rowPointers) << name;
    // Values as written (12 significant digits), against the matrix's largest entry.
    double scale = 0.0;
    for (double v : expected.values) scale = std::max(scale, std::fabs(v));
    for (int i = 0; i < read.nnz(); ++i)
      EXPECT_NEAR(read.values[i], expected.values[i], 1e-11 * scale) << name;
    std::remove((folder + name).c_str());
  }
}

// ---- failures and mappings
// ------------------------------------------------------------------------

bool CancelAtThree(int count, double) { return count < 3; }

TEST_F(RitzVectors, ProgressCallbackCancels) {
  std::unique_ptr<VQ_LDRitzVectors> r(Make());
  EXPECT_EQ(r->SolveWYD(10, "", CancelAtThree, nullptr, 0), -2);
  EXPECT_EQ(r->GetErrorMessage(), "Analysis Canceled by User");
}

TEST(RitzFailures, NoMassFails) {
  const Csr k = vqtest::DiagonalCsr({2.0, 3.0, 4.0});
  std::vector<double> m = {1e-9, 0.0, -1e-9};
  VQ_LDRitzVectors r(3, const_cast<int*>(k.rowPointers.data()),
                     const_cast<int*>(k.columnIndices.data()), const_cast<double*>(k.values.data()),
                     m.data(), 0, -2, false, 0.0);
  EXPECT_EQ(r.SolveWYD(2, "", nullptr, nullptr, 0), -40);
  EXPECT_EQ(r.GetStatus(), -40);
  EXPECT_EQ(r.GetErrorMessage(), "Failed to Find Ritz Vectors");
  EXPECT_EQ(r.SolveLWYD(0, "", nullptr, nullptr, 0), -40);
}

TEST(RitzFailures, SingularStiffnessReportsTheEquation) {
  Csr k = vqtest::DiagonalCsr({2.0, 3.0, 0.0, 4.0});
  std::vector<double> m(4, 1.0);
  VQ_LDRitzVectors r(4, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), m.data(), 0,
                     2, false, 0.0);
  EXPECT_EQ(r.SolveWYD(2, "", nullptr, nullptr, 0), -3);
  EXPECT_EQ(r.GetErrorMessage(), "Instability Detected (ill-conditioned matrices)");
  EXPECT_EQ(r.Get_DOFNumForInstability(), 3);
}

TEST(RitzFailures, ErrorMappings) {
  Csr k = vqtest::DiagonalCsr({1.0, 2.0});
  std::vector<double> m(2, 1.0);
  VQ_LDRitzVectors r(2, k.rowPointers.data(), k.columnIndices.data(), k.values.data(), m.data(), 0,
                     -2, false, 0.0);
  struct Row {
    int code, status;
    const char* text;
  };
  for (const Row& row :
       {Row{-3, -2, "Analysis Canceled by User"},
        Row{-1, -3, "Instability Detected (ill-conditioned matrices)"},
        Row{-4, -1, "Memory Allocation Error (insuffcient memory)"},
        Row{-5, -1, "Memory Allocation Error (insuffcient memory)"},
        Row{-6, -40, "Failed to Find Ritz Vectors"}, Row{-8, -40, "Failed to Find Ritz Vectors"}}) {
    r.ResolveError(nullptr, row.code);
    EXPECT_EQ(r.GetStatus(), row.status) << row.code;
    EXPECT_EQ(r.GetErrorMessage(), row.text) << row.code;
  }
  r.ResolveError(nullptr, 0);  // unchanged
  EXPECT_EQ(r.GetStatus(), -40);
  for (const Row& row : {Row{-2, -2, "Analysis Canceled by User"},
                         Row{-3, -3, "Instability Detected (ill-conditioned matrices)"},
                         Row{-7, -40, "Failed to Find Ritz Vectors"}}) {
    r.ResolveError(row.code);
    EXPECT_EQ(r.GetStatus(), row.status);
    EXPECT_EQ(r.GetErrorMessage(), row.text);
  }
  r.ResolveError(0);
  EXPECT_EQ(r.GetStatus(), 0);
  int n = 9;
  r.CheckNumReqEigens(7, 12, n);
  EXPECT_EQ(n, 7);
  bool a = false, b = false, c = false;
  r.GetParameters(a, b, c);
  EXPECT_TRUE(a && b && c);
  r.SetParameters(false, true, false);
  r.GetParameters(a, b, c);
  EXPECT_FALSE(a);
  EXPECT_TRUE(b);
  EXPECT_FALSE(c);
}

}  // namespace
