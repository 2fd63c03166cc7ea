// main of the distributed test programs: MPI around GoogleTest; the program fails when a test
// failed on any process.
#include <gtest/gtest.h>
#include <mpi.h>

#include <cstdio>

namespace {

// The other processes print only their failures, marked with their rank.
class FailurePrinter : public ::testing::EmptyTestEventListener {
public:
    explicit FailurePrinter(int rank) : rank_(rank) {}
    void OnTestPartResult(const ::testing::TestPartResult& r) override
    {
        if (r.failed())
            std::fprintf(stderr, "[process %d] %s:%d: failure\n%s\n", rank_, r.file_name() ? r.file_name() : "?",
                         r.line_number(), r.summary());
    }

private:
    int rank_;
};

}  // namespace

int main(int argc, char** argv)
{
    MPI_Init(&argc, &argv);
    ::testing::InitGoogleTest(&argc, argv);
    int rank = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    if (rank != 0) {
        auto& listeners = ::testing::UnitTest::GetInstance()->listeners();
        delete listeners.Release(listeners.default_result_printer());
        listeners.Append(new FailurePrinter(rank));
    }
    const int result = RUN_ALL_TESTS();
    int worst = 0;
    MPI_Allreduce(&result, &worst, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
    MPI_Finalize();
    return worst;
}
