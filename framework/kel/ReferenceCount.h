#pragma once

#include <atomic>
#include <cstdint>

#include "framework/kel/Export.h"

namespace Kel {

/// The process-wide switch for thread-safe pointers. Off, counting is plain arithmetic and every
/// handle belongs to one thread; on, handles may be copied and dropped from any thread. It is set
/// before other threads share handles.
KEL_EXPORT extern std::atomic<bool> threadSafePointers;

inline bool threadSafePtr() noexcept {
  return threadSafePointers.load(std::memory_order_relaxed);
}
inline void threadSafePtrIs(bool threadSafe) noexcept {
  threadSafePointers.store(threadSafe, std::memory_order_relaxed);
}

/// Counts the handles to an object. It starts at one: whoever makes the object holds it while its
/// constructor runs, so that a handle made there cannot destroy it. It ends at one: whoever
/// destroys the object holds it while its destructor runs, so that a handle made there cannot
/// destroy it again.
class ReferenceCount {
 public:
  std::uint32_t value() const noexcept { return count_.load(std::memory_order_relaxed); }

  [[gnu::always_inline]] void increase() noexcept {
    if (threadSafePtr()) [[unlikely]]
      count_.fetch_add(1, std::memory_order_relaxed);
    else
      count_.store(value() + 1, std::memory_order_relaxed);
  }

  /// Returns what is left; at zero the caller destroys the object.
  [[gnu::always_inline]] std::uint32_t decrease() noexcept {
    if (threadSafePtr()) [[unlikely]] {
      std::uint32_t const left = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
      if (left == 0) count_.store(1, std::memory_order_relaxed);
      return left;
    }
    std::uint32_t const left = value() - 1;
    if (left != 0) count_.store(left, std::memory_order_relaxed);
    return left;
  }

 private:
  std::atomic<std::uint32_t> count_{1};
};

}  // namespace Kel
