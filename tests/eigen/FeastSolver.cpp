// FEAST interval solver: the eigenvalues inside [Emin, Emax] against dense LAPACK, the search in
// sub-intervals, subspace growth, the user parameters and the error table.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "dense/VQ_Matrix.h"
#include "eigen/VQ_ExtendedEigenSparseSolver.h"
#include "models/SolidModel.h"
#include "support/EigenHarness.h"
#include "support/ModelsSupport.h"

namespace {

using vqtest::Csr;

// A small clamped solid with a consistent mass and its dense reference spectrum. The
// cross-section is rectangular so that no eigenvalue is repeated and every midpoint between two
// neighbours is a clean interval bound.
struct Problem {
  Csr k, m;
  std::vector<double> reference;
  Problem() {
    vqmath::models::SolidParameters sp;
    sp.nx = 6, sp.ny = 3, sp.nz = 2, sp.hy = 0.15, sp.consistentMass = true;
    const vqmath::models::SolidModel model(sp);
    k = vqtest::FromModel(model.Stiffness());
    m = vqtest::FromModel(model.ConsistentMass());
    reference = vqtest::DenseEigenvalues(k, m);
  }
};

Problem& Shared() {
  static Problem p;
  return p;
}

void ExpectSame(const std::vector<double>& found, const std::vector<double>& expected) {
  ASSERT_EQ(found.size(), expected.size());
  for (size_t i = 0; i < found.size(); ++i)
    EXPECT_LT(vqtest::RelDiff(found[i], expected[i]), 1e-9)
        << "value " << i << ": " << found[i] << " vs " << expected[i];
}

class FeastSolver : public ::testing::Test {
 protected:
  Csr& k_ = Shared().k;
  Csr& m_ = Shared().m;
  const std::vector<double>& ref_ = Shared().reference;
  VQ_ExtendedEigenSparseSolver s_ = Make();
  std::vector<double> values_;
  VQ_Matrix vectors_;

