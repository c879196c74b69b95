#include "platform/igmp/wire/Pim.h"

#include <optional>

#include "platform/igmp/wire/ByteReader.h"
#include "platform/igmp/wire/Checksum.h"
#include "platform/igmp/wire/Message.h"

namespace Igmp {

namespace {

constexpr std::size_t pimHeaderSize = 4;

/// The holdtime among a hello's options, the default if it is not there, nothing if an option ends
/// beyond the message.
std::optional<std::chrono::seconds> readHoldtime(Bytes options) {
  constexpr std::uint16_t holdtimeOption = 1;
  constexpr std::size_t holdtimeSize = 2;

  std::chrono::seconds holdtime = PimHello::defaultHoldtime;
  for (ByteReader reader(options); !reader.rest().empty();) {
    std::uint16_t const type = reader.u16();
    std::size_t const length = reader.u16();
    Bytes const value = reader.take(length);
    if (reader.failed()) return std::nullopt;
    if (type != holdtimeOption) continue;
    if (length != holdtimeSize) return std::nullopt;
    holdtime = std::chrono::seconds(ByteReader(value).u16());
  }
  return holdtime;
}

}  // namespace

Parsed<PimHello> parsePimHello(EthernetFrame const& frame) {
  constexpr unsigned hello = 0;
  constexpr unsigned version2 = 2;

  auto const datagram = parseDatagram(frame, ipProtocolPim);
  if (!datagram) return datagram.reason();
  Bytes const message = datagram->payload;
  if (message.size() < pimHeaderSize) return IgnoreReason::inconsistentLength;
  if ((message.front() & 0x0fu) != hello) return IgnoreReason::notIgmp;
  if (datagram->ttl != 1) return IgnoreReason::badTtl;
  if (!isUnicast(datagram->source)) return IgnoreReason::sourceNotUnicast;
  if (checksum(message) != 0) return IgnoreReason::badPimChecksum;
  if (message.front() >> 4 != version2 || datagram->destination != allPimRouters)
    return IgnoreReason::badPimHello;
  auto const holdtime = readHoldtime(message.subspan(pimHeaderSize));
  if (!holdtime) return IgnoreReason::inconsistentLength;
  return PimHello{datagram->source, *holdtime};
}

}  // namespace Igmp
