// VQ_Matrix.h - the general dense matrix of doubles and root of the dense matrix family.
//
// Storage is column-major with 1-based indices: element (i, j) lives at data[(j-1)*rows + (i-1)].
// VQ_SymMatrix (packed upper triangle), VQ_DiagonalMatrix, VQ_ColVector and VQ_RowVector derive
// from it; the sparse symmetric matrix derives from VQ_SymMatrix. Generic algorithms read their
// operands through the virtual Value(i, j), so a symmetric or diagonal operand is seen as its full
// square form; members documented as "raw" walk `data` directly in the general layout.
//
// Failure style: nothing is thrown. Faults are kept in the sticky `status` (see MatrixTypes.h):
// -1 allocation failure, -7 division under the threshold, -8 size mismatch (the operation still
// runs over the sizes it read). Element access is not bounds-checked.
//
// Storage ownership, for derived classes: `data` arrays are allocated with std::malloc and
// released with std::free, through AllocateValueStorage()/FreeValueStorage(). An object never
// frees storage adopted by CopyShallow(); storage it allocated itself is freed by its destructor
// even when the `shallow` mark was inherited from a shallow source. A derived class that installs
// its own `data` array must allocate it with std::malloc (or AllocateValueStorage), or free it and
// set `data` to nullptr in its own destructor / ReleaseMemory().
#ifndef VQMATH_DENSE_VQ_MATRIX_H
#define VQMATH_DENSE_VQ_MATRIX_H

#include <cstdio>
#include <string>

#include "dense/MatrixTypes.h"
#include "dense/VQ_MatrixAux.h"

class VQ_ColVector;
class VQ_SymMatrix;
class VQ_DiagonalMatrix;
class VQ_SparseSymMatrix;

class VQMATH_DENSE_API VQ_Matrix {
 public:
  // Every constructor sets type = MATRIX, status = 0 and shallow = false first.
  VQ_Matrix();                                      // empty: no storage, sizes 0
  VQ_Matrix(int rows, int cols);                    // rows x cols zeros
  VQ_Matrix(int rows, int cols, double value);      // rows x cols, all `value`
  VQ_Matrix(int rows, int cols, double* values);    // copy of rows*cols values, column-major
  // Deep copy of other's rows x cols storage; takes over other's type, status and shallow mark.
  VQ_Matrix(const VQ_Matrix& other);
  VQ_Matrix& operator=(const VQ_Matrix& other);

  // ---- virtual operations, in this order -------------------------------------------------------
  virtual ~VQ_Matrix();
  // Proxy for element (i, j): reads through Value, writes through Ref.
  virtual VQ_MatrixAux operator()(int i, int j);
  // Reallocates to rows x cols and sets every stored element to value.
  virtual void Redimension(int rows, int cols, double value);
  virtual void GetBounds(int& rows, int& cols) const;
  virtual int NumRows() const;
  virtual int NumCols() const;
  // Frees the storage (never storage adopted by CopyShallow) and sets rows, cols and size to 0.
  // `shallow` and `status` are left as they are.
  virtual void ReleaseMemory();
  virtual double Value(int i, int j) const;
  virtual double& Ref(int i, int j);
  virtual double Value_(int i, int j) const;
  virtual double& Ref_(int i, int j);

  // ---- accessors -------------------------------------------------------------------------------
  MATLIBDLLCOMMONS::MATRIX_TYPE MatrixType() const { return type; }
  MATLIBDLLCOMMONS::STATE_STATUS MatrixStatus() const { return status; }
  double* GetDataPointer() const { return data; }
  int GetSizeAllocated() const { return size; }
  // Text of the type: "MATRIX", "SYM_MATRIX", ..., "UNDETERMINED" for unknown values.
  std::string GetMatrixType() const;
  // True when `data` holds the general column-major layout of rows x cols (not a packed kind), so
  // that element (i, j) may be read raw at data[(j-1)*rows + (i-1)].
  bool HasGeneralLayout() const;

