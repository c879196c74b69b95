#pragma once

#include <chrono>

#include "framework/types/IntfId.h"
#include "platform/igmp/wire/Message.h"
#include "platform/wirex/Ethernet.h"

namespace Bridging::IgmpSnooping {

/// A querier that was heard, and what its latest query says of it.
struct OtherQuerier {
  Wirex::IpAddr address;  ///< 0.0.0.0 from a switch without an address
  Wirex::MacAddress macAddress{};
  Wirex::IntfId intfId;  ///< on which it was heard
  Igmp::IgmpVersion version = Igmp::IgmpVersion::v3;
  unsigned robustness = 0;               ///< 0 if it does not tell
  std::chrono::seconds queryInterval{};  ///< 0 if it does not tell

  /// Whether these are one querier, which may have moved or say something else now.
  bool isSame(OtherQuerier const& other) const noexcept {
    constexpr Wirex::IpAddr none;
    return address == other.address && (address != none || macAddress == other.macAddress);
  }
};

/// Whether the querier of one address is elected rather than that of another one: the lower one is
/// (RFC 9776 section 6.6.2), but 0.0.0.0, which a switch has that queries without being a router
/// (RFC 4541 section 2.1.1), loses to every other one.
constexpr bool precedes(Wirex::IpAddr querier, Wirex::IpAddr other) noexcept {
  constexpr Wirex::IpAddr none;
  return querier != none && (other == none || querier < other);
}

/// Two switches without an address that are connected must not both query: each would answer the
/// other with what it has learned from it, and what the two believe of each other would never end.
/// So of these the lower MAC address wins.
inline bool precedes(Wirex::IpAddr querier, Wirex::MacAddress const& querierMac,
                     Wirex::IpAddr other, Wirex::MacAddress const& otherMac) noexcept {
  constexpr Wirex::IpAddr none;
  return precedes(querier, other) || (querier == none && other == none && querierMac < otherMac);
}

}  // namespace Bridging::IgmpSnooping
