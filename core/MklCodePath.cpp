#include "core/MklCodePath.h"

#include <mkl.h>

#include <cstdlib>
#include <cstring>

namespace vqmath {

bool MklFastPathEnabled()
{
    const char* value = std::getenv("VQMATH_MKL_FAST_PATH");
    if (!value) return true;
    return !(std::strcmp(value, "0") == 0 || strcasecmp(value, "off") == 0 || strcasecmp(value, "no") == 0);
}

std::string MklCodePath()
{
    MKLVersion version;
    mkl_get_version(&version);
    return version.Processor ? std::string(version.Processor) : std::string();
}

}  // namespace vqmath

// MKL looks this function up when it first chooses its kernels and runs the instruction-set
// specific ones only when it returns 1. MKL's own definition answers by processor vendor; this one,
// exported from the library and so found first, answers by what the processor supports (MKL still
// checks the instruction sets itself and never runs kernels the processor lacks).
extern "C" __attribute__((visibility("default"))) int mkl_serv_intel_cpu_true()
{
    return vqmath::MklFastPathEnabled() ? 1 : 0;
}
