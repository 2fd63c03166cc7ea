// Swap-file reader of the sparse symmetric matrix (VQ_SparseSymMatrix::ReadFromFile). A matrix
// writes its three swap files, which are then replaced by fuzz bytes (values, row pointers,
// columns), and reads them back with fuzzed flags. Whatever the files hold, the read either
// fails (empty matrix with a status) or leaves counts that match the arrays held, and every
// member that walks the arrays - element access, products, copies, the writers, the arithmetic -
// stays inside them, also when the rows are not in the canonical order.
// fuzz max_allocation_mb: 32
#include "FuzzSupport.h"
#include "dense/VQ_Matrix.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace {

void Exercise(VQ_SparseSymMatrix& s) {
  const int n = s.GetOrder();
  VQFUZZ_CHECK(n >= 0 && s.GetNumberOfNonZeros() >= 0);
  if (n > 300) return;
  double sum = 0.0;
  for (int i = 0; i <= n + 1; ++i)
    for (int j = 0; j <= n + 1; ++j) sum += s.Value(i, j) + (s.FindLoc(i, j) >= 0 ? 1.0 : 0.0);
  (void)sum;
  if (n > 0) {
    std::vector<double> x(static_cast<size_t>(n), 1.0), p(static_cast<size_t>(n), 0.0);
    s.MultiplyDense(1, x.data(), n, p.data(), n);
    VQ_Matrix column(n, 1, 1.0);
    VQ_Matrix product = s * column;
    (void)product;
  }
  if (std::FILE* f = std::fopen("/dev/null", "w")) {
    s.StoreIn_MTX_Format(f);
    std::fclose(f);
  }
  s.print("/dev/null", 0, true);
  s.WriteData("/dev/null");
  std::vector<double> diag(static_cast<size_t>(n) + 1, 0.0);
  s.GetListOfDiagonalTerms(diag.data(), n);
  double* v = nullptr;
  int* r = nullptr;
  int* c = nullptr;
  if (s.CopyPointers(&v, &r, &c)) {
    delete[] v;
    delete[] r;
    delete[] c;
  }
  VQ_SparseSymMatrix deep;
  deep.SetEqualTo(&s);
  VQ_Matrix dense(n, n, 0.0);
  VQ_SparseSymMatrix fromDense(&dense);
  VQ_SparseSymMatrix shallow(s);
  shallow *= 0.5;
  VQ_SparseSymMatrix other;
  other.SetEqualTo(&s);
  other.TwoSparseMatrixOperation(&s, 1.0, 2.0);
  other.AddSparseMatrix(&s, 1.0, false);
  s.CheckSubsetSparsity(&other);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string base = vqfuzz::ScratchPath("swap");
  FuzzedDataProvider in(data, size);
  const uint8_t flags = in.ConsumeIntegral<uint8_t>();
  const bool plusSign = flags & 1;
  const bool wanted[3] = {(flags & 2) != 0, (flags & 4) != 0, (flags & 8) != 0};
  std::string files[3];
  files[0] = in.ConsumeRandomLengthString(4096);
  files[1] = in.ConsumeRandomLengthString(4096);
  files[2] = in.ConsumeRemainingBytesAsString();

  // A 3 x 3 matrix of its own puts the three paths into its file list.
  const double values[] = {4.0, 1.0, 2.0, 5.0, 6.0};
  const int rowptr[] = {1, 4, 5, 6};
  const int colidx[] = {1, 2, 3, 2, 3};
  VQ_SparseSymMatrix s(3, values, rowptr, colidx);
  if (!s.WriteToFile(base.c_str(), plusSign, true, true, true)) std::abort();
  for (int k = 0; k < 3; ++k)
    vqfuzz::WriteFile(base + std::to_string(k + 1) + ".dat", files[k].data(), files[k].size());

  const bool ok = s.ReadFromFile(base.c_str(), plusSign, wanted[0], wanted[1], wanted[2]);
  if (!ok) VQFUZZ_CHECK(s.GetOrder() == 0 && s.GetNumberOfNonZeros() == 0 && s.MatrixStatus() != 0);
  Exercise(s);
  return 0;
}
