#pragma once
// MatrixMarket files: symmetric matrices into the compressed-row layout of CsrMatrix, load
// vectors and lumped masses into dense arrays, dense blocks out. The one reader of the project:
// vqsolve, vqsolve-mpi, the tests and the benchmarks read their matrices through it.
//
// Accepted: "%%MatrixMarket matrix coordinate real|integer symmetric|general" for matrices,
// and in addition "array real|integer general" for load vectors and lumped masses. '%' comment
// lines, blank lines and CRLF line ends are accepted. Every malformed input raises InputError
// with a message of the form "<file>:<line>: <what is wrong>".

#include <stdexcept>
#include <string>
#include <vector>

#include "models/CsrMatrix.h"

namespace vqmath::models {

// Bad input: a file that is missing or malformed, or arguments that do not fit together.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A dense block, column-major (rows × cols).
struct DenseBlock {
  int rows = 0;
  int cols = 0;
  std::vector<double> values;
};

// A symmetric matrix as its upper triangle in compressed rows, 1-based, diagonal first in
// every row (stored as 0.0 when absent), ascending columns after it. Symmetric files may hold
// either triangle (or both: repeated entries are summed, as they are within a general file).
// Of a general file, an entry stored in both triangles must agree in both (otherwise the file
// is rejected as unsymmetric); an entry stored in one triangle only is taken for both.
CsrMatrix ReadSymmetricMatrix(const std::string& path);

// A dense block: an array file, or a coordinate file whose entries are scattered into zeros.
DenseBlock ReadDenseBlock(const std::string& path);

// A lumped mass: a vector file (n × 1 or 1 × n) or the diagonal of a square file that holds no
// off-diagonal non-zero.
std::vector<double> ReadDiagonal(const std::string& path);

// Writes a dense block as "%%MatrixMarket matrix array real general" with 17 significant
// digits; the comment (may be empty) becomes a '%' line. Throws InputError when the file
// cannot be written.
void WriteDenseBlock(const std::string& path, const DenseBlock& block, const std::string& comment);

}  // namespace vqmath::models
