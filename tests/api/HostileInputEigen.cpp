// Broken input at the eigenvalue entry points: the dispatcher VQ_EigenvalueAnalysis with every
// method (and unknown method numbers), and the dense LAPACK/Jacobi paths. Malformed matrices,
// NaN or infinite values in K or the mass, missing arrays and non-positive counts give -64 with
// a description, clear the caller's outputs and write nothing past them; more eigenvalues than
// the order are answered with what exists, the rest of the caller's slots left cleared.
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

// K of order 5 (tridiagonal 2, -1) with a unit mass: eigenvalues 2 - 2 cos(k pi / 6).
struct Model {
  int n = 5;
  std::vector<int> rowPointers{1, 3, 5, 7, 9, 10};
  std::vector<int> columnIndices{1, 2, 2, 3, 3, 4, 4, 5, 5};
  std::vector<double> values{2, -1, 2, -1, 2, -1, 2, -1, 2};
  std::vector<double> mass = std::vector<double>(5, 1.0);
  double Exact(int k) const { return 2.0 - 2.0 * std::cos(k * M_PI / 6.0); }
};

// One dispatcher call into guarded outputs.
struct EigenCall {
  int found = -1;
  GuardedArray<double> eigenvalues;
  GuardedArray<double> modes;
  EigenCall(int n, int nev)
      : eigenvalues(static_cast<size_t>(std::max(nev, 1)), -7.0),
        modes(static_cast<size_t>(std::max(n, 1)) * std::max(nev, 1), -7.0) {}
  int Run(int type, int n, int nev, const int* rp, const int* ci, const double* v,
          const double* mass) {
    return VQ_EigenvalueAnalysis(type, n, nev, rp, ci, v, mass, 0, -2, "", 0, 0.0, 0, &found,
                                 eigenvalues.data(), 1, modes.data(), 0.0, 0.0, 10.0, nullptr);
  }
  bool Intact() const { return eigenvalues.Intact() && modes.Intact(); }
};

class HostileEigenInput : public testing::TestWithParam<int> {};

TEST_P(HostileEigenInput, MoreEigenvaluesThanTheOrderGiveWhatExists) {
  const int type = GetParam();
  Model m;
  for (int nev : {5, 8, 40}) {
    SCOPED_TRACE("nev " + std::to_string(nev));
    EigenCall call(m.n, nev);
    const int code = call.Run(type, m.n, nev, m.rowPointers.data(), m.columnIndices.data(),
                              m.values.data(), m.mass.data());
    ASSERT_TRUE(code == 0 || code == 1) << code << " " << vqtest::LastError().message;
    ASSERT_GE(call.found, 1);
    ASSERT_LE(call.found, m.n);
    if (type != 1) {  // Ritz vectors estimate; the others converge to the exact values
      for (int k = 0; k < call.found; ++k) EXPECT_NEAR(call.eigenvalues[k], m.Exact(k + 1), 1e-8);
    }
    for (int k = call.found; k < nev; ++k) EXPECT_EQ(call.eigenvalues[k], 0.0) << "slot " << k;
    EXPECT_TRUE(call.Intact());
  }
}

struct Broken {
  const char* name;
  int n, nev;
  std::vector<int> rowPointers, columnIndices;
  std::vector<double> values, mass;
  bool nullMass;
  const char* contains;  // part of the registry message
};

std::vector<Broken> BrokenCases() {
  const Model m;
  std::vector<Broken> c;
  c.push_back({"OrderZero", 0, 2, {1}, {}, {}, {}, false, "order n"});
  c.push_back({"NoEigenvalues", 5, 0, m.rowPointers, m.columnIndices, m.values, m.mass, false,
               "eigenvalues"});
  c.push_back({"NegativeCount", 5, -3, m.rowPointers, m.columnIndices, m.values, m.mass, false,
               "eigenvalues"});
  c.push_back({"CorruptRowPointer",
               3,
               2,
               {1, 100, 3, 4},
               {1, 2, 3},
               {2, -1, 2},
               {1, 1, 1},
               false,
               "row 2: row pointers decrease (100 then 3)"});
  c.push_back({"EmptyRow", 3, 2, {1, 3, 3, 4}, {1, 2, 3}, {2, -1, 2}, {1, 1, 1}, false, "row 2"});
  c.push_back({"ColumnBeyondOrder",
               3,
               2,
               {1, 3, 4, 5},
               {1, 7, 2, 3},
               {2, -1, 2, 2},
               {1, 1, 1},
               false,
               "exceeds the order"});
  Broken nanK{"NaNInK", 5,      2,     m.rowPointers,    m.columnIndices,
              m.values, m.mass, false, "NaN or infinite"};
  nanK.values[3] = kNaN;
  c.push_back(nanK);
  Broken infK{"InfinityInK", 5,      2,     m.rowPointers,    m.columnIndices,
              m.values,      m.mass, false, "NaN or infinite"};
  infK.values[8] = -kInf;
  c.push_back(infK);
  Broken nanMass{"NaNInMass", 5,      2,     m.rowPointers,    m.columnIndices,
                 m.values,    m.mass, false, "NaN or infinite"};
  nanMass.mass[4] = kNaN;
  c.push_back(nanMass);
  Broken nullMass{"NullMass", 5, 2, m.rowPointers, m.columnIndices, m.values, m.mass, true, "mass"};
  c.push_back(nullMass);
  return c;
}

