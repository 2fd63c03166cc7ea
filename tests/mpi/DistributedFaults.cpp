// Faults on one process, crossed with every collective entry point: a bad slice (overlapping,
// missing or surplus rows, a wrong or absurd order, NaN or infinite values, broken compressed
// rows, a missing array) and a process whose allocations fail (the k-th allocation of this program above a few kB, every
// k in turn; the math library's own allocations are not limited). Every process must return the same code and message, and the processes must stay
// in step: the ctest timeout is the guard against one left waiting in a collective call.
#include "support/MpiTestSupport.h"

#include "models/SolidModel.h"
#include "vqmath.h"
#include "vqmath_mpi.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <new>
#include <string>
#include <vector>

// An allocation limit on this process: once armed, the failAt-th allocation of at least
// kLargeBytes throws (as new does when memory runs out). Small allocations (messages, per-process
// tables) are left alone: the limit models a process whose share of the model does not fit.
namespace {
constexpr std::size_t kLargeBytes = 4096;
bool armed = false;
long largeCount = 0, failAt = 0;
bool limited = false;  // this process's library calls run under the limit

// Arms the limit for the library call in its scope (the test's own buffers are allocated before).
struct Limit {
    Limit() { armed = limited; }
    ~Limit() { armed = false; }
};
}  // namespace

