#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <variant>
#include <vector>

#include "platform/igmp/wire/Checksum.h"
#include "platform/igmp/wire/PacketReader.h"

/// Feeds arbitrary bytes to the parser as a captured frame: as they are, and once more with right
/// checksums, which no mutation would find.
namespace {

using Igmp::Bytes;

void require(bool holds) {
  if (!holds) std::abort();
}

void writeChecksum(std::vector<std::uint8_t>& frame, std::size_t begin, std::size_t size,
                   std::size_t field) {
  frame[begin + field] = frame[begin + field + 1] = 0;
  std::uint16_t const sum = Igmp::checksum(Bytes(frame).subspan(begin, size));
  frame[begin + field] = static_cast<std::uint8_t>(sum >> 8);
  frame[begin + field + 1] = static_cast<std::uint8_t>(sum & 0xff);
}

void repairChecksums(std::vector<std::uint8_t>& frame) {
  auto const ethernet = Igmp::parseEthernet(frame);
  if (!ethernet || ethernet->payload.size() < Igmp::ipv4HeaderSize) return;
  Bytes const ip = ethernet->payload;
  std::size_t const begin = frame.size() - ip.size();
  std::size_t const headerSize = (ip[0] & 0x0fu) * std::size_t{4};
  std::size_t const totalLength = static_cast<std::size_t>(ip[2]) << 8 | ip[3];
  if (headerSize < Igmp::ipv4HeaderSize || headerSize > ip.size()) return;
  if (totalLength >= headerSize + Igmp::messageSize && totalLength <= ip.size()) {
    writeChecksum(frame, begin + headerSize, totalLength - headerSize, 2);
  }
  writeChecksum(frame, begin, headerSize, 10);
}

void read(Igmp::SourceList const& sources, std::size_t frameSize) {
  std::size_t count = 0;
  for (Wirex::IpAddr const source : sources) {
    require(Wirex::IpAddr(source.value()) == source);
    ++count;
  }
  require(count == sources.size() && count * Igmp::addressSize <= frameSize);
}

void read(Igmp::GroupRecords const& records, std::size_t frameSize) {
  std::size_t count = 0;
  for (Igmp::GroupRecord const& record : records) {
    read(record.sources, frameSize);
    if (!record.problem()) {
      require(record.group.isMulticast() && !record.group.isLinkLocalMulticast());
      require(std::all_of(record.sources.begin(), record.sources.end(), Igmp::isUnicast));
    }
    ++count;
  }
  require(count == records.size() && count * Igmp::groupRecordHeaderSize <= frameSize);
}

void parse(std::vector<std::uint8_t> const& frame) {
  auto const ethernet = Igmp::parseEthernet(frame);
  if (!ethernet) return;
  if (auto const datagram = Igmp::parseDatagram(*ethernet)) {
    auto const within = [&](std::uint8_t const* byte) {
      return !std::less<>()(byte, frame.data()) &&
             !std::less<>()(frame.data() + frame.size(), byte);
    };
    require(within(datagram->payload.data()));
    require(within(datagram->payload.data() + datagram->payload.size()));
  }
  auto const packet = Igmp::parsePacket(*ethernet, {});
  auto const strict = Igmp::parsePacket(*ethernet, {.requireRouterAlert = true});
  require(packet || !strict);
  if (!packet) {
    require(!Igmp::name(packet.reason()).empty());
    return;
  }
  if (auto const* query = std::get_if<Igmp::Query>(&packet->message)) {
    read(query->sources, frame.size());
    require(query->isGeneral() || query->group.isMulticast());
  }
  if (auto const* report = std::get_if<Igmp::ReportV3>(&packet->message)) {
    read(report->records, frame.size());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<std::uint8_t> frame(data, data + size);
  parse(frame);
  repairChecksums(frame);
  parse(frame);
  return 0;
}
