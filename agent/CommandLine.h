#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "agent/TraceRequest.h"
#include "agent/replay/Replay.h"

/// The command line of igmpsnoopd.
namespace Agent {

struct LiveCommand {
  std::string configuration;
  std::string control = "/run/igmpsnoopd/control";
  std::string metrics;  ///< empty: none are served
  std::vector<TraceRequest> traces;
};

struct ReplayCommand {
  std::string configuration;
  std::vector<PortCapture> captures;
  std::optional<Horix::Time> until;
  std::optional<std::string> write;
  bool events = false;
  bool json = false;
  std::vector<TraceRequest> traces;
};

struct CheckCommand {
  std::string configuration;
};

/// Help or version: nothing is left to do but to print it.
struct Information {
  std::string text;
};

using Command = std::variant<LiveCommand, ReplayCommand, CheckCommand, Information>;

/// A command line that asks for nothing that can be done, in one line with a hint.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws WrongUsage.
Command parseCommandLine(int argc, char const* const* argv);

}  // namespace Agent
