#include "platform/igmp/wire/PacketReader.h"

#include "platform/igmp/wire/FrameWriter.h"

namespace Igmp {

Parsed<Packet> parsePacket(EthernetFrame const& frame, ReceivePolicy policy) {
  auto const datagram = parseDatagram(frame);
  if (!datagram) return datagram.reason();
  if (datagram->ttl != 1) return IgnoreReason::badTtl;
  if (policy.requireRouterAlert && !datagram->routerAlert) return IgnoreReason::noRouterAlert;
  bool const hasNoAddressYet = datagram->source == Wirex::IpAddr();
  if (!hasNoAddressYet && !isUnicast(datagram->source)) return IgnoreReason::sourceNotUnicast;
  auto const message = parseMessage(datagram->payload);
  if (!message) return message.reason();
  return Packet{datagram->source, datagram->destination, *message, datagram->routerAlert};
}

bool isMisdirected(Query const& query, Wirex::IpAddr destination) {
  return query.isGeneral() && destination.isMulticast() && destination != allSystems;
}

}  // namespace Igmp
