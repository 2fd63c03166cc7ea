// Threads, out-of-core sizes and the working directory. MKL reads its thread counts and PARDISO's
// out-of-core behaviour from environment variables; these setters write them in the text forms
// MKL expects and remember the values the library itself needs later.
#include <cstdlib>
#include <cstring>

#include <mkl.h>

#include "core/GlobalState.h"
#include "vqmath.h"

using vqmath::internal::SetEnv;
using vqmath::internal::SetEnvInt;
using vqmath::internal::SetOocMaxCoreSize;
using vqmath::internal::settings;

extern "C" {

int VQ_Set_INTEL_MKL_NumberOfThreads(int n) {
  settings().numberOfThreads = n;
  return SetEnvInt("MKL_NUM_THREADS", n);
}

int VQ_Set_INTEL_MKL_UseMaxNumberOfThreads(void) {
  return SetEnvInt("MKL_NUM_THREADS", vqmath::internal::ProcessorCount());
}

int VQ_Set_INTEL_MKL_OMP_NumberOfThreads(int n) { return SetEnvInt("OMP_NUM_THREADS", n); }

int VQ_Set_INTEL_MKL_DYNAMIC_PARAMETER(int flag) {
  return SetEnv("MKL_DYNAMIC", flag == 1 ? "1" : "0");
}

int VQ_Set_INTEL_MKL_KMP_AFFINITY(int flag) {
  return SetEnv("KMP_AFFINITY", flag != 0 ? "enabled" : "disabled");
}

int VQ_Set_INTEL_MKL_OOC_KEEP_FILE(int flag) {
  return SetEnv("MKL_PARDISO_OOC_KEEP_FILE", flag == 1 ? "1" : "0");
}

int VQ_Set_INTEL_MKL_OOC_Max_Core_Size(int mb) { return SetOocMaxCoreSize(mb); }

int VQ_Set_INTEL_MKL_OOC_MAX_SWAP_SIZE(int mb) {
  settings().oocMaxSwapSize = mb;
  return SetEnvInt("MKL_PARDISO_OOC_MAX_SWAP_SIZE", mb);
}

// The variable is named after the domain itself and carries the count; that is the form the
// library has always written, and hosts rely on it.
int VQ_Set_INTEL_MKL_DOMAIN_NumberOfThreads(int domain, int n) {
  static const char* const names[] = {"MKL_DOMAIN_ALL", "MKL_DOMAIN_BLAS", "MKL_DOMAIN_FFT",
                                      "MKL_DOMAIN_VML", "MKL_DOMAIN_PARDISO"};
  if (domain < 0 || domain > 4) return domain;
  return SetEnvInt(names[domain], n);
}

int VQ_Get_INTEL_MKL_NumberOfThreads(void) { return settings().numberOfThreads; }
int VQ_Get_INTEL_MKL_OOC_Max_Core_Size(void) { return settings().oocMaxCoreSize; }
int VQ_Get_INTEL_MKL_OOC_Max_Swap_Size(void) { return settings().oocMaxSwapSize; }

int VQ_mkl_set_num_threads(int n) {
  if (n > 0) mkl_set_num_threads(n);
  return n;
}

int VQ_mkl_domain_set_num_threads(int n, int domain) {
  if (domain < 0 || domain > 4) return domain;
  return mkl_domain_set_num_threads(n, domain);
}

int VQ_mkl_set_num_threads_local(int n) { return mkl_set_num_threads_local(n); }

int VQ_mkl_set_dynamic(int flag) {
  if (flag == 0 || flag == 1) mkl_set_dynamic(flag);
  return flag;
}

int VQ_mkl_get_max_threads(void) { return mkl_get_max_threads(); }
int VQ_mkl_domain_get_max_threads(int domain) { return mkl_domain_get_max_threads(domain); }
int VQ_mkl_get_dynamic(void) { return mkl_get_dynamic(); }

// No separator is inserted between the directory and the GUID: hosts pass a directory that
// already ends with one.
int VQ_SetWorkingDir(const char* dir) {
  settings().workingDir = dir ? dir : "";
  return SetEnv("MKL_PARDISO_OOC_PATH", vqmath::internal::NewOocPath().c_str());
}

char* VQ_GetWorkingDir(void) {
  const std::string& dir = settings().workingDir;
  char* copy = static_cast<char*>(std::malloc(dir.size() + 1));
  if (copy) std::memcpy(copy, dir.c_str(), dir.size() + 1);
  return copy;
}

}  // extern "C"
