#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "agent/replay/Replay.h"
#include "framework/kel/Trace.h"

/// The command line of igmpsnoopd.
namespace Agent {

/// Trace levels to switch on.
struct TraceRequest {
  Kel::TraceHandle* handle;
  std::vector<int> levels;
};

struct ReplayCommand {
  std::string configuration;
  std::vector<PortCapture> captures;
  std::optional<Horix::Time> until;
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

using Command = std::variant<ReplayCommand, CheckCommand, Information>;

/// A command line that asks for nothing that can be done, in one line with a hint.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws WrongUsage.
Command parseCommandLine(int argc, char const* const* argv);

}  // namespace Agent
