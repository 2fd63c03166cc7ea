// VQ_MatrixAux.cpp - element proxy: reads through the matrix's virtual Value, writes through Ref.
#include "dense/VQ_MatrixAux.h"

#include "dense/VQ_Matrix.h"

VQ_MatrixAux::VQ_MatrixAux(VQ_Matrix& matrix, int i, int j) : matrix_(&matrix), i_(i), j_(j) {}

VQ_MatrixAux::operator double() const { return matrix_->Value(i_, j_); }

VQ_MatrixAux& VQ_MatrixAux::operator=(double v) {
  matrix_->Ref(i_, j_) = v;
  return *this;
}

VQ_MatrixAux& VQ_MatrixAux::operator=(const VQ_MatrixAux& other) {
  // Read first: the two proxies may name the same element of the same matrix.
  const double v = other.matrix_->Value(other.i_, other.j_);
  matrix_->Ref(i_, j_) = v;
  return *this;
}

VQ_MatrixAux& VQ_MatrixAux::operator+=(double v) {
  const double x = matrix_->Value(i_, j_);
  matrix_->Ref(i_, j_) = x + v;
  return *this;
}

VQ_MatrixAux& VQ_MatrixAux::operator-=(double v) {
  const double x = matrix_->Value(i_, j_);
  matrix_->Ref(i_, j_) = x - v;
  return *this;
}

VQ_MatrixAux& VQ_MatrixAux::operator*=(double v) {
  const double x = matrix_->Value(i_, j_);
  matrix_->Ref(i_, j_) = x * v;
  return *this;
}

VQ_MatrixAux& VQ_MatrixAux::operator/=(double v) {
  const double x = matrix_->Value(i_, j_);
  matrix_->Ref(i_, j_) = x / v;
  return *this;
}
