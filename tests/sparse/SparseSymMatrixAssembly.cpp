// Building a sparse symmetric matrix: entry-by-entry assembly (summation, the diagonal rule, the
// key arithmetic), and the builders from arrays, dense and diagonal matrices. Results are checked
// against layouts written out by hand and against dense accumulation of the same entries.

#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <vector>

#include "sparse/VQ_SparseSymMatrix.h"
#include "support/SparseSymMatrixSupport.h"

using namespace vqtest;

namespace {

const char kInvalidCreation[] = ">>>>>>> Invalid Sparse Matrix Creation !..... <<<<<< \n";

struct Entry {
  int i, j;
  double v;
};

// Assembles the entries into a (order n) and returns EndMatrix's result.
bool Assemble(VQ_SparseSymMatrix& a, const std::vector<Entry>& entries) {
  a.BeginMatrix();
  for (const Entry& e : entries) a.Add(e.i, e.j, e.v);
  return a.EndMatrix();
}

void ExpectLayout(const VQ_SparseSymMatrix& a, const std::vector<int>& rows,
                  const std::vector<int>& columns, const std::vector<double>& values) {
  const Csr c = CsrOf(a);
  EXPECT_EQ(c.rowPointers, rows);
  EXPECT_EQ(c.columnIndices, columns);
  EXPECT_EQ(c.values, values);
}

TEST(SparseSymMatrixAssembly, TransposedEntryIsSummedIntoTheUpperOne) {
  VQ_SparseSymMatrix a(2);
  a.BeginMatrix();
  EXPECT_TRUE(a.Add(1, 1, 1.0));
  EXPECT_TRUE(a.Add(2, 2, 2.0));
  EXPECT_TRUE(a.Add(2, 1, 5.0));
  EXPECT_FALSE(a.Add(1, 2, 3.0));  // summed into the entry made by (2, 1)
  ASSERT_TRUE(a.EndMatrix());
  ExpectLayout(a, {1, 3, 4}, {1, 2, 2}, {1.0, 8.0, 2.0});
  EXPECT_EQ(a.MatrixStatus(), 0);
  EXPECT_EQ(a.MatrixType(), MATLIBDLLCOMMONS::SYM_SPARSE_MATRIX);
}

TEST(SparseSymMatrixAssembly, AMissingDiagonalFailsWithStatus66AndMessage) {
  const std::vector<std::vector<Entry>> cases = {
      {{1, 1, 1}, {2, 2, 1}, {1, 3, 1}},  // the last diagonal missing
      {{1, 1, 1}, {2, 3, 1}, {3, 3, 1}},  // without (2, 2), (2, 3) must not count into row 1
      {{1, 1, 1}, {2, 2, 1}, {3, 3, 1}, {2, 4, 1}}  // (2, 4): the key of no valid entry of row 2
  };
  for (const auto& entries : cases) {
    VQ_SparseSymMatrix a(3);
    bool ok = true;
    EXPECT_EQ(Stdout([&] { ok = Assemble(a, entries); }), kInvalidCreation);
    EXPECT_FALSE(ok);
    EXPECT_EQ(static_cast<int>(a.MatrixStatus()), -66);
    EXPECT_TRUE(IsEmpty(a));
  }
}

// Random assemblies (both triangles, repeated entries, random order) against dense accumulation.
class RandomAssembly : public testing::TestWithParam<std::tuple<int, double, unsigned>> {};

TEST_P(RandomAssembly, MatchesDenseAccumulationInCanonicalLayout) {
  const auto [n, density, seed] = GetParam();
  std::mt19937 gen(seed);
  std::uniform_int_distribution<int> idx(1, n);
  std::uniform_real_distribution<double> val(-1.0, 1.0);
  std::vector<double> ref(static_cast<size_t>(n) * n, 0.0);
  std::vector<char> present(static_cast<size_t>(n) * n, 0);

  VQ_SparseSymMatrix a(n);
  a.BeginMatrix();
  auto add = [&](int i, int j, double v) {
    const size_t r = std::min(i, j) - 1, c = std::max(i, j) - 1;
    const bool isNew = !present[c * n + r];
    present[c * n + r] = 1;
    ref[c * n + r] += v;
    if (r != c) ref[r * n + c] += v;
    EXPECT_EQ(a.Add(i, j, v), isNew) << "(" << i << ", " << j << ")";
  };
  const long long adds = static_cast<long long>(density * n * n) + n;
  for (long long t = 0; t < adds; ++t) add(idx(gen), idx(gen), val(gen));
  for (int i = 1; i <= n; ++i) add(i, i, val(gen));
  ASSERT_TRUE(a.EndMatrix());
  EXPECT_EQ(LayoutProblem(a), "");
  int stored = 0;
  for (char p : present) stored += p;
  EXPECT_EQ(a.GetNumberOfNonZeros(), stored);
  const std::vector<double> got = DenseOf(a);
  for (size_t k = 0; k < ref.size(); ++k) EXPECT_DOUBLE_EQ(got[k], ref[k]) << "position " << k;
}

INSTANTIATE_TEST_SUITE_P(Sizes, RandomAssembly,
                         testing::Values(std::make_tuple(1, 0.0, 1u), std::make_tuple(2, 0.5, 2u),
                                         std::make_tuple(17, 0.2, 3u),
                                         std::make_tuple(60, 0.05, 4u),
                                         std::make_tuple(150, 0.5, 5u)));

// ---- builders ----------------------------------------------------------------------------------

TEST(SparseSymMatrixBuild, FromRandomDenseMatchesIndependentConversion) {
  const std::vector<double> d = RandomSymmetricDense(40, 0.15, 11);
  VQ_SparseSymMatrix a = FromDense(40, d);
  EXPECT_EQ(LayoutProblem(a), "");
  const Csr ref = CsrFromDense(40, d, 2.220446049250313e-16);
  ExpectLayout(a, ref.rowPointers, ref.columnIndices, ref.values);
}

}  // namespace
