#include "platform/igmp/wire/Message.h"

#include <algorithm>

#include "platform/igmp/wire/Checksum.h"

namespace Igmp {

namespace {

bool areUnicast(SourceList const& sources) {
  return std::all_of(sources.begin(), sources.end(), isUnicast);
}

std::optional<IgnoreReason> groupProblem(Wirex::IpAddr group) {
  if (!group.isMulticast()) return IgnoreReason::groupNotMulticast;
  if (group.isLinkLocalMulticast()) return IgnoreReason::groupLinkLocal;
  return std::nullopt;
}

bool isKnown(Wirex::IgmpV3GroupRecordType type) {
  using enum Wirex::IgmpV3GroupRecordType;
  return modeIsInclude <= type && type <= blockOldSources;
}

GroupRecord readRecord(ByteReader& reader) {
  GroupRecord record;
  record.type = static_cast<Wirex::IgmpV3GroupRecordType>(reader.u8());
  std::size_t const auxiliaryWords = reader.u8();
  std::size_t const sourceCount = reader.u16();
  record.group = reader.ipAddr();
  record.sources = SourceList(reader.take(sourceCount * addressSize));
  reader.skip(auxiliaryWords * 4);
  return record;
}

Parsed<Query> checkedQuery(Query const& query) {
  // Sources without a group ask for nothing.
  if (!query.isGeneral() || !query.sources.empty()) {
    if (auto const problem = groupProblem(query.group)) return *problem;
  }
  if (!areUnicast(query.sources)) return IgnoreReason::sourceNotUnicast;
  return query;
}

Parsed<Message> parseQuery(Bytes payload) {
  auto const query = readQuery(payload);
  if (!query) return query.reason();
  return Message(*query);
}

/// IGMPv1 and IGMPv2 say one thing about one group.
template <class Kind>
Parsed<Message> parseGroupMessage(Bytes payload) {
  Wirex::IpAddr const group = ByteReader(payload.subspan(messageSize - addressSize)).ipAddr();
  if (auto const problem = groupProblem(group)) return *problem;
  return Message(Kind{group});
}

Parsed<Message> parseReportV3(Bytes payload) {
  ByteReader reader(payload);
  reader.skip(reportV3HeaderSize - 2);
  std::size_t const recordCount = reader.u16();
  auto const records = GroupRecords::checked(reader.rest(), recordCount);
  if (!records) return IgnoreReason::inconsistentLength;
  return Message(ReportV3{*records});
}

}  // namespace

std::optional<IgnoreReason> GroupRecord::problem() const noexcept {
  if (!isKnown(type)) return IgnoreReason::unknownRecordType;
  if (auto const groups = groupProblem(group)) return groups;
  if (!areUnicast(sources)) return IgnoreReason::sourceNotUnicast;
  return std::nullopt;
}

GroupRecords::Iterator::Iterator(Bytes records, std::size_t left) noexcept
    : reader_(records), left_(left) {
  if (left_ > 0) record_ = readRecord(reader_);
}

GroupRecords::Iterator& GroupRecords::Iterator::operator++() noexcept {
  if (--left_ > 0) record_ = readRecord(reader_);
  return *this;
}

std::optional<GroupRecords> GroupRecords::checked(Bytes records, std::size_t count) noexcept {
  ByteReader reader(records);
  for (std::size_t i = 0; i < count; ++i) {
    readRecord(reader);
    if (reader.failed()) return std::nullopt;
  }
  return GroupRecords(records, count);
}

/// RFC 9776 section 7.1 tells the versions apart.
Parsed<Query> readQuery(Bytes message) {
  constexpr Deciseconds responseTimeOfV1 = std::chrono::seconds(10);

  Query query;
  ByteReader reader(message);
  reader.skip(1);  // type
  std::uint8_t const maxResponseCode = reader.u8();
  reader.skip(2);  // checksum
  query.group = reader.ipAddr();

  // IGMPv1 Query: length = 8 octets AND Max Resp Code field is zero
  if (message.size() == messageSize && maxResponseCode == 0) {
    query.version = IgmpVersion::v1;
    query.group = Wirex::IpAddr();  // "ignored when received", RFC 1112 appendix I
    query.maxResponseTime = responseTimeOfV1;
    return checkedQuery(query);
  }
  // IGMPv2 Query: length = 8 octets AND Max Resp Code field is non-zero
  if (message.size() == messageSize) {
    query.version = IgmpVersion::v2;
    query.maxResponseTime = Deciseconds(maxResponseCode);
    return checkedQuery(query);
  }
  // IGMPv3 Query: length >= 12 octets
  query.version = IgmpVersion::v3;
  query.maxResponseTime = Deciseconds(codeValue(maxResponseCode));
  std::uint8_t const flagsAndRobustness = reader.u8();
  query.suppressesRouters = (flagsAndRobustness & 0x08) != 0;
  query.robustness = flagsAndRobustness & 0x07;
  query.queryInterval = std::chrono::seconds(codeValue(reader.u8()));
  std::size_t const sourceCount = reader.u16();
  query.sources = SourceList(reader.take(sourceCount * addressSize));
  if (reader.failed()) return IgnoreReason::inconsistentLength;
  return checkedQuery(query);
}

Parsed<Message> parseMessage(Bytes payload) {
  if (payload.size() < messageSize) return IgnoreReason::inconsistentLength;
  if (checksum(payload) != 0) return IgnoreReason::badIgmpChecksum;
  switch (static_cast<MessageType>(payload.front())) {
    case MessageType::query:
      return parseQuery(payload);
    case MessageType::reportV1:
      return parseGroupMessage<ReportV1>(payload);
    case MessageType::reportV2:
      return parseGroupMessage<ReportV2>(payload);
    case MessageType::leave:
      return parseGroupMessage<Leave>(payload);
    case MessageType::reportV3:
      return parseReportV3(payload);
  }
  return IgnoreReason::unknownType;
}

}  // namespace Igmp
