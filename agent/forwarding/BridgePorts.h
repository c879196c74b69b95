#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "agent/config/Configuration.h"
#include "agent/forwarding/BridgeLink.h"
#include "agent/forwarding/ForwardedVlan.h"
#include "agent/forwarding/StreamRules.h"

/// A configuration's interfaces as ports of the kernel's bridge.
namespace Agent {

/// With the kernel's indices.
using BridgePorts = std::map<Wirex::IntfId, std::uint32_t>;

/// The configured ones.
/// @param links all ports of the bridge.
BridgePorts servedPorts(Configuration const& configuration, std::vector<LinkInfo> const& links);

/// The rules that these ports need.
StreamRules rulesFor(Configuration const& configuration, std::vector<LinkInfo> const& links,
                     std::vector<ForwardedVlan> const& vlans);

}  // namespace Agent
