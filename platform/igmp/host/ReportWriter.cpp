#include "platform/igmp/host/ReportWriter.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Igmp {

using Wirex::IpAddr;

namespace {

constexpr std::size_t recordCountOffset = reportV3HeaderSize - 2;

void putAddress(std::uint8_t* bytes, IpAddr address) {
  Wirex::putBigEndian16(bytes, static_cast<std::uint16_t>(address.value() >> 16));
  Wirex::putBigEndian16(bytes + 2, static_cast<std::uint16_t>(address.value()));
}

}  // namespace

ReportWriter::ReportWriter(HostSettings const& settings, Notes const& notes)
    : sender_{settings.macAddress, settings.sourceAddress},
      capacity_(greatestMessageSize(settings.mtu)),
      notes_(notes) {}

// RFC 9776 section 4.2.16: "If a single Group Record contains so many source addresses that it does
// not fit within the size limit of a single Report message ..."
void ReportWriter::record(RecordType type, IpAddr group, std::span<IpAddr const> sources) {
  using enum Wirex::IgmpV3GroupRecordType;
  constexpr std::size_t headerSizes = reportV3HeaderSize + groupRecordHeaderSize;
  std::size_t const mostSources = (capacity_ - headerSizes) / addressSize;

  if (!message_.empty() && room() < groupRecordHeaderSize + sources.size() * addressSize)
    closeReport();
  if (sources.size() <= mostSources) {
    append(type, group, sources);
    return;
  }
  // "... a single Group Record is sent, containing as many source addresses as can fit": of two
  // exclude lists the latter would undo the former. The lowest ones are the same each time.
  if (type == modeIsExclude || type == changeToExcludeMode) {
    append(type, group, sources.first(mostSources));
    return;
  }
  // "... it is split into multiple Group Records, each containing a different subset of the source
  // addresses and each sent in a separate Report message".
  while (!sources.empty()) {
    std::size_t const count = std::min(sources.size(), mostSources);
    if (!message_.empty()) closeReport();
    append(type, group, sources.first(count));
    sources = sources.subspan(count);
    // A second TO_IN would have the router query the sources of the first one as blocked
    // (section 6.4.2); what it adds to INCLUDE mode is what ALLOW adds.
    if (type == changeToIncludeMode) type = allowNewSources;
  }
}

void ReportWriter::append(RecordType type, IpAddr group, std::span<IpAddr const> sources) {
  if (message_.empty()) {
    message_.reserve(capacity_);
    message_.resize(reportV3HeaderSize);
    message_[0] = static_cast<std::uint8_t>(MessageType::reportV3);
  }
  std::size_t at = message_.size();
  message_.resize(at + groupRecordHeaderSize + sources.size() * addressSize);
  message_[at] = static_cast<std::uint8_t>(type);
  Wirex::putBigEndian16(&message_[at + 2], static_cast<std::uint16_t>(sources.size()));
  putAddress(&message_[at + 4], group);
  at += groupRecordHeaderSize;
  for (IpAddr const source : sources) {
    putAddress(&message_[at], source);
    at += addressSize;
  }
  ++records_;
  ++notes_.counters.groupRecordsSent;
  note(group, MessageType::reportV3, type, sources.size());
  if (room() < groupRecordHeaderSize) closeReport();
}

void ReportWriter::closeReport() {
  Wirex::putBigEndian16(&message_[recordCountOffset], std::exchange(records_, std::uint16_t{0}));
  frames_.push_back(igmpFrame(sender_, allIgmpv3Routers, message_));
  message_.clear();
  ++notes_.counters.reportsSentV3;
}

void ReportWriter::report(IgmpVersion version, IpAddr group) {
  if (version == IgmpVersion::v1) {
    groupMessage(MessageType::reportV1, group, group);
    ++notes_.counters.reportsSentV1;
  } else {
    groupMessage(MessageType::reportV2, group, group);
    ++notes_.counters.reportsSentV2;
  }
}

void ReportWriter::leave(IpAddr group) {
  groupMessage(MessageType::leave, group, allRouters);
  ++notes_.counters.leavesSent;
}

void ReportWriter::note(IpAddr group, MessageType message, RecordType record, std::size_t sources) {
  notes_.sent.note(notes_.host, group,
                   {notes_.now, message, record, static_cast<std::uint16_t>(sources)});
}

void ReportWriter::groupMessage(MessageType type, IpAddr group, IpAddr destination) {
  std::array<std::uint8_t, messageSize> message{static_cast<std::uint8_t>(type)};
  putAddress(&message[messageSize - addressSize], group);
  frames_.push_back(igmpFrame(sender_, destination, message));
  note(group, type);
}

std::vector<Wirex::Pkt::Ptr> ReportWriter::takeFrames() {
  if (!message_.empty()) closeReport();
  return std::exchange(frames_, {});
}

}  // namespace Igmp
