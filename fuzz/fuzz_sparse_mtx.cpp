// MatrixMarket reader of the sparse symmetric matrix (VQ_SparseSymMatrix::ReadIn_MTX_Format) on
// arbitrary bytes. A read that succeeds must leave the PARDISO layout (rows 1..n, diagonal first,
// columns ascending within the row and inside 1..n, rowptr[n] - 1 = nnz) or an empty matrix with a
// status; the matrix must then survive element access, products, the text writer, copies and,
// for small orders, a factorisation and solve by the sparse direct solver.
// fuzz max_allocation_mb: 32
#include "FuzzSupport.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace {

bool CanonicalLayout(const VQ_SparseSymMatrix& s) {
  const int n = s.GetOrder();
  const int nnz = s.GetNumberOfNonZeros();
  const int* rp = s.GetRowVectorPointer();
  const int* ci = s.GetColumnVectorPointer();
  if (n == 0) return nnz == 0;
  if (!rp || !ci || !s.GetValuePointer() || rp[0] != 1 || rp[n] - 1 != nnz) return false;
  for (int i = 1; i <= n; ++i) {
    const int b = rp[i - 1] - 1, e = rp[i] - 1;
    if (e <= b || ci[b] != i) return false;
    for (int k = b + 1; k < e; ++k)
      if (ci[k] <= ci[k - 1] || ci[k] > n) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = vqfuzz::ScratchPath("sparse.mtx");
  vqfuzz::WriteFile(path, data, size);

  VQ_SparseSymMatrix s;
  const bool ok = s.ReadIn_MTX_Format(path.c_str(), size > 0 && (data[0] & 1));
  if (!ok) {
    VQFUZZ_CHECK(s.MatrixStatus() != 0);
    VQFUZZ_CHECK(s.GetOrder() == 0 && s.GetNumberOfNonZeros() == 0);
    return 0;
  }
  if (s.MatrixStatus() != 0) {
    VQFUZZ_CHECK(s.GetOrder() == 0);
    return 0;
  }
  VQFUZZ_CHECK(CanonicalLayout(s));
  const int n = s.GetOrder();
  if (n > 400) return 0;

  double sum = 0.0;
  for (int i = 1; i <= n; ++i) sum += s.Value(i, i) + s.Value(i, n + 1 - i) + s.Value(n + 1 - i, i);
  std::vector<double> x(static_cast<size_t>(n) * 2, 1.0), p(static_cast<size_t>(n) * 2, 0.0);
  if (n > 0) s.MultiplyDense(2, x.data(), n, p.data(), n);
  (void)sum;
  if (std::FILE* f = std::fopen("/dev/null", "w")) {
    s.StoreIn_MTX_Format(f);
    std::fclose(f);
  }
  VQ_SparseSymMatrix deep;
  deep.SetEqualTo(&s);
  VQFUZZ_CHECK(deep.GetNumberOfNonZeros() == s.GetNumberOfNonZeros());
  VQ_SparseSymMatrix shallow(s);
  shallow *= 2.0;

  // Small matrices go through PARDISO as they are: any values (NaN included) must come back as a
  // status, never as a crash.
  if (n >= 1 && n <= 40) {
    VQ_Matrix b(n, 1, 1.0), xsol(n, 1, 0.0);
    VQ_SparseSolver solver(&s, &b, 0, (size & 2) ? 2 : -2, false, "", &xsol);
    if (solver.ApplyDecomposition(true, true) == 0) solver.Solve();
  }
  return 0;
}
