// Tests of the dense files: MatrixMarket writers byte for byte, readers (round trip, CRLF,
// comments, malformed and hostile files), the diagonal reader's off-diagonal rule, the bracketed
// text dump and the binary snapshot pair.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/DenseSupport.h"
#include "dense/VQ_Dense.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;

namespace {

// Runs writer(f) on a scratch file and returns the bytes written.
template <typename Writer>
std::string Written(const std::string& name, Writer writer) {
  const std::string path = ScratchPath(name);
  FILE* f = std::fopen(path.c_str(), "w");
  EXPECT_NE(f, nullptr);
  if (!f) return "";
  writer(f);
  std::fclose(f);
  const std::string bytes = FileBytes(path);
  std::remove(path.c_str());
  return bytes;
}

}  // namespace

// ---- MatrixMarket writers -------------------------------------------------------------------------

TEST(MtxWrite, GeneralZeroMatrixSkippingZeros) {
  VQ_Matrix z(2, 2);
  EXPECT_EQ(Written("z.mtx", [&](FILE* f) { z.StoreIn_MTX_Format(f, true); }),
            "%%MatrixMarket matrix coordinate real general \n2 \t 2 \t 0 \n");
}

TEST(MtxWrite, GeneralRowsOuterColumnsInner) {
  double v[] = {1.5, 0.0, -2.0, 0.25};  // [[1.5,-2],[0,0.25]]
  VQ_Matrix m(2, 2, v);
  EXPECT_EQ(Written("all.mtx", [&](FILE* f) { m.StoreIn_MTX_Format(f, false); }),
            "%%MatrixMarket matrix coordinate real general \n"
            "2 \t 2 \t 4 \n"
            "1 \t 1 \t 1.500000000000000000 \n"
            "1 \t 2 \t -2.000000000000000000 \n"
            "2 \t 1 \t 0.000000000000000000 \n"
            "2 \t 2 \t 0.250000000000000000 \n");
  EXPECT_EQ(Written("skip.mtx", [&](FILE* f) { m.StoreIn_MTX_Format(f, true); }),
            "%%MatrixMarket matrix coordinate real general \n"
            "2 \t 2 \t 3 \n"
            "1 \t 1 \t 1.500000000000000000 \n"
            "1 \t 2 \t -2.000000000000000000 \n"
            "2 \t 2 \t 0.250000000000000000 \n");
}

TEST(MtxWrite, GeneralSkipBoundIsTheSmallestNormal) {
  double v[] = {1e-300, 1e-310};  // a normal and a subnormal value
  VQ_Matrix m(1, 2, v);
  const std::string bytes = Written("bound.mtx", [&](FILE* f) { m.StoreIn_MTX_Format(f, true); });
  EXPECT_NE(bytes.find("1 \t 2 \t 1 \n"), std::string::npos);
  EXPECT_NE(bytes.find("1 \t 1 \t "), std::string::npos);
  EXPECT_EQ(bytes.find("1 \t 2 \t 0.0"), std::string::npos);
}

TEST(MtxWrite, SymmetricReceiverWritesItsFullForm) {
  VQ_SymMatrix s(2, 0.0);
  s(1, 2) = 3.0;
  EXPECT_EQ(Written("sym.mtx", [&](FILE* f) { s.StoreIn_MTX_Format(f, true); }),
            "%%MatrixMarket matrix coordinate real general \n"
            "2 \t 2 \t 2 \n"
            "1 \t 2 \t 3.000000000000000000 \n"
            "2 \t 1 \t 3.000000000000000000 \n");
}

