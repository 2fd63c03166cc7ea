// MtxReader.h - tolerant token reader for MatrixMarket coordinate files (dense readers).
//
// Lines whose first non-blank character is '%' (the banner and comments) and blank lines are
// skipped wherever they appear; CR before LF is ignored. Tokens are separated by blanks, tabs or
// line ends. Reading stops at the first token that is not a number of the expected kind, so a
// malformed file ends the entries early instead of producing garbage.
#ifndef VQMATH_DENSE_INTERNAL_MTXREADER_H
#define VQMATH_DENSE_INTERNAL_MTXREADER_H

#include <fstream>
#include <string>
#include <vector>

namespace vqdense {

class MtxReader {
 public:
  explicit MtxReader(const char* path);
  bool is_open() const { return in_.is_open(); }
  // rows, columns and entry count of the size line; false when it is missing or malformed.
  bool ReadSizeLine(long long& rows, long long& cols, long long& count);
  // One (i, j, value) triple; false at the end of the data or at a malformed token.
  bool ReadEntry(long long& i, long long& j, double& v);
  // A size read from a file as an int for Redimension: values that do not fit become -1, which
  // the allocation rejects (status -1, sizes 0).
  static int ClampSize(long long v);

 private:
  bool NextToken(std::string& token);
  bool NextInteger(long long& v);
  bool NextDouble(double& v);

  std::ifstream in_;
  std::vector<std::string> tokens_;
  size_t next_ = 0;
};

}  // namespace vqdense

#endif  // VQMATH_DENSE_INTERNAL_MTXREADER_H