#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size)
{
    if (armed && size >= kLargeBytes && ++largeCount == failAt) throw std::bad_alloc();
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace {

using vqmath::models::CsrRows;
using vqmath::models::DistributedSolid;
using vqmath::models::SolidModel;

struct Input {
    int n = 0, first = 0, last = 0;
    CsrRows k;
    std::vector<double> load, mass;
    const double* kValues() const { return k.values.empty() ? nullptr : k.values.data(); }
};

Input Healthy()
{
    const auto params = SolidModel::ForEquations(900);
    const int n = DistributedSolid::EquationsOf(params);
    const DistributedSolid part(params, mpitest::MyRows(n));
    return Input{n, part.Rows().first, part.Rows().last, part.Stiffness(), part.EndFaceLoad(0, 0, 1e3),
                 part.LumpedMass()};
}

// An input fault leaves the solution (and the eigenvalues below) as they were.
int Solve(const Input& in)
{
    std::vector<double> x(in.load.size(), 7.0);
    Limit limit;
    const int code = VQ_MpiDirectSparseSolver(MPI_COMM_WORLD, in.n, in.first, in.last, in.k.rowPointers.data(),
                                              in.k.columnIndices.data(), in.kValues(), 1, in.load.data(), x.data(),
                                              2, 1);
    if (code == -64) EXPECT_EQ(std::vector<double>(x.size(), 7.0), x);
    return code;
}

int FactorThenSolve(const Input& in)
{
    VQ_MpiFactorization* f = nullptr;
    std::vector<double> x(in.load.size());
    Limit limit;
    int code = VQ_MpiSparseFactor(MPI_COMM_WORLD, in.n, in.first, in.last, in.k.rowPointers.data(),
                                  in.k.columnIndices.data(), in.kValues(), -2, 0, &f);
    if (code == 0) code = VQ_MpiSparseSolve(f, 1, in.load.data(), x.data());
    VQ_MpiSparseRelease(f);
    return code;
}

int Sturm(const Input& in)
{
    int below = 0;
    Limit limit;
    return VQ_MpiSturmCount(MPI_COMM_WORLD, in.n, in.first, in.last, in.k.rowPointers.data(), in.k.columnIndices.data(),
                            in.kValues(), in.mass.data(), nullptr, nullptr, nullptr, 1e7, &below);
}

int Modes(const Input& in)
{
    int found = 5;
    std::vector<double> values(4, 9.0), shapes(in.mass.size() * 4);
    Limit limit;
    const int code = VQ_MpiEigenvalueAnalysis_Lanczos(
        MPI_COMM_WORLD, in.n, in.first, in.last, in.k.rowPointers.data(), in.k.columnIndices.data(), in.kValues(),
        in.mass.data(), nullptr, nullptr, nullptr, 0, 4, 0.0, -1, &found, values.data(), shapes.data(), nullptr);
    if (code == -64) {  // cleared on entry, as the single-process entry points do
        EXPECT_EQ(0, found);
        EXPECT_EQ(std::vector<double>(4, 0.0), values);
    }
    return code;
}

int Product(const Input& in)
{
    std::vector<double> y(in.load.size());
    Limit limit;
    return VQ_MpiSparseSymmMatrixVectorMultiplication(MPI_COMM_WORLD, in.n, in.first, in.last, in.k.rowPointers.data(),
                                                      in.k.columnIndices.data(), in.kValues(), in.mass.data(),
                                                      y.data());
}

struct Call {
    const char* name;
    std::function<int(const Input&)> run;
};
const std::vector<Call> kCalls = {
    {"direct solver", Solve}, {"factor + solve", FactorThenSolve}, {"Sturm count", Sturm}, {"Lanczos", Modes},
    {"product", Product},
};

// Every process's code and message agree; returns the code.
int AgreedCode(int code, const std::string& where)
{
    const std::vector<std::string> all = mpitest::GatherStrings(std::to_string(code) + " " + mpitest::LastMessage());
    for (const std::string& s : all) EXPECT_EQ(all[0], s) << where;
    return code;
}

// Every fault is spoiled into the last process's slice; `reads` names the calls that read the
// spoiled array (the others must succeed), `expected` is part of the message.
TEST(DistributedFaults, ABadSliceOnOneProcessIsTheSameErrorEverywhere)
{
    const int culprit = mpitest::Size() - 1;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr unsigned kAll = 31, kLoad = 3, kMass = 28;  // bits of kCalls
    struct Fault {
        const char* what;
        std::function<void(Input&)> spoil;
        unsigned reads;
        const char* expected;
    };
    const std::vector<Fault> faults = {
        {"rows overlapping the previous process", [](Input& in) { in.first -= 1; }, kAll, "owns rows"},
        {"a row missing before the process", [](Input& in) { in.first += 1; }, kAll, "owns rows"},
        {"rows beyond the order", [](Input& in) { in.last += 1; }, kAll, ""},
        {"no rows", [](Input& in) { in.first = in.last + 1; }, kAll, ""},
        {"a larger order", [](Input& in) { in.n += 3; }, kAll, "order"},
        {"an absurd order", [](Input& in) { in.n = INT_MAX; }, kAll, "order"},
        {"a negative order", [](Input& in) { in.n = -7; }, kAll, "order"},
        {"NaN in K", [nan](Input& in) { in.k.values[in.k.values.size() / 3] = nan; }, kAll, "is NaN"},
        {"infinite load", [](Input& in) { in.load.back() = INFINITY; }, kLoad, "load: value at row"},
        {"NaN mass", [nan](Input& in) { in.mass[0] = nan; }, kMass, ": value at row"},
        {"infinite mass", [](Input& in) { in.mass.back() = -INFINITY; }, kMass, ""},  // x of the product
        {"column below the diagonal", [](Input& in) { in.k.columnIndices[in.k.rowPointers[1] - 1] = in.first - 1; },
         kAll, "row"},
        {"column beyond the order", [](Input& in) { in.k.columnIndices.back() = in.n + 1; }, kAll, ""},
        {"row pointers not from 1", [](Input& in) { in.k.rowPointers[0] = 0; }, kAll, ""},
        {"row pointers decreasing", [](Input& in) { in.k.rowPointers[1] = in.k.rowPointers[0]; }, kAll, ""},
        {"K values missing", [](Input& in) { in.k.values.clear(); }, kAll, ""},
    };
    for (const Fault& fault : faults) {
        for (size_t c = 0; c < kCalls.size(); ++c) {
            const std::string where = std::string(kCalls[c].name) + ", " + fault.what;
            SCOPED_TRACE(where);
            Input in = Healthy();
            if (mpitest::Rank() == culprit) fault.spoil(in);
            const int code = AgreedCode(kCalls[c].run(in), where);
            const std::string message = mpitest::LastMessage();
            if (!(fault.reads >> c & 1)) {
                EXPECT_EQ(0, code) << message;
                continue;
            }
            EXPECT_EQ(-64, code) << message;
            EXPECT_EQ(-64, VQ_GetLastErrorID());
            EXPECT_EQ(0u, message.find("ERROR_INVALID_MATRICES: ")) << message;
            EXPECT_NE(std::string::npos, message.find(fault.expected)) << message;
            EXPECT_NE(std::string::npos, message.find("process " + std::to_string(culprit))) << message;
        }
        // Still in step: a healthy call succeeds everywhere.
        EXPECT_EQ(0, Solve(Healthy())) << mpitest::LastMessage();
    }
}

TEST(DistributedFaults, AProcessOutOfMemoryFailsEveryProcessAlike)
{
    const int culprit = mpitest::Size() - 1;
    const Input in = Healthy();
    for (const Call& call : kCalls) {
        // How many large allocations the culprit makes in a healthy call.
        largeCount = 0, failAt = 0;
        limited = mpitest::Rank() == culprit;
        const int healthy = call.run(in);
        limited = false;
        ASSERT_EQ(0, AgreedCode(healthy, call.name)) << mpitest::LastMessage();
        long total = largeCount;
        MPI_Bcast(&total, 1, MPI_LONG, culprit, MPI_COMM_WORLD);
        EXPECT_GT(total, 0) << call.name;
        for (long k = 1; k <= total; ++k) {
            const std::string where = std::string(call.name) + ", allocation " + std::to_string(k) + " of " +
                                      std::to_string(total) + " fails";
            SCOPED_TRACE(where);
            largeCount = 0, failAt = k;
            limited = mpitest::Rank() == culprit;
            const int code = call.run(in);
            limited = false;
            AgreedCode(code, where);
            // A failure of a step the call cannot do without is reported alike everywhere; one of
            // an optional step (the singularity probe after a factorisation) is not a failure.
            EXPECT_NE(-64, code) << where << ": " << mpitest::LastMessage();
        }
        EXPECT_EQ(0, AgreedCode(call.run(in), call.name)) << mpitest::LastMessage();
    }
}

}  // namespace
