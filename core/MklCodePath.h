// Which of Intel MKL's kernel families runs in this process.
//
// MKL 2020 picks its code path by processor vendor: on a processor that is not Intel's it runs its
// generic kernels whatever instruction sets the processor has. The library tells MKL that the
// processor qualifies, so that MKL dispatches on the instruction sets the processor reports
// (AVX2, AVX-512) on AMD processors too. Setting VQMATH_MKL_FAST_PATH=0 in the environment before
// the first MKL call keeps MKL's own vendor check.
#pragma once

#include <string>

namespace vqmath {

// True unless VQMATH_MKL_FAST_PATH is set to "0" (or "off"/"no").
bool MklFastPathEnabled();

// MKL's description of the code path it runs, e.g. "Intel(R) Advanced Vector Extensions 512 ...";
// "Intel(R) Architecture processors" for the generic kernels.
std::string MklCodePath();

}  // namespace vqmath
