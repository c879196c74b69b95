#pragma once

#include <functional>

#include "framework/kel/Activity.h"
#include "framework/kel/Reactors.h"
#include "platform/igmp/IgmpHost.h"
#include "platform/snooping/RouterPorts.h"

namespace Agent {

/// Has hosts configured: every new one, and each whose port becomes a router port of its VLAN or
/// ceases to be one. It does so when activities run, because by then the proxy has finished with
/// the host. A host that is not configured yet has no MAC address and sends nothing.
class HostWatch : public Kel::PtrInterface {
 public:
  /// Configures a host. It may be called although nothing has changed.
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
