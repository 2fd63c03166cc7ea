#pragma once
// Progress of long work on standard error, shown only when standard error is a terminal (and
// not with --quiet): one status line rewritten in place.
//
// LibraryCall guards a call into the library: while it lives, whatever the library prints to
// standard output (its verbose log, ARPACK pass reports, diagnostics) is taken off standard
// output, so that tables and JSON stay clean. Lines that report progress (modes converged,
// passes) become the status line; any other line is passed on to standard error.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace vqsolve {

class Progress {
 public:
  // enabled: show the status line; quiet: also drop the library's other lines.
  Progress(bool enabled, bool quiet) : enabled_(enabled), quiet_(quiet) {}
  ~Progress() { Clear(); }

  bool Enabled() const { return enabled_; }
  // Replaces the status line.
  void Status(const std::string& text);
  // Removes the status line.
  void Clear();
  // A line of the library that is not progress: to standard error unless quiet.
  void Pass(const std::string& line);

 private:
  std::mutex mutex_;
  bool enabled_;
  bool quiet_;
  bool shown_ = false;
};

class LibraryCall {
 public:
  LibraryCall(Progress& progress, std::string what);
  ~LibraryCall();
  LibraryCall(const LibraryCall&) = delete;
  LibraryCall& operator=(const LibraryCall&) = delete;

  // Wall-clock seconds since construction.
  double Seconds() const;
  // Names the current stage of the work on the status line.
  void Stage(const std::string& what);

 private:
  void Read();
  void Tick();
  void Handle(const std::string& line);

  Progress& progress_;
  std::string what_;
  std::string detail_;
  std::chrono::steady_clock::time_point start_;
  int savedStdout_ = -1;
  int pipeRead_ = -1;
  std::thread reader_;
  std::thread ticker_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
};

}  // namespace vqsolve
