#include "Progress.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "Output.h"

namespace vqsolve {

void Progress::Status(const std::string& text) {
  if (!enabled_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  std::string line = text;
  if (line.size() > 110) line = line.substr(0, 107) + "...";
  std::fprintf(stderr, "\r\033[K%s", line.c_str());
  std::fflush(stderr);
  shown_ = true;
}

void Progress::Clear() {
  if (!enabled_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (shown_) {
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    shown_ = false;
  }
}

void Progress::Pass(const std::string& line) {
  if (quiet_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (shown_) std::fprintf(stderr, "\r\033[K");
  std::fprintf(stderr, "%s\n", line.c_str());
  std::fflush(stderr);
  shown_ = false;
}

LibraryCall::LibraryCall(Progress& progress, std::string what)
    : progress_(progress), what_(std::move(what)), start_(std::chrono::steady_clock::now()) {
  std::cout.flush();
  std::fflush(stdout);
  int fds[2];
  if (pipe(fds) == 0) {
    savedStdout_ = dup(STDOUT_FILENO);
    if (savedStdout_ >= 0 && dup2(fds[1], STDOUT_FILENO) >= 0) {
      pipeRead_ = fds[0];
      close(fds[1]);
      reader_ = std::thread(&LibraryCall::Read, this);
    } else {
      if (savedStdout_ >= 0) close(savedStdout_);
      savedStdout_ = -1;
      close(fds[0]);
      close(fds[1]);
    }
  }
  if (progress_.Enabled()) {
    progress_.Status(what_);
    ticker_ = std::thread(&LibraryCall::Tick, this);
  }
}

LibraryCall::~LibraryCall() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
  if (ticker_.joinable()) ticker_.join();
  if (savedStdout_ >= 0) {
    std::cout.flush();
    std::fflush(stdout);
    dup2(savedStdout_, STDOUT_FILENO);  // closes the pipe's last write end: the reader sees EOF
    close(savedStdout_);
    if (reader_.joinable()) reader_.join();
    close(pipeRead_);
  }
  progress_.Clear();
}

double LibraryCall::Seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void LibraryCall::Stage(const std::string& what) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    what_ = what;
    detail_.clear();
  }
  wake_.notify_all();
}

void LibraryCall::Read() {
  std::string pending;
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(pipeRead_, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    pending.append(buffer, static_cast<size_t>(got));
    size_t nl;
    while ((nl = pending.find('\n')) != std::string::npos) {
      Handle(pending.substr(0, nl));
      pending.erase(0, nl + 1);
    }
  }
  if (!pending.empty()) Handle(pending);
}

void LibraryCall::Handle(const std::string& raw) {
  std::string line = raw;
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
    line.pop_back();
  size_t first = line.find_first_not_of(" \t");
  if (first == std::string::npos) return;
  line = line.substr(first);

  // Progress reports of the eigen solvers.
  int mode = 0;
  std::string detail;
  if (std::sscanf(line.c_str(), "EigenValue %d:", &mode) == 1) {
    detail = Format("%d modes converged", mode);
  } else if (line.rfind("Found ", 0) == 0 || line.rfind("solving incrementally", 0) == 0) {
    detail = line;
  } else if (line.rfind("Computed MAC", 0) == 0 || line.rfind("Current shift value", 0) == 0 ||
             line.rfind("Shift :", 0) == 0 || line.rfind("Tolerance =", 0) == 0 ||
             line.rfind("Number of Eigens Current", 0) == 0) {
    return;  // the solvers' own bookkeeping
  } else {
    progress_.Pass(line);
    return;
  }
  {
    std::lock_guard<std::mutex> lock(mutex_);
    detail_ = detail;
  }
  wake_.notify_all();
}

void LibraryCall::Tick() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stop_) {
    const std::string text =
        what_ + (detail_.empty() ? "" : ": " + detail_) + Format("  [%.1f s]", Seconds());
    lock.unlock();
    progress_.Status(text);
    lock.lock();
    wake_.wait_for(lock, std::chrono::milliseconds(200));
  }
}

}  // namespace vqsolve
