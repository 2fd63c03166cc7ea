// bench_dense_products - dense VQ_Matrix products against a direct cblas_dgemm call in the same
// run, at orders 200, 500 and 1000. Also times the symmetric product (with its epsilon rule), the
// congruence product t'Kt, m'Dm, the Gram-Schmidt orthonormalisation and the Gauss-Jordan inverse.
// Prints one table; the ratio column is library time / time of one n x n x n cblas_dgemm (best of
// several alternating runs), so for the product rows 1.0 means "as fast as MKL".
#include <mkl.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <random>
#include <vector>

#include "dense/VQ_Dense.h"

namespace {

double Seconds(const std::function<void()>& run) {
  const auto t0 = std::chrono::steady_clock::now();
  run();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

VQ_Matrix Random(int r, int c, unsigned seed) {
  std::mt19937 gen(seed);
  std::uniform_real_distribution<double> dist(-1.0, 1.0);
  VQ_Matrix m(r, c);
  double* p = m.GetDataPointer();
  for (long long k = 0; k < static_cast<long long>(r) * c; ++k) p[k] = dist(gen);
  return m;
}

// Library run and reference run alternate, so that both see the same machine load; the best time
// of each is reported.
void Row(const char* what, int n, int reps, const std::function<void()>& lib, const std::function<void()>& ref) {
  double bestLib = 1e300, bestRef = 1e300;
  for (int r = 0; r < reps; ++r) {
    bestRef = std::min(bestRef, Seconds(ref));
    bestLib = std::min(bestLib, Seconds(lib));
  }
  std::printf("%-28s %6d %12.4f %12.4f %8.2f\n", what, n, bestLib * 1e3, bestRef * 1e3, bestLib / bestRef);
}

}  // namespace

int main() {
  std::printf("MKL threads: %d\n", mkl_get_max_threads());
  std::printf("%-28s %6s %12s %12s %8s\n", "operation", "n", "library ms", "dgemm ms", "ratio");
  for (int n : {200, 500, 1000}) {
    const int reps = n <= 500 ? 7 : 4;
    VQ_Matrix a = Random(n, n, 1), b = Random(n, n, 2), p(n, n), q(n, n);
    auto ref = [&] {
      cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0, a.GetDataPointer(), n, b.GetDataPointer(), n,
                  0.0, q.GetDataPointer(), n);
    };
    Row("PostMultiply (A*B)", n, reps, [&] { a.PostMultiply(b, p); }, ref);
    Row("operator* (A*B)", n, reps, [&] { VQ_Matrix c = a * b; }, ref);

    VQ_SymMatrix s(n, 0.0);
    s.CopyUpperDiagonal(b);
    Row("PostMultiply (A*S)", n, reps, [&] { a.PostMultiply(s, p); }, ref);
    Row("PreMultiply (S*A)", n, reps, [&] { a.PreMultiply(s, p); }, ref);

    const int m = std::max(20, n / 10);
    VQ_Matrix t = Random(n, m, 3);
    VQ_SymMatrix r;
    Row("Tt_K_T (m = n/10)", n, reps, [&] { s.Tt_K_T(t, r); }, ref);
    VQ_DiagonalMatrix d(n, 2.0);
    Row("MtSM (m = n/10)", n, reps, [&] { d.MtSM(t, r); }, ref);
    Row("Gram-Schmidt (m = n/10)", n, reps, [&] {
          VQ_Matrix w(t);
          w.ObtainOrthogonalizedForm(true);
        }, ref);
    VQ_Matrix dom = Random(n, n, 4);
    for (int k = 1; k <= n; ++k) dom(k, k) = n;
    Row("Inverse (Gauss-Jordan)", n, reps, [&] { VQ_Matrix inv = dom.Inverse(); }, ref);
  }
  return 0;
}
