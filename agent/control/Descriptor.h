#pragma once

#include <unistd.h>
#include <utility>

namespace Agent {

/// Owns a file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int value = -1) noexcept : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }

  int value() const noexcept { return value_; }

 private:
  int value_;
};

}  // namespace Agent
