// Support of the reliability tests: see ReliabilitySupport.h.
#include "support/ReliabilitySupport.h"

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "vqmath.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VQTEST_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VQTEST_ASAN 1
#endif

namespace vqtest {

bool UnderAddressSanitizer() {
#ifdef VQTEST_ASAN
  return true;
#else
  return false;
#endif
}


long ProcessStatusKb(const char* key) {
  std::FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return -1;
  char line[256];
  long value = -1;
  const std::size_t len = std::strlen(key);
  while (std::fgets(line, sizeof line, f)) {
    if (std::strncmp(line, key, len) == 0 && line[len] == ':') {
      value = std::strtol(line + len + 1, nullptr, 10);
      break;
    }
  }
  std::fclose(f);
  return value;
}

long long HeapInUseBytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<long long>(info.uordblks) + static_cast<long long>(info.hblkhd);
}

std::vector<std::string> ListDirectory(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      const std::string name = e->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}


}  // namespace vqtest
