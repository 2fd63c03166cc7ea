#pragma once
// The solid bar of SolidModel built one contiguous range of equations at a time, so that each
// process of a distributed run assembles only the rows it owns and no process ever holds the
// whole matrix.
//
// The mesh, the equation numbering (node by node, x slowest, face x = 0 clamped), the element
// matrices and the loads are those of SolidModel with the same parameters: the rows of a
// range equal the rows of SolidModel's matrices. Each row is assembled from the (at most eight)
// elements around its node, so building a range costs time and memory in proportion to its
// length only.
//
// Rows are upper CSR with 1-based global column indices (every row stores its diagonal first,
// then ascending columns); rowPointers are local (rowPointers[0] = 1).

#include <vector>

#include "models/CsrMatrix.h"
#include "models/SolidModel.h"

namespace vqmath::models {

// A contiguous range of equations [first, last] (1-based, inclusive) of a matrix of order n.
struct RowRange {
  int first = 1;
  int last = 0;
  int Count() const { return last - first + 1; }
};

// The rows of order n that process `rank` of `ranks` owns when the rows are split as evenly as
// possible (the first n % ranks processes take one row more).
RowRange BalancedRows(int n, int ranks, int rank);

// Rows first…last of a symmetric matrix: local row pointers, global 1-based columns.
struct CsrRows {
  int n = 0;  // order of the whole matrix
  RowRange rows;
  std::vector<int> rowPointers;    // rows.Count()+1 entries, starting at 1
  std::vector<int> columnIndices;  // 1-based global columns
  std::vector<double> values;
};

class DistributedSolid {
 public:
  // Throws what SolidModel's constructor throws for invalid parameters, and
  // std::invalid_argument for a range outside 1…NumEquations() (an empty range, last =
  // first − 1, is allowed). Consistent mass is not offered: the lumped mass serves.
  DistributedSolid(const SolidParameters& parameters, RowRange rows);

  const SolidParameters& Parameters() const { return p_; }
  int NumEquations() const { return numEquations_; }
  const RowRange& Rows() const { return rows_; }

  // Equation count of the bar without building anything.
  static int EquationsOf(const SolidParameters& parameters);

  const CsrRows& Stiffness() const { return k_; }
  // Geometric stiffness of a unit axial compression (1 N spread uniformly over the cross
  // section, stress −1/(width·height) along x): K·φ = λ·Kg·φ gives the buckling load λ in N.
  const CsrRows& GeometricStiffness() const { return kg_; }
  // Lumped mass of the owned rows (as SolidModel::LumpedMass).
  const std::vector<double>& LumpedMass() const { return lumpedMass_; }
  // SolidModel::EndFaceLoad restricted to the owned rows.
  std::vector<double> EndFaceLoad(double fx, double fy, double fz) const;

 private:
  SolidParameters p_;
  RowRange rows_;
  int numEquations_ = 0;
  CsrRows k_, kg_;
  std::vector<double> lumpedMass_;
};

}  // namespace vqmath::models
