// The flat functions of vqmath_mpi.h: distributed input checked and agreed on, the cluster
// factorisation, distributed solves, Sturm counts and shift-invert Lanczos by PARPACK, every
// outcome recorded in libvqmath's registry on every process.
#include "vqmath_mpi.h"

#include "core/GlobalState.h"
#include "eigen/internal/ArpackMessages.h"
#include "mpi/internal/ClusterSolver.h"
#include "mpi/internal/DistributedRows.h"
#include "mpi/internal/MpiAgreement.h"
#include "mpi/internal/ParpackDriver.h"
#include "mpi/internal/SliceCheck.h"
#include "vqmath.h"

#include <cmath>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace mi = vqmath::mpi_internal;
namespace ei = vqmath::eigen_internal;

struct VQ_MpiFactorization {
  MPI_Comm comm = MPI_COMM_NULL;
  mi::LocalRows rows;  // a copy: the refinement steps of every solve read the matrix again
  std::unique_ptr<mi::ClusterSolver> solver;
};

namespace {

constexpr int kInvalidInput = -64;
constexpr double kZeroShift = 2.220446049250313e-16;

int lastParameters[64] = {};

std::string Invalid(const std::string& problem) { return "ERROR_INVALID_MATRICES: " + problem; }

mi::Outcome InvalidOutcome(const std::string& problem) {
  mi::Outcome o;
  o.code = kInvalidInput;
  o.message = Invalid(problem);
  return o;
}

// A matrix given as local rows, or absent.
struct RowsArg {
  const char* name;
  const int* rowPointers;
  const int* columnIndices;
  const double* values;
};

// The row ranges (collective, the same verdict everywhere), then each process's own arrays,
// agreed on. Nothing after a failure here reads the arrays.
// `problem` is what this process found wrong with its pointer arguments before (pointers may
// differ between processes, so that too is agreed on); empty when nothing.
mi::Outcome CheckInput(MPI_Comm comm, int n, int firstRow, int lastRow, const std::vector<RowsArg>& matrices,
                       const std::vector<std::pair<const char*, const double*>>& slices, long long sliceLength,
                       std::string problem = std::string()) {
  const std::string ranges = mi::CheckRowRanges(comm, n, firstRow, lastRow);
  if (!ranges.empty()) return InvalidOutcome(ranges);
  mi::Outcome local;
  for (const RowsArg& m : matrices) {
    if (!problem.empty()) break;
    problem = mi::CheckRows(m.name, n, firstRow, lastRow, m.rowPointers, m.columnIndices, m.values);
  }
  for (const auto& s : slices) {
    if (!problem.empty()) break;
    problem = mi::CheckSlice(s.first, sliceLength, firstRow, s.second);
  }
  if (!problem.empty())
    local = InvalidOutcome("process " + std::to_string(mi::RankOf(comm)) + ": " + problem);
  return mi::Agree(comm, local);
}

mi::Outcome NoMemory() {
  mi::Outcome o;
  o.code = -1;
  o.message = "Memory Allocation Failed";
  return o;
}

void KeepParameters(const mi::ClusterSolver& solver) {
  std::memcpy(lastParameters, solver.Parameters(), sizeof lastParameters);
}

// Factor the local rows (copied into f) with the counts and the pivoting warning recorded.
int Factor(MPI_Comm comm, int n, int firstRow, int lastRow, const int* rowPointers, const int* columnIndices,
           const double* values, int matrixType, int stopIfNotPosDefinite, VQ_MpiFactorization** factorization) {
  VQ_ResetGlobalErrorsAndWarnings();
  if (factorization) *factorization = nullptr;
  // Scalar arguments are the same on every process, so this verdict needs no exchange.
  if (matrixType != 2 && matrixType != -2)
    return mi::Record(InvalidOutcome("matrix type " + std::to_string(matrixType) + " is neither 2 nor -2"));
  mi::Outcome o = CheckInput(comm, n, firstRow, lastRow, {{"K", rowPointers, columnIndices, values}}, {}, 0,
                             factorization ? "" : "the factorization argument is NULL");
  if (o.Failed()) return mi::Record(o);

  std::unique_ptr<VQ_MpiFactorization> f;
  mi::Outcome local;
  try {
    f = std::make_unique<VQ_MpiFactorization>();
    f->comm = comm;
    const int rows = lastRow - firstRow + 1;
    const int nnz = rowPointers[rows] - 1;
    f->rows.n = n;
    f->rows.first = firstRow;
    f->rows.last = lastRow;
    f->rows.rowPointers.assign(rowPointers, rowPointers + rows + 1);
    f->rows.columnIndices.assign(columnIndices, columnIndices + nnz);
    f->rows.values.assign(values, values + nnz);
    f->solver = std::make_unique<mi::ClusterSolver>(comm, n, firstRow, lastRow);
  } catch (const std::bad_alloc&) {
    local = NoMemory();
  }
  o = mi::Agree(comm, local);
  if (o.Failed()) return mi::Record(o);

  o = f->solver->Factor(f->rows.rowPointers.data(), f->rows.columnIndices.data(), f->rows.values.data(), matrixType,
                        stopIfNotPosDefinite != 0);
  KeepParameters(*f->solver);
  vqmath::internal::Registry& r = vqmath::internal::registry();
  r.negativeEigenvalues = f->solver->NegativePivots();
  r.positiveEigenvalues = f->solver->PositivePivots();
  if (o.Failed()) return mi::Record(o);
  if (f->solver->PivotingWarning()) {
    r.warningCode = -85;
    r.warningMessage = "Pivoting Applied for Small or Zero Pivots. Solution Successfully Completed.";
  }
  *factorization = f.release();
  return 0;
}

int Solve(VQ_MpiFactorization* f, int nrhs, const double* rhs, double* solution) {
  const int rows = f->rows.last - f->rows.first + 1;
  mi::Outcome local;
  std::string problem;
  if (!solution) problem = "solution: the array is missing (NULL)";
  if (problem.empty()) problem = mi::CheckSlice("load", static_cast<long long>(rows) * nrhs, f->rows.first, rhs);
  if (!problem.empty()) local = InvalidOutcome("process " + std::to_string(mi::RankOf(f->comm)) + ": " + problem);
  mi::Outcome o = mi::Agree(f->comm, local);
  if (o.Failed()) return mi::Record(o);
  std::vector<double> x;
  local = mi::Outcome();
  try {
    x.assign(static_cast<size_t>(rows) * nrhs, 0.0);
  } catch (const std::bad_alloc&) {
    local = NoMemory();
  }
  o = mi::Agree(f->comm, local);
  if (o.Failed()) return mi::Record(o);
  o = f->solver->Solve(nrhs, rhs, x.data());
  if (o.Failed()) return mi::Record(o);
  std::memcpy(solution, x.data(), sizeof(double) * x.size());
  return 0;
}

// B·x and the shift-invert solve for PARPACK.
class DistributedOperator : public ei::ShiftInvertOperator {
 public:
  DistributedOperator(mi::ClusterSolver& solver, const double* diagonal, mi::DistributedProduct* product, int rows)
      : solver_(solver), diagonal_(diagonal), product_(product), rows_(rows) {}
  int ApplyB(const double* x, double* y) override {
    if (product_) {
      product_->Apply(x, y);
    } else {
      for (int i = 0; i < rows_; ++i) y[i] = diagonal_[i] * x[i];
    }
    return 0;
  }
  int Solve(const double* r, double* y) override {
    failure_ = solver_.Solve(1, r, y);
    return failure_.code;
  }
  const mi::Outcome& Failure() const { return failure_; }

