#pragma once

#include "framework/kel/Export.h"
#include "framework/types/IpAddr.h"
#include "platform/igmp/wire/FrameReader.h"
#include "platform/igmp/wire/Message.h"
#include "platform/igmp/wire/Parsed.h"

namespace Igmp {

/// An IGMP message and who sent it where. Lists in it view the captured bytes.
struct Packet {
  Wirex::IpAddr source;  ///< 0.0.0.0 from a system that has no address yet
  Wirex::IpAddr destination;
  Message message;
  bool routerAlert = false;
};

/// What a VLAN asks of received IGMP packets beyond correctness.
struct ReceivePolicy {
  bool requireRouterAlert = false;
};

/// Reads an IGMP packet: parseDatagram(), then TTL, Router Alert and source, then parseMessage().
/// The frame's VLAN is known before, because the policy is the VLAN's.
KEL_EXPORT Parsed<Packet> parsePacket(EthernetFrame const& frame, ReceivePolicy policy);

}  // namespace Igmp
