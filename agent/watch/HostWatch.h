#pragma once

#include <functional>

#include "framework/kel/Activity.h"
#include "framework/kel/Reactors.h"
#include "platform/igmp/IgmpHost.h"
#include "platform/snooping/RouterPorts.h"

namespace Agent {

/// Has every host configured by whoever knows the ports: a host that is new, and one whose port
/// becomes a router port of its VLAN or ceases to be one. It does so when activities run, by which
/// time the proxy is done with the host. Until then a host has no MAC address and sends nothing.
class HostWatch : public Kel::PtrInterface {
 public:
  /// May come more often than something changes.
  using Configure = std::function<void(Igmp::IgmpHost&)>;

  HostWatch(Kel::Ptr<Igmp::IgmpHostDir> hosts, Configure configure);
  ~HostWatch() override;

  void routerPortsIs(Kel::Ptr<Bridging::IgmpSnooping::RouterPorts> const& routerPorts);
  void routerPortsDel(Bridging::VlanId vlan);

  void handleHost(Kel::Name const& name);

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelHosts;
  class KelRouterPorts;

  Kel::Ptr<Kel::ActivityConfig> activity_ = Kel::make<Kel::ActivityConfig>();
  Configure configure_;
  Kel::Ptr<Igmp::IgmpHostDir> hosts_;
  Kel::Ptr<KelHosts> kelHosts_;
  Kel::Reactors<Bridging::VlanId, KelRouterPorts> routerPorts_;
};

}  // namespace Agent
