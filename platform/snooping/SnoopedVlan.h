#pragma once

#include "platform/snooping/VlanLearning.h"
#include "platform/snooping/VlanQuerier.h"
#include "platform/snooping/VlanRouters.h"

namespace Bridging::IgmpSnooping {

/// Where a port hands what it hears in a VLAN. Learning and querier of a secondary VLAN are its
/// primary's, whose adapter serves the hosts of both; router ports are each VLAN's own. All of them
/// stay until the VLAN is taken from the port.
struct SnoopedVlan {
  VlanLearning* learning = nullptr;  ///< for reports and leaves
  VlanRouters* routers = nullptr;    ///< for queries and PIM hellos
  VlanQuerier* querier = nullptr;    ///< for queries, and for what is withdrawn
};

}  // namespace Bridging::IgmpSnooping
