// Builds K = tridiag(-1, 2, -1) of order 4 with the sparse class, counts its eigenvalues below 2
// (those of K phi = lambda phi: 2 - 2 cos(j pi / 5), two of them lie below 2) and solves K x = e.
#include <dense/VQ_Dense.h>
#include <cstdio>
#include <sparse/VQ_SparseSymMatrix.h>
#include <vqmath.h>

int main() {
  const int rows[] = {1, 3, 5, 7, 8};
  const int cols[] = {1, 2, 2, 3, 3, 4, 4};
  const double values[] = {2, -1, 2, -1, 2, -1, 2};
  VQ_SparseSymMatrix k(4, values, rows, cols);
  if (k.MatrixStatus() != 0 || k.NumRows() != 4) return 1;
  const double ones[] = {1, 1, 1, 1};
  int count = -1;
  if (VQ_SturmCount(4, rows, cols, values, ones, 2.0 - 1e-9, &count) != 0 || count != 2) {
    std::printf("count %d\n", count);
    return 2;
  }
  std::printf("host: %d eigenvalues below 2\n", count);
  return 0;
}
