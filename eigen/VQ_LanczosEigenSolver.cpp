// VQ_LanczosEigenSolver.cpp - natural and buckling modes by implicitly restarted Lanczos.
// See the header for the problems, the size rules, the incremental passes and the statuses.
#include "eigen/VQ_LanczosEigenSolver.h"

#include <mkl_cblas.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <numeric>

#include "eigen/internal/ArpackDriver.h"
#include "eigen/internal/ArpackMessages.h"
#include "eigen/internal/SparseShiftInvertOperator.h"
#include "eigen/VQ_ModalMass.h"
#include "eigen/VQ_SturmSequenceCheck.h"
#include "sparse/VQ_InertiaCount.h"
#include "sparse/VQ_SparseSolver.h"
#include "sparse/VQ_SparseSymMatrix.h"

namespace ei = vqmath::eigen_internal;

namespace {

// A shift below the machine precision counts as zero: K itself is factored, and the buckling
// mode refuses to run.
constexpr double kZeroShift = 2.220446049250313e-16;
// MAC bounds of the incremental drivers.
constexpr double kMacSameMode = 0.99;
constexpr double kMacNewMode = 0.01;
// A found mode takes part in a mode's MAC when it contributes more than this share of it.
constexpr double kMacShared = 1e-3;
// Relative distance under which two eigenvalues are taken as one repeated eigenvalue.
constexpr double kRepeatedEigenvalue = 1e-6;
// How far past a repeated eigenvalue the shift moves when a pass found nothing new (beyond the
// tolerance under which eigenvalues count as repeated).
constexpr double kStepPastRepeated = 1e-5;
// A buckling factor this small relative to the scale of the problem means K is singular.
constexpr double kBucklingFactorZero = 1e-9;

bool IsZeroShift(double sigma) { return std::fabs(sigma) < kZeroShift; }

bool SameEigenvalue(double a, double b) {
  const double scale = std::max({std::fabs(a), std::fabs(b), 1e-300});
  return std::fabs(a - b) <= kRepeatedEigenvalue * scale;
}

bool HasBucklingFactorNearZero(const std::vector<double>& values, double sigma) {
  double scale = std::fabs(sigma);
  for (double v : values) scale = std::max(scale, std::fabs(v));
  for (double v : values)
    if (std::fabs(v) <= kBucklingFactorZero * scale) return true;
  return false;
}

// K or B without the arrays that hold it (B in compressed rows, or its diagonal).
bool MissingArrays(const VQ_LanczosProblem& p) {
  return !p.kRowPointers || !p.kColumnIndices || !p.kValues || (!p.bRowPointers && !p.bDiagonal) ||
         (p.bRowPointers && (!p.bColumnIndices || !p.bValues));
}

}  // namespace

// One ARPACK run: eigenvalues ascending, vectors (n per mode) when requested.
struct VQ_LanczosEigenSolver::Pass {
  int count = 0;
  bool partial = false;
  std::vector<double> values;
  std::vector<double> vectors;
};

VQ_LanczosEigenSolver::VQ_LanczosEigenSolver(const VQ_LanczosProblem& problem)
    : problem_(problem) {}

VQ_LanczosEigenSolver::~VQ_LanczosEigenSolver() = default;

int VQ_LanczosEigenSolver::Solve(int problemFlag) {
  return problemFlag == 1 ? SolveBucklingModes() : SolveNaturalModes();
}

int VQ_LanczosEigenSolver::SolveNaturalModes() { return SolveSingle(false); }
int VQ_LanczosEigenSolver::SolveBucklingModes() { return SolveSingle(true); }
int VQ_LanczosEigenSolver::SolveNaturalModesIncrementally() { return SolveIncrementally(false); }
int VQ_LanczosEigenSolver::SolveBucklingModesIncrementally() { return SolveIncrementally(true); }

// ---- failures ----------------------------------------------------------------------------------

int VQ_LanczosEigenSolver::Fail(int driverStatus) {
  int code = 0;
  std::string text;
  ei::LanczosDriverStatusText(driverStatus, code, text);
  return FailWith(driverStatus, code, text);
}

int VQ_LanczosEigenSolver::FailWith(int driverStatus, int status, const std::string& message) {
  result_.driverStatus = driverStatus;
  result_.status = status;
  result_.message = message;
  return driverStatus;
}

void VQ_LanczosEigenSolver::Print(const char* format, ...) const {
  if (!problem_.verbose) return;
  va_list args;
  va_start(args, format);
  std::vprintf(format, args);
  va_end(args);
  std::printf("\n");
  std::fflush(stdout);
}

