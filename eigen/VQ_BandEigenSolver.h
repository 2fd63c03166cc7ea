// VQ_BandEigenSolver.h - every eigenpair of K·φ = λ·M·φ in a band [λa, λb], with the exact count
// of the band proven by inertia (Sturm) counts.
//
// Why inertia counts. Lanczos, subspace iteration and FEAST return the eigenpairs they converge,
// and none of them can say whether one was missed. The factorisation of K − σ·M (symmetric
// indefinite, Bunch–Kaufman pivoting) has as many negative pivots as there are eigenvalues below
// σ (Sylvester's law of inertia, M positive semi-definite). Two factorisations, at λa and λb,
// therefore give the exact number of eigenvalues in the band before any is computed, and the
// same count taken at any interior point tells how many lie on either side of it.
//
// Strategy.
//  1. Count the band: factor at λb + δ and at λa − δ, δ = 1e-9·max(|λa|, |λb|), so that the band
//     is closed (an eigenvalue on an edge is inside). When PARDISO perturbs pivots there — the
//     point lies on an eigenvalue within rounding — the point moves outward a little and is
//     factored again. A lower edge that is not finite ("everything below λb") or lies below
//     every eigenvalue is replaced by a point just below the lowest eigenvalue: −10⁻³·max(|λb|,
//     …) first, then further down until its count is 0, so the slices start where the spectrum
//     starts. A free structure's rigid-body modes (λ ≈ 0) lie inside a band that starts below 0;
//     K − σ·M with σ < 0 is regular, so every factorisation works.
//  2. Slice. One shift-invert run serves well only so many modes (the Krylov space grows with
//     them and eigenvalues far from the shift converge slowly). Each new shift costs a
//     factorisation, which at 10⁵ equations costs as much as 100 single-vector solves or 300
//     block columns, so slices are wide: 120 modes by default (Set_SliceSize; measured on a
//     generated solid with 192 modes in the band, 120 took 0.8× the time of 80 and 0.6× that of
//     40), never more than about half the degrees of freedom that carry mass (a wider
//     Krylov space picks up M's null space), and never more than the block bases of about 2 GB
//     hold (about 55 modes at 10⁶ equations). A band with more is bisected: the midpoint of a
//     part is factored, its count says how many modes lie on either side, and parts are
//     halved until each holds at most the slice size (or has shrunk to a point: a cluster of
//     equal eigenvalues is never split). Bisection on the counts needs no knowledge of the spectrum.
//  3. Solve each slice around its own shift σ at the slice's middle: the slice is then exactly
//     the set of eigenvalues within half its width of σ, so the `count` eigenvalues nearest σ
//     — what shift-invert finds first — are the slice's. A slice with nothing below it (the
//     bottom of the spectrum) is solved around its lower end instead, whose factorisation the
//     count already made: a band from the bottom that fits one slice costs two factorisations,
//     one more than an unproven shift-invert run. The slice solver (SliceSolver) is block
//     Lanczos unless another is plugged in: it reads the factor once per block of vectors
//     instead of once per vector; it asks for a few more pairs than the count to be safe.
//  4. Verify every slice by its counts: the pairs it found inside it must number the count
//     difference of its ends (the count at σ is recorded as a further check). A slice that comes
//     up short is solved again asking for more (up to four tries); a band that still misses
//     modes ends with −91 and nothing delivered.
//  5. Keep eigenvalues at a slice border once: a pair found within 1e-10 (relative) of a border
//     is M-orthogonalised against the modes the neighbouring slice kept there and dropped when
//     nothing of it remains, so repeated eigenvalues that straddle a border appear exactly once
//     with M-orthonormal vectors.
// The factorisations share one ordering and symbolic analysis (the pattern of K − σ·M does not
// depend on σ): each new shift costs a numerical factorisation only. Out-of-core factorisation
// follows the out-of-core mode handed in.
//
// Residual mode: ComputeResidualMode completes the band's modes with the missing mass of a
// direction (see eigen/internal/ResidualMode.h). Its static solve uses the factorisation at the
// band's lowest counted point — for a band from the bottom just below the spectrum, so regular
// also for a free structure — recomputed numerically on the kept analysis when the search has
// moved on.
//
// Statuses (registry numbering): 0; −1 memory; −3 singular factorisation (equation in
// Get_DOFNumForInstability); −81/−82/−83 other factorisation failures; −45/−46 slice solver
// failures; −90 the band holds more modes than the caller can take (the count is still
// reported, nothing delivered); −91 a slice did not yield all the modes its counts prove;
// −92 invalid bounds (NaN, lower above upper, upper not finite) or no point below the
// spectrum found. Nothing is thrown.
#ifndef VQMATH_EIGEN_VQ_BANDEIGENSOLVER_H
#define VQMATH_EIGEN_VQ_BANDEIGENSOLVER_H

