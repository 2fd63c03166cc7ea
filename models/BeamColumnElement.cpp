#include "models/BeamColumnElement.h"

#include <cmath>
#include <stdexcept>

namespace vqmath::models {

namespace {

struct Geometry {
  double length, c, s;
};

Geometry Measure(double x1, double y1, double x2, double y2) {
  const double dx = x2 - x1, dy = y2 - y1;
  const double l = std::sqrt(dx * dx + dy * dy);
  if (!(l > 0.0)) throw std::invalid_argument("beam-column: member of zero length");
  return {l, dx / l, dy / l};
}

// Returns Tᵀ·A·T for a local 6×6 matrix A (column-major), T rotating global u, v into the
// member's axial and transverse directions at both nodes.
std::vector<double> ToGlobal(const double (&a)[6][6], const Geometry& g) {
  double t[6][6] = {};
  for (int n = 0; n < 2; ++n) {
    const int o = 3 * n;
    t[o][o] = g.c;
    t[o][o + 1] = g.s;
    t[o + 1][o] = -g.s;
    t[o + 1][o + 1] = g.c;
    t[o + 2][o + 2] = 1.0;
  }
  double at[6][6] = {};
  for (int r = 0; r < 6; ++r)
    for (int c = 0; c < 6; ++c)
      for (int k = 0; k < 6; ++k) at[r][c] += a[r][k] * t[k][c];
  std::vector<double> out(36, 0.0);
  for (int r = 0; r < 6; ++r)
    for (int c = 0; c < 6; ++c) {
      double v = 0.0;
      for (int k = 0; k < 6; ++k) v += t[k][r] * at[k][c];
      out[r + 6 * c] = v;
    }
  // Exact symmetry despite rounding in the products.
  for (int r = 0; r < 6; ++r)
    for (int c = r + 1; c < 6; ++c) out[c + 6 * r] = out[r + 6 * c];
  return out;
}

// Puts a 4×4 transverse matrix on local dofs v1 θ1 v2 θ2 (1, 2, 4, 5).
void PutTransverse(double (&a)[6][6], const double (&b)[4][4], double factor) {
  const int map[4] = {1, 2, 4, 5};
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) a[map[r]][map[c]] += factor * b[r][c];
}

void PutAxial(double (&a)[6][6], double diagonal, double offDiagonal) {
  a[0][0] += diagonal;
  a[3][3] += diagonal;
  a[0][3] += offDiagonal;
  a[3][0] += offDiagonal;
}

}  // namespace

std::vector<double> BeamColumnStiffness2D(double x1, double y1, double x2, double y2,
                                          double youngsModulus, double area, double inertia) {
  const Geometry g = Measure(x1, y1, x2, y2);
  const double l = g.length;
  double a[6][6] = {};
  const double ea = youngsModulus * area / l;
  PutAxial(a, ea, -ea);
  const double b[4][4] = {{12, 6 * l, -12, 6 * l},
                          {6 * l, 4 * l * l, -6 * l, 2 * l * l},
                          {-12, -6 * l, 12, -6 * l},
                          {6 * l, 2 * l * l, -6 * l, 4 * l * l}};
  PutTransverse(a, b, youngsModulus * inertia / (l * l * l));
  return ToGlobal(a, g);
}

std::vector<double> BeamColumnGeometricStiffness2D(double x1, double y1, double x2, double y2,
                                                   double compressiveForce) {
  const Geometry g = Measure(x1, y1, x2, y2);
  const double l = g.length;
  double a[6][6] = {};
  const double b[4][4] = {{36, 3 * l, -36, 3 * l},
                          {3 * l, 4 * l * l, -3 * l, -l * l},
                          {-36, -3 * l, 36, -3 * l},
                          {3 * l, -l * l, -3 * l, 4 * l * l}};
  PutTransverse(a, b, compressiveForce / (30.0 * l));
  return ToGlobal(a, g);
}

std::vector<double> BeamColumnConsistentMass2D(double x1, double y1, double x2, double y2,
                                               double massPerLength) {
  const Geometry g = Measure(x1, y1, x2, y2);
  const double l = g.length;
  const double m = massPerLength * l;
  double a[6][6] = {};
  PutAxial(a, m / 3.0, m / 6.0);
  const double b[4][4] = {{156, 22 * l, 54, -13 * l},
                          {22 * l, 4 * l * l, 13 * l, -3 * l * l},
                          {54, 13 * l, 156, -22 * l},
                          {-13 * l, -3 * l * l, -22 * l, 4 * l * l}};
  PutTransverse(a, b, m / 420.0);
  return ToGlobal(a, g);
}

std::vector<double> BeamColumnLumpedMass2D(double x1, double y1, double x2, double y2,
                                           double massPerLength) {
  const Geometry g = Measure(x1, y1, x2, y2);
  const double m = massPerLength * g.length;
  const double rotation = m * g.length * g.length / 78.0;
  return {m / 2, m / 2, rotation, m / 2, m / 2, rotation};
}

}  // namespace vqmath::models