  // ---- storage and whole-matrix members --------------------------------------------------------
  void SetValue(double v);                                  // every stored element = v
  void SetIdentityMatrix(int n);                            // Redimension(n, n, 0), diagonal 1
  void Copy(double* dst) const;                             // the `size` stored doubles to dst
  void CopyFromMatrixForm(int rows, int cols, double* src); // reallocate, copy rows*cols doubles
  // Adopts src as storage without copying (shallow = true); the object never frees it.
  void CopyShallow(int rows, int cols, double* src);
  void CopyToDiag(int n, double* d);                        // n x n with diagonal d[0..n-1]
  // Raw copy of this object's `size` doubles from other (no reallocation, no size check; never
  // reads beyond other's storage).
  void SetEqualTo(const VQ_Matrix* other);
  // Full square form of a sparse or packed symmetric matrix.
  void SetEqualTo(const VQ_SparseSymMatrix& s);
  void SetEqualTo(const VQ_SymMatrix& s);
  void Add(const VQ_Matrix& b);        // raw this += b over this size (when both hold storage)
  void Subtract(const VQ_Matrix& b);   // raw this -= b over this size
  // a == b; when they differ the status becomes -8 (the status is mutable).
  bool ConfirmEQ(int a, int b) const;

  // ---- columns (1-based; 0 on success, -1 when a check fails and nothing changed) ---------------
  int InsertVector(const VQ_ColVector& v, int j);
  int InsertVector(const VQ_Matrix& src, int srcCol, int dstCol);
  int ExtractVector(VQ_ColVector& v, int j) const;
  int ExtractVector(VQ_Matrix& dst, int dstCol, int srcCol) const;
  int ExtractVector(int n, double* dst, int j) const;
  int ReadVector(VQ_ColVector& v, int j) const;   // v redimensioned to NumRows() x 1
  void ApplyScaleToColumn(double s, int j);
  void CopyColumnsToGivenMatrix(VQ_Matrix* dst, int n) const;
  // Partition with m = rows - n: a = leading m x m, e = m x n upper right, b = trailing n x n.
  bool ObtainSubMatrices(VQ_Matrix& a, VQ_Matrix& b, VQ_Matrix& e, int n) const;

  // ---- norms and diagonal queries --------------------------------------------------------------
  double Norm() const;        // sqrt of the sum of squares of the `size` stored doubles
  // 0.0 when j is out of 1..cols, otherwise the Euclidean norm of the LAST column (deliberate).
  double Norm(int j) const;
  int NumberOfNonZeroDiagonalTerms(double tol) const;   // |Value(k,k)| > tol
  bool GetListOfDiagonalTerms(double* out) const;       // false when not square

  // ---- products and derived matrices -----------------------------------------------------------
  VQ_Matrix T() const;
  VQ_Matrix Squared() const;   // element-wise squares of the stored doubles
  // P = A*B into P's existing storage (not resized). A.cols != B.rows sets A's status -8.
  void PostMultiply(const VQ_Matrix& B, VQ_Matrix& P) const;
  // P = B*A.
  void PreMultiply(const VQ_Matrix& B, VQ_Matrix& P) const;
  // P = A*S / P = S*A; factors of magnitude <= machine epsilon are treated as exact zeros.
  void PostMultiply(const VQ_SymMatrix& S, VQ_Matrix& P) const;
  void PreMultiply(const VQ_SymMatrix& S, VQ_Matrix& P) const;
  // P = A*D. The PreMultiply overload computes the same A*D (deliberate, not D*A).
  void PostMultiply(const VQ_DiagonalMatrix& D, VQ_Matrix& P) const;
  void PreMultiply(const VQ_DiagonalMatrix& D, VQ_Matrix& P) const;
  // Gauss-Jordan inverse without pivoting (a zero pivot gives infinities / NaNs).
  VQ_Matrix Inverse() const;
  // Modified Gram-Schmidt on the columns, in place; with check, verifies orthonormality.
  bool ObtainOrthogonalizedForm(bool check);
  static void PrintMessage(const char* text);
  // Appends "%d" of n to the caller's buffer text and prints it.
  static void PrintMessage2(char* text, int n);

