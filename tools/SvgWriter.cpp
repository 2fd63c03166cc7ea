#include "SvgWriter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "MatrixMarketInput.h"
#include "Output.h"

namespace vqsolve {

std::vector<std::pair<int, int>> HexahedronSurfaceEdges(const std::vector<int>& connectivity) {
  static const int kFaces[6][4] = {{0, 1, 2, 3}, {4, 5, 6, 7}, {0, 1, 5, 4},
                                   {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
  struct Face {
    std::array<int, 4> key;    // sorted nodes
    std::array<int, 4> nodes;  // in order around the face
  };
  std::vector<Face> faces;
  const size_t elements = connectivity.size() / 8;
  faces.reserve(elements * 6);
  for (size_t e = 0; e < elements; ++e)
    for (const auto& f : kFaces) {
      Face face;
      for (int k = 0; k < 4; ++k) face.nodes[k] = connectivity[8 * e + f[k]];
      face.key = face.nodes;
      std::sort(face.key.begin(), face.key.end());
      faces.push_back(face);
    }
  std::sort(faces.begin(), faces.end(), [](const Face& a, const Face& b) { return a.key < b.key; });
  std::vector<std::pair<int, int>> edges;
  for (size_t k = 0; k < faces.size();) {
    size_t e = k + 1;
    while (e < faces.size() && faces[e].key == faces[k].key) ++e;
    if (e - k == 1)
      for (int c = 0; c < 4; ++c) {
        int a = faces[k].nodes[c], b = faces[k].nodes[(c + 1) % 4];
        edges.push_back({std::min(a, b), std::max(a, b)});
      }
    k = e;
  }
  std::sort(edges.begin(), edges.end());
  edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
  return edges;
}

namespace {

std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default:
        if (static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n') out += c;
    }
  }
  return out;
}

// Colours from blue (small displacement) to red (large).
const char* kPalette[] = {"#3b4cc0", "#5977e3", "#7b9ff9", "#9ebeff", "#c0d4f5",
                          "#f2cbb7", "#f7a889", "#ee8468", "#d65244", "#b40426"};
constexpr int kBins = sizeof kPalette / sizeof kPalette[0];

struct View {
  double rx[3], ux[3];
  void Project(const double* p, double& sx, double& sy) const {
    sx = rx[0] * p[0] + rx[1] * p[1] + rx[2] * p[2];
    sy = ux[0] * p[0] + ux[1] * p[1] + ux[2] * p[2];
  }
};

View MakeView(bool planar) {
  View v;
  if (planar) {
    v = {{1, 0, 0}, {0, 1, 0}};
    return v;
  }
  // Seen from the front (−y), a little from the right (+x) and from above (+z).
  const double a = -70.0 * M_PI / 180.0, e = 25.0 * M_PI / 180.0;
  v.rx[0] = -std::sin(a);
  v.rx[1] = std::cos(a);
  v.rx[2] = 0.0;
  v.ux[0] = -std::sin(e) * std::cos(a);
  v.ux[1] = -std::sin(e) * std::sin(a);
  v.ux[2] = std::cos(e);
  return v;
}

// The diagonal of the bounding box (1 for an empty or degenerate mesh).
double ModelSize(const WireMesh& mesh) {
  const size_t nodes = mesh.coordinates.size() / 3;
  double lo[3] = {1e300, 1e300, 1e300}, hi[3] = {-1e300, -1e300, -1e300};
  for (size_t i = 0; i < nodes; ++i)
    for (int c = 0; c < 3; ++c) {
      lo[c] = std::min(lo[c], mesh.coordinates[3 * i + c]);
      hi[c] = std::max(hi[c], mesh.coordinates[3 * i + c]);
    }
  double size = 0.0;
  for (int c = 0; c < 3 && nodes; ++c) size += (hi[c] - lo[c]) * (hi[c] - lo[c]);
  size = std::sqrt(size);
  return size > 0.0 ? size : 1.0;
}

// The placement of the panels on the page.
struct Layout {
  int panelW = 440, panelH = 320, gap = 12, top = 40;
  int columns = 1, rows = 1, width = 0, height = 0;
};

Layout MakeLayout(size_t panels, const std::string& heading, const std::string& subheading) {
  Layout l;
  l.top = subheading.empty() ? 40 : 58;
  l.columns = std::max(1, std::min(3, static_cast<int>(panels)));
  l.rows = std::max(1, static_cast<int>((panels + l.columns - 1) / l.columns));
  // Wide enough for the headings too (about 0.6 em per character).
  const int textWidth =
      static_cast<int>(std::max(11.0 * DisplayWidth(heading), 7.8 * DisplayWidth(subheading)));
  l.width = std::max(l.columns * l.panelW + (l.columns + 1) * l.gap, textWidth + 2 * l.gap);
  l.height = l.top + l.rows * l.panelH + (l.rows + 1) * l.gap;
  return l;
}

// The document's head: title, background and headings.
std::string SvgHead(const Layout& l, const std::string& heading, const std::string& subheading) {
  std::string out;
  out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  out += Format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"%d\" height=\"%d\" "
      "viewBox=\"0 0 %d %d\" font-family=\"DejaVu Sans, Helvetica, Arial, sans-serif\">\n",
      l.width, l.height, l.width, l.height);
  out +=
      "<title>" + Escape(subheading.empty() ? heading : heading + ": " + subheading) + "</title>\n";
  out += "<rect x=\"0\" y=\"0\" width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  out += Format("<text x=\"%d\" y=\"28\" font-size=\"18\" font-weight=\"bold\" fill=\"#222222\">",
                l.gap) +
         Escape(heading) + "</text>\n";
  if (!subheading.empty())
    out += Format("<text x=\"%d\" y=\"48\" font-size=\"13\" fill=\"#444444\">", l.gap) +
           Escape(subheading) + "</text>\n";
  return out;
}

