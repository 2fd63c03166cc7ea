// VQ_InertiaCount - the number of eigenvalues of K·φ = λ·B·φ below a shift σ.
//
// By Sylvester's law of inertia the number of negative pivots of an LDLᵀ factorisation of
// K − σ·B equals the number of negative eigenvalues of K − σ·B. When B is positive
// semi-definite that is the number of (finite) eigenvalues λ < σ of the pencil, whatever K is;
// for a positive definite K and any symmetric B it is the number of eigenvalues in (0, σ) when
// σ > 0. B is the mass (natural modes) or the geometric stiffness (buckling), given in
// compressed rows (upper triangle, 1-based, diagonal first) or as its diagonal.
//
// Each count forms K − σ·B on the union of both patterns and factors it once with
// VQ_SparseSolver as symmetric indefinite (PARDISO matrix type −2), in the calling thread.
// The arrays are borrowed and never changed.
#ifndef VQMATH_SPARSE_VQ_INERTIACOUNT_H
#define VQMATH_SPARSE_VQ_INERTIACOUNT_H

#include <memory>
#include <string>

class VQ_SparseSymMatrix;

class VQ_InertiaCount {
 public:
  // B as its diagonal (n values).
  VQ_InertiaCount(int n, const int* kRowPointers, const int* kColumnIndices, const double* kValues,
                  const double* bDiagonal);
  // B in compressed rows.
  VQ_InertiaCount(int n, const int* kRowPointers, const int* kColumnIndices, const double* kValues,
                  const int* bRowPointers, const int* bColumnIndices, const double* bValues);
  ~VQ_InertiaCount();
  VQ_InertiaCount(const VQ_InertiaCount&) = delete;
  VQ_InertiaCount& operator=(const VQ_InertiaCount&) = delete;

  // Out-of-core mode of the factorisation (0, 1, 2) and the folder of its scratch files.
  void SetOutOfCoreMode(int mode) { oocMode_ = mode; }
  void SetWorkingDirectory(const std::string& folder) { workingDirectory_ = folder; }

  // Negative pivots of K − σ·B into *count (left alone on failure). Returns 0, or a registry
  // code (−1 no memory, −3 singular, −64 σ·B overflows, −81/−82 out of memory, −83 …) with
  // Message() saying why.
  int CountBelow(double sigma, int* count);

  const std::string& Message() const { return message_; }
  // Equation at which a failed factorisation broke down (−1 when unknown).
  int InstabilityEquation() const { return instabilityEquation_; }
  int Order() const { return n_; }

  // Where to count so that found eigenvalues lie clear of the shift: a shift just above
  // `value` (direction +1) or just below it (−1), by `relative` of max(|value|, floor), where
  // floor = 1e-3·scale and scale is the magnitude of the eigenvalues at hand (the largest |λ|
  // found). The step is relative to the eigenvalue itself, so it lies clear of the solver's
  // error and stays short of the next eigenvalue of the spectrum.
  static double ShiftBeside(double value, int direction, double scale, double relative = 1e-5);

 private:
  int n_ = 0;
  const int* kRowPointers_ = nullptr;
  const int* kColumnIndices_ = nullptr;
  const double* kValues_ = nullptr;
  std::unique_ptr<VQ_SparseSymMatrix> b_;
  int oocMode_ = 0;
  std::string workingDirectory_;
  std::string message_;
  int instabilityEquation_ = -1;
};

#endif  // VQMATH_SPARSE_VQ_INERTIACOUNT_H