// ---- factorisation -----------------------------------------------------------------------------

int VQ_LanczosEigenSolver::Factor(bool buckling, double sigma) {
  const int n = problem_.n;
  double* a = const_cast<double*>(problem_.kValues);
  int* ia = const_cast<int*>(problem_.kRowPointers);
  int* ja = const_cast<int*>(problem_.kColumnIndices);
  bool shiftedPattern = false;

  if (!IsZeroShift(sigma)) {
    // K − σ·B into a copy of K, on the union of both patterns.
    if (!bMatrix_) {
      if (problem_.bRowPointers != nullptr) {
        bMatrix_.reset(new VQ_SparseSymMatrix(n, const_cast<double*>(problem_.bValues),
                                              const_cast<int*>(problem_.bRowPointers),
                                              const_cast<int*>(problem_.bColumnIndices)));
      } else {
        std::vector<int> rows(static_cast<size_t>(n) + 1), cols(static_cast<size_t>(n));
        std::iota(rows.begin(), rows.end(), 1);
        std::iota(cols.begin(), cols.end(), 1);
        bMatrix_.reset(new VQ_SparseSymMatrix(n, const_cast<double*>(problem_.bDiagonal),
                                              rows.data(), cols.data()));
      }
      if (bMatrix_->MatrixStatus() != 0) return Fail(ei::kLanczosNoMemory);
    }
    std::unique_ptr<VQ_SparseSymMatrix> shifted(new VQ_SparseSymMatrix(n, a, ia, ja));
    if (shifted->MatrixStatus() != 0) return Fail(ei::kLanczosNoMemory);
    if (!shifted->TwoSparseMatrixOperation(bMatrix_.get(), 1.0, -sigma) ||
        shifted->MatrixStatus() != 0) {
      return FailWith(ei::kLanczosFactorFailed, ei::kStatusArpackFailed,
                      buckling ? ei::kTextShiftFailedGeometric : ei::kTextShiftFailedMass);
    }
    a = shifted->GetDataPointer();
    ia = shifted->GetRowVectorPointer();
    ja = shifted->GetColumnVectorPointer();
    shifted_.swap(shifted);  // the previous shifted matrix (if any) goes only now
    shiftedPattern = true;
  }

  // A new shift on the pattern already analysed needs the numerical factorisation only.
  bool withAnalysis = true;
  if (solver_ && shiftedPattern && factoredShifted_) {
    withAnalysis = false;
    solver_->Set_Matrix(n, a, ia, ja);
  } else {
    solver_.reset(new VQ_SparseSolver(n, a, ia, ja, 1, nullptr, problem_.oocMode,
                                      problem_.matrixType, 0, problem_.workingDirectory, nullptr));
  }
  const int status = solver_->Decomposition(true, withAnalysis);
  ++result_.factorizations;
  factoredShifted_ = shiftedPattern && status == 0;
  if (status == 0) return 0;

  // Translate the solver's failure; the run ends with driver status −9.
  switch (status) {
    case VQ_SparseSolver::kStatusZeroPivot: {
      int code = 0;
      std::string text;
      ei::LanczosDriverStatusText(ei::kLanczosInstability, code, text);
      result_.instabilityEquation = solver_->Get_DOFNumForInstability();
      return FailWith(ei::kLanczosFactorFailed, code, text);
    }
    case VQ_SparseSolver::kStatusCancelled:
    case VQ_SparseSolver::kStatusOutOfMemory:
    case VQ_SparseSolver::kStatusOutOfMemoryOutOfCore: {
      int code = 0;
      std::string text;
      ei::LanczosDriverStatusText(status == VQ_SparseSolver::kStatusCancelled
                                      ? ei::kLanczosCancelled
                                      : ei::kLanczosNoMemory,
                                  code, text);
      return FailWith(ei::kLanczosFactorFailed, code, text);
    }
    default: {
      std::string message;
      int code = ei::kStatusArpackFailed;
      solver_->GetSolverErrorInfo(message, code);
      return FailWith(ei::kLanczosFactorFailed, code, message);
    }
  }
}

// ---- one ARPACK run ----------------------------------------------------------------------------

