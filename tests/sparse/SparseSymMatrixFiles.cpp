// Files of the sparse symmetric matrix: the swap files read back, MatrixMarket output read back
// and input (summed repetitions, either triangle, CRLF, malformed files), and the real matrices of
// the shared data folder against the model generator's reader.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "sparse/VQ_SparseSymMatrix.h"
#include "support/SparseSymMatrixSupport.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;

namespace {

// The MatrixMarket text a writes, and one entry line of it.
std::string MtxText(const VQ_SparseSymMatrix& a) {
  TempFile t("mtxw.mtx");
  std::FILE* f = std::fopen(t.path.c_str(), "w");
  EXPECT_NE(f, nullptr);
  if (!f) return "";
  a.StoreIn_MTX_Format(f);
  std::fclose(f);
  return FileBytes(t.path);
}
// ---- swap files ---------------------------------------------------------------------------------

TEST(SparseSymMatrixSwapFiles, ReadBackRestoresTheMatrixExactlyAndLeavesSharersAlone) {
  const std::string base = ScratchPath("back_");
  VQ_SparseSymMatrix a = RandomSparse(60, 0.1, 3);
  const Csr before = CsrOf(a);
  ASSERT_TRUE(a.WriteToFile(base.c_str(), false, true, true, true));
  a.ReleaseMemory();
  EXPECT_EQ(a.NumRows(), 0);
  ASSERT_TRUE(a.ReadFromFile(base.c_str(), false, true, true, true));
  EXPECT_EQ(a.NumRows(), 60);
  const Csr after = CsrOf(a);
  EXPECT_EQ(after.rowPointers, before.rowPointers);
  EXPECT_EQ(after.columnIndices, before.columnIndices);
  EXPECT_EQ(after.values, before.values);  // 17 significant digits read back to the same doubles

  // A sharer keeps the state it saw (here the doubled values) when the values are read back.
  VQ_SparseSymMatrix copy(a);
  a *= 2.0;
  ASSERT_TRUE(a.ReadFromFile(base.c_str(), false, true, false, false));
  EXPECT_NE(copy.GetValuePointer(), a.GetValuePointer());
  EXPECT_EQ(copy.Value(1, 1), 2.0 * a.Value(1, 1));
}

// ---- MatrixMarket -------------------------------------------------------------------------------

// What the writer produces is read back by the test's own reader, and by the matrix's.
TEST(SparseSymMatrixMatrixMarket, WrittenFileReadsBack) {
  TempFile t("mtxrt.mtx");
  VQ_SparseSymMatrix a = RandomSparse(70, 0.08, 8), b;
  WriteBytes(t.path, MtxText(a));
  Csr independent;
  std::string error;
  ASSERT_TRUE(ReadMtx(t.path, independent, &error)) << error;
  EXPECT_EQ(independent.rowPointers, CsrOf(a).rowPointers);
  EXPECT_EQ(independent.columnIndices, CsrOf(a).columnIndices);
  ExpectNear(independent.values, CsrOf(a).values, 1e-15);
  ASSERT_TRUE(b.ReadIn_MTX_Format(t.path.c_str(), true));
  EXPECT_TRUE(b.CheckSparsity(&a));
  ExpectNear(CsrOf(b).values, CsrOf(a).values, 1e-15);
}

TEST(SparseSymMatrixMatrixMarket, RepeatedEntriesSumLowerTriangleCrlfComments) {
  TempFile t("mtxrep.mtx");
  WriteBytes(t.path,
             "%%MatrixMarket matrix coordinate real symmetric\r\n"
             "% a comment line\r\n"
             "%\r\n"
             "3 3 7\r\n"
             "1 1 1.5\r\n"
             "2 1 2.0\r\n"   // lower triangle: goes to (1, 2)
             "1 2 0.25\r\n"  // repetition of the same entry
             "2 2 -3\r\n"
             "3 3 1e1\r\n"
             "3 1 1e-17\r\n"  // tiny off-diagonal: dropped
             "3 3 +.5\r\n");  // repeated diagonal
  VQ_SparseSymMatrix a;
  ASSERT_TRUE(a.ReadIn_MTX_Format(t.path.c_str(), true));
  const Csr c = CsrOf(a);
  EXPECT_EQ(c.rowPointers, (std::vector<int>{1, 3, 4, 5}));
  EXPECT_EQ(c.columnIndices, (std::vector<int>{1, 2, 2, 3}));
  EXPECT_EQ(c.values, (std::vector<double>{1.5, 2.25, -3.0, 10.5}));
  // An integer field is accepted, and a zero diagonal is kept.
  WriteBytes(t.path, "%%MatrixMarket matrix coordinate integer symmetric\n2 2 2\n1 1 100\n2 2 0\n");
  ASSERT_TRUE(a.ReadIn_MTX_Format(t.path.c_str(), false));
  EXPECT_EQ(a.Value(1, 1), 100.0);
  EXPECT_EQ(a.FindLoc(2, 2), 1);
}

class MalformedMatrixMarket : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(MalformedMatrixMarket, FailsWithStatusAndLeavesAnEmptyMatrix) {
  TempFile t("mtxbad.mtx");
  WriteBytes(t.path, GetParam().second);
  VQ_SparseSymMatrix a = FromArrays(2, {1, 3, 4}, {1, 2, 2}, {4.0, 1.0, 3.0});
  bool ok = true;
  Stdout([&] { ok = a.ReadIn_MTX_Format(t.path.c_str(), true); });
  EXPECT_FALSE(ok) << GetParam().first;
  EXPECT_EQ(a.MatrixStatus(), MC::STATUS_OFF_DIAGONAL_IGNORED) << GetParam().first;
  EXPECT_TRUE(IsEmpty(a));
}

#define VQ_MTX_SYM "%%MatrixMarket matrix coordinate real symmetric\n"
INSTANTIATE_TEST_SUITE_P(
    Files, MalformedMatrixMarket,
    testing::Values(
        std::make_pair("empty file", ""),
        std::make_pair("no banner", "3 3 3\n1 1 1\n2 2 1\n3 3 1\n"),
        std::make_pair("general storage",
                       "%%MatrixMarket matrix coordinate real general\n1 1 1\n1 1 1\n"),
        std::make_pair("array format", "%%MatrixMarket matrix array real symmetric\n1 1\n1\n"),
        std::make_pair("pattern field",
                       "%%MatrixMarket matrix coordinate pattern symmetric\n1 1 1\n1 1\n"),
        std::make_pair("not square", VQ_MTX_SYM "2 3 2\n1 1 1\n2 2 1\n"),
        std::make_pair("no size line", VQ_MTX_SYM "% only comments\n"),
        std::make_pair("row out of range", VQ_MTX_SYM "2 2 3\n1 1 1\n2 2 1\n3 1 1\n"),
        std::make_pair("column zero", VQ_MTX_SYM "2 2 3\n1 1 1\n2 2 1\n2 0 1\n"),
        std::make_pair("negative index", VQ_MTX_SYM "2 2 2\n1 1 1\n-2 2 1\n"),
        std::make_pair("truncated", VQ_MTX_SYM "3 3 3\n1 1 1\n2 2 1\n"),
        std::make_pair("missing value", VQ_MTX_SYM "2 2 2\n1 1 1\n2 2\n"),
        std::make_pair("garbage value", VQ_MTX_SYM "1 1 1\n1 1 x\n"),
        std::make_pair("negative size", VQ_MTX_SYM "-1 -1 0\n"),
        std::make_pair("size beyond 32 bits", VQ_MTX_SYM "4294967297 4294967297 1\n1 1 1\n")));
#undef VQ_MTX_SYM

// ---- the real matrices of the shared data folder ------------------------------------------------

class RealMatrix : public testing::TestWithParam<const char*> {};

TEST_P(RealMatrix, ReadsLikeTheIndependentReader) {
  VQTEST_REQUIRE_DATA();
  const std::string path = DataFile(GetParam());
  VQ_SparseSymMatrix a;
  ASSERT_TRUE(a.ReadIn_MTX_Format(path.c_str(), true));
  ASSERT_EQ(a.MatrixStatus(), 0);
  EXPECT_EQ(LayoutProblem(a), "");
  Csr ref;
  std::string error;
  ASSERT_TRUE(ReadMtx(path, ref, &error)) << error;
  ASSERT_EQ(a.NumRows(), ref.n);
  int kept = 0;
  for (int i = 1; i <= ref.n; ++i)
    for (int p = ref.rowPointers[i - 1] - 1; p < ref.rowPointers[i] - 1; ++p) {
      const int j = ref.columnIndices[p];
      const double v = ref.values[p];
      if (i != j && !(std::fabs(v) > 2.220446049250313e-16)) continue;  // tiny entries are dropped
      ++kept;
      EXPECT_EQ(a.Value(i, j), v) << "(" << i << ", " << j << ")";
      EXPECT_EQ(a.Value(j, i), v);
    }
  EXPECT_EQ(a.GetNumberOfNonZeros(), kept);
}

INSTANTIATE_TEST_SUITE_P(SharedData, RealMatrix,
                         testing::Values("bcsstk01.mtx", "bcsstk02.mtx", "bcsstk05.mtx",
                                         "bcsstk06.mtx", "bcsstk07.mtx", "bcsstk20.mtx",
                                         "bcsstk22.mtx", "bcsstm01.mtx", "bcsstm02.mtx",
                                         "bcsstm07.mtx", "bcsstm22.mtx"));

}  // namespace
