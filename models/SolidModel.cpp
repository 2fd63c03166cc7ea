#include "models/SolidModel.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "models/HexahedronElement.h"

namespace vqmath::models {

namespace {

const SolidParameters& Checked(const SolidParameters& p) {
  if (p.nx < 1 || p.ny < 1 || p.nz < 1)
    throw std::invalid_argument("SolidModel: element counts must be positive");
  if (!(p.hx > 0 && p.hy > 0 && p.hz > 0))
    throw std::invalid_argument("SolidModel: edge lengths must be positive");
  if (!(p.youngsModulus > 0) || !(p.poissonRatio > -1 && p.poissonRatio < 0.5) || !(p.density >= 0))
    throw std::invalid_argument("SolidModel: invalid material");
  const long long nodes = static_cast<long long>(p.nx + 1) * (p.ny + 1) * (p.nz + 1);
  if (nodes * 8 > 2147483647LL)
    throw std::length_error("SolidModel: too many nodes for 32-bit indices");
  return p;
}

int CountNodes(const SolidParameters& p) { return (p.nx + 1) * (p.ny + 1) * (p.nz + 1); }

std::vector<int> MakeEquations(const SolidParameters& p) {
  const int slice = (p.ny + 1) * (p.nz + 1);  // nodes with the same i
  std::vector<int> eq(static_cast<size_t>(CountNodes(p)) * 3, 0);
  int next = 1;
  for (size_t node = 0; node < eq.size() / 3; ++node) {
    if (p.clamped && node < static_cast<size_t>(slice)) continue;  // face x = 0
    for (int c = 0; c < 3; ++c) eq[3 * node + c] = next++;
  }
  return eq;
}

std::vector<int> MakeConnectivity(const SolidParameters& p) {
  std::vector<int> conn(static_cast<size_t>(p.nx) * p.ny * p.nz * 8);
  auto node = [&](int i, int j, int k) { return (i * (p.ny + 1) + j) * (p.nz + 1) + k; };
  size_t o = 0;
  for (int i = 0; i < p.nx; ++i)
    for (int j = 0; j < p.ny; ++j)
      for (int k = 0; k < p.nz; ++k) {
        for (int layer = 0; layer < 2; ++layer) {
          conn[o++] = node(i, j, k + layer);
          conn[o++] = node(i + 1, j, k + layer);
          conn[o++] = node(i + 1, j + 1, k + layer);
          conn[o++] = node(i, j + 1, k + layer);
        }
      }
  return conn;
}

std::vector<double> MakeCoordinates(const SolidParameters& p) {
  std::vector<double> x(static_cast<size_t>(CountNodes(p)) * 3);
  size_t o = 0;
  for (int i = 0; i <= p.nx; ++i)
    for (int j = 0; j <= p.ny; ++j)
      for (int k = 0; k <= p.nz; ++k) {
        x[o++] = i * p.hx;
        x[o++] = j * p.hy;
        x[o++] = k * p.hz;
      }
  return x;
}

}  // namespace

SolidModel::SolidModel(const SolidParameters& parameters)
    : p_(Checked(parameters)),
      numNodes_(CountNodes(parameters)),
      coordinates_(MakeCoordinates(parameters)),
      connectivity_(MakeConnectivity(parameters)),
      assembler_(numNodes_, 3, MakeEquations(parameters), kHexNodes, connectivity_) {
  numEquations_ = assembler_.NumEquations();

  // All elements of the regular grid are the same box: one element matrix serves them all.
  double box[24];
  ElementCoordinates(0, box);
  const std::vector<double> ke = HexahedronStiffness(box, p_.youngsModulus, p_.poissonRatio);
  const std::vector<double> me =
      p_.consistentMass ? HexahedronConsistentMass(box, p_.density) : std::vector<double>();
  const std::vector<double> ml = HexahedronLumpedMass(box, p_.density);

  k_ = assembler_.EmptyMatrix();
  if (p_.consistentMass) consistentMass_ = k_;
  lumpedMass_.assign(static_cast<size_t>(numEquations_), 0.0);
  const int elements = NumElements();
  for (int e = 0; e < elements; ++e) {
    const int* nodes = connectivity_.data() + static_cast<size_t>(e) * 8;
    assembler_.AddElement(k_, nodes, ke.data());
    for (int a = 0; a < 8; ++a)
      for (int c = 0; c < 3; ++c)
        if (const int eq = assembler_.Equation(nodes[a], c)) lumpedMass_[eq - 1] += ml[3 * a + c];
  }
  // A pass of its own keeps one matrix at a time in the cache.
  if (p_.consistentMass)
    for (int e = 0; e < elements; ++e)
      assembler_.AddElement(consistentMass_, connectivity_.data() + static_cast<size_t>(e) * 8,
                            me.data());
}

SolidParameters SolidModel::ForEquations(int target) {
  SolidParameters p;
  const double t = std::max(1, target);
  // A clamped bar has 3·nx·(ny+1)² equations; ny = nz ≈ nx/4 gives 12·ny·(ny+1)².
  auto bar = [](int ny) { return 12.0 * ny * (ny + 1.0) * (ny + 1.0); };
  int ny = std::max(2, static_cast<int>(std::cbrt(t / 12.0)));
  while (ny > 2 && bar(ny) > t) --ny;
  while (std::fabs(bar(ny + 1) - t) < std::fabs(bar(ny) - t)) ++ny;
  const double slice = 3.0 * (ny + 1) * (ny + 1);
  p.nx = std::max(1, static_cast<int>(std::lround(t / slice)));
  p.ny = p.nz = ny;
  p.hx = p.hy = p.hz = 1.0 / ny;
  p.clamped = true;
  return p;
}

void SolidModel::ElementEquations(int e, int* equations24) const {
  const int* nodes = connectivity_.data() + static_cast<size_t>(e) * 8;
  for (int a = 0; a < 8; ++a)
    for (int c = 0; c < 3; ++c) equations24[3 * a + c] = assembler_.Equation(nodes[a], c);
}

void SolidModel::ElementCoordinates(int e, double* coordinates24) const {
  const int* nodes = connectivity_.data() + static_cast<size_t>(e) * 8;
  for (int a = 0; a < 8; ++a)
    for (int c = 0; c < 3; ++c)
      coordinates24[3 * a + c] = coordinates_[3 * static_cast<size_t>(nodes[a]) + c];
}

std::vector<double> SolidModel::ElementStiffness(int e) const {
  double x[24];
  ElementCoordinates(e, x);
  return HexahedronStiffness(x, p_.youngsModulus, p_.poissonRatio);
}

std::vector<double> SolidModel::ElementMass(int e) const {
  double x[24];
  ElementCoordinates(e, x);
  return HexahedronConsistentMass(x, p_.density);
}

std::vector<double> SolidModel::EndFaceLoad(double fx, double fy, double fz) const {
  // Uniform traction F/(Ly·Lz): each face quadrilateral gives a quarter of its share to each
  // of its four nodes.
  std::vector<double> f(static_cast<size_t>(numEquations_), 0.0);
  const double quarter = 1.0 / (4.0 * p_.ny * p_.nz);
  const double force[3] = {fx, fy, fz};
  for (int j = 0; j <= p_.ny; ++j)
    for (int k = 0; k <= p_.nz; ++k) {
      const int quads = (j > 0 && j < p_.ny ? 2 : 1) * (k > 0 && k < p_.nz ? 2 : 1);
      const int node = Node(p_.nx, j, k);
      for (int c = 0; c < 3; ++c)
        if (const int eq = Equation(node, c)) f[eq - 1] += quads * quarter * force[c];
    }
  return f;
}

std::vector<double> SolidModel::GravityLoad(double gx, double gy, double gz) const {
  // For the box elements the consistent body load ρ·g·∫N equals the lumped mass times g.
  std::vector<double> f(static_cast<size_t>(numEquations_), 0.0);
  const double g[3] = {gx, gy, gz};
  for (int node = 0; node < numNodes_; ++node)
    for (int c = 0; c < 3; ++c)
      if (const int eq = Equation(node, c)) f[eq - 1] = lumpedMass_[eq - 1] * g[c];
  return f;
}

std::vector<double> SolidModel::NodeLoad(int node, int dof, double value) const {
  if (node < 0 || node >= numNodes_ || dof < 0 || dof > 2)
    throw std::out_of_range("SolidModel::NodeLoad");
  std::vector<double> f(static_cast<size_t>(numEquations_), 0.0);
  if (const int eq = Equation(node, dof)) f[eq - 1] = value;
  return f;
}

std::vector<double> SolidModel::RigidBodyMode(int mode) const {
  if (mode < 0 || mode > 5) throw std::out_of_range("SolidModel::RigidBodyMode");
  std::vector<double> u(static_cast<size_t>(numEquations_), 0.0);
  for (int node = 0; node < numNodes_; ++node) {
    const double* x = &coordinates_[3 * static_cast<size_t>(node)];
    double d[3] = {0, 0, 0};
    switch (mode) {
      case 0:
      case 1:
      case 2: d[mode] = 1.0; break;
      case 3:
        d[1] = -x[2];
        d[2] = x[1];
        break;  // about x
      case 4:
        d[0] = x[2];
        d[2] = -x[0];
        break;  // about y
      default:
        d[0] = -x[1];
        d[1] = x[0];
        break;  // about z
    }
    for (int c = 0; c < 3; ++c)
      if (const int eq = Equation(node, c)) u[eq - 1] = d[c];
  }
  return u;
}

std::vector<double> SolidModel::ToNodes(const double* solution) const {
  std::vector<double> u(static_cast<size_t>(numNodes_) * 3, 0.0);
  const std::vector<int>& eq = assembler_.Equations();
  for (size_t k = 0; k < u.size(); ++k)
    if (eq[k]) u[k] = solution[eq[k] - 1];
  return u;
}

std::vector<int> SolidModel::EndFaceNodes() const {
  std::vector<int> nodes;
  nodes.reserve(static_cast<size_t>(p_.ny + 1) * (p_.nz + 1));
  for (int j = 0; j <= p_.ny; ++j)
    for (int k = 0; k <= p_.nz; ++k) nodes.push_back(Node(p_.nx, j, k));
  return nodes;
}

}  // namespace vqmath::models
