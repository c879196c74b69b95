#include "agent/HostSettingsSm.h"

#include <utility>

#include "framework/kel/Reactors.h"
#include "framework/types/PortKey.h"

namespace Agent {

using Bridging::IgmpSnooping::RouterPorts;
using Bridging::IgmpSnooping::Proxy::PortKey;

class HostSettingsSm::KelHosts final
    : public Kel::ActivityReactor<Igmp::IgmpHostDir::NotifieeConst> {
 public:
  KelHosts(Kel::Ptr<Igmp::IgmpHostDir> hosts, HostSettingsSm* owner)
      : ActivityReactor(owner->activity_), hosts_(std::move(hosts)), owner_(owner) {
    watch(hosts_);
  }

  Kel::Ptr<Igmp::IgmpHostDir> const& hosts() const { return hosts_; }

  void onIgmpHost(Kel::Name const& name) override {
    if (notificationActive()) owner_->handleHost(name);
  }

 private:
  Kel::Ptr<Igmp::IgmpHostDir> hosts_;
  HostSettingsSm* owner_;
};

class HostSettingsSm::KelRouterPorts final
    : public Kel::ActivityReactor<RouterPorts::NotifieeConst> {
 public:
  KelRouterPorts(Kel::Ptr<RouterPorts const> routerPorts, HostSettingsSm* owner)
      : ActivityReactor(owner->activity_), owner_(owner) {
    watch(std::move(routerPorts));
  }

  void onRouterPort(Wirex::IntfId intf) override {
    if (notificationActive()) owner_->handleHost(PortKey(notifier()->vlanId(), intf).hostName());
  }

 private:
  HostSettingsSm* owner_;
};

HostSettingsSm::HostSettingsSm(Kel::Ptr<Igmp::IgmpHostDir> const& hosts, Configure configure)
    : configure_(std::move(configure)), hosts_(Kel::make<KelHosts>(hosts, this)) {}

HostSettingsSm::~HostSettingsSm() {
  HostSettingsSm::kelDoZombieReactors(true);
}

void HostSettingsSm::routerPortsIs(Kel::Ptr<RouterPorts> const& routerPorts) {
  routerPorts_.watch(routerPorts->vlanId(), routerPorts,
                     [&] { return Kel::make<KelRouterPorts>(routerPorts, this); });
}

void HostSettingsSm::routerPortsDel(Bridging::VlanId vlan) {
  routerPorts_.del(vlan);
}

void HostSettingsSm::handleHost(Kel::Name const& name) {
  if (auto const host = hosts_->hosts()->igmpHost(name)) configure_(*host);
}

void HostSettingsSm::hasNotificationActiveIs(bool active) {
  hosts_->hasNotificationActiveIs(active);
  routerPorts_.hasNotificationActiveIs(active);
}

void HostSettingsSm::kelDoZombieReactors(bool zombie) {
  hosts_->kelDoZombieReactors(zombie);
  routerPorts_.kelDoZombieReactors(zombie);
}

}  // namespace Agent
