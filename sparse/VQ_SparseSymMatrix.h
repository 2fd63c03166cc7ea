// VQ_SparseSymMatrix.h - real symmetric sparse matrix of order n, stored as its upper triangle in
// compressed rows with 1-based indices: exactly the three-array form PARDISO takes for a symmetric
// matrix, so the solver hands the arrays over without conversion.
//
// Layout of a finished matrix (rowptr has n+1 entries, colidx and the values nnz entries):
//   - row i (1-based) occupies positions rowptr[i-1]-1 .. rowptr[i]-2 (0-based) of colidx/values;
//     rowptr[0] = 1 and rowptr[n] = nnz + 1;
//   - only entries with column >= row are stored; (i, j) with i > j is answered from (j, i);
//   - every row stores its diagonal, as the first entry of the row, even when it is 0.0, so the
//     last row holds exactly one entry;
//   - columns ascend within a row when the matrix was assembled or built from a dense or diagonal
//     matrix; arrays handed in ready-made are taken as they are.
//
// Building: from an order and then entry by entry (BeginMatrix / Add / EndMatrix, repeated entries
// summed), from ready compressed-row arrays (copied), from a dense matrix (entries with magnitude
// above machine epsilon, plus the whole diagonal) or from a diagonal matrix.
//
// Sharing: the copy constructor and the assignment do NOT duplicate the arrays; both objects then
// point at the same value, row pointer and column arrays, and a change made through one is seen
// through the other. The unary operators, the scalar operators and the sums with a diagonal matrix
// (SparseOperators.h) return such shallow copies, so `B = A * 2.0` doubles A as well. Each array
// is reference-counted: it is freed when the last object pointing at it lets it go (destruction,
// ReleaseMemory, or a rebuild of that object), never twice. SetEqualTo(VQ_SparseSymMatrix*) makes
// a deep copy.
//
// Failure style: nothing is thrown. Faults are kept in the sticky status of the base class:
// -1 allocation failure ("Cannot Allocate Memory" on standard output), -5 a file could not be
// opened, -6 a file was found but its contents are not a valid matrix, -7 division by a scalar
// under machine epsilon, -8 size mismatch, -66 an assembly that misses a diagonal entry or has
// indices outside 1..n ("Invalid Sparse Matrix Creation" on standard output).
//
// Element writes go only through Set, Add/EndMatrix or the arithmetic: Ref() (and so the element
// proxy m(i, j) = x) writes into a process-wide scratch value and never changes the matrix.
#ifndef VQMATH_SPARSE_VQ_SPARSESYMMATRIX_H
#define VQMATH_SPARSE_VQ_SPARSESYMMATRIX_H

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory_resource>
#include <string>
#include <vector>

#include "dense/VQ_DiagonalMatrix.h"
#include "dense/VQ_Matrix.h"
#include "dense/VQ_SymMatrix.h"
#include "sparse/SharedArray.h"

class VQMATH_DENSE_API VQ_SparseSymMatrix : public VQ_SymMatrix {
 public:
  // ---- building --------------------------------------------------------------------------------
  VQ_SparseSymMatrix();                // empty: n = 0, nnz = 0, no arrays
  explicit VQ_SparseSymMatrix(int n);  // order n, no arrays: ready for assembly
  // Copies n+1 row pointers and rowptr[n]-1 values and columns (1-based upper rows, not checked
  // beyond what is needed to copy them safely: a null array or a negative count leaves the object
  // empty with status -66).
  VQ_SparseSymMatrix(int n, const double* values, const int* rowptr, const int* colidx);
  explicit VQ_SparseSymMatrix(VQ_Matrix* a);          // SetEqualTo(a)
  explicit VQ_SparseSymMatrix(VQ_DiagonalMatrix* d);  // diagonal layout; stays empty on mismatch
  // Shallow by design: shares the three arrays with other (status and file list not copied).
  VQ_SparseSymMatrix(const VQ_SparseSymMatrix& other);
  VQ_SparseSymMatrix& operator=(const VQ_SparseSymMatrix& other);
  // ReleaseMemory(), then deletes every file of the file list.
  ~VQ_SparseSymMatrix() override;

  // Fresh arrays of nnz values (all v), n+1 row pointers and nnz columns (all 0); the object lets
  // go of the arrays it held before. False (status -1, message, n = nnz = 0) when out of memory.
  bool Initialize(double v);
  // Copies nnz values, n+1 row pointers and nnz columns into the held arrays.
  void CopyData(const double* values, const int* colidx, const int* rowptr);
  // From a square dense matrix read through Value: entries |a_ij| > machine epsilon of the upper
  // triangle plus every diagonal entry. 0, or -1 (status -8 when a is not square, -1 no memory).
  int SetEqualTo(VQ_Matrix* a);
  // Deep copy. 0 or -1.
  int SetEqualTo(VQ_SparseSymMatrix* s);
  // Diagonal layout from d; a count that does not match d's order gives status -8. 0 or -1.
  int SetEqualTo(VQ_DiagonalMatrix* d);
  // Entries that SetEqualTo(a) would store.
  int CountNonzeroTerms(VQ_Matrix* a);
  void SetBounds(int n);    // rows = cols = n; nothing else
  void SetValue(double v);  // every stored value = v, pattern unchanged

