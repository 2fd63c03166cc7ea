// Linked into every fuzz target: MKL keeps its memory pool between inputs.
//
// The library hands MKL's buffers back after each factorisation (mkl_free_buffers). Under
// AddressSanitizer every large allocation is a fresh mapping, so handing them back and taking
// them again costs page faults and zeroing on each input, more than the solve itself. This
// definition takes precedence over MKL's own for the fuzz programs only; the memory stays
// reachable in MKL's pool, so leak detection is unaffected.
extern "C" void mkl_free_buffers(void) {}
extern "C" void MKL_Free_Buffers(void) {}
