#pragma once
// A rectangular block of 8-node trilinear hexahedra (isotropic linear elasticity, steel by
// default), 3 displacement dofs per node, optionally clamped on its face x = 0. It produces the
// stiffness matrix K and the consistent mass as upper CSR, the lumped mass as a vector, load
// vectors, and the mesh (node coordinates, connectivity, equation numbers) for drawing results.
//
// Mesh: nx × ny × nz elements of edge lengths hx, hy, hz, the block spanning
// [0, nx·hx] × [0, ny·hy] × [0, nz·hz]. Node (i, j, k), 0 <= i <= nx, … has the number
// (i·(ny+1) + j)·(nz+1) + k, so x runs slowest and the bandwidth stays small along a slender
// bar. Equations are numbered node by node (x, y, z displacement), skipping fixed dofs;
// equation numbers are 1-based.

#include <vector>

#include "models/CsrMatrix.h"
#include "models/NodalAssembler.h"

namespace vqmath::models {

struct SolidParameters {
  int nx = 8, ny = 2, nz = 2;                 // elements along x, y, z
  double hx = 0.125, hy = 0.125, hz = 0.125;  // element edge lengths [m]
  double youngsModulus = 210e9;               // [Pa]
  double poissonRatio = 0.3;
  double density = 7850.0;      // [kg/m³]
  bool clamped = true;          // face x = 0 fixed; false: free body with 6 rigid-body modes
  bool consistentMass = false;  // also assemble the consistent mass matrix (same pattern as K)
};

class SolidModel {
 public:
  // Throws std::invalid_argument for non-positive sizes or a non-positive-definite material,
  // std::length_error when the model is too large for 32-bit indices, std::bad_alloc.
  explicit SolidModel(const SolidParameters& parameters);

  // Parameters of a clamped bar (nx ≈ 4·ny, ny = nz, cubic elements, 1 m × 1 m cross-section)
  // with close to target equations (at least 3·(ny+1)² for the smallest one, 2×2 elements).
  static SolidParameters ForEquations(int target);

  const SolidParameters& Parameters() const { return p_; }
  int NumEquations() const { return numEquations_; }
  int NumNodes() const { return numNodes_; }
  int NumElements() const { return p_.nx * p_.ny * p_.nz; }
  double Length() const { return p_.nx * p_.hx; }  // along x
  double Width() const { return p_.ny * p_.hy; }   // along y
  double Height() const { return p_.nz * p_.hz; }  // along z
  double Volume() const { return Length() * Width() * Height(); }
  double Mass() const { return p_.density * Volume(); }

  // Stiffness K (upper CSR, NumEquations() rows).
  const CsrMatrix& Stiffness() const { return k_; }
  // Lumped mass (diagonal of M, one entry per equation): the row sums of the element
  // consistent masses, so ρ·V/8 per element node and direction, couplings to clamped dofs
  // included.
  const std::vector<double>& LumpedMass() const { return lumpedMass_; }
  // Consistent mass (upper CSR, the pattern of K); empty (n = 0) unless
  // SolidParameters::consistentMass was set.
  const CsrMatrix& ConsistentMass() const { return consistentMass_; }

  // Mesh for drawing: coordinates x y z per node (3·NumNodes()), connectivity 8 node numbers
  // (0-based, HexahedronElement order) per element, equation number per node dof
  // (3·NumNodes(), 1-based, 0 = fixed).
  const std::vector<double>& NodeCoordinates() const { return coordinates_; }
  const std::vector<int>& Connectivity() const { return connectivity_; }
  const std::vector<int>& EquationNumbers() const { return assembler_.Equations(); }
  int Node(int i, int j, int k) const { return (i * (p_.ny + 1) + j) * (p_.nz + 1) + k; }
  int Equation(int node, int dof) const { return assembler_.Equation(node, dof); }

  // Element e (0-based): its 24 equation numbers (0 = fixed), its node coordinates, its dense
  // 24×24 stiffness and consistent mass (column-major). Pack with PackUpperByColumns for
  // VQ_SysMatrixAssem.
  void ElementEquations(int e, int* equations24) const;
  void ElementCoordinates(int e, double* coordinates24) const;
  std::vector<double> ElementStiffness(int e) const;
  std::vector<double> ElementMass(int e) const;

  // Loads (one entry per equation).
  // Total force (fx, fy, fz) spread as a uniform traction over the end face x = Length().
  std::vector<double> EndFaceLoad(double fx, double fy, double fz) const;
  // Body force of the acceleration (gx, gy, gz), e.g. (0, 0, −9.81): ρ·g over the volume.
  std::vector<double> GravityLoad(double gx, double gy, double gz) const;
  // A single force on one node dof (zero vector when the dof is fixed).
  std::vector<double> NodeLoad(int node, int dof, double value) const;

  // Rigid-body displacement field restricted to the equations: modes 0, 1, 2 translate along
  // x, y, z; modes 3, 4, 5 rotate (small angle 1) about the x, y, z axes through the origin.
  // K times it vanishes for the unclamped model.
  std::vector<double> RigidBodyMode(int mode) const;

  // A solution vector (one entry per equation) spread over all node dofs (3·NumNodes(), 0 on
  // fixed dofs), e.g. to draw a mode shape.
  std::vector<double> ToNodes(const double* solution) const;

  // Nodes of the end face x = Length().
  std::vector<int> EndFaceNodes() const;

 private:
  SolidParameters p_;
  int numNodes_ = 0;
  int numEquations_ = 0;
  std::vector<double> coordinates_;
  std::vector<int> connectivity_;
  NodalAssembler assembler_;
  CsrMatrix k_;
  CsrMatrix consistentMass_;
  std::vector<double> lumpedMass_;
};

}  // namespace vqmath::models
