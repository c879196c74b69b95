#pragma once

#include <stdexcept>

namespace Agent {

/// Why a capture cannot be replayed, in one line: which file, what is wrong, what to do.
class CaptureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What is wrong with the bytes of a capture; who reads it knows which file it is, and where.
class CaptureDamage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Agent
