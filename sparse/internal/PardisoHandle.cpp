// PARDISO instance owner: see PardisoHandle.h.
#include "sparse/internal/PardisoHandle.h"

#include <cstring>

#include <mkl_pardiso.h>

namespace vqmath {
namespace internal {

PardisoHandle::PardisoHandle() noexcept {
  std::memset(pt_, 0, sizeof pt_);
  std::memset(iparm_, 0, sizeof iparm_);
}

PardisoHandle::~PardisoHandle() { Release(); }

int PardisoHandle::Call(int phase, const PardisoArgs& args) noexcept {
  if ((phase == kAnalysis || phase == kAnalysisAndFactor) && inUse_) Release();

  int maxfct = args.maxfct, mnum = args.mnum, mtype = args.mtype, n = args.n, nrhs = args.nrhs;
  int msglvl = args.msglvl;
  int error = 0;
  // PARDISO's prototype takes non-const pointers for arrays it only reads.
  pardiso(pt_, &maxfct, &mnum, &mtype, &phase, &n, const_cast<double*>(args.a),
          const_cast<int*>(args.ia), const_cast<int*>(args.ja), args.perm, &nrhs, args.iparm,
          &msglvl, args.b, args.x, &error);

  if (phase == kReleaseAll) {
    inUse_ = false;
    std::memset(pt_, 0, sizeof pt_);
  } else if (phase > 0) {
    // After any analysis or factorisation attempt PARDISO may hold memory, also on failure.
    inUse_ = true;
    mtype_ = args.mtype;
    n_ = args.n;
    if (args.iparm) std::memcpy(iparm_, args.iparm, sizeof iparm_);
  }
  return error;
}

int PardisoHandle::Release() noexcept {
  if (!inUse_) return 0;
  int maxfct = 1, mnum = 1, mtype = mtype_, phase = kReleaseAll, n = n_, nrhs = 1, msglvl = 0;
  int error = 0;
  int ia = 1, ja = 1;
  double ddum = 0.0;
  pardiso(pt_, &maxfct, &mnum, &mtype, &phase, &n, &ddum, &ia, &ja, nullptr, &nrhs, iparm_,
          &msglvl, &ddum, &ddum, &error);
  inUse_ = false;
  std::memset(pt_, 0, sizeof pt_);
  return error;
}

int PardisoHandle::GetDiagonal(double* df, double* da, int mnum) noexcept {
  if (!inUse_) return -1;
  int error = 0;
  pardiso_getdiag(pt_, df, da, &mnum, &error);
  return error;
}

}  // namespace internal
}  // namespace vqmath
