// The factorisation of K − σ·M for a sequence of shifts σ, with the inertia it reveals.
//
// K and M (sparse, or a diagonal) are merged once into the union of their patterns; each new
// shift only recomputes the values K − σ·M on that pattern and runs PARDISO's numerical phase,
// the ordering and symbolic analysis of the first factorisation being kept. PARDISO works in its
// symmetric indefinite mode (matrix type −2, Bunch–Kaufman pivoting), whatever the library's
// matrix type, because the shifted matrix is indefinite as soon as σ passes an eigenvalue and
// its negative pivots are what is wanted: by Sylvester's law of inertia their number is the
// number of eigenvalues of K·φ = λ·M·φ below σ (M positive semi-definite).
//
// A shift that falls on an eigenvalue (within rounding) gives a factor with a near-zero pivot:
// PARDISO then perturbs pivots (reported in iparm(14)) and the count may be off by one.
// Reliable() tells the caller, who moves the shift a little and factors again.
//
// Internal header.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "eigen/internal/ArpackDriver.h"
#include "eigen/internal/ShiftInvertOperator.h"
#include "sparse/internal/SymmetricProduct.h"

class VQ_SparseSolver;

namespace vqmath {
namespace eigen_internal {

struct PencilArrays {
  int n = 0;
  const int* kRowPointers = nullptr;
  const int* kColumnIndices = nullptr;
  const double* kValues = nullptr;
  // M in compressed rows, or (mRowPointers null) its diagonal.
  const int* mRowPointers = nullptr;
  const int* mColumnIndices = nullptr;
  const double* mValues = nullptr;
  const double* mDiagonal = nullptr;
};

class ShiftedFactorization : public ShiftInvertOperator {
 public:
  ShiftedFactorization(const PencilArrays& pencil, int oocMode, const std::string& workingDirectory);
  ~ShiftedFactorization() override;
  ShiftedFactorization(const ShiftedFactorization&) = delete;
  ShiftedFactorization& operator=(const ShiftedFactorization&) = delete;

  // False when the merged pattern could not be allocated.
  bool Ready() const { return ready_; }

  // Factors K − σ·M. Returns 0, or the library code of the failure (−1 memory, −3 singular with
  // InstabilityEquation(), −64 K − σ·M overflows, −81/−82 out of memory, −83 other) with its
  // text in Message().
  int Factor(double sigma);
  double Sigma() const { return sigma_; }
  bool Factored() const { return factored_; }
  // Eigenvalues below σ: the negative pivots of the last factorisation.
  int CountBelow() const { return negative_; }
  // False when PARDISO perturbed pivots: σ lies (nearly) on an eigenvalue.
  bool Reliable() const { return perturbed_ == 0; }
  int Factorizations() const { return factorizations_; }
  const std::string& Message() const { return message_; }
  int InstabilityEquation() const { return instability_; }

  // y = M·x and y = (K − σ·M)⁻¹·r with the last factorisation (ShiftInvertOperator).
  int ApplyB(const double* x, double* y) override { return m_.Apply(x, y); }
  int Solve(const double* r, double* y) override { return SolveBlock(r, y, n_, 1); }
  // The same on blocks of column-major vectors, each block in one call.
  int ApplyBBlock(const double* x, double* y, int n, int columns) override {
    return m_.Apply(x, y, columns);
  }
  int SolveBlock(const double* r, double* y, int n, int columns) override;
  // y = K·x.
  int ApplyK(const double* x, double* y) const { return k_.Apply(x, y); }
  const vqmath::internal::SymmetricProduct& MassProduct() const { return m_; }

 private:
  bool Merge(const PencilArrays& p);

  int n_ = 0;
  bool ready_ = false;
  int oocMode_ = 0;
  std::string workingDirectory_;
  // Union pattern of K and M, K's and M's values on it, and the shifted values.
  std::vector<int> rows_, cols_;
  std::vector<double> kOnPattern_, mOnPattern_, shifted_;
  vqmath::internal::SymmetricProduct k_, m_;
  std::unique_ptr<VQ_SparseSolver> solver_;
  bool analysed_ = false;
  bool factored_ = false;
  double sigma_ = 0.0;
  int negative_ = 0;
  int perturbed_ = 0;
  int factorizations_ = 0;
  int instability_ = -1;
  std::string message_;
};

}  // namespace eigen_internal
}  // namespace vqmath