  // ---- virtual operations of the matrix family --------------------------------------------------
  void Redimension(int rows, int cols, double value) override;  // does nothing at all
  // Lets go of the three arrays, n = nnz = 0, clears the assembly buffer and the work arrays.
  // The file list is kept.
  void ReleaseMemory() override;
  double Value(int i, int j) const override;  // stored value, 0.0 when not stored
  // Reference to one process-wide scratch double, set to 0.0 on every call: never the matrix.
  double& Ref(int i, int j) override;
  // Same as Value / Ref (the packed index rule of the dense symmetric base does not apply here).
  double Value_(int i, int j) const override;
  double& Ref_(int i, int j) override;

  // ---- assembly ---------------------------------------------------------------------------------
  void BeginMatrix();  // clears the buffer and the work arrays; n must already be set
  // Adds v to entry (min(i,j), max(i,j)). True when the entry is new, false when v was summed into
  // an entry already present. Indices are expected in 1..n.
  bool Add(int i, int j, const double& v);
  // Builds the compressed rows from the buffer (every row needs its diagonal entry at least once)
  // and clears the buffer. False with status -66 (missing diagonal / bad index, n becomes 0) or -1.
  bool EndMatrix();
  // The conversion step of EndMatrix; fills the work arrays only.
  bool ResolveMatrix();

  // ---- access -----------------------------------------------------------------------------------
  // 0-based position of (i, j) (either triangle) in the value array, -1 when not stored.
  int FindLoc(int i, int j) const;
  // Overwrites a stored entry (true); false and no change when it is not stored. Never inserts.
  bool Set(int i, int j, const double& v);
  // The raw arrays, lent (not transferred): n+1 row pointers, nnz columns, nnz values.
  int* GetRowVectorPointer() const { return rowptr_; }
  int* GetColumnVectorPointer() const { return colidx_; }
  double* GetValuePointer() const { return data; }
  int GetOrder() const { return rows; }
  int GetNumberOfNonZeros() const { return size; }  // stored upper-triangle entries (nnz)
  // New arrays (nnz values, n+1 row pointers, nnz columns) handed to the caller, who frees them
  // with delete[]. False (nothing handed over) when an allocation fails.
  bool CopyPointers(double** values, int** rowptr, int** colidx) const;
  // out[i-1] = Value(i, i); false when n differs from the order.
  bool GetListOfDiagonalTerms(double* out, int n) const;
  int CountNonZeroDiagonalTerms(double tol) const;  // |Value(i, i)| > tol
  bool IsSparseMatrixDiagonal() const;              // nnz == rows == cols
  // Same order, nnz, row pointers and columns (values ignored).
  bool CheckSparsity(const VQ_SparseSymMatrix* b) const;
  // Every stored entry of b is stored here too.
  bool CheckSubsetSparsity(const VQ_SparseSymMatrix* b) const;
  // Megabytes (1e6 bytes) of the three arrays: ((n+1)*4 + nnz*8 + nnz*4) / 1e6.
  double ReturnMemoryUsage() const;

  // ---- arithmetic -------------------------------------------------------------------------------
  VQ_SparseSymMatrix& operator*=(double s);
  VQ_SparseSymMatrix& operator/=(double s);  // |s| < machine epsilon: status -7, unchanged
  // Value by value when the patterns are the same; otherwise nothing happens (silently).
  VQ_SparseSymMatrix& operator+=(const VQ_SparseSymMatrix& b);
  VQ_SparseSymMatrix& operator-=(const VQ_SparseSymMatrix& b);
  VQ_SparseSymMatrix operator+() const;  // shallow copy
  VQ_SparseSymMatrix operator-() const;  // shallow copy, negated: negates this matrix too
  // value[k] += f * b.value[k]; with check, false and no change when the patterns differ.
  bool AddSparseMatrix(const VQ_SparseSymMatrix* b, double f, bool check);
  // this := alpha*this + beta*b, merging the patterns when b holds entries this one lacks. False
  // (unchanged) when the orders differ; the scaling by alpha happens before any later failure.
  bool TwoSparseMatrixOperation(const VQ_SparseSymMatrix* b, double alpha, double beta);
  // P = this * X for m column-major columns (X with leading dimension ldx >= n, P with ldp >= n;
  // P's first n rows are overwritten): the stored upper triangle acts as the full symmetric
  // matrix. Cost O(nnz * m). Each element of P is summed in storage order of the entries.
  void MultiplyDense(int m, const double* X, int ldx, double* P, int ldp) const;

