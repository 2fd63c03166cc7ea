#include "models/HexahedronElement.h"

#include <cmath>
#include <stdexcept>

namespace vqmath::models {

namespace {

constexpr double kXi[8] = {-1, 1, 1, -1, -1, 1, 1, -1};
constexpr double kEta[8] = {-1, -1, 1, 1, -1, -1, 1, 1};
constexpr double kZeta[8] = {-1, -1, -1, -1, 1, 1, 1, 1};

// Shape functions, their Cartesian gradients and the Jacobian determinant at one point.
struct PointData {
  double n[8];
  double dn[8][3];
  double detJ;
};

PointData Evaluate(const double* x, double xi, double eta, double zeta) {
  PointData p;
  double dnat[8][3];
  for (int a = 0; a < 8; ++a) {
    const double fx = 1 + kXi[a] * xi, fy = 1 + kEta[a] * eta, fz = 1 + kZeta[a] * zeta;
    p.n[a] = 0.125 * fx * fy * fz;
    dnat[a][0] = 0.125 * kXi[a] * fy * fz;
    dnat[a][1] = 0.125 * kEta[a] * fx * fz;
    dnat[a][2] = 0.125 * kZeta[a] * fx * fy;
  }
  // J[r][c] = ∂x_c / ∂ξ_r
  double j[3][3] = {};
  for (int a = 0; a < 8; ++a)
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) j[r][c] += dnat[a][r] * x[3 * a + c];
  const double det = j[0][0] * (j[1][1] * j[2][2] - j[1][2] * j[2][1]) -
                     j[0][1] * (j[1][0] * j[2][2] - j[1][2] * j[2][0]) +
                     j[0][2] * (j[1][0] * j[2][1] - j[1][1] * j[2][0]);
  if (!(det > 0.0)) throw std::invalid_argument("hexahedron: non-positive Jacobian determinant");
  double inv[3][3];
  inv[0][0] = (j[1][1] * j[2][2] - j[1][2] * j[2][1]) / det;
  inv[0][1] = (j[0][2] * j[2][1] - j[0][1] * j[2][2]) / det;
  inv[0][2] = (j[0][1] * j[1][2] - j[0][2] * j[1][1]) / det;
  inv[1][0] = (j[1][2] * j[2][0] - j[1][0] * j[2][2]) / det;
  inv[1][1] = (j[0][0] * j[2][2] - j[0][2] * j[2][0]) / det;
  inv[1][2] = (j[0][2] * j[1][0] - j[0][0] * j[1][2]) / det;
  inv[2][0] = (j[1][0] * j[2][1] - j[1][1] * j[2][0]) / det;
  inv[2][1] = (j[0][1] * j[2][0] - j[0][0] * j[2][1]) / det;
  inv[2][2] = (j[0][0] * j[1][1] - j[0][1] * j[1][0]) / det;
  // ∂N/∂x_c = Σ_r (J⁻¹)[c][r] ∂N/∂ξ_r
  for (int a = 0; a < 8; ++a)
    for (int c = 0; c < 3; ++c)
      p.dn[a][c] = inv[c][0] * dnat[a][0] + inv[c][1] * dnat[a][1] + inv[c][2] * dnat[a][2];
  p.detJ = det;
  return p;
}

template <class F>
void ForEachGaussPoint(F&& f) {
  const double g = 1.0 / std::sqrt(3.0);
  for (int k = 0; k < 2; ++k)
    for (int j = 0; j < 2; ++j)
      for (int i = 0; i < 2; ++i) f(i ? g : -g, j ? g : -g, k ? g : -g);
}

}  // namespace

std::vector<double> HexahedronStiffness(const double* coordinates, double youngsModulus,
                                        double poissonRatio) {
  if (!(youngsModulus > 0.0) || !(poissonRatio > -1.0 && poissonRatio < 0.5))
    throw std::invalid_argument("hexahedron: material is not positive definite");
  const double lambda =
      youngsModulus * poissonRatio / ((1 + poissonRatio) * (1 - 2 * poissonRatio));
  const double mu = youngsModulus / (2 * (1 + poissonRatio));
  std::vector<double> k(kHexDofs * kHexDofs, 0.0);
  // Isotropic elasticity block of nodes a, b:
  // K[a i][b j] = ∫ λ ∂_i N_a ∂_j N_b + μ ∂_j N_a ∂_i N_b + μ δ_ij ∇N_a·∇N_b.
  ForEachGaussPoint([&](double xi, double eta, double zeta) {
    const PointData p = Evaluate(coordinates, xi, eta, zeta);
    const double w = p.detJ;
    for (int b = 0; b < 8; ++b)
      for (int a = 0; a <= b; ++a) {
        const double* ga = p.dn[a];
        const double* gb = p.dn[b];
        const double dot = ga[0] * gb[0] + ga[1] * gb[1] + ga[2] * gb[2];
        for (int i = 0; i < 3; ++i)
          for (int j = 0; j < 3; ++j) {
            double v = lambda * ga[i] * gb[j] + mu * ga[j] * gb[i];
            if (i == j) v += mu * dot;
            k[(3 * a + i) + kHexDofs * (3 * b + j)] += w * v;
          }
      }
  });
  // Mirror the upper triangle, so that the matrix is symmetric to the last bit.
  for (int c = 0; c < kHexDofs; ++c)
    for (int r = c + 1; r < kHexDofs; ++r) k[r + kHexDofs * c] = k[c + kHexDofs * r];
  return k;
}

std::vector<double> HexahedronConsistentMass(const double* coordinates, double density) {
  std::vector<double> m(kHexDofs * kHexDofs, 0.0);
  ForEachGaussPoint([&](double xi, double eta, double zeta) {
    const PointData p = Evaluate(coordinates, xi, eta, zeta);
    for (int a = 0; a < 8; ++a)
      for (int b = 0; b < 8; ++b) {
        const double v = density * p.n[a] * p.n[b] * p.detJ;
        for (int i = 0; i < 3; ++i) m[(3 * a + i) + kHexDofs * (3 * b + i)] += v;
      }
  });
  return m;
}

std::vector<double> HexahedronLumpedMass(const double* coordinates, double density) {
  const std::vector<double> m = HexahedronConsistentMass(coordinates, density);
  std::vector<double> d(kHexDofs, 0.0);
  for (int c = 0; c < kHexDofs; ++c)
    for (int r = 0; r < kHexDofs; ++r) d[r] += m[r + kHexDofs * c];
  return d;
}

double HexahedronVolume(const double* coordinates) {
  double v = 0.0;
  ForEachGaussPoint(
      [&](double xi, double eta, double zeta) { v += Evaluate(coordinates, xi, eta, zeta).detJ; });
  return v;
}

}  // namespace vqmath::models
