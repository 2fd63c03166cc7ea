// PARDISO's own statistics of the factorisation of generated solids, for extrapolating to
// models too large for one machine. One line per size:
//   equations nnz(K upper) peakAnalysisKiB permanentKiB factorisationKiB factorEntries MFlop seconds
//   vqmath_factor_statistics 25000 50000 100000 200000
#include "models/DistributedSolid.h"
#include "tools/GeneratedModel.h"
#include "vqmath.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv)
{
    std::printf("# equations nnz peakAnalysisKiB permanentKiB factorisationKiB factorEntries MFlop seconds\n");
    for (int a = 1; a < argc; ++a) {
        const vqmath::models::SolidParameters p = vqsolve::BarParameters(std::atoi(argv[a]));
        const int n = vqmath::models::DistributedSolid::EquationsOf(p);
        const vqmath::models::DistributedSolid solid(p, {1, n});
        const vqmath::models::CsrRows& k = solid.Stiffness();
        std::vector<double> b = solid.EndFaceLoad(0, 0, -1e6), x(b.size());
        int iparm[64] = {};
        const auto start = std::chrono::steady_clock::now();
        const int code = VQ_DirectSparseSolver(n, 1, k.rowPointers.data(), k.columnIndices.data(), k.values.data(),
                                               b.data(), 0, -2, iparm, 0, "", 1, 0, x.data(), 0, nullptr, nullptr, 0, 0);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (code != 0) {
            std::fprintf(stderr, "solid:%s: code %d\n", argv[a], code);
            return 1;
        }
        std::printf("%d %zu %d %d %d %d %d %.3f\n", n, k.values.size(), iparm[14], iparm[15], iparm[16], iparm[17],
                    iparm[18], seconds);
        std::fflush(stdout);
    }
    return 0;
}
