// Owner of one PARDISO instance: the 64-word internal handle that PARDISO fills during analysis
// and factorisation, together with what PARDISO needs to release it again.
//
// The handle is released (phase -1) exactly once: by Release(), by a new analysis on the same
// owner, or by the destructor, whichever comes first. The owner is neither copyable nor movable,
// because PARDISO keeps pointers into its own memory keyed by the address of the handle.
//
// Call() runs one phase and returns PARDISO's raw error number (0 on success); it never throws.
#pragma once

namespace vqmath {
namespace internal {

// PARDISO phase numbers used by the library.
enum PardisoPhase : int {
  kAnalysis = 11,            // reordering and symbolic factorisation
  kAnalysisAndFactor = 12,   // analysis followed by numerical factorisation
  kFactor = 22,              // numerical factorisation
  kSolve = 33,               // forward/backward substitution with iterative refinement
  kReleaseFactors = 0,       // release the factors of one matrix
  kReleaseAll = -1           // release all internal memory of the instance
};

// One PARDISO call's arguments apart from the handle and the phase.
struct PardisoArgs {
  int maxfct = 1;               // number of factorisations kept (always 1 here)
  int mnum = 1;                 // which of them to use
  int mtype = -2;               // matrix type: 2 SPD, -2 symmetric indefinite
  int n = 0;                    // order
  const double* a = nullptr;    // values of the upper triangle, 1-based CSR
  const int* ia = nullptr;      // row pointers (n + 1)
  const int* ja = nullptr;      // column indices
  int* perm = nullptr;          // permutation (in or out depending on iparm[4]), may be null
  int nrhs = 1;                 // number of right-hand sides
  int* iparm = nullptr;         // 64 control/report entries
  int msglvl = 0;               // 1 prints PARDISO statistics
  double* b = nullptr;          // right-hand sides (n * nrhs), overwritten when iparm[5] = 1
  double* x = nullptr;          // solution or work array (n * nrhs)
};

class PardisoHandle {
 public:
  PardisoHandle() noexcept;
  ~PardisoHandle();

  PardisoHandle(const PardisoHandle&) = delete;
  PardisoHandle& operator=(const PardisoHandle&) = delete;

  // Runs one phase; returns PARDISO's error number. A call with phase kAnalysis or
  // kAnalysisAndFactor on an owner that already holds an instance releases that instance first.
  int Call(int phase, const PardisoArgs& args) noexcept;

  // Releases all internal memory of the instance (phase -1) if it holds one; returns PARDISO's
  // error number of the release, 0 when there was nothing to release. Out-of-core scratch files
  // are removed or kept by PARDISO according to MKL_PARDISO_OOC_KEEP_FILE.
  int Release() noexcept;

  // True while PARDISO holds internal memory for this owner.
  bool InUse() const noexcept { return inUse_; }

  // Diagonal of the factor (df) and of the matrix (da) after a factorisation that had iparm[55]
  // = 1, both in PARDISO's pivot order. Returns PARDISO's error number.
  int GetDiagonal(double* df, double* da, int mnum) noexcept;

 private:
  void* pt_[64];
  bool inUse_ = false;
  // Arguments of the last call, reused by the release.
  int mtype_ = -2;
  int n_ = 0;
  int iparm_[64];
};

}  // namespace internal
}  // namespace vqmath
