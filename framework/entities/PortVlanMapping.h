#pragma once

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"

namespace Bridging::IgmpSnooping::Proxy {

/// In which VLANs a port carries a host.
class KEL_EXPORT PortVlanMapping : public Kel::Entity {
 public:
  class KEL_EXPORT PortVlanInfo : public Kel::Entity {
   public:
    class NotifieeConst : public Kel::NotifieeOf<PortVlanInfo const> {
     public:
      virtual void onVlan(VlanId /*vlan*/) {}
      virtual void onVlankelImmediate() {}

     protected:
      using NotifieeOf::NotifieeOf;
    };

    using Vlans = Kel::Values<VlanId, bool, &NotifieeConst::onVlan>;

    explicit PortVlanInfo(Wirex::IntfId intfId) : intfId_(std::move(intfId)) {}

    Wirex::IntfId const& intfId() const { return intfId_; }

    Vlans const& vlan() const { return vlan_; }
    bool vlan(VlanId vlan) const { return vlan_.get(vlan); }
    void vlanIs(VlanId vlan, bool value) { vlan_.is(*this, vlan, value); }
    void vlanDel(VlanId vlan) { vlan_.del(*this, vlan); }
    void vlanDelAll() { vlan_.delAll(*this); }
    void vlanNotify(VlanId vlan) { vlan_.notify(*this, vlan); }
    void vlanNotify() { notify<&NotifieeConst::onVlankelImmediate>(); }

   private:
    Wirex::IntfId intfId_;
    Vlans vlan_;
  };

  class NotifieeConst : public Kel::NotifieeOf<PortVlanMapping const> {
   public:
    virtual void onPortInfo(Wirex::IntfId /*intf*/) {}
    virtual void onPortInfokelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using PortInfos = Kel::Members<Wirex::IntfId, PortVlanInfo, &NotifieeConst::onPortInfo>;

  PortInfos const& portInfo() const { return portInfo_; }
  Kel::Ptr<PortVlanInfo const> portInfo(Wirex::IntfId const& intf) const {
    return portInfo_.get(intf);
  }
  Kel::Ptr<PortVlanInfo> portInfo(Wirex::IntfId const& intf) { return portInfo_.get(intf); }
  Kel::Ptr<PortVlanInfo> newPortInfo(Wirex::IntfId const& intf) const {
    return Kel::make<PortVlanInfo>(intf);
  }
  Kel::Ptr<PortVlanInfo> portInfoIs(Wirex::IntfId const& intf) { return portInfo_.is(*this, intf); }
  void portInfoDel(Wirex::IntfId const& intf) { portInfo_.del(*this, intf); }
  void portInfoDelAll() { portInfo_.delAll(*this); }
  void portInfoNotify(Wirex::IntfId const& intf) { portInfo_.notify(*this, intf); }
  void portInfoNotify() { notify<&NotifieeConst::onPortInfokelImmediate>(); }

 private:
  PortInfos portInfo_;
};

}  // namespace Bridging::IgmpSnooping::Proxy
