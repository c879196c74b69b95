#pragma once

#include <cstdint>

#include "platform/igmp/wire/Message.h"
#include "platform/snooping/LearnedMembership.h"

namespace Bridging::IgmpSnooping {

/// What reports and time make of a membership: RFC 9776 section 6.4, with one reporter where the
/// RFC has one network. It changes only what differs, at a cost that grows with the sources that a
/// record names and with those that go, not with those that stay.
///
/// The reporter 0.0.0.0 may be many systems, so its state is merged by the RFC's own rows: one of
/// them cannot speak for the others, and what it takes back goes when the last member query time
/// has passed without an answer.
class KEL_EXPORT FilterState {
 public:
  /// When what a record changes comes to its end.
  struct Times {
    Horix::Time renewed;   ///< when what a report names ends
    Horix::Time doubtful;  ///< when what is taken back ends, unless somebody answers
  };

  /// @param maxSources how many the membership may come to have; what goes beyond is refused, one
  /// source at a time. What it has already stays.
  FilterState(LearnedMembership& membership, Horix::TimerWheel const& timerWheel,
              std::uint32_t maxSources)
      : membership_(membership), timerWheel_(timerWheel), maxSources_(maxSources) {}

  /// Whether a record says what a reporter excludes.
  static bool isOfExcludeMode(Igmp::GroupRecord const& record) {
    return record.type == Wirex::IgmpV3GroupRecordType::modeIsExclude ||
           record.type == Wirex::IgmpV3GroupRecordType::changeToExcludeMode;
  }

  /// Whether a record says something of a reporter of whom nothing is known, INCLUDE({}).
  static bool begins(Igmp::GroupRecord const& record);

  /// A group record of an IGMPv3 report (RFC 9776 section 6.4).
  void hear(Igmp::GroupRecord const& record, Times times);

  /// Hears a record of one reporter if it says just what is known, as most do: then all of it ends
  /// at `end`, and nothing else changes. Returns whether it does.
  static bool hearRepeated(Igmp::GroupRecord const& record, LearnedMembership& membership,
                           Horix::TimerWheel const& timerWheel, Horix::Time end);

  /// An IGMPv1 or IGMPv2 report: EXCLUDE({}).
  void hearOlderReport(Times times);

  /// An IGMPv2 leave.
  void hearLeave(Times times);

  /// What is left of a state that was known before.
  void restore(TimedFilter const& filter);

  /// The membership's timer is due.
  void expire();

  /// The reporter wants nothing any more, and its timer does not run.
  void withdraw();

  /// INCLUDE({})
  bool wantsNothing() const { return membership_.includes() && membership_.source().empty(); }

  /// Whether readers of the membership have something new to hear.
  bool changed() const { return changed_; }
  /// Whether a source was one too many.
  bool refused() const { return refused_; }

 private:
  using Mode = Gmp::Igmp::IgmpFilterMode;

  void hearInIncludeMode(Igmp::GroupRecord const& record, Times times);
  void hearInExcludeMode(Igmp::GroupRecord const& record, Times times);

  void state(Mode mode, Igmp::SourceList const& sources, Horix::Time end);
  void request(Igmp::SourceList const& sources, Horix::Time end);
  void requestOne(Wirex::IpAddr source, Horix::Time end);
  bool namesAll(Igmp::SourceList const& sources) const;
  void lower(Igmp::SourceList const& sources, Horix::Time end);
  void lowerAll(Horix::Time end);
  void excludeSome(Igmp::SourceList const& sources, Times times, bool isChange);

  void requestBesides(Igmp::SourceList const& sources, Horix::Time end);
  void exclude(Igmp::SourceList const& sources);
  void doubt(Igmp::SourceList const& sources, Horix::Time end);
  void excludeCommon(Igmp::SourceList const& sources, Times times, bool isChange);
  void lowerMode(Horix::Time end);

  void expireSources(Horix::Time now);
  void expireMode(Horix::Time now);
  void expireRequested(Horix::Time now);

  void modeIs(Mode mode);
  bool add(Wirex::IpAddr source);
  void remove(Wirex::IpAddr source);
  void keepOnly(Igmp::SourceList const& sources);
  bool hasRoom();

  LearnedMembership::Times& times();
  Deadline* requestedTime(Wirex::IpAddr source);
  void requestedTimeIs(Wirex::IpAddr source, Deadline end);
  void endAllAt(Horix::Time end);
  void wakeUpBy(Horix::Time time);

  LearnedMembership& membership_;
  Horix::TimerWheel const& timerWheel_;
  std::uint32_t const maxSources_;
  bool changed_ = false;
  bool refused_ = false;
};

}  // namespace Bridging::IgmpSnooping
