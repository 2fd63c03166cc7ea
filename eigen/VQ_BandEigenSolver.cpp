// VQ_BandEigenSolver.cpp - every eigenpair in a band, proven by inertia counts. See the header
// for the strategy and its reasons.
#include "eigen/VQ_BandEigenSolver.h"

#include <mkl_cblas.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <new>
#include <numeric>

#include "eigen/internal/BlockSliceSolver.h"
#include "eigen/internal/ResidualMode.h"
#include "eigen/internal/ShiftedFactorization.h"
#include "eigen/internal/SliceSolver.h"

namespace ei = vqmath::eigen_internal;

namespace {

constexpr int kNoMemory = -1;
constexpr int kTooManyModes = -90;
constexpr int kModesMissed = -91;
constexpr int kBadBounds = -92;
// Relative widening of the band's ends, so that an eigenvalue on an edge is inside.
constexpr double kEdgeWidening = 1e-9;
// Relative window around a slice border inside which a pair may be found by both neighbours.
constexpr double kBorderWindow = 1e-10;
// A part of the band narrower than this (relative) is not split further.
constexpr double kNarrowestPart = 1e-9;
// Steps by which a point on an eigenvalue is moved (relative), and how often.
constexpr double kFirstNudge = 1e-8;
constexpr int kNudges = 6;
constexpr int kSliceTries = 4;
// Memory the Krylov bases of one slice may take.
constexpr double kSliceBasisBytes = 2e9;
constexpr int kMaxDepth = 60;
// A candidate whose M-norm² falls below this after removing its neighbours is a duplicate.
constexpr double kDuplicate = 0.25;

bool Unbounded(double lower) { return !(lower > -1e300); }

ei::PencilArrays PencilOf(const VQ_BandProblem& problem) {
  ei::PencilArrays p;
  p.n = problem.n;
  p.kRowPointers = problem.kRowPointers;
  p.kColumnIndices = problem.kColumnIndices;
  p.kValues = problem.kValues;
  p.mRowPointers = problem.mRowPointers;
  p.mColumnIndices = problem.mColumnIndices;
  p.mValues = problem.mValues;
  p.mDiagonal = problem.mDiagonal;
  return p;
}

}  // namespace

VQ_BandEigenSolver::VQ_BandEigenSolver(const VQ_BandProblem& problem)
    : problem_(problem), sliceSolver_(new ei::BlockSliceSolver(PencilOf(problem))) {}

VQ_BandEigenSolver::~VQ_BandEigenSolver() = default;

void VQ_BandEigenSolver::Set_SliceSize(int modes) { sliceSize_ = std::max(modes, 1); }

void VQ_BandEigenSolver::Set_SliceSolver(std::unique_ptr<ei::SliceSolver> solver) {
  if (solver) sliceSolver_ = std::move(solver);
}

int VQ_BandEigenSolver::Factorizations() const { return factor_ ? factor_->Factorizations() : 0; }

int VQ_BandEigenSolver::Fail(int status, const std::string& message) {
  status_ = status;
  message_ = message;
  values_.clear();
  vectors_.clear();
  return status;
}

int VQ_BandEigenSolver::FailFactor() {
  instability_ = factor_->InstabilityEquation();
  return Fail(status_, factor_->Message());
}

void VQ_BandEigenSolver::Print(const char* format, ...) const {
  if (!problem_.verbose) return;
  va_list args;
  va_start(args, format);
  std::vprintf(format, args);
  va_end(args);
  std::printf("\n");
  std::fflush(stdout);
}

// Factors at point; when the point lies on an eigenvalue (perturbed pivots) it moves by growing
// steps in the direction of outward (its sign) until the count is reliable.
int VQ_BandEigenSolver::CountAt(double& point, double outward, int& count) {
  // The factorisation at hand serves when it was made at this very point.
  if (factor_->Factored() && factor_->Sigma() == point && factor_->Reliable()) {
    count = factor_->CountBelow();
    return 0;
  }
  double step = kFirstNudge * scale_;
  for (int attempt = 0;; ++attempt) {
    const int status = factor_->Factor(point);
    if (status != 0) {
      status_ = status;
      return status;
    }
    if (factor_->Reliable() || attempt == kNudges) break;
    Print("    shift %.10g lies on an eigenvalue: moved", point);
    point += outward >= 0.0 ? step : -step;
    step *= 10.0;
  }
  count = factor_->CountBelow();
  return 0;
}

