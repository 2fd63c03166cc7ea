#pragma once
// Plane frames of Euler–Bernoulli beam-column elements (three dofs per node: u along x, v along
// y, θ about z), giving the elastic stiffness K, the geometric stiffness Kg of the members'
// compressive axial forces (consistent form) and the mass, so that K·φ = λ·Kg·φ is the buckling
// problem (λ the load factor on the axial forces) and K·φ = ω²·M·φ the vibration problem.
//
// Two ready-made structures:
// - PinnedColumn: a vertical column of length L along y, pinned at both ends (base: u = v = 0,
//   top: u = 0, rotations free). With unit compression its buckling loads are n²·π²·EI/L².
// - PortalFrame: two columns clamped at their bases and a beam joining their tops, the columns
//   in compression.
// Or build any plane frame with AddNode / AddMember / Fix and then Build.

#include <vector>

#include "models/CsrMatrix.h"

namespace vqmath::models {

struct BeamSection {
  double youngsModulus = 210e9;  // [Pa]
  double area = 5.38e-3;         // [m²]  (an IPE 200 profile)
  double inertia = 19.43e-6;     // [m⁴]  (its strong axis)
  double density = 7850.0;       // [kg/m³]
};

struct ColumnParameters {
  int elements = 10;
  double length = 4.0;  // [m]
  BeamSection section;
  double axialForce = 1.0;     // compression [N] for which Kg is formed
  bool consistentMass = true;  // Mass() consistent (true) or lumped (false)

  // Exact buckling load of mode n of the pinned-pinned column: n²·π²·EI/L².
  double EulerLoad(int mode = 1) const;
  // Exact circular frequency of the transverse mode n: (nπ/L)²·sqrt(EI/(ρA)) [rad/s].
  double NaturalFrequency(int mode = 1) const;
};

struct PortalParameters {
  int elementsPerColumn = 8;
  int elementsPerBeam = 8;
  double height = 4.0;  // [m]
  double span = 6.0;    // [m]
  BeamSection column;
  BeamSection beam;
  double axialForce = 1.0;  // compression of each column [N]; the beam carries none
  bool consistentMass = true;
};

class FrameModel {
 public:
  static FrameModel PinnedColumn(const ColumnParameters& parameters);
  static FrameModel PortalFrame(const PortalParameters& parameters);

  // Building a frame of one's own: add nodes, members (subdivided into equal elements, with
  // the given compressive axial force for Kg), fix dofs (0 = u, 1 = v, 2 = θ), then Build.
  // Nodes and members cannot be added after Build. Throws std::invalid_argument on bad input.
  int AddNode(double x, double y);
  void AddMember(int node1, int node2, const BeamSection& section, double compressiveForce,
                 int elements = 1);
  void Fix(int node, int dof);
  void Build(bool consistentMass = true);

  int NumEquations() const { return numEquations_; }
  int NumNodes() const { return static_cast<int>(coordinates_.size() / 2); }
  int NumElements() const { return static_cast<int>(connectivity_.size() / 2); }

  const CsrMatrix& Stiffness() const { return k_; }
  const CsrMatrix& GeometricStiffness() const { return kg_; }
  // Consistent or lumped mass as chosen in Build, as CSR (the pattern of K, or diagonal).
  const CsrMatrix& Mass() const { return m_; }
  // HRZ-lumped mass, one entry per equation (always available).
  const std::vector<double>& LumpedMass() const { return lumpedMass_; }

  // Mesh: x y per node, 2 node numbers (0-based) per element, 3 equation numbers per node
  // (1-based, 0 = fixed).
  const std::vector<double>& NodeCoordinates() const { return coordinates_; }
  const std::vector<int>& Connectivity() const { return connectivity_; }
  const std::vector<int>& EquationNumbers() const { return equations_; }
  int Equation(int node, int dof) const { return equations_[3 * static_cast<size_t>(node) + dof]; }

  // Element e (0-based): its 6 equation numbers (0 = fixed) and dense 6×6 matrices
  // (column-major) in global axes. Pack with PackUpperByColumns for VQ_SysMatrixAssem.
  void ElementEquations(int e, int* equations6) const;
  std::vector<double> ElementStiffness(int e) const;
  std::vector<double> ElementGeometricStiffness(int e) const;
  std::vector<double> ElementMass(int e) const;  // consistent

  // A single force or moment on one node dof (zero vector when the dof is fixed).
  std::vector<double> NodeLoad(int node, int dof, double value) const;
  // A solution vector spread over all node dofs (3·NumNodes(), 0 on fixed dofs).
  std::vector<double> ToNodes(const double* solution) const;

 private:
  struct Element {
    int node1, node2;
    BeamSection section;
    double compressiveForce;
  };
  std::vector<double> coordinates_;
  std::vector<int> connectivity_;
  std::vector<Element> elements_;
  std::vector<char> fixed_;
  std::vector<int> equations_;
  int numEquations_ = 0;
  bool built_ = false;
  CsrMatrix k_, kg_, m_;
  std::vector<double> lumpedMass_;
};

}  // namespace vqmath::models
