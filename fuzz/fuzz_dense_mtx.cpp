// MatrixMarket reader of the general dense matrix (VQ_Matrix::ReadIn_MTX_Format) on arbitrary
// bytes. Whatever the file says, the reader must stay inside the storage it allocated, leave a
// consistent object (sizes that match the storage, or empty with a status), and the object must
// survive being read element by element, written back and destroyed.
// fuzz max_allocation_mb: 32
#include "FuzzSupport.h"
#include "dense/VQ_Matrix.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = vqfuzz::ScratchPath("dense.mtx");
  vqfuzz::WriteFile(path, data, size);

  VQ_Matrix m;
  const bool verbose = size > 0 && (data[0] & 1);
  const bool ok = m.ReadIn_MTX_Format(path.c_str(), verbose);
  const int rows = m.NumRows(), cols = m.NumCols();
  VQFUZZ_CHECK(rows >= 0 && cols >= 0);
  VQFUZZ_CHECK(static_cast<long long>(rows) * cols <= m.GetSizeAllocated());
  if (!ok || m.MatrixStatus() != 0) return 0;

  // Large matrices (up to the allocation limit of the run) are only read: walking them here
  // would measure the harness, not the reader.
  if (static_cast<long long>(rows) * cols > 1 << 12) return 0;
  // Every element is readable; the text form is written without error.
  double sum = 0.0;
  for (int j = 1; j <= cols; ++j)
    for (int i = 1; i <= rows; ++i) sum += m.Value(i, j);
  (void)sum;
  if (std::FILE* f = std::fopen("/dev/null", "w")) {
    m.StoreIn_MTX_Format(f, (size & 1) != 0);
    std::fclose(f);
  }
  VQ_Matrix copy(m);
  VQFUZZ_CHECK(copy.NumRows() == rows && copy.NumCols() == cols);
  return 0;
}
