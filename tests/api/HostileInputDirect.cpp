// Malformed models at the direct-solution boundary: VQ_SparseSolverDirect, VQ_DirectSparseSolver
// and VQ_SysMatrixSolveAdvanced must answer every broken input with -64 and a message that says
// what is wrong, read nothing past the arrays the calling convention promises, and leave the
// caller's right-hand sides and solution exactly as they were.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "support/ReliabilitySupport.h"
#include "vqmath.h"

namespace {

using vqtest::GuardedArray;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// One broken model: its arrays exactly as a host would pass them (guarded on both sides) and
// the description the registry must carry after "ERROR_INVALID_MATRICES: ".
struct Case {
  const char* name;
  int n;
  std::vector<int> rowPointers;
  std::vector<int> columnIndices;
  std::vector<double> values;
  int nrhs;
  const char* problem;
  bool nullRowPointers = false, nullColumns = false, nullValues = false, nullRhs = false;
};

// The valid 4 x 4 tridiagonal matrix most cases start from (rows 1..4 diagonal first).
const std::vector<int> kRp = {1, 3, 5, 7, 8};
const std::vector<int> kCi = {1, 2, 2, 3, 3, 4, 4};
const std::vector<double> kV = {4, -1, 4, -1, 4, -1, 4};

Case Base(const char* name, const char* problem) { return Case{name, 4, kRp, kCi, kV, 2, problem}; }

std::vector<Case> Cases() {
  std::vector<Case> cases;
  cases.push_back(Case{"OrderZero", 0, {1}, {}, {}, 1, "order n = 0 is not positive"});
  cases.push_back(Case{"OrderNegative", -3, {1}, {}, {}, 1, "order n = -3 is not positive"});
  Case c = Base("NullRowPointers", "row pointer array is null");
  c.nullRowPointers = true;
  cases.push_back(c);
  c = Base("NullColumns", "column index array is null");
  c.nullColumns = true;
  cases.push_back(c);
  c = Base("NullValues", "value array is null");
  c.nullValues = true;
  cases.push_back(c);
  c = Base("NullRightHandSide", "right-hand side array is null");
  c.nullRhs = true;
  cases.push_back(c);
  c = Base("NoRightHandSides", "number of right-hand sides nrhs = 0 is below 1");
  c.nrhs = 0;
  cases.push_back(c);
  c = Base("RowPointersNotFromOne", "row pointers must start at 1 (found 0)");
  c.rowPointers[0] = 0;
  cases.push_back(c);
  c = Base("RowPointersDecrease", "row 2: row pointers decrease (3 then 2)");
  c.rowPointers[2] = 2;
  cases.push_back(c);
  // A corrupt pointer far beyond the arrays, with columns that keep ascending to the end of the
  // array: a check that walked row 1 before looking at the pointers would read past the three
  // entries the caller holds.
  cases.push_back(Case{"CorruptRowPointerBeyondArrays",
                       3,
                       {1, 100, 3, 4},
                       {1, 2, 3},
                       {4, -1, 4},
                       1,
                       "row 2: row pointers decrease (100 then 3)"});
  cases.push_back(Case{"RowPointerAtIntMax",
                       3,
                       {1, INT_MAX, 3, 4},
                       {1, 2, 3},
                       {4, -1, 4},
                       1,
                       "row 2: row pointers decrease (2147483647 then 3)"});
  cases.push_back(Case{"EmptyRow",
                       3,
                       {1, 3, 3, 4},
                       {1, 2, 3},
                       {4, -1, 4},
                       1,
                       "row 2: the diagonal entry is missing (empty row)"});
  cases.push_back(Case{"DiagonalNotFirst",
                       3,
                       {1, 3, 5, 6},
                       {1, 2, 3, 2, 3},
                       {4, -1, -1, 4, 4},
                       1,
                       "row 2: the diagonal entry is missing (first column is 3)"});
  cases.push_back(Case{"ColumnBelowDiagonal",
                       3,
                       {1, 3, 5, 6},
                       {1, 2, 1, 3, 3},
                       {4, -1, -1, 4, 4},
                       1,
                       "row 2: column index 1 lies below the diagonal"});
  cases.push_back(Case{"ColumnBeyondOrder",
                       3,
                       {1, 3, 5, 6},
                       {1, 2, 2, 4, 3},
                       {4, -1, 4, -1, 4},
                       1,
                       "row 2: column index 4 exceeds the order 3"});
  cases.push_back(Case{"ColumnsNotAscending",
                       3,
                       {1, 4, 5, 6},
                       {1, 3, 2, 2, 3},
                       {4, -1, -1, 4, 4},
                       1,
                       "row 1: column indices are not strictly ascending (3 then 2)"});
  cases.push_back(Case{"RepeatedColumn",
                       3,
                       {1, 4, 5, 6},
                       {1, 2, 2, 2, 3},
                       {4, -1, -1, 4, 4},
                       1,
                       "row 1: column indices are not strictly ascending (2 then 2)"});
  cases.push_back(Case{"MoreEntriesThanOrderAllows",
                       2,
                       {1, 4, 5},
                       {1, 2, 3, 2},
                       {4, -1, -1, 4},
                       1,
                       "row 1: column index 3 exceeds the order 2"});
  c = Base("NaNOffDiagonal", "value at row 2, column 3 is NaN");
  c.values[3] = kNaN;
  cases.push_back(c);
  c = Base("InfiniteDiagonal", "value at row 4, column 4 is infinite");
  c.values[6] = kInf;
  cases.push_back(c);
  c = Base("NegativeInfinityFirstEntry", "value at row 1, column 1 is infinite");
  c.values[0] = -kInf;
  cases.push_back(c);
  return cases;
}

enum class EntryPoint { SparseSolverDirect, DirectSparseSolver, SolveAdvanced };

const char* Name(EntryPoint e) {
  switch (e) {
    case EntryPoint::SparseSolverDirect: return "SparseSolverDirect";
    case EntryPoint::DirectSparseSolver: return "DirectSparseSolver";
    default: return "SolveAdvanced";
  }
}

// Calls the entry point on the case's arrays (guarded copies), in place or into a separate
// solution array.
struct Call {
  GuardedArray<int> rp, ci;
  GuardedArray<double> v, rhs, solution;
  explicit Call(const Case& c)
      : rp(c.rowPointers.size()),
        ci(c.columnIndices.size()),
        v(c.values.size()),
        rhs(static_cast<size_t>(std::max(c.n, 1)) * std::max(c.nrhs, 1), 1.5),
        solution(rhs.size(), -3.25) {
    for (size_t k = 0; k < c.rowPointers.size(); ++k) rp[k] = c.rowPointers[k];
    for (size_t k = 0; k < c.columnIndices.size(); ++k) ci[k] = c.columnIndices[k];
    for (size_t k = 0; k < c.values.size(); ++k) v[k] = c.values[k];
  }
  int Run(EntryPoint e, const Case& c, bool inPlace) {
    const int* prp = c.nullRowPointers ? nullptr : rp.data();
    const int* pci = c.nullColumns ? nullptr : ci.data();
    const double* pv = c.nullValues ? nullptr : v.data();
    double* pb = c.nullRhs ? nullptr : rhs.data();
    double* px = inPlace ? nullptr : solution.data();
    switch (e) {
      case EntryPoint::SparseSolverDirect:
        return VQ_SparseSolverDirect(c.n, c.nrhs, prp, pci, pv, pb, 0, px);
      case EntryPoint::DirectSparseSolver:
        return VQ_DirectSparseSolver(c.n, c.nrhs, prp, pci, pv, pb, 0, -2, nullptr, 0, "", 1, 0, px,
                                     0, nullptr, nullptr, 0, 0);
      default: return VQ_SysMatrixSolveAdvanced(c.n, pv, prp, pci, c.nrhs, pb, 1, 1, px);
    }
  }
};

class HostileDirectInput : public testing::TestWithParam<std::tuple<EntryPoint, int>> {
 protected:
  void SetUp() override {
    VQ_SetSolverType(0);
    VQ_SetSolverMatrixType(-2);
    VQ_ReleaseSolver();
  }
  void TearDown() override { VQ_ReleaseSolver(); }
};

TEST_P(HostileDirectInput, IsRejectedWithItsDescriptionAndTouchesNothing) {
  const EntryPoint e = std::get<0>(GetParam());
  const Case c = Cases()[std::get<1>(GetParam())];
  for (bool inPlace : {true, false}) {
    SCOPED_TRACE(std::string(c.name) + (inPlace ? " in place" : " into a solution array"));
    Call call(c);
    const std::vector<double> rhsBefore = call.rhs.Values(),
                              solutionBefore = call.solution.Values();
    VQ_ResolveWarning(-23);  // the registry must be reset by the call
    const int code = call.Run(e, c, inPlace);
    EXPECT_EQ(code, -64);
    const vqtest::RegistryError last = vqtest::LastError();
    EXPECT_EQ(last.code, -64);
    EXPECT_EQ(last.message, std::string("ERROR_INVALID_MATRICES: ") + c.problem);
    EXPECT_EQ(VQ_GetLastWarningID(), 0);
    EXPECT_TRUE(vqtest::SameBits(call.rhs.Values(), rhsBefore));
    EXPECT_TRUE(vqtest::SameBits(call.solution.Values(), solutionBefore));
    EXPECT_TRUE(call.rp.Intact() && call.ci.Intact() && call.v.Intact());
    EXPECT_TRUE(call.rhs.Intact() && call.solution.Intact());
  }
}

std::string CaseName(const testing::TestParamInfo<std::tuple<EntryPoint, int>>& info) {
  return std::string(Name(std::get<0>(info.param))) + "_" + Cases()[std::get<1>(info.param)].name;
}

INSTANTIATE_TEST_SUITE_P(AllEntryPoints, HostileDirectInput,
                         testing::Combine(testing::Values(EntryPoint::SparseSolverDirect,
                                                          EntryPoint::DirectSparseSolver,
                                                          EntryPoint::SolveAdvanced),
                                          testing::Range(0, static_cast<int>(Cases().size()))),
                         CaseName);

// The base model itself is solved by all three, so the cases above fail for their own fault.
TEST(HostileDirectInputBaseline, ValidModelSolvesThroughEveryEntryPoint) {
  for (EntryPoint e : {EntryPoint::SparseSolverDirect, EntryPoint::DirectSparseSolver,
                       EntryPoint::SolveAdvanced}) {
    SCOPED_TRACE(Name(e));
    VQ_ReleaseSolver();
    const Case c = Base("Valid", "");
    Call call(c);
    ASSERT_EQ(call.Run(e, c, false), 0);
    vqtest::Csr k;
    k.n = c.n;
    k.rowPointers = c.rowPointers;
    k.columnIndices = c.columnIndices;
    k.values = c.values;
    EXPECT_LT(vqtest::RelativeResidual(k, call.solution.data(), call.rhs.data(), c.nrhs), 1e-12);
    EXPECT_TRUE(call.rhs.Intact() && call.solution.Intact());
    VQ_ReleaseSolver();
  }
}

// Solver and matrix types outside their tables, and diagonal output requested without arrays,
// are the caller's mistakes too.
TEST(HostileDirectInputSettings, UnknownTypesAndMissingDiagonalArraysAreRejected) {
  vqtest::Csr k = vqtest::Tridiagonal(5);
  GuardedArray<double> rhs(5, 1.0), x(5, 0.0);
  const std::vector<double> before = rhs.Values();
  struct Setting {
    int solverType, matrixType, diagonalInfo;
    const char* problem;
  } settings[] = {{3, -2, 0, "solver type 3 is not 0, 1 or 2"},
                  {-1, -2, 0, "solver type -1 is not 0, 1 or 2"},
                  {0, 11, 0, "matrix type 11 is not 2 or -2"},
                  {0, 2, 1, "diagonal information requested but a diagonal array is null"}};
  for (const Setting& s : settings) {
    SCOPED_TRACE(s.problem);
    EXPECT_EQ(
        VQ_DirectSparseSolver(5, 1, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                              rhs.data(), s.solverType, s.matrixType, nullptr, 0, "", 1, 0,
                              x.data(), s.diagonalInfo, nullptr, nullptr, 0, 0),
        -64);
    EXPECT_EQ(vqtest::LastError().message, std::string("ERROR_INVALID_MATRICES: ") + s.problem);
    EXPECT_TRUE(vqtest::SameBits(rhs.Values(), before));
    EXPECT_TRUE(rhs.Intact() && x.Intact());
  }
}

// A NaN handed over with refactor 1 to the kept solver is caught before PARDISO sees it, and the
// kept solver still solves the next valid matrix.
TEST(HostileDirectInputKeptSolver, NaNOnRefactorIsRejectedAndTheKeptSolverStaysUsable) {
  VQ_ReleaseSolver();
  vqtest::Csr k = vqtest::Tridiagonal(6);
  std::vector<double> rhs(6, 1.0), x(6, 0.0);
  ASSERT_EQ(VQ_SysMatrixSolveAdvanced(6, k.values.data(), k.rowPointers.data(),
                                      k.columnIndices.data(), 1, rhs.data(), 1, 0, x.data()),
            0);
  std::vector<double> broken = k.values;
  broken[4] = kNaN;
  std::vector<double> x2(6, 7.0);
  EXPECT_EQ(VQ_SysMatrixSolveAdvanced(6, broken.data(), k.rowPointers.data(),
                                      k.columnIndices.data(), 1, rhs.data(), 1, 1, x2.data()),
            -64);
  EXPECT_EQ(vqtest::LastError().message, "ERROR_INVALID_MATRICES: value at row 3, column 3 is NaN");
  EXPECT_EQ(x2, std::vector<double>(6, 7.0));
  std::vector<double> scaled = k.values;
  for (double& v : scaled) v *= 2.0;
  ASSERT_EQ(VQ_SysMatrixSolveAdvanced(6, scaled.data(), k.rowPointers.data(),
                                      k.columnIndices.data(), 1, rhs.data(), 1, 1, x2.data()),
            0);
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(x2[i], 0.5 * x[i], 1e-14);
  VQ_ReleaseSolver();
}

}  // namespace
