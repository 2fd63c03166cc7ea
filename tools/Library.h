#pragma once
// vqsolve's side of the library frame: the session (threads, out-of-core mode, working
// directory, initialisation and release), the error registry read back after each entry point,
// and the error that ends a run with exit code 3.

#include <stdexcept>
#include <string>

namespace vqsolve {

// What the registry holds after an entry point returned.
struct Registry {
  int error = 0;
  std::string message;
  int warning = 0;
  std::string warningMessage;
  int instabilityDof = -1;
  int negativePivots = 0;
  int positivePivots = 0;
};

// Reads the registry (and releases the message copies the library hands out).
Registry ReadRegistry();

// The registry's text for an error code (the registry is left reset).
std::string ErrorText(int code);

// A solver failure: the library's code and message (exit code 3).
class SolverError : public std::runtime_error {
 public:
  SolverError(int code, const std::string& message, int instabilityDof = -1)
      : std::runtime_error(message), code_(code), instabilityDof_(instabilityDof) {}
  int Code() const { return code_; }
  int InstabilityDof() const { return instabilityDof_; }

 private:
  int code_;
  int instabilityDof_;
};

// One run of the library: sets the thread count, the out-of-core mode and a working directory
// (a fresh temporary folder unless the user names one, removed again at the end), initialises
// the library and releases it on destruction.
class LibrarySession {
 public:
  LibrarySession(int threads, int outOfCoreMode, const std::string& workingDirectory);
  ~LibrarySession();
  LibrarySession(const LibrarySession&) = delete;
  LibrarySession& operator=(const LibrarySession&) = delete;

  // With a trailing "/".
  const std::string& WorkingDirectory() const { return workingDirectory_; }
  int Threads() const { return threads_; }
  int OutOfCoreMode() const { return outOfCoreMode_; }
  // Sets the math library's thread count again (a FEAST run switches it to one thread).
  void RestoreThreads() const;

 private:
  int threads_;
  int outOfCoreMode_;
  std::string workingDirectory_;
  bool temporary_ = false;
};

// Default thread count: MKL_NUM_THREADS when set, else the number of online processors.
int DefaultThreads();

}  // namespace vqsolve