// A point below the lowest eigenvalue: just below 0 and min(λb, 0) first, then further down.
int VQ_BandEigenSolver::FindBottom(double& point) {
  const double top = std::min(problem_.upper, countedUpper_);
  const double reach = std::max(std::fabs(top), scale_ * 1e-3);
  double candidate = std::min(top, 0.0) - 1e-3 * reach;
  for (int k = 0; k < 40; ++k) {
    if (!Unbounded(problem_.lower) && candidate <= countedLower_) return 0;  // keep λa − δ
    int count = 0;
    double p = candidate;
    const int status = CountAt(p, -1.0, count);
    if (status != 0) return status;
    if (count == 0) {
      point = p;
      return 0;
    }
    candidate = std::min(top, 0.0) - reach * std::pow(10.0, k);
  }
  return Fail(kBadBounds, "No shift below the lowest eigenvalue found");
}

int VQ_BandEigenSolver::CountBand() {
  const double lower = problem_.lower, upper = problem_.upper;
  if (std::isnan(lower) || !std::isfinite(upper) || lower > upper)
    return Fail(kBadBounds, "Invalid band: the lower bound must not exceed a finite upper bound");
  // An upper end at "minus infinity" (as for the lower end, -1e300 and below): an empty band,
  // where a count would shift K by an overflowing multiple of M.
  if (Unbounded(upper)) {
    countLower_ = countUpper_ = bandCount_ = 0;
    counted_ = true;
    return 0;
  }
  if (!factor_) {
    factor_.reset(new ei::ShiftedFactorization(PencilOf(problem_), problem_.oocMode,
                                               problem_.workingDirectory ? problem_.workingDirectory
                                                                         : ""));
    if (!factor_->Ready()) return Fail(kNoMemory, "Memory Allocation Failed");
  }
  // A Krylov space wider than the number of degrees of freedom with mass takes in directions of
  // M's null space (spurious infinite eigenvalues): the slices ask for at most half of them.
  int massDofs = 0;
  for (int i = 0; i < problem_.n; ++i) {
    const double d = problem_.mRowPointers ? problem_.mValues[problem_.mRowPointers[i] - 1]
                                           : problem_.mDiagonal[i];
    massDofs += d > 0.0;
  }
  requestLimit_ = std::max(1, (massDofs - 1) / 2);
  // The scale of the band comes from its upper end, and from the lower end only when that lies
  // inside the spectrum: a lower bound far below it (-1e58 for "everything below upper") must not
  // widen the upper end by its own magnitude.
  scale_ = std::fabs(upper);
  if (!(scale_ > 0.0)) scale_ = 1.0;

  countedUpper_ = upper + kEdgeWidening * scale_;
  if (CountAt(countedUpper_, 1.0, countUpper_) != 0) return FailFactor();
  countLower_ = 0;
  countedLower_ = -std::numeric_limits<double>::infinity();
  if (!Unbounded(lower)) {
    // Each end is widened relative to itself ([2.5, 1e10] must not take in an eigenvalue 2); a
    // lower end at zero relative to the band's scale.
    countedLower_ = lower - kEdgeWidening * (lower != 0.0 ? std::fabs(lower) : scale_);
    // A point on an eigenvalue moves by steps relative to itself, not to a far upper end.
    const double upperScale = scale_;
    if (lower != 0.0) scale_ = std::fabs(lower);
    if (CountAt(countedLower_, -1.0, countLower_) != 0) return FailFactor();
    scale_ = upperScale;
    if (countLower_ > 0) scale_ = std::max(scale_, std::fabs(lower));
  }
  // End the slices where the spectrum ends when the band reaches far above it (every eigenvalue
  // with mass below the upper end): a slice up to 1e78 around a shift of 5e77 cannot resolve
  // eigenvalues of order 10. The count stays the one at the upper end.
  if (countUpper_ > countLower_ && countUpper_ >= massDofs && countedUpper_ > 0.0) {
    for (double factor : {1e-8, 1e-1}) {  // coarse steps first, then fine ones
      for (int k = 0; k < 40; ++k) {
        double candidate = factor * countedUpper_;
        if (candidate <= countedLower_) break;
        scale_ = candidate;  // a candidate on an eigenvalue moves by its own relative step
        int count = 0;
        if (CountAt(candidate, 1.0, count) != 0) return FailFactor();
        if (count < countUpper_ || candidate >= countedUpper_) break;
        countedUpper_ = candidate;
      }
    }
    scale_ = std::max(std::fabs(countedUpper_), countLower_ > 0 ? std::fabs(lower) : 0.0);
  }
  // Start the slices where the spectrum starts when the band reaches below it.
  if (countLower_ == 0 && countUpper_ > 0) {
    double bottom = countedLower_;
    const int status = FindBottom(bottom);
    if (status == kBadBounds) return status;
    if (status != 0) return FailFactor();
    countedLower_ = bottom;
  }
  bandCount_ = countUpper_ - countLower_;
  counted_ = true;
  Print("    band [%.10g, %.10g]: %d eigenvalues below %.10g, %d below %.10g: %d in the band",
        lower, upper, countLower_, countedLower_, countUpper_, countedUpper_, bandCount_);
  return 0;
}