  // ---- member operators ------------------------------------------------------------------------
  VQ_Matrix operator+() const;
  VQ_Matrix operator-() const;
  VQ_Matrix& operator+=(const VQ_Matrix& B);   // over B's sizes; -8 if sizes differ
  VQ_Matrix& operator-=(const VQ_Matrix& B);
  VQ_Matrix& operator*=(double s);
  VQ_Matrix& operator/=(double s);             // -7 when |s| < 2.2250738585072014e-308

  // ---- files -----------------------------------------------------------------------------------
  // MatrixMarket coordinate "real general" to an open stream; skipZeros drops |v| <= DBL_MIN.
  void StoreIn_MTX_Format(FILE* f, bool skipZeros) const;
  // Reads a MatrixMarket coordinate file (Redimension, then entries through Ref). '%' lines and
  // CRLF endings are accepted; entries outside the declared size are skipped. Missing file:
  // status -5, false.
  bool ReadIn_MTX_Format(const char* path, bool verbose);
  // Bracketed text dump; append = 0 truncates the file, any other value appends.
  void print(const char* path, int append, bool scientific) const;
  // Binary snapshot: base + "1.dat" holds the header (rows, cols, size, type, status, shallow as
  // six 32-bit integers), base + "2.dat" the `size` stored doubles in storage order.
  bool WriteToFile(const char* base, bool verbose) const;
  // Restores a snapshot written by WriteToFile (into this object's own storage kind); when
  // removeFiles is true the two files are deleted after a successful read.
  bool ReadFromFile(const char* base, bool verbose, bool removeFiles);

 protected:
  int Size() const { return rows * cols; }

  // Allocation of a rows x cols general storage: releases the old storage (virtual ReleaseMemory),
  // sets the sizes, allocates without throwing (status 0, contents not cleared) or fails with
  // status -1, sizes 0 and the allocation message on standard output.
  bool Initialize(int rows, int cols);
  // Frees `data` unless it was adopted by CopyShallow; sets `data` to nullptr.
  void FreeValueStorage();
  // Allocates `count` doubles for `data` (after FreeValueStorage()). count < 0 or count beyond the
  // 32-bit `size` fails: rows = cols = size = 0, status -1, message. count 0 gives no storage.
  bool AllocateValueStorage(long long count);
  // Writes ">>>>>>> Cannot Allocate Memory !..... <<<<<< " to standard output.
  static void ReportNoMemory();
  int rows;
  int cols;
  double* data;
  int size;
  MATLIBDLLCOMMONS::MATRIX_TYPE type;
  mutable MATLIBDLLCOMMONS::STATE_STATUS status;
  bool shallow;

 private:
  int Shift(int i, int j) const { return (j - 1) * rows + (i - 1); }

  // The block this object allocated itself (freed even under an inherited shallow mark).
  double* ownedStorage_;
};

// ---- free operators between general matrices ---------------------------------------------------
VQMATH_DENSE_API VQ_Matrix operator+(const VQ_Matrix& a, const VQ_Matrix& b);
VQMATH_DENSE_API VQ_Matrix operator-(const VQ_Matrix& a, const VQ_Matrix& b);
VQMATH_DENSE_API VQ_Matrix operator*(const VQ_Matrix& a, const VQ_Matrix& b);
VQMATH_DENSE_API VQ_Matrix operator*(const VQ_Matrix& a, double s);
VQMATH_DENSE_API VQ_Matrix operator*(double s, const VQ_Matrix& a);
VQMATH_DENSE_API VQ_Matrix operator/(const VQ_Matrix& a, double s);

#endif  // VQMATH_DENSE_VQ_MATRIX_H
