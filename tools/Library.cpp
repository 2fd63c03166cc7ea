#include "Library.h"

#include <ftw.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vqmath.h"

namespace vqsolve {

namespace {

std::string Take(char* text) {
  std::string s = text ? text : "";
  std::free(text);
  return s;
}

int RemoveEntry(const char* path, const struct stat*, int, struct FTW*) {
  ::remove(path);
  return 0;
}

}  // namespace

Registry ReadRegistry() {
  Registry r;
  r.error = VQ_GetLastErrorID();
  r.message = Take(VQ_GetLastErrorMessage());
  r.warning = VQ_GetLastWarningID();
  r.warningMessage = Take(VQ_GetLastWarningMessage());
  r.instabilityDof = VQ_GetInstabilityDOF();
  r.negativePivots = VQ_GetNumberOfNegativeEigenvalues();
  r.positivePivots = VQ_GetNumberOfPositiveEigenvalues();
  return r;
}

std::string ErrorText(int code) {
  VQ_ResolveEror(code);
  std::string text = Take(VQ_GetLastErrorMessage());
  VQ_ResetGlobalErrorsAndWarnings();
  return text;
}

int DefaultThreads() {
  if (const char* env = std::getenv("MKL_NUM_THREADS")) {
    const int t = std::atoi(env);
    if (t > 0) return t;
  }
  const long cpus = sysconf(_SC_NPROCESSORS_ONLN);
  return cpus > 0 ? static_cast<int>(cpus) : 1;
}

LibrarySession::LibrarySession(int threads, int outOfCoreMode, const std::string& workingDirectory)
    : threads_(threads > 0 ? threads : DefaultThreads()), outOfCoreMode_(outOfCoreMode) {
  if (workingDirectory.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/vqsolve-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data()))
      throw std::runtime_error("cannot create a working folder " + pattern + " (" +
                               std::strerror(errno) + ")");
    workingDirectory_ = std::string(buffer.data()) + "/";
    temporary_ = true;
  } else {
    workingDirectory_ = workingDirectory;
    if (workingDirectory_.back() != '/') workingDirectory_ += '/';
  }
  // Thread count, out-of-core mode and folder are read by the initialisation; set them first.
  VQ_Set_INTEL_MKL_NumberOfThreads(threads_);
  VQ_Set_INTEL_MKL_OMP_NumberOfThreads(threads_);
  VQ_SetSolverType(outOfCoreMode_);
  VQ_SetWorkingDir(workingDirectory_.c_str());
  VQ_InitializeLibrary();
  RestoreThreads();
  // Every method that claims the lowest modes has them counted by the library.
  VQ_SetEigenVerification(1);
}

LibrarySession::~LibrarySession() {
  VQ_ReleaseLibrary();
  if (temporary_) nftw(workingDirectory_.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

void LibrarySession::RestoreThreads() const { VQ_mkl_set_num_threads(threads_); }

}  // namespace vqsolve