// Deformed coordinates: largest displacement = 15 % of the model size, sign turned so that the
// largest component of a mode shape is positive.
struct Deformation {
  bool deformed = false;
  std::vector<double> moved;      // x y z per node
  std::vector<double> magnitude;  // |u| per node
  double largest = 0.0;
};

Deformation Deform(const WireMesh& mesh, const SvgPanel& panel, double size) {
  const size_t nodes = mesh.coordinates.size() / 3;
  Deformation d;
  d.moved = mesh.coordinates;
  d.magnitude.assign(nodes, 0.0);
  d.deformed = panel.displacement.size() >= 3 * nodes && nodes > 0;
  if (!d.deformed) return d;
  double peak = 0.0, signedPeak = 0.0;
  for (size_t i = 0; i < nodes; ++i) {
    const double* u = &panel.displacement[3 * i];
    d.magnitude[i] = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
    d.largest = std::max(d.largest, d.magnitude[i]);
    for (int c = 0; c < 3; ++c)
      if (std::fabs(u[c]) > peak) {
        peak = std::fabs(u[c]);
        signedPeak = u[c];
      }
  }
  const double scale =
      d.largest > 0.0 ? 0.15 * size / d.largest * (panel.modeShape && signedPeak < 0 ? -1.0 : 1.0)
                      : 0.0;
  for (size_t k = 0; k < 3 * nodes; ++k) d.moved[k] += scale * panel.displacement[k];
  return d;
}

// Screen coordinates of both shapes, fitted into the panel at (px, py) below its title.
struct Screen {
  std::vector<double> x0, y0, x1, y1;  // undeformed and deformed, projected
  double minX = 1e300, maxX = -1e300, minY = 1e300, maxY = -1e300;
  double zoom = 1.0, offX = 0.0, offY = 0.0;
  double X(double s) const { return offX + zoom * (s - minX); }
  double Y(double s) const { return offY + zoom * (maxY - s); }  // screen y grows downwards
};

Screen Place(const WireMesh& mesh, const Deformation& d, const View& view, const Layout& l, int px,
             int py, double size) {
  const size_t nodes = mesh.coordinates.size() / 3;
  Screen s;
  s.x0.resize(nodes), s.y0.resize(nodes), s.x1.resize(nodes), s.y1.resize(nodes);
  for (size_t i = 0; i < nodes; ++i) {
    view.Project(&mesh.coordinates[3 * i], s.x0[i], s.y0[i]);
    view.Project(&d.moved[3 * i], s.x1[i], s.y1[i]);
    s.minX = std::min({s.minX, s.x0[i], s.x1[i]});
    s.maxX = std::max({s.maxX, s.x0[i], s.x1[i]});
    s.minY = std::min({s.minY, s.y0[i], s.y1[i]});
    s.maxY = std::max({s.maxY, s.y0[i], s.y1[i]});
  }
  const double areaW = l.panelW - 24.0, areaH = l.panelH - 48.0;
  const double spanX = std::max(s.maxX - s.minX, 1e-12 * size),
               spanY = std::max(s.maxY - s.minY, 1e-12 * size);
  s.zoom = std::min(areaW / spanX, areaH / spanY);
  s.offX = px + 12.0 + 0.5 * (areaW - s.zoom * spanX);
  s.offY = py + 36.0 + 0.5 * (areaH - s.zoom * spanY);
  return s;
}

