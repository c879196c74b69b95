#include "agent/SwitchEntities.h"

#include <unordered_map>
#include <utility>

namespace Agent {

namespace {

using InterfacesByName = std::unordered_map<std::string_view, InterfaceConfig const*>;

InterfacesByName byName(std::vector<InterfaceConfig> const& interfaces) {
  InterfacesByName named;
  for (InterfaceConfig const& interface : interfaces)
    named.emplace(interface.intfId.stringValue().view(), &interface);
  return named;
}

void addMembers(SwitchEntities& entities, VlanConfig const& vlan, InterfacesByName const& named) {
  auto const bridgingVlan = entities.bridging->vlanConfigIs(vlan.vlanId);
  auto const topoVlan = entities.topology->topoVlanIs(vlan.vlanId);
  for (VlanMember const& member : vlan.members) {
    bridgingVlan->intfConfigIs(member.intfId)->taggedIs(member.tagged);
    InterfaceConfig const& interface = *named.at(member.intfId.stringValue().view());
    topoVlan->portIs(member.intfId)->blockedIs(interface.blocked);
  }
}

/// Proxying asserts that what a VLAN's configuration entry and querier refer to is there, so these
/// come last. A secondary VLAN has no entry and no status of its own: its primary's hold for it.
void addProxying(SwitchEntities& entities, VlanConfig const& vlan) {
  if (vlan.privateRole == Bridging::VlanTypeAndPrimaryVlan()) {
    entities.snoopingStatus->contextStatusIs(vlan.vlanId);
    entities.snoopingConfig->contextConfigIs(vlan.vlanId)->proxyEnabledIs(vlan.proxy);
  }
  if (!vlan.querierVersion) return;
  auto protocol = Kel::make<Gmp::Igmp::QuerierConfig>();
  protocol->querierVersionIs(*vlan.querierVersion);
  entities.queriers->querierConfigIs(Kel::format("%d", vlan.vlanId.value()), std::move(protocol));
}

}  // namespace

SwitchEntities makeSwitchEntities(Configuration const& configuration) {
  SwitchEntities entities;
  for (InterfaceConfig const& interface : configuration.interfaces) {
    entities.desiredIntfs->intfDesiredIs(interface.intfId, true);
    entities.kernelIntfs->intfStatusAndDeviceNameIs(interface.intfId,
                                                    {interface.intfId.stringValue()});
  }
  InterfacesByName const named = byName(configuration.interfaces);
  for (VlanConfig const& vlan : configuration.vlans) {
    if (vlan.privateRole != Bridging::VlanTypeAndPrimaryVlan())
      entities.privateVlans->secondaryVlanIs(vlan.vlanId, vlan.privateRole);
    addMembers(entities, vlan, named);
  }
  for (VlanConfig const& vlan : configuration.vlans) addProxying(entities, vlan);
  return entities;
}

void setDirections(SwitchEntities const& entities, Configuration const& configuration) {
  InterfacesByName const named = byName(configuration.interfaces);
  for (auto const& [vlan, topoVlan] : entities.topology->topoVlan())
    for (auto const& [intf, port] : topoVlan->port())
      port->allowedTrafficDirectionIs(named.at(intf.stringValue().view())->direction);
}

}  // namespace Agent
