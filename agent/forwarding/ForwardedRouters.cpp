#include "agent/forwarding/ForwardedRouters.h"

#include <algorithm>

namespace Agent {

using Bridging::VlanId;
using Bridging::IgmpSnooping::RouterPorts;
using Wirex::IntfId;

class ForwardedRouters::KelRouterPorts final
    : public Kel::ReactorFor<ForwardedRouters, RouterPorts::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onRouterPort(IntfId /*intf*/) override {
    if (notificationActive()) owner().news_ = true;
  }
};

ForwardedRouters::ForwardedRouters(Switch& snoopingSwitch) : switch_(snoopingSwitch) {}

ForwardedRouters::~ForwardedRouters() {
  vlans_.kelDoZombieReactors(true);
}

void ForwardedRouters::follow() {
  std::set<VlanId> followed;
  for (VlanConfig const& vlan : switch_.configuration().vlans) {
    Kel::Ptr<RouterPorts const> const ports(switch_.routerPorts(vlan.vlanId));
    if (!ports) continue;
    followed.insert(vlan.vlanId);
    vlans_.watch(vlan.vlanId, ports, [&] { return Kel::make<KelRouterPorts>(ports, this); });
  }
  for (VlanId const vlan : vlans_.keys())
    if (!followed.contains(vlan)) vlans_.del(vlan);
  news_ = true;
}

ForwardedRouters::Ports ForwardedRouters::ports(std::vector<ForwardedVlan> const& vlans) const {
  Ports routers;
  for (ForwardedVlan const& vlan : vlans)
    if (RouterPorts const* const ports = switch_.routerPorts(vlan.vlanId))
      for (auto const& [intf, port] : ports->routerPort()) routers[vlan.vlanId].insert(intf);
  return routers;
}

bool ForwardedRouters::leadsToRouter(ForwardedVlan const& vlan, IntfId const& intf) const {
  return std::any_of(vlan.routersOf.begin(), vlan.routersOf.end(), [&](VlanId of) {
    RouterPorts const* const ports = switch_.routerPorts(of);
    return ports && ports->routerPort().contains(intf);
  });
}

bool ForwardedRouters::leadsToRouterInAll(std::vector<ForwardedVlan> const& vlans,
                                          IntfId const& intf) const {
  bool receives = false;
  for (ForwardedVlan const& vlan : vlans) {
    if (!vlan.receivers.contains(intf)) continue;
    receives = true;
    if (!leadsToRouter(vlan, intf)) return false;
  }
  return receives;
}

}  // namespace Agent
