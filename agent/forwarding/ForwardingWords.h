#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/forwarding/Forwarding.h"

/// What an operator reads of where streams go.
namespace Agent {

/// Where the streams of a group go.
struct Destinations {
  bool everywhere = false;
  std::vector<std::string> ports;  ///< in natural order; all of the bridge if everywhere
};

/// Nothing if the bridge is not used.
std::optional<Destinations> destinationsOf(Forwarding const& forwarding, Bridging::VlanId vlan,
                                           Wirex::IpAddr group);

/// Why a port gets the streams of a group, or does not, in a sentence; empty if forwarding is not
/// configured.
std::string whyForwarded(Forwarding const& forwarding, Bridging::VlanId vlan,
                         Wirex::IntfId const& intf, Wirex::IpAddr group);

}  // namespace Agent
