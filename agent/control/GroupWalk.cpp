#include "agent/control/GroupWalk.h"

namespace Agent {

using Bridging::VlanId;
using Wirex::IpAddr;

GroupWalk::GroupWalk(Switch const& snoopingSwitch, std::optional<VlanId> of)
    : switch_(snoopingSwitch) {
  for (auto const& [vlan, status] : switch_.entities().snoopingStatus->contextStatus())
    if (!of || *of == vlan) vlans_.push_back(vlan);
}

/// Null where there is none to visit in this step.
GroupWalk::Group const* GroupWalk::step() {
  auto const& vlans = *switch_.entities().snoopingStatus;
  if (!groups_.empty()) {
    IpAddr const group = groups_.back();
    groups_.pop_back();
    auto const status = vlans.contextStatus(vlan_);
    return status ? status->group().find(group) : nullptr;
  }
  vlan_ = vlans_.back();
  vlans_.pop_back();
  if (auto const status = vlans.contextStatus(vlan_))
    for (IpAddr const group : status->group().keys()) groups_.push_back(group);
  return nullptr;
}

}  // namespace Agent
