// Tests of the dense files: MatrixMarket writers byte for byte, readers (round trip, CRLF,
// comments, malformed and hostile files), the diagonal reader's off-diagonal rule, the bracketed
// text dump and the binary snapshot pair.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "dense/VQ_Dense.h"
#include "support/DenseSupport.h"

using namespace vqtest;
namespace MC = MATLIBDLLCOMMONS;
using V = std::vector<double>;

namespace {

const char kGeneral[] = "%%MatrixMarket matrix coordinate real general \n";

// The bytes m.StoreIn_MTX_Format writes (the writers are not virtual: M is the static kind).
template <class M>
std::string Mtx(const M& m, bool skipZeros) {
  const TempFile t("w.mtx");
  FILE* f = std::fopen(t.path.c_str(), "w");
  EXPECT_NE(f, nullptr);
  if (!f) return "";
  m.StoreIn_MTX_Format(f, skipZeros);
  std::fclose(f);
  return FileBytes(t.path);
}

// m.ReadIn_MTX_Format of a file holding text.
template <class M>
bool Read(M& m, const std::string& text, bool verbose = false) {
  const TempFile t("r.mtx", text.c_str());
  return m.ReadIn_MTX_Format(t.path.c_str(), verbose);
}

}  // namespace

// ---- MatrixMarket writers
// -------------------------------------------------------------------------

TEST(MtxWrite, GeneralRowsOuterColumnsInnerSkippingUpToTheSmallestNormal) {
  EXPECT_EQ(Mtx(VQ_Matrix(2, 2), true), std::string(kGeneral) + "2 \t 2 \t 0 \n");
  VQ_Matrix m = Mat(2, 2, {1.5, 0.0, -2.0, 0.25});  // [[1.5,-2],[0,0.25]]
  EXPECT_EQ(Mtx(m, false), std::string(kGeneral) +
                               "2 \t 2 \t 4 \n"
                               "1 \t 1 \t 1.500000000000000000 \n"
                               "1 \t 2 \t -2.000000000000000000 \n"
                               "2 \t 1 \t 0.000000000000000000 \n"
                               "2 \t 2 \t 0.250000000000000000 \n");
  EXPECT_EQ(Mtx(m, true), std::string(kGeneral) +
                              "2 \t 2 \t 3 \n"
                              "1 \t 1 \t 1.500000000000000000 \n"
                              "1 \t 2 \t -2.000000000000000000 \n"
                              "2 \t 2 \t 0.250000000000000000 \n");
  const std::string bound = Mtx(Mat(1, 2, {1e-300, 1e-310}), true);  // normal and subnormal
  EXPECT_NE(bound.find("1 \t 2 \t 1 \n"), std::string::npos);
  EXPECT_NE(bound.find("1 \t 1 \t "), std::string::npos);
  EXPECT_EQ(bound.find("1 \t 2 \t 0.0"), std::string::npos);
}

// ---- MatrixMarket readers
// -------------------------------------------------------------------------

TEST(MtxRead, RoundTripIsExact) {
  V v = RandomValues(35, 7, 1.0, 9.0);
  VQ_Matrix m(5, 7, v.data()), back(1, 1, 42.0);
  m(2, 3) = 0.0;
  EXPECT_TRUE(Read(back, Mtx(m, true), true));
  EXPECT_EQ(back.NumRows(), 5);
  EXPECT_EQ(Full(back), Full(m));  // 18 decimals of values in [1, 9) restore every bit
  EXPECT_EQ(back.MatrixStatus(), MC::STATUS_OK);
  // The diagonal writer's file reads back as well.
  VQ_DiagonalMatrix d(3, V{1.25, 0, 3.5}.data()), dBack;
  EXPECT_TRUE(Read(dBack, Mtx(d, true), true));
  EXPECT_EQ(Full(dBack), Full(d));
}

