// Support of the reliability tests (hostile input, allocation failure, endurance, out of core):
// registry snapshots, guarded caller arrays that detect writes outside their bounds, process
// memory figures, directory listings, and small well-conditioned models.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace vqtest {

// True when the tests run under AddressSanitizer (where address-space limits and resident
// memory figures mean something else).
bool UnderAddressSanitizer();


// Values of the process's /proc/self/status line "<key>:" in kilobytes (e.g. "VmRSS", "VmSize");
// -1 when unavailable.
long ProcessStatusKb(const char* key);

// Bytes the C heap has handed out and not yet taken back (malloc, new, the C++ containers,
// large blocks mapped on their own included): a leak shows up as growth across a call.
long long HeapInUseBytes();

// Names in a directory (without "." and ".."), sorted.
std::vector<std::string> ListDirectory(const std::string& dir);


// A caller array of count elements between two guard zones filled with a pattern: any write
// outside [data(), data() + count) shows up in Intact().
template <typename T>
class GuardedArray {
 public:
  explicit GuardedArray(std::size_t count, T fill = T())
      : count_(count), storage_(count + 2 * kGuard) {
    for (std::size_t k = 0; k < kGuard; ++k) {
      storage_[k] = Pattern(k);
      storage_[kGuard + count + k] = Pattern(k);
    }
    for (std::size_t k = 0; k < count; ++k) storage_[kGuard + k] = fill;
  }
  T* data() { return storage_.data() + kGuard; }
  const T* data() const { return storage_.data() + kGuard; }
  std::size_t size() const { return count_; }
  T& operator[](std::size_t k) { return data()[k]; }
  std::vector<T> Values() const { return std::vector<T>(data(), data() + count_); }
  bool Intact() const {
    for (std::size_t k = 0; k < kGuard; ++k)
      if (!(storage_[k] == Pattern(k)) || !(storage_[kGuard + count_ + k] == Pattern(k)))
        return false;
    return true;
  }

 private:
  static constexpr std::size_t kGuard = 16;
  static T Pattern(std::size_t k) { return static_cast<T>(-9000 - static_cast<long>(k)); }
  std::size_t count_;
  std::vector<T> storage_;
};

// Bitwise equality of two double arrays (NaN payloads included).
bool SameBits(const std::vector<double>& a, const std::vector<double>& b);


}  // namespace vqtest
