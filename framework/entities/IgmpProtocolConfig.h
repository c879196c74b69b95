#pragma once

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/VlanId.h"

namespace Bridging::IgmpSnooping {

/// The snooping configuration of one VLAN.
class KEL_EXPORT IgmpContextConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpContextConfig const> {
   public:
    virtual void onProxyEnabled() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  explicit IgmpContextConfig(VlanId vlanId) : vlanId_(vlanId) {}

  VlanId vlanId() const { return vlanId_; }

  bool proxyEnabled() const { return proxyEnabled_.get(); }
  void proxyEnabledIs(bool enabled) { proxyEnabled_.is(*this, enabled); }

 private:
  VlanId vlanId_;
  Kel::Value<bool, &NotifieeConst::onProxyEnabled> proxyEnabled_;
};

/// The snooping configuration.
class KEL_EXPORT IgmpProtocolConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpProtocolConfig const> {
   public:
    virtual void onContextConfig(VlanId /*vlan*/) {}
    virtual void onContextConfigkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using ContextConfigs = Kel::Members<VlanId, IgmpContextConfig, &NotifieeConst::onContextConfig>;

  ContextConfigs const& contextConfig() const { return contextConfig_; }
  Kel::Ptr<IgmpContextConfig const> contextConfig(VlanId vlan) const {
    return contextConfig_.get(vlan);
  }
  Kel::Ptr<IgmpContextConfig> contextConfig(VlanId vlan) { return contextConfig_.get(vlan); }
  Kel::Ptr<IgmpContextConfig> newContextConfig(VlanId vlan) const {
    return Kel::make<IgmpContextConfig>(vlan);
  }
  Kel::Ptr<IgmpContextConfig> contextConfigIs(VlanId vlan) {
    return contextConfig_.is(*this, vlan);
  }
  void contextConfigDel(VlanId vlan) { contextConfig_.del(*this, vlan); }
  void contextConfigDelAll() { contextConfig_.delAll(*this); }
  void contextConfigNotify(VlanId vlan) { contextConfig_.notify(*this, vlan); }
  void contextConfigNotify() { notify<&NotifieeConst::onContextConfigkelImmediate>(); }

 private:
  ContextConfigs contextConfig_;
};

}  // namespace Bridging::IgmpSnooping
