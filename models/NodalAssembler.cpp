#include "models/NodalAssembler.h"

#include <algorithm>
#include <climits>
#include <stdexcept>

namespace vqmath::models {

NodalAssembler::NodalAssembler(int numNodes, int dofsPerNode, std::vector<int> equations,
                               int nodesPerElement, const std::vector<int>& connectivity)
    : numNodes_(numNodes),
      dpn_(dofsPerNode),
      npe_(nodesPerElement),
      equations_(std::move(equations)) {
  if (numNodes < 0 || dofsPerNode < 1 || nodesPerElement < 1)
    throw std::invalid_argument("NodalAssembler: bad sizes");
  if (equations_.size() != static_cast<size_t>(numNodes) * dofsPerNode)
    throw std::invalid_argument("NodalAssembler: equation map does not match the node count");
  if (connectivity.size() % static_cast<size_t>(nodesPerElement) != 0)
    throw std::invalid_argument("NodalAssembler: connectivity is not a whole number of elements");

  // Numbering: the free dofs in (node, dof) order must carry 1, 2, 3, …
  freeRank_.resize(equations_.size());
  freeCount_.assign(static_cast<size_t>(numNodes), 0);
  int next = 1;
  for (int a = 0; a < numNodes; ++a)
    for (int d = 0; d < dpn_; ++d) {
      const size_t k = static_cast<size_t>(a) * dpn_ + d;
      freeRank_[k] = freeCount_[a];
      const int eq = equations_[k];
      if (eq == 0) continue;
      if (eq != next)
        throw std::invalid_argument("NodalAssembler: equations not numbered node by node");
      ++next;
      ++freeCount_[a];
    }
  numEquations_ = next - 1;

  // Higher neighbours of every node: for every element and every pair of its distinct nodes the
  // higher node is a neighbour of the lower one. Counted, filled, then sorted and made unique.
  const size_t numElements = connectivity.size() / nodesPerElement;
  for (int node : connectivity)
    if (node < 0 || node >= numNodes)
      throw std::invalid_argument("NodalAssembler: node number out of range");
  std::vector<long long> start(static_cast<size_t>(numNodes) + 1, 0);
  for (size_t e = 0; e < numElements; ++e) {
    const int* nodes = connectivity.data() + e * nodesPerElement;
    for (int p = 0; p < nodesPerElement; ++p)
      for (int q = 0; q < nodesPerElement; ++q)
        if (nodes[p] < nodes[q]) ++start[static_cast<size_t>(nodes[p]) + 1];
  }
  for (int a = 0; a < numNodes; ++a) start[a + 1] += start[a];
  std::vector<int> lists(static_cast<size_t>(start[numNodes]));
  {
    std::vector<long long> fill(start.begin(), start.end() - 1);
    for (size_t e = 0; e < numElements; ++e) {
      const int* nodes = connectivity.data() + e * nodesPerElement;
      for (int p = 0; p < nodesPerElement; ++p)
        for (int q = 0; q < nodesPerElement; ++q)
          if (nodes[p] < nodes[q]) lists[static_cast<size_t>(fill[nodes[p]]++)] = nodes[q];
    }
  }
  upperStart_.assign(static_cast<size_t>(numNodes) + 1, 0);
  long long out = 0;
  for (int a = 0; a < numNodes; ++a) {
    auto first = lists.begin() + start[a];
    auto last = lists.begin() + start[a + 1];
    std::sort(first, last);
    last = std::unique(first, last);
    upperStart_[a] = out;
    for (auto it = first; it != last; ++it) lists[static_cast<size_t>(out++)] = *it;
  }
  upperStart_[numNodes] = out;
  lists.resize(static_cast<size_t>(out));
  lists.shrink_to_fit();
  upperNodes_ = std::move(lists);

  // Offsets of the neighbours' blocks within a row, and the row pointers. Row (a, d) holds the
  // node's own free dofs d…, then the free dofs of every higher neighbour in ascending order.
  upperOffset_.resize(upperNodes_.size());
  rowPointers_.assign(static_cast<size_t>(numEquations_) + 1, 1);
  long long pos = 1;
  for (int a = 0; a < numNodes; ++a) {
    int neighbourDofs = 0;
    for (long long k = upperStart_[a]; k < upperStart_[a + 1]; ++k) {
      upperOffset_[k] = neighbourDofs;
      neighbourDofs += freeCount_[upperNodes_[k]];
    }
    for (int d = 0; d < dpn_; ++d) {
      const int eq = Equation(a, d);
      if (eq == 0) continue;
      pos += (freeCount_[a] - freeRank_[static_cast<size_t>(a) * dpn_ + d]) + neighbourDofs;
      if (pos > INT_MAX) throw std::length_error("NodalAssembler: more than 2^31-1 matrix entries");
      rowPointers_[eq] = static_cast<int>(pos);
    }
  }
  nnz_ = pos - 1;
}

CsrMatrix NodalAssembler::EmptyMatrix() const {
  CsrMatrix m;
  m.n = numEquations_;
  m.rowPointers = rowPointers_;
  m.columnIndices.resize(static_cast<size_t>(nnz_));
  m.values.assign(static_cast<size_t>(nnz_), 0.0);
  int* col = m.columnIndices.data();
  for (int a = 0; a < numNodes_; ++a)
    for (int d = 0; d < dpn_; ++d) {
      if (Equation(a, d) == 0) continue;
      for (int e = d; e < dpn_; ++e)
        if (const int eq = Equation(a, e)) *col++ = eq;
      for (long long k = upperStart_[a]; k < upperStart_[a + 1]; ++k) {
        const int b = upperNodes_[k];
        for (int e = 0; e < dpn_; ++e)
          if (const int eq = Equation(b, e)) *col++ = eq;
      }
    }
  return m;
}

void NodalAssembler::AddElement(CsrMatrix& target, const int* elementNodes,
                                const double* elementMatrix) const {
  const int nd = npe_ * dpn_;
  double* v = target.values.data();
  for (int p = 0; p < npe_; ++p) {
    const int a = elementNodes[p];
    for (int q = 0; q < npe_; ++q) {
      const int b = elementNodes[q];
      if (b < a || freeCount_[a] == 0 || freeCount_[b] == 0) continue;
      if (a == b) {
        // Within one node: entries (d, e), d <= e.
        for (int d = 0; d < dpn_; ++d) {
          if (Equation(a, d) == 0) continue;
          const long long rowStart = rowPointers_[Equation(a, d) - 1] - 1;
          const int rd = freeRank_[static_cast<size_t>(a) * dpn_ + d];
          for (int e = d; e < dpn_; ++e) {
            if (Equation(a, e) == 0) continue;
            v[rowStart + freeRank_[static_cast<size_t>(a) * dpn_ + e] - rd] +=
                elementMatrix[(p * dpn_ + d) + static_cast<size_t>(nd) * (q * dpn_ + e)];
          }
        }
        continue;
      }
      // Block of two nodes: find the neighbour once, then every free pair.
      long long k = upperStart_[a];
      const long long end = upperStart_[a + 1];
      while (k < end && upperNodes_[k] != b) ++k;
      if (k == end)
        throw std::invalid_argument("NodalAssembler: nodes are not adjacent in the mesh");
      const size_t ab = static_cast<size_t>(b) * dpn_;
      for (int d = 0; d < dpn_; ++d) {
        const int eq = Equation(a, d);
        if (eq == 0) continue;
        const long long base = rowPointers_[eq - 1] - 1 +
                               (freeCount_[a] - freeRank_[static_cast<size_t>(a) * dpn_ + d]) +
                               upperOffset_[k];
        for (int e = 0; e < dpn_; ++e) {
          if (equations_[ab + e] == 0) continue;
          v[base + freeRank_[ab + e]] +=
              elementMatrix[(p * dpn_ + d) + static_cast<size_t>(nd) * (q * dpn_ + e)];
        }
      }
    }
  }
}

void NodalAssembler::AddElementDiagonal(CsrMatrix& target, const int* elementNodes,
                                        const double* elementDiagonal) const {
  for (int p = 0; p < npe_; ++p)
    for (int d = 0; d < dpn_; ++d)
      if (const int eq = Equation(elementNodes[p], d))
        target.values[static_cast<size_t>(rowPointers_[eq - 1] - 1)] +=
            elementDiagonal[p * dpn_ + d];
}

}  // namespace vqmath::models
