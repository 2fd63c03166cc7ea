// Assembly speed of VQ_SparseSymMatrix on the pattern of a 3D solid: a brick of 8-node hexahedra
// with 3 degrees of freedom per node, every element adding the upper triangle of its 24 x 24
// matrix through Add(). Reported per mesh size: the Add loop, EndMatrix, the cost per Add, and,
// as a yardstick, building the same compressed rows from the same triplets by sorting them.
//
// Plain program: prints a table, no pass/fail.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "sparse/VQ_SparseSymMatrix.h"

namespace {

using Clock = std::chrono::steady_clock;
double Seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

struct Brick {
  int nx, ny, nz;
  int Nodes() const { return (nx + 1) * (ny + 1) * (nz + 1); }
  int Dofs() const { return 3 * Nodes(); }
  int Elements() const { return nx * ny * nz; }
  int Node(int i, int j, int k) const { return (k * (ny + 1) + j) * (nx + 1) + i; }
  // The 24 equation numbers (1-based) of element e.
  void Equations(int e, int* eq) const {
    const int i = e % nx, j = (e / nx) % ny, k = e / (nx * ny);
    const int corner[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                              {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    for (int a = 0; a < 8; ++a) {
      const int node = Node(i + corner[a][0], j + corner[a][1], k + corner[a][2]);
      for (int d = 0; d < 3; ++d) eq[3 * a + d] = 3 * node + d + 1;
    }
  }
};

// A fixed symmetric element matrix (the values do not matter for the timing, only the pattern).
double ElementValue(int a, int b) { return a == b ? 10.0 : 1.0 / (1.0 + a + b); }

}  // namespace

int main() {
  std::printf("Sparse assembly of hexahedral brick meshes (3 dof/node, 300 Add per element)\n\n");
  std::printf("%-10s %9s %9s %11s %10s %10s %10s %9s %10s %8s\n", "mesh", "elements", "dofs",
              "adds", "nnz", "Add [s]", "End [s]", "ns/Add", "sort [s]", "ratio");
  const Brick meshes[] = {{8, 8, 8}, {14, 14, 14}, {20, 20, 20}, {26, 26, 26}};
  for (const Brick& b : meshes) {
    const int n = b.Dofs();
    int eq[24];

    VQ_SparseSymMatrix k(n);
    k.BeginMatrix();
    std::int64_t adds = 0;
    const auto t0 = Clock::now();
    for (int e = 0; e < b.Elements(); ++e) {
      b.Equations(e, eq);
      for (int a = 0; a < 24; ++a)
        for (int c = a; c < 24; ++c) {
          k.Add(eq[a], eq[c], ElementValue(a, c));
          ++adds;
        }
    }
    const auto t1 = Clock::now();
    const bool ok = k.EndMatrix();
    const auto t2 = Clock::now();

    // Yardstick: the same triplets sorted by (row, column) and compressed.
    const auto s0 = Clock::now();
    std::vector<std::pair<std::int64_t, double>> trip;
    trip.reserve(static_cast<size_t>(adds));
    for (int e = 0; e < b.Elements(); ++e) {
      b.Equations(e, eq);
      for (int a = 0; a < 24; ++a)
        for (int c = a; c < 24; ++c) {
          const std::int64_t r = std::min(eq[a], eq[c]), col = std::max(eq[a], eq[c]);
          trip.emplace_back((r - 1) * n + (col - r), ElementValue(a, c));
        }
    }
    std::sort(trip.begin(), trip.end(),
              [](const auto& x, const auto& y) { return x.first < y.first; });
    std::vector<double> vals;
    std::vector<int> cols, rowptr;
    vals.reserve(trip.size());
    cols.reserve(trip.size());
    rowptr.reserve(static_cast<size_t>(n) + 1);
    std::int64_t last = -1;
    int row = 0;
    for (const auto& t : trip) {
      if (t.first == last) {
        vals.back() += t.second;
        continue;
      }
      last = t.first;
      if (t.first % n == 0) {
        ++row;
        rowptr.push_back(static_cast<int>(vals.size()) + 1);
      }
      vals.push_back(t.second);
      cols.push_back(static_cast<int>(t.first % n) + row);
    }
    rowptr.push_back(static_cast<int>(vals.size()) + 1);
    const auto s1 = Clock::now();

    const bool same = ok && static_cast<int>(vals.size()) == k.GetNumberOfNonZeros() &&
                      std::equal(cols.begin(), cols.end(), k.GetColumnVectorPointer()) &&
                      std::equal(rowptr.begin(), rowptr.end(), k.GetRowVectorPointer());
    char mesh[32];
    std::snprintf(mesh, sizeof mesh, "%dx%dx%d", b.nx, b.ny, b.nz);
    const double tAdd = Seconds(t0, t1), tEnd = Seconds(t1, t2), tSort = Seconds(s0, s1);
    std::printf("%-10s %9d %9d %11lld %10d %10.3f %10.3f %9.1f %10.3f %8.2f%s\n", mesh,
                b.Elements(), n, static_cast<long long>(adds), k.GetNumberOfNonZeros(), tAdd, tEnd,
                1e9 * tAdd / adds, tSort, (tAdd + tEnd) / tSort, same ? "" : "  PATTERN MISMATCH");
  }
  std::printf("\nratio = (Add + End) / sort-based build of the same compressed rows.\n");
  return 0;
}
