#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "framework/types/IgmpV3GroupRecordType.h"
#include "framework/types/IpAddr.h"
#include "platform/igmp/wire/Checksum.h"

/// Builds Ethernet frames with IGMP messages of every kind, right unless told to be wrong:
///
///   FrameBuilder::reportV3({toEx(group)}).from(host).vlan(10).bytes()
namespace IgmpTest {

using Wirex::IgmpV3GroupRecordType;
using Wirex::IpAddr;
using ByteVector = std::vector<std::uint8_t>;

/// Collects big-endian fields.
class ByteWriter {
 public:
  ByteWriter& u8(unsigned value) {
    bytes_.push_back(static_cast<std::uint8_t>(value));
    return *this;
  }
  ByteWriter& u16(unsigned value) { return u8(value >> 8 & 0xff).u8(value & 0xff); }
  ByteWriter& u32(std::uint32_t value) { return u16(value >> 16).u16(value & 0xffff); }
  ByteWriter& address(IpAddr value) { return u32(value.value()); }
  ByteWriter& addresses(std::vector<IpAddr> const& values) {
    for (IpAddr const value : values) address(value);
    return *this;
  }
  ByteWriter& append(ByteVector const& more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }

  ByteVector const& bytes() const { return bytes_; }

 private:
  ByteVector bytes_;
};

/// Writes the Internet checksum of the `size` bytes at `begin` into the field at `begin + field`.
inline void writeChecksum(ByteVector& bytes, std::size_t begin, std::size_t size,
                          std::size_t field) {
  bytes[begin + field] = bytes[begin + field + 1] = 0;
  std::uint16_t const sum = Igmp::checksum(Igmp::Bytes(bytes).subspan(begin, size));
  bytes[begin + field] = static_cast<std::uint8_t>(sum >> 8);
  bytes[begin + field + 1] = static_cast<std::uint8_t>(sum & 0xff);
}

struct Record {
  unsigned type;
  IpAddr group;
  std::vector<IpAddr> sources;
  unsigned auxiliaryWords = 0;
};

inline Record record(IgmpV3GroupRecordType type, IpAddr group, std::vector<IpAddr> sources) {
  return {static_cast<unsigned>(type), group, std::move(sources)};
}
inline Record isIn(IpAddr group, std::vector<IpAddr> sources) {
  return record(IgmpV3GroupRecordType::modeIsInclude, group, std::move(sources));
}
inline Record isEx(IpAddr group, std::vector<IpAddr> sources = {}) {
  return record(IgmpV3GroupRecordType::modeIsExclude, group, std::move(sources));
}
inline Record toIn(IpAddr group, std::vector<IpAddr> sources = {}) {
  return record(IgmpV3GroupRecordType::changeToIncludeMode, group, std::move(sources));
}
inline Record toEx(IpAddr group, std::vector<IpAddr> sources = {}) {
  return record(IgmpV3GroupRecordType::changeToExcludeMode, group, std::move(sources));
}
inline Record allow(IpAddr group, std::vector<IpAddr> sources) {
  return record(IgmpV3GroupRecordType::allowNewSources, group, std::move(sources));
}
inline Record block(IpAddr group, std::vector<IpAddr> sources) {
  return record(IgmpV3GroupRecordType::blockOldSources, group, std::move(sources));
}

struct QueryV3 {
  IpAddr group{};
  unsigned maxResponseCode = 100;
  unsigned flagsAndRobustness = 2;
  unsigned queryIntervalCode = 125;
  std::vector<IpAddr> sources{};
};

class FrameBuilder {
 public:
  /// Any IGMP message, whose bytes 2 and 3 become its checksum.
  static FrameBuilder message(ByteVector igmp, IpAddr destination) {
    FrameBuilder builder;
    builder.igmp_ = std::move(igmp);
    builder.destination_ = destination;
    return builder;
  }
  static FrameBuilder queryV1() { return fixedMessage(0x11, 0, IpAddr(), allSystems); }
  static FrameBuilder queryV2(IpAddr group, unsigned maxResponseTime) {
    return fixedMessage(0x11, maxResponseTime, group, group == IpAddr() ? allSystems : group);
  }
  static FrameBuilder queryV3(QueryV3 const& query) {
    ByteWriter igmp;
    igmp.u8(0x11).u8(query.maxResponseCode).u16(0).address(query.group);
    igmp.u8(query.flagsAndRobustness).u8(query.queryIntervalCode);
    igmp.u16(static_cast<unsigned>(query.sources.size())).addresses(query.sources);
    return message(igmp.bytes(), query.group == IpAddr() ? allSystems : query.group);
  }
  static FrameBuilder reportV1(IpAddr group) { return fixedMessage(0x12, 0, group, group); }
  static FrameBuilder reportV2(IpAddr group) { return fixedMessage(0x16, 0, group, group); }
  static FrameBuilder leave(IpAddr group) { return fixedMessage(0x17, 0, group, allRouters); }
  static FrameBuilder reportV3(std::vector<Record> const& records) {
    ByteWriter igmp;
    igmp.u8(0x22).u8(0).u16(0).u16(0).u16(static_cast<unsigned>(records.size()));
    for (Record const& each : records) {
      igmp.u8(each.type).u8(each.auxiliaryWords).u16(static_cast<unsigned>(each.sources.size()));
      igmp.address(each.group).addresses(each.sources);
      for (unsigned word = 0; word < each.auxiliaryWords; ++word) igmp.u32(0xa5a5a5a5);
    }
    return message(igmp.bytes(), allReportersV3);
  }

