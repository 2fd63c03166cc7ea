// Files of the sparse symmetric matrix: the three swap files (exact text, file list, deletion at
// destruction, read-back), MatrixMarket output and input (exact format, round trip, summed
// repetitions, either triangle, CRLF, malformed files), the real matrices of the shared data
// folder, and the text dumps. Expected texts are produced with printf and the documented formats.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "sparse/VQ_SparseSymMatrix.h"
#include "support/SparseSymMatrixSupport.h"

using vqtest::CaptureStdout;
using vqtest::CsrOf;

namespace {

std::string Slurp(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

bool Exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

void Spit(const std::string& path, const std::string& text) {
  std::ofstream f(path, std::ios::binary);
  f << text;
}

std::string Format(const char* fmt, double v) {
  char buf[512];
  std::snprintf(buf, sizeof buf, fmt, v);
  return buf;
}

// (1,1)=4 (1,2)=1 (2,2)=3
VQ_SparseSymMatrix TwoByTwo() {
  std::vector<int> r{1, 3, 4};
  std::vector<int> c{1, 2, 2};
  std::vector<double> v{4.0, 1.0, 3.0};
  return VQ_SparseSymMatrix(2, v.data(), r.data(), c.data());
}

VQ_SparseSymMatrix Random(int n, double density, unsigned seed) {
  std::vector<double> d = vqtest::RandomSymmetricDense(n, density, seed);
  VQ_Matrix m(n, n, d.data());
  return VQ_SparseSymMatrix(&m);
}

// A scratch file removed at the end of the test.
struct TempFile {
  explicit TempFile(const std::string& tag) : path(vqtest::ScratchPrefix(tag) + "file.mtx") {}
  ~TempFile() { std::remove(path.c_str()); }
  std::string path;
};

// ---- swap files ---------------------------------------------------------------------------------

TEST(SparseSymMatrixSwapFiles, ExactTextAndDeletionAtDestruction) {
  const std::string base = vqtest::ScratchPrefix("swap");
  {
    VQ_SparseSymMatrix a = TwoByTwo();
    ASSERT_TRUE(a.WriteToFile(base.c_str(), false, true, true, true));
    EXPECT_EQ(Slurp(base + "1.dat"),
              "3\n4.0000000000000000e+00\n1.0000000000000000e+00\n3.0000000000000000e+00\n");
    EXPECT_EQ(Slurp(base + "2.dat"), "3\n1\n3\n4\n");
    EXPECT_EQ(Slurp(base + "3.dat"), "3\n1\n2\n2\n");
    EXPECT_EQ(a.GetFileList().size(), 3u);
    EXPECT_EQ(a.GetFileList().count(base + "2.dat"), 1u);
  }
  EXPECT_FALSE(Exists(base + "1.dat"));
  EXPECT_FALSE(Exists(base + "2.dat"));
  EXPECT_FALSE(Exists(base + "3.dat"));
}

TEST(SparseSymMatrixSwapFiles, PlusSignOnNonNegativeNumbers) {
  const std::string base = vqtest::ScratchPrefix("plus");
  VQ_SparseSymMatrix a = TwoByTwo();
  a.Set(1, 2, -1.0);
  ASSERT_TRUE(a.WriteToFile(base.c_str(), true, true, true, false));
  EXPECT_EQ(Slurp(base + "1.dat"),
            "+3\n+4.0000000000000000e+00\n-1.0000000000000000e+00\n+3.0000000000000000e+00\n");
  EXPECT_EQ(Slurp(base + "2.dat"), "+3\n+1\n+3\n+4\n");
  EXPECT_FALSE(Exists(base + "3.dat"));
}

TEST(SparseSymMatrixSwapFiles, ScientificTextMatchesPrintf) {
  const std::string base = vqtest::ScratchPrefix("fmt");
  std::vector<double> vals{1.0 / 3.0, -2.5e-300,           6.02214076e23, 0.0,
                           -0.0,      123456789.123456789, 5e-324};
  std::vector<int> r(vals.size() + 1), c(vals.size());
  for (size_t i = 0; i <= vals.size(); ++i) r[i] = static_cast<int>(i) + 1;
  for (size_t i = 0; i < vals.size(); ++i) c[i] = static_cast<int>(i) + 1;
  VQ_SparseSymMatrix a(static_cast<int>(vals.size()), vals.data(), r.data(), c.data());
  ASSERT_TRUE(a.WriteToFile(base.c_str(), true, true, false, false));
  std::string want = "+7\n";
  for (double v : vals) want += Format("%+.16e", v) + "\n";
  EXPECT_EQ(Slurp(base + "1.dat"), want);
}

TEST(SparseSymMatrixSwapFiles, ReadBackRestoresTheMatrixExactly) {
  const std::string base = vqtest::ScratchPrefix("back");
  VQ_SparseSymMatrix a = Random(60, 0.1, 3);
  const vqtest::Csr before = CsrOf(a);
  ASSERT_TRUE(a.WriteToFile(base.c_str(), false, true, true, true));
  a.ReleaseMemory();
  EXPECT_EQ(a.NumRows(), 0);
  ASSERT_TRUE(a.ReadFromFile(base.c_str(), false, true, true, true));
  const vqtest::Csr after = CsrOf(a);
  EXPECT_EQ(a.NumRows(), 60);
  EXPECT_EQ(after.rowPointers, before.rowPointers);
  EXPECT_EQ(after.columnIndices, before.columnIndices);
  EXPECT_EQ(after.values, before.values);  // 17 significant digits read back to the same doubles
}

TEST(SparseSymMatrixSwapFiles, ValuesAloneRestoreAnUnshiftedMatrix) {
  // The eigen solvers save K's values, shift K in place, and reload the values before each shift.
  const std::string base = vqtest::ScratchPrefix("shift");
  VQ_SparseSymMatrix k = Random(30, 0.2, 4);
  const vqtest::Csr before = CsrOf(k);
  ASSERT_TRUE(k.WriteToFile(base.c_str(), true, true, false, false));
  for (int i = 1; i <= 30; ++i) k.Set(i, i, k.Value(i, i) - 7.5);
  ASSERT_TRUE(k.ReadFromFile(base.c_str(), true, true, false, false));
  EXPECT_EQ(CsrOf(k).values, before.values);
  EXPECT_EQ(CsrOf(k).rowPointers, before.rowPointers);
}

TEST(SparseSymMatrixSwapFiles, ReadBackDoesNotDisturbASharer) {
  const std::string base = vqtest::ScratchPrefix("sharer");
  VQ_SparseSymMatrix k = Random(10, 0.3, 5);
  ASSERT_TRUE(k.WriteToFile(base.c_str(), false, true, false, false));
  VQ_SparseSymMatrix copy(k);
  k *= 2.0;  // both see the doubled values
  ASSERT_TRUE(k.ReadFromFile(base.c_str(), false, true, false, false));
  EXPECT_NE(copy.GetValuePointer(), k.GetValuePointer());
  EXPECT_EQ(copy.Value(1, 1), 2.0 * k.Value(1, 1));
}

TEST(SparseSymMatrixSwapFiles, FilesThisMatrixNeverWroteAreNotRead) {
  const std::string base = vqtest::ScratchPrefix("foreign");
  VQ_SparseSymMatrix writer = TwoByTwo();
  ASSERT_TRUE(writer.WriteToFile(base.c_str(), false, true, true, true));
  VQ_SparseSymMatrix other = Random(5, 0.5, 6);
  const vqtest::Csr before = CsrOf(other);
  EXPECT_FALSE(other.ReadFromFile(base.c_str(), false, true, true, true));
  EXPECT_EQ(other.NumRows(), 5);
  EXPECT_EQ(CsrOf(other).values, before.values);
  EXPECT_EQ(other.MatrixStatus(), 0);
}

TEST(SparseSymMatrixSwapFiles, UnopenableFileFailsWithMinus5) {
  VQ_SparseSymMatrix a = TwoByTwo();
  bool ok = true;
  const std::string out =
      CaptureStdout([&] { ok = a.WriteToFile("/nonexistent-folder/x", false, true, true, true); });
  EXPECT_FALSE(ok);
  EXPECT_EQ(out, ">>>>>>> Cannot Open File !..... <<<<<< \n");
  EXPECT_EQ(a.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_FILE_NOT_FOUND);
  EXPECT_EQ(a.NumRows(), 0);
  EXPECT_EQ(a.GetNumberOfNonZeros(), 0);
  EXPECT_NE(a.GetRowVectorPointer(), nullptr);  // the arrays stay allocated
  EXPECT_TRUE(a.GetFileList().empty());
}

TEST(SparseSymMatrixSwapFiles, DamagedFilesFailWithoutCrashing) {
  const std::string base = vqtest::ScratchPrefix("damaged");
  VQ_SparseSymMatrix a = Random(20, 0.3, 7);
  ASSERT_TRUE(a.WriteToFile(base.c_str(), false, true, true, true));
  const std::string values = Slurp(base + "1.dat");
  const std::string rows = Slurp(base + "2.dat");
  struct Case {
    const char* name;
    int which;
    std::string text;
  };
  const std::vector<Case> cases{
      {"truncated values", 1, values.substr(0, values.size() / 2)},
      {"count larger than the file", 1, "999999\n1.0\n"},
      {"negative count", 3, "-4\n"},
      {"not a number", 1, "3\n1.0\nabc\n2.0\n"},
      {"row pointers not matching the values", 2, "3\n1\n2\n3\n"},
      {"empty", 2, ""},
      {"huge count", 3, "99999999999\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Spit(base + "1.dat", values);
    Spit(base + "2.dat", rows);
    Spit(base + std::to_string(c.which) + ".dat", c.text);
    bool ok = true;
    CaptureStdout([&] { ok = a.ReadFromFile(base.c_str(), false, true, true, true); });
    EXPECT_FALSE(ok);
    EXPECT_NE(a.MatrixStatus(), 0);
    EXPECT_EQ(a.NumRows(), 0);
    EXPECT_EQ(a.GetNumberOfNonZeros(), 0);
    EXPECT_EQ(a.Value(1, 1), 0.0);
    // Rewrite sane files for the next case.
    VQ_SparseSymMatrix fresh = Random(20, 0.3, 7);
    a.SetEqualTo(&fresh);
    ASSERT_TRUE(a.WriteToFile(base.c_str(), false, true, true, true));
  }
}

// ---- MatrixMarket -------------------------------------------------------------------------------

TEST(SparseSymMatrixMatrixMarket, WrittenFormat) {
  TempFile t("mtxw");
  VQ_SparseSymMatrix a = TwoByTwo();
  a.Set(1, 2, -1.0 / 3.0);
  std::FILE* f = std::fopen(t.path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  a.StoreIn_MTX_Format(f);
  std::fclose(f);
  std::string want = "%%MatrixMarket matrix coordinate real symmetric \n2 \t 2 \t 3 \n";
  want += "1 \t 1 \t " + Format("%10.18f", 4.0) + " \n";
  want += "1 \t 2 \t " + Format("%10.18f", -1.0 / 3.0) + " \n";
  want += "2 \t 2 \t " + Format("%10.18f", 3.0) + " \n";
  EXPECT_EQ(Slurp(t.path), want);
}

TEST(SparseSymMatrixMatrixMarket, MissingDiagonalOfHandMadeArraysIsWrittenAsZero) {
  TempFile t("mtxz");
  std::vector<int> r{1, 2, 3};
  std::vector<int> c{2, 2};  // row 1 holds only (1, 2)
  std::vector<double> v{5.0, 1e300};
  VQ_SparseSymMatrix a(2, v.data(), r.data(), c.data());
  std::FILE* f = std::fopen(t.path.c_str(), "w");
  a.StoreIn_MTX_Format(f);
  std::fclose(f);
  std::string want = "%%MatrixMarket matrix coordinate real symmetric \n2 \t 2 \t 3 \n";
  want += "1 \t 1 \t " + Format("%10.18f", 0.0) + " \n";
  want += "1 \t 2 \t " + Format("%10.18f", 5.0) + " \n";
  want += "2 \t 2 \t " + Format("%10.18f", 1e300) + " \n";
  EXPECT_EQ(Slurp(t.path), want);
}

TEST(SparseSymMatrixMatrixMarket, RoundTrip) {
  TempFile t("mtxrt");
  VQ_SparseSymMatrix a = Random(70, 0.08, 8);
  std::FILE* f = std::fopen(t.path.c_str(), "w");
  a.StoreIn_MTX_Format(f);
  std::fclose(f);
  VQ_SparseSymMatrix b;
  ASSERT_TRUE(b.ReadIn_MTX_Format(t.path.c_str(), true));
  EXPECT_TRUE(b.CheckSparsity(&a));
  const vqtest::Csr ca = CsrOf(a), cb = CsrOf(b);
  for (int k = 0; k < ca.nnz(); ++k) EXPECT_NEAR(cb.values[k], ca.values[k], 1e-18);
}

TEST(SparseSymMatrixMatrixMarket, RepeatedEntriesSumLowerTriangleCrlfComments) {
  TempFile t("mtxrep");
  Spit(t.path,
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
  const vqtest::Csr c = CsrOf(a);
  EXPECT_EQ(c.rowPointers, (std::vector<int>{1, 3, 4, 5}));
  EXPECT_EQ(c.columnIndices, (std::vector<int>{1, 2, 2, 3}));
  EXPECT_EQ(c.values, (std::vector<double>{1.5, 2.25, -3.0, 10.5}));
}

TEST(SparseSymMatrixMatrixMarket, IntegerFieldIsAccepted) {
  TempFile t("mtxint");
  Spit(t.path, "%%MatrixMarket matrix coordinate integer symmetric\n2 2 2\n1 1 100\n2 2 0\n");
  VQ_SparseSymMatrix a;
  ASSERT_TRUE(a.ReadIn_MTX_Format(t.path.c_str(), false));
  EXPECT_EQ(a.Value(1, 1), 100.0);
  EXPECT_EQ(a.FindLoc(2, 2), 1);  // a zero diagonal is kept
}

TEST(SparseSymMatrixMatrixMarket, MissingFile) {
  VQ_SparseSymMatrix a = TwoByTwo();
  bool ok = true;
  std::string out = CaptureStdout([&] { ok = a.ReadIn_MTX_Format("/nonexistent/k.mtx", true); });
  EXPECT_FALSE(ok);
  EXPECT_EQ(out, ">>>>>>> File Not Found : /nonexistent/k.mtx  <<<<<< \n\n");
  EXPECT_EQ(a.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_FILE_NOT_FOUND);
  out = CaptureStdout([&] { a.ReadIn_MTX_Format("/nonexistent/k.mtx", false); });
  EXPECT_EQ(out, "");
}

TEST(SparseSymMatrixMatrixMarket, MissingDiagonalReadsButLeavesTheMatrixEmpty) {
  TempFile t("mtxdiag");
  Spit(t.path, "%%MatrixMarket matrix coordinate real symmetric\n3 3 3\n1 1 1\n2 2 1\n2 1 4\n");
  VQ_SparseSymMatrix a;
  bool ok = false;
  CaptureStdout([&] { ok = a.ReadIn_MTX_Format(t.path.c_str(), true); });
  EXPECT_TRUE(ok);
  EXPECT_EQ(static_cast<int>(a.MatrixStatus()), -66);
  EXPECT_EQ(a.NumRows(), 0);
}

TEST(SparseSymMatrixMatrixMarket, HugeDeclaredOrderWithFewEntriesFailsCheaply) {
  // The order is taken from the file, but nothing is sized by it before the diagonal is complete.
  TempFile t("mtxhuge");
  Spit(t.path, "%%MatrixMarket matrix coordinate real symmetric\n2000000000 2000000000 1\n1 1 1\n");
  VQ_SparseSymMatrix a;
  CaptureStdout([&] { EXPECT_TRUE(a.ReadIn_MTX_Format(t.path.c_str(), true)); });
  EXPECT_EQ(static_cast<int>(a.MatrixStatus()), -66);
  EXPECT_EQ(a.NumRows(), 0);
}

class MalformedMatrixMarket : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(MalformedMatrixMarket, FailsWithStatusAndLeavesAnEmptyMatrix) {
  TempFile t("mtxbad");
  Spit(t.path, GetParam().second);
  VQ_SparseSymMatrix a = TwoByTwo();
  bool ok = true;
  CaptureStdout([&] { ok = a.ReadIn_MTX_Format(t.path.c_str(), true); });
  EXPECT_FALSE(ok) << GetParam().first;
  EXPECT_EQ(a.MatrixStatus(), MATLIBDLLCOMMONS::STATUS_OFF_DIAGONAL_IGNORED) << GetParam().first;
  EXPECT_EQ(a.NumRows(), 0);
  EXPECT_EQ(a.GetNumberOfNonZeros(), 0);
  EXPECT_EQ(a.Value(1, 1), 0.0);
}

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
        std::make_pair("not square",
                       "%%MatrixMarket matrix coordinate real symmetric\n2 3 2\n1 1 1\n2 2 1\n"),
        std::make_pair("no size line",
                       "%%MatrixMarket matrix coordinate real symmetric\n% only comments\n"),
        std::make_pair(
            "row out of range",
            "%%MatrixMarket matrix coordinate real symmetric\n2 2 3\n1 1 1\n2 2 1\n3 1 1\n"),
        std::make_pair(
            "column zero",
            "%%MatrixMarket matrix coordinate real symmetric\n2 2 3\n1 1 1\n2 2 1\n2 0 1\n"),
        std::make_pair("negative index",
                       "%%MatrixMarket matrix coordinate real symmetric\n2 2 2\n1 1 1\n-2 2 1\n"),
        std::make_pair("truncated",
                       "%%MatrixMarket matrix coordinate real symmetric\n3 3 3\n1 1 1\n2 2 1\n"),
        std::make_pair("missing value",
                       "%%MatrixMarket matrix coordinate real symmetric\n2 2 2\n1 1 1\n2 2\n"),
        std::make_pair("garbage value",
                       "%%MatrixMarket matrix coordinate real symmetric\n1 1 1\n1 1 x\n"),
        std::make_pair("negative size",
                       "%%MatrixMarket matrix coordinate real symmetric\n-1 -1 0\n"),
        std::make_pair(
            "size beyond 32 bits",
            "%%MatrixMarket matrix coordinate real symmetric\n4294967297 4294967297 1\n1 1 1\n")));

// ---- the real matrices of the shared data folder ------------------------------------------------

class RealMatrix : public testing::TestWithParam<const char*> {};

TEST_P(RealMatrix, ReadsLikeTheIndependentReader) {
  VQTEST_REQUIRE_DATA();
  const std::string path = vqtest::DataFile(GetParam());
  VQ_SparseSymMatrix a;
  ASSERT_TRUE(a.ReadIn_MTX_Format(path.c_str(), true));
  ASSERT_EQ(a.MatrixStatus(), 0);
  EXPECT_EQ(vqtest::LayoutProblem(a), "");
  vqtest::Csr ref;
  std::string error;
  ASSERT_TRUE(vqtest::ReadMtx(path, ref, &error)) << error;
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

// ---- text dumps ---------------------------------------------------------------------------------

TEST(SparseSymMatrixText, PrintShowsTheFullSymmetricMatrix) {
  TempFile t("print");
  VQ_SparseSymMatrix a = TwoByTwo();
  a.print(t.path.c_str(), 0, false);
  std::string row1 = "{" + Format("%12.8f , ", 4.0) + " " + Format("%12.8f ", 1.0) + "},\n";
  std::string row2 = "{" + Format("%12.8f , ", 1.0) + " " + Format("%12.8f ", 3.0) + "},\n";
  const std::string head = "\nMatrix Type = SYM_SPARSE_MATRIX \t NumRows: 2 \t  NumCols: 2 \n\n{";
  EXPECT_EQ(Slurp(t.path), head + row1 + row2 + "}\n");
  a.print(t.path.c_str(), 1, true);  // appended, scientific
  row1 = "{" + Format("%e , ", 4.0) + " " + Format("%e ", 1.0) + "},\n";
  row2 = "{" + Format("%e , ", 1.0) + " " + Format("%e ", 3.0) + "},\n";
  const std::string first = head + "{" + Format("%12.8f , ", 4.0) + " " + Format("%12.8f ", 1.0) +
                            "},\n{" + Format("%12.8f , ", 1.0) + " " + Format("%12.8f ", 3.0) +
                            "},\n}\n";
  EXPECT_EQ(Slurp(t.path), first + head + row1 + row2 + "}\n");
}

TEST(SparseSymMatrixText, WriteDataDumpsTheThreeArrays) {
  TempFile t("data");
  VQ_SparseSymMatrix a = TwoByTwo();
  a.WriteData(t.path.c_str());
  const std::string want = Format("%12.8f \n", 4.0) + Format("%12.8f \n", 1.0) +
                           Format("%12.8f \n", 3.0) + "1 \n3 \n4 \n1 \n2 \n2 \n";
  EXPECT_EQ(Slurp(t.path), want);
}

}  // namespace
