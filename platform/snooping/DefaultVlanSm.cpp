#include "platform/snooping/DefaultVlanSm.h"

#include <optional>
#include <utility>

#include "framework/kel/Exception.h"

namespace Bridging::IgmpSnooping {

using Wirex::IntfId;

class DefaultVlanSm::KelBridgingConfig final
    : public Kel::ReactorFor<DefaultVlanSm, Bridging::Config::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onVlanConfig(VlanId vlan) override {
    if (notificationActive()) owner().handleVlan(vlan);
  }
  void onVlanConfigkelImmediate() override {
    if (notificationActive()) owner().handleVlan();
  }
};

class DefaultVlanSm::KelIntfConfig final
    : public Kel::ReactorFor<KelVlanConfig, IntfConfig::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onTagged() override;
};

class DefaultVlanSm::KelVlanConfig final
    : public Kel::ReactorFor<DefaultVlanSm, VlanConfig::NotifieeConst> {
 public:
  KelVlanConfig(Kel::Ptr<VlanConfig const> config, DefaultVlanSm* owner)
      : ReactorFor(std::move(config), owner) {
    handleIntf();
  }

  void notifierIs(Kel::Ptr<VlanConfig const> config) override {
    NotifieeConst::notifierIs(std::move(config));
    handleIntf();
  }
  void hasNotificationActiveIs(bool active) override {
    NotifieeConst::hasNotificationActiveIs(active);
    intfConfig_.hasNotificationActiveIs(active);
  }
  void kelDoZombieReactors(bool zombie) override {
    NotifieeConst::kelDoZombieReactors(zombie);
    intfConfig_.kelDoZombieReactors(zombie);
  }

  void onIntfConfig(IntfId intf) override {
    if (notificationActive()) handleIntf(intf);
  }
  void onIntfConfigkelImmediate() override {
    if (notificationActive()) handleIntf();
  }

  void handleIntf() {
    intfConfig_.reconcile(notifier()->intfConfig(), [&](IntfId const& intf) { handleIntf(intf); });
  }

  void handleIntf(IntfId intf) {
    auto const config = notifier()->intfConfig(intf);
    if (config)
      intfConfig_.watch(intf, config, [&] { return Kel::make<KelIntfConfig>(config, this); });
    else
      intfConfig_.del(intf);
    owner().untaggedIs(intf, notifier()->vlanId(), config && !config->tagged());
  }

  /// The VLAN is no longer there, and no interface is in it.
  void handleDelete() {
    for (IntfId const& intf : intfConfig_.keys())
      owner().untaggedIs(intf, notifier()->vlanId(), false);
  }

 private:
  Kel::Reactors<IntfId, KelIntfConfig> intfConfig_;
};

void DefaultVlanSm::KelIntfConfig::onTagged() {
  if (notificationActive()) owner().handleIntf(notifier()->intfId());
}

DefaultVlanSm::DefaultVlanSm(Kel::Ptr<Bridging::Config const> bridgingConfig,
                             Wirex::PortVlanPamManager* manager)
    : manager_(manager) {
  Kel::nonNull(bridgingConfig, "Bridging::IgmpSnooping::DefaultVlanSm", "bridgingConfig");
  bridgingConfig_ = Kel::make<KelBridgingConfig>(std::move(bridgingConfig), this);
  handleVlan();
}

DefaultVlanSm::~DefaultVlanSm() {
  DefaultVlanSm::kelDoZombieReactors(true);
}

Kel::Ptr<Bridging::Config const> const& DefaultVlanSm::bridgingConfig() const {
  return bridgingConfig_->notifier();
}

// A reactor that is not active hears of nothing, so one that is active again looks at all.
void DefaultVlanSm::hasNotificationActiveIs(bool active) {
  bool const awakes = active && !bridgingConfig_->hasNotificationActive();
  bridgingConfig_->hasNotificationActiveIs(active);
  vlanConfig_.hasNotificationActiveIs(active);
  if (!awakes || bridgingConfig_->isZombie()) return;
  Kel::Ptr<Wirex::PortVlanPamManager> const manager(manager_);
  Kel::Ptr<DefaultVlanSm> const self(this);
  handleVlan();
  for (VlanId const vlan : vlanConfig_.keys())
    if (auto const watcher = vlanConfig_.get(vlan)) watcher->handleIntf();
}

void DefaultVlanSm::kelDoZombieReactors(bool zombie) {
  bridgingConfig_->kelDoZombieReactors(zombie);
  vlanConfig_.kelDoZombieReactors(zombie);
}

void DefaultVlanSm::handleVlan() {
  vlanConfig_.reconcile(bridgingConfig()->vlanConfig(), [&](VlanId vlan) { handleVlan(vlan); });
}

void DefaultVlanSm::handleVlan(VlanId vlan) {
  if (auto const config = bridgingConfig()->vlanConfig(vlan)) {
    vlanConfig_.watch(vlan, config, [&] { return Kel::make<KelVlanConfig>(config, this); });
  } else if (auto const gone = vlanConfig_.get(vlan)) {
    vlanConfig_.del(vlan);
    gone->handleDelete();
  }
}

void DefaultVlanSm::untaggedIs(IntfId const& intf, VlanId vlan, bool untagged) {
  auto& vlans = untaggedVlans_[intf];
  if (untagged)
    vlans.insert(vlan);
  else
    vlans.erase(vlan);
  if (!vlans.empty()) {
    manager_->defaultVlanIs(intf, *vlans.begin());
  } else {
    untaggedVlans_.erase(intf);
    manager_->defaultVlanIs(intf, std::nullopt);
  }
}

}  // namespace Bridging::IgmpSnooping
