#pragma once

#include <compare>
#include <iosfwd>

#include "framework/kel/Export.h"
#include "framework/kel/Text.h"
#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"

namespace Bridging::IgmpSnooping::Proxy {

/// One port in one VLAN. Its text, "Vlan" + VLAN + interface name, is the name of the port's IGMP
/// host; the key carries it and its hash, so that looking a host up builds no text.
class KEL_EXPORT PortKey {
 public:
  /// VLAN 1 and the interface without a name.
  PortKey();
  PortKey(VlanId vlanId, Wirex::IntfId intfId);

  VlanId vlanId() const noexcept { return vlanId_; }
  Wirex::IntfId const& intfId() const noexcept { return intfId_; }
  Kel::String8 const& stringvalue() const noexcept { return text_; }

  /// Takes the key's value from its text. The VLAN is all digits after "Vlan", so the text of an
  /// interface whose name begins with a digit cannot be told from another key's.
  /// Throws Kel::RangeException, and changes nothing, if the text is no key's.
  void handleInit(Kel::String8 const& text);

  /// The hash of the text.
  std::uint32_t hash() const noexcept { return text_.hash(); }

  friend bool operator==(PortKey const& a, PortKey const& b) noexcept {
    return a.vlanId_ == b.vlanId_ && a.intfId_ == b.intfId_;
  }
  friend std::strong_ordering operator<=>(PortKey const& a, PortKey const& b) noexcept {
    if (auto const order = a.vlanId_ <=> b.vlanId_; order != 0) return order;
    return a.intfId_ <=> b.intfId_;
  }

 private:
  VlanId vlanId_;
  Wirex::IntfId intfId_;
  Kel::String8 text_;
};

KEL_EXPORT std::ostream& operator<<(std::ostream& out, PortKey const& key);

}  // namespace Bridging::IgmpSnooping::Proxy
