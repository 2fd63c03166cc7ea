// The plain CSR container of the model generator: layout of every generated matrix, products
// against dense BLAS, triplet and shift helpers, element packing, and MatrixMarket files
// cross-checked with the independent reader of the test support library.

#include "models/CsrMatrix.h"
#include "models/FrameModel.h"
#include "models/SolidModel.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>
#include <mkl.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>

using namespace vqmath::models;

namespace {

// A scratch file holding text (when given), removed at the end of the test.
struct TempFile {
    explicit TempFile(const std::string& name, const char* text = nullptr)
        : path(::testing::TempDir() + "/vqmath_models_" + name)
    {
        if (text) std::ofstream(path, std::ios::binary) << text;
    }
    ~TempFile() { std::remove(path.c_str()); }
    std::string Text() const
    {
        std::stringstream s;
        s << std::ifstream(path, std::ios::binary).rdbuf();
        return s.str();
    }
    std::string path;
};

template <class A, class B>
void ExpectSameArrays(const A& a, const B& b, const std::string& what)
{
    ASSERT_EQ(a.n, b.n) << what;
    EXPECT_EQ(a.rowPointers, b.rowPointers) << what;
    EXPECT_EQ(a.columnIndices, b.columnIndices) << what;
    EXPECT_EQ(a.values, b.values) << what;
}

// A random sparse symmetric matrix with a random pattern (diagonal always present).
CsrMatrix RandomMatrix(int n, double density, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0), pick(0.0, 1.0);
    std::vector<double> dense(static_cast<size_t>(n) * n, 0.0);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i <= j; ++i)
            if (i == j || pick(rng) < density) dense[i + static_cast<size_t>(j) * n] = value(rng);
    return FromDense(n, dense.data(), 0.0);
}

}  // namespace

TEST(CsrLayout, EveryGeneratedMatrixKeepsTheSolverLayoutAndMultipliesLikeDenseBlas)
{
    SolidParameters p;
    p.nx = 4;
    p.ny = 2;
    p.nz = 3;
    p.consistentMass = true;
    const SolidModel clamped(p);
    p.clamped = false;
    const SolidModel free(p);
    const FrameModel column = FrameModel::PinnedColumn(ColumnParameters());
    const FrameModel portal = FrameModel::PortalFrame(PortalParameters());
    const std::pair<const char*, CsrMatrix> all[] = {
        {"solid K", clamped.Stiffness()},
        {"solid consistent M", clamped.ConsistentMass()},
        {"free solid K", free.Stiffness()},
        {"column K", column.Stiffness()},
        {"column Kg", column.GeometricStiffness()},
        {"column M", column.Mass()},
        {"portal K", portal.Stiffness()},
        {"portal Kg", portal.GeometricStiffness()},
        {"shifted", Shifted(clamped.Stiffness(), clamped.ConsistentMass(), 1e6)},
        {"random", RandomMatrix(37, 0.2, 7)},
    };
    for (const auto& [name, a] : all) {
        EXPECT_EQ(CheckLayout(a), "") << name;
        const int n = a.n;
        ASSERT_GT(n, 0) << name;
        std::vector<double> x(static_cast<size_t>(n)), ref(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) x[i] = std::sin(0.37 * i + 1.0);
        const std::vector<double> y = Multiply(a, x), dense = ToDense(a);
        cblas_dgemv(CblasColMajor, CblasNoTrans, n, n, 1.0, dense.data(), n, x.data(), 1, 0.0, ref.data(), 1);
        double scale = 0.0, err = 0.0;
        for (int i = 0; i < n; ++i) {
            scale = std::max(scale, std::fabs(ref[i]));
            err = std::max(err, std::fabs(y[i] - ref[i]));
        }
        EXPECT_LE(err, 1e-13 * std::max(scale, 1e-300)) << name;
    }
}

TEST(CsrLayout, CheckLayoutNamesEachViolation)
{
    CsrMatrix zeroBased = RandomMatrix(6, 0.5, 3);
    ASSERT_EQ(CheckLayout(zeroBased), "");
    for (int& p : zeroBased.rowPointers) --p;
    EXPECT_NE(CheckLayout(zeroBased), "");

    // Diagonal moved behind an off-diagonal entry of row 1.
    CsrMatrix diagonalLate = FromTriplets(3, {1, 1, 2, 3}, {1, 2, 2, 3}, {4, 1, 4, 4});
    ASSERT_EQ(CheckLayout(diagonalLate), "");
    std::swap(diagonalLate.columnIndices[0], diagonalLate.columnIndices[1]);
    EXPECT_NE(CheckLayout(diagonalLate).find("diagonal"), std::string::npos);

    CsrMatrix descending = FromTriplets(3, {1, 1, 1, 2, 3}, {1, 2, 3, 2, 3}, {4, 1, 1, 4, 4});
    std::swap(descending.columnIndices[1], descending.columnIndices[2]);
    EXPECT_NE(CheckLayout(descending), "");

    CsrMatrix lower = FromTriplets(2, {1, 2}, {1, 2}, {1, 1});
    lower.columnIndices[1] = 1;  // row 2 holds column 1
    EXPECT_NE(CheckLayout(lower), "");
}