class HostileEigenMalformed : public testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(HostileEigenMalformed, IsRejectedAndOutputsAreCleared) {
  const int type = std::get<0>(GetParam());
  const Broken b = BrokenCases()[std::get<1>(GetParam())];
  GuardedArray<int> rp(b.rowPointers.size()), ci(b.columnIndices.size());
  GuardedArray<double> v(b.values.size()), mass(b.mass.size());
  for (size_t k = 0; k < b.rowPointers.size(); ++k) rp[k] = b.rowPointers[k];
  for (size_t k = 0; k < b.columnIndices.size(); ++k) ci[k] = b.columnIndices[k];
  for (size_t k = 0; k < b.values.size(); ++k) v[k] = b.values[k];
  for (size_t k = 0; k < b.mass.size(); ++k) mass[k] = b.mass[k];
  EigenCall call(b.n, b.nev);
  const int code = call.Run(type, b.n, b.nev, rp.data(), ci.data(), v.data(),
                            b.nullMass ? nullptr : mass.data());
  EXPECT_EQ(code, -64);
  const vqtest::RegistryError e = vqtest::LastError();
  EXPECT_EQ(e.code, -64);
  EXPECT_EQ(e.message.rfind("ERROR_INVALID_MATRICES: ", 0), 0u) << e.message;
  EXPECT_NE(e.message.find(b.contains), std::string::npos) << e.message;
  EXPECT_EQ(call.found, 0);
  for (int k = 0; k < b.nev; ++k) EXPECT_EQ(call.eigenvalues[k], 0.0);
  EXPECT_TRUE(call.Intact() && rp.Intact() && ci.Intact() && v.Intact() && mass.Intact());
}

std::string MalformedName(const testing::TestParamInfo<std::tuple<int, int>>& info) {
  return "Type" + std::to_string(std::get<0>(info.param)) + "_" +
         BrokenCases()[std::get<1>(info.param)].name;
}

INSTANTIATE_TEST_SUITE_P(Methods, HostileEigenInput, testing::Values(0, 1, 2),
                         [](const testing::TestParamInfo<int>& info) {
                           return "Type" + std::to_string(info.param);
                         });
INSTANTIATE_TEST_SUITE_P(Methods, HostileEigenMalformed,
                         testing::Combine(testing::Values(0, 1, 2),
                                          testing::Range(0,
                                                         static_cast<int>(BrokenCases().size()))),
                         MalformedName);

TEST(HostileEigenDispatcher, UnknownMethodNumbersAreUnclassified) {
  Model m;
  for (int type : {3, -1, INT_MAX, INT_MIN}) {
    EigenCall call(m.n, 3);
    EXPECT_EQ(call.Run(type, m.n, 3, m.rowPointers.data(), m.columnIndices.data(), m.values.data(),
                       m.mass.data()),
              -9999);
    const vqtest::RegistryError e = vqtest::LastError();
    EXPECT_EQ(e.code, -9999);
    EXPECT_EQ(e.message, "Unclassified");
    EXPECT_EQ(call.found, 0);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(call.eigenvalues[k], 0.0);
    EXPECT_TRUE(call.Intact());
  }
}

// The dense paths read the same compressed rows: a corrupt pointer or a NaN is refused before
// the n x n copies are made.
TEST(HostileEigenDensePaths, MalformedOrNonFiniteInputIsRejected) {
  const std::vector<int> corrupt{1, 100, 3, 4};
  const std::vector<int> columns{1, 2, 3};
  const std::vector<double> values{2, -1, 2}, mass{1, 1, 1};
  GuardedArray<double> lambda(3, 5.0), vectors(9, 5.0);
  EXPECT_EQ(VQ_EigenvalueAnalysis_LAPACK(3, corrupt.data(), columns.data(), values.data(),
                                         mass.data(), 1, lambda.data(), vectors.data()),
            -64);
  EXPECT_NE(vqtest::LastError().message.find("row pointers decrease (100 then 3)"),
            std::string::npos);
  EXPECT_EQ(VQ_EigenvalueAnalysis_JACOBI(3, corrupt.data(), columns.data(), values.data(),
                                         mass.data(), lambda.data(), vectors.data()),
            -64);
  Model m;
  m.values[2] = kNaN;
  GuardedArray<double> lambda5(5, 5.0), vectors5(25, 5.0);
  EXPECT_EQ(
      VQ_EigenvalueAnalysis_LAPACK2(5, m.rowPointers.data(), m.columnIndices.data(),
                                    m.values.data(), m.rowPointers.data(), m.columnIndices.data(),
                                    m.values.data(), 1, lambda5.data(), vectors5.data()),
      -64);
  EXPECT_EQ(vqtest::LastError().code, -64);
  for (int k = 0; k < 5; ++k) EXPECT_EQ(lambda5[k], 0.0);
  EXPECT_EQ(vectors5.Values(), std::vector<double>(25, 5.0));
  EXPECT_TRUE(lambda.Intact() && vectors.Intact() && lambda5.Intact() && vectors5.Intact());
}

}  // namespace
