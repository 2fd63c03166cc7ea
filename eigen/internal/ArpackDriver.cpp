// Reverse-communication driver for ARPACK's dsaupd/dseupd; see ArpackDriver.h.
#include "eigen/internal/ArpackDriver.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <numeric>

// ARPACK-NG's Fortran entry points (32-bit integers, gfortran's hidden string lengths last).
// The Fortran routines take the tolerance by reference: a tolerance of 0 is replaced by the
// machine precision inside dsaupd and the replaced value comes back to the caller, who hands it
// on to dseupd. ARPACK-NG's C binding takes it by value instead, so a 0 there never becomes
// the machine precision.
extern "C" {
void dsaupd_(int* ido, const char* bmat, const int* n, const char* which, const int* nev,
             double* tol, double* resid, const int* ncv, double* v, const int* ldv, int* iparam,
             int* ipntr, double* workd, double* workl, const int* lworkl, int* info,
             std::size_t bmatLength, std::size_t whichLength);
void dseupd_(const int* rvec, const char* howmny, int* select, double* d, double* z, const int* ldz,
             const double* sigma, const char* bmat, const int* n, const char* which, const int* nev,
             double* tol, double* resid, const int* ncv, double* v, const int* ldv, int* iparam,
             int* ipntr, double* workd, double* workl, const int* lworkl, int* info,
             std::size_t howmnyLength, std::size_t bmatLength, std::size_t whichLength);
}

