// VQ_ModalMass - modal participation and effective mass of mode shapes along a direction.
//
// For mode shapes φᵢ and a direction (influence) vector r, with the mass M given as its
// diagonal or as a sparse symmetric matrix (upper triangle, 1-based compressed rows):
//   participation factor       Γᵢ = φᵢᵀ·M·r / (φᵢᵀ·M·φᵢ)
//   effective-mass fraction    (φᵢᵀ·M·r)² / (φᵢᵀ·M·φᵢ) / (rᵀ·M·r)
// The fractions of all modes of a positive definite M sum to 1; a few low modes usually
// carry most of it. The arrays are borrowed and never changed.
#ifndef VQMATH_EIGEN_VQ_MODALMASS_H
#define VQMATH_EIGEN_VQ_MODALMASS_H

#include <string>

class VQ_ModalMass {
 public:
  VQ_ModalMass(int n, const double* massDiagonal);
  VQ_ModalMass(int n, const int* mRowPointers, const int* mColumnIndices, const double* mValues);

  // Y = M·X for `columns` columns of n values (column-major, leading dimension n).
  void Apply(int columns, const double* x, double* y) const;

  // φᵢᵀ·M·φᵢ of nModes columns into norms (nModes values).
  int ModalMasses(int nModes, const double* modeShapes, double* norms) const;

  // Participation factors and effective-mass fractions (either output may be null). Returns 0,
  // −1 when work space cannot be allocated, −7 when rᵀ·M·r is zero or a mode has no mass
  // (φᵀ·M·φ = 0), −64 when a mass product is negative (M is not positive semi-definite); the
  // outputs are written only on success, Message() says what failed.
  int Compute(int nModes, const double* modeShapes, const double* direction, double* participation,
              double* effectiveMassFraction);

  const std::string& Message() const { return message_; }

 private:
  int n_ = 0;
  const double* diagonal_ = nullptr;
  const int* rowPointers_ = nullptr;
  const int* columnIndices_ = nullptr;
  const double* values_ = nullptr;
  std::string message_;
};

#endif  // VQMATH_EIGEN_VQ_MODALMASS_H
