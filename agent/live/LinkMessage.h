#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/InterfaceState.h"

struct nlmsghdr;

namespace Agent {

/// What a message of rtnetlink(7) says of a link.
struct LinkMessage {
  std::uint32_t index = 0;
  bool deleted = false;
  /// A bridge speaks of its port, which comes and goes as such and not as an interface: only
  /// `state.forwarding` is told.
  bool ofBridge = false;
  std::string name = {};
  InterfaceState state = {};
};

/// Nothing if it is no RTM_NEWLINK or RTM_DELLINK, or too short for one.
std::optional<LinkMessage> readLink(nlmsghdr const& message);

}  // namespace Agent