TEST(MtxWrite, DiagonalCountStaysTheOrder) {
  double v[] = {0, 5};
  VQ_DiagonalMatrix d(2, v);
  EXPECT_EQ(Written("d.mtx", [&](FILE* f) { d.StoreIn_MTX_Format(f, true); }),
            "%%MatrixMarket matrix coordinate real symmetric \n"
            "2 \t 2 \t 2 \n"
            "2 \t 2 \t 5.000000000000000000 \n");
  double w[] = {1e-16, 2e-16};  // machine-epsilon bound: 1e-16 dropped, 2e-16 dropped too (<= eps)
  VQ_DiagonalMatrix e(2, w);
  const std::string bytes = Written("e.mtx", [&](FILE* f) { e.StoreIn_MTX_Format(f, true); });
  EXPECT_EQ(bytes, "%%MatrixMarket matrix coordinate real symmetric \n2 \t 2 \t 2 \n");
  EXPECT_EQ(Written("f.mtx", [&](FILE* f) { e.StoreIn_MTX_Format(f, false); }).size(),
            bytes.size() + 2 * std::string("1 \t 1 \t 0.000000000000000100 \n").size());
}

// ---- MatrixMarket readers -------------------------------------------------------------------------

TEST(MtxRead, RoundTripIsExact) {
  std::vector<double> v = RandomValues(35, 7, 1.0, 9.0);
  VQ_Matrix m(5, 7, v.data());
  m(2, 3) = 0.0;
  const std::string path = ScratchPath("rt.mtx");
  FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  m.StoreIn_MTX_Format(f, true);
  std::fclose(f);
  VQ_Matrix back(1, 1, 42.0);
  EXPECT_TRUE(back.ReadIn_MTX_Format(path.c_str(), true));
  EXPECT_EQ(back.NumRows(), 5);
  EXPECT_EQ(back.NumCols(), 7);
  EXPECT_EQ(Full(back), Full(m));  // 18 decimals of values in [1, 9) restore every bit
  EXPECT_EQ(back.MatrixStatus(), MC::STATUS_OK);
  std::remove(path.c_str());
}

TEST(MtxRead, CrlfCommentsAndStrayTokens) {
  const std::string path = ScratchPath("crlf.mtx");
  WriteBytes(path,
             "%%MatrixMarket matrix coordinate real general\r\n"
             "% a comment\r\n"
             "\r\n"
             "3 2 3\r\n"
             "1 1 1.5\r\n"
             "%   comment between entries\r\n"
             "3\t2\t-4e2\r\n"
             "2 1 7\r\n");
  VQ_Matrix m;
  EXPECT_TRUE(m.ReadIn_MTX_Format(path.c_str(), false));
  EXPECT_EQ(Full(m), (std::vector<double>{1.5, 7, 0, 0, 0, -400}));
  std::remove(path.c_str());
}

TEST(MtxRead, MalformedFilesNeverWriteOutOfBounds) {
  const std::string path = ScratchPath("bad.mtx");
  VQ_Matrix m;
  // Indices outside the declared size are skipped; reading stops at a malformed token.
  WriteBytes(path, "2 2 6\n0 1 9\n3 1 9\n1 3 9\n-1 -1 9\n2 2 5\n1 x 3\n1 1 8\n");
  EXPECT_TRUE(m.ReadIn_MTX_Format(path.c_str(), false));
  EXPECT_EQ(Full(m), (std::vector<double>{0, 0, 0, 5}));
  // Truncated: the count promises more than the file holds.
  WriteBytes(path, "2 2 10\n1 1 1\n2 2");
  EXPECT_TRUE(m.ReadIn_MTX_Format(path.c_str(), false));
  EXPECT_EQ(Full(m), (std::vector<double>{1, 0, 0, 0}));
  // No size line at all.
  WriteBytes(path, "%%MatrixMarket matrix coordinate real general\nhello\n");
  EXPECT_FALSE(m.ReadIn_MTX_Format(path.c_str(), false));
  WriteBytes(path, "");
  EXPECT_FALSE(m.ReadIn_MTX_Format(path.c_str(), false));
  // Negative and huge sizes fail the allocation cleanly.
  testing::internal::CaptureStdout();
  WriteBytes(path, "-3 2 1\n1 1 1\n");
  EXPECT_TRUE(m.ReadIn_MTX_Format(path.c_str(), false));
  EXPECT_EQ(m.MatrixStatus(), MC::STATUS_NO_MEMORY);
  WriteBytes(path, "99999999999 99999999999 1\n1 1 1\n");
  EXPECT_TRUE(m.ReadIn_MTX_Format(path.c_str(), false));
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(m.MatrixStatus(), MC::STATUS_NO_MEMORY);
  EXPECT_EQ(m.NumRows(), 0);
  // A symmetric receiver keeps its storage rule: entries land in the packed triangle.
  VQ_SymMatrix s;
  WriteBytes(path, "3 3 2\n3 1 4\n3 3 9\n");
  EXPECT_TRUE(s.ReadIn_MTX_Format(path.c_str(), false));
  EXPECT_EQ(s.GetSizeAllocated(), 6);
  EXPECT_EQ(s.Value(1, 3), 4.0);
  std::remove(path.c_str());
}

