// VQ_RowVector.h - row vector (1 x n) of the dense family. Element k is read through the virtual
// operator[] as data[(k-1)*rows], i.e. data[k-1]; no bounds checks.
#ifndef VQMATH_DENSE_VQ_ROWVECTOR_H
#define VQMATH_DENSE_VQ_ROWVECTOR_H

#include "dense/VQ_ColVector.h"
#include "dense/VQ_Matrix.h"

class VQMATH_DENSE_API VQ_RowVector : public VQ_Matrix {
 public:
  VQ_RowVector();                       // empty, ROW_VECTOR
  explicit VQ_RowVector(int n);         // n zeros
  VQ_RowVector(int n, double value);    // n copies of value
  VQ_RowVector(const VQ_RowVector& other);
  VQ_RowVector& operator=(const VQ_RowVector& other);
  ~VQ_RowVector() override;

  virtual double operator[](int k) const;
  virtual double& operator[](int k);
  int GetSize() const { return rows * cols; }

  VQ_ColVector T() const;

  VQ_RowVector operator+() const;
  VQ_RowVector operator-() const;
  VQ_RowVector& operator+=(const VQ_RowVector& b);   // element-wise over this vector's elements
  VQ_RowVector& operator-=(const VQ_RowVector& b);
  VQ_RowVector& operator*=(double s);
  VQ_RowVector& operator/=(double s);   // -7 when |s| < 2.220446049250313e-16
};

// ---- free operators -----------------------------------------------------------------------------
VQMATH_DENSE_API VQ_RowVector operator*(const VQ_RowVector& r, const VQ_Matrix& a);
VQMATH_DENSE_API VQ_RowVector operator*(const VQ_RowVector& r, const VQ_SymMatrix& s);
VQMATH_DENSE_API VQ_RowVector operator*(const VQ_RowVector& r, const VQ_DiagonalMatrix& d);
// sum_{k=1..cols(r)} r[k] v(k), no size check.
VQMATH_DENSE_API double operator*(const VQ_RowVector& r, const VQ_ColVector& v);
VQMATH_DENSE_API VQ_RowVector operator+(const VQ_RowVector& a, const VQ_RowVector& b);
VQMATH_DENSE_API VQ_RowVector operator-(const VQ_RowVector& a, const VQ_RowVector& b);
VQMATH_DENSE_API VQ_RowVector operator*(const VQ_RowVector& a, double s);
VQMATH_DENSE_API VQ_RowVector operator*(double s, const VQ_RowVector& a);
VQMATH_DENSE_API VQ_RowVector operator/(const VQ_RowVector& a, double s);

#endif  // VQMATH_DENSE_VQ_ROWVECTOR_H
