#include "sparse/internal/SymUpperProduct.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

namespace vqmath {
namespace internal {

namespace {

inline void Range(const int* rowptr, int r, int nnz, int& begin, int& end) {
  begin = std::min(std::max(rowptr[r] - 1, 0), nnz);
  end = std::min(std::max(rowptr[r + 1] - 1, begin), nnz);
}

// One column: y = A x (y cleared by the caller). The row's own element is accumulated in a
// register starting from what earlier rows contributed, which keeps the summation order.
void OneColumn(int n, int nnz, const int* rowptr, const int* colidx, const double* values,
               const double* __restrict x, double* __restrict y) {
  for (int r = 0; r < n; ++r) {
    int begin, end;
    Range(rowptr, r, nnz, begin, end);
    const double xr = x[r];
    double acc = y[r];
    for (int k = begin; k < end; ++k) {
      const unsigned c = static_cast<unsigned>(colidx[k] - 1);
      if (c >= static_cast<unsigned>(n)) continue;
      const double a = values[k];
      if (c == static_cast<unsigned>(r)) {
        acc += a * xr;
      } else {
        acc += a * x[c];
        y[c] += a * xr;
      }
    }
    y[r] = acc;
  }
}

// Several columns with X and P held row-major (m consecutive values per row), so that each stored
// entry is read once and its row updates are contiguous.
template <int M>
void RowMajorBlock(int n, int nnz, const int* rowptr, const int* colidx, const double* values,
                   int mDyn, const double* __restrict xt, double* __restrict pt) {
  const int m = M > 0 ? M : mDyn;
  for (int r = 0; r < n; ++r) {
    int begin, end;
    Range(rowptr, r, nnz, begin, end);
    const double* __restrict xr = xt + static_cast<size_t>(r) * m;
    double* __restrict pr = pt + static_cast<size_t>(r) * m;
    for (int k = begin; k < end; ++k) {
      const unsigned c = static_cast<unsigned>(colidx[k] - 1);
      if (c >= static_cast<unsigned>(n)) continue;
      const double a = values[k];
      if (c == static_cast<unsigned>(r)) {
        for (int j = 0; j < m; ++j) pr[j] += a * xr[j];
      } else {
        const double* __restrict xc = xt + static_cast<size_t>(c) * m;
        double* __restrict pc = pt + static_cast<size_t>(c) * m;
        for (int j = 0; j < m; ++j) {
          pr[j] += a * xc[j];
          pc[j] += a * xr[j];
        }
      }
    }
  }
}

}  // namespace

void SymUpperTimesDense(int n, int nnz, const int* rowptr, const int* colidx, const double* values,
                        int m, const double* X, int ldx, double* P, int ldp) {
  if (n <= 0 || m <= 0) return;
  for (int j = 0; j < m; ++j)
    std::fill(P + static_cast<size_t>(j) * ldp, P + static_cast<size_t>(j) * ldp + n, 0.0);
  if (!rowptr || nnz <= 0 || !colidx || !values) return;

  if (m > 1) {
    // Column blocks of at most kBlock keep the row-major work rows within a few cache lines.
    constexpr int kBlock = 32;
    std::vector<double> xt, pt;
    bool haveWork = true;
    try {
      const int w = std::min(m, kBlock);
      xt.resize(static_cast<size_t>(n) * w);
      pt.resize(static_cast<size_t>(n) * w);
    } catch (const std::bad_alloc&) {
      haveWork = false;
    }
    if (haveWork) {
      for (int j0 = 0; j0 < m; j0 += kBlock) {
        const int w = std::min(kBlock, m - j0);
        for (int r = 0; r < n; ++r)
          for (int j = 0; j < w; ++j)
            xt[static_cast<size_t>(r) * w + j] = X[static_cast<size_t>(j0 + j) * ldx + r];
        std::fill(pt.begin(), pt.begin() + static_cast<size_t>(n) * w, 0.0);
        switch (w) {
          case 2: RowMajorBlock<2>(n, nnz, rowptr, colidx, values, w, xt.data(), pt.data()); break;
          case 4: RowMajorBlock<4>(n, nnz, rowptr, colidx, values, w, xt.data(), pt.data()); break;
          case 8: RowMajorBlock<8>(n, nnz, rowptr, colidx, values, w, xt.data(), pt.data()); break;
          default: RowMajorBlock<0>(n, nnz, rowptr, colidx, values, w, xt.data(), pt.data()); break;
        }
        for (int r = 0; r < n; ++r)
          for (int j = 0; j < w; ++j)
            P[static_cast<size_t>(j0 + j) * ldp + r] = pt[static_cast<size_t>(r) * w + j];
      }
      return;
    }
  }
  for (int j = 0; j < m; ++j)
    OneColumn(n, nnz, rowptr, colidx, values, X + static_cast<size_t>(j) * ldx,
              P + static_cast<size_t>(j) * ldp);
}

}  // namespace internal
}  // namespace vqmath
