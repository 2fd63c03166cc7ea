// Malformed input at every flat entry point that takes compressed rows: the solutions, the
// products and the eigenvalue analyses. One table of broken models; each entry point answers each
// case with -64 and a message naming the fault, resets the registry first, reads nothing past the
// arrays the calling convention promises, and leaves the caller's arrays as they were (eigenvalue
// outputs cleared, nothing written past them).
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "api/internal/CsrValidation.h"
#include "support/ReliabilitySupport.h"
#include "vqmath.h"

namespace {

using vqtest::GuardedArray;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// Products take any value; kDirect and kMethod narrow a case to VQ_DirectSparseSolver's settings
// and to VQ_EigenvalueAnalysis's method selector.
enum Family { kSolve = 1, kProduct = 2, kEigen = 4, kAll = 7, kDirect = 8, kMethod = 16 };

// One broken model: its arrays exactly as a host passes them, the families of entry points it
// concerns, and the fragment the registry message carries after "ERROR_INVALID_MATRICES: "
// (the eigenvalue analyses name non-finite values in one phrase for K and M).
struct Case {
  const char* name;
  int families;
  int n;
  std::vector<int> rowPointers;
  std::vector<int> columnIndices;
  std::vector<double> values;
  const char* problem;
  const char* eigenProblem = nullptr;
  int nrhs = 2, nev = 2;
  bool nullRowPointers = false, nullColumns = false, nullValues = false, nullRhs = false;
  bool nanMass = false, nullMass = false;
  int solverType = 0, matrixType = -2, diagonalInfo = 0;
  bool ownMethod = false;  // method below instead of the entry point's own
  int method = 0;
  int code = -64;
};

// The valid 4 x 4 tridiagonal matrix (4, -1) most cases start from.
const std::vector<int> kRp = {1, 3, 5, 7, 8};
const std::vector<int> kCi = {1, 2, 2, 3, 3, 4, 4};
const std::vector<double> kV = {4, -1, 4, -1, 4, -1, 4};

Case Base(const char* name, int families, const char* problem, const char* eigenProblem = nullptr,
          const std::function<void(Case&)>& edit = nullptr) {
  Case c{name, families, 4, kRp, kCi, kV, problem, eigenProblem};
  if (edit) edit(c);
  return c;
}

std::vector<Case> Cases() {
  std::vector<Case> cases;
  cases.push_back(Case{"OrderZero", kAll, 0, {1}, {}, {}, "order n = 0 is not positive", "order n"});
  cases.push_back(Case{"OrderNegative", kAll, -3, {1}, {}, {}, "order n = -3 is not positive", "order n"});
  cases.push_back(Base("NullRowPointers", kAll, "row pointer array is null", nullptr,
                       [](Case& c) { c.nullRowPointers = true; }));
  cases.push_back(Base("NullColumns", kAll, "column index array is null", nullptr,
                       [](Case& c) { c.nullColumns = true; }));
  cases.push_back(Base("NullValues", kAll, "value array is null", nullptr,
                       [](Case& c) { c.nullValues = true; }));
  cases.push_back(Base("NullRightHandSide", kSolve, "right-hand side array is null", nullptr,
                       [](Case& c) { c.nullRhs = true; }));
  cases.push_back(Base("NoRightHandSides", kSolve, "number of right-hand sides nrhs = 0 is below 1",
                       nullptr, [](Case& c) { c.nrhs = 0; }));
  cases.push_back(Base("NoEigenvalues", kEigen, "", "eigenvalues", [](Case& c) { c.nev = 0; }));
  cases.push_back(
      Base("NegativeEigenvalueCount", kEigen, "", "eigenvalues", [](Case& c) { c.nev = -3; }));
  cases.push_back(
      Base("NaNInMass", kEigen, "", "NaN or infinite", [](Case& c) { c.nanMass = true; }));
  cases.push_back(Base("NullMass", kEigen, "", "mass", [](Case& c) { c.nullMass = true; }));
  cases.push_back(Base("RowPointersNotFromOne", kAll, "row pointers must start at 1 (found 0)",
                       nullptr, [](Case& c) { c.rowPointers[0] = 0; }));
  cases.push_back(Base("RowPointersDecrease", kAll, "row 2: row pointers decrease (3 then 2)",
                       nullptr, [](Case& c) { c.rowPointers[2] = 2; }));
  // A corrupt pointer far beyond the arrays, with columns that keep ascending to the end of the
  // array: a check that walked row 1 before looking at the pointers would read past the three
  // entries the caller holds.
  cases.push_back(Case{"CorruptRowPointerBeyondArrays", kAll, 3, {1, 100, 3, 4}, {1, 2, 3}, {4, -1, 4},
                       "row 2: row pointers decrease (100 then 3)"});
  cases.push_back(Case{"RowPointerAtIntMax", kAll, 3, {1, INT_MAX, 3, 4}, {1, 2, 3}, {4, -1, 4},
                       "row 2: row pointers decrease (2147483647 then 3)"});
  cases.push_back(Case{"EmptyRow", kAll, 3, {1, 3, 3, 4}, {1, 2, 3}, {4, -1, 4},
                       "row 2: the diagonal entry is missing (empty row)"});
  cases.push_back(Case{"DiagonalNotFirst", kAll, 3, {1, 3, 5, 6}, {1, 2, 3, 2, 3}, {4, -1, -1, 4, 4},
                       "row 2: the diagonal entry is missing (first column is 3)"});
  cases.push_back(Case{"ColumnBelowDiagonal", kAll, 3, {1, 3, 5, 6}, {1, 2, 1, 3, 3}, {4, -1, -1, 4, 4},
                       "row 2: column index 1 lies below the diagonal"});
  cases.push_back(Case{"ColumnBeyondOrder", kAll, 3, {1, 3, 5, 6}, {1, 2, 2, 4, 3}, {4, -1, 4, -1, 4},
                       "row 2: column index 4 exceeds the order 3"});
  cases.push_back(Case{"ColumnsNotAscending", kAll, 3, {1, 4, 5, 6}, {1, 3, 2, 2, 3}, {4, -1, -1, 4, 4},
                       "row 1: column indices are not strictly ascending (3 then 2)"});
  cases.push_back(Case{"RepeatedColumn", kAll, 3, {1, 4, 5, 6}, {1, 2, 2, 2, 3}, {4, -1, -1, 4, 4},
                       "row 1: column indices are not strictly ascending (2 then 2)"});
  cases.push_back(Case{"MoreEntriesThanOrderAllows", kAll, 2, {1, 4, 5}, {1, 2, 3, 2}, {4, -1, -1, 4},
                       "row 1: column index 3 exceeds the order 2"});
  cases.push_back(Base("NaNOffDiagonal", kSolve | kEigen, "value at row 2, column 3 is NaN",
                       "NaN or infinite", [](Case& c) { c.values[3] = kNaN; }));
  cases.push_back(Base("InfiniteDiagonal", kSolve | kEigen, "value at row 4, column 4 is infinite",
                       "NaN or infinite", [](Case& c) { c.values[6] = kInf; }));
  cases.push_back(Base("NegativeInfinityFirstEntry", kSolve | kEigen,
                       "value at row 1, column 1 is infinite", "NaN or infinite",
                       [](Case& c) { c.values[0] = -kInf; }));
  // Settings outside their tables: solver and matrix types, diagonal output without arrays, and
  // an unknown eigen method (-9999 "Unclassified").
  cases.push_back(Base("SolverType3", kDirect, "solver type 3 is not 0, 1 or 2", nullptr,
                       [](Case& c) { c.solverType = 3; }));
  cases.push_back(Base("SolverTypeNegative", kDirect, "solver type -1 is not 0, 1 or 2", nullptr,
                       [](Case& c) { c.solverType = -1; }));
  cases.push_back(Base("MatrixType11", kDirect, "matrix type 11 is not 2 or -2", nullptr,
                       [](Case& c) { c.matrixType = 11; }));
  cases.push_back(Base("DiagonalWithoutArrays", kDirect,
                       "diagonal information requested but a diagonal array is null", nullptr,
                       [](Case& c) { c.matrixType = 2, c.diagonalInfo = 1; }));
  const std::pair<const char*, int> methods[] = {
      {"Method3", 3}, {"MethodNegative", -1}, {"MethodIntMax", INT_MAX}, {"MethodIntMin", INT_MIN}};
  for (const auto& m : methods) {
    cases.push_back(Base(m.first, kMethod, "", "Unclassified"));
    cases.back().ownMethod = true, cases.back().method = m.second, cases.back().code = -9999;
  }
  return cases;
}

enum class Entry {
  SparseSolverDirect, DirectSparseSolver, SolveAdvanced,
  ProductKernel, ProductNative, ProductMkl, ProductNativeDispatch, MatrixProductMkl, WriteMatrix,
  Subspace, Ritz, Feast, Lapack, Jacobi, Arpack, BlockLanczos, Band, SturmCount, ResidualMode
};
const char* const kEntryNames[] = {"SparseSolverDirect", "DirectSparseSolver", "SolveAdvanced", "ProductKernel",
                                   "ProductNative", "ProductMkl", "ProductNativeDispatch", "MatrixProductMkl",
                                   "WriteMatrix", "Subspace", "Ritz", "Feast", "Lapack", "Jacobi", "Arpack",
                                   "BlockLanczos", "Band", "SturmCount", "ResidualMode"};
std::vector<Entry> Entries() {
  std::vector<Entry> all;
  for (int e = 0; e <= static_cast<int>(Entry::ResidualMode); ++e) all.push_back(static_cast<Entry>(e));
  return all;
}

Family FamilyOf(Entry e) {
  return e <= Entry::SolveAdvanced ? kSolve : e <= Entry::WriteMatrix ? kProduct : kEigen;
}

// The case's arrays as guarded copies, and guarded outputs filled with a pattern.
struct Call {
  const Case& c;
  GuardedArray<int> rp, ci;
  GuardedArray<double> v, mass, rhs, out, vectors;
  int found = -5, count = -5;
  double scalars[2] = {-3.25, -3.25};
  explicit Call(const Case& cs)
      : c(cs),
        rp(cs.rowPointers.size()),
        ci(cs.columnIndices.size()),
        v(cs.values.size()),
        mass(static_cast<size_t>(std::max(cs.n, 1)), 1.0),
        rhs(static_cast<size_t>(std::max(cs.n, 1)) * std::max(cs.nrhs, 1), 1.5),
        out(static_cast<size_t>(std::max(cs.n, 1)) * std::max({cs.nrhs, cs.nev, cs.n, 1}), -3.25),
        vectors(static_cast<size_t>(std::max(cs.n, 1)) * std::max({cs.nev, cs.n, 1}), -3.25) {
    std::copy(cs.rowPointers.begin(), cs.rowPointers.end(), rp.data());
    std::copy(cs.columnIndices.begin(), cs.columnIndices.end(), ci.data());
    std::copy(cs.values.begin(), cs.values.end(), v.data());
    if (cs.nanMass) mass[1] = kNaN;
  }
  int Run(Entry e, bool inPlace) {
    const int* r = c.nullRowPointers ? nullptr : rp.data();
    const int* col = c.nullColumns ? nullptr : ci.data();
    const double* val = c.nullValues ? nullptr : v.data();
    const double* m = c.nullMass ? nullptr : mass.data();
    double* b = c.nullRhs ? nullptr : rhs.data();
    double* x = inPlace ? nullptr : out.data();
    switch (e) {
      case Entry::SparseSolverDirect: return VQ_SparseSolverDirect(c.n, c.nrhs, r, col, val, b, 0, x);
      case Entry::DirectSparseSolver:
        return VQ_DirectSparseSolver(c.n, c.nrhs, r, col, val, b, c.solverType, c.matrixType,
                                     nullptr, 0, "", 1, 0, x, c.diagonalInfo, nullptr, nullptr, 0,
                                     0);
      case Entry::SolveAdvanced: return VQ_SysMatrixSolveAdvanced(c.n, val, r, col, c.nrhs, b, 1, 1, x);
      case Entry::ProductKernel: return VQ_SparseSymmMatrixVectorMultiplication(1, c.n, val, r, col, rhs.data(), out.data());
      case Entry::ProductNativeDispatch:
        return VQ_SparseSymmMatrixVectorMultiplication(0, c.n, val, r, col, rhs.data(), out.data());
      case Entry::ProductNative:
        return VQ_SparseSymmMatrixVectorMultiplication_NATIVE(c.n, val, r, col, rhs.data(), out.data());
      case Entry::ProductMkl: return VQ_SparseSymmMatrixVectorMultiplication_MKL(c.n, val, r, col, rhs.data(), out.data());
      case Entry::MatrixProductMkl:
        return VQ_SparseSymmMatrixMatrixMultiplication_MKL(c.n, 1, val, r, col, rhs.data(), out.data());
      case Entry::WriteMatrix: return VQ_WriteSystemMatrixMTX(c.n, r, col, val);
      case Entry::Subspace:
      case Entry::Ritz:
      case Entry::Feast:
        return VQ_EigenvalueAnalysis(
            c.ownMethod ? c.method : static_cast<int>(e) - static_cast<int>(Entry::Subspace), c.n,
            c.nev, r, col, val, m, 0, -2, "", 0, 0.0, 0, &found, out.data(), 1, vectors.data(), 0.0,
            0.0, 10.0, nullptr);
      case Entry::Lapack: return VQ_EigenvalueAnalysis_LAPACK(c.n, r, col, val, m, 1, out.data(), vectors.data());
      case Entry::Jacobi: return VQ_EigenvalueAnalysis_JACOBI(c.n, r, col, val, m, out.data(), vectors.data());
      case Entry::Arpack:
        return VQ_EigenvalueAnalysis_ARPACK(c.n, c.nev, r, col, val, m, 4, 0, 0, &found, out.data(),
                                            vectors.data(), 0.0, "", 0);
      case Entry::BlockLanczos:
        return VQ_EigenvalueAnalysis_BlockLanczos(c.n, c.nev, r, col, val, m, 0, 0, &found, out.data(),
                                                  vectors.data(), 0.0, 0, 0.0, "", &count);
      case Entry::Band:
        return VQ_EigenvalueAnalysis_Band(c.n, r, col, val, m, -1.0, 3.0, c.nev, &count, &found, out.data(),
                                          vectors.data(), "");
      case Entry::SturmCount: return VQ_SturmCount(c.n, r, col, val, m, 1.0, &count);
      case Entry::ResidualMode:
        return VQ_ResidualMode(c.n, r, col, val, m, 0, nullptr, rhs.data(), out.data(), &scalars[0], &scalars[1]);
    }
    return 0;
  }
  bool Intact() const {
    return rp.Intact() && ci.Intact() && v.Intact() && mass.Intact() && rhs.Intact() && out.Intact() &&
           vectors.Intact();
  }
};

// The dense paths deliver all eigenvalues, a band all it holds, a count or a residual mode none.
bool TakesCount(Entry e) {
  return e != Entry::Lapack && e != Entry::Jacobi && e != Entry::Band && e != Entry::SturmCount &&
         e != Entry::ResidualMode;
}

// The families of cases an entry point meets.
int Bits(Entry e) {
  return FamilyOf(e) | (e == Entry::DirectSparseSolver ? kDirect : 0) |
         (e == Entry::Subspace ? kMethod : 0);
}

// Every entry point with every case that concerns its family.
std::vector<std::pair<Entry, int>> Combinations() {
  std::vector<std::pair<Entry, int>> all;
  const std::vector<Case> cases = Cases();
  for (Entry e : Entries())
    for (size_t k = 0; k < cases.size(); ++k)
      if ((cases[k].families & Bits(e)) && (cases[k].nev > 0 || TakesCount(e)))
        all.emplace_back(e, static_cast<int>(k));
  return all;
}

class MalformedInput : public testing::TestWithParam<std::pair<Entry, int>> {
 protected:
  void SetUp() override {
    VQ_InitializeLibrary();
    VQ_ReleaseSolver();
  }
  void TearDown() override { VQ_ReleaseSolver(); }
};

TEST_P(MalformedInput, IsRejectedWithItsDescriptionAndTouchesNothing) {
  const Entry e = GetParam().first;
  const Family family = FamilyOf(e);
  const Case c = Cases()[GetParam().second];
  // The Lanczos driver answers counts out of range as ARPACK does (-46); the eigen paths name a
  // value that is not finite in words of their own.
  const bool arpackCount = e == Entry::Arpack && (c.n <= 0 || c.nev <= 0);
  const int code = arpackCount ? -46 : c.code;
  std::vector<std::string> fragments = {family == kEigen && c.eigenProblem ? c.eigenProblem : c.problem};
  if (arpackCount) fragments = {"must be positive"};
  if (family == kEigen && c.eigenProblem && std::string(c.eigenProblem) == "NaN or infinite")
    fragments = {"NaN", "infinite", "not finite"};
  if (family == kEigen && c.nullMass) fragments.push_back("M: array is null");
  for (bool inPlace : {true, false}) {
    if (inPlace && family != kSolve) continue;
    SCOPED_TRACE(inPlace ? "in place" : "into a separate array");
    Call call(c);
    const std::vector<double> rhsBefore = call.rhs.Values(), outBefore = call.out.Values();
    VQ_ResolveWarning(-23);  // the call resets the registry
    EXPECT_EQ(call.Run(e, inPlace), code);
    const vqtest::RegistryError last = vqtest::LastError();
    EXPECT_EQ(last.code, code);
    if (code == -64) {
      EXPECT_EQ(last.message.rfind("ERROR_INVALID_MATRICES: ", 0), 0u) << last.message;
    }
    if (c.families & (kDirect | kMethod)) {  // the whole message
      EXPECT_EQ(last.message, (code == -64 ? "ERROR_INVALID_MATRICES: " : "") + fragments[0]);
      EXPECT_EQ(call.found, code == -64 ? -5 : 0);
    }
    EXPECT_TRUE(std::any_of(fragments.begin(), fragments.end(),
                            [&](const std::string& f) { return last.message.find(f) != std::string::npos; }))
        << last.message;
    if (family != kProduct) {  // products leave the registry alone
      EXPECT_EQ(VQ_GetLastWarningID(), 0);
    }
    EXPECT_TRUE(vqtest::SameBits(call.rhs.Values(), rhsBefore));
    if (family == kEigen) {
      EXPECT_TRUE(call.found == 0 || call.found == -5) << call.found;
      for (int k = 0; k < c.nev; ++k) EXPECT_TRUE(call.out[k] == 0.0 || call.out[k] == -3.25) << k;
    } else {
      EXPECT_TRUE(vqtest::SameBits(call.out.Values(), outBefore));
    }
    EXPECT_TRUE(call.Intact());
  }
}

INSTANTIATE_TEST_SUITE_P(
    EveryEntryPoint, MalformedInput,
    testing::ValuesIn(Combinations()),
    [](const testing::TestParamInfo<std::pair<Entry, int>>& info) {
      return std::string(kEntryNames[static_cast<int>(info.param.first)]) + "_" + Cases()[info.param.second].name;
    });

// The base model itself goes through every entry point, so each case above fails for its own fault.
TEST(MalformedInputBaseline, ValidModelPassesEveryEntryPoint) {
  VQ_InitializeLibrary();
  for (Entry e : Entries()) {
    SCOPED_TRACE(kEntryNames[static_cast<int>(e)]);
    VQ_ReleaseSolver();
    const Case c = Base("Valid", kAll, "");
    Call call(c);
    const int code = call.Run(e, false);
    EXPECT_TRUE(code == 0 || (e == Entry::Ritz && code == 1)) << code << " " << vqtest::LastError().message;
    EXPECT_TRUE(call.Intact());
  }
  std::remove("K.mtx");
  VQ_ReleaseSolver();
}

// A NaN handed over with refactor 1 to the kept solver is caught before PARDISO sees it, and the
// kept solver still solves the next valid matrix.
TEST(MalformedInputKeptSolver, NaNOnRefactorIsRejectedAndTheKeptSolverStaysUsable) {
  VQ_ReleaseSolver();
  vqtest::Csr k = vqtest::Tridiagonal(6);
  std::vector<double> rhs(6, 1.0), x(6, 0.0), x2(6, 7.0), broken = k.values, scaled = k.values;
  auto solve = [&](std::vector<double>& values, int refactor, std::vector<double>& out) {
    return VQ_SysMatrixSolveAdvanced(6, values.data(), k.rowPointers.data(), k.columnIndices.data(),
                                     1, rhs.data(), 1, refactor, out.data());
  };
  ASSERT_EQ(solve(k.values, 0, x), 0);
  broken[4] = kNaN;
  EXPECT_EQ(solve(broken, 1, x2), -64);
  EXPECT_EQ(x2, std::vector<double>(6, 7.0));
  for (double& v : scaled) v *= 2.0;
  ASSERT_EQ(solve(scaled, 1, x2), 0);
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(x2[i], 0.5 * x[i], 1e-14);
  VQ_ReleaseSolver();
}

// Well-formed layouts pass the validation: a diagonal matrix and a dense upper triangle.
TEST(MalformedInputValidation, AcceptsEveryWellFormedLayout) {
  std::string problem;
  for (const vqtest::Csr& k : {vqtest::DiagonalCsr({1, 2, 3}), vqtest::CsrFromDense(3, {4, 1, 1, 1, 4, 1, 1, 1, 4}),
                               vqtest::Tridiagonal(5)})
    EXPECT_TRUE(vqmath::internal::ValidateUpperCsr(k.n, VQTEST_CSR(k), &problem)) << problem;
}

// More eigenvalues than the order: each method answers with what exists (the tridiagonal (2, -1)
// of order 5 with a unit mass, eigenvalues 2 - 2 cos(k pi / 6)) and leaves the other slots cleared.
TEST(MalformedInputCounts, MoreEigenvaluesThanTheOrderGiveWhatExists) {
  VQ_InitializeLibrary();
  const vqtest::Csr k = vqtest::Tridiagonal(5, 2.0, -1.0);
  const std::vector<double> mass(5, 1.0);
  for (int type : {0, 1, 2})
    for (int nev : {5, 8, 40}) {
      SCOPED_TRACE("method " + std::to_string(type) + ", nev " + std::to_string(nev));
      GuardedArray<double> values(static_cast<size_t>(nev), -7.0), modes(static_cast<size_t>(5 * nev), -7.0);
      int found = -1;
      const int code =
          VQ_EigenvalueAnalysis(type, 5, nev, VQTEST_CSR(k), mass.data(), 0, -2, "", 0, 0.0, 0,
                                &found, values.data(), 1, modes.data(), 0.0, 0.0, 10.0, nullptr);
      ASSERT_TRUE(code == 0 || code == 1) << code << " " << vqtest::LastError().message;
      ASSERT_GE(found, 1);
      ASSERT_LE(found, 5);
      for (int q = 0; q < found && type != 1; ++q)  // Ritz vectors estimate; the others converge
        EXPECT_NEAR(values[q], 2.0 - 2.0 * std::cos((q + 1) * M_PI / 6.0), 1e-8);
      for (int q = found; q < nev; ++q) EXPECT_EQ(values[q], 0.0) << "slot " << q;
      EXPECT_TRUE(values.Intact() && modes.Intact());
    }
}

}  // namespace