TEST(MtxRead, MissingFile) {
  VQ_Matrix m(2, 2, 1.0);
  const std::string path = ScratchPath("missing.mtx");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(m.ReadIn_MTX_Format(path.c_str(), false));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(m.MatrixStatus(), MC::STATUS_FILE_NOT_FOUND);
  EXPECT_EQ(m.Value(2, 2), 1.0);
  testing::internal::CaptureStdout();
  EXPECT_FALSE(m.ReadIn_MTX_Format(path.c_str(), true));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), ">>>>>>> File Not Found : " + path + "  <<<<<< \n\n");
  VQ_DiagonalMatrix d;
  EXPECT_FALSE(d.ReadIn_MTX_Format(path.c_str(), false));
  EXPECT_EQ(d.MatrixStatus(), MC::STATUS_FILE_NOT_FOUND);
}

TEST(MtxRead, DiagonalDropsOffDiagonalTermsStatusOnlyWhenVerbose) {
  const std::string path = ScratchPath("diag.mtx");
  WriteBytes(path, "%%MatrixMarket matrix coordinate real symmetric\n3 3 4\n1 1 2\n2 1 9\n3 3 4\n5 5 1\n");
  VQ_DiagonalMatrix quiet;
  testing::internal::CaptureStdout();
  EXPECT_TRUE(quiet.ReadIn_MTX_Format(path.c_str(), false));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(quiet.MatrixStatus(), MC::STATUS_OK);
  EXPECT_EQ(Full(quiet), (std::vector<double>{2, 0, 0, 0, 0, 0, 0, 0, 4}));

  VQ_DiagonalMatrix loud;
  testing::internal::CaptureStdout();
  EXPECT_TRUE(loud.ReadIn_MTX_Format(path.c_str(), true));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            ">>>>>>> Off Diagonal Terms Found in redaing the File. They are Ignored !..... <<<<<< \n\n");
  EXPECT_EQ(loud.MatrixStatus(), MC::STATUS_OFF_DIAGONAL_IGNORED);

  // Round trip of the diagonal writer.
  double v[] = {1.25, 0, 3.5};
  VQ_DiagonalMatrix d(3, v);
  FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  d.StoreIn_MTX_Format(f, true);
  std::fclose(f);
  VQ_DiagonalMatrix back;
  EXPECT_TRUE(back.ReadIn_MTX_Format(path.c_str(), true));
  EXPECT_EQ(Full(back), Full(d));
  std::remove(path.c_str());
}

// ---- text dump ---------------------------------------------------------------------------------------