int VQ_BandEigenSolver::Count() {
  status_ = 0;
  message_.clear();
  counted_ = false;
  bandCount_ = 0;
  try {
    return CountBand();
  } catch (const std::bad_alloc&) {
    return Fail(kNoMemory, "Memory Allocation Failed");
  }
}

int VQ_BandEigenSolver::Bisect(double lo, int clo, double hi, int chi, int depth) {
  const bool narrow = hi - lo <= kNarrowestPart * scale_;
  // The block slice solver keeps two bases (the vectors and M times them) of up to about 2.2
  // vectors per mode of the slice: slices stay below about 2 GB of them, so a model of 10^6
  // equations is cut into slices of about 55 modes instead of 120.
  const double basisBytesPerMode = 2.0 * 2.2 * 8.0 * static_cast<double>(problem_.n);
  const int memoryCap = static_cast<int>(std::min(1e9, kSliceBasisBytes / basisBytesPerMode));
  const int sliceSize =
      std::max(1, std::min({sliceSize_, requestLimit_ - 2, std::max(memoryCap, 8)}));
  if (chi - clo <= sliceSize || narrow || depth >= kMaxDepth) {
    VQ_BandSlice s;
    s.lower = lo;
    s.upper = hi;
    s.countLower = clo;
    s.countUpper = chi;
    slices_.push_back(s);
    return 0;
  }
  double mid = lo + 0.5 * (hi - lo);
  int cm = 0;
  if (CountAt(mid, 1.0, cm) != 0) return status_;
  mid = std::min(std::max(mid, lo), hi);
  Print("    %d eigenvalues below %.10g", cm, mid);
  if (Bisect(lo, clo, mid, cm, depth + 1) != 0) return status_;
  return Bisect(mid, cm, hi, chi, depth + 1);
}

// Solves one slice and keeps its pairs inside it, once.
int VQ_BandEigenSolver::SolveSlice(VQ_BandSlice& slice) {
  const int n = problem_.n;
  const int count = slice.countUpper - slice.countLower;
  // A slice at the bottom of the spectrum (nothing below its lower end) is solved around that
  // end, where the band's count already factored: the eigenvalues nearest it are the slice's.
  const bool bottom = slice.countLower == 0 && slice.lower == countedLower_;
  slice.shift = bottom ? slice.lower : slice.lower + 0.5 * (slice.upper - slice.lower);
  if (count == 0) {
    slice.countAtShift = slice.countLower;
    return 0;
  }
  const double window = kBorderWindow * scale_;
  // Pairs kept by the slices before this one near its lower border.
  std::vector<int> neighbours;
  for (size_t j = 0; j < values_.size(); ++j)
    if (values_[j] >= slice.lower - 2.0 * window) neighbours.push_back(static_cast<int>(j));

  if (CountAt(slice.shift, 1.0, slice.countAtShift) != 0) return FailFactor();
  ei::SliceRequest request;
  request.n = n;
  request.sigma = factor_->Sigma();
  request.lower = slice.lower;
  request.upper = slice.upper;
  request.count = count;
  request.extra = 2 + count / 10;
  request.limit = std::max(count, requestLimit_);
  request.op = factor_.get();
  std::vector<double> mv(n);
  for (int attempt = 1; attempt <= kSliceTries; ++attempt) {
    slice.tries = attempt;
    ei::SliceOutcome out;
    if (sliceSolver_->Solve(request, out) != 0) return Fail(out.status, out.message);
    slice.operatorApplications += out.operatorApplications;
    std::vector<double> keptValues, keptVectors;
    for (size_t i = 0; i < out.values.size(); ++i) {
      const double v = out.values[i];
      if (!std::isfinite(v)) continue;  // a breakdown (M near the largest doubles), not a pair
      if (v < slice.lower - window || v > slice.upper + window) continue;
      if (v < countedLower_ || v > countedUpper_) continue;
      double* x = &out.vectors[i * static_cast<size_t>(n)];
      // Remove what a neighbour already holds of this vector.
      if (v < slice.lower + window && !neighbours.empty()) {
        for (int pass = 0; pass < 2; ++pass) {
          factor_->ApplyB(x, mv.data());
          for (int j : neighbours) {
            const double* y = &vectors_[j * static_cast<size_t>(n)];
            const double c = cblas_ddot(n, y, 1, mv.data(), 1);
            cblas_daxpy(n, -c, y, 1, x, 1);
          }
        }
        factor_->ApplyB(x, mv.data());
        const double norm2 = cblas_ddot(n, x, 1, mv.data(), 1);
        if (norm2 < kDuplicate) continue;
        cblas_dscal(n, 1.0 / std::sqrt(norm2), x, 1);
      }
      keptValues.push_back(v);
      keptVectors.insert(keptVectors.end(), x, x + n);
    }
    slice.found = static_cast<int>(keptValues.size());
    Print("    slice [%.10g, %.10g] shift %.10g: %d by the counts (%d below the shift), %d found",
          slice.lower, slice.upper, slice.shift, count, slice.countAtShift, slice.found);
    if (slice.found >= count || attempt == kSliceTries) {
      values_.insert(values_.end(), keptValues.begin(), keptValues.end());
      vectors_.insert(vectors_.end(), keptVectors.begin(), keptVectors.end());
      return 0;
    }
    request.extra += std::max(4, count / 2);
  }
  return 0;
}

