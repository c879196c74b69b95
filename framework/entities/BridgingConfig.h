#pragma once

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"

/// The bridging configuration: which interfaces are in which VLAN, tagged or not.
namespace Bridging {

class KEL_EXPORT IntfConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IntfConfig const> {
   public:
    virtual void onTagged() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  explicit IntfConfig(Wirex::IntfId intfId) : intfId_(std::move(intfId)) {}

  Wirex::IntfId const& intfId() const { return intfId_; }

  bool tagged() const { return tagged_.get(); }
  void taggedIs(bool tagged) { tagged_.is(*this, tagged); }

 private:
  Wirex::IntfId intfId_;
  Kel::Value<bool, &NotifieeConst::onTagged> tagged_;
};

class KEL_EXPORT VlanConfig : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<VlanConfig const> {
   public:
    virtual void onIntfConfig(Wirex::IntfId /*intf*/) {}
    virtual void onIntfConfigkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using IntfConfigs = Kel::Members<Wirex::IntfId, IntfConfig, &NotifieeConst::onIntfConfig>;

  explicit VlanConfig(VlanId vlanId) : vlanId_(vlanId) {}

  VlanId vlanId() const { return vlanId_; }

  IntfConfigs const& intfConfig() const { return intfConfig_; }
  Kel::Ptr<IntfConfig const> intfConfig(Wirex::IntfId const& intf) const {
    return intfConfig_.get(intf);
  }
  Kel::Ptr<IntfConfig> intfConfig(Wirex::IntfId const& intf) { return intfConfig_.get(intf); }
  Kel::Ptr<IntfConfig> newIntfConfig(Wirex::IntfId const& intf) const {
    return Kel::make<IntfConfig>(intf);
  }
  Kel::Ptr<IntfConfig> intfConfigIs(Wirex::IntfId const& intf) {
    return intfConfig_.is(*this, intf);
  }
  void intfConfigDel(Wirex::IntfId const& intf) { intfConfig_.del(*this, intf); }
  void intfConfigDelAll() { intfConfig_.delAll(*this); }
  void intfConfigNotify(Wirex::IntfId const& intf) { intfConfig_.notify(*this, intf); }
  void intfConfigNotify() { notify<&NotifieeConst::onIntfConfigkelImmediate>(); }

 private:
  VlanId vlanId_;
  IntfConfigs intfConfig_;
};

class KEL_EXPORT Config : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Config const> {
   public:
    virtual void onVlanConfig(VlanId /*vlan*/) {}
    virtual void onVlanConfigkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using VlanConfigs = Kel::Members<VlanId, VlanConfig, &NotifieeConst::onVlanConfig>;

  VlanConfigs const& vlanConfig() const { return vlanConfig_; }
  Kel::Ptr<VlanConfig const> vlanConfig(VlanId vlan) const { return vlanConfig_.get(vlan); }
  Kel::Ptr<VlanConfig> vlanConfig(VlanId vlan) { return vlanConfig_.get(vlan); }
  Kel::Ptr<VlanConfig> newVlanConfig(VlanId vlan) const { return Kel::make<VlanConfig>(vlan); }
  Kel::Ptr<VlanConfig> vlanConfigIs(VlanId vlan) { return vlanConfig_.is(*this, vlan); }
  void vlanConfigDel(VlanId vlan) { vlanConfig_.del(*this, vlan); }
  void vlanConfigDelAll() { vlanConfig_.delAll(*this); }
  void vlanConfigNotify(VlanId vlan) { vlanConfig_.notify(*this, vlan); }
  void vlanConfigNotify() { notify<&NotifieeConst::onVlanConfigkelImmediate>(); }

 private:
  VlanConfigs vlanConfig_;
};

}  // namespace Bridging
