// VQ_DiagonalMatrix.h - diagonal matrix of order n holding only its n diagonal values.
//
// Value k lives at data[k-1]. Value(i, j) is d_i when i = j and 0.0 otherwise; Ref(i, j) ignores j
// and addresses d_i, so writing any (i, j) writes (i, i).
//
// Type marks: constructors set DIAGONAL_MATRIX, except the copy constructor, which sets
// SYM_MATRIX (kept on purpose; T(), the unary plus and the operators built on copies inherit it).
#ifndef VQMATH_DENSE_VQ_DIAGONALMATRIX_H
#define VQMATH_DENSE_VQ_DIAGONALMATRIX_H

#include "dense/VQ_SymMatrix.h"

class VQMATH_DENSE_API VQ_DiagonalMatrix : public VQ_SymMatrix {
 public:
  VQ_DiagonalMatrix();                      // empty, DIAGONAL_MATRIX
  VQ_DiagonalMatrix(int n, double value);   // all n values = value
  VQ_DiagonalMatrix(int n, double* d);      // values copied from d[0..n-1]
  VQ_DiagonalMatrix(const VQ_DiagonalMatrix& other);              // type SYM_MATRIX (deliberate)
  VQ_DiagonalMatrix& operator=(const VQ_DiagonalMatrix& other);   // order and values

  ~VQ_DiagonalMatrix() override;
  // Reallocates to order n (second size ignored) and fills the n values.
  void Redimension(int n, int ignored, double value) override;
  double Value(int i, int j) const override;
  double& Ref(int i, int j) override;
  double Value_(int i, int j) const override;
  double& Ref_(int i, int j) override;

  // Reallocates to s->NumRows() and takes value k = s->Value(k, k).
  void CopyDiagonalTerms(const VQ_SparseSymMatrix* s);
  void SetValue(double v);
  VQ_DiagonalMatrix T() const;   // a copy
  // General n x n matrix: the identity with the n reciprocals written into its first n storage
  // positions (its first column); |d| < 1e-20 gives 1e20. The system's own layout, kept.
  VQ_Matrix Inverse() const;
  // Diagonal of reciprocals; |d| < 1e-20 gives 1e20.
  VQ_DiagonalMatrix InverseDiag() const;
  int CountNonZeroDiagonalTerms(double tol) const;   // |d_k| > tol
  // s = m' D m, s redimensioned to order m.NumCols().
  void MtSM(const VQ_Matrix& m, VQ_SymMatrix& s) const;
  // r = D m into r's existing storage; rows with |d_i| <= machine epsilon are left untouched.
  void MultiplyWithMatrix(const VQ_Matrix& m, VQ_Matrix& r) const;

  // MatrixMarket "real symmetric" with one line per diagonal value; skipZeros drops
  // |d| <= machine epsilon but the size line still counts n entries.
  void StoreIn_MTX_Format(FILE* f, bool skipZeros) const;
  // Reads diagonal entries; off-diagonal entries are dropped (status -6 and a message only when
  // verbose). Missing file: status -5, false.
  bool ReadIn_MTX_Format(const char* path, bool verbose);

  VQ_DiagonalMatrix operator+() const;   // a copy
  // An order-1 object whose value is the negation of the first value (see VQ_SymMatrix).
  VQ_DiagonalMatrix operator-() const;
  VQ_DiagonalMatrix& operator*=(double s);
  VQ_DiagonalMatrix& operator/=(double s);   // -7 when |s| < 2.220446049250313e-16
  // Value-wise over b's order (values beyond this order are not touched).
  VQ_DiagonalMatrix& operator+=(const VQ_DiagonalMatrix& b);
  VQ_DiagonalMatrix& operator-=(const VQ_DiagonalMatrix& b);

 protected:
  int Size() const { return rows; }
  int Shift(int i, int /*j*/) const { return i - 1; }
  // Reallocates to order n (n values, contents not cleared); status 0 or -1.
  bool Initialize(int n);
};

// ---- free operators -----------------------------------------------------------------------------
VQMATH_DENSE_API VQ_DiagonalMatrix operator*(const VQ_DiagonalMatrix& a, double s);
VQMATH_DENSE_API VQ_DiagonalMatrix operator*(double s, const VQ_DiagonalMatrix& a);
VQMATH_DENSE_API VQ_DiagonalMatrix operator/(const VQ_DiagonalMatrix& a, double s);
VQMATH_DENSE_API VQ_DiagonalMatrix operator+(const VQ_DiagonalMatrix& a, const VQ_DiagonalMatrix& b);
VQMATH_DENSE_API VQ_DiagonalMatrix operator-(const VQ_DiagonalMatrix& a, const VQ_DiagonalMatrix& b);
// Value-wise products, order of a; all zeros (no status) when the orders differ.
VQMATH_DENSE_API VQ_DiagonalMatrix operator*(const VQ_DiagonalMatrix& a, const VQ_DiagonalMatrix& b);
// A*D through PostMultiply; D*A is the row scaling d_i * A(i, j).
VQMATH_DENSE_API VQ_Matrix operator*(const VQ_Matrix& a, const VQ_DiagonalMatrix& d);
VQMATH_DENSE_API VQ_Matrix operator*(const VQ_DiagonalMatrix& d, const VQ_Matrix& a);

#endif  // VQMATH_DENSE_VQ_DIAGONALMATRIX_H
