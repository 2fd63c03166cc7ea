#pragma once
// A symmetric matrix in the layout the library's entry points take: the upper triangle in
// compressed rows, 1-based, 32-bit indices, the diagonal first in every row (stored even when
// it is zero) and the other columns ascending. Built once from whatever the caller holds: a
// full symmetric matrix or one of its triangles, as compressed rows, compressed columns or
// triplets with 32- or 64-bit indices, or a dense array.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace vqpy {

// Raised for input the library must not see; the module turns it into ValueError.
class InputError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

struct UpperCsr {
    int n = 0;
    std::vector<int> rowPointers;    // n + 1, rowPointers[0] = 1
    std::vector<int> columnIndices;  // nnz, 1-based
    std::vector<double> values;      // nnz

    long long Nnz() const { return static_cast<long long>(values.size()); }
    // Every row holds its diagonal only: a lumped mass, for instance.
    bool IsDiagonal() const { return Nnz() == n; }
    std::vector<double> Diagonal() const;
};

// How the index arrays of the caller describe the entries.
enum class Layout {
    Rows,     // pointers over rows, indices are columns (CSR)
    Columns,  // pointers over columns, indices are rows (CSC)
    Triplets  // first array holds the row, second the column of each entry (COO)
};

// Converts n x n input with `count` entries. For Rows and Columns `first` holds n + 1
// (0-based) pointers; for Triplets it holds the row of each entry. Index is int32_t or
// int64_t. Entries repeated are summed. When both triangles hold entries the matrix must be
// symmetric to within symmetryTolerance times its largest absolute value. Throws InputError
// for indices out of range, values that are not finite, an unsymmetric matrix, and a matrix
// too large for 32-bit indices.
template <typename Index>
UpperCsr ToUpperCsr(long long n, Layout layout, const Index* first, const Index* second,
                    const double* values, long long count, double symmetryTolerance);

// The same from a dense n x n array with element (i, j) at data[i * rowStride + j * colStride].
UpperCsr DenseToUpperCsr(long long n, const double* data, long long rowStride, long long colStride,
                         double symmetryTolerance);

// A diagonal matrix (one entry per row).
UpperCsr FromDiagonal(const double* diagonal, long long n);

// K - sigma * B on the union of both patterns.
UpperCsr Shifted(const UpperCsr& k, const UpperCsr& b, double sigma);

}  // namespace vqpy