 private:
  mi::ClusterSolver& solver_;
  const double* diagonal_;
  mi::DistributedProduct* product_;
  int rows_;
  mi::Outcome failure_;
};

mi::Outcome DriverFailure(int driverStatus) {
  mi::Outcome o;
  ei::LanczosDriverStatusText(driverStatus, o.code, o.message);
  return o;
}

int Lanczos(MPI_Comm comm, int n, int firstRow, int lastRow, const int* kRowPointers, const int* kColumnIndices,
            const double* kValues, const double* massDiagonal, const int* bRowPointers, const int* bColumnIndices,
            const double* bValues, int buckling, int requested, double shift, int maxIterations, int* found,
            double* eigenvalues, double* modeShapes, int* belowShift) {
  VQ_ResetGlobalErrorsAndWarnings();
  if (eigenvalues && requested > 0) std::memset(eigenvalues, 0, sizeof(double) * requested);
  if (found) *found = 0;
  if (belowShift) *belowShift = 0;
  // Scalar arguments are the same on every process: these verdicts need no exchange.
  if (requested < 1) {
    mi::Outcome o;
    ei::ArpackInfoText(-2, o.message);
    o.code = ei::ArpackInfoStatus(-2);
    return mi::Record(o);
  }
  if (!std::isfinite(shift)) return mi::Record(InvalidOutcome("the shift is not a finite number"));
  if (buckling && std::fabs(shift) < kZeroShift) return mi::Record(DriverFailure(ei::kLanczosBucklingWithoutShift));

  // Pointers and the order may differ between processes: judged together with the rows.
  const bool sparseB = bRowPointers != nullptr;
  std::string problem;
  if (buckling && !sparseB) problem = "buckling needs the geometric stiffness as rows";
  else if (!buckling && sparseB == (massDiagonal != nullptr)) problem = "give the mass either as a diagonal or as rows";
  else if (!found) problem = "found is NULL";
  else if (!eigenvalues) problem = "eigenvalues is NULL";
  std::vector<RowsArg> matrices = {{"K", kRowPointers, kColumnIndices, kValues}};
  if (sparseB) matrices.push_back({buckling ? "Kg" : "M", bRowPointers, bColumnIndices, bValues});
  std::vector<std::pair<const char*, const double*>> slices;
  if (massDiagonal && !sparseB) slices.push_back({"mass diagonal", massDiagonal});
  const long long rows = static_cast<long long>(lastRow) - firstRow + 1;
  mi::Outcome o = CheckInput(comm, n, firstRow, lastRow, matrices, slices, rows, problem);
  if (o.Failed()) return mi::Record(o);
  if (n < 2) {
    ei::ArpackInfoText(-1, o.message);
    o.code = ei::ArpackInfoStatus(-1);
    return mi::Record(o);
  }

  // K − σ·B, its factorisation, and B·x (K·x in buckling mode).
  mi::Outcome local;
  mi::LocalRows shifted;
  std::unique_ptr<mi::DistributedProduct> product;
  std::unique_ptr<mi::ClusterSolver> solver;
  try {
    if (std::fabs(shift) >= kZeroShift || !buckling)
      shifted = mi::ShiftedRows(n, firstRow, lastRow, kRowPointers, kColumnIndices, kValues, shift, massDiagonal,
                                bRowPointers, bColumnIndices, bValues);
    solver = std::make_unique<mi::ClusterSolver>(comm, n, firstRow, lastRow);
  } catch (const std::bad_alloc&) {
    local = DriverFailure(ei::kLanczosNoMemory);
  }
  o = mi::Agree(comm, local);
  if (o.Failed()) return mi::Record(o);
  try {
    if (buckling)
      product = std::make_unique<mi::DistributedProduct>(comm, n, firstRow, lastRow, kRowPointers, kColumnIndices,
                                                         kValues);
    else if (sparseB)
      product = std::make_unique<mi::DistributedProduct>(comm, n, firstRow, lastRow, bRowPointers, bColumnIndices,
                                                         bValues);
  } catch (const std::bad_alloc&) {
    local = DriverFailure(ei::kLanczosNoMemory);
  }
  o = mi::Agree(comm, local);
  if (o.Failed()) return mi::Record(o);

  o = solver->Factor(shifted.rowPointers.data(), shifted.columnIndices.data(), shifted.values.data(), -2, false);
  KeepParameters(*solver);
  if (o.Failed()) return mi::Record(o);
  if (belowShift) *belowShift = solver->NegativePivots();

  mi::ParpackRequest request;
  request.n = n;
  request.localRows = static_cast<int>(rows);
  request.sizes = ei::ComputeArpackSizes(n, requested, maxIterations);
  request.mode = buckling ? ei::ArpackMode::kBuckling : ei::ArpackMode::kShiftInvert;
  request.sigma = shift;
  request.wantVectors = modeShapes != nullptr;
  DistributedOperator op(*solver, massDiagonal, product.get(), static_cast<int>(rows));
  mi::ParpackOutcome outcome;
  const ei::ArpackResult result = mi::RunParpack(comm, request, op, outcome);

  // Out of memory on one process only: agree before anything is delivered.
  local = result == ei::ArpackResult::kOutOfMemory ? DriverFailure(ei::kLanczosNoMemory) : mi::Outcome();
  o = mi::Agree(comm, local);
  if (o.Failed()) return mi::Record(o);
  switch (result) {
    case ei::ArpackResult::kConverged:
    case ei::ArpackResult::kPartial:
      break;
    case ei::ArpackResult::kOperatorFailed:
      return mi::Record(op.Failure());
    case ei::ArpackResult::kUnexpectedIdo: {
      mi::Outcome f;
      f.code = ei::kStatusArpackFailed;
      f.message = "ARPACK failed to Find Eigenvectors";
      return mi::Record(f);
    }
    default: {
      mi::Outcome f;
      if (!ei::ArpackInfoText(outcome.info, f.message)) f.message = "ARPACK failed to Find Eigenvectors";
      f.code = ei::ArpackInfoStatus(outcome.info);
      return mi::Record(f);
    }
  }
  if (buckling) {
    double scale = std::fabs(shift);
    for (double v : outcome.values) scale = std::max(scale, std::fabs(v));
    for (double v : outcome.values)
      if (std::fabs(v) <= 1e-9 * scale) return mi::Record(DriverFailure(ei::kLanczosBucklingFactorNearZero));
  }
  *found = outcome.count;
  std::memcpy(eigenvalues, outcome.values.data(), sizeof(double) * outcome.count);
  if (modeShapes) std::memcpy(modeShapes, outcome.vectors.data(), sizeof(double) * outcome.vectors.size());
  if (result == ei::ArpackResult::kPartial) {
    mi::Outcome f;
    f.code = ei::kStatusPartial;
    f.message = ei::kTextNotAllFound;
    mi::Record(f);
    return 1;
  }
  return 0;
}

int SturmCount(MPI_Comm comm, int n, int firstRow, int lastRow, const int* kRowPointers, const int* kColumnIndices,
               const double* kValues, const double* massDiagonal, const int* bRowPointers, const int* bColumnIndices,
               const double* bValues, double sigma, int* below) {
  VQ_ResetGlobalErrorsAndWarnings();
  if (below) *below = 0;
  if (!std::isfinite(sigma)) return mi::Record(InvalidOutcome("the shift is not a finite number"));
  const bool sparseB = bRowPointers != nullptr;
  std::string problem;
  if (sparseB == (massDiagonal != nullptr)) problem = "give B either as a diagonal or as rows";
  else if (!below) problem = "below is NULL";
  std::vector<RowsArg> matrices = {{"K", kRowPointers, kColumnIndices, kValues}};
  if (sparseB) matrices.push_back({"B", bRowPointers, bColumnIndices, bValues});
  std::vector<std::pair<const char*, const double*>> slices;
  if (massDiagonal && !sparseB) slices.push_back({"mass diagonal", massDiagonal});
  mi::Outcome o = CheckInput(comm, n, firstRow, lastRow, matrices, slices, static_cast<long long>(lastRow) - firstRow + 1,
                             problem);
  if (o.Failed()) return mi::Record(o);
  mi::Outcome local;
  mi::LocalRows shifted;
  try {
    shifted = mi::ShiftedRows(n, firstRow, lastRow, kRowPointers, kColumnIndices, kValues, sigma, massDiagonal,
                              bRowPointers, bColumnIndices, bValues);
  } catch (const std::bad_alloc&) {
    local = NoMemory();
  }
  o = mi::Agree(comm, local);
  if (o.Failed()) return mi::Record(o);
  mi::ClusterSolver solver(comm, n, firstRow, lastRow);
  // Only the inertia is wanted: a shift on or next to an eigenvalue is no failure here.
  solver.SetJudgeSingularity(false);
  o = solver.Factor(shifted.rowPointers.data(), shifted.columnIndices.data(), shifted.values.data(), -2, false);
  KeepParameters(solver);
  vqmath::internal::Registry& r = vqmath::internal::registry();
  r.negativeEigenvalues = solver.NegativePivots();
  r.positiveEigenvalues = solver.PositivePivots();
  if (o.Failed()) return mi::Record(o);
  *below = solver.NegativePivots();
  return 0;
}

// Exceptions never cross the C boundary. One that escapes the steps above is an allocation
// failure between two agreements; it is reported on the process where it happened.
template <class F>
int Guarded(F&& f) {
  try {
    return f();
  } catch (...) {
    return mi::Record(NoMemory());
  }
}

}  // namespace

