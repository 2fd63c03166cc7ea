#include "GeneratedModel.h"

#include <cmath>
#include <cstdlib>
#include <memory>

#include "CommandLine.h"
#include "Output.h"
#include "models/FrameModel.h"

namespace vqsolve {

using vqmath::models::FrameModel;
using vqmath::models::SolidModel;
using vqmath::models::SolidParameters;

SolidParameters BarParameters(int equations) {
  // nx = 4·ny and nz ≈ 2/3·ny give 3·nx·(ny+1)·(nz+1) equations: take the ny that comes
  // closest to the wish.
  SolidParameters p;
  long long bestGap = -1;
  for (int ny = 2; ny <= 400; ++ny) {
    const int nz = std::max(1, static_cast<int>(std::lround(ny * 2.0 / 3.0)));
    const long long count = 3LL * 4 * ny * (ny + 1) * (nz + 1);
    const long long gap = std::llabs(count - equations);
    if (bestGap < 0 || gap < bestGap) {
      bestGap = gap;
      p.nx = 4 * ny;
      p.ny = ny;
      p.nz = nz;
    }
    if (count > equations) break;
  }
  // Cubic elements, 1.5 m wide: the bar is 6 m × 1.5 m × about 1 m.
  p.hx = p.hy = p.hz = 1.5 / p.ny;
  p.clamped = true;
  return p;
}

GeneratedModel MakeSolid(const SolidParameters& parameters, bool consistentMass) {
  SolidParameters p = parameters;
  p.consistentMass = consistentMass;
  auto solid = std::make_shared<SolidModel>(p);
  GeneratedModel g;
  g.name = "solid";
  g.description = Format(
      "clamped steel bar %.2f x %.2f x %.2f m, %d x %d x %d hexahedra, %d equations",
      solid->Length(), solid->Width(), solid->Height(), p.nx, p.ny, p.nz, solid->NumEquations());
  g.k = solid->Stiffness();
  if (consistentMass) g.consistentMass = solid->ConsistentMass();
  g.lumpedMass = solid->LumpedMass();
  g.load = solid->EndFaceLoad(0.0, 0.0, -1.0e6);
  g.loadDescription = "1 MN downwards (-z) on the free end face";
  g.direction = solid->RigidBodyMode(2);
  g.directionName = "z";
  g.mesh.coordinates = solid->NodeCoordinates();
  g.mesh.edges = HexahedronSurfaceEdges(solid->Connectivity());
  g.mesh.planar = false;
  g.toNodes = [solid](const double* x) { return solid->ToNodes(x); };
  return g;
}

namespace {

GeneratedModel MakeFrame(std::shared_ptr<FrameModel> frame, const std::string& name,
                         const std::string& description, bool consistentMass, int loadNode) {
  GeneratedModel g;
  g.name = name;
  g.description = description + Format(", %d equations", frame->NumEquations());
  g.k = frame->Stiffness();
  g.kg = frame->GeometricStiffness();
  if (consistentMass) g.consistentMass = frame->Mass();
  g.lumpedMass = frame->LumpedMass();
  g.load = frame->NodeLoad(loadNode, 0, 1.0e3);
  g.loadDescription = Format("1 kN horizontally (+x) at node %d", loadNode + 1);
  g.direction.assign(static_cast<size_t>(frame->NumEquations()), 0.0);
  for (int node = 0; node < frame->NumNodes(); ++node)
    if (const int eq = frame->Equation(node, 0)) g.direction[eq - 1] = 1.0;
  g.directionName = "x";
  const auto& xy = frame->NodeCoordinates();
  for (int node = 0; node < frame->NumNodes(); ++node) {
    g.mesh.coordinates.push_back(xy[2 * node]);
    g.mesh.coordinates.push_back(xy[2 * node + 1]);
    g.mesh.coordinates.push_back(0.0);
  }
  const auto& conn = frame->Connectivity();
  for (size_t e = 0; e + 1 < conn.size(); e += 2) g.mesh.edges.push_back({conn[e], conn[e + 1]});
  g.mesh.planar = true;
  g.toNodes = [frame](const double* x) {
    std::vector<double> uvt = frame->ToNodes(x);
    std::vector<double> u(uvt.size(), 0.0);  // u v θ → u v 0
    for (size_t k = 0; k + 2 < uvt.size(); k += 3) {
      u[k] = uvt[k];
      u[k + 1] = uvt[k + 1];
    }
    return u;
  };
  return g;
}

}  // namespace

GeneratedModel MakeModel(const std::string& name, bool consistentMass) {
  const size_t colon = name.find(':');
  const std::string kind = name.substr(0, colon);
  if (kind == "solid") {
    int equations = 30000;
    if (colon != std::string::npos) {
      const std::string count = name.substr(colon + 1);
      char* end = nullptr;
      const long v = std::strtol(count.c_str(), &end, 10);
      if (count.empty() || *end != '\0' || v < 50 || v > 2000000)
        throw UsageError(
            "--model solid:N needs a number of equations between 50 and 2000000, got '" + count +
            "'");
      equations = static_cast<int>(v);
    }
    return MakeSolid(BarParameters(equations), consistentMass);
  }
  if (colon == std::string::npos && kind == "column") {
    vqmath::models::ColumnParameters p;
    p.elements = 20;
    p.consistentMass = consistentMass;
    auto frame = std::make_shared<FrameModel>(FrameModel::PinnedColumn(p));
    return MakeFrame(frame, "column",
                     Format("pinned steel column %.1f m, %d beam-column elements, unit compression "
                            "(Euler load %.6g N)",
                            p.length, p.elements, p.EulerLoad(1)),
                     consistentMass, p.elements / 2);
  }
  if (colon == std::string::npos && kind == "portal") {
    vqmath::models::PortalParameters p;
    p.consistentMass = consistentMass;
    auto frame = std::make_shared<FrameModel>(FrameModel::PortalFrame(p));
    return MakeFrame(
        frame, "portal",
        Format("clamped steel portal frame %.1f m high, %.1f m span, unit column compression",
               p.height, p.span),
        consistentMass, p.elementsPerColumn);
  }
  throw UsageError("--model must be solid, solid:EQUATIONS, column or portal, got '" + name + "'");
}

}  // namespace vqsolve
