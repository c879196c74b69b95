#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/interface/PacketSocket.h"

namespace Agent {

/// What a program leaves to the one that takes its place in the same process. It stands in a file
/// without a name, whose descriptor an environment variable tells.
struct Handover {
  std::string state;           ///< what is known, sealed
  std::vector<int> listening;  ///< the descriptors of the sockets that are listened on
  std::vector<Interface::PacketSocket::PassedOn> devices;

  /// What the former program has left, once. Nothing if there was none, or if it cannot be read.
  static std::optional<Handover> received();

  /// Has another program, or this one anew, run in this process. Returns only by std::system_error,
  /// and then everything is as it was.
  /// @param path of the program.
  /// @param arguments its name first.
  void passOnTo(std::string const& path, std::vector<std::string> const& arguments) const;
};

}  // namespace Agent
