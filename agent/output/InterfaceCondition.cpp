#include "agent/output/InterfaceCondition.h"

#include <algorithm>

namespace Agent {

namespace {

bool isInAVlan(Configuration const& configuration, Wirex::IntfId const& intf) {
  return std::any_of(configuration.vlans.begin(), configuration.vlans.end(),
                     [&](VlanConfig const& vlan) { return vlan.member(intf) != nullptr; });
}

}  // namespace

InterfaceCondition conditionOf(Switch const& snoopingSwitch, InterfaceConfig const& interface) {
  InterfaceState const state = snoopingSwitch.interfaceState(interface.intfId);
  if (!state.present)
    return {"absent", "the system has no interface of this name; create it, or mend the name"};
  // Before what keeps it from working now: it stays deaf when that is over.
  auto const device = snoopingSwitch.snooping().ethDevPamCol()->intfPam(interface.intfId);
  if (std::string why = device ? device->deafness() : ""; !why.empty())
    return {"deaf", std::move(why)};
  if (!state.carrier)
    return {"no-carrier", "it is down, or nothing answers at the other end of its cable"};
  if (!state.forwarding)
    return {"not-forwarding",
            "its bridge keeps it from forwarding (spanning tree); the bridge's own tools say why"};
  if (interface.blocked) return {"blocked", "its configuration says blocked = true"};
  bool const hears = allowsIngress(interface.direction);
  bool const sends = allowsEgress(interface.direction);
  if (!hears && !sends) return {"closed", "its configuration says direction = \"none\""};
  if (!hears)
    return {"one-way", "its configuration says direction = \"egress\": what it hears is ignored"};
  if (!sends)
    return {"one-way", "its configuration says direction = \"ingress\": its hosts are silent"};
  if (!isInAVlan(snoopingSwitch.configuration(), interface.intfId))
    return {"no-vlan", "no [[vlan]] names it; add it to interfaces or tagged-interfaces of one"};
  return {};
}

}  // namespace Agent