  // ---- files ------------------------------------------------------------------------------------
  // Swap files base+"1.dat" (values), base+"2.dat" (row pointers), base+"3.dat" (columns): the
  // count on the first line, then one number per line. Each file written joins the file list and
  // is deleted when this object is destroyed.
  bool WriteToFile(const char* base, bool plusSign, bool values, bool rowPointers, bool columns);
  // Reads back the requested swap files. Only files of this object's file list are read: when a
  // requested file is not in the list, nothing at all is read and the result is false (status
  // untouched). Unreadable or inconsistent contents: false, n = nnz = 0 (status -5, -6 or -1).
  bool ReadFromFile(const char* base, bool plusSign, bool values, bool rowPointers, bool columns);
  void AddToFileList(std::string path);  // key and value are the path; once only
  const std::map<std::string, std::string>& GetFileList() const { return fileList_; }
  // MatrixMarket "coordinate real symmetric", upper triangle row by row, to an open stream.
  void StoreIn_MTX_Format(FILE* f) const;
  // Reads a MatrixMarket coordinate real/integer symmetric file (either triangle, repeated entries
  // summed, '%' comments, CRLF). Missing file: status -5, false. Malformed header, size line or
  // entries (indices out of range, truncated): status -6, false, matrix empty. A file lacking a
  // diagonal entry: true, but the matrix is empty with status -66.
  bool ReadIn_MTX_Format(const char* path, bool report);
  // Full symmetric matrix as text ("%e" or "%12.8f"); append != 0 appends to the file.
  void print(const char* path, int append, bool scientific) const;
  // Raw dump: values ("%12.8f \n"), then row pointers and columns ("%d \n").
  void WriteData(const char* path) const;

 private:
  // Points the base value pointer and the two index pointers at the held arrays.
  void SyncPointers();
  void SetStatus(int code) const { status = static_cast<MATLIBDLLCOMMONS::STATE_STATUS>(code); }
  void ClearWork();
  void ClearBuffer();
  void FailInvalidCreation();
  // Adopts ready arrays as the new content (sizes n, nnz).
  void Adopt(int n, vqmath::internal::SharedArray<double> values,
             vqmath::internal::SharedArray<int> rowptr, vqmath::internal::SharedArray<int> colidx);
  bool ReadSwapFile(const std::string& path, int which);
  bool LayoutIsConsistent() const;
  // Rows 1..n held, diagonal first, then strictly ascending columns up to n, rowptr[n]-1 = nnz.
  bool HasCanonicalLayout() const;
  // SetEqualTo(VQ_Matrix*) of a sparse matrix in canonical layout, in O(nnz).
  int ThinCopyOf(const VQ_SparseSymMatrix* s);
  // Lets go of the held arrays (never frees them while another object shares them).
  void DropArrays();
  // Detaches the base value pointer from the held value array before that array changes.
  void DetachData();
  // Rows whose row pointers are actually held, and entries actually held: every walk over the
  // arrays is bounded by these, whatever SetBounds or hand-made arrays did to the counts.
  int HeldRows() const;
  int HeldEntries() const;
  // Clamped 0-based range [begin, end) of row i (1-based) in the entry arrays.
  void RowRange(int i, int& begin, int& end) const;

  // Held arrays (reference-counted, possibly shared) and raw views of them.
  vqmath::internal::SharedArray<double> valueBlock_;
  vqmath::internal::SharedArray<int> rowBlock_;
  vqmath::internal::SharedArray<int> colBlock_;
  int* rowptr_ = nullptr;
  int* colidx_ = nullptr;

  std::map<std::string, std::string> fileList_;  // temporary files made for this matrix
  // Entries added since BeginMatrix: an ordered map whose nodes come from a pool that is released
  // in one piece when the assembly ends (no per-node frees), plus a position hint (the entry
  // touched last), because finite-element assembly often adds the next stored entry after it.
  std::pmr::monotonic_buffer_resource bufferPool_;
  std::pmr::map<std::int64_t, double> buffer_{&bufferPool_};
  std::pmr::map<std::int64_t, double>::iterator hint_ = buffer_.end();
  std::vector<double> workValues_;  // scratch of ResolveMatrix
  std::vector<int> workRowPointers_;
  std::vector<int> workColumns_;
  bool assemblyOutOfMemory_ = false;  // an Add could not store its entry
};

#include "sparse/SparseOperators.h"

#endif  // VQMATH_SPARSE_VQ_SPARSESYMMATRIX_H
