#pragma once
// The plane Euler–Bernoulli beam-column between nodes 1 at (x1, y1) and 2 at (x2, y2), with
// three dofs per node in global axes: u (along x), v (along y), θ (rotation about z,
// counter-clockwise). Local dof order u1 v1 θ1 u2 v2 θ2.
// Dense results are 6×6 column-major (symmetric, so also row-major).
// Throws std::invalid_argument for a member of zero length.

#include <vector>

namespace vqmath::models {

constexpr int kBeamDofs2D = 6;

// Elastic stiffness: axial EA/L and cubic bending EI.
std::vector<double> BeamColumnStiffness2D(double x1, double y1, double x2, double y2,
                                          double youngsModulus, double area, double inertia);

// Consistent geometric stiffness for an axial compressive force N (N > 0 in compression):
// N/(30L)·[36 3L −36 3L; 3L 4L² −3L −L²; …] on the transverse dofs, rotated to global axes.
// It is positive semi-definite for N > 0, so the buckling problem is K·φ = λ·Kg·φ and λ is the
// load factor on N.
std::vector<double> BeamColumnGeometricStiffness2D(double x1, double y1, double x2, double y2,
                                                   double compressiveForce);

// Consistent mass for the mass per unit length ρ·A (linear axial, cubic transverse).
std::vector<double> BeamColumnConsistentMass2D(double x1, double y1, double x2, double y2,
                                               double massPerLength);

// Lumped (HRZ) mass, 6 diagonal entries: ρAL/2 on each translation, ρAL³/78 on each rotation.
std::vector<double> BeamColumnLumpedMass2D(double x1, double y1, double x2, double y2,
                                           double massPerLength);

}  // namespace vqmath::models
