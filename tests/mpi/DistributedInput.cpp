// Malformed distributed input on one process: every process returns the same clear error, and
// none is left waiting (the ctest timeout is the guard).
#include "support/MpiTestSupport.h"

#include "models/SolidModel.h"
#include "vqmath.h"
#include "vqmath_mpi.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using vqmath::models::CsrRows;
using vqmath::models::DistributedSolid;
using vqmath::models::SolidModel;

struct Input {
    int n = 0;
    int first = 0, last = 0;
    CsrRows k;
    std::vector<double> load, mass;
};

Input Healthy()
{
    const auto params = SolidModel::ForEquations(900);
    const int n = DistributedSolid::EquationsOf(params);
    const DistributedSolid part(params, mpitest::MyRows(n));
    Input in;
    in.n = n;
    in.first = part.Rows().first;
    in.last = part.Rows().last;
    in.k = part.Stiffness();
    in.load = part.EndFaceLoad(0, 0, 1e3);
    in.mass = part.LumpedMass();
    return in;
}

int Solve(const Input& in)
{
    std::vector<double> x(in.load.size(), 7.0);
    return VQ_MpiDirectSparseSolver(MPI_COMM_WORLD, in.n, in.first, in.last, in.k.rowPointers.data(),
                                    in.k.columnIndices.data(), in.k.values.data(), 1, in.load.data(), x.data(), -2, 0);
}

int Modes(const Input& in)
{
    int found = 0;
    std::vector<double> values(4);
    return VQ_MpiEigenvalueAnalysis_Lanczos(MPI_COMM_WORLD, in.n, in.first, in.last, in.k.rowPointers.data(),
                                            in.k.columnIndices.data(), in.k.values.data(), in.mass.data(), nullptr,
                                            nullptr, nullptr, 0, 4, 0.0, -1, &found, values.data(), nullptr, nullptr);
}

TEST(DistributedInput, AFaultOnOneProcessIsTheSameErrorEverywhere)
{
    const int culprit = mpitest::Size() - 1;  // the last process spoils its part
    struct Case {
        const char* what;
        std::function<void(Input&)> spoil;
        std::function<int(const Input&)> call;
        std::string expected;  // part of the message
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<Case> cases = {
        {"row range shifted", [](Input& in) { in.first += 1; }, Solve, "owns rows"},
        {"order differs", [](Input& in) { in.n += 3; }, Solve, "order"},
        {"NaN in K", [nan](Input& in) { in.k.values[in.k.values.size() / 2] = nan; }, Solve, "is NaN"},
        {"column below the diagonal",
         [](Input& in) { in.k.columnIndices[in.k.rowPointers[1] - 1] = in.first - 1; }, Solve, "row"},
        {"infinite load", [](Input& in) { in.load.back() = INFINITY; }, Solve, "load: value at row"},
        {"NaN in the mass", [nan](Input& in) { in.mass[0] = nan; }, Modes, "mass diagonal: value at row"},
        {"NaN in K for Lanczos", [nan](Input& in) { in.k.values[0] = nan; }, Modes, "K: value at row"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Input in = Healthy();
        if (mpitest::Rank() == culprit) c.spoil(in);
        const int code = c.call(in);
        const std::string message = mpitest::LastMessage();
        EXPECT_EQ(-64, code);
        EXPECT_EQ(-64, VQ_GetLastErrorID());
        EXPECT_EQ(0u, message.find("ERROR_INVALID_MATRICES: ")) << message;
        EXPECT_NE(std::string::npos, message.find(c.expected)) << message;
        EXPECT_NE(std::string::npos, message.find("process " + std::to_string(culprit))) << message;
        const std::vector<std::string> all = mpitest::GatherStrings(std::to_string(code) + " " + message);
        for (const std::string& s : all) EXPECT_EQ(all[0], s);
        // Afterwards the processes are still in step: a healthy call succeeds everywhere.
        EXPECT_EQ(0, Solve(Healthy())) << mpitest::LastMessage();
    }
}

TEST(DistributedInput, ResultArraysAreUntouchedAfterAnError)
{
    Input in = Healthy();
    if (mpitest::Rank() == 0) in.k.values[0] = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> x(in.load.size(), 7.0);
    EXPECT_EQ(-64, VQ_MpiDirectSparseSolver(MPI_COMM_WORLD, in.n, in.first, in.last, in.k.rowPointers.data(),
                                            in.k.columnIndices.data(), in.k.values.data(), 1, in.load.data(), x.data(),
                                            -2, 0));
    EXPECT_EQ(std::vector<double>(in.load.size(), 7.0), x);
    int found = 5;
    std::vector<double> values(3, 9.0);
    EXPECT_EQ(-64, VQ_MpiEigenvalueAnalysis_Lanczos(MPI_COMM_WORLD, in.n, in.first, in.last, in.k.rowPointers.data(),
                                                    in.k.columnIndices.data(), in.k.values.data(), in.mass.data(),
                                                    nullptr, nullptr, nullptr, 0, 3, 0.0, -1, &found, values.data(),
                                                    nullptr, nullptr));
    EXPECT_EQ(0, found);
    EXPECT_EQ(std::vector<double>(3, 0.0), values);  // cleared on entry, as the single-process entry points do
}

}  // namespace
