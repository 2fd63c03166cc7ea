// FEAST interval solver: the eigenvalues inside [Emin, Emax] against dense LAPACK, the search in
// sub-intervals, subspace growth, the user parameters and the error table.
#include <gtest/gtest.h>
#include <mkl_lapacke.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "eigen/VQ_ExtendedEigenSparseSolver.h"
#include "models/SolidModel.h"
#include "sparse/VQ_SparseSymMatrix.h"
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

// A small clamped solid with a consistent mass and its dense reference spectrum. The
// cross-section is rectangular so that no eigenvalue is repeated and every midpoint between two
// neighbours is a clean interval bound.
class FeastSolver : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    vqmath::models::SolidParameters sp;
    sp.nx = 6;
    sp.ny = 3;
    sp.nz = 2;
    sp.hy = 0.15;
    sp.consistentMass = true;
    const vqmath::models::SolidModel model(sp);
    k_ = new Csr(FromModel(model.Stiffness()));
    m_ = new Csr(FromModel(model.ConsistentMass()));
    lumped_ = new std::vector<double>(model.LumpedMass());
    reference_ = new std::vector<double>(vqtest::DenseEigenvalues(*k_, *m_));
  }
  static void TearDownTestSuite() {
    delete k_;
    delete m_;
    delete lumped_;
    delete reference_;
  }

  VQ_ExtendedEigenSparseSolver Solver() {
    return VQ_ExtendedEigenSparseSolver(
        k_->n, k_->rowPointers.data(), k_->columnIndices.data(), k_->values.data(),
        m_->rowPointers.data(), m_->columnIndices.data(), m_->values.data(), 0, -2, false, "");
  }
  const std::vector<double>& Ref() const { return *reference_; }
  // Midpoint between reference eigenvalues i and i + 1 (0-based).
  double Between(int i) const { return 0.5 * (Ref()[i] + Ref()[i + 1]); }
  // Reference eigenvalues in [lo, hi].
  std::vector<double> Inside(double lo, double hi) const {
    std::vector<double> v;
    for (double x : Ref())
      if (x >= lo && x <= hi) v.push_back(x);
    return v;
  }

  static Csr* k_;
  static Csr* m_;
  static std::vector<double>* lumped_;
  static std::vector<double>* reference_;
};

Csr* FeastSolver::k_ = nullptr;
Csr* FeastSolver::m_ = nullptr;
std::vector<double>* FeastSolver::lumped_ = nullptr;
std::vector<double>* FeastSolver::reference_ = nullptr;

void ExpectSame(const std::vector<double>& found, const std::vector<double>& expected) {
  ASSERT_EQ(found.size(), expected.size());
  for (size_t i = 0; i < found.size(); ++i)
    EXPECT_LT(vqtest::RelDiff(found[i], expected[i]), 1e-9)
        << "value " << i << ": " << found[i] << " vs " << expected[i];
}

TEST_F(FeastSolver, ReferenceSpectrumHasNoRepeatedEigenvalues) {
  ASSERT_GT(Ref().size(), 60u);
  for (int i = 0; i < 60; ++i) EXPECT_GT(Ref()[i + 1] / Ref()[i], 1.0 + 1e-6) << i;
}

TEST_F(FeastSolver, FindsExactlyTheEigenvaluesInsideTheInterval) {
  const double lo = Between(2), hi = Between(9);  // λ4 … λ10
  const std::vector<double> expected = Inside(lo, hi);
  ASSERT_EQ(expected.size(), 7u);
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 20);
  EXPECT_EQ(s.SolveSystem(lo, hi, 20, values, vectors, true, 1), 0) << s.GetSolverStatusMessage();
  EXPECT_EQ(s.GetStatus(), 0);
  std::vector<double> sorted = values;
  std::sort(sorted.begin(), sorted.end());
  ExpectSame(sorted, expected);
  // Eigenpairs: residuals and M-orthonormality of the stored vectors.
  std::vector<double> phi(vectors.GetDataPointer(),
                          vectors.GetDataPointer() + static_cast<size_t>(k_->n) * values.size());
  EXPECT_LT(
      vqtest::EigenResidual(*k_, *m_, static_cast<int>(values.size()), values.data(), phi.data()),
      1e-8);
  EXPECT_LT(vqtest::MOrthonormalityError(*m_, static_cast<int>(values.size()), phi.data()), 1e-8);
}

TEST_F(FeastSolver, SubIntervalsAreSearchedFromTheLowestUp) {
  const double lo = Between(0), hi = Between(13);  // λ2 … λ14 in 4 sub-intervals
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 40);
  EXPECT_EQ(s.SolveSystem(lo, hi, 40, values, vectors, true, 4), 0) << s.GetSolverStatusMessage();
  // Sub-interval by sub-interval, ascending inside each: the whole list ascends.
  EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
  ExpectSame(values, Inside(lo, hi));
  EXPECT_GE(s.GetNumberOfFeastCalls(), 4);
}

