#pragma once

#include <cstddef>
#include "Test.h"

/// Memory that runs out. This replaces the allocation of the whole program, the libraries that it
/// is linked with included; to be included by one source file of it.
///
/// Where clang's ThreadSanitizer keeps that to itself, no allocation ever fails.
#if defined(__clang__) && defined(QV_HAS_THREAD_SANITIZER)
#define QV_ALLOCATIONS_NEVER_FAIL
#endif

namespace QVTest {

/// Has one allocation fail while it lives: the one that follows upon `count` others, of this thread
/// or of all threads together. There is one such object at a time.
class FailingAllocations {
 public:
  enum class Threads { kThis, kAll };
#ifdef QV_ALLOCATIONS_NEVER_FAIL
  static constexpr bool kIsPossible = false;
#else
  static constexpr bool kIsPossible = true;
#endif

  explicit FailingAllocations(long count, Threads threads = Threads::kThis) {
    left_ = count;
    (threads == Threads::kAll ? allCount_ : thisCounts_) = true;
  }
  ~FailingAllocations() { allCount_ = thisCounts_ = false; }
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;

  /// Whether there were that many. A loop over the count ends where this is false.
  bool hasFailed() const { return left_ < 0; }

  static void* allocate(std::size_t size,
                        std::size_t alignment = alignof(std::max_align_t)) noexcept {
    const bool isCounted = thisCounts_ || allCount_;
    if (isCounted && left_.fetch_sub(1) == 0) return nullptr;
    return std::aligned_alloc(alignment,
                              (std::max(size, alignment) + alignment - 1) & ~(alignment - 1));
  }

 private:
  static inline std::atomic<long> left_{0};
  static inline std::atomic<bool> allCount_{false};
  static inline thread_local std::atomic<bool> thisCounts_{false};
};

}  // namespace QVTest

#ifndef QV_ALLOCATIONS_NEVER_FAIL
void* operator new(std::size_t size) {
  if (void* memory = QVTest::FailingAllocations::allocate(size)) return memory;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  void* memory = QVTest::FailingAllocations::allocate(size, static_cast<std::size_t>(alignment));
  return memory ? memory : throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return QVTest::FailingAllocations::allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return QVTest::FailingAllocations::allocate(size);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
#endif