  FrameBuilder& from(IpAddr source) { return set(source_, source); }
  FrameBuilder& to(IpAddr destination) { return set(destination_, destination); }
  FrameBuilder& ttl(unsigned value) { return set(ttl_, value); }
  FrameBuilder& withoutRouterAlert() { return options({}); }
  /// @param bytes a multiple of four.
  FrameBuilder& options(ByteVector bytes) { return set(options_, std::move(bytes)); }

  /// Adds a tag inside those that are there; VLAN 0 makes a priority tag.
  FrameBuilder& vlan(unsigned vlan, unsigned priority = 0) {
    tags_.push_back(priority << 13 | vlan);
    return *this;
  }
  FrameBuilder& etherType(unsigned value) { return set(etherType_, value); }
  FrameBuilder& ipVersion(unsigned value) { return set(ipVersion_, value); }
  FrameBuilder& headerWords(unsigned value) { return set(headerWords_, std::optional(value)); }
  FrameBuilder& totalLength(unsigned value) { return set(totalLength_, std::optional(value)); }
  FrameBuilder& flagsAndOffset(unsigned value) { return set(flagsAndOffset_, value); }
  FrameBuilder& protocol(unsigned value) { return set(protocol_, value); }
  FrameBuilder& damageIpChecksum() { return set(ipChecksumError_, 0x0100u); }
  FrameBuilder& damageIgmpChecksum() { return set(igmpChecksumError_, 0x0100u); }

  /// Bytes that belong to the IP payload, after the message's own.
  FrameBuilder& trailer(ByteVector const& bytes) {
    igmp_.insert(igmp_.end(), bytes.begin(), bytes.end());
    return *this;
  }

  /// Ethernet's padding, up to the least size of a frame.
  FrameBuilder& padded(unsigned filler = 0) { return set(padding_, std::optional(filler)); }

  ByteVector bytes() const {
    ByteWriter ethernet;
    std::uint32_t const macOfGroup = destination_.value() & 0x7fffff;
    ethernet.u16(0x0100).u32(0x5e000000 | macOfGroup);  // RFC 1112 section 6.4
    ethernet.u16(0x0200).u32(source_.value());
    for (unsigned const tag : tags_) ethernet.u16(0x8100).u16(tag);
    ethernet.u16(etherType_);
    ByteVector frame = ethernet.append(datagram()).bytes();
    if (padding_ && frame.size() < 60) frame.resize(60, static_cast<std::uint8_t>(*padding_));
    return frame;
  }

  ByteVector datagram() const {
    ByteVector igmp = igmp_;
    if (igmp.size() >= 4) {
      writeChecksum(igmp, 0, igmp.size(), 2);
      igmp[2] ^= static_cast<std::uint8_t>(igmpChecksumError_ >> 8);
    }
    auto const headerSize = static_cast<unsigned>(20 + options_.size());
    auto const size = static_cast<unsigned>(headerSize + igmp.size());
    ByteWriter ip;
    ip.u8(ipVersion_ << 4 | headerWords_.value_or(headerSize / 4)).u8(0xc0);
    ip.u16(totalLength_.value_or(size)).u16(0x1234).u16(flagsAndOffset_).u8(ttl_).u8(protocol_);
    ip.u16(0).address(source_).address(destination_);
    ByteVector datagram = ip.append(options_).bytes();
    writeChecksum(datagram, 0, datagram.size(), 10);
    datagram[10] ^= static_cast<std::uint8_t>(ipChecksumError_ >> 8);
    datagram.insert(datagram.end(), igmp.begin(), igmp.end());
    return datagram;
  }

 private:
  static constexpr IpAddr allSystems{224, 0, 0, 1};
  static constexpr IpAddr allRouters{224, 0, 0, 2};
  static constexpr IpAddr allReportersV3{224, 0, 0, 22};

  static FrameBuilder fixedMessage(unsigned type, unsigned maxResponseTime, IpAddr group,
                                   IpAddr destination) {
    ByteWriter igmp;
    igmp.u8(type).u8(maxResponseTime).u16(0).address(group);
    return message(igmp.bytes(), destination);
  }

  template <class T>
  FrameBuilder& set(T& field, T value) {
    field = std::move(value);
    return *this;
  }

  ByteVector igmp_;
  IpAddr source_{192, 0, 2, 10};
  IpAddr destination_;
  std::vector<unsigned> tags_;
  unsigned etherType_ = 0x0800;
  unsigned ipVersion_ = 4;
  std::optional<unsigned> headerWords_;
  std::optional<unsigned> totalLength_;
  unsigned flagsAndOffset_ = 0;
  unsigned ttl_ = 1;
  unsigned protocol_ = 2;
  ByteVector options_{0x94, 0x04, 0x00, 0x00};  // Router Alert
  unsigned ipChecksumError_ = 0;
  unsigned igmpChecksumError_ = 0;
  std::optional<unsigned> padding_;
};

}  // namespace IgmpTest
