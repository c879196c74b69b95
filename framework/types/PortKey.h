#pragma once

#include <compare>
#include <iosfwd>

#include "framework/kel/Export.h"
#include "framework/kel/Ptr.h"
#include "framework/kel/Text.h"
#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"

namespace Bridging::IgmpSnooping::Proxy {

/// One port in one VLAN. Its text, "Vlan" + VLAN + interface name, is the name of the port's IGMP
/// host; the key carries it and its hash, so that looking a host up builds no text. Copies share
/// all of that behind one pointer; a key that was moved from can only be assigned or destroyed.
class KEL_EXPORT PortKey {
 public:
  /// VLAN 1 and the interface without a name.
  PortKey();
  PortKey(VlanId vlanId, Wirex::IntfId intfId);

  VlanId vlanId() const noexcept { return identity_->vlanId; }
  Wirex::IntfId const& intfId() const noexcept { return identity_->intfId; }
  Kel::String8 const& stringvalue() const noexcept { return hostName().stringValue(); }
  /// The text as the name of the host.
  Kel::Name const& hostName() const noexcept { return identity_->hostName; }

  /// Takes the key's value from its text. The VLAN is the longest number after "Vlan" that a VLAN
  /// can have, so the text of an interface whose name begins with a digit cannot be told from
  /// another key's.
  /// Throws Kel::RangeException, and changes nothing, if the text is no key's.
  void handleInit(Kel::String8 const& text);

  /// The hash of the text.
  std::uint32_t hash() const noexcept { return stringvalue().hash(); }

  friend bool operator==(PortKey const& a, PortKey const& b) noexcept {
    return a.identity_ == b.identity_ || (a.vlanId() == b.vlanId() && a.intfId() == b.intfId());
  }
  friend std::strong_ordering operator<=>(PortKey const& a, PortKey const& b) noexcept {
    if (auto const order = a.vlanId() <=> b.vlanId(); order != 0) return order;
    return a.intfId() <=> b.intfId();
  }

 private:
  struct Identity final : Kel::PtrInterface {
    Identity(VlanId vlan, Wirex::IntfId intf);

    VlanId const vlanId;
    Wirex::IntfId const intfId;
    Kel::Name const hostName;
  };

  Kel::Ptr<Identity const> identity_;
};

KEL_EXPORT std::ostream& operator<<(std::ostream& out, PortKey const& key);

}  // namespace Bridging::IgmpSnooping::Proxy