TEST_F(FeastSolver, StopsWhenTheRequestedCountIsCollected) {
  const double lo = Between(0), hi = Between(15);
  const double width = (hi - lo) / 3;
  const std::vector<double> first = Inside(lo, lo + width);
  ASSERT_GE(first.size(), 2u);
  const int requested = static_cast<int>(first.size()) + 1;  // one from the second sub-interval
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, requested);
  EXPECT_EQ(s.SolveSystem(lo, hi, requested, values, vectors, true, 3), 0);
  ASSERT_EQ(values.size(), static_cast<size_t>(requested));
  ExpectSame(std::vector<double>(values.begin(), values.begin() + first.size()), first);
  // The last one is the lowest of the second sub-interval.
  EXPECT_LT(vqtest::RelDiff(values.back(), Inside(lo + width, hi).front()), 1e-9);
  EXPECT_EQ(s.GetNumberOfFeastCalls(), 2);  // the third sub-interval is never searched
}

TEST_F(FeastSolver, EmptyFirstSubIntervalThenThreeValues) {
  // [a, b] below λ1 holds nothing; [b, c] holds λ1…λ3.
  const double c = Between(2);
  const double b = Ref()[0] / 2;
  const double a = 2 * b - c;
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 3);
  EXPECT_EQ(s.SolveSystem(a, c, 3, values, vectors, true, 2), 0);
  ExpectSame(values, std::vector<double>(Ref().begin(), Ref().begin() + 3));
}

TEST_F(FeastSolver, SubspaceGrowsWhileFeastReportsItTooSmall) {
  // requested = 1 gives M0 = 1; the interval holds three eigenvalues: 1 → 2 → 4.
  const double lo = Between(4), hi = Between(7);
  ASSERT_EQ(Inside(lo, hi).size(), 3u);
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 1);
  EXPECT_EQ(s.SolveSystem(lo, hi, 1, values, vectors, true, 1), 0) << s.GetSolverStatusMessage();
  EXPECT_EQ(s.GetNumberOfFeastCalls(), 3);
  EXPECT_EQ(s.GetLastSubspaceSize(), 4);
  ASSERT_EQ(values.size(), 1u);
  EXPECT_LT(vqtest::RelDiff(values[0], Ref()[5]), 1e-9);  // the lowest inside
}

TEST_F(FeastSolver, FirstSubspaceIsOneAndAHalfTimesTheRequest) {
  const double lo = Between(1), hi = Between(5);  // four eigenvalues, M0 = 7 suffices
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 5);
  EXPECT_EQ(s.SolveSystem(lo, hi, 5, values, vectors, false, 1), 0);
  EXPECT_EQ(s.GetLastSubspaceSize(), 7);
  EXPECT_EQ(s.GetNumberOfFeastCalls(), 1);
  EXPECT_EQ(values.size(), 4u);
}

TEST_F(FeastSolver, SubspaceStillTooSmallAfterFiveCalls) {
  // requested = 1 with more than 16 eigenvalues inside: M0 = 1, 2, 4, 8, 16, then FEAST's 3.
  const double lo = 0.0, hi = Between(30);
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 1);
  EXPECT_EQ(s.SolveSystem(lo, hi, 1, values, vectors, true, 1), -67);
  EXPECT_EQ(s.GetNumberOfFeastCalls(), 5);
  EXPECT_EQ(s.GetLastSubspaceSize(), 16);
  EXPECT_EQ(s.GetSolverStatusMessage(), "Warning: Size of the subspace M0 is too small (M0<M)");
  EXPECT_TRUE(values.empty());
}

TEST_F(FeastSolver, FailureAfterSomeWereCollectedKeepsThemWithMinus22) {
  // First sub-interval: λ1 only; second: more than 48 eigenvalues for a subspace growing from
  // M0 = 3 to 48.
  const double mid = Between(0);
  ASSERT_GT(Ref().size(), 60u);
  const double w = Ref()[55] - mid;
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 2);
  EXPECT_EQ(s.SolveSystem(mid - w, mid + w, 2, values, vectors, true, 2), -22);
  EXPECT_EQ(s.GetStatus(), -22);
  EXPECT_EQ(s.GetSolverStatusMessage(), "Only 1 Eigenvalues of Requested 2 Eigenvalues Found \n");
  ASSERT_EQ(values.size(), 1u);
  EXPECT_LT(vqtest::RelDiff(values[0], Ref()[0]), 1e-9);
}

