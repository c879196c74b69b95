#pragma once

#include "framework/kel/Export.h"
#include "framework/types/IpAddr.h"
#include "platform/igmp/wire/FrameReader.h"
#include "platform/igmp/wire/Message.h"
#include "platform/igmp/wire/Parsed.h"

namespace Igmp {

/// An IGMP message and who sent it where. Lists in it view the captured bytes.
struct Packet {
  Wirex::IpAddr source;       ///< 0.0.0.0 from a system that has no address yet
  Wirex::IpAddr destination;  ///< a group, or the system itself
  Message message;            ///< what it says
  bool routerAlert = false;   ///< whether the Router Alert option is there (RFC 2113)
};

/// What a VLAN asks of received IGMP packets beyond correctness.
struct ReceivePolicy {
  /// Whether packets without Router Alert are ignored (RFC 9776 section 4).
  bool requireRouterAlert = false;
};

/// Reads an IGMP packet: parseDatagram(), then TTL, Router Alert and source, then parseMessage().
/// The frame's VLAN is known before, because the policy is the VLAN's.
KEL_EXPORT Parsed<Packet> parsePacket(EthernetFrame const& frame, ReceivePolicy policy);

/// Whether a general query goes to another multicast address than all systems: hosts ignore it,
/// because a router far away may have sent it (RFC 9776 section 9.1).
KEL_EXPORT bool isMisdirected(Query const& query, Wirex::IpAddr destination);

}  // namespace Igmp