TEST(CsrAccess, DenseConversionIsSymmetricAndRoundTrips)
{
    const CsrMatrix a = RandomMatrix(25, 0.3, 11);
    const std::vector<double> d = ToDense(a);
    for (int i = 0; i < a.n; ++i)
        for (int j = 0; j < a.n; ++j) {
            ASSERT_EQ(d[i + 25 * j], d[j + 25 * i]);
            ASSERT_EQ(d[i + 25 * j], a.Value(i + 1, j + 1));
        }
    ExpectSameArrays(FromDense(a.n, d.data(), 0.0), a, "round trip");
}

TEST(CsrAccess, FindAndValueAnswerBothTriangles)
{
    const CsrMatrix a = FromTriplets(4, {1, 1, 2, 3, 4, 4}, {1, 3, 2, 3, 4, 2}, {5, 2, 6, 7, 8, -1});
    struct Row {
        int i, j;
        double value;
        int position;  // -1: not stored
    };
    for (const Row& r : {Row{1, 1, 5, 0}, Row{1, 3, 2, 1}, Row{3, 1, 2, 1}, Row{4, 2, -1, 3}, Row{2, 4, -1, 3},
                         Row{1, 2, 0, -1}, Row{0, 1, 0, -1}, Row{1, 5, 0, -1}}) {
        EXPECT_EQ(a.Find(r.i, r.j), r.position) << r.i << "," << r.j;
        if (r.i >= 1 && r.j <= 4) {
            EXPECT_EQ(a.Value(r.i, r.j), r.value) << r.i << "," << r.j;
        }
    }
}

TEST(CsrBuild, TripletsSumRepeatsAndSupplyMissingDiagonals)
{
    // (2,1) and (1,2) are the same entry; row 3 has no diagonal given.
    const CsrMatrix a = FromTriplets(3, {2, 1, 1, 2, 1}, {1, 2, 1, 2, 3}, {5.0, 3.0, 1.0, 2.0, 4.0});
    EXPECT_EQ(CheckLayout(a), "");
    EXPECT_EQ(a.rowPointers, (std::vector<int>{1, 4, 5, 6}));
    EXPECT_EQ(a.columnIndices, (std::vector<int>{1, 2, 3, 2, 3}));
    EXPECT_EQ(a.values, (std::vector<double>{1.0, 8.0, 4.0, 2.0, 0.0}));
    EXPECT_THROW(FromTriplets(3, {4}, {1}, {1.0}), std::invalid_argument);
    EXPECT_THROW(FromTriplets(3, {0}, {1}, {1.0}), std::invalid_argument);
}

TEST(CsrShift, ShiftedMatchesDenseDifferenceOnTheUnionPattern)
{
    // Different patterns, so the union is exercised.
    const CsrMatrix k = RandomMatrix(30, 0.15, 21), m = RandomMatrix(30, 0.15, 22);
    const double sigma = 0.75;
    const CsrMatrix s = Shifted(k, m, sigma);
    ASSERT_EQ(CheckLayout(s), "");
    const std::vector<double> dk = ToDense(k), dm = ToDense(m), ds = ToDense(s);
    for (size_t i = 0; i < ds.size(); ++i) EXPECT_NEAR(ds[i], dk[i] - sigma * dm[i], 1e-15);
    // Nothing outside the union is stored, and the whole union is.
    for (int i = 1; i <= 30; ++i)
        for (int j = i; j <= 30; ++j)
            EXPECT_EQ(s.Find(i, j) >= 0, k.Find(i, j) >= 0 || m.Find(i, j) >= 0) << i << "," << j;

    const CsrMatrix sd = Shifted(k, std::vector<double>(30, 2.0), sigma);
    EXPECT_EQ(sd.columnIndices, k.columnIndices);
    for (int i = 1; i <= 30; ++i) EXPECT_DOUBLE_EQ(sd.Value(i, i), k.Value(i, i) - 1.5);
    EXPECT_THROW(Shifted(k, std::vector<double>(29, 1.0), sigma), std::invalid_argument);
}

TEST(CsrPacking, UpperTriangleByColumnsAtTheDocumentedPositions)
{
    const int order = 5;
    std::vector<double> dense(order * order);
    for (int a = 1; a <= order; ++a)
        for (int b = 1; b <= order; ++b) dense[(a - 1) + order * (b - 1)] = 10.0 * std::min(a, b) + std::max(a, b);
    const std::vector<double> packed = PackUpperByColumns(dense.data(), order);
    ASSERT_EQ(packed.size(), 15u);
    for (int b = 1; b <= order; ++b)
        for (int a = 1; a <= b; ++a) EXPECT_EQ(packed[b * (b - 1) / 2 + a - 1], 10.0 * a + b) << a << "," << b;
}