TEST_F(FeastSolver, NoIntervalsComputesNothing) {
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 2);
  EXPECT_EQ(s.SolveSystem(0.0, Ref()[5], 2, values, vectors, true, 0), 0);
  EXPECT_TRUE(values.empty());
  EXPECT_EQ(s.GetNumberOfFeastCalls(), 0);
}

TEST_F(FeastSolver, BadIntervalAndBadOrderAreReported) {
  VQ_ExtendedEigenSparseSolver s = Solver();
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 2);
  EXPECT_EQ(s.SolveSystem(Ref()[5], Ref()[1], 2, values, vectors, true, 1), -62);
  EXPECT_EQ(s.GetSolverStatusMessage(), "Error: Problem with Emin,Emax(Emin>=Emax)");
  EXPECT_EQ(s.SolveSystem(1.0, 1.0, 2, values, vectors, true, 1), -62);

  std::vector<int> ia = {1}, ja;
  std::vector<double> a, d;
  VQ_ExtendedEigenSparseSolver empty(0, ia.data(), ja.data(), a.data(), d.data(), 0, -2, false, "");
  VQ_Matrix none;
  EXPECT_EQ(empty.SolveSystem(0.0, 1.0, 2, values, none, false, 1), -60);
  EXPECT_EQ(empty.GetSolverStatusMessage(), "Error: Problem with size of the system N(N<=0))");
  // No eigenvalue requested: an empty search subspace.
  EXPECT_EQ(s.SolveSystem(Ref()[1], Ref()[5], 0, values, vectors, true, 1), -61);
  EXPECT_EQ(s.GetSolverStatusMessage(), "Error: Problem with size of initial subspace M0 (M0<=0)");
  EXPECT_TRUE(values.empty());
}

TEST_F(FeastSolver, WithoutMassTheStandardProblemIsSolved) {
  // B = identity: the eigenvalues of K itself.
  std::vector<double> dense = vqtest::Dense(*k_), w(k_->n);
  ASSERT_EQ(LAPACKE_dsyev(LAPACK_COL_MAJOR, 'N', 'U', k_->n, dense.data(), k_->n, w.data()), 0);
  const double lo = 0.5 * (w[2] + w[3]), hi = 0.5 * (w[7] + w[8]);
  VQ_ExtendedEigenSparseSolver s(k_->n, k_->rowPointers.data(), k_->columnIndices.data(),
                                 k_->values.data(), 0, -2, false, "");
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 10);
  EXPECT_EQ(s.SolveSystem(lo, hi, 10, values, vectors, true, 1), 0) << s.GetSolverStatusMessage();
  ExpectSame(values, std::vector<double>(w.begin() + 3, w.begin() + 8));
}

TEST_F(FeastSolver, ClassConstructorsAgreeWithTheArrayConstructors) {
  VQ_SparseSymMatrix K(k_->n, k_->values.data(), k_->rowPointers.data(), k_->columnIndices.data());
  VQ_SparseSymMatrix M(m_->n, m_->values.data(), m_->rowPointers.data(), m_->columnIndices.data());
  VQ_DiagonalMatrix D(k_->n, lumped_->data());
  const Csr lumpedCsr = vqtest::DiagonalCsr(*lumped_);
  const std::vector<double> lumpedRef = vqtest::DenseEigenvalues(*k_, lumpedCsr);
  const double lo = 0.0, hi = Between(4);

  VQ_ExtendedEigenSparseSolver sparse(K, M, 0, -2, false, "");
  std::vector<double> v1;
  VQ_Matrix x1(k_->n, 8);
  EXPECT_EQ(sparse.SolveSystem(lo, hi, 8, v1, x1, true, 1), 0);
  ExpectSame(v1, Inside(lo, hi));

  const double lhi = 0.5 * (lumpedRef[4] + lumpedRef[5]);
  VQ_ExtendedEigenSparseSolver diagonal(K, D, 0, -2, false, "");
  VQ_ExtendedEigenSparseSolver diagonalRaw(k_->n, k_->rowPointers.data(), k_->columnIndices.data(),
                                           k_->values.data(), lumped_->data(), 0, -2, false, "");
  for (VQ_ExtendedEigenSparseSolver* s : {&diagonal, &diagonalRaw}) {
    std::vector<double> v;
    VQ_Matrix x(k_->n, 8);
    EXPECT_EQ(s->SolveSystem(lo, lhi, 8, v, x, true, 1), 0);
    ExpectSame(v, std::vector<double>(lumpedRef.begin(), lumpedRef.begin() + 5));
  }
  // A copy owns its own identity/diagonal B and solves alike.
  VQ_ExtendedEigenSparseSolver copy(diagonal);
  std::vector<double> v3;
  VQ_Matrix x3(k_->n, 8);
  EXPECT_EQ(copy.SolveSystem(lo, lhi, 8, v3, x3, false, 1), 0);
  ExpectSame(v3, std::vector<double>(lumpedRef.begin(), lumpedRef.begin() + 5));
}

