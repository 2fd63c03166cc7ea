// MatrixMarket reader of the diagonal matrix (VQ_DiagonalMatrix::ReadIn_MTX_Format) on arbitrary
// bytes: off-diagonal and out-of-range entries are dropped, the order read must match the
// storage, and the object stays usable.
// fuzz max_allocation_mb: 32
#include "FuzzSupport.h"
#include "dense/VQ_DiagonalMatrix.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = vqfuzz::ScratchPath("diagonal.mtx");
  vqfuzz::WriteFile(path, data, size);

  VQ_DiagonalMatrix d;
  const bool verbose = size > 0 && (data[0] & 1);
  const bool ok = d.ReadIn_MTX_Format(path.c_str(), verbose);
  const int n = d.NumRows();
  VQFUZZ_CHECK(n >= 0);
  VQFUZZ_CHECK(n <= d.GetSizeAllocated());
  if (!ok || (d.MatrixStatus() != 0 && d.MatrixStatus() != -6)) return 0;

  if (n > 1 << 12) return 0;  // large ones are only read (see the dense target)
  double sum = 0.0;
  for (int i = 1; i <= n; ++i) sum += d.Value(i, i) + d.Value(i, n + 1 - i);
  (void)sum;
  if (std::FILE* f = std::fopen("/dev/null", "w")) {
    d.StoreIn_MTX_Format(f, (size & 1) != 0);
    std::fclose(f);
  }
  VQ_DiagonalMatrix inverse = d.InverseDiag();
  VQFUZZ_CHECK(inverse.NumRows() == n || inverse.MatrixStatus() != 0);
  return 0;
}
