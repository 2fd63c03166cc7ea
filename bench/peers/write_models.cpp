// Writes one benchmark model to binary files that every measured program reads, so all of them
// start from the same arrays (see SuiteIO.h for the format).
//
//   bench_write_models --out DIR --name NAME --solid EQUATIONS
//       3D clamped hexahedral bar of about EQUATIONS equations (steel): NAME.K.bin (stiffness),
//       NAME.M.bin (lumped mass), NAME.F.bin (a transverse end-face load).
//   bench_write_models --out DIR --name NAME --frame BAYS,STOREYS
//       plane multi-storey frame of beam-column elements under storey loads: NAME.K.bin,
//       NAME.Kg.bin (geometric stiffness of the columns' compression), NAME.M.bin (lumped mass),
//       NAME.F.bin (a lateral load at the top). The result line gives an estimate of the lowest
//       buckling factor, from which the suite finds the buckling shift.
#include "SuiteIO.h"

#include "models/FrameModel.h"
#include "models/SolidModel.h"

using namespace vqbench;
using namespace vqmath::models;

namespace {

bool Write(const std::string& path, const CsrMatrix& a)
{
    return WriteCsr(path, a.n, a.rowPointers.data(), a.columnIndices.data(), a.values.data());
}

}  // namespace

int main(int argc, char** argv)
{
    Options opt(argc, argv);
    Result result("models");
    const std::string dir = opt.Get("out", "."), name = opt.Get("name", "model");
    const std::string base = dir + "/" + name;
    try {
        const double t0 = Now();
        bool ok = true;
        if (opt.Has("solid")) {
            const SolidParameters p = SolidModel::ForEquations(opt.GetInt("solid", 20000));
            const SolidModel s(p);
            const double t1 = Now();
            ok = Write(base + ".K.bin", s.Stiffness()) && WriteVector(base + ".M.bin", s.LumpedMass()) &&
                 WriteVector(base + ".F.bin", s.EndFaceLoad(0.0, 0.0, -1.0e6));
            result.Set("kind", "solid");
            result.Set("mesh", std::to_string(p.nx) + "x" + std::to_string(p.ny) + "x" + std::to_string(p.nz));
            result.Set("n", s.NumEquations());
            result.Set("nnz", static_cast<long long>(s.Stiffness().Nnz()));
            result.Set("t_generate", t1 - t0);
        } else if (opt.Has("frame")) {
            // A plane multi-storey frame: `bays` bays of 6 m, `storeys` storeys of 3.5 m, every
            // member in 4 elements, clamped at the base; each column line carries a unit load per
            // storey, so the columns of storey s (from the bottom, 0-based) are compressed by
            // storeys − s. Kg is that of these forces: the buckling factors multiply them.
            int bays = 10, storeys = 30;
            std::sscanf(opt.Get("frame").c_str(), "%d,%d", &bays, &storeys);
            const double bay = 6.0, height = 3.5;
            const BeamSection section;
            FrameModel f;
            std::vector<int> node(static_cast<size_t>((bays + 1) * (storeys + 1)));
            auto at = [&](int column, int level) -> int& { return node[static_cast<size_t>(level * (bays + 1) + column)]; };
            for (int level = 0; level <= storeys; ++level)
                for (int column = 0; column <= bays; ++column) at(column, level) = f.AddNode(column * bay, level * height);
            for (int level = 0; level < storeys; ++level)
                for (int column = 0; column <= bays; ++column)
                    f.AddMember(at(column, level), at(column, level + 1), section, storeys - level, 4);
            for (int level = 1; level <= storeys; ++level)
                for (int column = 0; column < bays; ++column)
                    f.AddMember(at(column, level), at(column + 1, level), section, 0.0, 4);
            for (int column = 0; column <= bays; ++column)
                for (int dof = 0; dof < 3; ++dof) f.Fix(at(column, 0), dof);
            f.Build(false);
            const double t1 = Now();
            ok = Write(base + ".K.bin", f.Stiffness()) && Write(base + ".Kg.bin", f.GeometricStiffness()) &&
                 WriteVector(base + ".M.bin", f.LumpedMass()) &&
                 WriteVector(base + ".F.bin", f.NodeLoad(at(0, storeys), 0, 1.0e3));
            result.Set("kind", "frame");
            result.Set("bays", bays);
            result.Set("storeys", storeys);
            result.Set("n", f.NumEquations());
            result.Set("nnz", static_cast<long long>(f.Stiffness().Nnz()));
            // Euler load of a bottom column over its axial force: the order of the lowest buckling
            // factor (sway frames buckle somewhat below it).
            const double pi = 3.14159265358979323846;
            result.Set("buckling_estimate",
                       pi * pi * section.youngsModulus * section.inertia / (height * height) / storeys);
            result.Set("t_generate", t1 - t0);
        } else {
            result.Fail("give --solid EQUATIONS or --frame BAYS,STOREYS");
        }
        if (!ok) result.Fail("cannot write " + base + ".*");
        result.Set("t_total", Now() - t0);
    } catch (const std::exception& e) {
        result.Fail(e.what());
    }
    result.SetMemory(0);
    result.Print();
    return 0;
}
