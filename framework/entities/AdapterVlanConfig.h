#pragma once

#include <cstdint>

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
  /// Another one, or another number of keys, once keys have come or gone.
  std::uint32_t hostKeyVersion() const { return hostKeyVersion_; }
  void hostKeyIs(PortKey const& key, bool value) {
    ++hostKeyVersion_;
    hostKey_.is(*this, key, value);
  }
  void hostKeyDel(PortKey const& key) {
    ++hostKeyVersion_;
    hostKey_.del(*this, key);
  }
  void hostKeyDelAll() {
    ++hostKeyVersion_;
    hostKey_.delAll(*this);
  }
  void hostKeyNotify(PortKey const& key) { hostKey_.notify(*this, key); }
  void hostKeyNotify() { notify<&NotifieeConst::onHostKeykelImmediate>(); }

 private:
  VlanId vlanId_;
  HostKeys hostKey_;
  std::uint32_t hostKeyVersion_ = 0;
};

}  // namespace Bridging::IgmpSnooping::Proxy
