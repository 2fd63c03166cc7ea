#pragma once
// Plain compressed-row storage of a symmetric matrix, as the sparse solver takes it:
// upper triangle only, 1-based indices, every row stores its diagonal first (even when it is
// zero) and then its off-diagonal columns in ascending order.
//
// The model generators build these arrays directly; hand them to the library with
// values.data(), rowPointers.data() and columnIndices.data().

#include <string>
#include <vector>

namespace vqmath::models {

struct CsrMatrix {
  int n = 0;                       // order of the matrix
  std::vector<int> rowPointers;    // n+1 entries, rowPointers[0] = 1, rowPointers[n] = nnz+1
  std::vector<int> columnIndices;  // nnz entries, 1-based
  std::vector<double> values;      // nnz entries

  // Number of stored entries of the upper triangle.
  int Nnz() const { return static_cast<int>(values.size()); }

  // 0-based position of entry (i, j) (1-based, either triangle) in values, or -1 when not stored.
  long long Find(int i, int j) const;

  // Value of entry (i, j) (1-based, either triangle); 0.0 when not stored.
  double Value(int i, int j) const;
};

// y = A·x for the symmetric matrix whose upper triangle A stores (x and y hold A.n doubles and
// must not overlap).
void Multiply(const CsrMatrix& a, const double* x, double* y);
std::vector<double> Multiply(const CsrMatrix& a, const std::vector<double>& x);

// The full symmetric matrix as a dense n×n column-major array (both triangles filled).
std::vector<double> ToDense(const CsrMatrix& a);

// Builds the upper CSR of a dense column-major n×n array from its upper triangle; off-diagonal
// entries with |a_ij| <= dropTolerance are left out, diagonal entries are always stored.
CsrMatrix FromDense(int n, const double* dense, double dropTolerance = 0.0);

// The diagonal entries a_11 … a_nn.
std::vector<double> Diagonal(const CsrMatrix& a);

// A diagonal matrix as CSR (one entry per row).
CsrMatrix FromDiagonal(const std::vector<double>& diagonal);

// Builds the upper CSR from 1-based triplets (either triangle; an entry (i, j) with i > j is
// taken as (j, i)). Repeated entries are summed, absent diagonal entries are stored as 0.0.
// Throws std::invalid_argument on an index outside 1…n.
CsrMatrix FromTriplets(int n, const std::vector<int>& rows, const std::vector<int>& columns,
                       const std::vector<double>& values);

// K − σ·M on the union of both patterns (K and M of the same order).
CsrMatrix Shifted(const CsrMatrix& k, const CsrMatrix& m, double sigma);
// K − σ·diag(m) (m holds K.n doubles, e.g. a lumped mass).
CsrMatrix Shifted(const CsrMatrix& k, const std::vector<double>& m, double sigma);

// Checks the layout invariants (sizes, rowPointers[0] = 1, monotone row pointers, diagonal
// first in every row, strictly ascending columns after it, all columns in i+1…n).
// Returns an empty string when they hold, otherwise a description of the first violation.
std::string CheckLayout(const CsrMatrix& a);

// Writes "%%MatrixMarket matrix coordinate real symmetric" with the lower triangle, the way the
// published Harwell-Boeing collection stores it: a stored (i, j), i <= j, is written "j i value",
// column by column. Values are written with 17 significant digits. Returns false when the file
// cannot be written.
bool WriteMatrixMarket(const CsrMatrix& a, const std::string& path);

// Reads a symmetric MatrixMarket coordinate file with ReadSymmetricMatrix (models/MatrixMarket.h).
// Returns false (out unchanged) with the reader's message in *error when the file cannot be read
// or is malformed.
bool ReadMatrixMarket(const std::string& path, CsrMatrix& out, std::string* error = nullptr);

// An element matrix of the given order (dense, column-major, symmetric) packed as its upper
// triangle by columns: local entry (a, b), a <= b (1-based), at 1-based position
// b·(b−1)/2 + a — the form VQ_SysMatrixAssem takes.
std::vector<double> PackUpperByColumns(const double* dense, int order);

}  // namespace vqmath::models
