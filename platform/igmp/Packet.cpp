#include "platform/igmp/Packet.h"

namespace Igmp {

Parsed<Packet> parsePacket(EthernetFrame const& frame, ReceivePolicy policy) {
  auto const datagram = parseDatagram(frame);
  if (!datagram) return datagram.cause();
  if (datagram->ttl != 1) return Cause::badTtl;
  if (policy.requireRouterAlert && !datagram->routerAlert) return Cause::noRouterAlert;
  bool const hasNoAddressYet = datagram->source == Wirex::IpAddr();
  if (!hasNoAddressYet && !isUnicast(datagram->source)) return Cause::sourceNotUnicast;
  auto const message = parseMessage(datagram->payload);
  if (!message) return message.cause();
  return Packet{datagram->source, datagram->destination, *message, datagram->routerAlert};
}

}  // namespace Igmp