TEST(MtxRead, MalformedFilesNeverWriteOutOfBounds) {
  VQ_Matrix m;
  // Indices outside the declared size are skipped; reading stops at a malformed token.
  EXPECT_TRUE(Read(m, "2 2 6\n0 1 9\n3 1 9\n1 3 9\n-1 -1 9\n2 2 5\n1 x 3\n1 1 8\n"));
  EXPECT_EQ(Full(m), (V{0, 0, 0, 5}));
  // Truncated: the count promises more than the file holds.
  EXPECT_TRUE(Read(m, "2 2 10\n1 1 1\n2 2"));
  EXPECT_EQ(Full(m), (V{1, 0, 0, 0}));
  // No size line at all.
  EXPECT_FALSE(Read(m, "%%MatrixMarket matrix coordinate real general\nhello\n"));
  EXPECT_FALSE(Read(m, ""));
  // Negative and huge sizes fail the allocation cleanly.
  for (const char* text : {"-3 2 1\n1 1 1\n", "99999999999 99999999999 1\n1 1 1\n"}) {
    Stdout([&] { EXPECT_TRUE(Read(m, text)); });
    EXPECT_EQ(m.MatrixStatus(), MC::STATUS_NO_MEMORY) << text;
    EXPECT_TRUE(HasNoStorage(m));
  }
  // A symmetric receiver keeps its storage rule: entries land in the packed triangle.
  VQ_SymMatrix s;
  EXPECT_TRUE(Read(s, "3 3 2\n3 1 4\n3 3 9\n"));
  EXPECT_EQ(s.GetSizeAllocated(), 6);
  EXPECT_EQ(s.Value(1, 3), 4.0);
}

TEST(MtxRead, DiagonalDropsOffDiagonalTermsStatusOnlyWhenVerbose) {
  const std::string text =
      "%%MatrixMarket matrix coordinate real symmetric\n3 3 4\n1 1 2\n2 1 9\n3 3 4\n5 5 1\n";
  VQ_DiagonalMatrix quiet, loud;
  EXPECT_EQ(Stdout([&] { EXPECT_TRUE(Read(quiet, text, false)); }), "");
  EXPECT_EQ(quiet.MatrixStatus(), MC::STATUS_OK);
  EXPECT_EQ(Full(quiet), (V{2, 0, 0, 0, 0, 0, 0, 0, 4}));
  EXPECT_EQ(
      Stdout([&] { EXPECT_TRUE(Read(loud, text, true)); }),
      ">>>>>>> Off Diagonal Terms Found in redaing the File. They are Ignored !..... <<<<<< \n\n");
  EXPECT_EQ(loud.MatrixStatus(), MC::STATUS_OFF_DIAGONAL_IGNORED);
}

// ---- binary snapshot
// ---------------------------------------------------------------------------------

TEST(Snapshot, RoundTripOfEachKind) {
  const std::string base = ScratchPath("snap");
  VQ_Matrix m = RandomMatrix(4, 3, 9), back;
  m /= 0.0;  // a status worth restoring
  ASSERT_TRUE(m.WriteToFile(base.c_str(), false));
  ASSERT_TRUE(back.ReadFromFile(base.c_str(), false, false));
  EXPECT_EQ(back.NumRows(), 4);
  EXPECT_EQ(back.MatrixStatus(), MC::STATUS_DIVISION_BY_ZERO);
  const V a = Full(m), b = Full(back);
  ASSERT_EQ(a.size(), b.size());
  EXPECT_EQ(0, std::memcmp(a.data(), b.data(), a.size() * sizeof(double)));

  VQ_SymMatrix s = RandomSym(5, 10), sb;
  ASSERT_TRUE(s.WriteToFile(base.c_str(), false));
  ASSERT_TRUE(sb.ReadFromFile(base.c_str(), false, true));  // and remove the files
  EXPECT_EQ(Full(sb), Full(s));
  EXPECT_EQ(sb.MatrixType(), MC::SYM_MATRIX);
  EXPECT_EQ(FileBytes(base + "1.dat"), "");
  EXPECT_EQ(FileBytes(base + "2.dat"), "");
}

