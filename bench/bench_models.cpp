// Generation time of the hexahedral solid at growing sizes: stiffness and lumped mass, then
// with the consistent mass as well, and the product y = K·x on the generated matrix.
// Usage: bench_models [largest target, default 1000000]

#include "models/CsrMatrix.h"
#include "models/SolidModel.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace vqmath::models;

namespace {

double Seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

}  // namespace

int main(int argc, char** argv)
{
    const int largest = argc > 1 ? std::atoi(argv[1]) : 1000000;
    std::printf("%10s %14s %10s %12s %10s %12s %10s\n", "target", "mesh", "equations", "nnz(K)", "K+Ml [s]",
                "K+Ml+Mc [s]", "K*x [s]");
    for (int target : {20000, 100000, 300000, 1000000}) {
        if (target > largest) break;
        SolidParameters p = SolidModel::ForEquations(target);

        auto t0 = std::chrono::steady_clock::now();
        const SolidModel model(p);
        const double tk = Seconds(t0);

        std::vector<double> x(static_cast<size_t>(model.NumEquations()), 1.0), y(x.size());
        t0 = std::chrono::steady_clock::now();
        Multiply(model.Stiffness(), x.data(), y.data());
        const double tmul = Seconds(t0);

        p.consistentMass = true;
        t0 = std::chrono::steady_clock::now();
        const SolidModel withMass(p);
        const double tkm = Seconds(t0);

        char mesh[40];
        std::snprintf(mesh, sizeof mesh, "%dx%dx%d", p.nx, p.ny, p.nz);
        std::printf("%10d %14s %10d %12d %10.3f %12.3f %10.3f\n", target, mesh, model.NumEquations(),
                    model.Stiffness().Nnz(), tk, tkm, tmul);
        std::fflush(stdout);
    }
    return 0;
}
