#pragma once

#include <map>
#include <vector>

#include "agent/SwitchEntities.h"
#include "framework/entities/AdapterVlanConfig.h"
#include "proxy/ProxyAdapterSm.h"

namespace Agent {

/// Makes, once, what the proxy's control machines will make and follow when they exist: the hosts
/// of every proxied VLAN, and an adapter for each such VLAN that is no secondary one.
class ProxyStandIn {
 public:
  explicit ProxyStandIn(SwitchEntities const& entities);

 private:
  using AdapterVlanConfig = Bridging::IgmpSnooping::Proxy::AdapterVlanConfig;
  using AdapterSm = Bridging::IgmpSnooping::Proxy::AdapterSm;

  bool isProxied(Bridging::VlanId vlan) const;
  Bridging::VlanId primaryOf(Bridging::VlanId vlan) const;
  Kel::Ptr<AdapterVlanConfig> const& adapterConfigIs(Bridging::VlanId vlan);
  void addHosts(Topology::Library::Vlan::TopoVlan const& vlan, AdapterVlanConfig& adapterConfig);

  SwitchEntities const& entities_;
  std::map<Bridging::VlanId, Kel::Ptr<AdapterVlanConfig>> adapterConfig_;
  std::vector<Kel::Ptr<AdapterSm>> adapterSm_;
};

}  // namespace Agent
