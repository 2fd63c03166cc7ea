// The machine's dense matrix-multiply rate with Intel MKL (cblas_dgemm, the threads MKL is given),
// the yardstick for the sparse factorisation's rate: a supernodal factorisation spends most of
// its operations in dense kernels, so its flop rate is judged against this one.
//
//   bench_dgemm_rate [--n 3000] [--repeat 3]
//
// Prints the best rate of `repeat` products C = A·B of order n (2·n³ operations each) and the
// MKL version and code path.
#include "SuiteIO.h"

#include <mkl.h>

using namespace vqbench;

int main(int argc, char** argv)
{
    Options opt(argc, argv);
    Result result("dgemm");
    const int n = opt.GetInt("n", 3000);
    const int repeat = std::max(1, opt.GetInt("repeat", 3));
    std::vector<double> a(static_cast<size_t>(n) * n), b(a.size()), c(a.size(), 0.0);
    for (size_t i = 0; i < a.size(); ++i) {
        a[i] = 1.0 / static_cast<double>(1 + i % 97);
        b[i] = 1.0 / static_cast<double>(1 + i % 89);
    }
    // One product first, so that MKL's threads and buffers exist before timing.
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, 500, 500, 500, 1.0, a.data(), n, b.data(), n, 0.0,
                c.data(), n);
    double best = 1e30;
    for (int r = 0; r < repeat; ++r) {
        const double t0 = Now();
        cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0, a.data(), n, b.data(), n, 0.0, c.data(),
                    n);
        best = std::min(best, Now() - t0);
    }
    MKLVersion v;
    mkl_get_version(&v);
    char version[64];
    std::snprintf(version, sizeof version, "%d.%d.%d build %s", v.MajorVersion, v.MinorVersion, v.UpdateVersion,
                  v.Build);
    result.Set("n", n);
    result.Set("threads", mkl_get_max_threads());
    result.Set("t_best", best);
    result.Set("gflops", 2.0 * n * static_cast<double>(n) * n / best / 1e9);
    result.Set("mkl_version", version);
    result.Set("mkl_path", v.Processor);
    result.Print();
    return 0;
}