// The deformed edges, coloured by the displacement magnitude (one path per colour).
std::string DeformedPaths(const WireMesh& mesh, const Deformation& d, const Screen& s) {
  std::vector<std::string> bins(kBins);
  for (const auto& e : mesh.edges) {
    const double m = 0.5 * (d.magnitude[e.first] + d.magnitude[e.second]);
    int bin = d.largest > 0.0 ? static_cast<int>(m / d.largest * kBins) : 0;
    bin = std::max(0, std::min(kBins - 1, bin));
    bins[bin] += Format("M%.1f %.1fL%.1f %.1f", s.X(s.x1[e.first]), s.Y(s.y1[e.first]),
                        s.X(s.x1[e.second]), s.Y(s.y1[e.second]));
  }
  std::string out;
  for (int b = 0; b < kBins; ++b)
    if (!bins[b].empty())
      out += Format(
                 "<path class=\"deformed\" fill=\"none\" stroke=\"%s\" "
                 "stroke-width=\"0.9\" d=\"",
                 kPalette[b]) +
             bins[b] + "\"/>\n";
  return out;
}

std::string RenderPanel(const WireMesh& mesh, const SvgPanel& panel, size_t p, const View& view,
                        const Layout& l, double size) {
  const int px = l.gap + static_cast<int>(p % l.columns) * (l.panelW + l.gap);
  const int py = l.top + l.gap + static_cast<int>(p / l.columns) * (l.panelH + l.gap);
  const Deformation d = Deform(mesh, panel, size);
  const Screen s = Place(mesh, d, view, l, px, py, size);

  std::string out;
  out += Format("<g class=\"panel\" id=\"panel-%zu\">\n", p + 1);
  out += Format(
      "<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" fill=\"#fafafa\" "
      "stroke=\"#cccccc\"/>\n",
      px, py, l.panelW, l.panelH);
  out += Format("<text x=\"%d\" y=\"%d\" font-size=\"14\" fill=\"#222222\">", px + 10, py + 22) +
         Escape(panel.title) + "</text>\n";
  std::string path;
  for (const auto& e : mesh.edges)
    path += Format("M%.1f %.1fL%.1f %.1f", s.X(s.x0[e.first]), s.Y(s.y0[e.first]),
                   s.X(s.x0[e.second]), s.Y(s.y0[e.second]));
  out += "<path class=\"undeformed\" fill=\"none\" stroke=\"#b4b4b4\" stroke-width=\"0.6\" d=\"" +
         path + "\"/>\n";
  if (d.deformed) out += DeformedPaths(mesh, d, s);
  out += "</g>\n";
  return out;
}

}  // namespace

std::string RenderSvg(const WireMesh& mesh, const std::vector<SvgPanel>& panels,
                      const std::string& heading, const std::string& subheadingText) {
  std::string subheading = subheadingText;
  if (std::any_of(panels.begin(), panels.end(),
                  [](const SvgPanel& p) { return !p.displacement.empty(); }))
    subheading += (subheading.empty() ? "" : "; ") + std::string("displacements exaggerated");
  const View view = MakeView(mesh.planar);
  const double size = ModelSize(mesh);
  const Layout layout = MakeLayout(panels.size(), heading, subheading);
  std::string out = SvgHead(layout, heading, subheading);
  for (size_t p = 0; p < panels.size(); ++p)
    out += RenderPanel(mesh, panels[p], p, view, layout, size);
  out += "</svg>\n";
  return out;
}

void WriteSvg(const std::string& path, const WireMesh& mesh, const std::vector<SvgPanel>& panels,
              const std::string& heading, const std::string& subheading) {
  const std::string text = RenderSvg(mesh, panels, heading, subheading);
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (!f) throw InputError(path + ": cannot write the picture (" + std::strerror(errno) + ")");
  const size_t written = std::fwrite(text.data(), 1, text.size(), f);
  if (std::fclose(f) != 0 || written != text.size())
    throw InputError(path + ": cannot write the picture (" + std::strerror(errno) + ")");
}

}  // namespace vqsolve