int VQ_BandEigenSolver::Solve(int maxModes) {
  status_ = 0;
  message_.clear();
  instability_ = -1;
  slices_.clear();
  values_.clear();
  vectors_.clear();
  try {
    if (CountBand() != 0) return status_;
    if (bandCount_ > std::max(maxModes, 0))
      return Fail(kTooManyModes, "More Eigenvalues in the Band than the Caller Can Take");
    if (bandCount_ == 0) return 0;
    if (Bisect(countedLower_, countLower_, countedUpper_, countUpper_, 0) != 0) {
      if (status_ == kNoMemory) return Fail(kNoMemory, "Memory Allocation Failed");
      return FailFactor();
    }
    for (VQ_BandSlice& slice : slices_)
      if (SolveSlice(slice) != 0) return status_;
    if (static_cast<int>(values_.size()) != bandCount_) {
      char text[160];
      std::snprintf(text, sizeof text,
                    "Eigenvalues of the Band Missed: %d found, %d proven by the Sturm counts",
                    static_cast<int>(values_.size()), bandCount_);
      return Fail(kModesMissed, text);
    }
    // Ascending order (slices are in order; pairs inside a slice are sorted already).
    const int n = problem_.n;
    std::vector<int> order(values_.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [this](int a, int b) { return values_[a] < values_[b]; });
    std::vector<double> v2(values_.size()), z2(vectors_.size());
    for (size_t i = 0; i < order.size(); ++i) {
      v2[i] = values_[order[i]];
      std::copy_n(&vectors_[order[i] * static_cast<size_t>(n)], n, &z2[i * static_cast<size_t>(n)]);
    }
    values_.swap(v2);
    vectors_.swap(z2);
    return 0;
  } catch (const std::bad_alloc&) {
    return Fail(kNoMemory, "Memory Allocation Failed");
  }
}

int VQ_BandEigenSolver::ComputeResidualMode(const double* direction, double* mode,
                                            double* eigenvalue, double* fraction,
                                            double* modesFraction) {
  if (!factor_ || !counted_) return -84;
  // The static solve wants the factorisation at the band's lowest counted point (just below the
  // spectrum for a band from the bottom); the search has usually moved on from it.
  if (!factor_->Factored() || factor_->Sigma() != countedLower_) {
    if (!std::isfinite(countedLower_)) return -84;
    const int status = factor_->Factor(countedLower_);
    if (status != 0) return status;
  }
  const ei::ResidualModeResult r =
      ei::ComputeResidualMode(*factor_, GetNumFoundEigen(), vectors_.data(), direction);
  if (r.status != 0) return r.status;
  std::copy(r.mode.begin(), r.mode.end(), mode);
  *eigenvalue = r.eigenvalue;
  *fraction = r.fraction;
  if (modesFraction) *modesFraction = r.modesFraction;
  return 0;
}