TEST(CsrMatrixMarket, RoundTripIsExact)
{
    SolidParameters p;
    p.nx = 3;
    p.ny = 2;
    p.nz = 2;
    CsrMatrix odd = RandomMatrix(17, 0.3, 5);
    odd.values[3] = 1.0 / 3.0;
    odd.values[0] = -2.5e-300;
    for (const CsrMatrix& a : {SolidModel(p).Stiffness(), odd}) {
        TempFile file("roundtrip.mtx");
        ASSERT_TRUE(WriteMatrixMarket(a, file.path));
        CsrMatrix back;
        std::string error;
        ASSERT_TRUE(ReadMatrixMarket(file.path, back, &error)) << error;
        ExpectSameArrays(back, a, "round trip");
    }
}

TEST(CsrMatrixMarket, WrittenFileIsTheLowerTriangleColumnByColumn)
{
    const CsrMatrix a = FromTriplets(3, {1, 1, 2, 2, 3}, {1, 3, 2, 3, 3}, {4.0, -1.0, 5.0, 0.5, 6.0});
    TempFile file("lower.mtx");
    ASSERT_TRUE(WriteMatrixMarket(a, file.path));
    EXPECT_EQ(file.Text(),
              "%%MatrixMarket matrix coordinate real symmetric\n"
              "3 3 5\n"
              "1 1 4\n3 1 -1\n2 2 5\n3 2 0.5\n3 3 6\n");
    // The independent reader of the test support library sees the same matrix.
    vqtest::Csr ref;
    std::string error;
    ASSERT_TRUE(vqtest::ReadMtx(file.path, ref, &error)) << error;
    ExpectSameArrays(ref, a, "support reader");
}

TEST(CsrMatrixMarket, ReadsCrlfCommentsUpperTriangleAndGeneralFiles)
{
    CsrMatrix a;
    std::string error;
    const TempFile symmetric("forms.mtx",
                             "%%MatrixMarket matrix coordinate real symmetric\r\n"
                             "% a comment\r\n"
                             "%\r\n"
                             "3 3 5\r\n"
                             "1 1 4.0\r\n"
                             "1 3 -1.0\r\n"  // upper triangle entry in a symmetric file
                             "% a comment among the entries\r\n"
                             "3 1 -1.0\r\n"  // the same entry again from below: summed
                             "2 2 5e0\r\n"
                             "3 3 6\r\n");
    ASSERT_TRUE(ReadMatrixMarket(symmetric.path, a, &error)) << error;
    EXPECT_EQ(CheckLayout(a), "");
    EXPECT_EQ(a.Value(1, 3), -2.0);
    EXPECT_EQ(a.Value(2, 2), 5.0);
    EXPECT_EQ(a.Nnz(), 4);

    const TempFile general("general.mtx", "%%MatrixMarket matrix coordinate integer general\n"
                                          "2 2 4\n1 1 2\n1 2 -1\n2 1 -1\n2 2 2\n");
    ASSERT_TRUE(ReadMatrixMarket(general.path, a, &error)) << error;
    EXPECT_EQ(a.Nnz(), 3);
    EXPECT_EQ(a.Value(1, 2), -1.0);  // not doubled: a general file's lower half mirrors the upper
}

TEST(CsrMatrixMarket, RejectsMalformedFilesWithAReason)
{
    const char* cases[] = {
        "not a matrix market file\n1 1 1\n1 1 1\n",
        "%%MatrixMarket matrix array real symmetric\n2 2\n1\n2\n3\n",
        "%%MatrixMarket matrix coordinate complex symmetric\n1 1 1\n1 1 1 0\n",
        "%%MatrixMarket matrix coordinate real symmetric\n2 3 1\n1 1 1\n",
        "%%MatrixMarket matrix coordinate real symmetric\n2 2 3\n1 1 1\n2 2 1\n",
        "%%MatrixMarket matrix coordinate real symmetric\n2 2 1\n3 1 1\n",
        "%%MatrixMarket matrix coordinate real symmetric\n2 2 1\n1 x 1\n",
    };
    CsrMatrix untouched = FromDiagonal({9.0});
    for (const char* text : cases) {
        const TempFile file("bad.mtx", text);
        std::string error;
        EXPECT_FALSE(ReadMatrixMarket(file.path, untouched, &error)) << text;
        EXPECT_FALSE(error.empty()) << text;
        EXPECT_EQ(untouched.n, 1);
    }
    std::string error;
    EXPECT_FALSE(ReadMatrixMarket(TempFile("does_not_exist.mtx").path, untouched, &error));
}

TEST(CsrMatrixMarket, PublishedHarwellBoeingFileAgreesWithTheSupportReader)
{
    VQTEST_REQUIRE_DATA();
    for (const char* name : {"bcsstk01.mtx", "bcsstm01.mtx", "bcsstk05.mtx", "bcsstm07.mtx"}) {
        CsrMatrix a;
        vqtest::Csr ref;
        std::string error;
        ASSERT_TRUE(ReadMatrixMarket(vqtest::DataFile(name), a, &error)) << name << ": " << error;
        EXPECT_EQ(CheckLayout(a), "") << name;
        ASSERT_TRUE(vqtest::ReadMtx(vqtest::DataFile(name), ref, &error)) << name << ": " << error;
        ExpectSameArrays(a, ref, name);
    }
}
