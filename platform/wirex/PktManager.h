#pragma once

#include <cstddef>

#include "framework/kel/Export.h"

namespace Wirex {

/// What holds for every packet of the process.
class KEL_EXPORT PktManager {
 public:
  /// The process's own.
  static PktManager& instance() noexcept;

  /// The longest packet, in bytes, without the room in front of it.
  std::size_t bufferSize() const noexcept { return bufferSize_; }
  void bufferSizeIs(std::size_t bytes) noexcept { bufferSize_ = bytes; }

 private:
  PktManager() = default;

  std::size_t bufferSize_ = 2048;  // an Ethernet frame with its usual MTU
};

}  // namespace Wirex
