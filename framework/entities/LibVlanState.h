#pragma once

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/AllowedTrafficDirection.h"
#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"

/// The VLAN topology: which ports are members of which VLAN, and how they forward.
namespace Topology::Library::Vlan {

class KEL_EXPORT Port : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Port const> {
   public:
    virtual void onBlocked() {}
    virtual void onAllowedTrafficDirection() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Direction = Bridging::AllowedTrafficDirection;

  explicit Port(Wirex::IntfId intfId) : intfId_(std::move(intfId)) {}

  Wirex::IntfId const& intfId() const { return intfId_; }

  bool blocked() const { return blocked_.get(); }
  void blockedIs(bool blocked) { blocked_.is(*this, blocked); }

  Direction allowedTrafficDirection() const { return allowedTrafficDirection_.get(); }
  void allowedTrafficDirectionIs(Direction direction) {
    allowedTrafficDirection_.is(*this, direction);
  }

 private:
  Wirex::IntfId intfId_;
  Kel::Value<bool, &NotifieeConst::onBlocked> blocked_;
  Kel::Value<Direction, &NotifieeConst::onAllowedTrafficDirection> allowedTrafficDirection_;
};

class KEL_EXPORT TopoVlan : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<TopoVlan const> {
   public:
    virtual void onTopoPort(Wirex::IntfId /*intf*/) {}
    virtual void onTopoPortkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Ports = Kel::Members<Wirex::IntfId, Port, &NotifieeConst::onTopoPort>;

  explicit TopoVlan(Bridging::VlanId vlanId) : vlanId_(vlanId) {}

  Bridging::VlanId vlanId() const { return vlanId_; }

  Ports const& port() const { return port_; }
  Kel::Ptr<Port const> port(Wirex::IntfId const& intf) const { return port_.get(intf); }
  Kel::Ptr<Port> port(Wirex::IntfId const& intf) { return port_.get(intf); }
  Kel::Ptr<Port> newPort(Wirex::IntfId const& intf) const { return Kel::make<Port>(intf); }
  Kel::Ptr<Port> portIs(Wirex::IntfId const& intf) { return port_.is(*this, intf); }
  /// Puts a port in the place of what its interface has.
  void portIs(Kel::Ptr<Port> const& port) {
    auto const& added = Kel::nonNull(port, "Topology::Library::Vlan::TopoVlan", "port");
    port_.put(*this, added.intfId(), port);
  }
  void portDel(Wirex::IntfId const& intf) { port_.del(*this, intf); }
  void portDelAll() { port_.delAll(*this); }
  void portNotify(Wirex::IntfId const& intf) { port_.notify(*this, intf); }
  void portNotify() { notify<&NotifieeConst::onTopoPortkelImmediate>(); }

 private:
  Bridging::VlanId vlanId_;
  Ports port_;
};

class KEL_EXPORT LibVlanState : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<LibVlanState const> {
   public:
    virtual void onTopoVlan(Bridging::VlanId /*vlan*/) {}
    virtual void onTopoVlankelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using TopoVlans = Kel::Members<Bridging::VlanId, TopoVlan, &NotifieeConst::onTopoVlan>;

  TopoVlans const& topoVlan() const { return topoVlan_; }
  Kel::Ptr<TopoVlan const> topoVlan(Bridging::VlanId vlan) const { return topoVlan_.get(vlan); }
  Kel::Ptr<TopoVlan> topoVlan(Bridging::VlanId vlan) { return topoVlan_.get(vlan); }
  Kel::Ptr<TopoVlan> newTopoVlan(Bridging::VlanId vlan) const { return Kel::make<TopoVlan>(vlan); }
  Kel::Ptr<TopoVlan> topoVlanIs(Bridging::VlanId vlan) { return topoVlan_.is(*this, vlan); }
  void topoVlanDel(Bridging::VlanId vlan) { topoVlan_.del(*this, vlan); }
  void topoVlanDelAll() { topoVlan_.delAll(*this); }
  void topoVlanNotify(Bridging::VlanId vlan) { topoVlan_.notify(*this, vlan); }
  void topoVlanNotify() { notify<&NotifieeConst::onTopoVlankelImmediate>(); }

 private:
  TopoVlans topoVlan_;
};

}  // namespace Topology::Library::Vlan