#include <memory>
#include <string>
#include <vector>

namespace vqmath {
namespace eigen_internal {
class ShiftedFactorization;
class SliceSolver;
}  // namespace eigen_internal
}  // namespace vqmath

struct VQ_BandProblem {
  int n = 0;
  // K, upper triangle, 1-based compressed rows (borrowed).
  const int* kRowPointers = nullptr;
  const int* kColumnIndices = nullptr;
  const double* kValues = nullptr;
  // M in compressed rows, or (mRowPointers null) its diagonal of n values.
  const int* mRowPointers = nullptr;
  const int* mColumnIndices = nullptr;
  const double* mValues = nullptr;
  const double* mDiagonal = nullptr;
  double lower = 0.0;  // λa; −DBL_MAX, −∞ or any value below the spectrum: from the bottom
  double upper = 0.0;  // λb
  int oocMode = 0;
  const char* workingDirectory = nullptr;
  bool verbose = false;  // progress lines on standard output
};

// One slice with its inertia proof: countLower/countUpper eigenvalues below its ends (their
// difference is the slice's count), countAtShift below its shift.
struct VQ_BandSlice {
  double lower = 0.0;
  double upper = 0.0;
  double shift = 0.0;
  int countLower = 0;
  int countUpper = 0;
  int countAtShift = 0;
  int found = 0;
  int tries = 0;
  int operatorApplications = 0;
};

class VQ_BandEigenSolver {
 public:
  explicit VQ_BandEigenSolver(const VQ_BandProblem& problem);
  ~VQ_BandEigenSolver();
  VQ_BandEigenSolver(const VQ_BandEigenSolver&) = delete;
  VQ_BandEigenSolver& operator=(const VQ_BandEigenSolver&) = delete;

  // Modes per slice (≥ 1; default 120; fewer where the slice's bases would pass about 2 GB).
  void Set_SliceSize(int modes);
  int Get_SliceSize() const { return sliceSize_; }
  // Replaces the slice solver (by default BlockSliceSolver, the block Lanczos method on each
  // slice's own factorisation; ArpackSliceSolver runs single-vector Lanczos by ARPACK).
  void Set_SliceSolver(std::unique_ptr<vqmath::eigen_internal::SliceSolver> solver);

  // Counts the band only (two factorisations). Returns the status.
  int Count();
  // Counts and, when the band holds at most maxModes, computes all its eigenpairs.
  int Solve(int maxModes);

  int GetStatus() const { return status_; }
  const std::string& GetErrorMessage() const { return message_; }
  int Get_DOFNumForInstability() const { return instability_; }
  int GetBandCount() const { return bandCount_; }
  int GetNumFoundEigen() const { return static_cast<int>(values_.size()); }
  // Ascending eigenvalues and their M-normalised mode shapes (n values each).
  const std::vector<double>& Eigenvalues() const { return values_; }
  const std::vector<double>& ModeShapes() const { return vectors_; }
  const std::vector<VQ_BandSlice>& Slices() const { return slices_; }
  // The points whose counts bound the band (after widening and the search for the bottom).
  double CountedLower() const { return countedLower_; }
  double CountedUpper() const { return countedUpper_; }
  int CountBelowLower() const { return countLower_; }
  int CountBelowUpper() const { return countUpper_; }
  int Factorizations() const;

  // The residual mode of a direction (n values) for the modes found: its shape (n values),
  // eigenvalue estimate and effective-mass fraction; modesFraction (may be null) receives the
  // modes' share. Returns 0 or a status (−20 no mass in the direction, −84 nothing factored).
  int ComputeResidualMode(const double* direction, double* mode, double* eigenvalue,
                          double* fraction, double* modesFraction = nullptr);

 private:
  int Fail(int status, const std::string& message);
  int FailFactor();
  int CountAt(double& point, double outward, int& count);
  int CountBand();
  int FindBottom(double& point);
  int Bisect(double lo, int clo, double hi, int chi, int depth);
  int SolveSlice(VQ_BandSlice& slice);
  void Print(const char* format, ...) const;

  VQ_BandProblem problem_;
  int sliceSize_ = 120;
  int requestLimit_ = 1 << 30;  // most pairs a slice may ask for
  std::unique_ptr<vqmath::eigen_internal::SliceSolver> sliceSolver_;
  std::unique_ptr<vqmath::eigen_internal::ShiftedFactorization> factor_;
  int status_ = 0;
  std::string message_;
  int instability_ = -1;
  bool counted_ = false;
  int bandCount_ = 0;
  double countedLower_ = 0.0, countedUpper_ = 0.0, scale_ = 1.0;
  int countLower_ = 0, countUpper_ = 0;
  std::vector<VQ_BandSlice> slices_;
  std::vector<double> values_;
  std::vector<double> vectors_;
};

#endif  // VQMATH_EIGEN_VQ_BANDEIGENSOLVER_H
