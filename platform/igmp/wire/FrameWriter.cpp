#include "platform/igmp/wire/FrameWriter.h"

#include <algorithm>

#include "platform/igmp/wire/Checksum.h"
#include "platform/igmp/wire/FrameReader.h"
#include "platform/wirex/PktManager.h"

namespace Igmp {

namespace {

using Wirex::putBigEndian16;
using Wirex::WritableBytes;

void putAddress(std::uint8_t* bytes, Wirex::IpAddr address) {
  putBigEndian16(bytes, static_cast<std::uint16_t>(address.value() >> 16));
  putBigEndian16(bytes + 2, static_cast<std::uint16_t>(address.value()));
}

void putChecksum(WritableBytes bytes, std::size_t offset) {
  putBigEndian16(&bytes[offset], 0);
  putBigEndian16(&bytes[offset], checksum(bytes));
}

/// RFC 791. Identification stays 0: the datagram is never fragmented (RFC 6864 section 4.1).
void writeIpHeader(WritableBytes header, std::size_t datagramSize, Wirex::IpAddr source,
                   Wirex::IpAddr destination) {
  constexpr std::uint8_t version4 = 4 << 4;
  constexpr std::uint8_t internetworkControl = 0xc0;
  constexpr std::uint16_t dontFragment = 0x4000;
  constexpr std::uint8_t ttl = 1;
  constexpr std::size_t checksumOffset = 10;

  std::fill(header.begin(), header.end(), std::uint8_t{0});
  header[0] = static_cast<std::uint8_t>(version4 | header.size() / 4);
  header[1] = internetworkControl;
  putBigEndian16(&header[2], static_cast<std::uint16_t>(datagramSize));
  putBigEndian16(&header[6], dontFragment);
  header[8] = ttl;
  header[9] = ipProtocolIgmp;
  putAddress(&header[12], source);
  putAddress(&header[16], destination);
  header[ipv4HeaderSize] = ipOptionRouterAlert;
  header[ipv4HeaderSize + 1] = routerAlertSize;
  putChecksum(header, checksumOffset);
}

/// The group's MAC address is 01:00:5e and the group's low 23 bits (RFC 1112 section 6.4).
void writeEthernetHeader(WritableBytes header, Wirex::MacAddress const& source,
                         Wirex::IpAddr destination) {
  std::uint32_t const group = destination.value();
  header[0] = 0x01;
  header[1] = 0x00;
  header[2] = 0x5e;
  header[3] = static_cast<std::uint8_t>(group >> 16 & 0x7f);
  header[4] = static_cast<std::uint8_t>(group >> 8);
  header[5] = static_cast<std::uint8_t>(group);
  std::copy(source.begin(), source.end(), header.begin() + Wirex::macAddressSize);
  putBigEndian16(&header[Wirex::etherTypeOffset], etherTypeIpv4);
}

}  // namespace

std::size_t greatestMessageSize(std::size_t mtu) noexcept {
  constexpr std::size_t smallestMtu = 68;  // RFC 791 section 3.2
  return std::min(std::max(mtu, smallestMtu) - sentIpHeaderSize,
                  Wirex::PktManager::instance().bufferSize());
}

Wirex::Pkt::Ptr igmpFrame(Sender const& sender, Wirex::IpAddr destination, Bytes message) {
  constexpr std::size_t checksumOffset = 2;

  auto frame = Wirex::Pkt::PktIs(message);
  putChecksum(frame->bytes(), checksumOffset);
  writeIpHeader(frame->prepend(sentIpHeaderSize), sentIpHeaderSize + message.size(), sender.address,
                destination);
  writeEthernetHeader(frame->prepend(ethernetHeaderSize), sender.macAddress, destination);
  return frame;
}

}  // namespace Igmp
