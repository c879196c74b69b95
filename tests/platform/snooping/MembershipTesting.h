#pragma once

#include <ostream>
#include <set>
#include <utility>

#include "framework/entities/IgmpContextStatus.h"
#include "platform/igmp/wire/Message.h"
#include "tests/platform/igmp/FrameBuilder.h"

/// What the tests of learning say memberships in.
namespace SnoopingTest {

using Bridging::IgmpSnooping::IgmpContextStatus;
using Bridging::IgmpSnooping::IgmpMembership;
using Gmp::Igmp::IgmpFilterMode;
using Wirex::IntfId;
using Wirex::IpAddr;

inline constexpr IpAddr group{232, 1, 1, 1};
inline constexpr IpAddr otherGroup{232, 1, 1, 2};
inline constexpr IpAddr host{10, 0, 0, 1};
inline constexpr IpAddr otherHost{10, 0, 0, 2};
// Sources
inline constexpr IpAddr a{192, 0, 2, 1};
inline constexpr IpAddr b{192, 0, 2, 2};
inline constexpr IpAddr c{192, 0, 2, 3};
inline IntfId const swp1("swp1");
inline IntfId const swp2("swp2");

/// INCLUDE(sources) or EXCLUDE(sources).
struct Filter {
  IgmpFilterMode mode;
  std::set<IpAddr> sources;

  friend bool operator==(Filter const&, Filter const&) = default;
  friend std::ostream& operator<<(std::ostream& out, Filter const& filter) {
    out << filter.mode << '(';
    char const* separator = "";
    for (IpAddr const source : filter.sources) out << std::exchange(separator, ", ") << source;
    return out << ')';
  }
};

inline Filter include(std::set<IpAddr> sources) {
  return {IgmpFilterMode::include, std::move(sources)};
}
inline Filter exclude(std::set<IpAddr> sources) {
  return {IgmpFilterMode::exclude, std::move(sources)};
}
inline Filter filterOf(IgmpMembership const& membership) {
  return {membership.filterMode(), {membership.source().begin(), membership.source().end()}};
}

/// A group record as parsed, with the bytes that it views.
class ParsedRecord {
 public:
  explicit ParsedRecord(IgmpTest::Record const& record)
      : sources_(IgmpTest::ByteWriter().addresses(record.sources).bytes()),
        record_{static_cast<Wirex::IgmpV3GroupRecordType>(record.type), record.group,
                Igmp::SourceList(sources_)} {}
  ParsedRecord(ParsedRecord const&) = delete;
  ParsedRecord& operator=(ParsedRecord const&) = delete;

  Igmp::GroupRecord const& operator*() const { return record_; }

 private:
  IgmpTest::ByteVector sources_;
  Igmp::GroupRecord record_;
};

}  // namespace SnoopingTest