int VQ_LanczosEigenSolver::RunPass(bool buckling, double sigma, int requested, int which,
                                   bool wantVectors, Pass& pass) {
  const int n = problem_.n;
  ei::ArpackRequest request;
  request.n = n;
  request.sizes = ei::ComputeArpackSizes(n, requested, problem_.maxIterations);
  request.which = ei::ArpackWhichFromInt(which);
  request.mode = buckling ? ei::ArpackMode::kBuckling : ei::ArpackMode::kShiftInvert;
  request.sigma = sigma;
  request.wantVectors = wantVectors;

  int status = Factor(buckling, sigma);
  if (status != 0) return status;

  // B: the mass for natural modes, K itself in buckling mode.
  vqmath::internal::SymmetricProduct product;
  const int expectedProducts = 4 * request.sizes.ncv + 16;
  if (buckling) {
    product.SetSparse(n, problem_.kRowPointers, problem_.kColumnIndices, problem_.kValues,
                      expectedProducts);
  } else if (problem_.bRowPointers != nullptr) {
    product.SetSparse(n, problem_.bRowPointers, problem_.bColumnIndices, problem_.bValues,
                      expectedProducts);
  } else {
    product.SetDiagonal(n, problem_.bDiagonal);
  }
  ei::SparseShiftInvertOperator op(product, *solver_);

  ei::ArpackOutcome outcome;
  const ei::ArpackResult r = ei::RunArpack(request, op, outcome);
  result_.operatorApplications += outcome.operatorApplications;
  result_.bProducts += outcome.bProducts;
  result_.iterations += outcome.iterations;
  ++result_.passes;

  switch (r) {
    case ei::ArpackResult::kConverged:
    case ei::ArpackResult::kPartial:
      pass.count = outcome.count;
      pass.partial = r == ei::ArpackResult::kPartial;
      pass.values.swap(outcome.values);
      pass.vectors.swap(outcome.vectors);
      return 0;
    case ei::ArpackResult::kOutOfMemory: return Fail(ei::kLanczosNoMemory);
    case ei::ArpackResult::kUnexpectedIdo:
      return FailWith(ei::kLanczosBadRequest, ei::kStatusArpackFailed,
                      "ARPACK failed to Find Eigenvectors");
    case ei::ArpackResult::kOperatorFailed: {
      const int s = outcome.operatorStatus;
      if (s == VQ_SparseSolver::kStatusOutOfMemory || s == VQ_SparseSolver::kStatusOutOfMemoryOutOfCore)
        return Fail(ei::kLanczosNoMemory);
      std::string message;
      int code = ei::kStatusArpackFailed;
      solver_->GetSolverErrorInfo(message, code);
      if (message.empty()) message = "ARPACK failed to Find Eigenvectors";
      return FailWith(ei::kLanczosArpackFailed, code, message);
    }
    case ei::ArpackResult::kArpackError:
    default: {
      std::string text;
      if (!ei::ArpackInfoText(outcome.info, text)) text = "ARPACK failed to Find Eigenvectors";
      return FailWith(ei::kLanczosArpackFailed, ei::ArpackInfoStatus(outcome.info), text);
    }
  }
}

// ---- delivery ----------------------------------------------------------------------------------

void VQ_LanczosEigenSolver::Deliver(int count, const double* values, const double* vectors) {
  result_.found = count;
  if (problem_.found) *problem_.found = count;
  if (count <= 0) return;
  if (problem_.eigenvalues) std::memcpy(problem_.eigenvalues, values, sizeof(double) * count);
  if (problem_.modeShapes && vectors)
    std::memcpy(problem_.modeShapes, vectors,
                sizeof(double) * static_cast<size_t>(problem_.n) * static_cast<size_t>(count));
}

// ---- verification ------------------------------------------------------------------------------

