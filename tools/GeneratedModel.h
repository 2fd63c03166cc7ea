#pragma once
// Models built by the model generator instead of read from files (--model), with everything
// vqsolve needs to solve them and draw the results: matrices, a load case, the direction of
// the effective-mass measure and the mesh.
//
//   solid[:EQUATIONS]  a steel bar of hexahedra clamped at x = 0, 6:1.5:1 (about 30 000
//                      equations unless given); loaded by a vertical force on its free end
//   column             a pinned steel column of 20 beam-column elements under unit compression
//   portal             a clamped portal frame, columns under unit compression

#include <functional>
#include <string>
#include <vector>

#include "SvgWriter.h"
#include "models/CsrMatrix.h"
#include "models/SolidModel.h"

namespace vqsolve {

struct GeneratedModel {
  std::string name;         // "solid", "column", "portal"
  std::string description;  // for the report
  vqmath::models::CsrMatrix k;
  vqmath::models::CsrMatrix consistentMass;  // n = 0 unless asked for
  std::vector<double> lumpedMass;
  vqmath::models::CsrMatrix kg;  // frames only
  std::vector<double> load;
  std::string loadDescription;
  std::vector<double> direction;  // unit translation for the effective mass
  std::string directionName;
  WireMesh mesh;
  // One entry per equation → x y z per node (0 on fixed dofs; rotations are not drawn).
  std::function<std::vector<double>(const double*)> toNodes;
};

// The clamped bar with close to the given number of equations; ny:nz = 3:2 so that the two
// bending directions have distinct frequencies.
vqmath::models::SolidParameters BarParameters(int equations);

// name: "solid", "solid:N", "column" or "portal". Throws UsageError for an unknown name.
GeneratedModel MakeModel(const std::string& name, bool consistentMass);
GeneratedModel MakeSolid(const vqmath::models::SolidParameters& parameters, bool consistentMass);

}  // namespace vqsolve
