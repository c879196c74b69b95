#pragma once

#include "framework/kel/ReferenceCount.h"

/// Sets the process-wide switch for thread-safe pointers for as long as it lives.
class ThreadSafePointers {
 public:
  explicit ThreadSafePointers(bool threadSafe) : former_(Kel::threadSafePtr()) {
    Kel::threadSafePtrIs(threadSafe);
  }
  ThreadSafePointers(ThreadSafePointers const&) = delete;
  ThreadSafePointers& operator=(ThreadSafePointers const&) = delete;
  ~ThreadSafePointers() { Kel::threadSafePtrIs(former_); }

 private:
  bool former_;
};
