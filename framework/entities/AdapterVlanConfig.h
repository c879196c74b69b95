#pragma once

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/PortKey.h"

namespace Bridging::IgmpSnooping::Proxy {

/// Which hosts the adapter of a VLAN fills: the VLAN's own and those of its secondary VLANs.
class KEL_EXPORT AdapterVlanConfig : public Kel::Entity {
 public:
  using Ptr = Kel::Ptr<AdapterVlanConfig>;

  class NotifieeConst : public Kel::NotifieeOf<AdapterVlanConfig const> {
   public:
    virtual void onHostKey(PortKey const& /*key*/) {}
    virtual void onHostKeykelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using HostKeys = Kel::Values<PortKey, bool, &NotifieeConst::onHostKey>;

  explicit AdapterVlanConfig(VlanId vlanId) : vlanId_(vlanId) {}

  VlanId vlanId() const { return vlanId_; }

  HostKeys const& hostKey() const { return hostKey_; }
  bool hostKey(PortKey const& key) const { return hostKey_.get(key); }
  void hostKeyIs(PortKey const& key, bool value) { hostKey_.is(*this, key, value); }
  void hostKeyDel(PortKey const& key) { hostKey_.del(*this, key); }
  void hostKeyDelAll() { hostKey_.delAll(*this); }
  void hostKeyNotify(PortKey const& key) { hostKey_.notify(*this, key); }
  void hostKeyNotify() { notify<&NotifieeConst::onHostKeykelImmediate>(); }

 private:
  VlanId vlanId_;
  HostKeys hostKey_;
};

}  // namespace Bridging::IgmpSnooping::Proxy
