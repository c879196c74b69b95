#include "platform/igmp/wire/FrameReader.h"

#include "platform/igmp/wire/Checksum.h"

namespace Igmp {

namespace {

constexpr std::uint8_t optionEnd = 0;
constexpr std::uint8_t optionNoOperation = 1;

/// Whether there is a Router Alert among an IP header's options (RFC 791 section 3.1); nothing
/// if the options are malformed.
std::optional<bool> findRouterAlert(Bytes options) {
  bool found = false;
  for (ByteReader reader(options); !reader.rest().empty();) {
    std::uint8_t const type = reader.u8();
    if (type == optionEnd) break;
    if (type == optionNoOperation) continue;
    std::uint8_t const length = reader.u8();
    if (reader.failed() || length < 2) return std::nullopt;
    reader.skip(length - 2u);
    if (reader.failed()) return std::nullopt;
    if (type == ipOptionRouterAlert && length == routerAlertSize) found = true;
  }
  return found;
}

}  // namespace

Parsed<EthernetFrame> parseEthernet(Bytes captured) {
  constexpr std::uint16_t priorityOnly = 0;

  EthernetFrame frame;
  ByteReader reader(captured);
  reader.skip(Wirex::macAddressSize);
  frame.source = reader.take(Wirex::macAddressSize);
  frame.etherType = reader.u16();
  if (frame.etherType == etherTypeVlan) {
    std::uint16_t const vlan = reader.u16() & Wirex::vlanIdMask;
    frame.etherType = reader.u16();
    if (vlan > Bridging::VlanId::max) return IgnoreReason::reservedVlan;
    if (vlan != priorityOnly) frame.vlan = Bridging::VlanId(vlan);
  }
  if (reader.failed()) return IgnoreReason::truncated;
  frame.payload = reader.rest();
  return frame;
}

std::optional<std::uint8_t> ipProtocolOf(EthernetFrame const& frame) {
  constexpr std::size_t protocolOffset = 9;
  if (frame.etherType != etherTypeIpv4 || frame.payload.size() <= protocolOffset)
    return std::nullopt;
  return frame.payload[protocolOffset];
}

Parsed<Datagram> parseDatagram(EthernetFrame const& frame, std::uint8_t ipProtocol) {
  constexpr std::uint16_t moreFragmentsAndOffset = 0x3fff;

  if (frame.etherType != etherTypeIpv4) return IgnoreReason::notIgmp;
  Datagram datagram;
  ByteReader reader(frame.payload);
  std::uint8_t const versionAndHeaderWords = reader.u8();
  reader.skip(1);  // type of service
  std::size_t const totalLength = reader.u16();
  reader.skip(2);  // identification
  std::uint16_t const flagsAndOffset = reader.u16();
  datagram.ttl = reader.u8();
  std::uint8_t const protocol = reader.u8();
  reader.skip(2);  // checksum
  datagram.source = reader.ipAddr();
  datagram.destination = reader.ipAddr();
  if (reader.failed()) return IgnoreReason::truncated;

  // Before all else, so that no other protocol's damage is counted as this one's.
  if (protocol != ipProtocol) return IgnoreReason::notIgmp;

  std::size_t const headerSize = (versionAndHeaderWords & 0x0fu) * std::size_t{4};
  if (versionAndHeaderWords >> 4 != 4 || headerSize < ipv4HeaderSize)
    return IgnoreReason::badIpHeader;
  Bytes const options = reader.take(headerSize - ipv4HeaderSize);
  if (reader.failed()) return IgnoreReason::truncated;
  if (checksum(frame.payload.first(headerSize)) != 0) return IgnoreReason::badIpChecksum;
  if (totalLength < headerSize) return IgnoreReason::badIpHeader;
  if (totalLength > frame.payload.size()) return IgnoreReason::truncated;
  if ((flagsAndOffset & moreFragmentsAndOffset) != 0) return IgnoreReason::fragment;
  auto const routerAlert = findRouterAlert(options);
  if (!routerAlert) return IgnoreReason::badIpHeader;
  datagram.routerAlert = *routerAlert;
  datagram.payload = frame.payload.subspan(headerSize, totalLength - headerSize);
  return datagram;
}

}  // namespace Igmp
