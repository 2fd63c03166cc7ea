#include "mpi/internal/ParpackDriver.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <numeric>

// PARPACK's Fortran entry points: the communicator as a Fortran handle first, gfortran's hidden
// string lengths last. The tolerance goes by reference: 0 becomes the machine precision.
extern "C" {
void pdsaupd_(const int* comm, int* ido, const char* bmat, const int* n, const char* which, const int* nev,
              double* tol, double* resid, const int* ncv, double* v, const int* ldv, int* iparam, int* ipntr,
              double* workd, double* workl, const int* lworkl, int* info, std::size_t bmatLength,
              std::size_t whichLength);
void pdseupd_(const int* comm, const int* rvec, const char* howmny, int* select, double* d, double* z,
              const int* ldz, const double* sigma, const char* bmat, const int* n, const char* which,
              const int* nev, double* tol, double* resid, const int* ncv, double* v, const int* ldv, int* iparam,
              int* ipntr, double* workd, double* workl, const int* lworkl, int* info, std::size_t howmnyLength,
              std::size_t bmatLength, std::size_t whichLength);
}

namespace vqmath {
namespace mpi_internal {

using eigen_internal::ArpackResult;

namespace {

ArpackResult Run(MPI_Comm comm, const ParpackRequest& request, eigen_internal::ShiftInvertOperator& op,
                 ParpackOutcome& out) {
  const int fcomm = static_cast<int>(MPI_Comm_c2f(comm));
  const int nloc = request.localRows;
  const int nev = request.sizes.nev;
  const int ncv = request.sizes.ncv;
  const int ldv = std::max(nloc, 1);
  const char which[] = "LM";  // in a spectral transformation: the eigenvalues nearest σ
  const char bmat[] = "G";
  const std::size_t un = static_cast<std::size_t>(std::max(nloc, 0));
  const std::size_t uncv = static_cast<std::size_t>(std::max(ncv, 0));

  // Every array of the iteration and of the extraction, allocated before the first collective
  // step and agreed on: a process that runs out of memory later would leave the others waiting.
  const int lworkl = ncv * (ncv + 8);
  const int capacityMost = std::max(nev, ncv);
  const int rvec = request.wantVectors ? 1 : 0;
  std::vector<double> resid, v, workd, workl, scratch, d, z;
  std::vector<int> select;
  int ok = 1;
  try {
    resid.assign(std::max<std::size_t>(un, 1), 0.0);
    v.assign(std::max<std::size_t>(un * uncv, 1), 0.0);
    workd.assign(std::max<std::size_t>(3 * un, 1), 0.0);
    workl.assign(std::max(lworkl, 1), 0.0);
    select.assign(std::max<std::size_t>(uncv, 1), 0);
    scratch.assign(std::max<std::size_t>(un, 1), 0.0);
    d.assign(static_cast<std::size_t>(std::max(capacityMost, 1)), 0.0);
    if (request.wantVectors) z.assign(std::max<std::size_t>(un * capacityMost, 1), 0.0);
  } catch (const std::bad_alloc&) {
    ok = 0;
  }
  MPI_Allreduce(MPI_IN_PLACE, &ok, 1, MPI_INT, MPI_MIN, comm);
  if (!ok) return ArpackResult::kOutOfMemory;
  int iparam[11] = {};
  int ipntr[11] = {};
  iparam[0] = 1;
  iparam[2] = request.sizes.maxIterations;
  iparam[3] = 1;
  iparam[6] = static_cast<int>(request.mode);
  double tol = 0.0;
  int ido = 0, info = 0;
  auto at = [&workd](int pointer) { return workd.data() + (pointer - 1); };

  for (;;) {
    pdsaupd_(&fcomm, &ido, bmat, &nloc, which, &nev, &tol, resid.data(), &ncv, v.data(), &ldv, iparam, ipntr,
             workd.data(), workl.data(), &lworkl, &info, 1, 2);
    if (ido == 99) break;
    int status = 0;
    if (ido == -1) {
      status = op.ApplyB(at(ipntr[0]), scratch.data());
      if (status == 0) status = op.Solve(scratch.data(), at(ipntr[1]));
    } else if (ido == 1) {
      status = op.Solve(at(ipntr[2]), at(ipntr[1]));
    } else if (ido == 2) {
      status = op.ApplyB(at(ipntr[0]), at(ipntr[1]));
    } else {
      return ArpackResult::kUnexpectedIdo;  // the same on every process: ido is computed redundantly
    }
    if (status != 0) {
      out.operatorStatus = status;
      return ArpackResult::kOperatorFailed;
    }
  }
  out.info = info;
  out.nconv = iparam[4];
  int deliver = nev;
  bool partial = false;
  if (info != 0) {
    const bool recoverable = info == 1 || info == -9999;
    if (!recoverable || out.nconv < 1) return ArpackResult::kArpackError;
    if (out.nconv < nev) {
      deliver = out.nconv;
      partial = true;
    }
  }
  const int capacity = std::max(nev, std::min(std::max(out.nconv, 0), ncv));
  const char howmny[] = "A";
  double sigma = request.sigma;
  int eupdInfo = 0;
  pdseupd_(&fcomm, &rvec, howmny, select.data(), d.data(), request.wantVectors ? z.data() : v.data(), &ldv, &sigma,
           bmat, &nloc, which, &nev, &tol, resid.data(), &ncv, v.data(), &ldv, iparam, ipntr, workd.data(),
           workl.data(), &lworkl, &eupdInfo, 1, 1, 2);
  if (eupdInfo != 0) {
    out.info = eupdInfo;
    out.inEupd = true;
    return ArpackResult::kArpackError;
  }
  deliver = std::min(deliver, capacity);
  // Ascending eigenvalues, vectors with them.
  std::vector<int> order(static_cast<std::size_t>(deliver));
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [&d](int a, int b) { return d[a] < d[b]; });
  out.count = deliver;
  out.values.resize(static_cast<std::size_t>(deliver));
  for (int i = 0; i < deliver; ++i) out.values[i] = d[order[i]];
  if (request.wantVectors) {
    out.vectors.resize(un * static_cast<std::size_t>(deliver));
    for (int i = 0; i < deliver; ++i)
      if (un) std::memcpy(&out.vectors[un * i], &z[un * order[i]], sizeof(double) * un);
  }
  return partial ? ArpackResult::kPartial : ArpackResult::kConverged;
}

}  // namespace

ArpackResult RunParpack(MPI_Comm comm, const ParpackRequest& request, eigen_internal::ShiftInvertOperator& op,
                        ParpackOutcome& outcome) {
  outcome = ParpackOutcome();
  try {
    outcome.result = Run(comm, request, op, outcome);
  } catch (const std::bad_alloc&) {
    outcome.result = ArpackResult::kOutOfMemory;
  }
  return outcome.result;
}

}  // namespace mpi_internal
}  // namespace vqmath
