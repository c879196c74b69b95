#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <ratio>
#include <variant>

#include "framework/kel/Export.h"
#include "framework/types/IgmpV3GroupRecordType.h"
#include "framework/types/IgmpVersion.h"
#include "framework/types/IpAddr.h"
#include "platform/igmp/wire/ByteReader.h"
#include "platform/igmp/wire/Parsed.h"

/// The messages of IGMPv1 (RFC 1112), IGMPv2 (RFC 2236) and IGMPv3 (RFC 9776), as received.
/// Nothing here allocates: lists of sources and of group records are views of the captured bytes,
/// checked once by parseMessage() and read as they are walked. They live as long as those bytes.
namespace Igmp {

/// The first byte of a message.
enum class MessageType : std::uint8_t {
  query = 0x11,
  reportV1 = 0x12,
  reportV2 = 0x16,
  leave = 0x17,
  reportV3 = 0x22,
};

inline constexpr std::size_t addressSize = 4;  ///< bytes of an IPv4 address
/// Bytes of an IGMPv1 or IGMPv2 message.
inline constexpr std::size_t messageSize = 1 + 1 + 2 + addressSize;  // of IGMPv1 and IGMPv2
/// Bytes of an IGMPv3 query before its sources (RFC 9776 section 4.1).
inline constexpr std::size_t queryV3HeaderSize = messageSize + 1 + 1 + 2;
/// Bytes of an IGMPv3 report before its records (RFC 9776 section 4.2).
inline constexpr std::size_t reportV3HeaderSize = 1 + 1 + 2 + 2 + 2;
/// Bytes of a group record before its sources (RFC 9776 section 4.2.4).
inline constexpr std::size_t groupRecordHeaderSize = 1 + 1 + 2 + addressSize;

/// Tenths of a second, the unit of response times on the wire.
using Deciseconds = std::chrono::duration<std::int32_t, std::deci>;

/// What IGMPv3's Max Resp Code and QQIC stand for (RFC 9776 sections 4.1.1 and 4.1.7): numbers
/// below 128 themselves, higher ones in a floating-point form.
constexpr std::int32_t codeValue(std::uint8_t code) noexcept {
  if (code < 0x80) return code;
  int const exponent = code >> 4 & 0x07;
  int const mantissa = code & 0x0f;
  return (mantissa | 0x10) << (exponent + 3);
}

/// Whether one system can have this address on a link: it is neither multicast, reserved or
/// broadcast, nor of "this network" or loopback (RFC 1122 section 3.2.1.3). 0.0.0.0, which a host
/// without an address reports from, is none.
constexpr bool isUnicast(Wirex::IpAddr address) noexcept {
  constexpr std::uint32_t thisNetwork = 0;
  constexpr std::uint32_t loopback = 127;
  constexpr std::uint32_t firstMulticast = 224;
  std::uint32_t const network = address.value() >> 24;
  return network != thisNetwork && network != loopback && network < firstMulticast;
}

/// Source addresses, in the order of the message, repetitions included.
class SourceList {
 public:
  /// Reads one address after the other.
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Wirex::IpAddr;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = Wirex::IpAddr;

    explicit Iterator(Bytes rest) noexcept : rest_(rest) {}

    Wirex::IpAddr operator*() const noexcept { return ByteReader(rest_).ipAddr(); }
    Iterator& operator++() noexcept {
      rest_ = rest_.subspan(addressSize);
      return *this;
    }
    Iterator operator++(int) noexcept {
      Iterator const before = *this;
      ++*this;
      return before;
    }

    /// Of iterators of the same list.
    friend bool operator==(Iterator const& a, Iterator const& b) noexcept {
      return a.rest_.size() == b.rest_.size();
    }

   private:
    Bytes rest_;
  };

  SourceList() noexcept = default;

  /// @param addresses four bytes each.
  explicit SourceList(Bytes addresses) noexcept : addresses_(addresses) {}

  std::size_t size() const noexcept { return addresses_.size() / addressSize; }
  bool empty() const noexcept { return addresses_.empty(); }
  Iterator begin() const noexcept { return Iterator(addresses_); }
  Iterator end() const noexcept { return Iterator(addresses_.last(0)); }

