/* The benchmark's MKL-based peers get the same MKL kernels as the library: MKL 2020 runs its generic
   kernels on processors that are not Intel's unless mkl_serv_intel_cpu_true() says the processor
   qualifies. VQMATH_MKL_FAST_PATH=0 keeps MKL's own vendor check, exactly as for the library. */
#include <stdlib.h>
#include <string.h>
#include <strings.h>

int mkl_serv_intel_cpu_true(void)
{
    const char* value = getenv("VQMATH_MKL_FAST_PATH");
    if (!value) return 1;
    return !(strcmp(value, "0") == 0 || strcasecmp(value, "off") == 0 || strcasecmp(value, "no") == 0);
}
