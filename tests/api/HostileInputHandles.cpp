// Broken input at the system-matrix and system-vector handles: null and mismatched handles,
// equation numbers outside 1..n (0, negative, n + 1, INT_MIN, INT_MAX), NaN and infinite element
// values. Element and vector operations skip what they cannot place, without touching anything
// outside the handles and the caller's arrays; the solving functions report -64 with what is
// wrong and leave the solution vector unchanged.
#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <string>
#include <vector>

#include "support/ModelsSupport.h"
#include "vqmath.h"

namespace {


constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

using vqtest::SysVectorValues;

// A 3 x 3 system assembled from one element on equations (1, 2, 3), ready to solve.
class HostileHandles : public testing::Test {
 protected:
  void SetUp() override {
    VQ_SetSolverType(0);
    VQ_SetSolverMatrixType(-2);
    h_ = VQ_SysMatrixBegin();
    VQ_SysMatrixDef(h_, 0, 3);
    const int dofs[] = {1, 2, 3};
    VQ_SysMatrixPreAssem(h_, 3, dofs);
    // Packed by columns: (1,1) (1,2) (2,2) (1,3) (2,3) (3,3).
    const double element[] = {4, -1, 4, 0, -1, 4};
    VQ_SysMatrixAssem(h_, 3, dofs, element);
    rhs_ = VQ_SysVectorCreate(3, 1.0);
    x_ = VQ_SysVectorCreate(3, -8.0);
  }
  void TearDown() override {
    VQ_SysVectorEnd(x_);
    VQ_SysVectorEnd(rhs_);
    VQ_SysMatrixEnd(h_);
  }
  void ExpectRejected(int code, const std::string& problem) {
    EXPECT_EQ(code, -64);
    const vqtest::RegistryError e = vqtest::LastError();
    EXPECT_EQ(e.code, -64);
    EXPECT_EQ(e.message, "ERROR_INVALID_MATRICES: " + problem);
    EXPECT_EQ(SysVectorValues(x_), std::vector<double>(3, -8.0));
  }
  VQ_SysMatrixHandle h_ = nullptr;
  VQ_SysVectorHandle rhs_ = nullptr;
  VQ_SysVectorHandle x_ = nullptr;
};

TEST_F(HostileHandles, NullAndEmptyHandlesAreRejected) {
  ExpectRejected(VQ_SysMatrixSolve(nullptr, rhs_, x_), "system-matrix handle is null");
  ExpectRejected(VQ_SysMatrixSolve(h_, nullptr, x_), "right-hand side handle is null");
  ExpectRejected(VQ_SysMatrixResolve(nullptr, rhs_, x_), "system-matrix handle is null");
  VQ_SysMatrixHandle empty = VQ_SysMatrixBegin();
  ExpectRejected(VQ_SysMatrixSolve(empty, rhs_, x_), "system matrix has no equations (order 0)");
  VQ_SysMatrixEnd(empty);
  VQ_SysVectorHandle shortRhs = VQ_SysVectorCreate(2, 1.0);
  ExpectRejected(VQ_SysMatrixSolve(h_, shortRhs, x_),
                 "right-hand side has 2 entries, the matrix 3 equations");
  VQ_SysVectorEnd(shortRhs);
}

TEST_F(HostileHandles, SolveMultRejectsNegativeCountsAndMissingHandles) {
  VQ_SysVectorHandle rhsList[1] = {rhs_};
  VQ_SysVectorHandle solList[1] = {nullptr};
  ExpectRejected(VQ_SysMatrixSolveMult(h_, -1, rhsList, solList),
                 "count of right-hand sides is negative");
  ExpectRejected(VQ_SysMatrixSolveMult(h_, 1, nullptr, solList), "array of vector handles is null");
  ExpectRejected(VQ_SysMatrixSolveMult(h_, 1, rhsList, solList), "solution handle 0 is null");
}

TEST_F(HostileHandles, NaNAssembledIntoTheMatrixIsRejectedBySolveAndResolve) {
  // A first Resolve keeps a factorisation; the NaN added afterwards must not be solved around.
  ASSERT_EQ(VQ_SysMatrixResolve(h_, rhs_, x_), 0);
  VQ_SysVectorInit(x_, -8.0);
  const int dof[] = {2};
  const double nan[] = {kNaN};
  VQ_SysMatrixAssemDiag(h_, 1, dof, nan);
  ExpectRejected(VQ_SysMatrixSolve(h_, rhs_, x_), "value at row 2, column 2 is NaN");
  ExpectRejected(VQ_SysMatrixResolve(h_, rhs_, x_), "value at row 2, column 2 is NaN");
  VQ_SysVectorHandle rhsList[1] = {rhs_};
  VQ_SysVectorHandle solList[1] = {x_};
  ExpectRejected(VQ_SysMatrixSolveMult(h_, 1, rhsList, solList), "value at row 2, column 2 is NaN");
}

}  // namespace
