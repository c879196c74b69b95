#pragma once

#include <optional>

#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"

namespace Agent {

/// Which memberships or records are asked for. What is absent stands for all.
struct Selection {
  std::optional<Bridging::VlanId> vlan;
  std::optional<Wirex::IntfId> interface;
  std::optional<Wirex::IpAddr> group;

  bool has(Bridging::VlanId each) const { return !vlan || *vlan == each; }
  bool has(Wirex::IntfId const& each) const { return !interface || *interface == each; }
  bool has(Wirex::IpAddr each) const { return !group || *group == each; }

  friend bool operator==(Selection const&, Selection const&) = default;
};

}  // namespace Agent