extern "C" {

int VQ_MpiSparseFactor(MPI_Comm comm, int n, int firstRow, int lastRow, const int* rowPointers,
                       const int* columnIndices, const double* values, int matrixType, int stopIfNotPosDefinite,
                       VQ_MpiFactorization** factorization) {
  return Guarded([&] {
    return Factor(comm, n, firstRow, lastRow, rowPointers, columnIndices, values, matrixType, stopIfNotPosDefinite,
                  factorization);
  });
}

int VQ_MpiSparseFactor_F(MPI_Fint comm, int n, int firstRow, int lastRow, const int* rowPointers,
                         const int* columnIndices, const double* values, int matrixType, int stopIfNotPosDefinite,
                         VQ_MpiFactorization** factorization) {
  return VQ_MpiSparseFactor(MPI_Comm_f2c(comm), n, firstRow, lastRow, rowPointers, columnIndices, values, matrixType,
                            stopIfNotPosDefinite, factorization);
}

int VQ_MpiSparseSolve(VQ_MpiFactorization* factorization, int nrhs, const double* rhs, double* solution) {
  VQ_ResetGlobalErrorsAndWarnings();
  if (!factorization) return mi::Record(InvalidOutcome("the factorization is NULL"));
  if (nrhs < 1) return mi::Record(InvalidOutcome("nrhs " + std::to_string(nrhs) + " is below 1"));
  return Guarded([&] { return Solve(factorization, nrhs, rhs, solution); });
}

void VQ_MpiSparseRelease(VQ_MpiFactorization* factorization) { delete factorization; }

int VQ_MpiDirectSparseSolver(MPI_Comm comm, int n, int firstRow, int lastRow, const int* rowPointers,
                             const int* columnIndices, const double* values, int nrhs, const double* rhs,
                             double* solution, int matrixType, int stopIfNotPosDefinite) {
  if (nrhs < 1) {
    VQ_ResetGlobalErrorsAndWarnings();
    return mi::Record(InvalidOutcome("nrhs " + std::to_string(nrhs) + " is below 1"));
  }
  VQ_MpiFactorization* f = nullptr;
  const int code = VQ_MpiSparseFactor(comm, n, firstRow, lastRow, rowPointers, columnIndices, values, matrixType,
                                      stopIfNotPosDefinite, &f);
  if (code != 0) return code;
  // The factorisation's counts and warning stay in the registry beside the solve's outcome.
  const vqmath::internal::Registry kept = vqmath::internal::registry();
  int result = Guarded([&] { return Solve(f, nrhs, rhs, solution); });
  vqmath::internal::Registry& r = vqmath::internal::registry();
  r.negativeEigenvalues = kept.negativeEigenvalues;
  r.positiveEigenvalues = kept.positiveEigenvalues;
  if (result == 0) {
    r.warningCode = kept.warningCode;
    r.warningMessage = kept.warningMessage;
  }
  VQ_MpiSparseRelease(f);
  return result;
}

int VQ_MpiDirectSparseSolver_F(MPI_Fint comm, int n, int firstRow, int lastRow, const int* rowPointers,
                               const int* columnIndices, const double* values, int nrhs, const double* rhs,
                               double* solution, int matrixType, int stopIfNotPosDefinite) {
  return VQ_MpiDirectSparseSolver(MPI_Comm_f2c(comm), n, firstRow, lastRow, rowPointers, columnIndices, values, nrhs,
                                  rhs, solution, matrixType, stopIfNotPosDefinite);
}

int VQ_MpiSturmCount(MPI_Comm comm, int n, int firstRow, int lastRow, const int* kRowPointers,
                     const int* kColumnIndices, const double* kValues, const double* massDiagonal,
                     const int* bRowPointers, const int* bColumnIndices, const double* bValues, double sigma,
                     int* below) {
  return Guarded([&] {
    return SturmCount(comm, n, firstRow, lastRow, kRowPointers, kColumnIndices, kValues, massDiagonal, bRowPointers,
                      bColumnIndices, bValues, sigma, below);
  });
}

int VQ_MpiSturmCount_F(MPI_Fint comm, int n, int firstRow, int lastRow, const int* kRowPointers,
                       const int* kColumnIndices, const double* kValues, const double* massDiagonal,
                       const int* bRowPointers, const int* bColumnIndices, const double* bValues, double sigma,
                       int* below) {
  return VQ_MpiSturmCount(MPI_Comm_f2c(comm), n, firstRow, lastRow, kRowPointers, kColumnIndices, kValues,
                          massDiagonal, bRowPointers, bColumnIndices, bValues, sigma, below);
}

int VQ_MpiEigenvalueAnalysis_Lanczos(MPI_Comm comm, int n, int firstRow, int lastRow, const int* kRowPointers,
                                     const int* kColumnIndices, const double* kValues, const double* massDiagonal,
                                     const int* bRowPointers, const int* bColumnIndices, const double* bValues,
                                     int buckling, int requested, double shift, int maxIterations, int* found,
                                     double* eigenvalues, double* modeShapes, int* belowShift) {
  return Guarded([&] {
    return Lanczos(comm, n, firstRow, lastRow, kRowPointers, kColumnIndices, kValues, massDiagonal, bRowPointers,
                   bColumnIndices, bValues, buckling, requested, shift, maxIterations, found, eigenvalues, modeShapes,
                   belowShift);
  });
}

int VQ_MpiEigenvalueAnalysis_Lanczos_F(MPI_Fint comm, int n, int firstRow, int lastRow, const int* kRowPointers,
                                       const int* kColumnIndices, const double* kValues, const double* massDiagonal,
                                       const int* bRowPointers, const int* bColumnIndices, const double* bValues,
                                       int buckling, int requested, double shift, int maxIterations, int* found,
                                       double* eigenvalues, double* modeShapes, int* belowShift) {
  return VQ_MpiEigenvalueAnalysis_Lanczos(MPI_Comm_f2c(comm), n, firstRow, lastRow, kRowPointers, kColumnIndices,
                                          kValues, massDiagonal, bRowPointers, bColumnIndices, bValues, buckling,
                                          requested, shift, maxIterations, found, eigenvalues, modeShapes,
                                          belowShift);
}

int VQ_MpiSparseSymmMatrixVectorMultiplication(MPI_Comm comm, int n, int firstRow, int lastRow,
                                               const int* rowPointers, const int* columnIndices,
                                               const double* values, const double* x, double* y) {
  return Guarded([&] {
    const long long rows = static_cast<long long>(lastRow) - firstRow + 1;
    mi::Outcome o = CheckInput(comm, n, firstRow, lastRow, {{"A", rowPointers, columnIndices, values}}, {{"x", x}},
                               rows);
    if (o.Failed()) return mi::Record(o);
    mi::Outcome local;
    if (!y) local = InvalidOutcome("process " + std::to_string(mi::RankOf(comm)) + ": y: the array is missing (NULL)");
    o = mi::Agree(comm, local);
    if (o.Failed()) return mi::Record(o);
    // The product's buffers (two of order n) agreed on before the collective product.
    std::unique_ptr<mi::DistributedProduct> product;
    try {
      product = std::make_unique<mi::DistributedProduct>(comm, n, firstRow, lastRow, rowPointers, columnIndices,
                                                         values);
    } catch (const std::bad_alloc&) {
      local = NoMemory();
    }
    o = mi::Agree(comm, local);
    if (o.Failed()) return mi::Record(o);
    product->Apply(x, y);
    return 0;
  });
}

void VQ_MpiGetLastSolverParameters(int* parameters) {
  if (parameters) std::memcpy(parameters, lastParameters, sizeof lastParameters);
}

}  // extern "C"
