#include "agent/Reconfiguration.h"

#include <algorithm>
#include <set>
#include <utility>

namespace Agent {

using Bridging::VlanId;
using Wirex::IntfId;

namespace {

Kel::Name querierName(VlanId vlan) {
  return Kel::format("%d", vlan.value());
}

VlanId adapterVlan(VlanId vlan, Bridging::VlanTypeAndPrimaryVlan role) {
  return role == Bridging::VlanTypeAndPrimaryVlan() ? vlan : role.primaryVlan();
}

Kel::Ptr<Gmp::Igmp::QuerierConfig const> protocolConfig(Igmp::IgmpVersion version) {
  auto protocol = Kel::make<Gmp::Igmp::QuerierConfig>();
  protocol->querierVersionIs(version);
  return protocol;
}

}  // namespace

Reconfiguration::Reconfiguration(SwitchEntities const& entities, Configuration const& configuration)
    : entities_(entities), configuration_(configuration) {
  for (VlanConfig const& vlan : configuration.vlans) wanted_.emplace(vlan.vlanId, &vlan);
}

VlanConfig const* Reconfiguration::wanted(VlanId vlan) const {
  auto const found = wanted_.find(vlan);
  return found == wanted_.end() ? nullptr : found->second;
}

bool Reconfiguration::isPrimary(VlanId vlan) const {
  return entities_.privateVlans->secondaryVlan(vlan) == Bridging::VlanTypeAndPrimaryVlan();
}

/// Whether a VLAN that is there stays, served by the adapter of the same VLAN.
bool Reconfiguration::keepsPlace(VlanId vlan) const {
  VlanConfig const* const config = wanted(vlan);
  return config && entities_.topology->topoVlan(vlan) &&
         adapterVlan(vlan, config->privateRole) ==
             adapterVlan(vlan, entities_.privateVlans->secondaryVlan(vlan));
}

/// Whether a primary VLAN's adapter, or its having none, stays as it is.
bool Reconfiguration::keepsAdapter(VlanId vlan) const {
  if (!keepsPlace(vlan)) return false;
  auto const context = entities_.snoopingConfig->contextConfig(vlan);
  return context && context->proxyEnabled() == wanted(vlan)->proxy &&
         entities_.queriers->querierConfig().contains(querierName(vlan)) ==
             wanted(vlan)->querierVersion.has_value();
}

bool Reconfiguration::keepsProxying(VlanId vlan) const {
  return keepsPlace(vlan) && wanted(vlan)->querierVersion &&
         (isPrimary(vlan) || keepsAdapter(wanted(vlan)->privateRole.primaryVlan()));
}

void Reconfiguration::stopProxying() {
  // All is decided before the first of them goes, on which the decision on others depends.
  // Secondary VLANs let go of the adapter before it goes with its primary.
  std::vector<VlanId> secondaries;
  std::vector<VlanId> primaries;
  for (auto const& [vlan, topoVlan] : entities_.topology->topoVlan())
    if (entities_.queriers->querierConfig(querierName(vlan)) && !keepsProxying(vlan))
      (isPrimary(vlan) ? primaries : secondaries).push_back(vlan);
  for (VlanId const vlan : secondaries) {
    // A machine that goes as a whole leaves its hosts' keys to the adapter, and this one may stay.
    entities_.topology->topoVlan(vlan)->portDelAll();
    entities_.queriers->querierConfigDel(querierName(vlan));
  }
  for (VlanId const vlan : primaries) entities_.queriers->querierConfigDel(querierName(vlan));

  for (VlanId const vlan : entities_.snoopingConfig->contextConfig().keys()) {
    if (!keepsPlace(vlan))
      entities_.snoopingConfig->contextConfigDel(vlan);
    else if (!wanted(vlan)->proxy)
      entities_.snoopingConfig->contextConfig(vlan)->proxyEnabledIs(false);
  }
}

void Reconfiguration::removeVlansAndPorts() {
  for (VlanId const vlan : entities_.topology->topoVlan().keys()) {
    if (!keepsPlace(vlan))
      removeVlan(vlan);
    else
      removeMembers(*wanted(vlan));
  }
  std::set<IntfId> interfaces;
  for (InterfaceConfig const& interface : configuration_.interfaces)
    interfaces.insert(interface.intfId);
  for (IntfId const& intf : entities_.desiredIntfs->intfDesired().keys()) {
    if (interfaces.contains(intf)) continue;
    entities_.kernelIntfs->intfStatusAndDeviceNameDel(intf);
    entities_.desiredIntfs->intfDesiredDel(intf);
  }
}

void Reconfiguration::removeVlan(VlanId vlan) {
  entities_.topology->topoVlan(vlan)->portDelAll();
  entities_.topology->topoVlanDel(vlan);
  if (auto const bridgingVlan = entities_.bridging->vlanConfig(vlan))
    bridgingVlan->intfConfigDelAll();
  entities_.bridging->vlanConfigDel(vlan);
  entities_.privateVlans->secondaryVlanDel(vlan);
  entities_.snoopingStatus->contextStatusDel(vlan);
}

void Reconfiguration::removeMembers(VlanConfig const& vlan) {
  auto const topoVlan = entities_.topology->topoVlan(vlan.vlanId);
  auto const bridgingVlan = entities_.bridging->vlanConfig(vlan.vlanId);
  for (IntfId const& intf : bridgingVlan->intfConfig().keys()) {
    if (vlan.member(intf)) continue;
    topoVlan->portDel(intf);
    bridgingVlan->intfConfigDel(intf);
  }
}

void Reconfiguration::addVlansAndPorts() {
  for (InterfaceConfig const& interface : configuration_.interfaces)
    entities_.desiredIntfs->intfDesiredIs(interface.intfId, true);
  for (VlanConfig const& vlan : configuration_.vlans) addVlan(vlan);
}

void Reconfiguration::addVlan(VlanConfig const& vlan) {
  if (vlan.isSecondary())
    entities_.privateVlans->secondaryVlanIs(vlan.vlanId, vlan.privateRole);
  else
    entities_.snoopingStatus->contextStatusIs(vlan.vlanId);
  auto const bridgingVlan = entities_.bridging->vlanConfigIs(vlan.vlanId);
  auto const topoVlan = entities_.topology->topoVlanIs(vlan.vlanId);
  for (VlanMember const& member : vlan.members) {
    bridgingVlan->intfConfigIs(member.intfId)->taggedIs(member.tagged);
    topoVlan->portIs(member.intfId);
  }
}

void Reconfiguration::startProxying() {
  // The adapters of primary VLANs are there before their secondaries look for them.
  for (VlanConfig const& vlan : configuration_.vlans)
    if (isPrimary(vlan.vlanId)) startProxying(vlan);
  for (VlanConfig const& vlan : configuration_.vlans)
    if (!isPrimary(vlan.vlanId)) startProxying(vlan);
}

/// A secondary VLAN has no configuration entry of its own: its primary's holds for it.
void Reconfiguration::startProxying(VlanConfig const& vlan) {
  if (isPrimary(vlan.vlanId))
    entities_.snoopingConfig->contextConfigIs(vlan.vlanId)->proxyEnabledIs(vlan.proxy);
  if (!vlan.querierVersion) return;
  Kel::Name const name = querierName(vlan.vlanId);
  auto const querier = entities_.queriers->querierConfig(name);
  if (!querier)
    entities_.queriers->querierConfigIs(name, protocolConfig(*vlan.querierVersion));
  else if (querier->gmpQuerierConfig()->querierVersion() != *vlan.querierVersion)
    querier->gmpQuerierConfigIs(protocolConfig(*vlan.querierVersion));
}

}  // namespace Agent
