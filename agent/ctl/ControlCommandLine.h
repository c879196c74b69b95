#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <variant>

#include "agent/Usage.h"
#include "agent/control/Request.h"

/// The command line of igmpsnoopctl.
namespace Agent {

struct ControlCommand {
  std::string socket = "/run/igmpsnoopd/control";
  Request request;
  std::string reportFile;  ///< of "report"
  bool json = false;
  std::optional<std::chrono::milliseconds> interval;  ///< after which to ask again, and again
};

/// Throws WrongUsage.
std::variant<ControlCommand, Information> parseControlCommandLine(int argc,
                                                                  char const* const* argv);

}  // namespace Agent
