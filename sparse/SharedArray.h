// Reference-counted array used for the three arrays of a sparse symmetric matrix.
//
// The copy constructor and the assignment of VQ_SparseSymMatrix share their arrays on purpose,
// and several operators hand back such shallow copies. Each array therefore lives in one block
// with a reference count in front of it: every object that points at the array holds one
// reference, and the block is freed when the last reference goes. Sharing stays visible (all
// holders see the same elements) while double frees and dangling pointers cannot happen.
//
// Allocation never throws: Allocate() returns an empty handle when memory is exhausted (or when
// the byte count does not fit the address space), and the caller turns that into its status.
// The payload starts on a 64-byte boundary so that MKL kernels get aligned arrays.
//
// Installed with VQ_SparseSymMatrix.h, whose members it types; hosts have no other use for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>

namespace vqmath {
namespace internal {

// Test hook: when positive, the n-th array allocation from now on fails (1 = the next one).
// Lets the tests drive the out-of-memory paths deterministically. Zero disables it.
void SetSparseAllocationFailure(int nth);
bool SparseAllocationShouldFail();

template <class T>
class SharedArray {
  static_assert(std::is_trivially_copyable<T>::value, "SharedArray holds plain numbers");

 public:
  SharedArray() noexcept = default;
  SharedArray(const SharedArray& o) noexcept : head_(o.head_) { Retain(); }
  SharedArray(SharedArray&& o) noexcept : head_(o.head_) { o.head_ = nullptr; }
  SharedArray& operator=(const SharedArray& o) noexcept {
    if (head_ != o.head_) {
      Header* old = head_;
      head_ = o.head_;
      Retain();
      Drop(old);
    }
    return *this;
  }
  SharedArray& operator=(SharedArray&& o) noexcept {
    if (this != &o) {
      Drop(head_);
      head_ = o.head_;
      o.head_ = nullptr;
    }
    return *this;
  }
  ~SharedArray() { Drop(head_); }

  // A new block of count elements (not cleared); empty handle on failure.
  static SharedArray Allocate(std::int64_t count) noexcept {
    SharedArray a;
    if (count < 0 || SparseAllocationShouldFail()) return a;
    const std::uint64_t payload = static_cast<std::uint64_t>(count) * sizeof(T);
    if (payload / sizeof(T) != static_cast<std::uint64_t>(count) ||
        payload > static_cast<std::uint64_t>(PTRDIFF_MAX) - kHeaderBytes)
      return a;
    const std::size_t bytes = RoundUp(kHeaderBytes + static_cast<std::size_t>(payload));
    void* p = std::aligned_alloc(kAlign, bytes);
    if (!p) return a;
    a.head_ = static_cast<Header*>(p);
    a.head_->refs = 1;
    a.head_->count = count;
    return a;
  }

  void Reset() noexcept {
    Drop(head_);
    head_ = nullptr;
  }

  T* Get() const noexcept {
    return head_ ? reinterpret_cast<T*>(reinterpret_cast<char*>(head_) + kHeaderBytes) : nullptr;
  }
  std::int64_t Count() const noexcept { return head_ ? head_->count : 0; }
  std::int64_t UseCount() const noexcept { return head_ ? head_->refs : 0; }
  explicit operator bool() const noexcept { return head_ != nullptr; }

 private:
  struct Header {
    std::int64_t refs;
    std::int64_t count;
  };
  static constexpr std::size_t kAlign = 64;
  static constexpr std::size_t kHeaderBytes = 64;  // keeps the payload 64-byte aligned
  static std::size_t RoundUp(std::size_t b) { return (b + kAlign - 1) / kAlign * kAlign; }

  void Retain() noexcept {
    if (head_) ++head_->refs;
  }
  static void Drop(Header* h) noexcept {
    if (h && --h->refs == 0) std::free(h);
  }

  Header* head_ = nullptr;
};

}  // namespace internal
}  // namespace vqmath
