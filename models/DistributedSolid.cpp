#include "models/DistributedSolid.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "models/HexahedronElement.h"

namespace vqmath::models {

namespace {

// Offsets (di, dj, dk) of the eight element nodes, in HexahedronElement's order.
constexpr int kCorner[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                               {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};

// ∫ ∂N_a/∂x ∂N_b/∂x dV of a box element: the 1-D stiffness along x times the 1-D masses along
// y and z.
double AxialGradientProduct(const SolidParameters& p, int a, int b) {
  const double kx = (kCorner[a][0] == kCorner[b][0] ? 1.0 : -1.0) / p.hx;
  const double my = p.hy / 6.0 * (kCorner[a][1] == kCorner[b][1] ? 2.0 : 1.0);
  const double mz = p.hz / 6.0 * (kCorner[a][2] == kCorner[b][2] ? 2.0 : 1.0);
  return kx * my * mz;
}

}  // namespace

RowRange BalancedRows(int n, int ranks, int rank) {
  RowRange r;
  if (ranks < 1 || rank < 0 || rank >= ranks || n < 0) return r;
  const int base = n / ranks, extra = n % ranks;
  r.first = 1 + rank * base + std::min(rank, extra);
  r.last = r.first + base + (rank < extra ? 1 : 0) - 1;
  return r;
}

int DistributedSolid::EquationsOf(const SolidParameters& p) {
  const long long slice = static_cast<long long>(p.ny + 1) * (p.nz + 1);
  const long long nodes = slice * (p.nx + 1);
  return static_cast<int>(3 * (nodes - (p.clamped ? slice : 0)));
}

DistributedSolid::DistributedSolid(const SolidParameters& parameters, RowRange rows)
    : p_(parameters), rows_(rows) {
  // Parameter checks and the element matrices: a one-element solid of the same material.
  SolidParameters one = p_;
  one.nx = one.ny = one.nz = 1;
  one.consistentMass = false;
  if (p_.nx < 1 || p_.ny < 1 || p_.nz < 1)
    throw std::invalid_argument("SolidModel: element counts must be positive");
  const SolidModel unit(one);
  const long long nodes = static_cast<long long>(p_.nx + 1) * (p_.ny + 1) * (p_.nz + 1);
  if (nodes * 8 > 2147483647LL)
    throw std::length_error("SolidModel: too many nodes for 32-bit indices");
  numEquations_ = EquationsOf(p_);
  if (rows_.first < 1 || rows_.last > numEquations_ || rows_.last < rows_.first - 1)
    throw std::invalid_argument("DistributedSolid: row range outside the model");

  double box[24];
  for (int a = 0; a < 8; ++a) {
    box[3 * a] = kCorner[a][0] * p_.hx;
    box[3 * a + 1] = kCorner[a][1] * p_.hy;
    box[3 * a + 2] = kCorner[a][2] * p_.hz;
  }
  const std::vector<double> ke = HexahedronStiffness(box, p_.youngsModulus, p_.poissonRatio);
  const std::vector<double> ml = HexahedronLumpedMass(box, p_.density);
  const double stress = 1.0 / (p_.ny * p_.hy * p_.nz * p_.hz);  // unit compression

  const int ny1 = p_.ny + 1, nz1 = p_.nz + 1;
  const int slice = ny1 * nz1;
  const int skipped = p_.clamped ? slice : 0;  // nodes of the clamped face carry no equations
  auto equation = [&](int node, int c) {
    return node < skipped ? 0 : 3 * (node - skipped) + c + 1;
  };

  const int count = rows_.Count();
  k_.n = kg_.n = numEquations_;
  k_.rows = kg_.rows = rows_;
  k_.rowPointers.assign(1, 1);
  kg_.rowPointers.assign(1, 1);
  k_.rowPointers.reserve(static_cast<size_t>(count) + 1);
  kg_.rowPointers.reserve(static_cast<size_t>(count) + 1);
  k_.columnIndices.reserve(static_cast<size_t>(count) * 41);
  k_.values.reserve(static_cast<size_t>(count) * 41);
  lumpedMass_.assign(static_cast<size_t>(count), 0.0);

  std::vector<std::pair<int, double>> row, geo;
  for (int eq = rows_.first; eq <= rows_.last; ++eq) {
    const int node = (eq - 1) / 3 + skipped, c = (eq - 1) % 3;
    const int i = node / slice, j = (node / nz1) % ny1, k = node % nz1;
    row.clear();
    geo.clear();
    double mass = 0.0;
    // The elements around the node, in ascending element number: every sum is taken in the
    // order the whole-model assembly takes it.
    for (int ei = i - 1; ei <= i; ++ei)
      for (int ej = j - 1; ej <= j; ++ej)
        for (int ek = k - 1; ek <= k; ++ek) {
          if (ei < 0 || ej < 0 || ek < 0 || ei >= p_.nx || ej >= p_.ny || ek >= p_.nz) continue;
          int a = 0;
          while (kCorner[a][0] != i - ei || kCorner[a][1] != j - ej || kCorner[a][2] != k - ek) ++a;
          mass += ml[3 * a + c];
          for (int b = 0; b < 8; ++b) {
            const int other =
                ((ei + kCorner[b][0]) * ny1 + ej + kCorner[b][1]) * nz1 + ek + kCorner[b][2];
            const double s = stress * AxialGradientProduct(p_, a, b);
            for (int d = 0; d < 3; ++d) {
              const int col = equation(other, d);
              if (col < eq) continue;  // fixed, or below the diagonal
              row.emplace_back(col, ke[(3 * a + c) + kHexDofs * (3 * b + d)]);
              if (d == c) geo.emplace_back(col, s);
            }
          }
        }
    lumpedMass_[static_cast<size_t>(eq - rows_.first)] = mass;
    // Sum the contributions per column; a stable sort keeps the element order of each sum.
    auto append = [](CsrRows& m, std::vector<std::pair<int, double>>& entries) {
      std::stable_sort(entries.begin(), entries.end(),
                       [](const auto& x, const auto& y) { return x.first < y.first; });
      for (size_t e = 0; e < entries.size();) {
        double sum = 0.0;
        size_t f = e;
        for (; f < entries.size() && entries[f].first == entries[e].first; ++f)
          sum += entries[f].second;
        m.columnIndices.push_back(entries[e].first);
        m.values.push_back(sum);
        e = f;
      }
      m.rowPointers.push_back(static_cast<int>(m.values.size()) + 1);
    };
    append(k_, row);
    append(kg_, geo);
  }
}

std::vector<double> DistributedSolid::EndFaceLoad(double fx, double fy, double fz) const {
  std::vector<double> f(static_cast<size_t>(rows_.Count()), 0.0);
  const int ny1 = p_.ny + 1, nz1 = p_.nz + 1, slice = ny1 * nz1;
  const int skipped = p_.clamped ? slice : 0;
  const double quarter = 1.0 / (4.0 * p_.ny * p_.nz);
  const double force[3] = {fx, fy, fz};
  for (int eq = rows_.first; eq <= rows_.last; ++eq) {
    const int node = (eq - 1) / 3 + skipped, c = (eq - 1) % 3;
    if (node / slice != p_.nx) continue;
    const int j = (node / nz1) % ny1, k = node % nz1;
    const int quads = (j > 0 && j < p_.ny ? 2 : 1) * (k > 0 && k < p_.nz ? 2 : 1);
    f[static_cast<size_t>(eq - rows_.first)] = quads * quarter * force[c];
  }
  return f;
}

}  // namespace vqmath::models
