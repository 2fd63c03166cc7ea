#pragma once
// Builds the upper-triangle CSR pattern of a finite-element mesh from its node adjacency and
// adds element matrices into it without any per-entry search.
//
// Nodes carry dofsPerNode dofs each; equations[node·dofsPerNode + d] is the 1-based equation
// number of dof d of the node, or 0 when the dof is fixed. The free dofs must be numbered in
// ascending (node, dof) order (node by node, the dofs of a node consecutively), which makes
// every row's columns ascend when the rows are laid out neighbour node by neighbour node.
// Elements list nodesPerElement node numbers (0-based) each; element dofs are node by node.

#include <vector>

#include "models/CsrMatrix.h"

namespace vqmath::models {

class NodalAssembler {
 public:
  // Throws std::invalid_argument when the numbering is not ascending and contiguous
  // (1…numEquations) or an element names a node outside 0…numNodes−1, and std::length_error
  // when the pattern would hold more than 2^31−1 entries.
  NodalAssembler(int numNodes, int dofsPerNode, std::vector<int> equations, int nodesPerElement,
                 const std::vector<int>& connectivity);

  int NumEquations() const { return numEquations_; }
  long long Nnz() const { return nnz_; }

  // A matrix holding the pattern of the mesh, every value 0.0.
  CsrMatrix EmptyMatrix() const;

  // Adds the element matrix (dense, order nodesPerElement·dofsPerNode, column-major, symmetric;
  // only the entries that fall on the upper triangle of the global matrix are read) of the
  // element with the given nodes into target, which must hold the pattern of EmptyMatrix().
  // Fixed dofs are skipped. The nodes must be adjacent in the mesh given to the constructor.
  void AddElement(CsrMatrix& target, const int* elementNodes, const double* elementMatrix) const;

  // Adds diagonal values (one per element dof) of the element with the given nodes.
  void AddElementDiagonal(CsrMatrix& target, const int* elementNodes,
                          const double* elementDiagonal) const;

  // Equation number of dof d of a node (0 = fixed).
  int Equation(int node, int dof) const {
    return equations_[static_cast<size_t>(node) * dpn_ + dof];
  }
  const std::vector<int>& Equations() const { return equations_; }

 private:
  int numNodes_;
  int dpn_;
  int npe_;
  int numEquations_ = 0;
  long long nnz_ = 0;
  std::vector<int> equations_;
  std::vector<int> freeRank_;          // per node-dof: number of free dofs of the node before it
  std::vector<int> freeCount_;         // per node: number of free dofs
  std::vector<long long> upperStart_;  // per node: start of its list of higher neighbours
  std::vector<int> upperNodes_;        // higher neighbour nodes, ascending per node
  std::vector<int> upperOffset_;       // free dofs of the neighbours listed before, per entry
  std::vector<int> rowPointers_;
};

}  // namespace vqmath::models
