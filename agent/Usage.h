#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "framework/types/VlanId.h"

namespace CLI {
class App;
}

/// What the command lines of igmpsnoopd and igmpsnoopctl have in common.
namespace Agent {

/// Help or version: nothing is left to do but to print it.
struct Information {
  std::string text;
};

/// A command line that asks for nothing that can be done, in one line with a hint.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Has the parser take a command line. Throws WrongUsage, also for a std::invalid_argument of what
/// the parser calls.
/// @return what is to be printed in place of anything else, if there is.
std::optional<Information> parse(CLI::App& app, int argc, char const* const* argv);

/// Has the command's help, and what is said when an argument is missing, end with an example.
/// @param line a command line that works.
void exampleIs(CLI::App& command, std::string const& line);

/// The VLAN that a text names by its number.
std::optional<Bridging::VlanId> vlanIn(std::string const& text);

}  // namespace Agent
