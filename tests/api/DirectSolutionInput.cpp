// Malformed input at the flat entry points that take compressed rows: every case ends in -64
// with a message naming the fault, the registry holds it, and no caller array is written.
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "api/internal/CsrValidation.h"
#include "support/SolverHarness.h"
#include "vqmath.h"

namespace {

using vqtest::Csr;

std::string LastMessage() {
  char* m = VQ_GetLastErrorMessage();
  std::string s = m ? m : "";
  std::free(m);
  return s;
}

// A valid 5 x 5 matrix: rows 1..5 with their diagonal and a right neighbour.
Csr Valid() {
  Csr k;
  k.n = 5;
  k.rowPointers = {1, 3, 5, 7, 9, 10};
  k.columnIndices = {1, 2, 2, 3, 3, 4, 4, 5, 5};
  k.values = {4, -1, 4, -1, 4, -1, 4, -1, 4};
  return k;
}

struct BadCase {
  std::string name;
  std::function<void(Csr&)> spoil;
  std::string keyword;  // expected in the message
  bool nullRows = false, nullColumns = false, nullValues = false;
};

std::vector<BadCase> Cases() {
  return {
      {"OrderZero", [](Csr& k) { k.n = 0; }, "not positive"},
      {"OrderNegative", [](Csr& k) { k.n = -3; }, "not positive"},
      {"NullRowPointers", [](Csr&) {}, "row pointer array is null", true},
      {"NullColumnIndices", [](Csr&) {}, "column index array is null", false, true},
      {"NullValues", [](Csr&) {}, "value array is null", false, false, true},
      {"RowPointersStartAtZero", [](Csr& k) { for (int& p : k.rowPointers) --p; }, "start at 1"},
      {"RowPointersDecrease", [](Csr& k) { k.rowPointers[2] = 2; }, "decrease"},
      {"EmptyRow", [](Csr& k) { k.rowPointers[2] = k.rowPointers[1]; }, "missing"},
      {"ColumnBeyondOrder", [](Csr& k) { k.columnIndices[1] = 9; }, "exceeds the order"},
      {"ColumnBelowDiagonal", [](Csr& k) { k.columnIndices[3] = 1; }, "below the diagonal"},
      {"DiagonalMissing", [](Csr& k) { k.columnIndices[2] = 3; }, "diagonal entry is missing"},
      {"DiagonalNotFirst", [](Csr& k) { std::swap(k.columnIndices[0], k.columnIndices[1]); }, "missing"},
      {"RepeatedColumn", [](Csr& k) { k.columnIndices[1] = 1; }, "not strictly ascending"},
  };
}

class DirectSolutionInput : public ::testing::TestWithParam<BadCase> {
 protected:
  void SetUp() override {
    VQ_InitializeLibrary();
    VQ_ReleaseLibrary();
    k_ = Valid();
    GetParam().spoil(k_);
    rows_ = GetParam().nullRows ? nullptr : k_.rowPointers.data();
    columns_ = GetParam().nullColumns ? nullptr : k_.columnIndices.data();
    values_ = GetParam().nullValues ? nullptr : k_.values.data();
  }
  void ExpectRejected(int code) {
    EXPECT_EQ(-64, code);
    EXPECT_EQ(-64, VQ_GetLastErrorID());
    const std::string message = LastMessage();
    EXPECT_EQ(0u, message.rfind("ERROR_INVALID_MATRICES: ", 0)) << message;
    EXPECT_NE(std::string::npos, message.find(GetParam().keyword)) << message;
  }
  Csr k_;
  const int* rows_ = nullptr;
  const int* columns_ = nullptr;
  const double* values_ = nullptr;
  std::vector<double> rhs_ = std::vector<double>(10, 1.5);
  std::vector<double> solution_ = std::vector<double>(10, 2.5);
};

TEST_P(DirectSolutionInput, SolutionEntryPointsRejectIt) {
  ExpectRejected(VQ_SparseSolverDirect(k_.n, 2, rows_, columns_, values_, rhs_.data(), 0, solution_.data()));
  ExpectRejected(VQ_SparseSolverDirect(k_.n, 2, rows_, columns_, values_, rhs_.data(), 0, nullptr));
  std::vector<int> params(64, 77);
  std::vector<double> d1(5, 3.5), d2(5, 4.5);
  ExpectRejected(VQ_DirectSparseSolver(k_.n, 2, rows_, columns_, values_, rhs_.data(), 0, -2,
                                       params.data(), 0, "", 1, 0, solution_.data(), 1, d1.data(),
                                       d2.data(), 1, 0));
  ExpectRejected(VQ_SysMatrixSolveAdvanced(k_.n, values_, rows_, columns_, 2, rhs_.data(), 1, 0,
                                           solution_.data()));
  EXPECT_EQ(std::vector<double>(10, 1.5), rhs_);
  EXPECT_EQ(std::vector<double>(10, 2.5), solution_);
  EXPECT_EQ(std::vector<int>(64, 77), params);
  EXPECT_EQ(std::vector<double>(5, 3.5), d1);
  EXPECT_EQ(std::vector<double>(5, 4.5), d2);
}

TEST_P(DirectSolutionInput, ProductsRejectIt) {
  std::vector<double> x(10, 1.0), y(10, 9.0);
  ExpectRejected(VQ_SparseSymmMatrixVectorMultiplication(1, k_.n, values_, rows_, columns_, x.data(), y.data()));
  ExpectRejected(VQ_SparseSymmMatrixVectorMultiplication(0, k_.n, values_, rows_, columns_, x.data(), y.data()));
  ExpectRejected(VQ_SparseSymmMatrixVectorMultiplication_MKL(k_.n, values_, rows_, columns_, x.data(), y.data()));
  ExpectRejected(VQ_SparseSymmMatrixVectorMultiplication_NATIVE(k_.n, values_, rows_, columns_, x.data(), y.data()));
  ExpectRejected(VQ_SparseSymmMatrixMatrixMultiplication_MKL(k_.n, 2, values_, rows_, columns_, x.data(), y.data()));
  ExpectRejected(VQ_WriteSystemMatrixMTX(k_.n, rows_, columns_, values_));
  EXPECT_EQ(std::vector<double>(10, 9.0), y);
}

INSTANTIATE_TEST_SUITE_P(Malformed, DirectSolutionInput, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<BadCase>& info) { return info.param.name; });