 private:
  Bytes addresses_;
};

/// A group record of an IGMPv3 report (RFC 9776 section 4.2.4). Its auxiliary data is skipped.
struct GroupRecord {
  Wirex::IgmpV3GroupRecordType type{};  ///< may have a value that has no name
  Wirex::IpAddr group;
  SourceList sources;

  /// Why this record is to be ignored, which does not touch the others of its report:
  /// unknownRecordType, groupNotMulticast, groupLinkLocal, sourceNotUnicast. A record with one
  /// bad source is ignored whole: without that source it would say something else.
  KEL_EXPORT std::optional<IgnoreReason> problem() const noexcept;
};

/// The group records of a report, unusable ones included.
class KEL_EXPORT GroupRecords {
 public:
  /// Reads one record after the other.
  class KEL_EXPORT Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = GroupRecord;
    using difference_type = std::ptrdiff_t;
    using pointer = GroupRecord const*;
    using reference = GroupRecord const&;

    Iterator(Bytes records, std::size_t left) noexcept;

    GroupRecord const& operator*() const noexcept { return record_; }
    GroupRecord const* operator->() const noexcept { return &record_; }
    Iterator& operator++() noexcept;
    Iterator operator++(int) noexcept {
      Iterator const before = *this;
      ++*this;
      return before;
    }

    /// Of iterators of the same report.
    friend bool operator==(Iterator const& a, Iterator const& b) noexcept {
      return a.left_ == b.left_;
    }

   private:
    ByteReader reader_;
    std::size_t left_;
    GroupRecord record_;
  };

  /// Nothing if `records` does not hold `count` whole records.
  static std::optional<GroupRecords> checked(Bytes records, std::size_t count) noexcept;

  std::size_t size() const noexcept { return count_; }
  Iterator begin() const noexcept { return {records_, count_}; }
  Iterator end() const noexcept { return {{}, 0}; }

 private:
  GroupRecords(Bytes records, std::size_t count) noexcept : records_(records), count_(count) {}

  Bytes records_;
  std::size_t count_;
};

/// A membership query. What a version does not know has the value that stands for unknown.
struct Query {
  IgmpVersion version{};

  /// 0.0.0.0 asks for all groups.
  Wirex::IpAddr group;

  /// IGMPv1 has none and means 10 s (RFC 2236 section 4).
  Deciseconds maxResponseTime{};

  /// The S flag: routers that hear it do not update their timers.
  bool suppressesRouters = false;

  /// The querier's robustness variable, 0 if it does not tell.
  std::uint8_t robustness = 0;

  /// The querier's query interval, 0 if it does not tell.
  std::chrono::seconds queryInterval{};

  SourceList sources;

  /// Whether it asks for all groups.
  bool isGeneral() const noexcept { return group == Wirex::IpAddr(); }
};

/// An IGMPv1 report (RFC 1112 appendix I).
struct ReportV1 {
  Wirex::IpAddr group;
};

/// An IGMPv2 report (RFC 2236 section 2).
struct ReportV2 {
  Wirex::IpAddr group;
};

/// An IGMPv3 report (RFC 9776 section 4.2).
struct ReportV3 {
  GroupRecords records;  ///< of one or more groups
};

/// An IGMPv2 leave (RFC 2236 section 2).
struct Leave {
  Wirex::IpAddr group;
};

/// Any message that a snooping switch has a use for.
using Message = std::variant<Query, ReportV1, ReportV2, ReportV3, Leave>;

/// Reads a query whose type and checksum are known to be right.
/// Refuses with inconsistentLength, groupNotMulticast, groupLinkLocal, sourceNotUnicast.
KEL_EXPORT Parsed<Query> readQuery(Bytes message);

/// @param payload the whole payload of the IP datagram, over which the checksum goes. What
/// follows a message's fields there is ignored, as the RFCs ask.
/// Refuses with inconsistentLength, badIgmpChecksum, unknownType, groupNotMulticast,
/// groupLinkLocal, and for a query's sources sourceNotUnicast. Problems of single group records
/// are told by the records.
KEL_EXPORT Parsed<Message> parseMessage(Bytes payload);

}  // namespace Igmp
