// VQ_SymMatrix.h - dense symmetric matrix held as its packed upper triangle.
//
// Order n (rows = cols = n), size = n(n+1)/2 doubles. The upper triangle is stored column by
// column (column j contributes rows 1..j), the layout of BLAS packed 'U' storage: for 1-based
// i <= j the position is (j-1)*j/2 + (i-1); for i > j the indices are swapped first, so both
// triangles address the same value. Value/Ref implement that rule, so every generic VQ_Matrix
// algorithm sees the full square form.
//
// Type marks: constructors set SYM_MATRIX, except the copy constructor, which sets MATRIX (kept on
// purpose; T() and the unary plus are copies and report MATRIX as well).
#ifndef VQMATH_DENSE_VQ_SYMMATRIX_H
#define VQMATH_DENSE_VQ_SYMMATRIX_H

#include <iosfwd>

#include "dense/VQ_Matrix.h"

class VQMATH_DENSE_API VQ_SymMatrix : public VQ_Matrix {
 public:
  VQ_SymMatrix();                        // empty, SYM_MATRIX
  VQ_SymMatrix(int n, double value);     // order n, every stored value = value
  VQ_SymMatrix(int n, double* diag);     // order n, zeros, diagonal from diag[0..n-1]
  // Order s->NumRows(), stored (i, j) = s->Value(i, j) for i <= j.
  explicit VQ_SymMatrix(const VQ_SparseSymMatrix* s);
  VQ_SymMatrix(const VQ_SymMatrix& other);              // raw copy; type MATRIX (deliberate)
  VQ_SymMatrix& operator=(const VQ_SymMatrix& other);   // raw copy; type unchanged

  ~VQ_SymMatrix() override;
  // Reallocates to order n (the second size is ignored) and fills all n(n+1)/2 values.
  void Redimension(int n, int ignored, double value) override;
  double Value(int i, int j) const override;
  double& Ref(int i, int j) override;
  double Value_(int i, int j) const override;
  double& Ref_(int i, int j) override;

  // True when `data` holds the packed triangle of this class (not a derived storage kind such as
  // the diagonal or the sparse matrix), so that raw packed access is valid.
  bool HasPackedLayout() const;

  using VQ_Matrix::print;
  using VQ_Matrix::SetEqualTo;

  void SetValue(double v);         // every stored value = v
  VQ_SymMatrix T() const;          // a copy (type MATRIX)
  // General n x n inverse of the full form, Gauss-Jordan without pivoting.
  VQ_Matrix Inverse() const;
  // When m is square: redimension to m's order and take m(i, j) for i <= j (lower part ignored).
  void CopyUpperDiagonal(const VQ_Matrix& m);
  // With K = this (order n) and t (n x m): r = t' K t, of order m.
  void Tt_K_T(const VQ_Matrix& t, VQ_SymMatrix& r) const;
  // With K = this (order n) and t (m x n): r = t K t', of order m.
  void T_K_Tt(const VQ_Matrix& t, VQ_SymMatrix& r) const;
  // Full square form, one row per line, values as "%12.16f".
  void print(std::ostream* os) const;

  VQ_SymMatrix operator+() const;   // a copy
  // An order-1 object whose value is the negation of the first stored value (the system's own
  // definition: the negated values are written from the single element of the result on).
  VQ_SymMatrix operator-() const;
  VQ_SymMatrix& operator*=(double s);
  VQ_SymMatrix& operator/=(double s);   // -7 when |s| < 2.220446049250313e-16
  // Over b's sizes, i <= j: stored (i, j) +=/-= b's raw element at the same packed position.
  VQ_SymMatrix& operator+=(const VQ_Matrix& b);
  VQ_SymMatrix& operator-=(const VQ_Matrix& b);

 protected:
  int Size() const { return rows * (rows + 1) / 2; }
  int Shift(int i, int j) const { return i <= j ? Shift_(i, j) : Shift_(j, i); }
  int Shift_(int i, int j) const { return (j - 1) * j / 2 + (i - 1); }
  // Reallocates to order n (n(n+1)/2 values, contents not cleared); status 0 or -1.
  bool Initialize(int n);
};

// ---- free operators -----------------------------------------------------------------------------
// Left (or, for double * S, right) operand copied through the copy constructor, then the member
// operator applied.
VQMATH_DENSE_API VQ_SymMatrix operator*(const VQ_SymMatrix& a, double s);
VQMATH_DENSE_API VQ_SymMatrix operator*(double s, const VQ_SymMatrix& a);
VQMATH_DENSE_API VQ_SymMatrix operator/(const VQ_SymMatrix& a, double s);
VQMATH_DENSE_API VQ_SymMatrix operator+(const VQ_SymMatrix& a, const VQ_SymMatrix& b);
VQMATH_DENSE_API VQ_SymMatrix operator-(const VQ_SymMatrix& a, const VQ_SymMatrix& b);
// A*S through PostMultiply, S*A through PreMultiply (epsilon skipping of tiny factors).
VQMATH_DENSE_API VQ_Matrix operator*(const VQ_Matrix& a, const VQ_SymMatrix& s);
VQMATH_DENSE_API VQ_Matrix operator*(const VQ_SymMatrix& s, const VQ_Matrix& a);

#endif  // VQMATH_DENSE_VQ_SYMMATRIX_H
