#include "bench/live/Reports.h"

#include <algorithm>

#include "platform/igmp/wire/FrameWriter.h"
#include "platform/igmp/wire/PacketReader.h"
#include "platform/igmp/wire/QueryWriter.h"

namespace Bench {

namespace {

using Wirex::IgmpV3GroupRecordType;
using Wirex::IpAddr;

void append16(Frame& message, unsigned value) {
  message.push_back(static_cast<std::uint8_t>(value >> 8));
  message.push_back(static_cast<std::uint8_t>(value));
}

void append(Frame& message, IpAddr address) {
  append16(message, address.value() >> 16);
  append16(message, address.value());
}

IgmpV3GroupRecordType recordType(Saying saying, bool withSources) {
  switch (saying) {
    case Saying::join:
      return withSources ? IgmpV3GroupRecordType::allowNewSources
                         : IgmpV3GroupRecordType::changeToExcludeMode;
    case Saying::leave:
      return withSources ? IgmpV3GroupRecordType::blockOldSources
                         : IgmpV3GroupRecordType::changeToIncludeMode;
    case Saying::current:
      break;
  }
  return withSources ? IgmpV3GroupRecordType::modeIsInclude : IgmpV3GroupRecordType::modeIsExclude;
}

/// All have the same /8, so that a router with an address in it accepts them.
Igmp::Sender reporterOf(unsigned port, unsigned number) {
  auto const address =
      IpAddr(10, static_cast<std::uint8_t>(port), static_cast<std::uint8_t>(1 + number / 250),
             static_cast<std::uint8_t>(1 + number % 250));
  return {{0x02, 0, static_cast<std::uint8_t>(port), 0, static_cast<std::uint8_t>(number >> 8),
           static_cast<std::uint8_t>(number)},
          address};
}

Frame frameOf(Igmp::Sender const& sender, IpAddr destination, Frame const& message) {
  auto const packet = Igmp::igmpFrame(sender, destination, message);
  return {packet->bytes().begin(), packet->bytes().end()};
}

}  // namespace

IpAddr groupOf(unsigned port, unsigned number) {
  return IpAddr(239, static_cast<std::uint8_t>(port + 1), static_cast<std::uint8_t>(number >> 8),
                static_cast<std::uint8_t>(number));
}

std::vector<Frame> reports(Listeners const& listeners, Saying saying) {
  std::vector<Frame> frames;
  for (unsigned reporter = 0; reporter < listeners.reporters; ++reporter)
    for (unsigned first = 0; first < listeners.groups; first += listeners.records) {
      unsigned const records = std::min(listeners.records, listeners.groups - first);
      Frame message{static_cast<std::uint8_t>(Igmp::MessageType::reportV3), 0, 0, 0, 0, 0};
      append16(message, records);
      for (unsigned record = 0; record < records; ++record) {
        message.push_back(static_cast<std::uint8_t>(recordType(saying, listeners.sources > 0)));
        message.push_back(0);
        append16(message, listeners.sources);
        append(message, groupOf(listeners.port, first + record));
        for (unsigned source = 1; source <= listeners.sources; ++source)
          append(message, IpAddr(198, 18, 0, static_cast<std::uint8_t>(source)));
      }
      frames.push_back(
          frameOf(reporterOf(listeners.port, reporter), Igmp::allIgmpv3Routers, message));
    }
  return frames;
}

Frame generalQuery() {
  Igmp::QueryToSend query;
  query.maxResponseTime = std::chrono::seconds(10);
  query.queryInterval = std::chrono::seconds(125);
  query.robustness = 2;
  Igmp::Sender const router{{0x02, 0, 0xff, 0, 0, 1}, IpAddr(10, 255, 0, 1)};
  return frameOf(router, Igmp::allSystems, Igmp::queryMessage(query));
}

bool speaksOf(Igmp::Bytes frame, IpAddr group) {
  auto const ethernet = Igmp::parseEthernet(frame);
  if (!ethernet) return false;
  auto const packet = Igmp::parsePacket(*ethernet, {});
  if (!packet) return false;
  auto const* report = std::get_if<Igmp::ReportV3>(&packet->message);
  return report != nullptr &&
         std::any_of(report->records.begin(), report->records.end(),
                     [group](Igmp::GroupRecord const& record) { return record.group == group; });
}

}  // namespace Bench
