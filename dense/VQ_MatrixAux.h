// VQ_MatrixAux.h - element proxy returned by VQ_Matrix::operator()(i, j).
//
// Reading converts to the matrix's virtual Value(i, j); writing stores through its virtual
// Ref(i, j). So m(i, j) = x on a symmetric or diagonal matrix lands in that kind's own packed
// storage, and m(i, j) = n(k, l) copies an element between any two kinds.
#ifndef VQMATH_DENSE_VQ_MATRIXAUX_H
#define VQMATH_DENSE_VQ_MATRIXAUX_H

#include "dense/MatrixTypes.h"

class VQ_Matrix;

class VQMATH_DENSE_API VQ_MatrixAux {
 public:
  VQ_MatrixAux(VQ_Matrix& matrix, int i, int j);
  VQ_MatrixAux(const VQ_MatrixAux&) = default;

  // The element's value, matrix.Value(i, j).
  operator double() const;
  // Stores v through matrix.Ref(i, j).
  VQ_MatrixAux& operator=(double v);
  // Reads other's element through its Value and stores it through this one's Ref.
  VQ_MatrixAux& operator=(const VQ_MatrixAux& other);
  // Read-modify-write conveniences: Ref(i, j) = Value(i, j) op v.
  VQ_MatrixAux& operator+=(double v);
  VQ_MatrixAux& operator-=(double v);
  VQ_MatrixAux& operator*=(double v);
  VQ_MatrixAux& operator/=(double v);

 private:
  VQ_Matrix* matrix_;
  int i_;
  int j_;
};

#endif  // VQMATH_DENSE_VQ_MATRIXAUX_H
