#include "models/FrameModel.h"

#include <cmath>
#include <stdexcept>

#include "models/BeamColumnElement.h"
#include "models/NodalAssembler.h"

namespace vqmath::models {

namespace {
constexpr double kPi = 3.14159265358979323846;
}

double ColumnParameters::EulerLoad(int mode) const {
  return mode * mode * kPi * kPi * section.youngsModulus * section.inertia / (length * length);
}

double ColumnParameters::NaturalFrequency(int mode) const {
  const double k = mode * kPi / length;
  return k * k *
         std::sqrt(section.youngsModulus * section.inertia / (section.density * section.area));
}

FrameModel FrameModel::PinnedColumn(const ColumnParameters& p) {
  if (p.elements < 1 || !(p.length > 0))
    throw std::invalid_argument("PinnedColumn: bad parameters");
  FrameModel f;
  for (int i = 0; i <= p.elements; ++i) f.AddNode(0.0, p.length * i / p.elements);
  for (int i = 0; i < p.elements; ++i) f.AddMember(i, i + 1, p.section, p.axialForce);
  f.Fix(0, 0);  // base: pinned, axially restrained
  f.Fix(0, 1);
  f.Fix(p.elements, 0);  // top: pinned, free to move along the axis
  f.Build(p.consistentMass);
  return f;
}

FrameModel FrameModel::PortalFrame(const PortalParameters& p) {
  if (p.elementsPerColumn < 1 || p.elementsPerBeam < 1 || !(p.height > 0) || !(p.span > 0))
    throw std::invalid_argument("PortalFrame: bad parameters");
  // One chain of nodes: up the left column, along the beam, down the right column.
  FrameModel f;
  const int nc = p.elementsPerColumn, nb = p.elementsPerBeam;
  for (int i = 0; i <= nc; ++i) f.AddNode(0.0, p.height * i / nc);
  for (int j = 1; j < nb; ++j) f.AddNode(p.span * j / nb, p.height);
  for (int i = nc; i >= 0; --i) f.AddNode(p.span, p.height * i / nc);
  const int last = f.NumNodes() - 1;
  for (int e = 0; e < last; ++e) {
    const bool column = e < nc || e >= nc + nb;
    f.AddMember(e, e + 1, column ? p.column : p.beam, column ? p.axialForce : 0.0);
  }
  for (int d = 0; d < 3; ++d) {
    f.Fix(0, d);
    f.Fix(last, d);
  }
  f.Build(p.consistentMass);
  return f;
}

int FrameModel::AddNode(double x, double y) {
  if (built_) throw std::logic_error("FrameModel: already built");
  coordinates_.push_back(x);
  coordinates_.push_back(y);
  fixed_.insert(fixed_.end(), 3, 0);
  return NumNodes() - 1;
}

void FrameModel::AddMember(int node1, int node2, const BeamSection& section,
                           double compressiveForce, int elements) {
  if (built_) throw std::logic_error("FrameModel: already built");
  if (node1 < 0 || node1 >= NumNodes() || node2 < 0 || node2 >= NumNodes() || node1 == node2 ||
      elements < 1)
    throw std::invalid_argument("FrameModel::AddMember: bad nodes or element count");
  if (!(section.youngsModulus > 0 && section.area > 0 && section.inertia > 0 &&
        section.density >= 0))
    throw std::invalid_argument("FrameModel::AddMember: bad section");
  const double x1 = coordinates_[2 * node1], y1 = coordinates_[2 * node1 + 1];
  const double x2 = coordinates_[2 * node2], y2 = coordinates_[2 * node2 + 1];
  int previous = node1;
  for (int k = 1; k <= elements; ++k) {
    const int next = k == elements
                         ? node2
                         : AddNode(x1 + (x2 - x1) * k / elements, y1 + (y2 - y1) * k / elements);
    connectivity_.push_back(previous);
    connectivity_.push_back(next);
    elements_.push_back({previous, next, section, compressiveForce});
    previous = next;
  }
}

void FrameModel::Fix(int node, int dof) {
  if (built_) throw std::logic_error("FrameModel: already built");
  if (node < 0 || node >= NumNodes() || dof < 0 || dof > 2)
    throw std::invalid_argument("FrameModel::Fix");
  fixed_[3 * static_cast<size_t>(node) + dof] = 1;
}

void FrameModel::Build(bool consistentMass) {
  if (built_) throw std::logic_error("FrameModel: already built");
  if (elements_.empty()) throw std::invalid_argument("FrameModel::Build: no members");
  equations_.assign(fixed_.size(), 0);
  int next = 1;
  for (size_t k = 0; k < fixed_.size(); ++k)
    if (!fixed_[k]) equations_[k] = next++;
  numEquations_ = next - 1;

  const NodalAssembler assembler(NumNodes(), 3, equations_, 2, connectivity_);
  k_ = assembler.EmptyMatrix();
  kg_ = k_;
  CsrMatrix consistent = k_;
  lumpedMass_.assign(static_cast<size_t>(numEquations_), 0.0);
  for (int e = 0; e < NumElements(); ++e) {
    const int* nodes = &connectivity_[2 * static_cast<size_t>(e)];
    assembler.AddElement(k_, nodes, ElementStiffness(e).data());
    assembler.AddElement(kg_, nodes, ElementGeometricStiffness(e).data());
    if (consistentMass) assembler.AddElement(consistent, nodes, ElementMass(e).data());
    const Element& el = elements_[e];
    const std::vector<double> lumped = BeamColumnLumpedMass2D(
        coordinates_[2 * el.node1], coordinates_[2 * el.node1 + 1], coordinates_[2 * el.node2],
        coordinates_[2 * el.node2 + 1], el.section.density * el.section.area);
    for (int a = 0; a < 2; ++a)
      for (int d = 0; d < 3; ++d)
        if (const int eq = Equation(nodes[a], d)) lumpedMass_[eq - 1] += lumped[3 * a + d];
  }
  m_ = consistentMass ? std::move(consistent) : FromDiagonal(lumpedMass_);
  built_ = true;
}

void FrameModel::ElementEquations(int e, int* equations6) const {
  for (int a = 0; a < 2; ++a)
    for (int d = 0; d < 3; ++d)
      equations6[3 * a + d] = Equation(connectivity_[2 * static_cast<size_t>(e) + a], d);
}

std::vector<double> FrameModel::ElementStiffness(int e) const {
  const Element& el = elements_.at(static_cast<size_t>(e));
  return BeamColumnStiffness2D(coordinates_[2 * el.node1], coordinates_[2 * el.node1 + 1],
                               coordinates_[2 * el.node2], coordinates_[2 * el.node2 + 1],
                               el.section.youngsModulus, el.section.area, el.section.inertia);
}

std::vector<double> FrameModel::ElementGeometricStiffness(int e) const {
  const Element& el = elements_.at(static_cast<size_t>(e));
  return BeamColumnGeometricStiffness2D(coordinates_[2 * el.node1], coordinates_[2 * el.node1 + 1],
                                        coordinates_[2 * el.node2], coordinates_[2 * el.node2 + 1],
                                        el.compressiveForce);
}

std::vector<double> FrameModel::ElementMass(int e) const {
  const Element& el = elements_.at(static_cast<size_t>(e));
  return BeamColumnConsistentMass2D(coordinates_[2 * el.node1], coordinates_[2 * el.node1 + 1],
                                    coordinates_[2 * el.node2], coordinates_[2 * el.node2 + 1],
                                    el.section.density * el.section.area);
}

std::vector<double> FrameModel::NodeLoad(int node, int dof, double value) const {
  if (node < 0 || node >= NumNodes() || dof < 0 || dof > 2)
    throw std::out_of_range("FrameModel::NodeLoad");
  std::vector<double> f(static_cast<size_t>(numEquations_), 0.0);
  if (const int eq = Equation(node, dof)) f[eq - 1] = value;
  return f;
}

std::vector<double> FrameModel::ToNodes(const double* solution) const {
  std::vector<double> u(equations_.size(), 0.0);
  for (size_t k = 0; k < u.size(); ++k)
    if (equations_[k]) u[k] = solution[equations_[k] - 1];
  return u;
}

}  // namespace vqmath::models