// ---- parameters and texts -----------------------------------------------------------------------

TEST_F(FeastSolver, ConstructorsWriteTheMklEnvironment) {
  setenv("MKL_NUM_THREADS", "2", 1);
  setenv("MKL_PARDISO_OOC_MAX_CORE_SIZE", "123", 1);
  setenv("MKL_PARDISO_OOC_KEEP_FILE", "0", 1);
  VQ_ExtendedEigenSparseSolver s = Solver();
  EXPECT_STREQ(std::getenv("MKL_NUM_THREADS"), "1");
  EXPECT_STREQ(std::getenv("MKL_PARDISO_OOC_MAX_CORE_SIZE"), "2000");
  EXPECT_STREQ(std::getenv("MKL_PARDISO_OOC_KEEP_FILE"), "1");
  setenv("MKL_NUM_THREADS", "2", 1);
}

TEST_F(FeastSolver, UserParametersAreValidatedWhenFeastIsInitialised) {
  VQ_ExtendedEigenSparseSolver s = Solver();
  EXPECT_FALSE(s.UserParametersSet());
  EXPECT_EQ(s.GetNumberOfCountourPoints(), 8);
  EXPECT_EQ(s.GetErrorTraceSinglePrecesionStoppingCriteria(), 5);
  s.SetNumberOfCountourPoints(7);  // not among FEAST's counts
  s.SetRunTimeStatus(3);
  s.SetErrorTraceDoublePrecesionStoppingCriteria(10);
  s.SetMaxRefinimentLoop(33);
  s.SetUserInitialSpace(0);
  s.SetStoppingTestType(1);
  s.SetErrorTraceSinglePrecesionStoppingCriteria(-4);  // not validated
  EXPECT_TRUE(s.UserParametersSet());
  EXPECT_EQ(s.GetNumberOfCountourPoints(), 7);
  s.FEAST_init();
  const int* fpm = s.GetFeastParameters();
  EXPECT_EQ(s.GetNumberOfCountourPoints(), 8);
  EXPECT_EQ(fpm[1], 8);
  EXPECT_EQ(s.GetRunTimeStatus(), 0);
  EXPECT_EQ(fpm[0], 0);
  EXPECT_EQ(fpm[2], 10);
  EXPECT_EQ(fpm[3], 33);
  EXPECT_EQ(fpm[5], 1);
  EXPECT_EQ(fpm[6], -4);
  s.SetNumberOfCountourPoints(16);
  s.FEAST_init();
  EXPECT_EQ(s.GetFeastParameters()[1], 16);
  // The inner solves take the direct solver's PARDISO parameters.
  EXPECT_EQ(fpm[63], 1);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(fpm[64 + i], s.Get_iParm(i)) << "iparm " << i;
}

TEST_F(FeastSolver, UserParametersReachFeast) {
  // 16 contour points and a 1e-13 trace criterion still give the interval's eigenvalues.
  VQ_ExtendedEigenSparseSolver s = Solver();
  s.SetNumberOfCountourPoints(16);
  s.SetErrorTraceDoublePrecesionStoppingCriteria(13);
  const double lo = Between(1), hi = Between(6);
  std::vector<double> values;
  VQ_Matrix vectors(k_->n, 10);
  EXPECT_EQ(s.SolveSystem(lo, hi, 10, values, vectors, false, 1), 0);
  ExpectSame(values, Inside(lo, hi));
}

TEST(FeastMessages, EveryInfoHasItsTextAndStatus) {
  std::vector<int> ia = {1, 2}, ja = {1};
  std::vector<double> a = {1.0};
  VQ_ExtendedEigenSparseSolver s(1, ia.data(), ja.data(), a.data(), 0, -2, false, "");
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
    s.ResolveSolverErrors(r.info, message, status);
    EXPECT_EQ(message, r.text) << "info " << r.info;
    EXPECT_EQ(static_cast<int>(status), r.status) << "info " << r.info;
  }
  // The registered sign is the single code-page-1252 byte 0xAE, not UTF-8.
  std::string message;
  MATLIBDLLCOMMONS::STATE_STATUS status;
  s.ResolveSolverErrors(104, message, status);
  const size_t at = message.find("Intel");
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(static_cast<unsigned char>(message[at + 5]), 0xAE);
  EXPECT_EQ(message[at + 6], ' ');
}

}  // namespace
