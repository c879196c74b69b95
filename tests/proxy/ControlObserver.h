#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "proxy/ProxySm.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {

/// Hears of what the proxy's control writes, each change as a text: "+host Vlan10swp1" when it has
/// come, "-host Vlan10swp1" when it has gone, "Vlan10swp1 enabled" for an attribute of a host.
/// Hosts and ports that come are watched from then on.
class ControlObserver {
 public:
  using Heard = std::function<void(std::string const&)>;

  explicit ControlObserver(Heard heard) : heard_(std::move(heard)) {}

  void watch(Kel::Ptr<Igmp::IgmpHostDir> const& hosts) {
    for (auto const& [name, host] : hosts->igmpHost()) add<OfHost>(host);
    add<OfHosts>(hosts);
  }
  void watch(Kel::Ptr<PortVlanMapping> const& mapping) {
    for (auto const& [intf, info] : mapping->portInfo()) add<OfPort>(info);
    add<OfMapping>(mapping);
  }
  void watch(Kel::Ptr<AdapterVlanConfig> const& adapter) { add<OfAdapter>(adapter); }
  void watch(Kel::Ptr<ProxyPamManager> const& manager) {
    add<OfPams>(manager->pamCol());
    add<OfManager>(manager);
  }

  /// Hears nothing more.
  void leaves() { reactors_.clear(); }

 private:
  template <class Watched>
  struct Of : Watched::NotifieeConst {
    Of(Kel::Ptr<Watched const> watched, ControlObserver& owner) : observer(owner) {
      Watched::NotifieeConst::watch(std::move(watched));
    }
    void changed(bool isThere, std::string const& text) {
      observer.heard_((isThere ? '+' : '-') + text);
    }
    ControlObserver& observer;
  };

  struct OfHost final : Of<Igmp::IgmpHost> {
    using Of::Of;
    void onIntfId() override { attribute("intfId"); }
    void onVlanId() override { attribute("vlanId"); }
    void onUseMux() override { attribute("useMux"); }
    void onTagged() override { attribute("tagged"); }
    void onExternalPam() override { attribute("externalPam"); }
    void onPam() override { attribute("pam"); }
    void onIgmpVersion() override { attribute("igmpVersion"); }
    void onDeviceName() override { attribute("deviceName"); }
    void onEnabled() override { attribute("enabled"); }
    void onConfigVersion() override { attribute("configVersion"); }
    void onIntfConfigVersion() override { attribute("intfConfigVersion"); }
    void onBlocked() override { attribute("blocked"); }
    void onDirection() override { attribute("direction"); }
    void attribute(char const* name) {
      observer.heard_(std::string(notifier()->name().stringValue().view()) + ' ' + name);
    }
  };
  struct OfHosts final : Of<Igmp::IgmpHostDir> {
    using Of::Of;
    void onIgmpHost(Kel::Name const& name) override {
      auto const host = notifier()->igmpHost(name);
      if (host) observer.add<OfHost>(host);
      changed(static_cast<bool>(host), "host " + std::string(name.stringValue().view()));
    }
  };
  struct OfPort final : Of<PortVlanMapping::PortVlanInfo> {
    using Of::Of;
    void onVlan(VlanId vlan) override {
      changed(notifier()->vlan(vlan), "vlan " + std::to_string(vlan.value()));
    }
  };
  struct OfMapping final : Of<PortVlanMapping> {
    using Of::Of;
    void onPortInfo(Wirex::IntfId intf) override {
      auto const info = notifier()->portInfo(intf);
      if (info) observer.add<OfPort>(info);
      changed(static_cast<bool>(info), "port " + std::string(intf.stringValue().view()));
    }
  };
  struct OfAdapter final : Of<AdapterVlanConfig> {
    using Of::Of;
    void onHostKey(PortKey const& key) override {
      changed(notifier()->hostKey(key), "key " + std::string(key.stringvalue().view()));
    }
  };
  struct OfPams final : Of<ProxyPamManager::PamCol> {
    using Of::Of;
    void onPamCol(PortKey key) override {
      changed(notifier()->entries().contains(key), "pam " + std::string(key.stringvalue().view()));
    }
  };
  struct OfManager final : Of<Wirex::PortVlanPamManager> {
    using Of::Of;
    void onMultiplexer(Wirex::IntfId intf) override {
      changed(notifier()->multiplexer().contains(intf),
              "multiplexer " + std::string(intf.stringValue().view()));
    }
  };

  template <class Reactor, class Watched>
  void add(Kel::Ptr<Watched> const& watched) {
    reactors_.push_back(Kel::make<Reactor>(watched, *this));
  }

  Heard heard_;
  std::vector<Kel::Ptr<Kel::Notifiee>> reactors_;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
