#pragma once

#include <optional>
#include <string>

#include "agent/control/Descriptor.h"
#include "agent/control/Request.h"

namespace Agent {

/// Asks an agent over its control socket and reads the lines of the answer. Blocks.
class ControlClient {
 public:
  /// Throws std::runtime_error with what to do about it.
  ControlClient(std::string path, Request const& request);

  /// The next line without its end, or nothing at the end of the answer.
  /// @param patient waits for as long as it takes.
  /// Throws std::runtime_error.
  std::optional<std::string> nextLine(bool patient = false);

 private:
  bool receive(bool patient);

  std::string path_;
  Descriptor descriptor_;
  std::string received_;
  std::size_t taken_ = 0;  // of what was received
};

}  // namespace Agent
