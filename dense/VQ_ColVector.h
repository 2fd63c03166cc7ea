// VQ_ColVector.h - column vector (n x 1) of the dense family: load and result vectors,
// eigenvalue lists, trial vectors. Element k (1-based) is data[k-1]; no bounds checks.
#ifndef VQMATH_DENSE_VQ_COLVECTOR_H
#define VQMATH_DENSE_VQ_COLVECTOR_H

#include <vector>

#include "dense/VQ_Matrix.h"

class VQ_RowVector;

class VQMATH_DENSE_API VQ_ColVector : public VQ_Matrix {
 public:
  VQ_ColVector();                           // empty, COLUMN_VECTOR
  explicit VQ_ColVector(int n);             // n zeros
  VQ_ColVector(int n, double value);        // n copies of value
  VQ_ColVector(int n, double* values);      // copy of values[0..n-1]
  VQ_ColVector(const std::vector<double>& v);
  VQ_ColVector(const VQ_ColVector& other);  // deep copy
  VQ_ColVector& operator=(const VQ_ColVector& other);
  ~VQ_ColVector() override;

  double& operator[](int k) { return data[k - 1]; }
  double operator[](int k) const { return data[k - 1]; }
  int GetSize() const { return rows * cols; }

  using VQ_Matrix::Norm;
  double Norm() const;                          // Euclidean norm (0.0 when empty)
  double Dot(const VQ_ColVector& b) const;      // raw, over this vector's elements
  void Normalize();                             // divides by Norm() (zero vector not guarded)
  // Cross product of the first three elements, when both element counts are equal; otherwise
  // status -8, a message on standard output and (0, 0, 0).
  VQ_ColVector Cross(const VQ_ColVector& b) const;
  VQ_RowVector T() const;
  VQ_ColVector Squared() const;
  // Column j of m when NumRows() = m.NumRows() and 1 <= j <= m.NumCols(); otherwise nothing.
  void SetEqualTo(const VQ_Matrix& m, int j);
  // The diagonal of d when NumRows() = d.NumRows(); otherwise nothing.
  void SetEqualTo(const VQ_DiagonalMatrix& d);
  void CopyTo(double* dst, int n) const;       // at most n elements

  VQ_ColVector operator+() const;
  VQ_ColVector operator-() const;
  VQ_ColVector& operator+=(const VQ_ColVector& b);   // element-wise over this vector's rows
  VQ_ColVector& operator-=(const VQ_ColVector& b);
  VQ_ColVector& operator*=(double s);
  VQ_ColVector& operator/=(double s);   // -7 when |s| < 2.220446049250313e-16
};

// ---- free operators -----------------------------------------------------------------------------
// result(i) = sum_k A(i, k) v(k); cols(A) != rows(v) sets A's status -8.
VQMATH_DENSE_API VQ_ColVector operator*(const VQ_Matrix& a, const VQ_ColVector& v);
VQMATH_DENSE_API VQ_ColVector operator*(const VQ_SymMatrix& s, const VQ_ColVector& v);
VQMATH_DENSE_API VQ_ColVector operator*(const VQ_DiagonalMatrix& d, const VQ_ColVector& v);
VQMATH_DENSE_API VQ_ColVector operator+(const VQ_ColVector& a, const VQ_ColVector& b);
VQMATH_DENSE_API VQ_ColVector operator-(const VQ_ColVector& a, const VQ_ColVector& b);
VQMATH_DENSE_API VQ_ColVector operator*(const VQ_ColVector& a, double s);
VQMATH_DENSE_API VQ_ColVector operator*(double s, const VQ_ColVector& a);
VQMATH_DENSE_API VQ_ColVector operator/(const VQ_ColVector& a, double s);

#endif  // VQMATH_DENSE_VQ_COLVECTOR_H

// T() returns a row vector: make it complete for every includer.
#include "dense/VQ_RowVector.h"
