#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "framework/kel/Export.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"
#include "platform/igmp/wire/ByteReader.h"
#include "platform/igmp/wire/Parsed.h"
#include "platform/wirex/Ethernet.h"

namespace Igmp {

using Wirex::ethernetHeaderSize;
using Wirex::etherTypeIpv4;
using Wirex::etherTypeVlan;
using Wirex::vlanTagSize;

inline constexpr std::size_t ipv4HeaderSize = 20;  ///< bytes, without options
inline constexpr std::size_t routerAlertSize = 4;  ///< bytes of the option (RFC 2113 section 2.1)

inline constexpr std::uint8_t ipProtocolIgmp = 2;          ///< in the IPv4 header
inline constexpr std::uint8_t ipProtocolPim = 103;         ///< in the IPv4 header
inline constexpr std::uint8_t ipOptionRouterAlert = 0x94;  ///< RFC 2113 section 2.1

/// An Ethernet frame with at most one IEEE 802.1Q tag. Views the captured bytes.
struct EthernetFrame {
  /// The VLAN of its tag; none if it is untagged or carries a priority only.
  std::optional<Bridging::VlanId> vlan;
  Bytes source;                 ///< MAC address
  std::uint16_t etherType = 0;  ///< or a length, below 0x0600
  Bytes payload;                ///< padding included
};

/// @param captured from the destination's MAC address on, without frame check sequence.
/// Refuses with `truncated` or `reservedVlan`.
KEL_EXPORT Parsed<EthernetFrame> parseEthernet(Bytes captured);

/// The protocol that an IPv4 header names, whatever else it is worth; none of other frames.
KEL_EXPORT std::optional<std::uint8_t> ipProtocolOf(EthernetFrame const& frame);

/// An IPv4 datagram. Views the captured bytes.
struct Datagram {
  Wirex::IpAddr source;
  Wirex::IpAddr destination;  ///< a group, or the switch itself
  std::uint8_t ttl = 0;       ///< 1 in all IGMP messages (RFC 9776 section 4)
  bool routerAlert = false;   ///< whether the Router Alert option is there (RFC 2113)
  Bytes payload;              ///< as long as the header says: Ethernet's padding is not in it
};

/// Refuses what is not this protocol in IPv4 (with `notIgmp`), cut short or fragmented, and a wrong
/// header (RFC 791, checksum included). Whether TTL, source and Router Alert are acceptable is not
/// decided here.
KEL_EXPORT Parsed<Datagram> parseDatagram(EthernetFrame const& frame,
                                          std::uint8_t ipProtocol = ipProtocolIgmp);

}  // namespace Igmp