int VQ_LanczosEigenSolver::Verify(bool buckling, int count, const double* values,
                                  const double* vectors) {
  if (!problem_.verify || buckling || count <= 0) return 0;
  const int n = problem_.n;
  const bool sparse = problem_.bRowPointers != nullptr;
  std::unique_ptr<VQ_InertiaCount> counter(
      sparse ? new VQ_InertiaCount(n, problem_.kRowPointers, problem_.kColumnIndices,
                                   problem_.kValues, problem_.bRowPointers,
                                   problem_.bColumnIndices, problem_.bValues)
             : new VQ_InertiaCount(n, problem_.kRowPointers, problem_.kColumnIndices,
                                   problem_.kValues, problem_.bDiagonal));
  counter->SetOutOfCoreMode(problem_.oocMode);
  if (problem_.workingDirectory) counter->SetWorkingDirectory(problem_.workingDirectory);
  std::unique_ptr<VQ_ModalMass> mass(
      sparse ? new VQ_ModalMass(n, problem_.bRowPointers, problem_.bColumnIndices, problem_.bValues)
             : new VQ_ModalMass(n, problem_.bDiagonal));
  VQ_SturmSequenceCheck check(*counter, mass.get());
  if (sparse)
    check.SetSparseMass(problem_.bRowPointers, problem_.bValues);
  else
    check.SetMassDiagonal(problem_.bDiagonal);
  const VQ_SturmCheckOutcome outcome = check.Check(values, count, problem_.shift, vectors);
  if (outcome.done) result_.sturmCount = outcome.counted;
  if (outcome.status != 0) {
    // Nothing delivered is an eigenvalue: take it back.
    if (problem_.eigenvalues) std::memset(problem_.eigenvalues, 0, sizeof(double) * count);
    Deliver(0, nullptr, nullptr);
    return FailWith(ei::kLanczosArpackFailed, outcome.status, outcome.message);
  }
  if (outcome.missed) result_.warning = -23;
  return 0;
}

// ---- single-pass drivers -----------------------------------------------------------------------

int VQ_LanczosEigenSolver::SolveSingle(bool buckling) {
  result_ = VQ_LanczosResult();
  if (problem_.found) *problem_.found = 0;
  try {
    if (buckling && IsZeroShift(problem_.shift)) return Fail(ei::kLanczosBucklingWithoutShift);
    // ARPACK's own input checks, made before anything is factored.
    std::string text;
    if (problem_.n <= 0) {
      ei::ArpackInfoText(-1, text);
      return FailWith(ei::kLanczosArpackFailed, ei::ArpackInfoStatus(-1), text);
    }
    const ei::ArpackSizes sizes =
        ei::ComputeArpackSizes(problem_.n, problem_.requested, problem_.maxIterations);
    if (sizes.nev <= 0) {
      ei::ArpackInfoText(-2, text);
      return FailWith(ei::kLanczosArpackFailed, ei::ArpackInfoStatus(-2), text);
    }
    if (MissingArrays(problem_)) {
      return FailWith(ei::kLanczosArpackFailed, ei::kStatusArpackInvalidInput,
                      "ARPACK failed to Find Eigenvectors");
    }

    Pass pass;
    const bool wantVectors = problem_.modeShapes != nullptr;
    int status =
        RunPass(buckling, problem_.shift, problem_.requested, problem_.which, wantVectors, pass);
    if (status != 0) return status;
    if (buckling && HasBucklingFactorNearZero(pass.values, problem_.shift))
      return Fail(ei::kLanczosBucklingFactorNearZero);

    Deliver(pass.count, pass.values.data(), wantVectors ? pass.vectors.data() : nullptr);
    status = Verify(buckling, pass.count, pass.values.data(),
                    wantVectors ? pass.vectors.data() : nullptr);
    if (status != 0) return status;
    if (pass.partial) {
      return FailWith(ei::kLanczosPartial, ei::kStatusPartial, ei::kTextNotAllFound);
    }
    result_.driverStatus = 0;
    return 0;
  } catch (const std::bad_alloc&) {
    return Fail(ei::kLanczosNoMemory);
  }
}

// ---- incremental drivers -----------------------------------------------------------------------

// The modes the incremental drivers have found so far, with the metric of the MAC (B = M for
// natural modes, K for buckling modes): eigenvalues in the order found, their B-normalised modes
// (n each) and B times each mode.
struct VQ_LanczosEigenSolver::FoundModes {
  vqmath::internal::SymmetricProduct metric;
  std::vector<double> values;
  std::vector<double> modes;
  std::vector<double> metricModes;
  std::vector<double> bx, g, remainder;  // work vectors
  int Count() const { return static_cast<int>(values.size()); }
};

namespace {

// The shift of the next incremental pass, between the two highest distinct eigenvalues found so
// far, so that the highest one (with any repeated partners) lies just above it. A pass that added
// nothing met only modes found before (a repeated eigenvalue filling the block): the shift then
// moves just past that eigenvalue; a second pass without progress ends the search (false).
bool NextIncrementalShift(const std::vector<double>& values, double sigma, int added,
                          bool& stalled, double& next) {
  const double top = *std::max_element(values.begin(), values.end());
  if (added == 0) {
    if (stalled) return false;
    stalled = true;
    next = top + kStepPastRepeated * std::max(std::fabs(top), std::fabs(top - sigma));
    return true;
  }
  stalled = false;
  bool havePrevious = false;
  double previous = 0.0;
  for (double v : values) {
    if (v < top && !SameEigenvalue(v, top) && (!havePrevious || v > previous)) {
      previous = v;
      havePrevious = true;
    }
  }
  if (havePrevious) {
    next = 0.5 * (previous + top);
  } else if (top > sigma) {
    next = 0.5 * (sigma + top);
  } else {
    next = sigma + 0.5 * std::max({std::fabs(sigma), std::fabs(top), 1e-300});
  }
  return true;
}

}  // namespace

