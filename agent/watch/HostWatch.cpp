#include "agent/watch/HostWatch.h"

#include <utility>

#include "framework/kel/Reactors.h"
#include "framework/types/PortKey.h"

namespace Agent {

using Bridging::IgmpSnooping::RouterPorts;
using Bridging::IgmpSnooping::Proxy::PortKey;

class HostWatch::KelHosts final : public Kel::ActivityReactor<Igmp::IgmpHostDir::NotifieeConst> {
 public:
  explicit KelHosts(HostWatch* owner) : ActivityReactor(owner->activity_), owner_(owner) {
    watch(owner->hosts_);
  }

  void onIgmpHost(Kel::Name const& name) override {
    if (notificationActive()) owner_->handleHost(name);
  }

 private:
  HostWatch* owner_;
};

class HostWatch::KelRouterPorts final : public Kel::ActivityReactor<RouterPorts::NotifieeConst> {
 public:
  KelRouterPorts(Kel::Ptr<RouterPorts const> routerPorts, HostWatch* owner)
      : ActivityReactor(owner->activity_), owner_(owner) {
    watch(std::move(routerPorts));
  }

  void onRouterPort(Wirex::IntfId intf) override {
    if (notificationActive()) owner_->handleHost(PortKey(notifier()->vlanId(), intf).hostName());
  }

 private:
  HostWatch* owner_;
};

HostWatch::HostWatch(Kel::Ptr<Igmp::IgmpHostDir> hosts, Configure configure)
    : configure_(std::move(configure)),
      hosts_(std::move(hosts)),
      kelHosts_(Kel::make<KelHosts>(this)) {}

HostWatch::~HostWatch() {
  HostWatch::kelDoZombieReactors(true);
}

void HostWatch::routerPortsIs(Kel::Ptr<RouterPorts> const& routerPorts) {
  routerPorts_.watch(routerPorts->vlanId(), routerPorts,
                     [&] { return Kel::make<KelRouterPorts>(routerPorts, this); });
}

void HostWatch::routerPortsDel(Bridging::VlanId vlan) {
  routerPorts_.del(vlan);
}

void HostWatch::handleHost(Kel::Name const& name) {
  if (auto const host = hosts_->igmpHost(name)) configure_(*host);
}

void HostWatch::hasNotificationActiveIs(bool active) {
  kelHosts_->hasNotificationActiveIs(active);
  routerPorts_.hasNotificationActiveIs(active);
}

void HostWatch::kelDoZombieReactors(bool zombie) {
  kelHosts_->kelDoZombieReactors(zombie);
  routerPorts_.kelDoZombieReactors(zombie);
}

}  // namespace Agent