namespace vqmath {
namespace eigen_internal {

namespace {

// ARPACK's reverse-communication requests.
constexpr int kIdoFirstOperator = -1;  // y = OP·x, B·x not yet formed
constexpr int kIdoOperator = 1;        // y = OP·x, B·x already in workd(ipntr(3))
constexpr int kIdoBProduct = 2;        // y = B·x
constexpr int kIdoDone = 99;

// Sorts the delivered pairs by ascending eigenvalue (dseupd's order depends on the
// transformation); vectors move with their values.
void SortAscending(int n, int count, std::vector<double>& values, std::vector<double>& vectors,
                   bool withVectors) {
  std::vector<int> order(static_cast<std::size_t>(count));
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(),
                   [&values](int a, int b) { return values[a] < values[b]; });
  bool sorted = true;
  for (int i = 0; i < count; ++i) sorted = sorted && order[i] == i;
  if (sorted) return;
  std::vector<double> v2(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) v2[i] = values[order[i]];
  std::copy(v2.begin(), v2.end(), values.begin());
  if (!withVectors) return;
  std::vector<double> z2(static_cast<std::size_t>(n) * count);
  for (int i = 0; i < count; ++i)
    std::memcpy(&z2[static_cast<std::size_t>(i) * n],
                &vectors[static_cast<std::size_t>(order[i]) * n], sizeof(double) * n);
  std::memcpy(vectors.data(), z2.data(), sizeof(double) * z2.size());
}

ArpackResult Run(const ArpackRequest& request, ShiftInvertOperator& op, ArpackOutcome& out) {
  const int n = request.n;
  const int nev = request.sizes.nev;
  const int ncv = request.sizes.ncv;
  const int ldv = std::max(n, 1);
  const char* which = ArpackWhichText(request.which);
  const char bmat[] = "G";
  const std::size_t un = static_cast<std::size_t>(std::max(n, 0));
  const std::size_t uncv = static_cast<std::size_t>(std::max(ncv, 0));

  // Work state, zeroed: residual (starting vector chosen by ARPACK since info = 0), Lanczos
  // basis, workd, workl, select.
  std::vector<double> resid(std::max<std::size_t>(un, 1), 0.0);
  std::vector<double> v(std::max<std::size_t>(un * uncv, 1), 0.0);
  std::vector<double> workd(std::max<std::size_t>(3 * un, 1), 0.0);
  const int lworkl = std::max(ncv, 0) * (std::max(ncv, 0) + 8);
  std::vector<double> workl(std::max(lworkl, 1), 0.0);
  std::vector<int> select(std::max<std::size_t>(std::max(un, uncv), 1), 0);
  int iparam[11] = {};
  int ipntr[11] = {};
  iparam[0] = 1;                            // exact shifts
  iparam[2] = request.sizes.maxIterations;  // maximum restart iterations
  iparam[3] = 1;                            // block size (ARPACK supports 1 only)
  iparam[6] = static_cast<int>(request.mode);
  double tol = 0.0;  // dsaupd replaces 0 by the machine precision
  int ido = 0;
  int info = 0;
  std::vector<double> scratch;  // B·x for the first-operator requests

  // workd is addressed by ARPACK's 1-based pointers.
  auto at = [&workd](int pointer) { return workd.data() + (pointer - 1); };

  for (;;) {
    dsaupd_(&ido, bmat, &n, which, &nev, &tol, resid.data(), &ncv, v.data(), &ldv, iparam, ipntr,
            workd.data(), workl.data(), &lworkl, &info, 1, 2);
    if (ido == kIdoDone) break;
    int status = 0;
    if (ido == kIdoFirstOperator) {
      // B·x is not formed yet (ipntr(3) is not defined for this request): form it in scratch
      // storage, then solve with it.
      if (scratch.empty()) scratch.assign(std::max<std::size_t>(un, 1), 0.0);
      status = op.ApplyB(at(ipntr[0]), scratch.data());
      if (status == 0) status = op.Solve(scratch.data(), at(ipntr[1]));
      ++out.operatorApplications;
    } else if (ido == kIdoOperator) {
      status = op.Solve(at(ipntr[2]), at(ipntr[1]));
      ++out.operatorApplications;
    } else if (ido == kIdoBProduct) {
      status = op.ApplyB(at(ipntr[0]), at(ipntr[1]));
      ++out.bProducts;
    } else {
      out.ido = ido;
      return ArpackResult::kUnexpectedIdo;
    }
    if (status != 0) {
      out.ido = ido;
      out.operatorStatus = status;
      return ArpackResult::kOperatorFailed;
    }
  }

  out.info = info;
  out.nconv = iparam[4];
  out.iterations = iparam[2];
  int deliver = nev;
  bool partial = false;
  if (info != 0) {
    // Maximum iterations reached (1) or the Lanczos factorisation could not be extended
    // (−9999): what has converged is still worth delivering.
    const bool recoverable = info == 1 || info == -9999;
    if (!recoverable || out.nconv < 1) return ArpackResult::kArpackError;
    if (out.nconv < nev) {
      deliver = out.nconv;
      partial = true;
    }
  }

  // dseupd may report up to nconv values; size its outputs for that many.
  const int capacity = std::max(nev, std::min(std::max(out.nconv, 0), ncv));
  std::vector<double> d(static_cast<std::size_t>(std::max(capacity, 1)), 0.0);
  std::vector<double> z;
  const int rvec = request.wantVectors ? 1 : 0;
  if (request.wantVectors) z.assign(std::max<std::size_t>(un * capacity, 1), 0.0);
  const char howmny[] = "A";
  double sigma = request.sigma;
  int eupdInfo = 0;
  dseupd_(&rvec, howmny, select.data(), d.data(), request.wantVectors ? z.data() : v.data(), &ldv,
          &sigma, bmat, &n, which, &nev, &tol, resid.data(), &ncv, v.data(), &ldv, iparam, ipntr,
          workd.data(), workl.data(), &lworkl, &eupdInfo, 1, 1, 2);
  if (eupdInfo != 0) {
    out.info = eupdInfo;
    out.inEupd = true;
    return ArpackResult::kArpackError;
  }
  deliver = std::min(deliver, capacity);
  out.count = deliver;
  out.values.assign(d.begin(), d.begin() + deliver);
  if (request.wantVectors) {
    z.resize(un * static_cast<std::size_t>(deliver));
    out.vectors.swap(z);
  }
  SortAscending(n, deliver, out.values, out.vectors, request.wantVectors);
  return partial ? ArpackResult::kPartial : ArpackResult::kConverged;
}

}  // namespace

const char* ArpackWhichText(ArpackWhich which) {
  switch (which) {
    case ArpackWhich::kSmallestAlgebraic: return "SA";
    case ArpackWhich::kLargestAlgebraic: return "LA";
    case ArpackWhich::kSmallestMagnitude: return "SM";
    case ArpackWhich::kBothEnds: return "BE";
    case ArpackWhich::kLargestMagnitude:
    default: return "LM";
  }
}

ArpackWhich ArpackWhichFromInt(int value) {
  if (value >= 1 && value <= 5) return static_cast<ArpackWhich>(value);
  return ArpackWhich::kLargestMagnitude;
}

ArpackSizes ComputeArpackSizes(int n, int requested, int maxIterations) {
  ArpackSizes s;
  s.nev = std::min(requested, n);
  if (s.nev == n) s.nev = n - 1;
  s.ncv = std::min(2 * s.nev + 1, n - 1);
  if (s.ncv == s.nev && s.nev == n - 1) s.ncv = n;
  s.maxIterations = maxIterations >= 1 ? maxIterations : 100 * s.nev;
  return s;
}

ArpackResult RunArpack(const ArpackRequest& request, ShiftInvertOperator& op, ArpackOutcome& outcome) {
  outcome = ArpackOutcome();
  try {
    outcome.result = Run(request, op, outcome);
  } catch (const std::bad_alloc&) {
    outcome.result = ArpackResult::kOutOfMemory;
  }
  return outcome.result;
}

}  // namespace eigen_internal
}  // namespace vqmath