int VQ_LanczosEigenSolver::CheckIncrementalRequest(bool buckling, int& wanted) {
  if (problem_.blockSize < 2) return Fail(ei::kLanczosBlockTooSmall);
  if (buckling && IsZeroShift(problem_.shift)) return Fail(ei::kLanczosBucklingWithoutShift);
  std::string text;
  const int n = problem_.n;
  if (n <= 0) {
    ei::ArpackInfoText(-1, text);
    return FailWith(ei::kLanczosArpackFailed, ei::ArpackInfoStatus(-1), text);
  }
  // The whole search obeys the size rule of one run.
  wanted = ei::ComputeArpackSizes(n, problem_.requested, -1).nev;
  if (wanted <= 0) {
    ei::ArpackInfoText(-2, text);
    return FailWith(ei::kLanczosArpackFailed, ei::ArpackInfoStatus(-2), text);
  }
  if (MissingArrays(problem_)) {
    return FailWith(ei::kLanczosArpackFailed, ei::kStatusArpackInvalidInput,
                    "ARPACK failed to Find Eigenvectors");
  }
  return 0;
}

int VQ_LanczosEigenSolver::AddPassModes(bool buckling, const Pass& pass, FoundModes& found,
                                        int& added) {
  const int n = problem_.n;
  const size_t un = static_cast<size_t>(n);
  const int macFailure = buckling ? ei::kLanczosBucklingMacFailed : ei::kLanczosMacFailed;
  std::vector<double>& bx = found.bx;
  std::vector<double>& g = found.g;
  added = 0;
  for (int i = 0; i < pass.count; ++i) {
    const double* phi = &pass.vectors[static_cast<size_t>(i) * un];
    if (found.metric.Apply(phi, bx.data()) != 0) return Fail(ei::kLanczosArpackFailed);
    const double norm = cblas_ddot(n, phi, 1, bx.data(), 1);
    if (!(norm > 0.0)) return Fail(macFailure);
    const int m = found.Count();
    g.assign(static_cast<size_t>(m), 0.0);
    if (m > 0)
      cblas_dgemv(CblasColMajor, CblasTrans, n, m, 1.0, found.metricModes.data(), n, phi, 1, 0.0,
                  g.data(), 1);
    double mac = 0.0;
    for (int j = 0; j < m; ++j) mac += g[j] * g[j] / norm;
    Print("    Computed MAC value = %f", mac);

    if (mac > kMacSameMode) continue;  // found before
    if (mac > kMacNewMode) {
      // Acceptable only as the missing part of a repeated eigenvalue's eigenspace: every found
      // mode it shares noticeably must be of the same eigenvalue.
      double outside = 0.0;
      bool shared = false;
      for (int j = 0; j < m; ++j) {
        const double share = g[j] * g[j] / norm;
        if (share <= kMacShared) {
          outside += share;
        } else if (SameEigenvalue(found.values[j], pass.values[i])) {
          shared = true;
        } else {
          return Fail(macFailure);
        }
      }
      if (!shared || outside > kMacNewMode) return Fail(macFailure);
    }
    // Within a repeated eigenvalue any combination is a mode: keep the new one B-orthogonal to
    // the partners found before (φ − Σ (uⱼᵀBφ)·uⱼ over them; same eigenvalue).
    const double* newMode = phi;
    bool projected = false;
    for (int j = 0; j < m; ++j) {
      if (!SameEigenvalue(found.values[j], pass.values[i])) continue;
      if (!projected) {
        std::memcpy(found.remainder.data(), phi, sizeof(double) * un);
        projected = true;
      }
      cblas_daxpy(n, -g[j], &found.modes[static_cast<size_t>(j) * un], 1, found.remainder.data(),
                  1);
    }
    if (projected) {
      newMode = found.remainder.data();
      if (found.metric.Apply(newMode, bx.data()) != 0) return Fail(ei::kLanczosArpackFailed);
    }
    const double newNorm = cblas_ddot(n, newMode, 1, bx.data(), 1);
    if (!(newNorm > 0.0)) return Fail(macFailure);
    const double scale = 1.0 / std::sqrt(newNorm);
    const size_t offset = found.modes.size();
    found.modes.resize(offset + un);
    found.metricModes.resize(offset + un);
    for (size_t k = 0; k < un; ++k) {
      found.modes[offset + k] = newMode[k] * scale;
      found.metricModes[offset + k] = bx[k] * scale;
    }
    found.values.push_back(pass.values[i]);
    ++added;
  }
  return 0;
}

