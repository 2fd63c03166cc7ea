// The plain CSR container of the model generator: layout of every generated matrix, products
// against dense BLAS, triplet and shift helpers, element packing, and MatrixMarket files read back
// and refused when malformed (the shared structural matrices it reads are checked against the
// sparse class's own reader there).

#include "models/CsrMatrix.h"
#include "models/FrameModel.h"
#include "models/SolidModel.h"
#include "support/SparseSymMatrixSupport.h"

#include <gtest/gtest.h>
#include <mkl.h>

#include <cmath>
#include <cstdio>
#include <string>

using namespace vqmath::models;

namespace {

// A random sparse symmetric matrix with a random pattern (diagonal always present).
CsrMatrix RandomMatrix(int n, double density, unsigned seed)
{
    return FromDense(n, vqtest::RandomSymmetricDense(n, density, seed).data(), 0.0);
}

}  // namespace

TEST(CsrLayout, EveryGeneratedMatrixKeepsTheSolverLayoutAndMultipliesLikeDenseBlas)
{
    SolidParameters p{4, 2, 3};
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

TEST(CsrMatrixMarket, RoundTripIsExact)
{
    const SolidParameters p{3, 2, 2};
    CsrMatrix odd = RandomMatrix(17, 0.3, 5);
    odd.values[3] = 1.0 / 3.0;
    odd.values[0] = -2.5e-300;
    for (const CsrMatrix& a : {SolidModel(p).Stiffness(), odd}) {
        vqtest::TempFile file("roundtrip.mtx");
        ASSERT_TRUE(WriteMatrixMarket(a, file.path));
        CsrMatrix back;
        std::string error;
        ASSERT_TRUE(ReadMatrixMarket(file.path, back, &error)) << error;
        ASSERT_EQ(back.n, a.n);
        EXPECT_EQ(back.rowPointers, a.rowPointers);
        EXPECT_EQ(back.columnIndices, a.columnIndices);
        EXPECT_EQ(back.values, a.values);
    }
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
        const vqtest::TempFile file("bad.mtx", text);
        std::string error;
        EXPECT_FALSE(ReadMatrixMarket(file.path, untouched, &error)) << text;
        EXPECT_FALSE(error.empty()) << text;
        EXPECT_EQ(untouched.n, 1);
    }
    std::string error;
    EXPECT_FALSE(ReadMatrixMarket(vqtest::TempFile("does_not_exist.mtx").path, untouched, &error));
}
