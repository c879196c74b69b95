#include "agent/forwarding/BridgePorts.h"

#include <algorithm>

namespace Agent {

BridgePorts servedPorts(Configuration const& configuration, std::vector<LinkInfo> const& links) {
  BridgePorts ports;
  for (InterfaceConfig const& interface : configuration.interfaces)
    for (LinkInfo const& link : links)
      if (link.name == interface.intfId.stringValue().view())
        ports.emplace(interface.intfId, link.index);
  return ports;
}

StreamRules rulesFor(Configuration const& configuration, std::vector<LinkInfo> const& links,
                     std::vector<ForwardedVlan> const& vlans) {
  StreamRules rules;
  rules.unregistered = configuration.forwarding->unregistered;
  for (LinkInfo const& link : links) rules.members.push_back(link.index);
  std::sort(rules.members.begin(), rules.members.end());
  BridgePorts const ports = servedPorts(configuration, links);
  for (InterfaceConfig const& interface : configuration.interfaces) {
    auto const port = ports.find(interface.intfId);
    if (port == ports.end()) continue;
    PortRule rule{port->second, interface.letsStreamsIn(), interface.letsStreamsOut(), {}};
    for (VlanConfig const& vlan : configuration.vlans)
      for (VlanMember const& member : vlan.members)
        if (member.intfId == interface.intfId && !member.tagged)
          rule.untaggedVlan = vlan.vlanId.value();
    rules.ports.push_back(rule);
  }
  for (ForwardedVlan const& vlan : vlans) rules.vlans.push_back(vlan.entryVlan);
  return rules;
}

}  // namespace Agent
