#pragma once

#include "framework/types/IpAddr.h"
#include "platform/igmp/wire/ByteReader.h"
#include "platform/wirex/Ethernet.h"
#include "platform/wirex/Pkt.h"

namespace Igmp {

/// Where general queries go (RFC 9776 section 4.1).
inline constexpr Wirex::IpAddr allSystems(224, 0, 0, 1);
/// Where IGMPv2 leaves go (RFC 2236 section 9).
inline constexpr Wirex::IpAddr allRouters(224, 0, 0, 2);
/// Where IGMPv3 reports go (RFC 9776 section 4.2).
inline constexpr Wirex::IpAddr allIgmpv3Routers(224, 0, 0, 22);

/// What an IPv4 header with Router Alert takes of a link's MTU.
inline constexpr std::size_t sentIpHeaderSize = 24;

/// How long an IGMP message may be where an IP datagram may have `mtu` bytes: what the link
/// carries, and what a packet holds. An MTU below that of any IPv4 link is not believed.
KEL_EXPORT std::size_t greatestMessageSize(std::size_t mtu) noexcept;

/// Who sends.
struct Sender {
  Wirex::MacAddress macAddress{};
  Wirex::IpAddr address;  ///< 0.0.0.0 for a host without one
};

/// The untagged frame that carries an IGMP message: with TTL 1, internetwork control precedence and
/// Router Alert, as RFC 9776 section 4 asks. The message's checksum is computed here.
/// @param destination a multicast address.
/// @param message its checksum field may hold anything.
/// Throws Kel::RangeException beyond the packet manager's buffer size.
KEL_EXPORT Wirex::Pkt::Ptr igmpFrame(Sender const& sender, Wirex::IpAddr destination,
                                     Bytes message);

}  // namespace Igmp