TEST(TextDump, OneByTwoFixedNotation) {
  const std::string path = ScratchPath("dump.txt");
  double v[] = {1.5, -2.25};
  VQ_Matrix m(1, 2, v);
  m.print(path.c_str(), 0, false);
  EXPECT_EQ(FileBytes(path),
            "\nMatrix Type = MATRIX \t NumRows: 1 \t  NumCols: 2 \n"
            "\n{{  1.50000000 ,   -2.25000000 },\n}\n");
  VQ_DiagonalMatrix d(2, 3.0);
  d.print(path.c_str(), 1, true);  // appended, scientific
  EXPECT_EQ(FileBytes(path),
            "\nMatrix Type = MATRIX \t NumRows: 1 \t  NumCols: 2 \n"
            "\n{{  1.50000000 ,   -2.25000000 },\n}\n"
            "\nMatrix Type = DIAGONAL_MATRIX \t NumRows: 2 \t  NumCols: 2 \n"
            "\n{{3.000000e+00 ,  0.000000e+00 },\n{0.000000e+00 ,  3.000000e+00 },\n}\n");
  m.print(path.c_str(), 0, true);  // truncates
  EXPECT_EQ(FileBytes(path).find("DIAGONAL"), std::string::npos);
  std::remove(path.c_str());
}

// ---- binary snapshot ---------------------------------------------------------------------------------

TEST(Snapshot, RoundTripOfEachKind) {
  const std::string base = ScratchPath("snap");
  VQ_Matrix m = RandomMatrix(4, 3, 9);
  m /= 0.0;  // a status worth restoring
  ASSERT_TRUE(m.WriteToFile(base.c_str(), false));
  VQ_Matrix back;
  ASSERT_TRUE(back.ReadFromFile(base.c_str(), false, false));
  EXPECT_EQ(back.NumRows(), 4);
  EXPECT_EQ(back.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  const std::vector<double> a = Full(m), b = Full(back);
  ASSERT_EQ(a.size(), b.size());
  EXPECT_EQ(0, std::memcmp(a.data(), b.data(), a.size() * sizeof(double)));

  VQ_SymMatrix s = RandomSym(5, 10);
  ASSERT_TRUE(s.WriteToFile(base.c_str(), false));
  VQ_SymMatrix sb;
  ASSERT_TRUE(sb.ReadFromFile(base.c_str(), false, true));  // and remove the files
  EXPECT_EQ(Full(sb), Full(s));
  EXPECT_EQ(sb.MatrixType(), MC::SYM_MATRIX);
  EXPECT_EQ(FileBytes(base + "1.dat"), "");
  EXPECT_EQ(FileBytes(base + "2.dat"), "");
}

TEST(Snapshot, MismatchedKindAndDamagedFilesAreRejected) {
  const std::string base = ScratchPath("snap");
  VQ_SymMatrix s = RandomSym(4, 11);
  ASSERT_TRUE(s.WriteToFile(base.c_str(), false));
  VQ_Matrix general;
  EXPECT_FALSE(general.ReadFromFile(base.c_str(), false, false));  // 10 packed values, not 16
  // A value file shorter than the header promises.
  const std::string values = FileBytes(base + "2.dat");
  WriteBytes(base + "2.dat", values.substr(0, values.size() - 8));
  VQ_SymMatrix keep(2, 1.0);
  EXPECT_FALSE(keep.ReadFromFile(base.c_str(), false, false));
  EXPECT_EQ(keep.NumRows(), 2);
  WriteBytes(base + "1.dat", "abc");
  EXPECT_FALSE(keep.ReadFromFile(base.c_str(), false, false));
  std::remove((base + "1.dat").c_str());
  std::remove((base + "2.dat").c_str());

  testing::internal::CaptureStdout();
  EXPECT_FALSE(keep.ReadFromFile(base.c_str(), true, false));
  EXPECT_NE(testing::internal::GetCapturedStdout().find("File Not Found"), std::string::npos);
  EXPECT_EQ(keep.MatrixStatus(), MC::STATUS_FILE_NOT_FOUND);
  const std::string noDir = ScratchPath("no/such/dir/x");
  EXPECT_FALSE(VQ_Matrix(1, 1).WriteToFile(noDir.c_str(), false));
}
