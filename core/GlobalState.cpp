// Process-wide registry and settings, and the small platform services the library shares
// (environment writes, GUIDs, processor count).
#include "core/GlobalState.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>

#include <unistd.h>

namespace vqmath {
namespace internal {

Registry& registry() {
  static Registry r;
  return r;
}

Settings& settings() {
  static Settings s;
  return s;
}

void SetError(int code, const char* message) {
  Registry& r = registry();
  r.errorCode = code;
  r.errorMessage = message ? message : "";
}

std::string NewGuid() {
  // Version-4 (random) UUID: 122 random bits, version nibble 4, variant bits 10.
  static std::mt19937_64 engine = [] {
    std::random_device rd;
    std::seed_seq seq{rd(), rd(), rd(), rd(), static_cast<unsigned>(getpid())};
    return std::mt19937_64(seq);
  }();
  unsigned char b[16];
  for (int k = 0; k < 16; k += 8) {
    unsigned long long v = engine();
    for (int q = 0; q < 8; ++q) b[k + q] = static_cast<unsigned char>(v >> (8 * q));
  }
  b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);
  b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);
  char text[37];
  std::snprintf(text, sizeof text,
                "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14],
                b[15]);
  return std::string(text, 36);
}

std::string NewGuidUnderscored() {
  std::string g = NewGuid();
  for (char& c : g)
    if (c == '-') c = '_';
  return g;
}

std::string NewOocPath() { return settings().workingDir + NewGuidUnderscored() + "_ooc_file"; }

int SetEnv(const char* name, const char* value) {
  // setenv() keeps every value it was ever given (the environment may still be read through old
  // pointers), and every solver publishes a fresh out-of-core path: a host running millions of
  // solutions would grow by a hundred bytes per solver. Instead each variable the library writes
  // has one "NAME=value" buffer owned here and handed to putenv(); the previous buffer is released
  // once the environment points at the new one. The table is never destroyed, so the environment
  // stays valid while the process exits.
  static auto* owned = new std::map<std::string, std::unique_ptr<char[]>>();
  if (!name || !*name || std::strchr(name, '=')) return -1;
  const std::string entry = std::string(name) + "=" + (value ? value : "");
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[entry.size() + 1]);
  if (!buffer) return -1;
  std::memcpy(buffer.get(), entry.c_str(), entry.size() + 1);
  if (putenv(buffer.get()) != 0) return -1;
  (*owned)[name] = std::move(buffer);
  return 0;
}

int SetEnvInt(const char* name, int value) {
  char text[16];
  std::snprintf(text, sizeof text, "%d", value);
  return SetEnv(name, text);
}

int SetOocMaxCoreSize(int mb) {
  settings().oocMaxCoreSize = mb;
  return SetEnvInt("MKL_PARDISO_OOC_MAX_CORE_SIZE", mb);
}

int ProcessorCount() {
  long n = sysconf(_SC_NPROCESSORS_ONLN);
  return n > 0 ? static_cast<int>(n) : 1;
}

}  // namespace internal
}  // namespace vqmath