int VQ_LanczosEigenSolver::DeliverIncremental(bool buckling, const FoundModes& found,
                                              int wanted) {
  // Ascending eigenvalues, at most the count wanted.
  const size_t un = static_cast<size_t>(problem_.n);
  const std::vector<double>& values = found.values;
  const int total = found.Count();
  std::vector<int> order(static_cast<size_t>(total));
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&values](int a, int b) { return values[a] < values[b]; });
  const int count = std::min(total, wanted);
  std::vector<double> outValues(static_cast<size_t>(count));
  std::vector<double> outModes;
  const bool wantVectors = problem_.modeShapes != nullptr;
  if (wantVectors) outModes.resize(un * static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    outValues[i] = values[order[i]];
    if (wantVectors)
      std::memcpy(&outModes[static_cast<size_t>(i) * un],
                  &found.modes[static_cast<size_t>(order[i]) * un], sizeof(double) * un);
  }
  Deliver(count, outValues.data(), wantVectors ? outModes.data() : nullptr);
  const int verified =
      Verify(buckling, count, outValues.data(), wantVectors ? outModes.data() : nullptr);
  if (verified != 0) return verified;
  if (count < wanted) return Fail(ei::kLanczosNotAllFound);
  result_.driverStatus = 0;
  return 0;
}

int VQ_LanczosEigenSolver::SolveIncrementally(bool buckling) {
  result_ = VQ_LanczosResult();
  if (problem_.found) *problem_.found = 0;
  try {
    int wanted = 0;
    if (int failed = CheckIncrementalRequest(buckling, wanted)) return failed;
    const int n = problem_.n;
    const int block = problem_.blockSize;

    FoundModes found;
    if (buckling) {
      found.metric.SetSparse(n, problem_.kRowPointers, problem_.kColumnIndices, problem_.kValues,
                             0);
    } else if (problem_.bRowPointers != nullptr) {
      found.metric.SetSparse(n, problem_.bRowPointers, problem_.bColumnIndices, problem_.bValues,
                             0);
    } else {
      found.metric.SetDiagonal(n, problem_.bDiagonal);
    }
    found.bx.resize(static_cast<size_t>(n));
    found.remainder.resize(static_cast<size_t>(n));

    const int announced = (wanted + block - 1) / block;
    const int maxPasses = wanted + announced;
    Print("    solving incrementally using %i passes with size %i", announced, block);

    double sigma = problem_.shift;
    int which = problem_.which;
    const ei::ArpackWhich callerWhich = ei::ArpackWhichFromInt(problem_.which);
    bool stalled = false;

    for (int passNumber = 1; passNumber <= maxPasses; ++passNumber) {
      Print("    Current shift value is %f", sigma);
      Pass pass;
      int status = RunPass(buckling, sigma, block, which, true, pass);
      if (status != 0) return status;
      int added = 0;
      status = AddPassModes(buckling, pass, found, added);
      if (status != 0) return status;

      const int total = found.Count();
      Print("    Found %i modes in pass %i/%i (total %i found)", added, passNumber,
            std::max(announced, passNumber), total);
      if (buckling && HasBucklingFactorNearZero(found.values, sigma))
        return Fail(ei::kLanczosBucklingFactorNearZero);
      if (total >= wanted) {
        Print("    Found all %i modes in pass %i/%i", wanted, passNumber,
              std::max(announced, passNumber));
        break;
      }
      if (!NextIncrementalShift(found.values, sigma, added, stalled, sigma)) break;
      if (callerWhich == ei::ArpackWhich::kLargestMagnitude && (!buckling || sigma > 0.0))
        which = static_cast<int>(ei::ArpackWhich::kLargestAlgebraic);
      else
        which = problem_.which;
    }
    return DeliverIncremental(buckling, found, wanted);
  } catch (const std::bad_alloc&) {
    return Fail(ei::kLanczosNoMemory);
  }
}
