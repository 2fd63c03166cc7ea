// VQ_SturmSequenceCheck - verifies that a set of eigenvalues found by a solver holds every
// eigenvalue of K·φ = λ·M·φ between the lowest it claims and the highest it returned.
//
// The eigenvalues below a shift are counted by the inertia of K − σ·M (VQ_InertiaCount). The
// upper shift is placed just above the highest value found, relative to that value (clear of
// the solver's error, short of the next eigenvalue); the lower one just below the lowest value
// claimed. When the count between them exceeds what was found, the upper shift is pulled in
// closer (a close eigenvalue above the highest found would otherwise be counted too) and the
// check fails only when that count still exceeds it: a mode was missed.
//
// Fewer eigenvalues counted than found means that the values are not eigenvalues of the
// pencil: with a positive semi-definite M the count is exact, so M is not positive
// semi-definite. That is reported as an error (−64) with the evidence at hand: negative
// diagonal terms of M, or negative M-products φᵀ·M·φ of the modes found.
#ifndef VQMATH_EIGEN_VQ_STURMSEQUENCECHECK_H
#define VQMATH_EIGEN_VQ_STURMSEQUENCECHECK_H

#include <string>

class VQ_InertiaCount;
class VQ_ModalMass;

struct VQ_SturmCheckOutcome {
  bool done = false;       // the counts were made
  bool missed = false;     // more eigenvalues lie in the range than were found
  int status = 0;          // 0, a failed factorisation's code, or −64 (not eigenvalues)
  std::string message;     // why, when status ≠ 0
  int counted = 0;         // eigenvalues between the shifts
  int found = 0;           // values checked
  double lowerShift = 0.0;
  double upperShift = 0.0;
};

class VQ_SturmSequenceCheck {
 public:
  // mass: for the M-products of the modes (may be null); massDiagonal or the diagonal entries of a
  // sparse mass (mRowPointers, mValues) for a first look at M (either may be null).
  VQ_SturmSequenceCheck(VQ_InertiaCount& counter, const VQ_ModalMass* mass);
  void SetMassDiagonal(const double* diagonal) { massDiagonal_ = diagonal; }
  void SetSparseMass(const int* rowPointers, const double* values) {
    mRowPointers_ = rowPointers;
    mValues_ = values;
  }

  // values: `count` eigenvalues found (any order); claimedFrom: the solver claims every
  // eigenvalue from min(claimedFrom, lowest found) upwards; modeShapes: their mode shapes
  // (n × count, column-major) or null.
  VQ_SturmCheckOutcome Check(const double* values, int count, double claimedFrom,
                             const double* modeShapes);

 private:
  std::string MassEvidence(int count, const double* modeShapes) const;

  VQ_InertiaCount& counter_;
  const VQ_ModalMass* mass_;
  const double* massDiagonal_ = nullptr;
  const int* mRowPointers_ = nullptr;
  const double* mValues_ = nullptr;
};

#endif  // VQMATH_EIGEN_VQ_STURMSEQUENCECHECK_H