class DirectSolutionArguments : public ::testing::Test {
 protected:
  void SetUp() override {
    VQ_InitializeLibrary();
    VQ_ReleaseLibrary();
  }
  Csr k_ = Valid();
  std::vector<double> rhs_ = std::vector<double>(10, 1.5);
  std::vector<double> solution_ = std::vector<double>(10, 2.5);
  std::vector<int> params_ = std::vector<int>(64, 77);

  int Direct(int nrhs, double* rhs, int solverType, int matrixType, int diagonalInfo) {
    return VQ_DirectSparseSolver(k_.n, nrhs, k_.rowPointers.data(), k_.columnIndices.data(),
                                 k_.values.data(), rhs, solverType, matrixType, params_.data(), 0,
                                 "", 0, 0, solution_.data(), diagonalInfo, nullptr, nullptr, 0, 0);
  }
  void ExpectUntouched() {
    EXPECT_EQ(std::vector<double>(10, 1.5), rhs_);
    EXPECT_EQ(std::vector<double>(10, 2.5), solution_);
    EXPECT_EQ(std::vector<int>(64, 77), params_);
  }
};

TEST_F(DirectSolutionArguments, CountsTypesAndArraysOutsideTheirRange) {
  for (int nrhs : {0, -1}) {
    EXPECT_EQ(-64, Direct(nrhs, rhs_.data(), 0, -2, 0));
    EXPECT_EQ(-64, VQ_SparseSolverDirect(5, nrhs, k_.rowPointers.data(), k_.columnIndices.data(),
                                         k_.values.data(), rhs_.data(), 0, solution_.data()));
  }
  EXPECT_EQ(-64, Direct(2, nullptr, 0, -2, 0));
  EXPECT_EQ(-64, Direct(2, rhs_.data(), 3, -2, 0));
  EXPECT_EQ(-64, Direct(2, rhs_.data(), -1, -2, 0));
  EXPECT_EQ(-64, Direct(2, rhs_.data(), 0, 1, 0));
  EXPECT_EQ(-64, Direct(2, rhs_.data(), 0, 11, 0));
  EXPECT_EQ(-64, Direct(2, rhs_.data(), 0, -2, 1));  // diagonals requested, arrays null
  ExpectUntouched();
  EXPECT_EQ(-64, VQ_GetLastErrorID());

  // The same arrays are fine once the arguments are.
  EXPECT_EQ(0, Direct(2, rhs_.data(), 0, -2, 0));
  EXPECT_EQ(std::vector<double>(10, 1.5), rhs_);
  EXPECT_LE(vqtest::RelativeResidual(k_, solution_.data(), rhs_.data(), 2), 1e-14);
}

TEST_F(DirectSolutionArguments, DenseProductRejectsNullAndNegativeSizes) {
  std::vector<double> a(4, 1.0), c(4, 7.0);
  EXPECT_EQ(-64, VQ_MatrixMatrixMultiplication_MKL(nullptr, a.data(), c.data(), 2, 2, 2, 2, 2, 2, 0, 0, 1.0, 0.0));
  EXPECT_EQ(-64, VQ_MatrixMatrixMultiplication_MKL(a.data(), a.data(), nullptr, 2, 2, 2, 2, 2, 2, 0, 0, 1.0, 0.0));
  EXPECT_EQ(-64, VQ_MatrixMatrixMultiplication_MKL(a.data(), a.data(), c.data(), -2, 2, 2, 2, -2, 2, 0, 0, 1.0, 0.0));
  EXPECT_EQ(std::vector<double>(4, 7.0), c);
  EXPECT_EQ(-64, VQ_SparseSymmMatrixVectorMultiplication_MKL(5, k_.values.data(), k_.rowPointers.data(),
                                                             k_.columnIndices.data(), nullptr, c.data()));
}

TEST(CsrValidation, AcceptsEveryWellFormedLayout) {
  std::string problem;
  Csr k = Valid();
  EXPECT_TRUE(vqmath::internal::ValidateUpperCsr(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                                  k.values.data(), &problem))
      << problem;
  // A diagonal matrix and a dense upper triangle.
  Csr d = vqtest::DiagonalCsr({1, 2, 3});
  EXPECT_TRUE(vqmath::internal::ValidateUpperCsr(3, d.rowPointers.data(), d.columnIndices.data(),
                                                  d.values.data(), &problem));
  Csr full = vqtest::CsrFromDense(3, {4, 1, 1, 1, 4, 1, 1, 1, 4});
  EXPECT_TRUE(vqmath::internal::ValidateUpperCsr(3, full.rowPointers.data(), full.columnIndices.data(),
                                                  full.values.data(), &problem));
  EXPECT_TRUE(vqmath::internal::ValidateUpperCsr(k.n, k.rowPointers.data(), k.columnIndices.data(),
                                                  k.values.data(), nullptr));
}

}  // namespace