  // A solver of K·φ = λ·M·φ over the compressed rows.
  VQ_ExtendedEigenSparseSolver Make() {
    return VQ_ExtendedEigenSparseSolver(k_.n, VQTEST_CSR(k_), VQTEST_CSR(m_), 0, -2, false, "");
  }
  // One SolveSystem of `s` over [lo, hi] in `intervals` sub-intervals into values_ / vectors_.
  int Run(double lo, double hi, int requested, int intervals = 1, bool store = true,
          VQ_ExtendedEigenSparseSolver* s = nullptr) {
    values_.clear();
    vectors_.Redimension(k_.n, std::max(requested, 1), 0.0);
    return (s ? *s : s_).SolveSystem(lo, hi, requested, values_, vectors_, store, intervals);
  }
  // Midpoint between reference eigenvalues i and i + 1 (0-based).
  double Between(int i) const { return 0.5 * (ref_[i] + ref_[i + 1]); }
  // Reference eigenvalues in [lo, hi].
  std::vector<double> Inside(double lo, double hi) const {
    std::vector<double> v;
    for (double x : ref_)
      if (x >= lo && x <= hi) v.push_back(x);
    return v;
  }
};

// λ4 … λ10 through the eigen harness: values, residuals, M-orthonormality, the Sturm count.
TEST_F(FeastSolver, FindsExactlyTheEigenpairsInsideTheInterval) {
  ASSERT_GT(ref_.size(), 60u);  // the reference has no repeated eigenvalue among the lowest 60
  for (int i = 0; i < 60; ++i) ASSERT_GT(ref_[i + 1] / ref_[i], 1.0 + 1e-6) << i;
  vqtest::EigenProblem e{"solid", k_, {}, m_};
  vqtest::EigenCheckOptions o;
  o.first = 3, o.valueTolerance = 1e-9, o.residualTolerance = o.orthonormalityTolerance = 1e-8;
  const vqtest::EigenMethod feast = [&](const vqtest::EigenProblem&, int) {
    const int code = Run(Between(2), Between(9), 20);
    const double* v = vectors_.GetDataPointer();
    return vqtest::EigenOutcome{code ? code : s_.GetStatus(), values_,
                                std::vector<double>(v, v + values_.size() * static_cast<size_t>(k_.n))};
  };
  vqtest::RunEigenChecks(feast, e, 7, o);
}

TEST_F(FeastSolver, SubIntervalsAreSearchedFromTheLowestUp) {
  const double lo = Between(0), hi = Between(13);  // λ2 … λ14 in 4 sub-intervals
  EXPECT_EQ(Run(lo, hi, 40, 4), 0) << s_.GetSolverStatusMessage();
  // Sub-interval by sub-interval, ascending inside each: the whole list ascends.
  EXPECT_TRUE(std::is_sorted(values_.begin(), values_.end()));
  ExpectSame(values_, Inside(lo, hi));
  EXPECT_GE(s_.GetNumberOfFeastCalls(), 4);
}

TEST_F(FeastSolver, StopsWhenTheRequestedCountIsCollected) {
  const double lo = Between(0), hi = Between(15);
  const double width = (hi - lo) / 3;
  const std::vector<double> first = Inside(lo, lo + width);
  ASSERT_GE(first.size(), 2u);
  const int requested = static_cast<int>(first.size()) + 1;  // one from the second sub-interval
  EXPECT_EQ(Run(lo, hi, requested, 3), 0);
  ASSERT_EQ(values_.size(), static_cast<size_t>(requested));
  ExpectSame(std::vector<double>(values_.begin(), values_.begin() + first.size()), first);
  // The last one is the lowest of the second sub-interval.
  EXPECT_LT(vqtest::RelDiff(values_.back(), Inside(lo + width, hi).front()), 1e-9);
  EXPECT_EQ(s_.GetNumberOfFeastCalls(), 2);  // the third sub-interval is never searched
}

TEST_F(FeastSolver, FailureAfterSomeWereCollectedKeepsThemWithMinus22) {
  // First sub-interval: λ1 only; second: more than 48 eigenvalues for a subspace growing from
  // M0 = 3 to 48.
  const double mid = Between(0), w = ref_[55] - mid;
  EXPECT_EQ(Run(mid - w, mid + w, 2, 2), -22);
  EXPECT_EQ(s_.GetStatus(), -22);
  EXPECT_EQ(s_.GetSolverStatusMessage(), "Only 1 Eigenvalues of Requested 2 Eigenvalues Found \n");
  ExpectSame(values_, {ref_[0]});
}

TEST_F(FeastSolver, InputErrorsAndNoIntervals) {
  EXPECT_EQ(Run(0.0, ref_[5], 2, 0), 0);  // no sub-intervals: nothing computed
  EXPECT_TRUE(values_.empty());
  EXPECT_EQ(s_.GetNumberOfFeastCalls(), 0);
  EXPECT_EQ(Run(ref_[5], ref_[1], 2), -62);
  EXPECT_EQ(s_.GetSolverStatusMessage(), "Error: Problem with Emin,Emax(Emin>=Emax)");
  EXPECT_EQ(Run(1.0, 1.0, 2), -62);
  // No eigenvalue requested: an empty search subspace.
  EXPECT_EQ(Run(ref_[1], ref_[5], 0), -61);
  EXPECT_EQ(s_.GetSolverStatusMessage(), "Error: Problem with size of initial subspace M0 (M0<=0)");
  EXPECT_TRUE(values_.empty());
  std::vector<int> ia = {1}, ja;
  std::vector<double> a, d;
  VQ_ExtendedEigenSparseSolver empty(0, ia.data(), ja.data(), a.data(), d.data(), 0, -2, false, "");
  VQ_Matrix none;
  EXPECT_EQ(empty.SolveSystem(0.0, 1.0, 2, values_, none, false, 1), -60);
  EXPECT_EQ(empty.GetSolverStatusMessage(), "Error: Problem with size of the system N(N<=0))");
}

// ---- parameters and texts -----------------------------------------------------------------------

}  // namespace
