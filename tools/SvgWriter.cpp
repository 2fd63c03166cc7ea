#include "SvgWriter.h"

#include "MatrixMarketInput.h"
#include "Output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace vqsolve {

std::vector<std::pair<int, int>> HexahedronSurfaceEdges(const std::vector<int>& connectivity)
{
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

std::string Escape(const std::string& text)
{
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
    void Project(const double* p, double& sx, double& sy) const
    {
        sx = rx[0] * p[0] + rx[1] * p[1] + rx[2] * p[2];
        sy = ux[0] * p[0] + ux[1] * p[1] + ux[2] * p[2];
    }
};

View MakeView(bool planar)
{
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

}  // namespace

std::string RenderSvg(const WireMesh& mesh, const std::vector<SvgPanel>& panels, const std::string& heading,
                      const std::string& subheadingText)
{
    std::string subheading = subheadingText;
    if (std::any_of(panels.begin(), panels.end(), [](const SvgPanel& p) { return !p.displacement.empty(); }))
        subheading += (subheading.empty() ? "" : "; ") + std::string("displacements exaggerated");
    const size_t nodes = mesh.coordinates.size() / 3;
    const View view = MakeView(mesh.planar);

    // Model size: the diagonal of the bounding box.
    double lo[3] = {1e300, 1e300, 1e300}, hi[3] = {-1e300, -1e300, -1e300};
    for (size_t i = 0; i < nodes; ++i)
        for (int c = 0; c < 3; ++c) {
            lo[c] = std::min(lo[c], mesh.coordinates[3 * i + c]);
            hi[c] = std::max(hi[c], mesh.coordinates[3 * i + c]);
        }
    double size = 0.0;
    for (int c = 0; c < 3 && nodes; ++c) size += (hi[c] - lo[c]) * (hi[c] - lo[c]);
    size = std::sqrt(size);
    if (!(size > 0.0)) size = 1.0;

    const int panelW = 440, panelH = 320, gap = 12, top = subheading.empty() ? 40 : 58;
    const int columns = std::max(1, std::min(3, static_cast<int>(panels.size())));
    const int rows = std::max(1, static_cast<int>((panels.size() + columns - 1) / columns));
    // Wide enough for the headings too (about 0.6 em per character).
    const int textWidth = static_cast<int>(std::max(11.0 * DisplayWidth(heading), 7.8 * DisplayWidth(subheading)));
    const int width = std::max(columns * panelW + (columns + 1) * gap, textWidth + 2 * gap);
    const int height = top + rows * panelH + (rows + 1) * gap;

    std::string out;
    out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    out += Format("<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"%d\" height=\"%d\" "
                  "viewBox=\"0 0 %d %d\" font-family=\"DejaVu Sans, Helvetica, Arial, sans-serif\">\n",
                  width, height, width, height);
    out += "<title>" + Escape(subheading.empty() ? heading : heading + ": " + subheading) + "</title>\n";
    out += "<rect x=\"0\" y=\"0\" width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    out += Format("<text x=\"%d\" y=\"28\" font-size=\"18\" font-weight=\"bold\" fill=\"#222222\">",
                  gap) + Escape(heading) + "</text>\n";
    if (!subheading.empty())
        out += Format("<text x=\"%d\" y=\"48\" font-size=\"13\" fill=\"#444444\">", gap) +
               Escape(subheading) + "</text>\n";

    for (size_t p = 0; p < panels.size(); ++p) {
        const SvgPanel& panel = panels[p];
        const int px = gap + static_cast<int>(p % columns) * (panelW + gap);
        const int py = top + gap + static_cast<int>(p / columns) * (panelH + gap);

        // Deformed coordinates: largest displacement = 15 % of the model size, sign turned so
        // that the largest component is positive.
        std::vector<double> moved(mesh.coordinates);
        std::vector<double> magnitude(nodes, 0.0);
        double largest = 0.0;
        const bool deformed = panel.displacement.size() >= 3 * nodes && nodes > 0;
        if (deformed) {
            double peak = 0.0, signedPeak = 0.0;
            for (size_t i = 0; i < nodes; ++i) {
                const double* u = &panel.displacement[3 * i];
                magnitude[i] = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
                largest = std::max(largest, magnitude[i]);
                for (int c = 0; c < 3; ++c)
                    if (std::fabs(u[c]) > peak) {
                        peak = std::fabs(u[c]);
                        signedPeak = u[c];
                    }
            }
            const double scale = largest > 0.0 ? 0.15 * size / largest * (panel.modeShape && signedPeak < 0 ? -1.0 : 1.0) : 0.0;
            for (size_t k = 0; k < 3 * nodes; ++k) moved[k] += scale * panel.displacement[k];
        }

        // Screen placement: fit both shapes into the panel below its title.
        std::vector<double> sx0(nodes), sy0(nodes), sx1(nodes), sy1(nodes);
        double minX = 1e300, maxX = -1e300, minY = 1e300, maxY = -1e300;
        for (size_t i = 0; i < nodes; ++i) {
            view.Project(&mesh.coordinates[3 * i], sx0[i], sy0[i]);
            view.Project(&moved[3 * i], sx1[i], sy1[i]);
            minX = std::min({minX, sx0[i], sx1[i]});
            maxX = std::max({maxX, sx0[i], sx1[i]});
            minY = std::min({minY, sy0[i], sy1[i]});
            maxY = std::max({maxY, sy0[i], sy1[i]});
        }
        const double areaW = panelW - 24.0, areaH = panelH - 48.0;
        const double spanX = std::max(maxX - minX, 1e-12 * size), spanY = std::max(maxY - minY, 1e-12 * size);
        const double zoom = std::min(areaW / spanX, areaH / spanY);
        const double offX = px + 12.0 + 0.5 * (areaW - zoom * spanX);
        const double offY = py + 36.0 + 0.5 * (areaH - zoom * spanY);
        auto X = [&](double s) { return offX + zoom * (s - minX); };
        auto Y = [&](double s) { return offY + zoom * (maxY - s); };  // screen y grows downwards

        out += Format("<g class=\"panel\" id=\"panel-%zu\">\n", p + 1);
        out += Format("<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" fill=\"#fafafa\" "
                      "stroke=\"#cccccc\"/>\n", px, py, panelW, panelH);
        out += Format("<text x=\"%d\" y=\"%d\" font-size=\"14\" fill=\"#222222\">", px + 10, py + 22) +
               Escape(panel.title) + "</text>\n";

        std::string d;
        for (const auto& e : mesh.edges)
            d += Format("M%.1f %.1fL%.1f %.1f", X(sx0[e.first]), Y(sy0[e.first]), X(sx0[e.second]),
                        Y(sy0[e.second]));
        out += "<path class=\"undeformed\" fill=\"none\" stroke=\"#b4b4b4\" stroke-width=\"0.6\" d=\"" +
               d + "\"/>\n";

        if (deformed) {
            std::vector<std::string> bins(kBins);
            for (const auto& e : mesh.edges) {
                const double m = 0.5 * (magnitude[e.first] + magnitude[e.second]);
                int bin = largest > 0.0 ? static_cast<int>(m / largest * kBins) : 0;
                bin = std::max(0, std::min(kBins - 1, bin));
                bins[bin] += Format("M%.1f %.1fL%.1f %.1f", X(sx1[e.first]), Y(sy1[e.first]),
                                    X(sx1[e.second]), Y(sy1[e.second]));
            }
            for (int b = 0; b < kBins; ++b)
                if (!bins[b].empty())
                    out += Format("<path class=\"deformed\" fill=\"none\" stroke=\"%s\" "
                                  "stroke-width=\"0.9\" d=\"", kPalette[b]) + bins[b] + "\"/>\n";
        }
        out += "</g>\n";
    }
    out += "</svg>\n";
    return out;
}

void WriteSvg(const std::string& path, const WireMesh& mesh, const std::vector<SvgPanel>& panels,
              const std::string& heading, const std::string& subheading)
{
    const std::string text = RenderSvg(mesh, panels, heading, subheading);
    std::FILE* f = std::fopen(path.c_str(), "w");
    if (!f) throw InputError(path + ": cannot write the picture (" + std::strerror(errno) + ")");
    const size_t written = std::fwrite(text.data(), 1, text.size(), f);
    if (std::fclose(f) != 0 || written != text.size())
        throw InputError(path + ": cannot write the picture (" + std::strerror(errno) + ")");
}

}  // namespace vqsolve
