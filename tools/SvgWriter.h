#pragma once
// Pictures of results on a generated model: an SVG file with one panel per load case or mode,
// each an orthographic wireframe of the mesh edges, undeformed in grey and deformed in colour
// (coloured by the size of the displacement), with a title per panel.

#include <string>
#include <utility>
#include <vector>

namespace vqsolve {

struct WireMesh {
  std::vector<double> coordinates;         // x y z per node
  std::vector<std::pair<int, int>> edges;  // node pairs, 0-based
  bool planar = false;                     // a plane model in x-y: seen from the front
};

struct SvgPanel {
  std::string title;
  std::vector<double> displacement;  // x y z per node; empty draws the undeformed mesh only
  bool modeShape = false;            // a mode: its sign is free and is chosen for drawing
};

// Edges of the outer surface of a mesh of 8-node hexahedra (8 node numbers per element):
// the edges of the faces that belong to one element only.
std::vector<std::pair<int, int>> HexahedronSurfaceEdges(const std::vector<int>& connectivity);

// The SVG document. Each panel's deformation is scaled so that its largest displacement is
// 15 % of the model's size; the sign of a mode shape is turned so that its largest component
// is positive, so that the same mode looks the same from every method (a static deflection
// keeps its sign).
// The heading is drawn in bold above the panels, the subheading (may be empty) below it.
std::string RenderSvg(const WireMesh& mesh, const std::vector<SvgPanel>& panels,
                      const std::string& heading, const std::string& subheading);

// Writes RenderSvg's document; throws InputError when the file cannot be written.
void WriteSvg(const std::string& path, const WireMesh& mesh, const std::vector<SvgPanel>& panels,
              const std::string& heading, const std::string& subheading);

}  // namespace vqsolve
