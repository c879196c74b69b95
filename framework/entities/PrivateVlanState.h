#pragma once

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/VlanId.h"
#include "framework/types/VlanTypeAndPrimaryVlan.h"

namespace PrivateVlanLib {

/// Which VLANs are secondary private VLANs (RFC 5517) and of which primary.
class KEL_EXPORT LibState : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<LibState const> {
   public:
    virtual void onSecondaryVlan(Bridging::VlanId /*vlan*/) {}
    virtual void onSecondaryVlankelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Role = Bridging::VlanTypeAndPrimaryVlan;
  using SecondaryVlans = Kel::Values<Bridging::VlanId, Role, &NotifieeConst::onSecondaryVlan>;

  SecondaryVlans const& secondaryVlan() const { return secondaryVlan_; }
  /// A VLAN without an entry is normal or primary.
  Role secondaryVlan(Bridging::VlanId vlan) const { return secondaryVlan_.get(vlan); }
  void secondaryVlanIs(Bridging::VlanId vlan, Role role) { secondaryVlan_.is(*this, vlan, role); }
  void secondaryVlanDel(Bridging::VlanId vlan) { secondaryVlan_.del(*this, vlan); }
  void secondaryVlanDelAll() { secondaryVlan_.delAll(*this); }
  void secondaryVlanNotify(Bridging::VlanId vlan) { secondaryVlan_.notify(*this, vlan); }
  void secondaryVlanNotify() { notify<&NotifieeConst::onSecondaryVlankelImmediate>(); }

 private:
  SecondaryVlans secondaryVlan_;
};

}  // namespace PrivateVlanLib
