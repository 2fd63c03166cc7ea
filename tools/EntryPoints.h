#pragma once
// The flat entry points vqsolve calls, referenced weakly: vqsolve links and runs against a
// library that lacks some of them (one built before a solver was added) and then reports the
// method as not available instead of failing to start. VQSOLVE_HAVE_<name> is defined by the
// build when vqmath.h declares the entry point; Available(<name>) asks the loaded library.

#include "vqmath.h"

#ifdef VQSOLVE_HAVE_VQ_DirectSparseSolver
#pragma weak VQ_DirectSparseSolver
#endif
#ifdef VQSOLVE_HAVE_VQ_SparseSymmMatrixMatrixMultiplication_MKL
#pragma weak VQ_SparseSymmMatrixMatrixMultiplication_MKL
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_SubSpaceSolver
#pragma weak VQ_EigenvalueAnalysis_SubSpaceSolver
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_SubSpaceSolver2
#pragma weak VQ_EigenvalueAnalysis_SubSpaceSolver2
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_RitzVectorSolver
#pragma weak VQ_EigenvalueAnalysis_RitzVectorSolver
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_RitzVectorSolver2
#pragma weak VQ_EigenvalueAnalysis_RitzVectorSolver2
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_ExtendedSolver
#pragma weak VQ_EigenvalueAnalysis_ExtendedSolver
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_LAPACK
#pragma weak VQ_EigenvalueAnalysis_LAPACK
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_LAPACK2
#pragma weak VQ_EigenvalueAnalysis_LAPACK2
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_JACOBI
#pragma weak VQ_EigenvalueAnalysis_JACOBI
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_JACOBI2
#pragma weak VQ_EigenvalueAnalysis_JACOBI2
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_ARPACK
#pragma weak VQ_EigenvalueAnalysis_ARPACK
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_ARPACK2
#pragma weak VQ_EigenvalueAnalysis_ARPACK2
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_ARPACK3
#pragma weak VQ_EigenvalueAnalysis_ARPACK3
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_ARPACK4
#pragma weak VQ_EigenvalueAnalysis_ARPACK4
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_ARPACK5
#pragma weak VQ_EigenvalueAnalysis_ARPACK5
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_BlockLanczos
#pragma weak VQ_EigenvalueAnalysis_BlockLanczos
#endif
#ifdef VQSOLVE_HAVE_VQ_EigenvalueAnalysis_BlockLanczos2
#pragma weak VQ_EigenvalueAnalysis_BlockLanczos2
#endif

// True when the entry point is declared and the loaded library defines it.
#define VQSOLVE_AVAILABLE(name) (::vqsolve::internal::Defined(reinterpret_cast<const void*>(&name)))

namespace vqsolve::internal {
inline bool Defined(const void* address) { return address != nullptr; }
}  // namespace vqsolve::internal
