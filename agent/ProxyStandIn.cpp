#include "agent/ProxyStandIn.h"

namespace Agent {

using Bridging::VlanId;
using Bridging::IgmpSnooping::Proxy::PortKey;

ProxyStandIn::ProxyStandIn(SwitchEntities const& entities) : entities_(entities) {
  for (auto const& [vlan, topoVlan] : entities_.topology->topoVlan())
    if (isProxied(vlan)) addHosts(*topoVlan, *adapterConfigIs(primaryOf(vlan)));
}

bool ProxyStandIn::isProxied(VlanId vlan) const {
  auto const config = entities_.snoopingConfig->contextConfig(primaryOf(vlan));
  auto const querier = entities_.queriers->querierConfig(Kel::format("%d", vlan.value()));
  return config && config->proxyEnabled() && querier;
}

VlanId ProxyStandIn::primaryOf(VlanId vlan) const {
  auto const role = entities_.privateVlans->secondaryVlan(vlan);
  return role == Bridging::VlanTypeAndPrimaryVlan() ? vlan : role.primaryVlan();
}

Kel::Ptr<ProxyStandIn::AdapterVlanConfig> const& ProxyStandIn::adapterConfigIs(VlanId vlan) {
  auto& config = adapterConfig_[vlan];
  if (!config) {
    config = Kel::make<AdapterVlanConfig>(vlan);
    adapterSm_.push_back(Bridging::IgmpSnooping::Proxy::adapterSmFactory(
        vlan, config, entities_.hosts, entities_.snoopingStatus->contextStatus(vlan)));
  }
  return config;
}

void ProxyStandIn::addHosts(Topology::Library::Vlan::TopoVlan const& vlan,
                            AdapterVlanConfig& adapterConfig) {
  Kel::Name const querierName = Kel::format("%d", vlan.vlanId().value());
  auto const querier = entities_.queriers->querierConfig(querierName)->gmpQuerierConfig();
  for (auto const& [intf, port] : vlan.port()) {
    PortKey const key(vlan.vlanId(), intf);
    auto const host = entities_.hosts->igmpHostIs(key.stringvalue());
    host->intfIdIs(intf);
    host->vlanIdIs(vlan.vlanId().value());
    host->externalPamIs(true);
    host->igmpVersionIs(querier->querierVersion());
    host->deviceNameIs(entities_.kernelIntfs->intfStatusAndDeviceName(intf).deviceName);
    host->enabledIs(true);
    host->blockedIs(port->blocked());
    host->directionIs(port->allowedTrafficDirection());
    adapterConfig.hostKeyIs(key, true);
  }
}

}  // namespace Agent
