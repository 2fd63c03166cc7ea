// FEAST interval solver: the eigenvalues inside [Emin, Emax] against dense LAPACK, the search in
// sub-intervals, subspace growth, the user parameters and the error table.
#include <gtest/gtest.h>
#include <mkl_lapacke.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "eigen/VQ_ExtendedEigenSparseSolver.h"
#include "models/SolidModel.h"
#include "sparse/VQ_SparseSymMatrix.h"
#include "support/ModelsSupport.h"

namespace {

using vqtest::Csr;

// A small clamped solid with a consistent mass and its dense reference spectrum. The
// cross-section is rectangular so that no eigenvalue is repeated and every midpoint between two
// neighbours is a clean interval bound.
struct Problem {
  Csr k, m;
  std::vector<double> lumped, reference;
  Problem() {
    vqmath::models::SolidParameters sp;
    sp.nx = 6;
    sp.ny = 3;
    sp.nz = 2;
    sp.hy = 0.15;
    sp.consistentMass = true;
    const vqmath::models::SolidModel model(sp);
    k = vqtest::FromModel(model.Stiffness());
    m = vqtest::FromModel(model.ConsistentMass());
    lumped = model.LumpedMass();
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
    return VQ_ExtendedEigenSparseSolver(
        k_.n, k_.rowPointers.data(), k_.columnIndices.data(), k_.values.data(),
        m_.rowPointers.data(), m_.columnIndices.data(), m_.values.data(), 0, -2, false, "");
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

TEST_F(FeastSolver, FindsExactlyTheEigenpairsInsideTheInterval) {
  ASSERT_GT(ref_.size(), 60u);  // the reference has no repeated eigenvalue among the lowest 60
  for (int i = 0; i < 60; ++i) ASSERT_GT(ref_[i + 1] / ref_[i], 1.0 + 1e-6) << i;
  const double lo = Between(2), hi = Between(9);  // λ4 … λ10
  ASSERT_EQ(Inside(lo, hi).size(), 7u);
  EXPECT_EQ(Run(lo, hi, 20), 0) << s_.GetSolverStatusMessage();
  EXPECT_EQ(s_.GetStatus(), 0);
  std::vector<double> sorted = values_;
  std::sort(sorted.begin(), sorted.end());
  ExpectSame(sorted, Inside(lo, hi));
  // Eigenpairs: residuals and M-orthonormality of the stored vectors.
  const int found = static_cast<int>(values_.size());
  EXPECT_LT(vqtest::EigenResidual(k_, m_, found, values_.data(), vectors_.GetDataPointer()), 1e-8);
  EXPECT_LT(vqtest::MOrthonormalityError(m_, found, vectors_.GetDataPointer()), 1e-8);
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

TEST_F(FeastSolver, EmptyFirstSubIntervalThenThreeValues) {
  // [a, b] below λ1 holds nothing; [b, c] holds λ1…λ3.
  const double c = Between(2), b = ref_[0] / 2;
  EXPECT_EQ(Run(2 * b - c, c, 3, 2), 0);
  ExpectSame(values_, std::vector<double>(ref_.begin(), ref_.begin() + 3));
}

TEST_F(FeastSolver, SubspaceStartsAtOneAndAHalfTimesTheRequestAndDoubles) {
  struct Case {
    double lo, hi;
    int requested;
    bool store;
    int status, calls, lastM0;
    std::vector<double> expected;
  };
  const Case cases[] = {
      // Four eigenvalues inside: M0 = 7 suffices.
      {Between(1), Between(5), 5, false, 0, 1, 7, Inside(Between(1), Between(5))},
      // requested = 1 gives M0 = 1; the interval holds three eigenvalues: 1 → 2 → 4; the lowest
      // inside is delivered.
      {Between(4), Between(7), 1, true, 0, 3, 4, {ref_[5]}},
      // More than 16 eigenvalues inside: M0 = 1, 2, 4, 8, 16, then FEAST's 3.
      {0.0, Between(30), 1, true, -67, 5, 16, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.requested);
    EXPECT_EQ(Run(c.lo, c.hi, c.requested, 1, c.store), c.status) << s_.GetSolverStatusMessage();
    EXPECT_EQ(s_.GetNumberOfFeastCalls(), c.calls);
    EXPECT_EQ(s_.GetLastSubspaceSize(), c.lastM0);
    ExpectSame(values_, c.expected);
  }
  EXPECT_EQ(s_.GetSolverStatusMessage(), "Warning: Size of the subspace M0 is too small (M0<M)");
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

TEST_F(FeastSolver, WithoutMassTheStandardProblemIsSolved) {
  // B = identity: the eigenvalues of K itself.
  std::vector<double> dense = vqtest::Dense(k_), w(k_.n);
  ASSERT_EQ(LAPACKE_dsyev(LAPACK_COL_MAJOR, 'N', 'U', k_.n, dense.data(), k_.n, w.data()), 0);
  VQ_ExtendedEigenSparseSolver s(k_.n, k_.rowPointers.data(), k_.columnIndices.data(),
                                 k_.values.data(), 0, -2, false, "");
  EXPECT_EQ(Run(0.5 * (w[2] + w[3]), 0.5 * (w[7] + w[8]), 10, 1, true, &s), 0)
      << s.GetSolverStatusMessage();
  ExpectSame(values_, std::vector<double>(w.begin() + 3, w.begin() + 8));
}

TEST_F(FeastSolver, ClassConstructorsAgreeWithTheArrayConstructors) {
  std::vector<double>& lumped = Shared().lumped;
  VQ_SparseSymMatrix K(k_.n, k_.values.data(), k_.rowPointers.data(), k_.columnIndices.data());
  VQ_SparseSymMatrix M(m_.n, m_.values.data(), m_.rowPointers.data(), m_.columnIndices.data());
  VQ_DiagonalMatrix D(k_.n, lumped.data());
  VQ_ExtendedEigenSparseSolver sparse(K, M, 0, -2, false, "");
  EXPECT_EQ(Run(0.0, Between(4), 8, 1, true, &sparse), 0);
  ExpectSame(values_, Inside(0.0, Between(4)));

  const std::vector<double> lumpedRef = vqtest::DenseEigenvalues(k_, vqtest::DiagonalCsr(lumped));
  const std::vector<double> lowest(lumpedRef.begin(), lumpedRef.begin() + 5);
  VQ_ExtendedEigenSparseSolver diagonal(K, D, 0, -2, false, "");
  VQ_ExtendedEigenSparseSolver diagonalRaw(k_.n, k_.rowPointers.data(), k_.columnIndices.data(),
                                           k_.values.data(), lumped.data(), 0, -2, false, "");
  for (VQ_ExtendedEigenSparseSolver* s : {&diagonal, &diagonalRaw}) {
    EXPECT_EQ(Run(0.0, 0.5 * (lumpedRef[4] + lumpedRef[5]), 8, 1, true, s), 0);
    ExpectSame(values_, lowest);
  }
  // A copy owns its own identity/diagonal B and solves alike.
  VQ_ExtendedEigenSparseSolver copy(diagonal);
  EXPECT_EQ(Run(0.0, 0.5 * (lumpedRef[4] + lumpedRef[5]), 8, 1, false, &copy), 0);
  ExpectSame(values_, lowest);
}

// ---- parameters and texts -----------------------------------------------------------------------

TEST_F(FeastSolver, ConstructorsWriteTheMklEnvironment) {
  setenv("MKL_NUM_THREADS", "2", 1);
  setenv("MKL_PARDISO_OOC_MAX_CORE_SIZE", "123", 1);
  setenv("MKL_PARDISO_OOC_KEEP_FILE", "0", 1);
  VQ_ExtendedEigenSparseSolver s = Make();
  EXPECT_STREQ(std::getenv("MKL_NUM_THREADS"), "1");
  EXPECT_STREQ(std::getenv("MKL_PARDISO_OOC_MAX_CORE_SIZE"), "2000");
  EXPECT_STREQ(std::getenv("MKL_PARDISO_OOC_KEEP_FILE"), "1");
  setenv("MKL_NUM_THREADS", "2", 1);
}

TEST_F(FeastSolver, UserParametersAreValidatedWhenFeastIsInitialised) {
  EXPECT_FALSE(s_.UserParametersSet());
  EXPECT_EQ(s_.GetNumberOfCountourPoints(), 8);
  EXPECT_EQ(s_.GetErrorTraceSinglePrecesionStoppingCriteria(), 5);
  s_.SetNumberOfCountourPoints(7);  // not among FEAST's counts
  s_.SetRunTimeStatus(3);
  s_.SetErrorTraceDoublePrecesionStoppingCriteria(10);
  s_.SetMaxRefinimentLoop(33);
  s_.SetUserInitialSpace(0);
  s_.SetStoppingTestType(1);
  s_.SetErrorTraceSinglePrecesionStoppingCriteria(-4);  // not validated
  EXPECT_TRUE(s_.UserParametersSet());
  EXPECT_EQ(s_.GetNumberOfCountourPoints(), 7);
  s_.FEAST_init();
  const int* fpm = s_.GetFeastParameters();
  EXPECT_EQ(s_.GetNumberOfCountourPoints(), 8);
  EXPECT_EQ(s_.GetRunTimeStatus(), 0);
  const int expected[] = {0, 8, 10, 33, 0, 1, -4};  // fpm(5) not compared
  for (int i : {0, 1, 2, 3, 5, 6}) EXPECT_EQ(fpm[i], expected[i]) << "fpm " << i + 1;
  s_.SetNumberOfCountourPoints(16);
  s_.FEAST_init();
  EXPECT_EQ(fpm[1], 16);
  // The inner solves take the direct solver's PARDISO parameters.
  EXPECT_EQ(fpm[63], 1);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(fpm[64 + i], s_.Get_iParm(i)) << "iparm " << i;
}

TEST_F(FeastSolver, UserParametersReachFeast) {
  // 16 contour points and a 1e-13 trace criterion still give the interval's eigenvalues.
  s_.SetNumberOfCountourPoints(16);
  s_.SetErrorTraceDoublePrecesionStoppingCriteria(13);
  EXPECT_EQ(Run(Between(1), Between(6), 10, 1, false), 0);
  ExpectSame(values_, Inside(Between(1), Between(6)));
}

TEST_F(FeastSolver, EveryInfoHasItsTextAndStatus) {
  struct Row {
    int info;
    int status;
    const char* text;
  };
  const Row rows[] = {
      {202, -60, "Error: Problem with size of the system N(N<=0))"},
      {201, -61, "Error: Problem with size of initial subspace M0 (M0<=0)"},
      {200, -62, "Error: Problem with Emin,Emax(Emin>=Emax)"},
      {3, -67, "Warning: Size of the subspace M0 is too small (M0<M)"},
      {2, -68, "Warning: No Convergence (number of iteration loops >feastparam(3))"},
      {1, -69, "Warning: No eigenvalue found in the search interval.\n"},
      {-1, -1, "Internal error for allocation memory"},
      {-2, -63,
       "Internal error of the inner system solver. Possible reasons: not enough memory for "
       "PARDISO solver or inconsistent input."},
      {-3, -64,
       "Internal error of the reduced eigenvalue solver. Possible cause: matrix B may not be "
       "positive definite. It can be checked with PARDISO usages, if necessary.\n"},
      // The registered sign is the single code-page-1252 byte 0xAE, not UTF-8.
      {104, -65,
       "Problem with 4 th value of the input Intel\xAE Eigensolver Package parameter "
       "(i.e feastparam(4))\n"},
      {-107, -65,
       "Problem with the 7 th argument of the Intel\xAE Eigensolver Package interface\n"},
      {-100, -65,
       "Problem with the 0 th argument of the Intel\xAE Eigensolver Package interface\n"},
      {99, -65, "Unknown Error."},
      {-4, -65, "Unknown Error."},
      {0, -65, "Unknown Error."},
  };
  for (const Row& r : rows) {
    std::string message;
    MATLIBDLLCOMMONS::STATE_STATUS status = MATLIBDLLCOMMONS::STATUS_OK;
    s_.ResolveSolverErrors(r.info, message, status);
    EXPECT_EQ(message, r.text) << "info " << r.info;
    EXPECT_EQ(static_cast<int>(status), r.status) << "info " << r.info;
  }
}

}  // namespace
