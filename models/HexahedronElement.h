#pragma once
// The 8-node trilinear hexahedron of isotropic linear elasticity, integrated with 2×2×2 Gauss
// points.
//
// Node order (natural coordinates ξ, η, ζ): 0 (−1,−1,−1), 1 (+1,−1,−1), 2 (+1,+1,−1),
// 3 (−1,+1,−1), 4 (−1,−1,+1), 5 (+1,−1,+1), 6 (+1,+1,+1), 7 (−1,+1,+1); for a box aligned with
// the axes that is the bottom face counter-clockwise seen from above, then the top face.
// Element dofs are node by node: local dof 3·a + c is the displacement of node a along axis c
// (0 = x, 1 = y, 2 = z).
//
// coordinates: 24 doubles, x y z of node 0, then node 1, …
// Dense results are 24×24 column-major (symmetric, so also row-major).
// Throws std::invalid_argument when the Jacobian determinant is not positive at a Gauss point
// (inverted or degenerate element).

#include <vector>

namespace vqmath::models {

constexpr int kHexNodes = 8;
constexpr int kHexDofs = 24;

// Stiffness matrix for Young's modulus E and Poisson's ratio nu.
std::vector<double> HexahedronStiffness(const double* coordinates, double youngsModulus,
                                        double poissonRatio);

// Consistent mass matrix for the given density.
std::vector<double> HexahedronConsistentMass(const double* coordinates, double density);

// Lumped mass: the 24 row sums of the consistent mass (for a parallelepiped ρ·V/8 on every dof).
std::vector<double> HexahedronLumpedMass(const double* coordinates, double density);

// Volume by the same Gauss rule (exact for parallelepipeds).
double HexahedronVolume(const double* coordinates);

}  // namespace vqmath::models
