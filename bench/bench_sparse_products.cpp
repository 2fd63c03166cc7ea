// Speed of the sparse symmetric times dense product (VQ_SparseSymMatrix * VQ_Matrix) against MKL's
// sparse symmetric product (mkl_sparse_d_mv / mkl_sparse_d_mm on the same upper-triangle arrays
// with a symmetric, upper descriptor), on the stiffness pattern of a brick of 8-node hexahedra
// (3 dof per node), for 1 and 30 right-hand columns. Times are the best of several runs; ratios
// are ours / MKL (below 1: ours faster). The largest relative difference between the two results
// is reported as a check.
//
// Plain program: prints a table, no pass/fail.

#include <mkl.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "dense/VQ_Matrix.h"
#include "sparse/SparseOperators.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace {

using Clock = std::chrono::steady_clock;

template <class F>
double BestSeconds(int repeats, F&& f) {
  double best = 1e300;
  for (int r = 0; r < repeats; ++r) {
    const auto t0 = Clock::now();
    f();
    best = std::min(best, std::chrono::duration<double>(Clock::now() - t0).count());
  }
  return best;
}

// Stiffness-like pattern of an nx x ny x nz brick of hexahedra; diagonally dominant values.
void AssembleBrick(int nx, int ny, int nz, VQ_SparseSymMatrix& k) {
  auto node = [&](int i, int j, int l) { return (l * (ny + 1) + j) * (nx + 1) + i; };
  const int n = 3 * (nx + 1) * (ny + 1) * (nz + 1);
  const int corner[8][3] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                            {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
  k.SetBounds(n);
  k.BeginMatrix();
  int eq[24];
  for (int l = 0; l < nz; ++l)
    for (int j = 0; j < ny; ++j)
      for (int i = 0; i < nx; ++i) {
        for (int a = 0; a < 8; ++a)
          for (int d = 0; d < 3; ++d)
            eq[3 * a + d] = 3 * node(i + corner[a][0], j + corner[a][1], l + corner[a][2]) + d + 1;
        for (int a = 0; a < 24; ++a)
          for (int c = a; c < 24; ++c)
            k.Add(eq[a], eq[c], a == c ? 30.0 : -1.0 / (1.0 + ((a * 7 + c) % 5)));
      }
  k.EndMatrix();
}

}  // namespace

int main() {
  VQ_SparseSymMatrix k;
  AssembleBrick(20, 20, 20, k);
  const int n = k.NumRows();
  const int nnz = k.GetNumberOfNonZeros();
  std::printf(
      "Sparse symmetric x dense: brick 20x20x20 hexahedra, n = %d, stored upper entries = %d\n\n",
      n, nnz);

  sparse_matrix_t a = nullptr;
  if (mkl_sparse_d_create_csr(&a, SPARSE_INDEX_BASE_ONE, n, n, k.GetRowVectorPointer(),
                              k.GetRowVectorPointer() + 1, k.GetColumnVectorPointer(),
                              k.GetValuePointer()) != SPARSE_STATUS_SUCCESS) {
    std::printf("mkl_sparse_d_create_csr failed\n");
    return 1;
  }
  matrix_descr descr;
  descr.type = SPARSE_MATRIX_TYPE_SYMMETRIC;
  descr.mode = SPARSE_FILL_MODE_UPPER;
  descr.diag = SPARSE_DIAG_NON_UNIT;

  std::printf("%8s %12s %12s %12s %14s %14s %12s\n", "columns", "ours [ms]", "MKL 1t [ms]",
              "MKL 2t [ms]", "ours/MKL 1t", "ours/MKL 2t", "max rel diff");
  std::mt19937 gen(1);
  std::uniform_real_distribution<double> val(-1.0, 1.0);
  for (int m : {1, 30}) {
    VQ_Matrix x(n, m);
    for (int q = 0; q < n * m; ++q) x.GetDataPointer()[q] = val(gen);
    std::vector<double> y(static_cast<size_t>(n) * m);
    const int repeats = m == 1 ? 20 : 5;

    VQ_Matrix p;
    const double tOurs = BestSeconds(repeats, [&] { p = k * x; });

    auto runMkl = [&] {
      if (m == 1)
        mkl_sparse_d_mv(SPARSE_OPERATION_NON_TRANSPOSE, 1.0, a, descr, x.GetDataPointer(), 0.0,
                        y.data());
      else
        mkl_sparse_d_mm(SPARSE_OPERATION_NON_TRANSPOSE, 1.0, a, descr, SPARSE_LAYOUT_COLUMN_MAJOR,
                        x.GetDataPointer(), m, n, 0.0, y.data(), n);
    };
    mkl_set_num_threads(1);
    const double tMkl1 = BestSeconds(repeats, runMkl);
    mkl_set_num_threads(2);
    const double tMkl2 = BestSeconds(repeats, runMkl);

    double scale = 0.0, diff = 0.0;
    for (size_t q = 0; q < y.size(); ++q) {
      scale = std::max(scale, std::fabs(y[q]));
      diff = std::max(diff, std::fabs(y[q] - p.GetDataPointer()[q]));
    }
    std::printf("%8d %12.3f %12.3f %12.3f %14.2f %14.2f %12.1e\n", m, 1e3 * tOurs, 1e3 * tMkl1,
                1e3 * tMkl2, tOurs / tMkl1, tOurs / tMkl2, diff / scale);
  }
  mkl_sparse_destroy(a);
  std::printf(
      "\nours: operator*(VQ_SparseSymMatrix, VQ_Matrix), result allocation included, one "
      "thread.\n");
  return 0;
}
